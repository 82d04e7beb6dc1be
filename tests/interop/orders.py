#!/usr/bin/env python3
"""Orders of HL7 become entries of the worklist of vexal serve, change and go.

usage: orders.py VEXAL
"""
import os
import socket
import sys
import time

from checks import Vexal, check, files_under, free_port, read, run_parts, vexal

ORM = ("MSH|^~\\&|HIS|H|RIS|R|20240101||ORM^O01|17|P|2.5.1||||||%(set)s\rPID|1||4711^^^ISSUER||%(name)s||19700131|f\rPV1|1||WARD||||"
       "|77^Smith^Ann^^Dr\rORC|%(control)s|P%(n)d|F%(n)d||%(state)s\rOBR|1|P%(n)d||CT1^Chest CT^99X||||||||||||||%(accession)s|RP%(n)d|SPS%(n)d|"
       "CTROOM|||ct|||^^^202402031405+0100\rZDS|1.2.3.%(n)d\r")
OMI = ("MSH|^~\\&|HIS|H|RIS|R|20240101||OMI^O23|18|P|2.5.1\rPID|1||9||O\\T\\Hara^Mo\rORC|NW|Q1\rTQ1|1||||||20240301081530\r"
       "OBR|1|Q1||MR1^Knee^99X\rIPC|A9|RPX|1.2.4|S1|MR|PR1^Protocol^99X|MR ROOM|FLOOR 1|MRAE\rIPC|A9|RPX|1.2.4|S2|MR\r")


class Sender:
    def __init__(self, port):
        self.socket = socket.create_connection(("127.0.0.1", port), timeout=10)

    def ask(self, text, encoding="utf-8"):
        self.socket.sendall(b"\x0B" + text.encode(encoding) + b"\x1C\r")
        return self.answer()

    def answer(self):
        """The code and the words of an acknowledgement."""
        got = b""
        while not got.endswith(b"\x1C\r"):
            piece = self.socket.recv(65536)
            if not piece:
                return None
            got += piece
        fields = got[1:-2].decode().split("\r")[1].split("|")
        return fields[1], fields[2], fields[3]


def order(n, control="NW", name="M\u00fcller^Eva^M^Jr^Ms", encoding="utf-8", **more):
    words = {"n": n, "control": control, "name": name, "set": {"utf-8": "UNICODE UTF-8", "latin-1": "8859/1"}[encoding], "state": "", "accession": "A%d" % n}
    return ORM % {**words, **more}


def entries(port, *keys):
    """Attributes of what a modality finds, by the ID of the step."""
    asked = ["RequestedProcedureCodeSequence[0].CodeValue", "PatientName", "PatientID", "PatientBirthDate", "PatientSex", "AccessionNumber", "StudyInstanceUID", "ReferringPhysicianName",
             "RequestedProcedureID", "RequestedProcedureCodeSequence", *("ScheduledProcedureStepSequence[0]." + key for key in (
                 "Modality", "ScheduledProcedureStepStartDate", "ScheduledProcedureStepStartTime", "ScheduledStationAETitle",
                 "ScheduledProcedureStepID", "ScheduledProcedureStepDescription"))]
    words = [word for key in (*asked, *keys) for word in ("-k", key)]
    return vexal("find", "127.0.0.1", port, "--level", "worklist", *words).stdout.decode()


def orders(folder):
    """New orders, changes and cancellations, in several character sets, with and without procedures of their own."""
    lists = os.path.join(folder, "lists")
    os.mkdir(lists)
    port = free_port()
    with Vexal("serve", os.path.join(folder, "objects"), "--worklist", lists, "--hl7", port) as server:
        sender = Sender(port)
        check(sender.ask(order(1)) == ("AA", "17", ""), "an order is not taken")
        told = entries(server.port, "PatientID=4711")
        for word in ("M\u00fcller^Eva^M^Ms^Jr", "4711", "19700131", "A1", "1.2.3.1", "Smith^Ann^^^Dr", "RP1", "1 item", "CT1", "Chest CT", "20240203", "1405",
                     "CTROOM", "SPS1"):
            check(word in told, "an order: no %s in %s" % (word, told))
        check("CT" in told and told.count("SPS1") == 1, "an order: %s" % told)
        # A change is one of the same entry; another character set; an answer that was lost.
        for accession in ("A1x", "A1x"):
            check(sender.ask(order(1, "XO", "M\u00fcller^Ida", "latin-1", accession=accession), "latin-1")[0] == "AA", "a change is not taken")
        told = entries(server.port)
        check("A1x" in told and "M\u00fcller^Ida" in told and "Eva" not in told and len(files_under(lists)) == 1, "a change: %s" % told)
        check(sender.ask(OMI)[0] == "AA" and len(files_under(lists)) == 3, "procedures of an order")
        told = entries(server.port, "PatientID=9")
        check(all(word in told for word in ("O&Hara^Mo", "S1", "S2", "20240301", "081530", "MRAE", "Protocol", "1.2.4")), "procedures: %s" % told)
        for path in files_under(lists):
            vexal("validate", path, title="an entry is valid")
        # What goes, and what is none of ours.
        check(sender.ask(order(1, "SC", state="IP"))[0] == "AA" and len(files_under(lists)) == 3, "a step under way")
        check(sender.ask(order(1, "SC", state="CM"))[0] == "AA" and len(files_under(lists)) == 2, "a completed order stays")
        check(sender.ask(OMI.replace("ORC|NW", "ORC|CA"))[0] == "AA" and files_under(lists) == [], "a cancelled order stays")
        check(sender.ask(order(1, "CA"))[0] == "AA", "cancelling what is not there")
        for text, code, says in ((order(1).replace("ORM^O01", "ADT^A01"), "AR", "not supported"), ("PID|1", "AR", "MSH"),
                                 (order(1, "ZZ"), "AR", "ORC-1 ZZ"), (order(1, name=""), "AE", "PID-5"),
                                 (order(1)[:order(1).index("ORC")], "AE", "no OBR"),
                                 (order(1).replace("UNICODE UTF-8", "8859/7"), "AR", "8859/7")):
            told = sender.ask(text)
            check(told[0] == code and says in told[2] and files_under(lists) == [], "%s: answered with %s" % (says, told))
        # A folder that takes nothing: nothing is acknowledged.
        os.rename(lists, lists + "-away")
        check(sender.ask(order(3))[0] == "AE", "an order is acknowledged that is nowhere")
        os.rename(lists + "-away", lists)
        # Pieces, several at once, others at once, and what is no MLLP.
        bytes_of = b"\x0B" + order(4).encode() + b"\x1C\r\r\n\x0B" + order(5).encode() + b"\x1C\r"
        for at in range(0, len(bytes_of), 100):
            sender.socket.sendall(bytes_of[at:at + 100])
            time.sleep(0.001)
        check([sender.answer()[0] for _ in range(2)] == ["AA", "AA"] and len(files_under(lists)) == 2, "two orders in pieces")
        crowd = [Sender(port) for _ in range(40)]
        check(crowd[-1].ask(order(6))[0] == "AA" and crowd[0].socket.recv(1) == b"", "many connections")
        for garbage in (b"GET / HTTP/1.0\r\n\r\n", b"\x0B" + b"x" * (2 << 20)):
            other = Sender(port)
            try:
                other.socket.sendall(garbage)
                check(other.socket.recv(1) == b"", "garbage is not cut off")
            except OSError:
                pass
        check(Sender(port).ask(order(7))[0] == "AA", "nothing is taken after garbage")
    for words, says in ((("--hl7", port), "needs --worklist"), (("--hl7", "x", "--worklist", lists), "ADDRESS:PORT"),
                        (("--hl7", "0", "--worklist", lists), "ADDRESS:PORT"), (("--hl7", "[::1:1", "--worklist", lists), "--hl7")):
        vexal("serve", "1", "--dir", folder, *words, status=2, says=says)


sys.exit(run_parts(orders))
