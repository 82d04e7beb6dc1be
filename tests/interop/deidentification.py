#!/usr/bin/env python3
"""What vexal deidentify leaves of identifying values, and what other people's programs make of its files.

usage: deidentification.py VEXAL SAMPLES
No value of an attribute that the profile touches may stand anywhere in the bytes of a result; dcmtk, gdcm and pydicom read
them; vexal validate finds no error that the input did not have. gdcmanon and Orthanc beside it: what do they leave?
Exit 77 (skipped) where something is missing.
"""
import json
import os
import re
import struct
import sys
import urllib.request
import warnings

import checks
from checks import VEXAL, Vexal, check, data_set_of, ended, files_under, has, meta_text, need, paths, read, run, run_parts, valid_samples, vexal, write
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
SECRET = ("--secret", "a secret of this test")
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


def samples(folder, *options):
    """Before and after of each valid sample, and the reasons of those that were refused."""
    out, report = paths(folder, "out", "report")
    sources = {path: name for name, path in valid_samples() if not name.endswith("DICOMDIR")}
    result = run(VEXAL, "deidentify", *sources, "-o", out, "--documents", "replace", "--burned-in", "keep", "--report", report, "--report-values",
                 *SECRET, *options, timeout=600)
    check(result.returncode == 1, "all samples at once: ends with %d" % result.returncode)
    pairs = {line["from"]: line["file"] for line in map(json.loads, read(report).splitlines())}
    refused = [line for line in result.stderr.decode(errors="replace").splitlines() if line.endswith(": not written")]
    check(len(pairs) + len(refused) == len(sources), "%d samples, %d results, %d refused" % (len(sources), len(pairs), len(refused)))
    return {sources[before]: (before, after) for before, after in pairs.items()}, refused


def nothing_is_left(folder):
    cleaned = ("--clean-descriptors", "--clean-structured-content", "--clean-graphics", "--retain-modified-dates", "--retain-safe-private")
    for number, options in enumerate(((), cleaned)):
        look_at_samples(os.path.join(folder, str(number)), options)


def look_at_samples(folder, options):
    os.mkdir(folder)
    done, refused = samples(folder, *options)
    for why in refused:
        check(any(words in why for words in ("directory", "no SOP Instance UID", "no rules", "not hold", "Invalid value")), why)
    check(len(done) > 100 or not checks.REAL_SAMPLES, "only %d samples were de-identified" % len(done))
    were, are = errors([pair[0] for pair in done.values()]), errors([pair[1] for pair in done.values()])
    for name, (before, after) in done.items():
        title = "%s %s" % (name, "cleaned" if options else "")
        kept = {0x00080030, 0x00080031, 0x00080032, 0x00080033, 0x00080201} if options else set()  # times and zones stay with moved dates
        left = {str(tag): value for value, tag in leaks(identifying_or_none(before), after).items()
                if not (options and (tag in kept or tag.is_private or pydicom.datadict.dictionary_has_tag(tag) and pydicom.datadict.dictionary_VR(tag) == "TM"))}
        check(not left, "%s: left: %s" % (title, left))
        check(meta_text(after, 3) in os.path.basename(after), title + ": is not named by its instance")
        for reader in (["dcmdump", "-q"], ["gdcmdump"]) if not options else ():
            if run(*reader, before).returncode == 0:
                ended(run(*reader, after), "%s: %s" % (title, reader[0]))
        new = are.get(after, set()) - were.get(before, set())
        check(not new, "%s: new errors: %s" % (title, sorted(new)))
        if meta_text(after, 0x10).startswith("1.2.840.10008.1.2.4.95"):
            continue  # pydicom does not inflate it
        data = pydicom.dcmread(after, force=True)
        check(data.PatientIdentityRemoved == "YES" and data.DeidentificationMethodCodeSequence[0].CodeValue == "113100", title + ": tells nothing of it")


def errors(files):
    """What validate finds, by file: places and kinds."""
    found = {}
    for line in run(VEXAL, "validate", "--json", "--level", "errors", *files, timeout=600).stdout.splitlines():
        row = json.loads(line)
        if "file" in row:
            found[row["file"]] = {(re.sub(r"\[\d+\]", "[]", str(one.get("path"))), str(one.get("status"))) for one in row["findings"]}
    return found


def beside_others(folder):
    """What others leave of the same values; a table, not a judgement."""
    files = [(path, identifying_or_none(path)) for name, path in valid_samples() if not name.endswith("DICOMDIR")]
    files = [(path, before) for path, before in files if before]
    theirs = os.path.join(folder, "theirs.dcm")
    if has("gdcmanon", "gdcmanon beside it") and has("openssl", "gdcmanon beside it"):
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=x", "-keyout", folder + "/k.pem", "-out",
            folder + "/c.pem")
        tell_of_others("gdcmanon", files, lambda path: theirs if run("gdcmanon", "-e", "-c", folder + "/c.pem", path, theirs).returncode == 0 else None)
    if not has("Orthanc", "Orthanc beside it"):
        return
    web, dicom = checks.free_port(), checks.free_port()
    config = write(folder + "/orthanc.json", json.dumps({"HttpPort": web, "DicomPort": dicom, "StorageDirectory": folder + "/store", "IndexDirectory":
                   folder + "/store", "RemoteAccessAllowed": False, "AuthenticationEnabled": False, "Plugins": [], "OverwriteInstances": True}))

    def ask(where, body):
        request = urllib.request.Request("http://127.0.0.1:%d%s" % (web, where), data=body)
        with urllib.request.urlopen(request, timeout=60) as answer:
            return answer.read()

    def orthanc(path):
        try:
            instance = json.loads(ask("/instances", read(path)))["ID"]
            return write(theirs, ask("/instances/%s/anonymize" % instance, b"{}"))
        except (OSError, KeyError, TypeError):
            return None
    with checks.Server("Orthanc", config, port=web):
        tell_of_others("Orthanc", files, orthanc)


def tell_of_others(who, files, change):
    counts, done, with_some = {}, 0, 0
    for path, before in files:
        result = change(path)
        if result is None:
            continue
        left = leaks(before, result)
        done, with_some = done + 1, with_some + bool(left)
        for tag in left.values():
            counts[tag] = counts.get(tag, 0) + 1
    private = sum(count for tag, count in counts.items() if tag.is_private)
    public = sorted((row for row in counts.items() if not row[0].is_private), key=lambda row: -row[1])
    print("%s leaves values in %d of %d files: %d private ones, and %s" % (who, with_some, done, private, ", ".join(
        "%s %d" % (pydicom.datadict.keyword_for_tag(tag), count) for tag, count in public[:15]) or "no others"))
    check(done > 0, who + " changed nothing")


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
    # Into a folder that has a DICOMDIR: those of before stay in it.
    vexal("deidentify", source, "-o", first)
    listed = run(VEXAL, "dir", "list", os.path.join(first, "DICOMDIR")).stdout.decode()
    check(all(path[-8:] in listed for path in files_under(os.path.join(first, "IMAGES"))) and listed.count("IMAGE ") == 8, "not all are listed: " + listed)
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
    w = made.Writer()
    overlaid = write(folder + "/overlaid", w.file(made.head(w) + made.tail(w) + w.numbers(0x00280010, "US", 2) + w.numbers(0x00280011, "US", 2) +
                                                  w.numbers(0x60020010, "US", 2) + w.numbers(0x60020102, "US", 7) + w.element(0x7FE00010, "OB", b"\1\2\3\4")))
    w = made.Writer()
    floating = write(folder + "/floating", w.file(made.head(w) + made.tail(w) + w.element(0x7FE00008, "OF", bytes(16))))
    misnamed = write(folder + "/misnamed/DICOMDIR", read(plain))
    vexal("deidentify", plain, "-o", folder, status=2, says="lies in the folder")
    out = os.path.join(folder, "out")
    for words, status, says in (
            ([burned], 1, "--burned-in keep"), ([burned, "--burned-in", "keep"], 0, ""), ([strange], 1, "--unknown-class"),
            ([strange, "--unknown-class", "by-table"], 0, ""), ([document(folder)], 1, "--documents"), ([document(folder), "--documents", "replace"], 0, ""),
            ([overlaid], 1, "an overlay among the bits"), ([overlaid, "--burned-in", "keep"], 0, ""), ([floating, "--blank", "0,0,1,1"], 1, "floating point"),
            ([image(folder + "/small"), "--blank", "30,0,1,1"], 1, "lies outside"), ([misnamed], 0, ""), ([write(folder + "/broken/DICOMDIR", b"DICM")], 1, ""),
            ([write(folder + "/no", b"no file")], 1, ""), ([plain, "--key", write(folder + "/short", b"short")], 2, "too short"),
            ([plain, "--secret", "short"], 2, "16"), ([plain, "--retain-full-dates", "--shift-dates", "3"], 2, "not both"),
            ([plain, "--blank", "1,2,3"], 2, "X,Y,W,H"), ([plain, "--shift-dates", "0"], 2, "full-dates"), ([folder + "/nowhere"], 2, "")):
        before = files_under(out)
        vexal("deidentify", *words, "-o", out, status=status, says=says)
        check((files_under(out) != before) == (status == 0), "%s: files are %s" % (words, files_under(out)))


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


def comments(folder):
    """What compressed streams tell beside their pixels goes, and the pixels stay."""
    plain = image(os.path.join(folder, "plain"))
    for syntax, where in (("jpeg", b"\xff\xdb"), ("jpeg-lossless", b"\xff\xc4"), ("jpeg-ls", b"\xff\xf7"), ("jpeg2000", b"\xff\x90")):
        path = os.path.join(folder, syntax)
        vexal("convert", "--to", syntax, plain, path)
        data = pydicom.dcmread(path)
        stream = next(pydicom.encaps.generate_pixel_data_frame(data.PixelData))
        note = b"\xff\x64\0\x10\0\1SECRET TEXT!" if syntax == "jpeg2000" else b"\xff\xfe\0\x0eSECRET TEXT!\xff\xe1\0\x0eExif\0\0SECRET"
        data.PixelData = pydicom.encaps.encapsulate([stream.replace(where, note + where, 1)])
        data.save_as(path)
        check(b"SECRET TEXT" in read(path), syntax + ": there is no comment")
        vexal("deidentify", path, "-o", path + "-out")
        result = files_under(path + "-out")[0]
        check(b"SECRET" not in read(result), syntax + ": a comment is left")
        check((pixels_of(result, folder) == pixels_of(path, folder)).all(), syntax + ": its pixels are others")


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
            if not number:  # nothing has to be laid down for it
                vexal("store", "127.0.0.1", server.port, plain, *of_client, env={"TMPDIR": folder + "/nowhere"})
        right = files_under(os.path.join(folder, expected))[0]
        check(os.listdir(got) == [os.path.basename(right)], "%s %s: %s" % (of_server, of_client, os.listdir(got)))
        check(all(data_set_of(path) == data_set_of(right) and b"SECRET" not in read(path) for path in files_under(got)),
              "%s %s: another object" % (of_server, of_client))
    vexal("store", "127.0.0.1", "104", plain, "--blank", "0,0,9,9", status=2, says="--deidentify")


if __name__ == "__main__":
    sys.exit(run_parts(nothing_is_left, beside_others, a_set, refusals, blanked, comments, on_the_way, chosen=sys.argv[3:]))
