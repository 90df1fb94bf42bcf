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
{"type":"result","id":1,"ok":false,"error":"..."}. It ends on {"type":"quit"} and at the end of input, when the requests
before are answered; at once on SIGTERM, and when nobody has the other ends of its input and its output any more.

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

import contextlib
import json
import os
import signal
import sys
from collections.abc import Iterator


@contextlib.contextmanager
def own_modules() -> Iterator[None]:
    """While the script's other modules are loaded: no compiled copies are left in the installation's folder.

    Those of the packages are kept; they save seconds at the next start.
    """
    before, sys.dont_write_bytecode = sys.dont_write_bytecode, True
    try:
        yield
    finally:
        sys.dont_write_bytecode = before


# They lie beside this file, whatever it was started through; Python can be told to leave that folder out.
sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))
with own_modules():
    from tts_files import SpeechError, reason, say, unfinished, write_whole
    from tts_voices import DEFAULT_VOICE, Sound, Speaker, speed_from, wav


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
    unfinished.watch_callers(sys.stdin.fileno(), replies)
    worker = Worker(sys.stdin.buffer, replies)
    with contextlib.suppress(BrokenPipeError):
        worker.run()
    unfinished.leave_to_interpreter()
    return 0


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
    player, parts = None, []
    if play:
        # Only now: nobody else needs it, and what it imports takes longer to load than eSpeak NG.
        with own_modules():
            from tts_playing import make_player, pieces
        player = make_player()
        parts = pieces(text) if player else []
    sounds = []
    for piece in parts or [text]:
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
