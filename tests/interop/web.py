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
import sys
import threading
import time

from checks import SAMPLES as FILE, VEXAL, Server, check, ended, files_under, free_port, left_out, paths, read, run, run_parts, write

PLUGIN = "/usr/share/orthanc/plugins/libOrthancDicomWeb.so"
ORTHANC = shutil.which("Orthanc", path="/usr/sbin:/usr/bin")
IMAGE = read(FILE)


def web(action, url, *words):
    return run(VEXAL, "web", action, url, "--timeout", "3", *words, timeout=60, text=True)


def lines(result):
    return [json.loads(line) for line in result.stdout.splitlines()]


def contents(folder):
    return {os.path.relpath(path, folder): read(path) for path in files_under(folder)}


def of_instance(n):
    """The image under another instance of the same length."""
    return IMAGE.replace(uid_of(0).encode(), uid_of(n).encode())


def uid_of(n):
    start = IMAGE.index(b"\x02\x00\x03\x00UI") + 8
    uid = IMAGE[start:start + int.from_bytes(IMAGE[start - 2:start], "little")].rstrip(b"\0").decode()
    return uid[:-1] + str((int(uid[-1]) + n) % 10)


# ---- Orthanc ----


def with_orthanc(folder):
    if ORTHANC is None or not os.path.exists(PLUGIN):
        return left_out("web services of another archive", "orthanc-dicomweb")
    (sources, database), port = paths(folder, "in", "db"), free_port()
    os.mkdir(database)
    for n in range(8):
        write(os.path.join(sources, "%d.dcm" % n), of_instance(n))
    write(os.path.join(sources, "text"), "no image")
    login = ("--user", "user:secret")
    config = write(os.path.join(folder, "orthanc.json"), json.dumps({
        "StorageDirectory": database, "IndexDirectory": database, "HttpPort": port, "DicomPort": free_port(),
        "AuthenticationEnabled": True, "RegisteredUsers": {"user": "secret"}, "Plugins": [PLUGIN]}))
    with Server(ORTHANC, config, port=port):
        url = "http://127.0.0.1:%d/dicom-web" % port
        outcomes = lines(ended(web("store", url, *login, "--json", sources, "--connections", 3), "store", 1))
        check(sum(o["stored"] for o in outcomes) == 8 and len(outcomes) == 9, "store: %s" % outcomes)
        ended(web("store", url, "--user", "user:wrong", FILE), "store with a wrong password", 1)
        studies = lines(web("query", url, *login, "--json", "-k", "PatientName=Phantom^*", "-k", "StudyDate=20240101-20241231"))
        check(len(studies) == 1 and studies[0]["PatientName"] == "Phantom^Ramp", "query: %s" % studies)
        check(not lines(web("query", url, *login, "--json", "-k", "PatientName=Nobody*")), "query: too much is found")
        study = studies[0]["StudyInstanceUID"]
        series = lines(web("query", url, *login, "--json", "--level", "series", "-k", "StudyInstanceUID=" + study))
        check(len(series) == 1 and series[0]["Modality"] == "OT", "query of series: %s" % series)
        within = ("-k", "StudyInstanceUID=" + study, "-k", "SeriesInstanceUID=" + series[0]["SeriesInstanceUID"])
        images = lines(web("query", url, *login, "--json", "--level", "image", *within))
        check({i["SOPInstanceUID"] for i in images} == {uid_of(n) for n in range(8)}, "query of images: %s" % images)
        for words, count in (("--json", "--limit", 3), 3), ((), 9):
            result = web("query", url, *login, "--level", "image", *words, *within)
            check(len(result.stdout.splitlines()) == count, "query %s: %s" % (words, result))
        for n, words in enumerate(((), ("--series", series[0]["SeriesInstanceUID"]))):
            out = os.path.join(folder, "out%d" % n)
            result = web("retrieve", url, *login, "--study", study, *words, "--dir", out)
            check(result.returncode == 0 and contents(out) == {uid_of(n) + ".dcm": of_instance(n) for n in range(8)}, "retrieve: %s" % result)
        out = os.path.join(folder, "one")
        result = web("retrieve", url, *login, "--study", study, "--series", series[0]["SeriesInstanceUID"], "--instance", uid_of(3), "--tree",
                     "--dir", out)
        check(contents(out) == {"%s/%s/%s.dcm" % (study, series[0]["SeriesInstanceUID"], uid_of(3)): of_instance(3)}, "retrieve one: %s" % result)
        ended(web("retrieve", url, *login, "--study", "1.2.3", "--dir", out), "retrieve what is not there", 3, "404")


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


class Own(http.server.ThreadingHTTPServer):
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
    of_parts = lambda *words, **more: (200, MULTIPART, parts(*words, **more), None)
    cases = {
        "good": ((200, MULTIPART, whole, None), 0, two),
        "bare": ((200, "application/dicom", of_instance(1), None), 0, first),
        "no-headers": (of_parts(*two.values(), head=b""), 0, two),
        "near-delimiters": (of_parts(of_instance(1) + b"\r\n--a=\r\n--a-b\r\n-", of_instance(2)), 0,
                            {uid_of(1) + ".dcm": of_instance(1) + b"\r\n--a=\r\n--a-b\r\n-", uid_of(2) + ".dcm": of_instance(2)}),
        "pieces": ((200, MULTIPART, whole, PIECES), 0, two),
        "cut": ((200, MULTIPART, whole, len(whole) - len(IMAGE) // 2), 3, first),
        "no-end": (of_parts(*two.values(), end=b""), 3, first),
        "no-parts": ((200, MULTIPART, b"--a=b--", None), 0, {}),
        "not-dicom": (of_parts(b"text", of_instance(1), b""), 1, first),
        "evil-name": (of_parts(evil, of_instance(1)), 1, first),
        "long-headers": (of_parts(IMAGE, head=b"x" * 100000), 3, {}),
        "no-boundary": ((200, "multipart/related", whole, None), 3, {}),
        "html": ((200, "text/html", b"<html>", None), 3, {}),
        "broken": ((500, "text/plain", b"out of\r\n\x1b[1m order", None), 3, {}),
    }
    server = Own(("127.0.0.1", 0), Answer)
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
        check(ended(result, name, status) and contents(out) == files, "%s: files %s: %s" % (name, sorted(contents(out)), result.stderr))
        check("\x1b" not in result.stderr, name + ": the server's text goes to the terminal as it is")
    of_json = lambda body, sent=None: (200, "application/dicom+json", body, sent)
    names = [{"00100010": {"vr": "PN", "Value": [{"Alphabetic": "A^B", "Ideographic": "\u5c71", "Phonetic": "C"}, {"Phonetic": "D"}]}}]
    for name, answer, status, count in (
            ("empty", (204, "application/dicom+json", b"", None), 0, 0), ("text", (200, "text/html", b"<html>", None), 3, 0),
            ("array", of_json(b'[{"00100010":{"vr":"PN","Value":[{"Ideographic":"\xe5\xb1\xb1"}]}},{},7]'), 0, 3),
            ("object", of_json(b'{"00100020":{"vr":"LO","Value":"no array"}}'), 0, 1), ("deep", of_json(b"[" * 100000), 3, 0),
            ("half", of_json(b"[{}]", 2), 3, 0), ("large", of_json(b"[" + b" " * (33 << 20) + b"]"), 3, 0),
            ("names", of_json(json.dumps(names).encode()), 0, 1)):
        Answer.answers[name] = answer
        result = ended(web("query", url + name, "--json"), "query " + name, status)
        check(len(result.stdout.splitlines()) == count, "query %s: %s" % (name, result))
    check(lines(result)[0]["PatientName"] == "A^B=\u5c71=C\\==D", "groups of names: %s" % result)
    refused = b'{"00081198":{"vr":"SQ","Value":[{"00081197":{"vr":"US","Value":[42752]}}]}}'
    for name, answer, status in (("taken", of_json(b"{}"), 0), ("moved-store", (307, "/taken/studies", b"", None), 0),
                                 ("not-moved-store", (302, "/taken/studies", b"", None), 1), ("refused", of_json(refused), 1),
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
    ended(web("query", "http://127.0.0.1:%d" % free_port()), "query of nobody", 3)
    with socket.socket() as silent:
        silent.bind(("127.0.0.1", 0))
        silent.listen(8)
        start = time.monotonic()
        ended(web("query", "http://127.0.0.1:%d" % silent.getsockname()[1]), "query of a silent server", 3)
        check(time.monotonic() - start < 10, "query of a silent server: took %.1f s" % (time.monotonic() - start))


sys.exit(run_parts(with_orthanc, with_own_server))
