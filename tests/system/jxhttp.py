"""Raw HTTP over a socket, and packages made in memory."""

import hashlib
import io
import json
import socket
import zipfile

FORM_PAGE = (
    b"<!DOCTYPE html>\n<html>\n<body>\n<form action='upload' method='post' enctype='multipart/form-data'>\n"
    b"  <h1>JX application file upload</h1>\n"
    b"  Filename: <input type='file' name='upload' multiple><br>\n"
    b"  <input type='submit' value='Upload file'>\n</form><br>\n"
    b"Certificates on terminal: <a href='certificates.tar'>certificates.tar</a>\n</body>\n</html>\n")
RESULT_HEAD = b"<!DOCTYPE html>\n<html>\n<body>\n<form action='/' method='GET'>\n"
RESULT_TAIL = b"<input type='submit' value='OK'>\n</form>\n</body>\n</html>\n"
FAILED_PAGE = RESULT_HEAD + b"Upload failed<br>\n" + RESULT_TAIL


class Wire:
    """One connection: bytes out, replies in."""

    def __init__(self, port=6370, host="127.0.0.1", timeout=60):
        self.socket = socket.create_connection((host, port), timeout)
        self.buffer = b""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, data):
        self.socket.sendall(data)
        return self

    def read_until(self, mark):
        while mark not in self.buffer:
            piece = self.socket.recv(65536)
            if not piece:
                raise EOFError(f"the connection ended after {self.buffer!r}")
            self.buffer += piece
        at = self.buffer.index(mark) + len(mark)
        taken, self.buffer = self.buffer[:at], self.buffer[at:]
        return taken

    def read_reply(self):
        """(head as bytes, body) of a reply with a Content-Length or none."""
        head = self.read_until(b"\r\n\r\n")
        length = 0
        for line in head.split(b"\r\n"):
            if line.startswith(b"Content-Length: "):
                length = int(line[16:])
        while len(self.buffer) < length:
            piece = self.socket.recv(65536)
            if not piece:
                raise EOFError("the connection ended inside a body")
            self.buffer += piece
        body, self.buffer = self.buffer[:length], self.buffer[length:]
        return head, body

    def read_all(self):
        """Everything up to the end of the connection."""
        while True:
            piece = self.socket.recv(65536)
            if not piece:
                taken, self.buffer = self.buffer, b""
                return taken
            self.buffer += piece


def exchange(data, **kwargs):
    """Sends bytes on a connection of their own and returns everything that comes back until it ends."""
    with Wire(**kwargs) as wire:
        return wire.send(data).read_all()


def request(method, path, body=None, headers=(), keep=False):
    lines = [f"{method} {path} HTTP/1.1", "Host: terminal", f"Connection: {'keep-alive' if keep else 'close'}", *headers]
    if body is not None:
        lines.append(f"Content-Length: {len(body)}")
    return "\r\n".join(lines).encode() + b"\r\n\r\n" + (body or b"")


def form(files, boundary="xXboundaryXx", field="upload"):
    """The body of a form with (file name, content) pairs."""
    body = b""
    for name, content in files:
        body += (f"--{boundary}\r\nContent-Disposition: form-data; name=\"{field}\"; filename=\"{name}\"\r\n"
                 "Content-Type: application/zip\r\n\r\n").encode() + content + b"\r\n"
    return body + f"--{boundary}--\r\n".encode()


def upload(files, boundary="xXboundaryXx", field="upload", keep=False):
    """The whole request that uploads files through the form."""
    return request("POST", "/upload", form(files, boundary, field),
                   [f"Content-Type: multipart/form-data; boundary={boundary}"], keep)


def package(name="hello", version="1.0.0", files=None):
    """The bytes of a package."""
    files = files or {"bin/hello": b"#!/bin/sh\necho hello\n"}
    manifest = {"name": name, "version": version, "description": "a test",
                "files": {path: hashlib.sha256(content).hexdigest() for path, content in files.items()}}
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED) as archive:
        archive.writestr("manifest.json", json.dumps(manifest))
        for path, content in files.items():
            archive.writestr(path, content)
    return out.getvalue()
