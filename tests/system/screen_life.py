"""The screen's server from its beginning to its end: its address, its port, its file."""

import os
import socket
import unittest

from jxscreen import Answer, Driver, ScreenCase
from jxtest import wait_until


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

    def test_request_that_comes_while_the_program_ends_is_answered_or_broken_off(self):
        driver = self.drive()
        page_id = self.show()["id"]
        host = f"HTTP/1.1\r\nHost: 127.0.0.1:{self.port}\r\n".encode()
        form = b'--x\r\nContent-Disposition: form-data; name="a"\r\nContent-Type: text/plain\r\n\r\nb\r\n--x--\r\n'
        requests = (b"GET / " + host + b"Range: bytes=0-0\r\n\r\n",
                    b"POST /api/screen/1/result " + host + b"Content-Type: multipart/form-data; boundary=x\r\n"
                    b"Content-Length: %d\r\n\r\n" % len(form) + form)
        late = [self.connect() for _ in requests]
        for connection, request in zip(late, requests):
            connection.sendall(request[:8])
        self.post(page_id, {"result": 0})
        driver.process.stdin.close()
        wait_until(lambda: not (self.root / "screen.url").exists())
        for connection, request, expected in zip(late, requests, (b"HTTP/1.1 200 ", b"HTTP/1.1 400 ")):
            connection.sendall(request[8:])
            answer = self.receive(connection)
            self.assertTrue(answer == b"" or answer.startswith(expected), answer)
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
            reported = []
            while len(reported) < 2:
                line = driver.next()
                if "reported" in line:
                    reported.append(line["result"])
            self.assertEqual(sorted(reported), [-1, 1], "every way to end what goes on behind the page")
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
