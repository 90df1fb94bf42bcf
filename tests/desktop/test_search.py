"""Sessions found and attached: from the panel over another program, from the desktop's search, by address."""
import json
import subprocess
import time
import unittest

from service import PROGRAM
from test_whole_desktop import LONG, OTHER, WholeDesktop, until

SEARCH = "Sonra search"
NAME = "dev.trelnivorn.sonra"
PATH = "/dev/trelnivorn/sonra"
SHELL = "org.gnome.Shell.SearchProvider2"


class SearchDesktop(WholeDesktop):
    def setUp(self):
        super().setUp()
        until("both in the catalogue", lambda: len(self.catalogue()) == 2)

    def catalogue(self):
        try:
            return json.loads((self.home.path / ".cache/Sonra/sessions.json").read_text())["sessions"]
        except (OSError, ValueError):
            return []

    def keys(self, *names):
        self.screen.ask("xdotool", "key", *names)

    def wait_focus(self, name):
        until(f"the focus of {name}", lambda: self.screen.active_name() == name)

    def open_panel(self):
        """Presses until it is there: the chord may not be the program's yet."""
        def opens():
            self.keys("super+shift+f")
            deadline = time.monotonic() + 3
            while self.screen.active_name() != SEARCH:
                if time.monotonic() > deadline:
                    return False
                time.sleep(0.02)
            return True

        until("the panel", opens)

    def chosen(self):
        """The chord for copying takes the id of the chosen row."""
        self.keys("ctrl+c")
        return self.screen.ask("timeout", "2", "xclip", "-o", "-selection", "clipboard")

    def wait_attached(self, session):
        until("the row", lambda: [row["id"] for row in self.home.state().get("sessions", [])] == [session])

    def wait_heard(self, transcript):
        until("its tailer", lambda: self.home.log("native tailer started (forward-only)"))
        self.narrate(7, LONG, transcript)

    def call(self, path, interface, method, signature, *arguments):
        return self.bus.connection.call_blocking(NAME, path, interface, method, signature, arguments)


class Panel(SearchDesktop):
    def test_chord_takes_the_keyboard_and_escape_gives_it_back(self):
        self.open_panel()
        self.keys("Escape")
        self.wait_focus("worker")
        self.open_panel()
        self.keys("super+shift+f")
        self.wait_focus("worker")

    def test_what_is_typed_is_found_and_return_attaches_it(self):
        self.open_panel()
        until("the newest", lambda: self.chosen() == OTHER)
        self.screen.ask("xdotool", "type", self.home.session[:8])
        until("the answer", lambda: self.chosen() == self.home.session)
        self.keys("Return")
        self.wait_focus("worker")
        self.wait_attached(self.home.session)
        self.assertEqual(self.home.state()["sessions"][0]["transcript"], str(self.home.transcript))
        self.wait_heard(self.home.transcript)


class DesktopsSearch(SearchDesktop):
    def find(self, *terms):
        return [str(found) for found in self.call(PATH, SHELL, "GetInitialResultSet", "as", list(terms))]

    def test_finds_a_session_and_opens_it(self):
        until("the session", lambda: self.find("other"))
        found, = self.find("other")
        meta, = self.call(PATH, SHELL, "GetResultMetas", "as", [found])
        self.assertEqual(str(meta["name"]), f"other · {OTHER[:8]}")
        self.call(PATH, SHELL, "ActivateResult", "sasu", found, ["other"], 0)
        self.wait_attached(OTHER)
        self.wait_heard(self.other)

    def test_goes_on_in_the_panel(self):
        until("the session", lambda: self.find("other"))
        self.call(PATH, SHELL, "LaunchSearch", "asu", [self.home.session[:8]], 0)
        self.wait_focus(SEARCH)
        until("the answer", lambda: self.chosen() == self.home.session)


class Addresses(SearchDesktop):
    def test_over_the_bus(self):
        until("the name", lambda: self.bus.connection.name_has_owner(NAME))
        self.call(PATH, "org.freedesktop.Application", "Open", "asa{sv}", [f"tts://session/{OTHER}"], {})
        self.wait_attached(OTHER)

    def test_as_an_argument_of_a_second_launch(self):
        until("the name", lambda: self.bus.connection.name_has_owner(NAME))
        second = subprocess.run([str(PROGRAM), f"tts://session/{OTHER}"], timeout=30, check=False,
                                env=self.home.environment() | self.environment())
        self.assertEqual(second.returncode, 0)
        self.wait_attached(OTHER)


if __name__ == "__main__":
    unittest.main()
