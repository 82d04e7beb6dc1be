#!/usr/bin/env python3
"""Directories of vexal and of the library beside those of other people's programs.

usage: directories.py VEXAL SAMPLES
What dcmmkdir makes, vexal lists as pydicom reads it; what vexal makes and changes, and what the library changes in
place, is read by pydicom, dcmtk and dcdirdmp with the same records. Exit 77 (skipped) where something is missing.
"""
import ctypes
import json
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import warnings

import checks
from checks import SAMPLES, VEXAL, check, has, need

need("storescp", "dcmmkdir", module="pydicom")
HAS_DCDIRDMP, HAS_GDCMDUMP = (has(program, "records by it") for program in ("dcdirdmp", "gdcmdump"))
import network
import pydicom
from pydicom.dataset import Dataset, FileMetaDataset
from pydicom.encaps import encapsulate
from pydicom.sequence import Sequence

warnings.simplefilter("ignore")
SAMPLES = os.path.join(SAMPLES, "dicomdir")


def run(*command, cwd=None):
    return checks.run(*command, text=True, cwd=cwd)


def tree(path):
    """(depth, type, file, instance) of all records, by their offsets, as pydicom reads them."""
    data = pydicom.dcmread(path)
    by_offset = {item.seq_item_tell: item for item in data.get("DirectoryRecordSequence", None) or []}
    found, open_records = [], []
    if data.OffsetOfTheFirstDirectoryRecordOfTheRootDirectoryEntity:
        open_records.append((data.OffsetOfTheFirstDirectoryRecordOfTheRootDirectoryEntity, 0))
    last = 0
    while open_records:
        offset, depth = open_records.pop()
        item = by_offset[offset]
        if depth == 0:
            last = offset
        parts = item.get("ReferencedFileID", None) or []
        parts = [parts] if isinstance(parts, str) else list(parts)
        found.append((depth, item.DirectoryRecordType, "/".join(parts),
                      str(item.get("ReferencedSOPInstanceUIDInFile", "") or "")))
        if item.OffsetOfTheNextDirectoryRecord:
            open_records.append((item.OffsetOfTheNextDirectoryRecord, depth))
        if item.OffsetOfReferencedLowerLevelDirectoryEntity:
            open_records.append((item.OffsetOfReferencedLowerLevelDirectoryEntity, depth + 1))
    assert data.OffsetOfTheLastDirectoryRecordOfTheRootDirectoryEntity in (last, None)
    return found


def listed(path):
    lines = run(VEXAL, "dir", "list", "--json", path).stdout.splitlines()
    rows = [json.loads(line) for line in lines]
    return [(row["depth"], row["type"], row.get("file", ""), row.get("instance", "")) for row in rows]


def follow(records, first):
    """(depth, type, file) along the offsets of records that know next, lower, type and file."""
    found, levels = [], [(first, 0)]
    while levels:
        offset, depth = levels.pop()
        if offset:
            record = records[offset]
            found.append((depth, record["type"], record["file"] or ""))
            levels += [(record["next"], depth), (record["lower"], depth + 1)]
    return found


def dumped(path):
    """The same as dcmdump shows it: each record with its offset and what it refers to."""
    records, first, record = {}, 0, {}
    for line in run("dcmdump", path).stdout.splitlines():
        tag, value = line.strip()[:11], line[line.find("("):].split("#")[0][15:].strip(" []")
        if line.lstrip().startswith("#  offset=$"):
            record = {"type": "", "next": 0, "lower": 0, "file": ""}
            records[int(line.split("$")[1].split()[0])] = record
        elif tag == "(0004,1200)":
            first = int(value)
        elif tag in ("(0004,1400)", "(0004,1420)"):
            record["next" if tag == "(0004,1400)" else "lower"] = int(value)
        elif tag in ("(0004,1430)", "(0004,1500)"):
            record["type" if tag == "(0004,1430)" else "file"] = value.replace("\\", "/")
    return follow(records, first)


def dumped_by_gdcm(path):
    """Types and files of all records, in the order of the file."""
    found = []
    for line in run("gdcmdump", path).stdout.splitlines():
        if "(0004,1430)" in line:
            found.append([line.split("[")[1].split("]")[0].strip(), ""])
        if "(0004,1500)" in line:
            found[-1][1] = line.split("[")[1].split("]")[0].strip().replace("\\", "/")
    return [tuple(row) for row in found]


def in_file_order(path):
    found = []
    for item in pydicom.dcmread(path).get("DirectoryRecordSequence", None) or []:
        parts = item.get("ReferencedFileID", None) or []
        found.append((item.DirectoryRecordType, "/".join([parts] if isinstance(parts, str) else parts)))
    return found


def shown_by_dicom3tools(path):
    found, result = [], run("dcdirdmp", path)
    for line in (result.stdout + result.stderr).splitlines():
        text = line.lstrip("\t")
        if text.startswith(" -> "):
            found[-1] = found[-1][:2] + (text[4:].strip().replace("\\", "/"),)
        elif text.split(" ")[0].isupper():
            found.append((len(line) - len(text), text.split(" ")[0], ""))
    return found


def read_by_others(name, path):
    """pydicom, dcmtk, gdcm and dcdirdmp have the records that vexal lists."""
    expected = listed(path)
    places = [row[:3] for row in expected]
    check(tree(path) == expected, "%s: %s" % (name + ": pydicom", "%d records" % len(expected)))
    check(dumped(path) == places, name + ": dcmdump")
    check(whole(path) == (1, places), name + ": whole")
    if HAS_DCDIRDMP:
        check(shown_by_dicom3tools(path) == places, "%s: %s" % (name + ": dcdirdmp", str(shown_by_dicom3tools(path))[:300]))
    if HAS_GDCMDUMP:
        check(dumped_by_gdcm(path) == in_file_order(path), name + ": gdcmdump")


def samples():
    """Each directory reads to what is recorded of it, in place and whole. In one the last record runs beyond the end of the
    file: it ends in the status of that, behind the records that are there."""
    for name in sorted(os.listdir(SAMPLES)):
        path = os.path.join(SAMPLES, name)
        if not os.path.isfile(path):
            continue
        with open(os.path.join(SAMPLES, "..", "expected", "dicomdir", name + ".json"), encoding="utf-8") as file:
            recorded = json.load(file)["dicomdir"]
        places = follow({record["offset"]: record for record in recorded["records"]}, recorded["first"])
        cut = name == "DICOMDIR-nooffset"
        if cut:
            places.pop()
        status, found = whole(path)
        shown = run(VEXAL, "dir", "list", path)
        check((status, shown.returncode) == ((4045, 1) if cut else (1, 0)), "%s: %s" % ("sample %s: status" % name, shown.stderr))
        check([row[:3] for row in listed(path)] == found == places, "%s: %s" % ("sample " + name, "%d of %d, status %d" % (len(found), len(places), status)))


def samples_in_place(folder):
    for name in ("DICOMDIR", "DICOMDIR-implicit", "DICOMDIR-reordered"):
        path = os.path.join(folder, name)
        shutil.copy(os.path.join(SAMPLES, name), path)
        in_place(path, name)


def on_many_ways(folder):
    """Both records of each of 40 levels lead to the two of the next: that would be 2 to the 41 lines."""
    element = lambda number, vr, value: struct.pack("<HH2sH", 4, number, vr, len(value)) + value
    offset = lambda number, value: element(number, b"UL", struct.pack("<I", value))
    with open(os.path.join(SAMPLES, "DICOMDIR-empty.dcm"), "rb") as file:
        head = file.read()
    head = head[:head.index(b"\4\0\0\x12UL")]
    size, first, levels = 66, len(head) + 12 + 12 + 10 + 12, 40
    records = b""
    for level in range(levels):
        for right in (0, 1):
            below = first + 2 * (level + 1) * size if level + 1 < levels else 0
            body = (offset(0x1400, 0 if right else first + (2 * level + 1) * size) + element(0x1410, b"US", b"\xff\xff") +
                    offset(0x1420, below) + element(0x1430, b"CS", b"PRIVATE ") + element(0x1432, b"UI", b""))
            records += b"\xfe\xff\0\xe0" + struct.pack("<I", len(body)) + body
    assert len(records) == 2 * levels * size
    path = os.path.join(folder, "DICOMDIR")
    with open(path, "wb") as file:
        file.write(head + offset(0x1200, first) + offset(0x1202, first + size) + element(0x1212, b"US", b"\0\0") +
                   struct.pack("<HH2sHI", 4, 0x1220, b"SQ", 0, len(records)) + records)
    for action in ("list", "check"):
        shown = run(VEXAL, "dir", action, path)
        check(shown.returncode == 1 and len(shown.stdout) < 1 << 20, "%s: %s" % ("many ways: %s comes to an end" % action, shown.stderr[-300:]))


def file_set(folder):
    for name in os.listdir(SAMPLES):
        if os.path.isdir(os.path.join(SAMPLES, name)):
            shutil.copytree(os.path.join(SAMPLES, name), os.path.join(folder, name))
    return os.path.join(folder, "DICOMDIR")


def made_by_others(folder):
    directory = file_set(folder)
    for length in ("-e", "+e"):
        made = run("dcmmkdir", "+r", "+I", length, "-Nxc", "-Nec", "-Nrc", "+id", ".", cwd=folder)
        check(made.returncode == 0, "%s: %s" % ("dcmmkdir " + length, made.stderr))
        check(listed(directory) == tree(directory) and len(listed(directory)) == 52, "dcmmkdir %s: records" % length)
        checked = run(VEXAL, "dir", "check", directory)
        check(checked.returncode == 0, "%s: %s" % ("dcmmkdir %s: check" % length, checked.stdout))
        in_place(directory, "dcmmkdir " + length)
        os.remove(directory)


def made_by_vexal(folder):
    directory = file_set(folder)
    made = run(VEXAL, "dir", "create", directory, "--id", "TEST")
    check(made.returncode == 0 and len(listed(directory)) == 52, "%s: %s" % ("create", made.stderr))
    read_by_others("create", directory)
    of_peer = os.path.join(folder, "PEER")
    run("dcmmkdir", "+r", "+I", "-Nxc", "-Nec", "-Nrc", "+id", ".", "+D", "PEER", cwd=folder)
    all_records = sorted(tree(of_peer))
    check(all_records == sorted(tree(directory)), "create: records of dcmmkdir")
    os.remove(of_peer)
    removed = run(VEXAL, "dir", "remove", directory, os.path.join(folder, "77654033/CR1/6154"), "--patient", "98890234")
    check(removed.returncode == 0 and 0 < len(listed(directory)) < 52, "%s: %s" % ("remove", removed.stderr))
    read_by_others("remove", directory)
    shutil.copy(directory, of_peer)
    gone_on = run("dcmmkdir", "+r", "+I", "+A", "-nb", "-Nxc", "-Nec", "-Nrc", "+id", ".", "+D", "PEER", cwd=folder)
    check(gone_on.returncode == 0 and sorted(tree(of_peer)) == all_records, "%s: %s" % ("dcmmkdir goes on with it", gone_on.stderr))
    os.remove(of_peer)
    added = run(VEXAL, "dir", "add", directory, folder)
    check(added.returncode == 0 and len(listed(directory)) == 52, "%s: %s" % ("add", added.stderr))
    read_by_others("add", directory)
    os.remove(os.path.join(folder, "77654033/CR2/6247"))
    checked = run(VEXAL, "dir", "check", directory)
    check(checked.returncode == 1 and "77654033/CR2/6247: there is no such" in checked.stdout, "check finds a lost file")
    with open(directory, "r+b") as broken:
        broken.truncate(4000)
    repaired = run(VEXAL, "dir", "repair", directory)
    check(repaired.returncode == 0 and len(listed(directory)) == 50, "%s: %s" % ("repair", repaired.stderr))
    read_by_others("repair", directory)
    check(pydicom.dcmread(directory).FileSetID == "TEST", "repair: File-set ID")
    in_place(directory, "vexal")
    added = run(VEXAL, "dir", "add", directory, folder)
    check(added.returncode == 0 and (1, "STUDY", "", "") in listed(directory), "add: records without any below stay: " + added.stderr)


def on_a_disc(folder):
    """Names in lower case, as some systems show them, are found; what a link brings in from elsewhere is not the set's."""
    directory = file_set(folder)
    run(VEXAL, "dir", "create", directory)
    for root, folders, files in os.walk(folder, topdown=False):
        for name in folders + files:
            if name != "DICOMDIR":
                os.rename(os.path.join(root, name), os.path.join(root, name.lower()))
    checked = run(VEXAL, "dir", "check", directory)
    check(checked.returncode == 0, "%s: %s" % ("lower case: check", checked.stdout))
    with tempfile.TemporaryDirectory() as out:
        port = network.free_port()
        with network.Server([VEXAL, "receive", port, "--dir", out], port):
            sent = run(VEXAL, "store", "127.0.0.1", str(port), directory)
            check(sent.returncode == 0 and len(os.listdir(out)) == 31, "%s: %s" % ("lower case: store", sent.stderr))
            victim = os.path.join(folder, "77654033", "cr1", "6154")
            shutil.move(victim, os.path.join(out, "elsewhere"))
            os.symlink(os.path.join(out, "elsewhere"), victim)
            sent = run(VEXAL, "store", "127.0.0.1", str(port), directory)
            check(sent.returncode != 0 and "77654033/CR1/6154" in sent.stderr, "%s: %s" % ("a link: store", sent.stderr))
    checked = run(VEXAL, "dir", "check", directory)
    check(checked.returncode == 1 and "77654033/CR1/6154: there is no such file" in checked.stdout, "%s: %s" % ("a link: check", checked.stdout))


def item(**more):
    found = Dataset()
    for keyword, value in more.items():
        setattr(found, keyword, value)
    return found


def made(path, sop_class, number, syntax="1.2.840.10008.1.2.1", **more):
    """A file of a class with what its record asks for, and what else is given; None leaves an attribute out."""
    instance = "1.2.3.%d" % number
    head = dict(SOPClassUID=sop_class, SOPInstanceUID=instance, PatientID="P", PatientName="A^B", StudyInstanceUID="1.2", StudyID="1",
                SeriesInstanceUID="1.4", StudyDate="20200101", StudyTime="12", Modality="OT", SeriesNumber=1, InstanceNumber=number,
                ContentDate="20200101", ContentTime="12", ContentLabel="X", ContentDescription="", ContentCreatorName="")
    dataset = item(**{keyword: value for keyword, value in (head | more).items() if value is not None})
    dataset.file_meta = FileMetaDataset()
    dataset.file_meta.MediaStorageSOPClassUID, dataset.file_meta.MediaStorageSOPInstanceUID = sop_class, instance
    dataset.file_meta.TransferSyntaxUID = syntax
    dataset.is_little_endian, dataset.is_implicit_VR = True, False
    dataset.save_as(path, write_like_original=False)


CLASS = "1.2.840.10008.5.1.4.1.1."
CODE = item(CodeValue="1", CodingSchemeDesignator="99TEST", CodeMeaning="Gr\u00f6\u00dfe")


def content(relationship, **more):
    return item(RelationshipType=relationship, ValueType="TEXT", TextValue="hidden", ConceptNameCodeSequence=Sequence([CODE]), **more)


def of_all_types(folder):
    """Objects whose bulk values lie in front of what their record tells, or in its icon, and reports."""
    bulk = b"\1\2" * 100000
    pixels = dict(SamplesPerPixel=1, PhotometricInterpretation="MONOCHROME2", Rows=500, Columns=400, BitsAllocated=8, BitsStored=8,
                  HighBit=7, PixelRepresentation=0, PixelData=bulk)
    points = Sequence([item(SurfacePointsSequence=Sequence([item(PointCoordinatesData=bulk)]))])
    report = dict(SpecificCharacterSet="ISO_IR 192", ConceptNameCodeSequence=Sequence([CODE]))
    modified = content("HAS CONCEPT MOD", ContentSequence=Sequence([content("HAS CONCEPT MOD")]))
    objects = [
        ("WAVEFORM", "9.1.1", dict(WaveformSequence=Sequence([item(WaveformBitsAllocated=16, WaveformData=bulk)]))),
        ("ENCAP DOC", "104.1", dict(EncapsulatedDocument=bulk, DocumentTitle="", MIMETypeOfEncapsulatedDocument="application/pdf",
                                    ConceptNameCodeSequence=Sequence())),
        ("SPECTROSCOPY", "4.2", dict(ImageType=["ORIGINAL", "PRIMARY"], NumberOfFrames=1, Rows=1, Columns=1, DataPointRows=1,
                                     DataPointColumns=9, SpectroscopyData=bulk)),
        ("SURFACE", "66.5", dict(SurfaceSequence=points)),
        ("SURFACE SCAN", "68.1", dict(SurfaceSequence=points)),
        ("TRACT", "66.6", dict(TrackSetSequence=Sequence([item(TrackSequence=Sequence([item(PointCoordinatesData=bulk)]))]))),
        ("IMAGE", "7", dict(IconImageSequence=Sequence([item(**pixels)]), **pixels)),
        ("SR DOCUMENT", "88.11", dict(report, CompletionFlag="PARTIAL", VerificationFlag="VERIFIED", VerifyingObserverSequence=Sequence(
            [item(VerificationDateTime=at) for at in ("20200101", "20210101", "2019")]),
            ContentSequence=Sequence([content("CONTAINS"), modified, content("CONTAINS")]))),
        ("KEY OBJECT DOC", "88.59", dict(report, ContentSequence=Sequence([content("CONTAINS")])))]
    for number, (_, sop_class, more) in enumerate(objects):
        made(os.path.join(folder, "F%d" % number), CLASS + sop_class, number, **more)
    directory = os.path.join(folder, "DICOMDIR")
    created = run(VEXAL, "dir", "create", directory)
    check(created.returncode == 0 and not created.stderr, "all types: create: " + created.stderr)
    check(sorted(row[1:3] for row in listed(directory)[3:]) == sorted((row[0], "F%d" % i) for i, row in enumerate(objects)), "all types: records")
    check(run(VEXAL, "dir", "check", directory).returncode == 0, "all types: check")
    records = {record.DirectoryRecordType: record for record in pydicom.dcmread(directory).DirectoryRecordSequence}
    check(records["IMAGE"].IconImageSequence[0].PixelData == bulk, "all types: the icon")
    compressed = item(**(pixels | {"PixelData": encapsulate([b"\xff\xd8\xff\xd9"])}))
    compressed["PixelData"].is_undefined_length = True
    made(os.path.join(folder, "F99"), CLASS + "7", 99, syntax="1.2.840.10008.1.2.4.90", IconImageSequence=Sequence([compressed]))
    added = run(VEXAL, "dir", "add", directory, os.path.join(folder, "F99"))
    check(added.returncode == 0 and "IconImageSequence" not in pydicom.dcmread(directory).DirectoryRecordSequence[4],
          "all types: no compressed icon: " + added.stderr)
    check(records["SR DOCUMENT"].VerificationDateTime == "20210101", "all types: the last verification")
    check(records["SR DOCUMENT"].get("ContentSequence") == Sequence([modified]), "all types: the modifiers of the title, and no more")
    check("ContentSequence" not in records["KEY OBJECT DOC"] and
          records["KEY OBJECT DOC"].ConceptNameCodeSequence == Sequence([CODE]), "all types: no content of a selection")


def beside_bad_ones(folder):
    """A file that is left out, and why, takes no other with it; what it was before stays."""
    directory = os.path.join(folder, "DICOMDIR")
    files = {name: os.path.join(folder, name) for name in ("A0", "A1", "B0", "B1", "LINK", "AT\\HERE", "b1")}
    made(files["A0"], CLASS + "7", 1, InstanceNumber=None, SeriesInstanceUID="1.5")
    made(files["A1"], CLASS + "7", 2, SeriesInstanceUID="1.5")
    other = dict(PatientID="Q", PatientName="M\u00fcller^\x1b[31mred\a", SpecificCharacterSet="ISO_IR 192", StudyInstanceUID="1.3", SeriesInstanceUID="1.6")
    made(files["B0"], CLASS + "7", 3, Modality=None, **other)
    made(files["B1"], CLASS + "7", 4, **other)
    made(files["AT\\HERE"], CLASS + "7", 5)
    made(files["b1"], CLASS + "7", 6)
    os.symlink(files["A1"], files["LINK"])
    created = run(VEXAL, "dir", "create", "--any-names", directory)
    check(created.returncode == 1 and [row[2] for row in listed(directory) if row[2]] == ["A1", "B1"], "bad ones: create: " + created.stderr)
    for name, why in (("A0", "InstanceNumber"), ("B0", "Modality"), ("LINK", "symbolic link"), ("AT\\HERE", "backslashes"), ("b1", "case")):
        check(any(name in line and why in line for line in created.stderr.splitlines()), "bad ones: " + name)
    shown = subprocess.run([VEXAL, "dir", "list", directory], capture_output=True).stdout
    check("M\u00fcller^\\x1B[31mred\\x07".encode() in shown and b"\x1b" not in shown, "bad ones: a name in its character set, and no escapes: %r" % shown)
    before = open(directory, "rb").read()
    with open(files["A1"], "r+b") as file:
        file.truncate(400)
    check(run(VEXAL, "dir", "add", directory, files["A1"]).returncode == 1 and open(directory, "rb").read() == before, "bad ones: add leaves all as it was")
    check(run(VEXAL, "dir", "create", files["B1"], files["B1"]).returncode == 2 and pydicom.dcmread(files["B1"]).InstanceNumber == 4,
          "bad ones: create replaces nothing but a DICOMDIR")
    check(run("sh", "-c", "ulimit -f 0; trap '' XFSZ; exec %s dir create %s %s" % (VEXAL, directory, files["B1"])).returncode == 2 and
          open(directory, "rb").read() == before and sorted(os.listdir(folder)) == sorted(["DICOMDIR", *files]), "bad ones: no room")


def at_once(folder):
    """What several processes add at the same time is all there; so is what goes into one of another encoding."""
    directory = os.path.join(folder, "DICOMDIR")
    for number in range(12):
        made(os.path.join(folder, "F%d" % number), CLASS + "7", number)
    run(VEXAL, "dir", "create", directory, os.path.join(folder, "F0"))
    adding = [subprocess.Popen([VEXAL, "dir", "add", directory, os.path.join(folder, "F%d" % number)]) for number in range(1, 12)]
    check([process.wait(60) for process in adding] == [0] * 11, "at once: all succeed")
    check(sorted(row[2] for row in listed(directory)[3:]) == sorted("F%d" % number for number in range(12)), "at once: all are there")
    for name in ("DICOMDIR-implicit", "DICOMDIR-bigEnd"):
        other = os.path.join(folder, name)
        shutil.copy(os.path.join(SAMPLES, name), other)
        before = [row[:3] for row in listed(other)]
        added = run(VEXAL, "dir", "add", other, os.path.join(folder, "F1"))
        check(added.returncode == 0 and pydicom.dcmread(other).file_meta.TransferSyntaxUID == "1.2.840.10008.1.2.1", name + ": add: " + added.stderr)
        new = [(0, "PATIENT", ""), (1, "STUDY", ""), (2, "SERIES", ""), (3, "IMAGE", "F1")]
        check(sorted(row[:3] for row in listed(other)) == sorted(before + new) and tree(other) == listed(other), name + ": all records")


LIBRARY = None


def library():
    global LIBRARY
    if LIBRARY is None:
        build = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(VEXAL))))
        LIBRARY = ctypes.CDLL(os.path.join(build, "libvexalkit.so"))
        LIBRARY.VX_Set_VexalINI(os.path.join(build, "share/vexalkit/vexal.ini").encode())
        LIBRARY.VX_Library_Initialization(None, None, None)
    return LIBRARY


INPUT = ctypes.CFUNCTYPE(ctypes.c_int32, ctypes.c_char_p, ctypes.c_void_p, ctypes.POINTER(ctypes.c_uint32),
                         ctypes.POINTER(ctypes.c_void_p), ctypes.c_int32, ctypes.POINTER(ctypes.c_int32))


def whole(path):
    """Status and (depth, type, file) of a directory that is read whole into memory."""
    lib, handle, application = library(), ctypes.c_int32(-1), ctypes.c_int32()
    with open(path, "rb") as file:
        content = ctypes.create_string_buffer(file.read())

    def give(_name, _user, size, data, _first, last):
        size[0], data[0], last[0] = len(content) - 1, ctypes.addressof(content), 1
        return 1

    lib.VX_Register_Application(ctypes.byref(application), b"WHOLE")
    lib.VX_Create_File(ctypes.byref(handle), b"DICOMDIR", b"DICOMDIR", 1)
    callback = INPUT(give)
    status = lib.VX_Open_File(application, handle, None, callback)
    entity, record, last, name = ctypes.c_int32(), ctypes.c_int32(), ctypes.c_int32(), ctypes.c_char_p()
    lib.VX_Dir_Root_Entity(handle, ctypes.byref(entity), ctypes.byref(record), ctypes.byref(name), ctypes.byref(last))
    found, levels = [], [(entity.value, record.value)]
    while levels:
        at, id_ = levels.pop()
        if not id_:
            continue
        found.append((len(levels), text(id_, 0x00041430), "/".join(values(id_, 0x00041500))))
        entity, record = ctypes.c_int32(), ctypes.c_int32()
        lib.VX_Dir_Next_Record(handle, at, ctypes.byref(record), ctypes.byref(name), ctypes.byref(last))
        levels.append((at, record.value))
        lib.VX_Dir_Next_Entity(handle, id_, ctypes.byref(entity), ctypes.byref(record), ctypes.byref(name), ctypes.byref(last))
        levels.append((entity.value, record.value))
    lib.VX_Free_File(ctypes.byref(handle))
    lib.VX_Release_Application(ctypes.byref(application))
    return status, found


def values(record, tag):
    found, buffer = [], ctypes.create_string_buffer(256)
    status = library().VX_Get_Value_To_String(record, tag, len(buffer), buffer)
    while status == 1:
        found.append(buffer.value.decode("latin-1").strip())
        status = library().VX_Get_Next_Value_To_String(record, tag, len(buffer), buffer)
    return found


def text(record, tag):
    return "".join(values(record, tag))


def in_place(directory, name):
    """A patient is added and the first one deleted, record by record."""
    lib, handle, record = library(), ctypes.c_int32(), ctypes.c_int32()
    before = tree(directory)
    check(lib.VX_DDH_Open(directory.encode(), ctypes.byref(handle)) == 1, name + ": opened in place")
    lib.VX_DDH_Get_First_Lower_Record(handle, ctypes.byref(record))
    lib.VX_DDH_Delete_Record(record)
    lib.VX_DDH_Add_Record(handle, b"PATIENT", ctypes.byref(record))
    for tag, text in ((0x00100010, b"New^One"), (0x00100020, b"NEW")):
        lib.VX_Set_Value_From_String(record, tag, text)
    study = ctypes.c_int32()
    lib.VX_DDH_Add_Record(record, None, ctypes.byref(study))
    check(lib.VX_DDH_Update(handle) == 1, name + ": updated in place")
    lib.VX_Free_File(ctypes.byref(handle))
    second = [i for i, row in enumerate(before) if row[0] == 0][1:2]
    expected = (before[second[0]:] if second else []) + [(0, "PATIENT", "", ""), (1, "STUDY", "", "")]
    check(tree(directory) == expected, name + ": records after it")
    read_by_others(name + " in place", directory)


os.environ["VEXAL_LOG"] = "/dev/null"
if checks.REAL_SAMPLES:
    samples()
sys.exit(checks.run_parts(samples_in_place, on_many_ways, made_by_others, made_by_vexal, on_a_disc, of_all_types, beside_bad_ones, at_once))
