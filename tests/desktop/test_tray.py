"""The tray icon and its menu, as a panel sees them over the bus."""
import json
import os
import subprocess
import time
import unittest
from pathlib import Path

from panel import ITEM, Desktop, Notifications, Program, TrayIcon, Watcher, pump_until
from soundlab import end

ROOT = Path(__file__).resolve().parents[2]
DRIVER = os.environ["SONRA_TRAY_DRIVER"]


class Tray(unittest.TestCase):
    def setUp(self):
        self.desktop = Desktop()
        self.addCleanup(self.desktop.close)

    def start(self):
        self.program = Program(self.desktop, DRIVER)
        self.addCleanup(self.program.close)
        return self.program

    def start_with_panel(self):
        self.watcher = Watcher(self.desktop.bus)
        self.start()
        return self.registered(self.watcher)

    def registered(self, watcher):
        return TrayIcon(self.desktop.bus, pump_until("the icon", lambda: watcher.items)[-1])

    def show(self, **picture):
        self.program.tell(json.dumps(picture))
        self.program.wait_for_line("reflected")

    def xdotool(self, *arguments):
        return subprocess.run(["xdotool", *arguments], env=self.desktop.environment(), capture_output=True,
                              text=True).stdout

    def windows(self):
        """The program's windows that can be seen."""
        return self.xdotool("search", "--onlyvisible", "--pid", str(self.program.process.pid)).split()

    def quit_by_keyboard(self):
        """Takes the last row of the open menu, as soon as the menu has the keyboard."""

        def quits():
            self.xdotool("key", "Up", "Return")
            return "quit" in self.program.read()

        pump_until("the end", quits)
        self.assertEqual(self.program.read(), ["quit"])
        self.assertEqual(self.program.process.wait(20), 0)


class Menu(Tray):
    def test_layout_from_the_top(self):
        icon = self.start_with_panel()
        self.assertEqual(icon.labels(), [
            "Sonra  •  idle", "-", "Play", "Skip", "Stop", "Mute", "Captions", "-", "Volume\t100%", "Speed\t1.5x", "-",
            "Narrating: (none)", "Attach session…  (none)", "-", "About Sonra", "Start at login", "Quit Sonra"])

    def test_rows_are_enabled_and_checked_as_told(self):
        icon = self.start_with_panel()
        self.assertFalse(icon.row("Skip")["properties"]["enabled"])
        self.assertEqual(icon.row("Mute")["properties"]["toggle-type"], "checkmark")
        self.show(isPlaying=True, snippet="one\ntwo", muted=True)
        self.assertTrue(icon.row("Skip")["properties"].get("enabled", True))
        self.assertEqual(icon.row("Mute")["properties"]["toggle-state"], 1)
        self.assertEqual(icon.row("Captions")["properties"]["toggle-state"], 0)
        self.assertTrue(icon.row("Narrating  •  one two"))

    def test_transport_rows_have_images(self):
        icon = self.start_with_panel()
        self.show(isPlaying=True)
        images = {name: bytes(icon.row(name)["properties"]["icon-data"]) for name in ("Pause", "Skip", "Stop")}
        self.assertEqual(len(set(images.values())), 3)
        for image in images.values():
            self.assertTrue(image.startswith(b"\x89PNG"))
        self.assertNotIn("icon-data", icon.row("Mute")["properties"])

    def test_clicks_call_back(self):
        icon = self.start_with_panel()
        self.show(isPlaying=True)
        for label, line in [("Pause", "playPause"), ("Skip", "skip"), ("Stop", "stop"), ("Mute", "mute"),
                            ("Captions", "captions"), ("About", "about"), ("Start at login", "login"),
                            ("Quit", "quit")]:
            icon.click(icon.row(label)["id"])
            self.program.wait_for_line(line)
        self.assertEqual(self.program.process.wait(20), 0)

    def test_check_mark_waits_for_the_picture(self):
        icon = self.start_with_panel()
        mute = icon.row("Mute")["id"]
        icon.click(mute)
        self.program.wait_for_line("mute")
        self.assertEqual(icon.row("Mute")["properties"]["toggle-state"], 0)
        self.show(muted=True)
        self.assertEqual(icon.row("Mute")["properties"]["toggle-state"], 1)

    def test_rows_stay_the_same_between_pictures(self):
        icon = self.start_with_panel()
        before = icon.layout()
        icon.changes.clear()
        self.show(isPlaying=True, snippet="Hello", muted=True, sessions=[{"id": "a", "cwd": "/x", "source": "pi"}])
        after = icon.layout()
        self.assertEqual([row["id"] for row in before], [row["id"] for row in after])
        self.assertEqual(after[0]["shown"], "Narrating  •  Hello")
        pump_until("the change", lambda: "ItemsPropertiesUpdated" in icon.changes)
        self.assertNotIn("LayoutUpdated", icon.changes)
        icon.click(before[2]["id"])
        self.program.wait_for_line("playPause")

    def test_same_picture_changes_nothing(self):
        icon = self.start_with_panel()
        self.show(isPlaying=True)
        icon.layout()
        icon.changes.clear()
        self.show(isPlaying=True)
        icon.layout()
        self.assertEqual(icon.changes, [])

    def test_submenus_are_filled_when_they_open(self):
        icon = self.start_with_panel()
        self.show(sessions=[{"id": "aaaaaaaaaa", "cwd": "/home/me/proj", "source": "codex"},
                            {"id": "bbbbbbbbbb", "cwd": "/home/me/proj", "source": "pi"}])
        sessions = icon.row("Narrating: 2")["id"]
        self.assertEqual(icon.labels(sessions), [])
        icon.open(sessions)
        self.assertEqual(icon.labels(sessions), ["CDX  proj  aaaaaaaa\tDetach", "PI  proj  bbbbbbbb\tDetach", "-",
                                                 "Stop narrating all sessions"])
        rows = icon.layout(sessions)
        icon.click(rows[3]["id"])
        self.program.wait_for_line("detach aaaaaaaaaa")
        self.program.wait_for_line("detach bbbbbbbbbb")
        self.show()
        self.assertEqual(len(icon.labels(sessions)), 4)
        icon.click(rows[0]["id"])
        self.program.wait_for_line("detach aaaaaaaaaa")
        icon.open(sessions)
        self.assertEqual(icon.labels(sessions), ["Nothing being narrated"])

    def test_submenus_are_filled_when_the_menu_opens(self):
        icon = self.start_with_panel()
        icon.open(0)
        self.assertEqual(icon.labels(icon.row("Attach")["id"]), ["No sessions detected"])
        self.assertEqual(icon.labels(icon.row("Narrating")["id"]), ["Nothing being narrated"])

    def test_levels_are_chosen_from_steps(self):
        icon = self.start_with_panel()
        self.show(volume=85, speed=2.0)
        for parent, checked, step, line in [("Volume\t85%", "90%", "30%", "volume 30"),
                                            ("Speed\t2x", "2x", "0.5x", "speed 0.5")]:
            row = icon.row(parent)
            icon.open(row["id"])
            steps = icon.layout(row["id"])
            self.assertEqual([each["shown"] for each in steps if each["properties"]["toggle-state"] == 1], [checked])
            icon.click(next(each["id"] for each in steps if each["shown"] == step))
            self.program.wait_for_line(line)

    def test_attach_row_is_one_line_of_plain_text(self):
        icon = self.start_with_panel()
        now = time.time() * 1000
        self.show(discovered=[
            {"id": "cccccccccc", "cwd": "/home/me/proj", "source": "claude-code", "branch": "main", "title": "Fix it",
             "mtimeMs": now - 3 * 60_000 - 500},
            {"id": "dddddddddd", "cwd": "/x/R&D_my_notes", "source": "pi", "title": "a && b _c & d",
             "mtimeMs": now - 7_200_500}])
        attach = icon.row("Attach session…")["id"]
        icon.open(attach)
        self.assertEqual(icon.labels(attach), ["● CC  proj ⎇ main  ·  Fix it\t3m",
                                               "PI  R&D_my_notes  ·  a && b _c & d\t2h"])
        icon.click(icon.layout(attach)[1]["id"])
        self.program.wait_for_line("attach dddddddddd")


class Icon(Tray):
    def test_each_state_has_a_picture_and_a_tool_tip(self):
        icon = self.start_with_panel()
        seen = {}
        for tip, picture in [("Sonra", {}), ("Sonra (narrating)", {"isPlaying": True}),
                             ("Sonra (muted)", {"muted": True}), ("Sonra (synthesizing)", {"synthesizing": True}),
                             ("Sonra", {"paused": True})]:
            self.show(**picture)
            self.assertEqual(str(icon.property("ToolTip")[2]), tip)
            pixels = {(int(w), int(h)): bytes(data) for w, h, data in icon.property("IconPixmap")}
            self.assertIn((16, 16), pixels)
            # Alpha comes first of the four bytes: something is drawn, and most of it is whole.
            alpha = pixels[16, 16][0::4]
            self.assertGreater(sum(value == 255 for value in alpha), 20)
            seen[json.dumps(picture)] = pixels[16, 16]
        self.assertEqual(len(set(seen.values())), 5)

    def test_has_a_name_where_the_theme_knows_it(self):
        self.desktop.install_icons(ROOT / "data/icons")
        icon = self.start_with_panel()
        for name, picture in [("idle", {}), ("narrating", {"isPlaying": True}), ("muted", {"muted": True}),
                              ("synthesizing", {"synthesizing": True}), ("paused", {"paused": True})]:
            self.show(**picture)
            self.assertEqual(str(icon.property("IconName")), f"sonra-{name}-symbolic")
            self.assertTrue(icon.property("IconPixmap"))

    def test_comes_when_the_panel_comes_late(self):
        self.start()
        # Started and at work before there is a panel.
        self.show(muted=True)
        watcher = Watcher(self.desktop.bus)
        icon = self.registered(watcher)
        self.assertEqual(icon.row("Mute")["properties"]["toggle-state"], 1)

    def test_waits_for_a_panel_behind_the_watcher(self):
        watcher = Watcher(self.desktop.bus, has_panel=False)
        self.start()
        pump_until("the question for a panel", lambda: watcher.questions)
        self.show()
        self.assertEqual(watcher.items, [])
        watcher.has_panel = True
        watcher.StatusNotifierHostRegistered()
        self.assertTrue(self.registered(watcher).labels())

    def test_comes_back_with_the_panel(self):
        self.start_with_panel()
        self.watcher.leave()
        watcher = Watcher(self.desktop.bus)
        self.assertTrue(self.registered(watcher).labels())

    def test_without_a_tray_says_so_once_and_still_comes_later(self):
        notifications = Notifications(self.desktop.bus)
        self.start()
        pump_until("the notification", lambda: notifications.shown)
        shown = notifications.shown[0]
        self.assertEqual(shown["app"], "Sonra")
        self.assertIn("tray", shown["summary"])
        self.assertEqual(shown["hints"]["desktop-entry"], "dev.trelnivorn.sonra")
        self.show(isPlaying=True)
        watcher = Watcher(self.desktop.bus)
        icon = self.registered(watcher)
        self.assertTrue(icon.row("Pause"))
        watcher.leave()
        self.show()
        self.assertEqual(len(notifications.shown), 1)

    def test_with_a_tray_nothing_is_notified(self):
        notifications = Notifications(self.desktop.bus)
        icon = self.start_with_panel()
        # Longer than the program has patience without one.
        deadline = time.monotonic() + 6
        pump_until("the end of its patience", lambda: time.monotonic() > deadline)
        self.assertTrue(icon.labels())
        self.assertEqual(notifications.shown, [])

    def test_click_that_the_panel_hands_back_opens_the_menu(self):
        icon = self.start_with_panel()
        self.assertEqual(self.windows(), [])
        icon.call("/StatusNotifierItem", ITEM, "Activate", 5, 5)
        pump_until("the menu", self.windows)
        self.quit_by_keyboard()


class EmbeddedIcon(Tray):
    def click_until_a_menu_comes(self, icon):
        """What is clicked before the tray has taken the icon in, or moved it, reaches nobody."""
        again = 0

        def has_come():
            nonlocal again
            if len(self.windows()) == 2:
                return True
            # A click on an open menu's icon would close it: time to open comes first.
            if time.monotonic() > again:
                self.xdotool("mousemove", "--window", icon, "8", "8", "click", "1")
                again = time.monotonic() + 3
            return False

        pump_until("the menu", has_come, 30)

    def start_tray(self):
        tray = subprocess.Popen(["trayer", "--edge", "top"], env=self.desktop.environment(),
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(end, tray)

    def test_comes_to_an_x11_tray_that_comes_late(self):
        notifications = Notifications(self.desktop.bus)
        self.start()
        pump_until("the notification that there is none", lambda: notifications.shown)
        self.start_tray()
        pump_until("the icon", self.windows, 60)
        self.assertEqual(len(notifications.shown), 1)

    def test_menu_of_an_x11_tray(self):
        self.start_tray()
        pump_until("the tray", lambda: self.xdotool("search", "--onlyvisible", "--class", "trayer"))
        notifications = Notifications(self.desktop.bus)
        self.start()
        icon = pump_until("the icon", self.windows)[0]
        self.click_until_a_menu_comes(icon)
        self.quit_by_keyboard()
        self.assertEqual(notifications.shown, [])


if __name__ == "__main__":
    unittest.main()
