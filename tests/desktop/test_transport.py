"""Pause, skip, stop, volume and the shared document, judged by what the sink plays."""
import unittest

from service import assistant_line
from soundlab import RATE, loudness, wait_for, write_tone
from test_narration import NarrationCase

LONG = " and then ".join(["this sentence goes on for a good while"] * 12)


class Transport(NarrationCase):
    def start_speaking(self):
        self.listen()
        self.home.append(assistant_line(1, LONG))
        wait_for("the first sound", lambda: max(loudness(self.sound.samples()), default=0) > 40)

    def is_silent(self, seconds=0.3):
        tail = self.sound.samples()[-int(seconds * RATE):]
        return max(map(abs, tail), default=0) == 0

    def wait_silent(self):
        wait_for("silence", self.is_silent, 10)

    def wait_loud(self):
        wait_for("sound", lambda: max(map(abs, self.sound.samples()[-RATE // 10:])) > 40, 10)

    def test_pause_silences_and_resume_goes_on(self):
        self.start_speaking()
        self.service.send({"cmd": "pause"})
        self.wait_silent()
        self.assertTrue(wait_for("the document", lambda: self.home.state().get("paused")))
        wait_for("the snapshot", lambda: self.home.now_playing()["state"] == "paused", 10)
        self.service.send({"cmd": "resume"})
        self.wait_loud()
        self.assertEqual(len(self.home.log("playback started")), 1)

    def test_toggle_pauses_and_resumes(self):
        self.start_speaking()
        self.service.send({"cmd": "toggle"})
        self.wait_silent()
        self.service.send({"cmd": "toggle"})
        self.wait_loud()

    def test_a_reply_that_comes_during_a_pause_waits_for_its_end(self):
        self.listen()
        self.service.send({"cmd": "pause"})
        wait_for("the document", lambda: self.home.state().get("paused"))
        self.home.append(assistant_line(1, "This was written while we paused"))
        wait_for("the chunk", lambda: self.home.log("chunk enqueued"))
        # What came before it is behind it once another command has been carried out.
        self.service.send({"cmd": "volume", "value": 99})
        wait_for("the volume", lambda: self.home.state().get("volume") == 99)
        recorded = self.sound.seconds()
        wait_for("half a second of recording", lambda: self.sound.seconds() > recorded + 0.5)
        self.assertEqual(self.heard(), 0)
        self.assertEqual(self.home.log("playback started"), [])
        self.service.send({"cmd": "resume"})
        self.wait_heard(1)

    def test_skip_goes_to_the_next_chunk(self):
        self.start_speaking()
        self.home.append(assistant_line(2, "The next one starts at once, and it goes on for a good while too"))
        wait_for("the next chunk", lambda: len(self.home.log("chunk enqueued")) == 2)
        self.service.send({"cmd": "skip"})
        wait_for("the next chunk", lambda: self.home.now_playing().get("messageId") == "u-2", 10)
        wait_for("its end", lambda: self.home.log("chunk finished"))
        self.assertEqual(len(self.home.log("chunk finished")), 1, "what was skipped doesn't come to its end")

    def silences_and_empties_the_queue(self, command):
        self.start_speaking()
        self.service.send({"cmd": command})
        self.wait_silent()
        wait_for("an idle snapshot", lambda: self.home.now_playing()["state"] == "idle")

    def test_clear_silences_and_empties_the_queue(self):
        self.silences_and_empties_the_queue("clear")

    def test_stop_silences_and_empties_the_queue(self):
        self.silences_and_empties_the_queue("stop")

    def test_volume_is_heard_at_once_and_written(self):
        self.start_speaking()
        self.service.send({"cmd": "volume", "value": 0})
        self.wait_silent()
        wait_for("the document", lambda: self.home.state().get("volume") == 0)
        self.service.send({"cmd": "volume", "value": 100})
        self.wait_loud()

    def test_the_shared_document_pauses_and_mutes(self):
        self.start_speaking()
        self.home.write_state(paused=True)
        self.wait_silent()
        self.home.write_state(paused=False)
        self.wait_loud()
        self.home.write_state(muted=True)
        self.wait_silent()

    def test_replies_that_come_while_muted_are_never_spoken(self):
        self.listen()
        self.home.write_state(muted=True)
        self.home.append(assistant_line(1, "Nobody wants to hear this now"))
        wait_for("the cursor", lambda: self.home.state()["sessions"][0]["offset"] == self.home.transcript.stat().st_size)
        self.home.write_state(muted=False)
        # The player hears of it within a second and a half: the reply is longer than that.
        self.home.append(assistant_line(2, "But this is welcome again and then it goes on for a good while and another one"))
        self.wait_heard(1)
        self.assert_spoken(1)

    def test_restart_goes_back_to_the_start_of_the_chunk(self):
        self.start_speaking()
        wait_for("three seconds of speech", lambda: self.home.now_playing()["elapsed"] > 3)
        self.service.send({"cmd": "restart"})
        again = wait_for("the start again", lambda: (p := self.home.now_playing())["elapsed"] < 3 and p, 10)
        self.assertEqual(again["state"], "playing")
        self.assertEqual((len(self.home.log("playback started")), self.home.log("chunk finished")), (1, []))

    def test_play_speaks_a_file_and_takes_it_over(self):
        self.sound.record()
        wav = self.home.path / "made.wav"
        write_tone(wav)
        self.service.send({"cmd": "play", "wav": str(wav), "text": "a file", "sessionId": "s", "messageId": "m"})
        self.wait_heard(1)
        wait_for("the file to go", lambda: not wav.exists())
        self.service.send({"cmd": "play", "text": "no file at all"})
        self.service.send({"cmd": "play", "wav": 7})
        # What came before it is behind it once another command has been carried out.
        self.service.send({"cmd": "volume", "value": 99})
        wait_for("the volume", lambda: self.home.state().get("volume") == 99)
        self.assertEqual(len(self.home.log("chunk enqueued")), 1)


class SoundServerTroubles(NarrationCase):
    def test_without_a_server_a_chunk_is_passed_over_and_the_next_tries_again(self):
        self.service.attach()
        self.sound.stop()
        self.home.append(assistant_line(1, "There is nobody to play this"))
        wait_for("the failure", lambda: self.home.log("audio open failed"))
        wait_for("the words for the user", lambda: "audio open failed: " in self.service.errors.read_text())
        self.sound.start()
        self.sound.record()
        self.home.append(assistant_line(2, "Now there is a server again"))
        self.wait_heard(1)

    def test_a_server_that_dies_while_speaking_ends_the_chunk_and_the_next_reconnects(self):
        self.listen()
        self.home.append(assistant_line(1, LONG))
        wait_for("the first sound", lambda: max(loudness(self.sound.samples()), default=0) > 40)
        self.sound.kill_server()
        wait_for("the chunk's end", lambda: self.home.log("chunk finished"))
        self.sound.start()
        self.sound.record()
        self.home.append(assistant_line(2, "Heard from the new server"))
        self.wait_heard(1)

    def test_no_stream_stays_on_the_server_when_nothing_plays(self):
        self.listen()
        self.home.append(assistant_line(1, "After this the server may sleep"))
        self.wait_heard(1)
        wait_for("the stream to close", lambda: not self.sound.sink_inputs(), 5)


if __name__ == "__main__":
    unittest.main()
