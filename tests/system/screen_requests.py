"""Requests to the screen that are not as they should be, and those that wait for a page, with raw bytes."""

import os
import socket
import struct
import time
import unittest

from jxscreen import CSP, Answer, ScreenCase

HEAD_LIMIT, BODY_LIMIT = 32 << 10, 1 << 20
RATE = 20  # of the clock where the server's own time-outs are waited for
SILENCE, WHOLE = 5, 30  # seconds, of a client that says nothing, and for a whole request


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
        self.assertEqual(answer.headers["content-security-policy"], CSP)

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

    def test_forms_are_refused_as_anything_malformed(self):
        for kind in ("application/x-www-form-urlencoded", "multipart/form-data; boundary=x", "text/plain"):
            with self.subTest(kind=kind):
                self.refused(self.post(self.page_id, b'{"result":x}', headers=[f"Content-Type: {kind}"]), 400)
        long = b'{"result":"' + b"x" * 20000 + b'"}'
        form = b'--x\r\nContent-Disposition: form-data; name="a"\r\n\r\nb\r\n--x--\r\n'
        self.refused(self.post(self.page_id, form, headers=["Content-Type: multipart/form-data; boundary=x"]), 400, "form")
        self.refused(self.post(self.page_id, long, headers=["Content-Type: application/x-www-form-urlencoded"]), 400,
                     "integer")

    def test_malformed_ids(self):
        for page_id in ("x", "-1", "1.0", "%20", "", "9" * 30, "1" * 8000, "9007199254740992", "0x10"):
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
                self.refused(Answer(self.receive(connection)), 400, "malformed")
        self.refused(self.get("/", headers=["X: " + "a" * HEAD_LIMIT]), 431, "too long")


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
        self.speed_up(RATE)
        self.drive()
        self.show()
        begin = time.monotonic()
        connection = self.connect()
        connection.settimeout(0.5 / RATE)
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
        self.assertGreaterEqual(time.monotonic() - begin, WHOLE / RATE)

    def test_silent_connections_are_closed(self):
        self.speed_up(RATE)
        self.drive()
        self.show()
        begin = time.monotonic()
        silent = [self.connect() for _ in range(10)]
        silent[0].sendall(b"GET / HT")
        for connection in silent:
            self.receive(connection)
        self.assertGreaterEqual(time.monotonic() - begin, SILENCE / RATE)
        self.assertEqual(self.get("/").status, 200)


if __name__ == "__main__":
    unittest.main()
