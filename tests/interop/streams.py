#!/usr/bin/env python3
"""Code streams that contradict their object, videos made by ffmpeg, transfer syntaxes without pixels in the file, and images held
against each other.

usage: streams.py VEXAL SAMPLES
Exit 77 (skipped) where pydicom or numpy are missing.
"""
import json
import os
import sys
import zlib

from checks import VEXAL, check, has, need, paths, read, run, run_parts, vexal, write
from made import Writer, description, head, tail, video

need("gdcmconv", "dcmj2pnm", modules=["pydicom", "numpy"])
import numpy
import pydicom

from pixels import ENCAPSULATED, DEFLATED_FRAMES, Image, distance, packed_file, samples_of, save_frames

# ---- Attributes that contradict the streams ----

# What is written over the right attributes, for which images and under which names of syntaxes.
GREY12, GREY8, COLOUR, SIGNED = Image(9, 12, 12, frames=2), Image(9, 12, 8, frames=2), Image(9, 12, 8, 0, "RGB", frames=2), Image(9, 12, 12, 1)
LOSSLESS = ("jpeg-lossless", "jpeg-ls", "jpeg2000")
WRONG = [
    (GREY12, (*LOSSLESS, "jpeg-12"), {"Rows": 7}),
    (GREY12, LOSSLESS, {"Columns": 13, "Rows": 90}),
    (GREY8, (*LOSSLESS, "jpeg"), {"Columns": 4}),
    (GREY12, (*LOSSLESS, "jpeg-12"), {"BitsAllocated": 8, "BitsStored": 8, "HighBit": 7}),
    (GREY12, LOSSLESS, {"BitsStored": 9, "HighBit": 8}),
    (GREY8, (*LOSSLESS, "jpeg"), {"SamplesPerPixel": 3, "PhotometricInterpretation": "RGB", "PlanarConfiguration": 0}),
    (COLOUR, (*LOSSLESS, "jpeg"), {"SamplesPerPixel": 1, "PhotometricInterpretation": "MONOCHROME2", "PlanarConfiguration": None}),
    (SIGNED, ("jpeg2000",), {"PixelRepresentation": 0}),
]


def check_contradictions(folder):
    """The stream wins, the attributes are corrected on the way out, and each command says so."""
    packed, out, expected, raw = paths(folder, "packed", "out", "expected", "raw")
    for image, names, wrong in WRONG:
        for name in names:
            data, _ = packed_file(packed, image, name)
            title = "%s in %s" % (wrong, name)
            vexal("convert", "--quiet", "--to", "explicit", packed, expected)
            right = samples_of(expected, image, image.samples == 3)
            for keyword, value in wrong.items():
                setattr(data, keyword, value) if value is not None else delattr(data, keyword)
            data.save_as(packed)
            for to in ("explicit", "rle"):
                vexal("convert", "--quiet", "--to", to, packed, out, status=1, says="contradict", title=title)
            vexal("convert", "--quiet", "--to", "explicit", out, out)
            check(distance(samples_of(out, image, image.samples == 3), right) == 0, "other pixels: " + title)
            check(b"contradiction" in vexal("pixel", "info", packed).stdout, "info does not tell of " + title)
            vexal("pixel", "extract", "--frame", "1", packed, raw, status=1, says="contradict", title=title)
            check(len(read(raw)) * image.frames == image.pixels.size * image.bytes, "a frame of another size: " + title)
            vexal("pixel", "render", packed, raw + ".png", status=1, says="contradict", title=title)


def check_frames(folder):
    """Frames of one object that contradict each other, that are short or go on behind their end: the frame is named."""
    packed, other, out = paths(folder, "packed", "other", "out")
    for name in LOSSLESS:
        data, frames = packed_file(packed, GREY12, name)
        _, wide = packed_file(other, Image(9, 13, 12), name)
        save_frames(data, [frames[0], wide[0]], packed)
        vexal("convert", "--to", "explicit", packed, out, status=2, says="frame 2: its code stream is 9 x 13")
        check(b"contradiction: frame 2" in vexal("pixel", "info", packed).stdout, "info does not tell of two sizes in " + name)
        _, alike = packed_file(other, SIGNED, name)
        if name == "jpeg2000":
            save_frames(data, [frames[0], alike[0]], packed)
            vexal("convert", "--to", "explicit", packed, out, status=2, says="frame 2: ")
        save_frames(data, [frames[0], frames[1] + b"left behind!"], packed)
        vexal("convert", "--to", "explicit", packed, out, status=1, says="behind the end")
        check(distance(samples_of(out, GREY12), GREY12.pixels) == 0, "what stands behind a stream changes pixels: " + name)
    for syntax, change, status, says in (
            (ENCAPSULATED, lambda f: f[:-2], 2, "frame 2"), (ENCAPSULATED, lambda f: f + b"ab", 2, "frame 2"),
            (DEFLATED_FRAMES, lambda f: zlib.compress(f), 0, "header of zlib"), (DEFLATED_FRAMES, lambda f: zlib.compress(f)[2:-8], 2, "frame 2")):
        data, frames = packed_file(packed, GREY12, "encapsulated")
        good = frames[0] if syntax == ENCAPSULATED else zlib.compress(frames[0])[2:-4]
        frames = [frame + b"\0" * (len(frame) % 2) for frame in (good, change(frames[1]))]
        save_frames(data, frames, packed, syntax)
        vexal("convert", "--to", "explicit", packed, out, status=status, says=says)
        check(status or distance(samples_of(out, GREY12), GREY12.pixels) == 0, "sloppy frames have other pixels")


# ---- Images beside each other ----


def check_comparison(folder):
    one, two, packed = paths(folder, "one", "two", "packed")

    def compare(status, says, a=one, b=two):
        result = vexal("pixel", "compare", a, b, status=status)
        check(says.encode() in result.stdout + result.stderr, "compare says %s, not %s" % (result.stdout + result.stderr, says))

    for image in (GREY12, SIGNED, COLOUR, Image(5, 3, 1, frames=3), Image(4, 6, 8, 0, "RGB", 1), Image(4, 6, 32)):
        image.write(one)
        for name in ("rle", "encapsulated", "deflated-frames", *(LOSSLESS if 1 < image.stored <= 16 else ())):
            vexal("convert", "--quiet", "--to", name, one, packed)
            compare(0, "frame 1: equal", b=packed)
    GREY12.write(one)
    changed = Image(9, 12, 12, frames=2)
    changed.pixels = changed.pixels.copy()
    changed.pixels[1, 4, 7, 0] ^= 0x41
    far = abs(int(changed.pixels[1, 4, 7, 0]) - int(GREY12.pixels[1, 4, 7, 0]))
    changed.write(two)
    compare(1, "frame 1: equal\nframe 2: 1 of 108 values differ, at most by %d (row 5, column 8: " % far)
    vexal("pixel", "compare", "--frame", "1", one, two)
    COLOUR.write(one)
    ybr = Image(9, 12, 8, 0, "YBR_FULL", frames=2)
    rgb = COLOUR.pixels.astype(float)
    ybr.pixels = (rgb @ numpy.array([[.299, .587, .114], [-.168736, -.331264, .5], [.5, -.418688, -.081312]]).T + [0, 128, 128]).round().clip(0, 255)
    ybr.write(two)
    result = run(VEXAL, "pixel", "compare", one, two).stdout.decode()
    check(all("equal" in line or " at most by 1 " in line or " at most by 2 " in line for line in result.splitlines()), "RGB beside YBR_FULL: " + result)
    for other, says in ((GREY12, "samples"), (Image(8, 12, 8, 0, "RGB", frames=2), "rows"), (Image(9, 12, 8, 0, "RGB"), "frame")):
        other.write(two)
        compare(2, says)
    GREY8.write(one)
    Image(9, 12, 8, 0, "PALETTE COLOR", frames=2).write(two)
    compare(2, "no transformation is defined")
    many = Image(3, 5, 12, frames=300)
    many.write(one)
    many.pixels = many.pixels.copy()
    many.pixels[[7, 200], 2, 4, 0] ^= 1
    many.write(two)
    lines = vexal("pixel", "compare", one, two, status=1).stdout.decode().splitlines()
    check([line.split(":")[0] for line in lines] == ["frame %d" % n for n in range(1, 301)], "frames out of their order")
    check([n for n, line in enumerate(lines) if "row 3, column 5: " in line] == [7, 200], "the frames that differ")
    short = pydicom.dcmread(two)
    short.PixelData = short.PixelData[:-40]
    short.save_as(two)
    compare(2, "the other 3 rows of 5 with 1 sample, 298 frames")
    w = Writer()
    for name, tag, kind in (("float", 0x7FE00008, "<f4"), ("double", 0x7FE00009, "<f8")):
        numbers = numpy.array([1.5, -2, numpy.nan, numpy.inf, 3e30, 7], kind)
        for path, values in ((one, numbers), (two, numbers + [0, 0, 0, 0, 0, 0.25]), (packed, numpy.where(numpy.isnan(numbers), 4, numbers))):
            write(path, w.file(head(w) + tail(w) + description(w, 2, 3, 8 * numbers.itemsize) + w.element(tag, "OF" if name == "float" else "OD", values.astype(kind).tobytes())))
        compare(0, "equal", b=one)
        compare(1, "1 of 6 values differ, at most by 0.25 (row 2, column 3: 7 and 7.25)")
        compare(1, "1 of 6 values differ, at most by inf (row 1, column 3: nan and 4)", b=packed)
    large = Image(517, 611, 16)
    large.write(one)
    large.pixels = large.pixels.copy()
    large.pixels[0, 500, 600, 0] ^= 0x8000
    large.pixels[0, 3, 4, 0] ^= 0x0101
    large.write(two)
    compare(1, "2 of 315887 values differ, at most by 32768 (row 501, column 601: ")
    write(one, w.file(head(w) + tail(w) + description(w, 3, 3, 8, 8, 3, photometric="YBR_FULL_422") + w.element(0x7FE00010, "OB", bytes(18))))
    compare(2, "too short", b=one)


# ---- Video ----

VIDEOS = [  # suffix, what ffmpeg is told, transfer syntax, words of info
    (".mp4", ["-c:v", "libx264", "-level", "4.1"], "102", "MP4, H.264 High profile, level 4.1, 96 x 80, 25 frames a second, 50 frames, 2 s"),
    (".ts", ["-c:v", "libx264", "-level", "4.0"], "102", "MPEG transport stream, H.264 High profile, level 4.0, 96 x 80, 25 frames a second, 50 frames, 2 s"),
    (".h264", ["-c:v", "libx264", "-level", "4.2"], "104.1", "elementary stream, H.264 High profile, level 4.2, 96 x 80, 25 frames a second"),
    (".m2v", ["-c:v", "mpeg2video"], "100", "elementary stream, MPEG-2 Main profile, level Main, 96 x 80, 25 frames a second"),
    (".ts", ["-c:v", "mpeg2video"], "101.1", "MPEG transport stream, MPEG-2 Main profile, level Main, 96 x 80, 25 frames a second"),
    (".mpg", ["-c:v", "mpeg2video", "-f", "vob"], "100", "MPEG program stream, MPEG-2 Main profile, level Main, 96 x 80, 25 frames a second"),
    (".mp4", ["-c:v", "libx265", "-x265-params", "log-level=none"], "107", "MP4, HEVC Main profile, level 1.0, 96 x 80, 25 frames a second, 50 frames, 2 s"),
    (".ts", ["-c:v", "libx265", "-x265-params", "log-level=none"], "107", "MPEG transport stream, HEVC Main profile, level 1.0, 96 x 80, 50 frames"),
    (".h265", ["-c:v", "libx265", "-x265-params", "log-level=none", "-pix_fmt", "yuv420p10le"], "108", "elementary stream, HEVC Main 10 profile, level 1.0, 96 x 80, 50 frames"),
]


def probe(path):
    words = ["ffprobe", "-v", "error", "-of", "json", "-count_frames", "-show_entries", "stream=codec_name,width,height,nb_read_frames", path]
    return json.loads(run(*words).stdout or b"{}").get("streams")


def check_videos(folder):
    if not (has("ffmpeg", "videos") and has("ffprobe", "videos")):
        return
    for number, (suffix, words, uid, told) in enumerate(VIDEOS):
        film, packed, copy, out = paths(folder, "film" + suffix, "packed%d" % number, "copy", "out" + suffix)
        made = run("ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc=size=96x80:rate=25:duration=2", "-pix_fmt", "yuv420p", *words, film)
        if made.returncode != 0:
            print("  left out: ffmpeg makes no %s: %s" % (told, made.stderr.decode()[-100:]))
            continue
        stream = read(film)
        padded = stream + b"\0" * (len(stream) % 2)
        cut = (len(stream) // 3) & ~1
        pieces = [padded] if "." not in uid else [padded[:cut], padded[cut:2 * cut], b"", padded[2 * cut:]]
        write(packed, video(pieces, uid))
        info = vexal("pixel", "info", packed).stdout.decode()
        check(told in info and "contradiction" not in info, "%s: info tells %s" % (told, info))
        # Zeros may stand behind MPEG-2: nobody can tell that one is a pad, and that is said.
        unsure = {"status": 1, "says": "may be a pad"} if suffix == ".m2v" and padded[-1:] == b"\0" else {}
        vexal("pixel", "extract", packed, out, **unsure)
        if unsure:
            stream = padded
        check(read(out) == stream, "%s: another stream comes out: %d and %d bytes" % (told, len(read(out)), len(stream)))
        check(probe(out) == probe(film) and probe(out), "%s: a player sees %s" % (told, probe(out)))
        os.makedirs(os.path.join(folder, "into"), exist_ok=True)
        vexal("pixel", "extract", packed, os.path.join(folder, "into"), **unsure)
        check(os.path.exists(os.path.join(folder, "into", "video" + suffix)), told + ": no file of its suffix")
        for words in (["convert", "--to", "1.2.840.10008.1.2.4." + uid], ["modify", "--set", "PatientName=Other^Name"]):
            vexal(*words, packed, copy)
            vexal("pixel", "extract", copy, out, **unsure)
            check(read(out) == stream, "%s: %s changes the stream" % (told, words[0]))
        vexal("convert", "--to", "explicit", packed, copy, status=2, says="can not undo")
        write(copy, video(pieces, uid, columns=64, frames=500, time="20"))
        info = vexal("pixel", "info", copy).stdout.decode()
        check("its pictures have 96 columns and 80 rows, the attributes say 64 and 80" in info, "%s: a wrong size: %s" % (told, info))
        check(", 25 frames a second" not in told or "25 frames a second, the attributes say 50" in info, "%s: a wrong rate: %s" % (told, info))
        check("it has 50 frames, the attributes say 500" in info, "%s: a wrong length: %s" % (told, info))
        write(copy, video(pieces, "107" if "HEVC" not in told else "102"))
        check("the transfer syntax is for another codec" in vexal("pixel", "info", copy).stdout.decode(), told + ": another codec than the syntax is for")
        for size in [*range(0, 60, 7), *range(60, min(len(stream), 6000), 997)]:  # what is cut or changed ends no program
            broken = bytearray(padded[:size + size % 2] if number % 2 else padded[:8192])
            if broken and number % 2 == 0:
                broken[size % len(broken)] ^= 0x5F
            write(copy, video([bytes(broken)], uid))
            check(run(VEXAL, "pixel", "info", copy).returncode == 0, "%s: info of a stream that is broken at %d" % (told, size))
    write(copy, video([read(os.path.join(folder, "film.h264"))], "102"))
    check("its level is beyond" in vexal("pixel", "info", copy).stdout.decode(), "a level beyond its transfer syntax")


# ---- Transfer syntaxes without pixels in the file ----


def check_absent_pixels(folder):
    path, plain, out = paths(folder, "absent", "plain", "out")
    GREY8.write(plain)
    for uid, name in (("4.94", "JPIP Referenced"), ("4.95", "JPIP Referenced Deflate"), ("4.204", "JPIP HTJ2K"), ("4.205", "JPIP HTJ2K"), ("7.1", "SMPTE ST 2110-20"),
                      ("7.2", "SMPTE ST 2110-20"), ("7.3", "SMPTE ST 2110-30")):
        w, syntax = Writer(), "1.2.840.10008.1.2." + uid
        body = head(w) + tail(w) + description(w, 4, 4, 8) + w.text(0x00287FE0, "UR", "http://example.org/jpip?x=1")
        packer = zlib.compressobj(6, zlib.DEFLATED, -15)
        if uid in ("4.95", "4.205"):
            body = packer.compress(body) + packer.flush()
        write(path, w.file(body + b"\0" * (len(body) % 2), syntax=syntax))
        place = "http://example.org/jpip?x=1" if "JPIP" in name else name
        for words in (["convert", "--to", "explicit", path, out], ["pixel", "info", path], ["pixel", "extract", path, out]):
            vexal(*words, status=2, says=name)
            vexal(*words, status=2, says=place)
        vexal("convert", "--to", syntax, plain, out, status=2, says=name)
        vexal("dump", path)


if __name__ == "__main__":
    sys.exit(run_parts(check_contradictions, check_frames, check_comparison, check_videos, check_absent_pixels, chosen=sys.argv[3:]))
