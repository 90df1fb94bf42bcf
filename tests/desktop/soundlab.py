"""A private sound server with a null sink, a recorder on it, and measures of what was heard."""
import array
import math
import os
import signal
import socket
import subprocess
import tempfile
import time
import wave
from pathlib import Path

RATE = 48_000
QUIET = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}


def wait_for(what, condition, limit=30.0, pause=0.01):
    """The first true answer of `condition`; fails after `limit` seconds."""
    deadline = time.monotonic() + limit
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise AssertionError(f"never came within {limit} s: {what}")
        time.sleep(pause)


def end(process, limit=10):
    if process.poll() is None:
        process.send_signal(signal.SIGTERM)
    try:
        process.wait(limit)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def is_running(pid):
    """False also of one that has ended and that nobody has collected yet."""
    try:
        with open(f"/proc/{pid}/stat", encoding="latin1") as stat:
            return stat.read().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


def texts_of(folder, pattern):
    """What stands in the files below a process's folder in /proc; without what ends while they are read."""
    texts = []
    for file in Path(folder).glob(pattern):
        try:
            texts.append(file.read_text())
        except (FileNotFoundError, ProcessLookupError):
            continue
    return texts


class PrivateSound:
    """Started by `start`, so that a test can also have it appear late or die in the middle."""

    def __init__(self, folder):
        self.folder = Path(folder)
        self.runtime = self.folder / "snd"
        self.runtime.mkdir(mode=0o700)
        self.address = self.runtime / "pulse.sock"
        self.environment = {"PULSE_SERVER": f"unix:{self.address}"}
        self.server = None
        self.recorder = None
        self.raw = self.folder / "played.raw"

    def start(self, more=""):
        """`more` holds further lines of the server's script."""
        script = self.folder / "sound.pa"
        script.write_text(
            f"load-module module-native-protocol-unix socket={self.address} auth-anonymous=1\n"
            f"load-module module-null-sink sink_name=speaker norewinds=1 rate={RATE} channels=1\n"
            "set-default-sink speaker\n" + more)
        self.server = subprocess.Popen(
            ["pulseaudio", "-n", "-F", str(script), "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
             "--disable-shm=yes", "--realtime=no", "--high-priority=yes"],
            env=os.environ | {"XDG_RUNTIME_DIR": str(self.runtime), "HOME": str(self.folder)}, **QUIET)
        wait_for("the sound server", self._answers)

    def _answers(self):
        with socket.socket(socket.AF_UNIX) as probe:
            try:
                probe.connect(str(self.address))
                return True
            except OSError:
                return False

    def record(self):
        """Starts a recording of its own file; what was recorded before is dropped."""
        if self.recorder:
            end(self.recorder)
        self.raw.unlink(missing_ok=True)
        self.recorder = subprocess.Popen(
            ["parec", "-d", "speaker.monitor", "--raw", f"--rate={RATE}", "--channels=1", "--format=s16le",
             "--latency-msec=5", str(self.raw)], env=os.environ | self.environment, **QUIET)
        wait_for("the recorder", lambda: self.raw.exists() and self.raw.stat().st_size > 0)

    def recorded(self):
        """How many samples there are so far."""
        return self.raw.stat().st_size // 2

    def samples(self, first=0):
        """What was recorded, from the sample of that number on."""
        with self.raw.open("rb") as recording:
            recording.seek(2 * first)
            data = recording.read()
        result = array.array("h")
        result.frombytes(data[: len(data) // 2 * 2])
        return result

    def seconds(self):
        return self.recorded() / RATE

    def kill_server(self):
        self.server.kill()
        self.server.wait()
        self.address.unlink(missing_ok=True)

    def sink_inputs(self):
        return subprocess.run(["pactl", "list", "short", "sink-inputs"], env=os.environ | self.environment,
                              capture_output=True, text=True, timeout=10, check=True).stdout.strip()

    def stop(self):
        for process in (self.recorder, self.server):
            if process:
                end(process)


def loudness(samples, block=RATE // 100):
    """Peak of each block of 10 ms."""
    return [max(map(abs, samples[at:at + block])) for at in range(0, len(samples), block)]


def loud_seconds(samples, floor=40):
    """For how long there was sound, silences within it left out."""
    return sum(peak >= floor for peak in loudness(samples)) / 100


def utterances(samples, gap=0.35, floor=40):
    """Runs of sound that at least `gap` seconds of silence separate, as (start, end) in seconds."""
    runs = []
    for index, peak in enumerate(loudness(samples)):
        if peak < floor:
            continue
        at = index / 100
        if runs and at - runs[-1][1] <= gap:
            runs[-1][1] = at
        else:
            runs.append([at, at])
    return [(start, stop + 0.01) for start, stop in runs]


def write_tone(path, seconds=0.5, peak=9000):
    """A sound file with nothing but an even tone."""
    tone = array.array("h", (round(peak * math.sin(i / 20)) for i in range(int(RATE * seconds))))
    with wave.open(str(path), "wb") as out:
        out.setnchannels(1)
        out.setsampwidth(2)
        out.setframerate(RATE)
        out.writeframes(tone.tobytes())


def short_folder():
    """A folder with a path short enough for sockets in it."""
    return tempfile.TemporaryDirectory(prefix="sn-", dir="/tmp")
