"""The HTTP client against nginx and against the upload server."""

import subprocess
import unittest

import jxtest
from jxhttp import FORM_PAGE, form, package
from jxnginx import PORT, start_nginx

DRIVER = jxtest.BIN / "http_client_driver"
OPTIONS, GET, HEAD, POST, PUT, DELETE = 2, 3, 4, 5, 6, 7
SERVER = """
  default_type text/plain;
  location = /echo { return 200 "$request_method $http_host $content_length $content_type $http_authorization"; }
  location = /body { client_body_in_single_buffer on; proxy_pass http://127.0.0.1:6371/seen; }
  location = /seen { return 200 "$content_length"; }
  location = /moved { return 302 /elsewhere; }
  location = /secret { auth_basic x; auth_basic_user_file users; }
  location = /chunked { ssi on; ssi_types *; }
  location = /nothing { return 204; }
  location = /broken { return 444; }
"""


class ClientCase(jxtest.Case):
    port = PORT

    def exchange(self, method, path, body=b"", content_type="", credentials=()):
        """(status, type, body) of the answer."""
        run = subprocess.run([DRIVER, str(method), "127.0.0.1", str(self.port), path, content_type, *credentials], input=body,
                             capture_output=True, timeout=120)
        self.assertEqual(run.returncode, 0, run.stderr)
        status, kind, answer = run.stdout.split(b"\n", 2)
        return int(status), kind.decode(), answer


class NginxTest(ClientCase):
    def setUp(self):
        super().setUp()
        self.folder = start_nginx(self, SERVER)

    def test_files_of_many_sizes(self):
        for size in (0, 1, 2047, 2048, 65536, 3_000_001):
            content = bytes(range(256)) * (size // 256) + b"x" * (size % 256)
            (self.folder / "file").write_bytes(content)
            self.assertEqual(self.exchange(GET, "/file"), (200, "text/plain", content))

    def test_chunked_answer(self):
        text = b"before <!--# echo var='host' --> after\n" * 5000
        (self.folder / "chunked").write_bytes(text)
        expected = text.replace(b"<!--# echo var='host' -->", b"localhost")
        self.assertEqual(self.exchange(GET, "/chunked"), (200, "text/plain", expected))

    def test_request_as_the_server_sees_it(self):
        self.assertEqual(self.exchange(POST, "/echo", b"1234567", "text/x-test"),
                         (200, "text/plain", b"POST localhost:6371 7 text/x-test "))
        self.assertEqual(self.exchange(GET, "/echo"), (200, "text/plain", b"GET localhost:6371 0  "))
        self.assertEqual(self.exchange(DELETE, "/echo?a=b")[2], b"DELETE localhost:6371 0  ")

    def test_large_body_goes_through(self):
        self.assertEqual(self.exchange(POST, "/body", b"x" * 900_000, "a/b"), (200, "text/plain", b"900000"))

    def test_credentials(self):
        password = subprocess.run(["openssl", "passwd", "-apr1", "open: sesame"], capture_output=True, text=True, check=True)
        (self.folder / "users").write_text(f"ali:{password.stdout}")
        (self.folder / "secret").write_bytes(b"treasure")
        self.assertEqual(self.exchange(GET, "/secret")[0], 401)
        self.assertEqual(self.exchange(GET, "/secret", credentials=("ali", "wrong"))[0], 401)
        self.assertEqual(self.exchange(GET, "/secret", credentials=("ali", "open: sesame")), (200, "text/plain", b"treasure"))
        self.assertEqual(self.exchange(GET, "/echo", credentials=("Aladdin", "open sesame"))[2],
                         b"GET localhost:6371 0  Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ==")

    def test_other_statuses(self):
        self.assertEqual(self.exchange(GET, "/none")[0], 404)
        self.assertIn(b"404 Not Found", self.exchange(GET, "/none")[2])
        self.assertEqual(self.exchange(GET, "/moved")[0], 302)
        self.assertEqual(self.exchange(GET, "/nothing"), (204, "", b""))
        self.assertEqual(self.exchange(POST, "/none.html", b"x")[0], 404)
        self.assertEqual(self.exchange(POST, "/conf", b"x")[0], 405)
        self.assertEqual(self.exchange(PUT, "/conf", b"x" * 2_000_000)[0], 413)

    def test_server_that_closes_without_an_answer(self):
        self.assertEqual(self.exchange(GET, "/broken"), (400, "", b""))

    def test_method_that_is_none_is_not_sent(self):
        for method in (0, 1, 11):
            self.assertEqual(self.exchange(method, "/echo"), (410, "", b""))


class OwnServerTest(ClientCase):
    port = jxtest.HTTP_PORT

    def setUp(self):
        super().setUp()
        self.start_http_server()

    def test_form_and_archive(self):
        self.assertEqual(self.exchange(GET, "/"), (200, "text/html", FORM_PAGE))
        status, kind, archive = self.exchange(GET, "/certificates.tar")
        self.assertEqual((status, kind, len(archive) % 512), (200, "application/x-tar", 0))
        self.assertEqual(self.exchange(GET, "/none"), (404, "text/plain", b"404 File not found"))

    def test_upload(self):
        status, _, page = self.exchange(POST, "/upload", form([("a.zip", package())]),
                                        "multipart/form-data; boundary=xXboundaryXx")
        self.assertEqual(status, 200)
        self.assertIn(b"Installed hello 1.0.0", page)

    def test_head_has_no_body(self):
        self.assertEqual(self.exchange(HEAD, "/")[0], 405)


if __name__ == "__main__":
    unittest.main()
