"""The driver of the program's place on the session bus, on a bus of the test's own."""
import os
import subprocess
import tempfile
import unittest
from pathlib import Path

from panel import PrivateBus, Program

DRIVER = os.environ["SONRA_PRESENCE_DRIVER"]


class Presence(Program):
    """Lines that it prints are taken one by one, but for those that only say that it has obeyed."""

    def obey(self, line):
        self.tell(line)
        self.wait_for_line("done " + line.split()[0])

    def heard(self):
        lines = [line for line in self.read() if line != "ready"]
        self.lines = []
        return lines


class PresenceTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="sn-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.changed = {}
        # The bus can start what a test puts here, and nothing of the machine's.
        self.services = Path(self.folder) / "services"
        self.services.mkdir()
        self.start_bus()
        self.addCleanup(lambda: self.bus.close())

    def start_bus(self):
        self.bus = PrivateBus(self.services)

    def environment(self):
        kept = {key: value for key, value in os.environ.items() if key not in ("DISPLAY", "WAYLAND_DISPLAY")}
        return kept | {"HOME": self.folder, "XDG_RUNTIME_DIR": self.folder,
                       "DBUS_SESSION_BUS_ADDRESS": self.bus.address} | self.changed

    def start_driver(self, changed=None):
        self.changed = changed or {}
        driver = Presence(self, DRIVER)
        self.changed = {}
        self.addCleanup(driver.close)
        driver.wait_for_line("ready")
        return driver

    def run_program(self, *command):
        done = subprocess.run(command, env=self.environment(), capture_output=True, text=True, timeout=20)
        return done.returncode, (done.stdout + done.stderr).strip()
