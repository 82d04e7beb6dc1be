#!/usr/bin/env python3
"""The content of reports against data/reports: what vexal validate finds, beside a public validator of reports.

usage: report_content.py VEXAL SAMPLES [TID...]
Of each template of a whole report, one report with what it demands and one with all that it has room for, made here from
the tables: nothing may be found. Then one defect a row: taken away, another relationship, another type, a code of none of
its lists, once too often: each is found, where it is, and nothing else. The validator of pixelmed, which knows three of
the templates, judges reports with all defects of a kind at once; what it does not find, or finds in what is valid here, stands
in report_differences.tsv with the reason. Without it that part is left out.
"""
import collections
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

from checks import VEXAL, check, end, left_out, read, run, write
from made import Writer, head, tail

HERE = os.path.dirname(os.path.abspath(__file__))
DATA = os.path.join(HERE, "..", "..", "data", "reports")
JARS = ["/usr/share/java/%s.jar" % name for name in ("pixelmed", "commons-codec", "slf4j-api", "slf4j-nop")]
CLASSES = {2010: "59", 10001: "67", 10011: "67", 1500: "34", 5200: "33", 5220: "33", 4000: "50", 4100: "65"}
OTHER = "99TEST:1 something"


# ---- The tables ----


class Row:
    def __init__(self, owner, cells):
        self.owner = owner
        self.label, level, self.relationship, types, self.concept, vm, self.need, self.condition, self.value = (cells + [""] * 9)[:9]
        self.level, self.types, self.children = int(level), types.split("|"), []
        self.least, self.most = int(vm.split("-")[0]), vm.split("-")[-1]
        self.included = int(self.concept) if types == "INCLUDE" else None
        self.arguments = dict(part.split("=", 1) for part in self.value.split("; ")) if self.included and self.value else {}


def lines_of(name):
    return [line for line in read(os.path.join(DATA, name)).decode().splitlines() if line and line[0] != "#"]


def read_templates():
    """{number: (flags, rows of level 0)}"""
    templates, above = {}, []
    for cells in (line.split("\t") for line in lines_of("templates.tsv")):
        if cells[0] == "TID":
            number = int(cells[1])
            templates[number] = ((cells + [""])[3], [])
            continue
        row = Row(number, cells)
        above[row.level:] = [row]
        (above[row.level - 1].children if row.level else templates[number][1]).append(row)
    return templates


TEMPLATES = read_templates()
GROUPS = {int(cells[0]): (cells[1] == "closed", cells[2].split(" ")) for cells in (line.split("\t") for line in lines_of("groups.tsv"))}


# ---- Reports from them ----


class Item:
    def __init__(self, row, relationship, concept, value, shared):
        self.row, self.type, self.concept, self.value, self.content = row, row.types[0], concept, value, []
        self.relationship, self.free = relationship or "CONTAINS", not relationship  # free: the tables leave it open
        self.shared = shared  # other rows of the place have its concept name


def one_of(choice, arguments, taken=()):
    """A code that a cell of the table allows, None where it has nothing to say."""
    choice = arguments.get(choice, "") if choice.startswith("$") else choice
    if choice.startswith("CID "):
        codes = GROUPS.get(int(choice[4:]), (False, []))[1]
        return next((code + " meaning" for code in codes if code not in taken), None)
    return None if choice in ("", "-") else choice


def holds(condition, found, name):
    """Whether the items made so far, [(label, item)], fulfil it."""
    if not condition:
        return False
    either = " or " in condition
    answers = []
    for term in re.sub("^only ", "", condition).split(" or " if either else " and "):
        label, _, value = re.sub("^no ", "", term).partition("=")
        if label == "name":
            there = name.startswith(value)
        else:
            there = any(of == label and (not value or (item.value or "").startswith(value)) for of, item in found)
        answers.append(there != term.startswith("no "))
    return any(answers) if either else all(answers)


def concepts_at(rows, depth=0):
    """How many rows of one place have a concept name, whatever template they come from."""
    if depth > 24:
        return collections.Counter()
    return sum((concepts_at(TEMPLATES[row.included][1], depth + 1) if row.included else collections.Counter([row.concept]) for row in rows), collections.Counter())


def items_of(rows, arguments, every, relationship="", name="", depth=0, above=None, around=()):
    found = []
    counts = above if above is not None else concepts_at(rows)
    taken = {concept.split(" ")[0] for concept in counts}
    for row in rows:
        wanted = row.need == "M" or row.need == "MC" and holds(row.condition, found, name)
        optional = row.need[0] == "U" and every and (not row.condition.startswith("only ") or holds(row.condition, found, name))
        if depth > 24 or not (wanted or optional) or row.included in around:
            continue  # what may hold itself does so once
        own = row.relationship or relationship
        if row.included:
            passed = {key: arguments.get(value, "") if value.startswith("$") else value for key, value in row.arguments.items()}
            found += [(row.label, item) for _, item in items_of(TEMPLATES[row.included][1], passed, every, own, name, depth + 1, counts, around + (row.included,))]
            continue
        if every and counts[row.concept] > 1 and ":" in row.concept and row.need[0] == "U":
            continue  # of rows that share a name, those that have to be there
        for _ in range(row.least):
            concept = one_of(row.concept, arguments, taken)
            if concept is None and row.concept != "-" and row.types[0] not in ("IMAGE", "COMPOSITE", "WAVEFORM", "SCOORD", "SCOORD3D", "TCOORD"):
                concept = OTHER
            if concept:
                taken.add(concept.split(" ")[0])
            item = Item(row, own, concept, one_of(row.value, arguments), counts[row.concept] > 1)
            item.content = [below for _, below in items_of(row.children, arguments, every, name=concept or "", depth=depth + 1, around=around)]
            found.append((row.label, item))
    return found


def code(w, text):
    scheme, value = (text or OTHER).split(" ")[0].split(":", 1)
    meaning = (text or OTHER).partition(" ")[2] or "meaning"
    return w.text(0x00080100, "SH", value) + w.text(0x00080102, "SH", scheme) + w.text(0x00080104, "LO", meaning)


def encoded(w, item, root=None):
    """The attributes of an item, in order of tag."""
    def reference(sop_class):
        return w.sequence(0x00081199, [w.text(0x00081150, "UI", "1.2.840.10008.5.1.4.1.1." + sop_class) + w.text(0x00081155, "UI", "1.2.3.4")])
    kind = item.type
    parts = [(0x0040A040, w.text(0x0040A040, "CS", kind))]
    if not root:
        parts.append((0x0040A010, w.text(0x0040A010, "CS", item.relationship)))
    if item.concept:
        parts.append((0x0040A043, w.sequence(0x0040A043, [code(w, item.concept)])))
    values = {
        "TEXT": (0x0040A160, "UT", "text"), "DATETIME": (0x0040A120, "DT", "20260102120000"), "DATE": (0x0040A121, "DA", "20260102"),
        "TIME": (0x0040A122, "TM", "120000"), "UIDREF": (0x0040A124, "UI", "1.2.3.4"), "PNAME": (0x0040A123, "PN", "Doe^Jane"),
        "CONTAINER": (0x0040A050, "CS", "SEPARATE")}
    if kind in values:
        parts.append((values[kind][0], w.text(*values[kind])))
    if kind == "CODE":
        parts.append((0x0040A168, w.sequence(0x0040A168, [code(w, item.value)])))
    if kind == "NUM":
        units = w.sequence(0x004008EA, [code(w, item.value or "UCUM:1 no units")])
        parts.append((0x0040A300, w.sequence(0x0040A300, [units + w.text(0x0040A30A, "DS", "1")])))
    if kind in ("IMAGE", "COMPOSITE", "WAVEFORM"):
        parts.append((0x00081199, reference({"IMAGE": "2", "COMPOSITE": "88.33", "WAVEFORM": "9.1.1"}[kind])))
    if kind in ("SCOORD", "SCOORD3D"):
        parts += [(0x00700022, w.numbers(0x00700022, "FL", *range(2 if kind == "SCOORD" else 3))), (0x00700023, w.text(0x00700023, "CS", "POINT"))]
    if kind == "SCOORD3D":
        parts.append((0x30060024, w.text(0x30060024, "UI", "1.2.3.5")))
    if kind == "TCOORD":
        parts += [(0x0040A130, w.text(0x0040A130, "CS", "POINT")), (0x0040A132, w.numbers(0x0040A132, "UL", 1))]
    if root or item.row.owner in (1410, 1411, 1501) and item.row.level == 0:
        named = w.text(0x00080105, "CS", "DCMR") + w.text(0x0040DB00, "CS", str(root or item.row.owner))
        parts.append((0x0040A504, w.sequence(0x0040A504, [named])))
    if root:
        parts.append((0x0040A491, w.text(0x0040A491, "CS", "COMPLETE") + w.text(0x0040A493, "CS", "UNVERIFIED")))
    if item.content:
        parts.append((0x0040A730, w.sequence(0x0040A730, [encoded(w, below) for below in item.content])))
    return b"".join(part for _, part in sorted(parts))


def report(number, root):
    w = Writer()
    sop_class = "1.2.840.10008.5.1.4.1.1.88." + CLASSES[number]
    data = head(w, sop_class, modality="KO" if number == 2010 else "SR") + tail(w) + encoded(w, root, number)
    return w.file(data, sop_class)


def whole(number, every):
    return items_of(TEMPLATES[number][1], {}, every)[0][1]


# ---- Defects ----


def places(item, place="1"):
    yield item, place
    for number, below in enumerate(item.content):
        yield from places(below, "%s.%d" % (place, number + 1))


def parts_of(root):
    """(parent, index, place) of all items below the root."""
    for item, place in places(root):
        for index in range(len(item.content)):
            yield item, index, "%s.%d" % (place, index + 1)


def change(parent, index, kind):
    """Makes the defect; what undoes it, None where the row has no room for it."""
    item = parent.content[index]
    row = item.row
    before, content = dict(vars(item)), list(parent.content)
    plain = ":" in row.concept and not item.shared
    if kind == "missing" and row.need == "M":
        del parent.content[index]
    elif kind == "relationship" and plain and not item.free:
        item.relationship = "CONTAINS" if item.relationship == "INFERRED FROM" else "INFERRED FROM"
    elif kind == "type" and plain and item.type != "CONTAINER":
        item.type = "TEXT" if "TEXT" not in row.types else "DATE"
    elif kind == "value" and item.type in ("CODE", "NUM") and item.value is not None:
        item.value = OTHER
    elif kind == "twice" and plain and row.most == "1" and item.row.owner == parent.row.owner:
        parent.content.insert(index, item)
    else:
        return None
    return lambda: (vars(item).update(before), parent.content.__setitem__(slice(None), content))


# What a finding of each kind is, by its status.
STATUSES = {"missing": {4075, 4082}, "relationship": {4068}, "type": {4068, 4069}, "value": {4068, 4069}, "twice": {4084}}


def findings_of(paths):
    """{path: [(severity, status, place, text)]} of what templates say."""
    found = {}
    for line in run(VEXAL, "validate", "--json", *paths, timeout=300).stdout.decode().splitlines():
        entry = json.loads(line)
        if "file" in entry:
            found[entry["file"]] = [(one["severity"], one["status"]) + tuple(one["wanted"].split(": ", 1))
                                    for one in entry["findings"] if re.match(r"[\d.]+: .*TID \d", one.get("wanted", ""))]
    return found


def make_defects(number, folder):
    """[(path, row, kind, places where it may be told)], each kind once a row."""
    made, known = [], set()
    for every in (False, True):
        root = whole(number, every)
        for kind in STATUSES:
            for parent, index, place in list(parts_of(root)):
                row = parent.content[index].row
                key = (row.owner, row.label, kind)
                if key in known or (kind == "missing" and every and row.level == 0):
                    continue
                undo = change(parent, index, kind)
                if undo is None:
                    continue
                known.add(key)
                path = write(os.path.join(folder, "%d-%d-%s-%s.dcm" % (number, row.owner, row.label, kind)), report(number, root))
                made.append((path, row, kind, {place.rsplit(".", 1)[0]} if kind == "missing" else {place, place.rsplit(".", 1)[0] + ".%d" % (index + 2)}))
                undo()
    return made


def check_template(number, folder):
    valid = [write(os.path.join(folder, "%d-%s.dcm" % (number, name)), report(number, whole(number, every))) for name, every in (("least", False), ("most", True))]
    defects = make_defects(number, folder)
    found = findings_of(valid + [path for path, _, _, _ in defects])
    for path in valid:
        check(found[path] == [], "%s: %s" % (os.path.basename(path), found[path][:3]))
    for path, row, kind, where in defects:
        told = found[path]
        good = told and all(place in where for _, _, place, _ in told) and told[0][1] in STATUSES[kind]
        check(good, "%s: %s" % (os.path.basename(path), told[:3]))
    return valid, defects


def check_rows():
    """Each row of the table can be read by the program."""
    for number, (_, rows) in TEMPLATES.items():
        def count(rows):
            return sum(1 + count(row.children) for row in rows)
        shown = run(VEXAL, "sr", "template", str(number)).stdout.decode().splitlines()
        check(len(shown) == 1 + count(rows), "TID %d: %d lines" % (number, len(shown)))
    check(run(VEXAL, "sr", "template", "99").returncode == 2, "TID 99")


def check_names(folder):
    """Key objects, where rows go by the document title: a title, modifiers, and what is found."""
    modifier = [row for row in TEMPLATES[2010][1][0].children if row.label == "2"][0]
    rows = [("113001", ["DCM:111207"], []), ("113013", ["DCM:113014"], []), ("113000", ["DCM:111207"], [4091]), ("113013", [], [4075]),
            ("113013", ["DCM:111207"], [4075, 4091]), ("113001", ["DCM:111207", "DCM:111208"], []), ("113013", ["DCM:113014"] * 2, [4084])]
    for number, (title, values, statuses) in enumerate(rows):
        root = whole(2010, False)
        root.concept = "DCM:%s title" % title
        root.content += [Item(modifier, "HAS CONCEPT MOD", modifier.concept, value + " meaning", False) for value in values]
        path = write(os.path.join(folder, "names-%d.dcm" % number), report(2010, root))
        told = findings_of([path])[path]
        check([status for _, status, _, _ in told] == statuses, "names %d: %s" % (number, told))


# ---- Beside the other validator ----


class Judge:
    """Slow to start, and slow with long reports; its style sheet is too much for the usual limits."""

    def __init__(self):
        limits = ["-Djdk.xml.xpath%sLimit=0" % name for name in ("TotalOp", "ExprOp", "ExprGrp")]
        self.process = subprocess.Popen(["java", *limits, "-cp", ":".join(JARS), os.path.join(HERE, "ReportJudge.java")],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)

    def findings(self, path):
        """[(template, codes of its rows down to the one at fault, text)] of the errors."""
        self.process.stdin.write(path + "\n")
        self.process.stdin.flush()
        found = []
        for line in iter(self.process.stdout.readline, "=== \n"):
            check(line, path + ": no answer")
            match = re.match(r"Error: Template (\w+) \w+/(.*?\]) (\w+) ?(.*?): ([\d.]+|within [\d.]*): .*: (.*)", line)
            if match:
                row = re.findall(r"\((\S+?),\w+,", match.group(4)[-200:])
                found.append((match.group(1), row[-1] if row else "*", match.group(6).strip()))
        return found

    def end(self):
        self.process.stdin.close()
        self.process.wait(60)


def judged_report(number):
    """What is demanded; of measurement reports with a group of each kind, whole but for what it includes, and a number in it."""
    root = whole(number, False)
    if number == 1500:
        for template in (1410, 1411, 1501):
            group = items_of(TEMPLATES[template][1], {}, True, "CONTAINS")[0][1]
            group.content = [item for item in group.content if item.row.owner == template and item.row.concept]
            group.content += [item for _, item in items_of(TEMPLATES[300][1], {}, False, "CONTAINS")]
            root.content[-1].content.append(group)
    return root


def with_defects(number, kind, only=None):
    """A report with the defect in each item that has nothing below it, or in that of one row, and the rows that have it."""
    root, rows = judged_report(number), []
    leaves = [each for each in parts_of(root) if not each[0].content[each[1]].content and ":" in each[0].content[each[1]].row.concept]
    for parent, index, _ in reversed(leaves):
        row = parent.content[index].row
        if only in (None, row) and change(parent, index, kind):
            rows.append(row)
    return root, rows


def check_judge(number, judge, folder, differences, used):
    def explained(kind, template, row, text):
        rows = [each for each in differences if each[0] == kind and each[1] in ("*", template) and each[2] in ("*", row) and each[3] in text]
        used.update(tuple(each) for each in rows)
        return bool(rows)
    path = os.path.join(folder, "%d-judged.dcm" % number)
    valid = judge.findings(write(path, report(number, judged_report(number))))
    check(findings_of([path])[path] == [], path)
    for template, row, text in valid:
        check(explained("valid", template, row, text), "%d: valid here: TID %s %s: %s" % (number, template, row, text))
    def told_of(row, found):
        return any(row_code == row.concept.split(" ")[0].split(":")[1] for template, row_code, text in found if (template, row_code, text) not in valid)
    both = total = 0
    for kind in STATUSES:
        root, rows = with_defects(number, kind)
        found = judge.findings(write(path, report(number, root)))
        for row in rows:
            # Defects hide each other from it: what is not told among all is looked for alone.
            told = told_of(row, found)
            known = not told and explained(kind, str(row.owner), row.concept.split(" ")[0], "")
            told = told or not known and told_of(row, judge.findings(write(path, report(number, with_defects(number, kind, row)[0]))))
            both, total = both + told, total + 1
            check(told or known, "%d: %s: not found by pixelmed: TID %d %s" % (number, kind, row.owner, row.concept))
    print("TID %d: %d of %d defects found by pixelmed too" % (number, both, total), flush=True)


def check_beside(folder):
    missing = [jar for jar in JARS if not os.path.exists(jar)] + [name for name in ("java", "javac") if shutil.which(name) is None]
    if missing:
        return left_out("reports by the validator of pixelmed", *missing)
    differences, used = [line.split("\t") for line in read(os.path.join(HERE, "report_differences.tsv")).decode().splitlines() if line[0] != "#"], set()
    judge = Judge()
    for number in (10011, 10001, 1500):
        check_judge(number, judge, folder, differences, used)
    judge.end()
    for row in differences:
        check(tuple(row) in used, "a row that explains nothing: " + " ".join(row))


chosen = [int(word) for word in sys.argv[3:] if word.isdigit()]
with tempfile.TemporaryDirectory() as folder:
    counts = collections.Counter()
    check_rows()
    check_names(folder)
    for number, (flags, _) in sorted(TEMPLATES.items()):
        if "root" in flags and (not chosen or number in chosen):
            valid, defects = check_template(number, folder)
            counts["templates"] += 1
            counts["defects"] += len(defects)
    if not chosen:
        check_beside(folder)
sys.exit(end(counts))
