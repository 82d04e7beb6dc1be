#!/usr/bin/env python3
"""What a file holds is what its copy holds, in whatever transfer syntax, through files and through the network.

usage: rewriting.py VEXAL [SAMPLES]
Made files with every VR of many lengths, at the top and in items, private blocks, fragments and directories that others would
not write; the copies are read byte by byte here, and by pydicom and dcmtk where they are installed.
"""
import os
import shutil
import struct
import subprocess
import sys
import zlib

from checks import VEXAL, check, free_port, has, left_out, run, run_parts, wait_for_listener

LONG = "OB OD OF OL OV OW SQ SV UC UN UR UT UV".split()
WIDTH = dict(AT=4, FL=4, FD=8, SL=4, SS=2, UL=4, US=2, OD=8, OF=4, OL=4, OV=8, OW=2, SV=8, UV=8)
NUMBERS = "AT FL FD SL SS UL US SV UV".split()
BULK = "OB OD OF OL OV OW UN".split()
TEXTS = "AE AS CS DA DS DT IS LO LT PN SH ST TM UC UI UR UT".split()
UIDS = {"implicit": "1.2.840.10008.1.2", "explicit": "1.2.840.10008.1.2.1", "big-endian": "1.2.840.10008.1.2.2",
        "deflated": "1.2.840.10008.1.2.1.99"}
ITEM, ITEM_END, SEQUENCE_END = 0xFFFEE000, 0xFFFEE00D, 0xFFFEE0DD


def swapped(vr, value, big):
    width = 2 if vr == "AT" else WIDTH.get(vr, 1)
    if not big or width == 1:
        return value
    whole = len(value) // width * width
    return b"".join(value[i:i + width][::-1] for i in range(0, whole, width)) + value[whole:]


def head(tag, vr, length, syntax):
    order = ">" if syntax == "big-endian" else "<"
    if vr is None or syntax == "implicit":
        return struct.pack(order + "HHI", tag >> 16, tag & 0xFFFF, length)
    start = struct.pack(order + "HH", tag >> 16, tag & 0xFFFF) + vr.encode()
    return start + (struct.pack(order + "xxI", length) if vr in LONG else struct.pack(order + "H", length))


def encode(elements, syntax):
    """Elements are (tag, VR, bytes as in little endian); of a sequence, a list of lists of elements."""
    out = b""
    for tag, vr, value in elements:
        if vr == "SQ":
            items = [encode(item, syntax) for item in value]
            value = b"".join(head(ITEM, None, len(item), syntax) + item for item in items)
        out += head(tag, vr, len(value), syntax) + swapped(vr, value, syntax == "big-endian")
    return out


def write(path, elements, syntax="explicit", instance="1.2.3", uid=None, tail=b""):
    even = lambda text: text.encode() + b"\0" * (len(text) % 2)
    meta = encode([(0x00020001, "OB", b"\0\1"), (0x00020002, "UI", even("1.2.840.10008.5.1.4.1.1.7")), (0x00020003, "UI", even(instance)),
                   (0x00020010, "UI", even(uid or UIDS[syntax]))], "explicit")
    body = encode(elements, "explicit" if syntax == "deflated" else syntax) + tail
    if syntax == "deflated":
        packer = zlib.compressobj(9, zlib.DEFLATED, -15)
        body = packer.compress(body) + packer.flush()
        body += b"\0" * (len(body) % 2)
    with open(path, "wb") as file:
        file.write(bytes(128) + b"DICM" + encode([(0x00020000, "UL", struct.pack("<I", len(meta)))], "explicit") + meta + body)


class Reader:
    """Strict: every byte belongs to an element."""

    def __init__(self, data, syntax):
        self.data, self.at, self.syntax = data, 0, syntax
        self.order = ">" if syntax == "big-endian" else "<"

    def take(self, size):
        if self.at + size > len(self.data):
            raise ValueError("ends at %d, %d are to follow" % (len(self.data), size))
        self.at += size
        return self.data[self.at - size:self.at]

    def tag(self):
        group, element = struct.unpack(self.order + "HH", self.take(4))
        return group << 16 | element

    def length(self):
        return struct.unpack(self.order + "I", self.take(4))[0]

    def elements(self, end=None):
        found = []
        while self.at < (len(self.data) if end is None or end < 0 else end):
            tag, vr = self.tag(), None
            if tag == ITEM_END and end == -1:
                self.length()
                return found
            if self.syntax == "implicit":
                length = self.length()
            else:
                vr = self.take(2).decode()
                length = struct.unpack(self.order + "H", self.take(2))[0]
                if vr in LONG:
                    length = self.length()
            found.append((tag, vr, self.value(tag, vr, length)))
        return found

    def value(self, tag, vr, length):
        if vr == "SQ" or (vr is None and tag in SEQUENCES):
            return self.items(length)
        if length != 0xFFFFFFFF:
            return swapped(vr, self.take(length), self.order == ">")
        fragments = []
        while True:
            tag, length = self.tag(), self.length()
            if tag == SEQUENCE_END:
                return fragments
            fragments.append(self.take(length))

    def items(self, length):
        found, end = [], None if length == 0xFFFFFFFF else self.at + length
        while end is None or self.at < end:
            tag, size = self.tag(), self.length()
            if tag == SEQUENCE_END:
                break
            found.append(self.elements(-1 if size == 0xFFFFFFFF else self.at + size))
        return found


SEQUENCES = set()


def read(path):
    """The syntax and the elements behind the meta group."""
    data = open(path, "rb").read()
    size = struct.unpack("<I", data[140:144])[0]
    meta = {tag: value for tag, _, value in Reader(data[132:144 + size], "explicit").elements()}
    uid = meta[0x00020010].rstrip(b"\0").decode()
    syntax = next((name for name in UIDS if UIDS[name] == uid), "explicit")
    body = data[144 + size:]
    if syntax == "deflated":
        body, syntax = zlib.decompress(body, -15), "explicit"
    return uid, Reader(body, syntax).elements()


def filled(vr, length):
    """A value of that many bytes which is right in its VR as far as that can be."""
    if vr in TEXTS:
        return (b"1" if vr in ("DS", "IS", "DA", "TM", "DT", "UI", "AS") else b"A") * length
    return bytes((i * 7 + length) % 251 for i in range(length))


def even(vr, value):
    return value + (b" " if vr in TEXTS and vr != "UI" else b"\0") * (len(value) % 2)


def expected(elements, source, target):
    """What is to come out: odd values padded; what outgrows its header as UN; no VR from implicit or in it."""
    out = []
    for tag, vr, value in elements:
        if vr == "SQ":
            out.append((tag, vr if target != "implicit" else None, [expected(item, source, target) for item in value]))
            continue
        unknown = source == "implicit" and tag >> 16 & 1 and tag & 0xFF00
        value = even("UN" if unknown else vr, value)
        if target == "implicit":
            vr = None
        elif unknown:
            vr = "UN"
        elif source == "implicit" and vr == "OB" and tag in (0x54001010, 0x7FE00010):
            vr = "OW"  # either, and nobody can tell
        elif len(value) > 65535 and vr not in LONG:
            vr = "UN"
        out.append((tag, vr, value))
    return out


def compare(got, want, what):
    check([g[0] for g in got] == [w[0] for w in want], "%s: tags %s" % (what, sorted(set(g[0] for g in got) ^ set(w[0] for w in want))))
    for (tag, vr, value), (_, wanted_vr, wanted) in zip(got, want):
        name = "%s, (%04X,%04X)" % (what, tag >> 16, tag & 0xFFFF)
        if isinstance(wanted, list) and isinstance(value, list) and wanted and isinstance(wanted[0], list):
            check(vr == wanted_vr and len(value) == len(wanted), "%s: %s with %d items" % (name, vr, len(value)))
            for n, (item, wanted_item) in enumerate(zip(value, wanted)):
                compare(item, wanted_item, "%s[%d]" % (name, n))
        else:
            good = vr == wanted_vr and value == wanted
            check(good, good or "%s: %s %s, not %s %s" % (name, vr, short(value), wanted_vr, short(wanted)))


def short(value):
    return repr(value[:40]) + (" of %d" % len(value) if len(value) > 40 else "")


def every_vr(group):
    """A private block of each VR, with a value of each length."""
    blocks, found, element = {}, [], 0
    for vr in NUMBERS + TEXTS + BULK:
        for length in list(range(10)) + [65533, 65534, 65535, 65536, 65537, 70001]:
            if (length > 65535 and vr not in LONG) or (vr in NUMBERS and length % WIDTH[vr]):
                continue
            block = 0x10 + element // 256
            blocks[block] = True
            found.append((group << 16 | block << 8 | element % 256, vr, filled(vr, length)))
            element += 1
    return [(group << 16 | block, "LO", b"MAKER %02X" % block) for block in blocks] + found


def kept_values():
    """The attributes whose values stay in the file while it is converted, of odd length."""
    waveform = [(0x54001004, "US", b"\x08\0"), (0x54001010, "OB", filled("OB", 70001)),
                (0x5400100A, "OW", filled("OW", 3))]
    SEQUENCES.add(0x54000100)
    return [(0x00420010, "ST", b"title"), (0x00420011, "OB", filled("OB", 100001)), (0x00420012, "LO", b"mime"),
            (0x54000100, "SQ", [sorted(waveform), sorted(waveform)]), (0x56000020, "OF", filled("OF", 65539)),
            (0x7FE00010, "OB", filled("OB", 300001)), (0xFFFCFFFC, "OB", filled("OB", 5))]


def converted(source, folder, to, *more):
    target = os.path.join(folder, "to-%s.dcm" % to)
    result = run(VEXAL, "convert", "--quiet", *more, "--to", to, source, target)
    check(result.returncode == 0, "%s to %s: %s" % (source, to, result.stderr[-300:]))
    return target


def values(folder):
    """Each VR of each length, at the top and in an item, from each syntax to each."""
    elements = [(0x00080016, "UI", b"1.2.840.10008.5.1.4.1.1.7\0"), (0x00080018, "UI", b"1.2.3\0")] + every_vr(0x0009)
    elements += [(0x00400555, "SQ", [every_vr(0x0011), []])] + kept_values()
    SEQUENCES.add(0x00400555)
    for source in UIDS:
        path = os.path.join(folder, source + ".dcm")
        write(path, elements, source)
        for target in UIDS:
            for more in ((), ("--undefined-lengths",)) if target == "explicit" else ((),):
                uid, got = read(converted(path, folder, target, *more))
                check(uid == UIDS[target], "%s to %s: %s" % (source, target, uid))
                compare(got, expected(elements, source, "explicit" if target == "deflated" else target), "%s to %s" % (source, target))
        size = os.path.getsize(path)
        check(run(VEXAL, "modify", "--set", "PatientID=X", path).returncode == 0, "modify in place")
        uid, got = read(path)
        compare([e for e in got if e[0] != 0x00100020], expected(elements, source, "explicit" if source == "deflated" else source), source + " modified")
        check(source == "deflated" or abs(os.path.getsize(path) - size) < 4096, "another size")


def as_they_came(folder):
    """Padding, bytes behind a NUL, creators and letters of others: nobody has touched them."""
    private = [(0x00090010, "LO", b"A\x01B\\C\x1b "), (0x00090011, "LO", b"L" * 100), (0x00090012, "LO", b"N" * 600), (0x00090013, "LO", b""),
               (0x00090014, "LO", b"SAME"), (0x00090015, "LO", b"SAME"), (0x00090016, "LO", b"BLANKS  "), (0x00090017, "SH", b"NUL\0rest"),
               (0x00090018, "UN", b"UNKNOWN ")]
    private += [(0x00090000 | block << 8, "SH", b"own ") for block in range(0x10, 0x1A)]
    elements = [(0x00080005, "CS", b"ISO_IR 100"), (0x00080008, "CS", b"ORIGINAL \\PRIMARY\\\\AXIAL "), (0x00080016, "UI", b"1.2.3 "),
                (0x00080018, "UI", b"1.2.3.4\0"), (0x00080070, "LO", b"AB\0\\CD"), (0x00080080, "LO", b"two blanks  "),
                (0x00080081, "ST", b"text\0behind"), (0x0008040C, "UV", b"\x01\x02\x03\x04\x05\x06\x07\xf8"), (0x00081030, "LO", b"NUL at end\0\0")]
    elements += private + [
        (0x00100010, "PN", b"Doe^J\0hn"), (0x00101020, "DS", b"1,5 \\" + b"2" * 300), (0x00101030, "DS", b" 70.50"), (0x00180015, "CS", b"  "),
        (0x00200032, "DS", b"1\\2 \\3 "), (0x00720082, "SV", b"\xfe" + b"\xff" * 15)]
    path = os.path.join(folder, "in.dcm")
    write(path, elements)
    want = [(tag, "LO" if tag == 0x00090018 else vr, even(vr, value)) for tag, vr, value in elements]
    for to in ("explicit", "implicit", "deflated", "big-endian"):
        got = read(converted(path, folder, to))[1]
        compare(got, [(t, None, v) if to == "implicit" else (t, v_, v) for t, v_, v in want], "as they came, " + to)
    back = read(converted(os.path.join(folder, "to-big-endian.dcm"), folder, "explicit"))[1]
    compare(back, want, "as they came, back from big endian")
    back = read(converted(os.path.join(folder, "to-implicit.dcm"), folder, "explicit"))[1]
    letters = {tag: vr for tag, vr, _ in back}
    check(letters[0x0008040C] == "UV" and letters[0x00720082] == "SV", "the standard's letters from implicit VR: %s" % letters)
    dump = run(VEXAL, "dump", path).stdout
    for line in (b"AB\\CD", b"text\\x00behind", b"UV        8  FileOffsetInContainer", b"17872260264855011841", b"-2\\-1"):
        check(line in dump, "dump lacks %s:\n%s" % (line, dump.decode(errors="replace")))
    check(run(VEXAL, "modify", "--add", "ManufacturerModelName=X", "--set", "PatientName=Roe", path).returncode == 0, "modify")
    changed = [(t, v, b"Roe " if t == 0x00100010 else x) for t, v, x in want]
    compare([e for e in read(path)[1] if e[0] != 0x00081090], changed, "modified in place")


def encapsulated(parts, table=b""):
    out = head(ITEM, None, len(table), "explicit") + table
    for part in parts:
        out += head(ITEM, None, len(part), "explicit") + part
    return head(0x7FE00010, "OB", 0xFFFFFFFF, "explicit") + out + head(SEQUENCE_END, None, 0, "explicit")


def fragments(folder):
    """Odd fragments get a byte more, and the tables of their places know it."""
    parts = [filled("OB", n) for n in (101, 70003, 64, 7, 300001)]
    starts = [sum(8 + len(p) for p in parts[:n]) for n in range(len(parts))]
    moved = [sum(8 + len(even("OB", p)) for p in parts[:n]) for n in range(len(parts))]
    for table in (b"", struct.pack("<5I", *starts)):
        extended = [] if table else [(0x7FE00001, "OV", struct.pack("<5Q", *starts)), (0x7FE00002, "OV", struct.pack("<5Q", *map(len, parts)))]
        path, out = os.path.join(folder, "odd.dcm"), os.path.join(folder, "out.dcm")
        write(path, [(0x00280008, "IS", b"5 ")] + extended, uid="1.2.840.10008.1.2.4.50", tail=encapsulated(parts, table))
        check(run(VEXAL, "modify", "--set", "PatientID=X", path, out).returncode == 0, "modify odd fragments")
        found = {tag: (vr, value) for tag, vr, value in read(out)[1]}
        check(found[0x7FE00010][1][1:] == [even("OB", p) for p in parts], "odd fragments come out changed")
        check(found[0x7FE00010][1][0] == (struct.pack("<5I", *moved) if table else b""), "their Basic Offset Table")
        check(bool(table) or found[0x7FE00001] == ("OV", struct.pack("<5Q", *moved)), "their Extended Offset Table")
        check(bool(table) or found[0x7FE00002][1] == extended[1][2], "the lengths beside it")


def references(path):
    """The reader's own view of a DICOMDIR: its records as a tree, found by the offsets."""
    data = open(path, "rb").read()
    uid, elements = read(path)
    syntax = next(name for name in UIDS if UIDS[name] == uid)
    top = {tag: value for tag, _, value in elements}
    number = lambda value: struct.unpack("<I", value)[0]

    def follow(at):
        tree = []
        while at:
            reader = Reader(data, syntax)
            reader.at = at
            if reader.tag() != ITEM:
                raise ValueError("no record at %d" % at)
            size = reader.length()
            record = {tag: value for tag, _, value in reader.elements(-1 if size == 0xFFFFFFFF else reader.at + size)}
            key = tuple(v for t, v in sorted(record.items()) if t >> 16 != 4 and not isinstance(v, list))
            tree.append((record[0x00041430].strip(), key, follow(number(record[0x00041420]))))
            at = number(record[0x00041400])
        return tree
    return follow(number(top[0x00041200]))


def directories(folder):
    """A DICOMDIR in another syntax, with a longer value: each record is where it is said to be. The text forms do not tell where that was."""
    SEQUENCES.update((0x00041220, 0x00081199))
    for n in range(6):
        write(os.path.join(folder, "IM%d" % n), [
            (0x00080016, "UI", b"1.2.840.10008.5.1.4.1.1.7\0"), (0x00080018, "UI", b"1.2.3.%d\0" % n), (0x00080020, "DA", b"20240101"),
            (0x00080030, "TM", b"1010"), (0x00080060, "CS", b"OT"), (0x00100010, "PN", b"P%d" % (n // 3)), (0x00100020, "LO", b"ID%d " % (n // 3)),
            (0x0020000D, "UI", b"1.2.%d\0" % (n // 3)), (0x0020000E, "UI", b"1.2.3.%d.%d\0" % (n // 3, n // 2)), (0x00200010, "SH", b"S1"),
            (0x00200011, "IS", b"1 "), (0x00200013, "IS", b"%d " % n)], instance="1.2.3.%d" % n)
    path = os.path.join(folder, "DICOMDIR")
    result = run(VEXAL, "dir", "create", path)
    check(result.returncode == 0, "dir create: %s" % result.stderr)
    tree = references(path)
    check(len(tree) == 2 and all(len(p[2]) == 1 for p in tree), "the directory made: %s" % tree)
    out, text = os.path.join(folder, "out"), os.path.join(folder, "text")
    for to in ("implicit", "big-endian", "explicit"):
        for more in ((), ("--undefined-lengths",), ("--pad", "512")):
            check(run(VEXAL, "convert", *more, "--to", to, path, out).returncode == 0 and references(out) == tree, "DICOMDIR to %s %s" % (to, more))
    for to in ("deflated", "rle"):
        result = run(VEXAL, "convert", "--to", to, path, os.path.join(folder, "none"))
        check(result.returncode == 2 and not os.path.exists(os.path.join(folder, "none")), "DICOMDIR to %s: %s" % (to, result.stderr))
    shutil.copy(path, out)
    check(run(VEXAL, "modify", "--set", "FileSetID=A LONGER NAME", "--set", "DirectoryRecordSequence[1].StudyDescription=" + "long " * 9,
              out).returncode == 0, "modify of a DICOMDIR")
    check([p[0] for p in references(out)] == [p[0] for p in tree] and b"A LONGER NAME" in open(out, "rb").read(), "a modified DICOMDIR")
    for change in ("OffsetOfTheFirstDirectoryRecordOfTheRootDirectoryEntity=1", "DirectoryRecordSequence="):
        check(run(VEXAL, "modify", "--set", change, out).returncode == 2, "modify takes " + change)
    for form in (["json"], ["json", "--own"], ["xml"], ["xml", "--native"]):
        with open(text, "wb") as file:
            file.write(run(VEXAL, *form, path).stdout)
        result = run(VEXAL, form[0], "--back", *form[1:], text, os.path.join(folder, "none"))
        check(result.returncode == 2 and b"vexal dir" in result.stderr and not os.path.exists(os.path.join(folder, "none")),
              "DICOMDIR from %s: %s" % (form, result.stderr[-300:]))
    # One reference that leads nowhere.
    broken = open(path, "rb").read().replace(b"\x04\0\x00\x14UL\4\0\0\0\0\0", b"\x04\0\x00\x14UL\4\0\1\0\0\0", 1)
    open(out, "wb").write(broken)
    for command in (["convert", "--to", "implicit", out, text], ["modify", "--set", "FileSetID=X", out]):
        check(run(VEXAL, *command).returncode == 2 and open(out, "rb").read() == broken, "a broken DICOMDIR: %s" % command[0])


def names(folder):
    """Files of one name come from several folders."""
    for name in ("a/x.dcm", "b/x.dcm", "b/deep/x.dcm", "y.dcm"):
        os.makedirs(os.path.dirname(os.path.join(folder, name)), exist_ok=True)
        write(os.path.join(folder, name), [(0x00100020, "LO", name.encode() + b" " * (len(name) % 2))])
    def convert(*inputs, cwd=folder):
        shutil.rmtree(os.path.join(folder, "out"), ignore_errors=True)
        result = run(VEXAL, "convert", "--to", "implicit", *inputs, os.path.join(folder, "out"), cwd=cwd)
        found = {}
        for root, _, files in os.walk(os.path.join(folder, "out")):
            for path in (os.path.join(root, f) for f in files):
                found[os.path.relpath(path, os.path.join(folder, "out"))] = dict((t, v) for t, _, v in read(path)[1])[0x00100020].strip().decode()
        return result.returncode, found
    kept = {"a/x.dcm": "a/x.dcm", "b/x.dcm": "b/x.dcm", "b/deep/x.dcm": "b/deep/x.dcm"}
    for inputs in (("a/x.dcm", "b/x.dcm", "b/deep/x.dcm"), ("a", "b/"), ("./a/../a", os.path.join(folder, "b"))):
        check(convert(*inputs) == (0, kept), "%s: %s" % (inputs, convert(*inputs)))
    check(convert("b") == (0, {"x.dcm": "b/x.dcm", "deep/x.dcm": "b/deep/x.dcm"}), "one folder: %s" % (convert("b"),))
    check(convert("x.dcm", "deep/x.dcm", cwd=os.path.join(folder, "b"))[1].keys() == {"x.dcm", "deep/x.dcm"}, "from inside")
    check(convert("y.dcm", "a/x.dcm") == (0, {"y.dcm": "y.dcm", "a/x.dcm": "a/x.dcm"}), "beside a folder")
    for inputs in (("a/x.dcm", "./a/x.dcm"), ("b", "b/deep")):
        check(convert(*inputs) == (2, {}), "%s: %s" % (inputs, convert(*inputs)))


def told_by_their_length(folder):
    """In implicit VR, sequences that no dictionary knows; pixels that are not what the transfer syntax says."""
    inner = [(0x00090010, "LO", b"X "), (0x00091002, "LO", b"in")]
    elements = [(0x00080016, "UI", b"1.2.3\0"), (0x00090010, "LO", b"X "), (0x00091001, "SQ", [inner, [(0x00100020, "LO", b"ID")]]), (0x00100010, "PN", b"Do")]
    path, out = os.path.join(folder, "in.dcm"), os.path.join(folder, "out.dcm")
    write(path, elements)
    back = read(converted(converted(path, folder, "implicit"), folder, "explicit"))[1]
    check([(t, v if v != "UN" else "LO") for t, v, _ in back] == [(t, v) for t, v, _ in elements], "a private sequence comes back as %s" % back)
    check(b"\x09\0\x01\x10\xff\xff\xff\xff" in open(os.path.join(folder, "to-implicit.dcm"), "rb").read(), "its length in implicit VR")
    write(path, [(0x7FE00010, "OB", bytes(100000))], uid="1.2.840.10008.1.2.4.50")
    result = run(VEXAL, "modify", "--set", "PatientID=X", path, out)
    check(result.returncode == 2 and b"not encapsulated" in result.stderr and not os.path.exists(out), "native pixels under a compressed syntax")


def network(folder):
    """store turns a file into what the peer wants, and sends the right bytes."""
    if not has("storescp", "what goes to a peer"):
        return
    path, out = os.path.join(folder, "in.dcm"), os.path.join(folder, "out")
    elements = [(0x00080016, "UI", b"1.2.840.10008.5.1.4.1.1.7\0"), (0x00080018, "UI", b"1.2.3\0")] + kept_values()
    write(path, elements, "big-endian")
    for option in ("+xi", "+xe"):
        port = free_port()
        os.makedirs(out)
        server = subprocess.Popen(["storescp", option, "+B", "-od", out, str(port)], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            wait_for_listener(server, port)
            result = run(VEXAL, "store", "127.0.0.1", port, path)
            check(result.returncode == 0 and len(os.listdir(out)) == 1, "store to %s: %s" % (option, result.stderr))
            uid, got = read(os.path.join(out, os.listdir(out)[0]))
            compare(got, expected(elements, "big-endian", {UIDS[name]: name for name in UIDS}[uid]), "stored in " + uid)
        finally:
            server.terminate()
            server.wait(15)
        shutil.rmtree(out)


def others(folder):
    """Two other programs read the same out of the copies as out of the file."""
    path = os.path.join(folder, "in.dcm")
    elements = [(0x00080016, "UI", b"1.2.840.10008.5.1.4.1.1.7\0"), (0x00080018, "UI", b"1.2.3\0"), (0x00091001, "OB", b"\1\2\3"), (0x00091002, "UN", b"\1\2\3\4\5"),
                (0x00091003, "OW", b"\1\2\3")]
    write(path, elements[:2] + [(0x00090010, "LO", b"MAKER ")] + elements[2:] + kept_values())
    try:
        import pydicom
    except ImportError:
        pydicom = None
        left_out("copies read by it", "pydicom")
    for to in UIDS:
        out = converted(path, folder, to)
        if shutil.which("dcmdump") is not None:
            result = run("dcmdump", "-q", "+L", out)
            check(result.returncode == 0 and not result.stderr, "dcmdump of %s: %s" % (to, result.stderr[-300:]))
        if pydicom is None:
            continue
        before, after = pydicom.dcmread(path), pydicom.dcmread(out)
        check([e.tag for e in before] == [e.tag for e in after], "pydicom sees other attributes in " + to)
        for element in before:
            turned = to == "big-endian" and element.VR in ("OW", "OF")
            if element.VR != "SQ" and element.tag.group & 1 == 0 and not turned:
                text = lambda v: v.rstrip(b"\0") if isinstance(v, bytes) else v
                check(text(after[element.tag].value) == text(element.value), "pydicom: %s in %s" % (element.tag, to))


sys.exit(run_parts(values, as_they_came, fragments, directories, names, told_by_their_length, network, others))
