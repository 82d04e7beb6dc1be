#!/usr/bin/env python3
"""vexal's network programs and bad luck.

usage: disasters.py VEXAL [PART...]
kill -9 under load, a full disk, a slow, a stuttering and a cut network, a large object: nothing leaves a partial object under a
final name, and what was acknowledged is there. Full disks need root, and are left out without it. Too little memory, and folders
that can not be read: an exit status and a line for each file, whatever the thread.
"""
import contextlib
import json
import os
import queue
import random
import resource
import socket
import struct
import subprocess
import sys
import threading
import time

import checks
from checks import VEXAL, LeftOut, Vexal, check, files_under, free_port, read, run, run_parts, small_disk, vexal, write
from made import meta
from wire import CT, KINDS, MEBI, STUDY, data_set, element, make_files, store_status, stored_objects, uid



def count_objects(folder):
    return sum(path.endswith(".dcm") for path in files_under(folder))


def outcomes(text):
    """Instances that vexal store --json tells as stored, and a line for each file."""
    lines = [json.loads(line) for line in text.splitlines() if line.startswith(b'{"file"')]
    return {line["instance"] for line in lines if line["stored"]}, lines


def kills(folder):
    """At a random moment: what was acknowledged is there after a new start, and whole."""
    sources = os.path.join(folder, "in")
    made = make_files(sources, 300, 40000)

    def start_store(port, *more):
        return subprocess.Popen([VEXAL, "store", "127.0.0.1", str(port), "--json", "--quiet", "--timeout", "5", *more, sources],
                                stdout=subprocess.PIPE)

    for kind in KINDS:
        out, stored, interrupted, port, rounds = os.path.join(folder, kind), set(), 0, free_port(), 5
        for _ in range(rounds):
            with Vexal(kind, out, port=port) as server:
                store = start_store(port, "--associations", "4", "--window", "4", "--retries", "0")
                # As soon as some more objects lie there: a moment in the middle, however fast the machine is.
                enough = count_objects(out) + random.randrange(1, 40)
                while count_objects(out) < enough and store.poll() is None:
                    time.sleep(0.001)
                server.kill()
                start = time.monotonic()
                done, lines = outcomes(store.communicate(timeout=60)[0])
                check(store.returncode in (0, 1, 3), "%s killed: store ends with %s" % (kind, store.returncode))
                check(time.monotonic() - start < 15, "%s killed: store goes on for %.1f s" % (kind, time.monotonic() - start))
                check(len(lines) == len(made), "%s killed: store tells of %d files" % (kind, len(lines)))
                stored |= done
                interrupted += 0 < len(done) < len(made)
        with Vexal(kind, out, port=port):
            found = stored_objects(out)[0]
            check(stored <= set(found), "%s killed: %d acknowledged objects are lost" % (kind, len(stored - set(found))))
            broken = [name for name, body in found.items() if body != made.get(name)]
            check(not broken, "%s killed: partial objects under final names: %s" % (kind, broken[:3]))
            if kind == "serve":
                result = run(VEXAL, "find", "127.0.0.1", port, "--level", "image", "-k", "StudyInstanceUID=" + STUDY, "--json")
                listed = {json.loads(line)["SOPInstanceUID"] for line in result.stdout.splitlines()}
                check(stored <= listed, "serve killed: %d acknowledged objects are not in the index" % len(stored - listed))
        check(interrupted, kind + " killed: never in the middle")
        print("  %s: %d kills, %d in the middle, %d objects acknowledged and there" % (kind, rounds, interrupted, len(stored)))
    # The receiver comes back: what failed is tried again.
    out, port = os.path.join(folder, "again"), free_port()
    with Vexal("receive", out, port=port) as server:
        store = start_store(port, "--associations", "2", "--retries", "5")
        while count_objects(out) < 20 and store.poll() is None:
            time.sleep(0.01)
        server.kill()
        with Vexal("receive", out, port=port):
            done, _ = outcomes(store.communicate(timeout=60)[0])
            check(store.returncode == 0 and done == set(made), "store after a restart of the receiver: ends with %s, %d of %d stored" %
                  (store.returncode, len(done), len(made)))
            check(stored_objects(out)[0] == made, "store after a restart of the receiver: other objects arrived")


# ---- Disks ----


def full_disk(folder):
    sources, late = os.path.join(folder, "in"), os.path.join(folder, "late")
    made = make_files(sources, 1, 1000, 0) | make_files(sources, 1, 3 * MEBI, 1) | make_files(sources, 1, 1000, 2)
    more = make_files(late, 2, 9000, 10)
    with small_disk(folder, "2m") as mount:
        for kind in KINDS:
            with Vexal(kind, os.path.join(mount, kind)) as server:
                def store(place):
                    result = run(VEXAL, "store", "127.0.0.1", server.port, "--json", "--quiet", "--retries", 0, place)
                    return {line["instance"]: line.get("status") for line in outcomes(result.stdout)[1]}

                states, held = store(sources), ({uid(n): made[uid(n)] for n in (0, 2)}, [])
                check(states == {uid(0): 0, uid(1): 0xA700, uid(2): 0}, "%s, full disk: %s" % (kind, states))
                check(stored_objects(server.folder) == held, "%s, full disk: left behind" % kind)
                # No block is left: not one object, nor a line of the index, fits.
                filler = os.path.join(mount, "filler")
                with open(filler, "wb", buffering=0) as file, contextlib.suppress(OSError):
                    while file.write(bytes(4096)):
                        pass
                states = store(late)
                check(set(states.values()) == {0xA700}, "%s, no block left: %s" % (kind, states))
                check(stored_objects(server.folder) == held, "%s, no block left: left behind" % kind)
                os.unlink(filler)
                check(set(store(late).values()) == {0}, kind + ": room again, and nothing is stored")
                check(stored_objects(server.folder)[0] == held[0] | more, kind + ": room again, other objects")
                server.settle(kind + ", full disk")
            run("rm", "-r", server.folder)


def reserve(folder):
    """An object is refused before the disk is full: at its start, or on the way."""
    for kind in KINDS:
        out = os.path.join(folder, kind)
        with Vexal(kind, out, "--reserve", 1 << 58) as server:
            check(store_status(server.port, uid(1)) == 0xA700 and stored_objects(out) == ({}, []), kind + " --reserve: an object is taken")
        with Vexal(kind, out, "--reserve", "0") as server:
            check(store_status(server.port, uid(1)) == 0, kind + " --reserve 0: an object is refused")
    with small_disk(folder, "64m") as mount, Vexal("receive", mount, "--reserve", 24 * MEBI) as server:
        large = data_set(uid(2), b"")[:-4] + struct.pack("<I", 56 * MEBI) + bytes(56 * MEBI)
        for n, body, status in ((1, None, 0), (2, large, 0xA700), (3, None, 0)):
            check(store_status(server.port, uid(n), body) == status, "receive --reserve, object %d: another status" % n)
        found, others = stored_objects(mount)
        check(set(found) == {uid(1), uid(3)} and not others, "receive --reserve: left behind")


def large_object(folder):
    source, size = os.path.join(folder, "large.dcm"), 1 << 30
    write(source, meta(CT, uid(1)) + data_set(uid(1), b"")[:-4] + struct.pack("<I", size))
    os.truncate(source, os.path.getsize(source) + size)
    with Vexal("receive", os.path.join(folder, "out")) as server:
        start = time.monotonic()
        vexal("store", "127.0.0.1", server.port, "--quiet", source, title="an object of 1 GiB")
        check(server.peak() < 64 * MEBI, "an object of 1 GiB takes %d MiB of memory" % (server.peak() // MEBI))
        path = os.path.join(server.folder, uid(1) + ".dcm")
        check(os.path.exists(path) and os.path.getsize(path) > size, "an object of 1 GiB did not arrive")
        print("  1 GiB in %.1f s, memory %.1f MiB" % (time.monotonic() - start, server.peak() / MEBI))
        os.unlink(path)


# ---- Networks ----


class Wire:
    """A long cable to a port of this machine: all takes its time on the way, now and then more, and it can be cut."""

    def __init__(self, port, delay):
        self.far, self.delay, self.stutter, self.whole = port, delay, 0.0, True
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.start(self.accept)

    @staticmethod
    def start(call, *arguments):
        threading.Thread(target=call, args=arguments, daemon=True).start()

    def accept(self):
        with contextlib.suppress(OSError):
            while True:
                ends = self.listener.accept()[0], socket.create_connection(("127.0.0.1", self.far))
                for one, other in (ends, ends[::-1]):
                    one.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                    way = queue.Queue()
                    self.start(self.take, one, way)
                    self.start(self.give, way, other)

    def take(self, end, way):
        block = True
        while block and self.whole:
            try:
                block = end.recv(65536)
            except OSError:
                block = b""
            late = 10 * self.delay if random.random() < self.stutter else 0
            way.put((time.monotonic() + self.delay + late, block))

    def give(self, way, end):
        block = True
        while block:
            due, block = way.get()
            time.sleep(max(0, due - time.monotonic()))
            with contextlib.suppress(OSError):
                if self.whole:
                    end.sendall(block) if block else end.shutdown(socket.SHUT_WR)


def networks(folder):
    sources, stuttered = os.path.join(folder, "in"), os.path.join(folder, "stuttered")
    made = make_files(sources, 300, 2000)
    more = make_files(stuttered, 20, 50000, 1000)
    with Vexal("receive", os.path.join(folder, "out"), "--timeout", "2", "--idle", "4") as server:
        wire = Wire(server.port, 0.01)
        store = (VEXAL, "store", "127.0.0.1", wire.port, "--json", "--quiet", "--retries", "0", "--timeout", "2")
        ratio, seconds = 0, {}
        for window in (1, 16, 16, 16):  # a busy machine gets another try
            if ratio >= 10:
                break
            result = run(*store, "--window", window, sources)
            check(result.returncode == 0, "20 ms: ends with %d" % result.returncode)
            seconds[window] = json.loads(result.stdout.splitlines()[-1])["seconds"]
            ratio = seconds[1] / seconds[window]
        check(ratio >= 10, "20 ms: a window of 16 is only %.1f times as fast" % ratio)
        check(stored_objects(server.folder)[0] == made, "20 ms: other objects arrived")
        print("  20 ms: %d objects in %.2f s, with a window of 16 in %.2f s: %.1f times" % (len(made), seconds[1], seconds[16], ratio))
        wire.stutter = 0.05
        result = run(*store, "--window", 4, "--timeout", 20, stuttered)
        check(result.returncode == 0, "a wire that stutters: ends with %d" % result.returncode)
        check(stored_objects(server.folder)[0] == made | more, "a wire that stutters: other objects arrived")
        wire.stutter = 0.0
        # The cable is cut while objects go over it: both sides end by themselves.
        process = subprocess.Popen([*map(str, store), "--window", "4", stuttered, sources], stdout=subprocess.PIPE)
        time.sleep(0.6)
        wire.whole = False
        start = time.monotonic()
        text = process.communicate(timeout=60)[0]
        took = time.monotonic() - start
        check(process.returncode in (1, 3) and len(outcomes(text)[1]) == 320, "cut cable: ends with %s" % process.returncode)
        check(took < 12, "cut cable: store ends after %.1f s" % took)
        server.settle("cut cable", 12)
        check(stored_objects(server.folder) == (made | more, []), "cut cable: left behind %s" % stored_objects(server.folder)[1])
        vexal("echo", "127.0.0.1", server.port, "--timeout", 5, "--quiet", title="behind a cut cable: an echo")
        print("  a cut cable: store ended after %.1f s" % took)
        with socket.socket() as full:  # a queue that takes no more: nothing answers, not even to a connection
            full.bind(("127.0.0.1", 0))
            full.listen(0)
            with socket.create_connection(full.getsockname()):
                for port, what in ((wire.port, "a cut cable"), (full.getsockname()[1], "a full queue")):
                    start = time.monotonic()
                    vexal("echo", "127.0.0.1", port, "--timeout", 2, "--quiet", status=3, title=what + ": an echo")
                    check(time.monotonic() - start < 6, "%s: an echo takes %.1f s" % (what, time.monotonic() - start))


def starved(folder):
    """With less memory than they need, commands that run threads end by themselves, tell why, and leave nothing half done."""
    if checks.SANITIZED:
        raise LeftOut("too little memory, as sanitizers need more")
    source = os.path.join(folder, "in")
    make_files(source, 12, 3 * MEBI)
    paths = files_under(source)
    pixels = random.randbytes(1 << 16) * 128
    frames = b"".join(element(*row) for row in ((0x00080016, "UI", CT), (0x00080018, "UI", uid(0)), (0x00280002, "US", b"\1\0"), (0x00280004, "CS", "MONOCHROME2"),
        (0x00280008, "IS", "128"), (0x00280010, "US", b"\0\1"), (0x00280011, "US", b"\0\1"), (0x00280100, "US", b"\x08\0"), (0x00280101, "US", b"\x08\0"),
        (0x00280102, "US", b"\x07\0"), (0x00280103, "US", b"\0\0"), (0x7FE00010, "OB", pixels)))
    image = write(folder + "/image.dcm", meta(CT, uid(0)) + frames)
    commands = {"dump": (), "json": (), "validate": (), "convert": ("--to", "rle"), "deidentify": ("--secret", "a secret of this test")}

    def outcome(command, words, out, limit):
        os.mkdir(out)
        into = {"convert": (image, out + "/image.dcm"), "deidentify": (*paths, "-o", out)}.get(command, paths)
        result = run(VEXAL, command, "--threads", 4, *words, *into, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))
        return result, {os.path.relpath(path, out): read(path) for path in files_under(out)}

    starts = 0
    for command, words in commands.items():
        whole, whole_files = outcome(command, words, os.path.join(folder, command), resource.RLIM_INFINITY)
        failed = 0
        for number, mebi in enumerate((24, 26, 28, 30, 33, 36, 40, 46, 54, 64, 80, 110)):
            result, files = outcome(command, words, os.path.join(folder, "%s%d" % (command, number)), mebi * MEBI)
            title = "%s within %d MiB" % (command, mebi)
            if b"error while loading shared libraries" in result.stderr:
                continue  # it has not begun
            starts += 1
            failed += result.returncode != whole.returncode
            ended = 0 <= result.returncode <= 2 or b"Fatal glibc error" in result.stderr  # that nobody can catch
            check(ended, "%s: ends with %d: %s" % (title, result.returncode, result.stderr[-300:]))
            check(all(whole_files.get(name) == content for name, content in files.items()), title + ": another file")
            if result.returncode == whole.returncode:
                check((result.stdout, files) == (whole.stdout, whole_files), title + ": says or writes something else")
            else:
                check(result.stderr != whole.stderr, title + ": does not tell why")
        print("  %s: %d of the limits were too low" % (command, failed))
    check(starts > 30, "only %d commands have begun" % starts)


def unreadable(folder):
    """What lies in a folder that may not be looked into is told, and the others are done."""
    nobody = {"user": 65534} if os.geteuid() == 0 else {}
    os.chmod(folder, 0o755)
    if run(VEXAL, "--version", **nobody).returncode != 0:
        raise LeftOut("folders that can not be read, as nobody may run the program")
    write(folder + "/in/a/1.dcm", meta(CT, uid(1)) + data_set(uid(1)))
    write(folder + "/in/b/2.dcm", meta(CT, uid(2)) + data_set(uid(2)))
    write(folder + "/in/c/3.dcm", meta(CT, uid(3)) + data_set(uid(3)))
    os.mkdir(folder + "/out")
    os.chmod(folder + "/out", 0o777)
    os.chmod(folder + "/in/b", 0)
    for number, command in enumerate((("dump",), ("validate",), ("json",), ("deidentify", "-o", folder + "/out"))):
        result = run(VEXAL, *command, folder + "/in", cwd=folder, **nobody)
        check(result.returncode == 2 and b"/in/b: can not be looked into" in result.stderr,
              "%s: ends with %d: %s" % (command[0], result.returncode, result.stderr[-300:]))
    check(len(files_under(folder + "/out")) == 2, "the others are not de-identified: %s" % files_under(folder + "/out"))
    os.chmod(folder + "/in/b", 0o700)


sys.exit(run_parts(starved, unreadable, kills, full_disk, reserve, large_object, networks, chosen=sys.argv[2:]))
