"""DICOM by hand: objects and their files, messages and associations as bytes, a peer that asks and one that answers."""
import concurrent.futures
import os
import random
import re
import socket
import struct
import threading

from checks import data_set_of, files_under, write
from made import EXPLICIT, IMPLICIT, element, meta

CT, MR, VERIFICATION = "1.2.840.10008.5.1.4.1.1.2", "1.2.840.10008.5.1.4.1.1.4", "1.2.840.10008.1.1"
STUDY_FIND, STUDY_GET, COMMITMENT = "1.2.840.10008.5.1.4.1.2.2.1", "1.2.840.10008.5.1.4.1.2.2.3", "1.2.840.10008.1.20.1"
STUDY = "1.2.3.9"
MEBI = 1 << 20
KINDS = ("receive", "serve")
SEED = int(os.environ.get("VEXAL_SEED", "0")) or random.randrange(1 << 32)
random.seed(SEED)
print("VEXAL_SEED=%d" % SEED, flush=True)

# ---- Objects and their files ----


def as_bytes(value):
    return value.encode() if isinstance(value, str) else value


def uid(n):
    return "1.2.3.7.%d" % n


def data_set(instance, pixels=b"\1\2\3\4" * 64, name="Doe^John"):
    return b"".join(element(*row) for row in (
        (0x00080016, "UI", CT), (0x00080018, "UI", instance), (0x00080020, "DA", "20240101"), (0x00080060, "CS", "CT"),
        (0x00100010, "PN", name), (0x00100020, "LO", "ID"), (0x0020000D, "UI", STUDY), (0x0020000E, "UI", STUDY + ".1"),
        (0x00280010, "US", b"\x10\0"), (0x00280011, "US", b"\x10\0"), (0x7FE00010, "OW", pixels)))


def make_files(folder, count, size=100, first=0):
    """Files of objects; their data sets by instance."""
    made = {uid(n): data_set(uid(n), random.randbytes(16) * (size // 16)) for n in range(first, first + count)}
    for instance, body in made.items():
        write(os.path.join(folder, instance + ".dcm"), meta(CT, instance) + body)
    return made


def stored_objects(folder):
    """Data sets by instance of what lies under final names, and the names of anything else but an index."""
    found, others = {}, []
    for path in files_under(folder):
        name = os.path.basename(path)
        if name.endswith(".dcm"):
            found[re.sub("-[0-9a-f]{16}$", "", name[:-4])] = data_set_of(path)  # where the name was taken, an end makes it another
        elif not name.startswith(("index.sqlite", "outbox.sqlite")):
            others.append(name)
    return found, others


# ---- Associations ----


def item(kind, *parts):
    body = b"".join(map(as_bytes, parts))
    return struct.pack(">BBH", kind, 0, len(body)) + body


def pdu(kind, *parts):
    body = b"".join(map(as_bytes, parts))
    return struct.pack(">BBI", kind, 0, len(body)) + body


def items_of(body):
    """Kind and body of each."""
    while len(body) >= 4:
        end = 4 + int.from_bytes(body[2:4], "big")
        yield body[0], body[4:end]
        body = body[end:]


def presentation(kind, identifier, result, *parts):
    return item(kind, bytes([identifier, 0, result, 0]), *parts)


def user_information(*more, maximum=16384):
    return item(0x50, item(0x51, struct.pack(">I", maximum)), item(0x52, "1.2.3"), *more, item(0x55, "TEST"))


def provider_of(sop_class):
    """The item of a peer that would rather be sent such objects."""
    return item(0x54, struct.pack(">H", len(sop_class)), sop_class, b"\0\1")


def associate(kind, contexts, more=user_information(), called="ANY-SCP", calling="PEER"):
    titles = as_bytes(called).ljust(16) + as_bytes(calling).ljust(16)
    return pdu(kind, b"\0\1\0\0", titles, bytes(32), item(0x10, "1.2.840.10008.3.1.1.1"), contexts, more)


def request(*rows, **more):
    """For contexts 1, 3 and so on: a class each, and its transfer syntaxes."""
    return associate(1, b"".join(presentation(0x20, 2 * n + 1, 0, item(0x30, sop_class), *(item(0x40, syntax) for syntax in syntaxes))
                                 for n, (sop_class, *syntaxes) in enumerate(rows)), **more)


def contexts_of(answer):
    """Identifier, result and syntax of each context in an A-ASSOCIATE-AC."""
    return [(body[0], body[2], dict(items_of(body[4:])).get(0x40, b"").decode()) for kind, body in items_of(answer[74:]) if kind == 0x21]


REQUEST = request((CT, EXPLICIT), (MR, IMPLICIT))
WITH_ECHO, WITH_FIND = (request((CT, EXPLICIT), (other, IMPLICIT)) for other in (VERIFICATION, STUDY_FIND))
WITH_GET = request((CT, EXPLICIT), (STUDY_GET, IMPLICIT), more=user_information(provider_of(CT)))
ECHO_ALONE = request((VERIFICATION, IMPLICIT))
RELEASE, RELEASED, ABORT = pdu(5, bytes(4)), pdu(6, bytes(4)), pdu(7, bytes(4))

# ---- Messages ----

FIELDS = {"sop_class": 2, "of_class": 3, "kind": 0x100, "id": 0x110, "answers": 0x120, "priority": 0x700, "data": 0x800, "status": 0x900,
          "comment": 0x902, "instance": 0x1000, "of_instance": 0x1001, "event": 0x1002, "action": 0x1008}


def implicit(tag, value, filler=b"\0"):
    value = as_bytes(value)
    value += filler * (len(value) % 2)
    return struct.pack("<HHI", tag >> 16, tag & 0xFFFF, len(value)) + value


def command(**fields):
    body = b"".join(implicit(FIELDS[name], struct.pack("<H", value) if isinstance(value, int) else value)
                    for name, value in sorted(fields.items(), key=lambda field: FIELDS[field[0]]))
    return implicit(0, struct.pack("<I", len(body))) + body


def fields_of(group):
    """Values of a command group by element."""
    fields = {}
    while len(group) >= 8 and group[:2] == b"\0\0":
        end = 8 + int.from_bytes(group[4:8], "little")
        fields[int.from_bytes(group[2:4], "little")] = group[8:end]
        group = group[end:]
    return fields


def pdv(context, flags, body):
    return struct.pack(">IBB", len(body) + 2, context, flags) + body


def message(context, group, data=b""):
    """A command and, in two pieces or more, a data set."""
    size = 16000 if len(data) > 32000 else max(1, len(data) // 2)
    parts = [data[at:at + size] for at in range(0, len(data), size)]
    return pdu(4, pdv(context, 3, group)) + b"".join(pdu(4, pdv(context, 2 * (n + 1 == len(parts)), part)) for n, part in enumerate(parts))


def store_command(instance, sop_class=CT):
    return command(sop_class=sop_class, kind=1, id=1, priority=0, data=1, instance=instance)


def store_message(instance, body=None, sop_class=CT, context=1):
    return message(context, store_command(instance, sop_class), data_set(instance) if body is None else body)


def retrieval(kind, sop_class, *keys, level="STUDY"):
    """A C-FIND or C-GET with an identifier in implicit VR."""
    rows = sorted([(0x00080052, level), *keys], key=lambda row: row[0])
    return message(3, command(sop_class=sop_class, kind=kind, id=1, priority=0, data=1), b"".join(implicit(*row, b" ") for row in rows))


def find_message(*keys, level="STUDY"):
    return retrieval(0x20, STUDY_FIND, *keys, level=level)


def image_query(instance=""):
    return find_message((0x00080018, instance), (0x0020000D, ""), level="IMAGE")


ECHO = message(3, command(sop_class=VERIFICATION, kind=0x30, id=1, data=0x101))
CANCEL = message(3, command(kind=0xFFF, answers=1, data=0x101))


def status_of(fields):
    return int.from_bytes(fields[0x900], "little") if 0x900 in fields else None


def acknowledged(received):
    """Instances that answers of success name."""
    done = set()
    while len(received) >= 12:
        end = 6 + int.from_bytes(received[2:6], "big")
        fields = fields_of(received[12:end]) if received[0] == 4 else {}
        if status_of(fields) == 0 and fields.get(0x100) == b"\1\x80" and 0x1000 in fields:
            done.add(fields[0x1000].strip(b"\0").decode("latin-1"))
        received = received[end:]
    return done


# ---- A peer that asks ----


def take(connection, size):
    got = b""
    while len(got) < size:
        more = connection.recv(size - len(got))
        if not more:
            raise ConnectionError("closed after %d of %d bytes" % (len(got), size))
        got += more
    return got


def next_pdu(connection):
    head = take(connection, 6)
    return head + take(connection, int.from_bytes(head[2:], "big"))


class Peer:
    """An association of a socket's own, from an address of its own."""

    def __init__(self, port, asked=REQUEST, source="127.0.0.1", timeout=10):
        self.socket = socket.create_connection(("127.0.0.1", port), timeout=timeout, source_address=(source, 0))
        self.answer = self.ask(asked)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def ask(self, words):
        """Sends, and gives the next PDU."""
        self.socket.sendall(words)
        return next_pdu(self.socket)

    def status(self, words):
        """The status in the answer; None where the association ends instead."""
        try:
            return status_of(fields_of(self.ask(words)[12:]))
        except OSError:
            return None

    def statuses(self, words):
        """Those of all responses to a query; the last is None where the association ends before."""
        told = []
        try:
            received = self.ask(words)
            while True:
                status = status_of(fields_of(received[12:]))
                told += [] if status is None else [status]
                if told and told[-1] != 0xFF00:
                    return told
                received = self.ask(b"")
        except OSError:
            return told + [None]


def store_status(port, instance, body=None, asked=REQUEST):
    with Peer(port, asked) as peer:
        return peer.status(store_message(instance, body))


def image_find(port, instance):
    """How many images of that name are found: one, none, or None for an error."""
    with Peer(port, WITH_FIND) as peer:
        return {0xFF00: 1, 0: 0}.get(peer.status(image_query(instance)))


def at_once(calls, meanwhile=None):
    """What each gives, called on threads of their own."""
    with concurrent.futures.ThreadPoolExecutor(len(calls)) as pool:
        futures = [pool.submit(call) for call in calls]
        if meanwhile:
            meanwhile()
        return [future.result() for future in futures]


# ---- A peer that answers ----


class Liar(threading.Thread):
    """Takes every context in its first syntax, and gives to each request what `reply` makes of its context and its fields.

    `reply` gives bytes to send, or None to hang up. What came is in `requests`, and `aborted` tells how each connection ended.
    `takes`: the only syntaxes that it knows; `contexts` then are those that it takes."""

    def __init__(self, reply, window=None, port=0, takes=None):
        super().__init__(daemon=True)
        self.takes, self.reply, self.requests, self.aborted, self.data, self.talks = takes, reply, [], [], b"", []
        self.more = user_information() if window is None else user_information(item(0x53, struct.pack(">HH", window, 1)))
        self.listener = socket.create_server(("127.0.0.1", port))
        self.port = self.listener.getsockname()[1]
        self.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.listener.close()
        for talk in list(self.talks):  # what was sent last has been read
            talk.join(5)

    def run(self):
        while True:
            try:
                connection = self.listener.accept()[0]
            except OSError:
                return
            self.talks.append(threading.Thread(target=self.talk, args=(connection,), daemon=True))
            self.talks[-1].start()

    def talk(self, connection):
        connection.settimeout(30)
        pending, ended = b"", False
        try:
            while not ended:
                told = next_pdu(connection)
                kind, body = told[0], told[6:]
                if kind == 1:
                    connection.sendall(self.accept(body))
                elif kind == 4:
                    flags, pending = body[5], pending + body[6:] if body[5] & 1 else pending
                    self.data = b"" if flags & 1 else self.data + body[6:]
                    fields = fields_of(pending)
                    if flags & 2 and (not flags & 1 or fields[0x800] == b"\1\1"):
                        self.requests.append(fields)
                        answer, pending = self.reply(body[4], fields), b""
                        ended = answer is None
                        connection.sendall(answer or b"")
                else:
                    ended = True
                    self.aborted.append(kind != 5)
                    connection.sendall(RELEASED if kind == 5 else b"")
        except OSError:
            self.aborted.append(True)
        connection.close()

    def accept(self, body):
        proposed = [(part[0], list(items_of(part[4:]))) for kind, part in items_of(body[68:]) if kind == 0x20]
        known = lambda parts: self.takes is None or parts[1][1].decode() in self.takes
        self.contexts = {parts[0][1].decode(): identifier for identifier, parts in proposed if known(parts)}
        self.syntaxes = {identifier: parts[1][1].decode() for identifier, parts in proposed}
        return associate(2, b"".join(presentation(0x21, identifier, 0 if known(parts) else 4, item(0x40, parts[1][1]))
                                     for identifier, parts in proposed), self.more)


def answer_to(context, fields, **changes):
    """The message that answers a request, with changes; None leaves a field out."""
    number = lambda tag: int.from_bytes(fields[tag], "little")
    answer = {"sop_class": fields.get(2, fields.get(3)).strip(b"\0"), "kind": number(0x100) | 0x8000, "answers": number(0x110),
              "data": 0x101, "status": 0, "instance": fields.get(0x1000, fields.get(0x1001, b"")).strip(b"\0") or None} | changes
    return message(context, command(**{name: value for name, value in answer.items() if value is not None}))
