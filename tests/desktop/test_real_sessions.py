"""Real transcripts of the seven agents, laid out as on a disk: the daemon finds them, the lone fresh session is attached,
and menu and command line list the others."""
import json
import os
import shutil
import subprocess
import time
import unittest
from pathlib import Path

from home_case import HomeCase
from panel import PrivateBus, TrayIcon, Watcher, pump_until
from screen import Screen
from service import ROOT

BUILD = Path(os.environ.get("SONRA_BUILD", ROOT / "build"))
REAL = Path(os.environ.get("SONRA_TRANSCRIPTS", ROOT.parent / "shared/transcripts"))
FRESH = "thinking-and-queue"
# What, where its agent keeps it, and which agent that is.
LAID = [
    ("claude-code/chinese.jsonl", ".claude/projects/-home-me-one/chinese.jsonl", "claude-code"),
    (f"claude-code/{FRESH}.jsonl", f".claude/projects/-home-me-two/{FRESH}.jsonl", "claude-code"),
    ("codex/each-reply-twice-chinese.jsonl", ".codex/sessions/2025/09/19/rollout-2025-09-19T09-02-12-a.jsonl", "codex"),
    ("gemini/lines-v040.jsonl", ".gemini/tmp/a/chats/session-1.jsonl", "gemini"),
    ("opencode/storage-small", ".local/share/opencode/storage", "opencode"),
    ("aider/short.md", "aided/.aider.chat.history.md", "aider"),
    ("cline/cline_cline__sdk4x_session.messages.json", ".cline/data/sessions/s/s.messages.json", "cline"),
    ("pi/v3-small.jsonl", ".pi/agent/sessions/--a--/1_a.jsonl", "pi"),
]
# Of the sessions that aren't attached.
CHIPS = ["AID", "CC", "CDX", "CLN", "GEM", "OC", "PI"]


def until(what, condition):
    return pump_until(what, condition, 60)


@unittest.skipUnless(REAL.is_dir(), f"there are no real transcripts at {REAL}")
class RealSessions(HomeCase):
    def setUp(self):
        super().setUp()
        shutil.rmtree(self.home.path / ".claude/projects")
        for name, place, _ in LAID:
            self.lay(REAL / name, self.home.path / place)
        self.bus = PrivateBus()
        self.addCleanup(self.bus.close)
        self.watcher = Watcher(self.bus.connection)
        self.screen = Screen(str(self.home.path))
        self.addCleanup(self.screen.close)
        self.environment = {name: self.screen.environment[name] for name in ("DISPLAY", "XDG_RUNTIME_DIR")} | {
            "TTS_CTL_CMD": "", "SONRA_BRIDGE_PORT": "0", "SONRA_AIDER_FOLDERS": str(self.home.path / "aided"),
            "PULSE_SERVER": f"unix:{self.home.path}/none", "DBUS_SESSION_BUS_ADDRESS": self.bus.address,
            "QT_QPA_PLATFORM": "", "WAYLAND_DISPLAY": ""}
        self.addCleanup(self.run_tool, "node", BUILD / "share/sonra/cli/ctl.js", "stop-daemon")

    def lay(self, original, place):
        """A copy, an hour old but for the fresh one."""
        place.parent.mkdir(parents=True, exist_ok=True)
        copy = shutil.copytree if original.is_dir() else shutil.copyfile
        copy(original, place)
        then = time.time() - (0 if FRESH in place.name else 3600)
        for path in [place, *(place.rglob("*") if place.is_dir() else [])]:
            os.utime(path, (then, then))

    def run_tool(self, *command):
        return subprocess.run([str(word) for word in command], env=self.home.environment() | self.environment,
                              capture_output=True, text=True, timeout=30)

    def test_all_are_found_and_the_lone_fresh_one_is_attached(self):
        self.start_service(self.environment)
        until("the fresh session", lambda: [row["id"] for row in self.home.state().get("sessions", [])] == [FRESH])
        sources = {source for _, _, source in LAID}
        until("all agents", lambda: {row["source"] for row in self.home.state()["discoveredSessions"]} == sources)
        status = json.loads(self.run_tool(BUILD / "bin/tts", "status", "--json").stdout)
        self.assertEqual([row["id"] for row in status["sessions"]], [FRESH])
        self.assertEqual({row["source"] for row in status["discovered"]}, sources)
        icon = TrayIcon(self.bus.connection, until("the tray icon", lambda: self.watcher.items)[-1])
        # The menu follows within one and a half seconds; the attached session isn't offered again.
        until("the others in the menu", lambda: sorted(self.offered(icon)) == sorted(CHIPS))

    @staticmethod
    def offered(icon):
        """The agents' marks in the menu of sessions to attach."""
        row = next((row for row in icon.layout() if row["shown"] == "Attach session…"), None)
        if row is None:
            return []
        icon.open(row["id"])
        return [label.split()[0] for label in icon.labels(row["id"])]


if __name__ == "__main__":
    unittest.main()
