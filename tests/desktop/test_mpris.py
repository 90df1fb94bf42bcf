"""The media controls over private buses, steered by the desktop's own client, playerctl, and by plain calls."""
import json
import os
import signal
import socket
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

import dbus
from dbus.mainloop.glib import DBusGMainLoop

from panel import PROPERTIES, Program, pump_until
from soundlab import end, texts_of, wait_for

DRIVER = os.environ["SONRA_MPRIS_DRIVER"]
NAME = "org.mpris.MediaPlayer2.sonra"
PATH = "/org/mpris/MediaPlayer2"
ROOT = "org.mpris.MediaPlayer2"
PLAYER = "org.mpris.MediaPlayer2.Player"


class Bus:
    """A session bus of its own, and a connection to it that notes the player's signals."""

    def __init__(self):
        DBusGMainLoop(set_as_default=True)
        self.folder = tempfile.TemporaryDirectory(prefix="sn-")
        self.daemon = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address"],
                                       stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.address = self.daemon.stdout.readline().strip()
        self.connection = dbus.bus.BusConnection(self.address)
        self.signals = []
        self.connection.add_signal_receiver(self._changed, "PropertiesChanged", PROPERTIES, path=PATH)
        self.connection.add_signal_receiver(
            lambda position: self.signals.append(("Seeked", position / 1e6)), "Seeked", PLAYER, path=PATH)

    def _changed(self, interface, changed, invalidated):
        self.signals.append((str(interface), {str(key): value for key, value in changed.items()}))

    def environment(self):
        return headless(self.folder.name) | {"DBUS_SESSION_BUS_ADDRESS": self.address}

    def names(self):
        return {str(name) for name in self.connection.list_names() if name.startswith(ROOT)}

    def close(self):
        self.connection.close()
        end(self.daemon)
        self.daemon.stdout.close()
        self.folder.cleanup()


def headless(folder):
    kept = {key: value for key, value in os.environ.items() if key not in ("DISPLAY", "DBUS_SESSION_BUS_ADDRESS")}
    return kept | {"HOME": folder, "XDG_RUNTIME_DIR": folder}


class Driver(Program):
    """The player under test; `obey` returns when it has done what it was told."""

    def obey(self, line):
        self.tell(line)
        self.wait_for_line("done " + line.split()[0])

    def obey_all(self, lines, limit=10):
        """One after the other; were each held up by the bus, even for a tenth of a second, it would take longer."""
        self.tell("\n".join(lines))
        done = ["done " + line.split()[0] for line in lines]
        pump_until("the last of the lines", lambda: len([x for x in self.read() if x.startswith("done")]) >= len(done),
                   limit)
        for line in done:
            self.lines.remove(line)

    def heard(self):
        """What has reached its handlers since the last call."""
        lines = [line for line in self.read() if line != "ready"]
        self.lines = []
        return lines

    def wait_heard(self, *expected):
        pump_until(f"the commands {expected}", lambda: len([x for x in self.read() if x != "ready"]) >= len(expected))
        heard = self.heard()
        if heard != list(expected):
            raise AssertionError(f"{heard} is not {list(expected)}")


class Mpris(unittest.TestCase):
    def setUp(self):
        self.bus = Bus()
        self.addCleanup(self.bus.close)
        self.driver = Driver(self.bus, DRIVER)
        self.addCleanup(self.driver.close)

    def begin(self, title="A reply", seconds=60):
        self.driver.obey(f"begin {seconds} {title}")
        pump_until("the name", lambda: NAME in self.bus.names())
        self.settle()

    def settle(self):
        """What the driver was told before has been published, and received, when this returns."""
        self.get("Rate")  # answered by the driver's main thread, after what was posted there
        pump_until("the last signals", lambda: True)

    def call(self, interface, method, *arguments, name=NAME):
        return self.bus.connection.call_blocking(name, PATH, interface, method, self.signature(method), arguments)

    def signature(self, method):
        return {"Seek": "x", "SetPosition": "ox", "OpenUri": "s", "Get": "ss", "GetAll": "s", "Set": "ssv"}.get(method, "")

    def get(self, name, interface=PLAYER):
        return self.call(PROPERTIES, "Get", interface, name)

    def position(self):
        return self.get("Position") / 1e6

    def playerctl(self, *arguments):
        done = subprocess.run(["playerctl", "-p", "sonra", *arguments], env=self.bus.environment(),
                              capture_output=True, text=True, timeout=20)
        return (done.stdout + done.stderr).strip()

    def signals(self):
        self.settle()
        signals, self.bus.signals[:] = list(self.bus.signals), []
        return signals

    def changes(self):
        merged = {}
        for kind, changed in self.signals():
            if kind == PLAYER:
                merged |= changed
        return merged

    def seeks(self):
        return [value for kind, value in self.signals() if kind == "Seeked"]


class Commands(Mpris):
    def test_transport_reaches_the_handlers(self):
        self.begin()
        for command, handler in {"play": "play", "pause": "pause", "play-pause": "toggle", "stop": "stop"}.items():
            self.playerctl(command)
            self.driver.wait_heard(handler)

    def test_next_and_previous_are_refused_until_there_is_somewhere_to_go(self):
        self.begin()
        for method in ("Next", "Previous"):
            self.call(PLAYER, method)
        for command in ("next", "previous"):
            self.playerctl(command)
        self.assertEqual(self.driver.heard(), [])
        self.driver.obey("navigable 1")
        for command in ("next", "previous"):
            self.playerctl(command)
            self.driver.wait_heard(command)
        self.driver.obey("navigable 0")
        self.call(PLAYER, "Next")
        self.assertEqual(self.driver.heard(), [])

    def test_volume_goes_both_ways(self):
        self.begin()
        self.assertEqual(float(self.playerctl("volume")), 1)
        self.driver.obey("volume 0.4")
        self.assertAlmostEqual(float(self.playerctl("volume")), 0.4)
        self.playerctl("volume", "0.25")
        self.driver.wait_heard("volume 0.250000")
        self.assertAlmostEqual(float(self.playerctl("volume")), 0.25)
        for asked, given in ((7, "volume 1.000000"), (-1, "volume 0.000000")):
            self.call(PROPERTIES, "Set", PLAYER, "Volume", dbus.Double(asked, variant_level=1))
            self.driver.wait_heard(given)

    def test_rate_stays_and_zero_is_a_pause(self):
        self.begin()
        for rate in (2.0, 0.0):
            self.call(PROPERTIES, "Set", PLAYER, "Rate", dbus.Double(rate, variant_level=1))
        self.driver.wait_heard("pause")
        self.assertEqual([self.get(name) for name in ("Rate", "MinimumRate", "MaximumRate")], [1, 1, 1])

    def test_commands_without_meaning_here_have_no_effect(self):
        self.begin()
        self.call(ROOT, "Raise")
        self.call(ROOT, "Quit")
        self.call(PLAYER, "OpenUri", "file:///etc/passwd")
        self.assertEqual(self.driver.heard(), [])
        self.assertIsNone(self.driver.process.poll())


class Shown(Mpris):
    def test_identity(self):
        self.begin()
        everything = self.call(PROPERTIES, "GetAll", ROOT)
        self.assertEqual({str(key): value for key, value in everything.items()}, {
            "CanQuit": False, "CanRaise": False, "HasTrackList": False, "Identity": "Sonra",
            "DesktopEntry": "dev.trelnivorn.sonra", "SupportedUriSchemes": [], "SupportedMimeTypes": []})

    def test_metadata(self):
        self.begin("Grüße, “you”", 12.5)
        self.assertEqual(self.playerctl("metadata", "--format", "{{title}}|{{artist}}|{{album}}|{{mpris:length}}"),
                         "Grüße, “you”|TTS|All of Grüße, “you”|12500000")
        metadata = self.get("Metadata")
        self.assertIsInstance(metadata["mpris:trackid"], dbus.ObjectPath)
        self.assertIsInstance(metadata["mpris:length"], dbus.Int64)
        self.assertEqual(metadata["xesam:artist"], ["TTS"])

    def test_each_sound_has_an_id_of_its_own(self):
        self.begin("one")
        ids = [self.get("Metadata")["mpris:trackid"]]
        self.driver.obey("at 1")
        ids.append(self.get("Metadata")["mpris:trackid"])
        self.driver.obey("begin 60 two")
        ids.append(self.get("Metadata")["mpris:trackid"])
        self.driver.obey("idle")
        self.driver.obey("begin 60 two")
        ids.append(self.get("Metadata")["mpris:trackid"])
        self.assertEqual(ids[0], ids[1])
        self.assertEqual(len(set(ids)), 3)

    def test_status_follows(self):
        self.begin()
        self.assertEqual(self.playerctl("status"), "Playing")
        for line, status in (("pause", "Paused"), ("resume", "Playing"), ("idle", "Stopped")):
            self.driver.obey(line)
            self.assertEqual(self.playerctl("status"), status)
        self.assertEqual(self.get("Metadata"), {})
        self.assertFalse(self.get("CanSeek"))

    def test_changes_are_announced_once_and_only_where_something_changed(self):
        self.begin("one")
        self.signals()
        began = time.monotonic()
        self.driver.obey("begin 30 two")
        announced = self.signals()
        self.assertEqual([kind for kind, _ in announced], [PLAYER, "Seeked"])
        self.assertEqual(list(announced[0][1]), ["Metadata"])
        self.assertGreaterEqual(announced[1][1], 0)
        self.assertLessEqual(announced[1][1], time.monotonic() - began)
        for line, expected in (("pause", {"PlaybackStatus": "Paused"}), ("pause", {}),
                               ("navigable 1", {"CanGoNext": True, "CanGoPrevious": True}), ("navigable 1", {}),
                               ("volume 0.5", {"Volume": 0.5}), ("volume 0.5", {}),
                               ("idle", {"PlaybackStatus": "Stopped", "Metadata": {}, "CanSeek": False})):
            self.driver.obey(line)
            self.assertEqual(self.changes(), expected, line)

    def test_a_follower_sees_every_change(self):
        self.begin("one")
        follower = subprocess.Popen(["playerctl", "-p", "sonra", "--follow", "metadata", "--format",
                                     "{{status}} {{title}}"], env=self.bus.environment(), stdout=subprocess.PIPE)
        self.addCleanup(follower.stdout.close)
        self.addCleanup(end, follower)
        os.set_blocking(follower.stdout.fileno(), False)
        seen = []

        def sees(expected):
            seen.extend((follower.stdout.read() or b"").decode().splitlines())
            return expected in seen

        for line, expected in ((None, "Playing one"), ("pause", "Paused one"), ("resume", "Playing one"),
                               ("begin 60 two", "Playing two")):
            seen.clear()
            if line:
                self.driver.obey(line)
            wait_for(expected, lambda: sees(expected), 10)


class Position(Mpris):
    def timed_position(self):
        """The position, and the times before and after it was asked for."""
        before = time.monotonic()
        return self.position(), before, time.monotonic()

    def test_goes_on_while_playing_and_stands_while_paused(self):
        self.begin()
        first, before, after = self.timed_position()
        wait_for("a while", lambda: time.monotonic() > after + 0.4)
        later, began, ended = self.timed_position()
        # Each was read at some time within its call.
        self.assertGreaterEqual(later - first, began - after - 0.05)
        self.assertLessEqual(later - first, ended - before + 0.05)
        self.driver.obey("pause")
        stands = self.position()
        resting = time.monotonic()
        wait_for("a while", lambda: time.monotonic() > resting + 0.5)
        self.assertEqual(self.position(), stands)
        resumed = time.monotonic()
        self.driver.obey("resume")
        wait_for("the position to go on", lambda: self.position() > stands, 5)
        self.assertLessEqual(self.position() - stands, time.monotonic() - resumed + 0.05)
        self.assertEqual(self.seeks(), [])

    def test_playerctl_shows_it(self):
        self.begin()
        self.driver.obey("pause")  # else it goes on while playerctl starts
        self.driver.obey("at 20")
        self.assertAlmostEqual(float(self.playerctl("position")), 20, delta=0.1)

    def test_stays_within_the_sound(self):
        self.begin(seconds=1)
        self.driver.obey("at 0.9")
        wait_for("its end", lambda: self.position() == 1, 5)
        self.assertEqual(self.position(), 1)

    def test_a_jump_is_announced_and_a_push_in_time_is_not(self):
        self.begin()
        self.driver.obey("pause")  # else it goes on between the two
        self.signals()
        self.driver.obey(f"at {self.position() + 0.05}")
        self.assertEqual(self.seeks(), [])
        self.driver.obey("at 30")
        self.assertAlmostEqual(self.seeks()[0], 30, delta=0.5)
        self.driver.obey("at 2")
        self.assertAlmostEqual(self.seeks()[0], 2, delta=0.5)

    def test_set_position_moves_within_the_present_sound_only(self):
        self.begin("one")
        old = self.get("Metadata")["mpris:trackid"]
        self.driver.obey("begin 60 two")
        track = self.get("Metadata")["mpris:trackid"]
        self.signals()
        for path, position in ((old, 5), (track, -1), (track, 61), (dbus.ObjectPath("/"), 5)):
            self.call(PLAYER, "SetPosition", path, dbus.Int64(position * 1_000_000))
        self.assertEqual((self.driver.heard(), self.seeks()), ([], []))
        asked = time.monotonic()
        self.call(PLAYER, "SetPosition", track, dbus.Int64(12_500_000))
        self.driver.wait_heard("seek 12.500000")
        announced = self.seeks()[0]
        self.assertGreaterEqual(announced, 12.5)
        self.assertLessEqual(announced, 12.5 + time.monotonic() - asked)

    def test_seek_is_held_at_the_start_and_goes_over_the_end_to_the_next(self):
        self.begin()
        self.driver.obey("pause")
        self.driver.obey("at 20")
        self.playerctl("position", "5+")
        self.driver.wait_heard("seek 25.000000")
        self.playerctl("position", "10-")
        self.driver.wait_heard("seek 15.000000")
        for offset in (-60_000_000, -2**63):
            self.call(PLAYER, "Seek", dbus.Int64(offset))
            self.driver.wait_heard("seek 0.000000")
        self.call(PLAYER, "Seek", dbus.Int64(2**63 - 1))
        self.assertEqual(self.driver.heard(), [])
        self.driver.obey("navigable 1")
        self.call(PLAYER, "Seek", dbus.Int64(61_000_000))
        self.driver.wait_heard("next")

    def test_a_short_step_of_a_client_is_confirmed(self):
        self.begin()
        self.driver.obey("pause")
        self.signals()
        before = self.position()
        self.call(PLAYER, "Seek", dbus.Int64(100_000))
        self.assertAlmostEqual(self.seeks()[0], before + 0.1, delta=0.01)


class Presence(Mpris):
    def test_comes_with_the_first_sound_and_goes_when_retired(self):
        self.driver.obey("volume 0.7")
        self.driver.obey("navigable 1")
        self.driver.obey("idle")
        self.assertEqual(self.bus.names(), set())
        for _ in range(3):
            self.begin()
            self.assertAlmostEqual(float(self.playerctl("volume")), 0.7)
            self.driver.obey("idle")
            self.settle()
            self.assertEqual(self.bus.names(), {NAME})
            self.driver.obey("retire")
            pump_until("the name to go", lambda: not self.bus.names())
            self.assertIn("No players found", self.playerctl("status"))

    def test_a_name_that_was_given_back_in_haste_is_had_again(self):
        self.begin()
        self.driver.tell("retire\nbegin 60 again\nretire\nbegin 60 and again")
        pump_until("the title", lambda: self.playerctl("metadata", "title") == "and again")
        self.assertEqual(self.bus.names(), {NAME})

    def test_a_second_player_has_a_name_of_its_own(self):
        self.begin("first")
        second = Driver(self.bus, DRIVER)
        self.addCleanup(second.close)
        second.obey("begin 60 second")
        own = f"{NAME}.instance{second.process.pid}"
        pump_until("the second name", lambda: self.bus.names() == {NAME, own})
        self.assertEqual(self.call(PROPERTIES, "Get", PLAYER, "Metadata", name=own)["xesam:title"], "second")
        second.obey("retire")
        pump_until("the second name to go", lambda: self.bus.names() == {NAME})

    def test_no_wake_ups_at_rest(self):
        def switches():
            status = texts_of(f"/proc/{self.driver.process.pid}/task", "*/status")
            return sum(int(line.split()[1]) for text in status for line in text.splitlines()
                       if line.startswith("voluntary_ctxt_switches"))

        self.begin()
        self.driver.obey("pause")
        self.settle()
        wait_for("the threads to come to rest", lambda: switches() == (time.sleep(0.3), switches())[1], 10)
        before = switches()
        began = time.monotonic()
        wait_for("two seconds", lambda: time.monotonic() > began + 2)
        self.assertEqual(switches(), before)


class WithoutBus(unittest.TestCase):
    """What the main thread does must not depend on the bus being there, or being well."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="sn-")
        self.addCleanup(self.folder.cleanup)

    def start(self, address=None):
        self.address = address
        self.driver = Driver(self, DRIVER)
        self.addCleanup(self.driver.close)

    def environment(self):
        return headless(self.folder.name) | ({"DBUS_SESSION_BUS_ADDRESS": self.address} if self.address else {})

    def records(self):
        log = Path(self.folder.name) / "Library/Logs/Sonra/sonra.ndjson"
        lines = log.read_text().splitlines() if log.exists() else []
        return [(record["level"], record["msg"]) for record in map(json.loads, lines)]

    def assert_silent(self):
        self.driver.obey_all(("begin 10 a reply", "pause", "resume", "at 5", "volume 0.5", "navigable 1", "idle",
                              "retire") * 20)
        absent = (30, "no session bus, what needs one stays off")
        wait_for("the log", self.records)
        self.driver.obey("begin 10 one more")
        self.assertEqual(self.records(), [absent])

    def test_no_bus_at_all(self):
        self.start()
        self.assert_silent()

    def test_a_bus_that_is_gone(self):
        self.start("unix:path=/nowhere/bus")
        self.assert_silent()

    def test_a_bus_that_accepts_and_never_answers(self):
        with socket.socket(socket.AF_UNIX) as mute:
            path = f"{self.folder.name}/mute"
            mute.bind(path)
            mute.listen(16)
            self.start(f"unix:path={path}")
            self.assert_silent()

    def test_a_bus_that_stands_still_in_the_middle(self):
        bus = Bus()
        self.addCleanup(bus.close)
        self.start(bus.address)
        self.driver.obey("begin 10 one")
        pump_until("the name", lambda: NAME in bus.names())
        bus.daemon.send_signal(signal.SIGSTOP)
        self.driver.obey_all(("pause", "resume", "begin 10 two", "retire", "begin 10 three", "idle",
                              "begin 20 four") * 20)
        bus.daemon.send_signal(signal.SIGCONT)
        pump_until("the name", lambda: NAME in bus.names())

    def test_a_bus_that_comes_back_is_found_again(self):
        bus = Bus()
        address = bus.address.split(",")[0]  # without the number of this one run
        path = address.removeprefix("unix:path=")
        self.start(address)
        self.driver.obey("begin 10 one")
        pump_until("the name", lambda: NAME in bus.names())
        bus.close()
        again = subprocess.Popen(["dbus-daemon", "--session", "--nofork", f"--address={address}"],
                                 stderr=subprocess.DEVNULL)
        self.addCleanup(end, again)
        wait_for("the new bus", lambda: Path(path).exists())

        def named():
            self.driver.obey("idle")
            self.driver.obey("begin 10 two")
            return NAME in subprocess.run(["dbus-send", "--session", "--print-reply", "--dest=org.freedesktop.DBus",
                                           "/org/freedesktop/DBus", "org.freedesktop.DBus.ListNames"],
                                          env=self.environment(), capture_output=True, text=True).stdout

        wait_for("the name", named, 20, 0.1)


if __name__ == "__main__":
    unittest.main()
