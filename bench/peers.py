"""The same figures of programs that do a part of the same work. Each function returns (name, value), or None where the
program isn't installed or couldn't be measured; the latter is said in a line. None takes longer than LIMIT."""
import contextlib
import functools
import json
import os
import queue
import random
import shutil
import signal
import subprocess
import time
from pathlib import Path

from lab import (BETWEEN, LOUD_PEAK, Monitor, PrivateSound, accept_ms, assistant_line, connect, end, main_thread_percent, median_p90, pss_kb,
                 short_folder, tone, wait_for, wakeups)

ROUNDS = 20
STARTS = 5
LIMIT = 180  # seconds for one figure of one peer
ANSWER = 10  # seconds for an answer or an edge of sound
QUIET = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
ESPEAK_MODULE = "/usr/lib/speech-dispatcher-modules/sd_espeak-ng"  # a package of its own
# Voiced throughout, so that it holds hardly a moment of silence.
VOICED = "we were away a year ago " * 20


@contextlib.contextmanager
def limited(seconds):
    """Ends what runs within by an exception when the time is up, wherever it waits. For the main thread."""

    def expire(*_):
        raise TimeoutError(f"not done within {seconds} s")

    before = signal.signal(signal.SIGALRM, expire)
    signal.alarm(seconds)
    try:
        yield
    finally:
        signal.alarm(0)
        signal.signal(signal.SIGALRM, before)


def peer(name, *programs):
    """Makes a measurement a peer: no program, no figure; and a failure costs no more than that figure."""

    def decorate(measure):
        @functools.wraps(measure)
        def measured(*arguments):
            if not all(shutil.which(program) for program in programs):
                return None
            try:
                with limited(LIMIT):
                    return name, measure(*arguments)
            except Exception as problem:  # whatever it is, the other figures can still be had
                print(f"{name} isn't measured ({measure.__name__}): {type(problem).__name__}: {problem}", flush=True)
                return None

        return measured

    return decorate


@contextlib.contextmanager
def running(command, environment, socket_path, folder):
    """A program, once the socket at `socket_path` accepts: gives the milliseconds until then and its process."""
    processes = []

    def start():
        processes.append(subprocess.Popen(command, env=environment, cwd=folder, **QUIET))
        return processes[0]

    try:
        took, process = accept_ms(start, socket_path)
        yield took, process
    finally:
        for process in processes:
            end(process)


def dialogue(path):
    client = connect(path)
    client.settimeout(ANSWER)
    return client


class Stage:
    """A sound server, and a folder that is the peer's home; with a monitor, or able to sleep as a desktop's is. Sound up to
    `floor` is silence to the monitor."""

    def __init__(self, monitor=True, floor=0):
        self.listens = monitor
        self.floor = floor
        self.held = contextlib.ExitStack()
        self.monitor = None

    def __enter__(self):
        with contextlib.ExitStack() as held:
            self.folder = Path(held.enter_context(short_folder()))
            self.sound = PrivateSound(self.folder)
            held.callback(self.sound.stop)
            self.sound.start("" if self.listens else "load-module module-suspend-on-idle timeout=1\n")
            if self.listens:
                self.monitor = Monitor(self.sound, self.floor)
                held.callback(self.monitor.stop)
            self.environment = os.environ | self.sound.environment | {"HOME": str(self.folder), "XDG_RUNTIME_DIR": str(self.folder)}
            self.held = held.pop_all()
        return self

    def __exit__(self, *problem):
        return self.held.__exit__(*problem)

    def edge(self, kind):
        try:
            return self.monitor.next(kind, ANSWER)
        except queue.Empty:
            raise RuntimeError(f"the sound didn't go {kind} within {ANSWER} s") from None

    def idle(self):
        wait_for("an idle server", lambda: not self.sound.sink_inputs(), ANSWER)
        self.still(0.15)  # the monitor tells two sounds apart by the silence between them

    def still(self, seconds):
        """Waits until the monitor has told nothing for so long; returns the last edge that it told before, if any."""
        last = None
        while True:
            try:
                last = self.monitor.edges.get(timeout=seconds)
            except queue.Empty:
                return last

    def first_sound_ms(self, act, stop):
        """Median from `act()`, by which the idle peer begins to play, to its first sound."""
        values = []
        for _ in range(ROUNDS):
            self.idle()
            not_in_step()
            began = time.monotonic_ns()
            act()
            values.append((self.edge("on") - began) / 1e6)
            stop()
        return median_p90(values)[0]


def not_in_step():
    """Keeps a command out of step with the blocks of the null sink, with which every edge arrives."""
    time.sleep(random.uniform(0.1, 0.12))


def tail_pipeline_ms(script, text):
    """A shell loop that reads lines as they are appended."""
    with Stage() as stage:
        tone(stage.folder / "ready.wav", 0.2)
        lines = stage.folder / "lines"
        lines.touch()
        shell = subprocess.Popen(["/bin/bash", "-c", script], cwd=stage.folder, env=stage.environment, start_new_session=True,
                                 **QUIET)

        def append():
            with lines.open("a") as file:
                file.write(text + "\n")

        try:
            time.sleep(0.5)
            return stage.first_sound_ms(append, lambda: stage.edge("off"))
        finally:
            os.killpg(shell.pid, signal.SIGTERM)
            shell.wait(ANSWER)


@peer("tail|paplay", "paplay")
def tail_into_paplay():
    return tail_pipeline_ms("tail -n0 -F lines | while read -r line; do paplay ready.wav; done", "x")


@peer("tail|espeak-ng|paplay", "paplay", "espeak-ng")
def tail_into_espeak():
    text = json.loads(assistant_line(1, "The parser now reads each line once and hands over whole messages"))
    words = text["message"]["content"][0]["text"]
    return tail_pipeline_ms('tail -n0 -F lines | while read -r line; do espeak-ng --stdout "$line" | paplay; done', words)


class Mpv:
    """An idle player with its socket. Nobody reads what it answers or tells: a round has its own connection."""

    def __init__(self, folder, environment):
        self.folder = Path(folder)
        self.environment = environment
        self.socket = self.folder / "mpv.sock"

    def running(self):
        return running(["mpv", "--no-config", "--idle", "--no-terminal", "--no-video", "--ao=pulse",
                        f"--input-ipc-server={self.socket}"], self.environment, self.socket, self.folder)

    def send(self, *commands):
        """Returns when the last of `commands` is answered."""
        last = len(commands)
        with dialogue(self.socket) as client:
            client.sendall(b"".join(json.dumps({"command": command, "request_id": number}).encode() + b"\n"
                                    for number, command in enumerate(commands, 1)))
            with client.makefile("rb") as answers:
                for line in answers:
                    answer = json.loads(line)
                    if "error" in answer and answer["error"] != "success":
                        raise RuntimeError(f"mpv answers {answer}")
                    if answer.get("request_id") == last and "error" in answer:
                        return
        raise RuntimeError("mpv closed its socket")

    def load(self, name="tone.wav"):
        self.send(["loadfile", name])

    def reset(self):
        # A pause outlives the file that it paused.
        self.send(["stop"], ["set_property", "pause", False])


@contextlib.contextmanager
def silent_mpv():
    """One that has nothing to play and no server to play it on."""
    with short_folder() as folder:
        mpv = Mpv(folder, os.environ | {"HOME": folder, "PULSE_SERVER": f"unix:{folder}/none"})
        with mpv.running() as (start_ms, process):
            yield mpv, start_ms, process


@peer("mpv", "mpv")
def mpv_start():
    values = []
    for _ in range(STARTS):
        with silent_mpv() as (_, start_ms, _):
            values.append(start_ms)
    return median_p90(values)[0]


@peer("mpv", "mpv")
def mpv_memory():
    with silent_mpv() as (_, _, process):
        time.sleep(2)
        return pss_kb(process.pid) / 1024


@peer("mpv", "mpv")
def mpv_commands():
    count = 50_000
    batch = b'{"command":["ignore"]}\n' * count
    with silent_mpv() as (mpv, _, _), connect(mpv.socket) as client:
        began = time.monotonic()
        client.setblocking(False)
        sent, answers = 0, 0
        while answers < count:
            try:
                sent += client.send(batch[sent:sent + 65536]) if sent < len(batch) else 0
            except BlockingIOError:
                pass
            try:
                answers += client.recv(1 << 20).count(b"\n")
            except BlockingIOError:
                time.sleep(0.0001)
        return count / (time.monotonic() - began)


@peer("mpv", "mpv")
def mpv_first_sound():
    with Stage() as stage:
        tone(stage.folder / "tone.wav", 3)
        mpv = Mpv(stage.folder, stage.environment)
        with mpv.running():
            return stage.first_sound_ms(mpv.load, mpv.reset)


@peer("mpv", "mpv")
def mpv_pause():
    with Stage() as stage:
        tone(stage.folder / "tone.wav", 30)
        mpv = Mpv(stage.folder, stage.environment)
        values = []
        with mpv.running():
            for _ in range(ROUNDS):
                stage.idle()
                mpv.load()
                stage.edge("on")
                not_in_step()
                stage.monitor.drain()
                began = time.monotonic_ns()
                mpv.send(["set_property", "pause", True])
                values.append((stage.edge("off") - began) / 1e6)
                mpv.reset()
        return median_p90(values)[0]


@peer("mpv", "mpv")
def mpv_other_file():
    """From one file in the midst of another."""
    with Stage(floor=BETWEEN) as stage:
        tone(stage.folder / "tone.wav", 30)
        tone(stage.folder / "loud.wav", 30, peak=LOUD_PEAK)
        mpv = Mpv(stage.folder, stage.environment)
        values = []
        with mpv.running():
            for _ in range(ROUNDS):
                stage.idle()
                mpv.load()
                wait_for("the first file", stage.sound.sink_inputs, ANSWER)
                stage.still(random.uniform(0.3, 0.32))
                began = time.monotonic_ns()
                mpv.load("loud.wav")
                values.append((stage.edge("on") - began) / 1e6)
                mpv.reset()
        return median_p90(values)[0]


@peer("mpv", "mpv")
def mpv_main_thread():
    """While it plays, without a window."""
    with Stage(monitor=False) as stage:
        tone(stage.folder / "tone.wav", 30)
        mpv = Mpv(stage.folder, stage.environment)
        with mpv.running() as (_, process):
            mpv.load()
            wait_for("its stream on the sound server", stage.sound.sink_inputs, ANSWER)
            time.sleep(2)
            return main_thread_percent(process.pid, 10)


class Mpd:
    """A music daemon with one tone in its library."""

    def __init__(self, stage):
        self.stage = stage
        self.socket = stage.folder / "mpd.sock"
        self.config = stage.folder / "mpd.conf"
        music = stage.folder / "music"
        music.mkdir()
        tone(music / "tone.wav", 3)
        self.config.write_text(
            f'music_directory "{music}"\n'
            f'db_file "{stage.folder}/mpd.db"\n'
            f'bind_to_address "{self.socket}"\n'
            f'log_file "{stage.folder}/mpd.log"\n'
            'zeroconf_enabled "no"\n'
            f'audio_output {{\n type "pulse"\n name "sound"\n server "unix:{stage.sound.address}"\n}}\n')

    def running(self):
        return running(["mpd", "--no-daemon", str(self.config)], self.stage.environment, self.socket, self.stage.folder)

    def send(self, *commands):
        """Returns the lines of the answer."""
        with dialogue(self.socket) as client, client.makefile("rw", encoding="utf-8", newline="\n") as stream:
            if not stream.readline().startswith("OK MPD "):
                raise RuntimeError("mpd doesn't greet")
            stream.write("\n".join(("command_list_begin", *commands, "command_list_end")) + "\n")
            stream.flush()
            answer = []
            while (line := stream.readline()) != "OK\n":
                if not line or line.startswith("ACK"):
                    raise RuntimeError(f"mpd answers '{line.strip()}' to {commands}")
                answer.append(line.strip())
            return answer

    def read_library(self):
        self.send("update")
        wait_for("mpd's library", lambda: "file: tone.wav" in self.send("listall"), ANSWER)


@peer("mpd", "mpd")
def mpd_start():
    values = []
    for _ in range(STARTS):
        with Stage(monitor=False) as stage, Mpd(stage).running() as (start_ms, _):
            values.append(start_ms)
    return median_p90(values)[0]


@peer("mpd", "mpd")
def mpd_memory():
    with Stage(monitor=False) as stage:
        mpd = Mpd(stage)
        with mpd.running() as (_, process):
            mpd.read_library()
            time.sleep(2)
            return pss_kb(process.pid) / 1024


@peer("mpd", "mpd")
def mpd_first_sound():
    with Stage() as stage:
        mpd = Mpd(stage)
        with mpd.running():
            mpd.read_library()
            return stage.first_sound_ms(lambda: mpd.send("add tone.wav", "play"), lambda: mpd.send("stop", "clear"))


@peer("mpd", "mpd")
def mpd_main_thread():
    with Stage(monitor=False) as stage:
        mpd = Mpd(stage)
        tone(stage.folder / "music/tone.wav", 30)
        with mpd.running() as (_, process):
            mpd.read_library()
            mpd.send("add tone.wav", "play")
            wait_for("its stream on the sound server", stage.sound.sink_inputs, ANSWER)
            time.sleep(2)
            return main_thread_percent(process.pid, 10)


class SpeechDispatcher:
    """A speech server with espeak-ng on the stage's sound server."""

    def __init__(self, stage):
        self.stage = stage
        self.socket = stage.folder / "speech.sock"
        self.config = stage.folder / "speech"
        (self.config / "modules").mkdir(parents=True)
        (self.config / "modules/espeak-ng.conf").touch()
        (self.config / "speechd.conf").write_text(
            'LogLevel 1\nAudioOutputMethod "pulse"\n'
            'AddModule "espeak-ng" "sd_espeak-ng" "espeak-ng.conf"\nDefaultModule espeak-ng\n')

    def running(self):
        folder = self.stage.folder
        return running(["speech-dispatcher", "--run-single", "--timeout", "0",
                        "--communication-method", "unix_socket", "--socket-path", str(self.socket),
                        "--config-dir", str(self.config), "--log-dir", str(folder), "--pid-file", str(folder / "speech.pid")],
                       self.stage.environment, self.socket, folder)


class Speaker:
    """A client of the speech server; answers and events come on the same connection."""

    def __init__(self, path):
        self.client = dialogue(path)
        self.lines = self.client.makefile("r", encoding="utf-8", newline="\r\n")
        self.command("SET SELF CLIENT_NAME bench:bench:main", "208")
        self.command("SET SELF OUTPUT_MODULE espeak-ng", "216")
        self.command("SET SELF NOTIFICATION END ON", "220")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.lines.close()
        self.client.close()

    def wait(self, code):
        """Reads up to the last line of the answer or event of this code; other events may come before it."""
        while line := self.lines.readline():
            if line.startswith(code + " "):
                return
            if line[3] == " " and line[0] != "7":
                raise RuntimeError(f"speech-dispatcher answers '{line.strip()}' instead of {code}")
        raise RuntimeError("speech-dispatcher closed its socket")

    def command(self, text, code):
        self.client.sendall(text.encode() + b"\r\n")
        self.wait(code)

    def speak(self, text):
        self.command("SPEAK", "230")
        self.command(text + "\r\n.", "225")


def cancel_ms(stage, speaker):
    """From the command to the last sound, or None where the command came in a silence between two words."""
    stage.still(0.3)
    speaker.speak(VOICED)
    stage.edge("on")
    not_in_step()
    stage.monitor.drain()
    began = time.monotonic_ns()
    speaker.command("CANCEL SELF", "213")
    kind, at = stage.still(0.3) or ("on", 0)
    if kind != "off":
        return None
    return (at - began) / 1e6 if at > began else None


@peer("speech-dispatcher", "speech-dispatcher", ESPEAK_MODULE)
def speech_dispatcher_cancel():
    values = []
    with Stage() as stage:
        server = SpeechDispatcher(stage)
        with server.running(), Speaker(server.socket) as speaker:
            for _ in range(2 * ROUNDS):
                took = cancel_ms(stage, speaker)
                values += [took] if took is not None else []
                if len(values) == ROUNDS:
                    return median_p90(values)[0]
    raise RuntimeError(f"only {len(values)} of {2 * ROUNDS} cancels came while it sounded")


@peer("speech-dispatcher", "speech-dispatcher", ESPEAK_MODULE)
def wakeups_after_speech_dispatcher():
    """The sound server's, from 2 s after the last word."""
    with Stage(monitor=False) as stage:
        server = SpeechDispatcher(stage)
        with server.running(), Speaker(server.socket) as speaker:
            speaker.speak("The parser now reads each line once")
            wait_for("its stream on the sound server", stage.sound.sink_inputs, ANSWER)
            speaker.wait("702")
            time.sleep(2)
            return wakeups(stage.sound.server.pid, 5)


def filter_ms(command, rows):
    """From the start of a program that filters the lines of `rows` to its last line; the median of all starts."""
    values = []
    for _ in range(STARTS):
        with open(rows, "rb") as lines:
            began = time.monotonic_ns()
            subprocess.run(command, stdin=lines, stdout=subprocess.DEVNULL, check=True)
            values.append((time.monotonic_ns() - began) / 1e6)
    return median_p90(values)[0]


@peer("fzf", "fzf")
def fzf_filter(rows, token):
    return filter_ms(["fzf", f"--filter={token}"], rows)


@peer("fzy", "fzy")
def fzy_filter(rows, token):
    return filter_ms(["fzy", f"--show-matches={token}"], rows)
