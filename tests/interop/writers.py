"""Objects that public programs write: images, documents, models, reports, presentation states and volumes."""
import base64
import contextlib
import json
import os
import re
import struct
import subprocess
import time
import urllib.error
import urllib.request
import zlib

from checks import free_port, read, run, valid_samples, write

SIDE = 8
CLASSES = ("1.2.840.10008.5.1.4.1.1.2", "1.2.840.10008.5.1.4.1.1.4", "1.2.840.10008.5.1.4.1.1.7", "1.2.840.10008.5.1.4.1.1.6.1",
           "1.2.840.10008.5.1.4.1.1.1", "1.2.840.10008.5.1.4.1.1.7.2", "1.2.840.10008.5.1.4.1.1.77.1.4")


def bitmap():
    pixels = bytes(range(SIDE * 3)) * SIDE
    return b"BM" + struct.pack("<IHHIIiiHHIIiiII", 54 + len(pixels), 0, 0, 54, 40, SIDE, SIDE, 1, 24, 0, len(pixels), 2835, 2835, 0, 0) + pixels


def png():
    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))
    rows = b"".join(b"\0" + bytes(range(SIDE)) for _ in range(SIDE))
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", SIDE, SIDE, 8, 0, 0, 0, 0)) + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b"")


def volume():
    """A NIfTI file of 16-bit numbers."""
    head = bytearray(352)
    struct.pack_into("<i", head, 0, 348)
    struct.pack_into("<8h", head, 40, 3, SIDE, SIDE, 2, 1, 1, 1, 1)
    struct.pack_into("<hh", head, 70, 4, 16)
    struct.pack_into("<8f", head, 76, 1, 1, 1, 1, 1, 1, 1, 1)
    struct.pack_into("<ff", head, 108, 352, 1)
    struct.pack_into("<h", head, 254, 1)
    struct.pack_into("<12f", head, 280, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0)
    head[344:348] = b"n+1\0"
    return bytes(head) + struct.pack("<%dh" % (SIDE * SIDE * 2), *range(SIDE * SIDE * 2))


CDA = b"""<?xml version="1.0"?><ClinicalDocument xmlns="urn:hl7-org:v3"><id root="1.2.3" extension="4"/>
<code code="34133-9" codeSystem="2.16.840.1.113883.6.1" displayName="Summary"/><title>Summary</title>
<effectiveTime value="20240101"/><recordTarget><patientRole><id extension="ID1" root="1.2.3.5"/><patient><name><given>Jane</given>
<family>Doe</family></name><administrativeGenderCode code="F"/><birthTime value="19700101"/></patient></patientRole></recordTarget>
</ClinicalDocument>"""
STL = bytes(80) + struct.pack("<I", 1) + struct.pack("<12fH", 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0)


def dcmtk(folder, source):
    bmp, pdf, cda, stl = (write(os.path.join(source, name), body) for name, body in (
        ("a.bmp", bitmap()), ("a.pdf", b"%PDF-1.4\n1 0 obj<</Type/Catalog>>endobj\ntrailer<</Root 1 0 R>>\n%%EOF\n"), ("a.xml", CDA), ("a.stl", STL)))
    for kind in ("-sc", "-nsc", "-vlp", "-oph"):
        run("img2dcm", "-i", "BMP", kind, bmp, os.path.join(folder, "img2dcm%s.dcm" % kind))
    run("pdf2dcm", pdf, os.path.join(folder, "pdf2dcm.dcm"))
    run("cda2dcm", cda, os.path.join(folder, "cda2dcm.dcm"))
    run("stl2dcm", "+mn", "Maker", "+mm", "Model", "+ds", "1", "+sv", "1", stl, os.path.join(folder, "stl2dcm.dcm"))


def dcmtk_from_samples(folder, source):
    for name, path in valid_samples():
        base = name.replace("/", "-")
        if name.startswith("sr/"):
            xml = os.path.join(source, base + ".xml")
            run("dsr2xml", path, xml)
            run("xml2dsr", xml, os.path.join(folder, "xml2dsr-" + base))
        if re.match("(pix|obj)/", name):
            for program, *options in (("dcmpsmk",), ("dcmscale", "+Sxf", "0.5"), ("dcmquant",), ("dcmcjpeg", "+eb"), ("dcmcjpls",), ("gdcmconv", "--jpeg")):
                run(program, *options, path, os.path.join(folder, "%s-%s" % (program, base)))


def others(folder, source):
    pgm = write(os.path.join(source, "a.pgm"), b"P5\n%d %d\n255\n" % (SIDE, SIDE) + bytes(SIDE * SIDE))
    for sop_class in CLASSES:
        run("gdcmimg", "-C", sop_class, pgm, os.path.join(folder, "gdcmimg-%s.dcm" % sop_class.rsplit(".", 1)[1]))
    nii = write(os.path.join(source, "a.nii"), volume())
    for modality in ("MR", "CT", "SC"):
        made = os.path.join(source, modality)
        run("niftitodicom", "--modality", modality, "-o", made, nii)
        for at, name in enumerate(sorted(os.listdir(made)) if os.path.isdir(made) else []):
            os.rename(os.path.join(made, name), os.path.join(folder, "niftitodicom-%s-%d.dcm" % (modality, at)))


def orthanc(folder, source):
    port = free_port()
    config = write(os.path.join(source, "orthanc.json"), json.dumps({
        "HttpPort": port, "DicomServerEnabled": False, "AuthenticationEnabled": False, "RemoteAccessAllowed": False,
        "StorageDirectory": os.path.join(source, "db"), "IndexDirectory": os.path.join(source, "db")}))
    server = subprocess.Popen(["Orthanc", config], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def ask(path, body=None):
        return urllib.request.urlopen("http://127.0.0.1:%d%s" % (port, path), body, timeout=20).read()
    try:
        for _ in range(100):
            try:
                ask("/system")
                break
            except urllib.error.URLError:
                time.sleep(0.1)
        image = "data:image/png;base64," + base64.b64encode(png()).decode()
        document = "data:application/pdf;base64," + base64.b64encode(b"%PDF-1.4\n%%EOF\n").decode()
        for name, content in (("png", image), ("pdf", document)):
            tags = {"PatientName": "Doe^Jane", "PatientID": "1", "StudyDescription": "made"}
            made = json.loads(ask("/tools/create-dicom", json.dumps({"Tags": tags, "Content": content}).encode()))
            write(os.path.join(folder, "orthanc-%s.dcm" % name), ask("/instances/%s/file" % made["ID"]))
        for name, path in valid_samples():
            if re.match("(pix|obj)/", name):
                with contextlib.suppress(urllib.error.HTTPError):  # what it does not take
                    stored = json.loads(ask("/instances", read(path)))
                    write(os.path.join(folder, "orthanc-anonymized-" + name.replace("/", "-")), ask("/instances/%s/anonymize" % stored["ID"], b"{}"))
    finally:
        server.terminate()
        server.wait(20)


def objects(folder):
    """Writes them; programs that are not there or refuse leave theirs out."""
    source = os.path.join(folder, "source")
    made = os.path.join(folder, "made")
    os.makedirs(source)
    os.makedirs(made)
    for part in (dcmtk, dcmtk_from_samples, others, orthanc):
        try:
            part(made, source)
        except (OSError, urllib.error.URLError, ValueError) as error:
            print("left out of %s: %s" % (part.__name__, error))
    return made
