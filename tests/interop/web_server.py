#!/usr/bin/env python3
"""The web services of vexal serve: what they find, give, take and refuse.

usage: web_server.py VEXAL [PART...]
Every answer is held against the files that were stored, which Python makes and reads. curl, the program's own client and
Orthanc's web services are clients where they are installed; hostile clients are sockets.
"""
import base64
import contextlib
import hashlib
import hmac
import http.client
import json
import os
import shutil
import socket
import ssl
import struct
import sys
import time
import urllib.error
import urllib.request
import warnings

import made
from checks import VEXAL, Server, Vexal, check, ended, files_under, free_port, has, left_out, read, run, run_parts, write
from made import EXPLICIT, IMPLICIT, RLE, ROOT, Writer
from wire import STUDY, at_once, data_set, image_find, store_status, stored_objects, uid

PLUGIN = "/usr/share/orthanc/plugins/libOrthancDicomWeb.so"
ORTHANC = shutil.which("Orthanc", path="/usr/sbin:/usr/bin")
PARTS = 'multipart/related; type="application/dicom"; transfer-syntax=*'
JSON = "application/dicom+json"


class Answer:
    def __init__(self, status, headers, body):
        self.status, self.headers, self.body, self.type = status, headers, body, headers.get("Content-Type", "")

    def parts(self):
        """Headers and bodies."""
        boundary = b"--" + self.type.split("boundary=")[1].strip('"').encode()
        pieces = (b"\r\n" + self.body).split(b"\r\n" + boundary)
        check(pieces[0] == b"" and pieces[-1].startswith(b"--"), "parts without a frame: %s" % self.body[:100])
        return [tuple(piece[2:].split(b"\r\n\r\n", 1)) if piece.startswith(b"\r\n") and not piece.startswith(b"\r\n\r\n") else (b"", piece[4:])
                for piece in pieces[1:-1]]

    def json(self):
        return json.loads(self.body)


def ask(port, path, accept=None, body=None, method=None, **headers):
    """One request; the headers with underscores for dashes."""
    headers = {name.replace("_", "-"): value for name, value in headers.items()}
    if accept:
        headers["Accept"] = accept
    request = urllib.request.Request("http://127.0.0.1:%d%s" % (port, path), body, headers, method=method)
    try:
        with urllib.request.urlopen(request, timeout=60) as answer:
            return Answer(answer.status, answer.headers, answer.read())
    except urllib.error.HTTPError as error:
        return Answer(error.code, error.headers, error.read())


def instance(study, series, number, syntax=EXPLICIT, frames=3, name=b"Made^File", rows=7, columns=5, allocated=16, more=b""):
    """A file of an image, its UID and the bytes of its frames."""
    w = Writer(syntax)
    values = made.pixels(rows, columns, allocated, allocated, 1, frames, number)
    data = made.head(w, name=name, number=100 * study + 10 * series + number, patient="ID%d" % study, modality="CT" if series == 1 else "MR") + made.tail(w, study, series, number)
    data += made.description(w, rows, columns, allocated, frames=frames) + more
    if syntax == RLE:
        data += w.fragments([made.rle_frame(value, 1, allocated) for value in values])
    else:
        data += w.element(0x7FE00010, "OW", b"".join(values) + b"\0" * (len(b"".join(values)) % 2))
    return w.file(data), w.instance, values


def fill(folder):
    """Two studies with two series of three instances each, by their UIDs: file, study, series and number, frames."""
    objects = {}
    for study in (1, 2):
        for series in (1, 2):
            for number in (1, 2, 3):
                syntax = {1: EXPLICIT, 2: IMPLICIT, 3: RLE}[number]
                content, uid, frames = instance(study, series, number, syntax, name=b"Made^File" if study == 1 else b"Other^One")
                objects[uid] = content, study, series, number, frames
                write(os.path.join(folder, uid + ".dcm"), content)
    return objects


def study_path(study, series=None, uid=None):
    path = "/dicom-web/studies/%s.2.%d" % (ROOT, study)
    path += "/series/%s.3.%d.%d" % (ROOT, study, series) if series else ""
    return path + "/instances/" + uid if uid else path


def value(row, tag):
    return (row.get(tag, {}).get("Value") or [None])[0]


class Web(Vexal):
    """serve with web services on a port of their own, without descriptors that come and go being counted."""

    def __init__(self, folder, *options, **more):
        self.web = free_port()
        super().__init__("serve", folder, "--web", self.web, "--address", "127.0.0.1", *options, **more)

    def __enter__(self):
        super().__enter__()
        end = time.monotonic() + 10
        while time.monotonic() < end:
            try:
                socket.create_connection(("127.0.0.1", self.web)).close()
                return self
            except OSError:
                time.sleep(0.02)
        raise RuntimeError("no web server")


# ---- What is there ----


def searches(folder):
    """Each collection, keys by keyword and tag, ranges, lists, wildcards, pages; what is no search."""
    objects = fill(folder)
    with Web(folder) as server:
        def found(path, tag, **more):
            answer = ask(server.web, "/dicom-web/" + path, **more)
            check(answer.status == (200 if answer.body else 204), "%s: %d %s" % (path, answer.status, answer.body[:200]))
            return sorted(value(row, tag) for row in answer.json()) if answer.body else []

        instances = lambda keep: sorted(uid for uid, row in objects.items() if keep(*row[1:4]))
        studies = lambda *numbers: ["%s.2.%d" % (ROOT, n) for n in numbers]
        for query, wanted in (("", (1, 2)), ("?PatientID=ID1", (1,)), ("?00100010=Other*", (2,)), ("?PatientName=other%5EONE", (2,)),
                              ("?StudyDate=20250101-20261231", (1, 2)), ("?StudyDate=20270101-", ()), ("?ModalitiesInStudy=MR", (1, 2)),
                              ("?ModalitiesInStudy=PT", ()), ("?StudyInstanceUID=%s,1.2.3" % studies(2)[0], (2,)), ("?limit=1", (1,)),
                              ("?limit=1&offset=1", (2,)), ("?offset=5", ()), ("?limit=1000000000", (1, 2)), ("?fuzzymatching=true&PatientID=ID2", (2,)),
                              ("?includefield=all", (1, 2)), ("?includefield=00081030&includefield=PatientSex,00400275", (1, 2))):
            check(found("studies" + query, "0020000D") == studies(*wanted), "studies%s: others than %s" % (query, wanted))
        for path, keep in (("instances", lambda *_: True), ("studies/%s/instances" % studies(1)[0], lambda s, *_: s == 1),
                           ("studies/%s/series/%s.3.1.2/instances" % (studies(1)[0], ROOT), lambda s, r, _: (s, r) == (1, 2)),
                           ("instances?InstanceNumber=2&PatientID=ID1", lambda s, _, n: (s, n) == (1, 2)), ("instances?Modality=MR", lambda _, r, __: r == 2)):
            check(found(path, "00080018") == instances(keep), path + ": other instances")
        check(len(found("series", "0020000E")) == 4 and len(found("studies/%s/series" % studies(2)[0], "0020000E")) == 2, "other series")
        row = ask(server.web, "/dicom-web/studies?PatientID=ID1", JSON).json()[0]
        check(row["00100010"] == {"vr": "PN", "Value": [{"Alphabetic": "Made^File"}]} and value(row, "00201208") == 6 and value(row, "00201206") == 2 and
              sorted(row["00080061"]["Value"]) == ["CT", "MR"], "a study: %s" % row)
        check(value(row, "00081190") == "http://127.0.0.1:%d%s" % (server.web, study_path(1)), "a URL: %s" % row["00081190"])
        xml = ask(server.web, "/dicom-web/studies", 'multipart/related; type="application/dicom+xml"').parts()
        check(len(xml) == 2 and all(b"NativeDicomModel" in body for _, body in xml), "studies as XML: %s" % xml[:1])
        for query, warned in (("?limit=1", "further results"), ("?limit=2", ""), ("?fuzzymatching=true", "Only literal matching")):
            check(warned in ask(server.web, "/dicom-web/studies" + query).headers.get("Warning", ""), "studies%s: another warning" % query)
        for path, status in (("studies?Rubbish=1", 400), ("studies?limit=-1", 400), ("studies?limit=x", 400), ("studies?PatientID=%zz", 400),
                             ("studies?PatientID=a%00b", 400), ("studies?SOPInstanceUID=1", 400), ("studies?PatientID=" + "x" * 2000, 400), ("patients", 404),
                             ("studies/1.2/series/1/frames/1", 404), ("series/1.2", 404), ("studies/x", 404), ("studies/..%2f..", 400), ("../etc", 400)):
            check(ask(server.web, "/dicom-web/" + path).status == status, "%s: not %d" % (path[:60], status))
        check(ask(server.web, "/dicom-web/studies", "text/html").status == 406, "searches as HTML")
        answer = ask(server.web, "/dicom-web/studies", method="PUT")
        check(answer.status == 405 and "POST" in answer.headers["Allow"], "PUT: %d" % answer.status)
        check(b"<application" in ask(server.web, "/dicom-web").body and ask(server.web, "/nothing").status == 404, "capabilities")
        if has("curl", "searches with curl"):
            told = run("curl", "-sI", "http://127.0.0.1:%d/dicom-web/studies" % server.web, text=True).stdout
            check(told.startswith("HTTP/1.1 200") and "[" not in told.replace("[::", ""), "HEAD: " + told)


def retrievals(folder):
    """Objects byte for byte or in another syntax, metadata, bulk data, frames and pictures."""
    long = Writer().element(0x00420011, "OB", bytes(range(256)) * 20)
    objects = fill(folder)
    content, extra, _ = instance(3, 1, 1, more=b"")
    at = content.index(b"\x28\x00\x02\x00")
    write(os.path.join(folder, extra + ".dcm"), content[:at] + content[at:].replace(b"\xe0\x7f\x10\x00", long + b"\xe0\x7f\x10\x00", 1))
    broken, lost, _ = instance(4, 1, 1)
    write(os.path.join(folder, "broken.dcm"), broken[:broken.index(b"\x28\x00\x10\x00")] + b"\x28\x00\x10\x00US\xff\xff")
    with Web(folder) as server:
        def files(path, accept=None, status=200):
            answer = ask(server.web, path, accept)
            check(answer.status == status, "%s, %s: %d %s" % (path, accept, answer.status, answer.body[:200] if answer.status > 299 else ""))
            return answer

        for path, keep in ((study_path(1), lambda s, r: s == 1), (study_path(2, 2), lambda s, r: (s, r) == (2, 2))):
            for accept in (PARTS, None, "*/*"):
                got = [body for _, body in files(path, accept).parts()]
                wanted = [row[0] for row in objects.values() if keep(*row[1:3])]
                check(sorted(got) == sorted(wanted), "%s, %s: other files" % (path, accept))
        for uid, (content, study, series, number, frames) in objects.items():
            path = study_path(study, series, uid)
            one = files(path, "application/dicom; transfer-syntax=*")
            check(one.body == content and one.type.startswith("application/dicom; transfer-syntax=1.2"), uid + ": other bytes")
            plain = files(path, "application/dicom").body
            check(b"1.2.840.10008.1.2.1\0" in plain[:400] and b"".join(frames) in plain, uid + ": no plain object with its pixels")
            row = files(path + "/metadata", JSON).json()[0]
            check(value(row, "00080018") == uid and value(row, "00280008") == 3 and row["7FE00010"]["BulkDataURI"].endswith(path + "/bulkdata/7FE00010"),
                  "%s: metadata %s" % (uid, row))
            for asked in ((1,), (2,), (3, 1), (1, 2, 3, 2)):
                parts = files("%s/frames/%s" % (path, ",".join(map(str, asked))), 'multipart/related; type="application/octet-stream"').parts()
                check([body for _, body in parts] == [frames[n - 1] for n in asked], "%s: other frames %s" % (uid, asked))
            check(files(path + "/frames/2", "application/octet-stream").body == frames[1], uid + ": another single frame")
            check(files(path + "/frames/4", status=404) and ask(server.web, path + "/frames/0").status == 404, uid + ": frames that are not there")
            stored = files(path + "/frames/1", "*/*").parts()[0]
            rle = made.rle_frame(frames[0], 1, 16)
            check(stored[1].rstrip(b"\0") == (rle if number == 3 else frames[0]).rstrip(b"\0") and (b"image/dicom-rle" in stored[0]) == (number == 3),
                  "%s: a frame as it is stored: %s" % (uid, stored[0]))
            bulk = files(path + "/bulkdata/7FE00010", "*/*")
            check(bulk.body.rstrip(b"\0") == b"".join(frames).rstrip(b"\0") if number != 3 else len(bulk.parts()) == 3, uid + ": other bulk data")
            for media, magic in (("image/png", b"\x89PNG"), ("image/jpeg", b"\xff\xd8"), ("image/*", b"\xff\xd8")):
                for kind in ("/rendered", "/frames/2/rendered", "/thumbnail?viewport=4,4"):
                    check(files(path + kind, media).body.startswith(magic), "%s%s: no %s" % (uid, kind, media))
            png = files(path + "/rendered?viewport=10,10&window=100,200,linear", "image/png").body
            check(struct.unpack(">II", png[16:24]) == (7, 10), "%s: a picture of %s" % (uid, struct.unpack(">II", png[16:24])))
        check(len(files(study_path(1, 1) + "/rendered", 'multipart/related; type="image/png"').parts()) == 3, "rendered series")
        check(files(study_path(1) + "/thumbnail", "image/png").body.startswith(b"\x89PNG"), "a thumbnail of a study")
        metadata = files(study_path(1) + "/metadata").json()
        check(len(metadata) == 6, "metadata of a study: %d" % len(metadata))
        uri = files(study_path(3) + "/metadata").json()[0]["00420011"]["BulkDataURI"]
        check(files(uri[uri.index("/dicom-web"):], "application/octet-stream").body == bytes(range(256)) * 20, "bulk data by its URI")
        implicit = "application/dicom; transfer-syntax=" + IMPLICIT
        for resource, accept in (("", implicit), ("", 'multipart/related; type="application/dicom"; transfer-syntax=' + IMPLICIT), ("/metadata", None),
                                 ("/metadata", 'multipart/related; type="application/dicom+xml"')):
            check(ask(server.web, study_path(4, 1, lost) + resource, accept).status == 500, "a broken object%s, %s: not 500" % (resource, accept))
        uid = next(iter(objects))
        path = study_path(1, 1, uid)
        for resource, accept, status in (("", "text/plain", 406), ("", "application/dicom; transfer-syntax=1.2.3", 406), ("/metadata", "text/html", 406),
                                         ("/frames/1", "video/mp4", 406), ("/rendered", "image/gif", 406), ("/rendered?viewport=0,1", None, 400),
                                         ("/rendered?viewport=1e9,1e9", None, 400), ("/rendered?window=1,x,linear", None, 400), ("/rendered?quality=0", None, 400),
                                         ("/frames/x", None, 404), ("/frames/1,,2", None, 404), ("/frames/99999999999", None, 404),
                                         ("/bulkdata/00081115.1.00080018", None, 404), ("/bulkdata/00100010.99999999999", None, 404), ("/bulkdata/7", None, 404)):
            check(ask(server.web, path + resource, accept).status == status, "%s, %s: not %d" % (resource, accept, status))
        check(ask(server.web, study_path(1, 1, "1.2.3")).status == 404, "an instance that is not there")
        jls = files(path + "/frames/1,2", 'multipart/related; type="image/jls"').parts()
        check(len(jls) == 2 and all(body.startswith(b"\xff\xd8\xff\xf7") for _, body in jls), "frames in JPEG-LS")
        wado = "/wado?requestType=WADO&studyUID=%s.2.1&seriesUID=%s.3.1.1&objectUID=%s" % (ROOT, ROOT, uid)
        check(files(wado + "&contentType=application/dicom&transferSyntax=*").body == objects[uid][0], "WADO-URI: another object")
        check(files(wado + "&contentType=image/png&rows=4&frameNumber=2").body.startswith(b"\x89PNG") and ask(server.web, wado[:20]).status == 400, "WADO-URI: pictures")
        check(server.peak() < 64 << 20, "takes %d MB" % (server.peak() >> 20))


def large(folder):
    """Memory stays bounded whatever is asked for, and streams are whole."""
    content, uid, frames = instance(1, 1, 1, frames=6, rows=2000, columns=2000)
    write(os.path.join(folder, "large.dcm"), content)
    with Web(folder) as server:
        path = study_path(1, 1, uid)
        jobs = [lambda p=p, a=a: ask(server.web, path + p, a) for p, a in
                (("", "application/dicom"), ("/frames/" + ",".join(map(str, range(1, 7))), None), ("/bulkdata/7FE00010", None), ("/metadata", None),
                 ("/rendered", None), ("", 'multipart/related; type="application/dicom"; transfer-syntax=1.2.840.10008.1.2')) * 2]
        answers = at_once(jobs)
        check([answer.status for answer in answers] == [200] * len(jobs), "large: %s" % [answer.status for answer in answers])
        check(answers[0].body == content and answers[2].body == b"".join(frames), "large: other bytes")
        check([body for _, body in answers[1].parts()] == frames, "large: other frames")
        check(server.peak() < 64 << 20, "large: takes %d MB" % (server.peak() >> 20))


# ---- What comes ----


def body_of(*files, head=b"Content-Type: application/dicom\r\n", end=b"--a=b--\r\n"):
    return b"".join(b"--a=b\r\n" + head + b"\r\n" + content + b"\r\n" for content in files) + end


def post(port, body, path="/dicom-web/studies", kind='multipart/related; type="application/dicom"; boundary="a=b"', **more):
    return ask(port, path, JSON, body, Content_Type=kind, **more)


def stores(folder):
    """Objects byte for byte, each with what became of it; what is refused leaves nothing behind."""
    out = os.path.join(folder, "out")
    one, two, other = (instance(1, 1, 1)[0], instance(1, 1, 2, RLE)[0], instance(2, 1, 1)[0])
    changed = one[:-2] + b"\x55\x55"
    meta_only, no_meta = one[:300], one[132:]
    unknown = one.replace(made.SECONDARY_CAPTURE.encode(), b"1.2.840.10008.5.1.4.99.9.9"[:len(made.SECONDARY_CAPTURE)])
    with Web(out, "--journal", os.path.join(folder, "journal")) as server:
        def outcome(title, body, status, stored, failed, **more):
            answer = post(server.web, body, **more)
            check(answer.status == status, "%s: %d %s" % (title, answer.status, answer.body[:300]))
            if answer.type != JSON:
                return check(not stored and not failed, title + ": does not tell")
            told = answer.json()
            check(len(told.get("00081199", {}).get("Value", [])) == stored, "%s: %s" % (title, told))
            check([value(row, "00081197") for row in told.get("00081198", {}).get("Value", [])] == failed, "%s: %s" % (title, told))
            return told

        told = outcome("two", body_of(one, two), 200, 2, [])
        check(value(told, "00081190").endswith(study_path(1)), "a URL of the study: %s" % told)
        lies = sorted(read(path)[340:] for path in files_under(out) if path.endswith(".dcm"))
        check(lies == sorted(content[340:] for content in (one, two)) or stored_objects(out)[1] == [], "two: other files")
        outcome("again", body_of(one), 200, 1, [])
        outcome("other content", body_of(changed), 409, 0, [0x0111])
        outcome("one of two", body_of(changed, other), 202, 1, [0x0111])
        outcome("single", instance(1, 1, 3)[0], 200, 1, [], kind="application/dicom")
        outcome("of another study", body_of(instance(2, 1, 2)[0]), 409, 0, [0xA900], path=study_path(1))
        outcome("of this study", body_of(instance(2, 1, 2)[0]), 200, 1, [], path=study_path(2))
        outcome("no object", body_of(b"text", no_meta, b""), 409, 0, [0xC000] * 3)
        outcome("cut short", body_of(meta_only), 409, 0, [0xC000])
        outcome("an unknown class", body_of(unknown), 409, 0, [0x0122])
        outcome("an evil name", body_of(one.replace(b"%s.9.111" % ROOT.encode(), b"../../../etc/passwd".ljust(len(ROOT) + 6, b"x"))), 409, 0, [0x0117])
        outcome("no end", body_of(instance(4, 1, 1)[0], end=b""), 400, 0, [])
        outcome("nothing", b"--a=b--", 400, 0, [])
        outcome("no boundary", body_of(one), 400, 0, [], kind="multipart/related")
        outcome("another type", body_of(one), 415, 0, [], kind="text/plain")
        outcome("parts of another type", body_of(one, head=b"Content-Type: text/html\r\n"), 400, 0, [])
        outcome("long headers", body_of(one, head=b"x" * 100000), 400, 0, [])
        found = ask(server.web, "/dicom-web/instances").json()
        check(len(found) == 5, "stored: %d" % len(found))
        for content in (one, two, other):
            uid = content[content.index(b"\x08\x00\x18\x00UI") + 8:].split(b"\0")[0].split(b"\x08")[0].decode()
            row = next(row for row in found if value(row, "00080018") == uid)
            url = value(row, "00081190")
            got = ask(server.web, url[url.index("/dicom-web"):], "application/dicom; transfer-syntax=*").body
            length = lambda file: 144 + int.from_bytes(file[140:144], "little")
            check(got[length(got):] == content[length(content):], uid + ": stored with another data set")
        stray = [path for path in files_under(out) if not path.endswith(".dcm") and "index.sqlite" not in path]
        check(not stray, "left behind: %s" % stray)
        lines = [line.split("\t")[1:4] for line in read(os.path.join(folder, "journal")).decode().splitlines()]
        check(lines[0] == ["WEB", "127.0.0.1", "stored"] and len(lines) >= 8, "journal: %s" % lines)
    with Web(os.path.join(folder, "small"), "--max-size", "1000") as server:
        answer = post(server.web, body_of(instance(1, 1, 1, rows=100, columns=100)[0]))
        check(answer.status == 409 and value(answer.json()["00081198"]["Value"][0], "00081197") == 0xA700, "too large: %d" % answer.status)
    # The program's own client, both ways.
    sources, back = os.path.join(folder, "sources"), os.path.join(folder, "back")
    objects = fill(sources)
    with Web(os.path.join(folder, "own")) as server:
        url = "http://127.0.0.1:%d/dicom-web" % server.web
        ended(run(VEXAL, "web", "store", url, sources), "web store")
        for study in (1, 2):
            ended(run(VEXAL, "web", "retrieve", url, "--study", "%s.2.%d" % (ROOT, study), "--dir", back), "web retrieve")
        wanted = {uid: made_file[144 + int.from_bytes(made_file[140:144], "little"):] for uid, (made_file, *_) in objects.items()}
        check(stored_objects(back)[0] == wanted, "web store and retrieve: other objects")


# ---- Who may ----


def token(claims, secret=b"s" * 32, **head):
    pack = lambda part: base64.urlsafe_b64encode(part).rstrip(b"=")
    text = pack(json.dumps({"alg": "HS256", **head}).encode()) + b"." + pack(json.dumps(claims).encode())
    return (text + b"." + pack(hmac.new(secret, text, hashlib.sha256).digest())).decode()


def operation(folder):
    """Whether it lives and works, and what it counted, for those who watch it."""
    def counted():
        text = ask(server.web, "/metrics").body.decode()
        check(all(line.startswith("#") or len(line.rsplit(" ", 1)) == 2 and line.rsplit(" ", 1)[1].isdigit() for line in text.splitlines()), text)
        names = [line.split()[2] for line in text.splitlines() if line.startswith("# TYPE")]
        check(len(names) == len(set(names)) > 5, "metrics: %s" % names)
        return {line.rsplit(" ", 1)[0]: int(line.rsplit(" ", 1)[1]) for line in text.splitlines() if not line.startswith("#")}

    log = os.path.join(folder, "audit")
    with Web(os.path.join(folder, "in"), "--audit", "file:" + log) as server:
        check([ask(server.web, "/health/" + what).status for what in ("live", "ready", "else")] == [200, 200, 404], "health")
        before = counted()
        statuses = [store_status(server.port, uid(1)), store_status(server.port, uid(1)), store_status(server.port, uid(1), data_set(uid(1), b"\1" * 9))]
        image_find(server.port, uid(1))
        ask(server.web, "/nothing")
        after, change = counted(), {}
        for name, value in after.items():
            if value != before[name]:
                change[name] = value - before[name]
        outcome = 'vexal_objects_received_total{outcome="%s"}'
        wanted = {outcome % "stored": 1, outcome % "repeated": 1, outcome % "refused": 1, "vexal_queries_total": 1, "vexal_query_answers_total": 1,
                  'vexal_associations_total{result="accepted"}': 4, 'vexal_web_requests_total{result="done"}': 1,
                  'vexal_web_requests_total{result="refused"}': 1}
        change.pop("vexal_associations_open", None)
        check(statuses == [0, 0, 0x0111] and change.pop("vexal_bytes_received_total", 0) > 500 and change == wanted, "metrics: %s" % change)
        ask(server.web, "/dicom-web/studies?PatientName=Doe%5EJ&limit=3")
        ask(server.web, "/dicom-web/studies/%s/metadata" % STUDY)
        ask(server.web, "/dicom-web/studies/%s/metadata" % STUDY, method="HEAD")
        check(ask(server.web, "/metrics", method="POST", body=b"").status == 405 and ask(server.web, "/health/live", method="DELETE").status == 405, "other methods")
    told = read(log).decode().splitlines()
    queries = [base64.b64decode(line.split("ParticipantObjectQuery>")[1].split("<")[0]) for line in told if "110112" in line and "/dicom" not in line]
    check(b"/dicom-web/studies?PatientName=Doe^J&limit=3" in queries, "audit: searches %s" % queries)
    given = [line for line in told if "110104" in line and 'EventActionCode="R"' in line]
    check(len(given) == 1 and all('ParticipantObjectID="%s"' % word in given[0] for word in (STUDY, "ID")) and '"127.0.0.1"' in given[0], "audit: %s" % given)
    with Web(os.path.join(folder, "closed"), "--web-rights", "none") as server:
        check([ask(server.web, path).status for path in ("/health/ready", "/metrics")] in ([200, 401], [200, 403]), "rights of those who watch")


def rights(folder):
    """Users, tokens, roles, pages of other origins; nothing of a secret is told."""
    if not has("openssl", "who may use the web services"):
        return
    fill(os.path.join(folder, "in"))
    hashes = {name: run("openssl", "passwd", "-6", secret, text=True).stdout.strip() for name, secret in (("ann", "hush"), ("bob", "quiet"))}
    users = write(os.path.join(folder, "users"), "# who\nann:%(ann)s:read,write\nbob:%(bob)s:write\n" % hashes)
    key, public = os.path.join(folder, "key.pem"), os.path.join(folder, "public.pem")
    secret = base64.urlsafe_b64encode(b"s" * 32).rstrip(b"=").decode()
    keys = write(os.path.join(folder, "keys"), json.dumps({"keys": [{"kty": "oct", "kid": "k", "alg": "HS256", "k": secret}]}))
    basic = lambda text: "Basic " + base64.b64encode(text.encode()).decode()
    bearer = lambda **claims: "Bearer " + token({"exp": time.time() + 600, "aud": "archive", "scope": "read", **claims})
    one = instance(1, 1, 1)[0]
    now = time.time()
    with Web(os.path.join(folder, "in"), "--web-users", users, "--web-keys", keys, "--web-audience", "archive", "--web-origin",
             "https://viewer.example") as server:
        for title, login, reading, writing in (
                ("nobody", None, 401, 401), ("ann", basic("ann:hush"), 200, 200), ("ann again", basic("ann:hush"), 200, 200), ("ann, wrong", basic("ann:quiet"), 401, 401),
                ("ann, longer", basic("ann:hush "), 401, 401), ("bob", basic("bob:quiet"), 403, 200), ("eve", basic("eve:hush"), 401, 401),
                ("no name", basic("hush"), 401, 401), ("no base64", "Basic !!!", 401, 401), ("a NUL", basic("ann:hush\0"), 401, 401), ("another scheme", "Digest x", 401, 401),
                ("a token", bearer(), 200, 403), ("a token that writes", bearer(scope="write"), 403, 200), ("roles", bearer(scope="", roles=["read", "write"]), 200, 200),
                ("no role", bearer(scope="admin"), 403, 403), ("old", bearer(exp=now - 1000), 401, 401), ("early", bearer(nbf=now + 1000), 401, 401),
                ("no end", "Bearer " + token({"aud": "archive", "scope": "read"}), 401, 401), ("for others", bearer(aud=["x"]), 401, 401),
                ("for some", bearer(aud=["x", "archive"]), 200, 403), ("another secret", "Bearer " + token({"exp": now + 99, "aud": "archive"}, b"t" * 32), 401, 401),
                ("no algorithm", "Bearer " + token({"exp": now + 99, "aud": "archive"}, alg="none"), 401, 401),
                ("another key", "Bearer " + token({"exp": now + 99, "aud": "archive"}, kid="z"), 401, 401), ("rubbish", "Bearer a.b.c", 401, 401),
                ("signed by nothing", bearer()[:-43], 401, 401), ("a changed claim", bearer().replace(".", ".e", 1), 401, 401)):
            more = {"Authorization": login} if login else {}
            check(ask(server.web, "/dicom-web/studies", **more).status == reading, title + ": reading is not answered with %d" % reading)
            check(post(server.web, body_of(one), **more).status == writing, title + ": writing is not answered with %d" % writing)
        check("Basic" in ask(server.web, "/dicom-web/studies").headers["WWW-Authenticate"], "no word of how to prove it")
        for origin, welcome in (("https://viewer.example", True), ("https://viewer.example.evil", False), ("null", False)):
            answer = ask(server.web, "/dicom-web/studies", method="OPTIONS", Origin=origin, Access_Control_Request_Method="GET")
            check((answer.headers.get("Access-Control-Allow-Origin") == origin) == welcome and answer.status == 204, "a page of " + origin)
            answer = ask(server.web, "/dicom-web/studies", Origin=origin, Authorization=basic("ann:hush"))
            check((answer.headers.get("Access-Control-Allow-Origin") == origin) == welcome, "an answer for a page of " + origin)
    check("hush" not in server.text and "quiet" not in server.text and secret not in server.text, "a secret is told: " + server.text)
    for kind, words in (("RS256", ("genrsa", "-out", key, "2048")), ("ES256", ("ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", key))):
        run("openssl", *words)
        run("openssl", "pkey", "-in", key, "-pubout", "-out", public)
        pack = lambda part: base64.urlsafe_b64encode(part).rstrip(b"=")
        text = pack(json.dumps({"alg": kind}).encode()) + b"." + pack(json.dumps({"exp": now + 600, "scope": "read"}).encode())
        signature = run("openssl", "dgst", "-sha256", "-sign", key, input=text).stdout
        if kind == "ES256":
            first = signature[4:4 + signature[3]]
            second = signature[6 + signature[3]:]
            signature = b"".join(part.lstrip(b"\0").rjust(32, b"\0") for part in (first, second))
        with Web(os.path.join(folder, "in"), "--web-keys", public) as server:
            for title, sent, status in (("a token", signature, 200), ("another one", signature[:-1] + bytes([signature[-1] ^ 1]), 401), ("none", b"", 401),
                                        ("zeros", bytes(len(signature)), 401)):
                login = "Bearer " + (text + b"." + pack(sent)).decode()
                check(ask(server.web, "/dicom-web/studies", Authorization=login).status == status, "%s, %s: not %d" % (kind, title, status))
            with open(public, "rb") as file:
                forged = "Bearer " + token({"exp": now + 600, "scope": "read"}, file.read())
            check(ask(server.web, "/dicom-web/studies", Authorization=forged).status == 401, kind + ": the public key passes as a secret")
    for options in (("--web-users", os.path.join(folder, "none")), ("--web-users", write(os.path.join(folder, "bad"), "ann:hush:read")), ("--web-keys", users),
                    ("--web-rights", "fly"), ("--web-users", write(os.path.join(folder, "bad2"), "ann:%s:fly" % hashes["ann"]))):
        result = run(VEXAL, "serve", free_port(), "--dir", folder, "--web", free_port(), *options, timeout=20, text=True)
        check(result.returncode == 2 and hashes["ann"] not in result.stderr and "hush" not in result.stderr, "%s: %s" % (options, result))
    with Web(os.path.join(folder, "in"), "--web-rights", "read") as server:
        check(ask(server.web, "/dicom-web/studies").status == 200 and post(server.web, body_of(one)).status == 403, "--web-rights read")


def secure(folder):
    """https with the certificate of the associations; older versions and plain http are turned away."""
    if not has("openssl", "web services over TLS"):
        return
    objects = fill(os.path.join(folder, "in"))
    certificate, key = os.path.join(folder, "cert.pem"), os.path.join(folder, "key.pem")
    run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", certificate, "-days", "2", "-subj", "/CN=localhost",
        "-addext", "subjectAltName=IP:127.0.0.1")
    with Web(os.path.join(folder, "in"), "--tls", "--tls-cert", certificate, "--tls-key", key, "--tls-no-verify") as server:
        for title, lowest, highest, good in (("any version", None, None, True), ("1.2", None, "TLSv1_2", True), ("1.3", "TLSv1_3", None, True), ("1.1", None, "TLSv1_1", False)):
            context = ssl.create_default_context(cafile=certificate)
            with warnings.catch_warnings():
                warnings.simplefilter("ignore")
                if lowest:
                    context.minimum_version = getattr(ssl.TLSVersion, lowest)
                if highest:
                    context.minimum_version, context.maximum_version = ssl.TLSVersion.TLSv1, getattr(ssl.TLSVersion, highest)
                    context.set_ciphers("DEFAULT:@SECLEVEL=0")
            try:
                url = "https://127.0.0.1:%d%s" % (server.web, study_path(1))
                with urllib.request.urlopen(urllib.request.Request(url, headers={"Accept": PARTS}), context=context, timeout=30) as answer:
                    body = answer.read()
            except OSError:
                body = None
            check((body is not None) == good, "TLS, %s: %s" % (title, "refused" if body is None else "taken"))
            check(not good or sum(row[0] in (body or b"") for row in objects.values()) == 6, "TLS, %s: other objects" % title)
        try:
            check(ask(server.web, "/dicom-web/studies").status >= 400, "plain http is served")
        except (OSError, http.client.HTTPException):
            pass


# ---- Hostile clients ----


def hostile(folder):
    """Heads and bodies that are too long, too slow, broken or never end; connections that say nothing."""
    fill(folder)
    with Web(folder, "--timeout", "2", "--web-connections", "16", "--max-per-address", "8") as server:
        def send(text, wait=5.0, slow=b""):
            """What comes back, and how long it took."""
            start = time.monotonic()
            with socket.create_connection(("127.0.0.1", server.web), timeout=10) as connection:
                try:
                    connection.sendall(text)
                    for n in range(len(slow)):
                        connection.sendall(slow[n:n + 1])
                        time.sleep(0.3)
                    connection.settimeout(wait)
                    back = b""
                    while piece := connection.recv(65536):
                        back += piece
                except (socket.timeout, ConnectionError, BrokenPipeError):
                    back = locals().get("back", b"")
            return back, time.monotonic() - start

        get = b"GET /dicom-web/studies HTTP/1.1\r\nHost: x\r\n"
        for title, text, statuses in (
                ("no HTTP", b"\x16\x03\x01\x02\x00" * 100, (b"", b"HTTP/1.1 400")), ("a DICOM request", b"\1\0\0\0\0\x44" + bytes(68), (b"", b"HTTP/1.1 400")),
                ("no host", b"GET /dicom-web/studies HTTP/1.1\r\n\r\n", (b"HTTP/1.1 400",)), ("a long target", b"GET /" + b"x" * 200000 + b" HTTP/1.1\r\n\r\n", (b"", b"HTTP/1.1 414", b"HTTP/1.1 431")),
                ("a long header", get + b"X: " + b"x" * 200000 + b"\r\n\r\n", (b"", b"HTTP/1.1 431", b"HTTP/1.1 413")), ("many headers", get + b"X: y\r\n" * 30000 + b"\r\n", (b"", b"HTTP/1.1 431", b"HTTP/1.1 413")),
                ("climbing", b"GET /dicom-web/../../etc/passwd HTTP/1.1\r\nHost: x\r\n\r\n", (b"HTTP/1.1 400",)), ("a NUL", b"GET /dicom-web/%00 HTTP/1.1\r\nHost: x\r\n\r\n", (b"HTTP/1.1 400",)),
                ("another method", b"BREW /dicom-web/studies HTTP/1.1\r\nHost: x\r\n\r\n", (b"HTTP/1.1 405",)), ("an evil host", get.replace(b"x\r", b'"><x>\r') + b"\r\n", (b"HTTP/1.1 200",)),
                ("lengths that differ", b"POST /dicom-web/studies HTTP/1.1\r\nHost: x\r\nContent-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", (b"HTTP/1.1 4", b"")),
                ("a length that is none", b"POST /dicom-web/studies HTTP/1.1\r\nHost: x\r\nContent-Length: -5\r\n\r\n", (b"HTTP/1.1 4", b"")),
                ("chunks that are none", b"POST /dicom-web/studies HTTP/1.1\r\nHost: x\r\nContent-Type: application/dicom\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n", (b"HTTP/1.1 4", b""))):
            back, took = send(text, 4)
            check(any(back.startswith(status) if status else not back for status in statuses) and took < 8, "%s: %s after %.1f s" % (title, back[:80], took))
            check(b"><x>" not in back, title + ": the host comes back as it is")
        dripping = b"POST /dicom-web/studies HTTP/1.1\r\nHost: x\r\nContent-Type: application/dicom\r\nContent-Length: 100000000\r\n\r\n"
        slow = (("a slow head", b"GET /dicom-web", b"x" * 30), ("a slow body", dripping, b"x" * 30), ("silence", b"", b""), ("half a body", dripping + bytes(1000), b""))
        for (title, *_), (back, took) in zip(slow, at_once([lambda text=text, drops=drops: send(text, 6, drops) for _, text, drops in slow])):
            check(took < 14 and not back.startswith(b"HTTP/1.1 200"), "%s: %s after %.1f s" % (title, back[:60], took))
        # Who reads nothing does not hold a connection for long, and more than may be are not served at once.
        idle = [socket.create_connection(("127.0.0.1", server.web)) for _ in range(30)]
        served = 0
        for connection in idle:
            with connection, contextlib.suppress(ConnectionError):
                connection.settimeout(2)
                connection.sendall(get + b"\r\n")
                served += connection.recv(12) == b"HTTP/1.1 200"
        check(8 <= served < 30, "%d of 30 connections of one address are served" % served)
        for n in range(200):
            with contextlib.suppress(ConnectionError), socket.create_connection(("127.0.0.1", server.web)) as connection:
                connection.sendall(get if n % 2 else get + b"\r\n")
        time.sleep(3)
        check(ask(server.web, "/dicom-web/studies").status == 200, "not served after many connections")
        check(store_status(server.port, "%s.9" % ROOT) in (0, 0xA900), "DIMSE is not served")
        check(server.peak() < 64 << 20, "hostile: takes %d MB" % (server.peak() >> 20))


# ---- Another archive as client ----


def with_orthanc(folder):
    """Orthanc searches, retrieves and stores through its own web services client."""
    if ORTHANC is None or not os.path.exists(PLUGIN):
        return left_out("another archive as client of the web services", "orthanc-dicomweb")
    objects = fill(os.path.join(folder, "in"))
    os.mkdir(os.path.join(folder, "db"))
    with Web(os.path.join(folder, "in")) as server, Web(os.path.join(folder, "out")) as target:
        port = free_port()
        urls = {name: {"Url": "http://127.0.0.1:%d/dicom-web/" % web.web} for name, web in (("ours", server), ("target", target))}
        config = write(os.path.join(folder, "orthanc.json"), json.dumps({
            "StorageDirectory": os.path.join(folder, "db"), "IndexDirectory": os.path.join(folder, "db"), "HttpPort": port, "DicomPort": free_port(),
            "AuthenticationEnabled": False, "Plugins": [PLUGIN], "DicomWeb": {"Servers": urls}}))
        with Server(ORTHANC, config, port=port):
            def call(name, action, **body):
                answer = ask(port, "/dicom-web/servers/%s/%s" % (name, action), body=json.dumps({"Synchronous": True, **body}).encode())
                check(answer.status == 200, "Orthanc, %s: %d %s" % (action, answer.status, answer.body[:300]))
                return answer.json() if answer.status == 200 else {}

            found = call("ours", "qido", Uri="/studies", Arguments={"PatientName": "Made*"})
            check(len(found) == 1 and "Made^File" in json.dumps(found), "Orthanc, qido: %s" % found)
            call("ours", "retrieve", Resources=[{"Study": "%s.2.%d" % (ROOT, n)} for n in (1, 2)])
            there = ask(port, "/instances").json()
            check(len(there) == len(objects), "Orthanc has %d of %d instances" % (len(there), len(objects)))
            for name in there:
                content = ask(port, "/instances/%s/file" % name).body
                check(any(content[-40:] == row[0][-40:] for row in objects.values()), "Orthanc has another object")
            call("target", "stow", Resources=there)
        check(len(ask(target.web, "/dicom-web/instances").json()) == len(objects), "Orthanc stored others")


sys.exit(run_parts(searches, retrievals, large, stores, operation, rights, secure, hostile, with_orthanc, chosen=sys.argv[2:]))
