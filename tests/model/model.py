"""A second, independent statement of how messages and forms are read: plain, slow, literal. It is what the program is
compared with on generated input."""

import re

BUFFER = 4096
INT_MAX = 2**31 - 1
INT_MIN = -2**31
METHODS = [b"OPTIONS", b"GET", b"HEAD", b"POST", b"PUT", b"DELETE", b"TRACE", b"CONNECT", b"PATCH"]
SPACE = b" \t\n\v\f\r"


def decimal(text):
    """What "%d" reads into 32 bits, the limits for what does not fit; None where there is no number."""
    found = re.match(rb"[ \t\n\v\f\r]*([+-]?[0-9]+)", text)
    return None if not found else max(INT_MIN, min(INT_MAX, int(found[1])))


def hexadecimal(text):
    """What "%x" reads into 32 bits; a prefix with nothing behind it is 0."""
    found = re.match(rb"[ \t\n\v\f\r]*([+-]?)(0[xX])?([0-9a-fA-F]*)", text)
    if not found[2] and not found[3]:
        return None
    value = min(int(found[3] or b"0", 16), 2**32)
    if value == 2**32:
        return 2**32 - 1
    return (2**32 - value) % 2**32 if found[1] == b"-" else value


def normalise(target):
    text = bytearray(target)
    while True:
        at = text.find(b"%")
        if at < 0 or len(text) - at < 3:
            break
        text[at] = (hexadecimal(bytes(text[at + 1:at + 3])) or 0) & 0xFF
        del text[at + 1:at + 3]
    if not text.startswith(b"/"):
        text[:0] = b"/"
    end = text.find(b"?")
    if end < 0:
        end = len(text)
    text[:end] = text[:end].replace(b"\\", b"/")
    while 0 <= text.find(b"/../") < end:
        at = text.find(b"/../")
        text[at + 1:at + 3] = b"__"
    while 0 <= text.find(b"//") < end:
        del text[text.find(b"//"):]
        end -= 1
    return bytes(text)


class Broken(Exception):
    """A body could not be read; the connection is gone."""


class Message:
    """One end of a connection whose peer sends `data`, with a silence at `silence` if that is a place, and then closes, or
    does not: `closes`."""

    def __init__(self, data, silence=None, closes=True, client_mode=1):
        self.data = data
        self.silence = silence
        self.closes = closes
        self.closed = False
        self.at = 0
        self.open = True
        self.client_mode = client_mode
        self.headers = {}
        self.remaining = 0
        self.chunk = 0

    def here(self):
        """Where what can be read without a silence ends."""
        return len(self.data) if self.silence is None else self.silence

    def stop(self):
        """A read has met a silence, behind which a later one goes on, or the end."""
        self.at = self.here()
        self.closed = self.silence is None and self.closes
        self.silence = None

    def line(self):
        """A line without its carriage returns; None when a silence or the end came first."""
        end = self.data.find(b"\n", self.at, self.here())
        if end < 0:
            self.stop()
            return None
        text = self.data[self.at:end]
        self.at = end + 1
        return text.replace(b"\r", b"")

    def read_header(self):
        """(status, method code, path, keep-open)."""
        start = self.line()
        if start is None:
            return 400 if self.closed else 408, 0, b"", False
        words = start.split()
        if len(words) < 2:
            return 400, 0, b"", True
        method, path = 0, b""
        if words[0] in METHODS:
            method = METHODS.index(words[0]) + 2
            if len(words) > 3:
                return 400, method, b"", False
            path = normalise(words[1])
            self.headers[b"http-version"] = words[2] if len(words) == 3 else b"HTTP/1.0"
            status = 200
        elif words[0] in (b"HTTP/1.0", b"HTTP/1.1"):
            method = 1
            self.headers[b"http-version"] = words[0]
            status = decimal(words[1])
            if status is None:
                status = 400
        else:
            return 400, 0, b"", True
        pending = b""
        while True:
            text = self.line()
            if text is None:
                return 400 if self.closed else 408, method, path, False
            if text[:1] in (b" ", b"\t"):
                pending += text
                continue
            key, colon, value = pending.partition(b":")
            if colon:
                self.headers[key.lower()] = value.strip(SPACE)
            pending = text
            if not text:
                break
        self.decide_framing()
        return status, method, path, True

    def decide_framing(self):
        if b"chunked" in self.headers.setdefault(b"transfer-encoding", b"").lower():
            self.remaining = -1
            return
        length = self.headers.setdefault(b"content-length", b"")
        self.remaining = decimal(length) or 0

    def take(self, count):
        if self.here() - self.at < count:
            self.stop()
            self.fail()
        self.at += count
        return self.data[self.at - count:self.at]

    def fail(self):
        self.open = False
        raise Broken

    def read(self, length):
        """Up to `length` bytes of the body, as the buffer form of the program reads them."""
        if not self.open or self.remaining == 0:
            return b""
        if self.remaining > 0:
            taken = self.take(min(length, self.remaining))
            self.remaining -= len(taken)
            return taken
        total = b""
        while True:
            if self.chunk:
                piece = self.take(min(length - len(total), self.chunk))
                total += piece
                self.chunk -= len(piece)
                if not self.chunk:
                    self.line()
            if len(total) == length:
                return total
            size = self.line()
            value = None if size is None else hexadecimal(size)
            if value is None or value > INT_MAX:
                self.fail()
            self.chunk = value
            if value == 0:
                return self.end_of_chunks(total)

    def end_of_chunks(self, total):
        while True:
            text = self.line()
            if text is None:
                self.remaining = 0
                self.fail()
            if not text:
                break
        self.remaining = 0
        if self.client_mode == 1 and b"close" in self.headers.get(b"connection", b"").lower():
            self.open = False
        return total

    def read_whole(self):
        if not self.open or self.remaining == 0:
            return b""
        if self.remaining > 0:
            return self.read(self.remaining)
        body = b""
        while True:
            block = self.read(BUFFER)
            body += block
            if len(block) < BUFFER:
                return body


SEPARATORS = b"\t \"(),:;<=>?@[\\]{}"


def parameters(text):
    """The tokens of a header value, as (name, value) with None for the value of a bare one."""
    at = 0
    while True:
        while at < len(text) and text[at] in SEPARATORS:
            at += 1
        if at >= len(text):
            return
        start = at
        while at < len(text) and text[at] not in SEPARATORS:
            at += 1
        name = text[start:at]
        if text[at:at + 1] != b"=":
            yield name, b""
            continue
        at += 1
        value = b""
        if text[at:at + 1] == b'"':
            at += 1
            while at < len(text) and text[at:at + 1] != b'"':
                if text[at:at + 1] == b"\\" and at + 1 < len(text):
                    at += 1
                elif text[at:at + 1] == b"\\":
                    at += 1
                    continue
                value += text[at:at + 1]
                at += 1
            at += 1
        else:
            while at < len(text) and text[at] not in SEPARATORS:
                value += text[at:at + 1]
                at += 1
        yield name, value


class Window:
    """The read-ahead buffer: at most 4096 bytes of the body."""

    def __init__(self, message):
        self.message = message
        self.held = b""

    def fill(self):
        if len(self.held) < BUFFER:
            self.held += self.message.read(BUFFER - len(self.held))
        return len(self.held)

    def drop(self, count):
        self.held = self.held[count:]


def part_lines(head):
    lines = []
    for text in head.replace(b"\r", b" ").split(b"\n")[:-1]:
        if text[:1] in (b" ", b"\t") and lines:
            lines[-1] += text
        else:
            lines.append(text)
    return lines


def examine(lines, field):
    """(matched, file name) of a part."""
    file_name = b""
    for text in lines:
        key, colon, value = text.partition(b":")
        if not colon or key.lower() != b"content-disposition":
            continue
        matched = False
        for number, (name, content) in enumerate(parameters(value)):
            if number == 0:
                if name != b"form-data":
                    break
            elif name == b"name" and content == field:
                matched = True
            elif name == b"filename":
                file_name = content
        if matched:
            return True, file_name
    return False, file_name


def receive(message, field, multiple=True):
    """(result, stored files in order) of the form in a message's body."""
    window = Window(message)
    stored = []
    try:
        delimiter = None
        for number, (name, value) in enumerate(parameters(message.headers.get(b"content-type", b""))):
            if number == 0:
                if name != b"multipart/form-data":
                    break
            elif name == b"boundary":
                delimiter = b"\r\n--" + (value)
        if delimiter is not None:
            window.held = b"\r\n"
            read_parts(window, delimiter, field, multiple, stored)
        while window.fill() > 0:
            window.drop(BUFFER)
    except Broken:
        pass
    return bool(stored), stored


def read_parts(window, delimiter, field, multiple, stored):
    length = len(delimiter)
    while True:
        if window.fill() < length:
            return
        while delimiter not in window.held:
            window.drop(len(window.held) - length + 1)
            if window.fill() < length:
                return
        window.drop(window.held.index(delimiter) + length)
        window.fill()
        if window.held[:2] == b"--":
            return
        end = window.held.find(b"\n")
        if end < 0 or end == len(window.held) - 1:
            return
        window.drop(end + 1)
        window.fill()
        end = window.held.find(b"\r\n\r\n")
        if end < 0:
            return
        matched, file_name = examine(part_lines(window.held[:end + 2]), field)
        window.drop(end + 4)
        content = read_part(window, delimiter)
        if content is None:
            return
        if matched and file_name:
            stored.append(content)
            if not multiple:
                return


def read_part(window, delimiter):
    """A part's content; None when the body ended inside it."""
    content = b""
    while True:
        if window.fill() < len(delimiter):
            return None
        at = window.held.find(delimiter)
        if at >= 0:
            content += window.held[:at]
            window.drop(at)
            return content
        whole = len(window.held) - len(delimiter) + 1
        content += window.held[:whole]
        window.drop(whole)
