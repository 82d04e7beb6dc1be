#!/usr/bin/env python3
"""Videos and images in the later transfer syntaxes on every way between programs: each arrives as it lies in its file where the
peer takes it so, in what the peer takes where that is possible, and else not at all, with a line that tells why.

usage: transfers.py VEXAL
Exit 77 (skipped) where pydicom or numpy are missing.
"""
import http.server
import os
import sys
import threading

from checks import VEXAL, Server, Vexal, arrived, check, data_set_of, files_under, has, left_out, meta_text, need, paths, read, run, run_parts, vexal, write
from made import EXPLICIT, IMPLICIT, ROOT, content, meta, video

need(modules=["pydicom", "numpy"])
import pydicom
import pydicom.encaps

from pixels import MANY_FRAMES, Image, distance, samples_of
from wire import Liar, answer_to

UID = "1.2.840.10008.1.2."
FILM = "1.2.840.10008.5.1.4.1.1.77.1.1.1"
JPEG, JPEG_12, KEPT_JPEG = UID + "4.50", UID + "4.51", UID + "4.111"
STUDY = ("--level", "study", "-k", "StudyInstanceUID=%s.2.1" % ROOT, "--class", MANY_FRAMES, "--class", FILM)
# By the name of its syntax: the image, and what it is made from.
IMAGES = {name: (Image(9, 20 + n, stored, signed, photometric, frames=3), steps) for n, (name, stored, signed, photometric, steps) in enumerate((
    ("htj2k", 12, 0, "MONOCHROME2", ()), ("htj2k-rpcl", 16, 1, "MONOCHROME2", ()), ("htj2k-lossy", 8, 0, "RGB", ()), ("jpeg-xl", 11, 0, "MONOCHROME2", ()),
    ("jpeg-xl-lossy", 8, 0, "RGB", ()), ("jpeg-xl-recompressed", 8, 0, "RGB", ("jpeg",)), ("jpeg", 8, 0, "RGB", ()),
    ("encapsulated", 9, 1, "MONOCHROME2", ()), ("deflated-frames", 16, 0, "MONOCHROME2", ())))}
EXACT = ("htj2k", "htj2k-rpcl", "jpeg-xl", "encapsulated", "deflated-frames")
VIDEOS = ("100", "101", "102", "103", "104", "105", "106", "107", "108", "100.1", "102.1")


def make_objects(folder, videos=VIDEOS):
    """Paths by name. The first fragments of videos are no stream: nobody has to look into them."""
    made = {}
    for name, (image, steps) in IMAGES.items():
        plain, made[name] = paths(folder, "plain", name + ".dcm")
        image.write(plain)
        for step in steps:
            vexal("convert", "--quiet", "--to", step, plain, plain)
        if b"not installed" in run(VEXAL, "convert", "--quiet", "--to", name, plain, made[name]).stderr:
            left_out("objects in " + name, "its library")
            made.pop(name)
        os.remove(plain)
    for number in videos:
        parts = [content("OB", size) for size in ((70002, 0, 40000) if "." in number else (70002,))]
        made[number] = write(os.path.join(folder, number + ".dcm"), video(parts, number))
    return made


def same(title, folder, sent):
    """What has arrived in a folder is what was sent, byte by byte."""
    found = arrived(folder)
    for name, path in sent.items():
        there = found.pop(meta_text(path, 3), None)
        if check(there, "%s: %s did not arrive" % (title, name)):
            check(meta_text(there, 0x10) == meta_text(path, 0x10), "%s: %s arrives as %s" % (title, name, meta_text(there, 0x10)))
            check(data_set_of(there) == data_set_of(path), "%s: %s arrives changed" % (title, name))
    check(not found, "%s: more arrived: %s" % (title, found))


def streams(path):
    data = pydicom.dcmread(path)
    return list(pydicom.encaps.decode_data_sequence(data.PixelData))


def described(folder):
    """What pixels may stand for in a syntax is asked of the object."""
    wrong, says = os.path.join(folder, "wrong"), b"[in this transfer syntax "
    for name, path in make_objects(folder, ()).items():
        told = run(VEXAL, "validate", path).stdout
        check(says not in told, "%s: validate says %s" % (name, told))
        vexal("modify", "--set", "PhotometricInterpretation=" + ("YBR_PARTIAL_420" if name == "htj2k-lossy" else "YBR_ICT"), path, wrong)
        check((says in run(VEXAL, "validate", wrong).stdout) == (name not in ("encapsulated", "deflated-frames")), name + ": validate takes another")


def through_servers(folder):
    """Stored into an archive, fetched from it, and moved from it to a third."""
    (sources, served, got, moved), objects = paths(folder, "sources", "served", "got", "moved"), {}
    objects = make_objects(sources)
    with Vexal("receive", moved) as receiver, Vexal("serve", served, "--node", "THERE=127.0.0.1:%d" % receiver.port) as server:
        vexal("store", "127.0.0.1", server.port, "--window", 4, sources)
        same("store", served, objects)
        vexal("get", "127.0.0.1", server.port, *STUDY, "--dir", got)
        same("get", got, objects)
        vexal("move", "127.0.0.1", server.port, "--to", "THERE", *STUDY[:4])
        same("move", moved, objects)


def to_narrow_peers(folder):
    """What is sent to a peer that takes but one syntax. None: nothing, and the line names the syntax that it does not take."""
    objects, (there, other) = make_objects(folder, ("102", "107", "100")), paths(folder, "there", "other")
    # A stream that was no JPEG, under the name of those that are: it can only be decompressed.
    made_up = make_objects(os.path.join(folder, "made-up"), ())["jpeg-xl-lossy"]
    objects["no JPEG"] = write(os.path.join(folder, "no-jpeg"), read(made_up).replace(UID.encode() + b"4.112", KEPT_JPEG.encode()))
    cases = [(name, {takes}, takes, ()) for name in IMAGES if name in objects for takes in (EXPLICIT, IMPLICIT)]
    cases += [(name, {EXPLICIT, IMPLICIT, JPEG}, None, ()) for name in ("102", "107", "100")]
    cases += [("htj2k", {UID + "4.202", UID + "4.90"}, None, ()), ("jpeg-xl", {JPEG, KEPT_JPEG}, None, ()), ("jpeg", {KEPT_JPEG}, None, ("--no-convert",)),
              ("jpeg", {KEPT_JPEG, EXPLICIT}, KEPT_JPEG, ()), ("jpeg", {KEPT_JPEG}, KEPT_JPEG, ()), ("jpeg", {JPEG, KEPT_JPEG}, JPEG, ()),
              ("jpeg-xl-recompressed", {JPEG, EXPLICIT}, JPEG, ()), ("jpeg-xl-recompressed", {JPEG_12}, JPEG_12, ()),
              ("no JPEG", {JPEG, EXPLICIT}, EXPLICIT, ()), ("no JPEG", {JPEG}, None, ())]
    for name, takes, expected, words in cases:
        if name not in objects:
            continue
        title, seen = "%s to a peer that takes %s" % (name, sorted(takes)), []
        with Liar(lambda context, fields: (seen.append((context, liar.data)), answer_to(context, fields))[1], takes=takes) as liar:
            result = run(VEXAL, "store", "127.0.0.1", liar.port, "--retries", 0, *words, objects[name])
        own = meta_text(objects[name], 0x10)
        if expected is None:
            check(result.returncode in (1, 3) and not seen, "%s: ends with %d" % (title, result.returncode))
            says = b"keep its JPEG stream" if name == "no JPEG" else b"the peer takes no STANDARD_"
            check(says in result.stderr and (own.encode() in result.stderr or name == "no JPEG"), "%s: says %s" % (title, result.stderr))
            continue
        if not check(result.returncode == 0 and len(seen) == 1, "%s: %d came: %s" % (title, len(seen), result.stderr)):
            continue
        context, data = seen[0]
        check(liar.syntaxes[context] == expected, "%s: sent in %s" % (title, liar.syntaxes[context]))
        write(there, meta(MANY_FRAMES, meta_text(objects[name], 3), liar.syntaxes[context]) + data)
        if expected in (EXPLICIT, IMPLICIT) and name in EXACT:
            check(distance(samples_of(there, IMAGES[name][0]), IMAGES[name][0].pixels) == 0, title + ": other pixels")
        elif expected in (EXPLICIT, IMPLICIT):
            vexal("convert", "--to", expected, objects[name], other)
            check(data_set_of(other) == data, title + ": not what convert gives")
        else:  # to JPEG and back: the streams are those of the file
            vexal("convert", "--to", own, there, other)
            check(data_set_of(other) == data_set_of(objects[name]), title + ": other streams")


def converted_as_they_come(folder):
    """receive --to keeps JPEG streams too, and what it can not have so."""
    objects, there = make_objects(folder, ("102",)), os.path.join(folder, "there")
    for target, name in ((KEPT_JPEG, "jpeg"), (JPEG, "jpeg-xl-recompressed")):
        out, back = os.path.join(folder, name), os.path.join(folder, "back")
        with Vexal("receive", out, "--to", target) as server:
            vexal("store", "127.0.0.1", server.port, objects[name], objects["102"], objects["htj2k"])
        found = arrived(out)
        there = found[meta_text(objects[name], 3)]
        check(meta_text(there, 0x10) == target, "receive --to %s: stored in %s" % (target, meta_text(there, 0x10)))
        vexal("convert", "--to", meta_text(objects[name], 0x10), there, back)
        check(data_set_of(back) == data_set_of(objects[name]), "receive --to %s: other streams" % target)
        for kept in ("102", "htj2k"):
            check(data_set_of(found[meta_text(objects[kept], 3)]) == data_set_of(objects[kept]), "receive --to %s: %s is changed" % (target, kept))


def beside_dcmtk(folder):
    if not (has("storescp", "transfers of videos") and has("storescu", "transfers of videos")):
        return
    (sources, theirs, ours, plain), options = paths(folder, "sources", "theirs", "ours", "plain"), dict(zip(VIDEOS, "mhnl23o45"))
    objects = make_objects(sources, [name for name in VIDEOS if name in options])
    films = {name: path for name, path in objects.items() if name in options}
    os.mkdir(theirs)
    with Server("storescp", "+xa", "+B", "-od", theirs, "{port}") as server:
        vexal("store", "127.0.0.1", server.port, *films.values())
    same("store to storescp", theirs, films)
    with Vexal("receive", ours) as server:
        for name, path in films.items():
            run("storescu", "-R", "-nh", "-x" + options[name], "-aec", "VEXAL", "127.0.0.1", server.port, path)
    found = arrived(ours)
    for name, path in films.items():
        there = found.get(meta_text(path, 3))
        check(there and meta_text(there, 0x10) == meta_text(path, 0x10) and streams(there) == streams(path), "storescu: video %s does not arrive" % name)
    os.mkdir(plain)
    with Server("storescp", "-od", plain, "{port}") as server:
        result = run(VEXAL, "store", "127.0.0.1", server.port, *objects.values())
    check(result.returncode == 1 and result.stderr.count(b"the peer takes no") == len(films), "storescp without compression: %s" % result.stderr)
    found = arrived(plain)
    check(len(found) == len(objects) - len(films), "storescp without compression has %d objects" % len(found))
    for name in EXACT:
        if name in objects:
            image = IMAGES[name][0]
            check(distance(samples_of(found.get(meta_text(objects[name], 3), ""), image), image.pixels) == 0, "storescp: other pixels of " + name)


class Web(http.server.BaseHTTPRequestHandler):
    """Gives back what was stored last."""
    stored = b""

    def do_POST(self):
        body, length = b"", self.headers.get("Content-Length")
        if length is None:  # in chunks
            while size := int(self.rfile.readline(), 16):
                body += self.rfile.read(size)
                self.rfile.readline()
            self.rfile.readline()
        else:
            body = self.rfile.read(int(length))
        Web.stored, Web.kind = body, self.headers["Content-Type"]
        self.answer("application/dicom+json", b"{}")

    def do_GET(self):
        self.answer(Web.kind, Web.stored)

    def answer(self, kind, body):
        self.send_response(200)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


def over_the_web(folder):
    sources, out = paths(folder, "sources", "out")
    objects = make_objects(sources)
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Web)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    url = "http://127.0.0.1:%d" % server.server_port
    for path in objects.values():
        vexal("web", "store", url, path)
        vexal("web", "retrieve", url, "--study", "1.2", "--dir", out)
    server.shutdown()
    found = {meta_text(path, 3): read(path) for path in files_under(out)}
    check(found == {meta_text(path, 3): read(path) for path in objects.values()}, "web: other files come back: %s" % sorted(found))


if __name__ == "__main__":
    sys.exit(run_parts(described, through_servers, to_narrow_peers, converted_as_they_come, beside_dcmtk, over_the_web, chosen=sys.argv[2:]))
