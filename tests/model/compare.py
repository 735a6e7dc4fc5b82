"""Compares the program's readers with the model on generated input: valid, mutated, cut, and interrupted by a silence.

Usage: compare.py DRIVER CASES [SEED]
"""

import random
import subprocess
import sys
import tempfile

import model

WORDS = [b"GET", b"POST", b"PUT", b"HEAD", b"OPTIONS", b"get", b"HTTP/1.1", b"HTTP/1.0", b"BREW", b""]
TARGETS = [b"/", b"/upload", b"/a/../b", b"/a/..", b"/../../x", b"/a//b?x=1", b"/x?y=//z", b"%2e%2e/x", b"/%2541", b"/a\\b?c\\d",
           b"http://host/x", b"/%", b"/%zz", b"/%4", b"%%34%31", b"/%00", b"*", b"/a%2f..%2f/b", b"/%25%32%35", b"/..//../"]
FIELDS = [b"Host: a", b"Connection: keep-alive", b"Connection: close", b"X-A: 1", b" 2", b"\tfolded", b"No colon", b": empty",
          b"Host : b", b"HTTP-Version: X", b"A:b\rc", b"Content-Length: 5", b"Content-Length: 0", b"Content-Length: -3",
          b"Content-Length: abc", b"Content-Length: +7x", b"Content-Length: 99999999999", b"Content-Length: 4294967301",
          b"Transfer-Encoding: chunked", b"Transfer-Encoding: gzip, Chunked", b"Transfer-Encoding: identity"]
CHUNKS = [b"5\r\nhello\r\n", b"1\r\nx\r\n", b"a;ext=1\r\n0123456789\r\n", b"0005\nhello\n", b"0x3\r\nabc\r\n", b"3\r\nabcdef\r\n",
          b"-5\r\nhello\r\n", b"80000000\r\nx", b"ffffffffff\r\n", b"zz\r\n", b"\r\n", b" 2\r\nhi\r\n",
          b"1000\r\n" + b"p" * 4096 + b"\r\n"]
LAST = [b"0\r\n\r\n", b"0x\r\n\r\n", b"-0Xg\r\n\r\n", b"0\r\nTrailer: 1\r\n\r\n", b"000\n\n", b"0\r\n", b""]
DISPOSITIONS = [b'form-data; name="upload"; filename="a.zip"', b'form-data; name=upload; filename=a', b'form-data; name="other"; filename="b"',
                b'form-data; name="upload"; filename=""', b'form-data; name="upload"', b'attachment; name="upload"; filename="x"',
                b'form-data; filename="a\\"b"; name="upload"', b'form-data;name="up\\load";filename=q', b'form-data; name="upload"; filename="open']
EXTRA_HEADERS = [b"Content-Type: application/zip", b"X: y", b"\tfolded; more", b" ; filename=folded", b"broken", b"X: " + b"h" * 2000]
BOUNDARIES = [b"x", b"xXboundaryXx", b"-" * 26 + b"d74496d66958873e", b"--", b"a" * 70, b"b" * 3000]


class Generator:
    def __init__(self, seed):
        self.random = random.Random(seed)

    def some(self, choices, most):
        return [self.random.choice(choices) for _ in range(self.random.randrange(most + 1))]

    def mutate(self, data):
        """Leaves most inputs as they are; cuts, flips, drops, repeats or inserts in the others."""
        for _ in range(self.random.choice([0, 0, 1, 1, 2, 5])):
            if not data:
                break
            at = self.random.randrange(len(data))
            kind = self.random.randrange(5)
            if kind == 0:
                data = data[:at]
            elif kind == 1:
                data = data[:at] + bytes([self.random.randrange(256)]) + data[at + 1:]
            elif kind == 2:
                data = data[:at] + data[at + self.random.randrange(1, 9):]
            elif kind == 3:
                data = data[:at] + data[at:at + 40] + data[at:]
            else:
                data = data[:at] + self.random.choice([b"\r\n", b"--", b"\0", b"%", b":", b"\r", b"\n", b'"']) + data[at:]
        return data

    def start_line(self):
        words = [self.random.choice(WORDS), self.random.choice(TARGETS), b"HTTP/1.1"]
        if words[0].startswith(b"HTTP"):
            words[1] = self.random.choice([b"200", b"404", b"-1", b"abc", b"99999999999", b"+204"])
        words = words[:self.random.choice([1, 2, 3, 3, 3, 3])] + self.some([b"extra"], 1)[:self.random.choice([0, 0, 1])]
        return self.random.choice([b" ", b" ", b"  ", b"\t"]).join(words)

    def message(self):
        body = self.random.choice([b"", b"hello", b"hello world", b"".join(self.some(CHUNKS, 4)) + self.random.choice(LAST),
                                   b"".join(self.some(CHUNKS[:5] + CHUNKS[-1:], 4)) + LAST[0] + b"GET / HTTP/1.1\r\n"])
        ending = self.random.choice([b"\r\n", b"\r\n", b"\n"])
        return self.mutate(ending.join([self.start_line()] + self.some(FIELDS, 5) + [b"", b""]) + body)

    def content(self, boundary):
        kinds = [b"", b"\r\n", b"\r\n--" + boundary[:-1], b"--" + boundary, b"\r\n" * 700, bytes(range(256)),
                 (b"\r\n--" + boundary)[:-1] * 30, b"z" * self.random.randrange(9000)]
        return b"".join(self.some(kinds, 3))

    def part(self, boundary):
        headers = self.some(EXTRA_HEADERS, 2) + [b"Content-Disposition: " + self.random.choice(DISPOSITIONS)] + self.some(EXTRA_HEADERS, 2)
        return b"--" + boundary + b"\r\n" + b"\r\n".join(headers) + b"\r\n\r\n" + self.content(boundary) + b"\r\n"

    def form(self):
        boundary = self.random.choice(BOUNDARIES)
        preamble = self.random.choice([b"", b"", b"", b"preamble\r\n", b"q" * 5000 + b"\r\n"])
        body = preamble + b"".join(self.part(boundary) for _ in range(self.random.randrange(4)))
        body += b"--" + boundary + self.random.choice([b"--\r\n", b"--", b"\r\n", b"--epilogue" + b"e" * 5000])
        body = self.mutate(body)
        kind = self.random.choice([b"multipart/form-data; boundary=", b"multipart/form-data; charset=x; boundary=",
                                   b"Multipart/Form-Data; boundary=", b"multipart/form-data; Boundary=",
                                   b"multipart/form-data; boundary=y; boundary="] + [b"multipart/form-data; boundary="] * 6)
        name = self.random.choice([boundary, b'"' + boundary + b'"'])
        head = b"POST /upload HTTP/1.1\r\nContent-Type: " + kind + name + b"\r\n"
        if self.random.randrange(3) == 0:
            return head + b"Transfer-Encoding: chunked\r\n\r\n" + self.chunked(body)
        length = len(body) + self.random.choice([0, 0, 0, 0, -1, 1, 4096])
        return head + b"Content-Length: %d\r\n\r\n" % length + body

    def chunked(self, body):
        out = b""
        while body:
            size = min(len(body), self.random.choice([1, 7, 100, 4095, 4096, 4097, 20000]))
            if len(body) > 3000:
                size = max(size, 100)
            out += b"%x\r\n" % size + body[:size] + b"\r\n"
            body = body[size:]
        return out + self.random.choice([b"0\r\n\r\n", b"0\r\n\r\n", b"0\r\nA: b\r\n\r\n", b"zz\r\n", b""])


def text(data):
    return data.hex() or "-"


def expect_message(message, server):
    status, method, path, keep = message.read_header()
    if server:
        message.client_mode = 0
    words = [f"{status} {method} {text(path)} {keep:d} {message.remaining}"]
    words += [f"{text(key)}={text(value)}" for key, value in sorted(message.headers.items())]
    if keep:
        try:
            body = message.read_whole()
            length = len(body)
        except model.Broken:
            body, length = b"", -1
        words.append(f"| {length} {text(body)} {message.open:d} {message.remaining}")
    return " ".join(words)


def expect_form(message):
    if message.read_header()[0] != 200:
        return "no request"
    message.client_mode = 0
    result, stored = model.receive(message, b"upload")
    return " ".join([f"{result:d}", *map(text, stored), f"{message.open:d}"])


def main():
    driver, cases = sys.argv[1], int(sys.argv[2])
    seed = sys.argv[3] if len(sys.argv) > 3 else "1"
    generator = Generator(seed)
    different = 0
    with tempfile.TemporaryDirectory() as directory:
        with subprocess.Popen([driver, directory], stdin=subprocess.PIPE, stdout=subprocess.PIPE) as process:
            for number in range(cases):
                kind = generator.random.choice("QAF")
                data = generator.form() if kind == "F" else generator.message()
                silence = generator.random.choice([None, None, generator.random.randrange(len(data) + 1)])
                end = generator.random.choice("CTF")
                process.stdin.write(f"{kind} {-1 if silence is None else silence} {end} {len(data)} ".encode() + data)
                process.stdin.flush()
                message = model.Message(data, silence, end == "C")
                expected = expect_form(message) if kind == "F" else expect_message(message, kind == "Q")
                # What is left unread is the next request; of a connection that was given up it means nothing.
                got, unread = process.stdout.readline().decode().strip().rsplit(" ", 1)
                same = got == expected and (not message.open or int(unread) == len(data) - message.at)
                if not same:
                    different += 1
                    print(f"case {number} of seed {seed}, {kind}, silence at {silence}, end {end}: {data!r}\n  model   {expected}"
                          f" {len(data) - message.at}\n  program {got} {unread}", file=sys.stderr)
                if different == 5:
                    process.kill()
                    break
    print(f"{number + 1} cases, {different} different")
    return 1 if different else 0


if __name__ == "__main__":
    sys.exit(main())
