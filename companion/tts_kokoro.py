#!/usr/bin/env python3
# /// script
# requires-python = ">=3.11,<3.14"
# dependencies = ["kokoro-onnx>=0.4.9,<1"]
# ///
"""Speech helper: turns text into WAV files, with Kokoro or with eSpeak NG.

    tts_kokoro.py --worker                    requests on standard input, one JSON object a line
    tts_kokoro.py TEXTFILE OUT.wav [--play]   one text, then end

Kokoro speaks when its package can be imported and its model and voices files are there (KOKORO_MODEL and
KOKORO_VOICES, else $HOME/.claude/tts/models), eSpeak NG otherwise.

A worker says {"type":"ready","pid":...,"backend":...} once it can speak. Each request

    {"type":"synth_file","id":1,"text":"...","voice":"af_heart","speed":"1.0","outWav":"/..."}

is answered, when the file is complete, with {"type":"result","id":1,"ok":true,"wav":"/..."} or with
{"type":"result","id":1,"ok":false,"error":"..."}. It ends on {"type":"quit"}, at the end of input, and on SIGTERM.

Environment of the one-shot form: TTS_VOICE, TTS_SPEED (1.0 is normal), and for --play
    TTS_PLAYER          "nowplaying" hands each piece to the service, "none" plays nothing, anything else plays
                        here, through paplay, pw-play or aplay
    TTS_VOLUME          percent, for playing here
    TTS_SERVICE_SOCK    the service's socket
    TTS_NARRATION_TEXT  what the desktop shows beside the sound
    TTS_CAPTIONS        "1" also sends the words to the service's captions when playing here
TTS_WARMUP=1 loads what speaks and ends. TTS_PROBE=1 ends at once: that much is enough for the launcher to see that the
script can be run.
"""

import array
import ctypes
import json
import math
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
from typing import NamedTuple

HOME = os.path.expanduser("~")
MODELS = os.path.join(HOME, ".claude/tts/models")
# The launcher looks for the same names.
MODEL_NAMES = ("kokoro-v1.0.onnx", "kokoro-v1.0.fp16.onnx", "kokoro-v1.0.int8.onnx")
VOICES_NAMES = ("voices-v1.0.bin",)
DEFAULT_VOICE = "af_heart"

QUIET = 32  # of 32,768: nothing that can be heard
LEAD_SECONDS = 0.003  # what stays of the silence before the first sound
TAIL_SECONDS = 0.15  # silence behind the last one, so that pieces in a row don't run into each other

PIECE_CHARS = 300
SNIPPET_CHARS = 240
SOCKET_SECONDS = 5.0
PLAYERS = ("paplay", "pw-play", "aplay")


class SpeechError(Exception):
    """A failure with a reason that a person can read."""


class Sound(NamedTuple):
    pcm: bytes  # 16-bit mono
    rate: int


class Unfinished:
    """What must not outlive this process, and the thread that sees to it when SIGTERM comes.

    A thread, because Python runs signal handlers between two of its own instructions, and a model can compute for
    many seconds in one.
    """

    def __init__(self) -> None:
        self.files: set[str] = set()
        self.directory: str | None = None
        self.player: subprocess.Popen | None = None

    def watch_termination(self, signals: tuple[int, ...]) -> None:
        wake, told = os.pipe()
        os.set_blocking(told, False)
        for number in signals:
            signal.signal(number, lambda *_: None)
        signal.set_wakeup_fd(told, warn_on_full_buffer=False)
        threading.Thread(target=self._wait, args=(wake,), daemon=True).start()

    def remove(self) -> None:
        for path in list(self.files):
            remove_file(path)
        self.remove_directory()
        if self.player is not None and self.player.poll() is None:
            self.player.kill()

    def remove_directory(self) -> None:
        """Leaves it where it is as long as somebody else still needs a file in it."""
        if self.directory is not None:
            try:
                os.rmdir(self.directory)
            except OSError:
                pass

    def _wait(self, wake: int) -> None:
        number = os.read(wake, 1)[0]
        self.remove()
        os._exit(128 + number)


unfinished = Unfinished()


def remove_file(path: str) -> None:
    try:
        os.unlink(path)
    except (OSError, ValueError):
        pass


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


def scaled(sound: Sound, percent: int) -> Sound:
    if percent == 100:
        return sound
    quieter = array.array("h", (value * percent // 100 for value in memoryview(sound.pcm).cast("h")))
    return Sound(quieter.tobytes(), sound.rate)


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


def write_whole(path: str, data: bytes) -> None:
    """Writes a file so that nobody ever sees a part of it."""
    temporary = os.path.join(os.path.dirname(path), f".speech-{os.urandom(8).hex()}.tmp")
    unfinished.files.add(temporary)
    try:
        descriptor = os.open(temporary, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
        with open(descriptor, "wb") as file:
            file.write(data)
        os.rename(temporary, path)
    except (OSError, ValueError) as error:
        remove_file(temporary)
        raise SpeechError(f"can't write {path}: {reason(error)}") from error
    finally:
        unfinished.files.discard(temporary)


def reason(error: BaseException) -> str:
    if isinstance(error, OSError) and error.strerror:
        return error.strerror
    return str(error) or type(error).__name__


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
        return Sound(b"".join(self._parts), self._rate)

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


class KokoroBackend:
    """The Kokoro model through kokoro-onnx; loading it takes seconds."""

    SLOWEST, FASTEST = 0.5, 2.0  # the package refuses more

    def __init__(self, model: str, voices: str) -> None:
        import kokoro_onnx
        import numpy

        self._numpy = numpy
        self._kokoro = kokoro_onnx.Kokoro(model, voices)
        self.name = f"Kokoro ({os.path.basename(model)})"
        self.voices = frozenset(self._kokoro.get_voices())

    def speak(self, text: str, voice: str, speed: float) -> Sound:
        language = "en-gb" if voice.startswith("b") else "en-us"
        clean = text.encode("utf-8", "ignore").decode("utf-8").translate(CONTROLS)
        phonemes = self._kokoro.tokenizer.phonemize(clean, language)
        if not phonemes.strip():
            return Sound(b"", 24_000)
        speed = max(self.SLOWEST, min(self.FASTEST, speed))
        audio, rate = self._kokoro.create(phonemes, voice=voice, speed=speed, is_phonemes=True)
        pcm = (self._numpy.clip(audio, -1.0, 1.0) * 32_767).astype("<i2")
        return Sound(pcm.tobytes(), rate)


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


def say(text: str) -> None:
    try:
        print(f"speech helper: {text}", file=sys.stderr, flush=True)
    except OSError:
        pass  # nobody reads it any more; that is no reason to fall silent


class Worker:
    """Answers requests, one at a time, until it is told to quit or nobody is there any more."""

    def __init__(self, requests, replies: int) -> None:
        self._requests = requests
        self._replies = replies

    def run(self) -> None:
        self._speaker = Speaker()
        say(f"speaking with {self._speaker.backend_name}")
        self._reply({"type": "ready", "pid": os.getpid(), "backend": self._speaker.backend_name})
        for line in self._requests:
            if not line.strip():
                continue
            request, result = {}, {"type": "result"}
            try:
                request = self._parse(line)
                if request.get("type") == "quit":
                    return
                result.update(self._id_of(request))
                result.update(ok=True, wav=self._synthesize(request))
            except Exception as error:  # one bad request must not take the others' voice away
                say(reason(error))
                result.update(ok=False, error=reason(error))
            self._reply(result)

    @staticmethod
    def _parse(line: bytes) -> dict:
        try:
            request = json.loads(line.decode("utf-8"))
        except (ValueError, RecursionError) as error:
            raise SpeechError("the request isn't JSON") from error
        if not isinstance(request, dict):
            raise SpeechError("the request isn't a JSON object")
        return request

    @staticmethod
    def _id_of(request: dict) -> dict:
        number = request.get("id")
        return {"id": number} if isinstance(number, int) and not isinstance(number, bool) else {}

    def _synthesize(self, request: dict) -> str:
        if request.get("type") != "synth_file":
            raise SpeechError(f"unknown request: {request.get('type')!r:.40}")
        for key in ("text", "voice", "outWav"):
            if not isinstance(request.get(key), str):
                raise SpeechError(f"the request has no {key}")
        path = request["outWav"]
        if not os.path.isabs(path):
            raise SpeechError("outWav isn't an absolute path")
        speed = speed_from(request.get("speed", "1.0"))
        write_whole(path, wav(self._speaker.speak(request["text"], request["voice"], speed)))
        return path

    def _reply(self, reply: dict) -> None:
        data = json.dumps(reply, separators=(",", ":")).encode() + b"\n"
        while data:
            data = data[os.write(self._replies, data) :]


def run_worker() -> int:
    # Ctrl-C in the terminal reaches the whole process group; the service ends its worker itself.
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    unfinished.watch_termination((signal.SIGTERM,))
    # Whatever a library prints must not get between the replies.
    replies = os.dup(1)
    os.dup2(2, 1)
    try:
        Worker(sys.stdin.buffer, replies).run()
    except BrokenPipeError:
        pass
    return 0


def pieces(text: str) -> list[str]:
    """The text in the order of speaking: the first sentence alone, so that it is heard early, then longer pieces.

    Line ends always cut. A sentence longer than PIECE_CHARS is cut at a blank, or anywhere if it has none.
    """
    result: list[str] = []
    for line in filter(None, (line.strip() for line in text.splitlines())):
        fresh = True
        for sentence in re.split(r"(?<=[.!?…])\s+", line):
            for part in re.findall(rf"\S.{{0,{PIECE_CHARS - 1}}}(?=\s|$)|\S.{{0,{PIECE_CHARS - 1}}}", sentence):
                joinable = not fresh and len(result) > 1 and len(result[-1]) + len(part) < PIECE_CHARS
                if joinable:
                    result[-1] += " " + part
                else:
                    result.append(part)
                fresh = False
    return result


class ServiceSocket:
    """The service's door: one JSON object a line, no answers."""

    def __init__(self) -> None:
        path = os.environ.get("TTS_SERVICE_SOCK") or os.path.join(HOME, ".claude/tts/service.sock")
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.settimeout(SOCKET_SECONDS)
        try:
            self._socket.connect(path)
        except OSError as error:
            raise SpeechError(f"can't reach the service: {reason(error)}") from error

    def send(self, command: str, **arguments: str) -> None:
        line = json.dumps({"proto": 1, "cmd": command, **arguments}).encode() + b"\n"
        try:
            self._socket.sendall(line)
        except OSError as error:
            raise SpeechError(f"the service went away: {reason(error)}") from error


def temporary_directory() -> str:
    """A directory for this process's pieces of speech.

    Its name tells the service whose it is: what the service didn't get to play, because it died, is removed when it
    starts again and this process is gone.
    """
    if unfinished.directory is None:
        parent = os.environ.get("TMPDIR", "")
        prefix = f"sonra-{os.getuid()}-{os.getpid()}-"
        try:
            unfinished.directory = tempfile.mkdtemp(prefix=prefix, dir=parent if os.path.isabs(parent) else "/tmp")
        except OSError as error:
            raise SpeechError(f"can't make a temporary directory: {reason(error)}") from error
    return unfinished.directory


def temporary_wav(sound: Sound) -> str:
    """A file of its own for a piece of speech; until it is taken off `unfinished`, it goes with this process."""
    path = os.path.join(temporary_directory(), f"{os.urandom(8).hex()}.wav")
    unfinished.files.add(path)
    write_whole(path, wav(sound))
    return path


class ServicePlayer:
    """Hands each piece to the service's queue, which plays its file and then removes it."""

    def __init__(self) -> None:
        self._service = ServiceSocket()
        self._snippet = os.environ.get("TTS_NARRATION_TEXT", "")

    def play(self, sound: Sound, text: str) -> None:
        path = temporary_wav(sound)
        snippet = (self._snippet or text)[:SNIPPET_CHARS]
        self._service.send("play", wav=path, text=text, title="Claude", artist="TTS", snippet=snippet)
        unfinished.files.discard(path)

    def finish(self) -> None:
        """The service plays on without this process."""


class LocalPlayer:
    """Plays here, through a program of the sound server. The next piece is made while this one is heard."""

    GRACE_SECONDS = 10.0

    def __init__(self, wanted: str) -> None:
        order = ([wanted] if wanted in PLAYERS else []) + list(PLAYERS)
        self._program = next(filter(None, map(shutil.which, order)), None)
        if self._program is None:
            raise SpeechError(f"no player found (looked for {', '.join(PLAYERS)})")
        self._volume = volume_percent()
        self._captions = ServiceSocket() if os.environ.get("TTS_CAPTIONS") == "1" else None
        self._file = ""
        self._seconds = 0.0

    def play(self, sound: Sound, text: str) -> None:
        self.finish()
        self._file = temporary_wav(scaled(sound, self._volume))
        if self._captions is not None:
            self._captions.send("set", text=text)
        self._seconds = len(sound.pcm) / 2 / sound.rate
        try:
            unfinished.player = subprocess.Popen(
                [self._program, self._file],
                stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL,
                stderr=subprocess.PIPE,
            )
        except OSError as error:
            raise SpeechError(f"can't start {self._program}: {reason(error)}") from error

    def finish(self) -> None:
        player, name = unfinished.player, os.path.basename(self._program)
        if player is None:
            return
        try:
            _, words = player.communicate(timeout=self._seconds + self.GRACE_SECONDS)
        except subprocess.TimeoutExpired as error:
            raise SpeechError(f"{name} doesn't come to an end") from error
        unfinished.player = None
        if player.returncode != 0:
            detail = words.decode("utf-8", "replace").strip() or f"status {player.returncode}"
            raise SpeechError(f"{name} failed: {detail}")
        remove_file(self._file)
        unfinished.files.discard(self._file)


def volume_percent() -> int:
    try:
        return max(0, min(100, int(os.environ.get("TTS_VOLUME", "100"))))
    except ValueError:
        return 100


def make_player() -> ServicePlayer | LocalPlayer | None:
    name = os.environ.get("TTS_PLAYER", "")
    if name == "none":
        return None
    return ServicePlayer() if name == "nowplaying" else LocalPlayer(name)


def read_text(path: str) -> str:
    try:
        with open(path, encoding="utf-8-sig") as file:
            return file.read()
    except (OSError, ValueError) as error:
        raise SpeechError(f"can't read the text file: {reason(error)}") from error


def speak_once(text_file: str, out: str, play: bool) -> None:
    text = read_text(text_file)
    voice = os.environ.get("TTS_VOICE") or DEFAULT_VOICE
    speed = speed_from(os.environ.get("TTS_SPEED") or "1.0")
    speaker = Speaker()
    player = make_player() if play else None
    sounds = []
    for piece in (pieces(text) if player else []) or [text]:
        sounds.append(speaker.speak(piece, voice, speed))
        if player:
            player.play(sounds[-1], piece)
    write_whole(out, wav(Sound(b"".join(sound.pcm for sound in sounds), sounds[0].rate)))
    if player:
        player.finish()
    say(f"spoke with {speaker.backend_name}")


def run_once(arguments: list[str]) -> int:
    unfinished.watch_termination((signal.SIGTERM, signal.SIGINT))
    try:
        speak_once(arguments[0], arguments[1], "--play" in arguments[2:])
    except SpeechError as error:
        unfinished.remove()
        say(reason(error))
        return 1
    unfinished.remove_directory()
    return 0


def main(arguments: list[str]) -> int:
    if os.environ.get("TTS_PROBE") == "1":
        return 0
    try:
        if os.environ.get("TTS_WARMUP") == "1":
            say(f"ready to speak with {Speaker().backend_name}")
            return 0
        if arguments == ["--worker"]:
            return run_worker()
    except SpeechError as error:
        say(reason(error))
        return 1
    if len(arguments) == 2 or (len(arguments) == 3 and arguments[2] == "--play"):
        return run_once(arguments)
    print("usage: tts_kokoro.py --worker | TEXTFILE OUT.wav [--play]", file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
