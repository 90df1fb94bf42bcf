"""The caption panel on a real X server with a window manager, as other programs see and use it."""
import itertools
import os
import queue
import subprocess
import threading
import unittest

from screen import CAPTIONS, CaptionsSeen, Screen
from soundlab import end, short_folder, wait_for

DRIVER = os.environ["SONRA_CAPTION_DRIVER"]


class Panel(CaptionsSeen):
    """The driver program and the window it shows."""

    def __init__(self, screen):
        super().__init__(screen)
        self.program = subprocess.Popen([DRIVER], env=screen.environment, text=True, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.lines = queue.Queue()
        threading.Thread(target=self._read, daemon=True).start()
        self.expect("ready")

    def _read(self):
        for line in self.program.stdout:
            self.lines.put(line.strip())

    def expect(self, beginning):
        """The next line that begins so; others are dropped."""
        while True:
            line = self.lines.get(timeout=20)
            if line.startswith(beginning):
                return line

    def tell(self, command, answer="done"):
        self.program.stdin.write(command + "\n")
        self.program.stdin.flush()
        return self.expect(answer)

    def show(self, frame="200 120 820 260"):
        self.tell(f"frame {frame}")
        self.tell("show")
        wait_for("the panel", self.is_viewable)
        # For a moment the program takes its new window to stand at the origin, and what is met there isn't a button yet.
        wait_for("the panel to know its place", self.knows_its_place)

    def knows_its_place(self):
        """The progress bar is as wide as the panel allows on both sides, so their middles are the same."""
        left, _, width, _ = self.geometry()
        return abs(self.middle_of("Position")[0] - (left + width / 2)) <= 1

    def hide(self):
        self.tell("hide")
        wait_for("the panel to hide", lambda: not self.is_viewable())

    def middle_of(self, part):
        _, x, y = self.tell(f"where {part}", "at").split()
        self.expect("done")
        return int(x), int(y)

    def close(self):
        end(self.program)
        self.program.stdin.close()
        self.program.stdout.close()


class CaptionPanel(unittest.TestCase):
    def setUp(self):
        folder = short_folder()
        self.addCleanup(folder.cleanup)
        self.screen = Screen(folder.name)
        self.addCleanup(self.screen.close)
        self.panel = Panel(self.screen)
        self.addCleanup(self.panel.close)

    def click(self, x, y):
        self.screen.ask("xdotool", "mousemove", str(x), str(y), "click", "1")

    def met_at(self, x, y):
        self.screen.ask("xdotool", "mousemove", str(x), str(y))
        return self.screen.ask("xdotool", "getmouselocation", "--shell").partition("WINDOW=")[2].strip()

    def drag(self, start, first, *stops):
        """The pointer stays near `first` until the window follows it: a window manager that is busy lets it wait."""
        self.screen.ask("xdotool", "mousemove", *map(str, start), "mousedown", "1")
        before = self.panel.geometry()
        nudges = itertools.cycle((0, 1))

        def follows():
            self.screen.ask("xdotool", "mousemove", str(first[0] + next(nudges)), str(first[1]))
            return self.panel.geometry() != before

        wait_for("the window to follow the pointer", follows)
        command = ["xdotool"]
        for x, y in stops:
            command += ["mousemove", str(x), str(y), "sleep", "0.05"]
        self.screen.ask(*command, "mouseup", "1")

    def reported(self, frame, tolerance=(0, 0, 0, 0)):
        """The report that is as near to `frame`; a drag that pauses on its way is reported there too."""

        def is_near():
            seen = [int(number) for number in self.panel.expect("moved").split()[1:]]
            return all(abs(a - b) <= most for a, b, most in zip(seen, frame, tolerance)) and seen

        return wait_for(f"the report of {frame}", is_near)

    def test_the_active_window_stays_active(self):
        self.panel.show()
        self.assertEqual(self.screen.active_name(), "worker")
        self.click(*self.panel.middle_of("Play"))
        self.panel.expect("playPause")
        self.assertEqual(self.screen.active_name(), "worker")
        self.drag((600, 200), (620, 210), (660, 230))
        self.panel.expect("moved")
        self.assertEqual(self.screen.active_name(), "worker")
        self.panel.hide()
        self.assertEqual(self.screen.active_name(), "worker")

    def assert_hints(self):
        # openbox keeps being sticky in the desktop alone.
        wanted = {"ABOVE", "SKIP_TASKBAR", "SKIP_PAGER"}
        wait_for("the hints", lambda: wanted <= self.panel.states())
        wait_for("every desktop", lambda: self.panel.property("_NET_WM_DESKTOP") == [0xFFFFFFFF])

    def test_hints_hold_at_every_showing(self):
        for _ in range(3):
            self.panel.show()
            self.assert_hints()
            self.panel.hide()

    def test_it_is_on_every_desktop_and_above(self):
        self.screen.ask("wmctrl", "-n", "3")
        self.panel.show("30 510 500 200")
        self.screen.ask("wmctrl", "-s", "2")
        wait_for("the other desktop", lambda: "2  *" in self.screen.ask("wmctrl", "-d"))
        self.assertTrue(self.panel.is_viewable())
        self.screen.ask("wmctrl", "-s", "0")
        self.screen.ask("wmctrl", "-a", "worker")
        wait_for("the terminal", lambda: self.screen.active_name() == "worker")
        stacking = self.screen.stacking()
        self.assertEqual(len(stacking), 2)
        self.assertEqual(stacking[-1], int(self.panel.window()))

    def test_a_drag_moves_it_and_is_reported(self):
        self.panel.show()
        self.drag((600, 200), (620, 210), (700, 260))
        # The window manager takes over once the pointer has moved far enough.
        frame = self.reported([300, 180, 820, 260], [25, 25, 0, 0])
        self.assertEqual(self.panel.geometry(), frame)

    def test_its_least_size(self):
        self.panel.show()
        self.drag((1013, 373), (1000, 360), (500, 200), (250, 140))
        self.reported([200, 120, 420, 180])
        self.assertEqual(self.panel.geometry(), [200, 120, 420, 180])
        # What another asks for is taken as far as it may be, which shows in the other direction.
        for asked, given in (((100, 300), [420, 300]), ((600, 50), [600, 180])):
            self.screen.ask("xdotool", "windowsize", self.panel.window(), *map(str, asked))
            wait_for(f"{given} for {asked}", lambda: self.panel.geometry()[2:] == given)

    def test_an_edge_resizes_one_way(self):
        self.panel.show()
        self.drag((1018, 240), (1040, 250), (1100, 300))
        frame = self.reported([200, 120, 900, 260], [0, 0, 30, 0])
        self.assertEqual(self.panel.geometry(), frame)

    def test_it_stands_where_it_was_asked_to(self):
        self.panel.show("300 200 640 240")
        wait_for("its place", lambda: self.panel.geometry() == [300, 200, 640, 240])
        self.panel.hide()
        self.panel.tell("frame 3000 2000 640 240")
        self.panel.show("780 620 640 240")
        wait_for("its place", lambda: self.panel.geometry() == [780, 620, 640, 240])
        self.assertEqual(self.panel.tell("tell", "frame"), "frame 780 620 640 240")
        self.panel.tell("frame 100 80 640 240")
        wait_for("its place", lambda: self.panel.geometry() == [100, 80, 640, 240])

    def test_scrubbing_and_closing(self):
        self.panel.show()
        x, y = self.panel.middle_of("Position")
        self.click(x - 205, y + 3)
        self.assertEqual(self.panel.expect("scrub"), "scrub 25")
        self.click(*self.panel.middle_of("Hide captions"))
        self.panel.expect("close")

    def test_it_follows_the_compositor(self):
        self.panel.show()
        self.assertEqual(self.panel.geometry(), [200, 120, 820, 260])
        self.assertIn("Window shape extents", self.screen.ask("xwininfo", "-shape", "-name", CAPTIONS))
        compositor = self.screen.start("picom", "--backend", "xrender", "--config", "/dev/null",
                                       env=self.screen.environment)
        with_shadow = [160, 94, 900, 344]
        wait_for("room for the shadow", lambda: self.panel.geometry() == with_shadow)
        wait_for("the extents", lambda: self.panel.property("_GTK_FRAME_EXTENTS") == [40, 40, 26, 58])
        self.assertEqual(self.panel.tell("tell", "frame"), "frame 200 120 820 260")
        # The pointer meets the panel, but in the shadow what is behind it.
        desktop = self.met_at(1300, 60)
        wait_for("the desktop itself in the shadow", lambda: self.met_at(600, 420) == desktop)
        self.assertNotEqual(self.met_at(600, 200), desktop)
        self.assert_hints()
        end(compositor)
        wait_for("the plain panel", lambda: self.panel.geometry() == [200, 120, 820, 260])


if __name__ == "__main__":
    unittest.main()
