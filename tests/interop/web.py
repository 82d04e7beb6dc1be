#!/usr/bin/env python3
"""vexal web against Orthanc's DICOM web services, and against a server that answers what no server should.

usage: web.py VEXAL FILE       a DICOM file of one small image
The part with Orthanc is left out where it is not installed.
"""
import base64
import http.server
import json
import os
import re
import shutil
import socket
import subprocess
import sys
import threading
import time

from checks import SAMPLES as FILE, VEXAL, check, free_port, left_out, run_parts

PLUGIN = "/usr/share/orthanc/plugins/libOrthancDicomWeb.so"
ORTHANC = shutil.which("Orthanc", path="/usr/sbin:/usr/bin")
with open(FILE, "rb") as file:
    IMAGE = file.read()


def web(action, url, *words, timeout=60):
    return subprocess.run([VEXAL, "web", action, url, "--timeout", "3", *map(str, words)], capture_output=True, text=True, timeout=timeout)


def lines(result):
    return [json.loads(line) for line in result.stdout.splitlines()]


def contents(folder):
    found = {}
    for root, _, names in os.walk(folder):
        for name in names:
            with open(os.path.join(root, name), "rb") as file:
                found[os.path.relpath(os.path.join(root, name), folder)] = file.read()
    return found


def of_instance(n):
    """The image under another instance of the same length."""
    old = uid_of(0).encode()
    return IMAGE.replace(old, uid_of(n).encode())


def uid_of(n):
    start = IMAGE.index(b"\x02\x00\x03\x00UI") + 8
    uid = IMAGE[start:start + int.from_bytes(IMAGE[start - 2:start], "little")].rstrip(b"\0").decode()
    return uid[:-1] + str((int(uid[-1]) + n) % 10)


# ---- Orthanc ----


class Orthanc:
    def __init__(self, folder):
        self.folder, self.port = folder, free_port()
        with open(os.path.join(folder, "orthanc.json"), "w", encoding="ascii") as file:
            json.dump({"StorageDirectory": folder, "IndexDirectory": folder, "HttpPort": self.port, "DicomPort": free_port(),
                       "AuthenticationEnabled": True, "RegisteredUsers": {"user": "secret"}, "Plugins": [PLUGIN]}, file)

    def __enter__(self):
        self.process = subprocess.Popen([ORTHANC, os.path.join(self.folder, "orthanc.json")], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for _ in range(300):
            try:
                socket.create_connection(("127.0.0.1", self.port)).close()
                return "http://127.0.0.1:%d/dicom-web" % self.port
            except OSError:
                time.sleep(0.1)
        raise RuntimeError("Orthanc does not listen")

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()


def with_orthanc(folder):
    if ORTHANC is None or not os.path.exists(PLUGIN):
        return left_out("web services of another archive", "orthanc-dicomweb")
    sources, database = os.path.join(folder, "in"), os.path.join(folder, "db")
    os.mkdir(sources), os.mkdir(database)
    for n in range(8):
        with open(os.path.join(sources, "%d.dcm" % n), "wb") as file:
            file.write(of_instance(n))
    with open(os.path.join(sources, "text"), "w", encoding="ascii") as file:
        file.write("no image")
    login = ("--user", "user:secret")
    with Orthanc(database) as url:
        stored = web("store", url, *login, "--json", sources, "--connections", 3)
        outcomes = lines(stored)
        check(stored.returncode == 1 and sum(o["stored"] for o in outcomes) == 8 and len(outcomes) == 9, "store: %s" % stored)
        check(web("store", url, "--user", "user:wrong", FILE).returncode == 1, "store with a wrong password")
        studies = lines(web("query", url, *login, "--json", "-k", "PatientName=Phantom^*", "-k", "StudyDate=20240101-20241231"))
        check(len(studies) == 1 and studies[0]["PatientName"] == "Phantom^Ramp", "query: %s" % studies)
        check(not lines(web("query", url, *login, "--json", "-k", "PatientName=Nobody*")), "query: too much is found")
        study = studies[0]["StudyInstanceUID"]
        series = lines(web("query", url, *login, "--json", "--level", "series", "-k", "StudyInstanceUID=" + study))
        check(len(series) == 1 and series[0]["Modality"] == "OT", "query of series: %s" % series)
        within = ("-k", "StudyInstanceUID=" + study, "-k", "SeriesInstanceUID=" + series[0]["SeriesInstanceUID"])
        images = lines(web("query", url, *login, "--json", "--level", "image", *within))
        check({i["SOPInstanceUID"] for i in images} == {uid_of(n) for n in range(8)}, "query of images: %s" % images)
        limited = lines(web("query", url, *login, "--json", "--level", "image", "--limit", 3, *within))
        check(len(limited) == 3, "query with a limit: %d" % len(limited))
        table = web("query", url, *login, "--level", "image", *within).stdout
        check(len(table.splitlines()) == 9, "query as a table: %s" % table)
        for n, words in enumerate(((), ("--series", series[0]["SeriesInstanceUID"]))):
            out = os.path.join(folder, "out%d" % n)
            result = web("retrieve", url, *login, "--study", study, *words, "--dir", out)
            check(result.returncode == 0 and contents(out) == {uid_of(n) + ".dcm": of_instance(n) for n in range(8)}, "retrieve: %s" % result)
        out = os.path.join(folder, "one")
        result = web("retrieve", url, *login, "--study", study, "--series", series[0]["SeriesInstanceUID"], "--instance", uid_of(3), "--tree",
                     "--dir", out)
        check(contents(out) == {"%s/%s/%s.dcm" % (study, series[0]["SeriesInstanceUID"], uid_of(3)): of_instance(3)}, "retrieve one: %s" % result)
        missing = web("retrieve", url, *login, "--study", "1.2.3", "--dir", out)
        check(missing.returncode == 3 and "404" in missing.stderr, "retrieve what is not there: %s" % missing)


# ---- A server of our own ----


PIECES = -1


class Answer(http.server.BaseHTTPRequestHandler):
    """Answers each path with what the test has put there: status, content type, body, and how much of it comes."""
    protocol_version = "HTTP/1.1"
    answers = {}

    def answer(self):
        length = int(self.headers.get("Content-Length", 0))
        while length:
            length -= len(self.rfile.read(min(length, 65536)))
        Answer.login = self.headers.get("Authorization")
        status, kind, body, sent = self.answers[self.path.split("?")[0].split("/")[1]]
        self.send_response(status)
        self.send_header("Location" if 300 <= status < 400 else "Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        if sent == PIECES:
            self.connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            for i in range(0, len(body), 61):
                self.wfile.write(body[i:i + 61])
                time.sleep(0.0005)
            return
        self.wfile.write(body[:sent])
        if sent is not None and sent < len(body):
            self.close_connection = True

    do_GET = do_POST = answer

    def log_message(self, *_):
        pass


class Server(http.server.ThreadingHTTPServer):
    def handle_error(self, *_):
        """A client that goes away is no news."""


MULTIPART = 'multipart/related; type="application/dicom"; boundary="a=b"'


def parts(*bodies, head=b"Content-Type: application/dicom\r\n", end=b"--a=b--\r\n"):
    return b"preface\r\n" + b"".join(b"--a=b\r\n" + head + b"\r\n" + body + b"\r\n" for body in bodies) + end


def with_own_server(folder):
    two = {uid_of(n) + ".dcm": of_instance(n) for n in (1, 2)}
    first = {uid_of(1) + ".dcm": of_instance(1)}
    evil = IMAGE.replace(uid_of(0).encode(), b"../../../../../etc/x".ljust(len(uid_of(0)), b"x"))
    whole = parts(*two.values())
    # What comes, the exit status of retrieve, and the files that are there then.
    cases = {
        "good": ((200, MULTIPART, whole, None), 0, two),
        "bare": ((200, "application/dicom", of_instance(1), None), 0, first),
        "no-headers": ((200, MULTIPART, parts(*two.values(), head=b""), None), 0, two),
        "near-delimiters": ((200, MULTIPART, parts(of_instance(1) + b"\r\n--a=\r\n--a-b\r\n-", of_instance(2)), None), 0,
                            {uid_of(1) + ".dcm": of_instance(1) + b"\r\n--a=\r\n--a-b\r\n-", uid_of(2) + ".dcm": of_instance(2)}),
        "pieces": ((200, MULTIPART, whole, PIECES), 0, two),
        "cut": ((200, MULTIPART, whole, len(whole) - len(IMAGE) // 2), 3, first),
        "no-end": ((200, MULTIPART, parts(*two.values(), end=b""), None), 3, first),
        "no-parts": ((200, MULTIPART, b"--a=b--", None), 0, {}),
        "not-dicom": ((200, MULTIPART, parts(b"text", of_instance(1), b""), None), 1, first),
        "evil-name": ((200, MULTIPART, parts(evil, of_instance(1)), None), 1, first),
        "long-headers": ((200, MULTIPART, parts(IMAGE, head=b"x" * 100000), None), 3, {}),
        "no-boundary": ((200, "multipart/related", whole, None), 3, {}),
        "html": ((200, "text/html", b"<html>", None), 3, {}),
        "broken": ((500, "text/plain", b"out of\r\n\x1b[1m order", None), 3, {}),
    }
    server = Server(("127.0.0.1", 0), Answer)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    url = "http://127.0.0.1:%d/" % server.server_port
    # Where a server sends requests on to: to itself, to another name, and nowhere.
    cases["moved"] = ((302, "/good/studies/1.2", b"", None), 0, two)
    cases["moved-away"] = ((307, "http://localhost:%d/good/studies/1.2" % server.server_port, b"", None), 3, {})
    cases["moved-round"] = ((301, "/moved-round/", b"", None), 3, {})
    cases["moved-nowhere"] = ((302, "file:///etc/passwd", b"", None), 3, {})
    for name, (answer, status, files) in cases.items():
        Answer.answers[name] = answer
        out = os.path.join(folder, name)
        result = web("retrieve", url + name, "--study", "1.2", "--dir", out)
        check(result.returncode == status and contents(out) == files, "%s: status %d, files %s: %s" %
              (name, result.returncode, sorted(contents(out)), result.stderr))
        check("\x1b" not in result.stderr, name + ": the server's text goes to the terminal as it is")
    queries = {
        "empty": ((204, "application/dicom+json", b"", None), 0, 0),
        "array": ((200, "application/dicom+json", b'[{"00100010":{"vr":"PN","Value":[{"Ideographic":"\xe5\xb1\xb1"}]}},{},7]', None), 0, 3),
        "object": ((200, "application/dicom+json", b'{"00100020":{"vr":"LO","Value":"no array"}}', None), 0, 1),
        "text": ((200, "text/html", b"<html>", None), 3, 0),
        "deep": ((200, "application/dicom+json", b"[" * 100000, None), 3, 0),
        "half": ((200, "application/dicom+json", b"[{}]", 2), 3, 0),
        "large": ((200, "application/dicom+json", b"[" + b" " * (33 << 20) + b"]", None), 3, 0),
        "names": ((200, "application/dicom+json", json.dumps([{"00100010": {"vr": "PN", "Value": [
            {"Alphabetic": "A^B", "Ideographic": "\u5c71", "Phonetic": "C"}, {"Phonetic": "D"}]}}]).encode(), None), 0, 1),
    }
    for name, (answer, status, count) in queries.items():
        Answer.answers[name] = answer
        result = web("query", url + name, "--json")
        check(result.returncode == status and len(result.stdout.splitlines()) == count, "query %s: %s" % (name, result))
        if name == "names":
            check(lines(result)[0]["PatientName"] == "A^B=\u5c71=C\\==D", "groups of names: %s" % result)
    refused = b'{"00081198":{"vr":"SQ","Value":[{"00081197":{"vr":"US","Value":[42752]}}]}}'
    for name, answer, status in (("taken", (200, "application/dicom+json", b"{}", None), 0),
                                 ("moved-store", (307, "/taken/studies", b"", None), 0),
                                 ("not-moved-store", (302, "/taken/studies", b"", None), 1),
                                 ("refused", (200, "application/dicom+json", refused, None), 1),
                                 ("conflict", (409, "application/dicom+json", refused, None), 1),
                                 ("unavailable", (503, "text/plain", b"", None), 1)):
        Answer.answers[name] = answer
        result = web("store", url + name, FILE)
        check(result.returncode == status and ("0xA700" in result.stderr) == (b"00081198" in answer[2]), "store %s: %s" % (name, result))
    # A password reaches the server, and no screen; on a way that others can read, a warning says so.
    for start, path, words, login in (("http://user:hu%40sh@", "empty", (), "user:hu@sh"), ("http://user:hush@", "broken", (), "user:hush"),
                                      ("http://", "empty", ("--user", "user:hush"), "user:hush"), ("http://user:hu/sh@", "empty", (), None),
                                      ("ftp://user:hush@", "empty", (), None), ("user:hush@", "empty", (), None),
                                      ("http://", "empty", ("--header", "Authorization Bearer hush"), None)):
        Answer.login = None
        result = web("query", "%s127.0.0.1:%d/%s" % (start, server.server_port, path), *words)
        told, sent = result.stderr + result.stdout, base64.b64decode((Answer.login or "Basic ")[6:]).decode()
        check(sent == (login or ""), "login of %s %s: %s" % (start, words, sent))
        check(not re.search("hush|hu/sh|hu%40sh|hu@sh", told) and ("without TLS" in told) == (login is not None), "a password is told: " + told)
    check("without TLS" not in web("query", url + "empty", "--user", "user:hush", "--quiet").stderr, "a warning in spite of --quiet")
    server.shutdown()
    # Nobody there, and somebody who says nothing.
    check(web("query", "http://127.0.0.1:%d" % free_port()).returncode == 3, "query of nobody")
    with socket.socket() as silent:
        silent.bind(("127.0.0.1", 0))
        silent.listen(8)
        start = time.monotonic()
        result = web("query", "http://127.0.0.1:%d" % silent.getsockname()[1])
        check(result.returncode == 3 and time.monotonic() - start < 10, "query of a silent server: %s" % result)


sys.exit(run_parts(with_orthanc, with_own_server))
