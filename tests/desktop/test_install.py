"""An installed program is whole: it needs neither the checkout nor the build tree."""
import os
import subprocess
import tempfile
import unittest
from pathlib import Path

from home_case import HomeCase
from service import ROOT, assistant_line
from soundlab import loud_seconds, texts_of, wait_for

BUILD = Path(os.environ.get("SONRA_BUILD", ROOT / "build"))


class Installed(HomeCase):
    def setUp(self):
        super().setUp()
        prefix = tempfile.TemporaryDirectory()
        self.addCleanup(prefix.cleanup)
        self.prefix = Path(prefix.name)
        subprocess.run(["cmake", "--install", str(BUILD), "--prefix", str(self.prefix)], check=True, timeout=60,
                       stdout=subprocess.DEVNULL)

    def test_a_prefix_holds_the_program_and_its_resources(self):
        for name in ("bin/sonra", "share/sonra/scripts/tts_kokoro.py", "share/sonra/bin/uv"):
            self.assertTrue(os.access(self.prefix / name, os.X_OK), name)
        self.assertTrue((self.prefix / "share/sonra/cli").is_dir())

    def test_a_prefix_registers_the_program_with_the_desktop(self):
        name = "dev.trelnivorn.sonra"
        for place in ("applications/{}.desktop", "gnome-shell/search-providers/{}.search-provider.ini",
                      "krunner/dbusplugins/{}.desktop", "icons/hicolor/scalable/apps/{}.svg"):
            self.assertTrue((self.prefix / "share" / place.format(name)).is_file(), place)
        service = (self.prefix / f"share/dbus-1/services/{name}.service").read_text()
        self.assertEqual(service, f"[D-BUS Service]\nName={name}\nExec={self.prefix}/bin/sonra\n")

    def test_an_installed_program_speaks_with_the_prefix_own_resources(self):
        sound = self.start_sound()
        self.home.write_state(speed=1.0)
        service = self.start_service(sound.environment, program=self.prefix / "bin/sonra").wait_ready()
        service.wait_warm()
        voices = str(self.prefix / "share/sonra/scripts/tts_kokoro.py")

        def speaks_with_its_own():
            children = " ".join(texts_of(f"/proc/{service.process.pid}/task", "*/children")).split()
            return any(voices in command for child in children for command in texts_of(f"/proc/{child}", "cmdline"))

        wait_for("the prefix's own voices", speaks_with_its_own)
        service.attach()
        sound.record()
        self.home.append(assistant_line(1, "Installed and heard"))
        wait_for("the reply", lambda: self.home.log("chunk finished"))
        started, = self.home.log("playback started")
        duration = started["result"]["duration"]
        wait_for("its sound", lambda: loud_seconds(sound.samples()) > duration / 2, pause=0.1)
        self.assertLess(loud_seconds(sound.samples()), duration + 0.2)


if __name__ == "__main__":
    unittest.main()
