#!/usr/bin/env python3
"""Frames as vexal pixel shows them against dcmtk, and files that vexal compressed decoded by two peers or more.

usage: pixels.py VEXAL SAMPLES
Exit 77 (skipped) where the peers, pydicom or numpy are missing.
"""
import collections
import concurrent.futures
import glob
import os
import shutil
import struct
import sys
import tempfile
import zlib

from checks import REAL_SAMPLES, SAMPLES, VEXAL, check, end, ended, fail, files_under, has, need, paths, read, run, vexal, write
from made import EXPLICIT, Writer, description, head, tail

RENDERERS = ["dcmj2pnm", "dcml2pnm"]
PEERS = [*RENDERERS, "gdcmconv", "dcmdjpeg", "dcmdjpls", "dcmdrle"] if __name__ == "__main__" else []  # another script brings its own
need(*PEERS, modules=["pydicom", "numpy"])
import numpy
import pydicom
import pydicom.encaps

from pictures import picture_of, read_pnm


ENCAPSULATED, DEFLATED_FRAMES = "1.2.840.10008.1.2.1.98", "1.2.840.10008.1.2.8.1"

# ---- Pictures ----


# Colour that is sampled at half the width: the peer's codec interpolates it, here a pair of pixels shares it.
HALF_COLOUR = {"enc/us-mf-jpeg-30frames.dcm", "pix/jpeg50-ybr422.dcm"}


def check_rendering(folder):
    """As dcmtk renders it, where it does, with the same window."""
    seen, theirs = 0, os.path.join(folder, "t.pnm")
    for path in sorted(glob.glob(SAMPLES + "/pix/*.dcm") + glob.glob(SAMPLES + "/enc/*.dcm") + glob.glob(SAMPLES + "/ts/*.dcm")):
        name = os.path.relpath(path, SAMPLES)
        tries = [(window, renderer) for window in (("+Wi", "1"), ("+Wl", "1"), ("+Wm",)) for renderer in RENDERERS]
        if os.path.getsize(path) > 3000000 or name.startswith("enc/enhct-"):  # the peer leaves out palettes that supplement grey
            continue
        window = next((window for window, renderer in tries if run(renderer, "-O", "+op", *window, "+F", "1", path, theirs).returncode == 0 and
                       os.path.exists(theirs)), None)
        if window is None:
            continue
        a = picture_of(path, folder, "--no-overlays", "--no-icc", "--no-aspect", "--window-number", "0" if window == ("+Wm",) else "1",
                       status=int(name == "ts/mr-padded.dcm"))
        b = read_pnm(theirs)
        os.remove(theirs)
        differences = abs(a.astype(int) - b) if a.shape[:2] == b.shape[:2] else numpy.array([999])
        apart = differences.mean() if name in HALF_COLOUR else differences.max()
        seen += 1
        if apart >= 3:
            fail("%s: %s and %s are %d apart" % (name, a.shape, b.shape, apart))
    check(seen >= (30 if REAL_SAMPLES else 10), "only %d images were compared" % seen)
    return seen


# ---- Images made here, compressed by vexal, decompressed by others ----


MANY_FRAMES = "1.2.840.10008.5.1.4.1.1.3.1"


class Image:
    """Pixels by frame, row, column and sample."""

    def __init__(self, rows, columns, stored, signed=0, photometric="MONOCHROME2", planar=0, frames=1):
        self.rows, self.columns, self.stored, self.signed = rows, columns, stored, signed
        self.photometric, self.planar, self.frames = photometric, planar, frames
        self.samples = 3 if photometric in ("RGB", "YBR_FULL") else 1
        self.bytes = 1 if stored <= 8 else 2 if stored <= 16 else 4
        self.name = "%s%d%s-%dx%d-%d%s" % (photometric.lower(), stored, "s" if signed else "u", rows, columns, frames, "p" if planar else "")
        self.low = -(1 << stored - 1) if signed else 0
        self.high = self.low + (1 << stored) - 1
        random, size = numpy.random.default_rng(zlib.crc32(self.name.encode())), rows * columns * self.samples * frames
        roll = random.random(size)  # an edge; then noise, and flat parts between
        edges = numpy.maximum.accumulate(numpy.where(roll < 0.08, numpy.arange(size), 0))
        noise = numpy.where(roll < 0.6, random.integers(-3, 4, size), 0).cumsum()
        pixels = (random.integers(self.low, self.high + 1, size)[edges] + noise - noise[edges]).clip(self.low, self.high)
        self.shape = frames, rows, columns, self.samples
        self.pixels = pixels.reshape(self.shape)

    def dtype(self, size=None, signed=None):
        return "<%s%d" % ("i" if (self.signed if signed is None else signed) else "u", size or self.bytes)

    def write(self, path):
        w = Writer()
        pixels = (self.pixels.transpose(0, 3, 1, 2) if self.planar else self.pixels).astype(self.dtype()).tobytes()
        if self.stored == 1:  # eight a byte, the first in the lowest bit, frame behind frame
            pixels = numpy.packbits(self.pixels, bitorder="little").tobytes()
        palette = [w.numbers(0x00281101 + n, "US", 256, 0, 16) for n in range(3)] + [
            w.element(0x00281201 + n, "OW", struct.pack("<256H", *[(i << 8 + n) & 65535 for i in range(256)])) for n in range(3)]
        described = description(w, self.rows, self.columns, 1 if self.stored == 1 else 8 * self.bytes, self.stored, self.samples, self.frames,
                                self.signed, self.planar, self.photometric)
        value = w.element(0x7FE00010, "OB" if self.bytes == 1 else "OW", pixels + bytes(len(pixels) % 2))
        write(path, w.file(head(w, MANY_FRAMES, number=zlib.crc32(self.name.encode())) + tail(w) + described +
                           b"".join(palette if self.photometric == "PALETTE COLOR" else []) + value, MANY_FRAMES))


def with_sign(values, bits):
    half = 1 << bits - 1
    return ((values + half) & (2 * half - 1)) - half


def to_rgb(values):
    y, b, r = (values[..., n].astype(float) for n in range(3))
    return numpy.stack((y + 1.402 * (r - 128), y - 0.344136 * (b - 128) - 0.714136 * (r - 128), y + 1.772 * (b - 128)), -1).round().clip(0, 255)


def samples_of(path, image, rgb=False):
    """As Image.pixels, with `rgb` all colour in that form; None where the file does not hold such an image."""
    data = pydicom.dcmread(path) if os.path.exists(path) else {}
    if "PixelData" not in data or (data.Rows, data.Columns, data.SamplesPerPixel) != image.shape[1:]:
        return None
    count, bits = image.pixels.size, data.BitsAllocated == 1
    values = numpy.frombuffer(data.PixelData, "u1" if bits else image.dtype(data.BitsAllocated // 8, data.PixelRepresentation))
    values = (numpy.unpackbits(values, bitorder="little") if bits else values)[:count].astype(int)
    if len(values) < count:
        return None
    planar = data.get("PlanarConfiguration", 0) == 1
    values = values.reshape(image.frames, image.samples, image.rows, image.columns).transpose(0, 2, 3, 1) if planar else values.reshape(image.shape)
    if data.PixelRepresentation and data.BitsStored < data.BitsAllocated:  # the sign stands in Bits Stored
        values = with_sign(values, data.BitsStored)
    return to_rgb(values) if data.PhotometricInterpretation.startswith("YBR") and (rgb or image.photometric == "RGB") else values


def distance(a, b):
    return 1 << 30 if a is None or b is None or numpy.shape(a) != numpy.shape(b) else numpy.abs(numpy.subtract(a, b)).max()


# What --to makes of which images, the programs that take it apart, and how far they may be from what vexal makes of it: for grey
# and for colour, which a peer may interpolate in other ways; and how far that may be from its source.
Target = collections.namedtuple("Target", "name peers takes grey colour from_source", defaults=(0, 0, 0))
GDCM = ["gdcmconv", "--raw"]
# Each pair of programs stands on codecs of its own, but for ffmpeg and opj_decompress, which get code streams.
WORDS = lambda i: 1 < i.stored <= 16
LOSSY = lambda i: WORDS(i) and i.photometric != "PALETTE COLOR"
TARGETS = [
    Target("rle", [["dcmdrle"], "pydicom"], lambda i: True),
    Target("jpeg-lossless", [["dcmdjpeg", "+cn"], GDCM], WORDS),
    Target("jpeg-ls", [["dcmdjpls"], GDCM, "ffmpeg"], WORDS),
    Target("jpeg2000", [GDCM, "opj", "ffmpeg"], WORDS),
    Target("jpeg", [["dcmdjpeg"], GDCM], lambda i: LOSSY(i) and i.stored == 8, 1, 3, None),
    Target("jpeg-12", [["dcmdjpeg"], GDCM], lambda i: LOSSY(i) and (i.stored == 8 or i.samples == 1 and i.stored in (10, 12)), 1, 3, None),
    Target("jpeg-ls-near", [["dcmdjpls"], GDCM, "ffmpeg"], LOSSY, 0, 0, 10),
    Target("jpeg2000-lossy", [GDCM, "opj"], LOSSY, 1, 1, None),
    Target("encapsulated", ["items"], lambda i: True),
    Target("deflated-frames", ["items"], lambda i: True),
]


def made_images():
    for rows, columns in [(1, 1), (7, 5), (3, 513)]:
        for frames in (1, 3):
            yield from (Image(rows, columns, stored, signed, frames=frames) for stored in range(8, 17) for signed in (0, 1))
            yield from (Image(rows, columns, stored, 0, photometric, planar, frames)
                        for stored, photometric in ((8, "RGB"), (8, "YBR_FULL"), (16, "RGB")) for planar in (0, 1))
            yield from (Image(rows, columns, stored, 0, frames=frames) for stored in (1, 32))
            yield Image(rows, columns, 8, 0, "PALETTE COLOR", 0, frames)


def decode_by_program(command, packed, image, rgb):
    back = packed + "." + command[0]
    return samples_of(back, image, rgb) if run(*command, packed, back).returncode == 0 else None


def from_stream(path, image, planar=False):
    """The first frame as a decoder of code streams gives it, without its sign."""
    raw = numpy.frombuffer(read(path) if os.path.exists(path) else b"", "<u%d" % image.bytes).astype(int)
    if raw.size * image.frames != image.pixels.size:
        return None
    return raw.reshape(image.samples, *image.shape[1:3]).transpose(1, 2, 0) if planar else raw.reshape(image.shape[1:])


def by_ffmpeg(streams):
    """Many in one process; a name and what came of it."""
    for at in range(0, len(streams), 40):
        part = streams[at:at + 40]
        command = ["ffmpeg", "-loglevel", "error", "-y"]
        for path, _ in part:
            command += ["-f", "jpegls_pipe" if path.endswith(".jls") else "j2k_pipe", "-i", path]
        for i, (path, image) in enumerate(part):
            kind = ["-pix_fmt", "rgb24"] if image.samples == 3 else []
            command += ["-map", "%d:v" % i, "-frames:v", "1", *kind, "-f", "rawvideo", path + ".raw"]
        run(*command)
    for path, image in streams:
        values = from_stream(path + ".raw", image)
        if values is not None and image.bytes == 2:  # it fills the word from above
            values >>= 16 - image.stored
        if values is not None and image.signed and path.endswith(".j2k"):  # zero stands in the middle of its range
            values ^= 1 << image.stored - 1
        yield path, values


def by_opj(streams):
    if streams:
        run("opj_decompress", "-ImgDir", os.path.dirname(streams[0][0]), "-OutFor", "RAWL")
    for path, image in streams:
        yield path, from_stream(path[:-4] + ".rawl", image, planar=True)


def by_pydicom(path, image):
    if image.stored > 1:
        return pydicom.dcmread(path).pixel_array.reshape(image.shape)  # by pixel, whatever the order in the file
    frames = []  # single bits are nobody's but the standard's: PackBits, eight pixels a byte
    for frame in pydicom.encaps.generate_pixel_data_frame(pydicom.dcmread(path).PixelData, image.frames):
        at, out = 64, b""
        while len(out) * 8 < image.rows * image.columns:
            size, at = frame[at], at + 1
            out += frame[at:at + size + 1] if size < 128 else frame[at:at + 1] * (257 - size)
            at += size + 1 if size < 128 else 1
        frames.append(numpy.unpackbits(numpy.frombuffer(out, "u1"), bitorder="little")[:image.rows * image.columns])
    return numpy.stack(frames).reshape(image.shape)


def by_items(path, image, out):
    """What the items hold is what stands in native pixel data, single bits from a byte on for each frame."""
    data = pydicom.dcmread(path)
    frames = list(pydicom.encaps.generate_pixel_data_frame(data.PixelData, image.frames))
    if data.file_meta.TransferSyntaxUID != ENCAPSULATED:
        frames = [zlib.decompress(frame, -15) for frame in frames]
    bits = image.rows * image.columns * image.samples * data.BitsAllocated
    if data.BitsAllocated == 1:
        frames = [numpy.unpackbits(numpy.frombuffer(frame, "u1"), bitorder="little")[:bits] for frame in frames]
        joined = numpy.packbits(numpy.concatenate(frames), bitorder="little").tobytes()
    else:
        joined = b"".join(frame[:bits // 8] for frame in frames)
    data.PixelData, data["PixelData"].is_undefined_length = joined, False
    data.file_meta.TransferSyntaxUID = EXPLICIT
    data.save_as(out)
    return samples_of(out, image)


STREAM_DECODERS = {"ffmpeg": by_ffmpeg, "opj": by_opj}


def decoded_by(peer, target, taken, packed, streams):
    """Images, and what the peer makes of them: of all frames, or of the first."""
    rgb = lambda image: image.samples == 3 and target.name in ("jpeg", "jpeg-12")  # which may give back either form of colour
    if isinstance(peer, list):
        known = [i for i in taken if i.stored > 1]
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            yield from zip(known, pool.map(lambda i: decode_by_program(peer, os.path.join(packed, i.name), i, rgb(i)), known))
    elif peer == "items":
        yield from ((image, by_items(os.path.join(packed, image.name), image, packed + ".native")) for image in taken)
    elif peer == "pydicom":
        yield from ((image, by_pydicom(os.path.join(packed, image.name), image)) for image in taken)
    elif shutil.which({"opj": "opj_decompress"}.get(peer, peer)):
        suffix = ".jls" if "ls" in target.name else ".j2k"
        by_path = {os.path.join(streams, image.name.replace(".", "_") + suffix): image for image in taken
                   if peer != "ffmpeg" or image.samples == 1 or image.bytes == 1}  # it has no colour of 16 bits
        for path, image in by_path.items():
            run(VEXAL, "pixel", "extract", "--quiet", "--compressed", "--frame", "1", os.path.join(packed, image.name), path)
        for path, values in STREAM_DECODERS[peer](list(by_path.items())):
            image = by_path[path]
            yield image, with_sign(values, image.stored) if values is not None and image.signed else values


def check_target(target, images, folder):
    source, packed, back, streams = paths(os.path.join(folder, target.name), "source", "packed", "back", "streams")
    os.makedirs(source), os.makedirs(streams)
    for image in images:
        os.link(os.path.join(folder, "images", image.name), os.path.join(source, image.name))
    result = run(VEXAL, "convert", "--quiet", "--to", target.name, source, packed)
    taken = [i for i in images if os.path.exists(os.path.join(packed, i.name))]
    for image in images:
        if target.takes(image) != (image in taken):
            fail("%s is %s" % (image.name, "taken by " + target.name if image in taken else "refused: " + target.name))
    check((result.returncode == 0) == (len(taken) == len(images)), "%s: exit %d" % (target.name, result.returncode))
    vexal("convert", "--quiet", "--to", "explicit", packed, back, title=target.name + ": back")
    ours, seen = {}, 0
    for image in taken:
        ours[image] = samples_of(os.path.join(back, image.name), image, image.samples == 3 and target.name in ("jpeg", "jpeg-12"))
        if target.from_source is not None and distance(ours[image], image.pixels) > target.from_source:
            fail("%s: %s comes back %d apart" % (target.name, image.name, distance(ours[image], image.pixels)))
    for peer in target.peers:
        for image, values in decoded_by(peer, target, taken, packed, streams):
            mine = ours[image] if values is None or ours[image] is None or values.ndim == 4 else ours[image][0]
            if target.name == "jpeg-12" and values is not None:  # what overshoots the range: one peer leaves it, the other masks it
                over = (mine == image.high) & ((values < image.low + 64) | (values > image.high))
                under = (mine == image.low) & (image.low < 0) & ((values > image.high - 64) | (values < image.low))
                values = numpy.where(over | under, mine, values)
            apart = distance(values, mine)
            if apart > (target.grey if image.samples == 1 else target.colour):
                fail("%s: %s: %s %s" % (target.name, image.name, peer, "refuses it" if values is None else "gives other pixels, %d apart" % apart))
            seen += 1
    shutil.rmtree(os.path.join(folder, target.name))
    return seen


def check_peers(folder):
    images = list(made_images())
    for image in images:
        image.write(os.path.join(folder, "images", image.name))
    return sum(check_target(target, images, folder) for target in TARGETS)


def check_compressors(folder):
    """What others compress comes out as it went in; with loss, as at the peer whose it is."""
    source, packed, out = paths(folder, "theirs", "theirs.packed", "theirs.out")
    for image in (Image(37, 52, 8, frames=2), Image(37, 52, 12, frames=2), Image(37, 52, 16), Image(36, 51, 16, 1), Image(36, 52, 8, 0, "RGB", 0, 2)):
        image.write(source)
        commands = [["dcmcrle"], ["dcmcjpls", "+el"], ["dcmcjpeg", "+e1"], *(["gdcmconv", to] for to in ("--rle", "--jpegls", "--j2k", "--jpeg"))]
        for command in commands + [["dcmcjpeg", process] for process in ("+ee", "+es", "+ep") if image.stored == 12]:
            lossy, title = command[-1] in ("+ee", "+es", "+ep"), "%s of %s" % (command, image.name)
            ended(run(*command, source, packed), title)
            vexal("convert", "--quiet", "--to", "explicit", packed, out, title=title)
            theirs = decode_by_program(["dcmdjpeg"], packed, image, False) if lossy else image.pixels
            check(distance(samples_of(out, image), theirs) == 0, "other pixels than " + title)
            os.remove(packed)


# ---- Tables of offsets, palettes, numbers ----


def check_offsets(folder):
    """Both tables are judged and repaired, the frames then in one fragment each."""
    image, (packed, repaired) = Image(7, 5, 12, frames=3), paths(folder, "packed", "repaired")
    data, frames = packed_file(packed, image, "rle")
    starts, items = [], b""
    for frame in frames:
        starts.append(len(items))
        items += struct.pack("<II", 0xE000FFFE, len(frame)) + frame
    sizes = [len(frame) for frame in frames]
    for code, fields in (("I", ("PixelData",)), ("Q", ("ExtendedOffsetTable", "ExtendedOffsetTableLengths"))):
        right, lengths, wrong = (struct.pack("<3" + code, *values) for values in (starts, sizes, (starts[0], starts[1] + 2, starts[2])))
        basic = lambda table: struct.pack("<II", 0xE000FFFE, len(table)) + table + items  # the delimiter comes with saving
        rows = [(right, lengths, 0), (wrong, lengths, 1), (right[:8], lengths, 1), (b"", b"", int(code == "Q"))]
        for table, counts, status in rows + ([(right, struct.pack("<3Q", 1, 2, 3), 1), (right, lengths[:16], 1)] if code == "Q" else []):
            data.PixelData = basic(table if code == "I" else b"")
            if code == "Q":
                data.ExtendedOffsetTable, data.ExtendedOffsetTableLengths = table, counts
            data.save_as(packed)
            vexal("pixel", "offsets", packed, status=status, title="a table in " + fields[0])
            vexal("pixel", "offsets", "--repair", repaired, packed)
            check(b"of 3 frames is right" in vexal("pixel", "offsets", repaired).stdout, "a repaired table in " + fields[0])
            mended = pydicom.dcmread(repaired)
            check([mended[field].value for field in fields] == ([basic(right)] if code == "I" else [right, lengths]) and
                  mended.PixelData.endswith(items), "a table is repaired wrong in " + fields[0])


def check_palettes(folder):
    """Discrete segments, lines and copies, in words and in bytes."""
    path, image = os.path.join(folder, "palette"), Image(16, 16, 8)
    image.pixels = numpy.arange(256).reshape(image.shape)
    image.write(path)
    data = pydicom.dcmread(path)
    data.PhotometricInterpretation = "PALETTE COLOR"
    for bits, code, top in [(16, "H", 65535), (8, "B", 255)]:
        start = [0, 3, 0, top // 5, top // 3, 1, 96, top, 1, 29, 7]  # 3 entries, 96 up, 29 down: 128
        line = lambda first, stop, count: list(numpy.linspace(first, stop, count + 1))[1:]
        entries = [0, top // 5, top // 3] + line(top // 3, top, 96) + line(top, 7, 29)
        entries += entries[:3] + line(entries[2], top, 96) + [top] * 29
        copy = [2, 2] + ([0, 0] if bits == 16 else [0, 0, 0, 0])
        segments = struct.pack("<%d%s" % (len(start + copy) + 3, code), *start, *copy, 1, 29, top)
        for colour in range(3):
            data[0x00281101 + colour] = pydicom.DataElement(0x00281101 + colour, "US", [256, 0, bits])
            data[0x00281221 + colour] = pydicom.DataElement(0x00281221 + colour, "OW", segments + b"\0" * (len(segments) % 2))
        data.save_as(path)
        apart = distance(picture_of(path, folder), numpy.repeat(numpy.array(entries) / (top / 255), 3).reshape(16, 16, 3))
        check(apart <= 1, "a segmented palette of %d bits: %d apart" % (bits, apart))
        for cut in (3, 9, len(segments) - 6):  # what is broken is said to be
            data[0x00281222].value = segments[:cut] + b"\0" * (cut % 2)
            data.save_as(path)
            vexal("pixel", "render", path, os.path.join(folder, "picture.png"), status=2, title="a broken palette")


def check_floats(folder):
    for tag, vr, code in [(0x7FE00008, "OF", "f"), (0x7FE00009, "OD", "d")]:
        path, raw = paths(folder, "floats", "raw")
        Image(3, 4, 8).write(path)
        data = pydicom.dcmread(path)
        del data.PixelData, data.BitsStored, data.HighBit, data.PixelRepresentation
        data.BitsAllocated = 32 if code == "f" else 64
        data.add_new(tag, vr, struct.pack("<12" + code, *[i * 1.5 - 4 for i in range(11)], float("nan")))
        data.save_as(path)
        expected = numpy.array([255 * i / 10 for i in range(11)] + [0]).reshape(3, 4, 1)
        check(distance(picture_of(path, folder), expected) <= 1, "floating point pixels: %s" % picture_of(path, folder))
        vexal("pixel", "extract", path, raw)
        check(read(raw) == data[tag].value, "floating point pixels are extracted wrong")


# ---- What is lost, or is not as it should be: the exit status and a line tell ----


def expect(words, status=0, says=""):
    result = vexal(*words, status=status, says=says)
    check(status or not result.stderr + result.stdout, "vexal %s: says %s" % (" ".join(map(str, words)), result.stderr + result.stdout))


def packed_file(path, image, to):
    """The image in another syntax, and its code streams."""
    image.write(path + ".plain")
    run(VEXAL, "convert", "--quiet", "--to", to, path + ".plain", path)
    data = pydicom.dcmread(path)
    return data, list(pydicom.encaps.generate_pixel_data_frame(data.PixelData, image.frames))


def save_frames(data, frames, path, syntax=None):
    """`syntax`: one that pydicom need not know."""
    if syntax:
        w = Writer()
        kept = b"".join(w.text(e.tag, e.VR, str(e.value)) if e.VR not in ("US", "SQ") else w.numbers(e.tag, "US", e.value)
                        for e in data if e.tag != 0x7FE00010)
        write(path, w.file(kept + w.fragments(frames), MANY_FRAMES, data.SOPInstanceUID, syntax))
    else:
        data.PixelData = pydicom.encaps.encapsulate(frames, has_bot=False)
        data["PixelData"].is_undefined_length = True
        data.save_as(path)


def check_losses(folder):
    plain, out, packed, cut, bad, other, frames = paths(folder, *("losses-" + n for n in ("plain", "out", "packed", "cut", "bad", "other", "frames")))
    image = Image(7, 6, 8, frames=3)
    image.write(plain)
    data = pydicom.dcmread(plain)
    pixels = data.PixelData
    for count, extra, status, words in [(2, b"", 2, "no 2 frames of 42"), (3, b"padding!", 1, "8 bytes behind its last frame"), (3, b"", 0, "")]:
        data.NumberOfFrames, data.PixelData = count, pixels + extra
        data.save_as(plain)
        for to in ("rle", "jpeg-ls", "jpeg"):
            expect(("convert", "--to", to, plain, out), status, words)
    for to in ("rle", "jpeg-ls", "jpeg2000"):  # likewise where they are compressed
        data, _ = packed_file(packed, image, to)
        data.NumberOfFrames = 1
        data.save_as(packed)
        expect(("convert", "--to", "explicit", packed, out), 2, "3 fragments")
    # A stream that ends in the middle of its image.
    data, (stream,) = packed_file(packed, Image(64, 64, 8), "jpeg")
    save_frames(data, [stream[:len(stream) // 2 & ~1]], cut)
    for words in (["convert", "--to", "explicit"], ["convert", "--to", "rle"], ["pixel", "extract"], ["pixel", "render"], ["pixel", "sheet"],
                  ["convert", "--quiet", "--to", "explicit"]):
        expect((*words, cut, out + "." + words[0]), 1, "cut short")
    # One that lacks no more than its end may lack some of its image, which a pad then stands for.
    for to in ("jpeg", "jpeg-12", "jpeg-lossless", "jpeg-ls", "jpeg2000"):
        data, (stream,) = packed_file(packed, Image(33, 47, 8), to)
        for missing in range(0, 7):
            part = stream[:stream.rindex(b"\xFF\xD9") - missing]
            save_frames(data, [part + bytes(len(part) % 2)], cut)
            result = run(VEXAL, "convert", "--to", "explicit", cut, out)
            check(result.returncode in (1, 2) and (missing or (result.returncode == 1 and b"cut short" in result.stderr)),
                  "%d bytes of %s are missing: %s" % (missing, to, result))
    # Bytes that no data of an image has, in the middle of it.
    data, (stream,) = packed_file(packed, Image(64, 64, 8), "jpeg2000")
    middle = len(stream) * 2 // 3
    save_frames(data, [stream[:middle] + b"\xFF\x95" + stream[middle + 2:]], cut)
    for words in (["convert", "--to", "explicit"], ["pixel", "extract"], ["pixel", "render"]):
        expect((*words, cut, out + ".damaged-" + words[-1]), 1, "damaged")
    # One bad frame among good ones.
    data, streams = packed_file(packed, image, "jpeg-ls")
    save_frames(data, [streams[0], bytes(len(streams[1])), streams[2]], bad)
    expect(("pixel", "extract", bad, frames), 2, "frame 2: ")
    check(list(map(read, files_under(frames))) == [pixels[:42], pixels[84:126]], "one bad frame ends the extraction of others")
    expect(("pixel", "sheet", bad, out + ".png"), 2, "frame 2: ")
    check(os.path.exists(out + ".png"), "one bad frame ends a sheet")
    # Planes are no error.
    Image(5, 7, 16, 0, "RGB", 1).write(plain)
    expect(("convert", "--to", "jpeg-ls", plain, out))
    # What the program can not decode has a name, and its streams can be had all the same.
    data, streams = packed_file(packed, image, "jpeg-ls")
    # Of a film that is none, nobody can tell whether its last zero is a pad.
    doubt = (1, "may be a pad") if streams[0][-1] == 0 else ()
    for uid, name, count, words in (("102", "MPEG-4", 1, doubt), ("107", "HEVC", 1, doubt), ("52", "JPEG Extended", 3, ())):
        save_frames(data, streams[:count], other, "1.2.840.10008.1.2.4." + uid)
        expect(("convert", "--to", "explicit", other, out), 2, name)
        shutil.rmtree(frames, ignore_errors=True)
        os.path.exists(frames) and os.remove(frames)
        expect(("pixel", "extract", "--compressed", other, frames), *words)
        check(list(map(read, files_under(frames) or [frames])) == streams[:count], "streams of " + name)


def check_lossy_steps(folder):
    """Each lossy step stands behind the earlier ones, and names what it was made from; what lost nothing says nothing. A flat image
    of 7 becomes one of 0, which is near."""
    first, second, flat = paths(folder, "steps-first", "steps-second", "steps-flat")
    image = Image(33, 40, 8)
    source = packed_file(first, image, "jpeg")[0]
    run(VEXAL, "convert", "--quiet", "--to", "jpeg2000-lossy", first, second)
    data, plain = pydicom.dcmread(second), pydicom.dcmread(first + ".plain")
    methods, ratios, told = data.LossyImageCompressionMethod, data.LossyImageCompressionRatio, data.DerivationDescription
    check(list(methods) == ["ISO_10918_1", "ISO_15444_1"] and len(ratios) == 2 and ratios[0] == source.LossyImageCompressionRatio and
          "JPEG 2000" in told and told.startswith(source.DerivationDescription), "a second lossy step: %s %s %s" % (methods, ratios, told))
    told = [(i.ReferencedSOPInstanceUID, i.PurposeOfReferenceCodeSequence[0].CodeValue) for i in data.SourceImageSequence]
    check(told == [(plain.SOPInstanceUID, "121320"), (source.SOPInstanceUID, "121322")] and
          data.SOPInstanceUID not in (plain.SOPInstanceUID, source.SOPInstanceUID), "the sources of a lossy image: %s" % told)
    check([i.CodeValue for i in data.DerivationCodeSequence] == ["113040", "113040"], "how a lossy image was derived")
    for value, lossy in ((0, False), (210, False), (7, True), (None, True)):
        image = Image(33, 40, 12 if value is None else 8)
        image.pixels = image.pixels if value is None else numpy.full(image.shape, value)
        data = packed_file(flat, image, "jpeg-ls-near")[0]
        signs = ("LossyImageCompression" in data, "SourceImageSequence" in data, data.SOPInstanceUID != pydicom.dcmread(flat + ".plain").SOPInstanceUID)
        check(any(signs) == lossy, "a near-lossless image that lost %s: %s" % ("something" if lossy else "nothing", signs))


def check_odd_colour(folder):
    """Colour of half the width in an odd number of columns, of every process; a pair at a row's end has one pixel."""
    plain, packed, out = paths(folder, "odd-plain", "odd-packed", "odd-out")
    image = Image(15, 17, 8, 0, "RGB")
    image.pixels = numpy.array([v for y in range(15) for x in range(17) for v in (y * 16, x * 14, 200 - y * 5)]).reshape(image.shape)
    image.write(plain)
    for command in (["dcmcjpeg", "+eb"], ["dcmcjpeg", "+ee"], ["dcmcjpeg", "+es"], ["dcmcjpeg", "+ep"], [VEXAL, "convert", "--quiet", "--to", "jpeg"]):
        ended(run(*command, plain, packed), "half colour")
        check(pydicom.dcmread(packed).PhotometricInterpretation == "YBR_FULL_422", "%s made no half colour" % command)
        for words in (["pixel", "render"], ["pixel", "sheet"], ["pixel", "extract"], ["convert", "--to", "rle"], ["convert", "--to", "explicit"]):
            expect((*words, packed, out + ("" if words[0] == "convert" else ".picture")))
        for title, values in (("converted", samples_of(out, image, True)), ("rendered", picture_of(packed, folder)[None])):
            check(distance(values, image.pixels) <= 24, "%s, %s: %s apart" % (command, title, distance(values, image.pixels)))
    # Native half colour goes to what has it, and whole to what has not.
    image = Image(6, 8, 8, 0, "YBR_FULL")
    image.write(plain)
    data = pydicom.dcmread(plain)
    pairs = image.pixels.reshape(-1, 6)
    data.PhotometricInterpretation, data.PixelData = "YBR_FULL_422", pairs[:, [0, 3, 1, 2]].astype("u1").tobytes()
    data.save_as(plain)
    data.Columns = 7  # where its rows end nobody can know
    data.save_as(out)
    for to in ("rle", "jpeg"):
        expect(("convert", "--to", to, out, packed), 2, "odd")
    image.pixels = pairs[:, [0, 1, 2, 3, 1, 2]].reshape(image.shape)
    for to in ("rle", "jpeg-lossless", "jpeg-ls", "jpeg2000", "jpeg"):
        expect(("convert", "--to", to, plain, packed))
        expect(("convert", "--to", "explicit", packed, out))
        check(to == "jpeg" or distance(samples_of(out, image), image.pixels) == 0, "half colour through " + to)


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as work:
        for part in (check_offsets, check_palettes, check_floats, check_losses, check_lossy_steps, check_odd_colour, check_compressors):
            part(work)
        sys.exit(end({"decodings by peers": check_peers(work), "renderings": check_rendering(work)}))
