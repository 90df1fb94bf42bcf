"""Starts, ends and bad input of the whole program."""
import itertools
import json
import os
import random
import shlex
import shutil
import signal
import socket
import subprocess
import time
import unittest

from home_case import HomeCase
from panel import Notifications, PrivateBus, pump_until
from screen import CaptionsSeen, Screen
from service import PROGRAM, Home, Service, assistant_line
from soundlab import end, is_running, wait_for, write_tone


class LifecycleCase(HomeCase):
    def setUp(self):
        super().setUp()
        # No sound is needed here, and none of the machine's own is to be touched.
        self.environment = {"PULSE_SERVER": f"unix:{self.home.path}/none"}

    def start(self, arguments=(), before=None):
        return self.start_service(self.environment, arguments, before=before)

    def run_program(self, *arguments):
        return subprocess.run([str(PROGRAM), *arguments], env=os.environ | {"HOME": str(self.home.path)} | self.environment,
                              capture_output=True, text=True, timeout=20, check=False)


class CommandLine(LifecycleCase):
    def test_help_and_version_answer_at_once(self):
        version = self.run_program("--version")
        self.assertEqual((version.returncode, version.stderr), (0, ""))
        self.assertRegex(version.stdout, r"^sonra \d+\.\d+\.\d+\n$")
        helped = self.run_program("--help")
        self.assertEqual((helped.returncode, helped.stderr), (0, ""))
        for word in ("--service", "--socket", "--help", "--version"):
            self.assertIn(word, helped.stdout)

    def test_service_without_a_socket_ends_with_two(self):
        for arguments in (["--service"], ["--service", "--socket"]):
            result = self.run_program(*arguments)
            self.assertEqual((result.returncode, result.stderr), (2, "--service requires --socket <path>\n"))

    def test_the_player_says_that_its_file_is_missing(self):
        result = self.run_program("/nowhere/some.wav")
        self.assertEqual((result.returncode, result.stderr), (1, "File not found: /nowhere/some.wav\n"))

    def test_the_caption_server_shows_what_it_is_told_until_it_is_told_to_quit(self):
        screen = Screen(self.home.path)
        self.addCleanup(screen.close)
        captions = CaptionsSeen(screen)
        self.environment |= {name: screen.environment[name] for name in ("DISPLAY", "QT_QPA_PLATFORM")}
        self.home.socket_path = self.home.path / "captions.sock"
        server = self.start(["--captions-serve", "--socket", str(self.home.socket_path)]).wait_ready()

        def after(*commands):
            """The picture that follows commands which change it."""
            before = captions.picture()
            server.send(*commands)
            wait_for(f"what {commands} show", lambda: captions.picture() != before)
            return captions.settled()

        server.send({"cmd": "set", "text": "some words"})
        # In line behind the other, so that showing is what shows.
        empty = after({"cmd": "clear"}, {"cmd": "show"})
        self.assertTrue(captions.is_viewable())
        words = after({"cmd": "set", "text": "some words"})
        others = after({"cmd": "set", "text": "other words"})
        self.assertEqual(len({empty, words, others}), 3)
        first = after({"text": "some words"}, {"cmd": "highlight"})
        half = after({"cmd": "highlight", "progress": 0.5})
        self.assertEqual(len({first, half, after({"cmd": "highlight", "progress": 1})}), 3)
        self.assertEqual(after({"cmd": "highlight", "progress": 0.5}), half)
        server.send({"cmd": "hide"})
        wait_for("the captions to hide", lambda: not captions.is_viewable())
        server.send({"cmd": "show"})
        wait_for("the captions again", captions.is_viewable)
        self.assertEqual(screen.active_name(), "worker")
        server.send({"cmd": "quit"})
        self.assertEqual(server.process.wait(10), 0)
        self.assertFalse(self.home.socket_path.exists())

    def test_service_at_a_socket_of_choice(self):
        self.home.socket_path = self.home.path / "other.sock"
        self.start(["--service", "--socket", str(self.home.socket_path)]).wait_ready()

    def test_a_socket_path_too_long_is_refused_with_a_reason(self):
        result = self.run_program("--service", "--socket", "/tmp/" + "x" * 120)
        self.assertEqual(result.returncode, 1)
        self.assertIn("tts: socket path too long (126 bytes, max 104)", result.stderr)
        self.assertIn("ipc: bind/listen failed for ", result.stderr)


class OneServiceOnly(LifecycleCase):
    def test_a_second_plain_launch_ends_quietly(self):
        self.start().wait_ready()
        second = self.run_program()
        self.assertEqual((second.returncode, second.stderr), (0, ""))
        mismatch = wait_for("the mismatch", lambda: self.home.log("ipc proto mismatch, ignoring"))
        self.assertEqual([r["input"]["cmd"] for r in mismatch], ["search"])
        self.assertEqual(self.home.log("ipc message"), [])

    def test_four_starts_at_once_leave_one_service_with_its_socket(self):
        starts = [self.start() for _ in range(4)]
        wait_for("three to end", lambda: sum(s.process.poll() is not None for s in starts) == 3)
        winner = next(s for s in starts if s.process.poll() is None)
        winner.wait_ready()
        self.assertEqual([s.process.returncode for s in starts if s is not winner], [0, 0, 0])
        self.assertEqual((self.home.shared / "sonra.lock").read_text(), f"{winner.process.pid}\n")
        winner.send({"cmd": "toggle"})
        wait_for("its answer", lambda: self.home.state().get("paused"))

    def test_the_lock_decides_also_where_sockets_differ(self):
        first = self.start().wait_ready()
        other = self.home.path / "other.sock"
        second = self.run_program("--service", "--socket", str(other))
        self.assertEqual((second.returncode, second.stderr),
                         (0, "tts: another Sonra service is already running; exiting duplicate service.\n"))
        self.assertFalse(other.exists())
        first.send({"cmd": "toggle"})
        wait_for("the first one's answer", lambda: self.home.state().get("paused"))

    def test_a_stale_socket_is_replaced(self):
        with socket.socket(socket.AF_UNIX) as stale:
            stale.bind(str(self.home.socket_path))
        self.start().wait_ready()


class Addresses(LifecycleCase):
    """A service is reached by address wherever it is, and started where there is none."""

    OTHER = "7c1f0a52-bbbb-4b57-9a3a-5f0c2a516d0e"
    NAME = "dev.trelnivorn.sonra"

    def setUp(self):
        super().setUp()
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = "disabled:"
        self.address = "tts://session/" + self.home.session

    def start_bus(self):
        """One that can start the program and nothing else."""
        services = self.home.path / "services"
        services.mkdir()
        command = shlex.join(["/usr/bin/env", *(f"{name}={value}" for name, value in self.environment.items()
                                                if name != "DBUS_SESSION_BUS_ADDRESS"),
                              f"HOME={self.home.path}", str(PROGRAM)])
        (services / f"{self.NAME}.service").write_text(f"[D-BUS Service]\nName={self.NAME}\nExec={command}\n")
        bus = PrivateBus(services)
        self.addCleanup(bus.close)
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address
        return bus.connection

    def wait_attached(self, *sessions):
        wait_for("the sessions", lambda: {row["id"] for row in self.home.state().get("sessions", [])} == set(sessions))

    def open(self, status=0, errors=""):
        done = self.run_program(self.address)
        self.assertEqual((done.returncode, done.stderr), (status, errors))

    def test_without_a_service_it_becomes_the_service_and_attaches(self):
        self.start([self.address]).wait_ready()
        self.wait_attached(self.home.session)
        self.assertEqual(self.home.state()["sessions"][0]["transcript"], str(self.home.transcript))

    def test_several_at_once_become_one_service_with_all_their_sessions(self):
        self.home.add_transcript(self.OTHER, "/home/me/other")
        launches = [self.start([address]) for address in (self.address, "tts://session/" + self.OTHER) * 2]
        wait_for("three to end", lambda: sum(each.process.poll() is not None for each in launches) == 3)
        self.assertEqual(sorted(each.process.returncode for each in launches if each.process.poll() is not None), [0] * 3)
        self.wait_attached(self.home.session, self.OTHER)

    def test_a_scheme_is_written_in_any_letters(self):
        self.home.add_transcript(self.OTHER, "/home/me/other")
        self.start(["TTS://session/" + self.home.session]).wait_ready()
        self.wait_attached(self.home.session)
        self.address = "Tts://session/" + self.OTHER
        self.open()
        self.wait_attached(self.home.session, self.OTHER)

    def test_an_address_that_stands_for_nothing_starts_nothing(self):
        nonsense = "tts://nonsense"
        said = (2, f"sonra: the address {nonsense} stands for nothing; a session's is tts://session/<id>. "
                   "Nothing was opened.\n")
        for others in ([], [self.address]):
            done = self.run_program(*others, nonsense)
            self.assertEqual((done.returncode, done.stderr), said)
        self.assertFalse(self.home.socket_path.exists())
        service = self.start().wait_ready()
        done = self.run_program(nonsense)
        self.assertEqual((done.returncode, done.stderr), said)
        self.assertIsNone(service.process.poll())

    def test_an_address_for_which_the_lock_cannot_be_taken_is_not_lost_quietly(self):
        lock = self.home.shared / "sonra.lock"
        lock.mkdir()
        self.open(69, f"tts: could not open {lock}: Is a directory\n")

    def test_a_service_that_hangs_is_said_not_to_have_it(self):
        service = self.start().wait_ready()
        service.process.send_signal(signal.SIGSTOP)
        self.addCleanup(service.process.send_signal, signal.SIGCONT)
        self.open(69, f"sonra: the service is running (process {service.process.pid}) but doesn't answer; it was "
                      "asked to open this and may yet do so.\n")

    def test_starts_beside_many_addresses_turn_nobody_away(self):
        """However plain starts and addresses meet, there is one service in the end and it was given every address."""
        addresses = [f"tts://session/{number}c1f0a52" for number in range(3)]
        service = ["--service", "--socket", str(self.home.socket_path)]
        starts = [self.start(arguments) for arguments in ([addresses[0]], service, [addresses[1]], service, [addresses[2]])]
        wait_for("all but one to end", lambda: sum(each.process.poll() is not None for each in starts) == len(starts) - 1)
        self.assertEqual([each.process.returncode for each in starts if each.process.poll() is not None], [0] * 4)
        # None of the sessions is known, and each is said to be so.
        unknown = "attach: no transcript and no cwd to derive one"
        wait_for("every address", lambda: len(self.home.log(unknown)) >= len(addresses))
        self.assertEqual(sorted(each["input"]["id"] for each in self.home.log(unknown)),
                         [address.rsplit("/", 1)[1] for address in addresses])

    def test_over_the_bus_an_address_that_stands_for_nothing_is_logged_and_a_plain_start_is_harmless(self):
        bus = self.start_bus()
        service = self.start().wait_ready()
        wait_for("its name", lambda: bus.name_has_owner(self.NAME))

        def call(method, signature, *arguments):
            bus.call_blocking(self.NAME, "/" + self.NAME.replace(".", "/"), "org.freedesktop.Application", method,
                              signature, arguments, timeout=20)

        call("Activate", "a{sv}", {})
        call("Open", "asa{sv}", ["tts://nonsense", "TTS://session/" + self.home.session], {})
        self.wait_attached(self.home.session)
        told = wait_for("the log", lambda: self.home.log("address stands for nothing"))
        self.assertEqual([(each["level"], each["input"]) for each in told], [(40, {"url": "tts://nonsense"})])
        self.assertIsNone(service.process.poll())

    def test_a_service_at_a_socket_of_choice_is_found(self):
        usual, self.home.socket_path = self.home.socket_path, self.home.path / "other.sock"
        self.start(["--service", "--socket", str(self.home.socket_path)]).wait_ready()
        self.open()
        self.wait_attached(self.home.session)
        self.assertFalse(usual.exists())

    def test_a_service_whose_socket_was_removed_is_reached_over_the_bus(self):
        bus = self.start_bus()
        self.start().wait_ready()
        wait_for("its name", lambda: bus.name_has_owner(self.NAME))
        self.home.socket_path.unlink()
        self.open()
        self.wait_attached(self.home.session)

    def test_a_service_that_hangs_on_the_bus_is_said_not_to_have_it_and_opens_it_in_the_end(self):
        bus = self.start_bus()
        service = self.start().wait_ready()
        wait_for("its name", lambda: bus.name_has_owner(self.NAME))
        self.home.socket_path.unlink()
        service.process.send_signal(signal.SIGSTOP)
        self.addCleanup(service.process.send_signal, signal.SIGCONT)
        self.open(69, f"sonra: the service is running (process {service.process.pid}) but doesn't answer; it was "
                      "asked to open this and may yet do so.\n")
        service.process.send_signal(signal.SIGCONT)
        self.wait_attached(self.home.session)

    def test_one_that_is_reached_no_way_is_said_to_be_so(self):
        service = self.start().wait_ready()
        self.home.socket_path.unlink()
        self.open(69, f"sonra: the service is running (process {service.process.pid}) but can't be reached over its "
                      "socket or the session bus; nothing was opened.\n")
        self.assertIsNone(service.process.poll())
        self.assertEqual(self.home.state().get("sessions", []), [])

    def test_the_bus_starts_the_service_for_an_address(self):
        bus = self.start_bus()
        bus.call_blocking(self.NAME, "/" + self.NAME.replace(".", "/"), "org.freedesktop.Application", "Open",
                          "asa{sv}", ([self.address], {}), timeout=20)
        started = int((self.home.shared / "sonra.lock").read_text())
        self.addCleanup(lambda: wait_for("its end", lambda: not is_running(started)))
        self.addCleanup(os.kill, started, signal.SIGTERM)
        self.wait_attached(self.home.session)
        first = wait_for("the log", lambda: self.home.log("sonra up"))[0]
        self.assertEqual(first["input"]["pid"], started)


class StartupNotice(LifecycleCase):
    """Whatever comes of a start that a launcher announced, its busy cursor rests."""

    def setUp(self):
        super().setUp()
        screen = Screen(self.home.path)
        self.addCleanup(screen.close)
        self.environment |= {name: screen.environment[name] for name in ("DISPLAY", "QT_QPA_PLATFORM", "DBUS_SESSION_BUS_ADDRESS")}
        self.announced = {"DESKTOP_STARTUP_ID": "launcher-1-sonra_TIME100"}
        self.seen = self.home.path / "xev.txt"
        with self.seen.open("w") as seen:
            self.listener = subprocess.Popen(["xev", "-root", "-event", "property"], env=screen.environment, stdout=seen,
                                             stderr=subprocess.DEVNULL)
        self.addCleanup(end, self.listener)

        def is_listening():
            screen.ask("xprop", "-root", "-f", "SONRA_TEST", "8s", "-set", "SONRA_TEST", "x")
            return "SONRA_TEST" in self.seen.read_text()

        wait_for("the listener", is_listening)

    def notices(self):
        return self.seen.read_text().count("(_NET_STARTUP_INFO_BEGIN)")

    def wait_notice(self, count):
        wait_for("the notice", lambda: self.notices() >= count)
        self.assertEqual(self.notices(), count)

    def test_the_start_of_the_service_ends_it_though_no_window_opens(self):
        self.environment |= self.announced
        self.start().wait_ready()
        self.wait_notice(1)

    def test_so_do_second_launches_that_end_at_once(self):
        self.start().wait_ready()
        self.environment |= self.announced
        for count, arguments in enumerate(([], ["tts://session/" + self.home.session]), 1):
            self.assertEqual(self.run_program(*arguments).returncode, 0)
            self.wait_notice(count)

    def test_so_does_an_address_that_the_desktop_opens_over_the_bus(self):
        bus = PrivateBus()
        self.addCleanup(bus.close)
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address
        self.start().wait_ready()
        wait_for("its name", lambda: bus.connection.name_has_owner(Addresses.NAME))
        path = "/" + Addresses.NAME.replace(".", "/")
        for count, key in enumerate(("desktop-startup-id", "activation-token"), 1):
            bus.connection.call_blocking(Addresses.NAME, path, "org.freedesktop.Application", "Open", "asa{sv}",
                                         (["tts://session/" + self.home.session], {key: "launcher-2_TIME200"}))
            self.wait_notice(count)


class MissingShortcut(LifecycleCase):
    """The user hears once which chord is missing, and what is left to do."""

    SUMMARY = "A shortcut of Sonra's is missing"

    def setUp(self):
        super().setUp()
        screen = Screen(self.home.path)
        self.addCleanup(screen.close)
        bus = PrivateBus()
        self.addCleanup(bus.close)
        self.notifications = Notifications(bus.connection)
        self.environment |= {"DBUS_SESSION_BUS_ADDRESS": bus.address} | {
            name: screen.environment[name] for name in ("DISPLAY", "QT_QPA_PLATFORM")}

    def told(self):
        return [each["body"] for each in self.notifications.shown if each["summary"] == self.SUMMARY]

    def wait_told(self, body):
        pump_until("the notification", self.told)
        self.assertEqual(self.told(), [body])

    def test_under_wayland_without_a_portal(self):
        self.environment["WAYLAND_DISPLAY"] = "wayland-0"
        self.start().wait_ready()
        reason = ('This desktop lets no program have global shortcuts; a command such as "tts search" can be bound in its '
                  "own keyboard settings")
        self.wait_told(f'Super+Shift+F doesn\'t work for "Search sessions": {reason}.'.replace('"', "&quot;"))
        logged = wait_for("the log", lambda: self.home.log("global hotkey can't be had"))
        self.assertEqual([(each["level"], each["result"]) for each in logged], [(40, {"reason": reason})])
        wait_for("what the terminal is told",
                 lambda: "[search] failed to register ⌘⇧F\n" in (self.home.path / "stderr.txt").read_text())

    def test_where_another_program_has_it(self):
        other = Home(self.home.path / "other")
        keeper = Service(other, self.environment | {"DBUS_SESSION_BUS_ADDRESS": "disabled:"})
        self.addCleanup(keeper.stop)
        keeper.wait_ready()
        # Once it carries out commands its start is behind it, and the chord is its own.
        keeper.send({"cmd": "volume", "value": 55})
        wait_for("the other's start", lambda: other.state().get("volume") == 55)
        self.start().wait_ready()
        self.wait_told("Super+Shift+F doesn't work for &quot;Search sessions&quot;: another program has it, or this "
                       "keyboard doesn't.")
        logged = wait_for("the log", lambda: self.home.log("global hotkey is taken"))
        self.assertEqual([each["result"] for each in logged], [{"reason": "already in use"}])


class Starts(LifecycleCase):
    def test_the_first_record_says_who_started_and_how(self):
        for arguments in ([], ["--service", "--socket", str(self.home.socket_path)]):
            with self.subTest(arguments):
                self.home.log_path.unlink(missing_ok=True)
                service = self.start(arguments).wait_ready()
                first = wait_for("the log", self.home.log)[0]
                self.assertEqual((first["msg"], first["level"], first["module"]), ("sonra up", 30, "main"))
                self.assertEqual(first["input"], {"pid": service.process.pid, "argv": [str(PROGRAM), *arguments]})
                self.assertEqual(len(self.home.log("sonra up")), 1)
                service.stop()


class Ends(LifecycleCase):
    def test_signals_end_with_zero_and_take_the_socket_along(self):
        for number, name in ((15, "SIGTERM"), (2, "SIGINT"), (1, "SIGHUP")):
            with self.subTest(name):
                service = self.start().wait_ready()
                service.process.send_signal(number)
                self.assertEqual(service.process.wait(10), 0)
                self.assertFalse(self.home.socket_path.exists())
                self.assertEqual(self.home.log("sonra shutdown")[-1]["input"], {"signal": name})

    def test_a_hang_up_that_was_ignored_from_the_start_ends_nothing(self):
        service = self.start(before=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN)).wait_ready()
        service.process.send_signal(signal.SIGHUP)
        service.send({"cmd": "toggle"})
        wait_for("its answer", lambda: self.home.state().get("paused"))
        self.assertIsNone(service.process.poll())

    def test_a_platform_that_is_not_there_is_named(self):
        self.environment["QT_QPA_PLATFORM"] = "bogus"
        result = self.run_program()
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("no Qt platform plugin could be initialized", result.stderr)
        self.assertEqual(self.home.log()[-1]["level"], 60)

    def test_quit_ends_with_zero_and_takes_the_socket_along(self):
        service = self.start().wait_ready()
        service.send({"cmd": "quit"})
        self.assertEqual(service.process.wait(10), 0)
        self.assertFalse(self.home.socket_path.exists())

    def test_no_child_outlives_the_service(self):
        service = self.start().wait_ready()
        service.wait_warm()
        worker = self.home.log("kokoro worker ready")[0]["input"]["pid"]
        service.process.kill()
        service.process.wait()
        wait_for("the worker's end", lambda: not is_running(worker))

    def narrate_and_command(self, client, prefix, numbers, seconds):
        """One short sound after the other, so that both documents are written all the time."""
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            number = next(numbers)
            path = self.home.path / f"{prefix}-{number}.wav"
            shutil.copyfile(self.home.path / "tone.wav", path)
            for command in ({"cmd": "play", "wav": str(path), "text": f"sound {number}", "messageId": f"{prefix}-{number}"},
                            {"cmd": "volume", "value": number % 100}):
                client.sendall(json.dumps({"proto": 1} | command).encode() + b"\n")

    def kill_while_it_narrates(self, prefix, seconds):
        service = self.start().wait_ready()
        numbers = itertools.count(1)

        def is_at_work():
            # Each sound is over in no time: there are more until one has been seen.
            self.narrate_and_command(client, prefix, numbers, 0.02)
            return self.home.now_playing().get("messageId", "").startswith(prefix) and "volume" in self.home.state()

        with socket.socket(socket.AF_UNIX) as client:
            client.connect(str(self.home.socket_path))
            wait_for("narration", is_at_work)
            self.narrate_and_command(client, prefix, numbers, seconds)
        service.process.kill()
        service.process.wait()

    def test_killed_at_any_moment_the_documents_stay_whole_and_the_next_start_works(self):
        self.environment = self.start_sound().environment
        write_tone(self.home.path / "tone.wav", 0.03)
        chance = random.Random(7)
        for turn in range(6):
            self.kill_while_it_narrates(f"turn{turn}", chance.uniform(0.02, 0.3))
            state, playing = (json.loads((self.home.shared / name).read_text())
                              for name in ("state.json", "now-playing.json"))
            self.assertIn("volume", state)
            # Between two sounds nothing plays; the next is named a moment before it does.
            self.assertRegex(f"{playing['state']} {playing['messageId']}", f"^(playing turn{turn}-[0-9]+|idle (turn{turn}-[0-9]+)?)$")
            self.assertGreater(playing["rev"], 1)
        service = self.start().wait_ready()
        service.send({"cmd": "volume", "value": 100})
        wait_for("the volume", lambda: self.home.state().get("volume") == 100)


class BadInput(LifecycleCase):
    GARBAGE = (b"not json\n", b"\xff\xfe\x00\n", b"[]\n", b"{}\n", b'{"proto":true,"cmd":"skip"}\n',
               b'{"proto":1,"cmd":7}\n', b'{"proto":1,"cmd":"nothing-of-ours"}\n', b"[" * 100_000 + b"\n",
               b'{"proto":1,"cmd":"volume","value":"loud"}\n', b'{"proto":1,"cmd":"volume","value":1e300}\n',
               b'{"proto":1,"cmd":"attach","id":{}}\n', b'{"proto":1,"cmd":"attach","id":"x","cwd":"../y"}\n',
               b'{"proto":1,"cmd":"detach"}\n', b'{"proto":1,"cmd":"play","wav":"/nowhere.wav","text":"\\ud800"}\n', b"\n")

    def test_garbage_on_the_socket_changes_nothing(self):
        service = self.start().wait_ready()
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(str(self.home.socket_path))
            for line in self.GARBAGE:
                client.sendall(line)
            client.sendall(b'{"proto":1,"cmd":"toggle"}\n')
        wait_for("the last line's effect", lambda: self.home.state().get("paused"))
        self.assertIsNone(service.process.poll())
        self.assertEqual(self.home.state().get("sessions", []), [])

    def test_whatever_the_document_holds_the_service_stays_up_and_keeps_unknown_keys(self):
        odd = {"voice": 7, "speed": "fast", "volume": 50.5, "paused": "no", "sessions": [1, {"id": 3}, {"id": "a"}],
               "discoveredSessions": {"a": 1}, "daemonKey": {"kept": [1.0, None, "ü"]}}
        self.home.write_state(**odd)
        service = self.start().wait_ready()
        service.send({"cmd": "pause"})
        wait_for("the pause", lambda: self.home.state().get("paused") is True)
        self.assertEqual(self.home.state()["daemonKey"], odd["daemonKey"])
        self.assertEqual(self.home.state()["discoveredSessions"], odd["discoveredSessions"])
        self.home.state_path.write_text("{ this is not json")
        service.send({"cmd": "resume"})
        wait_for("a whole document", lambda: self.home.state().get("paused") is False)


class OddTranscripts(LifecycleCase):
    """Whose words are heard is read from the document that names the message being played."""

    def setUp(self):
        super().setUp()
        self.environment = self.start_sound().environment
        # Slow enough for one who looks away for a while to see that something is being spoken.
        self.home.write_state(speed=0.75)
        self.service = self.start().wait_ready()
        self.service.wait_warm()
        self.service.attach()
        self.spoken = []

    def is_spoken(self, number):
        playing = self.home.now_playing().get("messageId")
        if playing and playing not in self.spoken[-1:]:
            self.spoken.append(playing)
        return f"u-{number}" in self.spoken

    def wait_spoken(self, number):
        wait_for(f"reply {number}", lambda: self.is_spoken(number))

    def wait_end(self):
        """Until everything that was enqueued is through; whatever else is spoken meanwhile is noticed."""

        def is_over():
            self.is_spoken(0)
            return len(self.home.log("chunk finished")) == len(self.home.log("chunk enqueued"))

        wait_for("the last reply's end", is_over)

    def test_a_transcript_that_is_replaced_by_a_shorter_one_is_read_from_its_start(self):
        self.home.append(assistant_line(1, "The first of several replies is the longest by far"))
        self.wait_spoken(1)
        self.home.transcript.write_text(assistant_line(2, "A shorter file is new as a whole"))
        self.wait_spoken(2)
        self.wait_end()
        self.assertEqual(self.spoken, ["u-1", "u-2"])

    def test_a_transcript_that_is_cut_to_nothing_goes_on_with_what_comes(self):
        self.home.append(assistant_line(1, "All of this is cut away soon"))
        self.wait_spoken(1)
        os.truncate(self.home.transcript, 0)
        wait_for("the cut to be seen", lambda: self.home.state()["sessions"][0]["offset"] == 0)
        self.home.append(assistant_line(2, "This reply is longer than the one that was cut away before it"))
        self.wait_spoken(2)
        self.wait_end()
        self.assertEqual(self.spoken, ["u-1", "u-2"])

    def test_a_transcript_that_is_renamed_away_is_followed_under_its_name(self):
        path = self.home.transcript
        self.home.append(assistant_line(1, "This one is carried away with its file"))
        self.wait_spoken(1)
        path.rename(path.with_suffix(".old"))
        path.write_text(assistant_line(2, "And this one stands in its place"))
        self.wait_spoken(2)
        with path.with_suffix(".old").open("a") as agent:
            agent.write(assistant_line(3, "Nobody listens to the old file any more"))
        self.home.append(assistant_line(4, "The new one goes on meanwhile"))
        self.wait_spoken(4)
        self.wait_end()
        self.assertEqual(self.spoken, ["u-1", "u-2", "u-4"])

    def test_a_transcript_that_is_deleted_and_made_anew_is_read_whole(self):
        path = self.home.transcript
        self.home.append(assistant_line(1, "This one goes with its file"))
        self.wait_spoken(1)
        path.unlink()
        wait_for("the absence to be seen", lambda: self.home.state()["sessions"][0]["offset"] == 0)
        path.write_text(assistant_line(2, "And one that was made anew, of whatever length it may be"))
        self.wait_spoken(2)
        self.wait_end()
        self.assertEqual(self.spoken, ["u-1", "u-2"])

    def test_a_transcript_whose_folder_is_renamed_is_read_where_it_appears_again(self):
        path = self.home.transcript
        self.home.append(assistant_line(1, "This one goes with its folder"))
        self.wait_spoken(1)
        path.parent.rename(path.parent.with_suffix(".old"))
        wait_for("the absence to be seen", lambda: self.home.state()["sessions"][0]["offset"] == 0)
        path.parent.mkdir()
        path.write_text(assistant_line(2, "And this one stands in a folder of the same name"))
        self.wait_spoken(2)
        self.home.append(assistant_line(3, "Another one follows in the same place"))
        self.wait_spoken(3)
        self.wait_end()
        self.assertEqual(self.spoken, ["u-1", "u-2", "u-3"])


if __name__ == "__main__":
    unittest.main()
