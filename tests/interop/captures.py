#!/usr/bin/env python3
"""What NETWORK_CAPTURE records of sessions with other people's programs, shown, converted and extracted.

usage: captures.py VEXAL SAMPLES
Both directions, several connections at once through a rotation, and TLS: each association stands in the capture whole, the
objects come out byte for byte as they were sent, and tshark recognises every packet, association and message. Exit 77
(skipped) where dcmtk or the samples are missing.
"""
import concurrent.futures
import glob
import os
import re
import shutil
import sys

import network
from checks import VEXAL, Server, Vexal, arrived, check, data_set_of, ended, has, meta_text, paths, read, run, run_parts, vexal, write
from network import valid_samples

EXPLICIT = "1.2.840.10008.1.2.1"


def settings(folder, **keys):
    """A configuration whose captures go to net.cap in the folder."""
    share = os.path.dirname(VEXAL)
    while share != "/" and not os.path.exists(os.path.join(share, "share/vexalkit/vexal.ini")):
        share = os.path.dirname(share)
    place = shutil.copytree(os.path.join(share, "share/vexalkit"), os.path.join(folder, "settings"))
    keys = {"NETWORK_CAPTURE": "Yes", "CAPTURE_FILE": os.path.join(folder, "net.cap"), "IP_TYPE": "IPV4", **keys}
    profile = os.path.join(place, "vexalkit.pro")
    lines = [line for line in read(profile).decode().split("\n") if line.split("=")[0].strip() not in keys]
    section = next(n for n, line in enumerate(lines) if line.startswith("[TRANSPORT_PARMS]"))
    write(profile, "\n".join(lines[:section + 1] + ["%s = %s" % pair for pair in keys.items()] + lines[section + 1:]))
    return "--config", os.path.join(place, "vexal.ini")


def some_samples(count):
    plain = [path for path in valid_samples().values() if meta_text(path, 0x10) == EXPLICIT and os.path.getsize(path) < 1 << 20]
    return sorted(plain, key=os.path.getsize)[-count:]


def check_capture(name, recorded, port, stored, titles, pieces=1):
    """One capture file against the files that the receiver wrote, by instance; its associations are `pieces`."""
    text = vexal("capture", "show", recorded, title=name + ": show").stdout.decode()
    check(text.count("C-STORE-RQ") == text.count("status=0000") == len(stored) > 0, name + ": show lists every C-STORE-RQ and answer: " + text[-500:])
    check(text.count("A-ASSOCIATE-AC") == text.count("A-RELEASE-RP") == pieces, name + ": show lists begin and end")
    secrets = list(stored) + titles
    check(not any(secret in text for secret in secrets), name + ": show hides instance UIDs and titles")
    text = run(VEXAL, "capture", "show", "--phi", recorded).stdout.decode()
    check(all(secret in text for secret in secrets), name + ": show --phi has them")
    objects, pcap = recorded + ".objects", recorded + ".pcap"
    vexal("capture", "extract", recorded, "-o", objects, title=name + ": extract")
    whole = lambda paths_of: {i: (data_set_of(path), meta_text(path, 0x10)) for i, path in paths_of.items()}
    check(whole(arrived(objects)) == whole(stored), name + ": extract gives what was stored")
    vexal("capture", "convert", recorded, "-o", pcap, title=name + ": convert")
    check(all(os.stat(path).st_mode & 0o077 == 0 for path in (recorded, pcap)), name + ": for nobody else to read")
    if has("tshark", "captures read by it"):
        check_in_tshark(name, recorded, pcap, port, len(stored), pieces)


def check_in_tshark(name, recorded, pcap, port, messages, pieces):
    fields = ("dicom.pdu.type", "tcp.checksum.status", "ip.checksum.status", "_ws.malformed", "tcp.analysis.flags", "_ws.col.Info")
    result = run("tshark", "-r", pcap, "-o", "tcp.check_checksum:TRUE", "-o", "ip.check_checksum:TRUE", "-d", "tcp.port==%d,dicom" % port,
                 "-T", "fields", *(word for field in fields for word in ("-e", field)))
    rows = [line.split("\t") for line in result.stdout.decode().splitlines()]
    count = int.from_bytes(read(recorded)[16:20], "little")
    check(len(rows) == count, "%s: tshark has %d packets, not %d" % (name, len(rows), count))
    types = [int(value, 0) for row in rows for value in row[0].split(",") if value]
    check([types.count(kind) for kind in (1, 2, 3, 5, 6, 7)] == [pieces, pieces, 0, pieces, pieces, 0],
          "%s: tshark sees %d whole associations: %s" % (name, pieces, sorted(types)))
    check(all(row[1] == row[2] == "1" for row in rows), name + ": tshark finds every checksum right")
    odd = [row[3:] for row in rows if row[3] or row[4]]
    check(not odd, "%s: tshark finds nothing malformed, lost or twice: %s" % (name, odd))
    kinds = [len(re.findall(kind, " ".join(row[5] for row in rows))) for kind in ("C-STORE-RQ", "C-STORE-RSP")]
    check(kinds == [messages] * 2, "%s: tshark has %s requests and answers, not %d" % (name, kinds, messages))


def outwards(folder):
    out, again, victim, recorded = paths(folder, "received", "again", "victim", "net.cap")
    os.mkdir(out)
    config = settings(folder, IP_TYPE="AVAILABLE")
    with Server("storescp", "+xa", "+B", "-od", out, "{port}") as server:
        vexal("store", *config, "--no-convert", "--aet", "OURS", "--aec", "THEIRS", "127.0.0.1", server.port, *some_samples(6))
    check_capture("vexal store to storescp", recorded, server.port, arrived(out), ["OURS", "THEIRS"])
    # Two requests of one UID are two objects; what lies in the way of a file is neither followed nor lost.
    first, second, objects = some_samples(1)[0], os.path.join(again, "second.dcm"), os.path.join(again, "objects")
    os.makedirs(objects)
    vexal("modify", "--set", "PatientName=Another^One", first, second)
    with Server("storescp", "+xa", "+B", "-od", again, "{port}") as server:
        vexal("store", *config, "127.0.0.1", server.port, first, second, title="store of one UID twice")
    write(victim, "precious")
    for link in paths(objects, *(meta_text(first, 3) + ending for ending in (".dcm", ".dcm.part"))) + [os.path.join(again, "pcap.part")]:
        os.symlink(victim, link)
    for _ in range(2):  # extracting again adds nothing
        vexal("capture", "extract", recorded, "-o", objects)
        found = sorted(data_set_of(path) for path in paths(objects, *os.listdir(objects)) if not os.path.islink(path))
        check(found == sorted([data_set_of(first), data_set_of(second)]), "extract two of one UID: %d files" % len(found))
    vexal("capture", "convert", recorded, "-o", os.path.join(again, "pcap"), title="convert beside a link")
    check(read(victim) == b"precious", "a file that a link leads to was written")
    for path in (write(os.path.join(folder, "cut.cap"), read(recorded)[:-3]), recorded + ".pcap"):
        vexal("capture", "show", path, status=1)


def storescu(port, files, title="THEIRS"):
    ended(run("storescu", "-R", "-aet", title, "-aec", "OURS", "127.0.0.1", port, *files), "storescu")


def inwards(folder):
    with Vexal("receive", os.path.join(folder, "received"), "--aet", "OURS", *settings(folder)) as server:
        storescu(server.port, some_samples(4)[:2])
        storescu(server.port, some_samples(4)[2:])
    check_capture("storescu to vexal receive", os.path.join(folder, "net.cap"), server.port, arrived(server.folder), ["OURS", "THEIRS"], pieces=2)


def rotation(folder):
    """Three connections at once take the files of three earlier ones, one each."""
    config = settings(folder, NUMBER_OF_CAP_FILES=3, CAPTURE_FILE_SIZE=100000, REWRITE_CAPTURE_FILES="Yes")
    samples = some_samples(9)
    with Vexal("receive", os.path.join(folder, "received"), "--aet", "OURS", *config) as server:
        for part in range(2):
            storescu(server.port, samples[part::3], "EARLIER")
        with concurrent.futures.ThreadPoolExecutor() as pool:
            list(pool.map(lambda part: storescu(server.port, samples[part::3], "T%dPEER" % part), range(3)))
    files = sorted(glob.glob(os.path.join(folder, "net*.cap")))
    check([os.path.basename(path) for path in files] == ["net001.cap", "net002.cap", "net003.cap"], "rotation: files %s" % files)
    received, seen = arrived(server.folder), set()
    for path in files:
        text = run(VEXAL, "capture", "show", "--phi", path).stdout.decode()
        titles = set(re.findall(r"calling=(T\dPEER|EARLIER)", text))
        check(len(titles) == 1 and "EARLIER" not in titles, "rotation: %s holds a connection of the last three: %s" % (path, text[:300]))
        title = titles.pop()
        seen.add(title)
        stored = {instance: received[instance] for instance in (meta_text(sample, 3) for sample in samples[int(title[1])::3])}
        check_capture("rotation, " + os.path.basename(path), path, server.port, stored, [title])
    check(len(seen) == 3, "rotation: each connection has a file: %s" % seen)


def secure(folder):
    if not has("openssl", "TLS"):
        return
    words, _ = network.make_certificates(folder)
    with Vexal("receive", os.path.join(folder, "received"), "--aet", "THEIRS", *words) as server:
        vexal("store", *settings(folder), "--no-convert", "--aet", "OURS", "--aec", "THEIRS", "127.0.0.1", server.port, *words, *some_samples(3),
              says="records secure traffic in plaintext")
    check_capture("TLS", os.path.join(folder, "net.cap"), server.port, arrived(server.folder), ["OURS", "THEIRS"])


if __name__ == "__main__":
    sys.exit(run_parts(outwards, inwards, rotation, secure))
