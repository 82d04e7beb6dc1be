#!/usr/bin/env python3
"""Segmentations, contours and doses over images, against pictures that are worked out here: each pixel's place in the patient
by a matrix, and what lies there.

usage: layers.py VEXAL [SAMPLES]
Exit 77 (skipped) where pydicom or numpy are missing.
"""
import copy
import os
import sys

from checks import REAL_SAMPLES, SAMPLES, VEXAL, check, left_out, need, read, run, run_parts, vexal, write

need(modules=["pydicom", "numpy"])
import numpy
import pydicom
from pydicom.dataset import Dataset, FileDataset, FileMetaDataset
from pydicom.sequence import Sequence
from pydicom.uid import ExplicitVRLittleEndian

from made import ROOT
from pictures import read_png

CT, ENHANCED, SEG, LABELS, STRUCTURES, DOSE = ("1.2.840.10008.5.1.4.1.1." + kind for kind in ("2", "2.1", "66.4", "66.7", "481.3", "481.2"))
AXIAL = (1, 0, 0, 0, 1, 0)
FLIPPED = (-1, 0, 0, 0, 1, 0)
CORONAL = (1, 0, 0, 0, 0, -1)
random = numpy.random.default_rng(7)


# ---- Objects ----


def turned(first, second):
    """Directions turned about z, and then about x."""
    a, b = numpy.radians([first, second])
    about_z = numpy.array([[numpy.cos(a), -numpy.sin(a), 0], [numpy.sin(a), numpy.cos(a), 0], [0, 0, 1]])
    about_x = numpy.array([[1, 0, 0], [0, numpy.cos(b), -numpy.sin(b)], [0, numpy.sin(b), numpy.cos(b)]])
    return tuple((about_x @ about_z)[:, :2].T.ravel().round(12))


class Grid:
    """Planes of pixels: where the first begins, its directions, distances of rows, columns and planes."""

    def __init__(self, origin, directions=AXIAL, spacing=(1, 1), gap=1.0, rows=17, columns=19, planes=1):
        self.origin, self.directions, self.spacing, self.gap = numpy.array(origin, float), directions, spacing, gap
        self.rows, self.columns, self.planes = rows, columns, planes
        row, column = numpy.array(directions[:3]), numpy.array(directions[3:])
        self.normal = numpy.cross(row, column)
        self.matrix = numpy.eye(4)  # of column, row and plane into the patient
        self.matrix[:3] = numpy.stack([row * spacing[1], column * spacing[0], self.normal * gap, self.origin], 1)

    def position(self, plane):
        return [float("%.9g" % v) for v in self.origin + self.normal * self.gap * plane]

    def seen_from(self, other, plane=0):
        """Column, row and plane here of the other's pixels: three arrays of rows by columns."""
        y, x = numpy.mgrid[:other.rows, :other.columns]
        points = numpy.stack([x.ravel(), y.ravel(), numpy.full(x.size, plane), numpy.ones(x.size)])
        return (numpy.linalg.inv(self.matrix) @ other.matrix @ points)[:3].reshape(3, other.rows, other.columns)


def item(**values):
    made = Dataset()
    for name, value in values.items():
        setattr(made, name, Sequence(value) if isinstance(value, list) and value and isinstance(value[0], Dataset) else value)
    return made


counter = iter(range(1, 100000))


def new(kind, **values):
    meta = FileMetaDataset()
    meta.TransferSyntaxUID, meta.MediaStorageSOPClassUID = ExplicitVRLittleEndian, kind
    made = FileDataset(None, {}, file_meta=meta, preamble=bytes(128))
    made.is_little_endian, made.is_implicit_VR = True, False
    made.update(item(SOPClassUID=kind, SOPInstanceUID="%s.8.%d" % (ROOT, next(counter)), PatientID="L", PatientName="L", StudyInstanceUID=ROOT + ".1",
                     SeriesInstanceUID=ROOT + ".2", FrameOfReferenceUID=ROOT + ".3", **values))
    meta.MediaStorageSOPInstanceUID = made.SOPInstanceUID
    return made


def save(made, path):
    made.save_as(path, write_like_original=False)
    return path


def replace(path, old, new):
    """Bytes by as many."""
    write(path, read(path).replace(old, new))


def with_pixels(made, pixels, bits=None):
    """Frames by rows by columns; of single bits, packed without a gap between frames."""
    bits = bits or 8 * pixels.itemsize
    value = numpy.packbits(pixels.ravel() != 0, bitorder="little").tobytes() if bits == 1 else pixels.tobytes()
    made.update(item(SamplesPerPixel=1, PhotometricInterpretation="MONOCHROME2", Rows=pixels.shape[1], Columns=pixels.shape[2], BitsAllocated=bits,
                     BitsStored=bits, HighBit=bits - 1, PixelRepresentation=0, PixelData=value + bytes(len(value) % 2)))
    made["PixelData"].VR = "OW" if bits > 8 else "OB"
    if made.SOPClassUID != CT:
        made.NumberOfFrames = pixels.shape[0]
    return made


def classic(grid, plane=0, kind=CT, **more):
    """A plane of a grid as a plain image of even grey."""
    made = new(kind, Modality="CT", ImagePositionPatient=grid.position(plane), ImageOrientationPatient=list(grid.directions),
               PixelSpacing=list(grid.spacing), SliceThickness=grid.gap, WindowCenter=128, WindowWidth=256)
    made.update(item(**more))
    return with_pixels(made, numpy.full((1, grid.rows, grid.columns), 100, "u2"))


def groups(grid, frames, more=lambda number: {}, reverse=False):
    """Functional groups of frames, each in a plane of a grid; what all share stands with each, if `reverse`."""
    shared = dict(PlaneOrientationSequence=[item(ImageOrientationPatient=list(grid.directions))],
                  PixelMeasuresSequence=[item(PixelSpacing=list(grid.spacing), SliceThickness=grid.gap, SpacingBetweenSlices=grid.gap)])
    own = [dict(PlanePositionSequence=[item(ImagePositionPatient=grid.position(plane))], **more(number)) for number, plane in enumerate(frames)]
    return item(SharedFunctionalGroupsSequence=[Dataset() if reverse else item(**shared)],
                PerFrameFunctionalGroupsSequence=[item(**one, **(shared if reverse else {})) for one in own])


def enhanced(grid, reverse=False):
    made = with_pixels(new(ENHANCED, Modality="CT", WindowCenter=128, WindowWidth=256), numpy.full((grid.planes, grid.rows, grid.columns), 100, "u2"))
    made.update(groups(grid, range(grid.planes), reverse=reverse))
    return made


def reference(image, frame=None):
    made = item(ReferencedSOPClassUID=image.SOPClassUID, ReferencedSOPInstanceUID=image.SOPInstanceUID)
    if frame is not None:
        made.ReferencedFrameNumber = frame
    return made


def segmentation(grid, frames, pixels, kind="BINARY", segments=2, colours=(), sources=None, most=255, spacing=1):
    """frames: segment and plane of each. sources: for each frame, references. spacing: of planes, by what it is."""
    def own(number):
        more = {} if kind == "LABELMAP" else dict(SegmentIdentificationSequence=[item(ReferencedSegmentNumber=frames[number][0])])
        if sources and sources[number]:
            more["DerivationImageSequence"] = [item(SourceImageSequence=sources[number])]
        return more
    made = new(LABELS if kind == "LABELMAP" else SEG, Modality="SEG", SegmentationType=kind)
    if kind == "FRACTIONAL":
        made.update(item(SegmentationFractionalType="PROBABILITY", MaximumFractionalValue=most))
    made.SegmentSequence = Sequence([item(SegmentNumber=n, SegmentLabel="label %d" % n) for n in range(kind != "LABELMAP", segments + 1)])
    for segment, colour in zip(made.SegmentSequence, colours):
        segment.RecommendedDisplayCIELabValue = list(colour)
    made.update(groups(grid, [plane for _, plane in frames], own))
    made.SharedFunctionalGroupsSequence[0].PixelMeasuresSequence[0].SpacingBetweenSlices = spacing * grid.gap
    return with_pixels(made, pixels, 1 if kind == "BINARY" else None)


def structures(*regions, **more):
    """Regions: number, colour, contours of type and points."""
    made = new(STRUCTURES, Modality="RTSTRUCT", **more)
    made.StructureSetROISequence = Sequence([item(ROINumber=n, ROIName="region %d" % n, ReferencedFrameOfReferenceUID=made.FrameOfReferenceUID)
                                             for n, _, _ in regions])
    made.ROIContourSequence = Sequence([item(ReferencedROINumber=n, ROIDisplayColor=list(colour), ContourSequence=Sequence([
        item(ContourGeometricType=kind, NumberOfContourPoints=len(points), ContourData=["%.9g" % v for point in points for v in point])
        for kind, points in contours])) for n, colour, contours in regions])
    return made


def dose(grid, values, scaling=0.01, offsets=None):
    made = classic(grid, kind=DOSE, Modality="RTDOSE", DoseUnits="GY", DoseType="PHYSICAL", DoseSummationType="PLAN", DoseGridScaling=scaling)
    made.GridFrameOffsetVector = list(offsets or [grid.gap * n for n in range(grid.planes)])
    del made.SliceThickness
    return with_pixels(made, values)


# ---- Pictures ----


def render(folder, image, *options, status=0, says=""):
    """The image alone, and with layers: pixels by rows, columns and colours."""
    out = folder + "/out.png"
    if os.path.exists(out):
        os.remove(out)
    vexal("pixel", "render", "--no-aspect", *options, image, out, status=status, says=says)
    check(os.path.exists(out) == (status != 2), "a picture with status %d: %s" % (status, " ".join(options)))
    return read_png(out).astype(int) if status != 2 else None


def alike(title, got, want, mask=None, most=1):
    if got is None or got.shape != want.shape:
        return check(False, "%s: shape %s, not %s" % (title, got is not None and got.shape, want.shape))
    apart = numpy.abs(got - want).max(axis=2)
    if mask is not None:
        apart = apart * mask
    return check(apart.max() <= most, "%s: %d pixels differ, by up to %d" % (title, (apart > most).sum(), apart.max()))


def over(base, colour, share):
    return base + (numpy.array(colour) - base) * numpy.asarray(share)[..., None]


def srgb_of(lab16):
    """By the colour spaces' definitions: the white of Lab is D50, that of sRGB D65."""
    lightness, a, b = lab16[0] / 655.35, lab16[1] / 257 - 128, lab16[2] / 257 - 128
    f = (lightness + 16) / 116 + numpy.array([a / 500, 0, -b / 200])
    d50, d65 = numpy.array([0.96422, 1, 0.82521]), numpy.array([0.95047, 1, 1.08883])
    xyz = d50 * numpy.where(f > 6 / 29, f ** 3, 3 * (6 / 29) ** 2 * (f - 4 / 29))
    bradford = numpy.array([[0.8951, 0.2664, -0.1614], [-0.7502, 1.7135, 0.0367], [0.0389, -0.0685, 1.0296]])
    xyz = numpy.linalg.inv(bradford) @ numpy.diag(bradford @ d65 / (bradford @ d50)) @ bradford @ xyz
    primaries = numpy.array([[x / y, 1, (1 - x - y) / y] for x, y in ((0.64, 0.33), (0.30, 0.60), (0.15, 0.06))]).T
    linear = numpy.clip(numpy.linalg.inv(primaries * numpy.linalg.solve(primaries, d65)) @ xyz, 0, 1)
    return 255 * numpy.where(linear <= 0.0031308, 12.92 * linear, 1.055 * linear ** (1 / 2.4) - 0.055)


COLOURS = [(41661, 41167, 40792), (30000, 20000, 45000), (52000, 33000, 20000)]
GREY = 100  # what the window makes of the images' pixels


def sampled(grid, planes, pixels, image, plane=0):
    """Values of the nearest pixel of the nearest plane, or 0, and where that is beyond doubt."""
    x, y, z = grid.seen_from(image, plane)
    values, nearest = numpy.zeros(x.shape), numpy.full(x.shape, -1)
    for frame, at in enumerate(planes):
        nearest[numpy.abs(z - at) < 0.5] = frame
    inside = (nearest >= 0) & (x > -0.5) & (y > -0.5) & (x < grid.columns - 0.5) & (y < grid.rows - 0.5)
    values[inside] = pixels[nearest[inside], numpy.rint(y[inside]).astype(int), numpy.rint(x[inside]).astype(int)]
    near = [numpy.abs(v - numpy.floor(v) - 0.5) < 1e-4 for v in (x, y, z)]
    return values, ~(near[0] | near[1] | near[2])


# ---- Segmentations ----

IMAGE = Grid((-20, -15, 30), spacing=(0.7, 0.9))
# What the image is, and what the segmentation.
PLANES = [
    ("the same grid", IMAGE, Grid((-20, -15, 28), spacing=(0.7, 0.9), planes=5)),
    ("a finer grid in part of it", IMAGE, Grid((-17.03, -13.02, 29.2), spacing=(0.31, 0.37), gap=0.8, planes=3)),
    ("mirrored", IMAGE, Grid((-3.77, -15.11, 32.3), FLIPPED, (0.7, 0.9), planes=5)),
    ("oblique image through planes", Grid((-19, -15.3, 28.02), turned(20, 30), (0.7, 0.9)), Grid((-21, -15, 25.01), planes=9, gap=1.3)),
    ("oblique planes", IMAGE, Grid((-20.1, -15.2, 22.03), turned(-35, 40), (0.8, 1.1), 2.1, planes=11)),
    ("across", Grid((-18.03, -5.01, 31.02), CORONAL, (0.61, 0.83)), Grid((-20, -15, 20.01), spacing=(1.2, 0.8), planes=14)),
    ("both oblique", Grid((-19, -15.3, 28.02), turned(20, 30)), Grid((-19, -15.3, 28.02), turned(20, 30), planes=2)),
]


def check_geometry(folder):
    """Two segments that overlap; 323 bits a frame end on no byte."""
    image_path, path = folder + "/image", folder + "/seg"
    for (title, image, grid), spacing in [(case, 1) for case in PLANES] + [(PLANES[3], 1.7)]:
        save(classic(image), image_path)
        masks = random.integers(0, 2, (2, grid.planes, grid.rows, grid.columns)).astype("u1")
        frames = [(segment + 1, plane) for plane in range(grid.planes) for segment in range(2)]
        made = segmentation(grid, frames, masks.swapaxes(0, 1).reshape(-1, grid.rows, grid.columns), colours=COLOURS, spacing=spacing)
        save(made, path)
        depth = grid.seen_from(image)[2]  # beyond the last planes, only what the spacing says tells where they end
        want, sure = numpy.full((image.rows, image.columns, 3), float(GREY)), (spacing == 1) | (depth > 0) & (depth < grid.planes - 1)
        for mask, colour in zip(masks, COLOURS):
            values, certain = sampled(grid, range(grid.planes), mask, image)
            want, sure = over(want, srgb_of(colour), values * 0.5), sure & certain
        check(numpy.mean(sure) > 0.6 and numpy.ptp(want) > 20, title + ": a test of little")
        alike(title, render(folder, image_path, "--segmentation", path), want, sure)


def check_kinds(folder):
    """Bits, fractions and labels, compressed too; some segments; how much shows through."""
    image_path, path, packed = folder + "/image", folder + "/seg", folder + "/rle"
    image = classic(IMAGE)
    save(image, image_path)
    shape = (1, IMAGE.rows, IMAGE.columns)
    base = numpy.full(shape[1:] + (3,), float(GREY))
    for kind, pixels, most in (("BINARY", random.integers(0, 2, shape).astype("u1"), 1), ("FRACTIONAL", random.integers(0, 201, shape).astype("u1"), 200),
                               ("LABELMAP", random.integers(0, 3, shape).astype("u1"), 0), ("LABELMAP", random.integers(0, 3, shape).astype("u2") * 300, 0)):
        made = segmentation(IMAGE, [(1, 0)], pixels, kind, 2, ([(0, 32896, 32896)] if not most else []) + COLOURS, [[reference(image)]], most)
        if pixels.itemsize == 2:
            for number, segment in enumerate(made.SegmentSequence):
                segment.SegmentNumber = 300 * number
        save(made, path)
        vexal("convert", "--to", "rle", path, packed)
        step = 300 if pixels.itemsize == 2 else 1
        parts = [pixels[0] / most] if most else [pixels[0] == step * label for label in (1, 2)]
        for opacity in (50, 100):
            want = base
            for part, colour in zip(parts, COLOURS):
                want = over(want, srgb_of(colour), part * opacity / 100)
            for file in (path, packed):
                got = render(folder, image_path, "--segmentation", file, "--opacity", str(opacity))
                alike("%s of %d bytes, %d %%, %s" % (kind, pixels.itemsize, opacity, os.path.basename(file)), got, want)
        if not most:
            alike("one label", render(folder, image_path, "--segmentation", path, "--segment", str(2 * step)), over(base, srgb_of(COLOURS[1]), parts[1] * 0.5))
    bare = segmentation(IMAGE, [(0, 0)], (pixels[0:1] // 300).astype("u1"), "LABELMAP", 2, [COLOURS[2]] + COLOURS)
    del bare.SegmentSequence[0]
    alike("a background that is not described", render(folder, image_path, "--segmentation", save(bare, folder + "/bare"), "--segment", "2"),
          over(base, srgb_of(COLOURS[1]), (pixels[0] == 600) * 0.5))
    painted = segmentation(IMAGE, [(0, 0)], (pixels[0:1] // 300).astype("u1"), "LABELMAP", 2)
    palette = random.integers(0, 256, (3, 3)).astype("u1")
    for name, entries in zip(("Red", "Green", "Blue"), palette.T):
        painted.update(item(**{name + "PaletteColorLookupTableDescriptor": [3, 0, 8], name + "PaletteColorLookupTableData": entries.tobytes() + b"\0"}))
    painted.PhotometricInterpretation = "PALETTE COLOR"
    want = base
    for label in (1, 2):
        want = over(want, palette[label], pixels[0] == 300 * label)
    alike("colours of a palette", render(folder, image_path, "--segmentation", save(painted, folder + "/painted"), "--opacity", "100"), want)
    alike("a label by its name, background too", render(folder, image_path, "--segmentation", path, "--segment", "LABEL 0"),
          over(base, (0, 0, 0), (pixels[0] == 0) * 0.5))
    render(folder, image_path, "--segmentation", path, "--segment", "7", status=2, says="--segment 7")


def check_references(folder):
    """Which frames belong to which image, with places and without."""
    grid = Grid((-20, -15, 30), spacing=(0.7, 0.9), gap=2.5, planes=3)
    images = [classic(grid, plane) for plane in range(3)]
    many = enhanced(grid)
    shown = random.integers(0, 2, (3, grid.rows, grid.columns)).astype("u1")
    shown[:, 0, 0] = 1
    path, image_path = folder + "/seg", folder + "/image"
    base = numpy.full((grid.rows, grid.columns, 3), float(GREY))
    pictures = [over(base, srgb_of(COLOURS[0]), mask * 0.5) for mask in shown] + [base]

    def show(title, image, want, made, *options, status=0, says=""):
        save(made, path)
        save(image, image_path)
        got = render(folder, image_path, "--segmentation", path, *options, status=status, says=says)
        if status != 2:
            alike(title, got, pictures[want])

    def made(sources=None, places=True, **more):
        made = segmentation(grid, [(1, plane) for plane in range(3)], shown, colours=COLOURS, sources=sources)
        if not places:
            del made.FrameOfReferenceUID
            for frame in made.PerFrameFunctionalGroupsSequence:
                del frame.PlanePositionSequence
        made.update(item(**more))
        return made

    by_image = [[reference(image)] for image in images]
    for plane in (0, 1, 2):
        show("by place %d" % plane, images[plane], plane, made())
        show("by reference %d" % plane, images[plane], plane, made(by_image))
        show("by reference alone %d" % plane, images[plane], plane, made(by_image, False))
        for reverse in (False, True):
            frame = str(plane + 1)
            show("frame %s" % frame, many if not reverse else enhanced(grid, True), plane, made(), "--frame", frame)
        show("by frame %d alone" % plane, many, plane, made([[reference(many, n + 1)] for n in range(3)], False), "--frame", frame)
    # Of two times at one place, the one that the frame was made from; unknown references stand behind places.
    again = classic(grid, 1)
    show("another time", again, 3, made([[reference(images[0])], [reference(images[1])], [reference(again)]]), status=1, says="lies elsewhere")
    listed = dict(ReferencedSeriesSequence=[item(ReferencedInstanceSequence=[reference(image) for image in images + [again]])])
    show("listed, without a frame", again, 3, made(by_image, **listed), says="nothing of it lies")
    show("another series", again, 1, made(by_image))
    show("references that lead nowhere", images[1], 1, made([[item(ReferencedSOPInstanceUID="1.2.3.%d" % n)] for n in range(3)], **listed))
    between = Grid((-20, -15, 30 + 1.3), spacing=(0.7, 0.9))
    show("the nearer one", classic(between), 1, made())
    # Places that were rounded are one plane, and what is near is not the distance of planes.
    rough = made()
    rough.PerFrameFunctionalGroupsSequence.append(copy.deepcopy(rough.PerFrameFunctionalGroupsSequence[1]))
    rough.PerFrameFunctionalGroupsSequence[3].PlanePositionSequence[0].ImagePositionPatient[2] += 0.02
    with_pixels(rough, numpy.concatenate([shown, shown[1:2] * 0]), 1)
    del rough.SharedFunctionalGroupsSequence[0].PixelMeasuresSequence[0].SpacingBetweenSlices
    show("rounded places", images[1], 1, rough)
    show("rounded places, off", classic(Grid((-20, -15, 32.6), spacing=(0.7, 0.9))), 1, rough)
    show("between planes that are far apart", classic(Grid((-20, -15, 60), spacing=(0.7, 0.9))), 3, made(), says="nothing of it lies")
    # What does not fit.
    other = made()
    other.FrameOfReferenceUID = "1.2.3"
    show("another frame of reference", images[0], 3, other, status=2, says="frame of reference is not that of the image")
    nowhere = classic(grid)
    del nowhere.ImagePositionPatient
    show("an image without place", nowhere, 3, made(), status=2, says="no Image Position (Patient)")
    small = classic(Grid((0, 0, 0), rows=5, columns=7))
    save(made([[reference(small)]] * 3, False), path)
    render(folder, save(small, image_path), "--segmentation", path, status=1, says="of another size")
    for name, value, says in (("ImageOrientationPatient", [1, 0, 0, 1, 0, 0], "right angle"), ("PixelSpacing", [1, 0], "no Pixel Spacing"),
                              ("ImageOrientationPatient", [1, 0, 0], "no Image Orientation"), ("ImagePositionPatient", [1, 2], "no Image Position"),
                              ("ImagePositionPatient", [1, 2, "NaN"], "no Image Position")):
        broken = classic(grid)
        broken[name].value = [1, 2, 333] if "NaN" in value else value
        replace(save(broken, image_path), b"\\333", b"\\NaN")
        save(made(), path)
        render(folder, image_path, "--segmentation", path, status=2, says=says)
    strange = segmentation(grid, [(9, plane) for plane in range(3)], shown, segments=1)
    save(strange, path)
    got = render(folder, save(images[0], image_path), "--segmentation", path, status=1, says="segment 9 is not described")
    check(((got != GREY).any(axis=2) == shown[0]).all(), "a segment that is not described")


# ---- Contours ----


def outline(grid, spots, plane=0, off=0.0):
    """Points of a plane, by column and row."""
    return [tuple((grid.matrix @ [x, y, plane, 1])[:3] + grid.normal * off) for x, y in spots]


def distances(grid, spots, closed):
    """Of each pixel from the nearest line."""
    y, x = numpy.mgrid[:grid.rows, :grid.columns].astype(float)
    nearest = numpy.full(x.shape, numpy.inf)
    for (x0, y0), (x1, y1) in zip(spots, spots[1:] + (spots[:1] if closed else [])):
        length = (x1 - x0) ** 2 + (y1 - y0) ** 2
        along = numpy.clip(((x - x0) * (x1 - x0) + (y - y0) * (y1 - y0)) / (length or 1), 0, 1)
        nearest = numpy.minimum(nearest, numpy.maximum(abs(x - x0 - along * (x1 - x0)), abs(y - y0 - along * (y1 - y0))))
    return nearest


def inside(grid, spots):
    """By the winding of the outline around each pixel."""
    y, x = numpy.mgrid[:grid.rows, :grid.columns]
    angles = [numpy.arctan2(b - y, a - x) for a, b in spots]
    turns = sum((b - a + numpy.pi) % (2 * numpy.pi) - numpy.pi for a, b in zip(angles, angles[1:] + angles[:1]))
    return numpy.abs(turns) > numpy.pi


def check_contours(folder):
    """Lines on axial and oblique planes of pixels that are not square, areas with holes, points."""
    image_path, path = folder + "/image", folder + "/set"
    outer = [(3.2, 4.1), (40.7, 2.3), (52.6, 38.2), (20.4, 30.9), (5.1, 44.8)]
    hole = [(15.3, 10.2), (30.1, 12.4), (22.2, 22.7)]
    beyond = [(-30.2, 20.4), (30.3, -25.1), (90.2, 30.3), (31.1, 300.2)]
    red, green = (200, 10, 30), (0, 255, 128)
    for directions in (AXIAL, FLIPPED, CORONAL, turned(25, 35)):
        grid = Grid((-31, 12, 47), directions, (0.6, 1.7), 3, 50, 60)
        save(classic(grid), image_path)
        base = numpy.full((50, 60, 3), float(GREY))
        for title, kind, shapes, options in (("closed", "CLOSED_PLANAR", [outer], []), ("open", "OPEN_PLANAR", [outer], []),
                                             ("filled", "CLOSED_PLANAR", [outer, hole], ["--fill", "--opacity", "40"]),
                                             ("xor", "CLOSEDPLANAR_XOR", [hole, outer], ["--fill"]), ("beyond", "CLOSED_PLANAR", [beyond], ["--fill"])):
            save(structures((4, red, [(kind, outline(grid, spots, off=off)) for spots, off in zip(shapes, (0, 1.2))])), path)
            got = render(folder, image_path, "--contours", path, *options)
            near = numpy.min([distances(grid, spots, kind != "OPEN_PLANAR") for spots in shapes], axis=0)
            area = sum(inside(grid, spots) for spots in shapes) % 2 if options else 0 * near
            share = 0.4 if "40" in options else 0.5
            alike("%s %s" % (title, directions), got, over(base, red, area * share), near > 1)
            line = (got == red).all(axis=2)
            check(not (line & (near > 1)).any() and line[near < 0.2].all(), "%s: lines are not where they belong" % title)
        save(structures((1, green, [("POINT", outline(grid, [(7.2, 9.8)]))]), (2, red, [("POINT", outline(grid, [(70, 9.8)]))])), path)
        got = render(folder, image_path, "--contours", path)
        check((got[10, 4:11] == green).all() and (got[7:14, 7] == green).all() and (got != GREY).any(axis=2).sum() == 13, "a point is a cross")
        alike("a region that is not asked for", render(folder, image_path, "--contours", path, "--roi", "Region 2"), base)


def check_slices(folder):
    """Which contours an image has, and what is wrong with some."""
    grid = Grid((-31, 12, 47), AXIAL, (0.6, 1.7), 3, 50, 60)
    image_path, path = folder + "/image", folder + "/set"
    square = [(10, 10), (20, 10), (20, 20), (10, 20)]
    red = (200, 10, 30)
    image, other = classic(grid), classic(grid, 1)
    save(image, image_path)

    def show(title, drawn, made, *options, status=0, says=""):
        save(made, path)
        got = render(folder, image_path, "--contours", path, *options, status=status, says=says)
        if status != 2:
            check((got == red).all(axis=2).any() == drawn, title)

    def made(off=0.0, source=None, points=None):
        made = structures((1, red, [("CLOSED_PLANAR", points or outline(grid, square, off=off))]))
        if source:
            made.ROIContourSequence[0].ContourSequence[0].ContourImageSequence = Sequence([source])
        return made

    nothing = "nothing of it lies"
    for off, drawn in ((1.4, True), (-1.4, True), (1.6, False), (-1.6, False)):
        show("%g mm away" % off, drawn, made(off), says="" if drawn else nothing)
    show("of this image", True, made(source=reference(image)))
    listed = made(1.4, reference(other))
    listed.ReferencedFrameOfReferenceSequence = Sequence([item(FrameOfReferenceUID=listed.FrameOfReferenceUID, RTReferencedStudySequence=[
        item(RTReferencedSeriesSequence=[item(ContourImageSequence=[reference(image), reference(other)])])])])
    show("of its neighbour", False, listed, says=nothing)
    show("of an image of another series", True, made(source=item(ReferencedSOPInstanceUID="1.2.3")))
    many = Grid((-31, 12, 47), AXIAL, (0.6, 1.7), 3, 50, 60, planes=3)
    save(enhanced(many), image_path)
    for frame, drawn in (("1", False), ("2", True), ("3", False)):
        show("frame " + frame, drawn, made(2.9), "--frame", frame, says="" if drawn else nothing)
    save(image, image_path)
    elsewhere = made()
    elsewhere.StructureSetROISequence[0].ReferencedFrameOfReferenceUID = "1.2.3"
    show("another frame of reference", False, elsewhere, status=2, says="frame of reference is not that of the image")
    both = structures((1, red, [("CLOSED_PLANAR", outline(grid, square))]), (2, red, []))
    both.StructureSetROISequence[1].ReferencedFrameOfReferenceUID = "1.2.3"
    show("one of two", True, both, status=1, says="region 2 \"region 2\" is not shown")
    plain = made()
    del plain.StructureSetROISequence[0].ReferencedFrameOfReferenceUID
    plain.ReferencedFrameOfReferenceSequence = Sequence([item(FrameOfReferenceUID=plain.FrameOfReferenceUID)])
    del plain.FrameOfReferenceUID
    show("the one frame of reference of the set", True, plain)
    many_faults = structures((1, red, [("SPIRAL", [])] * 1000 + [("CLOSED_PLANAR", outline(grid, square))]))
    show("a thousand faults", True, many_faults, status=1, says="and so on, 980 times")
    show("no such region", False, both, "--roi", "5", status=2, says="--roi 5")
    for title, change, drawn, says in (("no contours", lambda c: setattr(c, "ContourData", []), False, "three numbers a point"),
                                       ("two numbers", lambda c: setattr(c, "ContourData", ["1", "2"]), False, "three numbers a point"),
                                       ("no number", lambda c: c.ContourData.__setitem__(4, "NaN"), False, "a coordinate is no number of mm"),
                                       ("a form", lambda c: setattr(c, "ContourGeometricType", "SPIRAL"), False, "a form \"SPIRAL\""),
                                       ("a number of points", lambda c: setattr(c, "NumberOfContourPoints", 2147483647), False, "another number of points")):
        broken = made()
        contour = broken.ROIContourSequence[0].ContourSequence[0]
        if title == "no number":
            contour.add_new(0x30060050, "LT", "10\\10\\47\\20\\NaN\\47")
            save(broken, path)
            replace(path, b"\x06\x30\x50\x00LT", b"\x06\x30\x50\x00DS")
            render(folder, image_path, "--contours", path, status=1, says=says)
        else:
            change(contour)
            show(title, drawn, broken, status=1, says=says)
    far = [(x * 1e8, y * 1e8, 47) for x, y in ((-1, -1), (1, -2), (2, 1), (-3, 2))]
    save(made(points=far), path)
    alike("as large as the world", render(folder, image_path, "--contours", path, "--fill"), over(numpy.full((50, 60, 3), GREY), red, numpy.full((50, 60), 0.5)))
    save(made(points=[(1e300, 1e308, 47), (-1e308, 1, 47), (3, 4, 47)]), path)
    render(folder, image_path, "--contours", path, "--fill", status=1, says="a coordinate is no number of mm")
    zigzag = [(float(n % 2) * 60 - 31, 12 + (n % 997) * 0.03, 47) for n in range(60000)]
    save(made(points=zigzag), path)
    check(run(VEXAL, "pixel", "render", "--fill", "--contours", path, image_path, folder + "/zigzag.png", timeout=20).returncode == 0, "60000 points")


# ---- Doses ----


def interpolated(grid, values, image):
    """Between the eight pixels around each place; NaN where there are not as many."""
    x, y, z = grid.seen_from(image)
    hair = 1e-7
    outside = (x < -hair) | (y < -hair) | (z < -hair) | (x > grid.columns - 1 + hair) | (y > grid.rows - 1 + hair) | (z > grid.planes - 1 + hair)
    result = 0
    corners = [numpy.clip(numpy.floor(v), 0, n - 2).astype(int) for v, n in ((x, grid.columns), (y, grid.rows), (z, grid.planes))]
    for corner in range(8):
        steps = [corner >> axis & 1 for axis in range(3)]
        weight = numpy.prod([1 - numpy.abs(v - c - s) for v, c, s in zip((x, y, z), corners, steps)], axis=0)
        result = result + weight * values[corners[2] + steps[2], corners[1] + steps[1], corners[0] + steps[0]]
    result[outside] = numpy.nan
    return result


def washed(base, doses, low, high):
    stops = numpy.array([(0, 0, 255), (0, 255, 255), (0, 255, 0), (255, 255, 0), (255, 0, 0)], float)
    part = numpy.clip(numpy.nan_to_num((doses - low) / (high - low)), 0, 1)
    colours = numpy.stack([numpy.interp(part, numpy.linspace(0, 1, 5), stops[:, c]) for c in range(3)], 2)
    return base + (colours - base) * 0.5 * (numpy.nan_to_num(doses, nan=-1e9) >= low)[..., None]


def check_doses(folder):
    """Grids across, turned, of uneven planes, of 16 and 32 bits; the maximum that pixel info tells."""
    image_path, path = folder + "/image", folder + "/dose"
    smooth = numpy.fromfunction(lambda z, y, x: 3000 + 900 * numpy.sin(x / 2 + z) + 1100 * numpy.cos(y / 3 - z / 2), (6, 9, 11)).astype(int)
    for title, image, grid, kind, scaling in (
            ("axial", IMAGE, Grid((-21.3, -16.1, 27.2), spacing=(1.3, 1.7), gap=2.5, rows=9, columns=11, planes=6), "u2", 0.01),
            ("in part", IMAGE, Grid((-15.3, -11.1, 17.2), spacing=(0.8, 0.7), gap=2.7, rows=9, columns=11, planes=6), "u4", 0.001),
            ("flipped", IMAGE, Grid((-2.3, -16.1, 34.2), FLIPPED, (1.3, 1.7), 2.5, 9, 11, 6), "u4", 0.5),
            ("turned image", Grid((-19, -15.3, 28.02), turned(20, 30), (0.7, 0.9)), Grid((-21.3, -16.1, 24), spacing=(1.3, 1.7), gap=2.5, rows=9, columns=11, planes=6), "u2", 1),
            ("turned grid", IMAGE, Grid((-18.3, -18.1, 24.4), turned(10, -25), (2, 1.9), 2.5, 9, 11, 6), "i4", 2),
            ("across", Grid((-18.03, -5.01, 35.02), CORONAL, (0.61, 0.83)), Grid((-21.3, -16.1, 27.2), spacing=(2.1, 1.7), gap=2.5, rows=9, columns=11, planes=6), "u2", 0.02)):
        save(classic(image), image_path)
        made = dose(grid, smooth.astype(kind), scaling)
        doses, most = interpolated(grid, smooth * scaling, image), smooth.max() * scaling
        base = numpy.full((image.rows, image.columns, 3), float(GREY))
        ways = [list(made.GridFrameOffsetVector)]
        if grid.directions in (AXIAL, FLIPPED):
            ways.append([grid.position(n)[2] for n in range(6)])  # places on the axis instead
        for offsets in ways:
            made.GridFrameOffsetVector = offsets
            save(made, path)
            for low, high, options in ((most / 10, most, []), (most * 0.5, most * 0.8, ["--dose-range", "%.9g,%.9g" % (most * 0.5, most * 0.8)])):
                sure = ~(numpy.abs(doses - low) < most * 1e-6)
                check((doses >= low).sum() > 40, title + ": a test of little")
                alike("%s %s" % (title, options), render(folder, image_path, "--dose", path, *options), washed(base, doses, low, high), sure)
        told = run(VEXAL, "pixel", "info", path).stdout.decode()
        check("dose up to %.6g GY, PHYSICAL, PLAN" % most in told, "maximum: " + told)
    image, grid = IMAGE, Grid((-21.3, -16.1, 27.2), spacing=(1.3, 1.7), gap=2.5, rows=9, columns=11, planes=6)
    save(classic(image), image_path)
    upside = dose(grid, smooth[::-1].astype("u2"), offsets=None)
    upside.ImagePositionPatient, upside.GridFrameOffsetVector = grid.position(5), [-2.5 * n for n in range(6)]
    save(upside, path)
    doses = interpolated(grid, smooth * 0.01, image)
    alike("downwards", render(folder, image_path, "--dose", path), washed(base * 0 + GREY, doses, smooth.max() / 1000, smooth.max() / 100))
    for name, value, says in (("GridFrameOffsetVector", [0, 1, 2], "a number for each frame"), ("GridFrameOffsetVector", [5, 6, 7, 8, 9, 10], "begins neither"),
                              ("DoseGridScaling", None, "no Dose Grid Scaling"), ("DoseGridScaling", 0, "no Dose Grid Scaling"), ("PixelSpacing", None, "no Pixel Spacing"),
                              ("FrameOfReferenceUID", "1.2.3", "frame of reference is not that")):
        broken = copy.deepcopy(upside)
        setattr(broken, name, value) if value is not None else delattr(broken, name)
        save(broken, path)
        render(folder, image_path, "--dose", path, status=2, says=says)
    for options, says in ((["--dose-range", "5"], "--dose-range 5"), (["--dose-range", "5,5"], "a lower and a higher"), (["--opacity", "101"], "--opacity")):
        render(folder, image_path, *options, "--dose", path, status=2, says=says)


# ---- Blending presentation states ----


def check_blending(folder):
    """An image in the colours of a palette over another, wherever both lie: between four pixels of the nearest plane."""
    image_path, state_path, above_path = folder + "/image", folder + "/state", folder + "/above"
    ramps = [numpy.arange(256), 255 - numpy.arange(256), numpy.arange(256) // 2]
    palette = {name + "PaletteColorLookupTable" + part: value for name, ramp in zip(("Red", "Green", "Blue"), ramps)
               for part, value in (("Descriptor", [256, 0, 8]), ("Data", ramp.astype("u1").tobytes()))}

    def series(position, images, slope, center, width):
        return item(BlendingPosition=position, StudyInstanceUID=ROOT + ".1", RescaleSlope=slope, RescaleIntercept=-5, RescaleType="US", ReferencedSeriesSequence=[
            item(SeriesInstanceUID=ROOT + ".2", ReferencedImageSequence=[reference(image) for image in images])],
            SoftcopyVOILUTSequence=[item(WindowCenter=center, WindowWidth=width)])

    def save_state(below, above, opacity, **more):
        made = new("1.2.840.10008.5.1.4.1.1.11.4", Modality="PR", RelativeOpacity=opacity, BlendingSequence=[
            series("SUPERIMPOSED", above, 2, 300, 601), series("UNDERLYING", [below], 1, 120, 257)], **palette, **more)
        return save(made, state_path)

    smooth = numpy.fromfunction(lambda z, y, x: 150 + 60 * numpy.sin(x / 2 + z) + 70 * numpy.cos(y / 3 - z / 2), (9, 11, 13))
    volumes = [(IMAGE, Grid((-20, -15, 26), spacing=(1.3, 1.7), gap=2.5, rows=11, columns=13, planes=9), True),
               (IMAGE, Grid((-3.3, -16.1, 34.2), FLIPPED, (1.3, 1.7), 2.5, 11, 13, 9), False),
               (Grid((-19, -15.3, 28.02), turned(20, 30), (0.7, 0.9)), Grid((-21.3, -16.1, 24), spacing=(1.3, 1.7), gap=2.5, rows=11, columns=13, planes=9), True),
               (Grid((-18.03, -5.01, 35.02), CORONAL, (0.61, 0.83)), Grid((-21.3, -16.1, 27.2), spacing=(2.1, 1.7), gap=1.5, rows=11, columns=13, planes=9), False)]
    for number, ((image, grid, many), opacity) in enumerate(zip(volumes, (0.4, 1, 0, 0.7))):
        below = classic(image)
        pixels = random.integers(0, 256, (image.rows, image.columns)).astype("u2")
        below.PixelData = pixels.tobytes()
        values = smooth.astype("u2")
        above = [with_pixels(enhanced(grid), values)] if many else [with_pixels(classic(grid, plane), values[plane:plane + 1]) for plane in range(9)]
        files = [save(one, above_path + str(n)) for n, one in enumerate(above)]
        save(below, image_path)
        save_state(below, above, opacity)
        x, y, z = grid.seen_from(image)
        plane = numpy.rint(z).astype(int)
        covered = (plane >= 0) & (plane < 9) & (x >= -0.5) & (y >= -0.5) & (x <= 12.5) & (y <= 10.5)
        x, y, plane = x.clip(0, 12), y.clip(0, 10), plane.clip(0, 8)
        left, upper = numpy.minimum(x.astype(int), 11), numpy.minimum(y.astype(int), 9)
        shades = numpy.clip((values * 2.0 - 5 - 299.5) / 600 + 0.5, 0, 1)
        mixed = sum(shades[plane, upper + b, left + a] * abs(1 - a - x + left) * abs(1 - b - y + upper) for a in (0, 1) for b in (0, 1))
        colours = numpy.stack([ramp[numpy.rint(mixed * 255).astype(int)] for ramp in ramps], 2)
        base = numpy.clip((pixels - 5.0 - 119.5) / 256 + 0.5, 0, 1)[..., None].repeat(3, 2) * 255
        want = base + (colours - base) * opacity * covered[..., None]
        sure = (abs(z - numpy.floor(z) - 0.5) > 1e-4) & (abs(abs(x - 6) - 6.5) > 1e-4) & (abs(abs(y - 5) - 5.5) > 1e-4)
        check(0.15 < covered.mean(), "blending %d: a test of little" % number)
        options = [word for file in files for word in ("--with", file)]
        alike("blending %d" % number, render(folder, image_path, "--presentation", state_path, *options), want, sure, most=2)
    render(folder, image_path, "--presentation", state_path, status=2, says="--with")
    render(folder, files[0], "--presentation", state_path, "--with", image_path, status=2, says="lays the image over others")
    render(folder, image_path, "--presentation", state_path, "--with", image_path, status=2, says="does not lay it")
    render(folder, image_path, "--with", image_path, status=2, says="--with goes with --presentation")
    render(folder, image_path, "--presentation", state_path, "--bits", "16", *options, status=2, says="only grey")
    above[0].ImagePositionPatient = [0, 0, 500]
    render(folder, image_path, "--presentation", state_path, "--with", save(above[0], files[0]), status=1, says="none of the images given")
    above[0].FrameOfReferenceUID = "1.2.3"
    render(folder, image_path, "--presentation", state_path, "--with", save(above[0], files[0]), status=2, says="frame of reference")
    for wrong, says in (({"RelativeOpacity": 1.5}, "Relative Opacity"), ({"BlendingSequence": []}, "what lies over what"), ({"RedPaletteColorLookupTableData": b""}, "palette")):
        made = pydicom.dcmread(save_state(below, above, 0.5))
        for name, value in wrong.items():
            setattr(made, name, value)
        save(made, state_path)
        render(folder, image_path, "--presentation", state_path, *options, status=2, says=says)


# ---- Slides ----

SLIDE = "1.2.840.10008.5.1.4.1.1.77.1.6"


class Matrix:
    """A total pixel matrix: its pixels by row and column, where it begins, its directions and the distance of pixels."""

    def __init__(self, pixels, tile=(16, 13), origin=(1, 2), directions=(0, -1, 0, -1, 0, 0), spacing=0.01):
        self.pixels, self.tile, self.origin, self.directions, self.spacing = pixels, tile, origin, directions, spacing
        self.rows, self.columns = pixels.shape[:2]

    def tiles(self, pixels):
        """Left, top and pixels of each."""
        across, down = self.tile
        for y in range(0, self.rows, down):
            for x in range(0, self.columns, across):
                part = pixels[y:y + down, x:x + across]
                yield x, y, numpy.pad(part, ((0, down - part.shape[0]), (0, across - part.shape[1])) + ((0, 0),) * (part.ndim - 2))

    def describe(self, made, full):
        made.update(item(TotalPixelMatrixColumns=self.columns, TotalPixelMatrixRows=self.rows, ImageOrientationSlide=list(self.directions),
                         DimensionOrganizationType="TILED_FULL" if full else "TILED_SPARSE",
                         SharedFunctionalGroupsSequence=[item(PixelMeasuresSequence=[item(PixelSpacing=[self.spacing, self.spacing])])]))
        if self.origin:
            made.TotalPixelMatrixOriginSequence = Sequence([item(XOffsetInSlideCoordinateSystem=self.origin[0], YOffsetInSlideCoordinateSystem=self.origin[1])])
        return made

    def image(self):
        frames = numpy.stack([tile for _, _, tile in self.tiles(self.pixels)])
        made = with_pixels(self.describe(new(SLIDE, Modality="SM", WindowCenter=128, WindowWidth=256), True), frames)
        if frames.ndim == 4:
            made.SamplesPerPixel, made.PhotometricInterpretation, made.PlanarConfiguration = 3, "RGB", 0
        return made

    def segmentation(self, masks, kind, full, **more):
        """A mask of each segment, or one of labels; of a sparse one, tiles that hold nothing are left out."""
        made = new(LABELS if kind == "LABELMAP" else SEG, Modality="SEG", SegmentationType=kind, MaximumFractionalValue=255, **more)
        made.SegmentSequence = Sequence([item(SegmentNumber=n, SegmentLabel="label %d" % n) for n in range(1, 3)])
        for segment, colour in zip(made.SegmentSequence, COLOURS):
            segment.RecommendedDisplayCIELabValue = list(colour)
        frames = [(number, x, y, tile) for number, mask in enumerate(masks, 1) for x, y, tile in self.tiles(mask) if full or tile.any()]
        self.describe(made, full)
        if not full:
            made.PerFrameFunctionalGroupsSequence = Sequence([item(
                PlanePositionSlideSequence=[item(ColumnPositionInTotalImagePixelMatrix=x + 1, RowPositionInTotalImagePixelMatrix=y + 1)],
                SegmentIdentificationSequence=[item(ReferencedSegmentNumber=number)]) for number, x, y, _ in frames])
        return with_pixels(made, numpy.stack([tile for *_, tile in frames]), 1 if kind == "BINARY" else None)

    def sampled(self, mask, ground):
        """Of the ground's pixels, what the nearest pixel here is; places are of corners where both begin at one."""
        corner = 0.5 if self.origin == ground.origin else 0
        y, x = numpy.mgrid[:ground.rows, :ground.columns] + corner
        axes = [numpy.array(m.directions).reshape(2, 3)[:, :2] * m.spacing for m in (ground, self)]
        points = numpy.array(ground.origin) + x[..., None] * axes[0][0] + y[..., None] * axes[0][1] - self.origin
        here = points @ numpy.linalg.inv(axes[1]) - corner
        at = numpy.floor(here + 0.5 + 1e-6).astype(int)
        inside = (at >= 0).all(2) & (at[..., 0] < self.columns) & (at[..., 1] < self.rows)
        values = numpy.zeros(inside.shape)
        values[inside] = mask[at[inside][:, 1], at[inside][:, 0]]
        return values


def check_slides(folder):
    """Tiled segmentations over slides, full and sparse, coarser and finer, turned, by region and scale, on many threads."""
    slide_path, path, packed, out = (folder + name for name in ("/slide", "/seg", "/rle", "/out.png"))
    ground = Matrix(random.integers(0, 256, (61, 83, 3)).astype("u1"))
    grey = Matrix(random.integers(0, 256, (61, 83)).astype("u1"))

    def show(*options, status=0, says=""):
        vexal("pixel", "render", "--matrix", *options, slide_path, out, status=status, says=says)
        return read_png(out).astype(int) if status != 2 else None

    cases = [(ground, Matrix(ground.pixels), "BINARY", True), (grey, Matrix(ground.pixels, (7, 5)), "BINARY", False),
             (ground, Matrix(ground.pixels[:16, :21], (8, 8), spacing=0.04), "BINARY", True),
             (ground, Matrix(ground.pixels, (9, 40), (0.82, 1.71), spacing=0.005), "FRACTIONAL", False),
             (ground, Matrix(ground.pixels[:50, :50], (11, 9), (0.4, 1.2), (1, 0, 0, 0, 1, 0), 0.02), "FRACTIONAL", True),
             (grey, Matrix(ground.pixels[:40], (16, 8), (0.97, 1.93), tuple(numpy.round([-0.6, -0.8, 0, -0.8, 0.6, 0], 9)), 0.013), "LABELMAP", True)]
    for number, (below, above, kind, full) in enumerate(cases):
        save(below.image(), slide_path)
        shape = above.pixels.shape[:2]
        top = {"BINARY": 2, "FRACTIONAL": 256, "LABELMAP": 3}[kind]
        masks = [random.integers(0, top, shape) * (random.random(shape) < 0.7) for _ in range(1 if kind == "LABELMAP" else 2)]
        masks = [mask.astype("u1") for mask in masks]
        masks[0][:above.tile[1], :above.tile[0]] = 0
        save(above.segmentation(masks, kind, full), path)
        vexal("convert", "--to", "rle", path, packed)
        want = below.pixels if below.pixels.ndim == 3 else below.pixels[..., None].repeat(3, 2)
        if kind == "LABELMAP":
            labels = above.sampled(masks[0], below)
            shares = [labels == 1, labels == 2]
        else:
            shares = [above.sampled(mask, below) / (top - 1) for mask in masks]
        for share, colour in zip(shares, COLOURS):
            want = over(want, srgb_of(colour), share * 0.5)
        check(numpy.mean(sum(shares) > 0) > 0.2, "slide %d: a test of little" % number)
        for file in (path, packed):
            alike("slide %d, %s" % (number, file), show("--segmentation", file), want, most=2)
        for x, y, width, height, scale in ((5, 7, 60, 40, 1), (0, 0, 83, 61, 4), (33, 20, 50, 41, 7)):
            part = want[y:y + height, x:x + width]
            part = numpy.array([[part[b:b + scale, a:a + scale].reshape(-1, 3).mean(0) for a in range(0, width, scale)] for b in range(0, height, scale)])
            alike("slide %d, a region by %d" % (number, scale), show("--segmentation", path, "--region", "%d,%d,%d,%d" % (x, y, width, height), "--scale", str(scale)),
                  part, most=2)
        if number == 0:
            alike("one segment of a slide", show("--segmentation", path, "--segment", "label 2", "--opacity", "100"), over(ground.pixels, srgb_of(COLOURS[1]), shares[1]))
            show("--segmentation", path, "--segment", "5", status=2, says="--segment 5")
            show("--contours", path, status=2, says="does not go with --matrix")
    slide = ground.image()
    save(slide, slide_path)
    bare = Matrix(ground.pixels, origin=None)
    mask = random.integers(0, 2, (61, 83)).astype("u1")
    refers = {"ReferencedSeriesSequence": [item(SeriesInstanceUID="1.2", ReferencedInstanceSequence=[reference(slide)])]}
    save(bare.segmentation([mask, mask * 0], "BINARY", True, **refers), path)
    alike("pixel on pixel", show("--segmentation", path), over(ground.pixels, srgb_of(COLOURS[0]), mask * 0.5))
    save(bare.segmentation([mask, mask * 0], "BINARY", True), path)
    show("--segmentation", path, status=2, says="nothing tells where it lies")
    other = Matrix(ground.pixels).segmentation([mask, mask * 0], "BINARY", True)
    save(other, path)
    for cut in range(132, len(read(path)), len(read(path)) // 40):
        write(packed, read(path)[:cut])
        done = run(VEXAL, "pixel", "render", "--matrix", "--segmentation", packed, slide_path, folder + "/cut.png", timeout=30)
        check(done.returncode in (0, 1, 2), "a slide's segmentation cut at %d: %d %s" % (cut, done.returncode, done.stderr))
    other.FrameOfReferenceUID = "1.2.3"
    save(other, path)
    show("--segmentation", path, status=2, says="frame of reference is not that of the slide")
    show("--segmentation", slide_path, status=2, says="no segmentation")


# ---- All together ----


def check_together(folder):
    """Layers in one picture, the sheet, broken files, real files."""
    image_path, seg_path, set_path, dose_path = (folder + name for name in ("/image", "/seg", "/set", "/dose"))
    many = Grid((-20, -15, 30), spacing=(0.7, 0.9), planes=3)
    save(enhanced(many), image_path)
    save(segmentation(many, [(1, 1)], numpy.ones((1, many.rows, many.columns), "u1"), colours=COLOURS), seg_path)
    save(structures((1, (1, 2, 3), [("POINT", outline(many, [(5, 6)], 1))])), set_path)
    save(dose(Grid((-30, -30, 20), spacing=(50, 50), gap=20, rows=2, columns=2, planes=2), numpy.full((2, 2, 2), 700, "u2")), dose_path)
    got = render(folder, image_path, "--contours", set_path, "--segmentation", seg_path, "--dose", dose_path, "--frame", "2")
    want = over(over(numpy.full((many.rows, many.columns, 3), GREY), (255, 0, 0), numpy.full((many.rows, many.columns), 0.5)).round(), srgb_of(COLOURS[0]),
                numpy.full((many.rows, many.columns), 0.5))
    want[6, 2:9] = want[3:10, 5] = (1, 2, 3)
    alike("all three", got, want, most=2)
    vexal("pixel", "sheet", "--no-aspect", "--columns", "3", "--tile", "19", "--segmentation", seg_path, image_path, folder + "/sheet.png")
    sheet = read_png(folder + "/sheet.png").astype(int)[:17]
    check((sheet[:, :19] == GREY).all() and (sheet[:, 38:] == GREY).all() and (sheet[:, 19:38] != GREY).any(axis=2).all(), "layers on the sheet")
    for path, option in ((seg_path, "--segmentation"), (set_path, "--contours"), (dose_path, "--dose")):
        content = read(path)
        for cut in range(132, len(content), max(1, len(content) // 60)):
            write(folder + "/cut", content[:cut])
            done = run(VEXAL, "pixel", "render", "--frame", "2", option, folder + "/cut", image_path, folder + "/cut.png", timeout=30)
            check(done.returncode in (0, 1, 2), "%s cut at %d: %d %s" % (option, cut, done.returncode, done.stderr))
        render(folder, image_path, option, image_path if option != "--dose" else seg_path, status=2)
    if not REAL_SAMPLES:
        return left_out("real segmentations", "samples")
    for name in ("17136", "17166", "17106"):
        vexal("pixel", "render", "--segmentation", SAMPLES + "/obj/seg-fractional-implicit.dcm", SAMPLES + "/dicomdir/77654033/CT2/" + name, folder + "/real.png")


if __name__ == "__main__":
    sys.exit(run_parts(check_geometry, check_kinds, check_references, check_contours, check_slices, check_doses, check_blending, check_slides, check_together, chosen=sys.argv[3:]))
