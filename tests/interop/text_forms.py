#!/usr/bin/env python3
"""JSON that vexal wrote is what dcm2json writes and what pydicom reads, and theirs is read by vexal, as is the native
XML of dcm2xml.

usage: text_forms.py VEXAL SAMPLES
Files in UTF-8 or ASCII, uncompressed. Exit 77 (skipped) where the samples, dcmtk or pydicom are missing.
"""
import glob
import json
import os
import random
import re
import sys
import tempfile
import warnings
import xml.etree.ElementTree

from checks import REAL_SAMPLES, SAMPLES, VEXAL, check, element, end, fail, left_out, need, run

need("dcm2json", module="pydicom")
import pydicom

warnings.simplefilter("ignore")
# A private attribute without its creator, a sequence in UN, and a character set that the peer adds.
LEFT_OUT = ("made/private-two-creators.dcm", "made/un-defined-length-sq.dcm", "odd/empty-charset.dcm")
FORMS = (("json", "--own"), ("json", "--own", "--bulk"), ("xml",), ("xml", "--native"))
PEER_REPEATS = "charset/x1.dcm"  # in XML, the group before an empty last one
counts = {"files": 0, "elements": 0, "of dcm2json": 0, "of pydicom": 0, "of dcm2xml": 0, "of dcm2xml -nat": 0}


def plain(value):
    """A value in a form in which the spellings of one number are equal."""
    if isinstance(value, dict):
        return {k: plain(v) for k, v in value.items() if plain(v) not in ("", None, [], {})}
    if isinstance(value, list):
        return [plain(v) for v in value]
    try:
        return f"{float(value):.6g}"  # FL has no more digits, whoever prints how many
    except (TypeError, ValueError):
        return value.strip(" ^") if isinstance(value, str) else value


def elements(document, private=False):
    """What a document says of its attributes: bulk values and UN apart, of which programs think differently."""
    known = {}
    for tag, member in document.items():
        odd = int(tag[:4], 16) % 2 and not (private and int(tag[:4], 16) > 7)
        if member["vr"] in ("OB", "OW", "OF", "OD", "OL", "OV", "UN") or odd or tag[4:] == "0000":
            continue
        values = member.get("Value", [])
        known[tag] = [elements(v, private) for v in values] if member["vr"] == "SQ" else plain(values)
    return known


def compare(name, ours, theirs, who, private=False):
    a, b = elements(ours, private), elements(theirs, private)
    for tag in sorted(a.keys() & b.keys()):
        counts["elements"] += 1
        if a[tag] != b[tag] and (a[tag] or b[tag]) and [x for x in b[tag] if x not in (None, {})]:
            fail(f"{name} {tag}: {str(a[tag])[:80]} against {str(b[tag])[:80]} of {who}")
            return
    if set(a) != set(b):
        fail(f"{name}: {sorted(set(a) ^ set(b))[:5]} only in one, {who}")


def back(name, document, ours, work, who):
    """The peer's JSON makes the file that ours does."""
    path = os.path.join(work, "in.json")
    with open(path, "w", encoding="utf-8") as out:
        json.dump(document, out)
    result = run(VEXAL, "json", "--back", path, path + ".dcm")
    if result.returncode != 0:
        fail(f"{name}: vexal does not read the JSON of {who}: {result.stderr.decode()[:100]}")
        return
    compare(name, json.loads(run(VEXAL, "json", path + ".dcm").stdout), ours, who)


def xml_back(name, path, ours, work):
    """The native XML of dcm2xml makes the same file."""
    text = os.path.join(work, "in.xml")
    if name == PEER_REPEATS or run("dcm2xml", "-nat", path, text).returncode != 0:
        return
    result = run(VEXAL, "xml", "--back", text, text + ".dcm")
    with open(text, "rb") as file:
        left_out = b"<BulkData" in file.read()  # by the peer, which vexal has to tell
    if result.returncode != (1 if left_out else 0):
        fail(f"{name}: vexal does not read the XML of dcm2xml: {result.stderr.decode()[:100]}")
        return
    counts["of dcm2xml"] += 1
    compare(name, json.loads(run(VEXAL, "json", text + ".dcm").stdout), ours, "dcm2xml", private=True)


def native_elements(holder):
    """What native XML says of its attributes, as far as elements() would."""
    known = {}
    for attribute in holder:
        tag, vr = attribute.get("tag"), attribute.get("vr")
        if vr in ("OB", "OW", "OF", "OD", "OL", "OV", "UN") or int(tag[:4], 16) % 2 or tag[4:] == "0000" or tag < "00080000":
            continue
        if vr == "SQ":
            known[tag] = [native_elements(item) for item in attribute]
        else:
            leaves = [[(leaf.tag, plain(leaf.text)) for leaf in value.iter() if leaf.text and leaf.text.strip()] for value in attribute]
            known[tag] = [leaf for leaf in leaves if leaf]  # empty ones are left out by one and not by the other
    return known


def native_compare(name, path):
    """Our native XML says what that of dcm2xml does."""
    if name == PEER_REPEATS:
        return
    try:
        peer = xml.etree.ElementTree.fromstring(re.sub(rb' xmlns="[^"]*"', b"", run("dcm2xml", "-nat", path).stdout))
    except xml.etree.ElementTree.ParseError:
        return
    a = native_elements(xml.etree.ElementTree.fromstring(re.sub(rb' xmlns="[^"]*"', b"", run(VEXAL, "xml", "--native", path).stdout)))
    b = native_elements(peer)
    counts["of dcm2xml -nat"] += 1
    for tag in sorted(a.keys() | b.keys()):
        if a.get(tag, []) != b.get(tag, []):
            fail(f"{name} {tag}: {str(a.get(tag))[:80]} against {str(b.get(tag))[:80]} of dcm2xml -nat")
            return


with tempfile.TemporaryDirectory() as work:
    for path in sorted(glob.glob(os.path.join(SAMPLES, "**", "*.dcm"), recursive=True)):
        name = os.path.relpath(path, SAMPLES)
        if os.path.getsize(path) > 2_000_000 or name.startswith(("bad", "made/broken", "made/stress")) or name in LEFT_OUT:
            continue
        try:
            dataset = pydicom.dcmread(path)
            if dataset.file_meta.TransferSyntaxUID.is_encapsulated:
                continue
            theirs = dataset.to_json_dict()
        except Exception:  # pylint: disable=broad-except
            continue  # the peer does not read it
        if str(dataset.get("SpecificCharacterSet", "") or "ISO_IR 6") not in ("ISO_IR 6", "ISO_IR 192"):
            continue
        result = run(VEXAL, "json", path)
        if result.returncode != 0:
            continue
        ours = json.loads(result.stdout)
        counts["files"] += 1
        try:
            pydicom.Dataset.from_json(ours)
            counts["of pydicom"] += 1
        except Exception as error:  # pylint: disable=broad-except
            fail(f"{name}: pydicom does not read ours: {error}")
        back(name, theirs, ours, work, "pydicom")
        peer = run("dcm2json", path)
        if peer.returncode == 0:
            try:
                document = json.loads(peer.stdout)
            except ValueError:
                continue
            counts["of dcm2json"] += 1
            compare(name, ours, document, "dcm2json")
            back(name, document, ours, work, "dcm2json")
            xml_back(name, path, ours, work)
            native_compare(name, path)



def text_of(member):
    """The text of an attribute, as one string."""
    values = member.get("Value", [])
    names = ("Alphabetic", "Ideographic", "Phonetic")
    texts = ["=".join(v.get(n, "") for n in names).rstrip("=") if isinstance(v, dict) else str(v) for v in values]
    return "\\".join(texts)


def charsets(work):
    """Texts of every character set come as the UTF-8 recorded beside the samples, and go back to an equal text."""
    recorded = {}
    for path in sorted(glob.glob(os.path.join(SAMPLES, "expected", "charset", "*.dcm.json"))):
        with open(path, encoding="utf-8") as file:
            texts = json.load(file).get("text_utf8", {}).get("vtk_dicom", {})
        recorded["charset/" + os.path.basename(path)[:-5]] = {t: v for t, v in texts.items() if t[:4] != "0002" and v.strip("^")}
    with open(os.path.join(SAMPLES, "expected", "made", "charset-intended.json"), encoding="utf-8") as file:
        for name, texts in json.load(file).items():
            recorded["made/" + name] = {t: "\\".join(v) if isinstance(v, list) else v for t, v in texts.items()}
    for name, texts in recorded.items():
        path, made = os.path.join(SAMPLES, name), os.path.join(work, "back.dcm")
        result = run(VEXAL, "json", path)
        if not os.path.exists(path) or result.returncode != 0:
            fail(f"{name}: {result.stderr.decode()[:100]}")
            continue
        document = json.loads(result.stdout)
        with open(made + ".json", "wb") as file:
            file.write(result.stdout)
        run(VEXAL, "json", "--back", made + ".json", made)
        again = json.loads(run(VEXAL, "json", made).stdout)
        for tag, text in texts.items():
            if not isinstance(text, str) or text.endswith("..."):  # recorded in part
                continue
            counts["texts"] += 1
            told = text_of(document.get(tag, {}))
            if told.strip(" ^") != text.replace("\\134", "\\").strip(" ^="):
                fail(f"{name} {tag}: {told!r} instead of {text!r}")
            if text_of(again.get(tag, {})) != told:
                fail(f"{name} {tag}: came back as {text_of(again.get(tag, {}))!r} instead of {told!r}")


def byte_orders(work):
    """Big-endian and little-endian files of one object give one text, and the same bulk files."""
    texts = []
    for name in ("allvr-xle.dcm", "allvr-xbe.dcm"):
        bulk = os.path.join(work, "order-" + name)
        path = os.path.join(SAMPLES, "made", name)
        text = [run(VEXAL, "json", *options, path).stdout.replace(bulk.encode(), b"") for options in ((), ("--bulk", bulk))]
        native = run(VEXAL, "xml", "--native", path).stdout
        text.append(native[native.find(b'tag="0008'):])
        for bin in sorted(glob.glob(bulk + "/*")):
            with open(bin, "rb") as file:
                text.append(file.read())
        texts.append(text)
    if len(texts[0]) < 4 or texts[0] != texts[1]:
        fail("allvr-xle.dcm and allvr-xbe.dcm give different texts")


IDENTITY = {"00080016": {"vr": "UI", "Value": ["1.2.840.10008.5.1.4.1.1.7"]}, "00080018": {"vr": "UI", "Value": ["1.2.3"]}}


def losses(work):
    """What a file or a text has no room for is told, and the exit status says so; texts that are none make no file."""
    text, made = os.path.join(work, "loss.text"), os.path.join(work, "loss.dcm")

    def name_under(charset, name):
        document = dict(IDENTITY, **{"00100010": {"vr": "PN", "Value": [{"Alphabetic": name}]}})
        if charset is not None:
            document["00080005"] = {"vr": "CS", "Value": [charset]}
        return json.dumps(document)

    # A text, the exit status of --back, a word of what is told, and text of the file by dcmdump in UTF-8.
    cases = [(name_under("ISO_IR 100", "M\u00fcller \u5c71"), 1, "(0010,0010)", "[M\u00fcller ?]"),
             (name_under("ISO_IR 144", "\u041b\u044e\u043a"), 0, "", "[\u041b\u044e\u043a]"),
             (name_under(None, "\u5c71"), 0, "", "[ISO_IR 192]"), (name_under(None, "A\\B"), 1, "backslash", "[A\\B]"),
             (json.dumps(dict(IDENTITY, **{"00080020": {"vr": "DA", "Value": ["never"]}})), 0, "", "[never]"),
             (json.dumps([IDENTITY]), 0, "", "[1.2.3]"), (json.dumps([IDENTITY])[:-1], 2, "array", None),
             (json.dumps(IDENTITY) + "x", 2, "beside", None), ("{}", 2, "no attribute", None), ("", 2, "no document", None),
             (json.dumps({"00100020": {"vr": "LO", "Value": ["x"]}}), 0, "", "[x]"),
             (json.dumps(dict(IDENTITY, **{"7FE00010": {"vr": "OB", "InlineBinary": "/v8A4AAAAAD+/wDgAgAAAGFi/v/d4AAAAAA="}})), 2,
              "compressed", None)]
    for document, status, told, kept in cases:
        if os.path.exists(made):
            os.unlink(made)
        with open(text, "w", encoding="utf-8") as out:
            out.write(document)
        result = run(VEXAL, "json", "--back", text, made)
        content = run("dcmdump", "+U8", made).stdout.decode("utf-8", "replace") if os.path.exists(made) else None
        counts["losses"] += 1
        good = result.returncode == status and told in result.stderr.decode() and (result.stderr != b"") == (status != 0)
        check(good and (content is None if kept is None else kept in (content or "") or kept == "[ISO_IR 192]"),
              f"{document}: {result.returncode} {result.stderr.decode()} {content}")
    # Several objects become files of a folder, as an archive and vexal itself write them.
    for form in ("[%s,%s]", "%s\n%s\n"):
        folder = os.path.join(work, "folder%d" % len(form))
        # Longer than the blocks that are read, with all that parts objects in its strings.
        long = "".join(random.choices('ab{}[]",\\', k=600000)) + "."
        member = dict(IDENTITY, **{"0040A160": {"vr": "UT", "Value": [long]}})
        with open(text, "w", encoding="utf-8") as out:
            out.write(form % (json.dumps(member), json.dumps(member).replace("1.2.3", "1.2.4")))
        result = run(VEXAL, "json", "--back", text, folder)
        check(result.returncode == 0 and sorted(os.listdir(folder)) == ["1.2.3.dcm", "1.2.4.dcm"], f"{form}: {result}")
        told = [json.loads(line) for line in run(VEXAL, "json", folder).stdout.splitlines()]
        check([t["0040A160"]["Value"][0] for t in told] == [long, long], f"{form}: long strings come back changed")
        check(run(VEXAL, "json", "--back", text, os.path.join(folder, "1.2.3.dcm")).returncode == 2, "two objects in one file")
    # What is no document of either form of XML.
    with open(text, "w", encoding="utf-8") as out:
        json.dump(IDENTITY, out)
    run(VEXAL, "json", "--back", text, made)
    for form in ((), ("--native",)):
        whole = run(VEXAL, "xml", *form, made).stdout.rstrip()
        for document in (b"", b"{}", b"words", b"<html/>", whole[:-3], whole + b"<a/>", whole + b"junk", whole.replace(b'">1.2.3<', b'">1.2.3</a><', 1),
                         whole.replace(b"<DicomAttribute", b"<DicomAttribut", 1).replace(b"<Attribute", b"<Attribut", 1)):
            with open(text, "wb") as out:
                out.write(document)
            result = run(VEXAL, "xml", *form, "--back", text, made + ".xml")
            check(result.returncode == 2 and not os.path.exists(made + ".xml"), f"{document}: {result}")
    # Bytes that are no text where a file says that they are.
    with open(made, "wb") as out:
        out.write(bytes(128) + b"DICM" + element(0x00020010, b"UI", b"1.2.840.10008.1.2.1") + element(0x00080005, b"CS", b"ISO_IR 192") +
                  element(0x00100010, b"PN", b"M\xfcller"))
    for form in FORMS:
        words = list(form) + ([os.path.join(work, "bulk")] if form[-1] == "--bulk" else [])
        result = run(VEXAL, *words, made)
        check(result.returncode == 1 and b"(0010,0010)" in result.stderr, f"{form}: {result}")


counts["texts"] = counts["losses"] = 0
with tempfile.TemporaryDirectory() as work:
    charsets(work)
    byte_orders(work) if REAL_SAMPLES else left_out("byte orders", "samples")
    losses(work)
sys.exit(end(counts))
