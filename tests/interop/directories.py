#!/usr/bin/env python3
"""Directories of vexal beside those of other people's programs.

usage: directories.py VEXAL SAMPLES
What dcmmkdir makes, vexal lists as pydicom reads it, and changes; what vexal makes, changes and converts is read by pydicom,
dcmtk and dcdirdmp with the same records, and dcmmkdir goes on with it. Exit 77 (skipped) where something is missing.
"""
import json
import os
import re
import shutil
import subprocess
import sys
import warnings

import checks
from checks import REAL_SAMPLES, VEXAL, Vexal, check, ended, files_under, has, need, paths, read, run_parts, write
import made
from made import element

need("dcmmkdir", "dcmdump", modules=["pydicom"])
import pydicom
from pydicom.dataset import Dataset, FileMetaDataset
from pydicom.encaps import encapsulate
from pydicom.sequence import Sequence

warnings.simplefilter("ignore")
SAMPLES = os.path.join(checks.SAMPLES, "dicomdir")
EXPLICIT = "1.2.840.10008.1.2.1"
FIRST, SECOND = "77654033", "98890234"  # the patients of the file-set


def run(*command, **more):
    return checks.run(*command, text=True, **more)


def vexal(action, directory, *words, status=0, says="", title=None):
    return ended(run(VEXAL, "dir", action, directory, *words), "%s: dir %s" % (title or os.path.basename(directory), action), status, says)


# ---- Records ----


def follow(found, first):
    """Depth and record of all, along their offsets: the next of each, and the first one below it."""
    rows, levels = [], [(first, 0)]
    while levels and len(rows) < 10000:
        offset, depth = levels.pop()
        if offset:
            rows.append((depth, found[offset]))
            levels += [(found[offset]["next"], depth), (found[offset]["lower"], depth + 1)]
    return rows


def file_of(record):
    parts = record.get("ReferencedFileID", None) or []
    return "/".join([parts] if isinstance(parts, str) else parts)


def read_records(path):
    """As pydicom reads them."""
    data = pydicom.dcmread(path, force=True)
    return follow({record.seq_item_tell: {
        "type": record.DirectoryRecordType, "file": file_of(record), "instance": str(record.get("ReferencedSOPInstanceUIDInFile", "") or ""),
        "keys": [(e.tag, str(e.value)) for e in record if e.tag.group != 4 and e.VR != "SQ"], "next": record.OffsetOfTheNextDirectoryRecord,
        "lower": record.OffsetOfReferencedLowerLevelDirectoryEntity} for record in data.get("DirectoryRecordSequence", None) or []},
        data.OffsetOfTheFirstDirectoryRecordOfTheRootDirectoryEntity)


def records(path):
    """What they say, as a tree; None where they can not be found."""
    try:
        return [(depth, record["type"], record["keys"]) for depth, record in read_records(path)]
    except (KeyError, AttributeError):
        return None


def tree(path):
    return [(depth, record["type"], record["file"], record["instance"]) for depth, record in read_records(path)]


def listed(path):
    rows = [json.loads(line) for line in run(VEXAL, "dir", "list", "--json", path).stdout.splitlines()]
    return [(row["depth"], row["type"], row.get("file", ""), row.get("instance", "")) for row in rows]


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
    """pydicom, dcmtk and dcdirdmp have the records that vexal lists."""
    expected = listed(path)
    check(tree(path) == expected, "%s: pydicom: %d records" % (name, len(expected)))
    ended(run("dcmdump", "-q", path), name + ": dcmdump")
    if HAS_DCDIRDMP:
        check(shown_by_dicom3tools(path) == [row[:3] for row in expected], "%s: dcdirdmp: %s" % (name, str(shown_by_dicom3tools(path))[:300]))


def samples(_):
    """Each directory reads to what is recorded of it. In one the last record runs beyond the end of the file: it ends in the
    status of that, behind the records that are there."""
    for name in sorted(os.listdir(SAMPLES)) if REAL_SAMPLES else ():
        path = os.path.join(SAMPLES, name)
        if os.path.isfile(path):
            recorded = json.loads(read(os.path.join(SAMPLES, "..", "expected", "dicomdir", name + ".json")))["dicomdir"]
            rows = follow({record["offset"]: record for record in recorded["records"]}, recorded["first"])
            cut = name == "DICOMDIR-nooffset"
            vexal("list", path, status=int(cut))
            check([row[:3] for row in listed(path)] == [(depth, row["type"], row["file"] or "") for depth, row in rows[:-1 if cut else None]],
                  "sample %s: %d records" % (name, len(rows)))


def on_many_ways(folder):
    """Both records of each of 40 levels lead to the two of the next: that would be 2 to the 41 lines."""
    offset = lambda number, value: element(0x00040000 | number, "UL", value.to_bytes(4, "little"))
    head = read(os.path.join(SAMPLES, "DICOMDIR-empty.dcm"))
    head = head[:head.index(b"\4\0\0\x12UL")]
    size, first, levels, found = 66, len(head) + 12 + 12 + 10 + 12, 40, b""
    for level in range(levels):
        for right in (0, 1):
            below = first + 2 * (level + 1) * size if level + 1 < levels else 0
            body = (offset(0x1400, 0 if right else first + (2 * level + 1) * size) + element(0x00041410, "US", b"\xff\xff") +
                    offset(0x1420, below) + element(0x00041430, "CS", "PRIVATE ") + element(0x00041432, "UI", b""))
            found += b"\xfe\xff\0\xe0" + len(body).to_bytes(4, "little") + body
    assert len(found) == 2 * levels * size
    path = write(os.path.join(folder, "DICOMDIR"), head + offset(0x1200, first) + offset(0x1202, first + size) +
                 element(0x00041212, "US", b"\0\0") + element(0x00041220, "SQ", found))
    for action in ("list", "check"):
        check(len(vexal(action, path, status=1, title="many ways").stdout) < 1 << 20, "many ways: %s comes to an end" % action)


# ---- A file-set ----


def file_set(folder):
    for name in os.listdir(SAMPLES):
        if os.path.isdir(os.path.join(SAMPLES, name)):
            shutil.copytree(os.path.join(SAMPLES, name), os.path.join(folder, name))
    return os.path.join(folder, "DICOMDIR")


def dcmmkdir(folder, *words):
    ended(run("dcmmkdir", "+r", "+I", *words, "-Nxc", "-Nec", "-Nrc", "+id", ".", cwd=folder), "dcmmkdir %s" % (words,))


def change(directory, folder, name):
    """A patient goes, and comes back with the files."""
    before = tree(directory)
    vexal("remove", directory, "--patient", FIRST, title=name)
    starts = [n for n, row in enumerate(before) if row[0] == 0]
    patients = [before[start:end] for start, end in zip(starts, starts[1:] + [None])]
    left = [patient for patient in patients if not patient[3][2].startswith(FIRST)]
    check(len(left) == 1 and listed(directory) == left[0], name + ": remove: other records")
    read_by_others(name + ": remove", directory)
    vexal("add", directory, folder, title=name)
    check(sorted(listed(directory)) == sorted(before), name + ": add: other records")
    read_by_others(name + ": add", directory)


def of_others(folder):
    directory = file_set(folder)
    for length in ("-e", "+e"):
        dcmmkdir(folder, length)
        check(listed(directory) == tree(directory) and len(listed(directory)) == 52, "dcmmkdir %s: records" % length)
        vexal("check", directory, title="dcmmkdir " + length)
        change(directory, folder, "dcmmkdir " + length)
        os.remove(directory)
    for name in ("DICOMDIR", "DICOMDIR-implicit", "DICOMDIR-reordered"):
        shutil.copy(os.path.join(SAMPLES, name), directory)
        change(directory, folder, name)
        os.remove(directory)


def made_by_vexal(folder):
    directory, of_peer = file_set(folder), os.path.join(folder, "PEER")
    vexal("create", directory, "--id", "TEST")
    check(len(listed(directory)) == 52, "create: records")
    read_by_others("create", directory)
    dcmmkdir(folder, "+D", "PEER")
    all_records = sorted(tree(of_peer))
    check(all_records == sorted(tree(directory)), "create: records of dcmmkdir")
    os.remove(of_peer)
    vexal("remove", directory, os.path.join(folder, "77654033/CR1/6154"), "--patient", SECOND)
    check(0 < len(listed(directory)) < 52, "remove: records")
    read_by_others("remove", directory)
    shutil.copy(directory, of_peer)
    dcmmkdir(folder, "+A", "-nb", "+D", "PEER")  # goes on with it
    check(sorted(tree(of_peer)) == all_records, "dcmmkdir goes on with it: records")
    os.remove(of_peer)
    vexal("add", directory, folder)
    check(len(listed(directory)) == 52, "add: records")
    read_by_others("add", directory)
    os.remove(os.path.join(folder, "77654033/CR2/6247"))
    check("77654033/CR2/6247: there is no such" in vexal("check", directory, status=1).stdout, "check finds a lost file")
    os.truncate(directory, 4000)
    vexal("repair", directory)
    check(len(listed(directory)) == 50 and pydicom.dcmread(directory).FileSetID == "TEST", "repair: records, File-set ID")
    read_by_others("repair", directory)


def on_a_disc(folder):
    """Names in lower case, as some systems show them, are found; what a link brings in from elsewhere is not the set's."""
    place, out, elsewhere = paths(folder, "set", "out", "elsewhere")
    directory = file_set(place)
    vexal("create", directory)
    for root, folders, files in os.walk(place, topdown=False):
        for name in folders + files:
            if name != "DICOMDIR":
                os.rename(os.path.join(root, name), os.path.join(root, name.lower()))
    vexal("check", directory, title="lower case")
    with Vexal("receive", out) as server:
        store = (VEXAL, "store", "127.0.0.1", str(server.port), directory)
        ended(run(*store), "lower case: store")
        check(len(os.listdir(out)) == 31, "lower case: store: %d objects" % len(os.listdir(out)))
        victim = os.path.join(place, "77654033", "cr1", "6154")
        shutil.move(victim, elsewhere)
        os.symlink(elsewhere, victim)
        ended(run(*store), "a link: store", 2, "77654033/CR1/6154")
    told = vexal("check", directory, status=1, title="a link").stdout
    check("77654033/CR1/6154: there is no such file" in told, "a link: check: " + told)


# ---- Made files ----


def item(**more):
    found = Dataset()
    for keyword, value in more.items():
        setattr(found, keyword, value)
    return found


def make(path, sop_class, number, syntax=EXPLICIT, **more):
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
        ("RADIOTHERAPY", "481.10", dict(UserContentLabel="X", ContentLabel=None)),
        ("RADIOTHERAPY", "481.20", dict(UserContentLabel="X", ContentCreatorName=None)),
        ("ANNOTATION", "91.1", {}),
        ("PLAN", "1.2.840.10008.5.1.4.34.7", {}),
        ("IMAGE", "7", dict(IconImageSequence=Sequence([item(**pixels)]), **pixels)),
        ("SR DOCUMENT", "88.11", dict(report, CompletionFlag="PARTIAL", VerificationFlag="VERIFIED", VerifyingObserverSequence=Sequence(
            [item(VerificationDateTime=at) for at in ("20200101", "20210101", "2019")]),
            ContentSequence=Sequence([content("CONTAINS"), modified, content("CONTAINS")]))),
        ("KEY OBJECT DOC", "88.59", dict(report, ContentSequence=Sequence([content("CONTAINS")])))]
    for number, (_, sop_class, more) in enumerate(objects):
        make(os.path.join(folder, "F%d" % number), sop_class if "10008" in sop_class else CLASS + sop_class, number, **more)
    directory = os.path.join(folder, "DICOMDIR")
    created = vexal("create", directory, title="all types")
    check(not created.stderr, "all types: create: " + created.stderr)
    check(sorted(row[1:3] for row in listed(directory)[3:]) == sorted((row[0], "F%d" % i) for i, row in enumerate(objects)), "all types: records")
    vexal("check", directory, title="all types")
    found = {record.DirectoryRecordType: record for record in pydicom.dcmread(directory).DirectoryRecordSequence}
    check(found["IMAGE"].IconImageSequence[0].PixelData == bulk, "all types: the icon")
    compressed = item(**(pixels | {"PixelData": encapsulate([b"\xff\xd8\xff\xd9"])}))
    compressed["PixelData"].is_undefined_length = True
    make(os.path.join(folder, "F99"), CLASS + "7", 99, syntax="1.2.840.10008.1.2.4.90", IconImageSequence=Sequence([compressed]))
    vexal("add", directory, os.path.join(folder, "F99"), title="all types")
    added = [record for record in pydicom.dcmread(directory).DirectoryRecordSequence if record.get("ReferencedFileID") == "F99"]
    check(len(added) == 1 and "IconImageSequence" not in added[0], "all types: no compressed icon")
    check(found["SR DOCUMENT"].VerificationDateTime == "20210101", "all types: the last verification")
    check(found["SR DOCUMENT"].get("ContentSequence") == Sequence([modified]), "all types: the modifiers of the title, and no more")
    check("ContentSequence" not in found["KEY OBJECT DOC"] and
          found["KEY OBJECT DOC"].ConceptNameCodeSequence == Sequence([CODE]), "all types: no content of a selection")


def beside_bad_ones(folder):
    """A file that is left out, and why, takes no other with it; what it was before stays."""
    names = ("A0", "A1", "B0", "B1", "LINK", "AT\\HERE", "b1")
    directory, a0, a1, b0, b1, link, at_here, b1_low = paths(folder, "DICOMDIR", *names)
    other = dict(PatientID="Q", PatientName="M\u00fcller^\x1b[31mred\a", SpecificCharacterSet="ISO_IR 192", StudyInstanceUID="1.3", SeriesInstanceUID="1.6")
    for number, (path, more) in enumerate(((a0, dict(InstanceNumber=None, SeriesInstanceUID="1.5")), (a1, dict(SeriesInstanceUID="1.5")),
                                           (b0, dict(Modality=None, **other)), (b1, other), (at_here, {}), (b1_low, {})), 1):
        make(path, CLASS + "7", number, **more)
    os.symlink(a1, link)
    created = vexal("create", directory, "--any-names", status=1, title="bad ones")
    check([row[2] for row in listed(directory) if row[2]] == ["A1", "B1"], "bad ones: create: " + created.stderr)
    for name, why in (("A0", "InstanceNumber"), ("B0", "Modality"), ("LINK", "symbolic link"), ("AT\\HERE", "backslashes"), ("b1", "case")):
        check(any(name in line and why in line for line in created.stderr.splitlines()), "bad ones: " + name)
    shown = checks.run(VEXAL, "dir", "list", directory).stdout
    check("M\u00fcller^\\x1B[31mred\\x07".encode() in shown and b"\x1b" not in shown, "bad ones: a name in its character set, and no escapes: %r" % shown)
    before = read(directory)
    os.truncate(a1, 400)
    vexal("add", directory, a1, status=1, title="bad ones")
    check(read(directory) == before, "bad ones: add leaves all as it was")
    vexal("create", b1, b1, status=2, title="bad ones")
    check(pydicom.dcmread(b1).InstanceNumber == 4, "bad ones: create replaces nothing but a DICOMDIR")
    limited = run("sh", "-c", "ulimit -f 0; trap '' XFSZ; exec %s dir create %s %s" % (VEXAL, directory, b1))
    check(limited.returncode == 2 and read(directory) == before and sorted(os.listdir(folder)) == sorted(["DICOMDIR", *names]), "bad ones: no room")


def at_once(folder):
    """What several processes add at the same time is all there; so is what goes into one of another encoding."""
    directory = os.path.join(folder, "DICOMDIR")
    for number in range(12):
        make(os.path.join(folder, "F%d" % number), CLASS + "7", number)
    vexal("create", directory, os.path.join(folder, "F0"))
    adding = [subprocess.Popen([VEXAL, "dir", "add", directory, os.path.join(folder, "F%d" % number)]) for number in range(1, 12)]
    check([process.wait(60) for process in adding] == [0] * 11, "at once: all succeed")
    check(sorted(row[2] for row in listed(directory)[3:]) == sorted("F%d" % number for number in range(12)), "at once: all are there")
    for name in ("DICOMDIR-implicit", "DICOMDIR-bigEnd"):
        other = shutil.copy(os.path.join(SAMPLES, name), folder)
        before = [row[:3] for row in listed(other)]
        vexal("add", other, os.path.join(folder, "F1"))
        check(pydicom.dcmread(other).file_meta.TransferSyntaxUID == EXPLICIT, name + ": add: another syntax")
        new = [(0, "PATIENT", ""), (1, "STUDY", ""), (2, "SERIES", ""), (3, "IMAGE", "F1")]
        check(sorted(row[:3] for row in listed(other)) == sorted(before + new) and tree(other) == listed(other), name + ": all records")


def rewritten(folder):
    """Files stay as they are when a directory tells of them, and records say what the files say, also behind a conversion. What
    would lose the places of the records is refused."""
    place, out, none, text = paths(folder, "set", "out", "none", "text")
    rows = made.make(os.path.join(folder, "made"), (made.objects, made.directories))
    files = [path for name, path, good in rows if good and re.match("dicomdir/[0-9]|obj/|sr/", name)]
    held = {"IM%05d" % number: read(path) for number, path in enumerate(files)}
    at_first = [write(os.path.join(place, name), data) for name, data in held.items()]
    directory, half, left_out = os.path.join(place, "DICOMDIR"), len(at_first) // 2, set()
    for action, some in (("create", at_first[:half]), ("add", at_first[half:])):
        result = run(VEXAL, "dir", action, directory, *some)
        left_out |= set(re.findall(r"(IM\d+): it lacks .*: left out", result.stderr))
        check(result.returncode == (1 if ": left out" in result.stderr else 0), "dir %s: %s" % (action, result.stderr[-300:]))
    check({os.path.basename(path): read(path) for path in files_under(place) if path != directory} == held, "dir create, add: files have changed")
    found = {file_of(record): record for record in pydicom.dcmread(directory).DirectoryRecordSequence if "ReferencedFileID" in record}
    check(set(found) == set(held) - left_out and len(left_out) < len(held) / 2, "dir create, add: records of %s" % sorted(set(held) ^ set(found))[:5])
    for name, record in found.items():
        data_set = pydicom.dcmread(os.path.join(place, name), stop_before_pixels=True)
        check((record.ReferencedSOPInstanceUIDInFile, record.ReferencedTransferSyntaxUIDInFile) ==
              (data_set.file_meta.MediaStorageSOPInstanceUID, data_set.file_meta.TransferSyntaxUID), "dir: the record of %s is of another" % name)
        for key in record:
            there = data_set.get(key.tag)
            if key.tag.group not in (2, 4) and key.VR != "SQ" and there is not None:
                check(str(key.value) == str(there.value), "dir: %s of %s: %r" % (key.tag, name, key.value))
    for to in ("implicit", "big-endian", "explicit"):
        for more in ((), ("--undefined-lengths",), ("--pad", "512")):
            check(run(VEXAL, "convert", *more, "--to", to, directory, out).returncode == 0 and records(out) == records(directory) is not None,
                  "DICOMDIR to %s %s" % (to, more))
    changes = ("--set", "FileSetID=A LONGER NAME", "--set", "DirectoryRecordSequence[1].StudyDescription=" + "long " * 9)
    ended(run(VEXAL, "modify", *changes, directory, out), "a modified DICOMDIR")
    check([row[:2] for row in records(out)] == [row[:2] for row in records(directory)], "a modified DICOMDIR: records")
    refused = [("convert", "--to", "deflated", directory), ("convert", "--to", "rle", directory), ("modify", "--set", "DirectoryRecordSequence=", directory),
               ("modify", "--set", "OffsetOfTheFirstDirectoryRecordOfTheRootDirectoryEntity=1", directory)]
    for n, form in enumerate((("json",), ("json", "--own"), ("xml",), ("xml", "--native"))):
        refused.append((*form, "--back", write(text + str(n), checks.run(VEXAL, *form, directory).stdout)))
    # One reference that leads nowhere.
    broken = write(out + ".broken", read(directory).replace(b"\x04\0\x00\x14UL\4\0\0\0\0\0", b"\x04\0\x00\x14UL\4\0\1\0\0\0", 1))
    refused += [("convert", "--to", "implicit", broken), ("modify", "--set", "FileSetID=X", broken)]
    for words in refused:
        ended(run(VEXAL, *words, none), "%s of a DICOMDIR" % (words,), 2, "vexal dir" if "--back" in words else "")
        check(not os.path.exists(none), "%s of a DICOMDIR leaves a file" % (words,))


if __name__ == "__main__":
    os.environ["VEXAL_LOG"] = "/dev/null"
    HAS_DCDIRDMP = has("dcdirdmp", "records by it")
    sys.exit(run_parts(samples, on_many_ways, of_others, made_by_vexal, on_a_disc, of_all_types, beside_bad_ones, at_once, rewritten))
