#!/usr/bin/env python3
"""Structured reports of vexal beside those of other people's programs.

usage: reports.py VEXAL SAMPLES
Every sample goes to JSON and, built from that, back to a report of the same content; pydicom sees the same tree, and
dsrdump takes what it took before. Exit 77 (skipped) where something is missing.
"""
import glob
import json
import os
import shutil
import subprocess
import sys
import tempfile

try:
    import pydicom
except ImportError:
    print("pydicom is not installed: skipped")
    sys.exit(77)

VEXAL, SAMPLES = sys.argv[1], os.path.join(sys.argv[2], "sr")
if not os.path.isdir(SAMPLES) or not shutil.which("dsrdump"):
    print("no samples in", SAMPLES, "or no dsrdump: skipped")
    sys.exit(77)
failures = 0


def check(name, good, text=""):
    global failures
    print("ok  " if good else "FAIL", name, "" if good else text)
    failures += not good


def run(*command):
    return subprocess.run(command, capture_output=True, timeout=60)


def tree(item):
    """(relationship, type, concept, number of items below) of all content, as pydicom reads it."""
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


with tempfile.TemporaryDirectory() as folder:
    for path in sorted(glob.glob(SAMPLES + "/*.dcm")):
        name = os.path.basename(path)
        shown = json.loads(run(VEXAL, "sr", "show", "--json", path).stdout)
        check(name + ": pydicom", listed(shown["report"]) == tree(pydicom.dcmread(path)))
        source, built = os.path.join(folder, "report.json"), os.path.join(folder, name)
        with open(source, "w", encoding="utf-8") as file:
            json.dump(shown, file)
        made = run(VEXAL, "sr", "build", source, built)
        check(name + ": built", made.returncode == 0, made.stderr)
        again = json.loads(run(VEXAL, "sr", "show", "--json", built).stdout)
        check(name + ": the same again", again["report"] == shown["report"])
        check(name + ": check", run(VEXAL, "sr", "check", built).returncode == 0)
        before, after = run("dsrdump", path), run("dsrdump", built)
        check(name + ": dsrdump", after.returncode <= before.returncode, after.stderr)
        for form in ("--html", "--csv"):
            check(name + form, len(run(VEXAL, "sr", "show", form, path).stdout.splitlines()) > len(listed(shown["report"])))
sys.exit(1 if failures else 0)
