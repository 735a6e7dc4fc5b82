"""How the cloud proxy service checks its gateway."""

import pathlib
import socket
import ssl
import subprocess
import tempfile
import threading
import time
import unittest

import jxtest
from jxservice import ServiceCase
from jxterminal import Terminal


class Gateway:
    """An HTTPS server on a free port that treats each connection as `serve` says."""

    def __init__(self, case, certificate, serve):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(certificate + ".pem", certificate + ".key")
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.requests = []
        self.connections = []
        self.ended = threading.Event()
        case.addCleanup(self.end)
        threading.Thread(target=self.run, args=(context, serve), daemon=True).start()

    def run(self, context, serve):
        while True:
            try:
                plain, _ = self.listener.accept()
            except OSError:
                return
            self.connections.append(plain)
            threading.Thread(target=self.talk, args=(context, plain, serve), daemon=True).start()

    def talk(self, context, plain, serve):
        try:
            if serve == "silent before TLS":
                self.ended.wait()
                return
            with context.wrap_socket(plain, server_side=True) as connection:
                head = b""
                while b"\r\n\r\n" not in head:
                    piece = connection.recv(65536)
                    if not piece:
                        return
                    head += piece
                self.requests.append(head.decode())
                if callable(serve):
                    serve(connection)
                else:
                    connection.sendall(serve)
        except (OSError, ssl.SSLError):
            pass

    def end(self):
        self.ended.set()
        self.listener.close()
        for connection in self.connections:
            connection.close()


class CheckTest(ServiceCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory(prefix="jxca-")
        for authority in ("ca", "other-ca"):
            cls.openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", f"{authority}.key", "-out", f"{authority}.pem",
                        "-days", "2", "-subj", f"/CN={authority}")
        cls.certify("good", "ca", "DNS:localhost,IP:127.0.0.1")
        cls.certify("wrong-name", "ca", "DNS:elsewhere.test")
        cls.certify("stranger", "other-ca", "DNS:localhost")
        cls.certify("expired", "ca", "DNS:localhost", "-not_before", "20200101000000Z", "-not_after", "20210101000000Z")

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    @classmethod
    def openssl(cls, *words):
        subprocess.run(["openssl", *words], cwd=cls.folder.name, check=True, capture_output=True)

    @classmethod
    def certify(cls, name, authority, names, *dates):
        folder = pathlib.Path(cls.folder.name)
        (folder / "extensions").write_text(f"subjectAltName={names}\n")
        cls.openssl("req", "-newkey", "rsa:2048", "-nodes", "-keyout", f"{name}.key", "-out", f"{name}.csr", "-subj", f"/CN={name}")
        if dates:
            (folder / "index").write_text("")
            (folder / "ca.conf").write_text(
                f"[ca]\ndefault_ca=d\n[d]\ndatabase={folder}/index\nnew_certs_dir={folder}\nrand_serial=yes\n"
                "default_md=sha256\npolicy=p\n[p]\ncommonName=supplied\n")
            cls.openssl("ca", "-batch", "-config", "ca.conf", "-startdate", dates[1], "-enddate", dates[3], "-in", f"{name}.csr",
                        "-cert", f"{authority}.pem", "-keyfile", f"{authority}.key", "-out", f"{name}.pem",
                        "-extfile", "extensions", "-notext")
            return
        cls.openssl("x509", "-req", "-in", f"{name}.csr", "-CA", f"{authority}.pem", "-CAkey", f"{authority}.key",
                    "-CAcreateserial", "-days", "2", "-out", f"{name}.pem", "-extfile", "extensions")

    def path(self, name):
        return str(pathlib.Path(self.folder.name) / name)

    def gateway(self, serve, certificate="good"):
        return Gateway(self, self.path(certificate), serve)

    def start_with(self, port, host="localhost", authority="ca.pem"):
        return self.start_service("--gateway", f"{host}:{port}", "--ca-file", self.path(authority))

    def check(self):
        answer = self.ask("cloudcheck")
        self.assertEqual(answer.pop("command"), "cloudcheck")
        return answer

    def answer_to(self, serve, certificate="good", **kwargs):
        gateway = self.gateway(serve, certificate)
        self.start_with(gateway.port, **kwargs)
        return self.check()

    def test_no_content(self):
        gateway = self.gateway(b"HTTP/1.1 204 No Content\r\n\r\n")
        self.start_with(gateway.port)
        self.assertEqual(self.check(), {"result": "success", "error_code": 204, "error_reason": "No Content"})
        self.assertTrue(gateway.requests[0].startswith("GET / HTTP/1.1\r\n"))
        self.assertIn(f"\r\nHost: localhost:{gateway.port}\r\n", gateway.requests[0])

    def test_numeric_address(self):
        self.assertEqual(self.answer_to(b"HTTP/1.1 204 No Content\r\n\r\n", host="127.0.0.1")["error_code"], 204)

    def test_unavailable(self):
        self.assertEqual(self.answer_to(b"HTTP/1.1 503 Service Unavailable\r\nContent-Length: 2\r\n\r\nno"),
                         {"result": "success", "error_code": 503, "error_reason": "Service Unavailable"})

    def test_redirection_is_the_answer(self):
        found = b"HTTP/1.1 302 Found\r\nLocation: https://elsewhere.test/\r\nContent-Length: 0\r\n\r\n"
        self.assertEqual(self.answer_to(found)["error_code"], 302)

    def test_status_without_a_text(self):
        self.assertEqual(self.answer_to(b"HTTP/1.1 200 \r\nContent-Length: 0\r\n\r\n"), {"result": "success", "error_code": 200})

    def test_body_without_end_is_not_waited_for(self):
        def serve(connection):
            connection.sendall(b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n")
            while True:
                connection.sendall(b"1000\r\n" + bytes(4096) + b"\r\n")
        self.assertEqual(self.answer_to(serve), {"result": "success", "error_code": 200, "error_reason": "OK"})

    def assert_error(self, answer, reason):
        self.assertEqual(answer["result"], "error")
        self.assertIsInstance(answer["error_code"], int)
        self.assertTrue(0 < answer["error_code"] < 100, answer)
        self.assertRegex(answer["error_reason"], reason)

    def test_certificate_of_a_stranger(self):
        gateway = self.gateway(b"HTTP/1.1 204 No Content\r\n\r\n", "stranger")
        self.start_with(gateway.port)
        self.assert_error(self.check(), "^the certificate is not trusted: unable to get local issuer certificate$")
        self.assertEqual(gateway.requests, [])

    def test_certificate_of_another_name(self):
        gateway = self.gateway(b"HTTP/1.1 204 No Content\r\n\r\n", "wrong-name")
        self.start_with(gateway.port)
        self.assert_error(self.check(), "^the certificate is for another host$")
        self.assertEqual(gateway.requests, [])

    def test_expired_certificate(self):
        self.assert_error(self.answer_to(b"HTTP/1.1 204 No Content\r\n\r\n", "expired"),
                          "^the certificate is not trusted: certificate has expired$")

    def test_authorities_that_cannot_be_read(self):
        self.assert_error(self.answer_to(b"HTTP/1.1 204 No Content\r\n\r\n", authority="ca.key"), "^the trusted authorities cannot be read$")

    def test_refused_connection(self):
        with socket.create_server(("127.0.0.1", 0)) as listener:
            port = listener.getsockname()[1]
        self.start_with(port)
        self.assert_error(self.check(), "^cannot connect$")

    def test_name_that_is_none(self):
        self.start_service("--gateway", "no-such-host.invalid")
        self.assert_error(self.check(), "^cannot connect$")

    def test_server_without_tls(self):
        with socket.create_server(("127.0.0.1", 0)) as listener:
            def serve():
                connection, _ = listener.accept()
                connection.sendall(b"HTTP/1.1 204 No Content\r\n\r\n")
                connection.close()
            threading.Thread(target=serve, daemon=True).start()
            self.start_with(listener.getsockname()[1])
            self.assert_error(self.check(), "^no TLS connection$")

    def test_answer_that_is_no_http(self):
        self.assert_error(self.answer_to(b"SSH-2.0-x\r\n\r\n"), "^no HTTP answer$")

    def test_silent_gateways_time_out_within_ten_seconds_and_others_are_served(self):
        def drip(connection):
            while True:
                connection.sendall(b"H")
                time.sleep(0.5)
        gateways = [self.gateway("silent before TLS"), self.gateway(lambda connection: connection.recv(1)), self.gateway(drip)]
        for gateway in gateways:
            service = self.start_with(gateway.port)
            began = time.monotonic()
            self.tell({"proxy": {"command": "cloudcheck"}})
            self.assertEqual(self.ask("readconfig")["command"], "readconfig")  # before the check is over
            answer = self.answer()
            self.assertEqual(answer["command"], "cloudcheck")
            self.assert_error(answer, "^no (answer in time|HTTP answer|TLS connection)$")
            self.assertGreater(time.monotonic() - began, 5)
            self.stop(service)
            jxtest.wait_until(lambda: not self.is_there(), what="the service is off the bus")

    def test_too_many_checks_are_refused(self):
        gateway = self.gateway("silent before TLS")
        self.start_with(gateway.port)
        for _ in range(5):
            self.tell({"proxy": {"command": "cloudcheck"}})
        self.assertEqual(self.answer(), {"command": "cloudcheck", "result": "error",
                                         "error_reason": "too many checks are under way"})
        for _ in range(4):
            self.assertIn("error_code", self.answer())

    def test_signal_during_a_check_ends_it(self):
        gateway = self.gateway("silent before TLS")
        service = self.start_with(gateway.port)
        self.tell({"proxy": {"command": "cloudcheck"}})
        jxtest.wait_until(lambda: gateway.connections, what="the check is under way")
        self.assertEqual(self.stop(service), 0)

    def test_terminal_shows_what_the_gateway_answers(self):
        gateway = self.gateway(b"HTTP/1.1 204 No Content\r\n\r\n")
        self.start_with(gateway.port)
        terminal = Terminal(self)
        self.assertEqual(terminal.next("mainmenu.html"), {"show_settings": "0", "show_cloudproxy": "1"})
        terminal.press(4)
        terminal.next("cloudproxy.html")
        terminal.press(3)
        self.assertEqual(terminal.next("wait.html")["text"],
                         "Connect to gateway:<div class='text_nowrap_tick'>localhost</div>")
        self.assertEqual(terminal.next("result.html")["text"],
                         "<span style='color:#0f0'><b>Cloud reachable</b></span><br>"
                         "<b>Gateway:</b><div class='text_nowrap_tick'>localhost</div>"
                         "<b>Status</b>:<div class='text_nowrap_tick'>204 (No Content)</div>")
        terminal.press(0)
        terminal.next("cloudproxy.html")


if __name__ == "__main__":
    unittest.main()
