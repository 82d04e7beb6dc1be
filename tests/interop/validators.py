#!/usr/bin/env python3
"""What vexal validate finds, beside what dciodvfy finds: in the valid samples, and in an object of each storage class
that has nothing but its SOP class and so misses all that the class demands.

usage: validators.py VEXAL SAMPLES [--list]
Compares findings about attributes of the object definition, place by place and class by class, and fails when vexal
finds less than 90 % of what dciodvfy reports. --list shows every finding that only one of the two has. Exit 77
(skipped) where the samples or dciodvfy are missing.
"""
import collections
import json
import multiprocessing
import os
import re
import struct
import subprocess
import sys
import tempfile

from checks import SAMPLES, VEXAL, check, element, end, need, valid_samples

WANTED = 0.90
SERVICES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "data", "vexalkit.srv")
MISSING, FORBIDDEN, REPRESENTATION = "missing required attributes", "forbidden values", "value representation"

# The status of a finding, by what it is about. Places inside an item that is not known at all are left alone.
OURS = {
    4073: MISSING, 4075: MISSING, 4090: MISSING,  # attribute missing, value missing, value null
    4091: FORBIDDEN, 4068: FORBIDDEN,  # value not allowed, not one of the enumerated values
    4027: REPRESENTATION, 4035: REPRESENTATION, 4045: REPRESENTATION, 4082: REPRESENTATION, 4084: REPRESENTATION,
}
THEIRS = [
    (MISSING, re.compile(r"(Missing attribute|Empty attribute \(no value\)) for Type [12]|"
                         r"Bad Sequence number of Items = <0> \(1(-n)? Required")),
    (FORBIDDEN, re.compile(r"Attribute present when condition unsatisfied|Unrecognized enumerated value|"
                           r"Shall not be present when [A-Z]\w+ is present")),
    (REPRESENTATION, re.compile(r"Value invalid for this VR|Bad attribute Value Multiplicity|Illegal root for UID")),
]
PLACE = re.compile(r"Error - <(/[^>]*)> - (.*)")
STEP = re.compile(r'/(?:(\w+)\(([0-9a-f]{4}),([0-9a-f]{4})\)|\(([0-9a-f]{4}),([0-9a-f]{4})(?:,"[^"]*")?\))(?:\[(\d+)\])?')

# Where dciodvfy reads the standard otherwise: it asks for Laterality wherever it is not excluded.
OTHER_READING = {"Laterality"}


def ours(paths):
    """{path: {(class, place)}} of the files whose SOP class has a service."""
    command = [VEXAL, "validate", "--json", "--level", "all"] + paths
    result = subprocess.run(command, capture_output=True, timeout=300)
    found = {}
    for line in result.stdout.decode("utf-8", "replace").splitlines():
        entry = json.loads(line)
        if "file" not in entry:
            continue
        found[entry["file"]] = (entry["service"], {
            (OURS[one["status"]], one["path"]) for one in entry["findings"]
            if one["status"] in OURS and one["severity"] == "error" and int(one["tag"][:4], 16) % 2 == 0
        })
    return found


def their_place(text):
    """"/A(0008,1140)[1]/B(0008,1155)[1]" as "A[0].B", or nothing for a private attribute or the meta group."""
    steps = list(STEP.finditer(text))
    parts = []
    for step in steps:
        keyword, group = step.group(1), step.group(2) or step.group(4)
        if keyword is None or int(group, 16) % 2 == 1 or group == "0002":
            return None
        parts.append(keyword + ("[%d]" % (int(step.group(6)) - 1) if step.group(6) and step is not steps[-1] else ""))
    return ".".join(parts)


def theirs(path):
    """The file was read and its object definition known, and {(class, place)}."""
    result = subprocess.run(["dciodvfy", "-new", path], capture_output=True, timeout=60)
    text = (result.stdout + result.stderr).decode("latin-1")
    found = set()
    for match in PLACE.finditer(text):
        place = their_place(match.group(1))
        if place is None or place.rsplit(".", 1)[-1] in OTHER_READING:
            continue
        for kind, pattern in THEIRS:
            if pattern.search(match.group(2)):
                found.add((kind, place))
    readable = not re.search("Information Object Not found|Dicom dataset read failed", text)
    return path, readable and result.returncode >= 0, found


def bare_objects(folder):
    """A file for each storage service, with SOP class and instance only."""
    with open(SERVICES, encoding="utf-8") as profile:
        sections = re.findall(r"NAME = (\S+)\nUID = (\S+)\n((?:[A-Z_]\S* = .*\n)*)", profile.read())
    for name, uid, rest in sections:
        if "C_STORE_RQ" not in rest or name == "DICOMDIR":
            continue
        uid = uid.encode()
        meta = b"".join(element(0x00020000 + number, b"UI", text) for number, text in ((2, uid), (3, b"1.2.3.4"), (16, b"1.2.840.10008.1.2.1")))
        path = os.path.join(folder, name + ".dcm")
        with open(path, "wb") as out:
            out.write(bytes(128) + b"DICM" + element(0x00020000, b"UL", struct.pack("<I", len(meta))) + meta)
            out.write(element(0x00080016, b"UI", uid) + element(0x00080018, b"UI", b"1.2.3.4"))
        yield path


def compare(title, paths, folder, show):
    """Prints the agreement, which has to be good enough."""
    mine = ours(paths)
    counts = collections.defaultdict(collections.Counter)
    with multiprocessing.Pool() as pool:
        for path, known, other in pool.imap(theirs, paths):
            if not known or path not in mine:
                continue
            service, own = mine[path]
            own = {(k, p) for k, p in own if p.rsplit(".", 1)[-1] not in OTHER_READING}
            counts["files"][service] += 1
            for kind, place in own | other:
                where = "both" if (kind, place) in own and (kind, place) in other else \
                    "ours" if (kind, place) in own else "theirs"
                counts[kind][where] += 1
                counts["all"][where] += 1
                if show and where != "both":
                    print("%-6s  %s: %s: %s (%s)" % (where, kind, os.path.relpath(path, folder), place, service))
    print("%s: %d files of %d services" % (title, sum(counts["files"].values()), len(counts["files"])))
    for kind in (MISSING, FORBIDDEN, REPRESENTATION, "all"):
        both, only_theirs = counts[kind]["both"], counts[kind]["theirs"]
        if both + only_theirs == 0:
            continue
        print("%-28s %4d of dciodvfy's %4d found (%.1f %%), %d more" % (
            kind, both, both + only_theirs, 100.0 * both / (both + only_theirs), counts[kind]["ours"]))
    total = counts["all"]["both"] + counts["all"]["theirs"]
    check(total > 0 and counts["all"]["both"] >= WANTED * total, title + ": less than what is wanted")


need("dciodvfy")
show = "--list" in sys.argv
# Not those that take long to read by design.
compare("samples", [path for name, path in valid_samples() if "stress" not in name], SAMPLES, show)
with tempfile.TemporaryDirectory() as folder:
    compare("bare objects", list(bare_objects(folder)), folder, show)
sys.exit(end())
