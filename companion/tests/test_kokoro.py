"""The Kokoro back end with the real package under a real uv, on a tiny model; only the weights are missing.

SONRA_PY_CACHE is where uv and the packages are kept between runs (default: build/py). Where PyPI can't be reached
and nothing is cached, these tests are skipped.
"""

import os
import re
import shutil
import signal
import subprocess
import sys
import time
import unittest
from pathlib import Path

from support import COMPANION, HELPER, LAUNCHER, LIMIT, LONG, SENTENCE, SOON, HelperTest, Recording, Worker

CACHE = Path(os.environ.get("SONRA_PY_CACHE") or COMPANION.parent / "build/py").absolute()
UV_ENV = {**os.environ, "UV_CACHE_DIR": str(CACHE / "uv-cache"), "UV_NO_PROGRESS": "1"}
# The network's words only: packages that don't fit together can't be resolved either, and that is a failure.
UNREACHABLE = re.compile(
    r"connection (?:broken|refused|reset|aborted|timed out)|new connection|connect error|timed out|dns error"
    r"|name resolution|lookup address|network is unreachable|no route to host|error sending request|max retries",
    re.I,
)
INSTALL_SECONDS = 600.0


def fetch(*command: str, **env: str) -> None:
    """Runs what may have to fetch packages; skips where they can't be fetched, fails on any other failure."""
    done = subprocess.run(command, env={**UV_ENV, **env}, capture_output=True, text=True, timeout=INSTALL_SECONDS)
    if done.returncode == 0:
        return
    if UNREACHABLE.search(done.stderr):
        print("Kokoro's tests are skipped: PyPI can't be reached", file=sys.stderr)
        raise unittest.SkipTest("PyPI can't be reached")
    raise AssertionError(f"{command}: {done.stdout}{done.stderr}")


def real_uv() -> str:
    uv = CACHE / "uv/bin/uv"
    if not uv.exists():
        CACHE.mkdir(parents=True, exist_ok=True)
        options = ("--quiet", "--retries", "1", "--timeout", "15", "--upgrade", "--target", str(CACHE / "uv"))
        fetch(sys.executable, "-m", "pip", "install", *options, "uv")
    return str(uv)


class Kokoro(HelperTest):
    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        cls.uv = real_uv()
        cls.files_dir = CACHE / f"tiny-{os.getpid()}"
        cls.files_dir.mkdir(parents=True)
        cls.addClassCleanup(shutil.rmtree, cls.files_dir, ignore_errors=True)
        maker = str(COMPANION / "tests/tiny_kokoro.py")
        packages = ("--with", "onnx", "--with", "numpy")
        fetch(cls.uv, "run", "--no-project", *packages, "python", maker, str(cls.files_dir))
        model = {"KOKORO_MODEL": f"{cls.files_dir}/kokoro-v1.0.onnx"}
        model["KOKORO_VOICES"] = f"{cls.files_dir}/voices-v1.0.bin"
        fetch(cls.uv, "run", "--script", str(HELPER), TTS_WARMUP="1", **model)

    def setUp(self) -> None:
        super().setUp()
        models = self.dir / ".claude/tts/models"
        models.mkdir(parents=True)
        for file in self.files_dir.iterdir():
            shutil.copy(file, models)
        self.model = models / "kokoro-v1.0.onnx"
        self.out = self.dir / "out.wav"
        self.env.update(UV_CACHE_DIR=UV_ENV["UV_CACHE_DIR"], UV_OFFLINE="1")
        self.env["PATH"] = f"{Path(self.uv).parent}:{self.env['PATH']}"

    def start(self) -> Worker:
        """A worker as the service starts it: through the launcher."""
        speech = Worker([str(LAUNCHER), "run", "--script", str(HELPER), "--worker"], self.env, self.dir)
        self.addCleanup(speech.close)
        speech.ready = speech.reply(60)
        return speech

    def take(self, speech: Worker, **changes: object) -> Recording:
        self.assertTrue(speech.request(**changes)["ok"], speech.errors())
        return Recording(self.out)

    def test_says_that_kokoro_speaks(self) -> None:
        speech = self.start()
        self.assertEqual(speech.ready["backend"], "Kokoro (kokoro-v1.0.onnx)")
        self.assertEqual(speech.errors().count("speaking with Kokoro (kokoro-v1.0.onnx)"), 1)

    def test_voice_and_accent_reach_the_model(self) -> None:
        speech = self.start()
        american, british = self.take(speech), self.take(speech, voice="bf_emma")
        self.assertEqual((american.layout, american.rate), ((1, 2), 24_000))
        self.assertAlmostEqual(american.peak, 0.5 * 32_767, delta=20)
        self.assertAlmostEqual(british.peak, 0.25 * 32_767, delta=20)
        # The same style as af_heart's: the first speaks with the same accent, the other with its own.
        self.assertEqual(self.take(speech, voice="am_adam").bytes, american.bytes)
        self.assertNotEqual(self.take(speech, voice="bm_george").bytes, american.bytes)
        self.assertLess(american.lead, 0.005)

    def test_speed_reaches_the_model_and_stays_in_its_range(self) -> None:
        speech = self.start()
        speeds = ("0.1", "0.5", "1.0", "2.0", "3.0", "4.0", "9")
        seconds = {s: self.take(speech, speed=s).seconds - 0.15 for s in speeds}
        self.assertAlmostEqual(seconds["0.5"] / seconds["1.0"], 2, delta=0.1)
        self.assertAlmostEqual(seconds["2.0"] / seconds["1.0"], 0.5, delta=0.05)
        # What the model refuses is done to its sound.
        self.assertAlmostEqual(seconds["3.0"] / seconds["1.0"], 1 / 3, delta=0.05)
        self.assertEqual((seconds["0.1"], seconds["9"]), (seconds["0.5"], seconds["4.0"]))

    def test_long_text_is_spoken_to_its_end(self) -> None:
        speech = self.start()
        once, often = self.take(speech).seconds, self.take(speech, text=" ".join([SENTENCE] * 20)).seconds
        self.assertGreater(often, 15 * once)

    def test_failures_have_a_reason_and_the_worker_lives_on(self) -> None:
        speech = self.start()
        for changes, words in (
            ({"voice": "am_onyx"}, "unknown voice: am_onyx"),
            ({"text": " "}, "there is no text to speak"),
            ({"outWav": "/absent/out.wav"}, "No such file"),
        ):
            reply = speech.request(**changes)
            self.assertEqual((reply["ok"], words in reply["error"]), (False, True), reply)
        self.assertEqual(self.take(speech, text="---").peak, 0)
        self.assertGreater(self.take(speech, text="half \ud800 and \x01 done").peak, 5000)

    def test_quit_and_end_of_input(self) -> None:
        speech = self.start()
        speech.write(b'{"type":"quit"}\n')
        self.assertEqual(speech.process.wait(20), 0)
        speech = self.start()
        speech.process.stdin.close()
        self.assertEqual(speech.process.wait(20), 0)

    def test_callers_that_have_gone_end_it_at_work_though_uv_lives_on(self) -> None:
        speech = self.start()
        speech.ask(text=LONG)
        self.until_busy(speech.ready["pid"])
        self.assertNotEqual(speech.ready["pid"], speech.process.pid)
        began = time.monotonic()
        speech.leave()
        self.assertEqual(speech.process.wait(LIMIT), 0)
        self.assertLess(time.monotonic() - began, SOON)
        self.assertFalse(self.out.exists())

    def test_packages_files_go_with_the_worker(self) -> None:
        for end, status in (
            (lambda speech: speech.process.stdin.close(), 0),
            (lambda speech: speech.leave(), 0),
            (lambda speech: os.kill(speech.ready["pid"], signal.SIGTERM), 128 + signal.SIGTERM),
        ):
            speech = self.start()
            self.take(speech)
            self.assertGreater(len(self.copies()), 0)
            (directory,) = {path.relative_to(self.dir).parts[0] for path in self.copies()}
            self.assertTrue(directory.startswith(f"sonra-{os.getuid()}-{speech.ready['pid']}-"), directory)
            end(speech)
            self.assertEqual(speech.process.wait(LIMIT), status)
            self.assertEqual((self.copies(), list(self.dir.glob("sonra-*"))), ([], []))
            self.assertNotIn("Traceback", speech.errors())

    def test_packages_find_another_place_when_theirs_is_gone_or_cannot_be_made(self) -> None:
        speech = self.start()
        for directory in self.dir.glob("sonra-*"):
            shutil.rmtree(directory)
        self.take(speech)
        self.assertGreater(len(self.copies()), 0)
        self.env["TMPDIR"] = str(self.dir / "absent")
        speech = self.start()
        self.assertIn("Kokoro", speech.ready["backend"])
        self.take(speech)

    def copies(self) -> list[Path]:
        return list(self.dir.glob("**/libespeak-ng.so*"))

    def test_one_shot(self) -> None:
        command = [str(LAUNCHER), "run", "--script", str(HELPER), str(self.text_file(SENTENCE)), str(self.out)]
        done = subprocess.run(command, env=self.env, capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("spoke with Kokoro", done.stderr)
        self.assertEqual(Recording(self.out).rate, 24_000)

    def test_files_named_by_the_environment(self) -> None:
        elsewhere = self.dir / "other.onnx"
        self.model.rename(elsewhere)
        self.env["KOKORO_MODEL"] = str(elsewhere)
        self.assertEqual(self.start().ready["backend"], "Kokoro (other.onnx)")

    def test_broken_model_gives_way_to_the_other_back_end(self) -> None:
        self.model.write_bytes(b"not a model")
        speech = self.start()
        self.assertIn("eSpeak NG", speech.ready["backend"])
        self.assertIn("Kokoro can't be used: ", speech.errors())
        self.assertEqual(self.take(speech, voice="am_onyx").rate, 22_050)


    def test_uv_that_cannot_fetch_gives_way_to_the_other_back_end(self) -> None:
        # Its first run without a network: nothing is in its cache.
        self.env["UV_CACHE_DIR"] = str(self.dir / "empty")
        speech = self.start()
        self.assertIn("eSpeak NG", speech.ready["backend"])
        self.assertIn("uv can't run the script", speech.errors())
        self.assertEqual(self.take(speech, voice="am_onyx").rate, 22_050)


class Unreachable(unittest.TestCase):
    """A failure that is taken for a missing network skips the tests above, and so must not be another one."""

    def test_words_of_the_network(self) -> None:
        for words in (
            "Failed to establish a new connection: [Errno -3] Temporary failure in name resolution",
            "Retrying after connection broken by 'ReadTimeoutError(\"Read timed out. (read timeout=15)\")'",
            "error sending request for url (https://pypi.org/simple/numpy/)",
            "dns error: failed to lookup address information: Name or service not known",
            "tcp connect error: Network is unreachable (os error 101)",
            "Max retries exceeded with url: /simple/uv/",
        ):
            self.assertTrue(UNREACHABLE.search(words), words)

    def test_words_of_anything_else(self) -> None:
        for words in (
            "No solution found when resolving script dependencies",
            "ResolutionImpossible: for help visit https://pip.pypa.io/topics/dependency-resolution/",
            "Failed to resolve requirements",
            "ModuleNotFoundError: No module named 'connection'",
            "TypeError: unexpected keyword argument 'timeout'",
        ):
            self.assertFalse(UNREACHABLE.search(words), words)


class KokoroPackage(HelperTest):
    """What doesn't depend on the package being there."""

    def setUp(self) -> None:
        super().setUp()
        self.model, self.voices = self.dir / "m.onnx", self.dir / "v.bin"
        for path in (self.model, self.voices):
            path.touch()
        self.env.update(KOKORO_MODEL=str(self.model), KOKORO_VOICES=str(self.voices))

    def package(self, code: str) -> None:
        (self.dir / "kokoro_onnx.py").write_text(code)
        self.env["PYTHONPATH"] = str(self.dir)

    def test_what_a_library_prints_stays_out_of_the_protocol(self) -> None:
        self.package("import os\nprint('one')\nos.write(1, b'two')\nos.system('echo three')\nraise ImportError('half')")
        speech = self.ready_worker()
        self.assertEqual(speech.ready["type"], "ready")
        self.assertTrue(speech.request()["ok"])
        speech.write(b'{"type":"quit"}\n')
        self.assertEqual(speech.rest(), b"")
        for word in ("one", "two", "three", "Kokoro can't be used: half"):
            self.assertIn(word, speech.errors())

    def test_package_is_left_alone_without_both_files(self) -> None:
        self.package("raise SystemExit('imported')")
        for path in (self.model, self.voices):
            path.rename(self.dir / "aside")
            self.assertIn("eSpeak NG", self.ready_worker().ready["backend"])
            (self.dir / "aside").rename(path)


if __name__ == "__main__":
    unittest.main()
