#!/usr/bin/env python3
"""vexal make: what comes out is what went in, valid to others, and what is broken is refused.

usage: make.py VEXAL [SAMPLES]
Other programs (ffmpeg, dcmtk, dciodvfy, OpenJPEG, pydicom) take part where they are installed.
"""
import glob
import json
import os
import resource
import struct
import subprocess
import sys
import zlib

from checks import VEXAL, Server, arrived, check, has, paths, read, run, run_parts, vexal, write
from made import SECONDARY_CAPTURE, Writer, head, meta, tail

DOCUMENTS = "1.2.840.10008.5.1.4.1.1.104."
LIGHT = "1.2.840.10008.5.1.4.1.1.77.1."


def attributes(path):
    """Values by tag: one alone, several as a list."""
    values = json.loads(vexal("json", "--no-bulk", path, title="json").stdout)
    values = {tag: row.get("Value", [""]) for tag, row in values.items()}
    return {tag: value[0] if len(value) == 1 else value for tag, value in values.items()}


def expect(path, **wanted):
    """By tags with a t in front."""
    found = attributes(path)
    for tag, value in wanted.items():
        check(found.get(tag[1:]) == value, "%s: %s is %r, not %r" % (os.path.basename(path), tag[1:], found.get(tag[1:]), value))
    return found


def frames_of(path):
    out = path + ".frames"
    vexal("pixel", "extract", path, out, title="extract")
    return b"".join(read(name) for name in sorted(glob.glob(out + "/*"))) if os.path.isdir(out) else read(out)


def check_valid(folder):
    """All that was made there: to ourselves, to dciodvfy, to dcmtk, and on the wire."""
    files = sorted(glob.glob(folder + "/*.dcm"))
    vexal("validate", *files, title="validate")
    if has("dciodvfy", "what is made"):
        for path in files:
            # It knows neither OBJ and MTL nor HEVC.
            if meta_text_ends(path, (DOCUMENTS + "4", DOCUMENTS + "5")) or b"1.2.840.10008.1.2.4.107" in read(path)[:400]:
                continue
            told = run("dciodvfy", path).stderr.decode(errors="replace")
            check("Error" not in told, "dciodvfy %s: %s" % (os.path.basename(path), told))
    if has("storescp", "what is made"):
        out = folder + "/arrived"
        os.mkdir(out)
        with Server("storescp", "+xa", "-od", out, "{port}") as server:
            vexal("store", "127.0.0.1", server.port, *files, title="store")
        check(len(arrived(out)) == len(files), "storescp has %d of %d" % (len(arrived(out)), len(files)))


def meta_text_ends(path, classes):
    return any((uid + "\0").encode() in read(path)[:400] or uid.encode() + b"\2\0" in read(path)[:400] for uid in classes)


# ---- Pictures ----


def chunk(name, content):
    return struct.pack(">I", len(content)) + name + content + struct.pack(">I", zlib.crc32(name + content))


def png(width, height, depth, colour, rows, *more, adam7=False):
    """Rows of packed bytes, or passes of them."""
    body = b"".join(b"\0" + row for row in rows)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, adam7)) + b"".join(more) +
            chunk(b"IDAT", zlib.compress(body)) + chunk(b"IEND", b""))


def samples(width, height, channels, top, step=7):
    return [[(y * 31 + x * step) % (top + 1) for x in range(width * channels)] for y in range(height)]


def packed(row, depth):
    """Samples of a row, the first in the highest bits."""
    if depth >= 8:
        return b"".join(v.to_bytes(depth // 8, "big") for v in row)
    bits = "".join(format(v, "0%db" % depth) for v in row)
    bits += "0" * (-len(bits) % 8)
    return bytes(int(bits[i:i + 8], 2) for i in range(0, len(bits), 8))


def adam7(rows):
    passes = ((0, 0, 8, 8), (4, 0, 8, 8), (0, 4, 4, 8), (2, 0, 4, 4), (0, 2, 2, 4), (1, 0, 2, 2), (0, 1, 1, 2))
    return [bytes(row[x::dx]) for x, y, dx, dy in passes for row in rows[y::dy] if row[x::dx]]


def little(rows, size):
    return b"".join(v.to_bytes(size, "little") for row in rows for v in row)


def flat(values):
    return bytes(values)


def pngs():
    """Name, file, samples a pixel, bits, what the frame is."""
    for depth in (1, 2, 4, 8, 16):
        rows = samples(7, 5, 1, (1 << depth) - 1)
        scale = 255 // ((1 << depth) - 1) if depth < 8 else 1
        yield "grey%d" % depth, png(7, 5, depth, 0, [packed(r, depth) for r in rows]), 1, max(8, depth), little([[v * scale for v in r] for r in rows], 2 if depth == 16 else 1)
    for depth in (8, 16):
        rows = samples(5, 3, 3, (1 << depth) - 1, 1021)
        yield "rgb%d" % depth, png(5, 3, depth, 2, [packed(r, depth) for r in rows]), 3, depth, little(rows, depth // 8)
    palette = [(i * 60, 255 - i * 50, i * 7) for i in range(4)]
    rows = samples(9, 4, 1, 3)
    plte = chunk(b"PLTE", bytes(v for colour in palette for v in colour))
    yield "palette", png(9, 4, 2, 3, [packed(r, 2) for r in rows], plte), 3, 8, bytes(v for r in rows for i in r for v in palette[i])
    opaque = [[v if i % 4 != 3 else 255 for i, v in enumerate(r)] for r in samples(6, 2, 4, 255)]
    yield "opaque", png(6, 2, 8, 6, map(flat, opaque)), 3, 8, bytes(v for r in opaque for i, v in enumerate(r) if i % 4 != 3)
    rows = samples(13, 11, 1, 255)
    yield "interlaced", png(13, 11, 8, 0, adam7(rows), adam7=True), 1, 8, little(rows, 1)


def bmp(width, height, bits, rows, palette=b"", compression=0, masks=b"", upwards=True):
    rows = [row + b"\0" * (-len(row) % 4) for row in rows]
    body = b"".join(reversed(rows) if upwards else rows)
    at = 54 + len(masks) + len(palette)
    return (struct.pack("<2sIII", b"BM", at + len(body), 0, at) + struct.pack("<IiiHHIIiiII", 40, width, height if upwards else -height, 1, bits, compression, 0, 0, 0, len(palette) // 4, 0) +
            masks + palette + body)


def bmps():
    grey = b"".join(bytes((i, i, i, 0)) for i in range(256))
    rows = samples(5, 4, 1, 255)
    yield "bmp8", bmp(5, 4, 8, map(flat, rows), grey), 1, 8, little(rows, 1)
    colours = bytes((1, 2, 3, 0, 200, 100, 50, 0))
    bits = samples(11, 2, 1, 1)
    yield "bmp1", bmp(11, 2, 1, [packed(r, 1) for r in bits], colours), 3, 8, bytes(v for r in bits for i in r for v in ((3, 2, 1), (50, 100, 200))[i])
    rows = samples(3, 3, 3, 255, 51)
    yield "bmp24", bmp(3, 3, 24, [bytes(v for x in range(0, 9, 3) for v in r[x:x + 3][::-1]) for r in rows]), 3, 8, little(rows, 1)
    rows = samples(3, 2, 4, 255, 17)
    yield "bmp32", bmp(3, 2, 32, map(flat, rows), compression=3, masks=struct.pack("<III", 0xFF, 0xFF00, 0xFF0000), upwards=False), 3, 8, bytes(v for r in rows for i, v in enumerate(r) if i % 4 != 3)


def check_pictures(folder):
    for name, content, count, bits, frame in [*pngs(), *bmps()]:
        path = write(os.path.join(folder, name), content)
        vexal("make", path, path + ".dcm")
        expect(path + ".dcm", t00080016=SECONDARY_CAPTURE, t00280002=count, t00280101=bits, t00280103=0, t00280004="RGB" if count == 3 else "MONOCHROME2")
        check(frames_of(path + ".dcm") == frame, name + ": other pixels")
        for cut in sorted({0, 1, len(content) // 3, len(content) // 2, len(content) - 13, len(content) - 1}):
            write(path + ".cut", content[:cut])
            vexal("make", path + ".cut", path + ".no", status=2, title="%s cut at %d" % (name, cut))
        check(not os.path.exists(path + ".no"), name + ": a file of a cut picture")
    check_transparency(folder)
    rows = samples(4, 4, 1, 255)
    one, two = (write(os.path.join(folder, n), png(4, 4, 8, 0, map(flat, r))) for n, r in (("one.png", rows), ("two.png", rows[::-1])))
    several = folder + "/several.dcm"
    vexal("make", one, two, one, several)
    expect(several, t00080016=SECONDARY_CAPTURE + ".2", t00280008=3, t00182001=[1, 2, 3], t00280301="YES")
    check(frames_of(several) == little(rows + rows[::-1] + rows, 1), "three pictures: other pixels")
    many = [one, two] * 130
    crowd = folder + "/crowd.dcm"
    vexal("make", *many, crowd, title="260 pictures", preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (100, 100)))
    check(frames_of(crowd) == little((rows + rows[::-1]) * 130, 1), "260 pictures: other pixels")
    vexal("make", one, folder + "/rgb8", folder + "/no.dcm", status=2, says="another form")
    vexal("make", one, two, status=2, says="another name")
    check(read(two)[:4] == b"\x89PNG", "a forgotten OUT cost an input")
    for name in ("photographic", "endoscopic", "microscopic"):
        vexal("make", folder + "/rgb8", folder + "/vl-%s.dcm" % name, "--class", "vl-" + name)
    vexal("make", folder + "/rgb16", folder + "/no.dcm", "--class", "vl-photographic", status=2, says="8 bits")
    check_valid(folder)


def check_transparency(folder):
    glass = png(2, 1, 8, 4, [bytes((100, 255, 100, 51))])
    path = write(folder + "/glass.png", glass)
    vexal("make", path, path + ".no", status=2, says="transparent")
    vexal("make", path, path + ".dcm", "--background", "200,200,200")
    check(frames_of(path + ".dcm")[:2] == bytes((100, 180)), "what shines through")
    moving = write(folder + "/moving.png", png(1, 1, 8, 0, [b"\0"], chunk(b"acTL", bytes(8))))
    vexal("make", moving, path + ".no", status=2, says="animation")


def check_raw(folder):
    raw, out = paths(folder, "raw", "raw.dcm")
    rows = [(0, 2047, -2048, -1), (5, -5, 1, 0)]
    values = b"".join(v.to_bytes(2, "little", signed=True) for row in rows for v in row)
    write(raw, values)
    vexal("make", raw, out, "--size", "4,2", "--bits", "12", "--signed")
    expect(out, t00280101=12, t00280102=11, t00280103=1, t00280010=2, t00280011=4)
    check(frames_of(out) == values, "raw: other pixels")
    vexal("make", raw, folder + "/no", "--size", "4,2", "--bits", "11", "--signed", status=2, says="beyond 11 bits")
    vexal("make", raw, folder + "/no", "--size", "4,2", "--bits", "12", status=2, says="beyond 12 bits")
    vexal("make", raw, folder + "/no", "--size", "5,2", status=2, says="multiple")
    vexal("make", raw, folder + "/frames.dcm", "--size", "2,2", "--bits", "16")
    expect(folder + "/frames.dcm", t00080016=SECONDARY_CAPTURE + ".3", t00280008=2)
    for wrong in (("--size", "0,1"), ("--size", "1"), ("--bits", "8"), ("--size", "4,2", "--photometric", "RGB"), ("--size", "4,2", "--bits", "17")):
        vexal("make", raw, folder + "/no", *wrong, status=2)
    check_valid(folder)


# ---- Code streams ----

STREAMS = [  # by the program's own names; the syntax and what colour is called in it
    ("jpeg", 8, "50", "YBR_FULL_422"), ("jpeg-12", 12, "51", None), ("jpeg-lossless", 8, "70", "RGB"), ("jpeg-lossless", 16, "70", None),
    ("jpeg-ls", 8, "80", "RGB"), ("jpeg-ls-near", 8, "81", "RGB"), ("jpeg-ls", 12, "80", None), ("jpeg2000", 8, "90", "YBR_RCT"),
    ("jpeg2000-lossy", 8, "91", "YBR_ICT"), ("jpeg2000", 16, "90", None),
]


def check_streams(folder):
    """A stream of ours is taken out, made an object of again, and has the same pixels."""
    for name, bits, syntax, colour in STREAMS:
        for count in (1, 3) if colour else (1,):
            raw, plain, coded, stream, out, back = paths(folder, "raw", "plain", "coded", "stream", "%s-%d-%d.dcm" % (name, bits, count), "back")
            rows = samples(33, 17, count, (1 << bits) - 1, 3)
            write(raw, little(rows, 1 if bits == 8 else 2))
            title = "%s, %d bits, %d samples" % (name, bits, count)
            vexal("make", raw, plain, "--size", "33,17", "--bits", bits, "--samples", count, title=title)
            vexal("convert", "--to", name, plain, coded, title=title)
            vexal("make", "--extract", coded, stream, title=title)
            vexal("make", stream, out, title=title)
            ours, theirs = expect(out, t00280101=bits, t00280002=count, t00280010=17, t00280011=33), attributes(coded)
            check(ours["00280004"] == (colour if count == 3 else "MONOCHROME2") or (name == "jpeg" and theirs["00280004"] == ours["00280004"]), "%s: is %s" % (title, ours["00280004"]))
            check(syntax_of(out) == "1.2.840.10008.1.2.4." + syntax, "%s: syntax %s" % (title, syntax_of(out)))
            check(ours.get("00282114") == theirs.get("00282114"), "%s: lossy by %s" % (title, ours.get("00282114")))
            check(frames_of(out) == frames_of(coded), title + ": other pixels")
            vexal("make", "--extract", out, back, title=title)
            check(read(back) == read(stream), title + ": another stream")
            check_damage(folder, stream, title)
    check_valid(folder)
    with open(folder + "/stream", "ab") as file:
        file.write(b"more")
    vexal("make", folder + "/stream", folder + "/out", status=1, says="4 bytes behind")
    jpeg = read(folder + "/jpeg-8-3.dcm")
    turned = b"\xFF\xE1\0\x22Exif\0\0MM\0*\0\0\0\x08\0\1\x01\x12\0\3\0\0\0\1\0\6\0\0\0\0\0\0"
    vexal("make", write(folder + "/turned", b"\xFF\xD8" + turned + jpeg[jpeg.index(b"\xFF\xD8\xFF") + 2:].split(b"\xFF\xD9")[0] + b"\xFF\xD9"), folder + "/out", status=1, says="orientation 6")
    vexal("make", "--extract", folder + "/out", folder + "/out", status=2, says="is a DICOM object")
    vexal("make", back, back, status=2, says="another name")
    several = folder + "/several"
    vexal("make", back, back, several)
    vexal("make", "--extract", several, folder + "/none", status=2, says="vexal pixel extract")
    crowd = folder + "/crowd"
    vexal("make", *[back] * 260, crowd, title="260 streams", preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (100, 100)))
    check(frames_of(crowd) == frames_of(out) * 260, "260 streams: other pixels")
    check_other_encoders(folder)


def syntax_of(path):
    content = read(path)
    at = content.index(b"\2\0\x10\0UI")
    return content[at + 8:at + 8 + content[at + 6]].rstrip(b"\0").decode()


def check_damage(folder, path, title):
    """What lacks its end is refused; what is changed ends well, whatever it becomes."""
    content, cut, out = read(path), folder + "/cut", folder + "/no"
    for at in sorted({3, 20, len(content) // 4, len(content) // 2, len(content) - 2, len(content) - 1}):
        write(cut, content[:at])
        vexal("make", cut, out, status=2, title="%s cut at %d" % (title, at))
    for at in range(0, min(len(content), 200), 9):
        write(cut, content[:at] + bytes((content[at] ^ 0xFF,)) + content[at + 1:])
        ended = run(VEXAL, "make", cut, out)
        check(ended.returncode in (0, 1, 2), "%s changed at %d: ends with %d" % (title, at, ended.returncode))


def check_other_encoders(folder):
    """JPEG as others write it: the names of components, subsampling, and what has no syntax."""
    source = write(folder + "/source.ppm", b"P6\n64 64\n255\n" + bytes(i * i // 7 % 256 for i in range(64 * 64 * 3)))
    if has("cjpeg", "JPEG of others"):
        for words, photometric, status in ((["-sample", "1x1"], "YBR_FULL_422", 0), (["-sample", "2x2"], "YBR_FULL_422", 0), (["-rgb"], "RGB", 0),
                                           (["-grayscale"], "MONOCHROME2", 0), (["-progressive"], "", 2), (["-arithmetic"], "", 2)):
            made = run("cjpeg", *words, source)
            path = write(folder + "/other.jpg", made.stdout)
            vexal("make", path, folder + "/other", status=status, title="cjpeg " + " ".join(words))
            if status == 0:
                expect(folder + "/other", t00280004=photometric)
                vexal("make", "--extract", folder + "/other", folder + "/back.jpg")
                check(read(path) == read(folder + "/back.jpg"), "cjpeg: another stream")
    if has("opj_compress", "JP2 of others"):
        run("opj_compress", "-i", source, "-o", folder + "/other.jp2")
        vexal("make", folder + "/other.jp2", folder + "/other.j")
        expect(folder + "/other.j", t00280004="YBR_RCT")
        check(frames_of(folder + "/other.j") == read(source)[13:], "JP2: other pixels")


# ---- Documents ----

CDA = """<?xml version="1.0" encoding="UTF-8"?><!-- <ClinicalDocument> -->
<h:ClinicalDocument xmlns:h="urn:hl7-org:v3"><typeId root="9"/><h:id root="1.2.3" extension="a>b"/>
<code code="11490-0" codeSystem="2.16.840.1.113883.6.1" displayName="Discharge"/><title>Brief M\u00fcller &amp;
 S\u00f6hne</title><component/></h:ClinicalDocument>
"""


def documents():
    """Name, content, number of the class, what is told of it when its end is missing."""
    pdf = b"%PDF-1.7\n1 0 obj<</Type/Catalog>>endobj\ntrailer<</Root 1 0 R>>\nstartxref\n9\n%%EOF\n"
    yield "a.pdf", pdf, 1, "cut short"
    yield "odd.pdf", pdf + b"\n" * (1 + len(pdf) % 2), 1, None
    yield "c.xml", CDA.encode(), 2, "cut short"
    for count in (2, 3):
        yield "s%d.stl" % count, b"made of bytes".ljust(80) + struct.pack("<I", count) + bytes(50 * count), 3, "triangles"
    yield "m.obj", b"# made\nmtllib m.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n", 4, None
    yield "m.mtl", b"# made\n\nnewmtl red\nKd 1 0 0\n", 5, None


def check_documents(folder):
    for name, content, number, broken in documents():
        path, out, back = paths(folder, name, name + ".dcm", "back")
        write(path, content)
        vexal("make", path, out)
        expect(out, t00080016=DOCUMENTS + str(number), t00420015=len(content))
        vexal("make", "--extract", out, back)
        check(read(back) == content, name + ": another document")
        vexal("modify", "--delete", "EncapsulatedDocumentLength", out, folder + "/untold")
        vexal("make", "--extract", folder + "/untold", back)
        check(read(back) == content, name + ": another document where its length is not told")
        if broken:
            cut = write(folder + "/cut" + name[-4:], content[:-20])
            vexal("make", cut, folder + "/no", status=2, says=broken)
    found = expect(folder + "/c.xml.dcm", t0040E001="1.2.3^a>b", t00420010="Brief M\u00fcller & S\u00f6hne", t00080005="ISO_IR 192")
    check(found["0040A043"]["00080100"]["Value"] == ["11490-0"], "the code of the document")
    nameless = write(folder + "/nameless.xml", CDA.replace("h:id", "h:no"))
    vexal("make", nameless, folder + "/no", status=2, says="HL7InstanceIdentifier")
    vexal("make", nameless, folder + "/named.dcm", "--set", "HL7InstanceIdentifier=1.2")
    for name, content, says in (("t.stl", "solid a\nfacet normal 0 0 1\nendsolid", "text"), ("x.pdf", "no PDF", "no kind"), ("empty", "", "empty"), ("x.xml", "<a/>", "no kind")):
        vexal("make", write(os.path.join(folder, name), content), folder + "/no", status=2, says=says)
    vexal("make", folder + "/a.pdf", folder + "/c.xml", folder + "/no", status=2, says="only pictures")
    vexal("make", "--extract", folder + "/a.pdf", folder + "/no", status=2)
    check_valid(folder)
    write(folder + "/plain.xml", CDA.replace("h:", "").replace("xmlns:h", "xmlns"))
    for command, name in (("pdf2dcm", "odd.pdf"), ("stl2dcm", "s3.stl"), ("cda2dcm", "plain.xml")):
        if has(command, "documents of others"):
            run(command, os.path.join(folder, name), folder + "/" + command)
            vexal("make", "--extract", folder + "/" + command, folder + "/back", title=command)
            check(read(folder + "/back") == read(os.path.join(folder, name)), command + ": another document")
    if has("dcm2pdf", "documents to others"):
        run("dcm2pdf", folder + "/odd.pdf.dcm", folder + "/theirs.pdf")
        check(read(folder + "/theirs.pdf") == read(folder + "/odd.pdf"), "dcm2pdf: another document")


# ---- Patient and study ----


def check_subject(folder):
    picture, source, entry, out = paths(folder, "p.png", "from", "entry", "out.dcm")
    write(picture, png(2, 2, 8, 0, [b"\1\2", b"\3\4"]))
    w = Writer()
    code = w.text(0x00080100, "SH", "1") + w.text(0x00080102, "SH", "99X") + w.text(0x00080104, "LO", "Code")
    inner = w.text(0x00080060, "CS", "XC") + w.text(0x00400007, "LO", "Step") + w.sequence(0x00400008, [code]) + w.text(0x00400009, "SH", "S1")
    order = meta("1.2.840.10008.5.1.4.31", "1.2.3") + w.text(0x00080005, "CS", "ISO_IR 100") + w.text(0x00080050, "SH", "A7") + w.text(0x00100010, "PN", "M\u00fcller".encode("latin-1"))
    order += w.text(0x00100020, "LO", "P7") + w.text(0x0020000D, "UI", "1.2.77") + w.text(0x00321060, "LO", "Photo") + w.sequence(0x00400100, [inner]) + w.text(0x00401001, "SH", "R1")
    write(entry, order)
    vexal("make", picture, out, "--worklist", entry, "--class", "vl-photographic")
    found = expect(out, t00080005="ISO_IR 192", t00100010={"Alphabetic": "M\u00fcller"}, t00100020="P7", t0020000D="1.2.77", t00200010="R1", t00080050="A7", t00081030="Photo")
    request = found["00400275"]
    check(request["00400009"]["Value"] == ["S1"] and request["00400008"]["Value"][0]["00080104"]["Value"] == ["Code"], "the request: %r" % request)
    check("00400100" not in found and "00321060" not in found, "more of the order than belongs there")
    vexal("make", picture, folder + "/next.dcm", "--from", out, "--set", "SeriesDescription=\u00dcber", "--set", "PatientComments=")
    after = expect(folder + "/next.dcm", t00100010={"Alphabetic": "M\u00fcller"}, t0020000D="1.2.77", t0008103E="\u00dcber", t00104000="")
    check("00400275" not in after and after["0020000E"] != found["0020000E"], "what belongs to the series came along")
    write(source, meta(SECONDARY_CAPTURE, "1.2.4") + head(w) + tail(w))
    vexal("make", picture, folder + "/plain.dcm", "--from", source)
    check("00080005" not in attributes(folder + "/plain.dcm"), "ASCII has a character set")
    listing = write(folder + "/listing", meta("1.2.840.10008.1.3.10", "1.2.5") + w.sequence(0x00041220, [w.text(0x00041430, "CS", "PATIENT") + w.text(0x00100010, "PN", "A^B")]))
    for words, says in (((("--from", source, "--worklist", entry)), "give one"), (("--from", listing), "is a directory"), (("--worklist", source), "no worklist entry"), (("--from", picture), "no DICOM file"),
                        (("--set", "Rows=1"), "follows from"), (("--set", "PatientBirthDate=x"), "Birth"), (("--class", "pdf"), "takes no PNG"), (("--set", "StudyInstanceUID="), "StudyInstanceUID")):
        vexal("make", picture, folder + "/no", *words, status=2, says=says)
    check(not os.path.exists(folder + "/no"), "a file of what was refused")
    vexal("make", picture, source, "--from", source, status=2, says="is an input")
    check_valid(folder)


# ---- Films ----


class Bits:
    """A head of a video stream; texts of bits, and numbers in codes of Exp-Golomb."""

    def __init__(self, *fields):
        self.bits = "".join(f if isinstance(f, str) else "0" * (len(format(f + 1, "b")) - 1) + format(f + 1, "b") for f in fields)

    def bytes(self):
        bits = self.bits + "1"
        bits += "0" * (-len(bits) % 8)
        out, zeros = b"", 0
        for i in range(0, len(bits), 8):
            value = int(bits[i:i + 8], 2)
            out += b"\3" * (zeros == 2 and value <= 3) + bytes((value,))
            zeros = 0 if value or (zeros == 2 and value <= 3) else zeros + 1
        return out


def sps(profile=100, level=41, chroma=1, depth=0, across=20, down=16):
    high = (chroma, depth, depth, "0", "0") if profile >= 100 else ()
    timing = "00001" + format(1, "032b") + format(50, "032b") + "1"
    return b"\x67" + bytes((profile, 0x40 * (profile == 66), level)) + Bits(0, *high, 0, 0, 0, 1, "0", across - 1, down - 1, "1", "1", "1", 0, 0, 0, 8, "1", timing, "0000").bytes()


def box(name, *content):
    body = b"".join(content)
    return struct.pack(">I4s", 8 + len(body), name) + body


def mp4(parameters, data=b"\0" * 101, frames=7, kind=b"avc1", handler=b"vide"):
    avcc = box(b"avcC", b"\1" + parameters[1:4] + b"\xFF\xE1" + struct.pack(">H", len(parameters)) + parameters + b"\1\0\4\x68\0\0\0")
    entry = box(kind, bytes(78), avcc)
    table = box(b"stbl", box(b"stsd", struct.pack(">II", 0, 1), entry), box(b"stts", struct.pack(">IIII", 0, 1, frames, 40)))
    media = box(b"mdia", box(b"mdhd", bytes(12) + struct.pack(">II", 1000, 40 * frames) + bytes(4)), box(b"hdlr", bytes(8) + handler + bytes(13)), box(b"minf", table))
    return box(b"ftyp", b"isom\0\0\0\0") + box(b"moov", box(b"trak", media)) + box(b"mdat", data)


def annexb(parameters, frames=5):
    return b"\0\0\0\1" + parameters + b"".join(b"\0\0\1\x65\x88" + b"\x11" * 30 + b"\0\0\1\x41\x20\x22" for _ in range(frames))


def mpeg2(level=8, frames=4, extension=True):
    start = b"\0\0\1\xB3" + bytes((0x14, 0x00, 0xF0, 0x13)) + b"\xFF\xFF\xE0\x18"
    start += (b"\0\0\1\xB5" + bytes((0x14, level << 4 | 2, 0, 1, 0, 0))) * extension
    return start + b"".join(b"\0\0\1\0\0\x0F\xFF\xF8\0\0\1\xB5\x8F\xFF\xF3\x41\x80\0\0\1\1\x12\x34" for _ in range(frames)) + b"\0\0\1\xB7"


def check_films(folder):
    films = [("high.mp4", mp4(sps()), "102", 7), ("odd.mp4", mp4(sps(), b"\0" * 100), "102", 7), ("main.mp4", mp4(sps(77, 30)), "102", 7), ("base.mp4", mp4(sps(66, 30)), "102", 7),
             ("fast.mp4", mp4(sps(100, 42)), "104", 7), ("stream.264", annexb(sps()), "102", 5), ("m.m2v", mpeg2(), "100", 4), ("hd.m2v", mpeg2(4), "101", 4)]
    for name, content, syntax, frames in films:
        path, out, back = paths(folder, name, name + ".dcm", "back")
        write(path, content)
        vexal("make", path, out)
        expect(out, t00080016=LIGHT + "4.1", t00280008=frames, t00280010=240, t00280011=320, t00280004="YBR_PARTIAL_420", t00181063=40, t00180040=25)
        check(syntax_of(out) == "1.2.840.10008.1.2.4." + syntax, "%s: syntax %s" % (name, syntax_of(out)))
        vexal("make", "--extract", out, back)
        check(read(back) == content, name + ": another film")
    for content, says in ((mp4(sps(122)), "4:2:2"), (mp4(sps(100, 51)), "level 5.1"), (mp4(sps(110, 41, 1, 2)), "10 bits"), (mp4(sps())[:-5], "cut short"), (mp4(sps(), kind=b"vp09"), "another kind"),
                          (mp4(sps(), handler=b"soun"), "no video"), (box(b"ftyp", b"isom") + box(b"mdat", bytes(9)), "cut short"), (mpeg2(extension=False), "MPEG-1"), (annexb(sps())[:9], "whole"),
                          (b"\0\0\1\xBA" + b"\x21" + bytes(40), "MPEG-1"), (b"\0\0\1\x09" + bytes(20), "whole")):
        vexal("make", write(folder + "/bad", content), folder + "/no", status=2, says=says, title="film: " + says)
    for at in range(0, 700, 3):
        content = bytearray(mp4(sps()))
        content[at % len(content)] ^= 0xFF
        ended = run(VEXAL, "make", write(folder + "/bad", bytes(content)), folder + "/no")
        check(ended.returncode in (0, 2), "a film changed at %d ends with %d" % (at, ended.returncode))
    vexal("make", folder + "/high.mp4", folder + "/endo.dcm", "--class", "video-endoscopic")
    check_large_film(folder)
    check_valid(folder)


def check_large_film(folder):
    """Passes through in little memory; one that no value can hold is refused at once."""
    content = mp4(sps())
    at = content.index(b"mdat") - 4
    for size, status in ((200 << 20, 0), (1 << 32, 2)):
        path, out = paths(folder, "large", "large-out")
        write(path, content[:at] + struct.pack(">I4sQ", 1, b"mdat", 16 + size))
        os.truncate(path, at + 16 + size)
        process = subprocess.Popen([VEXAL, "make", path, out], stderr=subprocess.PIPE)
        told = process.stderr.read().decode()
        _, ended, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(ended)
        check(process.returncode == status and ("4 GiB" in told) == (status == 2), "%d bytes: ends with %d: %s" % (size, process.returncode, told))
        check(usage.ru_maxrss < 64 << 10 or "ASAN_OPTIONS" in os.environ or "TSAN_OPTIONS" in os.environ, "%d bytes: %d KiB of memory" % (size, usage.ru_maxrss))
        check(os.path.exists(out) == (status == 0), "a large film leaves what it should not")
        for name in (path, out):
            if os.path.exists(name):
                os.remove(name)


def check_encoded_films(folder):
    """As ffmpeg writes them; it plays what comes out."""
    if not has("ffmpeg", "films of others"):
        return
    picture = ("-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25", "-frames:v", "11")
    for name, words, syntax in (("h.mp4", ("-c:v", "libx264", "-pix_fmt", "yuv420p"), "102"), ("h.ts", ("-c:v", "libx264", "-pix_fmt", "yuv420p"), "102"), ("h.264", ("-c:v", "libx264", "-pix_fmt", "yuv420p"), "102"),
                                ("v.mp4", ("-c:v", "libx265", "-x265-params", "log-level=none", "-pix_fmt", "yuv420p"), "107"), ("m.m2v", ("-c:v", "mpeg2video"), "100"), ("m.vob", ("-c:v", "mpeg2video"), "100"),
                                ("m.ts", ("-c:v", "mpeg2video"), "100"), ("p.mp4", ("-c:v", "mpeg4"), None), ("f.mp4", ("-c:v", "libx264", "-pix_fmt", "yuv420p", "-movflags", "frag_keyframe+empty_moov"), None)):
        path, out, back = paths(folder, name, name + ".dcm", "back-" + name)
        if run("ffmpeg", "-v", "error", *picture, *words, path).returncode != 0:
            continue  # built without that encoder
        vexal("make", path, out, status=0 if syntax else 2, title="ffmpeg " + name)
        if not syntax:
            continue
        expect(out, t00280008=11, t00280010=240, t00280011=320, t00180040=25)
        check(syntax_of(out) == "1.2.840.10008.1.2.4." + syntax, "%s: syntax %s" % (name, syntax_of(out)))
        vexal("make", "--extract", out, back)
        check(read(back) == read(path), name + ": another film")
    check_valid(folder)


sys.exit(run_parts(check_pictures, check_raw, check_streams, check_documents, check_subject, check_films, check_encoded_films, chosen=sys.argv[3:]))
