"""The desktop's search and its launcher, played by plain clients on a private bus."""
import json
import os
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as xml
from pathlib import Path

import dbus

from panel import pump_until
from presence import DRIVER, PresenceTest

NAME = "dev.trelnivorn.sonra"
PATH = "/dev/trelnivorn/sonra"
APPLICATION = "org.freedesktop.Application"
SHELL = "org.gnome.Shell.SearchProvider2"
RUNNER = "org.kde.krunner1"
DATA = Path(__file__).resolve().parents[2] / "data"


def url(session):
    return "tts://session/" + session


class OnTheBus(PresenceTest):
    def start(self):
        self.driver = self.start_driver()
        self.driver.obey("publish")
        pump_until("the name", lambda: self.bus.connection.name_has_owner(NAME))

    def call(self, interface, method, signature, *arguments):
        return self.bus.connection.call_blocking(NAME, PATH, interface, method, signature, arguments)

    def wait_heard(self, *expected):
        pump_until(f"{expected}", lambda: len(self.driver.read()) >= len(expected))
        self.assertEqual(self.driver.heard(), list(expected))


class Launcher(OnTheBus):
    def setUp(self):
        super().setUp()
        self.start()
        self.driver.heard()

    def test_opens_addresses_in_order_as_they_were_given(self):
        self.call(APPLICATION, "Open", "asa{sv}", [url("b"), url("a/message/m1"), "file:///tmp/x"], {})
        self.wait_heard("open " + url("b"), "open " + url("a/message/m1"), "open file:///tmp/x")

    def test_activates_and_runs_actions(self):
        self.call(APPLICATION, "Activate", "a{sv}", {"activation-token": "t"})
        self.call(APPLICATION, "ActivateAction", "sava{sv}", "speak-selection", [], {})
        self.wait_heard("activate", "action speak-selection")

    def test_glibs_own_launcher_knows_the_interface(self):
        for arguments in (("launch", NAME), ("launch", NAME, url("abc")), ("action", NAME, "look")):
            self.assertEqual(self.run_program("gapplication", *arguments), (0, ""))
        self.wait_heard("activate", "open " + url("abc"), "action look")

    def test_its_interfaces_are_those_of_the_protocols(self):
        expected = {
            APPLICATION: {"Activate": ("a{sv}", ""), "Open": ("as a{sv}", ""),
                          "ActivateAction": ("s av a{sv}", "")},
            SHELL: {"GetInitialResultSet": ("as", "as"), "GetSubsearchResultSet": ("as as", "as"),
                    "GetResultMetas": ("as", "aa{sv}"), "ActivateResult": ("s as u", ""), "LaunchSearch": ("as u", "")},
            RUNNER: {"Match": ("s", "a(sssida{sv})"), "Actions": ("", "a(sss)"), "Run": ("s s", ""),
                     "Config": ("", "a{sv}"), "Teardown": ("", "")}}
        tree = xml.fromstring(str(self.call("org.freedesktop.DBus.Introspectable", "Introspect", "")))
        seen = {}
        for interface in tree.findall("interface"):
            for method in interface.findall("method"):
                kinds = [" ".join(argument.get("type") for argument in method.findall("arg")
                                  if argument.get("direction", "in") == direction) for direction in ("in", "out")]
                seen.setdefault(interface.get("name"), {})[method.get("name")] = tuple(kinds)
        for interface, methods in expected.items():
            self.assertEqual(seen.get(interface), methods)


class ShellSearch(OnTheBus):
    def setUp(self):
        super().setUp()
        self.start()
        self.driver.obey("item aaaa1111-x webshop 100 The prices are fixed.")
        self.driver.obey("item bbbb2222-y webshop 200 The taxes <b>are</b> fixed.")
        self.driver.obey("item cccc3333-z compiler 300 The parser is faster.")
        self.driver.heard()

    def find(self, *terms):
        return [str(each) for each in self.call(SHELL, "GetInitialResultSet", "as", dbus.Array(terms, signature="s"))]

    def test_finds_what_has_all_terms_newest_first(self):
        self.assertEqual(self.find("Webshop"), [url("bbbb2222-y"), url("aaaa1111-x")])
        self.assertEqual(self.find("webshop", "prices"), [url("aaaa1111-x")])
        self.assertEqual(self.find("prices", "parser"), [])
        self.assertEqual(self.find(), [])

    def test_a_refined_search_looks_at_everything(self):
        refined = self.call(SHELL, "GetSubsearchResultSet", "asas", [url("aaaa1111-x")], ["the", "fixed"])
        self.assertEqual(refined, [url("bbbb2222-y"), url("aaaa1111-x")])

    def test_there_is_one_description_for_each_result_in_order(self):
        asked = [url("cccc3333-z"), url("gone"), url("bbbb2222-y")]
        metas = self.call(SHELL, "GetResultMetas", "as", asked)
        self.assertEqual([meta["id"] for meta in metas], asked)
        self.assertEqual(dict(metas[0]), {"id": asked[0], "name": "compiler · cccc3333",
                                          "description": "The parser is faster.", "gicon": NAME})
        self.assertEqual(metas[1]["name"], url("gone"))
        self.assertEqual(metas[2]["description"], "The taxes <b>are</b> fixed.")

    def test_a_chosen_result_opens_its_address(self):
        self.call(SHELL, "ActivateResult", "sasu", url("aaaa1111-x"), ["webshop"], 12345)
        self.wait_heard("open " + url("aaaa1111-x"))

    def test_the_search_can_go_on_in_the_program(self):
        self.call(SHELL, "LaunchSearch", "asu", ["webshop", "prices"], 12345)
        self.wait_heard("search webshop prices")

    def test_deleted_items_are_not_found(self):
        self.driver.obey("delete bbbb2222-y")
        self.assertEqual(self.find("webshop"), [url("aaaa1111-x")])

    def test_twenty_results_are_enough(self):
        self.driver.obey("many 100")
        self.assertEqual(len(self.find("parser")), 20)

    def test_ten_thousand_items_are_searched_in_milliseconds(self):
        self.driver.obey("many 10000")
        for terms in ("record",), ("parser", "number"), ("nowhere",):
            began = self.computed()
            for _ in range(20):
                self.find(*terms)
            self.assertLess((self.computed() - began) / 20, 0.025, terms)

    def computed(self):
        """The seconds that the program has computed so far, however busy the machine is with others."""
        fields = Path(f"/proc/{self.driver.process.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class RunnerSearch(OnTheBus):
    def setUp(self):
        super().setUp()
        self.start()
        self.driver.obey("item aaaa1111-x webshop 100 The prices are fixed.")
        self.driver.obey("item bbbb2222-y compiler 200 The webshop\u2028was not built.")
        self.driver.heard()

    def match(self, query):
        return self.call(RUNNER, "Match", "s", query)

    def test_matches_are_complete_and_the_best_is_first(self):
        first, second = self.match("WEBshop ")
        self.assertEqual(list(first)[:5], [url("aaaa1111-x"), "webshop · aaaa1111", NAME, 30, 1.0])
        self.assertEqual(dict(first[5]), {"subtext": "The prices are fixed."})
        self.assertEqual(second[0], url("bbbb2222-y"))
        self.assertTrue(0 < second[4] < 1)
        self.assertEqual(second[5]["subtext"], "The webshop was not built.")

    def test_a_letter_or_nothing_matches_nothing(self):
        for query in ("", " ", "w", "nowhere"):
            self.assertEqual(self.match(query), [])

    def test_there_are_eight_matches_at_most(self):
        self.driver.obey("many 100")
        self.assertEqual(len(self.match("parser")), 8)

    def test_a_match_that_is_run_opens_its_address(self):
        self.call(RUNNER, "Run", "ss", url("aaaa1111-x"), "")
        self.wait_heard("open " + url("aaaa1111-x"))

    def test_the_rest_of_the_protocol_is_answered(self):
        self.assertEqual(self.call(RUNNER, "Actions", ""), [])
        self.assertEqual(self.call(RUNNER, "Config", ""), {"MinLetterCount": 2})
        self.call(RUNNER, "Teardown", "")

    def test_questions_may_overlap(self):
        answers = []
        for query in ("webshop", "compiler", "prices"):
            self.bus.connection.call_async(NAME, PATH, RUNNER, "Match", "s", (query,),
                                           lambda matches: answers.append(len(matches)), self.fail)
        pump_until("the answers", lambda: len(answers) == 3)
        self.assertEqual(answers, [2, 1, 1])


class Started(OnTheBus):
    """A bus that knows the name starts the program, and what was asked for waits for it."""

    def test_an_address_reaches_a_program_that_the_bus_had_to_start(self):
        heard = Path(self.folder) / "heard"
        lines = Path(self.folder) / "lines"
        os.mkfifo(lines)
        held_open = os.open(lines, os.O_RDWR)  # the program ends with it
        self.addCleanup(os.close, held_open)
        program = Path(self.folder) / "sonra"
        program.write_text(f"#!/bin/sh\nexport HOME='{self.folder}'\nexec '{DRIVER}' publish < '{lines}' > '{heard}'\n")
        program.chmod(0o755)
        template = (DATA / f"{NAME}.service.in").read_text()
        (self.services / f"{NAME}.service").write_text(template.replace("@SONRA_BINARY_DIRECTORY@", self.folder))
        self.bus.close()
        self.start_bus()
        self.call(APPLICATION, "Open", "asa{sv}", [url("abc")], {})
        pump_until("the address", lambda: "open " + url("abc") in heard.read_text().splitlines())


class WithoutABus(PresenceTest):
    def test_nothing_happens_and_the_log_says_so_once(self):
        driver = self.start_driver({"DBUS_SESSION_BUS_ADDRESS": "unix:path=/nowhere/bus"})
        driver.obey("publish")
        driver.obey("item a webshop 1 x")
        log = Path(self.folder) / "Library/Logs/Sonra/sonra.ndjson"
        pump_until("the log", log.exists)
        pump_until("its line", lambda: log.read_text().endswith("\n"))
        records = [json.loads(line) for line in log.read_text().splitlines()]
        self.assertEqual([(record["level"], record["msg"]) for record in records],
                         [(30, "no session bus, what needs one stays off")])


class Files(unittest.TestCase):
    """What registers the program with the desktop."""

    def entries(self, name):
        lines = (DATA / name).read_text().splitlines()
        return dict(line.split("=", 1) for line in lines if "=" in line)

    def test_the_desktop_files_are_valid_without_a_remark(self):
        for name in (f"{NAME}.desktop", f"{NAME}.krunner.desktop"):
            with tempfile.TemporaryDirectory() as folder:
                copy = Path(folder) / f"{NAME}.desktop"
                copy.write_text((DATA / name).read_text())
                done = subprocess.run(["desktop-file-validate", str(copy)], capture_output=True, text=True, timeout=20)
                self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""))

    def test_the_desktop_file_claims_the_addresses(self):
        entries = self.entries(f"{NAME}.desktop")
        self.assertEqual(entries["MimeType"], "x-scheme-handler/tts;")
        self.assertEqual(entries["Exec"], "sonra %u")
        self.assertEqual(entries["DBusActivatable"], "true")

    def test_all_files_name_the_object_that_is_there(self):
        provider = self.entries(f"{NAME}.search-provider.ini")
        self.assertEqual(provider, {"DesktopId": f"{NAME}.desktop", "BusName": NAME, "ObjectPath": PATH, "Version": "2"})
        runner = self.entries(f"{NAME}.krunner.desktop")
        self.assertEqual((runner["X-Plasma-DBusRunner-Service"], runner["X-Plasma-DBusRunner-Path"]), (NAME, PATH))
        self.assertEqual(self.entries(f"{NAME}.service.in")["Name"], NAME)


if __name__ == "__main__":
    unittest.main()
