#!/usr/bin/env python3
"""What vexal deidentify does to each storage class, and to identifying values in places where nobody expects them.

usage: hidden_values.py VEXAL SAMPLES VXDATA MESSAGE-INFO-FILE [PART...]
The smallest valid objects of all classes with optional identifying attributes of their rules, chosen at random: nothing of their
values is left in the bytes, and vexal validate finds no error that was not there, with each option. Values in private blocks,
unknown VRs, items, other character sets, overlays, curves, unknown groups, preamble, meta group and directories: the same.
VEXAL_SEED repeats a run.
"""
import os
import random
import re
import struct
import sys

from checks import check, files_under, read, run, run_parts, vexal, VEXAL, write
import made
import minimal_objects

SEED = int(os.environ.get("VEXAL_SEED", "0")) or random.randrange(1 << 32)
print("VEXAL_SEED=%d" % SEED, flush=True)
ROWS = {int(line[:4] + line[5:9], 16) for line in read(os.path.join(minimal_objects.DATA, "confidentiality.tsv")).decode().splitlines()
        if re.match(r"[0-9A-F]{4},[0-9A-F]{4}\t", line)}
OPTIONS = ("--retain-safe-private", "--retain-uids", "--retain-device-identity", "--retain-institution-identity", "--retain-patient-characteristics",
           "--retain-full-dates", "--retain-modified-dates", "--clean-descriptors", "--clean-structured-content", "--clean-graphics")
SECRET = ("--secret", "a secret of this test")
# The table keeps a dummy of the committee's name, and removes the approval that alone allows it.
BY_THE_TABLE = {"ClinicalTrialProtocolEthicsCommitteeName"}


class Tokens:
    """Values that occur once, and fit their VR."""

    def __init__(self, chance):
        self.chance, self.made = chance, {}

    def value(self, tag, vr):
        number = self.chance.randrange(10 ** 9, 2 * 10 ** 9)
        date = "19%02d%02d%02d" % (self.chance.randrange(30, 90), self.chance.randrange(1, 13), self.chance.randrange(1, 29))
        time = "%02d%02d%02d.%06d" % tuple(map(self.chance.randrange, (24, 60, 60, 10 ** 6)))
        text = {"DA": date, "TM": time, "DT": date + time, "UI": "1.2.3.%d.7" % number, "IS": str(number), "DS": str(number), "CS": "ZQ%d" % number,
                "UR": "http://zq%d.org/x" % number, "PN": "Zq%d^Vx%d" % (number, number + 7), "AS": None}.get(vr, "Zq%dV" % number)
        if text is None or vr in minimal_objects.NUMBERS or vr in minimal_objects.BULK or vr in ("AT", "OW"):
            return None
        for part in text.split("^"):
            self.made[part.encode()] = tag
        return text.encode()

    def left_in(self, content):
        return ["%08X %s" % (tag, value.decode("latin-1")) for value, tag in self.made.items() if value in content]


def enrich(rules, node, tokens, depth=0):
    """Optional attributes of the table that the rules know at their places."""
    for rule in node.block.values():
        listed = rule.tag in ROWS or rule.vr in ("PN", "DA", "DT")
        if rule.tag < 0x00080020 or rule.tag == 0x00420011 or rule.lists:
            continue
        if rule.vr == "SQ":
            if rule.tag not in node.attributes and rule.type == "3" and depth < 3 and tokens.chance.random() < (0.3 if listed else 0.05):
                node.attributes[rule.tag] = []
                rules.add_item(node, rule)
            for item in node.attributes.get(rule.tag, []):
                enrich(rules, item, tokens, depth + 1)
        elif listed and (node.attributes.get(rule.tag) or (rule.type in ("2", "3") and tokens.chance.random() < 0.5)):
            value = tokens.value(rule.tag, rule.vr)
            if value:
                node.attributes[rule.tag] = b"\\".join([value] * max(1, min(rule.low, 2)))


def errors_of(folder):
    return {name: {(re.sub(r"\[\d+\]", "", one["path"]), one["status"]) for one in findings} for name, findings in minimal_objects.findings_of(folder).items()}


def classes(folder):
    rules = minimal_objects.Rules(*sys.argv[3:5])
    source = os.path.join(folder, "in")
    os.mkdir(source)
    objects, _ = minimal_objects.build_all(rules, source)
    tokens, where = {}, {}
    for number, (name, (uid, node)) in enumerate(sorted(objects.items())):
        tokens[name] = Tokens(random.Random(SEED + number))
        enrich(rules, node, tokens[name])
        minimal_objects.agree(node)
        instance = "1.2.3.4.%d" % number
        node.attributes[0x00080018] = instance.encode()
        where[instance] = name
        write(os.path.join(source, name + ".dcm"), made.meta(uid, instance) + minimal_objects.encode(node))
    check(len(objects) >= 180, "only %d classes" % len(objects))
    check(sum(len(one.made) for one in tokens.values()) > 3000, "there is little to be found")
    before = errors_of(source)
    for option in ((), *((option,) for option in OPTIONS), OPTIONS[:5] + OPTIONS[6:]):
        out, report = os.path.join(folder, "out"), os.path.join(folder, "report")
        run("rm", "-rf", out)
        vexal("deidentify", source, "-o", out, *SECRET, "--documents", "replace", "--burned-in", "keep", "--report", report, "--report-values", *option,
              title="deidentify " + " ".join(option))
        names = dict(re.findall(r'"file":"[^"]*/([^/"]*)\.dcm","from":"[^"]*/([^/"]*)\.dcm"', read(report).decode()))
        check(len(names) == len(objects), "%s: %d files of %d" % (option, len(names), len(objects)))
        for result, findings in errors_of(out).items():
            new = {(path, status) for path, status in findings - before[names[result]] if path.split(".")[-1] not in BY_THE_TABLE}
            check(not new, "%s %s: new errors: %s" % (names[result], " ".join(option), sorted(new)))
        if not option:
            for path in files_under(out):
                left = tokens[names[os.path.basename(path)[:-4]]].left_in(read(path))
                check(not left, "%s: left: %s" % (names[os.path.basename(path)[:-4]], left))


# ---- Hostile places ----

IMPLICIT = made.Writer(made.IMPLICIT)
NAMED = ((0x00080050, "SH"), (0x00080080, "LO"), (0x00080081, "ST"), (0x00080090, "PN"), (0x00081050, "PN"), (0x00081070, "PN"), (0x00100020, "LO"),
         (0x00101000, "LO"), (0x00101040, "LO"), (0x00102154, "SH"), (0x00380010, "LO"))
LATIN = [row for row in made.TEXTS if row[0] in ("ascii", "latin1", "utf-8", "gb18030", "japanese", "korean", "cyrillic")]


class Hostile:
    """One object with values that name people, and with the same in other places."""

    def __init__(self, number):
        self.chance = random.Random(SEED + 1000 + number)
        self.w = made.Writer(self.chance.choice((made.EXPLICIT, made.EXPLICIT, made.IMPLICIT, made.BIG)))
        _, self.charset, self.name, _ = LATIN[number % len(LATIN)]
        self.values = {tag: b"Xq%d^Yq%d" % (self.next(), self.next()) if vr == "PN" else b"Zq%d" % self.next() for tag, vr in NAMED}
        self.values[0x00100010] = self.name

    def next(self):
        return self.chance.randrange(10 ** 7, 10 ** 8)

    def any(self):
        return self.chance.choice(list(self.values.values()))

    def parts(self):
        """All that must not be found again; of a name each component."""
        parts = {part.strip() for value in self.values.values() for part in re.split(rb"[=^]", value)}
        if self.charset and "2022" in self.charset:  # two bytes for a letter may look like separators
            parts = {part for value in self.values.values() for part in value.split(b"=")} | {part for part in parts if part.isalnum()}
        return {part for part in parts if len(part) >= 4}

    def prose(self):
        return b"seen by " + self.any().replace(b"^", b" ").replace(b"=", b" ") + b", well" if self.chance.random() < 0.3 else b"of " + self.any() + b"; well"

    def private(self, w):
        items = [w.text(0x00100010, "PN", self.any()), w.element(0x00111001, "UN", self.any()), w.text(0x00400007, "LO", self.any())]
        return (w.text(0x00110010, "LO", b"ACME " + self.any()) + w.text(0x00111001, "LO", self.any()) + w.element(0x00111002, "UN", self.any()) +
                w.element(0x00111003, "OB", self.any()) + w.sequence(0x00111004, items, self.chance.random() < 0.5))

    def unknown(self, w, tag):
        """A sequence as other programs hand it on that do not know it."""
        item = IMPLICIT.text(0x00081150, "UI", "1.2.3.4") + IMPLICIT.text(0x00100010, "PN", self.any()) + IMPLICIT.text(0x00400007, "LO", self.any())
        body = IMPLICIT.element(0xFFFEE000, "", item)
        if self.chance.random() < 0.5 and w.syntax == made.EXPLICIT:
            return w.element(tag, "UN", body + IMPLICIT.element(0xFFFEE0DD, ""), made.UNDEFINED)
        return w.element(tag, "UN" if w.syntax == made.EXPLICIT else "SQ", body if w.syntax != made.BIG else b"")

    def report(self, w):
        code = w.text(0x00080100, "SH", self.any()[:16]) + w.text(0x00080102, "SH", "99SITE") + w.text(0x00080104, "LO", self.any())
        item = (w.text(0x0040A010, "CS", "CONTAINS") + w.text(0x0040A040, "CS", "TEXT") + w.sequence(0x0040A043, [code]) + w.text(0x0040A123, "PN", self.any()) +
                w.text(0x0040A160, "UT", self.prose()))
        return w.sequence(0x0040A730, [item, item])

    def groups(self, w):
        inner = w.sequence(0x00209111, [w.text(0x00209056, "SH", "1") + w.text(0x00209158, "LT", self.prose())])
        context = w.sequence(0x00400555, [w.text(0x0040A040, "CS", "PNAME") + w.text(0x0040A123, "PN", self.any())])
        return w.sequence(0x52009229, [inner + context]) + w.sequence(0x52009230, [inner, context])

    def curve(self, w):
        return w.text(0x50000022, "LO", self.any()) + w.element(0x50003000, "OB", self.any())

    def overlays(self, w):
        return (w.numbers(0x60000010, "US", 8) + w.numbers(0x60000011, "US", 16) + w.text(0x60000022, "LO", self.any()) +
                w.text(0x60001500, "LO", self.any()) + w.element(0x60003000, "OB", (self.any() + bytes(16))[:16]) + w.text(0x60004000, "LT", self.any()) +
                w.text(0x60021500, "LO", self.any()))

    def data_set(self, instance):
        w = self.w
        rows = [(0x00080005, w.text(0x00080005, "CS", self.charset or "ISO_IR 6")), (0x00080016, w.text(0x00080016, "UI", made.SECONDARY_CAPTURE)),
                (0x00080018, w.text(0x00080018, "UI", instance)), (0x00080060, w.text(0x00080060, "CS", "OT")), (0x0008FF01, w.text(0x0008FF01, "LO", self.any())),
                (0x00281055, w.text(0x00281055, "LO", self.prose())), (0x00204000, w.text(0x00204000, "LT", self.prose())),
                (0x00181030, w.text(0x00181030, "LO", self.prose())), (0x0020000D, w.text(0x0020000D, "UI", "1.2.3.5")),
                (0x0020000E, w.text(0x0020000E, "UI", "1.2.3.6")), (0x00110010, self.private(w)), (0x00400275, self.unknown(w, 0x00400275)),
                (0x00340012, w.text(0x00340012, "LO", self.any())), (0x0040A730, self.report(w)), (0x52009229, self.groups(w)), (0x50000022, self.curve(w)), (0x60000010, self.overlays(w)),
                (0xFFFCFFFC, w.element(0xFFFCFFFC, "OB", self.any()))]
        rows += [(tag, w.text(tag, dict(NAMED).get(tag, "PN"), value)) for tag, value in self.values.items()]
        return b"".join(element for _, element in sorted(rows))

    def file(self, number):
        instance = "1.2.3.8.%d" % number
        extra = b"".join(made.element(*row) for row in ((0x00020016, "AE", self.values[0x00080050]), (0x00020100, "UI", "1.2.3.4"),
                                                        (0x00020102, "OB", self.any()), (0x00029999, "LO", self.any())))
        group = made.meta(made.SECONDARY_CAPTURE, instance, self.w.syntax)[144:] + extra
        head = self.any()[:64]
        return head + bytes(128 - len(head)) + b"DICM" + made.element(0x00020000, "UL", struct.pack("<I", len(group))) + group + self.data_set(instance)


def hostile_places(folder):
    source, out = os.path.join(folder, "in"), os.path.join(folder, "out")
    hostile = [Hostile(number) for number in range(140)]
    for number, one in enumerate(hostile):
        write("%s/A%d" % (source, number), one.file(number))
    for number, options in enumerate(((), ("--clean-descriptors", "--clean-structured-content", "--clean-graphics", "--retain-safe-private"),
                                      ("--retain-device-identity", "--retain-uids", "--retain-modified-dates"))):
        report = os.path.join(folder, "report%d" % number)
        vexal("deidentify", source, "-o", out + str(number), *SECRET, "--report", report, "--report-values", *options, title="deidentify " + " ".join(options))
        names = dict(re.findall(r'"file":"([^"]*)","from":"[^"]*/A(\d+)"', read(report).decode("latin-1")))
        check(len(names) == len(hostile), "%s: %d files of %d" % (options, len(names), len(hostile)))
        for path, index in names.items():
            content = read(path)
            left = [value for value in hostile[int(index)].parts() if value in content]
            check(not left, "A%s %s: left: %s" % (index, " ".join(options), [(value, content[max(0, content.find(value) - 60):][:100]) for value in left[:2]]))


def directory(folder):
    """The names in its records, and in those of an earlier writer."""
    source, out = os.path.join(folder, "in"), os.path.join(folder, "out")
    w = made.Writer()
    paths = [write("%s/SECRET%d" % (source, n), w.file(made.head(w, number=n + 1, name=b"Hidden^Person", patient="HIDDEN47") + made.tail(w, number=n))) for n in range(3)]
    vexal("dir", "create", source + "/DICOMDIR", *paths)
    vexal("deidentify", source, "-o", out)
    check(len(files_under(out)) == 4, "files: %s" % files_under(out))
    for path in files_under(out):
        left = [value for value in (b"Hidden", b"Person", b"HIDDEN47", b"SECRET") if value in read(path) or value in path.encode()]
        check(not left, "%s: left: %s" % (path, left))


if __name__ == "__main__":
    sys.exit(run_parts(classes, hostile_places, directory, chosen=sys.argv[5:]))
