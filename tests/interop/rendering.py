#!/usr/bin/env python3
"""What vexal pixel render shows, against pictures that are worked out here and those of dcmtk.

usage: rendering.py VEXAL
Exit 77 (skipped) where pydicom or numpy are missing.
"""
import os
import sys

from checks import check, has, need, paths, run, run_parts, vexal, write
from made import Writer, description, head, tail

need(modules=["pydicom", "numpy"])
import numpy

from pictures import read_by_ffmpeg, read_png

KIND = "1.2.840.10008.5.1.4.1.1.7"


def image(path, pixels, *more, photometric="MONOCHROME2", stored=None):
    """A file of pixels by row and column, and colour; elements of more go in at their places."""
    w = Writer()
    stored = stored or 8 * pixels.itemsize
    samples = pixels.shape[2] if pixels.ndim == 3 else 1
    parts = description(w, *pixels.shape[:2], 8 * pixels.itemsize, stored, samples, 1, int(pixels.dtype.kind == "i"), 0, photometric)
    value = pixels.tobytes()
    value = w.element(0x7FE00010, "OB" if pixels.itemsize == 1 else "OW", value + bytes(len(value) % 2))
    return write(path, w.file(head(w, KIND) + tail(w) + parts + b"".join(more) + value, KIND))


def check_formats(folder):
    """Names choose the form of a picture; one that can not be written leaves nothing behind."""
    random = numpy.random.default_rng(1)
    smooth = (numpy.add.outer(numpy.arange(37), numpy.arange(301)) // 2).astype("u1")
    grey = image(folder + "/grey", smooth)
    colour = image(folder + "/colour", random.integers(0, 256, (37, 301, 3)).astype("u1"), photometric="RGB")
    ffmpeg = has("ffmpeg", "JPEG and TIFF files")
    for path, samples in ((grey, 1), (colour, 3)):
        png, jpeg, tiff, none, rough = paths(folder, "o.png", "o.JPG", "o.tiff", "o", "rough.jpeg")
        for out in (png, jpeg, tiff, none):
            vexal("pixel", "render", "--window", "128,256", path, out)
        vexal("pixel", "render", "--quality", "5", path, rough)
        check((read_png(png) == read_png(none)).all(), "a name without suffix is no PNG file")
        check(os.path.getsize(rough) < os.path.getsize(jpeg), "--quality changes nothing")
        if ffmpeg:
            want = read_png(png).reshape(-1)
            check((read_by_ffmpeg(tiff, samples) == want).all(), "a TIFF file of %d samples" % samples)
            check(samples == 3 or abs(read_by_ffmpeg(jpeg) - want).max() < 9, "a JPEG file")
    for suffix in ("png", "jpg", "tif"):
        limit = ["bash", "-c", 'ulimit -f 8; trap "" XFSZ; exec "$@"', "bash"]
        target = folder + "/full/o." + suffix
        os.makedirs(folder + "/full", exist_ok=True)
        result = run(*limit, sys.argv[1], "pixel", "render", colour, target)
        check(result.returncode == 2 and b"can not write" in result.stderr and not os.listdir(folder + "/full"),
              "a full disk and %s: %s" % (suffix, result))


sys.exit(run_parts(check_formats))
