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
import subprocess
import sys
import tempfile
import warnings

try:
    import pydicom
except ImportError:
    print("pydicom is not installed: skipped")
    sys.exit(77)

warnings.simplefilter("ignore")
VEXAL, SAMPLES = sys.argv[1], os.path.join(sys.argv[2], "dicomdir")
if not os.path.isdir(SAMPLES) or not shutil.which("dcmmkdir"):
    print("no samples in", SAMPLES, "or no dcmmkdir: skipped")
    sys.exit(77)
failures = []


def check(name, good, text=""):
    print("ok  " if good else "FAIL", name, "" if good else text)
    if not good:
        failures.append(name)


def run(*command, cwd=None):
    return subprocess.run(command, capture_output=True, text=True, timeout=60, cwd=cwd)


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


def read_by_others(name, path):
    """pydicom, dcmtk and dcdirdmp have the records that vexal lists."""
    expected = listed(path)
    check(name + ": pydicom", tree(path) == expected, "%d records" % len(expected))
    dump = run("dcmdump", "+P", "0004,1430", path)
    check(name + ": dcmdump", dump.returncode == 0 and dump.stdout.count("DirectoryRecordType") >= len(expected),
          dump.stderr)
    if shutil.which("dcdirdmp"):
        images = sum(1 for row in expected if row[1] == "IMAGE")
        dump = run("dcdirdmp", path)
        check(name + ": dcdirdmp", (dump.stdout + dump.stderr).count("->") >= images)
    if shutil.which("gdcmdump"):
        check(name + ": gdcmdump", run("gdcmdump", path).returncode == 0)


def samples():
    for name in ("DICOMDIR", "DICOMDIR-implicit", "DICOMDIR-bigEnd", "DICOMDIR-reordered"):
        path = os.path.join(SAMPLES, name)
        check("sample " + name, tree(path) == listed(path) and len(listed(path)) == 52)


def file_set(folder):
    for name in os.listdir(SAMPLES):
        if os.path.isdir(os.path.join(SAMPLES, name)):
            shutil.copytree(os.path.join(SAMPLES, name), os.path.join(folder, name))
    return os.path.join(folder, "DICOMDIR")


def made_by_others(folder):
    directory = file_set(folder)
    for length in ("-e", "+e"):
        made = run("dcmmkdir", "+r", "+I", length, "-Nxc", "-Nec", "-Nrc", "+id", ".", cwd=folder)
        check("dcmmkdir " + length, made.returncode == 0, made.stderr)
        check("dcmmkdir %s: records" % length, listed(directory) == tree(directory) and len(listed(directory)) == 52)
        checked = run(VEXAL, "dir", "check", directory)
        check("dcmmkdir %s: check" % length, checked.returncode == 0, checked.stdout)
        in_place(directory, "dcmmkdir " + length)
        os.remove(directory)


def made_by_vexal(folder):
    directory = file_set(folder)
    made = run(VEXAL, "dir", "create", directory, "--id", "TEST")
    check("create", made.returncode == 0 and len(listed(directory)) == 52, made.stderr)
    read_by_others("create", directory)
    of_peer = os.path.join(folder, "PEER")
    run("dcmmkdir", "+r", "+I", "-Nxc", "-Nec", "-Nrc", "+id", ".", "+D", "PEER", cwd=folder)
    check("create: records of dcmmkdir", sorted(tree(of_peer)) == sorted(tree(directory)))
    os.remove(of_peer)
    removed = run(VEXAL, "dir", "remove", directory, os.path.join(folder, "77654033/CR1/6154"), "--patient", "98890234")
    check("remove", removed.returncode == 0 and 0 < len(listed(directory)) < 52, removed.stderr)
    read_by_others("remove", directory)
    added = run(VEXAL, "dir", "add", directory, folder)
    check("add", added.returncode == 0 and len(listed(directory)) == 52, added.stderr)
    read_by_others("add", directory)
    os.remove(os.path.join(folder, "77654033/CR2/6247"))
    checked = run(VEXAL, "dir", "check", directory)
    check("check finds a lost file", checked.returncode == 1 and "77654033/CR2/6247: there is no such" in checked.stdout)
    with open(directory, "r+b") as broken:
        broken.truncate(4000)
    repaired = run(VEXAL, "dir", "repair", directory)
    check("repair", repaired.returncode == 0 and len(listed(directory)) == 50, repaired.stderr)
    check("repair: File-set ID", pydicom.dcmread(directory).FileSetID == "TEST")
    in_place(directory, "vexal")


LIBRARY = None


def library():
    global LIBRARY
    if LIBRARY is None:
        build = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(VEXAL))))
        LIBRARY = ctypes.CDLL(os.path.join(build, "libvexalkit.so"))
        LIBRARY.VX_Set_VexalINI(os.path.join(build, "share/vexalkit/vexal.ini").encode())
        LIBRARY.VX_Library_Initialization(None, None, None)
    return LIBRARY


def in_place(directory, name):
    """A patient is added and the first one deleted, record by record."""
    lib, handle, record = library(), ctypes.c_int32(), ctypes.c_int32()
    before = tree(directory)
    check(name + ": opened in place", lib.VX_DDH_Open(directory.encode(), ctypes.byref(handle)) == 1)
    lib.VX_DDH_Get_First_Lower_Record(handle, ctypes.byref(record))
    lib.VX_DDH_Delete_Record(record)
    lib.VX_DDH_Add_Record(handle, b"PATIENT", ctypes.byref(record))
    for tag, text in ((0x00100010, b"New^One"), (0x00100020, b"NEW")):
        lib.VX_Set_Value_From_String(record, tag, text)
    study = ctypes.c_int32()
    lib.VX_DDH_Add_Record(record, None, ctypes.byref(study))
    check(name + ": updated in place", lib.VX_DDH_Update(handle) == 1)
    lib.VX_Free_File(ctypes.byref(handle))
    second = [i for i, row in enumerate(before) if row[0] == 0][1:2]
    expected = (before[second[0]:] if second else []) + [(0, "PATIENT", "", ""), (1, "STUDY", "", "")]
    check(name + ": records after it", tree(directory) == expected)
    read_by_others(name + " in place", directory)


os.environ["VEXAL_LOG"] = "/dev/null"
samples()
for part in (made_by_others, made_by_vexal):
    with tempfile.TemporaryDirectory() as scratch:
        part(scratch)
print("%d failures" % len(failures))
sys.exit(1 if failures else 0)
