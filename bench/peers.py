"""The same figures of programs that do a part of the same work, where they are installed. Each returns (name, value), or
None where the program isn't there."""
import json
import os
import shutil
import subprocess
import time
from pathlib import Path

from lab import (Monitor, PrivateSound, accept_ms, assistant_line, connect, end, median_p90, pss_kb, short_folder, tone, wait_for)

ROUNDS = 20
QUIET = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}


def installed(*programs):
    return all(shutil.which(program) for program in programs)


class Stage:
    """A sound server with its monitor, and a folder, for one peer."""

    def __enter__(self):
        self.holder = short_folder()
        self.folder = Path(self.holder.name)
        self.sound = PrivateSound(self.folder)
        self.sound.start()
        self.monitor = Monitor(self.sound)
        self.environment = os.environ | self.sound.environment | {"HOME": str(self.folder)}
        return self

    def __exit__(self, *_):
        self.monitor.stop()
        self.sound.stop()
        self.holder.cleanup()

    def idle(self):
        wait_for("an idle server", lambda: not self.sound.sink_inputs())
        time.sleep(0.15)  # the monitor tells two sounds apart by the silence between them


def tail_pipeline(name, script, text):
    """A shell loop that reads lines as they are appended."""
    with Stage() as stage:
        tone(stage.folder / "ready.wav", 0.2)
        (stage.folder / "lines").touch()
        shell = subprocess.Popen(["/bin/bash", "-c", script], cwd=stage.folder, env=stage.environment, start_new_session=True, **QUIET)
        time.sleep(0.5)
        values = []
        for _ in range(ROUNDS):
            stage.monitor.drain()
            with (stage.folder / "lines").open("a") as lines:
                began = time.monotonic_ns()
                lines.write(text + "\n")
            values.append((stage.monitor.next("on") - began) / 1e6)
            stage.monitor.next("off")
            stage.idle()
        os.killpg(shell.pid, 15)
        shell.wait()
    return name, median_p90(values)[0]


def tail_into_paplay():
    if not installed("paplay"):
        return None
    return tail_pipeline("tail|paplay", "tail -n0 -F lines | while read -r line; do paplay ready.wav; done", "x")


def tail_into_espeak():
    if not installed("paplay", "espeak-ng"):
        return None
    text = json.loads(assistant_line(1, "The parser now reads each line once and hands over whole messages"))
    words = text["message"]["content"][0]["text"]
    return tail_pipeline("tail|espeak-ng|paplay",
                         'tail -n0 -F lines | while read -r line; do espeak-ng --stdout "$line" | paplay; done', words)


class Mpv:
    def __init__(self, folder, environment):
        self.socket = Path(folder) / "mpv.sock"
        self.start_ms, self.process = accept_ms(
            lambda: subprocess.Popen(["mpv", "--idle", "--no-terminal", "--no-video", "--ao=pulse", f"--input-ipc-server={self.socket}"],
                                     env=environment, **QUIET), self.socket)

    def send(self, *command):
        with connect(self.socket) as client:
            client.sendall(json.dumps({"command": command}).encode() + b"\n")
            client.recv(4096)


def mpv_start():
    if not installed("mpv"):
        return None
    values = []
    for _ in range(5):
        with short_folder() as folder:
            mpv = Mpv(folder, os.environ | {"HOME": folder})
            values.append(mpv.start_ms)
            end(mpv.process)
    return "mpv", median_p90(values)[0]


def mpv_memory():
    if not installed("mpv"):
        return None
    with short_folder() as folder:
        mpv = Mpv(folder, os.environ | {"HOME": folder})
        time.sleep(2)
        memory = pss_kb(mpv.process.pid) / 1024
        end(mpv.process)
    return "mpv", memory


def mpv_commands():
    if not installed("mpv"):
        return None
    count = 50_000
    with short_folder() as folder:
        mpv = Mpv(folder, os.environ | {"HOME": folder})
        batch = b'{"command":["ignore"]}\n' * count
        with connect(mpv.socket) as client:
            began = time.monotonic()
            client.setblocking(False)
            sent, answers = 0, 0
            while answers < count:
                try:
                    sent += client.send(batch[sent:sent + 65536]) if sent < len(batch) else 0
                except BlockingIOError:
                    pass
                try:
                    answers += client.recv(1 << 20).count(b"\n")
                except BlockingIOError:
                    time.sleep(0.0001)
            took = time.monotonic() - began
        end(mpv.process)
    return "mpv", count / took
