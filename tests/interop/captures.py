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
import shutil
import sys

import network
from checks import VEXAL, check, free_port, has, run, run_parts
from network import Server, arrived, data_set, meta_text, valid_samples

EXPLICIT = "1.2.840.10008.1.2.1"


def share_folder():
    place = os.path.dirname(VEXAL)
    while place != "/" and not os.path.exists(os.path.join(place, "share/vexalkit/vexal.ini")):
        place = os.path.dirname(place)
    return os.path.join(place, "share/vexalkit")


def settings(folder, **keys):
    """A configuration whose captures go to net.cap in the folder."""
    place = os.path.join(folder, "settings")
    shutil.copytree(share_folder(), place)
    keys = {"NETWORK_CAPTURE": "Yes", "CAPTURE_FILE": os.path.join(folder, "net.cap"), **keys}
    profile = os.path.join(place, "vexalkit.pro")
    with open(profile) as old:
        lines = [line for line in old if line.split("=")[0].strip() not in keys]
    section = lines.index(next(line for line in lines if line.startswith("[TRANSPORT_PARMS]")))
    lines[section + 1:section + 1] = ["%s = %s\n" % pair for pair in keys.items()]
    with open(profile, "w") as new:
        new.writelines(lines)
    return os.path.join(place, "vexal.ini")


def some_samples(count):
    plain = [path for path in valid_samples().values() if meta_text(path, 0x10) == EXPLICIT and os.path.getsize(path) < 1 << 20]
    return sorted(plain, key=os.path.getsize)[-count:]


def check_capture(name, recorded, port, stored, titles, pieces=None):
    """One capture file against the files that the receiver wrote, by instance; its associations are `pieces`."""
    shown = run(VEXAL, "capture", "show", recorded)
    text = shown.stdout.decode()
    check(shown.returncode == 0 and text.count("C-STORE-RQ") == len(stored) > 0, name + ": show lists every C-STORE-RQ: " + text[-500:])
    check(text.count("status=0000") == len(stored), name + ": show lists every answer")
    check(text.count("A-ASSOCIATE-AC") == text.count("A-RELEASE-RP") == (pieces or 1), name + ": show lists begin and end")
    secrets = list(stored) + titles
    check(not any(secret in text for secret in secrets), name + ": show hides instance UIDs and titles")
    text = run(VEXAL, "capture", "show", "--phi", recorded).stdout.decode()
    check(all(secret in text for secret in secrets), name + ": show --phi has them")
    objects, pcap = recorded + ".objects", recorded + ".pcap"
    result = run(VEXAL, "capture", "extract", recorded, "-o", objects)
    check(result.returncode == 0, name + ": extract: " + result.stderr.decode())
    extracted = arrived(objects)
    check(set(extracted) == set(stored), name + ": extract gives what was stored")
    for instance in set(extracted) & set(stored):
        check(data_set(extracted[instance]) == data_set(stored[instance]), name + ": extract: other bytes of " + instance)
        check(meta_text(extracted[instance], 0x10) == meta_text(stored[instance], 0x10), name + ": extract: syntax of " + instance)
    check(run(VEXAL, "capture", "convert", recorded, "-o", pcap).returncode == 0, name + ": convert")
    check(all(os.stat(path).st_mode & 0o077 == 0 for path in (recorded, pcap)), name + ": for nobody else to read")
    if has("tshark", "captures read by it"):
        check_in_tshark(name, recorded, pcap, port, len(stored), pieces or 1)


def check_in_tshark(name, recorded, pcap, port, messages, pieces):
    fields = ("dicom.pdu.type", "tcp.checksum.status", "ip.checksum.status", "_ws.malformed", "tcp.analysis.flags", "_ws.col.Info")
    result = run("tshark", "-r", pcap, "-o", "tcp.check_checksum:TRUE", "-o", "ip.check_checksum:TRUE", "-d", "tcp.port==%d,dicom" % port,
                 "-T", "fields", *(word for field in fields for word in ("-e", field)))
    rows = [line.split("\t") for line in result.stdout.decode().splitlines()]
    with open(recorded, "rb") as file:
        count = int.from_bytes(file.read(20)[16:], "little")
    check(len(rows) == count, "%s: tshark has %d packets, not %d" % (name, len(rows), count))
    types = [int(value, 0) for row in rows for value in row[0].split(",") if value]
    check([types.count(kind) for kind in (1, 2, 3, 5, 6, 7)] == [pieces, pieces, 0, pieces, pieces, 0],
          "%s: tshark sees %d whole associations: %s" % (name, pieces, sorted(types)))
    check(all(row[1] == row[2] == "1" for row in rows), name + ": tshark finds every checksum right")
    check(not any(row[3] or row[4] for row in rows), name + ": tshark finds nothing malformed, lost or twice: %s" % [row[3:] for row in rows if row[3] or row[4]])
    infos = " ".join(row[5] for row in rows)
    check(infos.count("C-STORE-RQ") == infos.count("C-STORE-RSP") == messages,
          "%s: tshark has %d requests and %d answers, not %d" % (name, infos.count("C-STORE-RQ"), infos.count("C-STORE-RSP"), messages))


def outwards(folder):
    out, port = os.path.join(folder, "received"), free_port()
    os.mkdir(out)
    with Server(["storescp", "+xa", "+B", "-od", out, port], port):
        result = run(VEXAL, "store", "--config", settings(folder), "--no-convert", "--aet", "OURS", "--aec", "THEIRS", "127.0.0.1", port,
                     *some_samples(6))
        check(result.returncode == 0, "vexal store: " + result.stderr.decode())
    recorded, pcap = os.path.join(folder, "net.cap"), os.path.join(folder, "net.cap.pcap")
    check_capture("vexal store to storescp", recorded, port, arrived(out), ["OURS", "THEIRS"])
    # Two requests of one UID are two objects; what lies in the way of a file is neither followed nor lost.
    again, victim = os.path.join(folder, "again"), os.path.join(folder, "victim")
    os.mkdir(again)
    first, second = some_samples(1)[0], os.path.join(again, "second.dcm")
    check(run(VEXAL, "modify", "--set", "PatientName=Another^One", first, second).returncode == 0, "modify")
    with Server(["storescp", "+xa", "+B", "-od", again, port], port):
        check(run(VEXAL, "store", "--config", os.path.join(folder, "settings", "vexal.ini"), "127.0.0.1", port, first,
                  second).returncode == 0, "vexal store of one UID twice")
    objects, instance = os.path.join(again, "objects"), meta_text(first, 3)
    os.mkdir(objects)
    with open(victim, "w") as file:
        file.write("precious")
    for name in (instance + ".dcm", instance + ".dcm.part"):
        os.symlink(victim, os.path.join(objects, name))
    os.symlink(victim, os.path.join(again, "pcap.part"))
    for n in range(2):  # extracting again adds nothing
        check(run(VEXAL, "capture", "extract", recorded, "-o", objects).returncode == 0, "extract two of one UID")
        found = sorted(data_set(os.path.join(objects, name)) for name in os.listdir(objects) if not os.path.islink(os.path.join(objects, name)))
        check(found == sorted([data_set(first), data_set(second)]), "extract two of one UID: %d files, round %d" % (len(found), n))
    check(run(VEXAL, "capture", "convert", recorded, "-o", os.path.join(again, "pcap")).returncode == 0, "convert beside a link")
    with open(victim) as file:
        check(file.read() == "precious", "a file that a link leads to was written")
    with open(recorded, "rb") as whole, open(os.path.join(folder, "cut.cap"), "wb") as cut:
        cut.write(whole.read()[:-3])
    check(run(VEXAL, "capture", "show", os.path.join(folder, "cut.cap")).returncode == 1, "capture show tells of a cut file")
    check(run(VEXAL, "capture", "show", pcap).returncode == 1, "capture show refuses other files")


def storescu(port, files, title="THEIRS"):
    result = run("storescu", "-R", "-aet", title, "-aec", "OURS", "127.0.0.1", port, *files)
    check(result.returncode == 0, "storescu: " + result.stderr.decode())


def inwards(folder):
    out, port = os.path.join(folder, "received"), free_port()
    with Server([VEXAL, "receive", port, "--dir", out, "--aet", "OURS", "--config", settings(folder, IP_TYPE="IPV4")], port):
        storescu(port, some_samples(4)[:2])
        storescu(port, some_samples(4)[2:])
    check_capture("storescu to vexal receive", os.path.join(folder, "net.cap"), port, arrived(out), ["OURS", "THEIRS"], pieces=2)


def rotation(folder):
    """Three connections at once take the files of three earlier ones, one each."""
    out, port = os.path.join(folder, "received"), free_port()
    ini = settings(folder, IP_TYPE="IPV4", NUMBER_OF_CAP_FILES=3, CAPTURE_FILE_SIZE=100000, REWRITE_CAPTURE_FILES="Yes")
    samples = some_samples(9)
    with Server([VEXAL, "receive", port, "--dir", out, "--aet", "OURS", "--config", ini], port):
        for part in range(2):
            storescu(port, samples[part::3], "EARLIER")
        with concurrent.futures.ThreadPoolExecutor() as pool:
            list(pool.map(lambda part: storescu(port, samples[part::3], "T%dPEER" % part), range(3)))
    files = sorted(glob.glob(os.path.join(folder, "net*.cap")))
    check([os.path.basename(path) for path in files] == ["net001.cap", "net002.cap", "net003.cap"], "rotation: files %s" % files)
    received, seen = arrived(out), set()
    for path in files:
        text = run(VEXAL, "capture", "show", "--phi", path).stdout.decode()
        part = next((n for n in range(3) if "calling=T%dPEER" % n in text), None)
        check(part is not None and "EARLIER" not in text, "rotation: %s holds a connection of the last three: %s" % (path, text[:300]))
        if part is None:
            continue
        seen.add(part)
        names = {meta_text(sample, 3) for sample in samples[part::3]}
        check_capture("rotation, " + os.path.basename(path), path, port, {name: received[name] for name in names}, ["T%dPEER" % part])
    check(seen == {0, 1, 2}, "rotation: each connection has a file: %s" % seen)


def secure(folder):
    if not has("openssl", "TLS"):
        return
    keys = network.make_certificates(folder)
    words = ["--tls", "--tls-cert", keys["node.pem"], "--tls-key", keys["node.key"], "--tls-ca", keys["ca.pem"]]
    out, port = os.path.join(folder, "received"), free_port()
    with Server([VEXAL, "receive", port, "--dir", out, "--aet", "THEIRS", *words], port):
        result = run(VEXAL, "store", "--config", settings(folder, IP_TYPE="IPV4"), "--no-convert", "--aet", "OURS", "--aec", "THEIRS",
                     "127.0.0.1", port, *words, *some_samples(3))
    check(result.returncode == 0 and b"records secure traffic in plaintext" in result.stderr, "TLS: a warning: " + result.stderr.decode())
    check_capture("TLS", os.path.join(folder, "net.cap"), port, arrived(out), ["OURS", "THEIRS"])


if __name__ == "__main__":
    sys.exit(run_parts(outwards, inwards, rotation, secure))
