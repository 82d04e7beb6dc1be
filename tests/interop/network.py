#!/usr/bin/env python3
"""vexal and the network programs of others, as client and as server, over loopback.

usage: network.py VEXAL SAMPLES [PART...]
Verification, storage, query, retrieval, worklist and TLS; data sets have to arrive byte for byte. Exit 77 (skipped)
where dcmtk or the samples are missing.
"""
import json
import os
import re
import shutil
import subprocess
import sys
import urllib.request

import checks
from checks import (SAMPLES, VEXAL, Server, Vexal, arrived, check, data_set_of, ended, free_port, has, left_out, meta_text, need, paths, run, run_parts,
                    vexal, write)

need("storescp")
os.environ["TCP_NODELAY"] = "1"
PEER_SYNTAXES = {
    "1.2.840.10008.1.2": "-xi", "1.2.840.10008.1.2.1": "-xe", "1.2.840.10008.1.2.2": "-xb", "1.2.840.10008.1.2.1.99": "-xd",
    "1.2.840.10008.1.2.4.50": "-xy", "1.2.840.10008.1.2.4.51": "-xx", "1.2.840.10008.1.2.4.70": "-xs",
    "1.2.840.10008.1.2.4.80": "-xt", "1.2.840.10008.1.2.4.81": "-xu", "1.2.840.10008.1.2.4.90": "-xv",
    "1.2.840.10008.1.2.4.91": "-xw", "1.2.840.10008.1.2.5": "-xr"}


def valid_samples():
    """One file for each instance: valid, with preamble and meta group, of a class that is stored."""
    seen = {}
    for name, path in checks.valid_samples():
        instance, sop_class = meta_text(path, 3), meta_text(path, 2)
        other = os.path.basename(name).startswith("query-") or "unknown-ts" in name or os.path.getsize(path) % 2
        if instance and sop_class not in ("", "1.2.840.10008.1.3.10") and not other:
            seen.setdefault(instance, path)
    return seen


def known_samples():
    """Those whose class the library knows a service for."""
    known = {uid: b"service" in run(VEXAL, "lookup", uid).stdout for uid in {meta_text(path, 2) for path in valid_samples().values()}}
    return {i: p for i, p in valid_samples().items() if known[meta_text(p, 2)]}


def plain_images():
    return {i: p for i, p in valid_samples().items() if meta_text(p, 0x10) in ("1.2.840.10008.1.2", "1.2.840.10008.1.2.1")
            and meta_text(p, 2) in ("1.2.840.10008.5.1.4.1.1.2", "1.2.840.10008.5.1.4.1.1.4", "1.2.840.10008.5.1.4.1.1.7")}


def lines(result):
    return [json.loads(line) for line in result.stdout.splitlines()]


def content(path):
    """What vexal lists of the data set, without padding; other programs may take private values for UN, so none of these."""
    return standard(lines(run(VEXAL, "dump", "--json", path))[0]["elements"])


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


def same_content(title, found, sent, of=lambda path, instance: content(path)):
    """Of what arrived, each has the content of what was sent."""
    other = [os.path.relpath(sent[i], SAMPLES) for i in set(found) & set(sent) if of(found[i], i) != of(sent[i], i)]
    check(not other, "%s: other content: %s" % (title, other[:5]))


def same_files(samples, folder, title):
    """Byte for byte; where an unusual start was written anew, in content."""
    found = arrived(folder)
    check(set(found) >= set(samples), "%s: did not arrive: %s" % (title, [samples[i] for i in set(samples) - set(found)][:5]))
    anew = {i: samples[i] for i in set(samples) & set(found) if data_set_of(found[i]) != data_set_of(samples[i])}
    same_content(title, found, anew)
    check(len(anew) * 10 <= len(samples), "%s: %d of %d with other bytes" % (title, len(anew), len(samples)))


def verification(folder):
    with Vexal("receive", folder) as server:
        ended(run("echoscu", "-aec", "VEXAL", "127.0.0.1", server.port), "echoscu to vexal")
        vexal("echo", "127.0.0.1", server.port, "--count", 100)
    with Server("storescp", "{port}", cwd=folder) as server:
        vexal("echo", "127.0.0.1", server.port, title="vexal echo to storescp")
    vexal("echo", "127.0.0.1", free_port(), status=3, title="vexal echo to nobody")


def storage(folder):
    everything, (theirs, ours, served, back) = known_samples(), paths(folder, "theirs", "ours", "served", "back")
    # Ours to theirs: storescp takes every syntax, and keeps the bytes as they came.
    known, _ = dict(everything), os.mkdir(theirs)
    with Server("storescp", "+xa", "+B", "-od", theirs, "{port}") as server:
        for outcome in lines(run(VEXAL, "store", "127.0.0.1", server.port, "--no-convert", "--json", *known.values())):
            if outcome.get("stored") is False:  # classes and syntaxes that this peer does not have
                check(outcome["problem"].startswith("the peer takes no"), "vexal store to storescp: %s" % outcome)
                del known[outcome["instance"]]
    print("%d of %d objects fit storescp" % (len(known), len(everything)))
    same_files(known, theirs, "vexal store to storescp")
    # Theirs to ours: storescu encodes each data set anew, in the syntax of the file.
    with Vexal("receive", ours) as server:
        for syntax, option in PEER_SYNTAXES.items():
            group = [path for path in everything.values() if meta_text(path, 0x10) == syntax]
            if group:
                run("storescu", "-R", "-nh", option, "-aec", "VEXAL", "127.0.0.1", server.port, *group)
    taken = {i: p for i, p in arrived(ours).items() if i in everything and meta_text(p, 0x10) == meta_text(everything[i], 0x10)}
    check(len(taken) >= 60, "storescu to vexal receive: only %d arrived in their own syntax" % len(taken))
    same_content("storescu to vexal receive", taken, everything)
    # Ours to ours, four associations, a window of eight, and back. Where the meta group names another object than the data set,
    # it is refused; what is compressed may be decompressed on the way back.
    contrary = {i for i, p in everything.items() if dict(content(p)).get("00080018", [i])[0] not in (i, None)}
    check(len(contrary) * 10 < len(everything) and bool(contrary) == checks.REAL_SAMPLES, "%d objects contradict their meta group" % len(contrary))
    sent = {i: p for i, p in everything.items() if i not in contrary}
    with Vexal("serve", served) as server:
        result = vexal("store", "127.0.0.1", server.port, "--associations", 4, "--window", 8, *everything.values(), status=1 if contrary else 0,
                       title="vexal store to vexal serve")
        check(result.stderr.count(b"0xA900") == len(contrary), "vexal store to vexal serve: %s" % result.stderr[-2000:])
        check(not contrary & set(arrived(served)), "vexal store to vexal serve: what contradicts itself was stored")
        same_files(sent, served, "vexal store to vexal serve")
        for study in os.listdir(served):
            held = arrived(os.path.join(served, study)) if study != "no-study" else {}
            if not held:
                continue
            result = run(VEXAL, "get", "127.0.0.1", server.port, "-k", "StudyInstanceUID=" + study, "--dir", os.path.join(back, study))
            missing = set(held) - set(arrived(os.path.join(back, study)))
            ended(result, "vexal get, %d are missing" % len(missing), 0 if not missing else 1 if len(missing) < len(held) else 3)
    found = arrived(back)
    own = {i: meta_text(found[i], 0x10) == meta_text(sent[i], 0x10) for i in found}
    check(sum(own.values()) * 2 > len(sent), "vexal get: %d of %d came back as they are" % (sum(own.values()), len(sent)))
    described = ("00280004", "00280006", "7FE00001", "7FE00002", "7FE00010")
    same_content("vexal get", found, sent, lambda path, i: data_set_of(path) if own[i] else [row for row in content(path) if row[0] not in described])


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


def queries(folder):
    """vexal's requests to an archive of others."""
    samples, port, receiver = plain_images(), free_port(), free_port()
    base, got, moved = paths(folder, "archive", "got", "moved")
    os.mkdir(base)
    config = write(os.path.join(folder, "archive.cfg"), ARCHIVE.format(port=port, receiver=receiver, folder=base))
    archive = ("127.0.0.1", port, "--aec", "ARCHIVE")
    with Server("dcmqrscp", "-c", config, "+xe", port=port):
        result = run(VEXAL, "store", *archive, *samples.values())
        # This archive turns down what has no study.
        check(result.returncode in (0, 1), "vexal store to dcmqrscp: %s" % result.stderr[-2000:])
        studies = {study["StudyInstanceUID"] for study in lines(vexal("find", *archive, "--level", "study", "--json"))}
        theirs = run("findscu", "-S", "-aec", "ARCHIVE", "-k", "QueryRetrieveLevel=STUDY", "-k", "StudyInstanceUID", "127.0.0.1", port)
        told = {uid.decode() for uid in re.findall(rb"\(0020,000d\) UI \[([0-9.]+)", theirs.stderr + theirs.stdout)}
        check(studies == told and studies, "vexal find finds %s, findscu %s" % (sorted(studies), sorted(told)))
        # All of one study, both ways.
        study = ("-k", "StudyInstanceUID=" + min(studies))
        images = {image["SOPInstanceUID"] for image in lines(run(VEXAL, "find", *archive, "--level", "image", *study, "--json"))}
        check(images & set(samples), "vexal find at image level")
        vexal("get", *archive, "--level", "study", *study, "--dir", got)
        with Vexal("receive", moved, "--aet", "RECEIVER", port=receiver):
            vexal("move", *archive, "--to", "RECEIVER", "--level", "study", *study)
        for place in (got, moved):
            check(set(arrived(place)) == images, "vexal %s: other instances than the archive has" % os.path.basename(place))
        vexal("move", *archive, "--to", "NOBODY", "--level", "study", *study, status=3, says="0xA801")
        for level, count in (("study", 1), ("image", len(images))):  # answers as files, of an object or not
            out = os.path.join(folder, "answers-" + level)
            result = vexal("find", *archive, "--level", level, *study, "--out", out)
            answers = [os.path.join(out, name) for name in sorted(os.listdir(out))]
            check(re.fullmatch(rb"\d+ found\n", result.stderr), "vexal find --out: %s" % result.stderr)
            check(len(answers) == count and all(meta_text(path, 2) and meta_text(path, 3) for path in answers), "vexal find --out, %s: %s" % (level, answers))
            ended(run("dcmdump", *answers), "dcmdump of vexal find --out")
        check(len(lines(run(VEXAL, "find", *archive, "--level", "study", "--json", "--limit", 1))) == 1, "vexal find --limit")


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


def make_worklist(lists):
    for n in range(1, 5):
        text = write(os.path.join(lists, "entry.txt"), WORKLIST.format(n=n, modality="CT" if n < 4 else "MR"))
        run("dump2dcm", text, os.path.join(lists, "entry%d.wl" % n))
        os.remove(text)


def worklist(folder):
    base, objects = paths(folder, "worklists", "objects")
    make_worklist(os.path.join(base, "WORKLIST"))
    write(os.path.join(base, "WORKLIST", "lockfile"), "")
    step = "(0040,0100)[0]."
    with Server("wlmscpfs", "-dfp", base, "{port}") as theirs, Vexal("serve", objects, "--worklist", os.path.join(base, "WORKLIST")) as ours:
        found = lines(vexal("find", "127.0.0.1", theirs.port, "--aec", "WORKLIST", "--level", "worklist", "--json", "-k",
                            "ScheduledProcedureStepSequence[0].Modality=CT"))
        check(len(found) == 3 and all("STEP" in str(row) for row in found), "vexal find --level worklist: %s" % found)
        # A key's VR decides how it is matched, at the top and in items.
        for keys, count in (((step + "ScheduledProcedureStepStartDate=20240101-20240301",), 3), ((step + "ScheduledProcedureStepStartDate=20240201-",), 3),
                            ((step + "ScheduledProcedureStepStartDate=-20240201",), 2), ((step + "ScheduledProcedureStepStartDate=20240301",), 1),
                            ((step + "ScheduledProcedureStepStartTime=020000-033000",), 2), (("PatientName=test^work*",), 4),
                            (("PatientID=p1",), 0), (("StudyInstanceUID=1.2.3.4.2",), 1), (("AccessionNumber=A?",), 4),
                            ((step + "ScheduledProcedureStepStartDate=20240101-20240301", step + "Modality=CT", "PatientName=*"), 3)):
            words = [word for key in (*keys, "RequestedProcedureID", step + "ScheduledProcedureStepDescription") for word in ("-k", key)]
            told = run("findscu", "-W", "-aec", "WORKLIST", *words, "127.0.0.1", ours.port).stderr
            check(told.count(b"SH [R") == told.count(b"[STEP ") == count, "findscu -W %s: wanted %d: %s" % (keys, count, told[-1500:]))


def archive(folder):
    """vexal serve, used by others and by vexal."""
    samples, receiver = plain_images(), free_port()
    command = ("serve", os.path.join(folder, "objects"), "--node", "RECEIVER=127.0.0.1:%d" % receiver, "--aet", "ARCHIVE")
    with Vexal(*command) as server:
        ended(run("storescu", "-R", "-nh", "-aec", "ARCHIVE", "127.0.0.1", server.port, *samples.values()), "storescu to vexal serve")
    with Vexal(*command) as server:  # what was stored is there after an end
        def find(*keys):
            return run(VEXAL, "find", "127.0.0.1", server.port, *(word for key in keys for word in ("-k", key)), "--json").stdout.decode()

        def theirs(program, *words):
            return run(program, "-aec", "ARCHIVE", *words, "127.0.0.1", server.port)

        found = {row["SOPInstanceUID"]: row["StudyInstanceUID"] for row in lines(vexal("find", "127.0.0.1", server.port, "--level", "image", "--json"))}
        check(set(found) <= set(samples) and len(found) > 5, "vexal find at vexal serve: %d instances" % len(found))
        for key, name in (("Люк*", "Люкceмбypг"), ("*=山田*", "Yamada^Tarou=山田^太郎=やまだ^たろう"), ("?neas*", "Äneas^Rüdiger")):
            check(name in find("PatientName=" + key), "vexal find of %s at vexal serve: %s" % (key, find("PatientName=" + key)))
        check("Äneas^Rüdiger" in find("SpecificCharacterSet=ISO_IR 100", "PatientName=Äne*"), "vexal find in Latin 1")
        study = sorted(found.values())[-1]
        wanted = {i for i in found if found[i] == study}
        level = lambda name: ("-P" if name == "PATIENT" else "-S", "-k", "QueryRetrieveLevel=" + name)
        keys = (*level("STUDY"), "-k", "StudyInstanceUID=" + study)
        text = theirs("findscu", *keys, "-k", "PatientName", "-k", "NumberOfStudyRelatedInstances").stderr.decode()
        check("(0020,1208) IS [%d" % len(wanted) in text, "findscu at vexal serve: " + text[-1500:])
        for name in ("PATIENT", "SERIES", "IMAGE"):
            ended(theirs("findscu", *level(name), "-k", "PatientID", "-k", "StudyInstanceUID", "-k", "SeriesInstanceUID"), "findscu at level " + name)
        got, moved = paths(folder, "got", "moved")
        os.mkdir(got), os.mkdir(moved)
        theirs("getscu", *keys, "+B", "-od", got)
        with Server("storescp", "-d", "+xa", "+B", "-od", moved, "{port}", port=receiver) as node:
            theirs("movescu", *keys, "-aet", "MOVER", "-aem", "RECEIVER")
        for place in (got, moved):
            check(set(arrived(place)) == wanted, "%s from vexal serve: other objects" % place)
        told = node.text.count("Move Originator AE Title      : MOVER")
        check(told == len(wanted), "movescu at vexal serve: the originator of %d of %d" % (told, len(wanted)))
        same_content("movescu at vexal serve", arrived(moved), samples)
        for key in ("*", "**", "?*", "*?*", "-"):  # what leaves nothing out would get everything
            told = theirs("getscu", "-v", *level("STUDY"), "-k", "StudyDate=" + key, "-k", "StudyInstanceUID=", "+B", "-od", got)
            check(set(arrived(got)) == wanted, "getscu of the whole archive by %s: %s" % (key, told.stderr[-300:]))


def commitment(folder):
    """vexal serve vouches for what it holds, and takes procedure steps."""
    samples, (steps, objects) = list(valid_samples().values())[:4], paths(folder, "steps", "objects")
    os.mkdir(steps)
    with Vexal("serve", objects, "--steps", steps) as server:
        peer = ("127.0.0.1", server.port)
        vexal("store", *peer, *samples[:3])
        for count, status, reason in ((3, 0, ""), (4, 1, "0x0112")):
            result = vexal("commit", *peer, *samples[:count], status=status, says=reason)
            check(b"3 of %d committed" % count in result.stdout, "vexal commit of %d: %s" % (count, result.stdout))
        os.unlink(arrived(objects)[meta_text(samples[0], 3)])
        vexal("commit", *peer, samples[0], status=1, title="vexal commit of a file that was taken away")
        created = vexal("mpps", *peer, "create", "-k", "PatientID=4711", "-k", "PatientName=Müller^Änne", "-k", "Modality=CT")
        uid = created.stdout.decode().strip()
        for words, status, text in ((("create", "--uid", uid), 3, "0x0111"), (("complete", "--uid", "1.2.3"), 3, "0x0112"),
                                    (("set", "--uid", uid, "-k", "PerformedProcedureStepDescription=Chest"), 0, ""),
                                    (("complete", "--uid", uid), 0, ""), (("set", "--uid", uid, "-k", "StudyID=1"), 3, "0x0110"),
                                    (("create", "-k", "PerformedProcedureStepStatus=DONE"), 3, "0x0106")):
            vexal("mpps", *peer, *words, status=status, says=text)
    step = os.path.join(steps, uid + ".dcm")
    told = run(VEXAL, "dump", step).stdout.decode()
    check(all(text in told for text in ("COMPLETED", "4711", "Müller^Änne", "Chest", "StepID")) and len(os.listdir(steps)) == 1, "the step: " + told)
    check(b"COMPLETED" in ended(run("dcmdump", step), "dcmdump of the step").stdout, "dcmdump of the step")


def make_certificates(folder):
    """An authority, a certificate for localhost under it, and one that stands alone; as words of vexal."""
    write(os.path.join(folder, "extension.cnf"), "subjectAltName=DNS:localhost,IP:127.0.0.1\n")
    alone = "req -x509 -newkey rsa:2048 -nodes -days 2"
    for words in (alone + " -subj /CN=Authority -keyout ca.key -out ca.pem", "req -newkey rsa:2048 -nodes -subj /CN=localhost -keyout node.key -out node.csr",
                  "x509 -req -in node.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -extfile extension.cnf -out node.pem",
                  alone + " -subj /CN=localhost -keyout bad.key -out bad.pem"):
        subprocess.run(["openssl", *words.split()], cwd=folder, check=True, capture_output=True)
    return [["--tls", "--tls-cert", os.path.join(folder, name + ".pem"), "--tls-key", os.path.join(folder, name + ".key"), "--tls-ca",
             os.path.join(folder, "ca.pem")] for name in ("node", "bad")]


def tls(folder):
    if not has("openssl", "TLS"):
        return
    good, bad = make_certificates(folder)
    theirs = ("+tls", *paths(folder, "node.key", "node.pem"), "+cf", os.path.join(folder, "ca.pem"))
    sample, out = next(iter(valid_samples().values())), os.path.join(folder, "tls")
    with Vexal("receive", out, *good) as server:
        for words, status in (((), 3), (good, 0), ((*good, "--tls-profile", "bcp195-strict"), 0), (bad, 3)):
            vexal("echo", "127.0.0.1", server.port, *words, status=status)
        vexal("store", "127.0.0.1", server.port, *good, sample)
        ended(run("echoscu", *theirs, "127.0.0.1", server.port), "echoscu over TLS to vexal")
    check(len(arrived(out)) == 1, "one object over TLS")
    with Vexal("receive", out, *bad) as server:
        vexal("echo", "127.0.0.1", server.port, *good, status=3, title="a certificate of nobody is refused by the requester")
    with Server("storescp", *theirs, "{port}", cwd=folder) as server:
        vexal("store", "127.0.0.1", server.port, *good, sample, title="vexal store over TLS to storescp")


def orthanc(folder):
    """An archive of another house: stored to, searched, fetched from, and sending to vexal receive itself."""
    program = shutil.which("Orthanc", path="/usr/sbin:/usr/bin")
    if program is None:
        return left_out("an archive of another house", "orthanc")
    samples = {i: p for i, p in known_samples().items() if meta_text(p, 0x10) in PEER_SYNTAXES}
    (database, got, moved, sent), port, web, receiver = paths(folder, "db", "got", "moved", "sent"), free_port(), free_port(), free_port()
    os.mkdir(database)
    config = write(os.path.join(folder, "orthanc.json"), json.dumps({
        "StorageDirectory": database, "IndexDirectory": database, "DicomPort": port, "DicomAet": "ORTHANC", "HttpPort": web,
        "RemoteAccessAllowed": True, "AuthenticationEnabled": False, "DicomAlwaysAllowGet": True, "DicomAlwaysAllowMove": True,
        "DicomAlwaysAllowFind": True, "UnknownSopClassAccepted": True, "DicomCheckModalityHost": False,
        "DicomModalities": {"vexal": ["RECEIVER", "127.0.0.1", receiver]}}))
    names = ("127.0.0.1", port, "--aec", "ORTHANC")
    with Server(program, config, port=port):
        vexal("echo", *names)
        told = lines(run(VEXAL, "store", *names, "--json", "--associations", 2, *samples.values()))
        stored = {line["instance"]: samples[line["instance"]] for line in told if line.get("stored") is True}
        # It turns down what has no patient or study.
        check(len(stored) * 10 >= len(samples) * 8, "vexal store to Orthanc: %d of %d" % (len(stored), len(samples)))
        found = {line["SOPInstanceUID"]: line["StudyInstanceUID"] for line in lines(run(VEXAL, "find", *names, "--level", "image", "--json"))}
        check(set(stored) == set(found), "vexal find at Orthanc: %d instances of %d" % (len(found), len(stored)))
        study = max(set(found.values()), key=list(found.values()).count)
        wanted, key = {i: stored[i] for i in found if found[i] == study}, ("--level", "study", "-k", "StudyInstanceUID=" + study)
        # It reports on an association of its own, to a node that it knows by name.
        held, missing = list(stored.values()), [p for i, p in samples.items() if i not in stored][:1]
        for some in [held, held[:1] + missing] if missing else [held]:
            result = vexal("commit", *names, "--aet", "RECEIVER", "--listen", receiver, "--wait", 20, "--json", *some, status=int(some is not held),
                           title="vexal commit at Orthanc")
            check([line["committed"] for line in lines(result)].count(True) == len(some) - (some is not held), "vexal commit at Orthanc: %s" % result)
        # It ends at the first object whose class was not asked for, and an association has no room for all that there are.
        classes = [word for uid in sorted({meta_text(p, 2) for p in wanted.values()}) for word in ("--class", uid)]
        vexal("get", *names, *key, *classes, "--dir", got)
        with Vexal("receive", moved, "--aet", "RECEIVER", port=receiver):
            vexal("move", *names, "--to", "RECEIVER", *key)
        with Vexal("receive", sent, "--aet", "RECEIVER", port=receiver):
            address = "http://127.0.0.1:%d/" % web
            with urllib.request.urlopen(address + "instances", timeout=30) as answer:
                everything = answer.read()
            with urllib.request.urlopen(address + "modalities/vexal/store", everything, timeout=120) as answer:
                check(json.loads(answer.read())["FailedInstancesCount"] == 0, "Orthanc to vexal receive: failed instances")
    for place, objects in ((got, wanted), (moved, wanted), (sent, stored)):
        found, title = arrived(place), "Orthanc, " + os.path.basename(place)
        check(set(found) == set(objects), "%s: %d of %d arrived" % (title, len(found), len(objects)))
        # What it decompresses on the way has its colours in another model.
        own = {i: meta_text(found[i], 0x10) == meta_text(objects[i], 0x10) for i in set(found) & set(objects)}
        same_content(title, found, objects, lambda path, i: [row for row in content(path) if own[i] or row[0] != "00280004"])
    print("  %d of %d objects stored, %d in the study fetched" % (len(stored), len(samples), len(wanted)))


def odil(folder):
    """Another toolkit's programs against vexal serve."""
    if not has("odil", "requests of another toolkit"):
        return
    samples, got = plain_images(), os.path.join(folder, "got")
    os.mkdir(got)
    with Vexal("serve", os.path.join(folder, "db"), "--aet", "NODE") as server:
        peer = ("127.0.0.1", server.port, "ODIL", "NODE")
        ended(run("odil", "echo", *peer), "odil echo")
        # It stops at a file that it can not read.
        results = {i: run("odil", "store", *peer, path) for i, path in samples.items()}
        sent = {i for i, result in results.items() if result.returncode == 0 and b"Could not" not in result.stdout}
        stored = arrived(server.folder)
        check(set(stored) == sent and len(sent) * 10 >= len(samples) * 9, "odil store: %d of %d arrived" % (len(stored), len(samples)))
        studies = [os.path.relpath(path, server.folder).split("/")[0] for path in stored.values()]
        study = max(set(studies), key=studies.count)
        answer = run("odil", "find", *peer, "study", "QueryRetrieveLevel=STUDY", "StudyInstanceUID=").stdout.decode()
        # It ends at a character set that it does not know, after having said how many there are.
        told = set(re.findall(r"Study Instance UID .*\['([0-9.]+)'\]", answer))
        check(answer.startswith("%d answers" % len(set(studies))) and told and told <= set(studies), "odil find: %s %s" % (answer.split("\n")[0], told))
        ended(run("odil", "get", "-d", got, *peer, "study", "QueryRetrieveLevel=STUDY", "StudyInstanceUID=" + study), "odil get")
        check(set(arrived(got)) == set(arrived(os.path.join(server.folder, study))), "odil get: %d arrived" % len(arrived(got)))
        for title, there in (("odil store", stored), ("odil get", arrived(got))):
            same_content(title, there, samples, lambda path, _: rounded(content(path)))


if __name__ == "__main__":
    sys.exit(run_parts(verification, storage, queries, worklist, archive, commitment, orthanc, odil, tls, chosen=sys.argv[3:]))
