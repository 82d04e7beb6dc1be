#!/usr/bin/env python3
"""What vexal validate finds, beside what dciodvfy finds: in the valid samples, in an object of each storage class
that has nothing but its SOP class and so misses all that the class demands, in one that has just that, and in what public
programs write.

usage: validators.py VEXAL SAMPLES VXDATA MESSAGE-INFO-FILE [--list]
Compares errors place by place and class by class. It fails when vexal finds less than 97 % of what dciodvfy reports, or
98 % in what public programs write, or where in objects in which vexal finds nothing dciodvfy reports more than one in
eight objects; and for each error of vexal that dciodvfy does not have unless validator_differences.tsv gives its reason
from the standard.
--list shows every finding that only one of the two has. Exit 77 (skipped) where the samples or dciodvfy are missing.
"""
import collections
import fnmatch
import json
import multiprocessing
import os
import re
import sys
import tempfile

from checks import SAMPLES, VEXAL, check, end, files_under, need, read, run, valid_samples, write
from made import element, meta
import writers
from minimal_objects import Rules, build_all

WANTED = 0.97
HERE = os.path.dirname(os.path.abspath(__file__))
SERVICES = os.path.join(HERE, "..", "..", "data", "vexalkit.srv")
MISSING, FORBIDDEN, REPRESENTATION, CONSISTENCY = "missing required attributes", "forbidden values", "value representation", "consistency"

# The status of a finding, by what it is about; what is no key is about the representation of a value.
OURS = {
    4073: MISSING, 4075: MISSING, 4090: MISSING,  # attribute missing, value missing, value null
    4091: FORBIDDEN, 4068: FORBIDDEN,  # value not allowed, not one of the enumerated values
    4023: CONSISTENCY, 4067: CONSISTENCY, 4092: CONSISTENCY, 4111: CONSISTENCY,  # against other values; order of tags
}
THEIRS = [
    (MISSING, re.compile(r"(Missing attribute|Empty attribute \(no value\)) for Type [12]|"
                         r"Bad Sequence number of Items = <0> \(1(-n)? Required")),
    (FORBIDDEN, re.compile(r"Attribute present when condition unsatisfied|Unrecognized enumerated value|"
                           r"Shall not be present when [A-Z]\w+ is present")),
    (REPRESENTATION, re.compile(r"Value invalid for this VR|Bad attribute Value Multiplicity|Illegal root for UID")),
    (CONSISTENCY, re.compile("")),
]
NO_ITEMS = re.compile(r"Bad Sequence number of Items = <0>")
PLACE = re.compile(r"Error - <(/[^>]*)> - (.*)")
STEP = re.compile(r'/(?:(\w+)\(([0-9a-f]{4}),([0-9a-f]{4})\)|\(([0-9a-f]{4}),([0-9a-f]{4})(?:,"[^"]*")?\))(?:\[(\d+)\])?')



def read_differences():
    """[(side, kind, place pattern, text, reason)]"""
    lines = read(os.path.join(HERE, "validator_differences.tsv")).decode().splitlines()
    return [line.split("\t") for line in lines if line[0] != "#"][1:]


DIFFERENCES = read_differences()
used = set()


def is_explained(side, kind, place, text):
    path = re.sub(r"\[\d+\]", "", place)
    rows = [row for row in DIFFERENCES if row[0] == side and row[1] in ("*", kind) and row[3] in text and
            (fnmatch.fnmatchcase(path, row[2]) or fnmatch.fnmatchcase(path.rsplit(".", 1)[-1], row[2]))]
    used.update("\t".join(row) for row in rows)
    return bool(rows)


def ours(paths):
    """{path: (service, {(class, place): text})} of the files whose SOP class has a service."""
    result, found = run(VEXAL, "validate", "--json", "--level", "errors", *paths, timeout=300), {}
    for line in result.stdout.decode("utf-8", "replace").splitlines():
        entry = json.loads(line)
        if "file" not in entry:
            continue
        found[entry["file"]] = (entry["service"], {
            (OURS.get(one["status"], REPRESENTATION), one["path"]): one["rule"] + " " + one.get("wanted", "")
            for one in entry["findings"] if int(one["tag"][:4], 16) % 2 == 0
        })
    return found


def their_place(text):
    """"/A(0008,1140)[1]/B(0008,1155)[1]" as "A[0].B", or nothing for a private attribute."""
    steps = list(STEP.finditer(text))
    parts = []
    for step in steps:
        keyword, group = step.group(1), step.group(2) or step.group(4)
        if keyword is None or int(group, 16) % 2 == 1:
            return None
        parts.append(keyword + ("[%d]" % (int(step.group(6)) - 1) if step.group(6) and step is not steps[-1] else ""))
    return ".".join(parts)


def theirs(path):
    """The file was read and its object definition known, and {(class, place): text}."""
    result = run("dciodvfy", "-new", path)
    text = (result.stdout + result.stderr).decode("latin-1")
    found = {}
    for match in PLACE.finditer(text):
        place = their_place(match.group(1))
        if place is None:
            continue
        found[next(kind for kind, pattern in THEIRS if pattern.search(match.group(2))), place] = match.group(2)
    # PS3.5 7.4.5: an attribute of type 3 may be there without a value, and so may a sequence without items.
    for kind, place in [key for key, said in found.items() if NO_ITEMS.search(said)]:
        if "Type 3 Optional" in found.get((REPRESENTATION, place), ""):
            del found[REPRESENTATION, place]
            found.pop((kind, place))
    readable = not re.search("Information Object Not found|Dicom dataset read failed", text)
    return path, readable and result.returncode >= 0, found


def bare_objects(folder):
    """A file for each storage service, with SOP class and instance only."""
    sections = re.findall(r"NAME = (\S+)\nUID = (\S+)\n((?:[A-Z_]\S* = .*\n)*)", read(SERVICES).decode())
    for name, uid, rest in sections:
        if "C_STORE_RQ" in rest and name != "DICOMDIR":
            yield write(os.path.join(folder, name + ".dcm"), meta(uid, "1.2.3.4") + element(0x00080016, "UI", uid) + element(0x00080018, "UI", "1.2.3.4"))


def compare(title, paths, folder, show, wanted=WANTED):
    """Prints the agreement, which has to be good enough."""
    mine = ours(paths)
    counts = collections.defaultdict(collections.Counter)
    with multiprocessing.Pool() as pool:
        for path, known, other in pool.imap(theirs, paths):
            if not known or path not in mine:
                continue
            service, own = mine[path]
            counts["files"][service] += 1
            our_places = {place for _, place in own}
            their_places = {place for _, place in other}
            for kind, place in own.keys() | other.keys():
                # The same fault of an attribute may have another name.
                both = place in our_places and place in their_places
                where = "both" if both else "ours" if (kind, place) in own else "theirs"
                if both and (kind, place) not in other:
                    continue
                text = own.get((kind, place)) or other.get((kind, place))
                if where == "theirs" and is_explained("theirs", kind, place, text):
                    continue
                counts[kind][where] += 1
                counts["all"][where] += 1
                name = os.path.relpath(path, folder)
                if where == "ours" and not is_explained("ours", kind, place, text):
                    check(False, "%s: %s: %s: no reason for: %s" % (name, place, kind, text))
                if show and where != "both":
                    print("%-6s  %s: %s: %s: %s (%s)" % (where, kind, name, place, text, service))
    print("%s: %d files of %d services" % (title, sum(counts["files"].values()), len(counts["files"])))
    for kind in (MISSING, FORBIDDEN, REPRESENTATION, CONSISTENCY, "all"):
        both, only_theirs = counts[kind]["both"], counts[kind]["theirs"]
        if both + only_theirs == 0:
            continue
        print("%-28s %4d of dciodvfy's %4d found (%.1f %%), %d more" % (
            kind, both, both + only_theirs, 100.0 * both / (both + only_theirs), counts[kind]["ours"]))
    both, only_theirs = counts["all"]["both"], counts["all"]["theirs"]
    good = both >= wanted * (both + only_theirs) if both else 8 * only_theirs <= sum(counts["files"].values())
    check(counts["files"] and good, title + ": less than what is wanted")


need("dciodvfy", samples=True)
show = "--list" in sys.argv
# Not those that take long to read by design.
compare("samples", [path for name, path in valid_samples() if "stress" not in name], SAMPLES, show)
with tempfile.TemporaryDirectory() as folder:
    compare("bare objects", list(bare_objects(folder)), folder, show)
with tempfile.TemporaryDirectory() as folder:
    build_all(Rules(*sys.argv[3:5]), folder)
    compare("minimal objects", files_under(folder), folder, show)
with tempfile.TemporaryDirectory() as folder:
    made = writers.objects(folder)
    compare("objects of public programs", files_under(made), made, show, 0.98)
for row in DIFFERENCES:
    check(row[0] == "theirs" or "\t".join(row) in used, "a row that explains nothing: " + " ".join(row[:4]))
sys.exit(end())
