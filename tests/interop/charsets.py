#!/usr/bin/env python3
"""Text in the character sets of the standard: decoded by vexal and by vtk-dicom, encoded by vexal and by Python's codecs.

usage: charsets.py VEXAL SAMPLES
Every pair of sets meets at every delimiter; every character of the sets of pairs is decoded; every sample goes to UTF-8
and back, and to JSON and back. Without vtk-dicom (dicomdump) or the samples, the rest is checked all the same.
"""
import glob
import itertools
import json
import os
import re
import sys
import tempfile

from checks import SAMPLES, VEXAL, end, fail, has, read, run, write
from made import element, meta

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


def make(path, charset, elements):
    rows = sorted([(0x00080016, "UI", "1.2.840.10008.5.1.4.1.1.7"), (0x00080018, "UI", "1.2.3.4")] + elements, key=lambda row: row[0])
    write(path, meta("1.2.840.10008.5.1.4.1.1.7", "1.2.3.4") + b"".join(element(*row) for row in [(0x00080005, "CS", charset)] + rows))


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
        make(path, names_of(a, b), [(t, vr, b"".join(p.encode() if isinstance(p, str) else encoded(a, p, p[3]) for p in pieces))
                                    for t, vr, pieces in values])
        files[path] = (a, b, {"%08X" % t: text_of(pieces) for t, _, pieces in values})
    ours = listing(sorted(files))
    for path, (a, b, texts) in files.items():
        peer = peer_listing(path) if HAS_PEER and peer_takes(a[0], b[0]) else None
        # And the other way: UTF-8 into these sets, by vexal.
        source, made = path + ".utf8", path + ".made"
        make(source, "ISO_IR 192", [(t, vr, text_of(pieces).encode()) for t, vr, pieces in pair_texts(a, b)])
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
    """Every character of every set that Python's codec knows: vexal reads it, and writes the same bytes again."""
    for number, escape, codec, _ in SETS[1:]:
        pairs, high = number in LOW_PAIRS + HIGH_PAIRS, number not in LOW_PAIRS
        shift, back = (b"", b"") if number not in LOW_PAIRS + HIGH_PAIRS else (b"\x1b" + escape, b"" if high else b"\x1b(B")
        cells = range(0x21 | 0x80 * high, 0x7F | 0x80 * high) if pairs else range(0xA0, 0x100)
        lines = []  # of bytes and what they are
        for row in cells if pairs else (None,):
            lines.append([])
            for cell in cells:
                code = bytes((row, cell)) if pairs else bytes((cell,))
                try:
                    lines[-1].append((code, (code if high else shift + code + back).decode(codec)))
                except UnicodeDecodeError:
                    continue
        lines = [line for line in lines if line]
        wanted = "\n".join("".join(text for _, text in line) for line in lines)
        for charset in ("\\ISO 2022 IR " + number,) if pairs else ("ISO_IR " + number, "\\ISO 2022 IR " + number):
            reset = b"" if pairs or charset[0] != "\\" else b"\x1b" + escape
            value = b"\n".join(shift + reset + b"".join(code for code, _ in line) + back for line in lines)
            path = os.path.join(work, "all-%s.dcm" % number)
            make(path, charset, [(ALL, "UT", value)])
            for to, source, made in (("utf-8", path, path + ".utf8"), (charset, path + ".utf8", path + ".again")):
                result = run(VEXAL, "convert", "--quiet", "--charset", to, source, made)
                if result.returncode != 0:
                    fail(f"{charset} to {to}: {result.stderr.decode()[:200]}")
            counts["characters"] += sum(map(len, lines))
            for file, text in listing([path, path + ".utf8", path + ".again"]).items():
                told = text.get("%08X" % ALL, "")
                differ = [pair for pair in zip(told, wanted) if pair[0] != pair[1]]
                if told != wanted:
                    fail(f"{charset} in {os.path.basename(file)}: {len(told)} characters for {len(wanted)}, other ones: {differ[:12]}")
            if not pairs and value not in read(path + ".again"):
                fail(f"{charset}: written in other bytes than Python's {codec} makes")


def recorded():
    """Texts recorded beside the samples."""
    texts = {}
    for path in sorted(glob.glob(os.path.join(SAMPLES, "expected", "charset", "*.dcm.json"))):
        of_peer = json.loads(read(path)).get("text_utf8", {}).get("vtk_dicom", {})
        texts["charset/" + os.path.basename(path)[:-5]] = {t: v.replace("\\134", "\\") for t, v in of_peer.items()
                                                           if t[:4] != "0002" and not v.endswith("...")}
    for name, of_sample in json.loads(read(os.path.join(SAMPLES, "expected", "made", "charset-intended.json"))).items():
        texts["made/" + name] = {t: "\\".join(v) if isinstance(v, list) else v for t, v in of_sample.items()}
    return texts


def json_texts(path, back):
    """Texts by tag as the standard's JSON tells them, and the file that comes of it."""
    document = json.loads(run(VEXAL, "json", path).stdout)
    run(VEXAL, "json", "--back", write(back + ".json", json.dumps(document)), back)
    groups = lambda v: "=".join(v.get(n, "") for n in ("Alphabetic", "Ideographic", "Phonetic")).rstrip("=") if isinstance(v, dict) else str(v or "")
    return {tag: "\\".join(map(groups, member.get("Value", []))) for tag, member in document.items() if member["vr"] != "SQ"}


def samples(work):
    """Each sample tells its text, becomes UTF-8, and goes back to where it came from."""
    for name, texts in recorded().items():
        path, utf8, back = os.path.join(SAMPLES, name), os.path.join(work, "u.dcm"), os.path.join(work, "b.dcm")
        counts["samples"] += 1
        whole = read(path)
        at = whole.index(b"\x08\0\x05\0CS") + 8
        charset = whole[at:at + int.from_bytes(whole[at - 2:at], "little")].decode()
        nested = run(VEXAL, "dump", "--json", "--quiet", path).stdout.decode().count('"tag":"00080005"') > 1
        results = [run(VEXAL, "convert", "--charset", "utf-8", path, utf8)]
        if not nested:
            results.append(run(VEXAL, "convert", "--quiet", "--charset", ",".join(n.strip() for n in charset.split("\\")), utf8, back))
        # A meta group that names another object is put right, with a line.
        if any(r.returncode != 0 and not (r.returncode == 1 and b": corrected" in r.stderr) for r in results):
            fail(f"{name}: {results[-1].stderr.decode()[:200]}")
            continue
        told = listing([path, utf8] + ([] if nested else [back]))
        for made in (path, os.path.join(work, "j.dcm")):
            told[made + " in JSON"] = json_texts(made, os.path.join(work, "j.dcm"))
        for tag, text in texts.items():
            for file, of_file in told.items():
                compare(f"{name} {tag} {os.path.basename(file)}", of_file.get(tag, "").strip("^= "), text.strip("^= "), "texts of samples")
        content = read(utf8)
        for text in texts.values():
            if not nested and text.strip() and text.encode() not in content:
                fail(f"{name}: {text!r} is not in its UTF-8 form")


with tempfile.TemporaryDirectory() as folder:
    pairs(folder)
    characters(folder)
    samples(folder)
sys.exit(end({kind: number for kind, number in counts.items() if number}))
