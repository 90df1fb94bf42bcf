#!/usr/bin/env python3
"""Measures what the program promises and prints it beside the targets and beside other programs.

    bench.py [GROUP...]      groups: speech transport start rest sound commands flood cleaning scrub spectrum main_thread history search
                             companions
"""
import contextlib
import json
import os
import random
import subprocess
import sys
import time
from pathlib import Path

import peers
from lab import (BETWEEN, BIN, ROOT, Home, Monitor, PrivateSound, Relay, Screen, Service, accept_ms, assistant_line, connect, end,
                 main_thread_percent, median_p90, minute_of_speech, prefix_with_instant_worker, pss_kb, short_folder, wait_for,
                 wakeups)

ROUNDS = 50
SENTENCE = "The parser now reads each line once and hands over whole messages, which makes it a good deal faster"
assert len(SENTENCE) == 100
PEERS_WIDTH = 76
rows = []


def beside(value, name, theirs):
    return f"{name} {theirs:.1f}" + (f" ({value / theirs:.2f} of it)" if theirs else "")


def row(figure, value, target, unit, others=(), reference=""):
    """`others` are what peers returned: (name, value measured now), or None. More is worse unless the target begins with '>'."""
    others = [other for other in others if other]
    wanted = float(target.lstrip("<>= "))
    fits = value >= wanted if target.startswith(">") else value <= wanted
    rows.append({"figure": figure, "value": value, "unit": unit, "target": target, "ok": fits,
                 "peers": [{"name": name, "value": theirs} for name, theirs in others], "reference": reference})
    mark = "ok" if fits else "OVER"
    measured = ", ".join(beside(value, *other) for other in others) or "-"
    digits = 1 if value >= 10 else 2
    print(f"{figure:<58} {value:>10.{digits}f} {unit:<4} {target:>9} {mark:<5} {measured:<{PEERS_WIDTH}} {reference}", flush=True)


class Bench:
    """A service with one session attached, on a private sound server with the monitor held open."""

    def __init__(self, folder, instant=None, relay=False, monitor=True, floor=0, screen=None):
        self.home = Home(folder)
        self.home.write_state(speed=1.0)
        self.sound = PrivateSound(folder)
        # Without a listener the server may sleep, as a desktop's does.
        self.sound.start("" if monitor else "load-module module-suspend-on-idle timeout=1\n")
        self.monitor = Monitor(self.sound, floor) if monitor else None
        environment = self.sound.environment | (screen.environment if screen else {})
        self.relay = None
        if relay:
            self.relay = Relay(folder, self.sound.address)
            environment["PULSE_SERVER"] = f"unix:{self.relay.address}"
        program = prefix_with_instant_worker(folder, instant) if instant else None
        self.service = Service(self.home, environment, program=program).wait_ready()
        self.service.wait_warm()
        self.service.attach()

    @property
    def pid(self):
        return self.service.process.pid

    def append(self, number, text=SENTENCE):
        line = assistant_line(number, text).encode()
        descriptor = os.open(self.home.transcript, os.O_WRONLY | os.O_APPEND)
        began = time.monotonic_ns()
        os.write(descriptor, line)
        os.close(descriptor)
        return began

    def wait_idle(self, number):
        wait_for("the end of the chunk", lambda: len(self.home.log("chunk finished")) >= number)
        self.wait_silent()

    def wait_silent(self):
        wait_for("an idle server", lambda: not self.sound.sink_inputs())
        time.sleep(0.15)  # the monitor tells two sounds apart by the silence between them

    def close(self):
        self.service.stop()
        if self.monitor:
            self.monitor.stop()
        self.sound.stop()


def latencies(bench, rounds):
    values = []
    for number in range(1, rounds + 1):
        bench.monitor.drain()
        began = bench.append(number)
        values.append((bench.monitor.next("on") - began) / 1e6)
        # The first sound is all that counts; a sentence would take seconds.
        bench.service.send({"cmd": "skip"})
        bench.monitor.next("off")
        bench.wait_silent()
    return median_p90(values)


def speech():
    with short_folder() as folder:
        bench = Bench(folder, instant=0.2)
        median, p90 = latencies(bench, ROUNDS)
        bench.close()
    others = [measure() for measure in (peers.mpd_first_sound, peers.tail_into_paplay, peers.mpv_first_sound)]
    row("appended line to first sound, instant worker: median", median, "<= 8", "ms", others, "mpd 4.3, tail|paplay 6.8, mpv 12.2")
    row("  the same, p90", p90, "<= 12", "ms")
    with short_folder() as folder:
        bench = Bench(folder, instant=0.2, relay=True)
        values = []
        for number in range(1, ROUNDS + 1):
            bench.relay.arm()
            began = bench.append(number)
            values.append((bench.relay.first.get(timeout=20) - began) / 1e6)
            bench.wait_idle(number)
        bench.close()
    row("  of that, append to first samples written: median", median_p90(values)[0], "<= 3", "ms")
    with short_folder() as folder:
        bench = Bench(folder)
        median, _ = latencies(bench, ROUNDS)
        bench.close()
    row("  with the embedded voice, 100 characters: median", median, "<= 25", "ms", [peers.tail_into_espeak()],
        "tail|espeak-ng|paplay 14.4")


def transport():
    results = {}
    with short_folder() as folder:
        bench = Bench(folder, instant=3)
        number = 0
        for command in ("pause", "skip", "clear"):
            values = []
            for _ in range(20):
                number += 1
                bench.monitor.drain()
                bench.append(f"{command}-{number}")
                bench.monitor.next("on")
                # Not in step with the blocks of the null sink, of which the first has just been heard.
                time.sleep(random.uniform(0.1, 0.12))
                with connect(bench.home.socket_path) as client:
                    began = time.monotonic_ns()
                    client.sendall(b'{"proto":1,"cmd":"%s"}\n' % command.encode())
                    values.append((bench.monitor.next("off") - began) / 1e6)
                bench.service.send({"cmd": "clear"}, {"cmd": "resume"})
                bench.wait_silent()
            results[command] = median_p90(values)
        bench.close()
    pause, cancel = peers.mpv_pause(), peers.speech_dispatcher_cancel()
    # Theirs that does the same: a pause, or to drop what is being said.
    others = {"pause": [pause], "skip": [cancel], "clear": [cancel]}
    for command, (median, p90) in results.items():
        row(f"{command} to silence: median", median, "<= 10", "ms", others[command], "mpv 5, speech-dispatcher 32")
        row("  the same, p90", p90, "<= 10", "ms")


def start():
    values = []
    for _ in range(10):
        with short_folder() as folder:
            home = Home(folder)
            environment = home.environment() | {"PULSE_SERVER": f"unix:{folder}/none"}
            took, process = accept_ms(lambda env=environment: subprocess.Popen([str(BIN / "sonra")], env=env, stderr=subprocess.DEVNULL),
                                      home.socket_path)
            values.append(took)
            end(process)
    row("start to the socket accepting: median", median_p90(values)[0], "<= 60", "ms",
        [peers.mpv_start(), peers.mpd_start()], "mpv 96, mpd 136")


def rest():
    with short_folder() as folder:
        bench = Bench(folder)
        time.sleep(3)
        memory = pss_kb(bench.pid) / 1024
        quiet = wakeups(bench.pid, 20)
        bench.close()
    row("memory at rest, one session attached (PSS)", memory, "<= 25", "MB",
        [peers.mpv_memory(), peers.mpd_memory()], "empty Qt tray program 14, mpd 41, mpv 48")
    row("wake-ups at rest, one session attached", quiet, "<= 2.5", "/s")


def sound():
    with short_folder() as folder:
        bench = Bench(folder, monitor=False)
        server = bench.sound.server.pid
        before = wakeups(server, 3)
        bench.append(1)
        bench.wait_idle(1)
        time.sleep(2)
        after = wakeups(server, 5)
        bench.close()
    row(f"the sound server's wake-ups after the last word (before: {before:.1f})", after, "<= 1", "/s",
        [peers.wakeups_after_speech_dispatcher()], "speech-dispatcher leaves it at 408")


def commands():
    count = 200_000
    with short_folder() as folder:
        bench = Bench(folder, instant=0.2, monitor=False)
        batch = b'{"cmd":"skip","proto":1}\n' * count + b'{"cmd":"pause","proto":1}\n'
        state = bench.home.state_path
        before = state.stat().st_mtime_ns
        with connect(bench.home.socket_path) as client:
            began = time.monotonic()
            client.sendall(batch)
            wait_for("the last command", lambda: state.stat().st_mtime_ns != before and bench.home.state().get("paused"), 120, 0.001)
            took = time.monotonic() - began
        bench.close()
    row("socket commands a second, log at info", count / took, ">= 60000", "/s", [peers.mpv_commands()], "mpv 75,000 without a log")


def flood():
    with short_folder() as folder:
        bench = Bench(folder, instant=0.2, monitor=False)
        time.sleep(1)
        before = pss_kb(bench.pid)
        block = b"x" * 65536
        sent = 0
        while sent < 200_000_000:
            try:
                with connect(bench.home.socket_path) as client:
                    while sent < 200_000_000:
                        sent += client.send(block)
            except OSError:
                continue
        bench.service.send({"cmd": "pause"})
        wait_for("the flood to be through", lambda: bench.home.state().get("paused"))
        gained = (pss_kb(bench.pid) - before) / 1024
        bench.close()
    row("memory gained by 200 MB without a newline", gained, "<= 2", "MB", (), "a plain Qt socket server 215")


def cleaning():
    done = subprocess.run([str(BIN / "bench_cleaning"), "--benchmark_format=json"], capture_output=True, text=True, check=True)
    row("cleaning 1 MB of Markdown", json.loads(done.stdout)["benchmarks"][0]["real_time"], "<= 60", "ms")


def wait_message(bench, number):
    wait_for(f"message {number}", lambda: bench.home.now_playing().get("messageId") == f"u-{number}")



def scrub_ms(bench, index, number):
    """From the command to the first sound of that message, which the monitor can tell from what was before."""
    bench.monitor.drain()
    with connect(bench.home.socket_path) as client:
        began = time.monotonic_ns()
        client.sendall(b'{"proto":1,"cmd":"scrub","index":%d}\n' % index)
        took = (bench.monitor.next("on") - began) / 1e6
    wait_message(bench, number)
    return took


def to_live(bench):
    bench.service.send({"cmd": "scrub", "index": 0})
    bench.wait_silent()
    wait_for("live", lambda: bench.home.now_playing().get("cursor", {}).get("kind") == "live")


def scrub_rounds(floor, before):
    """Three messages, of which the oldest is the loud one; `before` makes what goes before each scrub to it. The instant
    worker speaks live messages only, so a message that isn't hot would stay silent."""
    with short_folder() as folder, contextlib.closing(Bench(folder, instant=3, floor=floor)) as bench:
        for number, text in enumerate(("This one is loud", "This one is not", "Nor is this one"), 1):
            bench.append(number, text)
            wait_message(bench, number)
            bench.service.send({"cmd": "skip"})
            bench.wait_silent()
        values = []
        for _ in range(ROUNDS):
            before(bench)
            # Not in step with the blocks of the null sink.
            time.sleep(random.uniform(0.1, 0.12))
            values.append(scrub_ms(bench, 2, 1))
            to_live(bench)
    return median_p90(values)


def scrub():
    def quiet_message(bench):
        bench.service.send({"cmd": "scrub", "index": 1})
        wait_message(bench, 2)

    median, p90 = scrub_rounds(0, lambda bench: None)
    row("scrub to a hot message, command to first sound: median", median, "<= 12", "ms",
        [peers.mpv_first_sound(), peers.mpd_first_sound()])
    row("  the same, p90", p90, "<= 12", "ms")
    median, p90 = scrub_rounds(BETWEEN, quiet_message)
    row("  out of another message: median", median, "<= 12", "ms", [peers.mpv_other_file()])
    row("  the same, p90", p90, "<= 12", "ms")


def result_of(program, *arguments):
    """What a benchmark of its own prints."""
    done = subprocess.run([str(BIN / program), *arguments], capture_output=True, text=True, check=True)
    return json.loads(done.stdout)


def spectrum():
    with short_folder() as folder:
        speech = Path(folder) / "speech.wav"
        minute_of_speech(speech)
        made = result_of("bench_spectrum", str(speech))
    if made["seconds"] != 60 or not made["isAudible"]:
        raise RuntimeError(f"that wasn't a minute of speech: {made}")
    row("spectrum of 60 s of speech: median", made["medianMs"], "<= 20", "ms")


PANEL = "Sonra captions"
STORY = "The transcript reader used to keep the whole file in memory, which was fine for short sessions and painful for long ones. "


def speaking_percent(composited, shown):
    """What the main thread takes while the embedded voice tells a long story, with the panel hidden or shown."""
    with contextlib.ExitStack() as held:
        folder = held.enter_context(short_folder())
        screen = held.enter_context(contextlib.closing(Screen(folder, composited)))
        bench = held.enter_context(contextlib.closing(Bench(folder, monitor=False, screen=screen)))
        # Attaching shows the panel, and says so in the document; from there it follows the document.
        wait_for("the panel", lambda: bench.home.state().get("captions") and screen.has_window(PANEL))
        bench.home.write_state(captions=shown)
        wait_for("the panel to show or hide", lambda: screen.has_window(PANEL) == shown)
        bench.append(1, STORY * 8)
        wait_for("sound", bench.sound.sink_inputs)
        time.sleep(2)
        if shown:
            before = screen.picture(PANEL)
            wait_for("a panel that moves", lambda: screen.picture(PANEL) != before, 5)
        percent = main_thread_percent(bench.pid, 12)
        if not bench.sound.sink_inputs():
            raise RuntimeError("the story was over too soon")
        if screen.has_window(PANEL) != shown:
            raise RuntimeError("the panel came or went meanwhile")
        return percent


def main_thread():
    row("main thread while speaking, panel hidden", speaking_percent(True, False), "<= 1", "%",
        [peers.mpv_main_thread(), peers.mpd_main_thread()])
    row("  panel shown and animating", speaking_percent(True, True), "<= 12", "%")
    row("  panel shown and animating, no compositor", speaking_percent(False, True), "<= 12", "%")


def history():
    made = result_of("bench_history")
    took = f"{made['messages']} messages in {made['countMs']:.1f} ms, plain pass {made['plainPassMs']:.1f} ms"
    row("count of a 100 MB transcript, as a ratio to a plain pass", made["countToPlain"], "<= 1.3", "", (),
        f"{took} (reference 39 to 55)")
    row("  memory gained by it", made["memoryGainedMB"], "<= 8", "MB")
    row(f"first page of {made['pageMessages']} messages from its end", made["firstPageMs"], "<= 5", "ms")


def search():
    with short_folder() as folder:
        rows_path = Path(folder) / "rows"
        made = result_of("bench_search", str(rows_path))
        found, index = made["search"], made["index"]
        others = [other for other in (peers.fzf_filter(rows_path, found["token"]), peers.fzy_filter(rows_path, found["token"])) if other]
    if index["sessions"] != 5000 or not found["hits"] or not index["hits"]:
        raise RuntimeError(f"that wasn't a search of sessions: {made}")
    row("search of 10,000 sessions, one token", found["oneTokenMs"], "<= 1", "ms", (),
        f"the first of a new catalogue: {found['firstMs']:.1f} ms")
    row("  three tokens", found["threeTokensMs"], "<= 2", "ms")
    fzf = dict(others).get("fzf")
    if fzf:
        took = ", ".join(f"{name} {theirs:.1f} ms" for name, theirs in others)
        row("search of 100,000 sessions, one token, as a ratio to fzf", found["largeMs"] / fzf, "<= 0.4", "", (),
            f"{found['largeMs']:.1f} ms, {took}")
    else:
        print(f"search of 100,000 sessions, one token: {found['largeMs']:.1f} ms; no ratio, since there is no fzf to measure", flush=True)
    row("catalogue of 5,000 transcripts of 200 KB, nothing known", index["reconcileMs"], "<= 2000", "ms")
    row("  nothing changed", index["unchangedMs"], "<= 80", "ms")
    row("start with 5,000 sessions to the first search", index["startMs"], "<= 60", "ms")


def companions():
    done = subprocess.run(["node", str(ROOT / "bench/discovery.mjs")], capture_output=True, text=True, timeout=300, check=True)
    made = json.loads(done.stdout)
    if made["rows"] != 40:
        raise RuntimeError(f"that wasn't a list of sessions: {made}")
    row("daemon at rest beside 2,000 transcripts", made["restPercent"], "<= 0.3", "%")
    row("  its memory, resident", made["rssMb"], "<= 60", "MB", (), f"{made['pssMb']:.1f} MB are its own")
    print(f"  its first look: {made['firstLookMs']} ms, longest pause {made['longestPauseMs']:.1f} ms; a new session is listed after "
          f"{made['fromRestMs']} ms, while another is written after {made['busyMs']} ms", flush=True)


GROUPS = {f.__name__: f for f in (speech, transport, start, rest, sound, commands, flood, cleaning, scrub, spectrum, main_thread,
                                  history, search, companions)}


def main(names):
    unknown = [name for name in names if name not in GROUPS]
    if unknown:
        raise SystemExit(f"bench: no such group: {' '.join(unknown)}; there are {' '.join(GROUPS)}")
    load = os.getloadavg()[0]
    print(f"load at the start: {load:.2f}" + (" (figures of a busy machine are worth little)" if load > 1 else ""))
    print(f"{'figure':<58} {'measured':>15} {'target':>9}       {'peers, measured now':<{PEERS_WIDTH}} peers (reference)")
    for name in names or GROUPS:
        GROUPS[name]()
    (ROOT / "build/bench.json").write_text(json.dumps(rows, indent=2) + "\n")


if __name__ == "__main__":
    main(sys.argv[1:])
