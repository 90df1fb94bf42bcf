"""What the speech helper's tests share: a helper process, its files, and an ear for pitch and silence."""

import json
import math
import os
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import wave
from collections.abc import Callable
from pathlib import Path

COMPANION = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(COMPANION))
import tts_playing  # noqa: E402, F401  the tests import them from here
import tts_voices  # noqa: E402, F401

HELPER = COMPANION / "tts_kokoro.py"
LAUNCHER = COMPANION / "uv"
SENTENCE = "We were away a year ago, and now all our rooms are ready for the summer."
LONG = SENTENCE * 2000  # takes a synthesizer many seconds
SOON = 10.0  # seconds; what ends at once does so within them, however busy the machine is
LIMIT = 20.0  # seconds; far beyond anything that these tests wait for


class HelperTest(unittest.TestCase):
    """A temporary HOME without Kokoro's files, and an environment that says nothing about speech."""

    def setUp(self) -> None:
        self.dir = Path(tempfile.mkdtemp(prefix="tts"))
        self.addCleanup(shutil.rmtree, self.dir, ignore_errors=True)
        self.env = {k: v for k, v in os.environ.items() if not k.startswith(("TTS_", "KOKORO_"))}
        self.env.update(HOME=str(self.dir), TMPDIR=str(self.dir), PYTHONDONTWRITEBYTECODE="1")

    def worker(self, **env: str) -> "Worker":
        worker = Worker([sys.executable, str(HELPER), "--worker"], {**self.env, **env}, self.dir)
        self.addCleanup(worker.close)
        return worker

    def ready_worker(self, **env: str) -> "Worker":
        worker = self.worker(**env)
        worker.ready = worker.reply()
        return worker

    def once(self, *arguments: str, **env: str) -> subprocess.CompletedProcess:
        return subprocess.run(
            [sys.executable, str(HELPER), *map(str, arguments)],
            env={**self.env, **env},
            capture_output=True,
            text=True,
            timeout=LIMIT,
            check=False,
        )

    def text_file(self, text: str) -> Path:
        path = self.dir / "text"
        path.write_text(text, encoding="utf-8")
        return path

    def files(self) -> list[str]:
        return sorted(p.name for p in self.dir.iterdir() if p.is_file())

    def until(self, holds: Callable[[], bool]) -> None:
        deadline = time.monotonic() + LIMIT
        while not holds():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.01)

    def until_busy(self, pid: int) -> None:
        """Until the process has computed for a tenth of a second."""

        def ticks() -> int:
            return int(Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[11])

        start = ticks()
        self.until(lambda: ticks() >= start + 10)


def has_ended(pid: int) -> bool:
    """Whether the process is gone, or only waits to be reaped."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0] == "Z"
    except (FileNotFoundError, ProcessLookupError):  # the second where it goes while it is read
        return True


class Worker:
    """A helper in worker mode, through real pipes."""

    def __init__(self, command: list[str], env: dict[str, str], directory: Path) -> None:
        self.dir = directory
        self._errors = tempfile.TemporaryFile()
        self.process = subprocess.Popen(
            command,
            env=env,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=self._errors,
            bufsize=0,
            # A shell's background job ignores it, and its children with it.
            preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL),
        )
        self._buffer = b""

    def write(self, data: bytes) -> None:
        self.process.stdin.write(data)

    def reply(self, seconds: float = LIMIT) -> dict:
        """The next line; an AssertionError if none comes."""
        deadline = time.monotonic() + seconds
        while b"\n" not in self._buffer:
            readable, _, _ = select.select([self.process.stdout], [], [], max(0.0, deadline - time.monotonic()))
            data = os.read(self.process.stdout.fileno(), 65536) if readable else b""
            if not data:
                raise AssertionError(f"no line from the worker: {self._buffer!r} {self.errors()}")
            self._buffer += data
        line, self._buffer = self._buffer.split(b"\n", 1)
        return json.loads(line)

    def request(self, **changes: object) -> dict:
        """The answer to a good request with `changes` to it; None takes a field away."""
        self.ask(**changes)
        return self.reply()

    def ask(self, **changes: object) -> None:
        request = {"type": "synth_file", "id": 1, "text": SENTENCE, "voice": "af_heart", "speed": "1.0"}
        request.update(outWav=str(self.dir / "out.wav"))
        request.update(changes)
        self.write(json.dumps({k: v for k, v in request.items() if v is not None}).encode() + b"\n")

    def leave(self) -> None:
        """Closes both pipes, as a service's end does."""
        self.process.stdin.close()
        self.process.stdout.close()

    def rest(self) -> bytes:
        return self._buffer + self.process.stdout.read()

    def errors(self) -> str:
        self._errors.seek(0)
        return self._errors.read().decode()

    def close(self) -> None:
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        for file in (self.process.stdin, self.process.stdout, self._errors):
            file.close()


class Recording:
    """A 16-bit mono WAV file, complete or not readable at all."""

    QUIET = 32

    def __init__(self, path: Path | str) -> None:
        with wave.open(str(path)) as file:
            self.layout = (file.getnchannels(), file.getsampwidth())
            self.rate = file.getframerate()
            self.bytes = file.readframes(file.getnframes())
        self.samples = memoryview(self.bytes).cast("h")

    @property
    def seconds(self) -> float:
        return len(self.samples) / self.rate

    @property
    def lead(self) -> float:
        """Seconds of silence before the first sound."""
        return next(i for i, s in enumerate(self.samples) if abs(s) > self.QUIET) / self.rate

    @property
    def tail(self) -> float:
        return next(i for i, s in enumerate(reversed(self.samples)) if abs(s) > self.QUIET) / self.rate

    @property
    def peak(self) -> int:
        return max(map(abs, self.samples), default=0)

    def spectrum(self) -> list[float]:
        """Power in bands from 200 Hz to 4 kHz over the whole recording, in decibels."""
        samples = self.samples.tolist()
        halved = [a + b for a, b in zip(samples[::2], samples[1::2])]
        return [self._level(halved, 200 * 1.19**band, self.rate / 2) for band in range(18)]

    @staticmethod
    def _level(samples: list[int], frequency: float, rate: float) -> float:
        # Goertzel's filter over frames of 20 ms.
        width, turn, power = int(rate / 50), 2 * math.cos(2 * math.pi * frequency / rate), 0.0
        for start in range(0, len(samples) - width, width):
            now = before = 0.0
            for sample in samples[start : start + width]:
                now, before = sample + turn * now - before, now
            power += now * now + before * before - turn * now * before
        return 10 * math.log10(power / len(samples) + 1)

    def pitch(self) -> float:
        """Median fundamental frequency of the voiced stretches, in hertz."""
        step = 6
        samples = self.samples[::step].tolist()
        rate = self.rate / step
        width = int(rate * 0.04)
        found = []
        for start in range(0, len(samples) - 2 * width, width):
            lag = self._period(samples[start : start + 2 * width], width, rate)
            if lag:
                found.append(rate / lag)
        return sorted(found)[len(found) // 2]

    @staticmethod
    def _period(frame: list[int], width: int, rate: float) -> int:
        power = sum(s * s for s in frame[:width])
        best, best_lag = 0.5, 0
        for lag in range(int(rate / 320), int(rate / 60)):
            shifted = frame[lag : lag + width]
            other = sum(s * s for s in shifted)
            if power < width * 1e6 or not other:
                continue
            likeness = sum(a * b for a, b in zip(frame, shifted)) / (power * other) ** 0.5
            # A period's multiples fit as well as the period itself.
            if likeness > best + 0.03:
                best, best_lag = likeness, lag
        return best_lag


def distance(one: list[float], other: list[float]) -> float:
    """Mean difference of two spectra, in decibels."""
    return sum(abs(a - b) for a, b in zip(one, other)) / len(one)
