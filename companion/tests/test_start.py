"""The speech helper's files as they are installed, and the ways in which a script can be started."""

import os
import shutil
import subprocess
import sys
import unittest

from support import COMPANION, HELPER, LIMIT, HelperTest, Recording


class Start(HelperTest):
    def setUp(self) -> None:
        super().setUp()
        self.scripts = self.dir / "prefix/scripts"
        self.scripts.mkdir(parents=True)
        for file in COMPANION.glob("*.py"):
            shutil.copy(file, self.scripts)
        self.elsewhere = self.dir / "elsewhere"
        self.elsewhere.mkdir()
        self.env["TTS_PLAYER"] = "none"
        self.out = self.dir / "out.wav"

    def assertSpeaks(self, *command: object, **env: str) -> None:
        """With every module: --play needs what nothing else does."""
        command = [*map(str, command), str(self.text_file("Hello.")), str(self.out), "--play"]
        env = {**self.env, **env}
        done = subprocess.run(
            command, env=env, cwd=self.elsewhere, capture_output=True, text=True, timeout=LIMIT, check=False
        )
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertGreater(Recording(self.out).peak, 5000)
        self.out.unlink()

    def test_by_itself(self) -> None:
        self.assertTrue(os.access(HELPER, os.X_OK))
        self.assertSpeaks(self.scripts / HELPER.name)

    def test_by_a_relative_path(self) -> None:
        self.assertSpeaks(sys.executable, f"../prefix/scripts/{HELPER.name}")

    def test_through_links(self) -> None:
        (self.dir / "link.py").symlink_to(self.scripts / HELPER.name)
        (self.elsewhere / "again.py").symlink_to("../link.py")
        for name in (self.dir / "link.py", "again.py"):
            self.assertSpeaks(sys.executable, name)

    def test_without_the_scripts_folder_on_the_path(self) -> None:
        self.assertSpeaks(sys.executable, self.scripts / HELPER.name, PYTHONSAFEPATH="1")
        self.assertSpeaks(sys.executable, "-I", self.scripts / HELPER.name)

    def test_files_of_the_same_names_elsewhere_are_left_alone(self) -> None:
        for file in self.scripts.glob("tts_*.py"):
            (self.elsewhere / file.name).write_text("raise SystemExit('the wrong file')")
        self.assertSpeaks(sys.executable, self.scripts / HELPER.name, PYTHONPATH=str(self.elsewhere))

    def test_leaves_nothing_in_the_installation(self) -> None:
        del self.env["PYTHONDONTWRITEBYTECODE"]
        before = sorted(self.scripts.iterdir())
        self.assertSpeaks(sys.executable, self.scripts / HELPER.name)
        self.assertEqual(sorted(self.scripts.iterdir()), before)

    def test_packages_are_still_kept_compiled(self) -> None:
        del self.env["PYTHONDONTWRITEBYTECODE"]
        (self.elsewhere / "kokoro_onnx.py").write_text("raise ImportError('half of it')")
        files = {"KOKORO_MODEL": str(HELPER), "KOKORO_VOICES": str(HELPER)}
        self.assertSpeaks(sys.executable, self.scripts / HELPER.name, PYTHONPATH=str(self.elsewhere), **files)
        self.assertEqual([path.name for path in self.elsewhere.iterdir() if path.is_dir()], ["__pycache__"])


if __name__ == "__main__":
    unittest.main()
