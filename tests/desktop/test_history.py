"""Back through the conversation and forward again, judged by what the sink plays and whose words they are."""
import unittest

from service import assistant_line
from soundlab import RATE, loud_seconds, wait_for
from test_narration import NarrationCase


class History(NarrationCase):
    def setUp(self):
        super().setUp()
        # Said before the service knew of the session: nobody has heard it.
        for number in range(1, 31):
            text = f"Said long before, in message number {number} of them all, to nobody at all"
            self.home.append(assistant_line(number, text))

    def wait_playing(self, message):
        wait_for(f"message {message}", lambda: self.home.now_playing().get("messageId") == message, 20)

    def wait_spoken(self, count):
        wait_for(f"{count} finished chunks", lambda: len(self.home.log("chunk finished")) >= count, 30)

    def heard_seconds(self):
        return loud_seconds(self.sound.samples())

    def wait_recorded(self, count):
        """What came to its end has been recorded when silence stands behind it."""
        self.wait_spoken(count)

        def is_silent():
            tail = self.sound.samples()[-RATE // 2:]
            return max(map(abs, tail), default=0) < 40

        wait_for("silence behind it", is_silent, pause=0.1)

    def cursor(self):
        return self.home.now_playing().get("cursor", {})

    def test_scrubs_past_what_is_in_memory_and_returns_to_live(self):
        self.listen()
        # The last message is spoken as a proof that it works.
        self.wait_spoken(1)
        self.home.append(assistant_line(31, "This one is new, and it is somewhat longer than it would have to be"))
        self.wait_spoken(2)
        wait_for("the count of the session", lambda: self.cursor().get("kind") == "live")
        self.service.send({"cmd": "scrub", "index": 20})
        self.wait_playing("u-11")
        self.wait_recorded(3)
        self.assertEqual(self.cursor()["kind"], "history")
        self.assertEqual(self.cursor()["messageIndex"], 20)
        self.assertEqual(self.cursor()["totalKnown"], 31)
        heard = self.heard_seconds()
        # A second visit needs no second synthesis.
        self.service.send({"cmd": "scrub", "index": 21}, {"cmd": "scrub", "index": 20})
        self.wait_playing("u-11")
        self.wait_spoken(4)
        wait_for("its sound", lambda: self.heard_seconds() > heard + 1, pause=0.1)
        self.service.send({"cmd": "scrub", "index": 0})
        wait_for("live", lambda: self.cursor()["kind"] == "live")
        self.home.append(assistant_line(32, "And this is the newest, which takes its time to be said as well"))
        self.wait_playing("u-32")
        self.wait_spoken(5)
        # The words that were scrubbed past may have been about to be made, or in the making; nothing else may fail.
        ended = ("Synthesis failed: Kokoro cancelled", "Synthesis failed: exit code 143")
        self.assertEqual([p for p in self.home.problems() if p.get("cause", {}).get("message") not in ended], [])

    def test_previous_and_next_go_by_messages(self):
        self.listen()
        self.wait_spoken(1)
        self.home.append(assistant_line(31, "This one is new, and it is somewhat longer than it would have to be"))
        self.wait_spoken(2)
        self.service.send({"cmd": "previous"})
        self.wait_playing("u-30")
        self.wait_spoken(3)
        self.service.send({"cmd": "next"})
        self.wait_playing("u-31")
        self.wait_spoken(4)
        self.assertEqual(self.cursor()["kind"], "live")

    def test_what_comes_while_listening_to_the_past_is_counted_and_waits_its_turn(self):
        self.listen()
        self.wait_spoken(1)
        self.home.append(assistant_line(31, "This one is new, and it is somewhat longer than it would have to be"))
        self.wait_spoken(2)
        self.service.send({"cmd": "scrub", "index": 1})
        self.wait_playing("u-30")
        # So that the past lasts until the present has been counted.
        self.service.send({"cmd": "pause"})
        wait_for("the pause", lambda: self.home.now_playing().get("state") == "paused")
        self.home.append(assistant_line(32, "And this came meanwhile"))
        wait_for("the count", lambda: self.home.now_playing().get("newLiveCount") == 1, 20)
        self.assertEqual(self.home.now_playing()["messageId"], "u-30")
        self.service.send({"cmd": "resume"})
        self.wait_spoken(4)


if __name__ == "__main__":
    unittest.main()
