#!/usr/bin/env python3
"""High-Throughput JPEG 2000 beside another encoder and another decoder of it: their streams decode to the same pixels here, and
ours there; what is cut or changed is noticed or decoded, and never the end of the program.

usage: high_throughput.py VEXAL
Exit 77 (skipped) where the peers, pydicom or numpy are missing.
"""
import itertools
import os
import random
import sys

from checks import check, fail, has, need, paths, read, run, run_parts, vexal, write

need("ojph_compress", "ojph_expand", modules=["pydicom", "numpy"])
import numpy
import pydicom
import pydicom.encaps

from pictures import read_pnm
from pixels import Image, distance, expect, samples_of, save_frames

UIDS = {"htj2k": "1.2.840.10008.1.2.4.201", "htj2k-rpcl": "1.2.840.10008.1.2.4.202", "htj2k-lossy": "1.2.840.10008.1.2.4.203"}


def as_input(image, path):
    """For the other encoder: a picture file, or bare planes with what describes them."""
    if not image.signed:
        path += ".pgm" if image.samples == 1 else ".ppm"
        head = b"P%d %d %d %d\n" % (5 if image.samples == 1 else 6, image.columns, image.rows, image.high)
        write(path, head + image.pixels.astype(">u%d" % image.bytes).tobytes())
        return ["-i", path]
    write(path + ".yuv", image.pixels.transpose(0, 3, 1, 2).astype(image.dtype()).tobytes())
    return ["-i", path + ".yuv", "-dims", "{%d,%d}" % (image.columns, image.rows), "-num_comps", "%d" % image.samples,
            "-signed", ",".join(["true"] * image.samples), "-bit_depth", ",".join(["%d" % image.stored] * image.samples),
            "-downsamp", ",".join(["{1,1}"] * image.samples)]


def by_peer(stream, image, folder):
    """The frame that the other decoder makes of a stream; None where it makes none."""
    source, out = paths(folder, "peer.j2c", "peer.raw" if image.signed else "peer.pgm" if image.samples == 1 else "peer.ppm")
    write(source, stream)
    if run("ojph_expand", "-i", source, "-o", out).returncode != 0 or not os.path.exists(out):
        return None
    if not image.signed:
        values = read_pnm(out).astype(int)
    else:
        raw = numpy.fromfile(out, image.dtype()).astype(int)
        values = raw.reshape(image.samples, image.rows, image.columns).transpose(1, 2, 0)
    os.remove(out)
    return values


def frames_of(path):
    data = pydicom.dcmread(path)
    return list(pydicom.encaps.generate_pixel_data_frame(data.PixelData, int(data.get("NumberOfFrames", 1))))


def check_theirs(folder):
    """Every order of packets, size of blocks and tiles, number of halvings; with loss as far as they decode it themselves, and
    not where two rows are halved, of which that encoder makes something else each time."""
    plain, packed, out, stream = paths(folder, "plain", "packed", "out", "stream.j2c")
    images = [Image(33, 47, stored) for stored in range(8, 17)] + [Image(64, 65, 12, 1), Image(31, 30, 16, 1), Image(35, 40, 8, 0, "RGB"),
                                                                   Image(35, 40, 12, 0, "RGB"), Image(1, 37, 12), Image(70, 1, 8)]
    options = [["-prog_order", order] for order in ("LRCP", "RLCP", "RPCL", "PCRL", "CPRL")]
    options += [["-block_size", "{32,32}"], ["-block_size", "{4,256}"], ["-tile_size", "{16,20}", "-num_decomps", "3"], ["-num_decomps", "0"], ["-num_decomps", "3"],
                ["-precincts", "{64,64},{32,32}"]]
    for image, option in itertools.chain(((image, []) for image in images), ((Image(50, 61, 12), option) for option in options)):
        if image.signed:  # it reads bare planes without their sign
            image.pixels = image.pixels.clip(0)
        image.write(plain)
        for lossless in ("true", "false"):
            colour = [] if image.signed else ["-colour_trans", "true" if image.samples == 3 else "false"]  # bare planes take none
            run("ojph_compress", *as_input(image, plain), "-o", stream, "-reversible", lossless, *colour, *option)
            title = "%s %s, without loss: %s" % (image.name, option, lossless)
            if not check(os.path.exists(stream), "no stream of " + title):
                continue
            expected = image.pixels[0] if lossless == "true" else by_peer(read(stream), image, folder)
            for uid in UIDS.values() if not option else [UIDS["htj2k"]]:
                save_frames(pydicom.dcmread(plain), [read(stream)], packed, uid)
                expect(("convert", "--to", "explicit", packed, out))
                got = samples_of(out, image)
                if lossless == "false" and (image.signed or min(image.rows, image.columns) == 1):  # theirs has no sign, and is wrong in lines
                    continue
                apart = distance(None if got is None else got[0], expected)
                check(apart <= (0 if lossless == "true" else 2), "%s, %s: %d apart" % (title, uid, apart))
            os.remove(stream)


def check_ours(folder):
    plain, packed, out = paths(folder, "plain", "packed", "out")
    sizes = [(1, 1), (1, 37), (37, 1), (2, 2), (5, 7), (64, 64), (65, 130), (300, 7), (3, 2100)]
    images = [Image(*size, 12) for size in sizes] + [Image(33, 47, stored, signed) for stored in range(8, 17) for signed in (0, 1)]
    images += [Image(19, 40, stored, 0, kind, planar) for stored, kind in ((8, "RGB"), (16, "RGB"), (8, "YBR_FULL")) for planar in (0, 1)]
    images += [Image(20, 21, 8, 0, "PALETTE COLOR"), Image(21, 22, 12, 1, frames=3)]
    for image, name in itertools.product(images, UIDS):
        image.write(plain)
        lossy, title = name == "htj2k-lossy", "%s as %s" % (image.name, name)
        if lossy and image.photometric == "PALETTE COLOR":
            expect(("convert", "--to", name, plain, packed), 2, "palette")
            continue
        expect(("convert", "--to", name, plain, packed))
        data = pydicom.dcmread(packed)
        check(str(data.file_meta.TransferSyntaxUID) == UIDS[name], "the transfer syntax of " + title)
        if image.photometric == "RGB":
            check(data.PhotometricInterpretation == ("YBR_ICT" if lossy else "YBR_RCT"), "the colour of " + title)
        if lossy:
            check(data.get("LossyImageCompressionMethod") == "ISO_15444_15" and data.get("LossyImageCompression") == "01", "the loss of " + title)
        expect(("convert", "--to", "explicit", packed, out))
        ours = samples_of(out, image)
        check(distance(ours, image.pixels) <= (8 if lossy else 0), "%s comes back %d apart" % (title, distance(ours, image.pixels)))
        for number, stream in enumerate(frames_of(packed)):
            if lossy and image.signed:
                continue
            theirs = by_peer(stream, image, folder)
            mine = None if ours is None else ours[number].clip(0)  # what is below, the other one writes as 0
            apart = distance(None if theirs is None else theirs.clip(0, image.high), mine)
            check(apart <= (2 if lossy else 0), "%s: the peer is %d apart" % (title, apart))


def check_damage(folder):
    """Each cut, and changes of each byte: the program ends, and says so where it noticed."""
    plain, source, target = paths(folder, "plain", "source", "target")
    image, chance = Image(40, 37, 12), random.Random(5)
    image.write(plain)
    vexal("convert", "--quiet", "--to", "htj2k", plain, plain + ".packed")
    stream, data = frames_of(plain + ".packed")[0].rstrip(b"\0"), pydicom.dcmread(plain)
    variants = {"cut%05d" % size: stream[:size] for size in range(2, len(stream) - 2, 2)}
    for at in range(len(stream)):
        variants["byte%05d" % at] = stream[:at] + bytes([stream[at] ^ 1 << chance.randrange(8)]) + stream[at + 1:]
    os.makedirs(source)
    for name, content in variants.items():
        save_frames(data, [content + bytes(len(content) % 2)], os.path.join(source, name), UIDS["htj2k"])
    result = run(vexal_program(), "convert", "--quiet", "--to", "explicit", source, target)
    check(result.returncode in (1, 2), "damaged streams: exit %d" % result.returncode)
    made = set(os.listdir(target)) if os.path.isdir(target) else set()
    silent = [name for name in made if name.startswith("cut")]
    check(not silent, "cut streams decode: %s" % silent[:5])
    return len(made)


def vexal_program():
    return os.path.abspath(sys.argv[1])


if __name__ == "__main__":
    sys.exit(run_parts(check_theirs, check_ours, check_damage, chosen=sys.argv[3:]))
