"""How the cloud proxy service checks its gateway."""

import os
import pathlib
import re
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

NO_CONTENT = b"HTTP/1.1 204 No Content\r\n\r\n"
# A check lasts 8 seconds at most; in tests that wait for its end, so many times less.
RATE = 20


class Gateway:
    """An HTTPS server on a free port. `serve` is what it answers to each request, or a function that does it; one that
    takes the place of TLS is called with the connection as it comes."""

    def __init__(self, case, certificate, key, serve, host="127.0.0.1", instead_of_tls=None):
        self.certificate, self.key = certificate, key
        self.newest = None  # version of TLS
        family = socket.AF_INET6 if ":" in host else socket.AF_INET
        self.listener = socket.create_server((host, 0), family=family)
        self.port = self.listener.getsockname()[1]
        self.serve, self.instead_of_tls = serve, instead_of_tls
        self.requests, self.names, self.connections = [], [], []
        self.reached = threading.Event()  # the state in which a silent one falls silent
        self.ended = threading.Event()
        case.addCleanup(self.end)
        threading.Thread(target=self.run, daemon=True).start()

    def run(self):
        while True:
            try:
                plain, _ = self.listener.accept()
            except OSError:
                return
            self.connections.append(plain)
            threading.Thread(target=self.talk, args=(plain,), daemon=True).start()

    def talk(self, plain):
        try:
            if self.instead_of_tls:
                return self.instead_of_tls(plain)
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(self.certificate + ".pem", self.key)
            if self.newest:
                context.minimum_version = ssl.TLSVersion.TLSv1
                context.maximum_version = self.newest
                context.set_ciphers("DEFAULT@SECLEVEL=0")
            context.sni_callback = lambda _connection, name, _context: self.names.append(name)
            with context.wrap_socket(plain, server_side=True) as connection:
                head = b""
                while b"\r\n\r\n" not in head:
                    piece = connection.recv(65536)
                    if not piece:
                        return
                    head += piece
                self.requests.append(head.decode())
                if callable(self.serve):
                    self.serve(connection)
                else:
                    connection.sendall(self.serve)
        except (OSError, ssl.SSLError):
            pass

    def fall_silent(self, *_):
        self.reached.set()
        self.ended.wait()

    def end(self):
        self.ended.set()
        self.listener.close()
        for connection in self.connections:
            connection.close()


class CheckCase(ServiceCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory(prefix="jxca-")
        cls.openssl("genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-out", "key")
        for authority in ("ca", "other-ca"):
            cls.openssl("req", "-x509", "-key", "key", "-out", f"{authority}.pem", "-days", "2", "-subj", f"/CN={authority}")
        cls.openssl("req", "-new", "-key", "key", "-out", "csr", "-subj", "/CN=gateway")
        folder = cls.folder.name
        (pathlib.Path(folder) / "ca.conf").write_text(
            f"[ca]\ndefault_ca=d\n[d]\ndatabase={folder}/index\nnew_certs_dir={folder}\nrand_serial=yes\ndefault_md=sha256\n"
            "unique_subject=no\npolicy=p\n[p]\ncommonName=supplied\n")
        cls.certify("good", "ca", "DNS:localhost,IP:127.0.0.1,IP:::1")
        cls.certify("wrong-name", "ca", "DNS:elsewhere.test,IP:127.0.0.2")
        cls.certify("stranger", "other-ca", "DNS:localhost,IP:127.0.0.1")
        cls.certify("expired", "ca", "DNS:localhost,IP:127.0.0.1", begin="20200101000000Z", end="20210101000000Z")
        cls.certify("future", "ca", "DNS:localhost,IP:127.0.0.1", begin="20900101000000Z", end="20910101000000Z")

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    @classmethod
    def openssl(cls, *words):
        subprocess.run(["openssl", *words], cwd=cls.folder.name, check=True, capture_output=True)

    @classmethod
    def certify(cls, name, authority, names, begin=None, end=None):
        """Makes a certificate that is valid for a day, unless told otherwise."""
        folder = pathlib.Path(cls.folder.name)
        (folder / "extensions").write_text(f"subjectAltName={names}\n")
        (folder / "index").write_text("")
        period = ["-startdate", begin, "-enddate", end] if begin else ["-days", "1"]
        cls.openssl("ca", "-batch", "-config", "ca.conf", *period, "-in", "csr", "-cert", f"{authority}.pem", "-keyfile", "key",
                    "-out", f"{name}.pem", "-extfile", "extensions", "-notext")

    def path(self, name):
        return str(pathlib.Path(self.folder.name) / name)

    def gateway(self, serve=NO_CONTENT, **kwargs):
        return Gateway(self, self.path("good"), self.path("key"), serve, **kwargs)

    def start_with(self, port, host="localhost", authority="ca.pem"):
        return self.start_service("--gateway", f"{host}:{port}", "--ca-file", self.path(authority))

    def check(self):
        self.tell({"proxy": {"command": "cloudcheck"}})
        return self.check_answer()

    def check_answer(self):
        answer = self.answer()
        self.assertEqual(answer.pop("command"), "cloudcheck")
        return answer

    def assert_failure(self, answer, code, reason):
        self.assertEqual(answer, {"result": "error", "error_code": code, "error_reason": reason})

    def gone(self, service):
        self.assertEqual(self.stop(service), 0)
        jxtest.wait_until(lambda: not self.is_there(), what="the service is off the bus")


class AnswerTest(CheckCase):
    def test_what_the_gateway_is_asked(self):
        gateway = self.gateway()
        self.start_with(gateway.port)
        self.assertEqual(self.check(), {"result": "success", "error_code": 204, "error_reason": "No Content"})
        self.assertEqual(gateway.names, ["localhost"])
        (request,) = gateway.requests
        self.assertTrue(request.startswith(f"GET / HTTP/1.1\r\nHost: localhost:{gateway.port}\r\n"), request)
        self.assertIn("\r\nConnection: close\r\n", request)
        self.assertTrue(request.endswith("\r\n\r\n"))

    def test_addresses(self):
        for host, shown in (("127.0.0.1", "127.0.0.1"), ("::1", "[::1]")):
            gateway = self.gateway(host=host)
            service = self.start_with(gateway.port, host=shown)
            self.assertEqual(self.check()["error_code"], 204)
            self.assertEqual(gateway.names, [None])  # a name is told, an address is not
            self.assertIn(f"\r\nHost: {shown}:{gateway.port}\r\n", gateway.requests[0])
            self.gone(service)

    def test_answers(self):
        def endless_body(connection):
            connection.sendall(b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n")
            while True:
                connection.sendall(b"1000\r\n" + bytes(4096) + b"\r\n")

        def endless_head(connection):
            connection.sendall(b"HTTP/1.1 200 OK\r\n")
            while True:
                connection.sendall(b"X: " + b"x" * 4096 + b"\r\n")
        no_http = {"result": "error", "error_code": 4, "error_reason": "no HTTP answer"}
        gateway = self.gateway()
        self.start_with(gateway.port)
        for serve, answer in (
                (b"HTTP/1.1 503 Service Unavailable\r\nContent-Length: 2\r\n\r\nno",
                 {"result": "success", "error_code": 503, "error_reason": "Service Unavailable"}),
                (b"HTTP/1.1 302 Found\r\nLocation: https://elsewhere.test/\r\nContent-Length: 0\r\n\r\n",
                 {"result": "success", "error_code": 302, "error_reason": "Found"}),
                (b"HTTP/1.1 200 \r\nContent-Length: 0\r\n\r\n", {"result": "success", "error_code": 200}),
                (b"HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n" + NO_CONTENT,
                 {"result": "success", "error_code": 204, "error_reason": "No Content"}),
                (endless_body, {"result": "success", "error_code": 200, "error_reason": "OK"}),
                (endless_head, no_http), (b"HTTP/1.1 204 No Content\r\n", no_http), (b"SSH-2.0-x\r\n\r\n", no_http), (b"", no_http)):
            gateway.serve = serve
            self.assertEqual(self.check(), answer)

    def test_no_connection(self):
        with socket.create_server(("127.0.0.1", 0)) as listener:
            port = listener.getsockname()[1]
        service = self.start_with(port)
        self.assert_failure(self.check(), 2, "cannot connect")
        self.gone(service)
        self.start_service("--gateway", "no-such-host.invalid")
        self.assert_failure(self.check(), 2, "cannot connect")

    def test_server_without_tls(self):
        self.start_with(self.gateway(instead_of_tls=lambda connection: connection.sendall(NO_CONTENT)).port)
        self.assert_failure(self.check(), 8, "no TLS connection")

    def test_older_tls_is_refused(self):
        everything = self.root / "openssl.cnf"  # so that the system's own refusal does not stand before the service's
        everything.write_text("openssl_conf=a\n[a]\nssl_conf=b\n[b]\nsystem_default=c\n[c]\nMinProtocol=TLSv1\n"
                              "CipherString=DEFAULT@SECLEVEL=0\n")
        self.env["OPENSSL_CONF"] = str(everything)
        gateway = self.gateway()
        self.start_with(gateway.port)
        for version, answer in ((ssl.TLSVersion.TLSv1_1, {"result": "error", "error_code": 8, "error_reason": "no TLS connection"}),
                                (ssl.TLSVersion.TLSv1_2, {"result": "success", "error_code": 204, "error_reason": "No Content"})):
            gateway.newest = version
            self.assertEqual(self.check(), answer)

    def test_terminal_shows_what_the_gateway_answers(self):
        self.start_with(self.gateway().port)
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


class CertificateTest(CheckCase):
    def assert_verified(self, gateway):
        for certificate, reason in (("wrong-name", "the certificate is for another host"),
                                    ("stranger", "the certificate is not trusted: unable to get local issuer certificate"),
                                    ("expired", "the certificate is not trusted: certificate has expired"),
                                    ("future", "the certificate is not trusted: certificate is not yet valid")):
            gateway.certificate = self.path(certificate)
            self.assert_failure(self.check(), 10, reason)
        self.assertEqual(gateway.requests, [])
        gateway.certificate = self.path("good")
        self.assertEqual(self.check()["error_code"], 204)

    def test_authorities_of_the_system(self):
        self.env.update(SSL_CERT_FILE=self.path("ca.pem"), SSL_CERT_DIR="/nonexistent")
        for host in ("localhost", "127.0.0.1"):
            gateway = self.gateway()
            service = self.start_service("--gateway", f"{host}:{gateway.port}")
            self.assert_verified(gateway)
            self.gone(service)

    def test_authorities_of_a_file(self):
        self.env.update(SSL_CERT_FILE=self.path("other-ca.pem"))  # does not count then
        for host in ("localhost", "127.0.0.1"):
            gateway = self.gateway()
            service = self.start_with(gateway.port, host)
            self.assert_verified(gateway)
            self.gone(service)

    def test_several_authorities_in_a_file(self):
        both = self.root / "both.pem"
        both.write_text("".join(pathlib.Path(self.path(name)).read_text() for name in ("other-ca.pem", "ca.pem")))
        self.start_with(self.gateway().port, authority=both)
        self.assertEqual(self.check()["error_code"], 204)

    def test_authorities_that_cannot_be_read(self):
        os.mkfifo(self.root / "fifo")
        gateway = self.gateway()
        for authority in ("key", self.root / "fifo", "/dev/zero", "/dev/null"):
            service = self.start_with(gateway.port, authority=authority)
            self.assert_failure(self.check(), 9, "the trusted authorities cannot be read")
            self.gone(service)


class EndTest(CheckCase):
    """Checks that are silent: each state that one may be in."""

    def states(self):
        """Of each state its gateway's host and port, and what waits until a check is in it."""
        names = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(names.close)
        names.bind(("127.0.0.1", 53))
        resolver = self.root / "resolv.conf"
        resolver.write_text("nameserver 127.0.0.1\n")
        subprocess.run(["mount", "--bind", resolver, "/etc/resolv.conf"], check=True)
        self.addCleanup(subprocess.run, ["umount", "/etc/resolv.conf"], check=True)
        yield "resolving", "gateway.test", 443, lambda: names.recv(512)

        subprocess.run(["ip", "route", "add", "192.0.2.1", "dev", "lo"], check=True)  # where nobody is
        self.addCleanup(subprocess.run, ["ip", "route", "del", "192.0.2.1", "dev", "lo"], check=True)
        yield "connecting", "192.0.2.1", 443, lambda: jxtest.wait_until(self.is_connecting, what="a connection is asked for")

        tls = self.gateway()
        tls.instead_of_tls = lambda connection: (connection.recv(1), tls.fall_silent())
        yield "TLS", "localhost", tls.port, tls.reached.wait

        request = self.gateway()
        request.serve = request.fall_silent
        yield "request", "localhost", request.port, request.reached.wait

        head = self.gateway()
        head.serve = lambda connection: (connection.sendall(b"HTTP/1.1 200 OK\r\nX: "), head.fall_silent())
        yield "head", "localhost", head.port, head.reached.wait

    def is_connecting(self):
        return re.search(r" 010200C0:01BB 02 ", pathlib.Path("/proc/net/tcp").read_text())

    def test_check_ends_after_eight_seconds_in_every_state(self):
        self.speed_up(RATE)
        for state, host, port, _ in self.states():
            with self.subTest(state):
                service = self.start_with(port, host)
                began = time.monotonic()
                self.assert_failure(self.check(), 13, "no answer in time")
                self.assertGreater(time.monotonic() - began, 5 / RATE)
                self.gone(service)

    def test_signal_ends_the_service_at_once_in_every_state(self):
        self.speed_up("1/60")  # what waited for a time-out would wait for minutes
        for state, host, port, reached in self.states():
            with self.subTest(state):
                service = self.start_with(port, host)
                self.tell({"proxy": {"command": "cloudcheck"}})
                reached()
                self.assertEqual(self.ask("readconfig")["command"], "readconfig")  # others are served meanwhile
                self.gone(service)
                self.assert_failure(self.check_answer(), 7, "the check was broken off")

    def test_too_many_checks_are_refused(self):
        self.speed_up("1/60")
        gateway = self.gateway(instead_of_tls=lambda connection: gateway.fall_silent())
        service = self.start_with(gateway.port)
        for _ in range(5):
            self.tell({"proxy": {"command": "cloudcheck"}})
        self.assertEqual(self.answer(), {"command": "cloudcheck", "result": "error",
                                         "error_reason": "too many checks are under way"})
        self.gone(service)
        for _ in range(4):
            self.assert_failure(self.check_answer(), 7, "the check was broken off")


if __name__ == "__main__":
    unittest.main()
