"""A D-Bus peer that speaks the wire protocol itself, with nothing but a socket: plays applications over a private bus."""

import itertools
import os
import queue
import socket
import struct
import threading

CALL, RETURN, ERROR = 1, 2, 3
PATH, INTERFACE, MEMBER, ERROR_NAME, REPLY_SERIAL, DESTINATION, SENDER, SIGNATURE = range(1, 9)
FIELD_TYPES = {PATH: "o", INTERFACE: "s", MEMBER: "s", ERROR_NAME: "s", REPLY_SERIAL: "u", DESTINATION: "s",
               SENDER: "s", SIGNATURE: "g"}
NOTIFY = ("/zoripc", "zoripc.Notification1", "Notify")


class BusError(Exception):
    """An error reply: its name and text."""


def bus_name(application):
    return "zoripc.App.a" + "".join(c if c.isalnum() and c.isascii() else "".join(f"_{b:02x}" for b in c.encode())
                                    for c in application)


def pad(data, alignment):
    return data + bytes(-len(data) % alignment)


def marshal(data, kinds, values):
    """Appends `values` of the basic types `kinds` to `data`, which begins at an aligned place."""
    for kind, value in zip(kinds, values):
        if kind == "u":
            data = pad(data, 4) + struct.pack("<I", value)
        elif kind == "g":
            data += struct.pack("<B", len(value)) + value.encode() + b"\0"
        else:
            text = value if isinstance(value, bytes) else value.encode()
            data = pad(data, 4) + struct.pack("<I", len(text)) + text + b"\0"
    return data


def unmarshal(data, offset, kinds):
    values = []
    for kind in kinds:
        if kind == "g":
            length, offset = data[offset], offset + 1
        elif kind in "usoib":
            offset += -offset % 4
            (length,) = struct.unpack_from("<I", data, offset)
            offset += 4
        else:
            raise AssertionError(f"type {kind} is not known here")
        if kind in "uib":
            values.append(length)
            continue
        values.append(data[offset:offset + length].decode())
        offset += length + 1
    return values, offset


class Peer:
    """An application on the bus. Notifications for it go into `notifications` as (name, JSON text, flags, sender)."""

    def __init__(self, case, address, application=None):
        self.notifications = queue.Queue()
        self.answer_calls = "accept"  # or "refuse"; or "hold", until release() does what it then is
        self.held = []
        self.on_notification = None   # called on the reading thread in place of queueing
        self.serials = itertools.count(1)
        self.replies = {}
        self.write_lock = threading.Lock()
        self.socket = self.connect(address)
        case.addCleanup(self.close)
        self.stream = self.socket.makefile("rb")
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()
        self.bus_call("Hello")
        if application is not None:
            self.own(application)

    @staticmethod
    def connect(address):
        options = dict(part.split("=", 1) for part in address.split(":", 1)[1].split(","))
        place = options["path"] if "path" in options else "\0" + options["abstract"]
        connection = socket.socket(socket.AF_UNIX)
        connection.settimeout(60)
        connection.connect(place)
        connection.sendall(b"\0AUTH EXTERNAL " + str(os.getuid()).encode().hex().encode() + b"\r\n")
        answer = b""
        while not answer.endswith(b"\r\n"):
            answer += connection.recv(1)
        if not answer.startswith(b"OK "):
            raise AssertionError(answer)
        connection.sendall(b"BEGIN\r\n")
        connection.settimeout(None)
        return connection

    def close(self):
        """Goes without a word, as a process that dies."""
        try:
            self.socket.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self.reader.join(60)
        self.stream.close()
        self.socket.close()

    def own(self, application):
        (result,) = self.bus_call("RequestName", "su", bus_name(application), 4)
        if result != 1:
            raise AssertionError(f"{application} has an owner already")

    def bus_call(self, member, kinds="", *values):
        return self.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", member, kinds, *values)

    def call(self, destination, path, interface, member, kinds, *values):
        """Calls and waits for the reply; its values."""
        serial = next(self.serials)
        answer = self.replies[serial] = queue.Queue()
        self.send(CALL, serial, {PATH: path, INTERFACE: interface, MEMBER: member, DESTINATION: destination}, kinds, values)
        kind, fields, content = answer.get(timeout=60)
        if kind == ERROR:
            raise BusError(fields[ERROR_NAME], *content)
        return content

    def notify(self, application, name, text, flags=0, sender="1"):
        """Sends a notification and waits until it is acknowledged."""
        self.call(bus_name(application), *NOTIFY, "ssus", name, text, flags, sender)

    def notification(self, timeout=60):
        return self.notifications.get(timeout=timeout)

    def send(self, kind, serial, fields, kinds="", values=()):
        body = marshal(b"", kinds, values)
        if kinds:
            fields = {**fields, SIGNATURE: kinds}
        listed = b""
        for code, value in fields.items():
            listed = pad(listed, 8) + struct.pack("<B", code) + marshal(b"", "g", [FIELD_TYPES[code]])
            listed = marshal(listed, FIELD_TYPES[code], [value])
        head = struct.pack("<cBBBIII", b"l", kind, 0, 1, len(body), serial, len(listed)) + listed
        with self.write_lock:
            self.socket.sendall(pad(head, 8) + body)

    def read(self):
        try:
            while True:
                message = self.receive()
                if message is None:
                    return
                self.take(*message)
        except OSError:
            return

    def receive(self):
        head = self.stream.read(16)
        if len(head) < 16:
            return None
        order, kind, _, _, body_size, serial, fields_size = struct.unpack("<cBBBIII", head)
        if order != b"l":
            raise AssertionError("a message in the other byte order")
        rest = self.stream.read(fields_size + -fields_size % 8 + body_size)
        if len(rest) < body_size:
            return None
        fields, offset = {}, 0
        while offset < fields_size:
            offset += -offset % 8
            code = rest[offset]
            (signature,), offset = unmarshal(rest, offset + 1, "g")
            (fields[code],), offset = unmarshal(rest, offset, signature)
        body = rest[len(rest) - body_size:]
        return kind, serial, fields, unmarshal(body, 0, fields.get(SIGNATURE, ""))[0] if body else []

    def take(self, kind, serial, fields, content):
        if kind in (RETURN, ERROR):
            # An acknowledgement that finds nobody any more comes back as an error too; nobody waits for that.
            waiting = self.replies.pop(fields[REPLY_SERIAL], None)
            if waiting is not None:
                waiting.put((kind, fields, content))
        elif kind == CALL and fields.get(MEMBER) == "Notify":
            self.acknowledge(serial, fields[SENDER])
            (self.on_notification or self.notifications.put)(tuple(content))

    def release(self):
        if self.answer_calls == "hold":
            self.answer_calls = "accept"
        for serial, sender in self.held:
            self.acknowledge(serial, sender)
        self.held = []

    def acknowledge(self, serial, sender):
        if self.answer_calls == "hold":
            self.held.append((serial, sender))
        elif self.answer_calls == "accept":
            self.send(RETURN, next(self.serials), {REPLY_SERIAL: serial, DESTINATION: sender})
        elif self.answer_calls == "refuse":
            self.send(ERROR, next(self.serials),
                      {REPLY_SERIAL: serial, DESTINATION: sender, ERROR_NAME: "zoripc.Error.NotExpected"})
