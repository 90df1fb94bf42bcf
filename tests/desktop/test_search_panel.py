"""The search panel on a real X server with a window manager: who has the keyboard, and what reaches the panel."""
import os
import queue
import re
import subprocess
import threading
import time
import unittest

from screen import Screen
from soundlab import end, short_folder, wait_for

DRIVER = os.environ["SONRA_SEARCH_DRIVER"]
SEARCH = "Sonra search"


class Panel:
    """The driver program and the window it shows."""

    def __init__(self, screen):
        self.screen = screen
        self.program = subprocess.Popen([DRIVER], env=screen.environment, text=True, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.lines = queue.Queue()
        threading.Thread(target=self._read, daemon=True).start()
        self.expect("ready")
        self.tell("frame 400 60 640 420")

    def _read(self):
        for line in self.program.stdout:
            self.lines.put(line.rstrip("\n"))

    def expect(self, wanted):
        """Waits for this line; others are dropped."""
        seen = []
        while True:
            try:
                seen.append(self.lines.get(timeout=60))
            except queue.Empty:
                raise AssertionError(f"never came: {wanted!r}, but {seen}") from None
            if seen[-1] == wanted:
                return

    def says(self, wanted, seconds):
        """Whether the line comes in this time; others are dropped."""
        deadline = time.monotonic() + seconds
        while True:
            try:
                if self.lines.get(timeout=max(0, deadline - time.monotonic())) == wanted:
                    return True
            except queue.Empty:
                return False

    def tell(self, command):
        self.ask(command, "done")

    def ask(self, command, answer):
        self.program.stdin.write(command + "\n")
        self.program.stdin.flush()
        self.expect(answer)

    def is_viewable(self):
        return "IsViewable" in self.screen.ask("xwininfo", "-name", SEARCH)

    def open(self):
        self.tell("show")
        wait_for("the panel to have the keyboard", lambda: self.screen.active_name() == SEARCH)

    def close(self):
        end(self.program)
        self.program.stdin.close()
        self.program.stdout.close()


class SearchPanel(unittest.TestCase):
    def setUp(self):
        folder = short_folder()
        self.addCleanup(folder.cleanup)
        self.screen = Screen(folder.name)
        self.addCleanup(self.screen.close)
        self.panel = Panel(self.screen)
        self.addCleanup(self.panel.close)

    def keys(self, *names):
        self.screen.ask("xdotool", "key", *names)

    def type(self, text):
        self.screen.ask("xdotool", "type", text)

    def click(self, x, y, times=1):
        self.screen.ask("xdotool", "mousemove", str(x), str(y), "click", "--repeat", str(times), "--delay", "20", "1")

    def user_time(self):
        """When the user last asked for the panel, as window managers are told, in the server's milliseconds."""
        window = re.search(r"window id # (0x[0-9a-f]+)",
                           self.screen.ask("xprop", "-name", SEARCH, "_NET_WM_USER_TIME_WINDOW"))
        where = ["-id", window[1]] if window else ["-name", SEARCH]
        return int(self.screen.ask("xprop", *where, "_NET_WM_USER_TIME").partition("=")[2] or 0)

    def geometry(self):
        text = self.screen.ask("xwininfo", "-name", SEARCH)
        found = [re.search(re.escape(key) + r":\s+(-?\d+)", text)
                 for key in ("Absolute upper-left X", "Absolute upper-left Y", "Width", "Height")]
        return " ".join(number[1] for number in found if number)

    def wait_for_worker(self):
        wait_for("the terminal to have the keyboard", lambda: self.screen.active_name() == "worker")

    def test_it_takes_the_keyboard_from_another_program_and_gives_it_back(self):
        for query in ("q", "r", "s"):
            self.type("ls")
            self.panel.open()
            self.type(query)
            self.panel.expect("query " + query)
            self.keys("Escape")
            self.panel.expect("command cancel")
            self.wait_for_worker()
            self.assertFalse(self.panel.is_viewable())

    def test_window_managers_hear_that_the_user_asked_for_it_now(self):
        # Those that guard the focus compare this with what the user did elsewhere.
        for _ in range(2):
            self.type("ls")
            before = int(time.monotonic() * 1000) & 0xFFFFFFFF
            self.panel.open()
            wait_for("the time of now", lambda: self.user_time() >= before)
            self.panel.tell("hide")
            self.wait_for_worker()

    def test_its_keys_reach_it(self):
        self.panel.open()
        for key, command in (("Down", "moveDown"), ("Up", "moveUp"), ("Return", "activate"), ("KP_Enter", "activate"),
                             ("ctrl+c", "copy"), ("Escape", "cancel")):
            self.keys(key)
            self.panel.expect("command " + command)

    def test_tab_leaves_the_keyboard_in_the_field(self):
        self.panel.open()
        for key in ("Tab", "shift+Tab", "Tab"):
            self.keys(key)
        self.type("a")
        self.panel.expect("query a")

    def test_reopening_selects_the_query_to_be_overtyped(self):
        self.panel.open()
        self.type("first")
        self.panel.expect("query first")
        self.keys("Escape")
        self.wait_for_worker()
        self.panel.open()
        self.type("x")
        self.panel.expect("query x")

    def test_it_can_take_the_keyboard_and_is_no_main_window_not_in_taskbar_or_pager_on_all_desktops(self):
        for _ in range(2):
            self.panel.open()
            wanted = {"SKIP_TASKBAR", "SKIP_PAGER"}
            wait_for("the hints", lambda: wanted <= set(re.findall(
                r"_NET_WM_STATE_(\w+)", self.screen.ask("xprop", "-name", SEARCH, "_NET_WM_STATE"))))
            wait_for("all desktops", lambda: "= 4294967295" in self.screen.ask(
                "xprop", "-name", SEARCH, "_NET_WM_DESKTOP"))
            self.panel.tell("hide")
            self.wait_for_worker()

    def test_it_stands_where_it_is_put_above_others(self):
        for frame in ("400 60 640 420", "300 0 640 420"):
            self.panel.tell("frame " + frame)
            self.panel.open()
            wait_for("its place", lambda: self.geometry() == frame)
            wanted = {"ABOVE"}
            wait_for("the hints", lambda: wanted <= set(re.findall(
                r"_NET_WM_STATE_(\w+)", self.screen.ask("xprop", "-name", SEARCH, "_NET_WM_STATE"))))
            self.panel.tell("hide")
            self.wait_for_worker()

    def test_the_pointer_selects_and_activates_rows(self):
        self.panel.open()
        self.click(600, 60 + 60 + 8 + 36 * 2 + 18)
        self.panel.expect("select 2")
        self.type("a")
        self.panel.expect("query a")

        def is_activated():
            # Two clicks that a slow machine holds apart are no double one.
            self.click(600, 60 + 60 + 8 + 36 * 4 + 18, times=2)
            return self.panel.says("command activate", 5)

        self.click(600, 60 + 60 + 8 + 36 * 4 + 18)
        self.panel.expect("select 4")
        wait_for("the activation", is_activated, 60)

    def test_the_wheel_scrolls_the_rows(self):
        self.panel.open()
        self.screen.ask("xdotool", "mousemove", "600", "300", "click", "--repeat", "20", "5")
        # Scrolled to the end the last of eight whole rows.
        self.click(600, 60 + 60 + 8 + 36 * 7 + 18)
        self.panel.expect("select 12")

    def test_the_keys_that_cut_leave_the_clipboard_alone(self):
        self.panel.tell("copy before")
        self.panel.open()
        for keys in (("ctrl+a", "ctrl+x"), ("ctrl+a", "shift+Delete"), ("Home", "ctrl+k"), ("ctrl+u",)):
            self.type("secret")
            self.panel.expect("query secret")
            self.keys(*keys)
            # Whichever of them the desktop knows.
            self.keys("ctrl+a", "BackSpace")
            self.panel.expect("query ")
        self.panel.ask("clipboard", "clipboard before")

    def test_the_copy_chord_never_takes_text_out_of_the_field(self):
        self.panel.tell("copy before")
        self.panel.open()
        self.type("secret")
        self.panel.expect("query secret")
        self.keys("ctrl+a", "ctrl+c", "ctrl+Insert")
        self.panel.expect("command copy")
        self.panel.expect("command copy")
        self.panel.ask("clipboard", "clipboard before")

    def test_it_stays_when_another_window_takes_the_keyboard(self):
        self.panel.open()
        self.screen.ask("wmctrl", "-a", "worker")
        self.wait_for_worker()
        self.assertTrue(self.panel.is_viewable())
        self.click(600, 60 + 30)
        wait_for("the panel to have the keyboard", lambda: self.screen.active_name() == SEARCH)
        self.type("a")
        self.panel.expect("query a")


if __name__ == "__main__":
    unittest.main()
