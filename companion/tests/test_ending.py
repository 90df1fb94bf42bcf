"""How a worker ends: when it is told to, and when nobody is there any more. What it was at work on leaves no trace."""

import json
import signal
import subprocess
import sys
import time
import unittest

from support import COMPANION, HELPER, LIMIT, LONG, SENTENCE, SOON, HelperTest, Recording, Worker, has_ended


class Ending(HelperTest):
    def test_quit_line(self) -> None:
        speech = self.ready_worker()
        speech.write(b'{"type":"quit"}\n')
        self.assertEqual(speech.process.wait(LIMIT), 0)
        self.assertEqual(speech.rest(), b"")

    def test_end_of_input(self) -> None:
        speech = self.ready_worker()
        speech.process.stdin.close()
        self.assertEqual(speech.process.wait(LIMIT), 0)

    def test_quit_before_ready(self) -> None:
        speech = self.worker()
        speech.write(b'{"type":"quit"}\n')
        self.assertEqual(speech.process.wait(LIMIT), 0)

    def test_termination_at_rest(self) -> None:
        speech = self.ready_worker()
        speech.process.terminate()
        self.assertEqual(speech.process.wait(LIMIT), 128 + signal.SIGTERM)

    def test_termination_while_speaking_leaves_no_file(self) -> None:
        speech = self.ready_worker()
        speech.ask(text=LONG, speed="0.5")
        self.until_busy(speech.process.pid)
        began = time.monotonic()
        speech.process.terminate()
        self.assertEqual(speech.process.wait(LIMIT), 128 + signal.SIGTERM)
        self.assertLess(time.monotonic() - began, SOON)
        self.assertEqual(self.files(), [])

    def test_interrupt_from_the_terminal_is_the_services_business(self) -> None:
        speech = self.ready_worker()
        speech.process.send_signal(signal.SIGINT)
        self.assertTrue(speech.request()["ok"])

    def test_reader_that_has_gone(self) -> None:
        speech = self.ready_worker()
        speech.process.stdout.close()
        speech.write(b"x\n")
        self.assertEqual(speech.process.wait(LIMIT), 0)


class Callers(HelperTest):
    """Those who have the other ends of the worker's pipes."""

    # Starts a worker as the service does, gives it work and stays.
    SERVICE = """
import subprocess, sys
pipes = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE}
worker = subprocess.Popen([sys.executable, sys.argv[1], "--worker"], **pipes)
worker.stdout.readline()
worker.stdin.write(sys.stdin.buffer.readline())
worker.stdin.flush()
print(worker.pid, flush=True)
sys.stdin.read()
"""
    # A process that never gets to the end of a file it writes.
    WRITER = """
import os, sys, threading
sys.path.insert(0, sys.argv[1])
import tts_files

class HalfWritten:
    def __init__(self, descriptor, mode): pass
    def __enter__(self): return self
    def __exit__(self, *_): pass
    def write(self, data):
        print("half written", flush=True)
        threading.Event().wait()

tts_files.open = HalfWritten
tts_files.unfinished.watch_callers(0, 1)
"""

    def request(self, text: str) -> bytes:
        request = {"type": "synth_file", "id": 1, "text": text, "voice": "af_heart", "speed": "0.5"}
        return json.dumps({**request, "outWav": str(self.dir / "out.wav")}).encode() + b"\n"

    def writer(self, code: str) -> Worker:
        command = [sys.executable, "-c", self.WRITER + code, str(COMPANION), str(self.dir / "out.wav")]
        writer = Worker(command, self.env, self.dir)
        self.addCleanup(writer.close)
        return writer

    def assertEndsAtOnce(self, process: subprocess.Popen) -> None:
        began = time.monotonic()
        self.assertEqual(process.wait(LIMIT), 0)
        self.assertLess(time.monotonic() - began, SOON)
        self.assertEqual(self.files(), [])

    def test_that_have_gone_end_a_worker_at_work(self) -> None:
        speech = self.ready_worker()
        speech.ask(text=LONG, speed="0.5")
        self.until_busy(speech.process.pid)
        speech.leave()
        self.assertEndsAtOnce(speech.process)

    def test_that_are_killed_end_a_worker_at_work(self) -> None:
        service = subprocess.Popen(
            [sys.executable, "-c", self.SERVICE, str(HELPER)],
            env=self.env,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
        )
        with service:
            self.addCleanup(service.kill)
            service.stdin.write(self.request(LONG))
            service.stdin.flush()
            pid = int(service.stdout.readline())
            self.until_busy(pid)
            service.kill()
        began = time.monotonic()
        self.until(lambda: has_ended(pid))
        self.assertLess(time.monotonic() - began, SOON)
        self.assertEqual(self.files(), [])

    def test_that_have_gone_end_a_worker_that_loads(self) -> None:
        loading = self.dir / "loading"
        package = self.dir / "packages"
        package.mkdir()
        code = f"import time\nopen({str(loading)!r}, 'w').close()\ntime.sleep(60)\n"
        (package / "kokoro_onnx.py").write_text(code)
        files = {"KOKORO_MODEL": str(HELPER), "KOKORO_VOICES": str(HELPER)}
        speech = self.worker(PYTHONPATH=str(package), **files)
        self.until(loading.exists)
        loading.unlink()
        speech.leave()
        self.assertEndsAtOnce(speech.process)

    def test_that_only_listen_get_their_answers(self) -> None:
        command = [sys.executable, str(HELPER), "--worker"]
        requests = self.request(SENTENCE * 60) + self.request(SENTENCE)
        done = subprocess.run(command, env=self.env, input=requests, capture_output=True, timeout=LIMIT, check=False)
        replies = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual([reply["type"] for reply in replies], ["ready", "result", "result"])
        self.assertEqual((done.returncode, [reply["ok"] for reply in replies[1:]]), (0, [True, True]))

    def test_that_only_ask_get_their_file(self) -> None:
        speech = self.ready_worker()
        speech.ask(text=SENTENCE * 60, speed="0.5")
        speech.process.stdout.close()
        self.assertEqual(speech.process.wait(LIMIT), 0)
        self.assertGreater(Recording(self.dir / "out.wav").seconds, 240)

    def test_that_go_while_a_file_is_written(self) -> None:
        writer = self.writer("tts_files.write_whole(sys.argv[2], b'data')")
        self.assertEqual(writer.process.stdout.readline(), b"half written\n")
        self.assertEqual(len(self.files()), 1)
        writer.leave()
        self.assertEndsAtOnce(writer.process)

    def test_no_file_appears_behind_the_clearing_up(self) -> None:
        # The process's last step takes until a file would be there, were it not kept from appearing.
        writer = self.writer("""
cleared, half_written, leave = threading.Event(), threading.Event(), os._exit
HalfWritten.write = lambda *_: (half_written.set(), threading.Event().wait())
os._exit = lambda status: (cleared.set(), half_written.wait(0.5), leave(status))
print("started", flush=True)
cleared.wait()
tts_files.write_whole(sys.argv[2], b'data')
""")
        self.assertEqual(writer.process.stdout.readline(), b"started\n")
        writer.leave()
        self.assertEndsAtOnce(writer.process)


if __name__ == "__main__":
    unittest.main()
