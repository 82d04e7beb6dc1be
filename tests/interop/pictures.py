"""Picture files, read without a library for them: as arrays of height, width and samples."""
import os
import struct
import zlib

import numpy

from checks import ended, read, run, vexal


def read_png(path):
    data, at, packed = read(path), 8, b""
    while at < len(data):
        size, kind = struct.unpack(">I4s", data[at:at + 8])
        if kind == b"IHDR":
            width, height, depth, colour = struct.unpack(">IIBB", data[at + 8:at + 18])
        packed += data[at + 8:at + 8 + size] if kind == b"IDAT" else b""
        at += 12 + size
    assert data[:8] == b"\x89PNG\r\n\x1a\n" and depth in (8, 16)
    samples = 3 if colour == 2 else 1
    step = samples * depth // 8
    raw, rows = zlib.decompress(packed), [bytes(width * step)]
    for y in range(height):
        kind, *now = raw[y * (width * step + 1):(y + 1) * (width * step + 1)]
        if kind == 2:
            now = ((numpy.array(now) + list(rows[-1])) & 255).tolist()
        for x in range(len(now) if kind in (1, 3, 4) else 0):
            a, b, c = now[x - step] if x >= step else 0, rows[-1][x], rows[-1][x - step] if x >= step else 0
            nearest = min((abs(b - c), 0, a), (abs(a - c), 1, b), (abs(a + b - 2 * c), 2, c))[2]
            now[x] = (now[x] + (a, b, (a + b) // 2, nearest)[kind - 1]) & 255
        rows.append(bytes(now))
    return numpy.frombuffer(b"".join(rows[1:]), ">u%d" % (depth // 8)).astype(int).reshape(height, width, samples)


def read_pnm(path):
    data, fields, at = read(path), [], 0
    while len(fields) < 4:
        line, at = data[at:data.index(b"\n", at)], data.index(b"\n", at) + 1
        fields += [] if line.startswith(b"#") else line.split()
    kind = numpy.uint8 if int(fields[3]) < 256 else ">u2"
    return numpy.frombuffer(data[at:], kind).reshape(int(fields[2]), int(fields[1]), 3 if fields[0] == b"P6" else 1)


def read_by_ffmpeg(path, samples=1, bits=8):
    """JPEG, TIFF; numbers in one row."""
    form = {(1, 8): "gray", (1, 16): "gray16le", (3, 8): "rgb24", (3, 16): "rgb48le"}[samples, bits]
    ended(run("ffmpeg", "-loglevel", "error", "-y", "-i", path, "-pix_fmt", form, "-f", "rawvideo", path + ".raw"), "ffmpeg " + path)
    return numpy.fromfile(path + ".raw", "<u%d" % (bits // 8)).astype(int)


def picture_of(path, folder, *options, status=0, says=""):
    """What vexal pixel render makes of a file."""
    out = os.path.join(folder, "picture.png")
    vexal("pixel", "render", *([] if says else ["--quiet"]), *options, path, out, status=status, says=says)
    return read_png(out)
