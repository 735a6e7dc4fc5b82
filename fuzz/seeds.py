"""Writes the seed corpora of the fuzzers below fuzz/corpus/. Usage: python3 fuzz/seeds.py"""

import pathlib

CORPUS = pathlib.Path(__file__).parent / "corpus"
FORM = (b'--x\r\nContent-Disposition: form-data; name="upload"; filename="a.zip"\r\nContent-Type: application/zip\r\n\r\n'
        b"content\r\n--x\r\n\tfolded\r\nContent-Disposition: form-data;\r\n name=upload; filename=b\r\n\r\n\r\n--\r\n--x--\r\n")
POST = b"POST /upload HTTP/1.1\r\nContent-Type: multipart/form-data; boundary=x\r\nConnection: keep-alive\r\n"

# The first byte of most says in what pieces the others arrive.
SEEDS = {
    "request_head": [b"\x00GET / HTTP/1.1\r\nHost: a\r\n\r\n", b"\xffGET /%2541/../b//c?d HTTP/1.0\r\nX: 1\r\n 2\r\n\r\n",
                     b"\x03POST \\x\nAuthorization: Basic dXNlcjpwYXNz\n\n", b"\x01HTTP/1.1 404 Not Found\r\n\r\n", b"\x00G"],
    "body_framing": [b"\x00POST / HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello",
                     b"\xffPOST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n5;x\r\nhello\r\n0\r\nA: b\r\n\r\n",
                     b"\x02HTTP/1.1 200 OK\r\nContent-Length: -1\r\nConnection: close\r\n\r\n1000\r\n" + b"z" * 4096 + b"\r\n0\r\n\r\n"],
    "connection": [b"\xffGET / HTTP/1.1\r\nConnection: keep-alive\r\n\r\nGET /certificates.tar HTTP/1.1\r\n\r\n",
                   b"\x10" + POST + b"Content-Length: %d\r\n\r\n" % len(FORM) + FORM + b"HEAD / HTTP/1.1\r\n\r\n",
                   b"\xff" + POST + b"Transfer-Encoding: chunked\r\n\r\n%x\r\n" % len(FORM) + FORM + b"\r\n0\r\n\r\n",
                   b"\x01PUT / HTTP/1.1\r\n\r\n"],
    "multipart": [b"\xff" + FORM, b"\x00" + FORM, b"\x05preamble\r\n" + FORM + b"epilogue", b"\x01--x--"],
    "next_param": [b'form-data; name="upload"; filename="a \\"b\\".zip"', b"multipart/form-data; boundary=x", b'a=b=c,"d', b""],
    "base64": [b"", b"f", b"fo", b"foo", b"Zm9vYmFy", b"dXNl cjpw\r\nYXNz", b"-_=="],
    "url": [b"http://host:8080/a?b", b"host", b"host:8080/a?b", b"https://[::1]:80/", b"://", b"a:99999"],
}


def main():
    for name, seeds in SEEDS.items():
        folder = CORPUS / name
        folder.mkdir(parents=True, exist_ok=True)
        for number, seed in enumerate(seeds):
            (folder / f"seed-{number}").write_bytes(seed)


if __name__ == "__main__":
    main()
