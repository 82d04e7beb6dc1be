#!/usr/bin/env python3
"""What vexal pixel render shows, against pictures that are worked out here and those of dcmtk.

usage: rendering.py VEXAL
Exit 77 (skipped) where pydicom or numpy are missing.
"""
import colorsys
import os
import struct
import sys

from checks import check, ended, has, need, paths, read, run, run_parts, vexal, write
from made import Writer, description, head, tail

need(modules=["pydicom", "numpy"])
import numpy
import pydicom
from pydicom.dataset import Dataset, FileMetaDataset

from pictures import picture_of, read_by_ffmpeg, read_png, read_pnm

KIND = "1.2.840.10008.5.1.4.1.1.7"


def image(path, pixels, *more, photometric="MONOCHROME2", stored=None, planar=0, halved=False):
    """A file of pixels by row and column, and colour, whose differences two pixels may share; elements of more go in at their places."""
    w = Writer()
    stored = stored or 8 * pixels.itemsize
    samples = pixels.shape[2] if pixels.ndim == 3 else 1
    parts = description(w, *pixels.shape[:2], 8 * pixels.itemsize, stored, samples, 1, int(pixels.dtype.kind == "i"), planar, photometric)
    if halved:
        pixels = numpy.concatenate([pixels[:, ::2, :1], pixels[:, 1::2, :1], pixels[:, ::2, 1:]], 2)
    value = (pixels.transpose(2, 0, 1) if planar else pixels).tobytes()
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
    deep = image(folder + "/deep", random.integers(0, 65536, (37, 301)).astype("<u2"))
    vexal("pixel", "render", "--bits", "16", "--window-number", "0", deep, png)
    vexal("pixel", "render", "--bits", "16", "--window-number", "0", deep, tiff)
    check(not ffmpeg or (read_by_ffmpeg(tiff, 1, 16) == read_png(png).reshape(-1)).all(), "a TIFF file of 16 bits")
    for suffix in ("png", "jpg", "tif"):
        limit = ["bash", "-c", 'ulimit -f 8; trap "" XFSZ; exec "$@"', "bash"]
        target = folder + "/full/o." + suffix
        os.makedirs(folder + "/full", exist_ok=True)
        result = run(*limit, sys.argv[1], "pixel", "render", colour, target)
        check(result.returncode == 2 and b"can not write" in result.stderr and not os.listdir(folder + "/full"),
              "a full disk and %s: %s" % (suffix, result))



def put(data, attributes):
    """Tables are unsigned, which pydicom leaves open."""
    for name, value in attributes.items():
        if name == "LUTData" or name.endswith("Descriptor"):
            data.add_new(name, "US", value)
        else:
            setattr(data, name, value)
    return data


def changed(path, **attributes):
    """The image with these attributes."""
    put(pydicom.dcmread(path), attributes).save_as(path + ".changed")
    return path + ".changed"


def apart(a, b):
    return 999 if a.shape != numpy.shape(b) else abs(a - b).max()


def items(*sets):
    return [put(Dataset(), values) for values in sets]


def level_of(values, form, center, width):
    if form == "SIGMOID":
        return 1 / (1 + numpy.exp(numpy.clip(-4 * (values - center) / width, -700, 700)))
    middle, span = (center - 0.5, width - 1) if form == "LINEAR" else (center, width)
    return numpy.clip((values - middle) / span + 0.5, 0, 1)


def check_grey(folder):
    """Every depth, sign and window, with tables and without, in 8 and 16 bits; padding is black and has no say."""
    random = numpy.random.default_rng(2)
    path = folder + "/image"
    for stored, kind in [(8, "u1"), (8, "i1"), (12, "<u2"), (16, "<u2"), (16, "<i2"), (13, "<i2"), (20, "<u4")]:
        low = -(1 << stored - 1) if "i" in kind else 0
        pixels = random.integers(low, low + (1 << stored), (61, 53)).astype(kind)
        image(path, pixels, stored=stored)
        for form in ("LINEAR", "LINEAR_EXACT", "SIGMOID"):
            shown = dict(RescaleSlope="1.5", RescaleIntercept="-100", WindowCenter="33.5", WindowWidth="77", VOILUTFunction=form)
            want = level_of(pixels * 1.5 - 100, form, 33.5, 77)
            for photometric, bits in (("MONOCHROME2", 8), ("MONOCHROME1", 16)):
                got = picture_of(changed(path, PhotometricInterpretation=photometric, **shown), folder, "--bits", bits)[..., 0]
                top = (1 << bits) - 1
                check(apart(got, top * (want if bits == 8 else 1 - want)) <= 0.5001, "%s %d %s: %s apart" % (kind, stored, form, apart(got, top * want)))
        padded = pixels.copy()
        padded[:20] = low + 7
        image(path, padded, stored=stored)
        data = pydicom.dcmread(path)
        data.add_new(0x00280120, "SS" if low else "US", (low if stored <= 16 else 0) + 5)
        data.add_new(0x00280121, "SS" if low else "US", (low if stored <= 16 else 0) + 9)
        data.save_as(path)
        inside = padded[20:].astype(int)
        shown = inside[(inside < low + 5) | (inside > low + 9)]
        padded = padded.astype(int)
        want = numpy.where((padded >= low + 5) & (padded <= low + 9), 0, (padded - shown.min()) / (shown.max() - shown.min()))
        check(apart(picture_of(path, folder)[..., 0], 255 * want) <= 0.5001, "padding of %s %d" % (kind, stored))
    for kind, shape in [(kind, shape) for kind in ("<u4", "<i4", "<f4", "<f8", "<i2", "u1") for shape in ((1, 17), (17, 1), (1, 1), (7, 13))]:
        size = numpy.dtype(kind).itemsize
        pixels = (random.random(shape) * 2000 - (0 if "u" in kind else 1000)).astype(kind) if size > 1 else random.integers(0, 256, shape).astype(kind)
        w = Writer()
        signed, values = int("i" in kind), pixels.tobytes()
        element = {"<f4": (0x7FE00008, "OF"), "<f8": (0x7FE00009, "OD")}.get(kind, (0x7FE00010, "OW"))
        parts = description(w, *shape, 8 * size, 8 * size, 1, 1, signed)
        write(path, w.file(head(w, KIND) + tail(w) + parts + w.element(*element, values + bytes(len(values) % 2)), KIND))
        for bits in (8, 16):
            top = (1 << bits) - 1
            got = picture_of(path, folder, "--window", "100,900", "--bits", bits)[..., 0]
            check(apart(got, top * level_of(pixels.astype(float), "LINEAR", 100, 900)) <= 0.5001, "%s of %s, %d bits" % (kind, shape, bits))
            low, high = float(pixels.min()), float(pixels.max())
            want = (pixels.astype(float) - low) / (high - low) if high > low else numpy.full(shape, 0.5)
            check(apart(picture_of(path, folder, "--bits", bits)[..., 0], top * want) <= 0.5001 or high == low, "the range of %s of %s, %d bits" % (kind, shape, bits))
    ramp = numpy.arange(256, dtype="u1").reshape(16, 16)
    tables = items(*({"LUTDescriptor": [256, 0, 16], "LUTData": [(factor * i) & 65535 for i in range(256)]} for factor in (100, 257)))
    path = changed(image(path, ramp), VOILUTSequence=tables, WindowCenter="128", WindowWidth="256")
    for choice, want in (((), ramp), (("--voi-lut", 1), ramp * (100 / 257)), (("--voi-lut", 2), ramp)):
        check(apart(picture_of(path, folder, *choice)[..., 0], want) <= 1, "VOI LUT %s" % (choice,))
    vexal("pixel", "render", "--voi-lut", "3", path, folder + "/o.png", status=2, says="VOI LUT")
    vexal("pixel", "render", "--bits", "9", path, folder + "/o.png", status=2, says="8 or 16")


def check_colours(folder):
    """Palettes that supplement grey; ICC profiles, here one whose red and green are exchanged."""
    path = folder + "/image"
    ramp = numpy.arange(256, dtype="u1").reshape(16, 16)
    tables = {name + "PaletteColorLookupTable" + part: value for n, name in enumerate(("Red", "Green", "Blue")) for part, value in (
        ("Descriptor", [16, 240, 16]), ("Data", numpy.full(16, n * 0x5000, "<u2").tobytes()))}
    shown = dict(PixelPresentation="COLOR", WindowCenter="128", WindowWidth="256", **tables)
    want = numpy.repeat(ramp[..., None], 3, 2).astype(int)
    want[15] = (0, 0x50, 0xA0)
    check(apart(picture_of(changed(image(path, ramp), **shown), folder), want) == 0, "a supplemental palette")
    fixed = lambda *values: b"".join(struct.pack(">i", round(v * 65536)) for v in values)
    red, green, blue = (0.4361, 0.2225, 0.0139), (0.3851, 0.7169, 0.0971), (0.1431, 0.0606, 0.7141)
    parts = [(b"wtpt", b"XYZ \0\0\0\0" + fixed(0.9642, 1, 0.8249))]
    parts += [(name, b"XYZ \0\0\0\0" + fixed(*value)) for name, value in ((b"rXYZ", green), (b"gXYZ", red), (b"bXYZ", blue))]
    curve = b"para\0\0\0\0\0\3\0\0" + fixed(2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045)
    parts += [(name, curve) for name in (b"rTRC", b"gTRC", b"bTRC")]
    at, table, body = 132 + 12 * len(parts), b"", b""
    for name, value in parts:
        table += name + struct.pack(">II", at + len(body), len(value))
        body += value + bytes(-len(value) % 4)
    header = bytes(4) + b"test" + bytes.fromhex("04200000") + b"mntrRGB XYZ " + bytes(12) + b"acsp" + bytes(28) + fixed(0.9642, 1, 0.8249)
    profile = header + bytes(128 - len(header)) + struct.pack(">I", len(parts)) + table + body
    profile = struct.pack(">I", len(profile)) + profile[4:]
    pixels = numpy.random.default_rng(3).integers(0, 256, (33, 31, 3)).astype("u1")
    path = changed(image(path, pixels, photometric="RGB"), ICCProfile=profile)
    result = run(sys.argv[1], "pixel", "render", path, folder + "/picture.png")
    if result.returncode == 1 and b"needs liblcms2" in result.stderr:
        print("missing: liblcms2 (ICC profiles)")
        return
    check(apart(read_png(folder + "/picture.png"), pixels[..., [1, 0, 2]]) <= 2, "a profile: %s" % result)
    check(apart(picture_of(path, folder, "--no-icc"), pixels) == 0, "--no-icc")
    swapped, plain = pixels[..., [1, 0, 2]], image(folder + "/plain", pixels, photometric="RGB")
    made = state(folder + "/state", plain, COLOUR, ICCProfile=profile)
    check(apart(picture_of(plain, folder, "--presentation", made), swapped) <= 2, "the profile of a state in colour")
    ramps = {name + "PaletteColorLookupTable" + part: value for n, name in enumerate(("Red", "Green", "Blue"))
             for part, value in (("Descriptor", [256, 0, 8]), ("Data", ((ramp.reshape(-1) * (2 * n + 1)) % 256).astype("u1").tobytes()))}
    grey = image(folder + "/grey", ramp)
    bare, coloured = (state(folder + "/pseudo%d" % n, grey, PSEUDO, **ramps, **more) for n, more in enumerate(({}, {"ICCProfile": profile})))
    want = picture_of(grey, folder, "--presentation", bare)
    check(apart(picture_of(grey, folder, "--presentation", coloured), want[..., [1, 0, 2]]) <= 2, "the profile of a state in pseudo-colours")
    check(apart(picture_of(grey, folder, "--no-icc", "--presentation", coloured), want) == 0, "--no-icc with a state")
    two = changed(image(folder + "/two", numpy.concatenate([pixels, pixels]), photometric="RGB"), Rows=33, NumberOfFrames=2, OpticalPathSequence=items(
        {"OpticalPathIdentifier": "A"}, {"OpticalPathIdentifier": "B", "ICCProfile": profile}))
    named = changed(two, PerFrameFunctionalGroupsSequence=items(*({"OpticalPathIdentificationSequence": items({"OpticalPathIdentifier": name})} for name in "BA")))
    for file, wanted in ((two, (pixels, swapped)), (named, (swapped, pixels))):
        for frame in (1, 2):
            check(apart(picture_of(file, folder, "--frame", frame), wanted[frame - 1]) <= 2, "the profile of frame %d of %s" % (frame, file))
    for broken in (profile[:200], b"nothing ", profile[:16] + b"CMYK" + profile[20:]):
        got = picture_of(changed(path, ICCProfile=broken), folder, status=1, says="ICC profile")
        check(apart(got, pixels) == 0, "a broken profile changes colours")


FORWARD = {  # from red, green and blue, and where zero lies
    "RGB": (numpy.eye(3), (0, 0, 0)),
    "YBR_FULL": ([[.299, .587, .114], [-.168736, -.331264, .5], [.5, -.418688, -.081312]], (0, 128, 128)),
    "YBR_PARTIAL_422": ([[.2568, .5041, .0979], [-.1482, -.2910, .4392], [.4392, -.3678, -.0714]], (16, 128, 128)),
}


def check_colour_spaces(folder):
    """Each photometric interpretation at each depth and order, by the definitions and beside the peer."""
    peer = has("dcm2pnm", "colours")
    rgb = numpy.random.default_rng(4).integers(0, 256, (6, 10, 3)).repeat(2, 1).astype(float)  # so that pairs have one colour
    rgb[0, :4] = [(0, 0, 0), (0, 0, 0), (255, 255, 255), (255, 255, 255)]
    high = rgb.max(2)
    span = high - rgb.min(2)
    with numpy.errstate(divide="ignore", invalid="ignore"):
        red, green, blue = (rgb[..., c] for c in range(3))
        turn = numpy.select([span == 0, high == red, high == green], [0, (green - blue) / span % 6, (blue - red) / span + 2], (red - green) / span + 4)
        hsv = numpy.stack([turn * 255 / 6, numpy.where(high == 0, 0, span / high * 255), high], 2)
    for name, stored, planar in [("RGB", 8, 1), ("RGB", 6, 0), ("RGB", 12, 0), ("RGB", 16, 1), ("HSV", 8, 0), ("HSV", 16, 1), ("YBR_FULL", 8, 0), ("YBR_FULL", 8, 1),
                                 ("YBR_FULL", 12, 0), ("YBR_FULL", 16, 1), ("YBR_FULL_422", 8, 0), ("YBR_PARTIAL_422", 8, 0), ("YBR_PARTIAL_420", 8, 0)]:
        matrix, zero = FORWARD.get(name.replace("FULL_422", "FULL").replace("420", "422"), (None, None))
        values = hsv if name == "HSV" else rgb @ numpy.array(matrix).T + zero
        scale = 2 ** (stored - 8) if "YBR" in name else ((1 << stored) - 1) / 255
        pixels = (values * scale).round().clip(0, (1 << stored) - 1).astype("u1" if stored <= 8 else "<u2")
        path = image(folder + "/image", pixels, photometric=name, stored=stored, planar=planar, halved=name.endswith("422"))
        got = picture_of(path, folder, "--no-aspect")
        want = rgb
        if name == "HSV":  # of what rounding has left
            want = numpy.array([colorsys.hsv_to_rgb(*pixel) for pixel in pixels.reshape(-1, 3) / ((1 << stored) - 1)]).reshape(rgb.shape) * 255
        far = 1 if name == "HSV" else 2 if stored >= 8 else 3
        check(apart(got, want) <= far, "%s of %d bits: %s apart" % (name, stored, apart(got, want)))
        if peer and name != "YBR_PARTIAL_420":
            ended(run("dcm2pnm", "+op", path, folder + "/peer.pnm"), "dcm2pnm %s %d" % (name, stored))
            theirs = read_pnm(folder + "/peer.pnm").astype(int)
            check(apart(got, theirs) <= (5 if name == "HSV" else 2), "%s of %d bits: %s apart from the peer" % (name, stored, apart(got, theirs)))


def check_shape(folder):
    """Pixels come out square, and how large they are is told."""
    pixels = numpy.repeat(numpy.arange(0, 200, 10, dtype="u1")[None], 7, 0)
    path = image(folder + "/image", pixels)
    for attribute, want in (({"PixelAspectRatio": [2, 1]}, (14, 20)), ({"PixelSpacing": [0.5, 1.5]}, (7, 60)), ({"PixelSpacing": [0.5, 0.5]}, (7, 20)),
                            ({"PixelAspectRatio": [1, 65535]}, (7, 20)), ({"ImagerPixelSpacing": [3, 2]}, (11, 20))):
        changed_path = changed(path, **attribute)
        got = picture_of(changed_path, folder, "--window", "128,256")
        check(got.shape[:2] == want, "%s: %s" % (attribute, got.shape))
        check(abs(got[0, [0, -1], 0] - [0, 190]).max() == 0 and (numpy.diff(got[..., 0], axis=1) >= 0).all(), "%s: the ramp" % attribute)
        check(apart(picture_of(changed_path, folder, "--no-aspect", "--window", "128,256"), pixels[..., None]) == 0, "--no-aspect")
        check((b"pHYs" in open(folder + "/picture.png", "rb").read()) == ("PixelAspectRatio" not in attribute), "%s: size" % attribute)


def check_videos(folder):
    """Films by their names, with the frames in order and at their rate; nothing stays of one that fails."""
    path, out = folder + "/image", folder + "/films/film"
    os.makedirs(folder + "/films")
    stack = numpy.stack([numpy.full((33, 51), 20 * i, "u1") for i in range(10)])
    image(path, stack.reshape(330, 51))
    path = changed(path, Rows=33, NumberOfFrames=10, WindowCenter="128", WindowWidth="256")
    empty = {**os.environ, "PATH": "/nowhere"}
    vexal("pixel", "video", path, out + ".mp4", status=2, says="apt install ffmpeg", env=empty)
    vexal("pixel", "video", path, out + ".gif", status=2, says=".webm")
    vexal("pixel", "video", "--rate", "0", path, out + ".mp4", status=2, says="--rate")
    if not has("ffmpeg", "videos"):
        return
    data = pydicom.dcmread(path)
    data.PixelData = data.PixelData[:-100]
    data.save_as(folder + "/short")
    vexal("pixel", "video", folder + "/short", out + ".mp4", status=2, says="frame 10")
    vexal("pixel", "video", path, folder + "/nowhere/film.mp4", status=2)
    check(not os.listdir(folder + "/films"), "a film that failed leaves something")
    for suffix, more, options, rate in ((".mp4", {}, (), "25/1"), (".webm", {"FrameTime": "100"}, (), "10/1"), (".avi", {"CineRate": "8"}, ("--rate", "5"), "5/1"),
                                        (".mp4", {"CineRate": "8"}, (), "8/1")):
        vexal("pixel", "video", *options, changed(path, **more), out + suffix)
        told = run("ffprobe", "-v", "error", "-show_entries", "stream=width,height,avg_frame_rate", "-of", "csv=p=0", out + suffix).stdout.decode().strip()
        check(told == "52,34," + rate, "a film in %s: %s" % (suffix, told))
        shades = read_by_ffmpeg(out + suffix).reshape(-1, 34, 52)[:, 5:25, 5:45].mean((1, 2))
        check(len(shades) == 10 and abs(shades - numpy.arange(0, 200, 20)).max() < 6, "frames in %s: %s" % (suffix, shades))


# ---- Presentation states ----

GREY, COLOUR, PSEUDO, ANGIOGRAPHY = ("1.2.840.10008.5.1.4.1.1.11.%d" % n for n in (1, 2, 3, 5))


def state(path, of, kind=GREY, frames=None, **attributes):
    """A presentation state of an image."""
    data, source = Dataset(), pydicom.dcmread(of, stop_before_pixels=True)
    data.file_meta = FileMetaDataset()
    data.file_meta.TransferSyntaxUID, data.is_little_endian, data.is_implicit_VR = pydicom.uid.ExplicitVRLittleEndian, True, False
    data.file_meta.MediaStorageSOPClassUID = data.SOPClassUID = kind
    data.file_meta.MediaStorageSOPInstanceUID = data.SOPInstanceUID = source.SOPInstanceUID + ".1"
    data.Modality, data.StudyInstanceUID, data.SeriesInstanceUID = "PR", source.StudyInstanceUID, source.SeriesInstanceUID + ".1"
    data.PatientName, data.PatientID, data.ContentLabel = "Made^State", "1", "STATE"
    data.InstanceNumber, data.PresentationCreationDate, data.PresentationCreationTime, data.PatientBirthDate = 1, "20260101", "120000", ""
    data.StudyDate, data.StudyTime, data.StudyID, data.SeriesNumber, data.AccessionNumber = "20260101", "120000", "1", 1, ""
    data.PatientSex, data.ReferringPhysicianName, data.Manufacturer, data.ContentDescription, data.ContentCreatorName = "", "", "", "", ""
    reference = {"ReferencedSOPClassUID": source.SOPClassUID, "ReferencedSOPInstanceUID": source.SOPInstanceUID}
    if frames:
        reference["ReferencedFrameNumber"] = frames
    data.ReferencedSeriesSequence = items({"SeriesInstanceUID": source.SeriesInstanceUID, "ReferencedImageSequence": items(reference)})
    data.DisplayedAreaSelectionSequence = items({"DisplayedAreaTopLeftHandCorner": [1, 1], "PresentationSizeMode": "SCALE TO FIT",
                                                 "DisplayedAreaBottomRightHandCorner": [source.Columns, source.Rows],
                                                 "PresentationPixelAspectRatio": [1, 1]})
    if kind != COLOUR:
        data.PresentationLUTShape = "IDENTITY"
    put(data, attributes).save_as(path, write_like_original=False)
    return path


def table(entries, bits, first=0):
    return {"LUTDescriptor": [len(entries), first, bits], "LUTData": [int(v) for v in entries]}


def check_state_shades(folder):
    """Modality, VOI and presentation transformations, as worked out here and as the peer renders them."""
    random = numpy.random.default_rng(5)
    pixels = random.integers(0, 4096, (40, 50)).astype("<u2")
    path = changed(image(folder + "/image", pixels, stored=12), RescaleSlope="3", RescaleIntercept="5", WindowCenter="1", WindowWidth="2")
    pixels = pixels.astype(int)
    peer = has("dcmp2pgm", "presentation states")
    scale = {"RescaleSlope": "2", "RescaleIntercept": "-100", "RescaleType": "US"}
    window = {"SoftcopyVOILUTSequence": items({"WindowCenter": "1000", "WindowWidth": "3000"})}
    voi = [(i * 37) % 256 for i in range(4096)]
    curve = [int((i / 255) ** 1.3 * 65535) for i in range(256)]
    full = pixels / 4095
    cases = [
        ({}, full), ({"PresentationLUTShape": "INVERSE"}, 1 - full), ({**window}, level_of(pixels, "LINEAR", 1000, 3000)),
        ({**scale, **window}, level_of(pixels * 2 - 100, "LINEAR", 1000, 3000)),
        ({"ModalityLUTSequence": items({**table([4095 - i for i in range(4096)], 12), "ModalityLUTType": "US"})}, 1 - full),
        ({"SoftcopyVOILUTSequence": items({"VOILUTSequence": items(table(voi, 8))})}, numpy.array(voi)[pixels] / 255),
        ({"PresentationLUTShape": None, "PresentationLUTSequence": items(table(curve, 16))}, (numpy.rint(full * 255) / 255) ** 1.3),
    ]
    for number, (attributes, want) in enumerate(cases):
        made = state(folder + "/state", path, **{k: v for k, v in attributes.items() if v is not None})
        if attributes.get("PresentationLUTShape", "") is None:
            data = pydicom.dcmread(made)
            del data.PresentationLUTShape
            data.save_as(made)
        got = picture_of(path, folder, "--presentation", made)[..., 0]
        check(apart(got, 255 * want) <= 1, "state %d: %s apart" % (number, apart(got, 255 * want)))
        if peer:
            ended(run("dcmp2pgm", "-p", made, path, folder + "/peer.pgm"), "dcmp2pgm")
            theirs = read_pnm(folder + "/peer.pgm")[..., 0].astype(int)
            check(apart(got, theirs) <= 2, "state %d: %s apart from the peer" % (number, apart(got, theirs)))
    other = image(folder + "/other", pixels.astype("<u2"), stored=12)
    made = state(folder + "/state", path)
    vexal("pixel", "render", "--presentation", made, other, folder + "/o.png", status=2, says="other images")
    vexal("pixel", "render", "--presentation", state(made, path, frames=[2]), path, folder + "/o.png", status=2, says="other frames")
    vexal("pixel", "render", "--presentation", state(made, path, COLOUR), path, folder + "/o.png", status=2, says="colour")
    vexal("pixel", "render", "--presentation", path, path, folder + "/o.png", status=2, says="no presentation state")
    made = state(made, path, MaskSubtractionSequence=items({"MaskOperation": "AVG_SUB"}))
    picture_of(path, folder, "--presentation", made, status=1, says="mask")
    palette = {name + "PaletteColorLookupTable" + part: value for n, name in enumerate(("Red", "Green", "Blue")) for part, value in (
        ("Descriptor", [256, 0, 16]), ("Data", ((numpy.arange(256) * (n + 1) % 256) * 257).astype("<u2").tobytes()))}
    got = picture_of(path, folder, "--presentation", state(made, path, PSEUDO, **palette))
    index = numpy.rint(full * 255)
    check(apart(got, numpy.stack([index * (n + 1) % 256 for n in range(3)], -1)) <= 1, "pseudo colours")


def check_state_places(folder):
    """Displayed area, turns, shutters and what is drawn, on a picture whose every pixel is known."""
    pixels = (numpy.arange(24)[:, None] * 8 + numpy.arange(30) % 8).astype("u1")
    path = image(folder + "/image", pixels)
    made = folder + "/state"
    for turn in (0, 90, 180, 270):
        for flip in "NY":
            got = picture_of(path, folder, "--presentation", state(made, path, ImageRotation=turn, ImageHorizontalFlip=flip))[..., 0]
            want = numpy.rot90(pixels, -turn // 90)
            check(apart(got, want[:, ::-1] if flip == "Y" else want) == 0, "turned by %d, %s" % (turn, flip))
    area = lambda first, last, **more: {"DisplayedAreaSelectionSequence": items(
        {"DisplayedAreaTopLeftHandCorner": first, "DisplayedAreaBottomRightHandCorner": last, "PresentationSizeMode": "SCALE TO FIT",
         "PresentationPixelAspectRatio": [1, 1], **more})}
    got = picture_of(path, folder, "--presentation", state(made, path, **area([5, 3], [14, 10])))[..., 0]
    check(apart(got, pixels[2:10, 4:14]) == 0, "a displayed area")
    got = picture_of(path, folder, "--presentation", state(made, path, **area([-1, 0], [4, 3])))[..., 0]
    check(apart(got, numpy.pad(pixels[:3, :4], ((1, 0), (2, 0)))) == 0, "an area beyond the image")
    got = picture_of(path, folder, "--presentation", state(made, path, ImageRotation=180, **area([14, 10], [5, 3])))[..., 0]
    check(apart(got, pixels[2:10, 4:14][::-1, ::-1]) == 0, "a turned area")
    got = picture_of(path, folder, "--presentation", state(made, path, **area([1, 1], [30, 24], PresentationPixelAspectRatio=[2, 1])))
    check(got.shape[:2] == (48, 30), "aspect ratio: %s" % (got.shape,))
    got = picture_of(path, folder, "--presentation", state(made, path, **area([1, 1], [30, 24], PresentationSizeMode="MAGNIFY",
                                                                             PresentationPixelMagnificationRatio=3.0)))
    check(got.shape[:2] == (72, 90) and apart(got[1::3, 1::3, 0], pixels) == 0, "magnification")
    true_size = area([1, 1], [30, 24], PresentationSizeMode="TRUE SIZE", PresentationPixelSpacing=[0.5, 0.5])
    del true_size["DisplayedAreaSelectionSequence"][0].PresentationPixelAspectRatio
    for options, times in (((), 1), (("--dpi", "254"), 5), (("--dpi", "102"), 2)):  # 10 and 4 dots in a mm
        got = picture_of(path, folder, *options, "--presentation", state(made, path, **true_size))
        check(got.shape[:2] == (round(24 * times), round(30 * times)), "true size %s: %s" % (options, got.shape))
        size = read(folder + "/picture.png").split(b"pHYs")[1][:8]
        check(abs(struct.unpack(">I", size[:4])[0] - 2000 * times) <= 20, "true size %s: %s" % (options, size))
    picture_of(path, folder, "--presentation", state(made, path, **area([1, 1], [30, 24], PresentationSizeMode="TRUE SIZE")), status=1, says="true size")
    vexal("pixel", "render", "--presentation", state(made, path, **area([-2000000000, 1], [2000000000, 24])), path, folder + "/o.png", status=2,
          says="too large")
    y, x = numpy.mgrid[1:25, 1:31]
    shutters = [
        ({"ShutterShape": "RECTANGULAR", "ShutterLeftVerticalEdge": 4, "ShutterRightVerticalEdge": 20, "ShutterUpperHorizontalEdge": 3,
          "ShutterLowerHorizontalEdge": 9}, (x < 4) | (x > 20) | (y < 3) | (y > 9)),
        ({"ShutterShape": "CIRCULAR", "CenterOfCircularShutter": [12, 15], "RadiusOfCircularShutter": 7}, (x - 15) ** 2 + (y - 12) ** 2 > 49),
        ({"ShutterShape": "POLYGONAL", "VerticesOfThePolygonalShutter": [3, 3, 3, 20, 15, 20, 15, 3]}, (x < 3) | (x > 20) | (y < 3) | (y > 15)),
    ]
    def with_bitmap(file, shut):
        data = pydicom.dcmread(file)
        for element, vr, value in ((0x10, "US", 24), (0x11, "US", 30), (0x40, "CS", "G"), (0x50, "SS", [1, 1]), (0x100, "US", 1), (0x102, "US", 0),
                                   (0x3000, "OW", numpy.packbits(shut, bitorder="little").tobytes())):
            data.add_new(0x60020000 + element, vr, value)
        data.save_as(file)
        return file

    shutters += [({**shutters[0][0], **shutters[1][0], "ShutterShape": ["RECTANGULAR", "CIRCULAR"]},
                  shutters[0][1] | shutters[1][1]), ({"ShutterShape": "BITMAP", "ShutterOverlayGroup": 0x6002}, (x + y) % 3 == 0)]
    for attributes, shut in shutters:  # of a state, of the image, and of its frame
        made = with_bitmap(state(made, path, ShutterPresentationValue=0x8080, **attributes), shut)
        want = numpy.where(shut, 0x80, pixels)
        own = changed(path, ShutterPresentationValue=0x8080, WindowCenter="128", WindowWidth="256", **attributes)
        if attributes["ShutterShape"] == "BITMAP":
            with_bitmap(own, shut)
        check(apart(picture_of(own, folder)[..., 0], want) == 0, "a shutter of the image: %s" % attributes)
        got = picture_of(own, folder, "--presentation", state(folder + "/bare", path))[..., 0]
        check(apart(got, pixels) == 0, "a shutter of the image, which the state takes away: %s" % attributes)
        check(apart(picture_of(own, folder, "--no-shutter", "--no-overlays")[..., 0], pixels) == 0, "--no-shutter: %s" % attributes)
        check(apart(picture_of(own, folder, "--presentation", made)[..., 0], want) == 0, "a shutter: %s" % attributes)
        check(apart(picture_of(own, folder, "--presentation", made, "--no-shutter")[..., 0], pixels) == 0, "--no-shutter and a state: %s" % attributes)
        if attributes["ShutterShape"] != "BITMAP":
            groups = items({"FrameDisplayShutterSequence": items({"ShutterPresentationValue": 0x8080, **attributes})})
            own = changed(path, WindowCenter="128", WindowWidth="256", PerFrameFunctionalGroupsSequence=groups)
            check(apart(picture_of(own, folder)[..., 0], want) == 0, "a shutter of the frame: %s" % attributes)
            made = state(made, path, ANGIOGRAPHY, FrameDisplayShutterSequence=groups[0].FrameDisplayShutterSequence)
            check(apart(picture_of(path, folder, "--presentation", made)[..., 0], want) == 0, "a state's shutter of the frame: %s" % attributes)


def check_state_frames(folder):
    """Sheets and films have the frames that the state is about, each as the state wants it; layers lie below what it draws."""
    stack = numpy.stack([numpy.full((32, 48), 20 * i, "u1") for i in range(8)])
    path = changed(image(folder + "/image", stack.reshape(256, 48)), Rows=32, NumberOfFrames=8)
    made = folder + "/state"
    shut = {"ShutterShape": "RECTANGULAR", "ShutterLeftVerticalEdge": 9, "ShutterRightVerticalEdge": 48, "ShutterUpperHorizontalEdge": 1,
            "ShutterLowerHorizontalEdge": 32, "ShutterPresentationValue": 0xFFFF}
    state(made, path, frames=[7, 2, 4, 99], **shut)
    want = lambda frame: numpy.where(numpy.arange(48) < 8, 255, 20 * frame)[None].repeat(32, 0)
    vexal("pixel", "sheet", "--columns", "3", "--tile", "48", "--presentation", made, path, folder + "/sheet.png")
    sheet = read_png(folder + "/sheet.png")[..., 0]
    check(sheet.shape == (48, 144) and apart(sheet[:32], numpy.concatenate([want(n) for n in (1, 3, 6)], 1)) == 0, "a sheet of a state's frames")
    check(apart(picture_of(path, folder, "--presentation", made)[..., 0], want(1)) == 0, "the first of a state's frames")
    for command, out in (("render", "o.png"), ("sheet", "o.png"), ("video", "o.mp4")):
        vexal("pixel", command, "--presentation", made, "--frame", "3", path, folder + "/" + out, status=2, says="other frames")
        check(not os.path.exists(folder + "/" + out), command + " leaves something")
    vexal("pixel", "sheet", "--bits", "16", path, folder + "/o.png", status=2, says="is for vexal pixel render")
    if has("ffmpeg", "films of presentation states"):
        vexal("pixel", "video", "--presentation", made, path, folder + "/film.mp4")
        film = read_by_ffmpeg(folder + "/film.mp4").reshape(-1, 32, 48)
        check(len(film) == 3 and max(apart(film[i], want(n)) for i, n in enumerate((1, 3, 6))) < 25, "a film of a state's frames")


def check_state_drawings(folder):
    """Layers in their order and colours; each kind of graphic, where it has to be and nowhere else."""
    size = 64
    path = image(folder + "/image", numpy.zeros((size, size), "u1"))
    made = folder + "/state"
    layers = {"GraphicLayerSequence": items({"GraphicLayer": "UP", "GraphicLayerOrder": 2, "GraphicLayerRecommendedDisplayGrayscaleValue": 0xFFFF},
                                            {"GraphicLayer": "DOWN", "GraphicLayerOrder": 1, "GraphicLayerRecommendedDisplayGrayscaleValue": 0x6464})}
    graphic = lambda kind, data, filled="N", units="PIXEL": {
        "GraphicAnnotationUnits": units, "GraphicDimensions": 2, "NumberOfGraphicPoints": len(data) // 2, "GraphicData": [float(v) for v in data],
        "GraphicType": kind, "GraphicFilled": filled}
    draw = lambda layer, **what: {"GraphicLayer": layer, **{k: items(*v) for k, v in what.items()}}
    y, x = numpy.mgrid[0:size, 0:size] + 0.5
    radius = numpy.hypot(x - 32, y - 32)
    box = lambda left, top, right, bottom: (x > left) & (x < right) & (y > top) & (y < bottom)
    cases = [  # what must be marked, what may be
        (graphic("POLYLINE", [10.5, 5.5, 50.5, 5.5]), box(10, 5, 51, 6), box(10, 5, 51, 6)),
        (graphic("POLYLINE", [10, 10, 40, 10, 40, 30, 10, 30, 10, 10], "Y"), box(10, 10, 40, 30), box(9, 9, 42, 32)),
        (graphic("POLYLINE", [0.25, 0.25, 0.75, 0.25], "N", "DISPLAY"), box(16, 16, 48, 17), box(16, 16, 49, 17)),
        (graphic("CIRCLE", [32, 32, 42, 32]), abs(radius - 10) < 0.3, abs(radius - 10) < 1.5),
        (graphic("CIRCLE", [32, 32, 42, 32], "Y"), radius < 9.5, radius < 11.5),
        (graphic("ELLIPSE", [12, 32, 52, 32, 32, 22, 32, 42], "Y"), ((x - 32) / 19) ** 2 + ((y - 32) / 9) ** 2 < 1, ((x - 32) / 22) ** 2 + ((y - 32) / 12) ** 2 < 1),
        (graphic("POINT", [20.5, 30.5]), (abs(x - 20.5) < 0.6) & (abs(y - 30.5) < 0.6), (abs(x - 20.5) < 5) & (abs(y - 30.5) < 5)),
        (graphic("INTERPOLATED", [10, 40, 30, 10, 50, 40]), (abs(x - 30) < 1) & (abs(y - 10.5) < 1), box(8, 6, 53, 42)),
    ]
    for content, must, may in cases:
        for turn in (0, 90):
            got = picture_of(path, folder, "--presentation", state(made, path, ImageRotation=turn, **layers, GraphicAnnotationSequence=items(
                draw("UP", GraphicObjectSequence=[content]))))[..., 0] > 0
            back = numpy.rot90(got, turn // 90 if content["GraphicAnnotationUnits"] == "PIXEL" else 0)
            grown = may if not turn else may | numpy.roll(may, 1, 0) | numpy.roll(may, -1, 0) | numpy.roll(may, 1, 1) | numpy.roll(may, -1, 1)
            misses = (must & ~back).sum() if not turn else 0
            check(not misses and not (back & ~grown).any() and got.any(), "%s, turned by %d: %d missing, %d too many" % (
                content["GraphicType"], turn, misses, (back & ~grown).sum()))
    both = [draw("UP", GraphicObjectSequence=[cases[0][0]]), draw("DOWN", GraphicObjectSequence=[graphic("POLYLINE", [30.5, 1.5, 30.5, 20.5])])]
    got = picture_of(path, folder, "--presentation", state(made, path, **layers, GraphicAnnotationSequence=items(*both)))[..., 0]
    check(got[5, 30] == 255 and got[4, 30] == 100 and got[5, 29] == 255, "the order of layers")
    words = {"UnformattedTextValue": "Ab\r\n\xe9", "BoundingBoxAnnotationUnits": "PIXEL", "BoundingBoxTopLeftHandCorner": [10.0, 20.0],
             "BoundingBoxBottomRightHandCorner": [40.0, 44.0], "BoundingBoxTextHorizontalJustification": "LEFT", "AnchorPointAnnotationUnits": "PIXEL",
             "AnchorPoint": [60.0, 60.0], "AnchorPointVisibility": "Y"}
    data = pydicom.dcmread(state(made, path, **layers, GraphicAnnotationSequence=items(draw("UP", TextObjectSequence=[words]))))
    got = picture_of(path, folder, "--presentation", made)[..., 0] > 0
    check(15 < got[20:32, 10:24].sum() < 120 and got[32:44, 10:20].sum() > 8 and not got[:20].any() and not got[:, :10].any() and got[60, 60],
          "a text: %d %d" % (got[20:32, 10:24].sum(), got[32:44, 10:20].sum()))
    lab = {"GraphicLayerSequence": items({"GraphicLayer": "UP", "GraphicLayerOrder": 1, "GraphicLayerRecommendedDisplayCIELabValue": [35000, 50000, 45000]})}
    got = picture_of(path, folder, "--presentation", state(made, path, **lab, GraphicAnnotationSequence=items(draw("UP", GraphicObjectSequence=[cases[0][0]]))))
    check(got.shape[2] == 3 and got[5, 30, 0] > got[5, 30, 1] + 50, "a layer in colour: %s" % got[5, 30])
    plane = numpy.zeros((size, size), "u1")
    plane[7:9, 11:13] = 1
    data = pydicom.dcmread(path)
    for element, vr, value in ((0x10, "US", size), (0x11, "US", size), (0x40, "CS", "G"), (0x50, "SS", [1, 1]), (0x100, "US", 1), (0x102, "US", 0),
                               (0x3000, "OW", numpy.packbits(plane, bitorder="little").tobytes())):
        data.add_new(0x60000000 + element, vr, value)
    data.save_as(path)
    data = pydicom.dcmread(state(made, path, **layers))
    got = picture_of(path, folder, "--presentation", made)[..., 0]
    check(not got.any(), "an overlay that is not activated is shown")
    data.add_new(0x60001001, "CS", "DOWN")
    data.ImageRotation = 90
    data.save_as(made)
    got = picture_of(path, folder, "--presentation", made)[..., 0]
    check(apart(got, numpy.rot90(plane, -1) * 100) == 0, "an activated overlay")
    broken = [graphic("POLYLINE", [1, 1, float("nan"), 5, 1e30, -1e30]), graphic("CIRCLE", [1e9, 1e9, -1e9, 0], "Y"), graphic("ELLIPSE", [1, 2]),
              graphic("POLYLINE", [1, 2, 3, 4], "N", "MATRIX")]
    picture_of(path, folder, "--presentation", state(made, path, **layers, GraphicAnnotationSequence=items(draw("UP", GraphicObjectSequence=broken))),
               status=1, says="is not shown")
    data = pydicom.dcmread(state(made, path, **layers))
    data.ImageRotation = 45
    data.save_as(made)
    vexal("pixel", "render", path, os.path.join(folder, "none.png"), "--presentation", made, status=2, says="45 degrees")


def check_state_styles(folder):
    """Dashes, opacities, shadows, patterns and styles of texts; compound graphics by their plain form."""
    path, made, size = image(folder + "/image", numpy.full((64, 64), 40, "u1")), folder + "/state", 64
    layers = {"GraphicLayerSequence": items({"GraphicLayer": "UP", "GraphicLayerOrder": 1, "GraphicLayerRecommendedDisplayGrayscaleValue": 0xFFFF})}
    grey = lambda level: [level * 655, 32896, 32896]  # by its lightness
    y, x = numpy.mgrid[0:size, 0:size]

    def drawn(status=0, says="", **what):
        content = {k: items(*v) for k, v in what.items()}
        state(made, path, **layers, GraphicAnnotationSequence=items({"GraphicLayer": "UP", **content}))
        return picture_of(path, folder, "--presentation", made, status=status, says=says)[..., 0]

    def line(data, style, **more):
        return {"GraphicAnnotationUnits": "PIXEL", "GraphicDimensions": 2, "NumberOfGraphicPoints": len(data) // 2, "GraphicData": [float(v) for v in data],
                "GraphicType": "POLYLINE", "GraphicFilled": "N", "LineStyleSequence": items(style), **more}

    row = [0.5, 10.5, 63.5, 10.5]
    white, half = {"PatternOnColorCIELabValue": grey(100)}, {"PatternOnColorCIELabValue": grey(100), "PatternOnOpacity": 0.5}
    dashed = {**white, "LineDashingStyle": "DASHED", "LinePattern": 0xFFC0F000}
    on = numpy.array([0xFFC0F000 >> (31 - n) & 1 for n in range(32)] * 2)
    square = [10, 10, 40, 10, 40, 40, 10, 40, 10, 10]
    inside = (x >= 10) & (x < 40) & (y >= 10) & (y < 40)
    pattern = numpy.random.default_rng(8).integers(0, 2, (32, 32))
    stippled = {"FillStyleSequence": items({"FillMode": "STIPPELED", "PatternOnColorCIELabValue": grey(100), "PatternOnOpacity": 1.0, "PatternOffOpacity": 0.5,
                                            "PatternOffColorCIELabValue": grey(0), "FillPattern": numpy.packbits(pattern).tobytes()}), "GraphicFilled": "Y"}
    at_row = lambda wanted, values: numpy.where(y == wanted, values, 40)
    for title, graphic, want, where in (
            ("dashes", line(row, dashed), at_row(10, numpy.where(on, 255, 40)), y >= 0),
            ("gaps", line(row, {**dashed, "PatternOffColorCIELabValue": grey(0)}), at_row(10, numpy.where(on, 255, 0)), y >= 0),
            ("dashes around a corner", line([0.5, 10.5, 20.5, 10.5, 20.5, 60.5], dashed), numpy.where(numpy.roll(on, -20)[(y - 10) % 32], 255, 40), (x == 20) & (y > 10) & (y < 60)),
            ("half of a line", line(row, half), at_row(10, 148), y >= 0),
            ("a line over itself", line([0.5, 10.5, 63.5, 10.5, 0.5, 10.5], half), at_row(10, 148), y >= 0),
            ("a shadow", line(row, {**white, "ShadowStyle": "NORMAL", "ShadowOffsetX": 0.0, "ShadowOffsetY": 5.0, "ShadowColorCIELabValue": grey(0), "ShadowOpacity": 0.5}),
             numpy.where(y == 15, 20, at_row(10, 255)), y >= 0),
            ("an outline", line(row, {**white, "ShadowStyle": "OUTLINED", "ShadowColorCIELabValue": grey(0), "ShadowOpacity": 1.0}),
             numpy.where((y == 9) | (y == 11), 0, at_row(10, 255)), x < 63),
            ("half of an area", line(square, half, GraphicFilled="Y"), numpy.where(inside, 148, 40), (abs(x - 25) < 13) & (abs(y - 25) < 13) | (x > 42) | (y > 42)),
            ("a pattern", line(square, white, **stippled), numpy.where(pattern[y % 32, x % 32], 255, 20), (abs(x - 25) < 13) & (abs(y - 25) < 13))):
        got = drawn(GraphicObjectSequence=[graphic])
        check(abs(got - want)[where].max() <= 1, "%s: %s" % (title, numpy.argwhere((abs(got - want) > 1) & where)[:3]))
    text = {"UnformattedTextValue": "II", "BoundingBoxAnnotationUnits": "PIXEL", "BoundingBoxTopLeftHandCorner": [4.0, 4.0],
            "BoundingBoxBottomRightHandCorner": [60.0, 60.0], "BoundingBoxTextHorizontalJustification": "LEFT"}
    style = lambda **more: dict(text, TextStyleSequence=items({"TextColorCIELabValue": grey(0), **more}))
    where = lambda **more: numpy.argwhere(drawn(TextObjectSequence=[style(**more)]) == 0)
    plain = where()
    check(len(plain) and plain.min(0)[0] < 12 and plain.min(0)[1] < 16, "a text of its own colour: %s" % plain.min(0))
    for more, moves in (({"HorizontalAlignment": "RIGHT"}, lambda p: p.max(0)[1] > 50), ({"VerticalAlignment": "BOTTOM"}, lambda p: p.max(0)[0] > 45),
                        ({"VerticalAlignment": "CENTER", "HorizontalAlignment": "CENTER"}, lambda p: abs(p.mean(0) - 32).max() < 5),
                        ({"Bold": "Y"}, lambda p: len(p) > 1.5 * len(plain)), ({"Underlined": "Y"}, lambda p: p.max(0)[0] > plain.max(0)[0] + 3),
                        ({"Italic": "Y"}, lambda p: p.max(0)[1] > plain.max(0)[1] and p.min(0)[1] >= plain.min(0)[1])):
        check(moves(where(**more)), "a text with %s: %s" % (more, where(**more)[:3]))
    compound = {"CompoundGraphicInstanceID": 3, "CompoundGraphicUnits": "PIXEL", "CompoundGraphicType": "RULER", "GraphicData": [1.0, 1.0, 9.0, 9.0]}
    got = drawn(CompoundGraphicSequence=[compound], GraphicObjectSequence=[line(row, white, CompoundGraphicInstanceID=3)])
    check((got[10] == 255).all(), "the plain form of a compound graphic")
    drawn(CompoundGraphicSequence=[compound], GraphicObjectSequence=[line(row, white, CompoundGraphicInstanceID=4)], status=1, says="of type RULER is not shown")
    wild = [line([1e30, 5, -1e30, 6, 3, 4], {**dashed, "LineThickness": 64.0}), line(square, half, GraphicFilled="Y", FillStyleSequence=items({"FillMode": "STIPPLED", "FillPattern": b"ab"}))]
    drawn(GraphicObjectSequence=wild)


sys.exit(run_parts(check_formats, check_grey, check_colours, check_colour_spaces, check_shape, check_videos, check_state_shades, check_state_places, check_state_frames, check_state_drawings, check_state_styles, chosen=sys.argv[3:]))
