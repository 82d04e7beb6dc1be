#!/usr/bin/env python3
"""Text in the character sets of the standard: decoded by vexal and by vtk-dicom, encoded by vexal and by Python's codecs.

usage: charsets.py VEXAL SAMPLES
Every pair of sets meets at every delimiter; every character of the sets of pairs is decoded; every sample goes to UTF-8
and back. Without vtk-dicom (dicomdump) or the samples, the rest is checked all the same.
"""
import glob
import itertools
import json
import os
import re
import struct
import sys
import tempfile

from checks import SAMPLES, VEXAL, element, end, fail, has, run

HAS_PEER = has("dicomdump", "texts by vtk-dicom")
counts = dict.fromkeys(("texts decoded", "by vtk-dicom", "texts encoded", "for vtk-dicom", "characters", "samples", "texts of samples"), 0)

# Number, escape sequence without the ESC, Python's codec, a text.
SETS = (
    ("6", b"(B", "ascii", "Smith"), ("100", b"-A", "iso8859-1", "Müller"), ("101", b"-B", "iso8859-2", "Dvořák"),
    ("109", b"-C", "iso8859-3", "Ĉuŝi"), ("110", b"-D", "iso8859-4", "Bērziņš"), ("144", b"-L", "iso8859-5", "Люк"),
    ("127", b"-G", "iso8859-6", "قباني"), ("126", b"-F", "iso8859-7", "Διον"), ("138", b"-H", "iso8859-8", "שרון"),
    ("148", b"-M", "iso8859-9", "Işık"), ("166", b"-T", "tis-620", "ใจดี"), ("203", b"-b", "iso8859-15", "Œ5€"),
    ("13", b")I", "shift_jis", "ﾔﾏﾀﾞ"), ("87", b"$B", "iso2022_jp", "山田"), ("159", b"$(D", "iso2022_jp_1", "丂"),
    ("149", b"$)C", "euc_kr", "김희중"), ("58", b"$)A", "gb2312", "张小"),
)
LOW_PAIRS, HIGH_PAIRS = ("87", "159"), ("149", "58")
NAME, OTHER_NAME, LONG, MANY, SHORT = 0x00100010, 0x00080090, 0x001021B0, 0x00101000, 0x00081010
ALL = 0x0040A160  # UT


def peer_takes(first, second):
    """vtk-dicom 0.8.14 does not know ISO_IR 203, and reads a first set of one byte a character as Latin 1 before some others."""
    if "203" in (first, second):
        return False
    if first == "13":
        return second in LOW_PAIRS + ("100",)
    return first in ("6", "100") or second not in LOW_PAIRS + HIGH_PAIRS


def write(path, charset, elements):
    body = element(0x00020010, b"UI", b"1.2.840.10008.1.2.1") + element(0x00080005, b"CS", charset.encode())
    rest = sorted([(0x00080016, "UI", b"1.2.840.10008.5.1.4.1.1.7\0"), (0x00080018, "UI", b"1.2.3.4\0")] + elements)
    with open(path, "wb") as out:
        out.write(bytes(128) + b"DICM" + element(0x00020000, b"UL", struct.pack("<I", 28)) + body)
        out.write(b"".join(element(tag, vr.encode(), value) for tag, vr, value in rest))


def listing(paths):
    """Texts by file and tag, as vexal dump tells them."""
    texts = {}
    for line in run(VEXAL, "dump", "--json", "--quiet", "--width", "0", *paths).stdout.decode().splitlines():
        document = json.loads(line)
        texts[document["file"]] = {e["tag"]: "\\".join(v or "" for v in e["value"]) for e in document["elements"]
                                   if e["vr"] in ("PN", "LO", "SH", "LT", "ST", "UT", "UC")}
    return texts


def peer_listing(path):
    texts = {}
    for line in run("dicomdump", path).stdout.decode("utf-8", "replace").splitlines():
        found = re.match(r'\(([0-9A-F]{4}),([0-9A-F]{4})\) \w\w "[^"]*" : \[(.*)\] \(\d+ bytes\)$', line)
        if found:
            texts[found[1] + found[2]] = re.sub(r"\\([0-3][0-7]{2})", lambda m: chr(int(m[1], 8)), found[3])
    return texts


def encoded(first, used, text):
    """The text of one set in a value that starts in another, back in that at the end."""
    number, escape, codec, _ = used
    if number in LOW_PAIRS:
        return text.encode(codec)  # with its escape sequences
    body = text.encode(codec)
    if used is first:
        return body
    back = {"6": b"", "13": b"\x1b)I"}.get(first[0], b"\x1b" + first[1])
    return b"\x1b" + escape + body + (b"" if first[0] == "6" or number == "6" else back)


def names_of(first, second):
    return "ISO 2022 IR " + first[0] + "\\ISO 2022 IR " + second[0]


def pair_texts(a, b):
    """Tag, VR and pieces: a text of each set on both sides of each delimiter."""
    return ((NAME, "PN", (a, "^", b, "=", b, "^", a)), (OTHER_NAME, "PN", (b, "^", a, "=", a)), (SHORT, "SH", (a, " ", b)),
            (LONG, "LT", (a, "\r\n", b, "\n", a, "\t", b, "\f", b)), (MANY, "LO", (b, "\\", a, "\\", b)))


def text_of(pieces):
    return "".join(p if isinstance(p, str) else p[3] for p in pieces)


def compare(what, told, wanted, kind):
    counts[kind] += 1
    if (told or "").strip(" ") != wanted.strip(" "):
        fail(f"{what}: {told!r} instead of {wanted!r}")


def pairs(work):
    """Each pair of sets, in either order, decoded and encoded."""
    files = {}
    for a, b in itertools.permutations(SETS, 2):
        if a[0] in LOW_PAIRS + HIGH_PAIRS or b[0] == "6":
            continue  # not as a first set; the default one needs no second place
        path = os.path.join(work, f"{a[0]}-{b[0]}.dcm")
        values = pair_texts(a, b)
        write(path, names_of(a, b), [(t, vr, b"".join(p.encode() if isinstance(p, str) else encoded(a, p, p[3]) for p in pieces))
                                     for t, vr, pieces in values])
        files[path] = (a, b, {"%08X" % t: text_of(pieces) for t, _, pieces in values})
    ours = listing(sorted(files))
    for path, (a, b, texts) in files.items():
        peer = peer_listing(path) if HAS_PEER and peer_takes(a[0], b[0]) else None
        # And the other way: UTF-8 into these sets, by vexal.
        source, made = path + ".utf8", path + ".made"
        write(source, "ISO_IR 192", [(t, vr, text_of(pieces).encode()) for t, vr, pieces in pair_texts(a, b)])
        result = run(VEXAL, "convert", "--quiet", "--charset", names_of(a, b), source, made)
        if result.returncode != 0:
            fail(f"{os.path.basename(path)}: convert: {result.stderr.decode()[:200]}")
            continue
        back = peer_listing(made) if peer is not None else None
        for tag, text in texts.items():
            what = f"{names_of(a, b)} {tag}"
            compare(what, ours[path].get(tag), text, "texts decoded")
            if peer is not None:
                compare(what + " of vtk-dicom", peer.get(tag), text, "by vtk-dicom")
                compare(what + " made, of vtk-dicom", back.get(tag), text, "for vtk-dicom")
    again = listing([path + ".made" for path in sorted(files)])
    for path, (a, b, texts) in files.items():
        for tag, text in texts.items():
            compare(f"{names_of(a, b)} {tag} made", again.get(path + ".made", {}).get(tag), text, "texts encoded")


def characters(work):
    """Every pair of bytes that Python's codec knows, and what vexal makes of it."""
    for number, escape, codec, _ in (s for s in SETS if s[0] in LOW_PAIRS + HIGH_PAIRS):
        high = 0x80 if number in HIGH_PAIRS else 0
        wanted, lines = [], []
        for row in range(0x21, 0x7F):
            known = []
            for cell in range(0x21, 0x7F):
                pair = bytes((row | high, cell | high))
                try:
                    known.append((pair, (b"\x1b" + escape + pair + b"\x1b(B" if not high else pair).decode(codec)))
                except UnicodeDecodeError:
                    continue
            if known:
                wanted.append(known)
                lines.append(b"\x1b" + escape + b"".join(p for p, _ in known) + (b"" if high else b"\x1b(B"))
        path = os.path.join(work, f"all-{number}.dcm")
        write(path, "\\ISO 2022 IR " + number, [(ALL, "UT", b"\n".join(lines))])
        back = []
        for charset in ("utf-8", "ISO 2022 IR " + number):
            back.append(path + str(len(back)))
            result = run(VEXAL, "convert", "--quiet", "--charset", charset, (back[-2:-1] or [path])[0], back[-1])
            if result.returncode != 0:
                fail(f"ISO 2022 IR {number} to {charset}: {result.stderr.decode()[:200]}")
        texts = [text.get("%08X" % ALL) for text in listing([path] + back).values()]
        if len(texts) != 3 or len(set(texts)) != 1:
            fail(f"ISO 2022 IR {number}: not the same after there and back")
        told = texts[0].split("\n")
        differ = []
        for known, line in zip(wanted, told):
            counts["characters"] += len(known)
            if len(line) != len(known):
                differ.append(("row", len(line), len(known)))
            differ += [(pair.hex(), ours, text) for (pair, text), ours in zip(known, line) if ours != text]
        if differ:
            fail(f"ISO 2022 IR {number}: {len(differ)} characters differ: {differ[:12]}")


def single_bytes(work):
    """Every character of every set of one byte a character: Python's codec and vexal write and read the same byte."""
    for number, _, codec, _ in (s for s in SETS if s[0] not in LOW_PAIRS + HIGH_PAIRS + ("6",)):
        known = {}
        for byte in range(0xA0, 0x100):
            try:
                known[bytes((byte,)).decode(codec)] = byte
            except UnicodeDecodeError:
                continue
        text = "".join(known)
        counts["characters"] += len(known)
        for charset in ("ISO_IR " + number, "\\ISO 2022 IR " + number):
            path = os.path.join(work, "single.dcm")
            write(path, "ISO_IR 192", [(ALL, "UT", text.encode())])
            results = [run(VEXAL, "convert", "--quiet", "--charset", charset, path, path + ".set"),
                       run(VEXAL, "convert", "--quiet", "--charset", "utf-8", path + ".set", path + ".utf8")]
            for file, wanted in ((path + ".set", bytes(known.values())), (path + ".utf8", text.encode())):
                with open(file, "rb") as content:
                    if any(r.returncode for r in results) or wanted not in content.read():
                        fail(f"{charset}: {os.path.basename(file)} is not what Python's {codec} makes")


def recorded():
    """Texts recorded beside the samples."""
    texts = {}
    for path in sorted(glob.glob(os.path.join(SAMPLES, "expected", "charset", "*.dcm.json"))):
        with open(path, encoding="utf-8") as file:
            of_peer = json.load(file).get("text_utf8", {}).get("vtk_dicom", {})
        texts["charset/" + os.path.basename(path)[:-5]] = {t: v.replace("\\134", "\\") for t, v in of_peer.items()
                                                           if t[:4] != "0002" and not v.endswith("...")}
    with open(os.path.join(SAMPLES, "expected", "made", "charset-intended.json"), encoding="utf-8") as file:
        for name, of_sample in json.load(file).items():
            texts["made/" + name] = {t: "\\".join(v) if isinstance(v, list) else v for t, v in of_sample.items()}
    return texts


def samples(work):
    """Each sample tells its text, becomes UTF-8, and goes back to where it came from."""
    for name, texts in recorded().items():
        path, utf8, back = os.path.join(SAMPLES, name), os.path.join(work, "u.dcm"), os.path.join(work, "b.dcm")
        counts["samples"] += 1
        with open(path, "rb") as file:
            whole = file.read()
        at = whole.index(b"\x08\0\x05\0CS") + 8
        charset = whole[at:at + struct.unpack("<H", whole[at - 2:at])[0] + 0].decode()
        nested = run(VEXAL, "dump", "--json", "--quiet", path).stdout.decode().count('"tag":"00080005"') > 1
        results = [run(VEXAL, "convert", "--quiet", "--charset", "utf-8", path, utf8)]
        if not nested:
            results.append(run(VEXAL, "convert", "--quiet", "--charset", ",".join(n.strip() for n in charset.split("\\")), utf8, back))
        if any(r.returncode != 0 for r in results):
            fail(f"{name}: {results[-1].stderr.decode()[:200]}")
            continue
        told = listing([path, utf8] + ([] if nested else [back]))
        for tag, text in texts.items():
            for file, of_file in told.items():
                compare(f"{name} {tag} {os.path.basename(file)}", of_file.get(tag, "").strip("^= "), text.strip("^= "), "texts of samples")
        with open(utf8, "rb") as file:
            content = file.read()
        for text in texts.values():
            if not nested and text.strip() and text.encode() not in content:
                fail(f"{name}: {text!r} is not in its UTF-8 form")


with tempfile.TemporaryDirectory() as folder:
    pairs(folder)
    characters(folder)
    single_bytes(folder)
    samples(folder)
sys.exit(end({kind: number for kind, number in counts.items() if number}))
