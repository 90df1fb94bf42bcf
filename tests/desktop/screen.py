"""A private X server with a window manager, and the questions that any program there may ask."""
import hashlib
import os
import re
import subprocess
import time

from soundlab import QUIET, end, wait_for

CAPTIONS = "Sonra captions"


class Screen:
    """A private X server with openbox and a terminal that has the focus."""

    def __init__(self, folder):
        self.folder = folder
        self.processes = []
        read, write = os.pipe()
        # A key that is held because somebody is slow to let it go is one key.
        self.start("Xvfb", "-displayfd", str(write), "-screen", "0", "1440x900x24", "-noreset", "-r",
                   pass_fds=[write])
        os.close(write)
        with os.fdopen(read) as number:
            display = ":" + number.readline().strip()
        self.environment = {
            "PATH": os.environ["PATH"], "HOME": folder, "XDG_RUNTIME_DIR": folder, "DISPLAY": display,
            "LANG": "C.UTF-8", "QT_QPA_PLATFORM": "xcb", "DBUS_SESSION_BUS_ADDRESS": "disabled:"}
        self.start("openbox", env=self.environment)
        wait_for("the window manager", lambda: "window id" in self.ask("xprop", "-root", "_NET_SUPPORTING_WM_CHECK"))
        self.start("xterm", "-T", "worker", "-geometry", "60x20+20+500", env=self.environment)
        wait_for("the terminal", lambda: self.active_name() == "worker")

    def start(self, *command, **options):
        process = subprocess.Popen(command, **QUIET, **options)
        self.processes.append(process)
        return process

    def ask(self, *command):
        return subprocess.run(command, env=self.environment, capture_output=True, text=True, timeout=20).stdout

    def active_name(self):
        return self.ask("xdotool", "getactivewindow", "getwindowname").strip()

    def stacking(self):
        """The windows from the bottom to the top."""
        text = self.ask("xprop", "-root", "_NET_CLIENT_LIST_STACKING")
        return [int(number, 16) for number in re.findall(r"0x[0-9a-f]+", text)]

    def close(self):
        for process in reversed(self.processes):
            end(process)


class CaptionsSeen:
    """The caption panel as any other program sees it, whoever shows it."""

    def __init__(self, screen):
        self.screen = screen

    def window(self):
        return self.screen.ask("xdotool", "search", "--name", CAPTIONS).split()[0]

    def is_viewable(self):
        return "IsViewable" in self.screen.ask("xwininfo", "-name", CAPTIONS)

    def geometry(self):
        text = self.screen.ask("xwininfo", "-name", CAPTIONS)
        keys = ("Absolute upper-left X", "Absolute upper-left Y", "Width", "Height")
        return [int(re.search(re.escape(key) + r":\s+(-?\d+)", text)[1]) for key in keys]

    def states(self):
        text = self.screen.ask("xprop", "-name", CAPTIONS, "_NET_WM_STATE")
        return set(re.findall(r"_NET_WM_STATE_(\w+)", text))

    def property(self, name):
        return [int(number) for number in re.findall(r"\d+", self.screen.ask("xprop", "-name", CAPTIONS, name).partition("=")[2])]

    def settled(self, seconds=0.4):
        """Its picture once it has stayed the same for so long."""
        seen = {"picture": None, "since": time.monotonic()}

        def is_settled():
            now = self.picture()
            if now != seen["picture"]:
                seen.update(picture=now, since=time.monotonic())
            return now and time.monotonic() - seen["since"] > seconds

        wait_for("a still picture", is_settled)
        return seen["picture"]

    def picture(self):
        """A number that stands for its pixels, or nothing where none is shown."""
        shot = subprocess.run(["xwd", "-silent", "-name", CAPTIONS], env=self.screen.environment, capture_output=True,
                              timeout=20)
        return shot.stdout and hashlib.sha256(shot.stdout).hexdigest()
