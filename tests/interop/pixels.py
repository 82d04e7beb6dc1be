#!/usr/bin/env python3
"""Frames as vexal pixel shows them against dcmtk, and files that vexal compressed decoded by two peers.

usage: pixels.py VEXAL SAMPLES
Exit 77 (skipped) where the samples or the peers are missing.
"""
import glob
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import zlib

VEXAL, SAMPLES = sys.argv[1], sys.argv[2]
RENDERERS = ["dcmj2pnm", "dcml2pnm"]
if not os.path.isdir(SAMPLES) or not all(map(shutil.which, RENDERERS + ["gdcmconv", "dcmdjpeg", "dcmdjpls", "dcmdrle"])):
    print("samples or peers are missing: skipped")
    sys.exit(77)
FAILURES = []


def fail(text):
    FAILURES.append(text)
    print("FAILED", text, flush=True)


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
    if seen < 30:
        fail("only %d images were compared" % seen)
    print(seen, "images rendered as dcmtk does")


DECODERS = {"rle": ["dcmdrle"], "jpeg-lossless": ["dcmdjpeg"], "jpeg-ls": ["dcmdjpls"], "jpeg2000": None}


def raw_frames(path, folder):
    shutil.rmtree(folder, ignore_errors=True)
    result = run(VEXAL, "pixel", "extract", "--quiet", path, folder + "/")
    names = sorted(glob.glob(folder + "/*.raw")) if os.path.isdir(folder) else [folder]
    return result.returncode, [open(name, "rb").read() for name in names if os.path.isfile(name)]


def check_peers(folder):
    done = 0
    sources = ["pix/nm-13frames.dcm", "pix/rgb-odd-le.dcm", "pix/us-rgb-be.dcm"]
    for name in sources:
        source = os.path.join(SAMPLES, name)
        plain = os.path.join(folder, "plain.dcm")
        if run(VEXAL, "convert", "--quiet", "--to", "explicit", source, plain).returncode != 0:
            fail(name + ": can not be converted to explicit")
            continue
        for target, decoder in DECODERS.items():
            packed = os.path.join(folder, "packed.dcm")
            result = run(VEXAL, "convert", "--quiet", "--to", target, plain, packed)
            if result.returncode != 0:
                fail("%s to %s: %s" % (name, target, result.stdout.decode()[-200:]))
                continue
            peers = [["gdcmconv", "--raw"]] + ([decoder] if decoder else [])
            for peer in peers:
                back = os.path.join(folder, "back.dcm")
                if os.path.exists(back):
                    os.remove(back)
                result = run(*peer, packed, back)
                if result.returncode != 0:
                    fail("%s: %s refuses %s" % (name, peer[0], target))
                    continue
                if by_pixel(back, folder, "got") != by_pixel(plain, folder, "want"):
                    fail("%s: %s decodes other pixels from %s" % (name, peer[0], target))
                done += 1
    print(done, "decodings by peers")


def by_pixel(path, folder, sub):
    """The pictures, whatever the order of samples."""
    pictures = []
    count = len(raw_frames(path, os.path.join(folder, sub))[1])
    for number in range(1, count + 1):
        png = os.path.join(folder, sub + ".png")
        if run(VEXAL, "pixel", "render", "--quiet", "--window-number", "0", "--frame", str(number), path, png).returncode:
            return None
        pictures.append(read_png(png)[3])
    return pictures


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


def check_damage(folder):
    """Whatever an image claims, each command ends with a status."""
    source = open(os.path.join(SAMPLES, "enc/tiny-defined-bot-2-to-2.dcm"), "rb").read()
    paths = sorted(glob.glob(SAMPLES + "/made/broken-*.dcm"))
    for cut in range(len(source) - 1, len(source) // 2, -37):
        paths.append(os.path.join(folder, "cut%d.dcm" % cut))
        open(paths[-1], "wb").write(source[:cut])
    for path in paths:
        for action in (["info"], ["offsets"], ["render"], ["sheet"], ["extract"]):
            out = [os.path.join(folder, "damage")] if action[0] in ("render", "sheet", "extract") else []
            result = run(VEXAL, "pixel", *action, path, *out)
            if result.returncode not in (0, 1, 2):
                fail("%s: pixel %s ends with %d" % (path, action[0], result.returncode))
            if out and os.path.exists(out[0]):
                shutil.rmtree(out[0]) if os.path.isdir(out[0]) else os.remove(out[0])


with tempfile.TemporaryDirectory() as work:
    check_offsets(work)
    check_damage(work)
    check_peers(work)
    check_rendering(work)
print("%d failures" % len(FAILURES))
sys.exit(1 if FAILURES else 0)
