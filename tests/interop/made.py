#!/usr/bin/env python3
"""Files made for the tests, byte by byte: every VR at odd and even lengths, every plain syntax, forms of sequences and
items, private blocks, text, frames and their fragments, flaws of other writers, directories, and one small object of
each kind.

usage: made.py FOLDER    writes them there
"""
import itertools
import json
import os
import shutil
import struct
import subprocess
import sys
import zlib

IMPLICIT, EXPLICIT, BIG, DEFLATED = "1.2.840.10008.1.2", "1.2.840.10008.1.2.1", "1.2.840.10008.1.2.2", "1.2.840.10008.1.2.1.99"
RLE = "1.2.840.10008.1.2.5"
SECONDARY_CAPTURE = "1.2.840.10008.5.1.4.1.1.7"
LONG = ("OB", "OD", "OF", "OL", "OV", "OW", "SQ", "SV", "UC", "UN", "UR", "UT", "UV")
TEXT = ("AE", "AS", "CS", "DA", "DS", "DT", "IS", "LO", "LT", "PN", "SH", "ST", "TM", "UC", "UI", "UR", "UT")
SIZES = {"AT": 4, "FD": 8, "FL": 4, "OB": 1, "OD": 8, "OF": 4, "OL": 4, "OV": 8, "OW": 2, "SL": 4, "SS": 2, "SV": 8, "UL": 4,
         "UN": 1, "US": 2, "UV": 8}
UNDEFINED = 0xFFFFFFFF
ROOT = "1.2.826.0.1.3680043.2.1143.77"


class Writer:
    """Elements as bytes in one syntax. Values are taken as they are: nothing is padded unless `even` is called."""

    def __init__(self, syntax=EXPLICIT):
        self.syntax, self.explicit = syntax, syntax != IMPLICIT
        self.order = ">" if syntax == BIG else "<"
        self.instance = ROOT + ".5"

    def tag(self, tag):
        return struct.pack(self.order + "HH", tag >> 16, tag & 0xFFFF)

    def element(self, tag, vr, value=b"", length=None):
        length = len(value) if length is None else length
        if tag >> 16 == 0xFFFE or not self.explicit:
            return self.tag(tag) + struct.pack(self.order + "I", length) + value
        if vr in LONG:
            return self.tag(tag) + vr.encode() + struct.pack(self.order + "HI", 0, length) + value
        return self.tag(tag) + vr.encode() + struct.pack(self.order + "H", length) + value

    def text(self, tag, vr, text):
        value = text if isinstance(text, bytes) else text.encode()
        return self.element(tag, vr, value + (b"\0" if vr == "UI" else b" ") * (len(value) % 2))

    def numbers(self, tag, vr, *values):
        code = {"US": "H", "SS": "h", "UL": "I", "SL": "i", "FL": "f", "FD": "d", "UV": "Q", "SV": "q"}[vr]
        return self.element(tag, vr, b"".join(struct.pack(self.order + code, v) for v in values))

    def sequence(self, tag, items, defined=False):
        """Items are bytes; with lengths, or with delimiters."""
        if defined:
            return self.element(tag, "SQ", b"".join(self.element(0xFFFEE000, "", item) for item in items))
        body = b"".join(self.element(0xFFFEE000, "", item, UNDEFINED) + self.element(0xFFFEE00D, "") for item in items)
        return self.element(tag, "SQ", body + self.element(0xFFFEE0DD, ""), UNDEFINED)

    def fragments(self, fragments, offsets=()):
        table = struct.pack("<%dI" % len(offsets), *offsets)
        body = b"".join(self.element(0xFFFEE000, "", f) for f in [table, *fragments])
        return self.element(0x7FE00010, "OB", body + self.element(0xFFFEE0DD, ""), UNDEFINED)

    def file(self, data_set, sop_class=SECONDARY_CAPTURE, instance=None, syntax=None):
        if self.syntax == DEFLATED:
            data_set = deflated(data_set)
            data_set += b"\0" * (len(data_set) % 2)
        return meta(sop_class, instance or self.instance, syntax or self.syntax) + data_set


def element(tag, vr, value):
    """In explicit VR little endian, of even length."""
    filler = b"\0" if vr in ("UI", "OB", "OW") else b" "
    value = value.encode() if isinstance(value, str) else value
    return Writer().element(tag, vr, value + filler * (len(value) % 2))


def meta(sop_class, instance, syntax=EXPLICIT):
    """What a file begins with: preamble and meta group."""
    rows = ((0x00020001, "OB", b"\0\1"), (0x00020002, "UI", sop_class), (0x00020003, "UI", instance), (0x00020010, "UI", syntax),
            (0x00020012, "UI", ROOT + ".1"))
    group = b"".join(element(*row) for row in rows)
    return bytes(128) + b"DICM" + element(0x00020000, "UL", struct.pack("<I", len(group))) + group


def deflated(*parts, level=6):
    packer = zlib.compressobj(level, zlib.DEFLATED, -15)
    return b"".join(packer.compress(part) for part in parts) + packer.flush()


numbers_of_objects = itertools.count(10000)


def head(w, sop_class=SECONDARY_CAPTURE, name=b"Made^File", charset=None, number=None, modality="OT", patient="ID1"):
    """What an object begins with, up to group 0010. Each has an instance UID of its own, which its file will tell."""
    w.instance = "%s.9.%d" % (ROOT, number or next(numbers_of_objects))
    return ((w.text(0x00080005, "CS", charset) if charset else b"") + w.text(0x00080016, "UI", sop_class) +
            w.text(0x00080018, "UI", w.instance) + w.text(0x00080020, "DA", "20260102") +
            w.text(0x00080030, "TM", "120000") + w.text(0x00080060, "CS", modality) +
            w.text(0x00100010, "PN", name) + w.text(0x00100020, "LO", patient) + w.text(0x00100040, "CS", "O"))


def tail(w, study=1, series=1, number=1):
    """UIDs and numbers that every object has: group 0020."""
    return (w.text(0x0020000D, "UI", "%s.2.%d" % (ROOT, study)) + w.text(0x0020000E, "UI", "%s.3.%d.%d" % (ROOT, study, series)) +
            w.text(0x00200010, "SH", str(study)) + w.text(0x00200011, "IS", str(series)) + w.text(0x00200013, "IS", str(number)))


def content(vr, size):
    """A value of that many bytes."""
    if vr == "UI":
        return (b"1.2.3.4.5678" * (size // 12 + 1))[:size]
    if vr in TEXT:
        return (b"20260102" * (size // 8 + 1))[:size] if vr in ("DA", "DT", "TM", "DS", "IS") else (b"ABCDEFGH" * (size // 8 + 1))[:size]
    return bytes((7 * i + size) % 251 for i in range(size))


def block_of_values(w, vr, sizes):
    """A private block: values of one VR, each with a neighbour behind it that shows whether anything has moved."""
    out = w.text(0x00110010, "LO", "MADE VALUES")
    for index, size in enumerate(sizes):
        out += w.element(0x00111000 + 2 * index, vr, content(vr, size)) + w.text(0x00111001 + 2 * index, "CS", "NEXT")
    return out


def values():
    """Each VR at lengths 0 to 9 and around 64 KiB, at the top and in items. Odd lengths are flaws of their writer."""
    for syntax, order in ((EXPLICIT, "le"), (BIG, "be"), (DEFLATED, "deflated")):
        w = Writer(syntax)
        for vr in sorted(set(TEXT) | set(SIZES)):
            large = [65534, 65535, 65536, 65537, 300001] if vr in LONG else [65534]
            for odd in (0, 1):
                block = block_of_values(w, vr, [size for size in [*range(10), *large] if size % 2 == odd])
                data = head(w) + block + tail(w) + w.sequence(0x00400275, [block], odd == 0)
                whole = not odd and all(size % SIZES.get(vr, 1) == 0 for size in range(0, 10, 2))
                yield "made/value-%s-%s-%s.dcm" % (vr, ("even", "odd")[odd], order), w.file(data), whole


def public_values():
    """Bulk values under tags of the standard, of odd length as some writers have them, alone and many."""
    for size in (3, 65537, 300001):
        for syntax in (IMPLICIT, EXPLICIT, BIG):
            w = Writer(syntax)
            icc = w.element(0x00282000, "OB", content("OB", size))
            document = w.element(0x00420011, "OB", content("OB", size)) + w.text(0x00420012, "LO", "application/pdf")
            wave = w.sequence(0x54000100, [w.element(0x54001010, "OW", content("OW", size))])
            yield "made/value-public-%d-%s.dcm" % (size, syntax[16:] or "1.2"), w.file(head(w) + tail(w) + icc + document + wave), False


def structures():
    """Sequences and items of every form, nested, empty, private and under UN."""
    for syntax in (IMPLICIT, EXPLICIT, BIG, DEFLATED):
        w, name = Writer(syntax), {IMPLICIT: "implicit", EXPLICIT: "explicit", BIG: "big", DEFLATED: "deflated"}[syntax]
        code = w.text(0x00080100, "SH", "T-A0100") + w.text(0x00080102, "SH", "SRT") + w.text(0x00080104, "LO", "Brain")
        for defined in (False, True):
            deep = w.text(0x00080104, "LO", "bottom")
            for _ in range(40):
                deep = w.sequence(0x00080006, [deep, b""], defined)
            data = (head(w) + tail(w) + w.sequence(0x00400260, [code, code], defined) + w.sequence(0x00400275, [], defined) +
                    w.sequence(0x00400555, [b"", code, b""], defined) + w.sequence(0x0040A730, [deep], defined))
            yield "made/structure-%s-%d.dcm" % (name, defined), w.file(data), True
            private = w.text(0x00190010, "LO", "MADE") + w.sequence(0x00191001, [code, w.text(0x00190010, "LO", "MADE") +
                                                                                   w.numbers(0x00191002, "UL", 7)], defined)
            yield "made/structure-private-%s-%d.dcm" % (name, defined), w.file(head(w) + private + tail(w)), True
    w, inner = Writer(EXPLICIT), Writer(IMPLICIT)
    item = inner.element(0xFFFEE000, "", inner.text(0x00080104, "LO", "in UN"), UNDEFINED) + inner.element(0xFFFEE00D, "")
    unknown = w.element(0x00191003, "UN", item + inner.element(0xFFFEE0DD, ""), UNDEFINED)
    yield "made/structure-un-undefined.dcm", w.file(head(w) + w.text(0x00190010, "LO", "MADE") + unknown + tail(w)), True
    yield "made/structure-group-lengths.dcm", w.file(w.numbers(0x00080000, "UL", 84) + head(w) + tail(w)), True


def private_blocks():
    """Creators as they should be and as they are: with control characters, backslashes, too long, of UN, twice, none."""
    for syntax in (IMPLICIT, EXPLICIT):
        w = Writer(syntax)
        for index, creator in enumerate([b"MADE", b"MADE\x1b", b"A\\B ", b"X" * 66, b"  MADE  ", b"", b"\xc4\xd6\xdc.", b"MADE\0AGAIN"]):
            block = (w.element(0x00110010, "LO", creator + b" " * (len(creator) % 2)) + w.text(0x00110011, "LO", "OTHER") +
                     w.numbers(0x00111001, "US", 1, 2) + w.text(0x00111002, "LO", "of the first") + w.text(0x00111101, "SH", "second"))
            yield "private/creator-%d-%s.dcm" % (index, syntax[16:] or "1.2"), w.file(head(w) + block + tail(w)), index in (0, 6)
        twice = w.text(0x00110010, "LO", "MADE") + w.text(0x00110011, "LO", "MADE") + w.text(0x00111001, "LO", "a") + w.text(0x00111101, "LO", "b")
        yield "private/twice-%s.dcm" % (syntax[16:] or "1.2"), w.file(head(w) + twice + tail(w)), False
        none = w.text(0x00111001, "LO", "orphan") + w.text(0x00131101, "LO", "orphan too")
        yield "private/none-%s.dcm" % (syntax[16:] or "1.2"), w.file(head(w) + none + tail(w)), False
    w = Writer(EXPLICIT)
    yield "private/creator-un.dcm", w.file(head(w) + w.element(0x00110010, "UN", b"MADE") + w.element(0x00111001, "UN", b"abcd") + tail(w)), False


TEXTS = [  # name, Specific Character Set, patient's name, and the same in Unicode
    ("ascii", None, b"Doe^Jane", "Doe^Jane"),
    ("latin1", "ISO_IR 100", "Äneas^Rüdiger".encode("latin-1"), "Äneas^Rüdiger"),
    ("latin2", "ISO_IR 101", "Wałęsa^Łódź".encode("iso8859-2"), "Wałęsa^Łódź"),
    ("latin5", "ISO_IR 148", "Çavuşoğlu^İ".encode("iso8859-9"), "Çavuşoğlu^İ"),
    ("cyrillic", "ISO_IR 144", "Люкceмбypг".encode("iso8859-5"), "Люкceмбypг"),
    ("arabic", "ISO_IR 127", "قباني^لنزار".encode("iso8859-6"), "قباني^لنزار"),
    ("greek", "ISO_IR 126", "Διονυσιος".encode("iso8859-7"), "Διονυσιος"),
    ("hebrew", "ISO_IR 138", "שרון^דבורה".encode("iso8859-8"), "שרון^דבורה"),
    ("thai", "ISO_IR 166", "นามสกุล^ชื่อ".encode("iso8859-11"), "นามสกุล^ชื่อ"),
    ("utf-8", "ISO_IR 192", "Wang^XiaoDong=王^小东".encode(), "Wang^XiaoDong=王^小东"),
    ("gb18030", "GB18030", "Wang^XiaoDong=王^小东=".encode("gb18030"), "Wang^XiaoDong=王^小东="),
    ("japanese", "\\ISO 2022 IR 87", b"Yamada^Tarou=\x1b$B;3ED\x1b(B^\x1b$BB@O:\x1b(B=\x1b$B$d$^$@\x1b(B^\x1b$B$?$m$&\x1b(B",
     "Yamada^Tarou=山田^太郎=やまだ^たろう"),
    ("korean", "\\ISO 2022 IR 149", b"Hong^Gildong=\x1b$)C\xfb\xf3^\x1b$)C\xd1\xce\xd4\xd7=", "Hong^Gildong=洪^吉洞="),
]


def as_it_came():
    """Padding, bytes behind a NUL, creators and letters of others in one file."""
    w = Writer(EXPLICIT)
    first = [(0x00080008, "CS", b"ORIGINAL \\PRIMARY\\\\AXIAL "), (0x00080070, "LO", b"AB\0\\CD"), (0x00080080, "LO", b"two blanks  "),
             (0x00080081, "ST", b"text\0behind "), (0x0008040C, "UV", b"\x01\x02\x03\x04\x05\x06\x07\xf8"), (0x00081030, "LO", b"NUL at end\0\0")]
    creators = [b"A\x01B\\C\x1b ", b"L" * 100, b"N" * 600, b"", b"SAME", b"SAME", b"BLANKS  "]
    private = [(0x00090010 + n, "LO", code) for n, code in enumerate(creators)] + [(0x00090017, "SH", b"NUL\0rest"), (0x00090018, "UN", b"UNKNOWN ")]
    private += [(0x00091000 | n << 8, "SH", b"own ") for n in range(9)]
    last = [(0x00101020, "DS", b"1,5 \\" + b"2" * 300), (0x00101030, "DS", b" 70.50"), (0x00180015, "CS", b"  "), (0x00200032, "DS", b"1\\2 \\3 "),
            (0x00720082, "SV", b"\xfe" + b"\xff" * 15)]
    yield "odd/as-it-came.dcm", w.file(b"".join(w.element(*row) for row in first + private + last)), False


def texts():
    """A name in each character set, each in a study of its own, as a study has one patient."""
    w = Writer(EXPLICIT)
    for study, (name, charset, value, _) in enumerate(TEXTS, 101):
        yield "made/charset-%s.dcm" % name, w.file(head(w, name=value, charset=charset) + tail(w, study)), True


def odd_texts():
    """Text as it should not be: NUL inside, blanks and NULs around, bytes of no set."""
    w = Writer(EXPLICIT)
    odd = {"nul": b"AB\0\\CD", "nuls": b"AB\0\0", "blanks": b"  AB\\ CD  ", "empty": b"\\\\\\ ", "latin": b"M\xfcller", "escape": b"A\x1b[31mB ",
           "nul-only": b"\0\0", "tab": b"A\tB\r\n"}
    for name, value in odd.items():
        value += b" " * (len(value) % 2)
        data = head(w) + w.element(0x00102160, "SH", value) + w.element(0x00104000, "LT", value) + tail(w) + w.element(0x00324000, "LT", value)
        yield "made/text-odd-%s.dcm" % name, w.file(data), name in ("blanks", "empty")
    yield "made/charset-unknown.dcm", w.file(head(w, name=b"M\xfcller", charset="ISO_IR 999") + tail(w)), False
    for syntax in (IMPLICIT, EXPLICIT, BIG):
        long = Writer(syntax)
        texts_ = [long.element(tag, vr, b"1" * size) for tag, vr, size in ((0x00101020, "DS", 300), (0x00101030, "DS", 258), (0x00102110, "LO", 1000))]
        numbers = long.text(0x00180088, "DS", "1,5\\2") + (long.element(0x00324000, "LT", b"x" * 70002) if syntax == IMPLICIT else b"")
        yield "made/text-long-%s.dcm" % (syntax[16:] or "1.2"), long.file(head(long) + b"".join(texts_) + numbers), False
    numbers = (w.text(0x00101010, "AS", "18X") + w.text(0x00101030, "DS", "1.23456789012345678\\ 7 ") +
               w.text(0x00181151, "IS", " 0012 "))
    dates = w.text(0x00080022, "DA", "2026.01.02") + w.text(0x00080032, "TM", "12:30:00")
    yield "made/text-numbers.dcm", w.file(dates + numbers), False


def packbits(data):
    """RLE of one segment, in literal runs."""
    out = b"".join(bytes([len(data[i:i + 128]) - 1]) + data[i:i + 128] for i in range(0, len(data), 128))
    return out + b"\0" * (len(out) % 2)


def rle_frame(frame, samples, allocated):
    """A frame of interleaved little endian pixels as RLE: one segment a byte of a sample, the high one first."""
    size = allocated // 8
    planes = [frame[sample * size + byte::samples * size] for sample in range(samples) for byte in reversed(range(size))]
    segments = [packbits(plane) for plane in planes]
    offsets = [64 + sum(map(len, segments[:i])) for i in range(len(segments))]
    return struct.pack("<16I", len(segments), *offsets, *[0] * (15 - len(segments))) + b"".join(segments)


def description(w, rows, columns, allocated, stored=None, samples=1, frames=1, signed=0, planar=0, photometric=None):
    """The image pixel module."""
    stored = stored or allocated
    out = w.numbers(0x00280002, "US", samples) + w.text(0x00280004, "CS", photometric or ("MONOCHROME2" if samples == 1 else "RGB"))
    if samples > 1:
        out += w.numbers(0x00280006, "US", planar)
    if frames > 1:
        out += w.text(0x00280008, "IS", str(frames))
    out += w.numbers(0x00280010, "US", rows) + w.numbers(0x00280011, "US", columns) + w.numbers(0x00280100, "US", allocated)
    return out + w.numbers(0x00280101, "US", stored) + w.numbers(0x00280102, "US", stored - 1) + w.numbers(0x00280103, "US", signed)


IMAGES = [  # name, rows, columns, allocated, stored, samples, frames, signed
    ("grey8-odd", 7, 5, 8, 8, 1, 1, 0), ("grey8-odd-frames", 5, 3, 8, 8, 1, 3, 0), ("grey16", 6, 10, 16, 12, 1, 2, 0),
    ("grey16-signed", 5, 7, 16, 16, 1, 1, 1), ("rgb-odd", 5, 3, 8, 8, 3, 1, 0), ("rgb-frames", 4, 6, 8, 8, 3, 2, 0),
    ("one-row", 1, 3, 8, 8, 1, 1, 0), ("grey32", 3, 5, 32, 32, 1, 1, 0), ("bits", 5, 3, 1, 1, 1, 3, 0),
]


def video(fragments, uid, columns=96, rows=80, frames=50, time="40"):
    """A film of VL endoscopy whose transfer syntax ends so."""
    w, sop_class = Writer(), "1.2.840.10008.5.1.4.1.1.77.1.1.1"
    body = head(w, sop_class) + w.text(0x00181063, "DS", time) + tail(w)
    body += description(w, rows, columns, 8, samples=3, frames=frames, photometric="YBR_PARTIAL_420")
    return w.file(body + w.fragments(fragments), sop_class, syntax="1.2.840.10008.1.2.4." + uid)


def pixels(rows, columns, allocated, stored, samples, frames, number):
    """Pixel `number` of frames: a ramp that fills the bits stored; bits are packed without a gap between frames."""
    count = rows * columns * samples
    if allocated == 1:
        bits = [(i * i + i // 3) % 2 for i in range(count * frames)]
        return [bytes(sum(bit << k for k, bit in enumerate(bits[i:i + 8])) for i in range(0, len(bits), 8))]
    size, top = allocated // 8, (1 << (stored - 1)) - 1
    return [b"".join(((i * 37 + f * 11 + number) % top).to_bytes(size, "little") for i in range(count)) for f in range(frames)]


def images():
    """Native and RLE frames: odd sizes, colour, one bit, offset tables of every kind, an icon beside compressed pixels."""
    for number, (name, rows, columns, allocated, stored, samples, frames, signed) in enumerate(IMAGES):
        made_frames = pixels(rows, columns, allocated, stored, samples, frames, number)
        described = (rows, columns, allocated, stored, samples, frames, signed)
        value = b"".join(made_frames)
        value += b"\0" * (len(value) % 2)
        for syntax, short in ((IMPLICIT, "implicit"), (EXPLICIT, "explicit"), (BIG, "big")):
            w = Writer(syntax)
            vr = "OW" if allocated > 8 or syntax == IMPLICIT else "OB"
            bytes_ = value if syntax != BIG or vr == "OB" else swap(value, 2)
            data = head(w) + tail(w) + description(w, *described) + w.element(0x7FE00010, vr, bytes_)
            yield "pix/%s-%s.dcm" % (name, short), w.file(data), True
        if allocated == 1:
            continue
        w = Writer(RLE)
        coded = [rle_frame(frame, samples, allocated) for frame in made_frames]
        offsets = [sum(len(c) + 8 for c in coded[:i]) for i in range(frames)]
        icon = w.sequence(0x00880200, [description(w, 2, 2, 8) + w.element(0x7FE00010, "OW", b"\1\2\3\4")])
        for table, form in ((offsets, "table"), ((), "no-table")):
            data = head(w) + tail(w) + description(w, *described) + icon + w.fragments(coded, table)
            yield "enc/%s-rle-%s.dcm" % (name, form), w.file(data), True
    w = Writer("1.2.840.10008.1.2.4.999")
    data = head(w, number=300) + tail(w) + description(w, 4, 4, 8)
    yield "enc/unknown-syntax.dcm", w.file(data + w.fragments([b"\1\2\3\4", b"\5\6"], [0])), False
    yield "enc/odd-fragments.dcm", w.file(data + w.fragments([b"\1\2\3", b"\5\6\7\10\11"])), False


def swap(value, width):
    return b"".join(value[i:i + width][::-1] for i in range(0, len(value), width))


def flaws():
    """What other writers got wrong around the data set."""
    w = Writer(EXPLICIT)
    data = head(w) + tail(w)
    good = w.file(data)
    known = w.element(0x00280010, "UN", b"\x05\0") + w.element(0x00321060, "UN", b"a procedure")
    yield "odd/un-known.dcm", w.file(data + known), False
    yield "odd/no-preamble.dcm", data, False
    yield "odd/wrong-meta-length.dcm", good[:140] + struct.pack("<I", 4) + good[144:], False
    yield "odd/padding.dcm", w.file(data + w.element(0xFFFCFFFC, "OB", b"\0" * 64)), True
    yield "odd/odd-padding.dcm", w.file(data + w.element(0xFFFCFFFC, "OB", b"\0" * 63)), False
    yield "odd/cut.dcm", good[:-5], False
    yield "odd/nul-behind.dcm", good + b"\0", False
    yield "odd/zeros-behind.dcm", good + b"\0" * 64, False
    yield "odd/twice.dcm", w.file(head(w) + w.text(0x00100040, "CS", "M") + tail(w)), False
    for syntax in (EXPLICIT, BIG):
        odd = Writer(syntax)
        yield "odd/odd-numbers-%s.dcm" % syntax[16:], odd.file(head(odd) + tail(odd) + odd.element(0x00280010, "US", b"\1\2\3")), False
    yield "odd/native-in-compressed.dcm", w.file(data + w.element(0x7FE00010, "OB", bytes(1000)), syntax="1.2.840.10008.1.2.4.50"), False
    yield "odd/fragments-in-native.dcm", w.file(data + description(w, 2, 2, 8) + w.fragments([b"\1\2\3\4"])), False
    yield "odd/order.dcm", w.file(tail(w) + head(w)), False
    yield "odd/wrong-vr.dcm", w.file(head(w) + w.text(0x00180050, "LO", "1.5") + tail(w) + w.text(0x00280010, "IS", "12")), False
    yield "odd/unknown-vr.dcm", w.file(head(w) + w.tag(0x00180050) + b"ZZ" + struct.pack("<H", 4) + b"1.50" + tail(w)), False
    implicit = Writer(IMPLICIT)
    yield "odd/implicit-said-explicit.dcm", implicit.file(head(implicit) + tail(implicit), syntax=EXPLICIT), False
    yield "odd/item-tag.dcm", w.file(data + w.element(0xFFFEE000, "", b"") + w.text(0x00324000, "LT", "behind")), False


CLASSES = {  # one small object of each kind of record in a directory, and what makes it that kind
    "ct": ("2", lambda w: description(w, 2, 2, 16, 12) + w.element(0x7FE00010, "OW", b"\1\0" * 4)),
    "mr": ("4", lambda w: description(w, 2, 2, 16, 12) + w.element(0x7FE00010, "OW", b"\2\0\3\0\4\0\5\0")),
    "us": ("6.1", lambda w: description(w, 3, 3, 8) + w.element(0x7FE00010, "OB", b"123456789\0")),
    "ecg": ("9.1.1", lambda w: w.sequence(0x54000100, [w.element(0x54001010, "OW", content("OW", 4000))])),
    "spectroscopy": ("4.2", lambda w: w.element(0x56000020, "OF", content("OF", 4000))),
    "pdf": ("104.1", lambda w: w.text(0x00420010, "ST", "Title") + w.element(0x00420011, "OB", b"%PDF-1.4 " * 300) +
            w.text(0x00420012, "LO", "application/pdf")),
    "raw": ("66", lambda w: b""),
    "surface": ("66.5", lambda w: w.sequence(0x00660002, [w.sequence(0x00660011, [w.element(0x00660016, "OF", content("OF", 120))])])),
    "tractography": ("66.6", lambda w: w.sequence(0x00660101, [w.sequence(0x00660102, [w.element(0x00660016, "OF", content("OF", 600))])])),
    "plan": ("481.5", lambda w: w.text(0x300A0002, "SH", "Plan")),
    "dose": ("481.2", lambda w: description(w, 2, 2, 16) + w.text(0x30040002, "CS", "GY") + w.element(0x7FE00010, "OW", b"\3\0" * 4)),
    "registration": ("66.1", lambda w: w.text(0x00700080, "CS", "REG")),
    "presentation": ("11.1", lambda w: w.text(0x00700080, "CS", "STATE") + w.text(0x00700082, "DA", "20260102") +
                     w.text(0x00700083, "TM", "1200")),
    "report": ("88.22", lambda w: report(w)),
    "comprehensive": ("88.33", lambda w: report(w)),
    "comprehensive3d": ("88.34", lambda w: report(w)),
    "selection": ("88.59", lambda w: report(w, selection=True)),
}


def report(w, selection=False):
    """The content of a report: a root with a modifier, texts and a number; of a selection a text."""
    def code(value, scheme, meaning):
        return w.text(0x00080100, "SH", value) + w.text(0x00080102, "SH", scheme) + w.text(0x00080104, "LO", meaning)

    def node(relation, kind, concept, value=b""):
        return w.text(0x0040A010, "CS", relation) + w.text(0x0040A040, "CS", kind) + w.sequence(0x0040A043, [code(*concept)]) + value
    language = node("HAS CONCEPT MOD", "CODE", ("121049", "DCM", "Language"), w.sequence(0x0040A168, [code("en", "RFC5646", "English")]))
    finding = node("CONTAINS", "TEXT", ("121071", "DCM", "Finding"), w.text(0x0040A160, "UT", "None."))
    size = node("CONTAINS", "NUM", ("410668003", "SCT", "Length"), w.sequence(0x0040A300, [
        w.sequence(0x004008EA, [code("mm", "UCUM", "mm")]) + w.text(0x0040A30A, "DS", "23.5")]))
    group = node("CONTAINS", "CONTAINER", ("121070", "DCM", "Findings"), w.text(0x0040A050, "CS", "SEPARATE") +
                 w.sequence(0x0040A730, [finding, size]))
    return (w.text(0x0040A040, "CS", "CONTAINER") + w.sequence(0x0040A043, [code("126000", "DCM", "Imaging Report")]) +
            w.text(0x0040A050, "CS", "SEPARATE") + w.text(0x0040A491, "CS", "COMPLETE") + w.text(0x0040A493, "CS", "UNVERIFIED") +
            w.sequence(0x0040A730, [finding] if selection else [language, group]))


def objects():
    for number, (name, (ending, rest)) in enumerate(CLASSES.items()):
        for syntax, short in ((EXPLICIT, ""), (IMPLICIT, "-implicit")):
            w, sop_class = Writer(syntax), "1.2.840.10008.5.1.4.1.1." + ending
            number_ = 400 + 2 * number + (syntax == IMPLICIT)
            data = head(w, sop_class, number=number_, charset="ISO_IR 100") + tail(w) + rest(w)
            place = "sr" if "88." in ending else "obj"
            yield "%s/%s%s.dcm" % (place, name, short), w.file(data, sop_class, "%s.9.%d" % (ROOT, number_)), True


def coded(folder):
    """Images in the syntaxes that other programs compress to, where they are installed."""
    for program, option, name in (("dcmcjpeg", "+eb", "baseline"), ("dcmcjpeg", "+e1", "lossless"), ("dcmcjpls", "+el", "jpeg-ls"),
                                  ("gdcmconv", "--j2k", "jpeg2000")):
        for source in ("grey8-odd-frames", "grey16", "rgb-frames") if shutil.which(program) else ():
            if name == "baseline" and source == "grey16":
                continue
            out = os.path.join(folder, "enc", "%s-%s.dcm" % (source, name))
            command = [program, option, os.path.join(folder, "pix", source + "-explicit.dcm"), out]
            if subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0:
                yield os.path.relpath(out, folder)


FILE_SET = [  # patient, studies of series of a modality and as many images; folders and files have names of a disc
    ("77654033", [[("CR1", "CR", 1), ("CR2", "CR", 1), ("CR3", "CR", 1)], [("CT2", "CT", 4)]]),
    ("98890234", [[("CT2N", "CT", 2), ("CT5N", "CT", 5)], [("MR1", "MR", 1), ("MR2", "MR", 1)], [("MR3", "MR", 1), ("MR4", "MR", 3)],
                  [("MR5", "MR", 1), ("MR6", "MR", 3), ("MR700", "MR", 7)]]),
]
FIRST_NAMES = {"CR1": 6154, "CR2": 6247}  # of the first image of a series; others count from 1000


def file_set():
    """Rows of a directory in order of the tree: depth, type, keys as (tag, VR, text), and of an image its path and bytes."""
    w, studies, number = Writer(EXPLICIT), 100, 1000
    for patient, of_patient in FILE_SET:
        name = b"Made^" + patient.encode()
        yield 0, "PATIENT", [(0x00100010, "PN", name), (0x00100020, "LO", patient)], None, None
        for study in of_patient:
            studies += 1
            yield 1, "STUDY", [(0x00080020, "DA", "20260102"), (0x00080030, "TM", "120000"), (0x00080050, "SH", ""), (0x00081030, "LO", ""),
                               (0x0020000D, "UI", "%s.2.%d" % (ROOT, studies)), (0x00200010, "SH", str(studies))], None, None
            for series, (folder, modality, images) in enumerate(study, 1):
                yield 2, "SERIES", [(0x00080060, "CS", modality), (0x0020000E, "UI", "%s.3.%d.%d" % (ROOT, studies, series)),
                                    (0x00200011, "IS", str(series))], None, None
                for image in range(1, images + 1):
                    number += 1
                    file_name = FIRST_NAMES.get(folder, number) if image == 1 else number
                    data = (head(w, name=name, number=number, modality=modality, patient=patient) + tail(w, studies, series, image) +
                            description(w, 2, 2, 8) + w.element(0x7FE00010, "OB", b"\1\2\3\4"))
                    yield 3, "IMAGE", [(0x00200013, "IS", str(image))], "%s/%s/%d" % (patient, folder, file_name), w.file(
                        data, instance="%s.9.%d" % (ROOT, number))


def directory(syntax, order=None, rows=None):
    """A DICOMDIR in a syntax, its records in the order of the tree, or in another."""
    w, rows = Writer(syntax), list(file_set()) if rows is None else rows
    pointer = lambda tag, value=0: w.numbers(tag, "UL", value)

    def record(row, following=0, below=0):
        _, kind, keys, path, data = row
        refers = b"" if path is None else (
            w.text(0x00041500, "CS", path.replace("/", "\\")) + w.text(0x00041510, "UI", SECONDARY_CAPTURE) +
            w.text(0x00041511, "UI", instance_of(data)) + w.text(0x00041512, "UI", EXPLICIT))
        body = (pointer(0x00041400, following) + w.numbers(0x00041410, "US", 0xFFFF) + pointer(0x00041420, below) +
                w.text(0x00041430, "CS", kind) + refers + b"".join(w.text(*key) for key in keys))
        return w.element(0xFFFEE000, "", body)

    def begin(first, last):
        return w.text(0x00041130, "CS", "MADE") + pointer(0x00041200, first) + pointer(0x00041202, last) + w.numbers(0x00041212, "US", 0)

    def whole(records, first=0, last=0):
        value = b"".join(records)
        return w.file(begin(first, last) + w.element(0x00041220, "SQ", value), "1.2.840.10008.1.3.10", ROOT + ".4")

    order = list(range(len(rows))) if order is None else order
    start = len(whole([]))
    places, at = {}, start
    for index in order:
        places[index] = at
        at += len(record(rows[index]))

    def follower(index):
        for i in range(index + 1, len(rows)):
            if rows[i][0] <= rows[index][0]:
                return places[i] if rows[i][0] == rows[index][0] else 0
        return 0

    below = [places[i + 1] if i + 1 < len(rows) and rows[i + 1][0] > rows[i][0] else 0 for i in range(len(rows))]
    roots = [places[i] for i, row in enumerate(rows) if row[0] == 0] or [0]
    return whole([record(rows[i], follower(i), below[i]) for i in order], roots[0], roots[-1])


def instance_of(data):
    at = data.index(b"\x02\0\x03\0UI") + 8
    return data[at:at + struct.unpack_from("<H", data, at - 2)[0]].rstrip(b"\0").decode()


def directories():
    """A file-set and its DICOMDIR, in each syntax, in another order, and without a record."""
    rows = list(file_set())
    for _, _, _, path, data in rows:
        if path is not None:
            yield "dicomdir/" + path, data, True
    yield "dicomdir/DICOMDIR", directory(EXPLICIT, rows=rows), True
    yield "dicomdir/DICOMDIR-implicit", directory(IMPLICIT, rows=rows), False
    yield "dicomdir/DICOMDIR-bigEnd", directory(BIG, rows=rows), False
    yield "dicomdir/DICOMDIR-reordered", directory(EXPLICIT, list(range(len(rows)))[::-1], rows), True
    yield "dicomdir/DICOMDIR-empty.dcm", directory(EXPLICIT, rows=[]), True


SAMPLES = (structures, texts, images, objects, directories)
ALL = (values, public_values, private_blocks, odd_texts, as_it_came, flaws, *SAMPLES)


def make(folder, groups=ALL):
    """Writes these groups, with a list of them and of the texts that they hold, as a folder of samples has them. Rows of
    name, path and whether nothing is wrong with the file."""
    rows = []

    def write(name, data):
        path = os.path.join(folder, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(data)
        return path

    for group in groups:
        rows += [(name, write(name, data), good) for name, data, good in group()]
    rows += [(name, os.path.join(folder, name), True) for name in coded(folder)]
    rows.append(("ts/mr-explicit-le.dcm", write("ts/mr-explicit-le.dcm", open(os.path.join(folder, "obj/mr.dcm"), "rb").read()), True))
    listing = "".join("%s\tmade\t\t\t\t\t%s\n" % (name, "valid" if good else "broken") for name, _, good in rows)
    write("README.md", listing.encode())
    intended = {"charset-%s.dcm" % name: {"00100010": text} for name, charset, _, text in TEXTS if charset}
    write("expected/made/charset-intended.json", json.dumps(intended).encode())
    return rows


if __name__ == "__main__":
    print(len(make(sys.argv[1])), "files")
