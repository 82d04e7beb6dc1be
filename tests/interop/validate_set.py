#!/usr/bin/env python3
"""What vexal validate --set finds between objects, beside what dcentvfy finds: in made sets, in two objects that differ in all
that belongs to patient, study and series, and in the samples.

usage: validate_set.py VEXAL SAMPLES [--list]
What dcentvfy finds has to be found. --list shows what only one of the two finds. Exit 77 (skipped) where dcentvfy is missing.
"""
import json
import os
import re
import sys
import tempfile

from checks import SAMPLES, VEXAL, check, end, files_under, need, paths, run, vexal, write
from made import EXPLICIT, element, meta

need("dcentvfy")
DATA = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "data", "dictionary.tsv")
KEYWORDS, REPRESENTATIONS = {}, {}
for line in open(DATA, encoding="utf-8"):
    cells = line.split("\t")
    if len(cells) > 3 and re.fullmatch(r"[0-9A-F]{4},[0-9A-F]{4}", cells[0]):
        KEYWORDS[cells[3]] = int(cells[0].replace(",", ""), 16)
        REPRESENTATIONS[cells[3]] = cells[1]
CT, SR = "1.2.840.10008.5.1.4.1.1.2", "1.2.840.10008.5.1.4.1.1.88.11"
USUAL = dict(SOPClassUID=CT, SOPInstanceUID="1.2.9.1", StudyDate="20260102", StudyTime="1200", Modality="CT", PatientName="A^B", PatientID="ID1", PatientSex="F",
             StudyInstanceUID="1.2.2.1", SeriesInstanceUID="1.2.3.1", StudyID="1", SeriesNumber="1", FrameOfReferenceUID="1.2.4.1")
THEIRS = re.compile(r"Element=<(\w+)>|Different (\w+) for same|(Duplicate SOPInstanceUID)")


def items(*bodies):
    return b"".join(b"\xFE\xFF\0\xE0" + len(body).to_bytes(4, "little") + body for body in bodies)


def refers(to, sop_class=CT, **around):
    """ReferencedSeriesSequence with one reference below."""
    inner = element(0x00081199, "SQ", items(element(0x00081150, "UI", sop_class) + element(0x00081155, "UI", to)))
    return items(inner + b"".join(element(KEYWORDS[key], "UI", value) for key, value in around.items()))


def made_object(syntax=EXPLICIT, **changes):
    values = {key: value for key, value in dict(USUAL, **changes).items() if value is not None}
    body = b"".join(element(KEYWORDS[key], REPRESENTATIONS[key], values[key]) for key in sorted(values, key=KEYWORDS.get))
    return meta(values["SOPClassUID"], values["SOPInstanceUID"], syntax) + body


def put(folder, *objects):
    for number, changes in enumerate(objects, 1):
        write(os.path.join(folder, "%d.dcm" % number), made_object(**dict({"SOPInstanceUID": "1.2.9.%d" % number}, **changes)))
    return files_under(folder)


def ours(*words, status=None):
    """[(severity, keyword, finding)] and the summary."""
    result = run(VEXAL, "validate", "--set", "--json", "--level", "all", *words)
    check(status is None or result.returncode == status, "%s: exit status %d: %s" % (words, result.returncode, result.stderr[-300:]))
    lines = [json.loads(line) for line in result.stdout.splitlines()]
    found = [dict(one, file=os.path.basename(line["file"])) for line in lines[:-1] for one in line["findings"]]
    return [(one["severity"], one["path"], one) for one in found], lines[-1]["summary"]


def theirs(files):
    told = run("dcentvfy", *files)
    lines = [line for line in (told.stdout + told.stderr).decode("latin-1").splitlines() if "UID=<>" not in line]  # queries have none
    return {next(word for word in match if word).replace("Duplicate ", "") for line in lines for match in THEIRS.findall(line)}


# Title, the objects, exit status, and all that is found: severity, path, file and number of files, part of the reason.
SETS = [
    ("all agree", [{}, {}, {"PatientName": "A^B^"}], 0, []),
    ("two names", [{}, {"PatientName": "X"}, {}], 1, [("error", "PatientName", "2.dcm", 1, 'of patient ID1 it is "A^B" in ')]),
    ("the rarer value is told", [{"StudyID": "7"}, {}, {}, {"StudyID": "8"}, {"StudyID": "8"}, {}], 1,
     [("error", "StudyID", "1.dcm", 1, '"1" in '), ("error", "StudyID", "4.dcm", 2, "and 2 more")]),
    ("a value is missing", [{}, {"StudyDate": None}], 0, [("warning", "StudyDate", "2.dcm", 1, '"20260102"')]),
    ("other patients", [{}, {"PatientID": "ID2", "StudyInstanceUID": "1.2.2.2", "SeriesInstanceUID": "1.2.3.2", "FrameOfReferenceUID": "1.2.4.2"}], 0, []),
    ("two patients in a study", [{}, {"PatientID": "ID2", "SeriesInstanceUID": "1.2.3.2", "FrameOfReferenceUID": None}], 1,
     [("error", "PatientID", "2.dcm", 1, "of study 1.2.2.1")]),
    ("a series in two studies", [{}, {"StudyInstanceUID": "1.2.2.2"}], 1, [("error", "StudyInstanceUID", "2.dcm", 1, "of series 1.2.3.1")]),
    ("a frame of reference of two patients", [{}, {"PatientID": "ID2", "StudyInstanceUID": "1.2.2.2", "SeriesInstanceUID": "1.2.3.2"}], 1,
     [("error", "PatientID", "2.dcm", 1, "of frame of reference 1.2.4.1")]),
    ("one that the standard has defined", [{"FrameOfReferenceUID": "1.2.840.10008.1.4.1.1"}, {
        "PatientID": "ID2", "StudyInstanceUID": "1.2.2.2", "SeriesInstanceUID": "1.2.3.2", "FrameOfReferenceUID": "1.2.840.10008.1.4.1.1"}], 0, []),
    ("equipment", [{}, {"Manufacturer": "M"}, {"Manufacturer": "N"}], 0, [("warning", "Manufacturer", "3.dcm", 1, "the equipment of series")]),
    ("orientation", [{"ImageOrientationPatient": "1\\0\\0\\0\\1\\0"}, {"ImageOrientationPatient": "1.0\\0\\0\\0\\1\\0.0"},
                     {"ImageOrientationPatient": "0\\1\\0\\0\\0\\1"}], 0, [("remark", "ImageOrientationPatient", "3.dcm", 1, "images of series")]),
    ("a code", [{"ProcedureCodeSequence": items(element(0x00080100, "SH", "1"))}, {"ProcedureCodeSequence": items(element(0x00080100, "SH", "2"))}], 1,
     [("error", "ProcedureCodeSequence", "2.dcm", 1, "it is another in")]),
    ("one UID on two levels", [{}, {"StudyInstanceUID": "1.2.2.2", "SeriesInstanceUID": "1.2.2.1", "FrameOfReferenceUID": None}], 1,
     [("error", "SeriesInstanceUID", "2.dcm", 1, "(0020,000D) StudyInstanceUID of the set")]),
    ("the same object twice", [{}, {"SOPInstanceUID": "1.2.9.1"}], 0, [("warning", "SOPInstanceUID", "2.dcm", 1, "the same object")]),
    ("two objects of one UID", [{}, {"SOPInstanceUID": "1.2.9.1", "InstanceNumber": "5"}], 1, [("error", "SOPInstanceUID", "2.dcm", 1, "another object, ")]),
    ("an object in two syntaxes", [{}, {"SOPInstanceUID": "1.2.9.1", "syntax": "1.2.840.10008.1.2.4.70"}], 0, [
        ("warning", "SOPInstanceUID", "2.dcm", 1, "another transfer syntax")]),
    ("a reference that leads to its object", [{}, {"ReferencedSeriesSequence": refers("1.2.9.1", SeriesInstanceUID="1.2.3.1")}], 0, []),
    ("a reference of another class", [{}, {"ReferencedSeriesSequence": refers("1.2.9.1", SR)}], 1,
     [("error", "ReferencedSeriesSequence[0].ReferencedSOPSequence[0].ReferencedSOPInstanceUID", "2.dcm", 1, "is of class " + CT)]),
    ("a reference into another series", [{}, {"ReferencedSeriesSequence": refers("1.2.9.1", SeriesInstanceUID="1.2.3.7")}], 1,
     [("error", "ReferencedSeriesSequence[0].ReferencedSOPSequence[0].ReferencedSOPInstanceUID", "2.dcm", 1, "is of series 1.2.3.1, not 1.2.3.7")]),
    ("a reference to what is missing", [{}, {"ReferencedSeriesSequence": refers("1.2.9.77", SeriesInstanceUID="1.2.3.1")}], 0,
     [("warning", "ReferencedSeriesSequence[0].ReferencedSOPSequence[0].ReferencedSOPInstanceUID", "2.dcm", 1, "its series is in the set")]),
    ("a reference out of the set", [{"ReferencedSeriesSequence": refers("1.2.9.77", StudyInstanceUID="1.2.2.9")}] , 0,
     [("remark", "ReferencedSeriesSequence[0].ReferencedSOPSequence[0].ReferencedSOPInstanceUID", "1.dcm", 1, "its study is not")]),
    ("a reference to what is in no file", [{"ReferencedSeriesSequence": refers("1.2.9.77", "1.2.840.10008.3.1.2.3.3")}], 0, []),
]


def made_sets(folder):
    for number, (title, objects, status, wanted) in enumerate(SETS):
        files = put(os.path.join(folder, str(number)), *objects)
        found, summary = ours(*files, status=status)
        told = sorted((severity, path, one["file"], one["files"]) for severity, path, one in found)
        check(told == sorted(row[:4] for row in wanted), "%s: found %s" % (title, told))
        for row in wanted:
            check(any(row[4] in one["wanted"] for _, path, one in found if path == row[1]), "%s: no reason says %r: %s" % (title, row[4], found))
        check(summary["compared"] == len(files) and summary["errors"] == sum(row[0] == "error" for row in wanted), "%s: %s" % (title, summary))
        missed = theirs(files) - {path for _, path, _ in found} - {"PatientID"} if status else set()
        check(not missed, "%s: dcentvfy finds %s" % (title, missed))


VALUES = {"DA": ("20200101", "20210101"), "TM": ("1200", "1300"), "DT": ("2020", "2021"), "DS": ("1", "2"), "IS": ("1", "2"), "AS": ("001Y", "002Y"),
          "US": (b"\1\0", b"\2\0"), "UI": ("1.2.5", "1.2.6"), "FD": (bytes(8), b"\0\0\0\0\0\0\xF0?"),
          "SQ": (items(element(0x00080100, "SH", "A")), items(element(0x00080100, "SH", "B")))}


def every_attribute(folder):
    """Two objects that agree in nothing: each attribute of the table is told, and what dcentvfy tells is among them."""
    names = re.findall(r"Entity::k(?:Patient|Study|Series|Equipment), 0x\w+}, +// (\w+)", read_table())
    fixed = ("PatientID", "StudyInstanceUID")
    pair = [{name: VALUES.get(REPRESENTATIONS[name], ("A", "B"))[side] for name in names if name not in fixed} for side in (0, 1)]
    files = put(folder, *pair)
    told = {path for _, path, _ in ours(*files, status=1)[0]}
    check(names and told >= set(names) - set(fixed), "not told: %s" % sorted(set(names) - set(fixed) - told))
    missed = theirs(files) - told
    check(not missed, "told by dcentvfy alone: %s" % sorted(missed))
    return len(names)


def read_table():
    with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tools", "vexal", "sets", "set_attributes.inc")) as file:
        return file.read()


def of_samples():
    files = [path for path in files_under(SAMPLES) if path.endswith(".dcm")]
    found, summary = ours(*files)
    told, other = {path.rsplit(".", 1)[-1] for _, path, _ in found}, theirs(files)
    if "--list" in sys.argv:
        print("dcentvfy alone:", sorted(other - told), "vexal alone:", sorted(told - other))
    check(not other - told, "samples: dcentvfy alone finds %s" % sorted(other - told))
    return summary["compared"]


def as_a_program(folder):
    files = put(os.path.join(folder, "many"), *({"StudyID": str(number % 7), "StudyDate": None if number % 5 else "20260102"} for number in range(200)))
    runs = [run(VEXAL, "validate", "--set", "--threads", str(threads), os.path.join(folder, "many"), files[0]).stdout for threads in (1, 4)]
    check(runs[0] == runs[1] and b"201 objects of 1 patient, 1 study, 1 series compared" in runs[0], "threads: %r" % runs[1][-300:])
    errors = run(VEXAL, "validate", "--set", "--level", "errors", os.path.join(folder, "many")).stdout
    check(b"StudyID" in errors and b"warnings" not in errors, "level: %r" % errors[:300])
    text = vexal("validate", "--set", *put(os.path.join(folder, "text"), {}, {"PatientName": "X"}), status=1).stdout.decode()
    check('2.dcm: 1 error, 0 warnings\n  errors\n    (0010,0010) PatientName "X": ' in text, "text: %r" % text)
    write(os.path.join(folder, "text", "3.dcm"), b"no DICOM")
    vexal("validate", "--set", os.path.join(folder, "text"), status=2, says="3.dcm: ")
    os.makedirs(os.path.join(folder, "empty"))
    check(b"0 objects" in vexal("validate", "--set", os.path.join(folder, "empty")).stdout, "an empty folder")
    vexal("validate", "--set", os.path.join(folder, "nowhere"), status=2, says="nowhere")
    vexal("validate", "--set", "--service", "STANDARD_CT", files[0], status=2, says="--set goes without --service")
    directory = os.path.join(folder, "media")
    put(directory, {"InstanceNumber": "1"}, {"InstanceNumber": "2"})
    for old, new in zip(paths(directory, "1.dcm", "2.dcm"), paths(directory, "A1", "A2")):
        os.rename(old, new)
    vexal("dir", "create", os.path.join(directory, "DICOMDIR"))
    check(b" 0 with errors" in vexal("validate", "--set", directory).stdout, "a file-set")
    os.remove(os.path.join(directory, "A2"))
    found = ours(directory, status=1)[0]
    check([one["wanted"] for _, _, one in found] == ["A2: there is no such file"] and found[0][2]["file"] == "DICOMDIR", "a file-set that lacks a file: %s" % found)


def main():
    with tempfile.TemporaryDirectory() as folder:
        made_sets(os.path.join(folder, "sets"))
        attributes = every_attribute(os.path.join(folder, "pair"))
        as_a_program(folder)
    return end({"sets": len(SETS), "attributes": attributes, "objects of the samples": of_samples()})


if __name__ == "__main__":
    sys.exit(main())
