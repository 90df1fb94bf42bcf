"""Global chords of the desktop's portal: its real front end, behind it a desktop of the test's own."""
import json
import subprocess
import time
import unittest
from pathlib import Path

import dbus
import dbus.service

from panel import pump_until
from presence import PresenceTest
from soundlab import end

FRONT_END = "/usr/libexec/xdg-desktop-portal"
PORTAL = "org.freedesktop.portal.Desktop"
PATH = "/org/freedesktop/portal/desktop"
BACK_END = "org.freedesktop.impl.portal.desktop.sonratest"
SHORTCUTS = "org.freedesktop.impl.portal.GlobalShortcuts"
NO_PORTAL = ('This desktop lets no program have global shortcuts; a command such as "tts search" can be bound in its own '
             "keyboard settings")
DECLINED = "The desktop declined the shortcut; its own keyboard settings may allow it"


def refusal(key, reason):
    """As the log tells of a chord that the desktop doesn't give."""
    return 40, "QtPortalShortcuts", "global hotkey can't be had", {"key": key}, {"reason": reason}


class BackEnd(dbus.service.Object):
    """What a desktop puts behind the portal: notes what is asked for and answers as the test says."""

    def __init__(self, bus):
        self.bound = []
        self.sessions = []
        self.sessions_ever = 0
        self.answer = 0
        self.leaves_out = ()
        self.keyless = ()
        self.name = dbus.service.BusName(BACK_END, bus, do_not_queue=True)
        super().__init__(bus, PATH)

    @dbus.service.method(SHORTCUTS, in_signature="oosa{sv}", out_signature="ua{sv}")
    def CreateSession(self, handle, session, application, options):
        self.sessions_ever += 1
        self.sessions.append(Session(self.connection, session, self.sessions))
        return 0, {}

    @dbus.service.method(SHORTCUTS, in_signature="ooa(sa{sv})sa{sv}", out_signature="ua{sv}")
    def BindShortcuts(self, handle, session, shortcuts, parent, options):
        asked = {str(name): {str(key): str(value) for key, value in properties.items()} for name, properties in shortcuts}
        self.bound.append((str(session), asked))
        granted = [(name, {"description": properties["description"],
                           "trigger_description": "" if name in self.keyless else properties["preferred_trigger"]})
                   for name, properties in asked.items() if name not in self.leaves_out]
        return self.answer, {"shortcuts": dbus.Array(granted, signature="(sa{sv})")}

    @dbus.service.signal(SHORTCUTS, signature="osta{sv}")
    def Activated(self, session, name, timestamp, options):
        pass

    @dbus.service.signal(SHORTCUTS, signature="osta{sv}")
    def Deactivated(self, session, name, timestamp, options):
        pass

    @dbus.service.method("org.freedesktop.DBus.Properties", in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return {"version": dbus.UInt32(1)}


class Session(dbus.service.Object):
    def __init__(self, bus, path, sessions):
        self.path = str(path)
        self.sessions = sessions
        super().__init__(bus, path)

    @dbus.service.method("org.freedesktop.impl.portal.Session")
    def Close(self):
        self.sessions.remove(self)
        self.remove_from_connection()

    @dbus.service.signal("org.freedesktop.impl.portal.Session", signature="")
    def Closed(self):
        pass

    def end(self):
        """As a desktop does whose user takes the shortcuts away in its settings."""
        self.Closed()
        self.Close()


class Portal(PresenceTest):
    def setUp(self):
        super().setUp()
        self.back_end = BackEnd(self.bus.connection)
        self.front_end = None
        self.addCleanup(self.stop_front_end)

    def start_front_end(self, *options):
        portals = Path(self.folder) / "portals"
        portals.mkdir(exist_ok=True)
        (portals / "sonratest.portal").write_text(
            f"[portal]\nDBusName={BACK_END}\nInterfaces={SHORTCUTS};\nUseIn=sonratest\n")
        environment = self.environment() | {"XDG_DESKTOP_PORTAL_DIR": str(portals), "XDG_CURRENT_DESKTOP": "sonratest"}
        self.front_end = subprocess.Popen([FRONT_END, *options], env=environment, stdout=subprocess.DEVNULL,
                                          stderr=subprocess.DEVNULL)
        pump_until("the portal", lambda: self.bus.connection.name_has_owner(PORTAL))

    def stop_front_end(self):
        if self.front_end:
            end(self.front_end)
            self.front_end = None

    def replace_front_end(self):
        """Another takes its place at once: the name is never without an owner."""
        before, owner = self.front_end, self.bus.connection.get_name_owner(PORTAL)
        self.addCleanup(end, before)
        self.start_front_end("-r")
        pump_until("the other portal", lambda: self.bus.connection.get_name_owner(PORTAL) != owner)

    def start(self, *chords):
        self.driver = self.start_driver({"WAYLAND_DISPLAY": "wayland-0"})
        for chord in chords:
            self.driver.tell("chord " + chord)
        for _ in chords:
            self.driver.wait_for_line("taken")
            self.driver.wait_for_line("done chord")

    def wait_bound(self, times=1):
        pump_until("the binding", lambda: len(self.back_end.bound) >= times)
        return self.back_end.bound[-1]

    def wait_heard(self, *expected):
        pump_until(f"{expected}", lambda: len(self.driver.read()) >= len(expected))
        self.assertEqual(self.driver.heard(), list(expected))

    def wait_logged(self, *expected):
        """The messages of the log, in order, with whatever the expected ones tell of what was asked and what came of it."""
        path = Path(self.folder) / "Library/Logs/Sonra/sonra.ndjson"

        def records():
            # What stands behind the last line's end is still being written.
            lines = path.read_text().split("\n")[:-1] if path.exists() else []
            return [json.loads(line) for line in lines]

        pump_until(f"{len(expected)} log lines", lambda: len(records()) >= len(expected))
        # The last line of an error is what went wrong.
        self.assertEqual([(each["level"], each["class"], each["msg"], each.get("input"),
                           {name: text.strip().splitlines()[-1] for name, text in each["result"].items()}) for each in records()],
                         list(expected))

    def obey_all(self):
        """Until the driver has dealt with what the bus has sent it so far, and that has come back."""
        bus = self.bus.connection
        answers = []
        others = [name for name in bus.list_names() if name.startswith(":") and name != bus.get_unique_name()]
        for name in others:
            bus.call_async(name, "/", "org.freedesktop.DBus.Peer", "Ping", "", (), lambda: answers.append(True),
                           lambda error: answers.append(error))
        pump_until("the connections' answers", lambda: len(answers) == len(others))
        # What has arrived is dealt with before the next but one line.
        for _ in range(3):
            self.driver.obey("nothing")

    def press(self, name, session=None):
        self.back_end.Activated(session or self.back_end.bound[-1][0], name, 1, {})

    def release(self, name):
        self.back_end.Deactivated(self.back_end.bound[-1][0], name, 2, {})


class Granted(Portal):
    def setUp(self):
        super().setUp()
        self.start_front_end()

    def test_the_desktop_is_asked_once_for_all_and_a_press_arrives(self):
        self.start("1 f Search sessions", "2 space Dictate")
        _, asked = self.wait_bound()
        self.assertEqual(asked, {
            "shift-logo-f": {"description": "Search sessions", "preferred_trigger": "SHIFT+LOGO+f"},
            "shift-logo-space": {"description": "Dictate", "preferred_trigger": "SHIFT+LOGO+space"}})
        self.press("shift-logo-space")
        self.wait_heard("pressed 2")
        self.press("shift-logo-f")
        self.wait_heard("pressed 1")
        self.assertEqual(len(self.back_end.bound), 1)

    def test_a_held_key_is_pressed_once(self):
        self.start("1 f Search", "2 space Other")
        self.wait_bound()
        for _ in range(20):
            began = time.monotonic()
            self.release("shift-logo-f")
            for _ in range(3):
                self.press("shift-logo-f")
            self.release("shift-logo-f")
            self.press("shift-logo-f")
            self.release("shift-logo-space")
            self.press("shift-logo-space")
            pump_until("the last", lambda: "pressed 2" in self.driver.read())
            heard = self.driver.heard()
            # A machine that took longer may have had a release forgotten.
            if time.monotonic() - began < 1:
                break
        self.assertEqual(heard, ["pressed 1", "pressed 1", "pressed 2"])

    def test_a_release_that_got_lost_is_forgotten(self):
        self.start("1 f Search")
        self.wait_bound()
        self.press("shift-logo-f")
        self.wait_heard("pressed 1")
        time.sleep(1.1)
        self.press("shift-logo-f")
        self.wait_heard("pressed 1")

    def test_what_was_dropped_is_asked_for_no_more(self):
        self.start("1 f Search", "2 space Other")
        self.wait_bound()
        self.driver.obey("drop 1")
        _, asked = self.wait_bound(times=2)
        self.assertEqual(list(asked), ["shift-logo-space"])
        self.press("shift-logo-space")
        self.wait_heard("pressed 2")
        pump_until("the first session's end", lambda: len(self.back_end.sessions) == 1)
        self.driver.obey("drop 2")
        pump_until("the last session's end", lambda: not self.back_end.sessions)

    def test_a_chord_is_taken_once(self):
        self.start("1 f Search")
        self.driver.tell("chord 2 f Again")
        self.driver.wait_for_line("not taken")

    def test_a_portal_that_was_started_again_is_asked_again(self):
        self.start("1 f Search")
        first, _ = self.wait_bound()
        self.stop_front_end()
        self.wait_heard("refused 1 " + NO_PORTAL)
        self.start_front_end()
        second, _ = self.wait_bound(times=2)
        self.assertNotEqual(first, second)
        self.press("shift-logo-f")
        self.wait_heard("pressed 1")

    def test_a_portal_that_takes_another_ones_place_is_asked_anew(self):
        self.start("1 f Search")
        first, _ = self.wait_bound()
        self.replace_front_end()
        second, _ = self.wait_bound(times=2)
        self.assertNotEqual(first, second)
        self.press("shift-logo-f")
        self.wait_heard("pressed 1")


    def end_session(self):
        session, = self.back_end.sessions
        session.end()

    def test_a_session_that_the_desktop_ends_is_asked_for_anew(self):
        self.start("1 f Search", "2 space Other")
        first, asked = self.wait_bound()
        self.end_session()
        second, again = self.wait_bound(times=2)
        self.assertNotEqual(first, second)
        self.assertEqual(again, asked)
        self.press("shift-logo-f")
        self.wait_heard("pressed 1")

    def test_a_desktop_that_takes_a_chord_away_tells_so(self):
        self.start("1 f Search")
        self.wait_bound()
        self.back_end.answer = 1
        self.end_session()
        self.wait_heard("refused 1 " + DECLINED)

    def test_a_desktop_that_ends_every_session_is_not_asked_over_and_over(self):
        self.start("1 f Search")
        self.wait_bound()
        self.end_session()
        self.wait_bound(times=2)
        self.end_session()
        self.wait_heard("refused 1 " + DECLINED)
        self.obey_all()
        self.assertEqual(self.back_end.sessions_ever, 2)


class OutsideWayland(Portal):
    def test_the_portal_is_not_asked(self):
        self.start_front_end()
        self.driver = self.start_driver()
        self.driver.tell("chord 1 f Search")
        self.driver.wait_for_line("not taken")
        self.assertEqual((self.back_end.sessions, self.back_end.bound), ([], []))


class Refused(Portal):
    def test_a_user_who_declines_is_told_and_not_asked_again(self):
        self.back_end.answer = 1
        self.start_front_end()
        self.start("1 f Search", "2 space Other")
        self.wait_heard("refused 1 " + DECLINED, "refused 2 " + DECLINED)
        self.wait_logged(refusal("f", DECLINED), refusal("space", DECLINED))
        pump_until("the session's end", lambda: not self.back_end.sessions)
        self.stop_front_end()
        pump_until("its end", lambda: not self.bus.connection.name_has_owner(PORTAL))
        self.start_front_end()
        self.obey_all()
        self.back_end.answer = 0
        self.driver.obey("chord 3 a Third")
        # Asked for together with the new one, and not before.
        pump_until("the new one", lambda: "shift-logo-a" in self.back_end.bound[-1][1])
        self.assertEqual([len(asked) for _, asked in self.back_end.bound], [2, 3])
        # Nor was it begun: each round of asking has a session.
        self.assertEqual(self.back_end.sessions_ever, 2)

    def test_a_chord_that_is_left_out_or_has_no_keys_is_refused_alone(self):
        self.back_end.leaves_out = ("shift-logo-f",)
        self.back_end.keyless = ("shift-logo-a",)
        self.start_front_end()
        self.start("1 f Search", "2 space Other", "3 a Third")
        self.wait_heard("refused 1 " + DECLINED, "refused 3 " + DECLINED)
        self.wait_logged(refusal("f", DECLINED), refusal("a", DECLINED))
        self.press("shift-logo-space")
        self.wait_heard("pressed 2")

    def test_without_a_portal_the_reason_names_the_way_that_is_left(self):
        self.start("1 f Search")
        self.wait_heard("refused 1 " + NO_PORTAL)

    def test_a_portal_that_comes_later_is_asked(self):
        self.start("1 f Search")
        self.wait_heard("refused 1 " + NO_PORTAL)
        self.start_front_end()
        self.wait_bound()
        self.press("shift-logo-f")
        self.wait_heard("pressed 1")

    def test_a_portal_that_knows_no_shortcuts_refuses(self):
        name = dbus.service.BusName(PORTAL, self.bus.connection, do_not_queue=True)
        self.start("1 f Search")
        self.wait_heard("refused 1 " + NO_PORTAL)
        error = ("dbus.exceptions.UnknownMethodException: org.freedesktop.DBus.Error.UnknownMethod: Unknown method: CreateSession "
                 "is not a valid method of interface org.freedesktop.portal.GlobalShortcuts")
        self.wait_logged((30, "QtPortalShortcuts", "no global shortcuts portal", None, {"error": error}),
                         refusal("f", NO_PORTAL))
        del name

    def test_without_a_bus_it_is_refused(self):
        self.driver = self.start_driver({"WAYLAND_DISPLAY": "wayland-0", "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nowhere/bus"})
        self.driver.tell("chord 1 f Search")
        self.wait_heard("taken", "done chord", "refused 1 " + NO_PORTAL)


if __name__ == "__main__":
    unittest.main()
