"""Writes the seed corpora of the fuzzers below fuzz/corpus/. Usage: python3 fuzz/seeds.py"""

import hashlib
import io
import json
import pathlib
import zipfile

CORPUS = pathlib.Path(__file__).parent / "corpus"
FORM = (b'--x\r\nContent-Disposition: form-data; name="upload"; filename="a.zip"\r\nContent-Type: application/zip\r\n\r\n'
        b"content\r\n--x\r\n\tfolded\r\nContent-Disposition: form-data;\r\n name=upload; filename=b\r\n\r\n\r\n--\r\n--x--\r\n")
POST = b"POST /upload HTTP/1.1\r\nContent-Type: multipart/form-data; boundary=x\r\nConnection: keep-alive\r\n"
POST_MUCH = b"\x00" + POST
NO_HEADERS = b"--x\r\n" + 2049 * b"\n" + b"\r\n\r\n\r\n--x--"

PAGE = (b"<!DOCTYPE html>\n<html>\n<body>\n<form action='/' method='GET'>\n%s"
        b"<input type='submit' value='OK'>\n</form>\n</body>\n</html>\n")


def package(files, method=zipfile.ZIP_STORED, signature=b""):
    """A package of these files, names to content."""
    digests = {name: hashlib.sha256(content).hexdigest() for name, content in files.items() if not name.endswith("/")}
    manifest = json.dumps({"name": "hello", "version": "1.0.0", "description": "d", "files": digests}).encode()
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", method) as archive:
        entries = {"manifest.json": manifest, **({"manifest.json.p7s": signature} if signature else {}), **files}
        for name, content in entries.items():
            archive.writestr(zipfile.ZipInfo(name, (2020, 1, 1, 0, 0, 0)), content, method)
    return out.getvalue()


def record(covered):
    """A record of the serial line: STX, what is covered, and its check value."""
    crc = 0
    for byte in covered:
        crc ^= byte << 8
        for _ in range(8):
            crc = (crc << 1 ^ 0x8005 if crc & 0x8000 else crc << 1) & 0xFFFF
    return b"\x02" + covered + crc.to_bytes(2, "big")


def data(offset, content):
    return record(b"W" + len(content).to_bytes(2, "big") + offset.to_bytes(4, "big") + content)


def download(*content):
    """A whole download of one file."""
    blocks = b"".join(data(1024 * i, block) for i, block in enumerate(content))
    return b"\x05" + record(b"O" + b" " * 39 + b"a.zip\x03") + blocks + record(b"C\x03") + b"\x04"


def proxy(**members):
    return json.dumps({"proxy": {"result": "success", **members}}, separators=(",", ":")).encode()


def result(body, path=b"1"):
    return (b"POST /api/screen/%s/result HTTP/1.1\r\nHost: localhost:6380\r\nOrigin: http://localhost:6380\r\n"
            b"Content-Type: application/json\r\nContent-Length: %d\r\n\r\n%s" % (path, len(body), body))


# What the first bytes say, and how a peer's silence (0xFE) and a repetition (0xFC) stand among the others, is told by
# fuzz/input.h and the fuzzers themselves.
SEEDS = {
    "request_head": [b"\x00GET / HTTP/1.1\r\nHost: a\r\n\r\n", b"\x00GET /%2541/../b//c?d HTTP/1.0\r\nX: 1\r\n 2\r\n\r\n",
                     b"\x02POST \\x\nAuthorization: Basic dXNlcjpwYXNz\n\n", b"\x01HTTP/1.1 404 Not Found\r\n\r\n", b"\x00G",
                     b"\x00GET / HTTP/1.1\r\nHo\xfest: a\r\n\r\n", b"\x01GET /", b"\x00GET /\xfe\xfe HTTP/1.1\r\n\r\n"],
    "body_framing": [b"\x00POST / HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello",
                     b"\x00POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n5;x\r\nhello\r\n0\r\nA: b\r\n\r\n",
                     b"\x00HTTP/1.1 200 OK\r\nContent-Length: -1\r\nConnection: close\r\n\r\n1000\r\n" + b"z" * 4096 + b"\r\n0\r\n\r\n",
                     b"\x00POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\xfe1\r\nx\r\n0\r\n\xfe\r\n",
                     b"\x02POST / HTTP/1.1\r\nContent-Length: 6\r\n\r\nhello"],
    "connection": [b"\x00GET / HTTP/1.1\r\nConnection: keep-alive\r\n\r\nGET /certificates.tar HTTP/1.1\r\n\r\n",
                   b"\x00" + POST + b"Content-Length: %d\r\n\r\n" % len(FORM) + FORM + b"HEAD / HTTP/1.1\r\n\r\n",
                   b"\x00" + POST + b"Transfer-Encoding: chunked\r\n\r\n%x\r\n" % len(FORM) + FORM + b"\r\n0\r\n\r\n",
                   b"\x01PUT / HTTP/1.1\r\n\r\n", b"\x08GET / HTTP/1.1\r\n\r\n",
                   b"\x02GET / HTTP/1.1\r\nConnection: keep-alive\r\n\r\n\xfeGET / HTTP/1.1\r\n\r\n",
                   # Much is announced, or made of little.
                   b"\x00POST / HTTP/1.1\r\nContent-Length: 1000000\r\n\r\n", POST_MUCH + b"Content-Length: 2147483647\r\n\r\n--x\r\n",
                   POST_MUCH + b"Transfer-Encoding: chunked\r\n\r\n7fffffff\r\n--x\r\n", b"\x00GET / HTTP/1.1 " + 2049 * b"a ",
                   b"\x00GET / HTTP/1.1\r\n" + b"".join(b"%c:\n" % c for c in range(14, 255) if c not in b"\n\r :\xfe") + b"\n",
                   POST_MUCH + b"Content-Length: %d\r\n\r\n" % len(NO_HEADERS) + NO_HEADERS],
    # Where it is cut, and the form.
    "multipart": [b"\xff\xff" + FORM, b"\x80\x00" + FORM, b"\x40\x00preamble\r\n" + FORM + b"epilogue", b"\xc0\x00--x--",
                  b"\xff\xff" + FORM + FORM, b"\xa0\x00" + FORM.replace(b"content", b"\r\n--\r\n-x\r\n--"),
                  # The delimiter of the first file over the end of what is looked at; headers and a boundary line that fill it.
                  b"\xf0\x00" + FORM.replace(b"content", b"c\xfc\xff" + b"c" * 12),
                  b"\xff\xff" + FORM.replace(b"application/zip", b"a\xfc\xf7" + b"a" * 25),
                  b"\xff\xff" + FORM.replace(b"--x\r\n\tf", b"--x \xfc\xff\r\n\tf")],
    "next_param": [b'form-data; name="upload"; filename="a \\"b\\".zip"', b"multipart/form-data; boundary=x", b'a=b=c,"d', b""],
    "base64": [b"", b"f", b"fo", b"foo", b"Zm9vYmFy", b"dXNl cjpw\r\nYXNz", b"-_=="],
    "url": [b"http://host:8080/a?b", b"host", b"host:8080/a?b", b"https://[::1]:80/", b"://", b"a:99999"],
    # Whether check values are set right and what follows the last byte; which record is refused.
    "serial": [b"\x3f\x00" + download(b"content"), b"\x00\x00" + download(), b"\xff\x03" + download(b"x" * 1024, b"y"),
               b"\x08\x00" + record(b"M half\x03") + record(b"R\x03") + record(b"S\x03") + record(b"U\x03"),
               b"\x7f\x00\x15noise" + b"".join(record(letter + b"text\x03") for letter in (b"$", b"D", b"F", b"I", b"L", b"P", b"T")),
               b"\x3f\x00" + 3 * b"\x02C\x03\x00\x00", b"\x3f\x00\x02W\x04\x01\x00\x00\x00\x00", b"\xc0\x00\x02O" + b"n" * 300],
    "notification": [
        proxy(version="1.2", device_type="prod", auth_ex_support=1), proxy(loglevel=3), proxy(loglevel=2.5),
        proxy(cloud_env="prod", cloud_hostname="gateway", cloud_env_list=["prod", "test"], auth_ex=1),
        proxy(cloud_env="test", cloud_hostname="gateway", auth_ex=0,
              cloud_env_list2=[{"name": "test", "prod": False, "certs": ["auth-ex", "jx-basic"]}, {"name": "prod", "prod": True, "certs": ["auth-ex"]}]),
        b'{"proxy":{"command":"info"}}', b'{"proxy":{"command":"readconfig"}}', b'{"proxy":{"command":"cloudcheck"}}',
        b'{"proxy":{"command":"writeconfig","cloud_env":"prod","auth_ex":1}}', b'{"proxy":{"loglevel":4}}', b'{"result":"FAIL"}',
        b'{"libmac_cmd":"libmac_scan_manifests"}', b'{"libmac_cmd":"libmac_show_desktop"}', b'{"libmac_cmd":"\\u0000\\ud83d\\ude00"}',
        b"[1,-2,3.5e300,true,null,{}]", b"18446744073709551616", b"[" * 101, b'"\xff"'],
    "package": [package({"bin/hello": b"#!/bin/sh\n", "share/": b"", "share/empty": b""}), package({"a": b"a" * 1000}, zipfile.ZIP_DEFLATED),
                package({"a": b""}, signature=b"0\x82"), package({"../a": b"a"}), package({}), b"PK\x05\x06" + bytes(18),
                b'{"name":"hello","version":"1.0.0","files":{"bin/hello":"' + b"0" * 64 + b'"}}', b'{"name":"a","name":"b"}', b"[" * 20],
    "page": [b"<p><?var v?></p>\n<?html text?>\n<?js v = 1;\n?>", b"<?html v?><?no x?><?throw?><?other?><? ?><??>", b"a < b <?var", b"<?js v?><?var v?>", b"plain"],
    "screen_request": [
        b"GET / HTTP/1.1\r\nHost: localhost:6380\r\n\r\n", b"GET /api/screen?after=0&wait=1 HTTP/1.1\r\nHost: localhost:6380\r\n\r\n",
        b"GET //pages/../pages/%2e%2e/x HTTP/1.1\r\nHost: localhost:6380\r\nRange: bytes=0-1,2-3\r\n\r\n", b"HEAD /pages/style.css HTTP/1.1\r\nHost: localhost:6380\r\n\r\n",
        b"GET / HTTP/1.1\r\nHost: example.com\r\n\r\n", b"OPTIONS * HTTP/1.1\r\nHost: localhost:6380\r\n\r\n",
        result(b'{"result":1,"vars":{"loglevel":"3","gone":null}}'), result(b'{"result":-1}', b"9007199254740992"), result(b"[]"),
        b"POST /api/screen/1/result HTTP/1.1\r\nHost: localhost:6380\r\nTransfer-Encoding: chunked\r\n\r\n1\r\n{\r\n0\r\n\r\n",
        b"POST / HTTP/1.1\r\nHost: localhost:6380\r\nContent-Type: multipart/form-data; boundary=x\r\nContent-Length: 5\r\n\r\n--x--",
        b'{"result":2147483647,"vars":{"a":"\\u0041"}}', b"127.0.0.1:6380", b"[::1]:6380", b"http://localhost:6380", b"9007199254740991"],
    "answer_page": [
        PAGE % b"Upload failed<br>\n", PAGE % b"Upload successful<br>\nPackage upload-0.zip: 7 bytes<br><span style='color:#f00'>Warning: a &lt;b&gt;<br></span>",
        b"<span style='color:#0a0'>List of installed applications:<br>  hello 1.0.0<br></span>", b"Package upload-0.zip: 7 bytes\n\x00Error: a & b\n\x00",
        b"a\x00Error: b\x00List of installed applications:\n  (none)\n", b"&quot;&apos;", b"<span style='color:#f00'>Error:</span>Error:"],
}


def main():
    for name, seeds in SEEDS.items():
        folder = CORPUS / name
        folder.mkdir(parents=True, exist_ok=True)
        for number, seed in enumerate(seeds):
            (folder / f"seed-{number}").write_bytes(seed)


if __name__ == "__main__":
    main()
