#!/usr/bin/env python3
"""What vexal deidentify leaves of identifying values, and what other people's programs make of its files.

usage: deidentification.py VEXAL SAMPLES
No value of an attribute that the profile touches may stand anywhere in the bytes of a result; dcmtk, gdcm and pydicom read
them; vexal validate finds no error that the input did not have. gdcmanon beside it: what does each leave?
Exit 77 (skipped) where something is missing.
"""
import json
import os
import re
import struct
import sys
import warnings

import checks
from checks import VEXAL, Vexal, check, data_set_of, ended, files_under, has, left_out, meta_text, need, paths, read, run, run_parts, valid_samples, vexal, write
import made

need("dcmdump", modules=["pydicom", "numpy"])
import pydicom

warnings.simplefilter("ignore")
HERE = os.path.dirname(os.path.abspath(__file__))
ROWS = {}
for row in read(os.path.join(HERE, "..", "..", "data", "confidentiality.tsv")).decode().splitlines():
    if re.match(r"[0-9A-F]{4},[0-9A-F]{4}\t", row):
        ROWS[int(row[:4] + row[5:9], 16)] = row.split("\t")[1]
UIDS = {line.split("\t")[0] for line in read(os.path.join(HERE, "..", "..", "data", "uids.tsv")).decode().splitlines()}
WORDS = {"ANONYMIZED", "UNKNOWN", "NONE", "YES", "OTHER"}


def identifying(path):
    """Bytes of four letters and more that stand in attributes of the table, with the tag; values that also stand elsewhere
    in the file, such as a code or a class, tell nothing."""
    found, harmless = {}, set()

    def walk(dataset):
        for element in dataset:
            if element.VR == "SQ":
                for item in element.value:
                    walk(item)
                continue
            if element.VR in ("OB", "OW", "OF", "OD", "UN", "AT", "US", "SS", "UL", "SL", "FL", "FD"):
                continue
            raw = dataset.get_item(element.tag).value
            values = raw.split(b"\\") if isinstance(raw, bytes) else str(raw).encode("latin-1", "replace").split(b"\\")
            for value in values:
                value = value.strip(b" \0")
                listed = element.tag in ROWS or element.tag.is_private or element.VR == "PN"
                if listed and len(value) >= 4 and value.decode("latin-1") not in UIDS and value.decode("latin-1").upper() not in WORDS:
                    found[value] = element.tag
                elif not listed:
                    harmless.add(value)

    dataset = pydicom.dcmread(path, force=True)
    walk(dataset.file_meta)
    walk(dataset)
    return {value: tag for value, tag in found.items() if not any(value in other for other in harmless)}


def identifying_or_none(path):
    try:
        return identifying(path)
    except Exception:  # what pydicom can not read is no input of this test
        return {}


def plain_bytes(path):
    """The data set in explicit little endian, so that deflated and swapped values can be seen."""
    plain = path + ".plain"
    return read(plain) if run(VEXAL, "convert", "--to", "explicit", path, plain).returncode == 0 else b""


def leaks(before, after):
    content = read(after) + (plain_bytes(after) if meta_text(after, 0x10) == made.DEFLATED else b"")
    pixels = content.find(b"\xe0\x7f\x10\x00")  # by chance, pixels read like short values
    head = content[:pixels] if pixels > 0 else content
    # Digits of a date or time may stand in those of a UID.
    number = {value: re.compile(rb"(?<![0-9.])" + re.escape(value) + rb"(?![0-9.])") for value in before if re.fullmatch(rb"[0-9.]{4,8}", value)}
    return {value: tag for value, tag in before.items()
            if (number[value].search(head) if value in number else value in (head if len(value) < 8 else content))}


def samples(folder):
    """Each sample on its own, so that its result is known."""
    done, refused = {}, []
    for number, (name, path) in enumerate(valid_samples()):
        out = os.path.join(folder, str(number))
        result = run(VEXAL, "deidentify", path, "-o", out, "--documents", "replace", "--burned-in", "keep", "--key", os.path.join(folder, "key"))
        if name.endswith("DICOMDIR") or result.returncode != 0:
            refused.append((name, result.stderr.decode(errors="replace").strip()))
            continue
        done[name] = (path, files_under(out)[0])
    return done, refused


def nothing_is_left(folder):
    done, refused = samples(folder)
    for name, why in refused:
        check(any(words in why for words in ("DICOMDIR", "directory", "no SOP Instance UID", "no rules", "not hold", "128 levels")) or name.endswith("DICOMDIR"),
              "%s: refused: %s" % (name, why.splitlines()[-1:]))
    check(len(done) > 100 or not checks.REAL_SAMPLES, "only %d samples were de-identified, refused: %s" % (len(done), refused))
    for name, (before, after) in done.items():
        left = leaks(identifying_or_none(before), after)
        check(not left, "%s: left: %s" % (name, {str(tag): value for value, tag in left.items()}))
        check(meta_text(after, 3) in os.path.basename(after), name + ": is not named by its instance")
        for reader in (["dcmdump", "-q"], ["gdcmdump"]):
            if run(*reader, before).returncode == 0:
                ended(run(*reader, after), "%s: %s" % (name, reader[0]))
        if meta_text(after, 0x10).startswith("1.2.840.10008.1.2.4.95"):
            continue  # pydicom does not inflate it
        data = pydicom.dcmread(after, force=True)
        check(data.PatientIdentityRemoved == "YES" and data.DeidentificationMethodCodeSequence[0].CodeValue == "113100", name + ": tells nothing of it")
        new = errors(after) - errors(before)
        check(not new, "%s: new errors: %s" % (name, sorted(new)))


def errors(path):
    result = run(VEXAL, "validate", "--json", "--level", "errors", path)
    try:
        found = json.loads(result.stdout.splitlines()[0])["findings"]
    except (IndexError, KeyError, ValueError):
        return set()
    return {(re.sub(r"\[\d+\]", "[]", str(one.get("path"))), str(one.get("status") or one.get("text") or one.get("rule"))) for one in found}


def beside_others(folder):
    """What gdcmanon leaves of the same values; a table, not a judgement."""
    if not has("gdcmanon", "gdcmanon beside it"):
        return
    run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=x", "-keyout", folder + "/k.pem", "-out",
        folder + "/c.pem")
    counts = {}
    for name, path in valid_samples():
        before = identifying_or_none(path)
        theirs = os.path.join(folder, "theirs.dcm")
        if not before or run("gdcmanon", "-e", "-c", folder + "/c.pem", path, theirs).returncode != 0:
            continue
        for value, tag in leaks(before, theirs).items():
            counts[str(tag)] = counts.get(str(tag), 0) + 1
        os.remove(theirs)
    print("gdcmanon leaves, by attribute: " + ", ".join("%s %d" % row for row in sorted(counts.items(), key=lambda row: -row[1])[:20]))


def a_set(folder):
    """Relations hold within a run, and with a key from run to run; a DICOMDIR is made anew."""
    source = os.path.join(folder, "in")
    made_files = []
    for number in range(4):
        w = made.Writer()
        data = made.head(w, number=number + 1, patient="SECRET%d" % (number // 2), name=b"SECRET^NAME") + made.tail(w, study=number // 2 + 1, number=number)
        made_files.append(write(os.path.join(source, "SECRET%d" % number), w.file(data)))
    vexal("dir", "create", os.path.join(source, "DICOMDIR"), *made_files)
    first, second, other = paths(folder, "first", "second", "other")
    key, report = paths(folder, "key", "report")
    vexal("deidentify", source, "-o", first, "--key", key, "--report", report)
    check(os.stat(key).st_mode & 0o777 == 0o600, "the key is for others too")
    vexal("deidentify", source, "-o", second, "--key", key, "--threads", "1")
    vexal("deidentify", source, "-o", other)
    names = [[os.path.relpath(path, out) for path in files_under(out)] for out in (first, second, other)]
    check(names[0] == names[1] and not set(names[0][1:]) & set(names[2]) - {"DICOMDIR"}, "names: %s" % names)
    vexal("dir", "check", os.path.join(first, "DICOMDIR"))
    objects = [pydicom.dcmread(path) for path in files_under(first) if not path.endswith("DICOMDIR")]
    check(len(objects) == 4 and len({o.PatientID for o in objects}) == 2 and len({o.StudyInstanceUID for o in objects}) == 2,
          "patients and studies are not kept apart: %s" % [o.PatientID for o in objects])
    for path in files_under(folder):
        check(path.startswith(source) or b"SECRET" not in read(path), "SECRET is left in " + path)
    lines = [json.loads(line) for line in read(report).splitlines()]
    check(any(line["path"] == "00100010" and line["action"] == "D" and "value" not in line for line in lines), "the report: %s" % lines[:2])
    vexal("deidentify", source, "-o", second, "--report", report, "--report-values")
    check(b'"value":"SECRET^NAME"' in read(report), "the report has no values")


def document(folder):
    w = made.Writer()
    pdf = "1.2.840.10008.5.1.4.1.1.104.1"
    return write(folder + "/document", w.file(made.head(w, sop_class=pdf) + made.tail(w) + w.element(0x00420011, "OB", b"%PDF SECRET "), sop_class=pdf))


def refusals(folder):
    w = made.Writer()
    plain = write(folder + "/plain", w.file(made.head(w) + made.tail(w)))
    w = made.Writer()
    burned = write(folder + "/burned", w.file(made.head(w) + made.tail(w) + w.numbers(0x00280010, "US", 2) + w.numbers(0x00280011, "US", 2) +
                                              w.text(0x00280301, "CS", "YES") + w.element(0x7FE00010, "OB", b"\1\2\3\4")))
    w = made.Writer()
    strange = write(folder + "/strange", w.file(made.head(w, sop_class="1.2.3.4") + made.tail(w), sop_class="1.2.3.4"))
    out = os.path.join(folder, "out")
    for words, status, says in (
            ([burned], 1, "--burned-in keep"), ([burned, "--burned-in", "keep"], 0, ""), ([strange], 1, "--unknown-class"),
            ([strange, "--unknown-class", "by-table"], 0, ""), ([document(folder)], 1, "--documents"), ([document(folder), "--documents", "replace"], 0, ""),
            ([write(folder + "/no", b"no file")], 1, ""), ([plain, "--key", write(folder + "/short", b"short")], 2, "too short"),
            ([plain, "--secret", "short"], 2, "16"), ([plain, "--retain-full-dates", "--shift-dates", "3"], 2, "not both"),
            ([plain, "--blank", "1,2,3"], 2, "X,Y,W,H"), ([plain, "--shift-dates", "0"], 2, "full-dates"), ([folder + "/nowhere"], 2, "")):
        before = files_under(out)
        vexal("deidentify", *words, "-o", out, status=status, says=says)
        check((files_under(out) != before) == (status == 0), "%s: files are %s" % (words, files_under(out)))


SECRET = ("--secret", "a secret of this test")
ULTRASOUND = "1.2.840.10008.5.1.4.1.1.6.1"
ROWS_OF_IMAGE, COLUMNS = 20, 30


def image(path, bits=8, samples=1, planes=0, photometric="MONOCHROME2", signed=0, frames=1, regions=(), syntax=made.EXPLICIT):
    """An image of numbers that are nowhere black."""
    w = made.Writer(syntax)
    code = {8: "B", 16: "h" if signed else "H", 32: "I"}[bits]
    count = ROWS_OF_IMAGE * COLUMNS * samples * frames
    pixels = struct.pack(w.order + "%d%s" % (count, code), *(1 + i % 100 for i in range(count)))
    data = made.head(w, sop_class=ULTRASOUND, modality="US" if regions else "OT", name=b"SECRET^NAME")
    data += w.sequence(0x00186011, [b"".join(w.numbers(0x00186018 + 2 * i, "UL", edge) for i, edge in enumerate(region)) for region in regions]) if regions else b""
    data += made.tail(w) + w.numbers(0x00280002, "US", samples) + w.text(0x00280004, "CS", photometric)
    data += (w.numbers(0x00280006, "US", planes) if samples > 1 else b"") + w.text(0x00280008, "IS", str(frames))
    for tag, value in ((0x00280010, ROWS_OF_IMAGE), (0x00280011, COLUMNS), (0x00280100, bits), (0x00280101, bits), (0x00280102, bits - 1), (0x00280103, signed)):
        data += w.numbers(tag, "US", value)
    return write(path, w.file(data + w.element(0x7FE00010, "OB" if bits == 8 else "OW", pixels), sop_class=ULTRASOUND))


def pixels_of(path, folder):
    plain = os.path.join(folder, "plain-pixels")
    vexal("convert", "--to", "explicit", path, plain)
    data = pydicom.dcmread(plain)
    return data.pixel_array.reshape(int(data.NumberOfFrames), ROWS_OF_IMAGE, COLUMNS, -1)


def blanked(folder):
    """The region is black in each frame, and nothing else changes where nothing is lost."""
    kinds = {"grey": {}, "negative": {"photometric": "MONOCHROME1"}, "signed": {"bits": 16, "signed": 1}, "long": {"bits": 32}, "frames": {"frames": 3},
             "colour": {"samples": 3, "photometric": "RGB"}, "planes": {"samples": 3, "photometric": "RGB", "planes": 1, "frames": 2},
             "big": {"bits": 16, "syntax": made.BIG}, "deflated": {"syntax": made.DEFLATED}, "large": {"bits": 32, "frames": 60}}
    black = {"negative": 255, "signed": -32768}
    for name, kind in kinds.items():
        whole = image(os.path.join(folder, name), **kind)
        forms = {"": whole}
        for syntax in ("rle", "jpeg-ls", "jpeg2000", "jpeg-lossless") if name in ("grey", "frames", "colour") else ():
            forms[syntax] = os.path.join(folder, name + syntax)
            vexal("convert", "--to", syntax, whole, forms[syntax])
        for syntax, path in forms.items():
            out = os.path.join(folder, "out-" + name + syntax)
            vexal("deidentify", path, "-o", out, "--blank", "2,3,5,4", "--blank", "28,18,9,9")
            result = files_under(out)[0]
            before, after = pixels_of(path, folder), pixels_of(result, folder)
            before[:, 3:7, 2:7] = before[:, 18:, 28:] = black.get(name, 0)
            check((before == after).all(), "%s %s: other pixels are black" % (name, syntax))
            check(meta_text(result, 0x10) == meta_text(path, 0x10), "%s %s: has another syntax" % (name, syntax))
            data = pydicom.dcmread(result)
            check(data.BurnedInAnnotation == "NO" and [c.CodeValue for c in data.DeidentificationMethodCodeSequence] == ["113100", "113101"],
                  "%s %s: does not tell of it" % (name, syntax))
    lossy = os.path.join(folder, "lossy.dcm")
    vexal("convert", "--to", "jpeg", os.path.join(folder, "grey"), lossy)
    vexal("deidentify", lossy, "-o", folder + "/out-lossy", "--blank", "0,0,16,16", *SECRET)
    result = files_under(folder + "/out-lossy")[0]
    data = pydicom.dcmread(result)
    check(data.LossyImageCompression == "01" and len(data.LossyImageCompressionMethod) == 2, "a second loss is not told")
    check(pixels_of(result, folder)[0, :8, :8].max() < 5, "a lossy image is not black")
    vexal("deidentify", lossy, "-o", folder + "/again", "--blank", "0,0,16,16", *SECRET)
    check(os.listdir(folder + "/again") == os.listdir(folder + "/out-lossy"), "its instance is not what the secret says")
    regions = image(os.path.join(folder, "regions"), regions=((4, 5, 9, 8), (20, 0, 29, 2)))
    vexal("deidentify", regions, "-o", folder + "/out-regions", "--blank-ultrasound", "--blank", "4,5,1,1")
    kept = pixels_of(files_under(folder + "/out-regions")[0], folder)[0, :, :, 0] != 0
    check(kept.sum() == 6 * 4 + 10 * 3 - 1 and kept[5:9, 4:10].sum() == 23, "ultrasound regions: %d pixels stay" % kept.sum())
    vexal("deidentify", os.path.join(folder, "grey"), "-o", folder + "/out-other", "--blank-ultrasound")
    check((pixels_of(files_under(folder + "/out-other")[0], folder) != 0).all(), "what is no ultrasound is blanked")


def on_the_way(folder):
    """store and receive with --deidentify give what deidentify gives."""
    plain = image(os.path.join(folder, "plain"))
    vexal("deidentify", plain, "-o", folder + "/right", *SECRET)
    vexal("deidentify", plain, "-o", folder + "/right-black", "--blank", "0,0,9,9", *SECRET)
    refused = document(folder)
    cases = (((), ("--deidentify", *SECRET), "right"), ((), ("--deidentify", "--blank", "0,0,9,9", *SECRET), "right-black"),
             (("--deidentify", *SECRET), (), "right"), (("--deidentify", "--blank", "0,0,9,9", *SECRET), (), "right-black"))
    for number, (of_server, of_client, expected) in enumerate(cases):
        got = os.path.join(folder, "got%d" % number)
        with Vexal("receive", got, *of_server) as server:
            vexal("store", "127.0.0.1", server.port, plain, *of_client)
            vexal("store", "127.0.0.1", server.port, refused, *of_client, status=1)
        right = files_under(os.path.join(folder, expected))[0]
        check(os.listdir(got) == [os.path.basename(right)], "%s %s: %s" % (of_server, of_client, os.listdir(got)))
        check(all(data_set_of(path) == data_set_of(right) and b"SECRET" not in read(path) for path in files_under(got)),
              "%s %s: another object" % (of_server, of_client))
    vexal("store", "127.0.0.1", "104", plain, "--blank", "0,0,9,9", status=2, says="--deidentify")


if __name__ == "__main__":
    sys.exit(run_parts(nothing_is_left, beside_others, a_set, refusals, blanked, on_the_way, chosen=sys.argv[3:]))
