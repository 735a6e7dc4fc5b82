"""Real clients against the upload server: curl, wget, Python's http.client; and many of them at once."""

import hashlib
import http.client
import os
import subprocess
import tarfile
import threading
import unittest

import jxtest
from jxhttp import FORM_PAGE, RESULT_HEAD, RESULT_TAIL, Wire, form, package, request, upload

URL = "http://127.0.0.1:6370"
CLIENTS = 20
UPLOADS_EACH = 10
FIRST = b"-----BEGIN CERTIFICATE-----\nfirst"
SECOND = b"-----BEGIN CERTIFICATE-----\nsecond"


class ClientsTest(jxtest.Case):
    def setUp(self):
        super().setUp()
        self.start_http_server()
        self.package = self.root / "hello.zip"
        self.package.write_bytes(package())

    def curl(self, *args, **kwargs):
        run = subprocess.run(["curl", "-sS", "--max-time", "60", *args], capture_output=True, **kwargs)
        self.assertEqual(run.returncode, 0, run.stderr)
        return run.stdout

    def assert_installed(self, reply, *lines):
        self.assertIn(b"Upload successful<br>\n", reply)
        for line in lines or (b"nstalled hello 1.0.0",):
            self.assertIn(line, reply)

    def test_curl_form(self):
        self.assert_installed(self.curl("-F", f"upload=@{self.package}", f"{URL}/upload"))

    def test_curl_form_over_ipv6(self):
        self.assert_installed(self.curl("-F", f"upload=@{self.package}", "http://[::1]:6370/upload"))

    def test_curl_several_files(self):
        other = self.root / "other.zip"
        other.write_bytes(package("other", "2.1"))
        reply = self.curl("-F", f"upload=@{self.package}", "-F", "note=x", "-F", f"upload=@{other}", f"{URL}/upload")
        self.assert_installed(reply, b"Installed hello 1.0.0", b"Installed other 2.1")

    def test_curl_chunked_from_a_pipe(self):
        body = form([("a.zip", package())])
        reply = self.curl("-T", "-", "-X", "POST", "-H", "Content-Type: multipart/form-data; boundary=xXboundaryXx",
                          "-H", "Expect:", f"{URL}/upload", input=body)
        self.assert_installed(reply)

    def test_curl_expect_100(self):
        # No interim answer is sent: the client goes on by itself after its own short wait.
        self.assert_installed(self.curl("-H", "Expect: 100-continue", "-F", f"upload=@{self.package}", f"{URL}/upload"))

    def test_curl_http_1_0(self):
        self.assert_installed(self.curl("--http1.0", "-F", f"upload=@{self.package}", f"{URL}/upload"))

    def test_curl_keepalive(self):
        out = self.curl("-v", "--keepalive-time", "5", "-H", "Connection: keep-alive", f"{URL}/", f"{URL}/?again")
        self.assertEqual(out, FORM_PAGE * 2)

    def test_curl_reuses_the_connection(self):
        run = subprocess.run(["curl", "-sS", "-v", "-H", "Connection: keep-alive", f"{URL}/", f"{URL}/?again"],
                             capture_output=True)
        self.assertRegex(run.stderr, b"[Rr]e-?using existing")

    def test_wget(self):
        run = subprocess.run(["wget", "-q", "-O", "-", f"{URL}/"], capture_output=True)
        self.assertEqual((run.returncode, run.stdout), (0, FORM_PAGE))
        self.assertEqual(subprocess.run(["wget", "-q", "-O", "-", f"{URL}/none"]).returncode, 8)

    def test_wget_posts_a_file(self):
        body = self.root / "body"
        body.write_bytes(form([("a.zip", package())]))
        run = subprocess.run(["wget", "-q", "-O", "-", f"--post-file={body}",
                              "--header=Content-Type: multipart/form-data; boundary=xXboundaryXx", f"{URL}/upload"],
                             capture_output=True)
        self.assert_installed(run.stdout)

    def test_http_client(self):
        client = http.client.HTTPConnection("127.0.0.1", 6370, timeout=60)
        self.addCleanup(client.close)
        headers = {"Connection": "keep-alive", "Content-Type": "multipart/form-data; boundary=xXboundaryXx"}
        for _ in range(3):
            client.request("POST", "/upload", form([("a.zip", package())]), headers)
            self.assert_installed(client.getresponse().read())
            client.request("GET", "/", headers=headers)
            self.assertEqual(client.getresponse().read(), FORM_PAGE)

    def test_certificates_open_with_tar(self):
        (self.root / "certs").mkdir()
        (self.root / "certs/one.pem").write_bytes(FIRST)
        (self.root / "certs/two.pem").write_bytes(SECOND)
        archive = self.root / "certificates.tar"
        self.curl("-o", str(archive), f"{URL}/certificates.tar")
        listed = subprocess.run(["tar", "tf", archive], capture_output=True, text=True, check=True).stdout
        self.assertIn("one.pem", listed)
        with tarfile.open(archive) as tar:
            contents = sorted(tar.extractfile(member).read() for member in tar if member.isfile())
        self.assertEqual(contents, [FIRST, SECOND])


class ManyClientsTest(jxtest.Case):
    def setUp(self):
        super().setUp()
        self.server = self.start_http_server()
        self.errors = []

    def in_threads(self, work):
        def guarded(number):
            try:
                work(number)
            except Exception as error:  # shown by the assertion below, with its client
                self.errors.append(f"client {number}: {error!r}")
        threads = [threading.Thread(target=guarded, args=(number,)) for number in range(CLIENTS)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(self.errors, [])
        self.assertIsNone(self.server.poll())

    def test_each_file_arrives_whole(self):
        # Receptions share their file names, so that the clients take turns with them; everything else goes on at once.
        turn = threading.Lock()

        def work(number):
            with Wire() as wire:
                for count in range(UPLOADS_EACH):
                    content = package(f"app{number}", f"1.{count}", {"data": os.urandom(20000 + 997 * number)})
                    wire.send(request("GET", "/", keep=True))
                    if wire.read_reply()[1] != FORM_PAGE:
                        raise AssertionError("no form page")
                    with turn:
                        wire.send(upload([("a.zip", content)], keep=True))
                        reply = wire.read_reply()[1]
                    line = f"Package upload-0.zip: {len(content)} bytes, sha256 {hashlib.sha256(content).hexdigest()}<br>"
                    if line.encode() not in reply:
                        raise AssertionError(f"{line} is not in {reply}")

        self.in_threads(work)
        self.assertEqual(len(list((self.root / "apps").iterdir())), CLIENTS)

    def test_uploads_at_once_all_get_an_answer(self):
        # Files received at the same time overwrite each other; what the installer then finds is reported, and no
        # application is ever half installed.
        def work(number):
            with Wire() as wire:
                for count in range(UPLOADS_EACH):
                    wire.send(upload([("a.zip", package("app", f"{number}.{count}", {"data": os.urandom(50000)}))], keep=True))
                    reply = wire.read_reply()[1]
                    if not reply.startswith(RESULT_HEAD + b"Upload ") or not reply.endswith(RESULT_TAIL):
                        raise AssertionError(reply)

        self.in_threads(work)
        with Wire() as wire:
            reply = wire.send(upload([("a.zip", package("app", "final", {"data": b"whole"}))])).read_all()
        self.assertIn(b"app final", reply)
        self.assertEqual((self.root / "apps/app/data").read_bytes(), b"whole")


if __name__ == "__main__":
    unittest.main()
