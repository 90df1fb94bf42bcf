"""What the benchmarks share: the service in a prefix of its own, the monitor of the sink, and figures of a process."""
import math
import os
import queue
import shutil
import socket
import statistics
import struct
import subprocess
import sys
import threading
import time
import wave
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests/desktop"))

from service import Home, Service, assistant_line  # noqa: E402
from soundlab import PrivateSound, end, short_folder, wait_for  # noqa: E402

__all__ = ["ROOT", "Home", "Service", "PrivateSound", "Monitor", "Relay", "assistant_line", "end", "short_folder", "wait_for",
           "prefix_with_instant_worker", "tone", "pss_kb", "wakeups", "median_p90", "accept_ms", "connect", "BIN", "BETWEEN", "LOUD_PEAK",
           "Screen", "main_thread_percent", "minute_of_speech"]

BIN = ROOT / "build/bin"


class Monitor:
    """Edges of what the sink plays above `floor`, as monotonic nanoseconds. While it runs the null sink works in blocks of 5 ms."""

    def __init__(self, sound, floor=0):
        self.process = subprocess.Popen([str(BIN / "sound_monitor"), "speaker.monitor", str(floor)], stdout=subprocess.PIPE,
                                        env=os.environ | sound.environment, text=True)
        self.edges = queue.Queue()
        if self.process.stdout.readline() != "ready\n":
            raise RuntimeError("the monitor of the sink didn't start")
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            kind, at = line.split()
            self.edges.put((kind, int(at)))

    def next(self, kind, limit=20):
        """The time of the next edge of this kind."""
        deadline = time.monotonic() + limit
        while True:
            found, at = self.edges.get(timeout=max(0.01, deadline - time.monotonic()))
            if found == kind:
                return at

    def drain(self):
        while not self.edges.empty():
            self.edges.get()

    def stop(self):
        end(self.process)


class Relay(threading.Thread):
    """Stands between a client and the sound server and notes when the client first sends sound after `arm`."""

    SOUND_BYTES = 1500  # control messages are far shorter, the first block of a stream is longer

    def __init__(self, folder, server_address):
        super().__init__(daemon=True)
        self.address = Path(folder) / "relay.sock"
        self.server_address = str(server_address)
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(str(self.address))
        self.listener.listen()
        self.first = queue.Queue()
        self.armed = False
        self.start()

    def arm(self):
        self.armed = True

    def run(self):
        while True:
            client, _ = self.listener.accept()
            server = socket.socket(socket.AF_UNIX)
            server.connect(self.server_address)
            threading.Thread(target=self._pump, args=(client, server, True), daemon=True).start()
            threading.Thread(target=self._pump, args=(server, client, False), daemon=True).start()

    def _pump(self, source, target, watch):
        """Descriptors that PulseAudio passes along are of no use without shared memory; bytes are enough."""
        try:
            while data := source.recv(65536):
                if watch and self.armed and len(data) >= self.SOUND_BYTES:
                    self.armed = False
                    self.first.put(time.monotonic_ns())
                target.sendall(data)
        except OSError:
            pass
        for side in (source, target):
            side.close()


# What is said loud, and what is no more than the rest: for a Monitor's floor.
QUIET_PEAK, BETWEEN, LOUD_PEAK = 8000, 12_000, 16_000


def tone(path, seconds, rate=22_050, peak=QUIET_PEAK):
    """A file that sounds from its first sample to its last."""
    with wave.open(str(path), "wb") as out:
        out.setnchannels(1)
        out.setsampwidth(2)
        out.setframerate(rate)
        out.writeframes(b"".join(struct.pack("<h", int(peak * math.cos(i / 9))) for i in range(int(seconds * rate))))


def prefix_with_instant_worker(folder, seconds):
    """An installation of the program whose speech helper answers at once, louder where "loud" is said; returns the program."""
    prefix = Path(folder) / "prefix"
    for name in ("bin", "share/sonra/bin", "share/sonra/scripts"):
        (prefix / name).mkdir(parents=True)
    shutil.copy(BIN / "sonra", prefix / "bin/sonra")
    ready = prefix / "ready.wav"
    tone(ready, seconds)
    loud = prefix / "loud.wav"
    tone(loud, seconds, peak=LOUD_PEAK)
    (prefix / "share/sonra/scripts/tts_kokoro.py").touch()
    launcher = prefix / "share/sonra/bin/uv"
    launcher.write_text(f'#!/bin/sh\n[ "$4" = --worker ] && exec {BIN}/instant_worker {ready} {loud}\n')
    launcher.chmod(0o755)
    return prefix / "bin/sonra"


def pss_kb(pid):
    for line in Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines():
        if line.startswith("Pss:"):
            return int(line.split()[1])
    raise RuntimeError(f"no memory figures for process {pid}")


def wakeups(pid, seconds):
    """Voluntary context switches of all threads, a second."""

    def switches():
        total = 0
        for status in Path(f"/proc/{pid}/task").glob("*/status"):
            try:
                text = status.read_text()
            except FileNotFoundError:
                continue
            total += int(text.split("voluntary_ctxt_switches:")[1].split()[0])
        return total

    before = switches()
    time.sleep(seconds)
    return (switches() - before) / seconds


def main_thread_percent(pid, seconds):
    """What the main thread of a process takes of one core."""

    def nanoseconds():
        return int(Path(f"/proc/{pid}/task/{pid}/schedstat").read_text().split()[0])

    before, began = nanoseconds(), time.monotonic_ns()
    time.sleep(seconds)
    return 100 * (nanoseconds() - before) / (time.monotonic_ns() - began)


def minute_of_speech(path):
    """A file of the embedded voice's speech, 60 s long to the sample."""
    long = path.with_suffix(".long.wav")
    sentence = "The transcript reader used to keep the whole file in memory, which was fine for short sessions. "
    subprocess.run(["espeak-ng", "-w", str(long), sentence * 20], check=True)
    with wave.open(str(long)) as said, wave.open(str(path), "wb") as out:
        wanted = 60 * said.getframerate()
        if said.getnframes() < wanted:
            raise RuntimeError("the text is too short for a minute")
        out.setparams(said.getparams())
        out.writeframes(said.readframes(wanted))
    long.unlink()


class Screen:
    """A private X server with a window manager and, if wanted, a compositor, and a bus of its own."""

    def __init__(self, folder, composited):
        self.processes = []
        self.environment = {"XDG_RUNTIME_DIR": str(folder), "LANG": "C.UTF-8", "QT_QPA_PLATFORM": "xcb"}
        self.environment["DISPLAY"] = ":" + self._start_telling("Xvfb", "-displayfd", "{}", "-screen", "0", "1440x900x24", "-noreset")
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = self._start_telling("dbus-daemon", "--session", "--nofork", "--print-address={}")
        self._start("openbox")
        wait_for("the window manager", lambda: "window id" in self.ask("xprop", "-root", "_NET_SUPPORTING_WM_CHECK"))
        if composited:
            self._start("picom", "--backend", "xrender", "--config", "/dev/null")
            wait_for("the compositor", lambda: "picom" in self.ask("xwininfo", "-root", "-tree"))

    def _start(self, *command, **options):
        self.processes.append(subprocess.Popen(command, env=os.environ | self.environment, stdin=subprocess.DEVNULL,
                                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **options))

    def _start_telling(self, *command):
        """Starts what writes a line to the descriptor whose number takes the place of {}; returns the line."""
        read, write = os.pipe()
        self._start(*(argument.format(write) for argument in command), pass_fds=[write])
        os.close(write)
        with os.fdopen(read) as told:
            return told.readline().strip()

    def ask(self, *command):
        return subprocess.run(command, env=os.environ | self.environment, capture_output=True, text=True, timeout=20).stdout

    def has_window(self, title):
        return "IsViewable" in self.ask("xwininfo", "-name", title)

    def picture(self, title):
        """What the window looks like now, as bytes to compare."""
        return subprocess.run(["import", "-silent", "-window", title, "rgb:-"], env=os.environ | self.environment,
                              capture_output=True, timeout=20, check=True).stdout

    def close(self):
        for process in reversed(self.processes):
            end(process)


def median_p90(values):
    ordered = sorted(values)
    return statistics.median(ordered), ordered[math.ceil(0.9 * len(ordered)) - 1]


def connect(path):
    client = socket.socket(socket.AF_UNIX)
    client.connect(str(path))
    return client


def accept_ms(start, path):
    """From `start()` to the first connection that the socket at `path` accepts; returns it with the process."""
    began = time.monotonic_ns()
    process = start()
    while True:
        try:
            connect(path).close()
            return (time.monotonic_ns() - began) / 1e6, process
        except OSError:
            if process.poll() is not None:
                raise RuntimeError(f"{process.args} ended with {process.returncode}") from None
            time.sleep(0.0002)
