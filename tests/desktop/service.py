"""The built service in a home of its own, driven through files and its socket as its users drive it."""
import json
import os
import socket
import subprocess
import time
from pathlib import Path

from soundlab import end, wait_for

ROOT = Path(__file__).resolve().parents[2]
PROGRAM = Path(os.environ.get("SONRA_PROGRAM", ROOT / "build/bin/sonra"))


def assistant_line(number, text, **extra):
    """A reply as Claude Code writes it, with its line feed."""
    return json.dumps({
        "type": "assistant", "uuid": f"u-{number}", "timestamp": "2026-05-01T10:00:00.000Z",
        "message": {"id": f"m-{number}", "role": "assistant", "content": [{"type": "text", "text": text}]},
    } | extra) + "\n"


class Home:
    """A home with one transcript and the shared documents."""

    def __init__(self, folder, session="0b6f7f1d-aaaa-4b57-9a3a-5f0c2a516d0e", cwd="/home/me/proj"):
        self.path = Path(folder)
        self.session = session
        self.cwd = cwd
        self.shared = self.path / ".claude/tts"
        self.shared.mkdir(parents=True)
        self.state_path = self.shared / "state.json"
        self.socket_path = self.shared / "service.sock"
        self.log_path = self.path / "Library/Logs/Sonra/sonra.ndjson"
        self.transcript = self.add_transcript(session, cwd)

    def add_transcript(self, session, cwd):
        """One more session's, with nothing said yet."""
        transcript = self.path / ".claude/projects" / cwd.replace("/", "-") / f"{session}.jsonl"
        transcript.parent.mkdir(parents=True)
        transcript.write_text('{"type":"user","message":{"content":"hi"}}\n')
        return transcript

    def environment(self):
        """The tester's own, without the directories that he may have elsewhere than below his home.

        The service starts the daemon beside it; only the tests of the daemon want one.
        """
        own = {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME", "CLAUDE_CONFIG_DIR", "CODEX_HOME",
               "GEMINI_CLI_HOME", "CLINE_DATA_DIR", "PI_CODING_AGENT_DIR", "AIDER_CHAT_HISTORY_FILE"}
        return {name: value for name, value in os.environ.items() if name not in own} | {
            "HOME": str(self.path), "TTS_CTL_CMD": "/bin/true ctl.js"}

    def state(self):
        try:
            return json.loads(self.state_path.read_text())
        except (OSError, ValueError):
            return {}

    def write_state(self, **changes):
        """As the daemon writes: whole, by rename, under the document's lock."""
        lock = self.state_path.with_name("state.json.lock")

        def take():
            try:
                os.close(os.open(lock, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600))
                return True
            except FileExistsError:
                return False

        wait_for("the state lock", take)
        try:
            fresh = self.state_path.with_name("state.json.tmp")
            fresh.write_text(json.dumps(self.state() | changes))
            fresh.rename(self.state_path)
        finally:
            lock.unlink()

    def now_playing(self):
        try:
            return json.loads((self.shared / "now-playing.json").read_text())
        except (OSError, ValueError):
            return {}

    def discovered_row(self):
        return {"sessionId": self.session, "cwd": self.cwd, "transcript": str(self.transcript),
                "source": "claude-code", "mtimeMs": time.time() * 1000, "active": True}

    def append(self, text):
        with self.transcript.open("a") as agent:
            agent.write(text)

    def log(self, message=None):
        records = []
        if self.log_path.exists():
            # The last line may still be being written.
            for line in self.log_path.read_text(errors="replace").split("\n")[:-1]:
                record = json.loads(line)
                if message is None or record["msg"] == message:
                    records.append(record)
        return records

    def problems(self):
        return [record for record in self.log() if record["level"] >= 40]


class Service:
    """One running service; `send` speaks to its socket."""

    def __init__(self, home, environment=None, arguments=(), program=None, before=None):
        self.home = home
        self.errors = home.path / "stderr.txt"
        with self.errors.open("ab") as errors:
            self.process = subprocess.Popen(
                [str(program or PROGRAM), *arguments], stderr=errors, preexec_fn=before,
                env=home.environment() | (environment or {}))

    def wait_ready(self):
        wait_for("the service's socket", self.accepts)
        return self

    def accepts(self):
        if self.process.poll() is not None:
            raise AssertionError(f"the service ended with {self.process.returncode}: {self.errors.read_text()}")
        with socket.socket(socket.AF_UNIX) as probe:
            try:
                probe.connect(str(self.home.socket_path))
                return True
            except OSError:
                return False

    def send(self, *commands):
        lines = "".join(json.dumps({"proto": 1} | command) + "\n" for command in commands)
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(str(self.home.socket_path))
            client.sendall(lines.encode())

    def attach(self):
        self.send({"cmd": "attach", "id": self.home.session, "cwd": self.home.cwd})
        wait_for("the session's tailer", lambda: self.home.log("native tailer started (forward-only)"))

    def wait_warm(self):
        wait_for("the voice", lambda: self.home.log("kokoro worker ready"))

    def stop(self):
        end(self.process)
        return self.process.returncode
