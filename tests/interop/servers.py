#!/usr/bin/env python3
"""vexal receive and serve under load, and what they do with objects, with rights and with their index.

usage: servers.py VEXAL [PART...]
Objects of one name, of unknown classes, from peers that may not; an index that is damaged, broken or held by others; long
queries, many clients at once; reports on storage over associations of their own.
"""
import base64
import contextlib
import json
import os
import re
import signal
import socket
import sqlite3
import ssl
import struct
import sys
import threading
import time
from xml.etree import ElementTree

from checks import SANITIZED, VEXAL, Vexal, check, files_under, free_port, has, paths, read, run, run_parts, vexal, write
from made import EXPLICIT, IMPLICIT, ROOT, element, meta
from wire import (ABORT, CANCEL, COMMITMENT, CT, KINDS, MR, RELEASE, STUDY, STUDY_FIND, VERIFICATION, WITH_FIND, Liar, Peer, answer_to,
                  at_once, command, contexts_of, data_set, find_message, image_find, image_query, make_files, message,
                  provider_of, request, store_message, store_status, stored_objects, uid, user_information)

# ---- Objects ----


def duplicates(folder):
    """The same SOP Instance UID with other content, in another study, at once; requests that do not name their object."""
    first, second = data_set(uid(1)), data_set(uid(1), b"\4\3\2\1" * 64)
    elsewhere = first.replace(b"1.2.3.9", b"1.2.3.8")
    for word, status, noted in (("refuse", 0x0111, "refused"), ("keep", 0xB006, "kept"), ("replace", 0, "replaced")):
        for kind, others_of_it in (("receive", [second]), ("serve", [second, elsewhere])):
            title, out, journal = kind + " --duplicates " + word, os.path.join(folder, kind + word), os.path.join(folder, kind + word + ".txt")
            with Vexal(kind, out, "--duplicates", word, "--journal", journal) as server:
                check([store_status(server.port, uid(1), first) for _ in range(2)] == [0, 0], title + ": a repeat is not taken")
                for other in others_of_it:
                    check(store_status(server.port, uid(1), other) == status, title + ": other status for other content")
                    check(stored_objects(out) == ({uid(1): other if word == "replace" else first}, []), title + ": other objects lie there")
                    check(kind == "receive" or image_find(server.port, uid(1)) == 1, title + ": the object is not found")
            with Vexal(kind, out, "--duplicates", word) as server:
                check(kind == "receive" or image_find(server.port, uid(1)) == 1, title + ": the object is not found after a restart")
            lines = [line.split("\t") for line in read(journal).decode().splitlines()]
            check([line[1:4] for line in lines] == [["PEER", "127.0.0.1", what] for what in ["stored", "repeated"] + [noted] * len(others_of_it)],
                  title + ": journal %s" % lines)
    for kind in KINDS:
        with Vexal(kind, os.path.join(folder, kind + " at once"), "--mode", "0600") as server:
            made = [data_set(uid(1), bytes([n]) * 256) for n in range(16)]
            statuses = at_once([lambda body=body: store_status(server.port, uid(1), body) for body in made])
            check(sorted(statuses, key=str) == [0] + [0x0111] * (len(made) - 1), "%s, at once: %s" % (kind, statuses))
            check(stored_objects(server.folder)[0] == {uid(1): made[statuses.index(0)]}, kind + ", at once: not the one that was acknowledged")
            # Request and data set disagree; the class of another object; no data set; a name that is an option.
            for title, instance, body, status in (("another instance", uid(2), first, 0xA900),
                                                  ("another class", uid(3), data_set(uid(3)).replace(CT.encode(), MR.encode()), 0xA900),
                                                  ("no data set", uid(5), b"no data set at all", 0xC000), ("a hyphen", "-1.2.3", None, 0x0117)):
                check(store_status(server.port, instance, body) == status, "%s, %s: another status" % (kind, title))
            found, others = stored_objects(server.folder)
            check(set(found) == {uid(1)} and not others, kind + ": what disagrees was stored")
            modes = {os.stat(path).st_mode & 0o777 for path in files_under(server.folder) if path.endswith((".dcm", "index.sqlite"))}
            check(modes == {0o600}, "%s --mode 0600: files are %s" % (kind, [oct(mode) for mode in modes]))
    # A folder that is a link is not followed, and what lies there in the place of a file is not replaced.
    out, elsewhere = os.path.join(folder, "links"), os.path.join(folder, "elsewhere")
    os.makedirs(out)
    os.mkdir(elsewhere)
    os.symlink(elsewhere, os.path.join(out, STUDY))
    with Vexal("serve", out) as server:
        check(store_status(server.port, uid(1)) == 0xA700 and not os.listdir(elsewhere), "serve: a folder that is a link is followed")
        check(image_find(server.port, uid(1)) == 0, "serve: what was not stored is found")


def unknown_objects(folder):
    """receive --any takes classes and syntaxes that this release does not know, byte for byte; store sends them as they are."""
    later, video, worklist = "1.2.840.10008.1.2.4.999", "1.2.840.10008.1.2.4.102", "1.2.840.10008.5.1.4.31"
    fragments = struct.pack("<HH2sHI", 0x7FE0, 0x10, b"OB", 0, 0xFFFFFFFF) + b"".join(
        struct.pack("<HHI", 0xFFFE, 0xE000, len(part)) + part for part in (b"", b"\1\2\3\4" * 9000)) + struct.pack("<HHI", 0xFFFE, 0xE0DD, 0)
    private = "1.3.6.1.4.1.9999.1.%d"
    plain = lambda n, sop_class: data_set(uid(n)).replace(element(0x00080016, "UI", CT), element(0x00080016, "UI", sop_class))
    packed = lambda n, sop_class: plain(n, sop_class)[:-12 - 256] + fragments
    objects = [(sop_class, syntaxes, taken, body if isinstance(body, bytes) else body(n, sop_class)) for n, (sop_class, syntaxes, taken, body) in enumerate((
        (private % 0, (IMPLICIT, EXPLICIT), EXPLICIT, plain), (private % 1, (later,), later, packed),
        (private % 2, (later, EXPLICIT), EXPLICIT, plain), (private % 3, (video,), video, packed),
        (CT, (later,), later, b"no data set, but bytes of odd length"[:-1] + bytes(70001)), (CT, ("1.2.3.99", later), "1.2.3.99", plain),
        ("1.2.840.10008.1.999.1", (later,), later, plain)))]
    rows = [(sop_class, *syntaxes) for sop_class, syntaxes, _, _ in objects]
    asked = request(*rows, *[("1.3.6.1.4.1.9999.2.%d" % n, "1.3.6.1.4.1.9999.3.%d" % n) for n in range(126 - len(rows))], (worklist, IMPLICIT))
    with Vexal("receive", os.path.join(folder, "plain")) as server, Peer(server.port, asked) as peer:
        check(peer.answer[0] == 3, "receive takes what it does not know: %s" % contexts_of(peer.answer))
    out, again = os.path.join(folder, "any"), os.path.join(folder, "again")
    with Vexal("receive", out, "--any", "--tree", "--to", "explicit", "--journal", os.path.join(folder, "journal")) as server:
        with Peer(server.port, asked) as peer:
            answer = contexts_of(peer.answer)
            check([result for _, result, _ in answer] == [0] * 126 + [3], "receive --any: results %s" % answer)
            check([syntax for _, _, syntax in answer[:len(objects)]] == [row[2] for row in objects], "receive --any: syntaxes %s" % answer)
            for n, (sop_class, _, _, body) in enumerate(objects):
                for sent, status in ((body, 0), (body, 0), (body.replace(b"Doe^John", b"Doe^Jane") + b"  ", 0x0111)):
                    got = peer.status(store_message(uid(n), sent, sop_class, 2 * n + 1))
                    check(got == status, "receive --any, object %d: status %s, not %s" % (n, got, status))
        server.settle("receive --any")
    wanted = {uid(n): body for n, (_, _, _, body) in enumerate(objects)}
    check(stored_objects(out) == (wanted, []), "receive --any: other objects")
    with Vexal("receive", again, "--any") as server:
        vexal("store", "127.0.0.1", server.port, out, "--window", 3, title="store of what is unknown")
    check(stored_objects(again) == (wanted, []), "store of what is unknown: other objects arrived")
    for n, path in enumerate(sorted(files_under(out), key=os.path.basename)):
        head, begin = meta(objects[n][0], uid(n), objects[n][2]), read(path)[:400]
        check(head[156:head.index(element(0x00020012, "UI", ROOT + ".1"))] in begin, "receive --any: the meta group of object %d is %s" % (n, begin[132:]))


def rules(folder):
    """Who may do what: by title, by address, for verification too; titles that are none."""
    def outcome(port, asked, source="127.0.0.1"):
        try:
            with Peer(port, asked, source) as peer:
                return peer.answer[0]
        except OSError:
            return None

    objects = lambda **titles: request((CT, EXPLICIT), (MR, IMPLICIT), **titles)
    verification = lambda **titles: request((VERIFICATION, IMPLICIT), **titles)
    for kind in KINDS:
        with Vexal(kind, os.path.join(folder, kind), "--allow", "GOOD", "--allow", "FAR@127.0.0.7=store", "--allow", "@127.0.0.4/31=query",
                   "--timeout", "2") as server:
            for title, asked, source, wanted in (
                    ("a title on the list", objects(calling="GOOD"), "127.0.0.1", 2), ("another title", objects(calling="OTHER"), "127.0.0.1", 3),
                    ("verification alone, on the list", verification(calling="GOOD"), "127.0.0.1", 2),
                    ("verification alone", verification(calling="OTHER"), "127.0.0.1", 3),
                    ("verification for an echo title", verification(calling="OTHER", called="NODE_ECHO"), "127.0.0.1", 3),
                    ("an address on the list", objects(calling="OTHER"), "127.0.0.5", 2),
                    ("an address beside it", objects(calling="OTHER"), "127.0.0.6", 3),
                    ("a title at its address", objects(calling="FAR"), "127.0.0.7", 2),
                    ("a title at another address", objects(calling="FAR"), "127.0.0.1", 3)):
                got = outcome(server.port, asked, source)
                check(got == wanted, "%s --allow, %s: %s" % (kind, title, got))
            with Peer(server.port, request((CT, EXPLICIT), (STUDY_FIND, IMPLICIT), calling="OTHER"), "127.0.0.5") as peer:
                check(peer.status(store_message(uid(1))) == 0x0124, kind + ": a peer that may query stores")
                check(kind == "receive" or peer.status(find_message()) == 0, kind + ": a peer that may query does not")
        with Vexal(kind, os.path.join(folder, kind + " titles"), "--timeout", "2") as server:
            for title in ("A\x1b[31mB", "A\nB", "A\x7f", "A\\B"):
                check(outcome(server.port, objects(calling=title)) in (3, 7, None), "%s: the title %r is taken" % (kind, title))
            check(outcome(server.port, objects(calling="A B@C")) == 2, kind + ": a title is not taken")
        line = server.text.splitlines()[0]
        check("notice" in line and "--allow" in line, "%s: no notice that everyone may store: %s" % (kind, line))
    for options in (("--allow", ""), ("--allow", "@nowhere"), ("--allow", "@10.0.0.0/33"), ("--allow", "X=fly"), ("--mode", "9"),
                    ("--mode", "0440"), ("--duplicates", "both"), ("--max-per-address", "0")):
        vexal("receive", free_port(), *options, status=2)


# ---- The index ----


def damaged_index(folder):
    """serve makes an index anew that is damaged; of two files with one instance the same counts at every start."""
    out = os.path.join(folder, "out")
    with Vexal("serve", out) as server:
        for n in range(20):
            store_status(server.port, uid(n))
    index = os.path.join(out, "index.sqlite")
    size = os.path.getsize(index)
    for title, at, content in (("its head", 0, b"no database at all"), ("a page", 4096, bytes(4096)), ("its end", None, b"")):
        with open(index, "r+b") as file:
            file.truncate(size // 2) if at is None else (file.seek(at), file.write(content))
        with Vexal("serve", out) as server:
            found = sum(image_find(server.port, uid(n)) or 0 for n in range(20))
            check(found == 20, "serve, index without %s: %d of 20 found" % (title, found))
    twin = write(os.path.join(out, STUDY, "zz.dcm"), meta(CT, uid(3)) + data_set(uid(3)).replace(b"1.2.3.9", b"1.2.3.8"))
    for _ in range(3):
        with Vexal("serve", out) as server, Peer(server.port, WITH_FIND) as peer:
            check(b"1.2.3.9" in peer.ask(image_query(uid(3))) + peer.ask(b""), "serve: which of two files is found changes")
    check(os.path.exists(twin), "serve: a file was taken away")


def broken_index(folder):
    """An index that breaks while it is used: a query ends with an error, or is whole; what can not be entered is not stored."""
    def overwrite(path, start, size):
        with open(path, "r+b") as file:
            file.seek(start)
            file.write(b"\xAA" * max(0, size - start))

    def query(server):
        with Peer(server.port, WITH_FIND) as peer:
            return peer.statuses(image_query())

    made = [uid(n) for n in range(40)]
    for title, damage in (("pages that are none", overwrite), ("cut to nothing", lambda path, start, size: os.truncate(path, 0))):
        title, out = "serve, index, " + title, os.path.join(folder, title)
        with Vexal("serve", out) as server:
            with Peer(server.port) as peer:
                check({peer.status(store_message(instance)) for instance in made} == {0}, "objects before the damage")
            told = query(server)
            check(told == [0xFF00] * 40 + [0], "%s: %d answers before, the last %s" % (title, len(told), told[-1]))
            for path, start in ((os.path.join(out, "index.sqlite"), 4096), (os.path.join(out, "index.sqlite-wal"), 56)):
                damage(path, start, os.path.getsize(path))
            store_status(server.port, uid(99))  # readers that have pages have to look again
            told = query(server)
            check(told[-1] != 0 or len(told) >= 41, "%s: %d answers, the last %s" % (title, len(told), told[-1]))
            found = stored_objects(out)[0]
            check(store_status(server.port, uid(100)) != 0 or uid(100) in stored_objects(out)[0], title + ": lost")
            check(set(found) >= set(made), title + ": objects were taken away")
        with Vexal("serve", out) as server:
            told = query(server)
            check(len(told) == len(stored_objects(out)[0]) + 1 and told[-1] == 0, "%s, a new start: %d answers" % (title, len(told)))
    # Another program holds it: what is to be entered waits, and is refused; queries go on.
    with Vexal("serve", os.path.join(folder, "held")) as server:
        check(store_status(server.port, uid(1)) == 0, "an object before the lock")
        holder = sqlite3.connect(os.path.join(server.folder, "index.sqlite"), isolation_level=None)
        holder.execute("BEGIN EXCLUSIVE")
        with Peer(server.port, timeout=30) as peer:
            check(peer.status(store_message(uid(2))) == 0xA700, "serve, index held: an object is taken")
        check(image_find(server.port, uid(1)) == 1 and set(stored_objects(server.folder)[0]) == {uid(1)}, "serve, index held: other objects")
        holder.execute("ROLLBACK")
        holder.close()
        check(store_status(server.port, uid(2)) == 0, "serve, index free again: an object is not taken")


# ---- Load ----


def long_query(folder):
    """A query that takes long ends with its peer, with a request to cancel, and with the program; others do not wait for it."""
    slow = find_message((0x00100010, "*" + "a?" * 500 + "b"), (0x0020000D, ""), level="IMAGE")

    def start_slow():
        peer = Peer(server.port, WITH_FIND)
        peer.socket.sendall(slow)
        return peer, time.monotonic()

    with Vexal("serve", folder) as server:
        with Peer(server.port) as peer:
            for n in range(400):
                check(peer.status(store_message(uid(n), data_set(uid(n), name="a" * 1000))) == 0, "a long name")
        for _ in range(2):
            peer, start = start_slow()
            time.sleep(0.2)
            status, took = peer.status(CANCEL), time.monotonic() - start
            check(status == 0xFE00 and took < 2, "serve: a cancelled query ends with %s after %.1f s" % (status, took))
            peer.socket.close()
        peers = [start_slow()[0] for _ in range(20)]
        start = time.monotonic()
        check(store_status(server.port, uid(1000)) == 0 and image_find(server.port, uid(1000)) == 1, "serve: nothing but slow queries")
        check(time.monotonic() - start < 3, "serve: an object and a query waited for slow ones for %.1f s" % (time.monotonic() - start))
        for peer in peers:
            peer.socket.close()
        server.settle("serve, slow queries whose peers are gone", 3)
        peer, start = start_slow()
        server.process.send_signal(signal.SIGTERM)
        server.process.wait(timeout=15)
        check(time.monotonic() - start < 8, "serve: a slow query goes on after SIGTERM for %.1f s" % (time.monotonic() - start))
        peer.socket.close()


def busy(folder):
    """Many clients of one server do everything at once, also with the same objects, and it is told to end in the middle of it."""
    lists, steps, sources = (os.path.join(folder, name) for name in ("lists", "steps", "in"))
    make_files(sources, 6, 2000)
    make_files(lists, 4)
    os.mkdir(steps)
    find = find_message((0x00080018, ""), (0x00100010, "*" + "o?" * 50 + "*"), level="IMAGE")
    with Vexal("receive", os.path.join(folder, "moved"), "--duplicates", "replace") as node, \
            Vexal("serve", os.path.join(folder, "db"), "--worklist", lists, "--steps", steps, "--node", "NODE=127.0.0.1:%d" % node.port,
                  "--max-associations", "12", "--max-per-address", "12", "--timeout", "10") as server:
        over = threading.Event()

        def raw(n):
            instance = uid(n % 8)
            with Peer(server.port, WITH_FIND, timeout=30) as peer:
                peer.status(store_message(instance, data_set(instance, bytes([n % 3]) * 400)))
                peer.socket.sendall(find)
                peer.statuses(CANCEL if n % 2 else b"")
                if n % 5 == 0:
                    peer.socket.sendall(store_message(instance)[:300])  # and goes in the middle of it

        def program(name, *words):
            return lambda n: run(VEXAL, name, "127.0.0.1", server.port, *(str(w).replace("{n}", str(n)).replace("{step}", "1.2.9.%d" % (n % 4))
                                                                          for w in words), "--timeout", 20, "--quiet")

        study = ("--level", "study", "-k", "StudyInstanceUID=" + STUDY)
        works = [raw, raw, raw, program("store", sources, "--associations", 2), program("move", "--to", "NODE", *study),
                 program("get", *study, "--class", CT, "--dir", os.path.join(folder, "got")), program("commit", sources),
                 program("find", "--level", "worklist"), program("mpps", "create", "--uid", "{step}"),
                 program("mpps", "set", "--uid", "{step}", "-k", "StudyID={n}")]
        done = [0] * len(works)

        def work(at):
            while not over.is_set():
                try:
                    works[at](done[at])
                except OSError:  # the server has ended
                    pass
                done[at] += 1

        threads = [threading.Thread(target=work, args=(n,)) for n in range(len(works))]
        for thread in threads:
            thread.start()
        end = time.monotonic() + (20 if SANITIZED else 5)
        while time.monotonic() < end or (min(done) < 3 and time.monotonic() < end + 60):
            time.sleep(0.1)
        server.process.send_signal(signal.SIGTERM)
        try:
            check(server.process.wait(timeout=30) == 0, "serve, busy: ended with %s" % server.process.returncode)
        finally:
            over.set()
            for thread in threads:
                thread.join()
        check(min(done) >= 3 and not stored_objects(server.folder)[1], "serve, busy: %s, left behind %s" % (done, stored_objects(server.folder)[1]))
        print("  %d pieces of work" % sum(done))


# ---- Reports on storage ----


def commitment(transaction, *instances):
    """The data set of a request, and of a report."""
    items = [element(0x00081150, "UI", CT) + element(0x00081155, "UI", instance) for instance in instances]
    items = b"".join(struct.pack("<HHI", 0xFFFE, 0xE000, len(body)) + body for body in items)
    return element(0x00081195, "UI", transaction) + element(0x00081199, "SQ", items)


def second_associations(folder):
    """The report on storage that comes on an association of the archive's own: ours is taken, another's is not acknowledged."""
    make_files(folder, 1)
    one, port, told = os.path.join(folder, uid(0) + ".dcm"), free_port(), []

    def report(transaction):
        event = command(sop_class=COMMITMENT, kind=0x100, id=9, data=1, instance=COMMITMENT + ".1", event=1)
        return message(1, event, commitment(transaction, uid(0)))

    def call_back(transaction):
        with Peer(port, request((COMMITMENT, EXPLICIT), more=user_information(provider_of(COMMITMENT))), timeout=5) as peer:
            told.append(peer.answer[0])
            told.extend(peer.status(report(each)) for each in ("1.2.3.4.5", transaction))
            told.append(peer.ask(RELEASE)[0])

    def reply(context, fields):
        transaction = liar.data[8:8 + int.from_bytes(liar.data[6:8], "little")].strip(b"\0")
        threading.Timer(0.2, call_back, (transaction,)).start()
        return answer_to(context, fields)

    with Liar(reply) as liar:
        vexal("commit", "127.0.0.1", liar.port, "--listen", port, "--wait", 15, one)
        check(told[:1] + told[3:] == [2, 6] and told[1] not in (None, 0) and told[2] == 0, "commit --listen answered %s" % told)
    with Liar(answer_to) as liar:
        vexal("commit", "127.0.0.1", liar.port, "--wait", 1, one, status=3, says="--listen", title="commit without a report")


def reports_to_nodes(folder):
    """serve reports to the node with the caller's title where the association of the request has gone."""
    action = command(of_class=COMMITMENT, kind=0x130, id=1, data=1, of_instance=COMMITMENT + ".1", action=1)
    with Liar(answer_to) as liar, Vexal("serve", folder, "--node", "PEER=127.0.0.1:%d" % liar.port) as server:
        store_status(server.port, uid(0))
        with Peer(server.port, request((COMMITMENT, EXPLICIT))) as peer:
            check(peer.status(message(1, action, commitment("1.2.3.4.5", uid(0), uid(9)))) == 0, "serve: a commitment is not taken")
            peer.socket.sendall(ABORT)
        end = time.monotonic() + 10
        while not liar.aborted and time.monotonic() < end:
            time.sleep(0.05)
        events = [(fields[0x100], fields[0x1002]) for fields in liar.requests]
        check(events == [(b"\0\1", b"\2\0")] and liar.aborted == [False], "serve: the node is told %s, %s" % (events, liar.aborted))
        check(b"1.2.3.4.5" in liar.data and uid(0).encode() in liar.data and element(0x00081197, "US", b"\x12\1")[8:] in liar.data,
              "serve: the report to a node: %s" % liar.data)


def told_later(folder):
    """What a node that is away has to be told waits, over restarts too: reports of commitments, and steps in their order."""
    action = command(of_class=COMMITMENT, kind=0x130, id=1, data=1, of_instance=COMMITMENT + ".1", action=1)
    here, there, objects, theirs = paths(folder, "here", "there", "objects", "theirs")
    os.mkdir(here), os.mkdir(there)
    port, liar_port = free_port(), free_port()
    words = ("--steps", here, "--mpps-to", "THERE", "--node", "THERE=127.0.0.1:%d" % port, "--node", "PEER=127.0.0.1:%d" % liar_port)
    with Vexal("serve", objects, *words) as server:
        peer = ("127.0.0.1", server.port)
        step = vexal("mpps", *peer, "create", "-k", "PatientID=4711", "-k", "PatientName=M\u00fcller").stdout.decode().strip()
        vexal("mpps", *peer, "set", "--uid", step, "-k", "Modality=MR")
        store_status(server.port, uid(0))
        with Peer(server.port, request((COMMITMENT, EXPLICIT))) as one:
            check(one.status(message(1, action, commitment("1.2.3.4.5", uid(0)))) == 0, "a commitment is not taken")
            one.socket.sendall(ABORT)
        time.sleep(0.2)
        server.kill()
    with Vexal("serve", objects, *words) as server, Liar(answer_to, port=liar_port) as liar, Vexal("serve", theirs, "--steps", there, port=port):
        vexal("mpps", "127.0.0.1", server.port, "complete", "--uid", step)
        end, path = time.monotonic() + 25, os.path.join(there, step + ".dcm")
        while time.monotonic() < end and not (os.path.exists(path) and b"COMPLETED" in read(path) and liar.requests):
            time.sleep(0.1)
        check(os.path.exists(path) and read(path) == read(os.path.join(here, step + ".dcm")), "a node has another step than its teller")
        check(b"1.2.3.4.5" in liar.data and [fields[0x1002] for fields in liar.requests] == [b"\1\0"], "a node is told %s" % liar.requests)
    with sqlite3.connect(os.path.join(objects, "outbox.sqlite")) as outbox:
        check(outbox.execute("SELECT count(*) FROM outbox").fetchone() == (0,), "what was told is still there")
    for words, says in ((("--mpps-to", "NOBODY", "--steps", here), "of that title"), (("--mpps-to", "A", "--node", "A=h:1"), "needs --steps")):
        vexal("serve", "1", "--dir", objects, *words, status=2, says=says)


def settings_and_log(folder):
    """Options from the command line before those of the environment before those of a file; lines that are JSON."""
    options, wrong = paths(folder, "options", "wrong")
    write(options, b"# as a unit has them\n\nstrict\r\naet \t FILE\nmax-size 1\nallow NOBODY=store\nallow PEER\n")
    for kind in KINDS:
        name = "VEXAL_%s_" % kind.upper()
        env = dict(os.environ, **{name + "LOG": "json", name + "MAX_SIZE": "2", name + "AET": "ENV", name + "OPTIONS": options})
        with Vexal(kind, os.path.join(folder, kind), "--max-size", "100000", env=env) as server:
            for title, answer in (("ENV", 2), ("FILE", 3)):  # the file's --strict counts, not its --aet
                with Peer(server.port, request((VERIFICATION, EXPLICIT), called=title)) as peer:
                    check(peer.answer[0] == answer, "%s: the title %s: %s" % (kind, title, peer.answer[:1]))
            store = request((CT, EXPLICIT), called="ENV")
            check(store_status(server.port, uid(1), asked=store) == 0, kind + ": --max-size is not that of the command line")
            check(store_status(server.port, uid(1), data_set(uid(1), b"\1" * 64), store) == 0x0111, kind + ": takes other content")
        lines = [json.loads(line) for line in server.text.splitlines()]
        check(any(line.get("peer") == "PEER@127.0.0.1" and int(line["association"]) >= 0 for line in lines), "%s: %s" % (kind, server.text))
        check(all({"time", "level", "source", "message"} <= set(line) for line in lines), kind + ": lines in JSON lack members")
        result = run(VEXAL, kind, "--dir", folder, env=dict(env, **{name + "PORT": "none"}))
        check(result.returncode == 2 and b"none" in result.stderr, "%s: the port of the environment: %s" % (kind, result.stderr))
        for line, words in (("nonsense 1", "wrong:2: unknown option nonsense"), ("max-size", "wrong:2: max-size needs a value"),
                            ("strict maybe", "wrong:2: maybe is neither"), ("config x.ini", "wrong:2: unknown option"), ("log xml", "text or json")):
            write(wrong, b"\n" + line.encode())
            vexal(kind, "1", "--options", wrong, status=2, says=words)


class Repository(threading.Thread):
    """Takes audit messages on a port: of TLS where it has a certificate, of TCP or of UDP."""

    def __init__(self, kind, port, certificate=None):
        super().__init__(daemon=True)
        self.kind, self.certificate, self.lines = kind, certificate, []
        self.socket = socket.socket(type=socket.SOCK_DGRAM if kind == "udp" else socket.SOCK_STREAM)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.socket.bind(("127.0.0.1", port))
        self.start()

    def run(self):
        if self.kind == "udp":
            while True:
                self.lines.append(self.socket.recv(65536))
        self.socket.listen()
        while True:
            connection = self.socket.accept()[0]
            with contextlib.suppress(OSError, ValueError):
                if self.certificate:
                    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
                    context.load_cert_chain(*self.certificate)
                    connection = context.wrap_socket(connection, server_side=True)
                stream = connection.makefile("rb")
                while digits := stream.read(1):
                    while not digits.endswith(b" "):
                        digits += stream.read(1)
                    self.lines.append(stream.read(int(digits)))


def told_in(line):
    """What an audit message says: its event, type, outcome, parties, and studies, patients and classes by ID."""
    head, text = line.split(b"\xEF\xBB\xBF", 1)
    check(head.startswith(b"<85>1 2") and head.split()[5:] == [b"DICOM+RFC3881", b"-"], "audit: a line begins with %s" % head)
    root = ElementTree.fromstring(text)
    event = root.find("EventIdentification")
    codes = [event.find(name) for name in ("EventID", "EventTypeCode")]
    check(event.get("EventDateTime").endswith("Z") and root.find("AuditSourceIdentification").get("AuditSourceID") == "VEXAL", "audit: %s" % text)
    parties = {party.find("RoleIDCode").get("csd-code"): party.get("UserID") for party in root.findall("ActiveParticipant")}
    objects = {item.get("ParticipantObjectID"): {c.get("UID"): int(c.get("NumberOfInstances")) for c in item.iter("SOPClass")}
               for item in root.findall("ParticipantObjectIdentification")}
    queries = [base64.b64decode(query.text) for query in root.iter("ParticipantObjectQuery")]
    return [code.get("csd-code") for code in codes if code is not None], event.get("EventOutcomeIndicator"), parties, objects, queries


def audits(folder):
    """Who did what with whose objects is told to a repository, also to one that comes late."""
    source, target = "110153", "110152"
    key, certificate, path = paths(folder, "key.pem", "cert.pem", "audit.log")
    secure = has("openssl", "TLS")
    if secure:
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=localhost", "-addext",
            "subjectAltName=DNS:localhost", "-keyout", key, "-out", certificate)
    patient = "P<&1>  \xE9"
    body = data_set(uid(1)).replace(element(0x00100020, "LO", "ID"), element(0x00100020, "LO", patient.encode("latin-1")))
    for kind in ("tls", "tcp", "udp", "file") if secure else ("tcp", "udp", "file"):
        port, lines = free_port(), None
        url = "file:" + path if kind == "file" else "%s://%s:%d" % (kind, "localhost" if kind == "tls" else "127.0.0.1", port)
        late = kind in ("tls", "tcp")
        repository = None if late or kind == "file" else Repository(kind, port)
        with Vexal("serve", os.path.join(folder, kind), "--allow", "PEER", "--audit", url, *(("--audit-ca", certificate) if kind == "tls" else ())) as server:
            with Peer(server.port, request((VERIFICATION, EXPLICIT), calling="STRANGER")) as peer:
                check(peer.answer[0] == 3, "audit: a stranger is let in")
            check(store_status(server.port, uid(1), body) == 0, "audit: an object is not taken")
            image_find(server.port, uid(1))
            if kind == "udp":  # too long for a datagram, and in the way of nobody
                image_find(server.port, "\\".join(uid(n) for n in range(5000)))
            vexal("get", "127.0.0.1", server.port, "--aet", "PEER", "-k", "StudyInstanceUID=" + STUDY, "--dir", os.path.join(folder, "got"))
            if late:
                time.sleep(0.3)
                repository = Repository(kind, port, (certificate, key) if kind == "tls" else None)
            lines = repository.lines if repository else []
            end = time.monotonic() + 15
            while repository and len(lines) < 5 and time.monotonic() < end:
                time.sleep(0.05)
        end = time.monotonic() + 5
        while repository and len(lines) < 6 and time.monotonic() < end:
            time.sleep(0.05)
        lines = lines if repository else read(path).splitlines()
        told = sorted((told_in(line) for line in lines), key=lambda row: row[0])
        whose = {STUDY: {CT: 1}, patient.encode("latin-1").decode("utf-8", "replace"): {}}
        check([row[:3] for row in told] == [(["110100", "110120"], "0", {"110150": "VEXAL"}), (["110100", "110121"], "0", {"110150": "VEXAL"}),
                                            (["110104"], "0", {source: "PEER", target: "VEXAL"}), (["110104"], "0", {source: "VEXAL", target: "PEER"}),
                                            (["110112"], "0", {source: "PEER", target: "VEXAL"}),
                                            (["110113", "110126"], "4", {source: "STRANGER", target: "VEXAL"})], "audit by %s: %s" % (kind, told))
        check([row[3] for row in told if row[0] == ["110104"]] == [whose] * 2, "audit by %s: transfers of %s" % (kind, told))
        check([uid(1).encode() in query for row in told for query in row[4]] == [True], "audit by %s: queries %s" % (kind, told))
    for url in ("", "x", "tls://", "tls://a:b", "tcp://h:99999", "udp://[::1", "file:", "file:/nowhere/at/all", "https://h:1", "tls://u@h"):
        vexal("serve", "1", "--dir", folder, "--audit", url, status=2, says="--audit")


sys.exit(run_parts(duplicates, unknown_objects, rules, damaged_index, broken_index, long_query, busy, second_associations, reports_to_nodes,
                   told_later, settings_and_log, audits,
                   chosen=sys.argv[2:]))
