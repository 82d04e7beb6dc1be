#!/usr/bin/env python3
"""vexal convert, store and receive where pixel data changes its form.

usage: conversions.py VEXAL SAMPLES
Many frames in bounded memory and on several threads; kills and full disks in the middle; temporary folders of dead processes;
peers that want another transfer syntax. Without dcmtk and without root, the parts that need them are left out.
"""
import os
import resource
import signal
import subprocess
import sys
import time
import zlib

from checks import VEXAL, Server, Vexal, arrived, check, ended, free_port, has, meta_text, paths, read, run, run_parts, small_disk, vexal, write
from made import DEFLATED, EXPLICIT, IMPLICIT, SECONDARY_CAPTURE, Writer, description, element, meta

MEBI = 1 << 20
LOSSLESS = {"rle": "1.2.840.10008.1.2.5", "jpeg-lossless": "1.2.840.10008.1.2.4.70", "jpeg-ls": "1.2.840.10008.1.2.4.80",
            "jpeg2000": "1.2.840.10008.1.2.4.90"}


def head_of_image(frames, rows, columns, bits, instance, samples=1):
    """The data set up to its pixels, and their size."""
    size = frames * rows * columns * samples * bits // 8
    size += size % 2
    return element(0x00080016, "UI", SECONDARY_CAPTURE) + element(0x00080018, "UI", instance) + element(0x0020000D, "UI", "1.2.3.9") + \
        element(0x0020000E, "UI", "1.2.3.9.1") + description(Writer(), rows, columns, bits, min(bits, 12), samples, frames) + \
        Writer().element(0x7FE00010, "OW" if bits > 8 else "OB", length=size), size


def make_image(path, frames, rows=512, columns=512, bits=16, instance="1.2.3.7", samples=1):
    """A slope with some noise that moves from frame to frame; written frame by frame, for this process to stay small."""
    step = bits // 8
    base = b"".join(((n * 3 + n * n * 7919 % 23) % (4096 if bits > 8 else 256)).to_bytes(step, "little") for n in range(1000))
    head, whole = head_of_image(frames, rows, columns, bits, instance, samples)
    size = rows * columns * samples * step
    base *= size // len(base) + 2
    with open(path, "wb") as file:
        file.write(meta(SECONDARY_CAPTURE, instance) + head)
        for n in range(frames):
            file.write(base[n * 31 % 1000 * step:][:size])
        file.write(bytes(size * frames % 2))
    return whole


def tail(path, size):
    with open(path, "rb") as file:
        file.seek(-size, os.SEEK_END)
        return file.read()


def convert(source, target, to, *more, status=0, says="", **settings):
    return vexal("convert", "--quiet", *more, "--to", to, source, target, status=status, says=says, **settings)


def peak(*command):
    # By a small program between: what this one holds would count as the child's.
    result = ended(run("time", "-q", "-f", "%M", VEXAL, *command), " ".join(map(str, command)))
    return int(result.stderr.split()[-1]) * 1024


# ---- Frames ----


def memory(folder):
    """Peaks with four times the frames are the same, and a few frames on each thread."""
    frame = 512 * 512 * 2
    plain, packed, back = paths(folder, "plain.dcm", "packed.dcm", "back.dcm")
    for name, threads in (("rle", 1), ("rle", 2), ("jpeg-ls", 2)):
        peaks = []
        for frames in (25, 100) if name == "jpeg-ls" else (100, 400):
            size = make_image(plain, frames)
            peaks.append((peak("convert", "--threads", threads, "--to", name, plain, packed),
                          peak("convert", "--threads", threads, "--to", "explicit", packed, back)))
            heads = "%d:%d" % (os.path.getsize(plain) - size, os.path.getsize(back) - size)
            ended(run("cmp", plain, back, "-i", heads), "%s: %d frames back" % (name, frames))
            check(run(VEXAL, "pixel", "offsets", packed).stdout.endswith(b"of %d frames is right\n" % frames), name + ": offset table")
        print("  %s, %d threads: peaks of %s MB" % (name, threads, [[p >> 20 for p in pair] for pair in peaks]))
        for few, many in zip(*peaks):
            check(many - few < 2 * MEBI, "%s: %d KB more for four times the frames" % (name, (many - few) >> 10))
            check(many < 15 * MEBI + 5 * threads * frame, "%s, %d threads: a peak of %d KB" % (name, threads, many >> 10))


def looks(folder):
    """What is looked at of many frames is read one by one from where it lies, in whatever byte order."""
    plain, packed, big, out = paths(folder, "plain.dcm", "packed.dcm", "big.dcm", "out")
    frame = make_image(plain, 100) // 100
    convert(plain, packed, "rle")
    convert(plain, big, "big-endian")
    pixels = tail(plain, 31 * frame)[:frame]
    for source in (plain, packed, big):
        for words in (["info", source], ["offsets", source], ["render", "--frame", 70, source, out], ["extract", "--frame", 70, source, out]):
            used = peak("pixel", *words)
            check(used < 20 * MEBI, "pixel %s: a peak of %d KB" % (words, used >> 10))
        check(read(out) == pixels, source + ": another frame is extracted")


def threads(folder):
    """The same bytes on one thread and on several, for every syntax; of a lossy one but for its new UID. Large frames go to
    their places in the file from the threads that make them, small ones through the library, as all do into a deflated file."""
    plain, deflated, flat = paths(folder, "plain.dcm", "deflated.dcm", "flat.dcm")
    for frames, rows, columns, bits, samples in ((23, 46, 61, 8, 1), (23, 46, 61, 16, 1), (7, 401, 403, 8, 1), (7, 301, 303, 16, 1), (5, 201, 203, 8, 3)):
        size = make_image(plain, frames, rows, columns, bits, samples=samples)
        for name in list(LOSSLESS) + ["jpeg-ls-near", "jpeg2000-lossy", "jpeg" if bits == 8 else "jpeg-12"]:
            counts, what = (1, 2, 7), "%s of %d frames, %d bits, %d samples" % (name, frames, bits, samples)
            packed, back = (paths(folder, *("%s-%d.dcm" % (kind, count) for count in counts)) for kind in ("packed", "back"))
            for count, one, other in zip(counts, packed, back):
                convert(plain, one, name, "--threads", count, title=what)
                convert(one, other, "explicit", "--threads", 8 - count, title=what + " back")
            contents = {read(p) for p in packed} if name in LOSSLESS else {tail(p, size) for p in back}
            check(len(contents) == 1, what + ": threads change the result")
            check(name not in LOSSLESS or tail(back[0], size) == tail(plain, size), what + ": not lossless")
            convert(packed[0], deflated, "deflated")
            convert(deflated, flat, "explicit")
            check(tail(back[0], size) == tail(flat, size), what + ": another way gives another result")
            lossy = run(VEXAL, "dump", "--tag", "LossyImageCompressionMethod", packed[0]).stdout
            check((b"ISO_1" in lossy) == (name not in LOSSLESS), "%s: %s" % (what, lossy))


def icons(folder):
    """Compressed icons lose their compression with the image, or when it gets another one."""
    plain, packed, made, out = paths(folder, "plain.dcm", "packed.dcm", "made.dcm", "out.dcm")
    size = make_image(plain, 1, 64, 64)
    convert(plain, packed, "jpeg-lossless")
    content, w = read(packed), Writer()
    pixels = content.index(b"\xE0\x7F\x10\0OB")
    write(made, content[:pixels] + w.sequence(0x00880200, [content[content.index(b"\x28\0\2\0US"):]]) + content[pixels:])
    for to, count in (("explicit", 2), ("rle", 1)):
        convert(made, out, to)
        check(read(out).count(w.element(0x7FE00010, "OW", tail(plain, size))) == count, "the icon on the way to " + to)


# ---- Kills and full disks ----


def temp_folders(folder):
    return [os.path.join(folder, n) for n in os.listdir(folder) if n.startswith("vexal-tmp-")]


def make_deflated(path):
    """A value that is larger than what stays in memory."""
    frames, packer = 40, zlib.compressobj(1, zlib.DEFLATED, -15)
    with open(path, "wb") as file:
        file.write(meta(SECONDARY_CAPTURE, "1.2.3.8", DEFLATED) + packer.compress(head_of_image(frames, 1024, 1024, 16, "1.2.3.8")[0]))
        for n in range(frames):
            file.write(packer.compress(bytes([n, 1]) * MEBI))
        file.write(packer.flush())


def contents(folder, ending=""):
    return {name: read(os.path.join(folder, name)) for name in os.listdir(folder) if name.endswith(ending)}


def wait_for(condition, process):
    while not condition():
        if process.poll() is not None:
            return False
        time.sleep(0.002)
    return True


def kills(folder):
    out, temporary, plain, packed, small, deflated = paths(folder, "out", "tmp", "plain.dcm", "packed.dcm", "small.dcm", "deflated.dcm")
    os.mkdir(out), os.mkdir(temporary)
    make_image(plain, 200)
    make_image(small, 1, 16, 16)
    make_deflated(deflated)
    convert(plain, packed, "rle")
    target, environment = os.path.join(out, "image.dcm"), dict(os.environ, TMPDIR=temporary)

    def start(source, to):
        return subprocess.Popen([VEXAL, "convert", "--quiet", "--to", to, source, target], env=environment, stderr=subprocess.PIPE)

    def clear():  # as every start does
        convert(small, os.path.join(folder, "x.dcm"), "rle", env=environment)

    def large_value():
        return any(os.path.getsize(os.path.join(f, n)) > 4 * MEBI for f in temp_folders(temporary) for n in os.listdir(f))

    for before in (None, b"what was there"):
        for source, to, seconds in ((plain, "jpeg2000", 0.3), (packed, "explicit", 0.05), (packed, "jpeg-ls", 0.5), (deflated, "explicit", None),
                                    (deflated, "rle", None)):
            if before is not None:
                write(target, before)
            victim, what = start(source, to), "%s to %s, killed: " % (os.path.basename(source), to)
            reached = wait_for(large_value if seconds is None else lambda: temp_folders(temporary), victim)
            time.sleep(seconds or 0)
            victim.kill()
            victim.communicate()
            check(reached and victim.returncode == -signal.SIGKILL, what + "was done before")
            check(contents(out) == ({} if before is None else {"image.dcm": before}), what + "leaves %s" % os.listdir(out))
            dead = temp_folders(temporary)
            check(len(dead) == 1 and os.stat(dead[0]).st_mode & 0o777 == 0o700, what + "folders %s" % dead)
            clear()
            check(not temp_folders(temporary), what + "the next start clears nothing")
    # The folder of a living process stays, and it works on; so does the folder of somebody else.
    os.unlink(target)
    living = start(plain, "jpeg2000")
    check(wait_for(lambda: temp_folders(temporary), living), "no temporary folder")
    time.sleep(0.5)  # its lock comes a moment after it
    folders = temp_folders(temporary)
    clear()
    check(temp_folders(temporary) == folders, "the folder of a living process is gone")
    living.kill()
    living.communicate()
    link = os.path.join(temporary, "vexal-tmp-link")
    os.symlink(out, link)
    write(target, b"mine")
    clear()
    check(temp_folders(temporary) == [link] and os.listdir(out) == ["image.dcm"], "clears what a link points to")


def full_disks(folder):
    plain, packed, deflated, wide = paths(folder, "plain.dcm", "packed.dcm", "deflated.dcm", "wide")
    make_image(plain, 60)
    make_deflated(deflated)
    convert(plain, packed, "jpeg-lossless")
    os.mkdir(wide)

    def refused(where, source, to, temporary, reason, **limits):
        target = os.path.join(where, "out.dcm")
        for before in (None, b"what was there"):
            if before is not None:
                write(target, before)
            convert(source, target, to, status=2, says=reason, env=dict(os.environ, TMPDIR=temporary), **limits)
            what = "%s to %s, %s" % (os.path.basename(source), to, reason)
            check(contents(where, ".dcm") == ({} if before is None else {"out.dcm": before}), "%s: leaves %s" % (what, os.listdir(where)))
            check(not temp_folders(temporary), what + ": a temporary folder stays")
        os.unlink(target)

    for source, to in ((packed, "explicit"), (plain, "rle"), (plain, "implicit")):
        refused(wide, source, to, folder, "File too large", preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (2 * MEBI, 2 * MEBI)))
    with small_disk(folder, "2m") as small:
        for where, source, to, temporary, reason in (
                (small, packed, "explicit", folder, "No space left"), (small, plain, "rle", folder, "No space left"),
                (wide, plain, "jpeg-ls-near", small, "No space left"), (wide, deflated, "explicit", small, "Temporary file"),
                (wide, deflated, "rle", small, "Temporary file")):
            refused(where, source, to, temporary, reason)


# ---- Peers ----


def peers(folder):
    if not has("storescp", "conversions on the way to a peer"):
        return
    sources, plain, broken, ours, unpacked, back = paths(folder, "in", "plain.dcm", "broken.dcm", "ours", "unpacked", "back.dcm")
    os.mkdir(sources)
    sent = {"1.2.3.7.%d" % n: name for n, name in enumerate(LOSSLESS)}
    for instance, name in sent.items():
        size = make_image(plain, 5, 64, 64, instance=instance)
        convert(plain, os.path.join(sources, name + ".dcm"), name)
    pixels = tail(plain, size)
    # A code stream that is none: it can be stored, and not converted.
    content = read(os.path.join(sources, "jpeg-ls.dcm")).replace(b"1.2.3.7.2", b"1.2.3.8.2")
    at = content.rindex(b"\xFF\xD8\xFF")
    write(broken, content[:at] + bytes(64) + content[at + 64:])

    def check_plain(title, found, syntax):
        check(set(found) == set(sent), "%s: %s arrived" % (title, sorted(found)))
        check(all(meta_text(path, 0x10) == syntax and tail(path, size) == pixels for path in found.values()), title + ": other syntaxes or pixels")

    for option, syntax in (("+xi", IMPLICIT), ("+xe", EXPLICIT)):
        out = os.path.join(folder, "theirs" + option)
        os.mkdir(out)
        with Server("storescp", option, "+B", "-od", out, "{port}") as server:
            vexal("store", "127.0.0.1", server.port, sources, broken, status=1, says="frame 5", title="store with one broken file")
            check_plain("storescp " + option, arrived(out), syntax)
            result = run(VEXAL, "store", "127.0.0.1", server.port, "--no-convert", sources)
            check(result.returncode in (1, 3) and len(arrived(out)) == len(sent), "store --no-convert to %s" % option)
    # A peer that takes compressed files gets them as they are, and ours turns what comes into what was asked for.
    with Vexal("receive", ours, "--to", "jpeg-ls", "--tree") as server:
        for name, option in (("rle", "-xr"), ("jpeg-lossless", "-xs"), ("jpeg-ls", "-xt"), ("jpeg2000", "-xv"), ("plain", "-xe")):
            path = plain if name == "plain" else os.path.join(sources, name + ".dcm")
            ended(run("storescu", "-R", "-nh", option, "-aec", "VEXAL", "127.0.0.1", server.port, path), "storescu " + option)
    found = arrived(ours)
    check(set(found) == set(sent), "receive --to got %s" % sorted(found))
    for path in found.values():
        convert(path, back, "explicit")
        check(meta_text(path, 0x10) == LOSSLESS["jpeg-ls"] and tail(back, size) == pixels, "receive --to jpeg-ls: what became of " + path)
    with Vexal("receive", unpacked, "--to", "explicit") as server:
        vexal("store", "127.0.0.1", server.port, sources, broken)
    found = arrived(unpacked)
    check(meta_text(found.pop("1.2.3.8.2"), 0x10) == LOSSLESS["jpeg-ls"] and "as it came" in server.text, "a broken object is not kept as it came")
    check_plain("receive --to explicit", found, EXPLICIT)
    vexal("receive", free_port(), "--to", "jpeg2000-lossy", status=2)


sys.exit(run_parts(memory, looks, threads, icons, kills, full_disks, peers))
