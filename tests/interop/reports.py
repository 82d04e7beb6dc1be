#!/usr/bin/env python3
"""Structured reports of vexal beside those of other people's programs.

usage: reports.py VEXAL SAMPLES [EXAMPLE INI]
Every sample goes to JSON and, built from that, back to an equal data set, of which dsrdump and dciodvfy say what they said
of the sample; through dsr2xml and xml2dsr the tree is the same. So it is with reports that are wrong in many ways; JSON that
is of another form than docs/sr.schema.json states is refused, with its place. On the rules of the document classes vexal sr check and
dsrdump agree. EXAMPLE: a program that makes a report, with the configuration INI. Exit 77 (skipped) where something is missing.
"""
import glob
import json
import os
import sys
import tempfile

from checks import SAMPLES, VEXAL, check, end, ended, has, left_out, need, paths, read, run, vexal, write

need("dsrdump", modules=["pydicom"])
VALIDATORS = [program for program in ("dsrdump", "dciodvfy") if has(program, "reports by it")]
import pydicom
from pydicom.dataset import Dataset
from pydicom.sequence import Sequence

SAMPLES = os.path.join(SAMPLES, "sr")


def shown(path):
    return json.loads(run(VEXAL, "sr", "show", "--json", path).stdout)


def build(document, path):
    return run(VEXAL, "sr", "build", write(path + ".json", json.dumps(document)), path)


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
    made = ended(build(document, built), name + ": built")
    check(not made.stderr and pydicom.dcmread(path) == pydicom.dcmread(built), name + ": the same data set: %s" % made.stderr)
    vexal("sr", "check", built, title=name + ": check")
    plain = path
    if "deflated" in name:  # dciodvfy reads no such files
        plain = os.path.join(folder, "plain.dcm")
        run(VEXAL, "convert", "--to", "explicit", path, plain)
    for program in VALIDATORS:
        before, after = findings(program, plain), findings(program, built)
        check(before == after, "%s: %s: %s" % (name, program, after))
    for form in ("--html", "--csv"):
        check(len(run(VEXAL, "sr", "show", form, path).stdout.splitlines()) > len(listed(document["report"])), name + form)
    xml, again = os.path.join(folder, "report.xml"), os.path.join(folder, "again.dcm")
    if findings("dsrdump", built) == ([], 0):
        ended(run("dsr2xml", built, xml), name + ": dsr2xml")
        ended(run("xml2dsr", xml, again), name + ": xml2dsr")
        check(told(shown(again)["report"]) == told(document["report"]), name + ": the same tree through XML")


# --- Rules of the document classes ---

CODE = {"code": "1", "scheme": "99TEST", "meaning": "something"}
OF = {"study": "1.2.1", "series": "1.2.2"}
CONTENT = {
    "CODE": {"code": CODE}, "NUM": {"value": "1", "unit": {"code": "mm", "scheme": "UCUM", "meaning": "mm"}}, "TEXT": {"value": "x"},
    "DATE": {"value": "20200101"}, "TIME": {"value": "1200"}, "PNAME": {"value": "A^B"}, "UIDREF": {"value": "1.2"},
    "DATETIME": {"value": "20200101120000"}, "CONTAINER": {},
    "SCOORD": {"kind": "POINT", "data": [1, 2]}, "SCOORD3D": {"kind": "POINT", "data": [1, 2, 3], "frame_of_reference": "1.2"},
    "TCOORD": {"kind": "POINT", "data": [1]}, "COMPOSITE": {"class": "1.2.840.10008.5.1.4.1.1.88.33", "instance": "1.2.3"} | OF,
    "IMAGE": {"class": "1.2.840.10008.5.1.4.1.1.2", "instance": "1.2.3"} | OF,
    "WAVEFORM": {"class": "1.2.840.10008.5.1.4.1.1.9.1.1", "instance": "1.2.3"} | OF}

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


# --- What build refuses, and what it makes of the rest ---


def document(*nodes, **head):
    return {"attributes": head, "report": {"type": "CONTAINER", "concept": CODE, "content": list(nodes)}}


def node(value_type, **more):
    found = {"relationship": "CONTAINS", "type": value_type, "concept": CODE} | CONTENT[value_type] | more
    return {name: value for name, value in found.items() if value is not None}


SPATIAL = {"SCOORD": {"data": [1, 2]}, "SCOORD3D": {"data": [1, 2, 3]}}
PRIVATE = {"00090010": {"vr": "LO", "Value": ["X"]}}
# A node, what the message names, and whether the form alone tells that it is wrong.
REFUSED = [
    (node("TEXT", value=5), '"value"', True), (node("TEXT", value=None), '"value"', True), (node("TEXT", value=""), '"value"', True),
    (node("TEXT", vlaue="x"), '"vlaue"', True), (node("TEXT", kind="POINT"), '"kind"', True), (node("TEXT", target="1.1"), '"type"', True),
    ({"relationship": "CONTAINS", "target": "2.1"}, '"target"', False), ({"relationship": "CONTAINS", "target": "1.9"}, '"target"', False),
    ({"relationship": "CONTAINS", "target": "1.1", "content": [node("TEXT")]}, '"content"', True),
    (node("TEXT", relationship=None), '"relationship"', True), (node("TEXT", relationship="HAS"), '"relationship"', True),
    (node("TEXT", type=None), '"type"', True), (node("TEXT", type="TABLE"), '"type"', True), (node("TEXT", location="1.2"), '"location"', False),
    (node("TEXT", concept={"code": "1", "scheme": "S", "meaning": "m", "version": "2"}), '"version"', True),
    (node("TEXT", concept={"code": "1", "meaning": "m"}), '"concept"', False), (node("TEXT", concept="1"), '"concept"', True),
    (node("CODE", code={"code": "1", "scheme": "S" * 17, "meaning": "m"}), '"code"', False),
    (node("NUM", value="a lot"), '"value"', False), (node("NUM", value="1" * 17), '"value"', False), (node("NUM", value=0.1 + 0.2), '"value"', False),
    (node("NUM", unit=None), '"unit"', True), (node("NUM", value=None), '"unit"', True), (node("NUM", value=True), '"value"', True),
    (node("UIDREF", value="abc"), '"value"', False), (node("DATE", value="2020-01-01"), '"value"', False),
    (node("COMPOSITE", study="1.2", series=None), '"study"', True), (node("COMPOSITE", instance=""), '"instance"', False),
    (node("COMPOSITE", study=None, series=None), '"study"', False), (node("COMPOSITE", data=[1]), '"data"', True),
    (node("IMAGE", data=[0]), '"data"', False), (node("IMAGE", data=[1.5]), '"data"', False), (node("IMAGE", data=["1x"]), '"data"', False),
    (node("WAVEFORM", data=[1, 70000]), '"data"', False), (node("WAVEFORM", data=[1]), '"data"', False), (node("WAVEFORM", data=[-1, 1]), '"data"', False),
    (node("TCOORD", data=[4294967296]), '"data"', False), (node("TCOORD", by="minute"), '"by"', True), (node("TCOORD", by="datetime", data=["soon"]), '"data"', False),
    (node("TCOORD", data=[]), '"data"', True), (node("SCOORD", kind="POINTS"), '"kind"', True), (node("SCOORD3D", frame_of_reference=None), '"frame_of_reference"', True),
    (node("CONTAINER", kind="TOGETHER"), '"kind"', True), (node("CONTAINER", template="T" * 17), '"template"', False),
    (node("SCOORD", kind="PO\u00ccNT"), '"kind"', True), (node("DATE", value="\u0661"), '"value"', False), (node("TEXT", more={"0009": {}}), '"more"', True), (node("TEXT", more={"00081190": {"vr": "UR", "Vlaue": ["x"]}}), '"more"', True),
    (node("TEXT", more={"0040A043": {"vr": "SQ", "Value": [{"00080100": {"vr": "SH", "Value": ["2"]}}]}}), '"concept"', False),
    (node("TEXT", more={"0040A010": {"vr": "CS", "Value": ["CONTAINS"]}}), '"relationship"', False)]
REFUSED += [(node(kind, data=data), '"data"', len(data) < len(SPATIAL[kind]["data"])) for kind in SPATIAL for data in (
    [], SPATIAL[kind]["data"][1:], SPATIAL[kind]["data"] + [4], ["x"] + SPATIAL[kind]["data"][1:], ["1e400"] + SPATIAL[kind]["data"][1:],
    ["1e-60"] + SPATIAL[kind]["data"][1:], ["1 "] + SPATIAL[kind]["data"][1:], ["nan"] + SPATIAL[kind]["data"][1:])]
# The same of whole documents.
REFUSED_DOCUMENTS = [
    ({"report": {}, "reprot": {}}, '"reprot"', True), ({"attributes": {}}, '"report"', True), (document(PatientNaem="x"), '"PatientNaem"', False),
    (document(StudyDate="today"), '"StudyDate"', False), (document(Modality=5), '"Modality"', True), (document(ValueType="TEXT"), '"ValueType"', False),
    (document(ContentSequence="x"), '"ContentSequence"', False), ({"report": node("TEXT", relationship=None)}, "report: ", True),
    ({"report": {"type": "CONTAINER", "concept": CODE, "conten": []}}, '"conten"', True)]


def check_refused(folder):
    output = os.path.join(folder, "refused.dcm")
    rows = [(document(node("TEXT", content=[each])), "content 1.1.1: ", name, form) for each, name, form in REFUSED]
    for asked, place, name, form in rows + [(each, "", name, form) for each, name, form in REFUSED_DOCUMENTS]:
        message = ended(build(asked, output), "refused: %s" % json.dumps(asked)[-300:], 2, place).stderr.decode()
        check(name in message and not os.path.exists(output), "refused, nothing is written: %s: %s" % (name, message))
        if SCHEMA is not None:
            check(SCHEMA.is_valid(asked) == (not form), "schema: %s" % json.dumps(asked)[-300:])


def check_values(folder):
    """Numbers and codes as they were asked for, evidence of all that is referred to."""
    path = os.path.join(folder, "values.dcm")
    long, urn = {"code": "C" * 17, "scheme": "S", "meaning": "Gr\u00f6\u00dfe" * 8}, {"code": "urn:oid:1.2.3", "meaning": "m"}
    asked = document(
        node("NUM", value=None, unit=None, qualifier=CODE), node("NUM", value=1234567890123), node("NUM", value=0.25), node("NUM", value="1e400"),
        node("CODE", code=long), node("CODE", code=urn), node("SCOORD", data=["0.1", 16777216, 1e-3, -2]), node("IMAGE", data=["2", 3]),
        node("IMAGE", instance="1.2.4", series="1.2.9"), node("WAVEFORM", data=[1, 65535], instance="1.2.5", study="1.3"),
        {"relationship": "CONTAINS", "target": "1.2"}, node("TCOORD", data=[4294967295]), node("TEXT", more=PRIVATE))
    asked["report"]["template"] = "1500"
    made = build(asked, path)
    check(made.returncode == 0 and not made.stderr, "values: %s" % made.stderr)
    if SCHEMA is not None:
        check(SCHEMA.is_valid(asked) and SCHEMA.is_valid(shown(path)), "schema: values")
    dataset = pydicom.dcmread(path)
    nodes = dataset.ContentSequence
    check("MeasuredValueSequence" in nodes[0] and len(nodes[0].MeasuredValueSequence) == 0, "values: a number without value")
    check([str(each.MeasuredValueSequence[0].NumericValue.original_string) for each in nodes[1:4]] == ["1234567890123", "0.25", "1e400"], "values: numbers")
    code = nodes[4].ConceptCodeSequence[0]
    check((code.LongCodeValue, code.CodeMeaning, "CodeValue" in code) == (long["code"], long["meaning"], False), "values: a long code")
    code = nodes[5].ConceptCodeSequence[0]
    check((code.URNCodeValue, "CodeValue" in code, "CodingSchemeDesignator" in code) == (urn["code"], False, False), "values: a URN")
    check(list(nodes[10].ReferencedContentItemIdentifier) == [1, 2] and nodes[11].ReferencedSamplePositions == 4294967295, "values: places")
    found = [(study.StudyInstanceUID, series.SeriesInstanceUID, [each.ReferencedSOPInstanceUID for each in series.ReferencedSOPSequence])
             for study in dataset.CurrentRequestedProcedureEvidenceSequence for series in study.ReferencedSeriesSequence]
    check(found == [("1.2.1", "1.2.2", ["1.2.3"]), ("1.2.1", "1.2.9", ["1.2.4"]), ("1.3", "1.2.2", ["1.2.5"])], "values: evidence %s" % found)
    narrow, again = paths(folder, "narrow.dcm", "again.dcm")
    vexal("sr", "build", path + ".json", path + "/none.dcm", status=2, title="values: no folder")
    ended(build(document(node("TEXT", value="\u4e00"), SpecificCharacterSet="ISO_IR 100"), narrow), "values: text that the set has not", 2, "ISO_IR 100")
    check(not os.path.exists(narrow), "values: text that the character set has not is written")
    # Text that is none in its character set, in UTF-8, in JSON; what that holds comes back.
    for old, new, charset, words, says in ((b"Gr\xc3\xb6", b"Gr\xf6\xf6", b"ISO_IR 6  ", (), ""), (b"Gr\xc3\xb6", b"Gr\xf6\xf6", b"ISO_IR 192", (), ""),
                                           (b"PARTIAL", b"PARTI\xc4L", b"ISO_IR 192", ("--json",), "CompletionFlag")):
        write(again, read(path).replace(old, new).replace(b"ISO_IR 192", charset))
        vexal("sr", "show", *words, again, status=1, says=says)
    ended(build(shown(path), again), "values: built again")
    check(pydicom.dcmread(again) == dataset, "values: the same data set")
    vexal("sr", "build", path + ".json", path + ".json", status=2)
    check(json.loads(read(path + ".json")) == asked, "values: the source stays")


def odd(**more):
    found = Dataset()
    for keyword, value in ({"RelationshipType": "CONTAINS"} | more).items():
        if value is not None:
            setattr(found, keyword, Sequence(value) if isinstance(value, list) and (not value or isinstance(value[0], Dataset)) else value)
    return found


def check_odd(folder):
    """What is wrong in the reports of others is shown, told by check where it is content, and made the same again."""
    code, unit = (odd(RelationshipType=None, CodeValue="1", CodingSchemeDesignator="S", CodeMeaning="m", **more)
                  for more in ({}, {"CodingSchemeVersion": "1.4"}))
    value = lambda **more: [odd(RelationshipType=None, **more)]
    number = dict(ValueType="NUM", ConceptNameCodeSequence=[code])
    measured = lambda **more: odd(**number, MeasuredValueSequence=value(**more))
    image = lambda **more: odd(ValueType="IMAGE", ReferencedSOPSequence=value(ReferencedSOPClassUID="1.2", ReferencedSOPInstanceUID="1.3", **more))
    rows = [  # a content item, and what check says of it
        (odd(**number), "(0040,A300)"), (odd(**number, MeasuredValueSequence=[]), ""), (measured(), "(0040,A30A)"),
        (measured(MeasurementUnitsCodeSequence=[code]), "(0040,A30A)"), (measured(NumericValue="1"), "unit"),
        (measured(NumericValue="1", MeasurementUnitsCodeSequence=[code, code]), ""), (odd(ValueType="TABLE", NumberOfTableRows=7), ""),
        (odd(ValueType="NUM", MeasuredValueSequence=value(NumericValue="1", MeasurementUnitsCodeSequence=[unit]), NumericValueQualifierCodeSequence=[code]), ""),
        (odd(ValueType="TCOORD", TemporalRangeType="NEVER", ReferencedSamplePositions=[1, 2], ReferencedTimeOffsets=["1", "2"]), ""),
        (odd(**number, MeasuredValueSequence=value(NumericValue="1", MeasurementUnitsCodeSequence=[code]) * 2), "more than one"),
        (odd(ValueType="SCOORD", GraphicType="POINT", GraphicData=[float("nan"), 1.0]), "is no number"),
        (odd(ValueType="SCOORD", GraphicType="POINT", GraphicData=[1.0, 2.0, 3.0]), "not whole"), (odd(ValueType="SCOORD"), "not whole"),
        (odd(ValueType="SCOORD", GraphicType="BLOB", GraphicData=[1.0, 2.0]), "not known"),
        (odd(ValueType="SCOORD3D", GraphicType="POINT", GraphicData=[1.0, 2.0, 3.0]), "frame of reference"),
        (odd(ValueType="TCOORD", TemporalRangeType="POINT", ReferencedDateTime="soon"), "date and time"),
        (image(ReferencedFrameNumber="0"), "frame"), (image(ReferencedSegmentNumber=1), ""), (odd(ValueType="IMAGE"), "reference"),
        (odd(ValueType="UIDREF", UID="some text", ConceptNameCodeSequence=[code]), ""), (odd(ValueType="TEXT", TextValue="", ConceptNameCodeSequence=[code]), "no value"),
        (odd(ValueType="TEXT", ConceptNameCodeSequence=[code]), "no value"), (odd(ValueType="TEXT", TextValue="x", ConceptNameCodeSequence=[code], ReferencedContentItemIdentifier=[1, 1]), ""),
        (odd(ValueType="TEXT", TextValue="x", ConceptNameCodeSequence=[odd(RelationshipType=None, LongCodeValue="short", CodeMeaning="m" * 70)]), "coding scheme"),
        (odd(ValueType="DATE", Date="2020-01-01", ConceptNameCodeSequence=[code, code]), ""), (odd(ValueType="CONTAINER"), "continuity"),
        (odd(ValueType="CONTAINER", ContinuityOfContent="SEPARATE", ContentSequence=[]), ""),
        (odd(ValueType="CONTAINER", ContinuityOfContent="SEPARATE", ContentTemplateSequence=value(MappingResource="X", TemplateIdentifier="1")), ""),
        (odd(RelationshipType=None, ValueType="TEXT", TextValue="x", ConceptNameCodeSequence=[code]), "relationship"), (odd(TextValue="x"), "leads nowhere"),
        (odd(RelationshipType="NONE", ValueType="TEXT", TextValue="x", ConceptNameCodeSequence=[code]), "relationship"), (odd(RelationshipType=None), "value type"),
        (odd(ReferencedContentItemIdentifier=[2, 1]), ""), (odd(ReferencedContentItemIdentifier=[1, 99]), "leads nowhere"),
        (odd(ReferencedContentItemIdentifier=[1, 1], ConceptNameCodeSequence=[code]), ""), (odd(ValueType="", TextValue="x"), "leads nowhere")]
    for number_of_row, (content, finding) in enumerate(rows):
        dataset = pydicom.dcmread(os.path.join(SAMPLES, "comprehensive3d.dcm"))
        del dataset.ContentSequence[1:]
        first = dataset.ContentSequence[0]
        dataset.ContentSequence.append(content)
        dataset.StudyDate, dataset.ImageType, dataset.SpecificCharacterSet = "long ago", ["A", "", "C"], "ISO_IR 100"
        first.ObservationUID, first.ConceptNameCodeSequence[0].CodeMeaning = "1.2.3", "Größe"
        for element in ((0x00091001, "LO", "privé"), (0x00090010, "LO", "SOMEBODY"), (0x00091002, "OB", b"\1\2\3\4")):
            first.add_new(*element)
        path, built = paths(folder, "odd.dcm", "built.dcm")
        dataset.save_as(path)
        form = shown(path)
        made = ended(build(form, built), "odd %d: built" % number_of_row)
        check(SCHEMA is None or SCHEMA.is_valid(form), "odd %d: schema" % number_of_row)
        check(not made.stderr and [str(each) for each in pydicom.dcmread(path)] == [str(each) for each in pydicom.dcmread(built)], "odd %d: the same data set" % number_of_row)
        text = run(VEXAL, "sr", "show", built).stdout.decode()
        check("Größe" in text and ("?TABLE" in text) == (content.get("ValueType") == "TABLE"), "odd %d: text in UTF-8: %s" % (number_of_row, text))
        said = [line for line in run(VEXAL, "sr", "check", path).stdout.decode().splitlines() if ": 1.2 " in line]
        check(any(finding in line for line in said) if finding else not any("no number" in line for line in said), "odd %d: check: %s" % (number_of_row, said))


try:
    import jsonschema
    SCHEMA = jsonschema.Draft202012Validator(json.loads(read(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../docs/sr.schema.json"))))
except ImportError:
    SCHEMA = left_out("the form held against its schema", "jsonschema")
with tempfile.TemporaryDirectory() as folder:
    for path in sorted(glob.glob(SAMPLES + "/*.dcm")):
        check_sample(path, folder)
    check_refused(folder)
    check_values(folder)
    check_odd(folder)
    for rule in RULES:
        check_rule(*rule, folder)
    if len(sys.argv) > 3:
        path = os.path.join(folder, "example.dcm")
        made = ended(run(sys.argv[3], path, env=dict(os.environ, VEXAL_INI=sys.argv[4])), "example")
        check(b"Length = 23.5 mm" in made.stdout, "example: %s" % made.stdout)
        vexal("sr", "check", path, title="example")
        for program in VALIDATORS:
            check(findings(program, path) == ([], 0), "example: %s: %s" % (program, findings(program, path)))
sys.exit(end())
