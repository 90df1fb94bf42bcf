"""The speech helper's --play: a text in pieces, handed to the service's queue or played here."""

import array
import json
import os
import re
import shutil
import socket
import subprocess

from tts_files import SpeechError, reason, remove_file, unfinished, write_whole
from tts_voices import Sound, wav

PIECE_CHARS = 300
SNIPPET_CHARS = 240
SOCKET_SECONDS = 5.0
PLAYERS = ("paplay", "pw-play", "aplay")


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
        path = os.environ.get("TTS_SERVICE_SOCK") or os.path.expanduser("~/.claude/tts/service.sock")
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


def temporary_wav(sound: Sound) -> str:
    """A file of its own for a piece of speech; until it is taken off `unfinished`, it goes with this process."""
    path = os.path.join(unfinished.make_directory(), f"{os.urandom(8).hex()}.wav")
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
        # In one step, so that an end in between can't take away what the service has been given.
        with unfinished.step:
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
            with unfinished.step:
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


def scaled(sound: Sound, percent: int) -> Sound:
    if percent == 100:
        return sound
    quieter = array.array("h", (value * percent // 100 for value in memoryview(sound.pcm).cast("h")))
    return Sound(quieter.tobytes(), sound.rate)
