"""What the scripts beside this one share: the program and the samples that are given to them, counted checks, processes,
ports and elements."""
import atexit
import importlib
import os
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time

import made

VEXAL = os.path.abspath(sys.argv[1])
SAMPLES = os.path.abspath(sys.argv[2]) if len(sys.argv) > 2 else ""
REAL_SAMPLES = os.path.isdir(SAMPLES)
if SAMPLES and not os.path.exists(SAMPLES):  # files made here stand for them
    SAMPLES = tempfile.mkdtemp()
    atexit.register(shutil.rmtree, SAMPLES, True)
    made.make(SAMPLES, made.SAMPLES)
os.environ.pop("VEXAL_INI", None)
failures = []
checks = 0


def need(*programs, samples=False, module="os"):
    """Skips the script where something is missing: Python's module, real samples, a program."""
    missing = [p for p in programs if shutil.which(p) is None] + ([] if not samples or REAL_SAMPLES else ["samples"])
    try:
        importlib.import_module(module)
    except ImportError:
        missing.append(module)
    if missing:
        left_out("all of " + os.path.basename(sys.argv[0]), *missing)
        sys.exit(77)


def left_out(what, *missing):
    """Says so where a part needs what is not there; the test command gathers these lines."""
    print("missing: %s (%s)" % (", ".join(missing), what), flush=True)


def has(program, what):
    """Whether a program is there that some checks need."""
    found = shutil.which(program) is not None
    if not found:
        left_out(what, program)
    return found


def check(good, text):
    global checks
    checks += 1
    if not good:
        failures.append(text)
        print("FAIL", text, flush=True)


def fail(text):
    check(False, text)


def end(counts=None):
    """The last line, and what the script exits with. `counts`: what was done, by name; nothing of a name is a failure."""
    for name, number in (counts or {}).items():
        check(number != 0, "nothing: " + name)
    print(", ".join(["%d %s" % (number, name) for name, number in (counts or {}).items()] + ["%d checks" % checks, "%d failures" % len(failures)]))
    return 1 if failures else 0


class LeftOut(Exception):
    """What is left of a part can not be done here."""


def run_parts(*parts):
    """Calls each with a folder of its own, and ends."""
    for part in parts:
        with tempfile.TemporaryDirectory() as folder:
            start = time.monotonic()
            try:
                part(folder)
            except LeftOut as what:
                print("  left out: %s" % what)
            except Exception as error:  # a peer that can not be started is a failure of this part alone
                fail("%s: %r" % (part.__name__, error))
            print("%-20s %5.1f s" % (part.__name__, time.monotonic() - start), flush=True)
    return end()


def run(*command, timeout=120, **more):
    return subprocess.run([str(c) for c in command], capture_output=True, timeout=timeout, **more)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for_listener(process, port):
    """Until the process listens, ten seconds at most."""
    for _ in range(200):
        try:
            socket.create_connection(("127.0.0.1", port), timeout=1).close()
            return process
        except OSError:
            time.sleep(0.05)
    raise RuntimeError("does not listen: %s" % process.args)


def element(tag, vr, value):
    """An element in explicit VR little endian."""
    value += (b"\0" if vr in (b"UI", b"OB", b"OW") else b" ") * (len(value) % 2)
    head = struct.pack("<HH", tag >> 16, tag & 0xFFFF) + vr
    return head + (struct.pack("<xxI" if vr in (b"OB", b"OW", b"SQ", b"UT") else "<H", len(value))) + value


def valid_samples():
    """Name and path of the files that the README of the samples calls valid."""
    with open(os.path.join(SAMPLES, "README.md"), encoding="utf-8") as readme:
        rows = [line.rstrip("\n").split("\t") for line in readme]
    rows = [row[0] for row in rows if len(row) >= 7 and row[-1].startswith("valid")]
    return [(name, os.path.join(SAMPLES, name)) for name in rows if os.path.isfile(os.path.join(SAMPLES, name))]
