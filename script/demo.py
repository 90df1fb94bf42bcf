#!/usr/bin/env python3
"""Narrates a short sample session with the built program, the way a user's own session is narrated.

A temporary home gets a transcript that grows line by line; the daemon beside the service finds it, and the service
attaches it and speaks. Without a sound server a private one is started, and what it plays is recorded.
"""
import atexit
import json
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import wave
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build"
PROGRAM = BUILD / "bin/sonra"
RECORDING = BUILD / "demo.wav"
RATE = 48_000
SESSION = "5f0c2a51-6d0e-4b57-9a3a-0b6f7f1d2e11"
PROJECT = "/home/you/projects/hello"
REPLIES = [
    "Hello! I am reading this reply aloud while the agent is still writing the next one.",
    "I have renamed the **parser** module and fixed two tests.\n\n```\nmake test\n```\n\nAll tests pass now.",
    "- Code blocks are announced, not spelled.\n- Each line of a list is spoken by itself.",
]


def say(text):
    print(f"demo: {text}", flush=True)


class DemoFailed(Exception):
    """What went wrong, as a sentence for the person who started the demo."""


SERVICE = []
USER_DIRECTORIES = {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME", "CLAUDE_CONFIG_DIR", "CODEX_HOME",
                    "GEMINI_CLI_HOME", "CLINE_DATA_DIR", "PI_CODING_AGENT_DIR", "AIDER_CHAT_HISTORY_FILE"}
# What the demo doesn't bring along: the control tool of this build, and a port for the phone that nobody else has.
OWN = {"TTS_CTL_CMD": "", "TTS_DISABLE_CTL": "", "SONRA_BRIDGE_PORT": "0"}


def wait_for(what, condition, limit=30.0):
    """The first true answer of `condition`, asked over and over while the service runs."""
    deadline = time.monotonic() + limit
    while time.monotonic() < deadline:
        result = condition()
        if result:
            return result
        if SERVICE and SERVICE[0].poll() is not None:
            raise DemoFailed(f"the service ended with status {SERVICE[0].returncode} before {what}")
        time.sleep(0.05)
    raise DemoFailed(f"gave up waiting for {what}")


def end(process):
    if process is None:
        return
    process.send_signal(signal.SIGTERM)
    try:
        process.wait(10)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def read_json(path):
    try:
        return json.loads(path.read_text())
    except (OSError, ValueError):
        return {}


class PrivateSound:
    """A sound server of our own with a null sink, and a recorder on what the sink plays."""

    def __init__(self, folder):
        self.raw = folder / "played.raw"
        self.server = self.recorder = None
        atexit.register(self.finish)
        runtime = folder / "run"
        runtime.mkdir(mode=0o700)
        address = runtime / "pulse.sock"
        script = folder / "sound.pa"
        script.write_text(
            f"load-module module-native-protocol-unix socket={address} auth-anonymous=1\n"
            f"load-module module-null-sink sink_name=speaker norewinds=1 rate={RATE} channels=1\n"
            "set-default-sink speaker\n")
        quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
        environment = os.environ | {"XDG_RUNTIME_DIR": str(runtime), "HOME": str(folder)}
        self.server = subprocess.Popen(
            ["pulseaudio", "-n", "-F", str(script), "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
             "--disable-shm=yes", "--realtime=no", "--high-priority=no"], env=environment, **quiet)
        wait_for("the private sound server", lambda: accepts(address))
        self.environment = {"PULSE_SERVER": f"unix:{address}"}
        self.recorder = subprocess.Popen(
            ["parec", "-d", "speaker.monitor", "--raw", f"--rate={RATE}", "--channels=1", "--format=s16le",
             "--latency-msec=20", str(self.raw)], env=environment | self.environment, **quiet)
        wait_for("the recorder", lambda: self.raw.exists() and self.raw.stat().st_size > 0)

    def finish(self):
        recorder, server, self.recorder, self.server = self.recorder, self.server, None, None
        end(recorder)
        end(server)

    def save(self, path):
        samples = self.raw.read_bytes()
        path.parent.mkdir(parents=True, exist_ok=True)
        with wave.open(str(path), "wb") as out:
            out.setnchannels(1)
            out.setsampwidth(2)
            out.setframerate(RATE)
            out.writeframes(samples[: len(samples) // 2 * 2])
        return len(samples) / 2 / RATE


def sound_server_answers():
    try:
        return subprocess.run(["pactl", "info"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=5).returncode == 0
    except (OSError, subprocess.TimeoutExpired):
        return False


def accepts(path):
    """Whether somebody answers there: the socket's file is older than that, or left by another."""
    with socket.socket(socket.AF_UNIX) as probe:
        try:
            probe.connect(str(path))
            return True
        except OSError:
            return False


def assistant_line(number, text):
    return json.dumps({
        "type": "assistant", "uuid": f"demo-{number}", "sessionId": SESSION,
        "timestamp": time.strftime("%Y-%m-%dT%H:%M:%S.000Z", time.gmtime()),
        "message": {"id": f"m-{number}", "role": "assistant", "content": [{"type": "text", "text": text}]},
    }) + "\n"


def narrate(shared, transcript):
    now_playing = shared / "now-playing.json"
    with transcript.open("a") as agent:
        for number, text in enumerate(REPLIES, 1):
            say(f"the agent writes reply {number} of {len(REPLIES)}")
            line = assistant_line(number, text)
            agent.write(line[: len(line) // 2])
            agent.flush()
            agent.write(line[len(line) // 2:])
            agent.flush()
            wait_for(f"reply {number} to be spoken", lambda n=number: read_json(now_playing).get("messageId") == f"demo-{n}", 60)
            say(f"reply {number} is being spoken")
    idle_since = None

    def silent():
        nonlocal idle_since
        if read_json(now_playing).get("state") != "idle":
            idle_since = None
            return False
        idle_since = idle_since or time.monotonic()
        return time.monotonic() - idle_since > 1.0

    wait_for("the last word", silent, 120)


def run(folder):
    shared = folder / ".claude/tts"
    transcript = folder / ".claude/projects" / PROJECT.replace("/", "-") / f"{SESSION}.jsonl"
    transcript.parent.mkdir(parents=True)
    shared.mkdir(parents=True)
    (shared / "state.json").write_text('{"speed": 1.2}')
    transcript.write_text(json.dumps({"type": "user", "cwd": PROJECT, "message": {"role": "user", "content": "Please say hello."}}) + "\n")
    say(f"a temporary home is at {folder}; your own sessions and settings are not touched")

    sound = None
    # The user's own directories may stand elsewhere than below the home.
    environment = {name: value for name, value in os.environ.items() if name not in USER_DIRECTORIES}
    environment |= OWN | {"HOME": str(folder)}
    if sound_server_answers():
        say("a sound server is running: you will hear the demo")
        cookie = Path.home() / ".config/pulse/cookie"
        if cookie.exists():
            environment.setdefault("PULSE_COOKIE", str(cookie))
    else:
        if not shutil.which("pulseaudio"):
            raise DemoFailed("no sound server is running, and without PulseAudio's the demo can't start one of its own")
        say("no sound server here: starting a private one that plays into a recording")
        sound = PrivateSound(folder)
        environment |= sound.environment

    say("starting the service")
    service = subprocess.Popen([str(PROGRAM)], env=environment)
    SERVICE.append(service)
    try:
        wait_for("the service's socket", lambda: accepts(shared / "service.sock"))
        say("the daemon looks for sessions; a lone fresh one is attached by itself")
        wait_for("the session to be attached", lambda: read_json(shared / "state.json").get("sessions"))
        narrate(shared, transcript)
        say("everything has been spoken; stopping the service")
    finally:
        end(service)
        subprocess.run([str(BUILD / "bin/tts"), "quit"], env=environment, timeout=20, capture_output=True)
        if sound:
            sound.finish()
    if service.returncode != 0:
        raise DemoFailed(f"the service ended with status {service.returncode}")
    if sound:
        seconds = sound.save(RECORDING)
        say(f"recorded {RECORDING} ({seconds:.1f} seconds)")


def main():
    if not PROGRAM.exists():
        raise SystemExit("demo: build/bin/sonra is missing; run script/build first")
    folder = Path(tempfile.mkdtemp(prefix="sonra-demo-"))
    try:
        run(folder)
    except DemoFailed as failure:
        raise SystemExit(f"demo: {failure}; the service's log is in {folder}/Library/Logs/Sonra") from None
    shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
