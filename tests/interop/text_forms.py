#!/usr/bin/env python3
"""JSON that vexal wrote is what dcm2json writes and what pydicom reads, and theirs is read by vexal, as is the native
XML of dcm2xml.

usage: text_forms.py VEXAL SAMPLES
Files in UTF-8 or ASCII, uncompressed. Exit 77 (skipped) where the samples, dcmtk or pydicom are missing.
"""
import json
import os
import random
import re
import sys
import tempfile
import warnings
import xml.etree.ElementTree

from checks import SAMPLES, VEXAL, check, end, fail, files_under, need, paths, run, vexal, write
from made import element, meta

need("dcm2json", modules=["pydicom"])
import pydicom

warnings.simplefilter("ignore")
# A private attribute without its creator, a sequence in UN, and a character set that the peer adds.
LEFT_OUT = ("made/private-two-creators.dcm", "made/un-defined-length-sq.dcm", "odd/empty-charset.dcm")
BULK = ("OB", "OW", "OF", "OD", "OL", "OV", "UN")
PEER_REPEATS = "charset/x1.dcm"  # in XML, the group before an empty last one
counts = dict.fromkeys(("files", "elements", "of dcm2json", "of pydicom", "of dcm2xml", "of dcm2xml -nat", "losses"), 0)


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
        if member["vr"] not in BULK and not odd and tag[4:] != "0000":
            values = member.get("Value", [])
            known[tag] = [elements(v, private) for v in values] if member["vr"] == "SQ" else plain(values)
    return known


def compare(name, ours, theirs, who, private=False):
    a, b = elements(ours, private), elements(theirs, private)
    for tag in sorted(a.keys() & b.keys()):
        counts["elements"] += 1
        if a[tag] != b[tag] and (a[tag] or b[tag]) and [x for x in b[tag] if x not in (None, {})]:
            return fail(f"{name} {tag}: {str(a[tag])[:80]} against {str(b[tag])[:80]} of {who}")
    if set(a) != set(b):
        fail(f"{name}: {sorted(set(a) ^ set(b))[:5]} only in one, {who}")


def back(name, form, text, ours, who, status=0):
    """The peer's text makes the file that ours does."""
    path = write(os.path.join(work, "in." + form), text)
    result = run(VEXAL, form, "--back", path, path + ".dcm")
    if result.returncode != status:
        return fail(f"{name}: vexal does not read the {form} of {who}: {result.stderr.decode()[:100]}")
    compare(name, json.loads(run(VEXAL, "json", path + ".dcm").stdout), ours, who, private=form == "xml")


def native_elements(holder):
    """What native XML says of its attributes, as far as elements() would."""
    known = {}
    for attribute in holder:
        tag, vr = attribute.get("tag"), attribute.get("vr")
        if vr in BULK or int(tag[:4], 16) % 2 or tag[4:] == "0000" or tag < "00080000":
            continue
        if vr == "SQ":
            known[tag] = [native_elements(item) for item in attribute]
        else:
            leaves = [[(leaf.tag, plain(leaf.text)) for leaf in value.iter() if leaf.text and leaf.text.strip()] for value in attribute]
            known[tag] = [leaf for leaf in leaves if leaf]  # empty ones are left out by one and not by the other
    return {tag: values for tag, values in known.items() if values}


def native_xml(name, path, ours):
    """Of dcm2xml: it makes the same file, and our own says what it does."""
    peer = run("dcm2xml", "-nat", path)
    if name == PEER_REPEATS or peer.returncode != 0:
        return
    counts["of dcm2xml"] += 1
    back(name, "xml", peer.stdout, ours, "dcm2xml", int(b"<BulkData" in peer.stdout))  # left out by the peer, which vexal has to tell
    tree = lambda text: native_elements(xml.etree.ElementTree.fromstring(re.sub(rb' xmlns="[^"]*"', b"", text)))
    try:
        b = tree(peer.stdout)
    except xml.etree.ElementTree.ParseError:
        return
    a = tree(run(VEXAL, "xml", "--native", path).stdout)
    counts["of dcm2xml -nat"] += 1
    other = sorted(tag for tag in a.keys() | b.keys() if a.get(tag) != b.get(tag))
    if other:
        fail(f"{name} {other[0]}: {str(a.get(other[0]))[:80]} against {str(b.get(other[0]))[:80]} of dcm2xml -nat")


def samples():
    for path in files_under(SAMPLES):
        name = os.path.relpath(path, SAMPLES)
        if not name.endswith(".dcm") or os.path.getsize(path) > 2_000_000 or name.startswith(("bad", "made/broken", "made/stress")) or name in LEFT_OUT:
            continue
        try:
            dataset = pydicom.dcmread(path)
            if dataset.file_meta.TransferSyntaxUID.is_encapsulated:
                continue
            theirs = dataset.to_json_dict()
        except Exception:  # pylint: disable=broad-except
            continue  # the peer does not read it
        result = run(VEXAL, "json", path)
        if str(dataset.get("SpecificCharacterSet", "") or "ISO_IR 6") not in ("ISO_IR 6", "ISO_IR 192") or result.returncode != 0:
            continue
        ours = json.loads(result.stdout)
        counts["files"] += 1
        try:
            pydicom.Dataset.from_json(ours)
            counts["of pydicom"] += 1
        except Exception as error:  # pylint: disable=broad-except
            fail(f"{name}: pydicom does not read ours: {error}")
        back(name, "json", json.dumps(theirs), ours, "pydicom")
        peer = run("dcm2json", path)
        try:
            document = json.loads(peer.stdout)
        except ValueError:
            continue
        counts["of dcm2json"] += 1
        compare(name, ours, document, "dcm2json")
        back(name, "json", peer.stdout, ours, "dcm2json")
        native_xml(name, path, ours)


IDENTITY = {"00080016": {"vr": "UI", "Value": ["1.2.840.10008.5.1.4.1.1.7"]}, "00080018": {"vr": "UI", "Value": ["1.2.3"]}}


def losses():
    """What a file or a text has no room for is told, and the exit status says so; texts that are none make no file."""
    text, made, objects = paths(work, "loss.text", "loss.dcm", "objects")

    def name_under(charset, name):
        document = dict(IDENTITY, **{"00100010": {"vr": "PN", "Value": [{"Alphabetic": name}]}})
        return json.dumps(document | ({"00080005": {"vr": "CS", "Value": [charset]}} if charset else {}))

    def back_again(document, form, status, told, kept=None):
        if os.path.exists(made):
            os.unlink(made)
        result = vexal(*form, "--back", write(text, document), made, status=status, says=told)
        content = run("dcmdump", "+U8", made).stdout.decode("utf-8", "replace") if os.path.exists(made) else None
        counts["losses"] += 1
        check((result.stderr != b"") == (status != 0) and (content is None if kept is None else kept in (content or "")), f"{document}: {result} {content}")

    # A text, the exit status of --back, a word of what is told, and text of the file by dcmdump in UTF-8.
    identity, fragments = json.dumps(IDENTITY), {"vr": "OB", "InlineBinary": "/v8A4AAAAAD+/wDgAgAAAGFi/v/d4AAAAAA="}
    for row in ((name_under("ISO_IR 100", "M\u00fcller \u5c71"), 1, "(0010,0010)", "[M\u00fcller ?]"),
                (name_under("ISO_IR 144", "\u041b\u044e\u043a"), 0, "", "[\u041b\u044e\u043a]"), (name_under(None, "\u5c71"), 0, "", "[ISO_IR 192]"),
                (f"[{identity}]", 0, "", "[1.2.3]"), (f"[{identity}", 2, "array"), (identity + "x", 2, "beside"), ("{}", 2, "no attribute"),
                ("", 2, "no document"), (json.dumps(IDENTITY | {"7FE00010": fragments}), 2, "compressed")):
        back_again(row[0], ["json"], *row[1:])
    # What is no document of either form of XML.
    vexal("json", "--back", write(text, identity), objects + ".dcm")
    for form in (["xml"], ["xml", "--native"]):
        whole = run(VEXAL, *form, objects + ".dcm").stdout.rstrip()
        for document in (b"", b"{}", b"<html/>", whole[:-3], whole + b"junk"):
            back_again(document, form, 2, "")
    # Several objects become files of a folder, as an archive and vexal itself write them.
    for n, form in enumerate(("[%s,%s]", "%s\n%s\n")):
        # Longer than the blocks that are read, with all that parts objects in its strings.
        long = "".join(random.choices('ab{}[]",\\', k=600000)) + "."
        member = json.dumps(dict(IDENTITY, **{"0040A160": {"vr": "UT", "Value": [long]}}))
        write(text, form % (member, member.replace("1.2.3", "1.2.4")))
        vexal("json", "--back", text, objects + str(n))
        check(sorted(os.listdir(objects + str(n))) == ["1.2.3.dcm", "1.2.4.dcm"], f"{form}: {os.listdir(objects + str(n))}")
        told = [json.loads(line) for line in run(VEXAL, "json", objects + str(n)).stdout.splitlines()]
        check([t["0040A160"]["Value"][0] for t in told] == [long, long], f"{form}: long strings come back changed")
        vexal("json", "--back", text, os.path.join(objects + str(n), "1.2.3.dcm"), status=2, title="two objects in one file")
    # Bytes that are no text where a file says that they are.
    write(made, meta("1.2.840.10008.5.1.4.1.1.7", "1.2.3") + element(0x00080005, "CS", "ISO_IR 192") + element(0x00100010, "PN", b"M\xfcller"))
    for form in (["json", "--own"], ["json", "--own", "--bulk", objects], ["xml"], ["xml", "--native"]):
        vexal(*form, made, status=1, says="(0010,0010)")


with tempfile.TemporaryDirectory() as work:
    samples()
    losses()
sys.exit(end(counts))
