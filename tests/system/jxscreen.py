"""A program that shows pages as it is told, and the screen's requests to it with raw bytes."""

import json
import queue
import re
import socket
import subprocess
import threading

from jxtest import BIN, Case, wait_until

CSP = ("default-src 'none'; script-src 'self'; style-src 'self'; style-src-attr 'unsafe-inline'; img-src 'self' data:; "
       "font-src 'self'; connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'")


class Answer:
    def __init__(self, raw):
        head, _, self.body = raw.partition(b"\r\n\r\n")
        lines = head.decode("latin-1").split("\r\n")
        self.status = int(lines[0].split(" ")[1])
        self.headers = {}
        for line in lines[1:]:
            name, _, value = line.partition(":")
            self.headers[name.lower()] = value.strip()

    @property
    def text(self):
        return self.body.decode()

    @property
    def json(self):
        return json.loads(self.body)


class Driver:
    """The program under test: takes commands, tells what came of them."""

    def __init__(self, case, **env):
        self.case = case
        with open(case.root / "stderr", "ab") as stderr:
            self.process = case.start(BIN / "jxscreen_driver", stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                      stderr=stderr, env=dict(case.env, **env))
        case.addCleanup(self.process.stdin.close)
        self.lines = queue.Queue()
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        with self.process.stdout as lines:
            for line in lines:
                self.lines.put(json.loads(line))

    def tell(self, **command):
        self.process.stdin.write(json.dumps(command).encode() + b"\n")
        self.process.stdin.flush()

    def next(self):
        return self.lines.get(timeout=60)

    def end(self):
        """Ends it in the usual way."""
        self.process.stdin.close()
        self.case.assertEqual(self.process.wait(60), 0)


class ScreenCase(Case):
    PAGES = {
        "a.html": "<html><body><p>A <?var name?></p></body></html>",
        "b.html": "<html><body>B</body></html>",
        "text.html": "<body><?html text?>|<?var text?>|<?html name?></body>",
        "script.html": "<body><?js vars.made = 'by script'; delete vars.gone; print(escape(vars.name)) ?></body>",
        "auto.html": "<html><body data-auto-result=\"5\">Auto</body></html>",
        "broken.html": "<body>1<?js nonsense() ?>2<?unknown x?>3\n<?var name</body>",
        "style.css": "body { color: black }",
        "screen.js": "'use strict';",
        "icon.svg": "<svg xmlns='http://www.w3.org/2000/svg'/>",
        "sub/deeper.css": "i {}",
    }

    def setUp(self):
        super().setUp()
        self.pages = self.root / "pages"
        for name, content in self.PAGES.items():
            path = self.pages / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(content)
        self.env.update(JXPLATFORM_PAGES=str(self.pages), JXPLATFORM_SCREEN="127.0.0.1:0", GUIPRT_APPNAME="Test <app>")

    def drive(self, **env):
        self.driver = Driver(self, **env)
        return self.driver

    def url(self):
        path = self.root / "screen.url"
        return wait_until(lambda: path.exists() and path.read_text().strip(), what="screen.url")

    @property
    def port(self):
        return int(re.fullmatch(r"http://(?:127\.0\.0\.1|\[::1\]):(\d+)/", self.url()).group(1))

    def stderr(self):
        return (self.root / "stderr").read_text()

    def connect(self):
        connection = socket.create_connection(("127.0.0.1", self.port), 60)
        self.addCleanup(connection.close)
        return connection

    @staticmethod
    def receive(connection):
        raw = b""
        while True:
            block = connection.recv(65536)
            if not block:
                return raw
            raw += block

    def send(self, raw):
        """Sends bytes, and reads to the end of the connection."""
        connection = self.connect()
        connection.sendall(raw)
        answer = Answer(self.receive(connection))
        connection.close()
        return answer

    def request(self, method, path, headers=(), body=b"", host=None):
        head = f"{method} {path} HTTP/1.1\r\nHost: {host or f'127.0.0.1:{self.port}'}\r\n"
        head += "".join(f"{line}\r\n" for line in headers)
        if method == "POST":
            head += f"Content-Length: {len(body)}\r\n"
        return self.send(head.encode("latin-1") + b"\r\n" + body)

    def get(self, path, **kwargs):
        return self.request("GET", path, **kwargs)

    def post(self, page_id, body, **kwargs):
        if not isinstance(body, bytes):
            body = json.dumps(body).encode()
        return self.request("POST", f"/api/screen/{page_id}/result", body=body, **kwargs)

    def screen(self, after=0):
        """The page above `after`, waiting for it."""
        while True:
            answer = self.get(f"/api/screen?after={after}&wait=30")
            if answer.status == 200:
                return answer.json
            self.assertEqual(answer.status, 204)

    def show(self, page="a.html", after=0, **command):
        """Shows a synchronous page and returns what the screen says of it."""
        self.driver.tell(sync=page, **command)
        return self.screen(after)
