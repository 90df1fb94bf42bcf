"""--play: pieces handed to the service's socket, and playing on this machine through a real sound server."""

import json
import os
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time
import unittest
from pathlib import Path

from support import HELPER, LIMIT, SENTENCE, HelperTest, Recording, has_ended, tts_playing

REPLY = "First things first. Then comes the rest of it. And some more.\n\n- A list item\n" + SENTENCE


class Pieces(unittest.TestCase):
    def test_table(self) -> None:
        limit = tts_playing.PIECE_CHARS
        sentence = "x" * 99 + "."
        for text, expected in (
            ("One sentence.", ["One sentence."]),
            ("One. Two! Three? Four…", ["One.", "Two! Three? Four…"]),
            ("One\n\n  two \r\nthree", ["One", "two", "three"]),
            ("v1.2.3 is out. Good.", ["v1.2.3 is out.", "Good."]),
            (" \n\t\n", []),
            ("", []),
            (" ".join([sentence] * 5), [sentence, " ".join([sentence] * 2), " ".join([sentence] * 2)]),
            ("y" * (2 * limit + 5), ["y" * limit, "y" * limit, "y" * 5]),
            ("word " * 100, [("word " * 60).strip(), ("word " * 40).strip()]),
        ):
            with self.subTest(text[:30]):
                self.assertEqual(tts_playing.pieces(text), expected)

    def test_loses_no_word(self) -> None:
        for text in (REPLY, SENTENCE * 40, "a" * 1000 + " b. " + "c " * 700):
            self.assertEqual("".join("".join(tts_playing.pieces(text)).split()), "".join(text.split()))


class Service:
    """A socket that takes lines as the service does, and keeps them."""

    def __init__(self, path: Path) -> None:
        self.lines: list[dict] = []
        self.closed = threading.Event()
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(str(path))
        self._listener.listen()
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def _serve(self) -> None:
        try:
            connection, _ = self._listener.accept()
        except OSError:
            return
        with connection, connection.makefile("rb") as stream:
            for line in stream:
                self.lines.append(json.loads(line))
        self.closed.set()

    def close(self) -> None:
        # Wakes an accept that nobody came to.
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        self._thread.join(LIMIT)


class NowPlaying(HelperTest):
    def setUp(self) -> None:
        super().setUp()
        self.path = self.dir / "s.sock"
        self.out = self.dir / "out.wav"
        self.env.update(TTS_PLAYER="nowplaying", TTS_SERVICE_SOCK=str(self.path), TTS_CAPTIONS="1")

    def serve(self, path: Path | None = None) -> Service:
        service = Service(path or self.path)
        self.addCleanup(service.close)
        return service

    def play(self, text: str = REPLY, **env: str) -> list[dict]:
        service = self.serve()
        done = self.once(self.text_file(text), self.out, "--play", **env)
        self.assertEqual((done.returncode, done.stdout), (0, ""), done.stderr)
        self.assertTrue(service.closed.wait(LIMIT))
        return service.lines

    def test_pieces_arrive_in_order_as_play_commands(self) -> None:
        lines = self.play(TTS_NARRATION_TEXT="What the reply is about")
        self.assertEqual([line["text"] for line in lines], tts_playing.pieces(REPLY))
        self.assertEqual(len(lines), 4)
        for line in lines:
            self.assertEqual((line["proto"], line["cmd"]), (1, "play"))
            self.assertEqual((line["title"], line["artist"]), ("Claude", "TTS"))
            self.assertEqual(line["snippet"], "What the reply is about")

    def test_files_are_whole_private_and_left_to_the_service(self) -> None:
        for line in self.play():
            path = Path(line["wav"])
            self.assertEqual((path.parent.parent, path.stat().st_mode & 0o777), (self.dir, 0o600))
            self.assertGreater(Recording(path).peak, 5000)

    def test_files_lie_in_a_directory_that_names_the_helper(self) -> None:
        service = self.serve()
        helper = subprocess.Popen([sys.executable, HELPER, self.text_file(REPLY), self.out, "--play"], env=self.env)
        self.assertEqual(helper.wait(LIMIT), 0)
        self.assertTrue(service.closed.wait(LIMIT))
        (directory,) = {Path(line["wav"]).parent for line in service.lines}
        self.assertRegex(directory.name, rf"^sonra-{os.getuid()}-{helper.pid}-\w+$")
        self.assertEqual(directory.stat().st_mode & 0o777, 0o700)
        self.assertEqual(len(os.listdir(directory)), len(service.lines))

    def test_directory_is_below_tmp_unless_tmpdir_is_absolute(self) -> None:
        for value in ("", "relative"):
            with self.subTest(value):
                directory = self.play_from("/tmp", TMPDIR=value)
                self.addCleanup(shutil.rmtree, directory, ignore_errors=True)

    def play_from(self, parent: str, **env: str) -> Path:
        self.path.unlink(missing_ok=True)
        directory = Path(self.play("Hello.", **env)[0]["wav"]).parent
        self.assertEqual(str(directory.parent), parent)
        return directory

    def test_no_place_for_files(self) -> None:
        self.serve()
        done = self.once(self.text_file(REPLY), self.out, "--play", TMPDIR=str(self.dir / "absent"))
        self.assertEqual(done.returncode, 1)
        self.assertIn("can't make a temporary directory: No such file", done.stderr)

    def test_output_holds_all_pieces(self) -> None:
        lines = self.play()
        whole = b"".join(Recording(line["wav"]).bytes for line in lines)
        self.assertEqual(Recording(self.out).bytes, whole)

    def test_snippet_is_the_piece_when_none_is_given_and_never_long(self) -> None:
        lines = self.play("Short. " + "long " * 59)
        self.assertEqual([line["snippet"] for line in lines], ["Short.", ("long " * 59).strip()[:240]])

    def test_socket_is_looked_for_at_home(self) -> None:
        (self.dir / ".claude/tts").mkdir(parents=True)
        service = self.serve(self.dir / ".claude/tts/service.sock")
        del self.env["TTS_SERVICE_SOCK"]
        self.assertEqual(self.once(self.text_file("Hello."), self.out, "--play").returncode, 0)
        self.assertTrue(service.closed.wait(LIMIT))
        self.assertEqual([line["text"] for line in service.lines], ["Hello."])

    def test_first_piece_comes_before_the_last_is_made(self) -> None:
        service = self.serve()
        text = self.text_file("At once. " + SENTENCE * 1500)
        helper = subprocess.Popen([sys.executable, HELPER, text, self.out, "--play"], env=self.env)
        self.addCleanup(helper.wait)
        self.addCleanup(helper.kill)
        deadline = time.monotonic() + LIMIT
        while not service.lines and time.monotonic() < deadline:
            time.sleep(0.005)
        self.assertEqual((service.lines[0]["text"], helper.poll()), ("At once.", None))

    def test_termination_leaves_what_was_handed_over_and_nothing_else(self) -> None:
        service = self.serve()
        text = self.text_file("At once. " + SENTENCE * 1500)
        helper = subprocess.Popen([sys.executable, HELPER, text, self.out, "--play"], env=self.env)
        self.addCleanup(helper.wait)
        deadline = time.monotonic() + LIMIT
        while len(service.lines) < 3 and time.monotonic() < deadline:
            time.sleep(0.005)
        helper.terminate()
        self.assertEqual(helper.wait(LIMIT), 128 + signal.SIGTERM)
        self.assertTrue(service.closed.wait(LIMIT))
        played = {line["wav"] for line in service.lines}
        left = {str(path) for path in self.dir.glob("sonra-*/*")}
        self.assertEqual((left - played, self.files()), (set(), ["text"]))
        for line in service.lines[:2]:
            self.assertTrue(os.path.exists(line["wav"]))

    def test_no_service(self) -> None:
        done = self.once(self.text_file(REPLY), self.out, "--play")
        self.assertEqual(done.returncode, 1)
        self.assertIn("can't reach the service: No such file", done.stderr)
        self.assertEqual((self.files(), self.directories()), (["text"], []))

    def test_service_that_goes_away(self) -> None:
        listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.addCleanup(listener.close)
        listener.bind(str(self.path))
        listener.listen()
        threading.Thread(target=lambda: listener.accept()[0].close(), daemon=True).start()
        done = self.once(self.text_file(SENTENCE * 50), self.out, "--play")
        self.assertEqual(done.returncode, 1)
        self.assertIn("the service went away: Broken pipe", done.stderr)
        self.assertNotIn("out.wav", self.files())

    def test_without_play_nothing_is_sent(self) -> None:
        service = self.serve()
        self.assertEqual(self.once(self.text_file(REPLY), self.out).returncode, 0)
        self.assertEqual((service.lines, service.closed.is_set()), ([], False))

    def test_player_none_plays_nothing(self) -> None:
        done = self.once(self.text_file(REPLY), self.out, "--play", TTS_PLAYER="none", PATH="")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(self.files(), ["out.wav", "text"])


    def directories(self) -> list[str]:
        return [path.name for path in self.dir.glob("sonra-*")]


class PlayingHere(HelperTest):
    """Against small player programs that tell what they were given."""

    def setUp(self) -> None:
        super().setUp()
        self.out = self.dir / "out.wav"
        self.bin = self.dir / "bin"
        self.bin.mkdir()
        self.env.update(TTS_PLAYER="afplay", PATH=str(self.bin))
        self.text = self.text_file("Hello there. How are you?")

    def player(self, name: str, body: str = ":") -> None:
        path = self.bin / name
        path.write_text(f'#!/bin/sh\necho "{name}" >> "{self.dir}/played"\n{body}\n')
        path.chmod(0o755)

    def played(self) -> list[str]:
        return (self.dir / "played").read_text().split()

    def play(self, **env: str):
        return self.once(self.text, self.out, "--play", **env)

    def test_first_player_that_is_there(self) -> None:
        self.player("aplay")
        self.player("pw-play")
        self.assertEqual(self.play().returncode, 0)
        self.assertEqual(self.played(), ["pw-play", "pw-play"])

    def test_player_that_is_asked_for(self) -> None:
        for name in ("paplay", "pw-play", "aplay"):
            self.player(name)
        self.assertEqual(self.play(TTS_PLAYER="aplay").returncode, 0)
        self.assertEqual(self.played(), ["aplay", "aplay"])

    def test_no_player(self) -> None:
        done = self.play()
        self.assertEqual(done.returncode, 1)
        self.assertIn("no player found (looked for paplay, pw-play, aplay)", done.stderr)

    def test_failing_player(self) -> None:
        for body, words in (("echo no sound today >&2; exit 3", "no sound today"), ("exit 3", "status 3")):
            self.player("paplay", body)
            done = self.play()
            self.assertEqual(done.returncode, 1)
            self.assertIn(f"paplay failed: {words}", done.stderr)
            self.assertEqual(list(self.dir.glob("sonra-*")), [])

    def test_captions_get_the_words(self) -> None:
        self.player("paplay")
        service = Service(self.dir / "s.sock")
        self.addCleanup(service.close)
        self.assertEqual(self.play(TTS_CAPTIONS="1", TTS_SERVICE_SOCK=str(self.dir / "s.sock")).returncode, 0)
        self.assertTrue(service.closed.wait(LIMIT))
        expected = [{"proto": 1, "cmd": "set", "text": words} for words in ("Hello there.", "How are you?")]
        self.assertEqual(service.lines, expected)

    def test_termination_stops_the_player(self) -> None:
        self.player("paplay", f'echo $$ > "{self.dir}/pid"; exec /bin/sleep 60')
        helper = subprocess.Popen([sys.executable, HELPER, self.text, self.out, "--play"], env=self.env)
        self.addCleanup(helper.wait)
        pid, deadline = self.dir / "pid", time.monotonic() + LIMIT
        while not (pid.exists() and pid.read_text().strip()) and time.monotonic() < deadline:
            time.sleep(0.01)
        helper.terminate()
        self.assertEqual(helper.wait(LIMIT), 128 + signal.SIGTERM)
        ended = int(pid.read_text())
        self.until(lambda: has_ended(ended))
        self.assertEqual(list(self.dir.glob("sonra-*")), [])


class SoundServer(HelperTest):
    """A private PulseAudio with a null sink, whose monitor is what can be heard."""

    def setUp(self) -> None:
        super().setUp()
        (self.dir / "run").mkdir(mode=0o700)
        script = self.dir / "test.pa"
        script.write_text(
            f"load-module module-native-protocol-unix socket={self.dir}/pulse auth-anonymous=1\n"
            "load-module module-null-sink sink_name=speaker norewinds=1 rate=48000 channels=1\n"
            "set-default-sink speaker\n"
        )
        self.env.update(XDG_RUNTIME_DIR=str(self.dir / "run"), PULSE_SERVER=f"unix:{self.dir}/pulse")
        options = "--daemonize=no --exit-idle-time=-1 --use-pid-file=no --disable-shm=yes --realtime=no"
        self.start("pulseaudio", "-n", "-F", str(script), *options.split(), "--high-priority=no")
        self.until(lambda: subprocess.run(["pactl", "info"], env=self.env, **self.silent).returncode == 0)

    silent = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}

    def start(self, *command: str) -> subprocess.Popen:
        process = subprocess.Popen(command, env=self.env, **self.silent)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        return process

    def heard(self, **env: str) -> Recording:
        path = self.dir / "heard.wav"
        path.unlink(missing_ok=True)
        recorder = self.start("parec", "-d", "speaker.monitor", "--file-format=wav", "--format=s16le", "--channels=1",
                              "--latency-msec=5", str(path))  # fmt: skip
        self.until(lambda: path.exists() and path.stat().st_size > 4096)
        done = self.once(self.text_file("Hello there. How are you?"), self.dir / "o.wav", "--play", **env)
        self.assertEqual(done.returncode, 0, done.stderr)
        recorder.send_signal(signal.SIGINT)
        recorder.wait(LIMIT)
        return Recording(path)

    def test_every_piece_is_heard_at_the_volume_asked_for(self) -> None:
        loud, quiet = self.heard(), self.heard(TTS_VOLUME="25")
        self.assertGreater(loud.peak, 8000)
        self.assertAlmostEqual(quiet.peak / loud.peak, 0.25, delta=0.05)
        spoken = Recording(self.dir / "o.wav").seconds
        self.assertGreater(loud.seconds - loud.lead - loud.tail, spoken - 0.4)
        self.assertEqual(list(self.dir.glob("sonra-*")), [])

    def test_server_that_cannot_be_reached(self) -> None:
        done = self.once(self.text_file("Hello."), self.dir / "o.wav", "--play", PULSE_SERVER="unix:/nowhere")
        self.assertEqual(done.returncode, 1)
        self.assertIn("paplay failed: Connection", done.stderr)


if __name__ == "__main__":
    unittest.main()
