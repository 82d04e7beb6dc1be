#!/usr/bin/env python3
"""vexal convert, store and receive where pixel data changes its form.

usage: conversions.py VEXAL SAMPLES
Many frames in bounded memory and on several threads; kills and full disks in the middle; temporary folders of dead processes;
peers that want another transfer syntax. Without dcmtk and without root, the parts that need them are left out.
"""
import os
import resource
import signal
import struct
import subprocess
import sys
import time
import zlib

from checks import REAL_SAMPLES, SAMPLES, VEXAL, check, element, free_port, has, left_out, run, run_parts, wait_for_listener

MEBI = 1 << 20
EXPLICIT, DEFLATED = b"1.2.840.10008.1.2.1", b"1.2.840.10008.1.2.1.99"
LOSSLESS = {"rle": "1.2.840.10008.1.2.5", "jpeg-lossless": "1.2.840.10008.1.2.4.70", "jpeg-ls": "1.2.840.10008.1.2.4.80",
            "jpeg2000": "1.2.840.10008.1.2.4.90"}


def head_of_image(frames, rows, columns, bits, instance, syntax=EXPLICIT, colour=False):
    """The file up to its pixels and what of it is deflated: meta group, data set."""
    def short(tag, value):
        return element(tag, b"US", struct.pack("<H", value))
    meta = b"".join(element(*row) for row in (
        (0x00020001, b"OB", b"\0\1"), (0x00020002, b"UI", b"1.2.840.10008.5.1.4.1.1.7"), (0x00020003, b"UI", instance),
        (0x00020010, b"UI", syntax), (0x00020012, b"UI", b"1.2.3.4")))
    size = frames * rows * columns * (3 if colour else 1) * bits // 8
    size += size % 2
    body = b"".join((
        element(0x00080016, b"UI", b"1.2.840.10008.5.1.4.1.1.7"), element(0x00080018, b"UI", instance),
        element(0x0020000D, b"UI", b"1.2.3.9"), element(0x0020000E, b"UI", b"1.2.3.9.1"),
        short(0x00280002, 3 if colour else 1), element(0x00280004, b"CS", b"RGB" if colour else b"MONOCHROME2"),
        short(0x00280006, 0) if colour else b"", element(0x00280008, b"IS", b"%d" % frames), short(0x00280010, rows),
        short(0x00280011, columns), short(0x00280100, bits), short(0x00280101, min(bits, 12)), short(0x00280102, min(bits, 12) - 1),
        short(0x00280103, 0), struct.pack("<HH2sxxI", 0x7FE0, 0x10, b"OW" if bits > 8 else b"OB", size)))
    return bytes(128) + b"DICM" + element(0x00020000, b"UL", struct.pack("<I", len(meta))) + meta, body


def make_image(path, frames, rows=512, columns=512, bits=16, instance=b"1.2.3.7", colour=False):
    """A slope with some noise that moves from frame to frame; written frame by frame, for this process to stay small."""
    step, size = bits // 8, rows * columns * (3 if colour else 1) * bits // 8
    base = bytearray()
    for n in range(1000):
        value = (n * 3 + n * n * 7919 % 23) % (4096 if bits > 8 else 256)
        base += value.to_bytes(step, "little")
    base = bytes(base) * (size // len(base) + 2)
    with open(path, "wb") as file:
        file.write(b"".join(head_of_image(frames, rows, columns, bits, instance, colour=colour)))
        for n in range(frames):
            file.write(base[n * 31 % 1000 * step:][:size])
        file.write(bytes(size * frames % 2))
    return size * frames + size * frames % 2


def tail(path, size):
    with open(path, "rb") as file:
        file.seek(-size, os.SEEK_END)
        return file.read()


def convert(source, target, to, *more, **settings):
    return run(VEXAL, "convert", "--quiet", *more, "--to", to, source, target, **settings)


def peak(*command):
    # By a small program between: what this one holds would count as the child's.
    result = run("time", "-q", "-f", "%M", VEXAL, *command)
    check(result.returncode == 0, "fails: " + " ".join(map(str, command)))
    return int(result.stderr.split()[-1]) * 1024


# ---- Frames ----


def memory(folder):
    """Peaks with four times the frames are the same, and a few frames on each thread."""
    frame = 512 * 512 * 2
    for name, threads in (("rle", 1), ("rle", 2), ("jpeg-ls", 2)):
        peaks = []
        for frames in (25, 100) if name == "jpeg-ls" else (100, 400):
            plain, packed, back = (os.path.join(folder, n) for n in ("plain.dcm", "packed.dcm", "back.dcm"))
            size = make_image(plain, frames)
            peaks.append((peak("convert", "--threads", threads, "--to", name, plain, packed),
                          peak("convert", "--threads", threads, "--to", "explicit", packed, back)))
            check(run("cmp", plain, back, "-i", "%d:%d" % (os.path.getsize(plain) - size, os.path.getsize(back) - size)).returncode == 0,
                  "%s: %d frames come back changed" % (name, frames))
            check(run(VEXAL, "pixel", "offsets", packed).stdout.endswith(b"of %d frames is right\n" % frames), name + ": offset table")
        print("  %s, %d threads: peaks of %s MB" % (name, threads, [[p >> 20 for p in pair] for pair in peaks]))
        for few, many in zip(*peaks):
            check(many - few < 2 * MEBI, "%s: %d KB more for four times the frames" % (name, (many - few) >> 10))
            check(many < 15 * MEBI + 5 * threads * frame, "%s, %d threads: a peak of %d KB" % (name, threads, many >> 10))


def looks(folder):
    """What is looked at of many frames is read one by one from where it lies, in whatever byte order."""
    plain, packed, big, out = (os.path.join(folder, n) for n in ("plain.dcm", "packed.dcm", "big.dcm", "out"))
    frame = make_image(plain, 100) // 100
    check(convert(plain, packed, "rle").returncode == convert(plain, big, "big-endian").returncode == 0, "rle, big-endian")
    with open(plain, "rb") as file:
        file.seek(-31 * frame, os.SEEK_END)
        pixels = file.read(frame)
    for source in (plain, packed, big):
        for words in (["info", source], ["offsets", source], ["render", "--frame", 70, source, out], ["extract", "--frame", 70, source, out]):
            used = peak("pixel", *words)
            check(used < 20 * MEBI, "pixel %s: a peak of %d KB" % (words, used >> 10))
        check(open(out, "rb").read() == pixels, source + ": another frame is extracted")


def threads(folder):
    """The same bytes on one thread and on several, for every syntax; of a lossy one but for its new UID. Large frames go to
    their places in the file from the threads that make them, small ones through the library, as all do into a deflated file."""
    plain, deflated, flat = (os.path.join(folder, n) for n in ("plain.dcm", "deflated.dcm", "flat.dcm"))
    for frames, rows, columns, bits, colour in ((23, 46, 61, 8, False), (23, 46, 61, 16, False), (7, 401, 403, 8, False),
                                                (7, 301, 303, 16, False), (5, 201, 203, 8, True)):
        size = make_image(plain, frames, rows, columns, bits, colour=colour)
        for name in list(LOSSLESS) + ["jpeg-ls-near", "jpeg2000-lossy", "jpeg" if bits == 8 else "jpeg-12"]:
            packed, back = [], []
            what = "%s of %d frames, %d bits%s" % (name, frames, bits, ", colour" * colour)
            for count in (1, 2, 7):
                packed.append(os.path.join(folder, "%s-%d.dcm" % (name, count)))
                back.append(os.path.join(folder, "back-%d.dcm" % count))
                result = convert(plain, packed[-1], name, "--threads", count)
                result = convert(packed[-1], back[-1], "explicit", "--threads", 8 - count) if result.returncode == 0 else result
                check(result.returncode == 0, "%s on %d threads: %s" % (what, count, result.stderr))
            contents = {open(p, "rb").read() for p in packed} if name in LOSSLESS else {tail(p, size) for p in back}
            check(len(contents) == 1, what + ": threads change the result")
            check(name not in LOSSLESS or tail(back[0], size) == tail(plain, size), what + ": not lossless")
            convert(packed[0], deflated, "deflated")
            convert(deflated, flat, "explicit")
            check(tail(back[0], size) == tail(flat, size), what + ": another way gives another result")
            lossy = run(VEXAL, "dump", "--tag", "LossyImageCompressionMethod", packed[0]).stdout
            check((b"ISO_1" in lossy) == (name not in LOSSLESS), "%s: %s" % (what, lossy))


def icons(folder):
    """Compressed icons lose their compression with the image, or when it gets another one."""
    plain, packed, made, out = (os.path.join(folder, n) for n in ("plain.dcm", "packed.dcm", "made.dcm", "out.dcm"))
    size = make_image(plain, 1, 64, 64)
    check(convert(plain, packed, "jpeg-lossless").returncode == 0, "jpeg-lossless")
    content = open(packed, "rb").read()
    pixels = content.index(b"\xE0\x7F\x10\0OB")
    item = content[content.index(b"\x28\0\2\0US"):]
    sequence = struct.pack("<HH2sxxI", 0x88, 0x200, b"SQ", 0xFFFFFFFF) + b"\xFE\xFF\0\xE0\xFF\xFF\xFF\xFF" + item
    open(made, "wb").write(content[:pixels] + sequence + b"\xFE\xFF\x0D\xE0\0\0\0\0\xFE\xFF\xDD\xE0\0\0\0\0" + content[pixels:])
    for to in ("explicit", "rle"):
        check(convert(made, out, to).returncode == 0, "with an icon to " + to)
        value = b"\xE0\x7F\x10\0OW\0\0" + struct.pack("<I", size) + tail(plain, size)
        check(open(out, "rb").read().count(value) == (2 if to == "explicit" else 1), "the icon on the way to " + to)


def refusals(folder):
    """What can not be converted is refused with the reason, and nothing is left behind."""
    if not REAL_SAMPLES:
        return left_out("conversions that are refused", "samples")
    out = os.path.join(folder, "out.dcm")
    for sample, reason in {
            "enc/tiny-defined-bot-2-to-1.dcm": b"no stream of this codec",
            "enc/j2k91-embedded-delimiter.dcm": b"too large",
            "made/ts-mpeg2-100.dcm": b"1.2.840.10008.1.2.4.100",
            "made/broken-native-in-encaps-ts.dcm": b"not encapsulated"}.items():
        result = run(VEXAL, "convert", "--to", "explicit", os.path.join(SAMPLES, sample), out)
        check(result.returncode == 2 and reason in result.stderr, "%s: %s" % (sample, result.stderr))
    for sample in ("ts/ct-jpeg-progressive-55.dcm", "ts/ct-jpeg-spectral-53.dcm"):
        check(convert(os.path.join(SAMPLES, sample), os.path.join(folder, "fine.dcm"), "explicit").returncode == 0, sample)
    check(not os.path.exists(out), "a refused conversion leaves a file")
    # Frames that are deflated one by one.
    sample = os.path.join(SAMPLES, "enc/seg-deflated-frame-unknown-ts.dcm")
    content, frames = open(sample, "rb").read(), b""
    at = content.rindex(b"\xE0\x7F\x10\0OB") + 12
    while content[at:at + 4] == b"\xFE\xFF\0\xE0":
        length = int.from_bytes(content[at + 4:at + 8], "little")
        frames += zlib.decompressobj(-15).decompress(content[at + 8:at + 8 + length]) if length > 64 else b""
        at += 8 + length
    check(convert(sample, out, "explicit").returncode == 0 and len(frames) == 98304 and tail(out, 98304) == frames, sample)


# ---- Kills and full disks ----


def temp_folders(folder):
    return [os.path.join(folder, n) for n in os.listdir(folder) if n.startswith("vexal-tmp-")]


def make_deflated(path):
    """A value that is larger than what stays in memory."""
    frames = 40
    meta, body = head_of_image(frames, 1024, 1024, 16, b"1.2.3.8", DEFLATED)
    packer = zlib.compressobj(1, zlib.DEFLATED, -15)
    with open(path, "wb") as file:
        file.write(meta + packer.compress(body))
        for n in range(frames):
            file.write(packer.compress(bytes([n, 1]) * MEBI))
        file.write(packer.flush())


def wait_for(condition, process):
    while not condition():
        if process.poll() is not None:
            return False
        time.sleep(0.002)
    return True


def kills(folder):
    out, temporary = os.path.join(folder, "out"), os.path.join(folder, "tmp")
    os.mkdir(out)
    os.mkdir(temporary)
    plain, packed, small, deflated = (os.path.join(folder, n + ".dcm") for n in ("plain", "packed", "small", "deflated"))
    make_image(plain, 200)
    make_image(small, 1, 16, 16)
    make_deflated(deflated)
    check(convert(plain, packed, "rle").returncode == 0, "rle")
    environment = dict(os.environ, TMPDIR=temporary)
    target = os.path.join(out, "image.dcm")

    def start(source, to):
        command = [VEXAL, "convert", "--quiet", "--to", to, source, target]
        return subprocess.Popen(command, env=environment, stderr=subprocess.PIPE)

    def large_value():
        files = [os.path.join(f, n) for f in temp_folders(temporary) for n in os.listdir(f)]
        return any(os.path.getsize(f) > 4 * MEBI for f in files)

    moments = [(plain, "jpeg2000", 0.3), (packed, "explicit", 0.05), (packed, "jpeg-ls", 0.5), (deflated, "explicit", None),
               (deflated, "rle", None)]
    for before in (None, b"what was there"):
        for source, to, seconds in moments:
            if before is not None:
                open(target, "wb").write(before)
            victim = start(source, to)
            what = "%s to %s" % (os.path.basename(source), to)
            reached = wait_for(large_value if seconds is None else lambda: temp_folders(temporary), victim)
            time.sleep(seconds or 0)
            victim.kill()
            victim.communicate()
            check(reached and victim.returncode == -signal.SIGKILL, "%s: done before the kill" % what)
            left = {name: open(os.path.join(out, name), "rb").read() for name in os.listdir(out)}
            check(left == ({} if before is None else {"image.dcm": before}), "%s, killed: leaves %s" % (what, list(left)))
            dead = temp_folders(temporary)
            check(len(dead) == 1 and os.stat(dead[0]).st_mode & 0o777 == 0o700, "%s, killed: folders %s" % (what, dead))
            check(convert(small, os.path.join(folder, "x.dcm"), "rle", env=environment).returncode == 0, "after a kill")
            check(not temp_folders(temporary), "%s, killed: the next start clears nothing" % what)
    # The folder of a living process stays, and it works on; so does the folder of somebody else.
    os.unlink(target)
    living = start(plain, "jpeg2000")
    check(wait_for(lambda: temp_folders(temporary), living), "no temporary folder")
    time.sleep(0.5)  # its lock comes a moment after it
    folders = temp_folders(temporary)
    check(convert(small, os.path.join(folder, "x.dcm"), "rle", env=environment).returncode == 0, "beside another")
    check(temp_folders(temporary) == folders, "the folder of a living process is gone")
    living.kill()
    living.communicate()
    link = os.path.join(temporary, "vexal-tmp-link")
    os.symlink(out, link)
    open(target, "wb").write(b"mine")
    convert(small, os.path.join(folder, "x.dcm"), "rle", env=environment)
    check(temp_folders(temporary) == [link] and os.listdir(out) == ["image.dcm"], "clears what a link points to")


def full_disks(folder):
    plain, packed, deflated = (os.path.join(folder, n + ".dcm") for n in ("plain", "packed", "deflated"))
    make_image(plain, 60)
    make_deflated(deflated)
    check(convert(plain, packed, "jpeg-lossless").returncode == 0, "jpeg-lossless")
    small, wide = os.path.join(folder, "small"), os.path.join(folder, "wide")
    os.mkdir(small)
    os.mkdir(wide)

    def refused(where, source, to, temporary, reason, **limits):
        target = os.path.join(where, "out.dcm")
        for before in (None, b"what was there"):
            if before is not None:
                open(target, "wb").write(before)
            result = convert(source, target, to, env=dict(os.environ, TMPDIR=temporary), **limits)
            what = "%s to %s, %s" % (os.path.basename(source), to, reason.decode())
            check(result.returncode == 2 and reason in result.stderr, "%s: %s %s" % (what, result.returncode, result.stderr[-300:]))
            left = {name: open(os.path.join(where, name), "rb").read() for name in os.listdir(where) if name.endswith(".dcm")}
            check(left == ({} if before is None else {"out.dcm": before}), "%s: leaves %s" % (what, list(left)))
            check(not temp_folders(temporary), what + ": a temporary folder stays")
        os.unlink(target)

    def limit():
        resource.setrlimit(resource.RLIMIT_FSIZE, (2 * MEBI, 2 * MEBI))

    for source, to in ((packed, "explicit"), (plain, "rle"), (plain, "implicit")):
        refused(wide, source, to, folder, b"File too large", preexec_fn=limit)
    if os.geteuid() != 0 or run("mount", "-t", "tmpfs", "-o", "size=2m", "none", small).returncode != 0:
        return print("  tmpfs left out: not root, or there is none")
    try:
        refused(small, packed, "explicit", folder, b"No space left")
        refused(small, plain, "rle", folder, b"No space left")
        refused(wide, plain, "jpeg-ls-near", small, b"No space left")
        refused(wide, deflated, "explicit", small, b"Temporary file")
        refused(wide, deflated, "rle", small, b"Temporary file")
    finally:
        run("umount", small)


# ---- Peers ----


def serve(command, port, folder):
    process = subprocess.Popen([str(c) for c in command], cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    return wait_for_listener(process, port)


def stored(folder):
    """Files by their instance, whatever the receiver calls them, and the syntax of each."""
    found = {}
    for root, _, names in os.walk(folder):
        for path in (os.path.join(root, name) for name in names):
            head = open(path, "rb").read(1024)
            uids = [e[8:8 + e[6]].strip(b"\0").decode() for e in (b"UI".join(x) for x in zip(
                (head[i - 4:i] for i in range(132, 600) if head[i:i + 2] == b"UI" and head[i - 4:i - 2] == b"\2\0"),
                (head[i + 2:] for i in range(132, 600) if head[i:i + 2] == b"UI" and head[i - 4:i - 2] == b"\2\0")))][1:3]
            found[uids[0]] = (path, uids[1])
    return found


def peers(folder):
    if not has("storescp", "conversions on the way to a peer"):
        return
    sources = os.path.join(folder, "in")
    os.mkdir(sources)
    plain, sent = os.path.join(folder, "plain.dcm"), {}
    size = make_image(plain, 5, 64, 64)
    for n, name in enumerate(LOSSLESS):
        make_image(plain, 5, 64, 64, 16, b"1.2.3.7.%d" % n)
        sent["1.2.3.7.%d" % n] = name
        check(convert(plain, os.path.join(sources, name + ".dcm"), name).returncode == 0, name)
    pixels = tail(plain, size)
    # A code stream that is none: it can be stored, and not converted.
    broken = bytearray(open(os.path.join(sources, "jpeg-ls.dcm"), "rb").read())
    broken[broken.rindex(b"\xFF\xD8\xFF"):][:2] = b""
    at = broken.rindex(b"\xFF\xD8\xFF")
    broken[at:at + 64] = bytes(64)
    uid = broken.replace(b"1.2.3.7.2", b"1.2.3.8.2")
    broken_path = os.path.join(folder, "broken.dcm")
    open(broken_path, "wb").write(uid)
    for option, syntax in (("+xi", "1.2.840.10008.1.2"), ("+xe", "1.2.840.10008.1.2.1")):
        out, port = os.path.join(folder, "theirs" + option), free_port()
        os.mkdir(out)
        server = serve(["storescp", option, "+B", "-od", out, port], port, folder)
        result = run(VEXAL, "store", "127.0.0.1", port, sources, broken_path)
        check(result.returncode == 1 and b"frame 5" in result.stderr, "store with one broken file: %s" % result.stderr[-500:])
        found = stored(out)
        check(set(found) == set(sent), "storescp %s got %s" % (option, sorted(found)))
        for instance, (path, uid) in found.items():
            check(uid == syntax and tail(path, size) == pixels, "storescp %s: %s arrived as %s" % (option, sent[instance], uid))
        result = run(VEXAL, "store", "127.0.0.1", port, "--no-convert", sources)
        check(result.returncode in (1, 3) and len(stored(out)) == len(sent), "store --no-convert to %s" % option)
        server.terminate()
        server.communicate(timeout=15)
    # A peer that takes compressed files gets them as they are, and ours turns what comes into what was asked for.
    port, out = free_port(), os.path.join(folder, "ours")
    server = serve([VEXAL, "receive", port, "--dir", out, "--to", "jpeg-ls", "--tree"], port, folder)
    for name, option in (("rle", "-xr"), ("jpeg-lossless", "-xs"), ("jpeg-ls", "-xt"), ("jpeg2000", "-xv")):
        result = run("storescu", "-R", "-nh", option, "-aec", "VEXAL", "127.0.0.1", port, os.path.join(sources, name + ".dcm"))
        check(result.returncode == 0, "storescu %s: %s" % (option, result.stderr[-300:]))
    run("storescu", "-R", "-xe", "-aec", "VEXAL", "127.0.0.1", port, plain)
    server.terminate()
    server.communicate(timeout=15)
    found = stored(out)
    check(set(found) == set(sent), "receive --to got %s" % sorted(found))
    back = os.path.join(folder, "back.dcm")
    for instance, (path, uid) in found.items():
        check(uid == LOSSLESS["jpeg-ls"] and convert(path, back, "explicit").returncode == 0 and tail(back, size) == pixels,
              "receive --to jpeg-ls: %s became %s" % (sent[instance], uid))
    port, out = free_port(), os.path.join(folder, "plain")
    server = serve([VEXAL, "receive", port, "--dir", out, "--to", "explicit"], port, folder)
    check(run(VEXAL, "store", "127.0.0.1", port, sources, broken_path).returncode == 0, "store to receive --to explicit")
    server.terminate()
    told = server.communicate(timeout=15)[1]
    found = stored(out)
    check(found.pop("1.2.3.8.2", ("", ""))[1] == LOSSLESS["jpeg-ls"] and b"as it came" in told, "a broken object is not kept as it came")
    check(set(found) == set(sent) and all(uid == EXPLICIT.decode() and tail(path, size) == pixels for path, uid in found.values()),
          "receive --to explicit got %s" % found)
    check(run(VEXAL, "receive", free_port(), "--to", "jpeg").returncode == 2, "receive --to a lossy syntax")


sys.exit(run_parts(memory, looks, threads, icons, refusals, kills, full_disks, peers))
