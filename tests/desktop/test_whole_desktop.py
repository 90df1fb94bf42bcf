"""The whole desktop at once: the built service with a tray, media controls and captions, used by other programs."""
import subprocess
import time
import unittest

from home_case import HomeCase
from panel import PrivateBus, TrayIcon, Watcher, pump_until
from screen import CAPTIONS, CaptionsSeen, Screen
from service import assistant_line
from soundlab import RATE, is_running

LONG = " and then ".join(["this sentence goes on for a good while"] * 6)
# Long enough for one who looks away for a while to see that it is being spoken.
FIRST = "This is said first of all, and it is said as slowly as it takes to be noticed by all who are there"
OTHER = "7d1c9a52-bbbb-4b57-9a3a-5f0c2a516d0e"
OTHER_CWD = "/home/me/other"
TAILER = "native tailer started (forward-only)"


def until(what, condition):
    """Waits while the bus is served, with patience for a loaded machine."""
    return pump_until(what, condition, 90)


class WholeDesktop(HomeCase):
    """A bus with a tray, a screen with a terminal that has the focus, a sound server, and the service among them."""

    def setUp(self):
        super().setUp()
        self.other = self.home.add_transcript(OTHER, OTHER_CWD)
        self.sound = self.start_sound()
        self.bus = PrivateBus()
        self.addCleanup(self.bus.close)
        self.watcher = Watcher(self.bus.connection)
        self.screen = Screen(str(self.home.path))
        self.addCleanup(self.screen.close)
        self.captions = CaptionsSeen(self.screen)
        self.home.write_state(speed=1.0)
        self.service = self.start_service(self.environment())
        until("the service's socket", self.service.accepts)
        # Qt waits for the panel's answers, which a test that waits for the program itself couldn't give.
        until("the tray icon", lambda: self.watcher.items)
        until("the voice", lambda: self.home.log("kokoro worker ready"))
        self.sound.record()

    def environment(self):
        """Which platform the windows are made for is the program's own choice."""
        display = {name: self.screen.environment[name] for name in ("DISPLAY", "XDG_RUNTIME_DIR")}
        return display | self.sound.environment | {
            "DBUS_SESSION_BUS_ADDRESS": self.bus.address, "QT_QPA_PLATFORM": "", "WAYLAND_DISPLAY": ""}

    def attach(self):
        self.attach_as(self.home.session, self.home.cwd)

    def attach_other(self):
        self.attach_as(OTHER, OTHER_CWD)

    def attach_as(self, session, cwd):
        before = len(self.home.log(TAILER))
        self.service.send({"cmd": "attach", "id": session, "cwd": cwd})
        until("the session's tailer", lambda: len(self.home.log(TAILER)) > before)

    def say(self, number, text=LONG, transcript=None):
        with (transcript or self.home.transcript).open("a") as agent:
            agent.write(assistant_line(number, text))

    def playing(self):
        """A message is named a moment before it plays."""
        shown = self.home.now_playing()
        return shown.get("messageId") if shown.get("state") in ("playing", "paused") else None

    def wait_playing(self, number):
        until(f"reply {number}", lambda: self.playing() == f"u-{number}")

    def wait_idle(self):
        until("the end", lambda: self.home.now_playing().get("state") == "idle")

    def narrate(self, number, text=LONG, transcript=None):
        self.say(number, text, transcript)
        self.wait_playing(number)
        self.wait_loud()

    def wait_loud(self):
        """Sound that is recorded from now on."""
        since = self.sound.recorded()
        until("sound", lambda: max(map(abs, self.sound.samples(since)), default=0) > 40)

    def wait_silent(self, seconds=0.8):
        """Silence longer than a speaker's breath, all of it from now on and before the words are over."""
        since = self.sound.recorded()
        count = int(seconds * RATE)

        def is_silent():
            tail = self.sound.samples(max(since, self.sound.recorded() - count))
            return len(tail) >= count and max(map(abs, tail)) == 0

        until("silence", is_silent)
        self.assertEqual(self.home.log("chunk finished"), [])


class MediaControls(WholeDesktop):
    def run_playerctl(self, *arguments):
        return subprocess.run(["playerctl", *arguments], capture_output=True, text=True, timeout=30,
                              env=self.screen.environment | {"DBUS_SESSION_BUS_ADDRESS": self.bus.address})

    def playerctl(self, *arguments):
        done = self.run_playerctl("-p", "sonra", *arguments)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout.strip()

    def wait_player(self):
        until("the player", lambda: self.run_playerctl("-l").stdout == "sonra\n")

    def wait_shown(self, template, text):
        until(text, lambda: self.playerctl("metadata", "--format", template) == text)

    def test_metadata_and_play_pause(self):
        self.attach()
        self.narrate(1)
        self.wait_player()
        self.wait_shown("{{title}}|{{album}}", f"Claude|{LONG[:120]}")
        length = int(self.playerctl("metadata", "mpris:length")) / 1e6
        self.assertAlmostEqual(length, self.home.now_playing()["duration"], delta=0.1)
        self.assertEqual(self.playerctl("status"), "Playing")
        self.playerctl("play-pause")
        self.wait_silent()
        self.assertEqual(self.playerctl("status"), "Paused")
        until("the document", lambda: self.home.state().get("paused"))
        self.playerctl("play-pause")
        self.wait_loud()
        self.assertEqual(self.playerctl("status"), "Playing")
        until("the document", lambda: not self.home.state()["paused"])
        self.assertEqual(len(self.home.log("playback started")), 1)

    def test_next_and_previous_lead_through_the_replies(self):
        second, third = f"After that {LONG}", f"At the end {LONG}"
        self.attach()
        self.narrate(1, FIRST)
        self.wait_idle()
        self.narrate(2, second)
        self.wait_player()
        # Well into a reply, going back would only begin it again.
        for command in ("pause", "position 0", "previous", "play"):
            self.playerctl(*command.split())
        self.wait_playing(1)
        self.wait_shown("{{album}}", FIRST)
        self.assertEqual(self.home.now_playing()["cursor"]["kind"], "history")
        self.playerctl("next")
        self.wait_playing(2)
        self.wait_loud()
        self.wait_shown("{{album}}", second[:120])
        self.assertEqual(self.home.now_playing()["cursor"]["kind"], "live")
        enqueued = len(self.home.log("chunk enqueued"))
        self.say(3, third)
        until("the third reply's turn", lambda: len(self.home.log("chunk enqueued")) > enqueued)
        self.assertEqual(self.playing(), "u-2")
        self.playerctl("next")
        self.wait_playing(3)
        self.wait_loud()
        self.wait_shown("{{album}}", third[:120])


class TrayMenu(WholeDesktop):
    def setUp(self):
        super().setUp()
        self.icon = TrayIcon(self.bus.connection, until("the tray icon", lambda: self.watcher.items)[-1])

    def wait_row(self, shown):
        return until(f"the row {shown!r}",
                     lambda: next((row for row in self.icon.layout() if row["shown"] == shown), None))

    def click(self, shown):
        self.icon.click(self.wait_row(shown)["id"])

    def choose(self, parent, shown):
        """Opens a row's menu and clicks what begins so in it."""
        row = self.wait_row(parent)["id"]
        self.icon.open(row)
        self.icon.click(self.icon.row(shown, row)["id"])

    def announce_other(self):
        self.home.write_state(discoveredSessions=[self.home.discovered_row() | {
            "sessionId": OTHER, "cwd": OTHER_CWD, "transcript": str(self.other)}])

    def ids(self):
        return [row["id"] for row in self.home.state().get("sessions", [])]

    def test_rows_from_the_top(self):
        self.attach()
        self.announce_other()
        self.narrate(1)
        self.wait_row("Attach session…")
        self.assertEqual(self.icon.labels(), [
            f"Narrating  •  {LONG[:48]}", "-", "Pause", "Skip", "Stop", "Mute", "Captions", "-", "Volume\t100%",
            "Speed\t1x", "-", "Narrating: 1", "Attach session…", "Search sessions…", "-", "Start at login",
            "Quit Sonra"])

    def test_pause_and_resume(self):
        self.attach()
        self.narrate(1)
        self.click("Pause")
        self.wait_silent()
        until("the document", lambda: self.home.state().get("paused"))
        self.click("Resume")
        self.wait_loud()
        until("the document", lambda: not self.home.state().get("paused"))
        self.assertEqual(len(self.home.log("playback started")), 1)

    def test_a_step_sets_the_volume(self):
        self.choose("Volume\t100%", "30%")
        self.wait_row("Volume\t30%")
        until("the document", lambda: self.home.state().get("volume") == 30)

    def test_sessions_are_attached_and_detached(self):
        self.attach()
        self.announce_other()
        self.choose("Attach session…", "● CC  other")
        self.wait_row("Narrating: 2")
        self.assertEqual(self.ids(), [self.home.session, OTHER])
        self.narrate(101, "This is heard from the session of the menu", self.other)
        self.choose("Narrating: 2", "CC  proj")
        self.wait_row("Narrating: 1")
        self.assertEqual(self.ids(), [OTHER])
        self.say(1, "Nobody is there to hear this")
        self.say(2, "Hush")
        # By the time that it is heard of a later attach, it would have been heard of the earlier one.
        self.attach()
        self.narrate(3, "But this one is heard again, by everybody who is there to listen")
        self.wait_idle()
        self.assertEqual(len(self.home.log("playback started")), 2)

    def test_quit_ends_the_program_at_once(self):
        self.attach()
        self.narrate(1)
        worker = self.home.log("kokoro worker ready")[0]["input"]["pid"]
        row = self.wait_row("Quit Sonra")["id"]
        began = time.monotonic()
        self.icon.click(row)
        until("the end", lambda: self.service.process.poll() is not None)
        # A second is the program's own limit; the rest is for a machine with other work.
        self.assertLess(time.monotonic() - began, 4)
        self.assertEqual(self.service.process.returncode, 0)
        self.assertFalse(self.home.socket_path.exists())
        until("the worker's end", lambda: not is_running(worker))


class Captions(WholeDesktop):
    def wait_visible(self):
        until("the captions", self.captions.is_viewable)

    def wait_hidden(self):
        until("the captions to hide", lambda: not self.captions.is_viewable())

    def typed(self, word):
        """True once a word typed at the keyboard has reached the terminal's shell."""
        self.screen.ask("xdotool", "type", f"touch $HOME/{word}\n")
        until("the keys in the terminal", (self.home.path / word).exists)

    def close_by_its_button(self):
        left, top, width, _ = self.captions.geometry()
        self.screen.ask("xdotool", "mousemove", str(left + width - 21), str(top + 21), "click", "1")

    def test_the_panel_comes_above_without_the_focus(self):
        self.assertFalse(self.captions.is_viewable())
        self.attach()
        self.wait_visible()
        self.narrate(1)
        self.assertEqual(self.screen.active_name(), "worker")
        self.typed("while-it-speaks")
        until("its hints", lambda: {"ABOVE", "SKIP_TASKBAR", "SKIP_PAGER"} <= self.captions.states())
        self.assertIn(CAPTIONS, self.screen.ask("wmctrl", "-l"))
        self.screen.start("xterm", "-T", "later", env=self.screen.environment)
        until("another window in front", lambda: self.screen.active_name() == "later")
        self.assertEqual(len(self.screen.stacking()), 3)
        self.assertEqual(self.screen.stacking()[-1], int(self.captions.window()))

    def shown_of(self, number, text):
        """The panel's picture at the first word of a reply, where it is made to stand still."""
        self.narrate(number, text)
        self.service.send({"cmd": "pause"}, {"cmd": "restart"})
        until("the first word", lambda: self.home.now_playing()["state"] == "paused"
              and self.home.now_playing()["elapsed"] == 0)
        # The panel follows the document, if the machine lets it.
        shown = self.captions.settled(2.5)
        self.service.send({"cmd": "resume"})
        self.wait_idle()
        return shown

    def test_it_shows_what_is_spoken(self):
        self.attach()
        self.wait_visible()
        # Folder and branch of the session come with the next look at the shared document.
        self.captions.settled(2)
        one, other = (f"{words} are to be seen by all who look at the screen" for words in ("These words", "Other words"))
        first = self.shown_of(1, one)
        self.assertNotEqual(self.shown_of(2, other), first)
        self.assertEqual(self.shown_of(3, one), first)

    def test_closed_it_stays_away_until_another_session_is_attached(self):
        self.attach()
        self.wait_visible()
        self.narrate(1, "The listener closes the captions while this is being spoken to him")
        self.close_by_its_button()
        self.wait_hidden()
        until("the document", lambda: self.home.state().get("captions") is False)
        self.assertEqual(self.screen.active_name(), "worker")
        self.narrate(2, "And hears what follows without them, for as long as it is spoken")
        self.wait_idle()
        self.assertFalse(self.captions.is_viewable())
        self.attach_other()
        self.wait_visible()
        until("the document", lambda: self.home.state().get("captions") is True)
        self.assertEqual(self.screen.active_name(), "worker")


class TwoSessions(WholeDesktop):
    def hear(self, number, text, transcript=None):
        self.narrate(number, text, transcript)
        self.wait_idle()

    def test_going_back_stays_in_the_session_that_was_heard_last(self):
        self.attach()
        self.hear(1, "One says this at the beginning of all that is to be said")
        self.attach_other()
        self.hear(101, "The other begins with that, and says it as slowly as the one", self.other)
        self.hear(2, "One goes on with this, and takes a good while to say so")
        self.hear(102, "The other goes on with that, and takes a good while as well", self.other)
        self.hear(3, "One has the last word in this round, and makes the most of it")
        self.service.send({"cmd": "previous"})
        self.wait_playing(2)
        self.wait_loud()
        self.wait_idle()
        self.assertEqual(self.home.now_playing()["sessionId"], self.home.session)
        self.service.send({"cmd": "next"})
        self.wait_playing(3)
        self.wait_idle()
        self.hear(103, "And the other has the very last word, and makes the most of it", self.other)
        self.service.send({"cmd": "previous"})
        self.wait_playing(102)
        self.wait_loud()
        self.assertEqual(self.home.now_playing()["sessionId"], OTHER)


if __name__ == "__main__":
    unittest.main()
