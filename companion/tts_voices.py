"""The speech helper's voices: the Kokoro model where it is there, eSpeak NG otherwise."""

import ctypes
import math
import os
import struct
import weakref
from typing import NamedTuple

from tts_files import SpeechError, reason, say, unfinished
from tts_stretch import Stretch

MODELS = os.path.expanduser("~/.claude/tts/models")
# The launcher looks for the same names.
MODEL_NAMES = ("kokoro-v1.0.onnx", "kokoro-v1.0.fp16.onnx", "kokoro-v1.0.int8.onnx")
VOICES_NAMES = ("voices-v1.0.bin",)
DEFAULT_VOICE = "af_heart"

QUIET = 32  # of 32,768: nothing that can be heard
LEAD_SECONDS = 0.003  # what stays of the silence before the first sound
TAIL_SECONDS = 0.15  # silence behind the last one, so that pieces in a row don't run into each other


class Sound(NamedTuple):
    pcm: bytes  # 16-bit mono
    rate: int


def trimmed(sound: Sound) -> Sound:
    """The sound from just before its first audible sample, with a tail of fixed length."""
    samples = memoryview(sound.pcm).cast("h")
    tail = bytes(2 * int(TAIL_SECONDS * sound.rate))
    first = next((i for i, value in enumerate(samples) if abs(value) > QUIET), None)
    if first is None:
        return Sound(tail, sound.rate)
    behind = next(i for i, value in enumerate(reversed(samples)) if abs(value) > QUIET)
    start = max(0, first - int(LEAD_SECONDS * sound.rate))
    return Sound(sound.pcm[2 * start : 2 * (len(samples) - behind)] + tail, sound.rate)


def wav(sound: Sound) -> bytes:
    size = len(sound.pcm)
    if size > 0xFFFFFFFF - 36:
        raise SpeechError("too long for one WAV file")
    header = struct.pack(
        "<4sI4s4sIHHIIHH4sI",
        *(b"RIFF", 36 + size, b"WAVE"),
        *(b"fmt ", 16, 1, 1, sound.rate, 2 * sound.rate, 2, 16),
        *(b"data", size),
    )
    return header + sound.pcm


# eSpeak NG's variants stand in for Kokoro's people. In the library British English is "en".
ESPEAK_VOICES = {
    "af_heart": "en-us+f2",
    "af_bella": "en-us+f3",
    "af_nicole": "en-us+f5",
    "af_sarah": "en-us+f1",
    "af_jessica": "en-us+linda",
    "af_sky": "en-us+Annie",
    "am_adam": "en-us+m3",
    "am_michael": "en-us+m2",
    "am_puck": "en-us+m7",
    "am_eric": "en-us+m1",
    "am_onyx": "en-us+quincy",
    "bf_emma": "en+f2",
    "bf_isabella": "en+f3",
    "bf_alice": "en+f4",
    "bf_lily": "en+linda",
    "bm_george": "en+m1",
    "bm_lewis": "en+m4",
    "bm_daniel": "en+m3",
    "bm_fable": "en+m7",
}
# Control characters are commands to eSpeak NG; line ends are the only ones that belong in a text.
CONTROLS = {code: " " for code in (*range(0x20), *range(0x7F, 0xA0)) if code not in (0x0A, 0x0D)}


class EspeakBackend:
    """eSpeak NG, in this process. It has no model to load, and a sentence takes it a few milliseconds."""

    NORMAL_WPM = 175  # words a minute at speed 1.0
    SLOWEST_WPM, FASTEST_WPM = 80, 450  # what the synthesizer can do without tricks
    SYNCHRONOUS, DONT_EXIT = 2, 0x8000
    CHARS_UTF8 = 1
    RATE = 1
    CHARACTER_POSITION = 1

    def __init__(self) -> None:
        self._library = self._load()
        self._library.espeak_Info.restype = ctypes.c_char_p
        self._library.espeak_Synth.argtypes = (
            *(ctypes.c_char_p, ctypes.c_size_t, ctypes.c_uint, ctypes.c_int, ctypes.c_uint, ctypes.c_uint),
            *(ctypes.c_void_p, ctypes.c_void_p),
        )
        self._rate = self._library.espeak_Initialize(self.SYNCHRONOUS, 0, None, self.DONT_EXIT)
        if self._rate <= 0:
            raise SpeechError("eSpeak NG can't read its data")
        self._parts: list[bytes] = []
        callback = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_int, ctypes.c_void_p)
        self._keep_callback = callback(self._take)
        self._library.espeak_SetSynthCallback(self._keep_callback)
        self._stretch = Stretch()
        self.name = f"eSpeak NG {self._library.espeak_Info(None).decode().split()[0]}"
        self.voices = frozenset(ESPEAK_VOICES)

    def speak(self, text: str, voice: str, speed: float) -> Sound:
        self._choose(voice, speed)
        data = text.translate(CONTROLS).encode("utf-8", "ignore")
        self._parts.clear()
        status = self._library.espeak_Synth(
            data, len(data) + 1, 0, self.CHARACTER_POSITION, 0, self.CHARS_UTF8, None, None
        )
        if status != 0:
            raise SpeechError(f"eSpeak NG failed with status {status}")
        pcm = b"".join(self._parts)
        return Sound(self._stretch.faster(pcm, self._rate, self.NORMAL_WPM * speed / self.FASTEST_WPM), self._rate)

    @staticmethod
    def _load() -> ctypes.CDLL:
        try:
            return ctypes.CDLL("libespeak-ng.so.1")
        except OSError as error:
            raise SpeechError(f"eSpeak NG can't be loaded: {reason(error)}") from error

    def _choose(self, voice: str, speed: float) -> None:
        if self._library.espeak_SetVoiceByName(ESPEAK_VOICES[voice].encode()) != 0:
            raise SpeechError(f"eSpeak NG has no English voice for {voice}")
        wpm = round(self.NORMAL_WPM * speed)
        self._library.espeak_SetParameter(self.RATE, max(self.SLOWEST_WPM, min(self.FASTEST_WPM, wpm)), 0)

    def _take(self, samples: int | None, count: int, _events: int | None) -> int:
        if samples and count > 0:
            self._parts.append(ctypes.string_at(samples, 2 * count))
        return 0


class PackageFiles:
    """A place for the temporary files of Kokoro's packages, which goes with this process however it ends.

    One of them copies a library for each accent and removes the copies when the interpreter comes to its end, which
    one that is told to end at work never does.
    """

    def __init__(self) -> None:
        import shutil
        import tempfile

        self._shutil, self._tempfile = shutil, tempfile
        unfinished.others.append(self._clear)
        # Finalizers run in reverse order: the packages', made later, come first.
        weakref.finalize(unfinished, self._clear)

    def collect(self) -> None:
        try:
            path = os.path.join(unfinished.make_directory(), "packages")
            os.makedirs(path, 0o700, exist_ok=True)
            self._tempfile.tempdir = path
        except (OSError, SpeechError):
            self._tempfile.tempdir = None  # the packages look for a place themselves

    def _clear(self) -> None:
        if unfinished.directory is not None:
            self._shutil.rmtree(os.path.join(unfinished.directory, "packages"), ignore_errors=True)
            unfinished.remove_directory()


class KokoroBackend:
    """The Kokoro model through kokoro-onnx; loading it takes seconds."""

    SLOWEST, FASTEST = 0.5, 2.0  # the package refuses more

    def __init__(self, model: str, voices: str) -> None:
        self._files = PackageFiles()
        self._files.collect()
        import kokoro_onnx
        import numpy

        self._numpy = numpy
        self._kokoro = kokoro_onnx.Kokoro(model, voices)
        self._stretch = Stretch()
        self.name = f"Kokoro ({os.path.basename(model)})"
        self.voices = frozenset(self._kokoro.get_voices())

    def speak(self, text: str, voice: str, speed: float) -> Sound:
        self._files.collect()
        language = "en-gb" if voice.startswith("b") else "en-us"
        clean = text.encode("utf-8", "ignore").decode("utf-8").translate(CONTROLS)
        phonemes = self._kokoro.tokenizer.phonemize(clean, language)
        if not phonemes.strip():
            return Sound(b"", 24_000)
        own = max(self.SLOWEST, min(self.FASTEST, speed))
        audio, rate = self._kokoro.create(phonemes, voice=voice, speed=own, is_phonemes=True)
        pcm = (self._numpy.clip(audio, -1.0, 1.0) * 32_767).astype("<i2").tobytes()
        return Sound(self._stretch.faster(pcm, rate, speed / self.FASTEST), rate)


def kokoro_file(variable: str, names: tuple[str, ...]) -> str | None:
    override = os.environ.get(variable)
    candidates = [override] if override else [os.path.join(MODELS, name) for name in names]
    return next((path for path in candidates if os.path.isfile(path)), None)


def load_backend() -> EspeakBackend | KokoroBackend:
    model = kokoro_file("KOKORO_MODEL", MODEL_NAMES)
    voices = kokoro_file("KOKORO_VOICES", VOICES_NAMES)
    if model and voices:
        try:
            return KokoroBackend(model, voices)
        except Exception as error:  # whatever a broken model or a half-installed package throws
            say(f"Kokoro can't be used: {reason(error)}")
    return EspeakBackend()


class Speaker:
    """Speaks text with the back end that this machine has. Fails with SpeechError and stays usable."""

    def __init__(self) -> None:
        self._backend = load_backend()
        self.backend_name = self._backend.name

    def speak(self, text: str, voice: str, speed: float) -> Sound:
        if not text.strip():
            raise SpeechError("there is no text to speak")
        if voice not in self._backend.voices:
            raise SpeechError(f"unknown voice: {voice}")
        try:
            return trimmed(self._backend.speak(text, voice, speed))
        except SpeechError:
            raise
        except Exception as error:  # a model's runtime has exceptions of its own
            raise SpeechError(f"{self.backend_name} failed: {reason(error)}") from error


def speed_from(value: object) -> float:
    try:
        speed = float(value) if isinstance(value, (str, int, float)) and not isinstance(value, bool) else math.nan
    except (ValueError, OverflowError):
        speed = math.nan
    if not math.isfinite(speed) or speed <= 0:
        raise SpeechError(f"speed isn't a positive number: {value!r:.40}")
    return speed
