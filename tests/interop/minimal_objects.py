#!/usr/bin/env python3
"""For each storage class the smallest object that its rules allow: vexal validate finds no error in it, and without any one of
its attributes exactly that, and what looks at that attribute.

usage: minimal_objects.py VEXAL SAMPLES VXDATA MESSAGE-INFO-FILE [SERVICE...]
The rules are those of the compiled file, as vxdata lists them: no class is named here.
"""
import json
import os
import re
import struct
import sys
import tempfile

from checks import SAMPLES, VEXAL, check, end, read, run, write
from made import Writer, meta

DATA = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "data")
MISSING = 4073  # status: a required attribute is not there
NOT_STORED = "1.2.840.10008.1.3.10"  # a directory is no instance
FEW, OTHER = 4082, 4068  # too few values or items, none of the enumerated values
ROUNDS = 60

SOP_CLASS, ROWS, COLUMNS, ALLOCATED, STORED, HIGH_BIT, PIXELS, SAMPLES_PER_PIXEL = (
    0x00080016, 0x00280010, 0x00280011, 0x00280100, 0x00280101, 0x00280102, 0x7FE00010, 0x00280002)
FRAME_TYPES = (0x00080008, 0x00089007)  # of the image and of a frame: the first two values are the same for all
TEXTS = {"AS": "030Y", "DA": "20240131", "DT": "20240131101010", "TM": "101010", "UR": "http://host/path", "PN": "Doe^Jane",
         "DS": "1", "IS": "1"}
NUMBERS = {"US": "H", "SS": "h", "UL": "I", "SL": "i", "FL": "f", "FD": "d"}
BULK = {"OF": 4, "OL": 4, "OD": 8, "OV": 8, "UV": 8, "SV": 8}
# What agrees with other attributes, or is no thing without meaning.
FITTING = {
    0x00200037: [1, 0, 0, 0, 1, 0], 0x00480102: [1, 0, 0, 0, 1, 0], 0x00189089: [1, 0, 0], 0x00189090: [1, 0, 0],
    0x00189105: [1, 0, 0], 0x00200020: ["A", "F"], 0x00280034: [1, 2], 0x00281052: [0], 0x00700052: [1, 1], 0x00700053: [2, 2],
    0x00209165: [0x00209056], 0x00209167: [0x00209111], 0x00280009: [0x00181063],  # stack, frame content, frame time
    0x00281101: [2, 0, 8], 0x00281102: [2, 0, 8], 0x00281103: [2, 0, 8], 0x00283002: [1, 0, 16], 0x00283006: [0xFFFF], 0x00189410: ["UNDEFINED"]}
LUT_DATA = (0x00281201, 0x00281202, 0x00281203, 0x00283006)
PREFERRED = ("ORIGINAL", "MONOCHROME2", "8", "16")
# Colour asks for palettes and the like, which other tests have.
AVOIDED = re.compile("COLOR|MIXED|PALETTE COLOR|A?RGB|YBR_.*|XYB")


class Rule:
    """A line of a block."""

    def __init__(self, fields, dictionary):
        group, element = fields[0].replace("xx", "00").split(",")
        self.tag, self.type, self.keyword = int(group + element, 16), fields[1], fields[2]
        known = dictionary.get(self.tag, ("UN", 1, 1))
        self.vr, self.low, self.high = known
        self.items, self.lists = [], {}
        for option in fields[3:]:
            listed = re.match(r"(\d*)[=~](.*)", option)
            if option[0] == ">":
                self.items = option[1:].split("|")
            elif option[0] == ":":
                self.vr = option[1:]
            elif listed:
                self.lists.setdefault(int(listed.group(1) or 1), listed.group(2).split("|"))


class Node:
    """An object or item: its attributes, which are bytes or items."""

    def __init__(self, block):
        self.block, self.attributes = block, {}


class Rules:
    def __init__(self, vxdata, message_info):
        dictionary = {}
        for line in read(os.path.join(DATA, "dictionary.tsv")).decode().splitlines():
            if line and line[0] != "#":
                tag, vr, vm = line.split("\t")[:3]
                low, _, high = vm.partition("-")
                if re.fullmatch("[0-9A-F]{4},[0-9A-F]{4}", tag.replace("xx", "00")):
                    dictionary[int(tag.replace("xx", "00").replace(",", ""), 16)] = (
                        vr.split("/")[vr.startswith("UN/")], int(low), int(high or low) if (high or low).isdigit() else 255)
        listing = run(vxdata, "unmsg", "--services", os.path.join(DATA, "vexalkit.srv"), "--dict", os.path.join(DATA, "dictionary.tsv"), message_info)
        self.blocks, block = {}, None
        for line in listing.stdout.decode().splitlines():
            fields = line.split("\t")
            if fields[0] in ("message", "item"):
                stored = fields[0] == "message" and "C_STORE_RQ" in fields[2].split()
                block = self.blocks.setdefault((fields[0], fields[1]), {}) if stored or fields[0] == "item" else {}
            elif len(fields) > 2 and block is not None:
                rule = Rule(fields, dictionary)
                block[rule.tag] = rule

    def services(self):
        """Name and class of those that store instances."""
        for (kind, name), block in sorted(self.blocks.items()):
            uid = block[SOP_CLASS].lists.get(1, [""])[0] if SOP_CLASS in block else ""
            if kind == "message" and uid and uid != NOT_STORED:
                yield name, uid

    def build(self, name):
        node = Node(self.blocks["message", name])
        self.fill(node)
        return node

    def fill(self, node):
        for rule in node.block.values():
            if rule.type in ("1", "2") and rule.tag >= 0x00080000:
                self.add(node, rule)

    def add(self, node, rule):
        if rule.vr == "SQ":
            node.attributes[rule.tag] = []
            if rule.type[0] != "2":
                self.add_item(node, rule)
        else:
            node.attributes[rule.tag] = b"" if rule.type[0] == "2" else value_of(rule)

    def add_more(self, node, rule):
        """Another item or value."""
        if rule.vr == "SQ":
            self.add_item(node, rule)
        else:
            node.attributes[rule.tag] += b"\\NONE"

    def derive(self, node, rule):
        """What classes of derived images, or of masks of one bit, ask for."""
        if rule.tag == ALLOCATED:
            node.attributes[ALLOCATED] = struct.pack("<H", 1)
        if rule.tag in FRAME_TYPES:
            node.attributes[rule.tag] = b"DERIVED\\PRIMARY"

    def add_item(self, node, rule):
        item = Node(self.blocks.get(("item", rule.items[0]), {}) if rule.items else {})
        node.attributes[rule.tag].append(item)
        self.fill(item)

    def reach(self, node, path):
        """The node that a path of a finding leads to, and the rule of its last attribute."""
        *steps, last = path.split(".")
        for step in steps:
            keyword, _, number = step.partition("[")
            sequence = next(rule.tag for rule in node.block.values() if rule.keyword == keyword)
            node = node.attributes[sequence][int(number[:-1] or 0) if number else 0]
        return node, next((rule for rule in node.block.values() if rule.keyword == last.partition("[")[0]), None)


def listed_value(rule, number):
    values = rule.lists.get(number if rule.lists.keys() - {1} else 1, [])
    chosen = [v for v in PREFERRED if v in values] + [v for v in values if not AVOIDED.fullmatch(v)] + values
    return chosen[0] if chosen else None


def value_of(rule):
    """A value that fits the VR, the multiplicity and the lists."""
    count = min(max([1, rule.low, *rule.lists]), rule.high)
    listed = [listed_value(rule, number) for number in range(1, count + 1)]
    if rule.tag in FRAME_TYPES:
        listed = [v or other for v, other in zip(listed, ("ORIGINAL", "PRIMARY", "VOLUME", "NONE"))]
    elif not rule.lists:
        listed = FITTING.get(rule.tag, listed)
    if rule.vr in NUMBERS:
        return b"".join(struct.pack("<" + NUMBERS[rule.vr], (float if rule.vr[0] == "F" else int)(1 if v is None else v)) for v in listed)
    if rule.vr == "AT":
        return b"".join(struct.pack("<HH", *divmod(int(v or 0x00080018), 0x10000)) for v in listed)
    if rule.vr in BULK or rule.vr in ("OB", "OW", "UN"):
        return b"\xFF\xFF" if rule.tag in LUT_DATA else bytes(BULK.get(rule.vr, 2))
    other = "1.2.3.%d" % rule.tag if rule.vr == "UI" else TEXTS.get(rule.vr, "A")
    return "\\".join(str(other if v is None else v) for v in listed).encode()


def agree(node):
    """Sets what describes pixels so that it fits together."""
    values = node.attributes
    for value in values.values():
        if isinstance(value, list):
            for item in value:
                agree(item)
    number = lambda tag, other: struct.unpack("<H", values[tag])[0] if values.get(tag) else other
    if ALLOCATED in values and STORED in values:
        stored = number(STORED, 1)
        if str(number(ALLOCATED, 8)) in node.block[STORED].lists.get(1, [str(number(ALLOCATED, 8))]):
            stored = number(ALLOCATED, 8)
        values[STORED] = struct.pack("<H", stored)
        if HIGH_BIT in values:
            values[HIGH_BIT] = struct.pack("<H", stored - 1)
    if PIXELS in values:
        size = (number(ROWS, 1) * number(COLUMNS, 1) * number(SAMPLES_PER_PIXEL, 1) * number(ALLOCATED, 8) + 7) // 8
        values[PIXELS] = bytes(size + size % 2)


def encode(node, left_out=None):
    """Bytes of the data set; without an attribute, given with its node."""
    w, parts = Writer(), []
    for tag, value in sorted(node.attributes.items()):
        if left_out is not None and left_out[0] is node and left_out[1] == tag:
            continue
        vr = node.block[tag].vr
        if vr == "SQ":
            parts.append(w.sequence(tag, [encode(item, left_out) for item in value], True))
        else:
            filler = b"\0" if vr in ("UI", "OB", "UN") else b" "
            parts.append(w.element(tag, vr, value + filler * (len(value) % 2)))
    return b"".join(parts)


def findings_of(folder):
    """Errors by name of the file."""
    found, result = {}, run(VEXAL, "validate", "--json", "--level", "errors", folder, timeout=600)
    check(result.returncode in (0, 1), "validate ends with %d: %s" % (result.returncode, result.stderr[-300:]))
    for line in result.stdout.decode().splitlines():
        entry = json.loads(line)
        if "file" in entry:
            found[os.path.basename(entry["file"])[:-4]] = entry["findings"]
    return found


def tells(finding):
    return "%s: %s %s" % (finding["path"], finding["rule"], finding.get("wanted", ""))


def named_in(finding):
    """The tags that the rule of a finding looks at."""
    wanted = finding.get("wanted", "")
    own = {int(finding["tag"], 16)} if "this attribute in" in wanted else set()
    return own | {int(group + element, 16) for group, element in re.findall(r"\(([0-9A-F]{4}),([0-9A-F]{4})\)", wanted)}


def build_all(rules, folder, chosen=()):
    """A file a class in the folder, with all that validation asks for; gives the objects and what is found in them."""
    objects = {name: (uid, rules.build(name)) for name, uid in rules.services() if not chosen or name in chosen}
    open_names = set(objects)
    found = {}
    for _ in range(ROUNDS):
        for name in open_names:
            uid, node = objects[name]
            agree(node)
            write(os.path.join(folder, name + ".dcm"), meta(uid, "1.2.3.%d" % 0x00080018) + encode(node))
        found = findings_of(folder)
        open_names = set()
        for name, findings in found.items():
            touched = set()  # objects, where one attribute may settle others, and tags that conditions of others name
            for finding in findings:
                node, rule = rules.reach(objects[name][1], finding["path"])
                mend = {MISSING: rules.add, FEW: rules.add_more, OTHER: rules.derive}.get(finding["status"])
                if mend and rule and node not in touched and not touched & named_in(finding):
                    touched |= {node, rule.tag}
                    mend(node, rule)
                    open_names.add(name)
        if not open_names:
            break
    return objects, found


def parts_of(node, seen, path=""):
    """Each node, its path and its tags; item types once."""
    yield node, path, sorted(node.attributes)
    for tag, value in sorted(node.attributes.items()):
        if node.block[tag].vr == "SQ" and value and node.block[tag].items and node.block[tag].items[0] not in seen:
            seen.add(node.block[tag].items[0])
            yield from parts_of(value[0], seen, "%s%s[0]." % (path, node.block[tag].keyword))


def check_removals(objects, folder):
    """Each attribute taken away by itself."""
    expected, spare = {}, 0
    for name, (uid, root) in objects.items():
        for node, path, tags in parts_of(root, set()):
            for tag in tags:
                if tag == SOP_CLASS and node is root:
                    continue  # it chooses the rules
                key = "%s-%d" % (name, len(expected))
                expected[key] = (path + node.block[tag].keyword, tag, node.block[tag].type[-1] == "C")
                write(os.path.join(folder, key + ".dcm"), meta(uid, "1.2.3.%d" % 0x00080018) + encode(root, (node, tag)))
    found = findings_of(folder)
    for key in expected.keys() - found.keys():
        check(False, key + " was not read")
    for key, (path, tag, conditional) in expected.items():
        own = [f for f in found.get(key, []) if f["path"] == path and f["status"] == MISSING]
        # What else is found has to say that it looks at the attribute.
        others = [f for f in found.get(key, []) if f not in own and tag not in named_in(f)]
        if conditional and key in found and not found[key]:
            spare += 1  # another attribute, which was added later, does as well
            continue
        check(len(own) == 1 and not others, "%s without %s: %s" % (key, path, "; ".join(map(tells, found.get(key, []))) or "nothing"))
    print("%d attributes with a condition that another attribute has settled since" % spare)
    return len(expected)


def main():
    rules = Rules(*sys.argv[3:5])
    with tempfile.TemporaryDirectory() as folder:
        objects, found = build_all(rules, folder, sys.argv[5:])
        check(found.keys() == objects.keys(), "not read: " + " ".join(objects.keys() - found.keys()))
        for name, findings in found.items():
            check(not findings, "%s: %s" % (name, "; ".join(map(tells, findings))))
    with tempfile.TemporaryDirectory() as folder:
        removals = check_removals(objects, folder)
    return end({"classes": len(objects), "removals": removals})


if __name__ == "__main__":
    sys.exit(main())
