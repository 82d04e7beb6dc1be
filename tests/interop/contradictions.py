#!/usr/bin/env python3
"""Images with one attribute changed or taken out, through every action on pixels: each ends soon, in little memory, with a
status of its own, and none calls well what has lost or misread something.

usage: contradictions.py VEXAL
Exit 77 (skipped) where numpy or pydicom is missing.
"""
import os
import resource
import subprocess
import sys
import time

from checks import SANITIZED, VEXAL, check, need, run, run_parts, vexal, write
from made import Writer, description, head, tail

need(modules=["numpy", "pydicom"])
import numpy

from large_images import Slide

GIB = 1 << 30
SETS = [["--set", "%s=%s" % (name, value)] for name, values in (
    ("Rows", (0, 1, 3, 65535)), ("Columns", (0, 1, 65535)), ("SamplesPerPixel", (0, 2, 3, 4, 65535)), ("BitsAllocated", (0, 1, 7, 8, 16, 24, 32, 64)),
    ("BitsStored", (0, 1, 17, 32)), ("HighBit", (0, 31, 65535)), ("PixelRepresentation", (1, 2)), ("PlanarConfiguration", (1, 2)),
    ("PhotometricInterpretation", ("RGB", "YBR_FULL_422", "PALETTE COLOR", "CMYK")), ("NumberOfFrames", (0, 2, 2147483647, -1)),
    ("TotalPixelMatrixColumns", (1, 4294967295)), ("WindowWidth", (0, "1e300")), ("PixelAspectRatio", ("1000000\\1", "0\\1"))) for value in values]
SETS += [["--delete", name] for name in ("Rows", "BitsAllocated", "BitsStored", "HighBit", "PixelRepresentation", "PhotometricInterpretation",
                                        "RedPaletteColorLookupTableData", "PerFrameFunctionalGroupsSequence", "PixelData")]


def image(path, pixels, *more, photometric=None):
    """Frames by rows by columns, and colour."""
    w, samples = Writer(), pixels.shape[3] if pixels.ndim == 4 else 1
    value = pixels.tobytes()
    parts = description(w, *pixels.shape[1:3], 8 * pixels.itemsize, samples=samples, frames=len(pixels), photometric=photometric) + b"".join(more)
    return write(path, w.file(head(w) + tail(w) + parts + w.element(0x7FE00010, "OW", value + bytes(len(value) % 2))))


def kinds(folder):
    """A file of each kind, by name."""
    random, w = numpy.random.default_rng(3), Writer()
    made = {"grey": image(folder + "/grey", random.integers(0, 4096, (3, 24, 20)).astype("<u2")),
            "colour": image(folder + "/colour", random.integers(0, 256, (2, 12, 10, 3)).astype("u1"))}
    tables = b"".join(w.numbers(0x00281101 + c, "US", 4, 0, 16) for c in range(3)) + b"".join(w.numbers(0x00281201 + c, "US", 1, 2, 3, 4) for c in range(3))
    made["palette"] = image(folder + "/palette", random.integers(0, 4, (1, 9, 8)).astype("u1"), tables, photometric="PALETTE COLOR")
    made["slide"] = Slide(50, 40, tile=(16, 12)).write(folder + "/slide")
    for base, syntax in (("grey", "rle"), ("grey", "jpeg-ls"), ("colour", "rle"), ("colour", "jpeg2000"), ("grey", "deflated-frames"), ("slide", "jpeg2000")):
        made["%s %s" % (base, syntax)] = "%s/%s-%s" % (folder, base, syntax)
        vexal("convert", "--to", syntax, made[base], made["%s %s" % (base, syntax)])
    return made


def limits():
    if not SANITIZED and "ASAN_OPTIONS" not in os.environ:
        resource.setrlimit(resource.RLIMIT_AS, (3 * GIB, 3 * GIB))


def ask(*words):
    start = time.monotonic()
    with open(os.devnull, "rb") as nothing:
        process = subprocess.run([VEXAL, *words], stdin=nothing, capture_output=True, timeout=60, preexec_fn=limits)
    lines = process.stderr.count(b"\n")
    check(process.returncode in (0, 1, 2) and lines < 200, "%s: ends with %d, says %d lines" % (words, process.returncode, lines))
    check(process.returncode == 0 or process.stderr or process.stdout, "%s: ends with %d and says nothing" % (words, process.returncode))
    check(b"not enough memory" not in process.stderr, "%s: %s" % (words, process.stderr[-200:]))
    return process.returncode, time.monotonic() - start


def actions(file, folder, original):
    out = folder + "/out"
    return {"info": ("pixel", "info", file), "extract": ("pixel", "extract", file, out), "render": ("pixel", "render", file, out),
            "sheet": ("pixel", "sheet", file, out), "compare": ("pixel", "compare", original, file), "matrix": ("pixel", "render", "--matrix", file, out),
            "offsets": ("pixel", "offsets", file), "levels": ("pixel", "levels", file), "native": ("convert", "--to", "explicit", file, out),
            "jpeg2000": ("convert", "--to", "jpeg2000", file, out), "make": ("make", "--extract", file, out)}


def every_change(folder):
    file, slowest = folder + "/changed", 0
    made = kinds(folder)
    for number, change in enumerate(SETS):
        for name, original in list(made.items())[number % 4::4]:
            if run(VEXAL, "modify", "--quiet", *change, original, file).returncode == 2:
                continue
            for words in actions(file, folder, original).values():
                if words[1] == "render" and words[2] == "--matrix" and "slide" not in name:
                    continue
                slowest = max(slowest, ask(*words)[1])
                subprocess.run(["rm", "-rf", folder + "/out"])
    print("  the longest took %.1f s" % slowest)


def told(folder):
    """What is lost or misread is told."""
    made = kinds(folder)
    for name, change, wanted in (
            ("grey", ["NumberOfFrames=2147483647"], {"info": 0, "extract": 2, "sheet": 2, "render": 0, "compare": 2}),
            ("grey", ["Rows=5"], {"extract": 1, "sheet": 1, "render": 1}),
            ("grey", ["NumberOfFrames=2"], {"extract": 1, "sheet": 1, "jpeg2000": 2}),
            ("grey rle", ["Rows=5"], {"extract": 1, "sheet": 1, "native": 1, "jpeg2000": 1}),
            ("grey rle", ["NumberOfFrames=2147483647"], {"extract": 2, "sheet": 2, "render": 2}),
            ("grey jpeg-ls", ["Rows=5"], {"extract": 1, "native": 1}),
            ("slide jpeg2000", ["Columns=65535"], {"extract": 1, "sheet": 1, "native": 1}),
            ("colour", ["PhotometricInterpretation=CMYK"], {"extract": 0, "render": 2, "sheet": 2}),
            ("slide", ["PhotometricInterpretation=MONOCHROME1"], {"render": 2, "matrix": 2})):
        file = folder + "/changed"
        vexal("modify", "--quiet", *(word for text in change for word in ("--set", text)), made[name], file)
        for action, status in wanted.items():
            got = ask(*actions(file, folder, made[name])[action])[0]
            check(got == status, "%s, %s: %s ends with %d" % (name, change, action, got))
            subprocess.run(["rm", "-rf", folder + "/out"])


sys.exit(run_parts(told, every_change, chosen=sys.argv[2:]))
