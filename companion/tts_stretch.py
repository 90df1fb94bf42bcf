"""Speech made faster than a voice can speak, by libsonic, which eSpeak NG brings along."""

import ctypes

from tts_files import say


def load() -> ctypes.CDLL | None:
    try:
        library = ctypes.CDLL("libsonic.so.0")
    except OSError:
        return None
    library.sonicCreateStream.restype = ctypes.c_void_p
    library.sonicCreateStream.argtypes = (ctypes.c_int, ctypes.c_int)
    library.sonicDestroyStream.argtypes = (ctypes.c_void_p,)
    library.sonicSetSpeed.argtypes = (ctypes.c_void_p, ctypes.c_float)
    for call in (library.sonicWriteShortToStream, library.sonicReadShortFromStream):
        call.argtypes = (ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int)
    library.sonicFlushStream.argtypes = (ctypes.c_void_p,)
    return library


class Stretch:
    """Shortens sound without changing its pitch. Without the library it leaves sound as it is, and says so once."""

    BLOCK = 65_536  # samples
    MOST = 2.0  # beyond, nobody understands a word

    def __init__(self) -> None:
        self._library: ctypes.CDLL | None = None
        self._tried = False

    def faster(self, pcm: bytes, rate: int, factor: float) -> bytes:
        """16-bit mono samples, `factor` times as fast, at most MOST; a factor of 1 or less changes nothing."""
        factor = min(factor, self.MOST)
        if factor <= 1.0:
            return pcm
        if not self._tried:
            self._tried = True
            self._library = load()
            if self._library is None:
                say("libsonic is missing: speech goes no faster than the voice can speak")
        return self._run(self._library, pcm, rate, factor) if self._library else pcm

    def _run(self, library: ctypes.CDLL, pcm: bytes, rate: int, factor: float) -> bytes:
        stream = library.sonicCreateStream(rate, 1)
        if not stream:
            raise MemoryError
        try:
            library.sonicSetSpeed(stream, factor)
            parts: list[bytes] = []
            for start in range(0, len(pcm), 2 * self.BLOCK):
                block = pcm[start : start + 2 * self.BLOCK]
                library.sonicWriteShortToStream(stream, block, len(block) // 2)
                self._drain(library, stream, parts)
            library.sonicFlushStream(stream)
            self._drain(library, stream, parts)
            return b"".join(parts)
        finally:
            library.sonicDestroyStream(stream)

    def _drain(self, library: ctypes.CDLL, stream: int, parts: list[bytes]) -> None:
        room = ctypes.create_string_buffer(2 * self.BLOCK)
        while (count := library.sonicReadShortFromStream(stream, room, self.BLOCK)) > 0:
            parts.append(room.raw[: 2 * count])
