"""What the scripts beside this one share: the program and the samples that are given to them, counted checks, commands,
servers and files."""
import atexit
import contextlib
import importlib.util
import os
import random
import re
import shutil
import signal
import socket
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
SANITIZED = "TSAN_OPTIONS" in os.environ  # slower, and with a thread more
failures = []
ports = random.Random()  # not of the seed that scripts may set: others run beside them
checks = 0

# ---- Counted checks ----


def need(*programs, samples=False, modules=()):
    """Skips the script where something is missing: Python's modules, real samples, a program."""
    missing = [p for p in programs if shutil.which(p) is None] + ([] if not samples or REAL_SAMPLES else ["samples"])
    missing += [m for m in modules if importlib.util.find_spec(m) is None]
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
    return good


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


def run_parts(*parts, chosen=()):
    """Calls each, or those of the chosen names, with a folder of its own; gives what the script exits with."""
    for part in parts:
        if chosen and part.__name__ not in chosen:
            continue
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


# ---- Files ----


def read(path):
    with open(path, "rb") as file:
        return file.read()


def write(path, content):
    """Bytes or a text; gives the path."""
    os.makedirs(os.path.dirname(path) or ".", exist_ok=True)
    with open(path, "wb") as file:
        file.write(content.encode() if isinstance(content, str) else content)
    return path


def paths(folder, *names):
    """Of files in the folder."""
    return [os.path.join(folder, name) for name in names]


def files_under(folder):
    return sorted(os.path.join(root, name) for root, _, names in os.walk(folder) for name in names)


def data_set_of(path):
    """The bytes behind the meta group."""
    content = read(path)
    return content[144 + int.from_bytes(content[140:144], "little"):] if content[128:132] == b"DICM" else content


def meta_text(path, element):
    """Of the meta group: 2 is the class, 3 the instance, 0x10 the transfer syntax."""
    with open(path, "rb") as file:
        content = file.read(4096)
    at, end = 144, 144 + int.from_bytes(content[140:144], "little") if content[128:132] == b"DICM" else 0
    while at < end:
        long = content[at + 4:at + 6] in (b"OB", b"UN")
        head, length = (12, content[at + 8:at + 12]) if long else (8, content[at + 6:at + 8])
        behind = at + head + int.from_bytes(length, "little")
        if int.from_bytes(content[at + 2:at + 4], "little") == element:
            return content[at + head:behind].strip(b"\0 ").decode("latin-1")
        at = behind
    return ""


def arrived(folder):
    """Files by instance."""
    found = {meta_text(path, 3): path for path in files_under(folder)}
    return {instance: path for instance, path in found.items() if instance}


def valid_samples():
    """Name and path of the files that the README of the samples calls valid."""
    rows = [line.split("\t") for line in read(os.path.join(SAMPLES, "README.md")).decode().splitlines()]
    rows = [row[0] for row in rows if len(row) >= 7 and row[-1].startswith("valid")]
    return [(name, os.path.join(SAMPLES, name)) for name in rows if os.path.isfile(os.path.join(SAMPLES, name))]


# ---- Commands and servers ----


def run(*command, timeout=120, **more):
    return subprocess.run([str(c) for c in command], capture_output=True, timeout=timeout, **more)


def ended(result, title, status=0, says=""):
    """Checks that a command ended with a status and, if need be, gave a reason."""
    told = result.stderr if isinstance(result.stderr, str) else result.stderr.decode(errors="replace")
    check(result.returncode == status and says in told, "%s: ends with %s: %s" % (title, result.returncode, told[-500:] or result.stdout[-500:]))
    return result


def vexal(*words, status=0, says="", title=None, **more):
    """Runs the program, which has to end with that status and say that; a title tells of words that name little but paths."""
    return ended(run(VEXAL, *words, **more), title or "vexal " + " ".join(map(str, words)), status, says)


def free_port():
    """Below those that the system gives to connections, of which there are many here."""
    while True:
        with socket.socket() as probe, contextlib.suppress(OSError):
            port = ports.randrange(12000, 32000)
            probe.bind(("127.0.0.1", port))
            return port


class Server:
    """A program that listens on a port, which takes the place of {port} in its words, for the length of a with block."""

    def __init__(self, *command, port=None, **more):
        self.words, self.fixed, self.port, self.more = command, port is not None, port or free_port(), more

    def __enter__(self):
        for tries_left in (2, 1, 0):
            self.command = [str(word).replace("{port}", str(self.port)) for word in self.words]
            self.log = tempfile.TemporaryFile()
            self.process = subprocess.Popen(self.command, stdout=self.log, stderr=self.log, **self.more)
            end = time.monotonic() + 30
            while not self.listens() and self.process.poll() is None and time.monotonic() < end:
                time.sleep(0.02)
            if self.process.poll() is None and self.listens():
                return self
            self.kill()
            self.log.seek(0)
            told = self.log.read().decode(errors="replace")
            if self.fixed or tries_left == 0 or "in use" not in told:
                raise RuntimeError("does not listen: %s: %s" % (self.command, told[-300:]))
            self.port = free_port()  # somebody else was faster

    def listens(self):
        """Looked up, not tried: a connection would be one of those that are counted."""
        try:
            return any(re.search(b":%04X 0+:0000 0A" % self.port, read("/proc/%d/net/%s" % (self.process.pid, name))) for name in ("tcp", "tcp6"))
        except OSError:
            return False

    def kill(self):
        self.process.kill()
        self.process.wait()

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(timeout=15)
        except subprocess.TimeoutExpired:
            self.kill()
            fail("does not end on SIGTERM: " + self.command[0])
        self.log.seek(0)
        self.text = self.log.read().decode("latin-1")


class Vexal(Server):
    """vexal receive or serve into a folder. At its end it is to be as it was at its start, and to end well."""

    def __init__(self, kind, folder, *options, port=None, before=(), **more):
        super().__init__(*before, VEXAL, kind, "{port}", "--dir", folder, *options, port=port, **more)
        self.kind, self.folder = kind, folder

    def __enter__(self):
        super().__enter__()
        self.before = self.state()
        return self

    def __exit__(self, *_):
        super().__exit__()
        check(self.process.returncode in (0, -signal.SIGKILL), "vexal %s ended with %s: %s" % (self.kind, self.process.returncode, self.text[-500:]))

    def state(self):
        """How many descriptors, threads and sockets it has; the library opens its log, here nowhere, with the first error."""
        base = "/proc/%d/" % self.process.pid
        try:
            files = [os.readlink(base + "fd/" + name) for name in os.listdir(base + "fd")]
            return (len([name for name in files if name != "/dev/null"]), len(os.listdir(base + "task")),
                    sum(name.startswith("socket:") for name in files))
        except OSError:
            return -1, -1, -1

    def peak(self):
        """The most memory that it had."""
        lines = read("/proc/%d/status" % self.process.pid).decode().splitlines()
        return next(int(line.split()[1]) * 1024 for line in lines if line.startswith("VmHWM"))

    def settle(self, title, seconds=8):
        end = time.monotonic() + seconds * (5 if SANITIZED else 1)
        while not self.settled() and time.monotonic() < end:
            time.sleep(0.05)
        check(self.process.poll() is None, title + ": the server has ended")
        check(self.settled(), "%s: descriptors, threads and sockets were %s, are %s" % (title, self.before, self.state()))

    def settled(self):
        """As at the start; the database keeps descriptors of its file for the next query."""
        files, threads, sockets = self.state()
        threads -= SANITIZED and threads > self.before[1]  # one of its own
        more = files > self.before[0] and self.kind == "serve" and sockets == self.before[2]
        return (files == self.before[0] or more) and threads == self.before[1]


@contextlib.contextmanager
def small_disk(folder, size):
    """A file system of its own, for the length of a with block."""
    mount = os.path.join(folder, "small")
    os.mkdir(mount)
    if os.geteuid() != 0 or run("mount", "-t", "tmpfs", "-o", "size=" + size, "none", mount).returncode != 0:
        raise LeftOut("a small disk, for want of root or tmpfs")
    try:
        yield mount
    finally:
        run("umount", mount)
