#!/usr/bin/env python3
"""Every sample and many made files, read and put through every command that writes: what status 0 leaves is all that was there.

usage: nothing_lost.py VEXAL [SAMPLES]
What dump lists is what pydicom reads. Data sets are compared element by element, as bytes, by pydicom before and after;
dcmdump, and gdcminfo behind conversions of what is valid, have to read what was written wherever they read the source. A value
of odd length may gain one byte of padding, nothing else may change that was not asked for: by convert, modify, the text forms
and back, compression and decompression, pixel and sr build. A command that can not do it says so, leaves no file, and leaves
the source as it was.
"""
import json
import multiprocessing
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import warnings
import zlib

from checks import REAL_SAMPLES, SAMPLES, VEXAL, Vexal, check, end, fail, failures, files_under, has, left_out, meta_text, need, read, run, valid_samples, vexal, write
import made

need("dcmdump", "dcmmkdir", modules=["pydicom"])
import pydicom
from pydicom.dataelem import RawDataElement
from pydicom.filebase import DicomBytesIO
from pydicom.filereader import read_sequence
import directories

warnings.simplefilter("ignore")
pydicom.config.settings.reading_validation_mode = pydicom.config.IGNORE
pydicom.config.replace_un_with_known_vr = False
WIDTHS = {"US": 2, "SS": 2, "OW": 2, "AT": 2, "UL": 4, "SL": 4, "FL": 4, "OF": 4, "OL": 4,
          "FD": 8, "OD": 8, "OV": 8, "SV": 8, "UV": 8}
SYNTAXES = {"implicit": "1.2.840.10008.1.2", "explicit": "1.2.840.10008.1.2.1", "big-endian": "1.2.840.10008.1.2.2",
            "deflated": "1.2.840.10008.1.2.1.99"}
NUMBERS = {"US": "H", "SS": "H", "UL": "I", "SL": "i", "FL": "f", "FD": "d", "SV": "q", "UV": "Q"}  # US or SS: a matter of taste
BULK = {"OB", "OD", "OF", "OL", "OV", "OW", "UN"}
KNOWN = {*made.TEXT, *made.SIZES, "SQ"}
PATIENT_ID = 0x00100020
PIXELS = 0x7FE00010
ITEM = b"\xfe\xff\x00\xe0"
TABLES = {0x7FE00001, 0x7FE00002}  # the Extended Offset Table
# What else a conversion of pixels may change: how they are described, and where a lossy one came from.
DESCRIBED = {PIXELS, *TABLES, 0x00280004, 0x00280006}
DERIVED = {0x00080008, 0x00080018, 0x00082111, 0x00082112, 0x00089215, 0x00282110, 0x00282112, 0x00282114}
LOSSLESS = ("rle", "jpeg-lossless", "jpeg-ls", "jpeg2000", "htj2k", "htj2k-rpcl", "jpeg-xl", "encapsulated", "deflated-frames")
LOSSY = ("jpeg", "jpeg-12", "jpeg-ls-near", "jpeg2000-lossy", "htj2k-lossy", "jpeg-xl-lossy")
# What has to be said of files with something that can not be kept: file, command, exit status, words.
TOLD = (
    ("odd/twice.dcm", "", 1, b"00100040"), ("private/creator-7-", "json", 1, b"behind a NUL"), ("private/creator-7-", "xml", 1, b"behind a NUL"),
    ("odd/native-in-compressed.dcm", "convert", 2, b"not encapsulated"), ("odd/native-in-compressed.dcm", "modify", 2, b"not encapsulated"),
    ("odd/fragments-in-native.dcm", "big-endian", 2, b"is encapsulated"), ("odd/fragments-in-native.dcm", "rle", 2, b"is encapsulated"),
    ("made/charset-unknown.dcm", "json", 1, b"(0010,0010)"), ("made/charset-unknown.dcm", "xml", 1, b"(0010,0010)"),
    ("odd/odd-numbers-", "", 2, b"(0028,0010)"), ("enc/tiny-defined-bot-2-to-1.dcm", "convert --to explicit", 2, b"no stream of this codec"),
    ("enc/j2k91-embedded-delimiter.dcm", "convert --to explicit", 2, b"too large"),
    ("made/ts-mpeg2-100.dcm", "convert --to explicit", 2, b"1.2.840.10008.1.2.4.100"),
    ("made/broken-native-in-encaps-ts.dcm", "convert --to explicit", 2, b"not encapsulated"),
)
ESCAPES = re.compile(rb"\x1b(?:\$[()]?.|[()-].)")
# Valid, and beyond the limit of nesting, of odd lengths, or of a syntax that pydicom does not inflate.
UNUSUAL = ("odd/nested-private-sq.dcm", "made/stress-nested-1000-implicit.dcm", "made/stress-nested-1000-undefined.dcm", "made/ts-jpip-deflate-95.dcm")
HAS_GDCMINFO = has("gdcminfo", "files read by it")
counts = {"files": 0, "sent": 0, "read": 0, "written": 0, "refused": 0, "streams extracted": 0,
          **{"as " + name: 0 for name in LOSSLESS + LOSSY}}


class Element:
    """What an element is in the file: VR (None where the syntax has none), bytes in little endian, or items."""

    def __init__(self, vr, value, items=None):
        self.vr, self.value, self.items = vr, value, items

    def as_items(self):
        """The items that lie in the bytes, where the syntax gave no VR."""
        if self.items is not None:
            return self.items
        sequence = read_sequence(DicomBytesIO(self.value), True, True, len(self.value), "iso8859")
        return [elements(item, True, True) for item in sequence]


def swapped(value, width):
    whole = len(value) // width * width
    out = bytearray(value)
    for i in range(width):
        out[i:whole:width] = value[width - 1 - i:whole:width]
    return bytes(out)


def is_sequence(tag):
    return pydicom.datadict.dictionary_has_tag(tag) and pydicom.datadict.dictionary_VR(tag) == "SQ"


def elements(data_set, implicit, little):
    found = {}
    for tag in list(data_set.keys()):
        element = data_set.get_item(tag)
        if tag.element == 0:
            continue  # group lengths
        value, raw = element.value, isinstance(element, RawDataElement)
        untold = element.VR is None  # in implicit VR, which UN may hold in any syntax
        vr = "SQ" if element.VR == "SQ" or (untold and is_sequence(tag)) else None if implicit or untold else str(element.VR)
        if raw and vr == "SQ" and value is not None:
            value = read_sequence(DicomBytesIO(value), implicit or untold, little, len(value), "iso8859")
        if isinstance(value, pydicom.sequence.Sequence):
            found[int(tag)] = Element("SQ", None, [elements(item, implicit, little) for item in value])
            continue
        vr = vr if vr in KNOWN else None  # letters that are no VR: whatever the reader makes of them
        if isinstance(value, int):  # pydicom looks at the offsets of a directory
            value = value.to_bytes(4, "little" if little else "big")
        if isinstance(value, pydicom.multival.MultiValue):  # character sets, which it looks at
            value = "\\".join(map(str, value))
        value = value.encode("latin-1") if isinstance(value, str) else value or b""
        found[int(tag)] = Element(vr, value if little or vr not in WIDTHS else swapped(value, WIDTHS[vr]))
    return found


def load(path):
    data_set = pydicom.dcmread(path, force=True)
    return elements(data_set, data_set.is_implicit_VR, data_set.is_little_endian)


def as_text(value):
    """The same for all ways to write one text: without escape sequences, and blanks around values."""
    return [part.strip(b" \0") for part in ESCAPES.sub(b"", value).split(b"\\")]


def same_value(a, b, in_text):
    if b.value == a.value or len(a.value) % 2 and b.value[:-1] == a.value and b.value[-1:] in b"\0 ":
        return True
    if a.value[:4] == ITEM and a.vr in ("OB", "OW"):
        return even(fragments(a)) == even(fragments(b))
    return in_text and (a.vr or b.vr or "LO") in made.TEXT and as_text(a.value) == as_text(b.value)


def differences(before, after, ignore=(), where="", in_text=False):
    """What is missing, new or other, as texts. `in_text`: the values went through a text form."""
    for tag in sorted(set(before) | set(after)):
        name = "%s(%04X,%04X)" % (where, tag >> 16, tag & 0xFFFF)
        if tag in ignore:
            continue
        if tag not in after or tag not in before:
            if tag != PIXELS or tag in before:  # pydicom gives up at fragments without an end
                yield name + (" is missing" if tag not in after else " is new")
            continue
        a, b = before[tag], after[tag]
        if a.items is not None or b.items is not None:
            x, y = a.as_items(), b.as_items()
            if len(x) != len(y):
                yield "%s has %d items, not %d" % (name, len(y), len(x))
            for index, (one, other) in enumerate(zip(x, y)):
                yield from differences(one, other, ignore, "%s[%d]." % (name, index), in_text)
            continue
        if a.vr and b.vr and a.vr not in (b.vr, "UN") and a.value[:4] != ITEM:  # of UN a dictionary may know more
            yield "%s is %s, not %s" % (name, b.vr, a.vr)
        if not same_value(a, b, in_text):
            at = next((i for i, (x, y) in enumerate(zip(a.value, b.value)) if x != y), min(len(a.value), len(b.value)))
            yield "%s differs at byte %d: %r, not %r (%d bytes, not %d)" % (
                name, at, b.value[at:at + 8], a.value[at:at + 8], len(b.value), len(a.value))


def refused_by(program, *paths):
    words = {"dcmdump": ("-q", "-M")}
    return run(program, *words.get(program, ()), *paths, timeout=300).returncode != 0


def listed(name, lines, there, where=""):
    """What dump lists has the elements that are there, with their values."""
    mine = {int(e["tag"], 16): e for e in lines if e["tag"][4:] != "0000"}
    check(set(mine) == set(there), "%s: dump: %s%s" % (name, where, [hex(tag) for tag in set(mine) ^ set(there)][:5]))
    for tag in set(mine) & set(there):
        have, element = mine[tag], there[tag]
        place, vr, got = "%s: dump: %s%08X: " % (name, where, tag), have["vr"], have.get("value", [])
        counts["read"] += 1
        if "items" in have:
            items = element.as_items()
            check(len(items) == len(have["items"]), place + "other items")
            for index, pair in enumerate(zip(have["items"], items)):
                listed(name, *pair, "%s%08X[%d]." % (where, tag, index))
        elif vr in BULK:
            if element.value[:4] != ITEM and have.get("length") not in (None, len(element.value)):
                fail(place + "%s bytes, not %d" % (have["length"], len(element.value)))
        elif vr in NUMBERS:
            wanted = struct.unpack("<%d%s" % (len(element.value) // WIDTHS[vr], NUMBERS[vr]), element.value)
            got = [v + 65536 if vr == "SS" and v < 0 else v for v in got]
            if struct.pack("<%d%s" % (len(got), NUMBERS[vr]), *got) != element.value:
                fail(place + "%s, not %s" % (got[:4], wanted[:4]))
        elif vr in ("IS", "DS", "UI", "CS", "DA", "TM", "AE", "AS"):
            plain = lambda v: float(v) if vr in ("IS", "DS") and v else v
            wanted = [plain(part.decode("latin-1")) for part in as_text(element.value)]
            if [plain((v or "").strip(" \0")) for v in got] != wanted and any(wanted + got):
                fail(place + "%s, not %s" % (got[:4], wanted[:4]))


class Source:
    """One file, and what is known of it before any command."""

    def __init__(self, name, path, valid):
        self.name, self.path, self.valid = name, path, valid
        self.bytes, self.before = read(path), load(path)
        self.meta = getattr(pydicom.dcmread(path, force=True, stop_before_pixels=True), "file_meta", {})
        self.syntax = str(getattr(self.meta, "TransferSyntaxUID", ""))
        self.written = []  # what dcmdump is to read, with the command that wrote it
        self.converted = None  # one of the conversions, for gdcminfo

    def check_listing(self):
        result = run(VEXAL, "dump", "--json", "--quiet", "--width", "0", self.path)
        check(result.returncode == 0, "%s: dump ends with %d: %s" % (self.name, result.returncode, result.stderr[-200:]))
        listed(self.name, json.loads(result.stdout)["elements"], self.before | (elements(self.meta, False, True) if self.meta else {}))

    def told(self, what, result):
        for file, command, status, words in TOLD:
            if file in self.name and command in what and "--back" not in what:
                check(result.returncode == status and words in result.stderr,
                      "%s: %s: ends with %d and says %r" % (self.name, what, result.returncode, result.stderr[-200:]))

    def put_right(self, result):
        """Whether all that was told is that the meta group named another object than the data set does."""
        lines = result.stderr.strip().splitlines()
        own = [self.before[tag].value.decode().strip("\0 ") for tag in (0x00080016, 0x00080018) if tag in self.before]
        return result.returncode == 1 and [meta_text(self.path, 2), meta_text(self.path, 3)] != own and lines and all(b": corrected" in line for line in lines)

    def judge(self, what, result, out, ignore=(), may_refuse=False, syntax=None):
        """After a command: either all is there, or it said that it is not."""
        text = "%s: %s" % (self.name, what)
        self.told(what, result)
        if read(self.path) != self.bytes:
            return fail(text + ": the source has changed")
        if result.returncode != 0 and not self.put_right(result):
            counts["refused"] += 1
            if result.returncode < 0 or not result.stderr:
                return fail("%s: ends with %d and says %r" % (text, result.returncode, result.stderr[-100:]))
            if result.returncode == 2:
                check(not os.path.exists(out), text + ": refused, and a file is there")
            if self.valid and not may_refuse:
                fail("%s: refused: %s" % (text, result.stderr.decode(errors="replace")[-200:].strip()))
            return None
        counts["written"] += 1
        if b": error:" in result.stderr:
            fail("%s: an error with status 0: %s" % (text, result.stderr.decode(errors="replace")[-200:].strip()))
        try:
            after = load(out)
            found = list(differences(self.before, after, ignore, in_text="--back" in what))
            there = str(pydicom.dcmread(out, stop_before_pixels=True).file_meta.TransferSyntaxUID) if syntax else None
        except Exception as error:  # whatever pydicom meets in a damaged file
            return fail("%s: pydicom can not read it: %r" % (text, error))
        own = [after[tag].value.decode().strip("\0 ") for tag in (0x00080016, 0x00080018) if tag in after]
        if len(own) == 2 and all(own) and not any(tag >> 16 == 4 for tag in after):
            names = [meta_text(out, 2), meta_text(out, 3)]
            check(names == own, "%s: the meta group names %s" % (text, names))
        told = "; ".join(found[:3]) + (" and %d more" % (len(found) - 3) if len(found) > 3 else "")
        check(not found, "%s: %s" % (text, told))
        check(there == syntax, "%s: the transfer syntax is %s" % (text, there))
        kept = os.path.join(os.path.dirname(out), "written-%d" % len(self.written))
        os.link(out, kept)
        self.written.append((text, kept))
        if syntax and (self.converted is None or zlib.crc32(text.encode()) % 2):
            self.converted = self.written[-1]
        return out

    def judge_readers(self):
        """Other programs, which take their time to start, read all that was written at once."""
        outs = [out for _, out in self.written]
        if outs and refused_by("dcmdump", *outs) and not refused_by("dcmdump", self.path):
            for text, out in self.written:
                check(not refused_by("dcmdump", out), text + ": dcmdump refuses it")
        if self.converted and self.valid and HAS_GDCMINFO and refused_by("gdcminfo", self.converted[1]):
            check(refused_by("gdcminfo", self.path), self.converted[0] + ": gdcminfo refuses it")


def each_command(source, folder):
    out = os.path.join(folder, "out.dcm")

    def fresh():
        if os.path.exists(out):
            os.remove(out)
        return out

    plain = source.syntax in SYNTAXES.values() or source.syntax == ""
    is_directory = any(tag >> 16 == 4 for tag in source.before)
    # Directories hold offsets, which a conversion may change or refuse; what they lead to is checked below.
    offsets = ["00041200", "00041202", "00041400", "00041420", "00041504"]
    ignore = {int(tag, 16) for tag in offsets} if is_directory else set()
    if source.valid:
        source.check_listing()
    for target in SYNTAXES if plain else ():
        result = run(VEXAL, "convert", "--to", target, source.path, fresh())
        if source.judge("convert --to " + target, result, out, ignore, is_directory and target == "deflated", SYNTAXES[target]) and is_directory:
            check(directories.records(source.path) == directories.records(out), "%s: convert --to %s: other records can be reached" % (source.name, target))
    if PIXELS in source.before and not is_directory:
        frames(source, plain, out, fresh)
        # Whatever a damaged image claims, each ends with a status.
        for action in ("info", "offsets", "render", "sheet", "extract") if not source.valid and len(source.bytes) < 1000000 else ():
            shown = os.path.join(folder, "shown-" + action)
            result = run(VEXAL, "pixel", action, source.path, *([shown] if action not in ("info", "offsets") else []))
            check(result.returncode in (0, 1, 2), "%s: pixel %s ends with %d" % (source.name, action, result.returncode))
    if source.name.startswith("sr/"):
        text = write(os.path.join(folder, "report"), run(VEXAL, "sr", "show", "--json", source.path).stdout)
        source.judge("sr build", run(VEXAL, "sr", "build", text, fresh()), out)
    # One value asked for, in a new file and in place.
    result = run(VEXAL, "modify", "--set", "PatientID=NOTHING LOST", source.path, fresh())
    if source.judge("modify", result, out, ignore | {PATIENT_ID}, may_refuse=True):
        there = load(out).get(PATIENT_ID)
        check(there and there.value.strip() == b"NOTHING LOST", source.name + ": modify: the value is not there")
        copy = os.path.join(folder, "copy.dcm")
        shutil.copyfile(source.path, copy)
        result = run(VEXAL, "modify", "--set", "PatientID=NOTHING LOST", copy)
        check((result.returncode == 0 or source.put_right(result)) and read(copy) == read(out), source.name + ": modify in place differs from modify")
    # Text forms and back.
    forms = [["json", "--own"], ["xml"], ["json"], ["xml", "--native"]]
    if any(element.vr in BULK for element in source.before.values()):
        forms += [["xml", "--hex"], ["json", "--bulk", os.path.join(folder, "bulk")]]
    for form in forms:
        text = os.path.join(folder, "text")
        with open(text, "wb") as file:
            there = subprocess.run([VEXAL, *form, source.path], stdout=file, stderr=subprocess.PIPE, timeout=120)
        source.told(" ".join(form[:2]), there)
        if there.returncode != 0:
            counts["refused"] += 1
            check(there.stderr, "%s: %s: ends with %d and says nothing" % (source.name, form, there.returncode))
            continue
        back = run(VEXAL, form[0], "--back", *form[1:], text, fresh())
        source.judge(" ".join(form[:3]) + " --back", back, out, ignore, may_refuse=True)


def fragments(element):
    """Of an encapsulated value, its table first."""
    found, rest = [], element.value
    while rest[:4] == ITEM:
        end = 8 + int.from_bytes(rest[4:8], "little")
        found, rest = found + [rest[8:end]], rest[end:]
    return found


def even(parts):
    return [part + b"\0" * (len(part) % 2) for part in parts]


def frames(source, plain, out, fresh):
    """Everything around pixels that change their form."""
    # Files of others have planes or halves of colours that come back in another order; scripts beside this one look at their pixels.
    made_here = source.name.startswith("pix/") and not (REAL_SAMPLES and source.path.startswith(SAMPLES))
    if plain and len(source.bytes) < 300000:
        for target in (LOSSLESS + LOSSY if made_here else LOSSLESS[:1] + LOSSY[:1]):
            result = run(VEXAL, "convert", "--to", target, source.path, fresh())
            source.judge("convert --to " + target, result, out, DESCRIBED | (DERIVED if target in LOSSY else set()), may_refuse=True)
            if result.returncode == 0:
                counts["as " + target] += 1
            if result.returncode == 0 and target in LOSSLESS and made_here:
                back = run(VEXAL, "convert", "--to", "explicit", out, out)
                source.judge("from " + target, back, out, {0x00280006} if b"RGB" in source.bytes else ())
    if plain:
        return
    result = run(VEXAL, "convert", "--to", "explicit", source.path, fresh())
    source.judge("convert --to explicit", result, out, DESCRIBED, may_refuse=True)
    result = run(VEXAL, "pixel", "offsets", "--repair", fresh(), source.path)
    if source.judge("pixel offsets --repair", result, out, {PIXELS} | TABLES, may_refuse=True):
        same = fragments(load(out)[PIXELS])[1:] == even(fragments(source.before[PIXELS]))[1:]
        check(same, source.name + ": pixel offsets --repair: other fragments")
    streams = os.path.join(os.path.dirname(out), "streams")
    shutil.rmtree(streams, ignore_errors=True)
    os.mkdir(streams)
    if run(VEXAL, "pixel", "extract", "--compressed", source.path, streams).returncode == 0:
        there, got = b"".join(fragments(source.before[PIXELS])[1:]), b"".join(map(read, files_under(streams)))
        check(got == there, "%s: pixel extract --compressed: %d bytes, not %d" % (source.name, len(got), len(there)))
        counts["streams extracted"] += 1


def in_later_syntaxes(path, folder):
    """More files; codecs that are not there are left out everywhere."""
    for name in LOSSLESS + LOSSY:
        out = os.path.join(folder, "later", name + ".dcm")
        if b"not installed" in run(VEXAL, "convert", "--to", name, path, write(out, "")).stderr:
            left_out("conversions to " + name, "its library")
            counts.pop("as " + name)
        elif name in LOSSLESS[4:]:
            yield "later/" + name, out, True


def work(one):
    """All commands on one file, in a process of its own: failures and counts."""
    name, path, valid = one
    failures.clear()
    counts.update(dict.fromkeys(counts, 0))
    with tempfile.TemporaryDirectory() as folder:
        try:
            source = Source(name, path, valid)
        except Exception as error:
            print("not compared: %s: pydicom: %r" % (name, error))
            return [], dict(counts)
        if source.syntax.endswith(".95") or name.startswith("odd/gh179a"):
            print("not compared: %s: pydicom reads something else" % name)
            return [], dict(counts)
        counts["files"] += 1
        try:
            each_command(source, folder)
            source.judge_readers()
        except subprocess.TimeoutExpired as error:
            fail("%s: takes too long: %s" % (name, error.cmd))
        except Exception as error:
            fail("%s: %r" % (name, error))
    return list(failures), dict(counts)


def names(folder):
    """Files of one name come from several folders."""
    for name in ("a/x.dcm", "b/x.dcm", "b/deep/x.dcm", "y.dcm"):
        w = made.Writer()
        write(os.path.join(folder, name), w.file(made.head(w, patient=name)))
    out = os.path.join(folder, "out")

    def convert(*inputs, cwd=folder):
        shutil.rmtree(out, ignore_errors=True)
        result = run(VEXAL, "convert", "--to", "implicit", *inputs, out, cwd=cwd)
        return result.returncode, {os.path.relpath(path, out): pydicom.dcmread(path).PatientID for path in files_under(out)}
    kept = {name: name for name in ("a/x.dcm", "b/x.dcm", "b/deep/x.dcm")}
    for inputs, cwd, expected in (
            (("a/x.dcm", "b/x.dcm", "b/deep/x.dcm"), "", (0, kept)), (("a", "b/"), "", (0, kept)), (("./a/../a", os.path.join(folder, "b")), "", (0, kept)),
            (("b",), "", (0, {"x.dcm": "b/x.dcm", "deep/x.dcm": "b/deep/x.dcm"})),
            (("x.dcm", "deep/x.dcm"), "b", (0, {"x.dcm": "b/x.dcm", "deep/x.dcm": "b/deep/x.dcm"})),
            (("y.dcm", "a/x.dcm"), "", (0, {"y.dcm": "y.dcm", "a/x.dcm": "a/x.dcm"})), (("a/x.dcm", "./a/x.dcm"), "", (2, {})), (("b", "b/deep"), "", (2, {}))):
        found = convert(*inputs, cwd=os.path.join(folder, cwd))
        check(found == expected, "convert %s to a folder: %s" % (inputs, found))


def offset_tables(folder):
    """Odd fragments get a byte more, and the tables of their places know it."""
    w = made.Writer()
    parts = [made.content("OB", n) for n in (101, 70003, 64, 7, 3001)]
    places = lambda sizes: [sum(8 + size for size in sizes[:n]) for n in range(len(sizes))]
    sizes, padded = [len(p) for p in parts], [len(p) + len(p) % 2 for p in parts]
    path, out = os.path.join(folder, "odd.dcm"), os.path.join(folder, "out.dcm")
    for extended in (False, True):
        tables = w.element(0x7FE00001, "OV", struct.pack("<5Q", *places(sizes))) + w.element(0x7FE00002, "OV", struct.pack("<5Q", *sizes))
        write(path, w.file(made.head(w) + w.text(0x00280008, "IS", "5") + (tables if extended else b"") +
                           w.fragments(parts, () if extended else places(sizes)), syntax="1.2.840.10008.1.2.4.50"))
        vexal("modify", "--set", "PatientID=X", path, out)
        found = load(out)
        table, *rest = fragments(found[PIXELS])
        check(rest == even(parts), "odd fragments come out changed")
        check(table == (b"" if extended else struct.pack("<5I", *places(padded))), "the Basic Offset Table of odd fragments")
        check(not extended or (found[0x7FE00001].value == struct.pack("<5Q", *places(padded)) and
                               found[0x7FE00002].value == struct.pack("<5Q", *sizes)), "the Extended Offset Table of odd fragments")


def shown(path):
    """What dump shows of text that is not as it should be."""
    dump = run(VEXAL, "dump", path).stdout
    for line in (b"AB\\CD", b"text\\x00behind", b"UV        8  FileOffsetInContainer", b"17872260264855011841", b"-2\\-1"):
        check(line in dump, "dump lacks %s:\n%s" % (line, dump.decode(errors="replace")))


def over_the_network(files, folder):
    """store to receive, also with conversion: the files that arrive hold what was sent."""
    for options in ((), ("--to", "implicit")):
        arriving = os.path.join(folder, "received" + "".join(options))
        with Vexal("receive", arriving, "--quiet", *options) as server:
            for name, path, valid in files:
                try:
                    source = Source(name, path, valid)
                except Exception:
                    continue  # pydicom can not read it
                if options and source.syntax not in SYNTAXES.values():
                    continue  # its pixels are decompressed
                for known in files_under(arriving):
                    os.remove(known)  # several samples are of one instance
                result = run(VEXAL, "store", "127.0.0.1", server.port, "--retries", 0, path)
                new = files_under(arriving)
                if result.returncode == 0 and check(len(new) == 1, "%s: store: %d new files" % (name, len(new))):
                    source.judge("store to " + " ".join(("receive",) + options), result, new[0])
                    source.judge_readers()
                    os.remove(source.written[-1][1])
                    counts["sent"] += 1


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as folder:
        files = made.make(os.path.join(folder, "made"))
        files += in_later_syntaxes(os.path.join(folder, "made", "pix", "rgb-frames-explicit.dcm"), folder)
        totals = dict(counts)
        if REAL_SAMPLES:
            valid = {path for name, path in valid_samples() if name not in UNUSUAL}
            for path in files_under(SAMPLES):
                with open(path, "rb") as file:
                    head = file.read(132)
                if head[128:] == b"DICM" and os.path.getsize(path) < 16 << 20:
                    files.append((os.path.relpath(path, SAMPLES), path, path in valid))
        with multiprocessing.Pool() as pool:
            for failed, counted in pool.imap_unordered(work, files, chunksize=4):
                failures.extend(failed)
                for key, value in counted.items():
                    totals[key] += value
        counts.update(dict.fromkeys(counts, 0))
        names(folder)
        offset_tables(folder)
        shown(os.path.join(folder, "made", "odd/as-it-came.dcm"))
        sendable = [file for file in files if file[2] and not file[0].startswith(("dicomdir/DICOMDIR", "ts/"))]
        over_the_network(sendable[::3], folder)
        for key, value in counts.items():
            totals[key] += value
    sys.exit(end(totals))
