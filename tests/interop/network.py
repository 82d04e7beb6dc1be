#!/usr/bin/env python3
"""vexal and the network programs of others, as client and as server, over loopback.

usage: network.py VEXAL SAMPLES
Verification, storage, query, retrieval, worklist and TLS; data sets have to arrive byte for byte. Exit 77 (skipped)
where dcmtk or the samples are missing.
"""
import concurrent.futures
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import urllib.request

import checks
from checks import SAMPLES, VEXAL, check, free_port, has, left_out, need, run, run_parts, wait_for_listener

need("storescp")
os.environ["TCP_NODELAY"] = "1"


class Server:
    """A program that listens on a port, for the length of a with block."""

    def __init__(self, command, port, folder=None):
        self.command, self.port, self.folder = [str(c) for c in command], port, folder

    def __enter__(self):
        self.process = subprocess.Popen(self.command, cwd=self.folder, stdout=subprocess.PIPE if "-d" in self.command else subprocess.DEVNULL,
                                        stderr=subprocess.PIPE)
        wait_for_listener(self.process, self.port)
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGTERM)
        try:
            self.text = b"".join(t or b"" for t in self.process.communicate(timeout=15)).decode("latin-1")
        except subprocess.TimeoutExpired:
            self.process.kill()
            check(False, "does not end on SIGTERM: " + self.command[0])


def data_set(path):
    """The bytes behind the meta group."""
    with open(path, "rb") as file:
        content = file.read()
    if content[128:132] != b"DICM":
        return content
    length = int.from_bytes(content[140:144], "little")  # (0002,0000) comes first
    return content[144 + length:]


def meta_text(path, element):
    with open(path, "rb") as file:
        content = file.read(4096)
    at, end = 144, 144 + int.from_bytes(content[140:144], "little")
    while at < end:
        number = int.from_bytes(content[at + 2:at + 4], "little")
        long = content[at + 4:at + 6] in (b"OB", b"UN")
        head = 12 if long else 8
        length = int.from_bytes(content[at + 8:at + 12] if long else content[at + 6:at + 8], "little")
        if number == element:
            return content[at + head:at + head + length].strip(b"\0 ").decode("latin-1")
        at += head + length
    return ""


def valid_samples():
    """One file for each instance: valid, with preamble and meta group, of a class that is stored."""
    seen = {}
    for _, path in checks.valid_samples():
        with open(path, "rb") as file:
            head = file.read(140)
        if head[128:132] != b"DICM" or head[132:136] != b"\x02\0\0\0":
            continue
        instance, sop_class = meta_text(path, 3), meta_text(path, 2)
        if os.path.basename(path).startswith("query-") or "unknown-ts" in path:
            continue
        if instance and sop_class and sop_class != "1.2.840.10008.1.3.10" and os.path.getsize(path) % 2 == 0:
            seen.setdefault(instance, path)
    return seen


def arrived(folder):
    """Files by instance."""
    found = {}
    for root, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(root, name)
            found[meta_text(path, 3)] = path
    return found


def content(path):
    """What vexal lists of the data set, without padding; other programs may take private values for UN, so none of these."""
    return standard(json.loads(run(VEXAL, "dump", "--json", path).stdout)["elements"])


def standard(elements):
    return [(e["tag"], values(e)) for e in elements if e["tag"] > "0003" and int(e["tag"][3], 16) % 2 == 0 and
            not e["tag"].endswith("0000") and e["tag"] != "FFFCFFFC"]


def values(element):
    if "items" in element:
        return [standard(item) for item in element["items"]]
    if "value" in element:
        return [(v.strip(" \0") or None) if isinstance(v, str) else v for v in element["value"]]
    return element.get("hex")


def rounded(value):
    """The same for two ways of writing a decimal string."""
    if isinstance(value, (list, tuple)):
        return [rounded(v) for v in value]
    try:
        return round(float(value), 6)
    except (TypeError, ValueError):
        return value


def same_files(samples, folder, title):
    """Byte for byte; where an unusual start was written anew, in content."""
    found = arrived(folder)
    anew = 0
    for instance, path in samples.items():
        name = os.path.relpath(path, SAMPLES)
        if instance not in found:
            check(False, "%s: %s did not arrive" % (title, name))
        elif data_set(found[instance]) != data_set(path):
            anew += 1
            check(content(found[instance]) == content(path), "%s: %s arrived with other content" % (title, name))
    check(anew * 10 <= len(samples), "%s: %d of %d with other bytes" % (title, anew, len(samples)))


def verification(folder):
    port = free_port()
    with Server([VEXAL, "receive", port, "--dir", folder], port):
        result = run("echoscu", "-aec", "VEXAL", "127.0.0.1", port)
        check(result.returncode == 0, "echoscu to vexal: " + result.stderr.decode())
        result = run(VEXAL, "echo", "127.0.0.1", port, "--count", 100)
        check(result.returncode == 0, "vexal echo to vexal: " + result.stderr.decode())
    port = free_port()
    with Server(["storescp", port], port, folder):
        result = run(VEXAL, "echo", "127.0.0.1", port)
        check(result.returncode == 0, "vexal echo to storescp: " + result.stderr.decode())
    check(run(VEXAL, "echo", "127.0.0.1", free_port()).returncode == 3, "vexal echo to nobody")


PEER_SYNTAXES = {
    "1.2.840.10008.1.2": "-xi", "1.2.840.10008.1.2.1": "-xe", "1.2.840.10008.1.2.2": "-xb", "1.2.840.10008.1.2.1.99": "-xd",
    "1.2.840.10008.1.2.4.50": "-xy", "1.2.840.10008.1.2.4.51": "-xx", "1.2.840.10008.1.2.4.70": "-xs",
    "1.2.840.10008.1.2.4.80": "-xt", "1.2.840.10008.1.2.4.81": "-xu", "1.2.840.10008.1.2.4.90": "-xv",
    "1.2.840.10008.1.2.4.91": "-xw", "1.2.840.10008.1.2.5": "-xr"}


def storage(folder):
    samples = valid_samples()
    sent = {}
    everything = {i: p for i, p in samples.items() if run_lookup(meta_text(p, 2))}
    known = dict(everything)
    # Ours to theirs: storescp takes every syntax, and keeps the bytes as they came.
    out = os.path.join(folder, "theirs")
    os.mkdir(out)
    port = free_port()
    with Server(["storescp", "+xa", "+B", "-od", out, port], port):
        result = run(VEXAL, "store", "127.0.0.1", port, "--no-convert", "--json", *known.values())
        for line in result.stdout.decode().splitlines():
            if '"stored":false' not in line:
                continue
            outcome = json.loads(line)
            # Classes and syntaxes that this peer does not have.
            if outcome["problem"].startswith("the peer takes no"):
                del known[outcome["instance"]]
            else:
                check(False, "vexal store to storescp: " + line)
    print("%d of %d objects fit storescp" % (len(known), len(everything)))
    same_files(known, out, "vexal store to storescp")
    known = everything
    # Theirs to ours: storescu encodes each data set anew, in the syntax of the file.
    out = os.path.join(folder, "ours")
    port = free_port()
    with Server([VEXAL, "receive", port, "--dir", out], port):
        for syntax, option in PEER_SYNTAXES.items():
            group = {i: p for i, p in known.items() if meta_text(p, 0x10) == syntax}
            if group:
                run("storescu", "-R", "-nh", option, "-aec", "VEXAL", "127.0.0.1", port, *group.values())
                sent.update(group)
    taken = arrived(out)
    sent = {i: p for i, p in sent.items() if i in taken and meta_text(taken[i], 0x10) == meta_text(p, 0x10)}
    check(len(sent) >= 60, "storescu to vexal receive: only %d arrived in their own syntax" % len(sent))
    for instance, path in sent.items():
        check(content(taken[instance]) == content(path), "storescu to vexal receive: " + path)
    # Ours to ours, four associations, a window of eight. Where the meta group names another object than the data set, it is
    # refused.
    contrary = {i for i, p in known.items() if dict(content(p)).get("00080018", [i])[0] not in (i, None)}
    check(len(contrary) * 10 < len(known) and bool(contrary) == checks.REAL_SAMPLES, "%d objects contradict their meta group" % len(contrary))
    out = os.path.join(folder, "both")
    port = free_port()
    with Server([VEXAL, "receive", port, "--dir", out, "--tree"], port):
        result = run(VEXAL, "store", "127.0.0.1", port, "--associations", 4, "--window", 8, *known.values())
        refused = result.stderr.decode()
        check(result.returncode == (1 if contrary else 0) and refused.count("0xA900") == len(contrary), "vexal store to vexal receive: " + refused[-2000:])
    check(not contrary & set(arrived(out)), "vexal store to vexal receive: what contradicts itself was stored")
    same_files({i: p for i, p in known.items() if i not in contrary}, out, "vexal store to vexal receive")


def run_lookup(uid):
    """Whether the library knows a service for this class."""
    return run(VEXAL, "lookup", uid).returncode == 0 and b"service" in run(VEXAL, "lookup", uid).stdout


ARCHIVE = """NetworkTCPPort = {port}
MaxPDUSize = 16384
MaxAssociations = 16
HostTable BEGIN
receiver = (RECEIVER, 127.0.0.1, {receiver})
HostTable END
VendorTable BEGIN
VendorTable END
AETable BEGIN
ARCHIVE {folder} RW (200, 1024mb) ANY
AETable END
"""


def plain_images():
    return {i: p for i, p in valid_samples().items() if meta_text(p, 0x10) in ("1.2.840.10008.1.2", "1.2.840.10008.1.2.1")
            and meta_text(p, 2) in ("1.2.840.10008.5.1.4.1.1.2", "1.2.840.10008.5.1.4.1.1.4", "1.2.840.10008.5.1.4.1.1.7")}


def queries(folder):
    samples = plain_images()
    base = os.path.join(folder, "archive")
    os.mkdir(base)
    port, receiver = free_port(), free_port()
    config = os.path.join(folder, "archive.cfg")
    with open(config, "w", encoding="ascii") as file:
        file.write(ARCHIVE.format(port=port, receiver=receiver, folder=base))
    archive = ("127.0.0.1", port, "--aec", "ARCHIVE")
    with Server(["dcmqrscp", "-c", config, "+xe"], port):
        result = run(VEXAL, "store", *archive, *samples.values())
        # This archive turns down what has no study.
        check(result.returncode in (0, 1), "vexal store to dcmqrscp: " + result.stderr.decode()[-2000:])
        ours = run(VEXAL, "find", *archive, "--level", "study", "--json")
        check(ours.returncode == 0, "vexal find: " + ours.stderr.decode())
        studies = {line for line in ours.stdout.decode().splitlines()}
        theirs = run("findscu", "-S", "-aec", "ARCHIVE", "-k", "QueryRetrieveLevel=STUDY", "-k", "StudyInstanceUID", "127.0.0.1", port)
        count = theirs.stderr.decode().count("(0020,000d)") or theirs.stdout.decode().count("(0020,000d)")
        check(len(studies) == count > 0, "vexal find: %d studies, findscu %d" % (len(studies), count))
        # All of one study, both ways.
        uid = json.loads(sorted(studies)[0])["StudyInstanceUID"]
        images = run(VEXAL, "find", *archive, "--level", "image", "-k", "StudyInstanceUID=" + uid, "--json").stdout.decode()
        images = {json.loads(line)["SOPInstanceUID"] for line in images.splitlines()}
        wanted = {i: samples[i] for i in images if i in samples}
        check(len(wanted) > 0, "vexal find at image level")
        out = os.path.join(folder, "got")
        result = run(VEXAL, "get", *archive, "--level", "study", "-k", "StudyInstanceUID=" + uid, "--dir", out)
        check(result.returncode == 0, "vexal get: " + result.stderr.decode())
        check(set(arrived(out)) == images, "vexal get: other instances than the archive has")
        out = os.path.join(folder, "moved")
        with Server([VEXAL, "receive", receiver, "--dir", out, "--aet", "RECEIVER"], receiver):
            result = run(VEXAL, "move", *archive, "--to", "RECEIVER", "--level", "study", "-k", "StudyInstanceUID=" + uid)
            check(result.returncode == 0, "vexal move: " + result.stderr.decode())
        check(set(arrived(out)) == images, "vexal move: other instances than the archive has")
        result = run(VEXAL, "move", *archive, "--to", "NOBODY", "--level", "study", "-k", "StudyInstanceUID=" + uid)
        check(result.returncode == 3 and b"0xA801" in result.stderr, "vexal move to an unknown node: " + result.stderr.decode())
        for level, key in (("study", "StudyInstanceUID"), ("image", "SOPInstanceUID")):  # answers as files, of an object or not
            out = os.path.join(folder, "answers-" + level)
            result = run(VEXAL, "find", *archive, "--level", level, "-k", "StudyInstanceUID=" + uid, "--out", out)
            answers = [os.path.join(out, name) for name in sorted(os.listdir(out))]
            check(result.returncode == 0 and re.fullmatch(rb"\d+ found\n", result.stderr), "vexal find --out: %s" % result.stderr)
            check(len(answers) == (1 if level == "study" else len(images)) and all(meta_text(path, 2) and meta_text(path, 3) for path in answers),
                  "vexal find --out, %s: %s" % (level, answers))
            check(run("dcmdump", *answers).returncode == 0, "dcmdump of vexal find --out")
        limited = run(VEXAL, "find", *archive, "--level", "study", "--json", "--limit", 1)
        check(len(limited.stdout.splitlines()) == 1, "vexal find --limit")


WORKLIST = """(0008,0050) SH [A{n}]
(0010,0010) PN [TEST^WORK{n}]
(0010,0020) LO [P{n}]
(0020,000d) UI [1.2.3.4.{n}]
(0032,1060) LO [PROCEDURE {n}]
(0040,0100) SQ
(fffe,e000) -
(0008,0060) CS [{modality}]
(0040,0001) AE [STATION]
(0040,0002) DA [20240{n}01]
(0040,0003) TM [0{n}3000]
(0040,0007) LO [STEP {n}]
(0040,0009) SH [S{n}]
(fffe,e00d) -
(fffe,e0dd) -
(0040,1001) SH [R{n}]
"""


def make_worklist(folder, lists):
    for n in range(1, 5):
        text = os.path.join(folder, "entry.txt")
        with open(text, "w", encoding="ascii") as file:
            file.write(WORKLIST.format(n=n, modality="CT" if n < 4 else "MR"))
        run("dump2dcm", text, os.path.join(lists, "entry%d.wl" % n))


def worklist(folder):
    base = os.path.join(folder, "worklists")
    os.makedirs(os.path.join(base, "WORKLIST"))
    open(os.path.join(base, "WORKLIST", "lockfile"), "w", encoding="ascii").close()
    make_worklist(folder, os.path.join(base, "WORKLIST"))
    port, ours = free_port(), free_port()
    with Server(["wlmscpfs", "-dfp", base, port], port), \
            Server([VEXAL, "serve", ours, "--dir", os.path.join(folder, "objects"), "--worklist", os.path.join(base, "WORKLIST")], ours):
        result = run(VEXAL, "find", "127.0.0.1", port, "--aec", "WORKLIST", "--level", "worklist", "--json",
                     "-k", "ScheduledProcedureStepSequence[0].Modality=CT")
        lines = result.stdout.decode().splitlines()
        check(result.returncode == 0 and len(lines) == 3 and all("STEP" in line for line in lines),
              "vexal find --level worklist: " + result.stdout.decode() + result.stderr.decode())
        # A key's VR decides how it is matched, at the top and in items: as the other server has it.
        step = "(0040,0100)[0]."
        for keys, count in (((step + "ScheduledProcedureStepStartDate=20240101-20240301",), 3), ((step + "ScheduledProcedureStepStartDate=20240201-",), 3),
                            ((step + "ScheduledProcedureStepStartDate=-20240201",), 2), ((step + "ScheduledProcedureStepStartDate=20240301",), 1),
                            ((step + "ScheduledProcedureStepStartTime=020000-033000",), 2), (("PatientName=test^work*",), 4),
                            (("PatientID=p1",), 0), (("StudyInstanceUID=1.2.3.4.2",), 1), (("AccessionNumber=A?",), 4),
                            ((step + "ScheduledProcedureStepStartDate=20240101-20240301", step + "Modality=CT", "PatientName=*"), 3)):
            words = [word for key in keys for word in ("-k", key)]
            found = {title: (run("findscu", "-W", "-aec", "WORKLIST", *words, "-k", "RequestedProcedureID", "127.0.0.1", at).stderr.decode()).count("SH [R")
                     for title, at in (("wlmscpfs", port), ("vexal serve", ours))}
            check(found["vexal serve"] == count, "findscu -W %s: %s, wanted %d" % (keys, found, count))


def archive(folder):
    """vexal serve, used by others and by vexal."""
    samples = plain_images()
    lists = os.path.join(folder, "lists")
    os.mkdir(lists)
    make_worklist(folder, lists)
    port, receiver = free_port(), free_port()
    command = [VEXAL, "serve", port, "--dir", os.path.join(folder, "objects"), "--worklist", lists,
               "--node", "RECEIVER=127.0.0.1:%d" % receiver, "--aet", "ARCHIVE"]
    names = ("-aec", "ARCHIVE", "127.0.0.1", port)
    with Server(command, port):
        result = run("storescu", "-R", "-nh", *names, *samples.values())
        check(result.returncode == 0, "storescu to vexal serve: " + result.stderr.decode()[-1500:])
    with Server(command, port):  # what was stored is there after an end
        found = run(VEXAL, "find", "127.0.0.1", port, "--level", "image", "--json").stdout.decode().splitlines()
        found = {json.loads(line)["SOPInstanceUID"]: json.loads(line)["StudyInstanceUID"] for line in found}
        check(set(found) == {i for i in samples if i in found} and len(found) > 5, "vexal find at vexal serve: %d instances" % len(found))
        for key, name in (("Люк*", "Люкceмбypг"), ("*=山田*", "Yamada^Tarou=山田^太郎=やまだ^たろう"), ("?neas*", "Äneas^Rüdiger")):
            told = run(VEXAL, "find", "127.0.0.1", port, "--json", "-k", "PatientName=" + key).stdout.decode()
            check(name in told, "vexal find of %s at vexal serve: %s" % (key, told))
        latin = run(VEXAL, "find", "127.0.0.1", port, "-k", "SpecificCharacterSet=ISO_IR 100", "-k", "PatientName=Äne*").stdout.decode()
        check("Äneas^Rüdiger" in latin, "vexal find in Latin 1: " + latin)
        study = sorted(found.values())[-1]
        wanted = {i for i in found if found[i] == study}
        keys = ("-k", "QueryRetrieveLevel=STUDY", "-k", "StudyInstanceUID=" + study)
        theirs = run("findscu", "-S", *names[:2], *keys, "-k", "PatientName", "-k", "NumberOfStudyRelatedInstances", *names[2:])
        text = theirs.stderr.decode() + theirs.stdout.decode()
        check("(0020,1208) IS [%d" % len(wanted) in text, "findscu at vexal serve: " + text[-1500:])
        out = os.path.join(folder, "got")
        os.mkdir(out)
        result = run("getscu", "-S", *names[:2], *keys, "+B", "-od", out, *names[2:])
        check(set(arrived(out)) == wanted, "getscu at vexal serve: " + result.stderr.decode())
        out = os.path.join(folder, "moved")
        os.mkdir(out)
        with Server(["storescp", "-d", "+xa", "+B", "-od", out, receiver], receiver) as node:
            result = run("movescu", "-S", "-aet", "MOVER", "-aem", "RECEIVER", *names[:2], *keys, *names[2:])
        check(set(arrived(out)) == wanted, "movescu at vexal serve: " + result.stderr.decode())
        told = node.text.count("Move Originator AE Title      : MOVER")
        check(told == len(wanted), "movescu at vexal serve: the originator of %d of %d" % (told, len(wanted)))
        other = [i for i in wanted if content(arrived(out)[i]) != content(samples[i])]
        check(not other, "movescu at vexal serve: other content: %s" % other[:3])
        # Keys that leave nothing out would move or get everything.
        for key in ("*", "**", "?*", "*?*", "-"):
            result = run("getscu", "-v", "-S", *names[:2], "-k", "QueryRetrieveLevel=STUDY", "-k", "StudyDate=" + key, "-k", "StudyInstanceUID=", "+B", "-od",
                         os.path.join(folder, "got"), *names[2:])
            told = result.stdout + result.stderr
            check(set(arrived(os.path.join(folder, "got"))) == wanted, "getscu of the whole archive by %s: %s" % (key, told.decode()[-300:]))
        for level in ("PATIENT", "SERIES", "IMAGE"):
            result = run("findscu", "-P" if level == "PATIENT" else "-S", *names[:2], "-k", "QueryRetrieveLevel=" + level,
                         "-k", "PatientID", "-k", "StudyInstanceUID", "-k", "SeriesInstanceUID", *names[2:])
            check(result.returncode == 0, "findscu at level %s: " % level + result.stderr.decode())
        result = run("findscu", "-W", *names[:2], "-k", "PatientName", "-k", "(0040,0100)[0].Modality=CT", "-k",
                     "(0040,0100)[0].ScheduledProcedureStepDescription", *names[2:])
        text = result.stderr.decode() + result.stdout.decode()
        check(text.count("TEST^WORK") == 3 and text.count("STEP ") == 3, "findscu -W at vexal serve: " + text[-1500:])


def commitment(folder):
    """vexal serve vouches for what it holds, and takes procedure steps."""
    samples = list(valid_samples().values())[:4]
    steps, objects, port = os.path.join(folder, "steps"), os.path.join(folder, "objects"), free_port()
    os.mkdir(steps)
    with Server([VEXAL, "serve", port, "--dir", objects, "--steps", steps], port):
        check(run(VEXAL, "store", "127.0.0.1", port, *samples[:3]).returncode == 0, "vexal store before a commitment")
        for count, exit_status in ((3, 0), (4, 1)):
            result = run(VEXAL, "commit", "127.0.0.1", port, *samples[:count])
            check(result.returncode == exit_status and b"3 of %d committed" % count in result.stdout,
                  "vexal commit of %d: %s" % (count, (result.stdout + result.stderr).decode()))
        check(b"0x0112" in result.stderr, "vexal commit: the reason for what is not there: " + result.stderr.decode())
        os.unlink(arrived(objects)[meta_text(samples[0], 3)])
        result = run(VEXAL, "commit", "127.0.0.1", port, samples[0])
        check(result.returncode == 1, "vexal commit of a file that was taken away")
        mpps = (VEXAL, "mpps", "127.0.0.1", port)
        created = run(*mpps, "create", "-k", "PatientID=4711", "-k", "PatientName=Müller^Änne", "-k", "Modality=CT")
        uid = created.stdout.decode().strip()
        check(created.returncode == 0, "vexal mpps create: " + created.stderr.decode())
        for title, words, status, text in (("again", ("create", "--uid", uid), 3, b"0x0111"), ("of nothing", ("complete", "--uid", "1.2.3"), 3, b"0x0112"),
                                           ("set", ("set", "--uid", uid, "-k", "PerformedProcedureStepDescription=Chest"), 0, b""),
                                           ("complete", ("complete", "--uid", uid), 0, b""), ("set late", ("set", "--uid", uid, "-k", "StudyID=1"), 3, b"0x0110"),
                                           ("in no state", ("create", "-k", "PerformedProcedureStepStatus=DONE"), 3, b"0x0106")):
            result = run(*mpps, *words)
            check(result.returncode == status and text in result.stderr, "vexal mpps, %s: %s" % (title, result.stderr.decode()))
    told = run(VEXAL, "dump", os.path.join(steps, uid + ".dcm")).stdout.decode()
    check(all(text in told for text in ("COMPLETED", "4711", "Müller^Änne", "Chest", "StepID")) and len(os.listdir(steps)) == 1, "the step: " + told)
    judged = run("dcmdump", os.path.join(steps, uid + ".dcm"))
    check(judged.returncode == 0 and b"COMPLETED" in judged.stdout, "dcmdump of the step: " + judged.stderr.decode())


def make_certificates(folder):
    """An authority, a certificate for localhost under it, and one that stands alone."""
    def openssl(*words):
        subprocess.run(["openssl", *words], cwd=folder, check=True, capture_output=True)
    openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=Authority", "-keyout", "ca.key", "-out", "ca.pem")
    openssl("req", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=localhost", "-keyout", "node.key", "-out", "node.csr")
    with open(os.path.join(folder, "extension.cnf"), "w", encoding="ascii") as file:
        file.write("subjectAltName=DNS:localhost,IP:127.0.0.1\n")
    openssl("x509", "-req", "-in", "node.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial", "-days", "2", "-extfile",
            "extension.cnf", "-out", "node.pem")
    openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=localhost", "-keyout", "bad.key", "-out", "bad.pem")
    return {n: os.path.join(folder, n) for n in ("ca.pem", "node.pem", "node.key", "bad.pem", "bad.key")}


def tls(folder):
    if not has("openssl", "TLS"):
        return
    files = make_certificates(folder)
    sample = next(iter(valid_samples().values()))
    good = ["--tls", "--tls-cert", files["node.pem"], "--tls-key", files["node.key"], "--tls-ca", files["ca.pem"]]
    bad = ["--tls", "--tls-cert", files["bad.pem"], "--tls-key", files["bad.key"], "--tls-ca", files["ca.pem"]]
    port = free_port()
    out = os.path.join(folder, "tls")
    with Server([VEXAL, "receive", port, "--dir", out, *good], port):
        check(run(VEXAL, "echo", "127.0.0.1", port, *good).returncode == 0, "vexal echo over TLS")
        check(run(VEXAL, "echo", "127.0.0.1", port, *good, "--tls-profile", "bcp195-strict").returncode == 0, "strict TLS")
        check(run(VEXAL, "store", "127.0.0.1", port, *good, sample).returncode == 0, "vexal store over TLS")
        check(run("echoscu", "+tls", files["node.key"], files["node.pem"], "+cf", files["ca.pem"], "127.0.0.1", port).returncode == 0,
              "echoscu over TLS to vexal")
        check(run(VEXAL, "echo", "127.0.0.1", port, *bad).returncode == 3, "a certificate of nobody is refused by the acceptor")
        check(run(VEXAL, "echo", "127.0.0.1", port).returncode == 3, "plain to TLS")
    check(len(arrived(out)) == 1, "one object over TLS")
    port = free_port()
    with Server([VEXAL, "receive", port, "--dir", out, *bad], port):
        check(run(VEXAL, "echo", "127.0.0.1", port, *good).returncode == 3, "a certificate of nobody is refused by the requester")
    port = free_port()
    with Server(["storescp", "+tls", files["node.key"], files["node.pem"], "+cf", files["ca.pem"], port], port, folder):
        result = run(VEXAL, "store", "127.0.0.1", port, *good, sample)
        check(result.returncode == 0, "vexal store over TLS to storescp: " + result.stderr.decode())


def orthanc(folder):
    """An archive of another house: stored to, searched, fetched from, and sending to vexal receive itself."""
    program = shutil.which("Orthanc", path="/usr/sbin:/usr/bin")
    if program is None:
        return left_out("an archive of another house", "orthanc")
    samples = {i: p for i, p in valid_samples().items() if meta_text(p, 0x10) in PEER_SYNTAXES and run_lookup(meta_text(p, 2))}
    database, port, web, receiver = os.path.join(folder, "db"), free_port(), free_port(), free_port()
    os.mkdir(database)
    config = os.path.join(folder, "orthanc.json")
    with open(config, "w", encoding="ascii") as file:
        json.dump({"StorageDirectory": database, "IndexDirectory": database, "DicomPort": port, "DicomAet": "ORTHANC", "HttpPort": web,
                   "RemoteAccessAllowed": True, "AuthenticationEnabled": False, "DicomAlwaysAllowGet": True, "DicomAlwaysAllowMove": True,
                   "DicomAlwaysAllowFind": True, "UnknownSopClassAccepted": True, "DicomCheckModalityHost": False,
                   "DicomModalities": {"vexal": ["RECEIVER", "127.0.0.1", receiver]}}, file)
    names = ("127.0.0.1", port, "--aec", "ORTHANC")
    with Server([program, config], port):
        check(run(VEXAL, "echo", *names).returncode == 0, "vexal echo to Orthanc")
        result = run(VEXAL, "store", *names, "--json", "--associations", 2, *samples.values())
        told = [json.loads(line) for line in result.stdout.decode().splitlines()]
        stored = {line["instance"]: samples[line["instance"]] for line in told if line.get("stored") is True}
        # It turns down what has no patient or study.
        check(len(stored) * 10 >= len(samples) * 8, "vexal store to Orthanc: %d of %d" % (len(stored), len(samples)))
        found = {}
        for line in run(VEXAL, "find", *names, "--level", "image", "--json").stdout.decode().splitlines():
            line = json.loads(line)
            found[line["SOPInstanceUID"]] = line["StudyInstanceUID"]
        check(set(stored) == set(found), "vexal find at Orthanc: %d instances of %d" % (len(found), len(stored)))
        study = max(set(found.values()), key=list(found.values()).count)
        wanted = {i: stored[i] for i in found if found[i] == study}
        key = ("--level", "study", "-k", "StudyInstanceUID=" + study)
        # It reports on an association of its own, to a node that it knows by name.
        held = list(stored.values())
        missing = next(p for i, p in samples.items() if i not in stored) if len(stored) < len(samples) else None
        for paths, code in ((held, 0), (held[:1] + [missing], 1))[:2 if missing else 1]:
            result = run(VEXAL, "commit", *names, "--aet", "RECEIVER", "--listen", receiver, "--wait", 20, "--json", *paths)
            told = [json.loads(line) for line in result.stdout.decode().splitlines()]
            check(result.returncode == code and [line["committed"] for line in told].count(True) == len(paths) - code,
                  "vexal commit at Orthanc: %d %s" % (result.returncode, (result.stdout + result.stderr)[:600]))
        got, moved, sent = (os.path.join(folder, n) for n in ("got", "moved", "sent"))
        # It ends at the first object whose class was not asked for, and an association has no room for all that there are.
        classes = [word for uid in sorted({meta_text(p, 2) for p in wanted.values()}) for word in ("--class", uid)]
        result = run(VEXAL, "get", *names, *key, *classes, "--dir", got)
        check(result.returncode == 0, "vexal get at Orthanc: " + result.stderr.decode())
        with Server([VEXAL, "receive", receiver, "--dir", moved, "--aet", "RECEIVER"], receiver):
            result = run(VEXAL, "move", *names, "--to", "RECEIVER", *key)
            check(result.returncode == 0, "vexal move at Orthanc: " + result.stderr.decode())
        with Server([VEXAL, "receive", receiver, "--dir", sent, "--aet", "RECEIVER"], receiver):
            address = "http://127.0.0.1:%d/" % web
            with urllib.request.urlopen(address + "instances", timeout=30) as answer:
                everything = answer.read()
            with urllib.request.urlopen(address + "modalities/vexal/store", everything, timeout=120) as answer:
                check(json.loads(answer.read())["FailedInstancesCount"] == 0, "Orthanc to vexal receive: failed instances")
        for title, folder_of, objects in (("get", got, wanted), ("move", moved, wanted), ("send", sent, stored)):
            found = arrived(folder_of)
            check(set(found) == set(objects), "Orthanc, %s: %d of %d arrived" % (title, len(found), len(objects)))
            # What it decompresses on the way has its colours in another model.
            own = {i: meta_text(found[i], 0x10) == meta_text(objects[i], 0x10) for i in set(found) & set(objects)}
            rows = lambda i, path: [row for row in content(path) if own[i] or row[0] != "00280004"]
            other = [os.path.relpath(objects[i], SAMPLES) for i in own if rows(i, found[i]) != rows(i, objects[i])]
            check(not other, "Orthanc, %s: other content: %s" % (title, other[:5]))
        print("  %d of %d objects stored, %d in the study fetched" % (len(stored), len(samples), len(wanted)))


def odil(folder):
    """Another toolkit's programs against vexal serve."""
    if not has("odil", "requests of another toolkit"):
        return
    samples = [p for p in valid_samples().values() if run_lookup(meta_text(p, 2))]
    database, got, port = os.path.join(folder, "db"), os.path.join(folder, "got"), free_port()
    os.mkdir(database)
    os.mkdir(got)
    names = ("127.0.0.1", port, "ODIL", "NODE")
    with Server([VEXAL, "serve", port, "--dir", database, "--aet", "NODE"], port):
        check(run("odil", "echo", *names).returncode == 0, "odil echo")
        # It stops at the first file that it can not read: one at a time.
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            results = pool.map(lambda path: run("odil", "store", *names, path), samples)
        sent = {dict(content(p))["00080018"][0]: p for p, result in zip(samples, results)
                if result.returncode == 0 and b"Could not" not in result.stdout}
        stored = {i: p for i, p in arrived(database).items() if i}
        check(set(sent) == set(stored), "odil store: %d arrived, %d were sent" % (len(stored), len(sent)))
        check(len(sent) * 10 >= len(samples) * 9, "odil store: %d of %d" % (len(sent), len(samples)))
        # It ends at a character set that it does not know, after having said how many there are.
        answer = run("odil", "find", *names, "study", "QueryRetrieveLevel=STUDY", "StudyInstanceUID=").stdout.decode()
        studies = re.findall(r"Study Instance UID .*\['([0-9.]+)'\]", answer)
        ours = run(VEXAL, "find", "127.0.0.1", port, "--aec", "NODE", "--level", "image", "--json").stdout.decode()
        instances = {line["SOPInstanceUID"]: line["StudyInstanceUID"] for line in map(json.loads, ours.splitlines())}
        check(answer.startswith("%d answers" % len(set(instances.values()) - {""})), "odil find: " + answer.split("\n")[0])
        check(len(studies) > (10 if checks.REAL_SAMPLES else 3) and set(studies) <= set(instances.values()), "odil find: %d studies" % len(studies))
        study = max(studies, key=list(instances.values()).count)
        result = run("odil", "get", "-d", got, *names, "study", "QueryRetrieveLevel=STUDY", "StudyInstanceUID=" + study)
        wanted = {i for i in instances if instances[i] == study}
        fetched = arrived(got)
        check(result.returncode == 0 and set(fetched) == wanted, "odil get: %d of %d arrived" % (len(fetched), len(wanted)))
    for title, there in (("store", stored), ("get", fetched)):
        other = [os.path.relpath(sent[i], SAMPLES) for i in set(there) & set(sent)
                 if rounded(content(there[i])) != rounded(content(sent[i]))]
        check(not other, "odil %s: other content: %s" % (title, other[:5]))
    print("  %d of %d objects stored, %d in the study fetched" % (len(sent), len(samples), len(wanted)))


if __name__ == "__main__":
    PARTS = (verification, storage, queries, worklist, archive, commitment, orthanc, odil, tls)
    sys.exit(run_parts(*(part for part in PARTS if len(sys.argv) <= 3 or part.__name__ in sys.argv[3:])))
