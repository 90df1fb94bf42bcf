"""The program as a player of single files: heard at the sink, named by the media controls, shown by a caption server."""
import subprocess
import unittest

import dbus

from home_case import HomeCase
from panel import PROPERTIES, PrivateBus
from screen import CaptionsSeen, Screen
from service import PROGRAM
from soundlab import end, loud_seconds, loudness, wait_for, write_tone

SECONDS = 1.5
PEAK = 12_000
PLAYER = "org.mpris.MediaPlayer2"
MPRIS = f"{PLAYER}.sonra"


class Player(HomeCase):
    def setUp(self):
        super().setUp()
        self.sound = self.start_sound()
        self.wav = self.home.path / "tone.wav"
        write_tone(self.wav, SECONDS, PEAK)
        self.environment = self.home.environment() | self.sound.environment | {
            "QT_QPA_PLATFORM": "offscreen", "DBUS_SESSION_BUS_ADDRESS": "disabled:", "XDG_RUNTIME_DIR": str(self.home.path)}

    def start(self, *arguments):
        player = subprocess.Popen([str(PROGRAM), str(self.wav), *arguments], env=self.environment,
                                  stderr=subprocess.PIPE, text=True)
        self.addCleanup(player.stderr.close)
        self.addCleanup(end, player)
        return player

    def wait_end(self, player):
        self.assertEqual((player.wait(60), player.stderr.read()), (0, ""))

    def wait_recorded(self):
        """Until silence stands behind the sound that was heard."""

        def is_over():
            blocks = loudness(self.sound.samples())
            return any(blocks) and len(blocks) > 50 and not any(blocks[-50:])

        wait_for("the end of the sound", is_over, pause=0.1)


class Heard(Player):
    def peak_at(self, *arguments):
        """The tone's level as heard: the middle one of all, whatever its edges are like."""
        self.sound.record()
        self.wait_end(self.start(*arguments))
        self.wait_recorded()
        # All of it once; where the machine was held up there may be silence in the middle.
        self.assertAlmostEqual(loud_seconds(self.sound.samples()), SECONDS, delta=0.1)
        levels = sorted(level for level in loudness(self.sound.samples()) if level > 40)
        return levels[len(levels) // 2]

    def test_a_file_is_played_once_at_the_volume_asked_for(self):
        self.assertAlmostEqual(self.peak_at("--volume", "100", "--title", "T"), PEAK, delta=PEAK * 0.02)
        self.assertAlmostEqual(self.peak_at("--volume", "50", "--title", "T"), PEAK / 2, delta=PEAK * 0.02)
        self.assertAlmostEqual(self.peak_at(), PEAK, delta=PEAK * 0.02)
        self.assertTrue(self.wav.exists())

    def test_a_file_that_is_no_sound_is_refused(self):
        self.wav.write_text("nothing that could be heard")
        player = self.start()
        self.assertEqual(player.wait(60), 1)
        self.assertRegex(player.stderr.read(), r"^Failed to play: .+\n$")

    def test_the_media_controls_name_it_while_it_plays(self):
        bus = PrivateBus()
        self.addCleanup(bus.close)
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address
        write_tone(self.wav, 4 * SECONDS, PEAK)
        player = self.start("--title", "Morning bell", "--artist", "The tower")

        def metadata():
            try:
                return bus.connection.call_blocking(MPRIS, "/org/mpris/MediaPlayer2", PROPERTIES, "Get", "ss",
                                                    (f"{PLAYER}.Player", "Metadata"))
            except dbus.DBusException:
                return {}

        shown = wait_for("the metadata", metadata)
        self.assertEqual((shown["xesam:title"], shown["xesam:artist"]), ("Morning bell", ["The tower"]))
        self.assertAlmostEqual(shown["mpris:length"] / 1e6, 4 * SECONDS, delta=0.01)
        self.wait_end(player)
        self.assertFalse(bus.connection.name_has_owner(MPRIS))


class ShownByACaptionServer(Player):
    def setUp(self):
        super().setUp()
        # Long enough to be looked at while it is played.
        write_tone(self.wav, 4 * SECONDS, PEAK)
        self.screen = Screen(self.home.path)
        self.addCleanup(self.screen.close)
        self.captions = CaptionsSeen(self.screen)
        self.home.socket_path = self.home.path / "captions.sock"
        self.server = self.start_service(
            {"DISPLAY": self.screen.environment["DISPLAY"], "QT_QPA_PLATFORM": "", "DBUS_SESSION_BUS_ADDRESS": "disabled:"},
            ["--captions-serve", "--socket", str(self.home.socket_path)]).wait_ready()
        self.server.send({"cmd": "show"})
        wait_for("the captions", self.captions.is_viewable)

    def after(self, command):
        """The picture that follows a command which changes it."""
        before = self.captions.settled()
        self.server.send(command)
        wait_for(f"what {command} shows", lambda: self.captions.picture() != before)
        return self.captions.settled()

    def shown_by_hand(self, text):
        """The picture with the last word lit up."""
        self.after({"cmd": "set", "text": text})
        return self.after({"cmd": "highlight", "progress": 1})

    def follow_player(self, text, expected):
        """Until the picture with its last word lit up is the expected one."""
        empty = self.after({"cmd": "clear"})
        player = self.start("--captions", "--captions-sock", str(self.home.socket_path), "--snippet", text)
        first = wait_for("the words", lambda: (p := self.captions.picture()) != empty and p)
        wait_for("the next word", lambda: self.captions.picture() != first)
        self.assertIsNone(player.poll())
        self.wait_end(player)
        self.server.send({"cmd": "highlight", "progress": 1})
        wait_for("the expected picture", lambda: self.captions.picture() == expected)

    def test_the_snippet_is_shown_and_followed(self):
        expected, other = self.shown_by_hand("some words"), self.shown_by_hand("more words")
        self.assertNotEqual(expected, other)
        self.follow_player("some words", expected)
        self.follow_player("more words", other)
        self.assertTrue(self.captions.is_viewable())
        self.server.send({"cmd": "quit"})
        self.assertEqual(self.server.process.wait(30), 0)
        self.assertFalse(self.home.socket_path.exists())
        self.assertFalse(self.captions.is_viewable())

    def test_a_server_that_is_not_there_keeps_nobody_from_listening(self):
        self.sound.record()
        nowhere = str(self.home.path / "nobody.sock")
        self.wait_end(self.start("--captions", "--captions-sock", nowhere, "--snippet", "some words"))
        self.wait_recorded()
        self.assertAlmostEqual(loud_seconds(self.sound.samples()), 4 * SECONDS, delta=0.2)


class ShownByItself(Player):
    def test_without_a_server_the_player_has_captions_of_its_own(self):
        screen = Screen(self.home.path)
        self.addCleanup(screen.close)
        captions = CaptionsSeen(screen)
        self.environment |= {"DISPLAY": screen.environment["DISPLAY"], "QT_QPA_PLATFORM": ""}
        write_tone(self.wav, 4 * SECONDS, PEAK)
        player = self.start("--captions", "--snippet", "some words of its own")
        wait_for("the captions", captions.is_viewable)
        first = captions.picture()
        wait_for("the next word", lambda: captions.picture() != first)
        self.assertEqual(screen.active_name(), "worker")
        self.wait_end(player)
        self.assertFalse(captions.is_viewable())


if __name__ == "__main__":
    unittest.main()
