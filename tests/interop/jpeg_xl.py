#!/usr/bin/env python3
"""JPEG XL beside another encoder and decoder of it: their streams decode to the same pixels here, and ours there; JPEG streams
go into it and come back byte by byte; what is cut is noticed, and never the end of the program.

usage: jpeg_xl.py VEXAL SAMPLES
Exit 77 (skipped) where the peers, pydicom or numpy are missing.
"""
import itertools
import os
import shutil
import struct
import sys

from checks import VEXAL, check, files_under, has, need, paths, read, run, run_parts, valid_samples, vexal, write

need("cjxl", "djxl", modules=["pydicom", "numpy"])
import numpy
import pydicom
import pydicom.encaps

from pictures import read_pnm
from pixels import Image, distance, expect, samples_of, save_frames

UIDS = {"jpeg-xl": "1.2.840.10008.1.2.4.110", "jpeg-xl-recompressed": "1.2.840.10008.1.2.4.111", "jpeg-xl-lossy": "1.2.840.10008.1.2.4.112"}
JPEGS = {"1.2.840.10008.1.2.4.50", "1.2.840.10008.1.2.4.51", "1.2.840.10008.1.2.4.53", "1.2.840.10008.1.2.4.55"}
KEPT = "can not keep its JPEG stream"


def as_picture(image, path):
    head = b"P%d\n%d %d\n%d\n" % (5 if image.samples == 1 else 6, image.columns, image.rows, image.high)
    return write(path, head + image.pixels[0].astype(">u%d" % image.bytes).tobytes())


def by_peer(stream, image, folder):
    """The frame that the other decoder makes of a stream, in two's complement; None where it makes none."""
    source, out = paths(folder, "peer.jxl", "peer.pgm" if image.samples == 1 else "peer.ppm")
    write(source, stream)
    if run("djxl", source, out).returncode != 0 or not os.path.exists(out):
        return None
    values, top, high = read_pnm(out).astype(int), 255 if image.stored == 8 else 65535, (1 << image.stored) - 1
    os.remove(out)
    return (values * high + top // 2) // top  # it spreads them over all bits, whatever the head of the picture says


def frames_of(path):
    data = pydicom.dcmread(path)
    return list(pydicom.encaps.generate_pixel_data_frame(data.PixelData, int(data.get("NumberOfFrames", 1))))


def check_theirs(folder):
    """Each depth and each kind of coding, as their own decoder has it."""
    plain, packed, out, picture, stream = paths(folder, "plain", "packed", "out", "picture.pnm", "stream.jxl")
    images = [Image(33, 47, stored) for stored in range(8, 17)] + [Image(35, 40, 8, 0, "RGB"), Image(35, 300, 16, 0, "RGB"), Image(1, 37, 12)]
    options = [["-d", "0"], ["-d", "0", "-e", "7", "--container=1"], ["-d", "1"], ["-d", "3", "-m", "1"], ["-d", "1", "-p"], ["-d", "0", "-R", "1"]]
    for image, option in itertools.product(images, options):
        image.write(plain)
        run("cjxl", as_picture(image, picture), stream, *option)
        title = "%s %s" % (image.name, option)
        if not check(os.path.exists(stream), "no stream of " + title):
            continue
        for name in ("jpeg-xl", "jpeg-xl-lossy"):
            save_frames(pydicom.dcmread(plain), [read(stream)], packed, UIDS[name])
            expect(("convert", "--to", "explicit", packed, out))
            got = samples_of(out, image)
            apart = distance(None if got is None else got[0], by_peer(read(stream), image, folder))
            check(apart <= (0 if option[1] == "0" else 1), "%s, %s: %d apart" % (title, name, apart))
        os.remove(stream)


def check_ours(folder):
    plain, packed, out = paths(folder, "plain", "packed", "out")
    images = [Image(*size, 12) for size in [(1, 1), (1, 37), (37, 1), (5, 7), (64, 64), (300, 7), (3, 2100)]]
    images += [Image(33, 47, stored, signed) for stored in range(8, 17) for signed in (0, 1)]
    images += [Image(19, 40, stored, 0, kind, planar) for stored, kind in ((8, "RGB"), (16, "RGB"), (8, "YBR_FULL")) for planar in (0, 1)]
    images += [Image(20, 21, 8, 0, "PALETTE COLOR"), Image(21, 22, 12, 1, frames=3)]
    for image, name in itertools.product(images, ("jpeg-xl", "jpeg-xl-lossy")):
        image.write(plain)
        lossy, title = name == "jpeg-xl-lossy", "%s as %s" % (image.name, name)
        if lossy and image.photometric == "PALETTE COLOR":
            expect(("convert", "--to", name, plain, packed), 2, "palette")
            continue
        expect(("convert", "--to", name, plain, packed))
        data, before = pydicom.dcmread(packed), pydicom.dcmread(plain)
        lossy = lossy and not image.signed  # signs are not put at risk
        check(str(data.file_meta.TransferSyntaxUID) == UIDS[name], "the transfer syntax of " + title)
        check(data.PhotometricInterpretation == ("XYB" if lossy and image.photometric == "RGB" else image.photometric), "the colour of " + title)
        check((data.get("LossyImageCompressionMethod") == "ISO_18181_1") == lossy, "the loss of " + title)
        check((data.SOPInstanceUID != before.SOPInstanceUID) == lossy, "the instance of " + title)
        expect(("convert", "--to", "explicit", packed, out))
        ours = samples_of(out, image)
        size = (image.high - image.low) / 255
        apart = distance(ours, image.pixels)
        check(numpy.abs(ours - image.pixels).mean() < 20 * size if lossy else apart == 0, "%s comes back %d apart" % (title, apart))
        for number, stream in enumerate(frames_of(packed)):
            check(stream.startswith(b"\xFF\x0A"), "%s is no bare code stream" % title)
            theirs = by_peer(stream, image, folder)
            mine = None if ours is None else ours[number] & ((1 << image.stored) - 1)
            check(distance(theirs, mine) <= (size + 1 if lossy else 0), "%s: the peer is %d apart" % (title, distance(theirs, mine)))


def jpeg_files(folder):
    """Files of samples, and made ones: colour in every sampling, progressive, restart intervals, odd sizes, a pad behind the end."""
    for path in (path for name, path in valid_samples() if "jpeg" in name):
        data = pydicom.dcmread(path, stop_before_pixels=True)
        if str(getattr(data.file_meta, "TransferSyntaxUID", "")) in JPEGS and data.BitsStored == 8:
            yield path
    for image in (Image(33, 47, 8, frames=5), Image(35, 41, 8, 0, "RGB", frames=2), Image(1, 1, 8)):
        image.write(os.path.join(folder, "plain"))
        vexal("convert", "--quiet", "--to", "jpeg", os.path.join(folder, "plain"), os.path.join(folder, image.name))
        yield os.path.join(folder, image.name)
        picture, jpeg = paths(folder, "picture.ppm", "other.jpg")
        as_picture(image, picture)
        for option in (["-progressive"], ["-restart", "1"], ["-optimize"], ["-sample", "2x2"]) if has("cjpeg", "JPEG streams of another encoder") else []:
            run("cjpeg", *option, "-outfile", jpeg, picture)
            progressive = option == ["-progressive"]
            for pad in (b"", b"\0\0", b"\0\0\0"):
                target, stream = os.path.join(folder, "other%s%d" % (option[0], len(pad))), read(jpeg) + pad
                data = pydicom.dcmread(os.path.join(folder, "plain"))
                data.PhotometricInterpretation = "MONOCHROME2" if image.samples == 1 else "YBR_FULL"
                save_frames(data, [stream + b"\0" * (len(stream) % 2)] * image.frames, target, "1.2.840.10008.1.2.4.%d" % (55 if progressive else 50))
                yield target


def check_recompression(folder):
    """There and back on one thread and on several: the same bytes, the same attributes; the pixels of the JPEG stream on the way."""
    count, packed, back, a, b = 0, *paths(folder, "packed", "back", "a", "b")
    for path in jpeg_files(folder):
        before, refused = pydicom.dcmread(path), run(VEXAL, "convert", "--threads", "4", "--to", "jpeg-xl-recompressed", path, packed)
        uid = str(before.file_meta.TransferSyntaxUID)
        if refused.returncode != 0:
            check(KEPT in refused.stderr and uid[-2:] in ("53", "55"), "%s: %s" % (path, refused.stderr))
            continue
        expect(("convert", "--threads", "1", "--to", uid, packed, back))
        between, after = pydicom.dcmread(packed), pydicom.dcmread(back)
        count += 1
        check(frames_of(path) == frames_of(back), "%s: other bytes" % path)
        for data in (between, after):
            changed = [e.tag for e in before if e.tag not in (0x7FE00010, 0x7FE00001, 0x7FE00002) and e.tag.element and (e.tag not in data or data[e.tag] != e)]
            check(not changed, "%s: changed %s" % (path, changed))
        for source, target in ((path, a), (packed, b)):
            vexal("convert", "--quiet", "--to", "explicit", source, target)
        check(read(a) == read(b), "%s: other pixels" % path)
    check(count > 10, "only %d files" % count)


def check_refusals(folder):
    """What is no JPEG of 8 bits, is broken, or comes not back; the frame is named."""
    plain, packed, out = paths(folder, "plain", "packed", "out")
    for image in (Image(20, 30, 12), Image(20, 30, 12, frames=3)):
        image.write(plain)
        expect(("convert", "--to", "jpeg-xl-recompressed", plain, out), 2, "keeps JPEG streams")
        vexal("convert", "--quiet", "--to", "jpeg-12", plain, packed)
        expect(("convert", "--to", "jpeg-xl-recompressed", packed, out), 2, KEPT)
    image = Image(40, 50, 8, frames=3)
    image.write(plain)
    vexal("convert", "--quiet", "--to", "jpeg", plain, packed)
    frames, data = frames_of(packed), pydicom.dcmread(plain)
    broken = frames[1][:len(frames[1]) // 2 & ~1]
    save_frames(data, [frames[0], broken, frames[2]], packed, "1.2.840.10008.1.2.4.50")
    expect(("convert", "--to", "jpeg-xl-recompressed", packed, out), 2, "frame 2")
    vexal("convert", "--quiet", "--to", "jpeg-xl", plain, packed)
    streams = frames_of(packed)
    save_frames(data, streams, packed, UIDS["jpeg-xl-recompressed"])
    expect(("convert", "--to", "jpeg", packed, out), 2, "rebuilt")
    expect(("convert", "--to", "explicit", packed, out))
    check(distance(samples_of(out, image), image.pixels) == 0, "a stream without JPEG is decoded")
    picture, alpha = paths(folder, "picture.pam", "alpha.jxl")
    write(picture, b"P7\nWIDTH 50\nHEIGHT 40\nDEPTH 2\nMAXVAL 255\nTUPLTYPE GRAYSCALE_ALPHA\nENDHDR\n" + image.pixels[0:2].tobytes()[:4000])
    run("cjxl", "-d", "0", picture, alpha)
    other = Image(41, 50, 8)
    run("cjxl", "-d", "0", as_picture(other, picture + ".pgm"), alpha + ".other")
    for stream, place in ((streams[0][:len(streams[0]) // 2 & ~1], "frame 1"), (read(alpha), "frame 1"), (read(alpha + ".other"), "frame 2")):
        save_frames(data, [stream, *streams[1:]], packed, UIDS["jpeg-xl"])
        expect(("convert", "--to", "explicit", packed, out), 2, place)


def check_comments(folder):
    """What a container tells beside its image does not go on with a file that is de-identified."""
    plain, packed, out = paths(folder, "plain", "packed", "out")
    image = Image(20, 30, 8)
    image.write(plain)
    vexal("convert", "--quiet", "--to", "jpeg-xl", plain, packed)
    box = lambda kind, content: struct.pack(">I", 8 + len(content)) + kind + content
    told = b"taken of Somebody^Else"
    stream = box(b"JXL ", b"\r\n\x87\n") + box(b"ftyp", b"jxl \0\0\0\0jxl ") + box(b"xml ", told) + box(b"jxlc", frames_of(packed)[0])
    save_frames(pydicom.dcmread(plain), [stream + b"\0" * (len(stream) % 2)], packed, UIDS["jpeg-xl"])
    vexal("convert", "--quiet", "--to", "jpeg", plain, plain + ".jpeg")
    vexal("convert", "--quiet", "--to", "jpeg-xl-recompressed", plain + ".jpeg", plain + ".kept")
    vexal("convert", "--quiet", "--to", "explicit", plain + ".jpeg", plain + ".back")
    for source, uid, expected in ((packed, UIDS["jpeg-xl"], plain), (plain + ".kept", "1.2.840.10008.1.2.1", plain + ".back")):
        vexal("deidentify", source, "-o", out)
        made = files_under(out)
        check(len(made) == 1 and told not in read(made[0]), "%s: a comment went out" % source)
        check(str(pydicom.dcmread(made[0]).file_meta.TransferSyntaxUID) == uid, "%s: another transfer syntax" % source)
        expect(("convert", "--to", "explicit", made[0], plain + ".out"))
        check(distance(samples_of(plain + ".out", image), samples_of(expected, image)) == 0, "%s: other pixels" % source)
        shutil.rmtree(out)


if __name__ == "__main__":
    sys.exit(run_parts(check_theirs, check_ours, check_recompression, check_refusals, check_comments, chosen=sys.argv[3:]))
