#!/usr/bin/env python3
"""Objects of vexal serve in a bucket of S3-compatible storage and in a folder, with many servers on one, and bad luck between them.

usage: stores.py VEXAL [PART...]
The storage is s3rver, which npm brings into the build folder; what needs it is left out without npm. Checked are what becomes
of objects that are refused, cut off, held up or too large for memory, and what vexal archive makes of what is left.
"""
import contextlib
import hashlib
import hmac
import http.client
import http.server
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import threading
import time
import urllib.request

from checks import VEXAL, LeftOut, Server, Vexal, check, data_set_of, files_under, free_port, left_out, read, run, run_parts, small_disk, vexal, write
from made import element, meta
from wire import CT, MEBI, STUDY, at_once, data_set, image_find, make_files, store_status, stored_objects, uid

SECRET = "S3RVER"  # the only account of this server
ACCOUNT = {"AWS_ACCESS_KEY_ID": SECRET, "AWS_SECRET_ACCESS_KEY": SECRET}
NPM = os.path.join(os.path.dirname(VEXAL), "..", "..", "npm")


def s3rver():
    """The program, which is installed once."""
    program = os.path.join(NPM, "node_modules", ".bin", "s3rver")
    if not os.path.exists(program) and shutil.which("npm"):
        os.makedirs(NPM, exist_ok=True)
        with contextlib.suppress(subprocess.TimeoutExpired):  # a machine on its own
            run("npm", "install", "--prefix", NPM, "--no-audit", "--no-fund", "--fetch-retries=1", "--fetch-timeout=20000", "s3rver@3.7.1",
                timeout=100)
    return os.path.abspath(program) if os.path.exists(program) and shutil.which("node") else None


class Bucket(Server):
    """S3-compatible storage with one bucket, whose files lie in a folder."""

    def __init__(self, folder, port=None):
        program = s3rver()
        if program is None:
            left_out("buckets", "s3rver")
            raise LeftOut("what needs S3-compatible storage")
        self.data = os.path.join(folder, "bucket")
        os.makedirs(self.data, exist_ok=True)
        super().__init__("node", "--openssl-legacy-provider", program, "-s", "-d", self.data, "-a", "127.0.0.1", "-p", "{port}", "--configure-bucket", "objects",
                         port=port)

    def address(self, port=None):
        return "s3://objects/archive?region=eu-1&endpoint=http://127.0.0.1:%d" % (port or self.port)

    def keys(self):
        """Of the objects in it, as a stranger sees them."""
        keys, token = [], ""
        while True:
            with urllib.request.urlopen("http://127.0.0.1:%d/objects?list-type=2%s" % (self.port, token), timeout=10) as answer:
                told = answer.read().decode()
            keys += re.findall("<Key>(.*?)</Key>", told)
            more = re.search("<NextContinuationToken>(.*?)</", told)
            if not more:
                return keys
            token = "&continuation-token=" + urllib.request.quote(more.group(1), safe="")

    def objects(self):
        """Data sets by instance, read from its address."""
        found = {}
        for key in self.keys():
            with urllib.request.urlopen("http://127.0.0.1:%d/objects/%s" % (self.port, key), timeout=30) as answer:
                content = answer.read()
            instance = re.fullmatch(r"archive/.*/([0-9.]+)-[0-9a-f]{16}\.dcm", key).group(1)
            check(instance not in found, "two objects of " + instance)
            found[instance] = content[144 + int.from_bytes(content[140:144], "little"):]
        return found


class Gate(http.server.ThreadingHTTPServer):
    """In front of storage that looks at no signature: requests go on whole, and if theirs is the one of AWS Signature Version 4.

    `loss` is the share of connections that end before a request has gone on, and of those that end before its answer goes back."""

    daemon_threads = True

    def __init__(self, port):
        self.far, self.seen, self.refused, self.loss = port, 0, [], 0.0
        super().__init__(("127.0.0.1", 0), Visitor)
        self.port = self.server_address[1]
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.shutdown()
        self.server_close()


class Visitor(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *_):
        pass

    def handle(self):
        with contextlib.suppress(OSError):
            super().handle()

    def fault(self):
        """What is wrong with the signature; "" if nothing is."""
        told = dict(re.findall(r"(\w+)=([^, ]+)", self.headers.get("Authorization", "")))
        names = told.get("SignedHeaders", "").split(";")
        missing = {"host", "x-amz-content-sha256", "x-amz-date"} - set(names)
        if missing or not told.get("Credential"):
            return "not signed: %s" % missing
        path, _, query = self.path.partition("?")
        plain = lambda text, safe="": urllib.request.quote(urllib.request.unquote(text), safe=safe + "~")
        pairs = sorted("=".join(map(plain, part.partition("=")[::2])) for part in query.split("&")) if query else []
        headers = "".join("%s:%s\n" % (name, " ".join(self.headers.get(name, "").split())) for name in names)
        asked = "\n".join((self.command, plain(path, "/"), "&".join(pairs), headers, told["SignedHeaders"], self.headers["x-amz-content-sha256"]))
        scope = told["Credential"].partition("/")[2]
        text = "\n".join(("AWS4-HMAC-SHA256", self.headers["x-amz-date"], scope, hashlib.sha256(asked.encode()).hexdigest()))
        key = ("AWS4" + SECRET).encode()
        for part in scope.split("/"):
            key = hmac.digest(key, part.encode(), "sha256")
        return "" if hmac.digest(key, text.encode(), "sha256").hex() == told.get("Signature") else "SignatureDoesNotMatch"

    def lost(self):
        self.close_connection = random.random() < self.server.loss
        return self.close_connection

    def pass_on(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        if len(body) < int(self.headers.get("Content-Length", 0)) or self.lost():
            return
        fault = self.fault()
        self.server.seen += 1
        if fault:
            self.server.refused.append((self.command, self.path, fault))
            status, headers, body = 403, [], b"<Error><Code>SignatureDoesNotMatch</Code></Error>"
        else:
            way = http.client.HTTPConnection("127.0.0.1", self.server.far, timeout=30)
            way.request(self.command, self.path, body, {name: value for name, value in self.headers.items() if name != "Expect"})
            answer = way.getresponse()
            status, headers, body = answer.status, answer.getheaders(), answer.read()
        if self.lost():
            return
        self.send_response(status)
        length = str(len(body))
        for name, value in headers:
            if name.lower() == "content-length":
                length = value
            elif name.lower() in ("etag", "content-type"):
                self.send_header(name, value)
        self.send_header("Content-Length", length)
        self.end_headers()
        self.wfile.write(body)

    do_GET = do_HEAD = do_PUT = do_POST = do_DELETE = pass_on


def serve(folder, address, *options, env=ACCOUNT, **more):
    return Vexal("serve", folder, "--store", address, *options, env={**os.environ, **env}, **more)


def archive(*words, status=0, **more):
    """vexal archive with --json; its lines."""
    result = vexal("archive", *words, "--json", status=status, env={**os.environ, **ACCOUNT}, timeout=300, **more)
    return [json.loads(line) for line in result.stdout.splitlines()]


def outcomes(text):
    """Instances that vexal store --json tells as stored."""
    lines = [json.loads(line) for line in text.splitlines() if line.startswith(b'{"file"')]
    return {line["instance"] for line in lines if line["stored"]}


def sent(port, sources, *more):
    """Instances that vexal store tells as stored."""
    result = run(VEXAL, "store", "127.0.0.1", port, "--json", "--quiet", "--retries", 0, *more, sources, timeout=300)
    return outcomes(result.stdout)


def got(port, folder):
    """Data sets by instance that vexal get brings."""
    shutil.rmtree(folder, True)
    run(VEXAL, "get", "127.0.0.1", port, "--level", "study", "-k", "StudyInstanceUID=" + STUDY, "--dir", folder, timeout=300)
    return stored_objects(folder)[0]


# ---- Storage that works ----


def round_trip(folder):
    """In and out, again, other content; what is vouched for; after a restart; an object that somebody takes away."""
    first, second = data_set(uid(1)), data_set(uid(1), b"\4\3\2\1" * 64)
    sources, work = os.path.join(folder, "in"), os.path.join(folder, "work")
    made = make_files(sources, 30, 5000, 10)
    with Bucket(folder) as bucket, Gate(bucket.port) as gate:
        address = bucket.address(gate.port)
        for word, status in (("refuse", 0x0111), ("keep", 0xB006), ("replace", 0)):
            with serve(work + word, address, "--duplicates", word) as server:
                check([store_status(server.port, uid(1), body) for body in (first, first, second)] == [0, 0, status], word + ": other statuses")
                check(bucket.objects() == {uid(1): second if word == "replace" else first}, word + ": other objects lie there")
                check(got(server.port, os.path.join(folder, "out")) == bucket.objects(), word + ": other objects come back")
                server.settle(word)
            archive("delete", "--dir", work + word, "--store", address, "-k", "StudyInstanceUID=" + STUDY, "--yes")
            check(bucket.keys() == [], word + ": not deleted")
        with serve(work, address) as server:
            check(sent(server.port, sources, "--associations", 4) == set(made), "objects are not stored")
        with serve(work, address) as server:
            check(bucket.objects() == made and got(server.port, os.path.join(folder, "out")) == made, "after a restart: other objects")
            vexal("commit", "127.0.0.1", server.port, sources)
            lost = next(key for key in bucket.keys() if uid(12) in key)
            urllib.request.urlopen(urllib.request.Request("http://127.0.0.1:%d/objects/%s" % (bucket.port, lost), method="DELETE"))
            vexal("commit", "127.0.0.1", server.port, sources, status=1)
            check(set(got(server.port, os.path.join(folder, "out"))) == set(made) - {uid(12)}, "an object that has gone does not fail alone")
            check(store_status(server.port, uid(12), made[uid(12)]) == 0 and bucket.objects() == made, "it can not be stored again")
        check(not [name for name in os.listdir(work) if not name.startswith("index.sqlite")], "files are left: %s" % os.listdir(work))
        check(gate.seen > 100 and not gate.refused, "%d requests, signatures that are none: %s" % (gate.seen, gate.refused[:3]))


def refusals(folder):
    """Addresses and accounts that are none: a line and an exit status, and never the secret."""
    os.mkdir(os.path.join(folder, "work"))
    with Bucket(folder) as bucket, Gate(bucket.port) as gate:
        address = bucket.address(gate.port)
        for says, words, account in (("give s3://", "http://localhost", ACCOUNT), ("NoSuchBucket", address.replace("objects", "others"), ACCOUNT),
                                     ("endpoint", "s3://objects?endpoint=http://u:sesame@h", ACCOUNT),
                                     ("SignatureDoesNotMatch", address, {"AWS_ACCESS_KEY_ID": "me", "AWS_SECRET_ACCESS_KEY": "sesame"}),
                                     ("SignatureDoesNotMatch", address, {**ACCOUNT, "AWS_SECRET_ACCESS_KEY": "sesame"}),
                                     ("no credentials", address, {"HOME": folder})):
            environment = {name: value for name, value in os.environ.items() if not name.startswith("AWS_")} | account
            result = vexal("archive", "usage", "--dir", os.path.join(folder, "work"), "--store", words, env=environment, status=2, says=says)
            check(b"sesame" not in result.stderr + result.stdout, "the secret is shown: %s" % result.stderr)


def large_objects(folder):
    """300 MB through memory that is much smaller, in parts."""
    source, size = os.path.join(folder, "in", "large.dcm"), 300 * MEBI
    write(source, meta(CT, uid(1)) + data_set(uid(1), b"")[:-4] + size.to_bytes(4, "little"))
    with open(source, "ab") as file:
        for _ in range(300):
            file.write(random.randbytes(1024) * 1024)
    with Bucket(folder) as bucket, serve(os.path.join(folder, "work"), bucket.address()) as server:
        start = time.monotonic()
        check(sent(server.port, source, "--timeout", 120) == {uid(1)}, "300 MB are not stored")
        middle = time.monotonic()
        out = os.path.join(folder, "out")
        vexal("get", "127.0.0.1", server.port, "--level", "study", "-k", "StudyInstanceUID=" + STUDY, "--dir", out, "--timeout", 120)
        check(data_set_of(files_under(out)[0]) == data_set_of(source), "300 MB come back with other content")
        print("  300 MB: in %.1f s, out %.1f s, memory %.1f MiB" % (middle - start, time.monotonic() - middle, server.peak() / MEBI))
        check(server.peak() < 64 * MEBI, "300 MB take %d MiB of memory" % (server.peak() // MEBI))


# ---- Bad luck ----


def bad_luck(folder):
    """Storage that stops in the middle, hangs, or has no room; the folder of what is on its way has none."""
    sources, work = os.path.join(folder, "in"), os.path.join(folder, "work")
    made = make_files(sources, 60, 200000)
    with Bucket(folder) as bucket, Gate(bucket.port) as gate:
        address = bucket.address(gate.port)
        for kind in ("cut", "paused"):
            with serve(work + kind, address) as server:
                gate.loss = 0.15 if kind == "cut" else 0.0
                store = subprocess.Popen([VEXAL, "store", "127.0.0.1", str(server.port), "--json", "--quiet", "--retries", "0", "--associations", "4",
                                          "--timeout", "100", sources], stdout=subprocess.PIPE)
                if kind == "paused":
                    while len(files_under(bucket.data)) < 20 and store.poll() is None:
                        time.sleep(0.01)
                    bucket.process.send_signal(signal.SIGSTOP)
                    time.sleep(4)
                    bucket.process.send_signal(signal.SIGCONT)
                done = outcomes(store.communicate(timeout=200)[0])
                gate.loss = 0.0
                check(len(done) >= len(made) * (0.9 if kind == "cut" else 1), "%s: %d of %d objects are stored" % (kind, len(done), len(made)))
                found = got(server.port, os.path.join(folder, "out"))
                check({name: found.get(name) for name in done} == {name: made[name] for name in done}, kind + ": what was acknowledged is not there")
                archive("check", "--dir", server.folder, "--store", address, "--grace", 0, "--repair", "--deep")
                check(bucket.objects() == got(server.port, os.path.join(folder, "out")), kind + ": other objects lie there")
            archive("delete", "--dir", server.folder, "--store", address, "-k", "StudyInstanceUID=" + STUDY, "--yes")
    with Bucket(folder) as bucket, small_disk(folder, "4m") as mount, serve(os.path.join(mount, "work"), bucket.address()) as server:
        large = data_set(uid(999), bytes(6 * MEBI))
        check([store_status(server.port, uid(998)), store_status(server.port, uid(999), large)] == [0, 0xA700], "no room on the way: other statuses")
        check(set(bucket.objects()) == {uid(998)}, "no room on the way: other objects lie there")


def kills(folder):
    """kill -9 of servers under load: what was acknowledged is there, and vexal archive mends the rest."""
    sources = os.path.join(folder, "in")
    made = make_files(sources, 200, 60000)
    with Bucket(folder) as bucket, Gate(bucket.port) as gate:
        for place in ("bucket", "folder"):
            work, done, port = os.path.join(folder, place), set(), free_port()
            store_options = ["--store", bucket.address(gate.port)] if place == "bucket" else []
            for _ in range(4):
                with Vexal("serve", work, *store_options, port=port, env={**os.environ, **ACCOUNT}) as server:
                    store = subprocess.Popen([VEXAL, "store", "127.0.0.1", str(port), "--json", "--quiet", "--retries", "0", "--associations", "4",
                                              sources], stdout=subprocess.PIPE)
                    time.sleep(random.uniform(0.1, 0.8))
                    server.kill()
                    done |= outcomes(store.communicate(timeout=60)[0])
            archive("check", "--dir", work, *store_options, "--grace", 0, "--repair", "--deep")
            check(archive("check", "--dir", work, *store_options, "--grace", 0) == [], place + ": a repaired archive has findings")
            with Vexal("serve", work, *store_options, env={**os.environ, **ACCOUNT}) as server:
                found = got(server.port, os.path.join(folder, "out"))
                check(done <= set(found) and all(made[name] == body for name, body in found.items()), place + ": %d of %d are lost" % (len(done - set(found)), len(done)))
            there = bucket.objects() if place == "bucket" else stored_objects(work)[0]
            check(there == found, place + ": other objects lie there than are found")
            print("  %s: %d objects acknowledged and there" % (place, len(done)))


def many_servers(folder):
    """Three on one folder, and on one bucket: the same objects to all at once, then others of one instance."""
    sources = os.path.join(folder, "in")
    made = make_files(sources, 60, 3000)
    with Bucket(folder) as bucket:
        for place in ("folder", "bucket"):
            work, options = os.path.join(folder, place), ["--store", bucket.address()] if place == "bucket" else []
            held = dict(made)
            with contextlib.ExitStack() as stack:
                servers = [stack.enter_context(Vexal("serve", work, *options, env={**os.environ, **ACCOUNT})) for _ in range(3)]
                stored = at_once([lambda server=server: sent(server.port, sources, "--associations", 2) for server in servers])
                check(stored == [set(made)] * 3, "%s: stored are %s" % (place, [len(names) for names in stored]))
                for n in range(500, 515):
                    bodies = [data_set(uid(n), bytes([i]) * 256) for i in range(3)]
                    statuses = at_once([lambda server=server, body=body: store_status(server.port, uid(n), body)
                                        for server, body in zip(servers, bodies)])
                    if check(sorted(statuses, key=str) == [0, 0x0111, 0x0111], "%s: statuses %s" % (place, statuses)):
                        held[uid(n)] = bodies[statuses.index(0)]
                for server in servers:
                    check(got(server.port, os.path.join(folder, "out")) == held, place + ": other objects are found")
            check(archive("check", "--dir", work, *options, "--grace", 0, "--deep") == [], place + ": not in order")


def with_numbers(body):
    """With what a DICOMDIR wants to know."""
    date, series = element(0x00080020, "DA", "20240101"), element(0x0020000E, "UI", STUDY + ".1")
    body = body.replace(date, date + element(0x00080030, "TM", "120000"))
    return body.replace(series, series + element(0x00200010, "SH", "1") + element(0x00200011, "IS", "1") + element(0x00200013, "IS", "1"))


def upkeep(folder):
    """What vexal archive finds and mends; moves that are broken off; export, delete, usage and quotas."""
    sources, work, bucket_folder = (os.path.join(folder, name) for name in ("in", "work", "s3"))
    made = {instance: with_numbers(body) for instance, body in make_files(sources, 20, 3000).items()}
    for instance, body in made.items():
        write(os.path.join(sources, instance + ".dcm"), meta(CT, instance) + body)
    with Vexal("serve", work) as server:
        check(sent(server.port, sources) == set(made), "objects are not stored")
    path = lambda n, end="": os.path.join(work, STUDY, STUDY + ".1", uid(n) + end + ".dcm")
    os.unlink(path(0))
    write(path(1), read(path(1)) + element(0xFFFCFFFC, "OB", b"\0\0"))
    write(path(2), read(path(2))[:300])
    shutil.copy(path(3), path(3, "-copy"))
    write(path(4, "-other"), read(path(4))[:-2] + b"zz")
    write(path(5), read(path(6)))
    write(os.path.join(work, "x", "new.dcm"), meta(CT, uid(77)) + with_numbers(data_set(uid(77))))
    write(os.path.join(work, "junk.dcm"), b"no object")
    kinds = ["row without object", "has ", "has ", "damaged: ", "second copy", "other content of an instance", "object without row", "object without row: "]
    before = {name: read(name) for name in files_under(work)}
    young = archive("check", "--dir", work, status=1)
    check(not [line for line in young if line["what"].startswith(("object", "second", "other"))], "check tells of young objects: %s" % young)
    found = archive("check", "--dir", work, "--grace", 0, "--deep", status=1)
    check(sorted(re.sub("[0-9]+ bytes.*|(?<=: ).*", "", line["what"]) for line in found) == sorted(kinds), "check finds %s" % found)
    check(all(read(name) == content for name, content in before.items() if name.endswith(".dcm")), "check changes objects")
    found = archive("check", "--dir", work, "--grace", 0, "--deep", "--repair", status=1)
    check(sorted(line["done"] for line in found) == sorted(["row dropped", "entered anew", "moved aside", "moved aside", "removed", "moved aside",
                                                             "entered", "moved aside"]), "check --repair does %s" % found)
    check(archive("check", "--dir", work, "--grace", 0, "--deep") == [], "a repaired archive has findings")
    check(len(os.listdir(os.path.join(work, "lost+found"))) == 4, "moved aside: %s" % os.listdir(os.path.join(work, "lost+found")))
    held = stored_objects(work)[0]
    held = {name: body for name, body in held.items() if name[:6] == "1.2.3."} | {uid(77): held["new"]}
    usage = archive("usage", "--dir", work, "--by", "modality")
    check([(line["modality"], line["objects"]) for line in usage] == [("CT", str(len(held)))], "usage: %s" % usage)

    with Bucket(folder) as bucket, Gate(bucket.port) as gate:
        address = bucket.address(gate.port)
        # Broken off a few times, it goes on.
        for wait in (0.05, 0.1, 0.2):
            mover = subprocess.Popen([VEXAL, "archive", "move", "--dir", work, "--to-store", address, "--quiet"], env={**os.environ, **ACCOUNT},
                                     stdout=subprocess.DEVNULL)
            time.sleep(wait)
            mover.kill()
            mover.wait()
        moved = archive("move", "--dir", work, "--to-store", address)
        check(int(moved[0]["copied"]) + int(moved[0]["there"]) == len(held), "moved: %s" % moved)
        check(archive("move", "--dir", work, "--to-store", address, "--deep") == [{"copied": "0", "there": str(len(held))}], "moved again")
        os.mkdir(bucket_folder)
        shutil.copy(os.path.join(work, "index.sqlite"), bucket_folder)
        with serve(bucket_folder, address) as server:
            check(got(server.port, os.path.join(folder, "out")) == held, "after the move: other objects come back")
        back = os.path.join(folder, "back")
        archive("move", "--dir", bucket_folder, "--store", address, "--to-store", back)
        check({read(name) for name in files_under(back)} == {read(name) for name in files_under(work) if name.endswith(".dcm")}, "moved back: other objects")
    for more in ([], ["--dicomdir"]):
        out = os.path.join(folder, "export" + "".join(more))
        archive("export", "--dir", work, "-k", "PatientID=ID", "--out", out, *more)
        check(sorted(data_set_of(name) for name in files_under(out) if not name.endswith("DICOMDIR")) == sorted(held.values()), "export: other objects")
    vexal("dir", "check", os.path.join(out, "DICOMDIR"))
    # What lies there with other content stays, and is told.
    out = os.path.join(folder, "export")
    other = files_under(out)[0]
    write(other, read(other)[:-2] + b"!!")
    precious = read(other)
    archive("export", "--dir", work, "-k", "PatientID=ID", "--out", out, status=1)
    check(read(other) == precious and len(files_under(out)) == len(held), "export: takes the place of other content")
    # A folder that is not mounted costs no row.
    places = [os.path.join(work, name) for name in (STUDY, "x")]
    for place in places:
        os.rename(place, place + ".away")
        shutil.move(place + ".away", folder)
    vexal("archive", "check", "--dir", work, "--grace", 0, "--repair", status=2, says="no object lies there at all")
    for place in places:
        shutil.move(os.path.join(folder, os.path.basename(place) + ".away"), place)
    check(archive("check", "--dir", work, "--grace", 0) == [], "rows were dropped")
    vexal("archive", "delete", "--dir", work, "--yes", status=2, says="name the studies")
    for words in (["delete", "-k", "PatientID=ID"], ["quota", "--quota", 1], ["quota", "--keep-days", 30]):
        check([line["study"] for line in archive(*words, "--dir", work)] == [STUDY], "%s: lists other studies" % words)
        check(len([name for name in files_under(work) if name.endswith(".dcm")]) == len(held), "%s: deletes without --yes" % words)
    check(archive("quota", "--quota", 1 << 40, "--keep-days", 100000, "--dir", work, "--yes") == [], "quota: takes what fits")
    archive("quota", "--quota", 1, "--dir", work, "--yes")
    check(not [name for name in files_under(work) if name.endswith(".dcm")] and archive("usage", "--dir", work) == [], "quota: something stays")


sys.exit(run_parts(round_trip, refusals, large_objects, bad_luck, kills, many_servers, upkeep, chosen=sys.argv[2:]))
