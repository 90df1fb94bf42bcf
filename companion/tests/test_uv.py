"""The launcher: a real uv when there is something to fetch packages for, the system's Python otherwise."""

import os
import shutil
import signal
import subprocess
import unittest
from pathlib import Path

from support import LAUNCHER, LIMIT, HelperTest, has_ended, tts_voices


class Launcher(HelperTest):
    def setUp(self) -> None:
        super().setUp()
        self.bin = self.dir / "bin"
        self.bin.mkdir()
        self.models = self.dir / ".claude/tts/models"
        self.models.mkdir(parents=True)
        self.program("python3", 'echo python3 "$@"')
        self.script = self.dir / "a b.py"
        self.script.write_text("# knows TTS_PROBE\n")
        self.worker_by_python = f"python3 {self.script} --worker"
        self.worker_by_uv = f"uv run --script {self.script} --worker"
        self.env["PATH"] = f"{self.bin}:/usr/bin:/bin"

    def program(self, name: str, body: str, directory: Path | None = None) -> None:
        path = (directory or self.bin) / name
        path.write_text(f"#!/bin/sh\n{body}\n")
        path.chmod(0o755)

    def add_model(self, model: str = "kokoro-v1.0.onnx", voices: str = "voices-v1.0.bin") -> None:
        for name in (model, voices):
            (self.models / name).touch()

    def launch(
        self, *arguments: str, launcher: Path = LAUNCHER, stdin: str = "", **env: str
    ) -> subprocess.CompletedProcess:
        command = [str(launcher), *(arguments or ("run", "--script", str(self.script), "--worker"))]
        env = {**self.env, **env}
        return subprocess.run(
            command, env=env, input=stdin, capture_output=True, text=True, timeout=LIMIT, check=False
        )

    def assertRuns(self, done: subprocess.CompletedProcess, line: str) -> None:
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, line + "\n", ""))

    def test_without_model_python_runs_the_script(self) -> None:
        self.program("uv", "echo uv")
        self.assertRuns(self.launch(), self.worker_by_python)

    def test_with_model_the_real_uv_gets_everything(self) -> None:
        self.program("uv", 'echo uv "$@"')
        for name in tts_voices.MODEL_NAMES:
            with self.subTest(name):
                self.add_model(name, tts_voices.VOICES_NAMES[0])
                self.assertRuns(self.launch(), self.worker_by_uv)
                (self.models / name).unlink()

    def test_model_without_voices_or_voices_without_model(self) -> None:
        self.program("uv", "echo uv")
        (self.models / "kokoro-v1.0.onnx").touch()
        self.assertRuns(self.launch(), self.worker_by_python)
        (self.models / "kokoro-v1.0.onnx").rename(self.models / "voices-v1.0.bin")
        self.assertRuns(self.launch(), self.worker_by_python)

    def test_model_named_by_the_environment(self) -> None:
        self.program("uv", "echo uv")
        files = {"KOKORO_MODEL": str(self.dir / "m"), "KOKORO_VOICES": str(self.dir / "v")}
        self.assertRuns(self.launch(**files), self.worker_by_python)
        for path in files.values():
            Path(path).touch()
        self.assertRuns(self.launch(**files), "uv")
        self.add_model()
        self.assertRuns(self.launch(KOKORO_MODEL="/absent"), self.worker_by_python)

    def test_with_model_but_no_uv(self) -> None:
        self.add_model()
        self.assertRuns(self.launch(), self.worker_by_python)

    def test_never_calls_itself(self) -> None:
        self.add_model()
        (self.dir / "copy").mkdir()
        shutil.copy(LAUNCHER, self.dir / "copy/uv")
        (self.bin / "uv").symlink_to(LAUNCHER)
        path = f"{LAUNCHER.parent}:{self.dir}/copy:{self.env['PATH']}"
        self.assertRuns(self.launch(PATH=path), self.worker_by_python)
        self.assertRuns(self.launch(PATH=path, launcher=self.bin / "uv"), self.worker_by_python)
        (self.dir / "real").mkdir()
        self.program("uv", "echo real", self.dir / "real")
        self.assertRuns(self.launch(PATH=f"{path}:{self.dir}/real"), "real")

    def test_uv_that_cannot_run_the_script_gives_way(self) -> None:
        self.add_model()
        for body in ("exit 2", "exit 1", "kill -9 $$"):
            self.program("uv", f"echo no network >&2; {body}")
            done = self.launch()
            self.assertEqual((done.returncode, done.stdout), (0, self.worker_by_python + "\n"), body)
            self.assertIn("no network\n", done.stderr)
            self.assertIn("uv can't run the script", done.stderr)

    def test_requests_are_left_to_whoever_runs_the_script(self) -> None:
        # The trial run would swallow the first line, or answer on the protocol's stream.
        self.add_model()
        for status, runner in ((0, "uv"), (2, "python3")):
            self.program("uv", f'read -r line; echo "uv $line"; [ -z "${{TTS_PROBE:-}}" ] || exit {status}')
            self.program("python3", 'read -r line; echo "python3 $line"')
            done = self.launch(stdin="first\nsecond\n")
            self.assertEqual(done.stdout, f"{runner} first\n")

    def test_trial_has_no_arguments_and_leaves_no_trace_in_the_real_run(self) -> None:
        self.add_model()
        self.program("uv", f'echo "${{TTS_PROBE:-}} $@" >> "{self.dir}/calls"')
        self.assertEqual(self.launch().returncode, 0)
        calls = (self.dir / "calls").read_text().splitlines()
        self.assertEqual(calls, [f"1 run --script {self.script}", f" run --script {self.script} --worker"])

    def test_failure_of_the_script_itself_is_its_own(self) -> None:
        self.add_model()
        self.program("uv", '[ -n "${TTS_PROBE:-}" ] || exit 7')
        done = self.launch()
        self.assertEqual((done.returncode, done.stdout, done.stderr), (7, "", ""))

    def test_script_that_knows_no_trial_is_run_once(self) -> None:
        self.add_model()
        self.script.write_text("# another one\n")
        self.program("uv", "echo uv; exit 2")
        done = self.launch()
        self.assertEqual((done.returncode, done.stdout, done.stderr), (2, "uv\n", ""))

    def test_uv_that_hangs_gives_way(self) -> None:
        self.add_model()
        copy = self.dir / "launcher"
        copy.write_text(LAUNCHER.read_text().replace("PROBE_SECONDS=90", "PROBE_SECONDS=0.2"))
        copy.chmod(0o755)
        self.program("uv", "exec sleep 60")
        self.assertEqual(self.launch(launcher=copy).stdout, self.worker_by_python + "\n")

    def test_termination_of_the_group_ends_the_trial_too(self) -> None:
        self.add_model()
        self.program("uv", f'echo $$ > "{self.dir}/new"; mv "{self.dir}/new" "{self.dir}/pid"; exec sleep 60')
        command = [str(LAUNCHER), "run", "--script", str(self.script), "--worker"]
        launcher = subprocess.Popen(command, env=self.env, start_new_session=True)
        self.until((self.dir / "pid").exists)
        trial = int((self.dir / "pid").read_text())
        os.killpg(launcher.pid, signal.SIGTERM)
        self.assertEqual(launcher.wait(LIMIT), -signal.SIGTERM)
        self.until(lambda: has_ended(trial))

    def test_uv_that_is_no_program_is_passed_over(self) -> None:
        self.add_model()
        (self.bin / "uv").mkdir()
        (self.dir / "plain").mkdir()
        (self.dir / "plain/uv").write_text("not executable")
        self.assertRuns(self.launch(PATH=f"{self.dir}/plain:{self.env['PATH']}"), self.worker_by_python)

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
        self.assertRuns(self.launch(), self.worker_by_python)


if __name__ == "__main__":
    unittest.main()
