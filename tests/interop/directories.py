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
import sys
import tempfile
import warnings

import checks
from checks import SAMPLES, VEXAL, check, need

need("storescp", "dcmmkdir", module="pydicom")
import network
import pydicom

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
    if shutil.which("dcdirdmp"):
        check(shown_by_dicom3tools(path) == places, "%s: %s" % (name + ": dcdirdmp", str(shown_by_dicom3tools(path))[:300]))
    if shutil.which("gdcmdump"):
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
samples()
sys.exit(checks.run_parts(samples_in_place, on_many_ways, made_by_others, made_by_vexal, on_a_disc))
