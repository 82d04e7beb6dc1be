#!/usr/bin/env python3
"""Large frames and whole slides: matrices that vexal pixel render --matrix shows, put together again by numpy, and the
memory that all this takes.

usage: large_images.py VEXAL [SAMPLES]
Exit 77 (skipped) where numpy or pydicom is missing.
"""
import os
import random
import subprocess
import sys
import time

from checks import SANITIZED, VEXAL, LeftOut, check, has, need, read, run, run_parts, vexal, write
from made import RLE, ROOT, Writer, description, head, rle_frame, tail

need(modules=["numpy", "pydicom"])
import numpy
import pydicom
from pictures import read_png

WHOLE_SLIDE = "1.2.840.10008.5.1.4.1.1.77.1.6"
MIB = 1 << 20
rng = numpy.random.default_rng(17)


class Slide:
    """Pixels by optical path and focal plane, cut into tiles of one size."""

    def __init__(self, columns, rows, tile=(32, 24), samples=3, bits=8, paths=("1",), planes=1, absent=None, **more):
        self.columns, self.rows, self.tile, self.samples, self.bits = columns, rows, tile, samples, bits
        self.paths, self.planes, self.absent, self.more = paths, planes, absent, more
        y, x = numpy.mgrid[:rows, :columns]
        top = (1 << bits) - 1
        waves = [(numpy.sin(x / (9 + s)) * numpy.cos(y / (11 - s)) + 1) * top / 2 for s in range(samples)]
        base = numpy.stack(waves, axis=2)
        kind = numpy.uint8 if bits <= 8 else numpy.uint16
        self.pixels = {(path, plane): numpy.clip(base * (1 - 0.1 * plane) + 5 * number, 0, top).astype(kind)
                       for number, path in enumerate(paths) for plane in range(planes)}

    def grid(self):
        """Of each frame of a full matrix: path, plane, left, top."""
        across, down = self.tile
        return [(path, plane, x, y) for path in self.paths for plane in range(self.planes)
                for y in range(0, self.rows, down) for x in range(0, self.columns, across)]

    def frame(self, path, plane, x, y):
        """Beyond the edge of the matrix a tile holds what is not to be seen."""
        across, down = self.tile
        frame = numpy.full((down, across, self.samples), 77, self.pixels[path, plane].dtype)
        part = self.pixels[path, plane][max(y, 0):y + down, max(x, 0):x + across]
        frame[max(-y, 0):max(-y, 0) + part.shape[0], max(-x, 0):max(-x, 0) + part.shape[1]] = part
        return frame

    def write(self, path, places=None, syntax=None, part=None, frames=None, cut=0, streams=None):
        """`places`: of the frames of a sparse one. `part`: of a concatenation, its first frame, number and total. `streams`: of frames."""
        w = Writer(syntax or "1.2.840.10008.1.2.1")
        grid = places or self.grid()
        grid = grid[part[0]:part[1]] if part else grid
        more = {"spacing": (0.002, 0.001), "flavor": "VOLUME", "container": "C-1", "count": len(grid), **self.more}
        out = w.text(0x00080008, "CS", "ORIGINAL\\PRIMARY\\%s\\NONE" % more["flavor"]) + head(w, WHOLE_SLIDE, modality="SM")
        out += tail(w)
        if part:
            out += w.text(0x00209161, "UI", ROOT + ".8.1") + w.numbers(0x00209162, "US", part[2])
            out += w.numbers(0x00209163, "US", part[3]) + w.numbers(0x00209228, "UL", part[0])
        out += w.text(0x00209311, "CS", "TILED_SPARSE" if places else "TILED_FULL")
        allocated = 8 if self.bits <= 8 else 16
        out += description(w, self.tile[1], self.tile[0], allocated, self.bits, self.samples, more["count"],
                           photometric=more.get("photometric"))
        out += w.text(0x00400512, "LO", more["container"]) + w.numbers(0x00480006, "UL", self.columns)
        out += w.numbers(0x00480007, "UL", self.rows)
        out += w.numbers(0x00480015, "US", *self.absent) if self.absent else b""
        out += w.sequence(0x00480105, [w.text(0x00480106, "SH", name) for name in self.paths])
        out += w.numbers(0x00480303, "UL", self.planes)
        measures = w.sequence(0x00289110, [w.text(0x00280030, "DS", "%g\\%g" % more["spacing"])] if more["spacing"] else [])
        out += w.sequence(0x52009229, [measures])
        if places:
            out += w.sequence(0x52009230, [self.group(w, *place) for place in grid])
        stored = [self.frame(*place).tobytes() for place in grid] if frames is None else frames
        if syntax == RLE or streams:
            coded = streams or [rle_frame(frame, self.samples, allocated) for frame in stored]
            if cut:
                coded[cut - 1] = coded[cut - 1][:80]
            offsets = [sum(len(c) + 8 for c in coded[:i]) for i in range(len(coded))]
            out += w.fragments(coded, offsets)
        else:
            value = b"".join(stored)
            out += w.element(0x7FE00010, "OB" if allocated == 8 else "OW", value + b"\0" * (len(value) % 2),
                             more.get("length"))
        return write(path, w.file(out, WHOLE_SLIDE))

    def group(self, w, path, plane, x, y):
        place = w.text(0x0040074A, "DS", "%g" % (0.001 * plane)) + w.numbers(0x0048021E, "SL", x + 1) + w.numbers(0x0048021F, "SL", y + 1)
        return w.sequence(0x00480207, [w.text(0x00480106, "SH", path)]) + w.sequence(0x0048021A, [place])

    def seen(self, path, plane, places=None, background=(255, 255, 255), region=None, scale=1):
        """What is to be shown."""
        across, down = self.tile
        canvas = numpy.zeros((self.rows, self.columns, self.samples), int) + numpy.array(background)[:self.samples]
        for place in self.grid() if places is None else places:
            if place[:2] == (path, plane):
                x, y = place[2:]
                frame = self.frame(*place)
                top, left = max(y, 0), max(x, 0)
                shown = canvas[top:y + down, left:x + across]
                shown[:] = frame[top - y:top - y + shown.shape[0], left - x:left - x + shown.shape[1]]
        x, y, width, height = region or (0, 0, self.columns, self.rows)
        return reduced(canvas[y:y + height, x:x + width], scale)


def reduced(pixels, scale):
    rows = [pixels[y:y + scale] for y in range(0, pixels.shape[0], scale)]
    blocks = [[row[:, x:x + scale].reshape(-1, pixels.shape[2]) for x in range(0, pixels.shape[1], scale)] for row in rows]
    return numpy.array([[(block.sum(axis=0) + len(block) // 2) // len(block) for block in row] for row in blocks])


def shown(files, folder, *options, status=0, says=""):
    out = os.path.join(folder, "matrix.png")
    vexal("pixel", "render", "--matrix", *options, *files, out, status=status, says=says)
    return read_png(out)


def same(picture, expected, title, tolerance=0):
    good = picture.shape == expected.shape and numpy.abs(picture.astype(int) - expected).max(initial=0) <= tolerance
    check(good, "%s: shown as %s, expected %s%s" % (title, picture.shape, expected.shape, "" if picture.shape != expected.shape else
          ", %d pixels differ" % (picture != expected).any(axis=2).sum()))


def regions(slide, count):
    for _ in range(count):
        x, y = random.randrange(slide.columns), random.randrange(slide.rows)
        region = (x, y, random.randint(1, slide.columns - x), random.randint(1, slide.rows - y))
        scale = random.choice((1, 1, 2, 3, 7, 24, 50))
        yield region, scale, ("--region", "%d,%d,%d,%d" % region, "--scale", scale)


# ---- Matrices ----


def full_matrices(folder):
    """Each path and plane; tiles at the edges; colours and greys; native, RLE and what vexal makes of it."""
    cases = (("colour", Slide(131, 97, paths=("a", "b"), planes=3)), ("grey", Slide(131, 97, samples=1)),
             ("one-pixel", Slide(33, 25)), ("one-tile", Slide(20, 9)), ("thin", Slide(1, 200, tile=(5, 7))))
    for name, slide in cases:
        native, packed = slide.write(folder + "/native.dcm"), slide.write(folder + "/rle.dcm", syntax=RLE)
        lossless = folder + "/lossless.dcm"
        vexal("convert", "--to", "jpeg2000", native, lossless)
        for file in (native, packed, lossless):
            for number, path in enumerate(slide.paths):
                for plane in range(slide.planes):
                    choice = ("--optical-path", path, "--focal-plane", plane + 1) if number or plane else ()
                    same(shown([file], folder, *choice), slide.seen(path, plane), "%s, path %s, plane %d, %s" % (name, path, plane, file))
        for region, scale, options in regions(slide, 8):
            same(shown([packed], folder, *options), slide.seen(slide.paths[0], 0, region=region, scale=scale), "%s %s" % (name, options))


def other_pixels(folder):
    """12 bits by the range that is possible; pairs of pixels with one colour, as JPEG has them."""
    slide = Slide(70, 50, samples=1, bits=12)
    file = slide.write(folder + "/grey12.dcm")
    same(shown([file], folder), numpy.rint(slide.seen("1", 0) * 255 / 4095).astype(int), "12 bits", 1)
    same(shown([file], folder, "--window", "2048,1024"),
         numpy.rint(numpy.clip((slide.seen("1", 0) - 2047.5) / 1023 + 0.5, 0, 1) * 255).astype(int), "12 bits in a window", 1)
    if not has("dcmdjpeg", "tiles of JPEG"):
        return
    slide = Slide(150, 100, tile=(48, 40))
    file = slide.write(folder + "/rgb.dcm")
    vexal("convert", "--to", "jpeg", file, folder + "/jpeg.dcm")
    run("dcmdjpeg", "+cl", folder + "/jpeg.dcm", folder + "/decoded.dcm")
    tiles = pydicom.dcmread(folder + "/decoded.dcm").pixel_array
    expected = numpy.zeros((100, 150, 3), int)
    for (_, _, x, y), tile in zip(slide.grid(), tiles):
        expected[y:y + 40, x:x + 48] = tile[:100 - y, :150 - x]
    same(shown([folder + "/jpeg.dcm"], folder), expected, "tiles of JPEG", 3)


def sparse_matrices(folder):
    """Frames in any order, some missing, some off the grid and over others; what is absent is white or as the object says."""
    slide = Slide(131, 97, paths=("a", "b"), planes=2)
    places = [place for place in slide.grid() if random.random() < 0.6]
    random.shuffle(places)
    file = slide.write(folder + "/sparse.dcm", places)
    for path in slide.paths:
        for plane in range(2):
            same(shown([file], folder, "--optical-path", path, "--focal-plane", plane + 1), slide.seen(path, plane, places),
                 "sparse, path %s, plane %d" % (path, plane))
    places = [("a", 0, random.randrange(131), random.randrange(97)) for _ in range(40)]
    file = slide.write(folder + "/over.dcm", places, syntax=RLE)
    for region, scale, options in regions(slide, 8):
        same(shown([file], folder, *options), slide.seen("a", 0, places, region=region, scale=scale), "over each other %s" % (options,))
    absent = Slide(40, 30, absent=(0, 0x8080, 0x8080))
    file = absent.write(folder + "/absent.dcm", [("1", 0, 0, 0)])
    same(shown([file], folder), absent.seen("1", 0, [("1", 0, 0, 0)], (0, 0, 0)), "what is absent is black")
    lost = slide.write(folder + "/lost.dcm", [("a", 0, 0, 0), ("a", 0, 500, 0)])
    shown([lost], folder, status=1, says="1 frame of it begin outside of its matrix")


def concatenations(folder):
    slide = Slide(131, 97, planes=2)
    count = len(slide.grid())
    cuts = (0, 7, 31, count)
    files = [slide.write("%s/part%d.dcm" % (folder, i + 1), part=(cuts[i], cuts[i + 1], i + 1, 3)) for i in range(3)]
    same(shown(files[::-1], folder, "--focal-plane", 2), slide.seen("1", 1), "a concatenation")
    kept = slide.grid()[:7] + slide.grid()[31:]
    same(shown([files[2], files[0]], folder, status=1, says="1 part of the concatenation's 3 is missing"), slide.seen("1", 0, kept),
         "a concatenation without its second part")
    other = slide.write(folder + "/other.dcm")
    out = folder + "/none.png"
    for words, says in ((files[:1] + [other], "no part of the first file's concatenation"), (files[:1] * 2, "also those of another part"),
                        ([other, Slide(50, 50).write(folder + "/small.dcm")], "no part of the matrix")):
        vexal("pixel", "render", "--matrix", *words, out, status=2, says=says)
    check(not os.path.exists(out), "a refused matrix leaves a picture")


def refusals(folder):
    slide = Slide(131, 97, paths=("a", "b"))
    file, out = slide.write(folder + "/slide.dcm"), folder + "/none.png"
    plain = write(folder + "/plain.dcm", Writer().file(head(Writer()) + tail(Writer()) + description(Writer(), 1, 2, 8) +
                                                       Writer().element(0x7FE00010, "OB", b"ab")))
    cases = (("--region", "0,0,132,1"), ("--region", "131,0,1,1"), ("--region", "0,0,0,5"), ("--region", "-1,0,5,5"), ("--region", "1,2,3"),
             ("--region", "0,0,4294967297,1"), ("--scale", "0"), ("--scale", "4097"), ("--optical-path", "c"), ("--focal-plane", "2"))
    for option in cases:
        vexal("pixel", "render", "--matrix", *option, file, out, status=2, says=option[0])
    vexal("pixel", "render", "--matrix", plain, out, status=2, says="no total pixel matrix")
    for option in (("--bits", "16"), ("--presentation", plain), ("--frame", "1"), ("--dose", plain)):
        vexal("pixel", "render", "--matrix", *option, file, out, status=2, says=option[0] + " does not go with --matrix")
    vexal("pixel", "render", "--region", "0,0,5,5", file, out, status=2, says="--matrix")
    check(not os.path.exists(out), "a refused matrix leaves a picture")
    small = Slide(40, 30)
    small.columns = small.rows = 0x7FFFFFFF
    for rows, says in ((0x7FFFFFFF, "nearly empty: give a --region"), (1, "too wide")):
        small.rows = rows
        shown_small = small.write(folder + "/small.dcm", [("1", 0, 0, 0)], frames=[bytes(32 * 24 * 3)])
        vexal("pixel", "render", "--matrix", shown_small, out, status=2, says=says)
    bad = Slide(400, 300, tile=(4, 4)).write(folder + "/bad.dcm", syntax="1.2.840.10008.1.2.4.90", streams=[b"no stream "] * 7500)
    told = vexal("pixel", "render", "--matrix", bad, out, status=2, says="7500 frames could not be shown").stderr
    check(told.count(b": frame ") == 20, "of many broken tiles %d are told" % told.count(b": frame "))
    os.path.exists(out) and os.remove(out)
    broken = slide.write(folder + "/broken.dcm", syntax=RLE, cut=3)
    expected = slide.seen("a", 0, [p for i, p in enumerate(slide.grid()) if i != 2])
    same(shown([broken], folder, status=2, says="frame 3"), expected, "a matrix with a broken tile")


# ---- Pyramids ----


def levels(folder):
    sizes = ((400, 300), (200, 150), (50, 38))
    for i, (columns, rows) in enumerate(sizes):
        spacing = (0.001 * 400 / columns,) * 2
        Slide(columns, rows, spacing=spacing).write("%s/set/%d.dcm" % (folder, 9 - i))
    Slide(60, 50, tile=(60, 50), flavor="LABEL", spacing=None).write(folder + "/set/1.dcm")
    Slide(80, 40, tile=(80, 40), flavor="OVERVIEW", container="C-2").write(folder + "/set/2.dcm")
    Slide(80, 40, container="C-2").write(folder + "/set/3.dcm", part=None)
    lines = vexal("pixel", "levels", folder + "/set").stdout.decode().splitlines()
    told = [(line.split()[0], line.split()[-1][-5:]) for line in lines]
    check(told == [("slide", "C-1"), ("level", "9.dcm"), ("level", "8.dcm"), ("level", "7.dcm"), ("label", "1.dcm"), ("slide", "C-2"),
                   ("level", "3.dcm"), ("overview", "2.dcm")], "levels tells %s" % (told,))
    check("level 2" in lines[3] and "50 x 38 pixels of 0.008 x 0.008 mm, 1:8, 2 x 2 tiles of 32 x 24, full, 4 frames" in lines[3], lines[3])
    for name, slide, says in (("spacing", Slide(100, 75, spacing=(0.001, 0.001)), "make a width of 0.100 mm, not 0.400"),
                              ("frames", Slide(100, 75, spacing=(0.004, 0.004), count=3), "has 16 tiles, and it has 3 frames"),
                              ("nothing", Slide(100, 75, spacing=None), "does not tell the size of its pixels")):
        slide.write("%s/%s/b.dcm" % (folder, name))
        Slide(400, 300, spacing=(0.001, 0.001)).write("%s/%s/a.dcm" % (folder, name))
        vexal("pixel", "levels", "%s/%s" % (folder, name), status=1, says=says)
    vexal("pixel", "levels", write(folder + "/none/x.txt", b"no image"), status=2, says="none is an image")


# ---- Memory ----


def peak(*words, statuses=(0,)):
    """MiB that a run of the program takes at the most. What the system tells of an ended process counts this one too."""
    process = subprocess.Popen([VEXAL, *map(str, words)], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    most = 0
    while process.poll() is None:
        with open("/proc/%d/status" % process.pid) as file:
            most = max([most] + [int(line.split()[1]) for line in file if line.startswith("VmHWM")])
        time.sleep(0.002)
    check(process.returncode in statuses, "%s: ends with %d" % (words, process.returncode))
    return most / 1024


def plain_memory():
    if SANITIZED or "ASAN_OPTIONS" in os.environ:
        raise LeftOut("a sanitizer's own memory")


def compressed_memory(folder):
    """Regions of slides of 1 GiB whose tiles are compressed, full and sparse: each tile is the same small stream."""
    plain_memory()
    tile, tiles = Slide(256, 256, tile=(256, 256)), 74
    tile.write(folder + "/native.dcm")
    for syntax in ("jpeg", "jpeg2000", "htj2k", "jpeg-ls"):
        coded = folder + "/tile.dcm"
        vexal("convert", "--to", syntax, folder + "/native.dcm", coded)
        vexal("pixel", "extract", "--compressed", coded, folder + "/stream")
        data, stream = pydicom.dcmread(coded), read(folder + "/stream")
        expected = shown([coded], folder)
        slide = Slide(8, 8, tile=(256, 256))
        slide.columns = slide.rows = tiles * 256
        slide.more = {"count": tiles * tiles, "photometric": data.PhotometricInterpretation}
        for kind, places in (("full", None), ("sparse", slide.grid()[::-1])):
            file = slide.write(folder + "/large.dcm", places, data.file_meta.TransferSyntaxUID, frames=[], streams=[stream + b"\0" * (len(stream) % 2)] * tiles ** 2)
            used = peak("pixel", "render", "--matrix", "--region", "5120,6144,1500,1000", file, folder + "/out.png")
            check(used < 64, "a region of a %s slide of 1 GiB in %s takes %.0f MiB" % (kind, syntax, used))
            same(shown([file], folder, "--region", "5120,6144,256,256"), expected, "a tile of the %s slide in %s" % (kind, syntax))


def damaged_tiles(folder):
    """A large frame of JPEG 2000 in tiles: each cut in its middle, which is told, and each with a byte changed; memory stays."""
    rows = 6000  # beyond what goes through the codec in one piece
    w = Writer()
    frame = numpy.zeros((rows, rows), "u1")
    frame[::500] = frame[:, ::700] = 200
    data = head(w) + tail(w) + description(w, rows, rows, 8) + w.element(0x7FE00010, "OB", frame.tobytes())
    vexal("convert", "--to", "jpeg2000", write(folder + "/native.dcm", w.file(data)), folder + "/coded.dcm")
    vexal("pixel", "extract", "--compressed", folder + "/coded.dcm", folder + "/stream")
    stream, parts = read(folder + "/stream"), []
    at = stream.index(b"\xff\x90\0\x0a")
    while stream[at:at + 2] == b"\xff\x90":
        parts.append((at, int.from_bytes(stream[at + 6:at + 10], "big")))
        at += parts[-1][1]
    check(len(parts) == 9, "the frame has %d tiles" % len(parts))
    w = Writer("1.2.840.10008.1.2.4.90")
    for at, size in parts:
        middle = at + 14 + (size - 14) // 2
        for title, broken in (("cut", stream[:middle]), ("changed", stream[:middle] + bytes([stream[middle] ^ 0x55]) + stream[middle + 1:])):
            data = head(w) + tail(w) + description(w, rows, rows, 8) + w.fragments([broken + b"\0" * (len(broken) % 2)])
            used = peak("pixel", "extract", write(folder + "/broken.dcm", w.file(data)), folder + "/out.raw", statuses=(1, 2) if title == "cut" else (0, 1, 2)) - 24
            check(used < 8 * frame.nbytes / MIB, "a tile %s at %d: %.0f MiB" % (title, middle, used))


def memory(folder):
    """A region of a slide of 1 GiB, which lies in a file with holes, and frames of 72 MB on their way to other syntaxes."""
    plain_memory()
    side = 74 * 256
    slide = Slide(8, 8, tile=(256, 256))
    slide.columns = slide.rows = side
    slide.more = {"count": 74 * 74, "length": side * side * 3}
    file = slide.write(folder + "/large.dcm", frames=[])
    os.truncate(file, os.path.getsize(file) + side * side * 3)
    for options in (("--region", "5000,6000,2000,1500"), ("--scale", "64")):
        used = peak("pixel", "render", "--matrix", *options, file, folder + "/out.png")
        check(used < 64, "a part of a slide of 1 GiB takes %.0f MiB: %s" % (used, options))
    os.remove(file)
    rows = 6000  # which is also beyond what JPEG 2000 takes in one piece
    frame = (rng.integers(0, 32, (rows, rows)) + numpy.arange(rows) // 4).astype("<u2").tobytes()
    w = Writer()
    data = head(w) + tail(w) + description(w, rows, rows, 16, 12) + w.element(0x7FE00010, "OW", frame)
    native = write(folder + "/native.dcm", w.file(data))
    used = peak("pixel", "render", native, folder + "/picture.png") - 24
    check(used < 3 * len(frame) / MIB, "a frame of %.0f MiB takes %.0f MiB to be shown" % (len(frame) / MIB, used))
    for syntax, most in (("rle", 1.7), ("jpeg-ls", 1.7), ("jpeg-lossless", 1.7), ("jpeg2000", 2.2), ("htj2k", 3)):  # frames, on the way back
        if syntax == "htj2k" and not has("ojph_compress", "a large frame of htj2k"):
            continue
        there, back = folder + "/there.dcm", folder + "/back.dcm"
        for words, frames in (((syntax, native, there), 3), (("explicit", there, back), most)):
            used = peak("convert", "--to", *words) - 24
            check(used < frames * len(frame) / MIB, "a frame of %.0f MiB takes %.0f MiB to %s" % (len(frame) / MIB, used, words[0] + " " + syntax))
        check(read(back)[-len(frame):] == frame, "%s changes a frame of 72 MB" % syntax)
        if syntax == "jpeg2000":  # whose decoder takes all bytes for data
            continue
        os.remove(back)
        with open(there, "r+b") as file:  # a large frame is decoded when all around it is written
            file.seek(os.path.getsize(there) // 2)
            file.write(b"\xff\xd9" * 5000)
        vexal("convert", "--to", "explicit", there, back, status=2)
        check(not os.path.exists(back), "%s: what is broken leaves a file" % syntax)


if __name__ == "__main__":
    random.seed(4)
    sys.exit(run_parts(full_matrices, other_pixels, sparse_matrices, concatenations, refusals, levels, memory, compressed_memory, damaged_tiles, chosen=sys.argv[3:]))
