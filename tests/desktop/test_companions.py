"""The service with the companions that it starts: sessions are found, narrated and steered without a hand on a file."""
import json
import os
import subprocess
import time
import unittest
from pathlib import Path

import agents
from home_case import HomeCase
from soundlab import is_running, wait_for

BUILD = Path(os.environ.get("SONRA_BUILD", Path(__file__).resolve().parents[2] / "build"))
CTL = BUILD / "share/sonra/cli/ctl.js"
TTS = BUILD / "bin/tts"
# Long enough for one who looks away for a while to see that it is being spoken.
GREEN = "The tests are green now, all of them, and so is the build that has been red ever since the early morning of today."
CODEX = "Codex is heard as well, and it has so much to tell that nobody who looks away for a while will miss all of it."
AGAIN = "And here I am again, with so much to tell that nobody who looks away for a while will miss all of it this time."
SOURCES = {"claude-code", "codex", "gemini", "opencode", "aider", "cline", "pi"}


class Everybody:
    """A session of each agent, those of the others an hour old."""

    def __init__(self, home):
        self.project = home.path / "proj"
        self.project.mkdir()
        self.fresh = home.path / ".claude/projects" / str(self.project).replace("/", "-") / "11111111-fresh.jsonl"
        self.fresh.parent.mkdir(parents=True)
        self.fresh.write_text(json.dumps({
            "type": "user", "cwd": str(self.project), "gitBranch": "main",
            "message": {"role": "user", "content": "Make the tests green"}}) + "\n")
        self.others = [kind(home.path) for kind in agents.ALL if kind.source not in ("claude-code", "aider")]
        self.others.append(agents.AiderChat(home.path))
        for other in self.others:
            other.say("What was said an hour ago")
            self.age(Path(other.transcript.partition("#")[0]))

    @staticmethod
    def age(path):
        then = time.time() - 3600
        for entry in [path, *path.parent.glob(path.name + "-*"), *(path.rglob("*") if path.is_dir() else [])]:
            os.utime(entry, (then, then))


class Companions(HomeCase):
    def setUp(self):
        super().setUp()
        # The session that every home has is as old as the others.
        Everybody.age(self.home.transcript)
        self.everybody = Everybody(self.home)
        self.home.write_state(speed=2.0)
        self.environment = self.start_sound().environment | {"TTS_CTL_CMD": "", "SONRA_BRIDGE_PORT": "0"}
        self.addCleanup(self.run_tool, "node", CTL, "stop-daemon")

    def run_tool(self, *command):
        return subprocess.run([str(word) for word in command], env=self.home.environment() | self.environment,
                              capture_output=True, text=True, timeout=30)

    def start(self):
        return self.start_service(self.environment).wait_ready()

    def daemon_pid(self):
        return int((self.home.shared / "daemon.pid").read_text())

    def services_seen(self):
        log = self.home.shared / "daemon.log"
        return log.read_text().count('"service seen"') if log.exists() else 0

    def attached(self):
        return [row["id"] for row in self.home.state().get("sessions", [])]

    def hears(self, words):
        wait_for(f"“{words}”", lambda: self.home.now_playing().get("snippet") == words)

    def say(self, number, words):
        with self.everybody.fresh.open("a") as agent:
            agent.write(json.dumps({
                "type": "assistant", "uuid": f"u{number}", "timestamp": "2026-05-01T10:00:00.000Z",
                "message": {"id": f"m{number}", "role": "assistant", "content": [{"type": "text", "text": words}]}}) + "\n")

    def test_a_lone_fresh_session_is_attached_and_the_others_are_listed(self):
        self.start()
        wait_for("the lone fresh session", lambda: self.attached() == ["11111111-fresh"])
        wait_for("all agents", lambda: {row["source"] for row in self.home.state()["discoveredSessions"]} == SOURCES)
        self.say(1, GREEN)
        self.hears(GREEN)
        status = json.loads(self.run_tool(TTS, "status", "--json").stdout)
        self.assertTrue(status["service"]["running"])
        self.assertEqual([row["id"] for row in status["sessions"]], ["11111111-fresh"])
        self.assertEqual({row["source"] for row in status["discovered"]}, SOURCES)
        words = self.run_tool(TTS, "status")
        self.assertEqual(words.returncode, 0, words.stderr)
        self.assertIn("Make the tests green", words.stdout)
        self.assertEqual(self.home.problems(), [])

    def test_a_session_of_another_agent_is_attached_from_the_command_line_and_heard(self):
        self.start()
        codex = next(other for other in self.everybody.others if other.source == "codex")
        wait_for("the Codex session", lambda: "codex" in {
            row["source"] for row in self.home.state().get("discoveredSessions", [])})
        done = self.run_tool(TTS, "on", "--session", "rollout-1")
        self.assertEqual(done.returncode, 0, done.stderr)
        codex.say(CODEX)
        self.hears(CODEX)
        done = self.run_tool(TTS, "off", "--all")
        self.assertEqual(done.returncode, 0, done.stderr)
        wait_for("the rows to go", lambda: self.attached() == [])

    def test_a_fresh_session_is_narrated_again_after_the_service_was_started_anew(self):
        first = self.start()
        wait_for("the lone fresh session", lambda: self.attached() == ["11111111-fresh"])
        first.stop()
        self.assertEqual(self.attached(), ["11111111-fresh"])
        started = len(self.home.log("native tailer started (forward-only)"))
        self.start()
        wait_for("its tailer", lambda: len(self.home.log("native tailer started (forward-only)")) > started)
        self.say(2, AGAIN)
        self.hears(AGAIN)

    def test_one_daemon_serves_service_after_service_and_both_end_together(self):
        service = self.start()
        wait_for("the service to be seen", lambda: self.services_seen() >= 1)
        seen = self.services_seen()
        daemon = self.daemon_pid()
        service.stop()
        service = self.start()
        wait_for("the second one to be seen", lambda: self.services_seen() > seen)
        self.assertEqual(self.daemon_pid(), daemon)
        done = self.run_tool(TTS, "quit")
        self.assertEqual(done.returncode, 0, done.stderr)
        wait_for("the service's end", lambda: service.process.poll() is not None)
        wait_for("the daemon's end", lambda: not is_running(daemon))


if __name__ == "__main__":
    unittest.main()
