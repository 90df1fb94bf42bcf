"""A speech worker that misbehaves on order: the order is the text of a request, or FAKE_START in the environment."""

import json
import os
import select
import signal
import struct
import sys
import time

OUT = sys.stdout.buffer
LOG = os.environ.get("FAKE_LOG")
TEST = os.getppid()  # before the worker leaves its launcher, if it does
HELD = []


def note(word):
    """For the test to see what the worker saw."""
    if LOG and os.path.isdir(os.path.dirname(LOG)):  # the test may be over
        with open(LOG, "a", encoding="utf-8") as log:
            log.write(word + "\n")


def do_nothing():
    """For as long as the test lives."""
    while os.path.isdir(f"/proc/{TEST}"):
        time.sleep(0.1)
    os._exit(0)


def send_raw(data):
    OUT.write(data)
    OUT.flush()


def line(**fields):
    return (json.dumps(fields) + "\n").encode()


def result(request, ok=True, **more):
    return line(type="result", id=request["id"], ok=ok, **more)


def write_wav(path):
    samples = struct.pack("<220h", *[(i % 20 - 10) * 1000 for i in range(220)])
    header = struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + len(samples), b"WAVE", b"fmt ", 16, 1, 1, 22050, 44100, 2,
                         16, b"data", len(samples))
    with open(path, "wb") as out:
        out.write(header + samples)


def answer_well(request):
    write_wav(request["outWav"])
    send_raw(result(request, wav=request["outWav"]))


def answer_late(request, late_ok):
    """Answers the request that is held only now, and then, the other way round, the one that came meanwhile."""
    note("late")
    held = HELD.pop()
    if late_ok:
        write_wav(held["outWav"])
    send_raw(result(held, ok=late_ok))
    if late_ok:
        send_raw(result(request, ok=False))
    else:
        answer_well(request)


def answer_slowly(request):
    note("begin")
    time.sleep(0.05)
    if select.select([sys.stdin.buffer.raw], [], [], 0)[0]:
        note("overlap")
    note("end")
    answer_well(request)


def answer_in_pieces(request):
    write_wav(request["outWav"])
    for byte in result(request):
        send_raw(bytes([byte]))
        time.sleep(0.001)


def answer_among_junk(request):
    write_wav(request["outWav"])
    send_raw(b"\n\nno json\n[1]\n{}\n" + line(type="pong") + line(type=7) + b"\xff\xfe\n" + b"[" * 100000 + b"\n"
             + b"x" * 3000000 + b"\n" + result(request))


def stop_reading(request):
    note("deaf")
    do_nothing()


def close_input(request):
    answer_well(request)
    os.close(0)
    note("closed")
    do_nothing()


ORDERS = {
    "fail": lambda r: send_raw(result(r, ok=False, error="no such voice")),
    "ok-text": lambda r: (write_wav(r["outWav"]), send_raw(line(type="result", id=r["id"], ok="true"))),
    "no-file": lambda r: send_raw(result(r)),
    "wrong-id": lambda r: (write_wav(r["outWav"]), send_raw(line(type="result", id=r["id"] + 1000, ok=True))),
    "no-id": lambda r: (write_wav(r["outWav"]), send_raw(line(type="result", ok=True))),
    "text-id": lambda r: (write_wav(r["outWav"]), send_raw(line(type="result", id="x", ok=True))),
    "two-lines": lambda r: (write_wav(r["outWav"]), send_raw(line(type="result", id=-1, ok=False) + result(r))),
    "twice": lambda r: (answer_well(r), send_raw(result(r, ok=False))),
    "die": lambda r: (note("die"), os._exit(7)),
    "silent": lambda r: note("silent"),
    "hold": lambda r: HELD.append(r),
    "late-success": lambda r: answer_late(r, True),
    "late-failure": lambda r: answer_late(r, False),
    "slow": answer_slowly,
    "pieces": answer_in_pieces,
    "junk": answer_among_junk,
    "deaf": stop_reading,
    "close-input": close_input,
    "echo": lambda r: (note(json.dumps(r, sort_keys=True)), answer_well(r)),
}


def leave_launcher():
    """Goes on in a child with a process group of its own; the launcher waits for it."""
    child = os.fork()
    if child:
        os._exit(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
    os.setpgid(0, 0)


def start(order):
    if order == "own-group":
        leave_launcher()
    if order == "never-ready":
        do_nothing()
    if order == "exit":
        sys.exit(5)
    if order == "ignore-term":
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
    if order == "slow":
        time.sleep(0.2)
    pid = {"wild-pid": int(os.environ.get("FAKE_PID", "0")), "no-pid": None, "big-pid": 1 << 40}.get(order, os.getpid())
    ready = {"type": "ready"} if pid is None else {"type": "ready", "pid": pid}
    send_raw(line(**ready) * (2 if order == "twice" else 1))


def main():
    note("start %s %s %s" % (" ".join(sys.argv[1:]), os.environ.get("TTS_KOKORO_WORKER"),
                             os.environ.get("TTS_PLAYER")))
    order = os.environ.get("FAKE_START", "")
    start(order)
    for text in sys.stdin.buffer:
        note("line %d" % len(text))
        request = json.loads(text)
        if request["type"] == "quit":
            break
        ORDERS.get(request["text"], answer_well)(request)
    if order in ("ignore-term", "own-group"):
        note("ignoring")
        do_nothing()


main()
