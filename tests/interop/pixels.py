#!/usr/bin/env python3
"""Frames as vexal pixel shows them against dcmtk, and files that vexal compressed decoded by two peers or more.

usage: pixels.py VEXAL SAMPLES
Exit 77 (skipped) where the samples or the peers are missing.
"""
import array
import collections
import concurrent.futures
import glob
import importlib.util
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import zlib

from checks import REAL_SAMPLES, SAMPLES, VEXAL, end, fail, has, left_out, need

RENDERERS = ["dcmj2pnm", "dcml2pnm"]
need(*RENDERERS, "gdcmconv", "dcmdjpeg", "dcmdjpls", "dcmdrle", module="pydicom")
import pydicom
import pydicom.encaps
from pydicom.dataset import FileDataset, FileMetaDataset


def run(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)


def read_png(path):
    data = open(path, "rb").read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    at, packed = 8, b""
    while at < len(data):
        size, kind = struct.unpack(">I4s", data[at:at + 8])
        body = data[at + 8:at + 8 + size]
        if kind == b"IHDR":
            width, height, depth, colour = struct.unpack(">IIBB", body[:10])
        elif kind == b"IDAT":
            packed += body
        at += 12 + size
    assert depth == 8
    step = 3 if colour == 2 else 1
    raw, rows, line = zlib.decompress(packed), [], bytearray(width * step)
    for y in range(height):
        start = y * (width * step + 1)
        kind, now = raw[start], bytearray(raw[start + 1:start + 1 + width * step])
        for x in range(len(now) if kind else 0):
            a = now[x - step] if x >= step else 0
            b = line[x]
            c = line[x - step] if x >= step else 0
            if kind == 1:
                guess = a
            elif kind == 2:
                guess = b
            elif kind == 3:
                guess = (a + b) // 2
            else:
                p = a + b - c
                guess = min((abs(p - a), 0, a), (abs(p - b), 1, b), (abs(p - c), 2, c))[2]
            now[x] = (now[x] + guess) & 255
        rows.append(bytes(now))
        line = now
    return width, height, step, b"".join(rows)


def read_pnm(path):
    data = open(path, "rb").read()
    fields, at = [], 0
    while len(fields) < 4:
        end = data.index(b"\n", at)
        line = data[at:end]
        if not line.startswith(b"#"):
            fields += line.split()
        at = end + 1
    return int(fields[1]), int(fields[2]), 3 if fields[0] == b"P6" else 1, data[at:]


def compare_render(path, folder):
    """None: no peer renders it; else the largest difference."""
    ours, theirs = os.path.join(folder, "o.png"), os.path.join(folder, "t.pnm")
    for window in (["+Wi", "1"], ["+Wl", "1"], ["+Wm"]):
        for renderer in RENDERERS:
            if os.path.exists(theirs):
                os.remove(theirs)
            if run(renderer, "-O", "+op", *window, "+F", "1", path, theirs).returncode == 0 and os.path.exists(theirs):
                break
        else:
            continue
        break
    else:
        return None
    number = "0" if window == ["+Wm"] else "1"
    result = run(VEXAL, "pixel", "render", "--quiet", "--no-overlays", "--window-number", number, path, ours)
    if result.returncode != 0:
        return "refused: " + result.stdout.decode()[-150:].strip()
    a, b = read_png(ours), read_pnm(theirs)
    if a[:2] != b[:2]:
        return "size %s, not %s" % (a[:2], b[:2])
    left, right = a[3], b[3]
    if a[2] != b[2]:
        left = left if a[2] == 3 else bytes(v for v in left for _ in range(3))
        right = right if b[2] == 3 else bytes(v for v in right for _ in range(3))
    differences = [abs(x - y) for x, y in zip(left, right)]
    if os.path.relpath(path, SAMPLES) in HALF_COLOUR:
        return int(sum(differences) / len(differences))
    return max(differences)


# Colour that is sampled at half the width: the peer's codec interpolates it, here a pair of pixels shares it.
HALF_COLOUR = {"enc/us-mf-jpeg-30frames.dcm", "pix/jpeg50-ybr422.dcm"}


def check_rendering(folder):
    seen = 0
    for path in sorted(glob.glob(SAMPLES + "/pix/*.dcm") + glob.glob(SAMPLES + "/enc/*.dcm") + glob.glob(SAMPLES + "/ts/*.dcm")):
        name = os.path.relpath(path, SAMPLES)
        if os.path.getsize(path) > 3000000:
            continue
        found = compare_render(path, folder)
        if found is None:
            continue
        seen += 1
        if not isinstance(found, int) or found > 2:
            fail("%s: %s" % (name, found))
    if seen < (30 if REAL_SAMPLES else 10):
        fail("only %d images were compared" % seen)
    return seen


def raw_frames(path, folder):
    shutil.rmtree(folder, ignore_errors=True)
    result = run(VEXAL, "pixel", "extract", "--quiet", path, folder + "/")
    names = sorted(glob.glob(folder + "/*.raw")) if os.path.isdir(folder) else [folder]
    return result.returncode, [open(name, "rb").read() for name in names if os.path.isfile(name)]


# --- Images made here, compressed by vexal, decompressed by others ---

SIZES = [(1, 1), (7, 5), (3, 513)]  # rows and columns


class Image:
    """Pixels as one list of samples, frame by frame, pixel by pixel."""

    def __init__(self, rows, columns, stored, signed=0, photometric="MONOCHROME2", planar=0, frames=1):
        self.rows, self.columns, self.stored, self.signed = rows, columns, stored, signed
        self.photometric, self.planar, self.frames = photometric, planar, frames
        self.samples = 3 if photometric in ("RGB", "YBR_FULL") else 1
        self.bytes = 1 if stored <= 8 else 2 if stored <= 16 else 4
        self.name = "%s%d%s-%dx%d-%d%s" % (photometric.lower(), stored, "s" if signed else "u", rows, columns, frames, "p" if planar else "")
        seed, value, low = zlib.crc32(self.name.encode()), 0, -(1 << stored - 1) if signed else 0
        high, self.pixels = low + (1 << stored) - 1, []
        for _ in range(rows * columns * self.samples * frames):
            seed = (seed * 1664525 + 1013904223) & 0xFFFFFFFF
            roll = seed >> 24
            if roll < 20:  # an edge; then noise, and flat parts between
                value = low + (seed >> 4) % (1 << stored)
            elif roll < 160:
                value += (seed >> 8) % 7 - 3
            value = min(max(value, low), high)
            self.pixels.append(value)

    def write(self, path):
        data = FileDataset(path, {}, preamble=b"\0" * 128, file_meta=FileMetaDataset())
        data.is_little_endian, data.is_implicit_VR = True, False
        data.file_meta.TransferSyntaxUID = "1.2.840.10008.1.2.1"
        data.SOPClassUID = data.file_meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.3.1"
        data.SOPInstanceUID = data.file_meta.MediaStorageSOPInstanceUID = "1.2.3.%d" % zlib.crc32(self.name.encode())
        data.StudyInstanceUID, data.SeriesInstanceUID, data.Modality, data.PatientID = "1.2.3.1", "1.2.3.2", "OT", "P"
        data.SamplesPerPixel, data.PhotometricInterpretation = self.samples, self.photometric
        if self.samples == 3:
            data.PlanarConfiguration = self.planar
        if self.frames > 1:
            data.NumberOfFrames = self.frames
        data.Rows, data.Columns, data.BitsAllocated = self.rows, self.columns, 1 if self.stored == 1 else 8 * self.bytes
        data.BitsStored, data.HighBit, data.PixelRepresentation = self.stored, self.stored - 1, self.signed
        pixels = self.pixels
        if self.planar:
            size = self.rows * self.columns * 3
            pixels = [v for f in range(self.frames) for s in range(3) for v in pixels[f * size + s:(f + 1) * size:3]]
        if self.photometric == "PALETTE COLOR":
            for colour in range(3):
                data[0x00281101 + colour] = pydicom.DataElement(0x00281101 + colour, "US", [256, 0, 16])
                data[0x00281201 + colour] = pydicom.DataElement(0x00281201 + colour, "OW", struct.pack("<256H", *[(i << 8 + colour) & 65535 for i in range(256)]))
        raw = array.array(code_of(self.bytes, self.signed), pixels).tobytes()
        if self.stored == 1:  # eight a byte, the first in the lowest bit, frame behind frame
            bits = pixels + [0] * (-len(pixels) % 8)
            raw = bytes(sum(bit << n for n, bit in enumerate(bits[at:at + 8])) for at in range(0, len(bits), 8))
        data.add_new(0x7FE00010, "OB" if self.bytes == 1 else "OW", raw + b"\0" * (len(raw) % 2))
        data.save_as(path)


def code_of(size, signed):
    return {1: "Bb", 2: "Hh", 4: "Ii"}[size][signed]


def samples_of(path, image, rgb=False):
    """As Image.pixels, with `rgb` all colour in that form; None where the file does not hold such an image."""
    data = pydicom.dcmread(path)
    if (data.Rows, data.Columns, data.SamplesPerPixel) != (image.rows, image.columns, image.samples) or "PixelData" not in data:
        return None
    values = array.array(code_of(max(data.BitsAllocated // 8, 1), data.PixelRepresentation))
    count = len(image.pixels)
    values.frombytes(data.PixelData[:count * values.itemsize])
    values = list(values) if data.BitsAllocated > 1 else [byte >> n & 1 for byte in values for n in range(8)][:count]
    if len(values) < count:
        return None
    if data.get("PlanarConfiguration", 0) == 1:
        size = count // image.frames
        values = [values[f * size + i % 3 * (size // 3) + i // 3] for f in range(image.frames) for i in range(size)]
    if data.PixelRepresentation and data.BitsStored < data.BitsAllocated:  # the sign stands in Bits Stored
        values = with_sign(values, data.BitsStored)
    if data.PhotometricInterpretation.startswith("YBR") and (rgb or image.photometric == "RGB"):
        values = [min(max(round(v), 0), 255) for y, b, r in zip(values[0::3], values[1::3], values[2::3])
                  for v in (y + 1.402 * (r - 128), y - 0.344136 * (b - 128) - 0.714136 * (r - 128), y + 1.772 * (b - 128))]
    return values


def with_sign(values, bits):
    half = 1 << bits - 1
    return [((v + half) & (2 * half - 1)) - half for v in values]


def distance(a, b):
    return 1 << 30 if a is None or b is None or len(a) != len(b) else max(abs(x - y) for x, y in zip(a, b))


class Target:
    """What --to makes of which images, the programs that take it apart, and how far they may be from what vexal makes of it:
    for grey and for colour, which a peer may interpolate in other ways."""

    def __init__(self, name, peers, takes, grey=0, colour=0, from_source=0):
        self.name, self.peers, self.takes = name, peers, takes
        self.grey, self.colour, self.from_source = grey, colour, from_source


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
]


def made_images():
    images = []
    for rows, columns in SIZES:
        for frames in (1, 3):
            for stored in range(8, 17):
                images += [Image(rows, columns, stored, signed, frames=frames) for signed in (0, 1)]
            for photometric in ("RGB", "YBR_FULL"):
                images += [Image(rows, columns, 8, 0, photometric, planar, frames) for planar in (0, 1)]
            images += [Image(rows, columns, 16, 0, "RGB", planar, frames) for planar in (0, 1)]
            images += [Image(rows, columns, stored, 0, frames=frames) for stored in (1, 32)]
            images.append(Image(rows, columns, 8, 0, "PALETTE COLOR", 0, frames))
    return images


def decode_by_program(command, packed, image, rgb):
    back = packed + "." + command[0]
    result = run(*command, packed, back)
    return samples_of(back, image, rgb) if result.returncode == 0 and os.path.exists(back) else None


def rgb_of(target, image):
    """Cosine codecs may give back either form of colour."""
    return image.samples == 3 and target.name in ("jpeg", "jpeg-12")


def from_stream(raw, image):
    """Samples as a decoder of code streams gives them, without their sign."""
    values = array.array("B" if image.bytes == 1 else "H")
    if len(raw) != len(image.pixels) // image.frames * values.itemsize:
        return None
    values.frombytes(raw)
    return list(values)


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
        raw = open(path + ".raw", "rb").read() if os.path.exists(path + ".raw") else b""
        values = from_stream(raw, image)
        if values and image.bytes == 2:  # it fills the word from above
            values = [v >> 16 - image.stored for v in values]
        if values and image.signed and path.endswith(".j2k"):  # zero stands in the middle of its range
            values = [v ^ 1 << image.stored - 1 for v in values]
        yield path, with_sign(values, image.stored) if values and image.signed else values


def by_pydicom(path, image):
    if image.stored > 1:
        return pydicom.dcmread(path).pixel_array.reshape(-1).tolist()  # by pixel, whatever the order in the file
    values = []  # single bits are nobody's but the standard's: PackBits, eight pixels a byte
    for frame in pydicom.encaps.generate_pixel_data_frame(pydicom.dcmread(path).PixelData, image.frames):
        at, out = 64, b""
        while len(out) * 8 < image.rows * image.columns:
            run, at = frame[at], at + 1
            out += frame[at:at + run + 1] if run < 128 else frame[at:at + 1] * (257 - run)
            at += run + 1 if run < 128 else 1
        values += [byte >> n & 1 for byte in out for n in range(8)][:image.rows * image.columns]
    return values


def by_opj(streams):
    if streams:
        run("opj_decompress", "-ImgDir", os.path.dirname(streams[0][0]), "-OutFor", "RAWL")
    for path, image in streams:
        out = path[:-4] + ".rawl"
        values = from_stream(open(out, "rb").read() if os.path.exists(out) else b"", image)
        if values and image.samples == 3:  # planes
            size = len(values) // 3
            values = [values[i % 3 * size + i // 3] for i in range(size * 3)]
        yield path, with_sign(values, image.stored) if values and image.signed else values


STREAM_DECODERS = {"ffmpeg": by_ffmpeg, "opj": by_opj}


def check_target(target, images, folder):
    names = ["source", "packed", "back", "streams"]
    source, packed, back, streams = (os.path.join(folder, target.name, n) for n in names)
    for name in (source, streams):
        os.makedirs(name)
    for image in images:
        os.link(os.path.join(folder, "images", image.name), os.path.join(source, image.name))
    result = run(VEXAL, "convert", "--quiet", "--to", target.name, source, packed)
    taken = [i for i in images if os.path.exists(os.path.join(packed, i.name))]
    for image in images:
        if target.takes(image) != (image in taken):
            fail("%s is %s" % (image.name, "taken by " + target.name if image in taken else "refused: " + target.name))
    if (result.returncode == 0) != (len(taken) == len(images)):
        fail("%s: exit %d" % (target.name, result.returncode))
    if run(VEXAL, "convert", "--quiet", "--to", "explicit", packed, back).returncode != 0:
        fail("%s: vexal can not undo it" % target.name)
    ours = {}
    for image in taken:
        path = os.path.join(back, image.name)
        ours[image.name] = samples_of(path, image, rgb_of(target, image)) if os.path.exists(path) else None
        if target.from_source is not None and distance(ours[image.name], image.pixels) > target.from_source:
            fail("%s: %s comes back %d apart" % (target.name, image.name, distance(ours[image.name], image.pixels)))

    seen = collections.Counter()

    def judge(peer, image, values, count=None):
        seen[image.name] += 1
        if target.name == "jpeg-12" and values:  # what overshoots the range: one peer leaves it, the other masks it
            low = -(1 << image.stored - 1) if image.signed else 0
            top = low + (1 << image.stored) - 1
            beyond = lambda v, mine: mine == top and (v < low + 64 or v > top) or mine == low < 0 and (v > top - 64 or v < low)
            values = [mine if beyond(v, mine) else v for v, mine in zip(values, ours[image.name])]
        apart = distance(values, ours[image.name] and ours[image.name][:count])
        if apart > (target.grey if image.samples == 1 else target.colour):
            fail("%s: %s %s" % (target.name, image.name, peer + (" refuses it" if values is None else " gives other pixels, %d apart" % apart)))

    for peer in target.peers:
        if isinstance(peer, list):
            known = [i for i in taken if i.stored > 1]
            with concurrent.futures.ThreadPoolExecutor(2) as pool:
                decoded = pool.map(lambda i: decode_by_program(peer, os.path.join(packed, i.name), i, rgb_of(target, i)), known)
                for image, values in zip(known, decoded):
                    judge(peer[0], image, values)
        elif peer == "pydicom":
            for image in taken if importlib.util.find_spec("numpy") else []:
                judge(peer, image, by_pydicom(os.path.join(packed, image.name), image))
        elif shutil.which({"opj": "opj_decompress"}.get(peer, peer)):
            suffix, by_path = ".jls" if "ls" in target.name else ".j2k", {}
            for image in taken:
                if peer == "ffmpeg" and image.samples == 3 and image.bytes == 2:
                    continue  # it has no such colour
                path = os.path.join(streams, image.name.replace(".", "_") + suffix)
                by_path[path] = image
                run(VEXAL, "pixel", "extract", "--quiet", "--compressed", "--frame", "1", os.path.join(packed, image.name), path)
            for path, values in STREAM_DECODERS[peer](list(by_path.items())):
                image = by_path[path]
                judge(peer, image, values, len(image.pixels) // image.frames)
    return sum(seen.values())


def check_peers(folder):
    images, done = made_images(), 0
    os.mkdir(os.path.join(folder, "images"))
    for image in images:
        image.write(os.path.join(folder, "images", image.name))
    for target in TARGETS:
        done += check_target(target, images, folder)
        shutil.rmtree(os.path.join(folder, target.name))
    return done


def check_compressors(folder):
    """What others compress comes out as it went in; with loss, as at the peer whose it is."""
    source, packed, out = (os.path.join(folder, n) for n in ("theirs", "theirs.packed", "theirs.out"))
    for image in (Image(37, 52, 8, frames=2), Image(37, 52, 12, frames=2), Image(37, 52, 16), Image(36, 51, 16, 1), Image(36, 52, 8, 0, "RGB", 0, 2)):
        image.write(source)
        commands = [["dcmcrle"], ["dcmcjpls", "+el"], ["dcmcjpeg", "+e1"], *(["gdcmconv", to] for to in ("--rle", "--jpegls", "--j2k", "--jpeg"))]
        for command in commands + [["dcmcjpeg", process] for process in ("+ee", "+es", "+ep") if image.stored == 12]:
            lossy = command[-1] in ("+ee", "+es", "+ep")
            if run(*command, source, packed).returncode or run(VEXAL, "convert", "--quiet", "--to", "explicit", packed, out).returncode:
                fail("%s of %s" % (command, image.name))
            elif samples_of(out, image) != (decode_by_program(["dcmdjpeg"], packed, image, False) if lossy else image.pixels):
                fail("other pixels than %s has of %s" % (command, image.name))
            os.remove(packed)


def check_offsets(folder):
    source = os.path.join(SAMPLES, "enc/emri-rle-nobot.dcm")
    repaired = os.path.join(folder, "repaired.dcm")
    if run(VEXAL, "pixel", "offsets", "--repair", repaired, source).returncode != 0:
        return fail("the table can not be repaired")
    told = run(VEXAL, "pixel", "offsets", repaired)
    if told.returncode != 0 or b"of 10 frames is right" not in told.stdout:
        fail("the repaired table: " + told.stdout.decode())
    before, after = raw_frames(source, os.path.join(folder, "a"))[1], raw_frames(repaired, os.path.join(folder, "b"))[1]
    if len(before) != 10 or before != after:
        fail("other frames behind the repair")
    data = bytearray(open(repaired, "rb").read())
    at = data.index(bytes.fromhex("e07f1000")) + 12 + 8 + 4
    data[at] ^= 2
    broken = os.path.join(folder, "broken.dcm")
    open(broken, "wb").write(data)
    if run(VEXAL, "pixel", "offsets", broken).returncode != 1:
        fail("a wrong entry is not found")
    if run(VEXAL, "pixel", "offsets", "--repair", repaired, broken).returncode != 0 or \
            run(VEXAL, "pixel", "offsets", repaired).returncode != 0:
        fail("a wrong entry is not repaired")


def check_extended_offsets(folder):
    """A table of 64-bit offsets is judged and repaired as one, its frames then in one fragment each."""
    image, plain, packed, repaired = Image(7, 5, 12, frames=3), *(os.path.join(folder, n) for n in ("plain", "packed", "repaired"))
    image.write(plain)
    run(VEXAL, "convert", "--quiet", "--to", "rle", plain, packed)
    data = pydicom.dcmread(packed)
    frames = list(pydicom.encaps.generate_pixel_data_frame(data.PixelData, 3))
    starts, items = [], b""
    for frame in frames:
        starts.append(len(items))
        items += struct.pack("<II", 0xE000FFFE, len(frame)) + frame
    data.PixelData = struct.pack("<II", 0xE000FFFE, 0) + items  # the delimiter comes with saving
    right, lengths = struct.pack("<3Q", *starts), struct.pack("<3Q", *map(len, frames))
    wrong = struct.pack("<3Q", starts[0], starts[1] + 2, starts[2])
    for offsets, sizes, expected in [(right, lengths, 0), (wrong, lengths, 1), (right, struct.pack("<3Q", 1, 2, 3), 1), (right, lengths[:16], 1), (b"", b"", 1)]:
        data.ExtendedOffsetTable, data.ExtendedOffsetTableLengths = offsets, sizes
        data.save_as(packed)
        if run(VEXAL, "pixel", "offsets", packed).returncode != expected:
            fail("an extended offset table is judged wrong: %s" % run(VEXAL, "pixel", "offsets", packed).stdout)
        run(VEXAL, "pixel", "offsets", "--repair", repaired, packed)
        mended = pydicom.dcmread(repaired)
        if (bytes(mended[0x7FE00001].value), bytes(mended[0x7FE00002].value)) != (right, lengths) or mended.PixelData != data.PixelData:
            fail("an extended offset table is repaired wrong")


def picture_of(path, folder, *options):
    out = os.path.join(folder, "picture.png")
    result = run(VEXAL, "pixel", "render", "--quiet", *options, path, out)
    return list(read_png(out)[3]) if result.returncode == 0 else result.stdout


def check_palettes(folder):
    """Discrete segments, lines and copies, in words and in bytes."""
    path = os.path.join(folder, "palette")
    image = Image(16, 16, 8)
    image.pixels = list(range(256))
    image.write(path)
    data = pydicom.dcmread(path)
    data.PhotometricInterpretation = "PALETTE COLOR"
    for bits, code, top in [(16, "H", 65535), (8, "B", 255)]:
        start = [0, 3, 0, top // 5, top // 3, 1, 96, top, 1, 29, 7]  # 3 entries, 96 up, 29 down: 128
        entries = [0, top // 5, top // 3]
        for count, stop in ((96, top), (29, 7)):
            first = entries[-1]
            entries += [first + (stop - first) * i / count for i in range(1, count + 1)]
        entries += entries[:3] + [entries[2] + (top - entries[2]) * i / 96 for i in range(1, 97)]
        entries += [entries[-1]] * 29
        copy = [2, 2] + ([0, 0] if bits == 16 else [0, 0, 0, 0])
        segments = struct.pack("<%d%s" % (len(start + copy) + 3, code), *start, *copy, 1, 29, top)
        for colour in range(3):
            data[0x00281101 + colour] = pydicom.DataElement(0x00281101 + colour, "US", [256, 0, bits])
            data[0x00281221 + colour] = pydicom.DataElement(0x00281221 + colour, "OW", segments + b"\0" * (len(segments) % 2))
        data.save_as(path)
        expected = [v / (top / 255) for v in entries for _ in range(3)]
        if distance(picture_of(path, folder), expected) > 1:
            fail("a segmented palette of %d bits: %s" % (bits, picture_of(path, folder)))
        for cut in (3, 9, len(segments) - 6):  # what is broken is said to be
            data[0x00281222].value = segments[:cut] + b"\0" * (cut % 2)
            data.save_as(path)
            if run(VEXAL, "pixel", "render", path, os.path.join(folder, "picture.png")).returncode != 2:
                fail("a broken palette is taken")


def check_floats(folder):
    for tag, vr, code in [(0x7FE00008, "OF", "f"), (0x7FE00009, "OD", "d")]:
        path, image = os.path.join(folder, "floats"), Image(3, 4, 8)
        image.write(path)
        data = pydicom.dcmread(path)
        del data.PixelData, data.BitsStored, data.HighBit, data.PixelRepresentation
        data.BitsAllocated = 32 if code == "f" else 64
        values = [i * 1.5 - 4 for i in range(11)] + [float("nan")]
        data.add_new(tag, vr, struct.pack("<12" + code, *values))
        data.save_as(path)
        expected = [255 * i / 10 for i in range(11)] + [255 * 4 / 15]
        if distance(picture_of(path, folder), expected) > 1:
            fail("floating point pixels: %s" % picture_of(path, folder))
        raw = os.path.join(folder, "raw")
        if run(VEXAL, "pixel", "extract", path, raw).returncode or open(raw, "rb").read() != data[tag].value:
            fail("floating point pixels are extracted wrong")


# --- What is lost, or is not as it should be: the exit status and a line tell ---

def vexal(*words):
    result = run(VEXAL, *words)
    return result.returncode, result.stdout.decode()


def expect(outcome, status, words, what):
    if outcome[0] != status or words not in outcome[1] or (status == 0 and outcome[1]):
        fail("%s: exit %d, %s" % (what, *outcome))


def packed_file(path, image, to, *more):
    """The image in another syntax, and its code streams."""
    image.write(path + ".plain")
    run(VEXAL, "convert", "--quiet", *more, "--to", to, path + ".plain", path)
    data = pydicom.dcmread(path)
    return data, list(pydicom.encaps.generate_pixel_data_frame(data.PixelData, image.frames))


def save_frames(data, frames, path, syntax=None):
    """`syntax`: the last component of a UID that pydicom need not know."""
    data.PixelData = pydicom.encaps.encapsulate(frames, has_bot=False)
    data["PixelData"].is_undefined_length = True
    data.file_meta.TransferSyntaxUID = "1.2.840.10008.1.2.4.90" if syntax else data.file_meta.TransferSyntaxUID
    data.save_as(path)
    if syntax:
        content = open(path, "rb").read()
        old = b"UI\x16\0001.2.840.10008.1.2.4.90"
        new = (b"1.2.840.10008.1.2.4." + syntax.encode()).ljust(24, b"\0")
        at = content.index(old)
        content = content[:at] + b"UI\x18\0" + new + content[at + len(old):]
        size = content.find(b"DICM\2\0\0\0UL\4\0") + 12
        if size > 12:
            content = content[:size] + struct.pack("<I", struct.unpack("<I", content[size:size + 4])[0] + 2) + content[size + 4:]
        open(path, "wb").write(content)


def check_losses(folder):
    at = lambda name: os.path.join(folder, "losses-" + name)
    image, plain, out = Image(7, 6, 8, frames=3), at("plain"), at("out")
    image.write(plain)
    data = pydicom.dcmread(plain)
    pixels = data.PixelData
    for frames, extra, status, words in [(2, b"", 2, "no 2 frames of 42"), (3, b"padding!", 1, "8 bytes behind its last frame"), (3, b"", 0, "")]:
        data.NumberOfFrames, data.PixelData = frames, pixels + extra
        data.save_as(plain)
        for to in ("rle", "jpeg-ls", "jpeg"):
            expect(vexal("convert", "--to", to, plain, out), status, words, "%d frames and %d bytes to %s" % (frames, len(extra), to))
    for to in ("rle", "jpeg-ls", "jpeg2000"):  # likewise where they are compressed
        data, _ = packed_file(at("packed"), image, to)
        data.NumberOfFrames = 1
        data.save_as(at("packed"))
        expect(vexal("convert", "--to", "explicit", at("packed"), out), 2, "3 fragments", "three frames of %s that are called one" % to)
    # A stream that ends in the middle of its image.
    data, (stream,) = packed_file(at("packed"), Image(64, 64, 8), "jpeg")
    save_frames(data, [stream[:len(stream) // 2 & ~1]], at("cut"))
    for words in (["convert", "--to", "explicit"], ["convert", "--to", "rle"], ["pixel", "extract"], ["pixel", "render"], ["pixel", "sheet"]):
        expect(vexal(*words, at("cut"), out), 1, "cut short", "a cut stream: " + " ".join(words))
    expect(vexal("convert", "--quiet", "--to", "explicit", at("cut"), out), 1, "cut short", "a cut stream, in silence")
    # One that lacks no more than its end may lack some of its image, which a pad then stands for.
    for to in ("jpeg", "jpeg-12", "jpeg-lossless", "jpeg-ls", "jpeg2000"):
        data, (stream,) = packed_file(at("packed"), Image(33, 47, 8), to)
        end = stream.rindex(b"\xFF\xD9")
        for missing in range(0, 7):
            part = stream[:end - missing]
            save_frames(data, [part + bytes(len(part) % 2)], at("cut"))
            code, told = vexal("convert", "--to", "explicit", at("cut"), out)
            if code not in (1, 2) or missing == 0 and (code, "cut short" in told) != (1, True):
                fail("%d bytes of %s are missing: exit %d, %s" % (missing, to, code, told))
    # One bad frame among good ones.
    data, streams = packed_file(at("packed"), image, "jpeg-ls")
    save_frames(data, [streams[0], bytes(len(streams[1])), streams[2]], at("bad"))
    frames = at("frames")
    expect(vexal("pixel", "extract", at("bad"), frames), 2, "frame 2: ", "a bad frame, extracted")
    if [open(os.path.join(frames, n), "rb").read() for n in sorted(os.listdir(frames))] != [pixels[:42], pixels[84:126]]:
        fail("one bad frame ends the extraction of others")
    expect(vexal("pixel", "sheet", at("bad"), out + ".png"), 2, "frame 2: ", "a bad frame, on a sheet")
    if not os.path.exists(out + ".png"):
        fail("one bad frame ends a sheet")
    # Planes are no error.
    Image(5, 7, 16, 0, "RGB", 1).write(plain)
    expect(vexal("convert", "--to", "jpeg-ls", plain, out), 0, "", "planes")
    # What the program can not decode has a name, and its streams can be had all the same.
    data, streams = packed_file(at("packed"), image, "jpeg-ls")
    for uid, name, count in (("102", "MPEG-4", 1), ("107", "HEVC", 1), ("112", "JPEG XL", 3)):
        save_frames(data, streams[:count], at("other"), uid)
        expect(vexal("convert", "--to", "explicit", at("other"), out), 2, name, "convert of " + name)
        shutil.rmtree(frames, ignore_errors=True)
        expect(vexal("pixel", "extract", "--compressed", at("other"), frames), 0, "", "streams of " + name)
        found = [frames] if os.path.isfile(frames) else [os.path.join(frames, n) for n in sorted(os.listdir(frames))]
        if [open(n, "rb").read() for n in found] != streams[:count]:
            fail("streams of %s: %s" % (name, found))
        if os.path.isfile(frames):
            os.remove(frames)


def check_lossy_steps(folder):
    """Each lossy step stands behind the earlier ones, and names what it was made from; what lost nothing says nothing. A flat image
    of 7 becomes one of 0, which is near."""
    first, second, flat = (os.path.join(folder, "steps-" + n) for n in ("first", "second", "flat"))
    image = Image(33, 40, 8)
    source = packed_file(first, image, "jpeg")[0]
    run(VEXAL, "convert", "--quiet", "--to", "jpeg2000-lossy", first, second)
    data, plain = pydicom.dcmread(second), pydicom.dcmread(first + ".plain")
    if list(data.LossyImageCompressionMethod) != ["ISO_10918_1", "ISO_15444_1"] or len(data.LossyImageCompressionRatio) != 2 or \
            data.LossyImageCompressionRatio[0] != source.LossyImageCompressionRatio or "JPEG 2000" not in data.DerivationDescription or \
            not data.DerivationDescription.startswith(source.DerivationDescription):
        fail("a second lossy step: %s %s" % (data.LossyImageCompressionMethod, data.LossyImageCompressionRatio))
    told = [(i.ReferencedSOPInstanceUID, i.PurposeOfReferenceCodeSequence[0].CodeValue) for i in data.SourceImageSequence]
    if told != [(plain.SOPInstanceUID, "121320"), (source.SOPInstanceUID, "121322")] or data.SOPInstanceUID in (plain.SOPInstanceUID, source.SOPInstanceUID):
        fail("the sources of a lossy image: %s" % told)
    if [i.CodeValue for i in data.DerivationCodeSequence] != ["113040", "113040"]:
        fail("how a lossy image was derived")
    for value, lossy in ((0, False), (210, False), (7, True), (None, True)):
        if value is not None:
            image.pixels = [value] * len(image.pixels)
        else:
            image = Image(33, 40, 12)
        data = packed_file(flat, image, "jpeg-ls-near")[0]
        if ("LossyImageCompression" in data or "SourceImageSequence" in data or data.SOPInstanceUID != pydicom.dcmread(flat + ".plain").SOPInstanceUID) != lossy:
            fail("a near-lossless image that lost %s" % ("something" if lossy else "nothing"))


def check_odd_colour(folder):
    """Colour of half the width in an odd number of columns, of every process; a pair at a row's end has one pixel."""
    plain, out = os.path.join(folder, "odd-plain"), os.path.join(folder, "odd-out")
    image = Image(15, 17, 8, 0, "RGB")
    image.pixels = [v for y in range(15) for x in range(17) for v in (y * 16, x * 14, 200 - y * 5)]
    image.write(plain)
    for command in (["dcmcjpeg", "+eb"], ["dcmcjpeg", "+ee"], ["dcmcjpeg", "+es"], ["dcmcjpeg", "+ep"], [VEXAL, "convert", "--quiet", "--to", "jpeg"]):
        packed = plain + ".packed"
        run(*command, plain, packed)
        if pydicom.dcmread(packed).PhotometricInterpretation != "YBR_FULL_422":
            fail("%s made no half colour" % command)
        for words in (["pixel", "render"], ["pixel", "sheet"], ["pixel", "extract"], ["convert", "--to", "rle"], ["convert", "--to", "explicit"]):
            expect(vexal(*words, packed, out), 0, "", "%s of %s" % (words, command))
        if distance(samples_of(out, image, True), image.pixels) > 24:
            fail("%s: %s apart" % (command, distance(samples_of(out, image, True), image.pixels)))
        if distance(picture_of(packed, folder), image.pixels) > 24:
            fail("%s, rendered: %s apart" % (command, distance(picture_of(packed, folder), image.pixels)))
    # Native half colour goes to what has it, and whole to what has not.
    image = Image(6, 8, 8, 0, "YBR_FULL")
    image.write(plain)
    data = pydicom.dcmread(plain)
    pairs = [image.pixels[at:at + 6] for at in range(0, len(image.pixels), 6)]
    data.PhotometricInterpretation, data.PixelData = "YBR_FULL_422", bytes(v for p in pairs for v in (p[0], p[3], p[1], p[2]))
    data.save_as(plain)
    data.Columns = 7  # where its rows end nobody can know
    data.save_as(out)
    for to in ("rle", "jpeg"):
        expect(vexal("convert", "--to", to, out, plain + ".packed"), 2, "odd", "native half colour of odd width to " + to)
    image.pixels = [v for p in pairs for v in (p[0], p[1], p[2], p[3], p[1], p[2])]
    for to in ("rle", "jpeg-lossless", "jpeg-ls", "jpeg2000", "jpeg"):
        expect(vexal("convert", "--to", to, plain, plain + ".packed"), 0, "", "half colour to " + to)
        expect(vexal("convert", "--to", "explicit", plain + ".packed", out), 0, "", "half colour from " + to)
        if to != "jpeg" and samples_of(out, image) != image.pixels:
            fail("half colour through " + to)


def check_high_throughput(folder):
    """HTJ2K by the encoder of another program."""
    if not has("ojph_compress", "HTJ2K"):
        return
    path, raw, stream, out = (os.path.join(folder, "ht" + n) for n in ("", ".pgm", ".j2c", ".out"))
    for stored, rows, columns in ((8, 33, 47), (12, 64, 65), (16, 31, 30)):
        image = Image(rows, columns, stored)
        image.write(path)
        words = array.array("B" if image.bytes == 1 else "H", image.pixels)
        if image.bytes == 2:
            words.byteswap()
        open(raw, "wb").write(b"P5 %d %d %d\n" % (columns, rows, (1 << stored) - 1) + words.tobytes())
        run("ojph_compress", "-i", raw, "-o", stream, "-reversible", "true")
        data = pydicom.dcmread(path)
        for uid in ("201", "202", "203"):
            save_frames(data, [open(stream, "rb").read()], path + ".packed", uid)
            expect(vexal("convert", "--to", "explicit", path + ".packed", out), 0, "", "HTJ2K, ." + uid)
            if samples_of(out, image) != image.pixels:
                fail("HTJ2K of %d bits, .%s" % (stored, uid))
        os.remove(stream)


def check_tiles(folder):
    """Tiles at the edge of their picture that are smaller than a frame fill it from its corner."""
    path = os.path.join(folder, "tiles")
    whole, edge = Image(8, 8, 8, 0, "RGB"), Image(5, 3, 8, 0, "RGB")
    for to in ("jpeg-lossless", "jpeg2000", "jpeg-ls"):
        data, streams = packed_file(path, whole, to)
        streams += packed_file(path + ".edge", edge, to)[1]
        data.NumberOfFrames = 2
        save_frames(data, streams, path)
        expect(vexal("convert", "--to", "explicit", path, path + ".out"), 2, "frame 2", "a small frame in %s that is no tile" % to)
        data.TotalPixelMatrixColumns, data.TotalPixelMatrixRows = 11, 5
        save_frames(data, streams, path)
        expect(vexal("convert", "--to", "explicit", path, path + ".out"), 0, "", "tiles in " + to)
        made = pydicom.dcmread(path + ".out").PixelData[192:]
        if [v for y in range(5) for v in made[y * 24:y * 24 + 9]] != edge.pixels:
            fail("tiles in " + to)


def check_damage(folder):
    """Whatever an image claims, each command ends with a status."""
    source = open(os.path.join(SAMPLES, "enc/tiny-defined-bot-2-to-2.dcm"), "rb").read()
    paths = sorted(glob.glob(SAMPLES + "/made/broken-*.dcm"))
    for cut in range(len(source) - 1, len(source) // 2, -37):
        paths.append(os.path.join(folder, "cut%d.dcm" % cut))
        open(paths[-1], "wb").write(source[:cut])
    paths += [os.path.join(folder, name) for name in ("palette", "floats")]
    for path in paths:
        for action in (["info"], ["offsets"], ["render"], ["sheet"], ["extract"]):
            out = [os.path.join(folder, "damage")] if action[0] in ("render", "sheet", "extract") else []
            result = run(VEXAL, "pixel", *action, path, *out)
            if result.returncode not in (0, 1, 2):
                fail("%s: pixel %s ends with %d" % (path, action[0], result.returncode))
            if out and os.path.exists(out[0]):
                shutil.rmtree(out[0]) if os.path.isdir(out[0]) else os.remove(out[0])


with tempfile.TemporaryDirectory() as work:
    if REAL_SAMPLES:
        check_offsets(work)
    else:
        left_out("a table that is repaired, damaged images", "samples")
    check_extended_offsets(work)
    check_palettes(work)
    check_floats(work)
    check_losses(work)
    check_lossy_steps(work)
    check_odd_colour(work)
    check_high_throughput(work)
    check_tiles(work)
    check_compressors(work)
    if REAL_SAMPLES:
        check_damage(work)
    sys.exit(end({"decodings by peers": check_peers(work), "renderings": check_rendering(work)}))
