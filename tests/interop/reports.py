#!/usr/bin/env python3
"""Structured reports of vexal beside those of other people's programs.

usage: reports.py VEXAL SAMPLES [EXAMPLE INI]
Every sample goes to JSON and, built from that, back to an equal data set, of which dsrdump and dciodvfy say what they said
of the sample; through dsr2xml and xml2dsr the tree is the same. On the rules of the document classes vexal sr check and
dsrdump agree. EXAMPLE: a program that makes a report, with the configuration INI. Exit 77 (skipped) where something is missing.
"""
import glob
import json
import os
import shutil
import subprocess
import sys
import tempfile

from checks import SAMPLES, VEXAL, check, end, need, run

need("dsrdump", module="pydicom")
import pydicom
from pydicom.dataset import Dataset
from pydicom.sequence import Sequence

SAMPLES = os.path.join(SAMPLES, "sr")


def shown(path):
    return json.loads(run(VEXAL, "sr", "show", "--json", path).stdout)


def build(document, path):
    source = path + ".json"
    with open(source, "w", encoding="utf-8") as file:
        json.dump(document, file)
    return run(VEXAL, "sr", "build", source, path)


def tree(item):
    """(relationship, type, concept) of all content, as pydicom reads it."""
    name = item.get("ConceptNameCodeSequence", None) or [{}]
    found = [(item.get("RelationshipType", ""), item.get("ValueType", ""), name[0].get("CodeMeaning", ""))]
    for child in item.get("ContentSequence", None) or []:
        found += tree(child)
    return found


def listed(node):
    found = [(node.get("relationship", ""), node.get("type", ""), node.get("concept", {}).get("meaning", ""))]
    for child in node.get("content", []):
        found += listed(child)
    return found


def told(node):
    """A node without what the XML of dsr2xml has no place for: fractions of times, versions of codes, most templates."""
    found = {key: value for key, value in node.items() if key not in ("content", "more", "template")}
    if node.get("type") in ("TIME", "DATETIME"):
        found["value"] = node["value"].split(".")[0]
    return [found] + [told(child) for child in node.get("content", [])]


def findings(program, path):
    result = run(program, path)
    return sorted(line for line in result.stderr.splitlines() if line.startswith((b"E:", b"Error"))), result.returncode


def check_sample(path, folder):
    name = os.path.basename(path)
    document, built = shown(path), os.path.join(folder, name)
    check(listed(document["report"]) == tree(pydicom.dcmread(path)), name + ": pydicom")
    made = build(document, built)
    check(made.returncode == 0 and not made.stderr, "%s: %s" % (name + ": built", made.stderr))
    check(pydicom.dcmread(path) == pydicom.dcmread(built), name + ": the same data set")
    check(run(VEXAL, "sr", "check", built).returncode == 0, name + ": check")
    plain = path
    if "deflated" in name:  # dciodvfy reads no such files
        plain = os.path.join(folder, "plain.dcm")
        run(VEXAL, "convert", "--to", "explicit", path, plain)
    for program in ("dsrdump", "dciodvfy"):
        if shutil.which(program):
            before, after = findings(program, plain), findings(program, built)
            check(before == after, "%s: %s" % (name + ": " + program, after))
    for form in ("--html", "--csv"):
        check(len(run(VEXAL, "sr", "show", form, path).stdout.splitlines()) > len(listed(document["report"])), name + form)
    xml, again = os.path.join(folder, "report.xml"), os.path.join(folder, "again.dcm")
    if findings("dsrdump", built) == ([], 0):
        check(run("dsr2xml", built, xml).returncode == 0, name + ": dsr2xml")
        check(run("xml2dsr", xml, again).returncode == 0, name + ": xml2dsr")
        check(told(shown(again)["report"]) == told(document["report"]), name + ": the same tree through XML")


# --- Rules of the document classes ---

CODE = {"code": "1", "scheme": "99TEST", "meaning": "something"}
CONTENT = {
    "CODE": {"code": CODE}, "NUM": {"value": "1", "unit": {"code": "mm", "scheme": "UCUM", "meaning": "mm"}}, "TEXT": {"value": "x"},
    "DATE": {"value": "20200101"}, "TIME": {"value": "1200"}, "PNAME": {"value": "A^B"}, "UIDREF": {"value": "1.2"},
    "DATETIME": {"value": "20200101120000"}, "CONTAINER": {},
    "SCOORD": {"kind": "POINT", "data": [1, 2]}, "SCOORD3D": {"kind": "POINT", "data": [1, 2, 3], "frame_of_reference": "1.2"},
    "TCOORD": {"kind": "POINT", "data": [1]}, "COMPOSITE": {"class": "1.2.840.10008.5.1.4.1.1.88.33", "instance": "1.2.3"},
    "IMAGE": {"class": "1.2.840.10008.5.1.4.1.1.2", "instance": "1.2.3"},
    "WAVEFORM": {"class": "1.2.840.10008.5.1.4.1.1.9.1.1", "instance": "1.2.3"}}

# Class, a chain of relationships and types from the root, and whether the standard has room for it. "@" is a reference to
# the first node below the root.
RULES = [
    ("11", "CONTAINS TEXT/INFERRED FROM IMAGE", True), ("11", "CONTAINS NUM", False), ("11", "CONTAINS CODE/HAS PROPERTIES TEXT", False),
    ("11", "HAS CONCEPT MOD CODE", True), ("11", "CONTAINS TEXT/INFERRED FROM @", False),
    ("22", "CONTAINS NUM/INFERRED FROM SCOORD/SELECTED FROM IMAGE", True), ("22", "CONTAINS NUM/CONTAINS TEXT", False),
    ("22", "CONTAINS SCOORD3D", False), ("22", "CONTAINS TEXT/INFERRED FROM @", False),
    ("33", "CONTAINS NUM/INFERRED FROM CONTAINER", True), ("33", "CONTAINS TEXT/INFERRED FROM @", True),
    ("33", "CONTAINS SCOORD3D", False), ("33", "CONTAINS TCOORD/SELECTED FROM WAVEFORM", True), ("33", "CONTAINS DATE/HAS CONCEPT MOD @", False),
    ("34", "CONTAINS NUM/INFERRED FROM SCOORD3D", True), ("34", "CONTAINS SCOORD/SELECTED FROM TEXT", False),
    ("40", "CONTAINS TEXT/HAS PROPERTIES CODE", True), ("40", "CONTAINS SCOORD", False),
    ("50", "CONTAINS CODE/HAS PROPERTIES SCOORD/SELECTED FROM IMAGE", True), ("50", "CONTAINS TCOORD", False),
    ("59", "HAS OBS CONTEXT PNAME", True), ("59", "CONTAINS CODE", False),
    ("65", "CONTAINS CODE/INFERRED FROM TCOORD/SELECTED FROM WAVEFORM", True), ("65", "CONTAINS WAVEFORM", False),
    ("67", "CONTAINS CONTAINER/CONTAINS NUM", True), ("67", "CONTAINS DATE", False), ("67", "CONTAINS SCOORD", False),
    ("68", "CONTAINS PNAME/HAS PROPERTIES CODE", True), ("68", "CONTAINS IMAGE", False),
    ("69", "CONTAINS CODE/HAS PROPERTIES SCOORD3D", True), ("69", "CONTAINS SCOORD", False),
    ("70", "HAS OBS CONTEXT DATE", True), ("70", "CONTAINS DATE", False),
    ("71", "CONTAINS CODE/HAS PROPERTIES SCOORD3D", True), ("71", "CONTAINS IMAGE", False),
    ("73", "CONTAINS COMPOSITE/HAS PROPERTIES NUM", True), ("73", "CONTAINS WAVEFORM", False),
    ("74", "CONTAINS NUM/HAS ACQ CONTEXT CODE", True), ("74", "CONTAINS IMAGE", False),
    ("75", "CONTAINS WAVEFORM", True), ("75", "CONTAINS TIME", False),
    ("72", "CONTAINS NUM/INFERRED FROM SCOORD/SELECTED FROM IMAGE", True), ("72", "CONTAINS IMAGE", False)]
TEMPLATES = {"40": "3001", "50": "4000", "59": "2010", "65": "4100", "67": "10011", "68": "10021", "69": "4120", "72": "5300"}


def check_rule(kind, chain, allowed, folder):
    path = os.path.join(folder, "rule.dcm")
    title = {"code": "113000", "scheme": "DCM", "meaning": "Of Interest"} if kind == "59" else CODE
    root = {"type": "CONTAINER", "concept": title, "content": []}
    if kind in TEMPLATES:
        root["template"] = TEMPLATES[kind]
    if "@" in chain:
        root["content"].append({"relationship": "CONTAINS", "type": "TEXT", "concept": CODE} | CONTENT["TEXT"])
    at = root
    for step in chain.split("/"):
        relationship, value_type = step.rsplit(" ", 1)
        node = {"relationship": relationship}
        node |= {"target": "1.1"} if value_type == "@" else {"type": value_type, "concept": CODE} | CONTENT[value_type]
        at.setdefault("content", []).append(node)
        at = node
    head = {"SOPClassUID": "1.2.840.10008.5.1.4.1.1.88." + kind, "Modality": "KO" if kind == "59" else "SR"}
    made = build({"attributes": head, "report": root}, path)
    ours, theirs = run(VEXAL, "sr", "check", path), run("dsrdump", path)
    refused = b"Cannot add" in theirs.stderr or b"Invalid by-" in theirs.stderr
    # Where there are no references at all, dsrdump passes over them.
    agreed = refused != allowed or (kind in ("11", "22") and "@" in chain)
    good = made.returncode == 0 and (ours.returncode == 0) == allowed and agreed
    check(good, "%s: %s" % ("class %s: %s%s" % (kind, "" if allowed else "not ", chain), (made.stderr, ours.stdout, theirs.stderr)))


def check_unusual(folder):
    """What members of the JSON have no room for, in a character set that is not UTF-8."""
    dataset = pydicom.dcmread(os.path.join(SAMPLES, "comprehensive.dcm"))
    node = dataset.ContentSequence[1].ContentSequence[0]
    node.ObservationUID = "1.2.3"
    node.ConceptNameCodeSequence[0].CodeMeaning = "Größe"
    node.add_new(0x00091001, "LO", "privé")
    node.add_new(0x00090010, "LO", "SOMEBODY")
    node.add_new(0x00091002, "OB", b"\1\2\3\4")
    table = Dataset()
    table.RelationshipType, table.ValueType = "CONTAINS", "TABLE"
    table.NumberOfTableRows = 7
    empty = Dataset()
    empty.RelationshipType, empty.ValueType, empty.TextValue = "CONTAINS", "TEXT", ""
    qualified = Dataset()
    qualified.RelationshipType, qualified.ValueType = "CONTAINS", "NUM"
    unit, value, code = Dataset(), Dataset(), Dataset()
    unit.CodeValue, unit.CodingSchemeDesignator, unit.CodingSchemeVersion, unit.CodeMeaning = "mm", "UCUM", "1.4", "mm"
    value.MeasurementUnitsCodeSequence, value.NumericValue = Sequence([unit]), "1"
    code.CodeValue, code.CodingSchemeDesignator, code.CodeMeaning = "114000", "DCM", "Not a number"
    qualified.MeasuredValueSequence, qualified.NumericValueQualifierCodeSequence = Sequence([value]), Sequence([code])
    times = Dataset()
    times.RelationshipType, times.ValueType, times.TemporalRangeType = "CONTAINS", "TCOORD", "NEVER"
    times.ReferencedSamplePositions, times.ReferencedTimeOffsets = [1, 2], ["1", "2"]
    dataset.ContentSequence += Sequence([table, empty, qualified, times])
    path, built = os.path.join(folder, "unusual.dcm"), os.path.join(folder, "unusual-built.dcm")
    dataset.save_as(path)
    made = build(shown(path), built)
    check(made.returncode == 0, "%s: %s" % ("unusual: built", made.stderr))
    check(pydicom.dcmread(path) == pydicom.dcmread(built), "unusual: the same data set")
    text = run(VEXAL, "sr", "show", built).stdout.decode()
    check("Größe" in text and "?TABLE" in text, "unusual: text in UTF-8")


with tempfile.TemporaryDirectory() as folder:
    for path in sorted(glob.glob(SAMPLES + "/*.dcm")):
        check_sample(path, folder)
    check_unusual(folder)
    for rule in RULES:
        check_rule(*rule, folder)
    if len(sys.argv) > 3:
        path = os.path.join(folder, "example.dcm")
        made = subprocess.run([sys.argv[3], path], capture_output=True, env=dict(os.environ, VEXAL_INI=sys.argv[4]))
        check(made.returncode == 0 and b"Length = 23.5 mm" in made.stdout, "%s: %s" % ("example", made.stderr))
        check(run(VEXAL, "sr", "check", path).returncode == 0, "example: vexal")
        for program in ("dsrdump", "dciodvfy"):
            if shutil.which(program):
                check(findings(program, path) == ([], 0), "%s: %s" % ("example: " + program, findings(program, path)))
sys.exit(end())
