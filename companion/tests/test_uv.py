"""The launcher: a real uv when there is something to fetch packages for, the system's Python otherwise."""

import shutil
import subprocess
import unittest
from pathlib import Path

from support import LAUNCHER, LIMIT, HelperTest, tts_kokoro


class Launcher(HelperTest):
    def setUp(self) -> None:
        super().setUp()
        self.bin = self.dir / "bin"
        self.bin.mkdir()
        self.models = self.dir / ".claude/tts/models"
        self.models.mkdir(parents=True)
        self.program("python3", 'echo python3 "$@"')
        self.env["PATH"] = f"{self.bin}:/usr/bin:/bin"

    def program(self, name: str, body: str, directory: Path | None = None) -> None:
        path = (directory or self.bin) / name
        path.write_text(f"#!/bin/sh\n{body}\n")
        path.chmod(0o755)

    def add_model(self, model: str = "kokoro-v1.0.onnx", voices: str = "voices-v1.0.bin") -> None:
        for name in (model, voices):
            (self.models / name).touch()

    def launch(self, *arguments: str, launcher: Path = LAUNCHER, **env: str) -> subprocess.CompletedProcess:
        command = [str(launcher), *(arguments or ("run", "--script", "/a b/s.py", "--worker"))]
        env = {**self.env, **env}
        return subprocess.run(command, env=env, capture_output=True, text=True, timeout=LIMIT, check=False)

    def assertRuns(self, done: subprocess.CompletedProcess, line: str) -> None:
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, line + "\n", ""))

    def test_without_model_python_runs_the_script(self) -> None:
        self.program("uv", "echo uv")
        self.assertRuns(self.launch(), "python3 /a b/s.py --worker")

    def test_with_model_the_real_uv_gets_everything(self) -> None:
        self.program("uv", 'echo uv "$@"')
        for name in tts_kokoro.MODEL_NAMES:
            with self.subTest(name):
                self.add_model(name, tts_kokoro.VOICES_NAMES[0])
                self.assertRuns(self.launch(), "uv run --script /a b/s.py --worker")
                (self.models / name).unlink()

    def test_model_without_voices_or_voices_without_model(self) -> None:
        self.program("uv", "echo uv")
        (self.models / "kokoro-v1.0.onnx").touch()
        self.assertRuns(self.launch(), "python3 /a b/s.py --worker")
        (self.models / "kokoro-v1.0.onnx").rename(self.models / "voices-v1.0.bin")
        self.assertRuns(self.launch(), "python3 /a b/s.py --worker")

    def test_model_named_by_the_environment(self) -> None:
        self.program("uv", "echo uv")
        files = {"KOKORO_MODEL": str(self.dir / "m"), "KOKORO_VOICES": str(self.dir / "v")}
        self.assertRuns(self.launch(**files), "python3 /a b/s.py --worker")
        for path in files.values():
            Path(path).touch()
        self.assertRuns(self.launch(**files), "uv")
        self.add_model()
        self.assertRuns(self.launch(KOKORO_MODEL="/absent"), "python3 /a b/s.py --worker")

    def test_with_model_but_no_uv(self) -> None:
        self.add_model()
        self.assertRuns(self.launch(), "python3 /a b/s.py --worker")

    def test_never_calls_itself(self) -> None:
        self.add_model()
        (self.dir / "copy").mkdir()
        shutil.copy(LAUNCHER, self.dir / "copy/uv")
        (self.bin / "uv").symlink_to(LAUNCHER)
        path = f"{LAUNCHER.parent}:{self.dir}/copy:{self.env['PATH']}"
        self.assertRuns(self.launch(PATH=path), "python3 /a b/s.py --worker")
        self.assertRuns(self.launch(PATH=path, launcher=self.bin / "uv"), "python3 /a b/s.py --worker")
        (self.dir / "real").mkdir()
        self.program("uv", "echo real", self.dir / "real")
        self.assertRuns(self.launch(PATH=f"{path}:{self.dir}/real"), "real")

    def test_uv_that_is_no_program_is_passed_over(self) -> None:
        self.add_model()
        (self.bin / "uv").mkdir()
        (self.dir / "plain").mkdir()
        (self.dir / "plain/uv").write_text("not executable")
        self.assertRuns(self.launch(PATH=f"{self.dir}/plain:{self.env['PATH']}"), "python3 /a b/s.py --worker")

    def test_status_of_what_it_runs(self) -> None:
        self.program("python3", "exit 7")
        self.assertEqual(self.launch().returncode, 7)

    def test_any_other_use_is_refused(self) -> None:
        for arguments in (("--version",), ("run", "s.py"), ("run", "--script"), ("pip", "--script", "x")):
            done = self.launch(*arguments)
            self.assertEqual((done.returncode, done.stdout), (2, ""), arguments)
            self.assertIn("usage:", done.stderr)

    def test_home_need_not_be_set(self) -> None:
        del self.env["HOME"]
        self.assertRuns(self.launch(), "python3 /a b/s.py --worker")


if __name__ == "__main__":
    unittest.main()
