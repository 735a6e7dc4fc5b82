"""The screen's requests, with raw bytes, against a program that shows pages as it is told."""

import json
import os
import queue
import re
import socket
import struct
import subprocess
import threading
import time
import unittest

from jxtest import BIN, Case, wait_until

CSP = ("default-src 'none'; script-src 'self'; style-src 'self'; style-src-attr 'unsafe-inline'; img-src 'self' data:; "
       "font-src 'self'; connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'")
BODY_LIMIT = 1 << 20


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


class Pages(ScreenCase):
    def test_document_names_its_script_and_style_and_nothing_of_elsewhere(self):
        self.drive()
        self.show()
        answer = self.get("/")
        self.assertEqual(answer.status, 200)
        self.assertEqual(answer.headers["content-type"], "text/html; charset=utf-8")
        self.assertEqual(answer.headers["content-security-policy"], CSP)
        self.assertIn('<main id="screen" tabindex="-1"></main>', answer.text)
        self.assertIn("<title>Test &lt;app&gt;</title>", answer.text)
        self.assertEqual(re.findall(r'(?:src|href)="([^"]*)"', answer.text),
                         ["data:,", "/pages/style.css", "/pages/screen.js"])
        self.assertNotIn("<script>", answer.text)

    def test_page_on_screen_has_its_members_and_no_others(self):
        self.drive()
        screen = self.show(vars={"name": "<b>&"})
        self.assertEqual(list(screen), ["id", "page", "sync", "vars", "html"])
        self.assertLess(0, screen["id"])
        self.assertLess(screen["id"], 2 ** 53)
        self.assertEqual(screen["page"], "a.html")
        self.assertIs(screen["sync"], True)
        self.assertEqual(screen["vars"], {"name": "<b>&"})
        self.assertEqual(screen["html"], "<html><body><p>A &lt;b&gt;&amp;</p></body></html>")
        self.assertEqual(self.get("/api/screen").headers["content-type"], "application/json")
        self.assertEqual(self.get("/api/screen").headers["cache-control"], "no-store")

    def test_markup_from_outside_stays_text_but_for_the_text_variable(self):
        self.drive()
        html = self.show("text.html", vars={"text": "<b>bold</b>", "name": "<script>1</script>"})["html"]
        self.assertEqual(html, "<body><b>bold</b>|&lt;b&gt;bold&lt;/b&gt;|&lt;script&gt;1&lt;/script&gt;</body>")
        self.assertIn('libzorguiprt: text.html: line 1: <?html name?>: only "text" is HTML', self.stderr())

    def test_script_changes_reach_the_browser_and_the_program(self):
        self.drive()
        screen = self.show("script.html", vars={"name": "<é😀>", "gone": "x"})
        self.assertEqual(screen["html"], "<body>&lt;é😀&gt;</body>")
        self.assertEqual(screen["vars"], {"name": "<é😀>", "made": "by script"})
        self.post(screen["id"], {"result": 0, "vars": {"name": None, "more": "😀"}})
        self.assertEqual(self.driver.next(), {"returned": "script.html", "result": 0,
                                              "vars": {"made": "by script", "more": "😀"}})

    def test_broken_instructions_are_left_out_and_told_on_standard_error(self):
        self.drive()
        self.assertEqual(self.show("broken.html")["html"], "<body>123\n")
        lines = self.stderr().splitlines()
        self.assertEqual(len(lines), 3, lines)
        self.assertIn("broken.html: line 1: <?js …?> failed: ReferenceError", lines[0])
        self.assertIn("broken.html: line 1: <?unknown …?>: nothing is registered", lines[1])
        self.assertIn("broken.html: line 2: an instruction without an end", lines[2])

    def test_missing_page_returns_at_once_with_a_line_and_leaves_the_variables(self):
        self.drive()
        for page in ("missing.html", "../a.html", "/etc/passwd", "", "sub"):
            self.driver.tell(sync=page, vars={"name": "kept"})
            self.assertEqual(self.driver.next(), {"returned": page, "result": -1, "vars": {"name": "kept"}})
        self.assertIn("libzorguiprt: cannot read the page missing.html in", self.stderr())
        self.assertEqual(len(self.stderr().splitlines()), 5)

    def test_missing_page_shown_asynchronously_counts_as_left(self):
        self.drive()
        self.driver.tell(**{"async": "missing.html"})
        got = [self.driver.next() for _ in range(3)]
        self.assertIn({"shown": "missing.html"}, got)
        self.assertIn({"reported": "missing.html", "type": 0, "result": -1}, got)

    def test_page_that_ends_for_a_missing_one_takes_no_result(self):
        self.drive()
        self.driver.tell(**{"async": "a.html"})
        page_id = self.screen()["id"]
        self.driver.tell(sync="missing.html")
        self.assertEqual(self.driver.next(), {"shown": "a.html"})
        self.assertEqual(self.driver.next()["result"], -1)
        self.assertEqual(self.post(page_id, {"result": 1}).status, 409)


class Results(ScreenCase):
    def test_synchronous_page_returns_result_and_variables_once(self):
        self.drive()
        page_id = self.show(vars={"name": "old", "gone": "x"})["id"]
        answer = self.post(page_id, {"result": 5, "vars": {"name": "new", "gone": None, "never": None}})
        self.assertEqual((answer.status, answer.body), (204, b""))
        self.assertEqual(self.driver.next(), {"returned": "a.html", "result": 5, "vars": {"name": "new"}})
        self.assertEqual(self.post(page_id, {"result": 6}).status, 409)
        self.assertEqual(self.screen()["id"], page_id, "the page stays on screen until the next one")

    def test_result_without_variables_leaves_them(self):
        self.drive()
        page_id = self.show(vars={"name": "v"})["id"]
        self.assertEqual(self.post(page_id, {"result": -1}).status, 204)
        self.assertEqual(self.driver.next(), {"returned": "a.html", "result": -1, "vars": {"name": "v"}})

    def test_replaced_page_takes_no_result(self):
        self.drive()
        self.driver.tell(sync="a.html", thread=True)
        first = self.screen()["id"]
        second = self.show("b.html", after=first)["id"]
        self.assertGreater(second, first)
        self.assertEqual(self.driver.next(), {"returned": "a.html", "result": -1, "vars": {}})
        answer = self.post(first, {"result": 1})
        self.assertEqual(answer.status, 409)
        self.assertTrue(answer.text.strip())
        self.assertEqual(self.post(second, {"result": 1}).status, 204)
        self.assertEqual(self.driver.next()["result"], 1)

    def test_two_browsers_pressing_at_once_one_is_heard(self):
        self.drive()
        after = 0
        for _ in range(20):
            after = page_id = self.show(after=after)["id"]
            answers = [None] * 4
            barrier = threading.Barrier(len(answers))

            def press(index):
                barrier.wait()
                answers[index] = self.post(page_id, {"result": index}).status

            threads = [threading.Thread(target=press, args=(i,)) for i in range(len(answers))]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            self.assertEqual(sorted(answers), [204, 409, 409, 409])
            self.assertEqual(self.driver.next()["result"], answers.index(204))
        self.assertTrue(self.driver.lines.empty())

    def test_asynchronous_page_stays_and_reports_until_left(self):
        self.drive()
        self.driver.tell(**{"async": "a.html"})
        self.assertEqual(self.driver.next(), {"shown": "a.html"})
        screen = self.screen()
        self.assertIs(screen["sync"], False)
        for result in (0, 7, -1):
            self.assertEqual(self.post(screen["id"], {"result": result, "vars": {"ignored": "x"}}).status, 204)
            self.assertEqual(self.driver.next(), {"began": "a.html"})
            self.assertEqual(self.driver.next(), {"reported": "a.html", "type": 0, "result": result})
        self.assertEqual(self.post(screen["id"], {"result": -1}).status, 409)
        self.assertEqual(self.screen()["id"], screen["id"])

    def test_replaced_asynchronous_page_reports_nothing_more(self):
        self.drive()
        self.driver.tell(**{"async": "a.html"})
        first = self.screen()["id"]
        second = self.show("b.html", after=first)["id"]
        self.assertEqual(self.driver.next(), {"shown": "a.html"})
        self.assertEqual(self.post(first, {"result": -1}).status, 409)
        self.assertEqual(self.post(second, {"result": 2}).status, 204)
        self.assertEqual(self.driver.next(), {"returned": "b.html", "result": 2, "vars": {}})

    def test_next_page_waits_for_the_callback_that_runs(self):
        self.drive()
        self.driver.tell(**{"async": "a.html", "hold": True})
        page_id = self.screen()["id"]
        self.assertEqual(self.post(page_id, {"result": -1}).status, 204)
        self.driver.tell(sync="b.html", thread=True)
        self.assertEqual(self.driver.next(), {"shown": "a.html"})
        self.assertEqual(self.driver.next(), {"began": "a.html"})
        self.assertEqual(self.get(f"/api/screen?after={page_id}&wait=1").status, 204)
        self.driver.tell(release=True)
        self.assertEqual(self.driver.next(), {"reported": "a.html", "type": 0, "result": -1})
        self.assertEqual(self.screen(page_id)["page"], "b.html")

    def test_callback_may_show_a_page_itself(self):
        self.drive()
        self.driver.tell(**{"async": "a.html", "then": "b.html"})
        page_id = self.screen()["id"]
        self.assertEqual(self.post(page_id, {"result": 1}).status, 204)
        inner = self.screen(page_id)
        self.assertEqual(inner["page"], "b.html")
        self.assertEqual(self.post(inner["id"], {"result": 4}).status, 204)
        self.assertEqual([self.driver.next() for _ in range(4)],
                         [{"shown": "a.html"}, {"began": "a.html"}, {"returned": "b.html", "result": 4, "vars": {}},
                          {"reported": "a.html", "type": 0, "result": 1}])

    def test_callback_of_a_synchronous_page_ends_it(self):
        self.drive()
        self.driver.tell(sync="a.html", vars={"name": "v"}, polls=3)
        self.assertEqual(self.driver.next(), {"returned": "a.html", "result": -1, "vars": {"name": "v"}})
        self.assertEqual(self.post(self.screen()["id"], {"result": 1}).status, 409)


class BadRequests(ScreenCase):
    def setUp(self):
        super().setUp()
        self.drive()
        self.page_id = self.show()["id"]

    def tearDown(self):
        # Whatever was sent, the page is still there and takes its result.
        self.assertEqual(self.post(self.page_id, {"result": 1}).status, 204)
        self.assertEqual(self.driver.next()["result"], 1)

    def refused(self, answer, status, reason=""):
        self.assertEqual(answer.status, status, answer.body)
        self.assertRegex(answer.text, r"\A[^\n]+\n\Z", "a refusal is one line")
        self.assertIn(reason, answer.text)
        self.assertEqual(answer.headers["content-type"], "text/plain; charset=utf-8")

    def test_malformed_bodies(self):
        for body, reason in (
                (b"", "not JSON"), (b"{", "not JSON"), (b"\xff", "not JSON"), (b'{"result":1}x', "not JSON"),
                (b"[" * 100000, "not JSON"), (b"[]", "not a JSON object"), (b"{}", '"result" is missing'),
                (b'{"result":"1"}', "integer"), (b'{"result":1.5}', "integer"), (b'{"result":null}', "integer"),
                (b'{"result":4294967296}', "integer"), (b'{"result":1,"vars":[]}', '"vars" is not an object'),
                (b'{"result":1,"vars":{"a":1}}', '"a" is neither a string nor null'),
                (b'{"result":1,"vars":{"a":{}}}', '"a" is neither a string nor null'),
                (b'{"result":1,"page":"x"}', '"page"')):
            with self.subTest(body=body[:40]):
                self.refused(self.post(self.page_id, body), 400, reason)

    def test_content_type_of_a_form_changes_nothing(self):
        for kind in ("application/x-www-form-urlencoded", "multipart/form-data; boundary=x", "text/plain"):
            with self.subTest(kind=kind):
                self.refused(self.post(self.page_id, b'{"result":x}', headers=[f"Content-Type: {kind}"]), 400)
        long = b'{"result":"' + b"x" * 20000 + b'"}'
        self.refused(self.post(self.page_id, long, headers=["Content-Type: application/x-www-form-urlencoded"]), 400,
                     "integer")

    def test_malformed_ids(self):
        for page_id in ("x", "-1", "1.0", "%20", "", "9" * 30, "9007199254740992", "0x10"):
            with self.subTest(page_id=page_id):
                self.refused(self.post(page_id, {"result": 1}), 400, "number of a page")
        self.refused(self.post(self.page_id + 1, {"result": 1}), 409)
        self.refused(self.post(0, {"result": 1}), 409)

    def test_malformed_queries(self):
        for query in ("after=", "after=x", "after=-1", "after=1.5", "after=9007199254740992", "after=1&after=2", "wait=x",
                      "wait=-1", "wait=", "wait=0.5", "wait=99999999999999999999"):
            with self.subTest(query=query):
                self.refused(self.get("/api/screen?" + query), 400)
        self.assertEqual(self.get("/api/screen?after=0&wait=0&unknown=1").status, 200)

    def test_methods(self):
        self.assertEqual(self.request("HEAD", "/").status, 200)
        self.assertEqual(self.request("HEAD", "/").body, b"")
        head = self.request("HEAD", "/pages/style.css")
        self.assertEqual((head.status, head.body, head.headers["content-length"]), (200, b"", "21"))
        for method in ("PUT", "DELETE", "OPTIONS", "PATCH"):
            answer = self.request(method, "/pages/style.css")
            self.refused(answer, 405)
            self.assertEqual(answer.headers["allow"], "GET, HEAD")
        for path in ("/", "/api/screen", "/pages/style.css"):
            self.refused(self.request("POST", path, body=b"{}"), 405)
        answer = self.get(f"/api/screen/{self.page_id}/result")
        self.refused(answer, 405)
        self.assertEqual(answer.headers["allow"], "POST")

    def test_unknown_paths(self):
        for path in ("/x", "/api", "/api/", "/api/screen/", f"/api/screen/{self.page_id}", "/pages", "/favicon.ico",
                     "/api/screen/1/2/result", "/" + "a" * 8000, "/api/screen/" + "1" * 8000):
            with self.subTest(path=path[:40]):
                self.refused(self.get(path), 404)
        self.refused(self.request("POST", "/api/screen/" + "1" * 8000 + "/result", body=b"{}"), 405)
        self.refused(self.request("POST", "/x", body=b"{}"), 404)

    def test_paths_behind_a_doubled_slash_are_the_same(self):
        self.assertEqual(self.get("//api/screen").json["id"], self.page_id)
        self.assertEqual(self.get("//pages/style.css").status, 200)

    def test_files_below_the_pages_folder_alone(self):
        (self.root / "secret.css").write_text("secret")
        (self.pages / "link.css").symlink_to(self.root / "secret.css")
        (self.pages / "folder").symlink_to(self.root)
        (self.pages / ".hidden").write_text("hidden")
        os.mkfifo(self.pages / "pipe")
        for path in ("../secret.css", "%2e%2e/secret.css", "%2E%2E%2Fsecret.css", "..%2fsecret.css", "sub/../../secret.css",
                     "..\\secret.css", "link.css", "folder/secret.css", ".hidden", "pipe", "", "sub", "sub/", "missing.css",
                     "/etc/passwd", "%2fetc%2fpasswd", "style.css%00.png", "style.css/", "//style.css", "%"):
            with self.subTest(path=path):
                self.refused(self.get("/pages/" + path), 404)

    def test_files_carry_their_type(self):
        for path, kind in (("style.css", "text/css; charset=utf-8"), ("screen.js", "text/javascript; charset=utf-8"),
                           ("icon.svg", "image/svg+xml"), ("sub/deeper.css", "text/css; charset=utf-8")):
            answer = self.get("/pages/" + path)
            self.assertEqual((answer.status, answer.text), (200, self.PAGES[path]))
            self.assertEqual(answer.headers["content-type"], kind)
            self.assertEqual(answer.headers["x-content-type-options"], "nosniff")
            self.assertEqual(answer.headers["content-security-policy"], CSP)

    def test_ranges_are_not_answered_in_parts(self):
        ranges = "Range: bytes=" + ",".join(["0-"] * 500)
        answer = self.get("/pages/style.css", headers=[ranges])
        self.assertEqual((answer.status, answer.text), (200, self.PAGES["style.css"]))

    def test_foreign_hosts_and_origins(self):
        port = self.port
        for host in ("evil.example", f"evil.example:{port}", "127.0.0.1", f"127.0.0.1:{port + 1}", f"192.168.0.1:{port}",
                     f"localhost.evil.example:{port}"):
            for method, path in (("GET", "/"), ("GET", "/api/screen"), ("GET", "/pages/style.css"), ("GET", "/x"),
                                 ("POST", f"/api/screen/{self.page_id}/result")):
                with self.subTest(host=host, path=path):
                    self.refused(self.request(method, path, host=host, body=b'{"result":1}'), 403, "Host")
        for origin in ("null", "http://evil.example", f"https://127.0.0.1:{port}", "http://127.0.0.1", f"http://evil.example:{port}"):
            with self.subTest(origin=origin):
                self.refused(self.post(self.page_id, {"result": 1}, headers=["Origin: " + origin]), 403, "Origin")
                self.refused(self.get("/api/screen", headers=["Origin: " + origin]), 403, "Origin")
        self.refused(self.send(b"GET / HTTP/1.1\r\n\r\n"), 403, "Host")
        self.refused(self.get("/", headers=[f"Host: 127.0.0.1:{port}"]), 403, "Host")

    def test_own_hosts_and_origins(self):
        for name in ("127.0.0.1", "localhost", "LOCALHOST", "[::1]"):
            host = f"{name}:{self.port}"
            self.assertEqual(self.get("/api/screen", host=host, headers=["Origin: http://" + host]).status, 200, name)

    def test_long_bodies(self):
        self.refused(self.post(self.page_id, b" " * (BODY_LIMIT + 1)), 400, f"{BODY_LIMIT} bytes")
        self.refused(self.post(self.page_id, b" " * BODY_LIMIT), 400, "not JSON")
        self.refused(self.post(self.page_id, b" " * (BODY_LIMIT * 10)), 400, f"{BODY_LIMIT} bytes")
        head = f"POST /api/screen/{self.page_id}/result HTTP/1.1\r\nHost: 127.0.0.1:{self.port}\r\n"
        self.refused(self.send((head + "Content-Length: 1000000000000\r\n\r\n").encode()), 400, f"{BODY_LIMIT} bytes")
        chunk = b"100000\r\n" + b" " * 0x100000 + b"\r\n"
        self.refused(self.send((head + "Transfer-Encoding: chunked\r\n\r\n").encode() + chunk * 2 + b"0\r\n\r\n"), 400,
                     f"{BODY_LIMIT} bytes")

    def test_body_that_stops_short_is_refused(self):
        head = f"POST /api/screen/{self.page_id}/result HTTP/1.1\r\nHost: 127.0.0.1:{self.port}\r\n"
        connection = self.connect()
        connection.sendall((head + "Content-Length: 100\r\n\r\n").encode() + b'{"result":1}')
        connection.shutdown(socket.SHUT_WR)
        self.refused(Answer(self.receive(connection)), 400)

    def test_connections_closed_in_the_middle_do_no_harm(self):
        request = (f"POST /api/screen/{self.page_id}/result HTTP/1.1\r\nHost: 127.0.0.1:{self.port}\r\n"
                   "Content-Length: 12\r\n\r\n").encode() + b'{"result":1}'
        for size in range(0, len(request) - 1):
            connection = self.connect()
            connection.sendall(request[:size])
            if size % 2:
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            connection.close()

    def test_request_split_at_every_byte_is_answered(self):
        request = (f"GET /api/screen HTTP/1.1\r\nHost: 127.0.0.1:{self.port}\r\n\r\n").encode()
        for size in range(1, len(request)):
            connection = self.connect()
            connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            connection.sendall(request[:size])
            connection.sendall(request[size:])
            self.assertEqual(Answer(self.receive(connection)).json["id"], self.page_id)
            connection.close()

    def test_nonsense_is_refused(self):
        for raw in (b"\r\n\r\n", b"x\r\n\r\n", b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", b"GET /\r\n\r\n",
                    b"GET / HTTP/9.9\r\n\r\n", b"GET / HTTP/1.1\r\nno colon\r\n\r\n", b"\x00" * 100 + b"\r\n\r\n"):
            with self.subTest(raw=raw):
                connection = self.connect()
                connection.sendall(raw)
                connection.shutdown(socket.SHUT_WR)
                answer = self.receive(connection)
                if answer:
                    self.assertIn(Answer(answer).status, (400, 403))


class Waiting(ScreenCase):
    def test_request_without_a_newer_page_is_answered_204(self):
        self.drive()
        page_id = self.show()["id"]
        for query in (f"after={page_id}", f"after={page_id}&wait=0", f"after={page_id}&wait=1", f"after={2 ** 53 - 1}&wait=1"):
            answer = self.get("/api/screen?" + query)
            self.assertEqual((answer.status, answer.body), (204, b""))

    def test_longer_wait_than_allowed_is_cut_down_and_ends_with_the_next_page(self):
        self.drive()
        self.driver.tell(**{"async": "a.html"})
        first = self.screen()["id"]
        connection = self.connect()
        connection.sendall(f"GET /api/screen?after={first}&wait=1000 HTTP/1.1\r\nHost: 127.0.0.1:{self.port}\r\n\r\n".encode())
        self.driver.tell(**{"async": "b.html"})
        self.assertEqual(Answer(self.receive(connection)).json["page"], "b.html")

    def waiting(self, count, after):
        request = f"GET /api/screen?after={after}&wait=30 HTTP/1.1\r\nHost: 127.0.0.1:{self.port}\r\n\r\n".encode()
        connections = [self.connect() for _ in range(count)]
        for connection in connections:
            connection.sendall(request)
        return connections

    def test_many_browsers_wait_and_the_others_are_served(self):
        self.drive()
        self.driver.tell(**{"async": "a.html"})
        first = self.screen()["id"]
        browsers = self.waiting(40, first)
        self.assertEqual(self.get("/pages/style.css").status, 200)
        self.assertEqual(self.post(first, {"result": 5}).status, 204)
        self.driver.tell(**{"async": "b.html"})
        for browser in browsers:
            self.assertEqual(Answer(self.receive(browser)).json["page"], "b.html")

    def test_more_waiting_browsers_than_connections_are_all_answered(self):
        self.drive()
        self.driver.tell(**{"async": "a.html"})
        first = self.screen()["id"]
        browsers = self.waiting(150, first)
        self.assertEqual(self.get("/pages/style.css").status, 200)
        self.driver.tell(**{"async": "b.html"})
        self.screen(first)
        answers = [Answer(self.receive(browser)) for browser in browsers]
        self.assertEqual({answer.status for answer in answers}, {200, 204})
        self.assertGreaterEqual(sum(answer.status == 200 for answer in answers), 40)

    def test_browsers_that_went_away_keep_nobody_out(self):
        self.drive()
        self.driver.tell(**{"async": "a.html"})
        first = self.screen()["id"]
        for _ in range(4):
            for browser in self.waiting(60, first):
                browser.close()
        self.assertEqual(self.post(first, {"result": 3}).status, 204)

    def test_client_that_has_said_all_it_has_to_say_is_answered(self):
        self.drive()
        self.driver.tell(**{"async": "a.html"})
        first = self.screen()["id"]
        connection = self.waiting(1, first)[0]
        connection.shutdown(socket.SHUT_WR)
        self.driver.tell(**{"async": "b.html"})
        self.assertEqual(Answer(self.receive(connection)).json["page"], "b.html")

    def test_request_that_trickles_in_for_ever_is_ended(self):
        self.drive()
        self.show()
        connection = self.connect()
        connection.settimeout(0.5)
        connection.sendall(b"GET / HTTP/1.1\r\nX: ")
        sent = 0
        while True:
            try:
                if connection.recv(1) == b"":
                    break
            except TimeoutError:
                connection.sendall(b"x")
                sent += 1
            except ConnectionError:
                break
            self.assertLess(sent, 600, "still open after minutes")

    def test_silent_connections_are_closed(self):
        self.drive()
        self.show()
        silent = [self.connect() for _ in range(10)]
        silent[0].sendall(b"GET / HT")
        for connection in silent:
            self.receive(connection)
        self.assertEqual(self.get("/").status, 200)


class Life(ScreenCase):
    def test_url_file_stands_while_pages_are_shown(self):
        driver = self.drive()
        self.assertFalse((self.root / "screen.url").exists())
        self.show()
        content = (self.root / "screen.url").read_text()
        self.assertEqual(content, f"http://127.0.0.1:{self.port}/\n")
        self.post(self.screen()["id"], {"result": 0})
        driver.end()
        self.assertFalse((self.root / "screen.url").exists())
        self.assertEqual(sorted(path.name for path in self.root.iterdir()), ["pages", "screen.run", "stderr"])

    def test_url_file_of_another_program_is_left_alone(self):
        driver = self.drive()
        self.post(self.show()["id"], {"result": 0})
        (self.root / "screen.url").write_text("http://127.0.0.1:1/\n")
        driver.end()
        self.assertTrue((self.root / "screen.url").exists())

    def test_program_ends_while_browsers_wait(self):
        driver = self.drive()
        page_id = self.show()["id"]
        waiting = self.connect()
        waiting.sendall(f"GET /api/screen?after={page_id}&wait=30 HTTP/1.1\r\nHost: 127.0.0.1:{self.port}\r\n\r\n".encode())
        half = self.connect()
        half.sendall(b"GET / HT")
        self.post(page_id, {"result": 0})
        driver.end()

    def test_restarted_program_is_found_again_and_reuses_no_id(self):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        last = 0
        for run in range(3):
            driver = self.drive(JXPLATFORM_SCREEN=f"127.0.0.1:{port}")
            (self.root / "screen.url").unlink(missing_ok=True)
            driver.tell(sync="a.html")
            self.url()
            screen = self.screen(after=last)
            self.assertGreater(screen["id"], last)
            if run:
                self.assertEqual(self.post(last, {"result": 1}).status, 409)
            last = screen["id"]
            driver.process.kill()
            driver.process.wait()

    def test_port_that_is_taken_is_told_and_tried_again(self):
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", 0))
            taken.listen()
            port = taken.getsockname()[1]
            driver = self.drive(JXPLATFORM_SCREEN=f"127.0.0.1:{port}")
            driver.tell(sync="a.html", vars={"name": "kept"})
            self.assertEqual(driver.next(), {"returned": "a.html", "result": -1, "vars": {"name": "kept"}})
            driver.tell(**{"async": "a.html"})
            got = [driver.next() for _ in range(3)]
            self.assertIn({"reported": "a.html", "type": 0, "result": -1}, got)
        self.assertEqual(self.stderr().splitlines(),
                         [f"libzorguiprt: cannot show pages at 127.0.0.1:{port}: Address already in use"] * 2)
        self.assertEqual(self.show()["page"], "a.html")

    def test_two_programs_do_not_share_a_port(self):
        self.drive()
        self.show()
        second = Driver(self, JXPLATFORM_SCREEN=f"127.0.0.1:{self.port}")
        second.tell(sync="a.html")
        self.assertEqual(second.next()["result"], -1)

    def test_malformed_address_is_told(self):
        for address in ("nonsense", "127.0.0.1", "127.0.0.1:99999", "example.org:80", ":1"):
            driver = self.drive(JXPLATFORM_SCREEN=address)
            driver.tell(sync="a.html")
            self.assertEqual(driver.next()["result"], -1)
            driver.end()
            self.assertIn(f"libzorguiprt: cannot show pages at {address}: not ADDRESS:PORT", self.stderr())

    def test_server_on_all_addresses_answers_to_numeric_ones(self):
        self.drive(JXPLATFORM_SCREEN="0.0.0.0:0")
        self.show()
        self.assertEqual(self.get("/", host=f"192.168.7.7:{self.port}").status, 200)
        self.assertEqual(self.get("/", host=f"[2001:db8::1]:{self.port}").status, 200)
        self.assertEqual(self.get("/", host=f"terminal.example:{self.port}").status, 403)

    def test_server_on_ipv6_loopback(self):
        self.drive(JXPLATFORM_SCREEN="[::1]:0")
        self.driver.tell(sync="a.html")
        with socket.create_connection(("::1", self.port), 60) as connection:
            connection.sendall(f"GET /api/screen HTTP/1.1\r\nHost: [::1]:{self.port}\r\n\r\n".encode())
            self.assertEqual(Answer(self.receive(connection)).status, 200)

    def test_descriptors_are_not_inherited_and_do_not_pile_up(self):
        self.drive()
        self.show()
        folder = f"/proc/{self.driver.process.pid}/fd"
        before = len(os.listdir(folder))
        for _ in range(100):
            self.get("/api/screen")
            self.get("/pages/style.css")
            self.get("/pages/missing.css")
        wait_until(lambda: len(os.listdir(folder)) <= before, what="the connections' descriptors are closed")

    def test_version_of_the_service(self):
        self.drive().tell(version=True)
        self.assertEqual(self.driver.next(), {"version": None})
        self.driver.end()
        (self.root / "terminal.json").write_text('{"gui_version":"4.2"}')
        self.drive().tell(version=True)
        self.assertEqual(self.driver.next(), {"version": "4.2"})


if __name__ == "__main__":
    unittest.main()
