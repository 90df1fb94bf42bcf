"""A reply is heard: lines are appended as an agent appends them, and the recording of the sink is the judge."""
import array
import json
import os
import subprocess
import tempfile
import unittest
import wave
from pathlib import Path

from home_case import SpeakingCase
from service import ROOT, assistant_line
from soundlab import RATE, loud_seconds, loudness, short_folder, utterances, wait_for


class NarrationCase(SpeakingCase):
    """A session that is attached and recorded once a test listens, judged by what was heard."""

    def listen(self):
        self.service.attach()
        self.sound.record()

    def wait_heard(self, count):
        """Until so many chunks are over and as many utterances were recorded, and half a second of silence behind the last."""

        def done():
            if len(self.home.log("chunk finished")) < count:
                return False
            samples = self.sound.samples()
            heard = utterances(samples)
            return len(heard) >= count and len(samples) / RATE - heard[-1][1] > 0.5

        wait_for(f"{count} utterances", done, 40, 0.1)

    def heard(self):
        return len(utterances(self.sound.samples()))

    def assert_spoken(self, count):
        """As many chunks as were meant were heard, and no sound beside theirs. Where the machine was held up there may be
        silence in the middle of one."""
        self.assertEqual(len(self.home.log("chunk enqueued")), count)
        durations = [record["result"]["duration"] for record in self.home.log("playback started")]
        self.assertEqual(len(durations), count)
        self.assertGreaterEqual(self.heard(), count)
        self.assertLess(loud_seconds(self.sound.samples()), sum(durations) + 0.2 * count)


class ReplyIsHeard(NarrationCase):
    def test_each_reply_is_spoken_once_and_nothing_else(self):
        self.listen()
        self.home.append(assistant_line(1, "This reply stands on a single line"))
        self.wait_heard(1)
        second = assistant_line(2, "This one arrives in two halves")
        self.home.append(second[:40])
        offset = self.home.transcript.stat().st_size - 40
        wait_for("a look at half a line", lambda: self.home.state()["sessions"][0]["offset"] == offset)
        self.home.append(second[40:])
        self.wait_heard(2)
        self.home.append(assistant_line(3, "A helper agent is never heard", isSidechain=True))
        self.home.append(second)
        self.home.append(json.dumps({"type": "user", "message": {"content": "not for the ears"}}) + "\n")
        self.home.append(assistant_line(4, "Too short"))
        self.home.append("this is not json\n")
        self.home.append(assistant_line(5, "The last reply comes after all that"))
        self.wait_heard(3)
        self.assert_spoken(3)
        self.assertEqual(self.home.problems(), [])

    def test_of_what_was_said_before_the_attach_only_the_last_is_repeated(self):
        said = ["Said before anybody listened", "And this before anybody listened", "This was the last before anybody listened"]
        for number, text in enumerate(said, 1):
            self.home.append(assistant_line(number, text))
        self.listen()
        wait_for("the repeated reply", lambda: self.home.log("chunk enqueued"))
        new = "Said while somebody listens, at last"
        self.home.append(assistant_line(4, new))
        wait_for("its end", lambda: len(self.home.log("chunk finished")) == 2)
        # No two of them are of the same length.
        self.assertEqual([record["input"]["length"] for record in self.home.log("chunk enqueued")], [len(said[-1]), len(new)])

    def test_lines_of_a_reply_are_spoken_in_order_without_a_word_lost(self):
        self.listen()
        self.home.append(assistant_line(1, "\n".join(f"This is line number {n} of the reply" for n in range(1, 6))))
        wait_for("all five chunks", lambda: len(self.home.log("chunk finished")) == 5, 40)
        started = [r["result"]["duration"] for r in self.home.log("playback started")]
        self.assertEqual(len(started), 5)

        def recorded():
            return sum(peak > 40 for peak in loudness(self.sound.samples())) / 100

        wait_for("the sound of them all", lambda: recorded() > 0.8 * sum(started), pause=0.1)

    def test_files_of_spoken_chunks_are_removed(self):
        self.listen()
        # So that it is there until it has been seen.
        self.service.send({"cmd": "pause"})
        wait_for("the pause", lambda: self.home.state().get("paused"))
        self.home.append(assistant_line(1, "Nothing of this remains on the disk"))
        folder, = wait_for("the service's folder", lambda: list(Path(tempfile.gettempdir()).glob(f"sonra-*-{self.service.process.pid}-*")))
        wait_for("the sound file", lambda: list(folder.glob("*.wav")))
        self.service.send({"cmd": "resume"})
        self.wait_heard(1)
        wait_for("the sound file to go", lambda: not list(folder.iterdir()))
        self.service.stop()
        self.assertFalse(folder.exists())

    def test_cursor_reaches_the_row(self):
        self.listen()
        self.home.append(assistant_line(1, "The cursor moves behind this line"))
        size = self.home.transcript.stat().st_size
        wait_for("the row's offset", lambda: self.home.state()["sessions"][0]["offset"] == size)

    def test_detach_ends_narration_and_removes_the_row(self):
        self.listen()
        self.service.send({"cmd": "detach", "id": self.home.session})
        wait_for("the row to go", lambda: self.home.state()["sessions"] == [])
        self.home.append(assistant_line(1, "Nobody is there to hear this"))
        self.home.append(assistant_line(2, "Hush"))
        self.service.send({"cmd": "attach", "id": self.home.session, "cwd": self.home.cwd})
        wait_for("a second tailer", lambda: len(self.home.log("native tailer started (forward-only)")) == 2)
        self.home.append(assistant_line(3, "But this one is heard again"))
        self.wait_heard(1)
        self.assert_spoken(1)

    def test_row_removed_by_another_ends_narration(self):
        self.listen()
        self.home.write_state(sessions=[])
        wait_for("the detach to be seen", lambda: self.home.log("state-level detach observed; auto-attach stands down for this run"))
        self.home.append(assistant_line(1, "The user has detached from outside"))
        self.home.append(assistant_line(2, "Hush"))
        self.service.send({"cmd": "attach", "id": self.home.session, "cwd": self.home.cwd})
        wait_for("a second tailer", lambda: len(self.home.log("native tailer started (forward-only)")) == 2)
        self.home.append(assistant_line(3, "And has come back to listen"))
        self.wait_heard(1)
        self.assert_spoken(1)


class SessionsAcrossStarts(NarrationCase):
    def test_a_row_found_at_start_is_resumed_on_demand(self):
        self.listen()
        self.service.stop()
        self.home.append(assistant_line(1, "Written while the service was away"))
        self.service = self.start_service(self.sound.environment).wait_ready()
        wait_for("the second worker", lambda: len(self.home.log("kokoro worker ready")) == 2)
        self.service.send({"cmd": "attach", "id": self.home.session, "resume": True})
        wait_for("its tailer", lambda: len(self.home.log("native tailer started (forward-only)")) == 2)
        self.home.append(assistant_line(2, "Written after the service came back"))
        self.wait_heard(1)
        self.assert_spoken(1)
        self.assertEqual(len(self.home.state()["sessions"]), 1)

    def test_a_sole_fresh_session_is_attached_by_itself(self):
        self.home.write_state(discoveredSessions=[self.home.discovered_row()])
        wait_for("the row", lambda: self.home.state().get("sessions"))
        self.sound.record()
        wait_for("its tailer", lambda: self.home.log("native tailer started (forward-only)"))
        self.home.append(assistant_line(1, "Nobody had to ask for this"))
        self.wait_heard(1)
        row = self.home.state()["sessions"][0]
        self.assertEqual((row["id"], row["source"]), (self.home.session, "claude-code"))


class Demo(unittest.TestCase):
    def test_demo_on_a_machine_without_sound_records_what_is_spoken(self):
        with short_folder() as nowhere:
            environment = os.environ | {"XDG_RUNTIME_DIR": nowhere, "PULSE_SERVER": f"unix:{nowhere}/none"}
            environment.pop("DISPLAY", None)
            run = subprocess.run(["/usr/bin/python3", str(ROOT / "script/demo.py")], env=environment,
                                 capture_output=True, text=True, timeout=110, check=False)
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        self.assertIn("demo.wav", run.stdout.splitlines()[-1])
        with wave.open(str(ROOT / "build/demo.wav")) as recording:
            self.assertEqual(recording.getparams()[:3], (1, 2, RATE))
            samples = array.array("h", recording.readframes(recording.getnframes()))
        self.assertRegex(run.stdout.splitlines()[-1], rf"{len(samples) / RATE:.1f} seconds")
        # One line, then two with a block of code between them, then two rows of a list: each with silence around it.
        # A voice may well pause within them, but six in a row can't come of less.
        heard = utterances(samples, gap=0.12)
        self.assertGreaterEqual(len(heard), 6, heard)
        self.assertGreater(sum(stop - start for start, stop in heard), 8)
        self.assertGreater(sum(peak > 2000 for peak in loudness(samples)) / 100, 6, "as loud as speech is")


if __name__ == "__main__":
    unittest.main()
