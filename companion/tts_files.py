"""What all of the speech helper needs: failures with a reason, files that appear whole, an end without traces."""

import os
import select
import signal
import stat
import sys
import threading
from collections.abc import Callable
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    import subprocess


class SpeechError(Exception):
    """A failure with a reason that a person can read."""


def reason(error: BaseException) -> str:
    if isinstance(error, OSError) and error.strerror:
        return error.strerror
    return str(error) or type(error).__name__


def say(text: str) -> None:
    try:
        print(f"speech helper: {text}", file=sys.stderr, flush=True)
    except OSError:
        pass  # nobody reads it any more; that is no reason to fall silent


class Unfinished:
    """What must not outlive this process, and the threads that see to it when it has to end early.

    Threads, because Python runs signal handlers between two of its own instructions, and a model can compute for
    many seconds in one. Whatever must be cleared up comes into being with `step` held.
    """

    STEP_SECONDS = 1.0  # more than any step takes that doesn't hang

    def __init__(self) -> None:
        self.step = threading.Lock()
        self.others: list[Callable[[], None]] = []
        self.files: set[str] = set()
        self.directory: str | None = None
        self.player: subprocess.Popen | None = None

    def watch_termination(self, signals: tuple[int, ...]) -> None:
        wake, told = os.pipe()
        os.set_blocking(told, False)
        for number in signals:
            signal.signal(number, lambda *_: None)
        signal.set_wakeup_fd(told, warn_on_full_buffer=False)
        threading.Thread(target=self._end_on_signal, args=(wake,), daemon=True).start()

    def watch_callers(self, *ends: int) -> None:
        """Ends the process when the other end of each of these pipes is closed.

        One alone is no reason: who has closed the requests may still read what comes. It is the pipes that tell, not
        the parent: a uv in between lives as long as this process does.
        """
        threading.Thread(target=self._end_after_callers, args=(ends,), daemon=True).start()

    def leave_to_interpreter(self) -> None:
        """The process comes to its own end now and clears up itself: two at it would be in each other's way."""
        self.step.acquire()

    def make_directory(self) -> str:
        """This process's directory for temporary files; another one if a cleaner of old files has taken it away.

        Its name tells the service whose it is: what this process, because it was killed, or the service, because it
        died, left in it is removed when the service starts again and this process is gone.
        """
        if self.directory is None or not is_own_directory(self.directory):
            parent = os.environ.get("TMPDIR", "")
            name = f"sonra-{os.getuid()}-{os.getpid()}-{os.urandom(8).hex()}"
            path = os.path.join(parent if os.path.isabs(parent) else "/tmp", name)
            try:
                with self.step:
                    os.mkdir(path, 0o700)
                    self.directory = path
            except OSError as error:
                raise SpeechError(f"can't make a temporary directory: {reason(error)}") from error
        return self.directory

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

    def _end_on_signal(self, wake: int) -> None:
        self._end(128 + os.read(wake, 1)[0])

    def _end_after_callers(self, ends: tuple[int, ...]) -> None:
        poll, left = select.poll(), set(ends)
        for end in ends:
            poll.register(end, 0)
        while left:
            for end, _ in poll.poll():
                poll.unregister(end)
                left.discard(end)
        self._end(0)

    def _end(self, status: int) -> None:
        # Never given back: nothing must come into being behind the clearing up.
        self.step.acquire(timeout=self.STEP_SECONDS)
        self.remove()
        for clear in self.others:
            clear()
        os._exit(status)


unfinished = Unfinished()


def is_own_directory(path: str) -> bool:
    try:
        info = os.lstat(path)
    except OSError:
        return False
    return stat.S_ISDIR(info.st_mode) and info.st_uid == os.getuid()


def remove_file(path: str) -> None:
    try:
        os.unlink(path)
    except (OSError, ValueError):
        pass


def write_whole(path: str, data: bytes) -> None:
    """Writes a file so that nobody ever sees a part of it."""
    temporary = os.path.join(os.path.dirname(path), f".speech-{os.urandom(8).hex()}.tmp")
    try:
        with unfinished.step:
            unfinished.files.add(temporary)
            descriptor = os.open(temporary, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
        with open(descriptor, "wb") as file:
            file.write(data)
        with unfinished.step:
            os.rename(temporary, path)
    except (OSError, ValueError) as error:
        remove_file(temporary)
        raise SpeechError(f"can't write {path}: {reason(error)}") from error
    finally:
        unfinished.files.discard(temporary)
