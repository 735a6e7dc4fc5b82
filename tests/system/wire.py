"""The upload server's bytes on the wire, request by request."""

import socket
import unittest

import jxtest
from jxhttp import FAILED_PAGE, FORM_PAGE, RESULT_HEAD, RESULT_TAIL, Wire, exchange, form, package, request, upload

NOT_FOUND = (b"HTTP/1.1 404 Not Found\r\nContent-Length: 18\r\nContent-Type: text/plain\r\nConnection: Keep-Alive\r\n\r\n"
             b"404 File not found")


def empty(status, version=b"HTTP/1.1"):
    return version + b" " + status + b"\r\nContent-Length: 0\r\nContent-Type: text/plain\r\nConnection: Keep-Alive\r\n\r\n"


def page(body, version=b"HTTP/1.1", kind=b"text/html"):
    return (version + b" 200 OK\r\nContent-Length: %d\r\nContent-Type: %s\r\nConnection: Keep-Alive\r\n\r\n" % (len(body), kind)
            + body)


class WireTest(jxtest.Case):
    def setUp(self):
        super().setUp()
        self.start_http_server()

    def source_files(self):
        return sorted(path.name for path in (self.root / "source").glob("*"))

    def test_root_is_the_form_page(self):
        self.assertEqual(exchange(b"GET / HTTP/1.1\r\n\r\n"), page(FORM_PAGE))
        self.assertEqual(exchange(b"GET /?lang=en HTTP/1.1\r\n\r\n"), page(FORM_PAGE))

    def test_ipv6(self):
        self.assertEqual(exchange(b"GET / HTTP/1.1\r\n\r\n", host="::1"), page(FORM_PAGE))

    def test_other_get_is_404(self):
        for path in (b"/index.html", b"/upload", b"/certificates.ta", b"/a//?x"):
            self.assertEqual(exchange(b"GET " + path + b" HTTP/1.1\r\n\r\n"), NOT_FOUND, path)

    def test_double_slash_cuts_the_target(self):
        # What follows two slashes is cut, so that "//" alone is the empty target, which is not the root.
        self.assertEqual(exchange(b"GET // HTTP/1.1\r\n\r\n"), NOT_FOUND)

    def test_version_is_echoed(self):
        self.assertEqual(exchange(b"GET / HTTP/1.0\r\n\r\n"), page(FORM_PAGE, b"HTTP/1.0"))
        self.assertEqual(exchange(b"GET / HTTP/2.0\r\n\r\n"), page(FORM_PAGE, b"HTTP/2.0"))
        self.assertEqual(exchange(b"GET / FOO\r\n\r\n"), page(FORM_PAGE, b"FOO"))

    def test_two_word_start_line_answers_in_http_1_0(self):
        self.assertEqual(exchange(b"GET /\r\n\r\n"), page(FORM_PAGE, b"HTTP/1.0"))

    def test_http_version_field_overwrites_the_version(self):
        self.assertEqual(exchange(b"GET / HTTP/1.1\r\nHTTP-Version: X\r\n\r\n"), page(FORM_PAGE, b"X"))

    def test_bare_line_feeds_are_accepted(self):
        self.assertEqual(exchange(b"GET / HTTP/1.1\nHost: a\n\n"), page(FORM_PAGE))

    def test_malformed_start_lines_are_400(self):
        # Without a version read, the status line begins with a blank; unless a word was taken for one.
        self.assertEqual(exchange(b"get / HTTP/1.1\r\n\r\n"), empty(b"400 Bad Request", b""))
        self.assertEqual(exchange(b"GET\r\n\r\n"), empty(b"400 Bad Request", b""))
        self.assertEqual(exchange(b"\r\n"), empty(b"400 Bad Request", b""))
        self.assertEqual(exchange(b"GET / HTTP/1.1 x\r\n\r\n"), empty(b"400 Bad Request", b""))
        self.assertEqual(exchange(b"BREW / HTTP/1.1\r\n\r\n"), empty(b"400 Bad Request", b""))
        self.assertEqual(exchange(b"HTTP/1.1 200 OK\r\n\r\n"), empty(b"400 Bad Request"))

    def test_half_closed_in_the_head_is_400(self):
        with Wire() as wire:
            wire.send(b"GET / HTTP/1.1\r\nHost: a")
            wire.socket.shutdown(socket.SHUT_WR)
            self.assertEqual(wire.read_all(), empty(b"400 Bad Request"))

    def test_half_closed_after_the_head_is_served(self):
        with Wire() as wire:
            wire.send(b"GET / HTTP/1.1\r\n\r\n")
            wire.socket.shutdown(socket.SHUT_WR)
            self.assertEqual(wire.read_all(), page(FORM_PAGE))

    def test_head_is_405_without_a_body(self):
        self.assertEqual(exchange(b"HEAD / HTTP/1.1\r\n\r\n"), empty(b"405 Method Not Allowed"))

    def test_other_methods_get_silence(self):
        for method in (b"OPTIONS", b"PUT", b"DELETE", b"TRACE", b"CONNECT", b"PATCH"):
            self.assertEqual(exchange(method + b" / HTTP/1.1\r\n\r\n"), b"", method)

    def test_silence_keeps_the_connection_when_asked(self):
        sent = b"PUT / HTTP/1.1\r\nConnection: keep-alive\r\n\r\nGET / HTTP/1.1\r\n\r\n"
        self.assertEqual(exchange(sent), page(FORM_PAGE))

    def test_unread_body_is_the_next_request(self):
        sent = b"PUT / HTTP/1.1\r\nConnection: keep-alive\r\nContent-Length: 5\r\n\r\nhello\r\n\r\n"
        self.assertEqual(exchange(sent), empty(b"400 Bad Request", b""))

    def test_keep_alive_only_for_the_exact_word(self):
        get = b"GET / HTTP/1.1\r\n"
        for field, answers in ((b"keep-alive", 2), (b"Keep-Alive", 2), (b"KEEP-ALIVE", 2), (b"close", 1),
                               (b"keep-alive, TE", 1), (b"", 1)):
            sent = get + b"Connection: " + field + b"\r\n\r\n" + get + b"\r\n"
            self.assertEqual(exchange(sent), page(FORM_PAGE) * answers, field)

    def test_pipelined_requests_are_answered_in_order(self):
        get = b"GET %s HTTP/1.1\r\nConnection: keep-alive\r\n\r\n"
        with Wire() as wire:
            wire.send(get % b"/" + get % b"/x" + get % b"/")
            self.assertEqual([wire.read_reply()[1] for _ in range(3)], [FORM_PAGE, b"404 File not found", FORM_PAGE])

    def test_request_byte_by_byte(self):
        with Wire() as wire:
            wire.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            for byte in b"GET / HTTP/1.1\r\nHost: terminal\r\n\r\n":
                wire.send(bytes([byte]))
            self.assertEqual(wire.read_all(), page(FORM_PAGE))

    def test_post_elsewhere_is_drained_then_404(self):
        with Wire() as wire:
            wire.send(request("POST", "/other", b"z" * 10000, keep=True))
            self.assertEqual(wire.read_reply()[1], b"404 File not found")
            wire.send(request("GET", "/"))
            self.assertEqual(wire.read_all(), page(FORM_PAGE))

    def test_post_elsewhere_chunked_is_drained(self):
        with Wire() as wire:
            wire.send(b"POST /other HTTP/1.1\r\nConnection: keep-alive\r\nTransfer-Encoding: chunked\r\n\r\n"
                      b"5;ext=1\r\nhello\r\n1000\r\n" + b"y" * 4096 + b"\r\n0\r\nTrailer: 1\r\n\r\n")
            self.assertEqual(wire.read_reply()[1], b"404 File not found")
            wire.send(request("GET", "/"))
            self.assertEqual(wire.read_all(), page(FORM_PAGE))

    def test_reply_comes_only_after_the_body(self):
        with Wire() as wire:
            wire.send(request("POST", "/other", b"a" * 5000)[:-1])
            wire.socket.settimeout(0.3)
            with self.assertRaises(socket.timeout):
                wire.socket.recv(1)
            wire.socket.settimeout(60)
            wire.send(b"a")
            self.assertEqual(wire.read_all(), NOT_FOUND)

    def test_upload_installs(self):
        head, body = exchange(upload([("a.zip", package())])).split(b"\r\n\r\n", 1)
        self.assertTrue(head.startswith(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\nContent-Type: text/html\r\n" % len(body)))
        self.assertTrue(body.startswith(RESULT_HEAD + b"Upload successful<br>\n"), body)
        self.assertIn(b"Installed hello 1.0.0<br>", body)
        self.assertIn(b"<span style='color:#0a0'>List of installed applications:<br>  hello 1.0.0<br></span>", body)
        self.assertTrue(body.endswith(RESULT_TAIL))
        self.assertTrue((self.root / "apps/hello/bin/hello").exists())

    def test_several_files_install_in_order(self):
        files = [("x", package("one")), ("x", package("two")), ("", b""), ("y", package("one", "2.0.0"))]
        body = exchange(upload(files))
        at = [body.index(text) for text in (b"Installed one 1.0.0", b"Installed two 1.0.0", b"Updated one 1.0.0 -&gt; 2.0.0")]
        self.assertEqual(at, sorted(at))

    def test_not_a_package_is_an_error_line(self):
        body = exchange(upload([("a.zip", b"no zip")]))
        self.assertIn(b"Upload successful<br>\n", body)
        self.assertIn(b"<span style='color:#f00'>Error: upload-0.zip: ", body)

    def test_upload_without_a_form_fails(self):
        cases = [
            ("no content type", []),
            ("other type", ["Content-Type: text/plain"]),
            ("no boundary", ["Content-Type: multipart/form-data"]),
            ("other case", ["Content-Type: Multipart/Form-Data; boundary=xXboundaryXx"]),
            ("other boundary", ["Content-Type: multipart/form-data; boundary=other"]),
        ]
        for title, fields in cases:
            with self.subTest(title):
                sent = request("POST", "/upload", form([("a.zip", package())]), fields)
                self.assertEqual(exchange(sent), page(FAILED_PAGE))
                self.assertEqual(self.source_files(), [])

    def test_upload_of_another_field_fails(self):
        self.assertEqual(exchange(upload([("a.zip", package())], field="other")), page(FAILED_PAGE))

    def test_failed_upload_keeps_the_connection(self):
        with Wire() as wire:
            wire.send(upload([("a.zip", package())], field="other", keep=True))
            self.assertEqual(wire.read_reply()[1], FAILED_PAGE)
            wire.send(upload([("a.zip", package())]))
            self.assertIn(b"Installed hello 1.0.0", wire.read_all())

    def test_quoted_boundary(self):
        sent = request("POST", "/upload", form([("a", package())]),
                       ['Content-Type: multipart/form-data; boundary="xXboundaryXx"'])
        self.assertIn(b"Installed hello 1.0.0", exchange(sent))

    def test_body_cut_at_every_edge_leaves_no_file(self):
        whole = form([("a.zip", b"first"), ("b.zip", b"second")])
        for cut in range(len(whole)):
            body = whole[:cut]
            reply = exchange(request("POST", "/upload", body, ["Content-Type: multipart/form-data; boundary=xXboundaryXx"]))
            stored = b"Upload successful" in reply
            # The first file counts as soon as the delimiter behind it is there.
            self.assertEqual(stored, cut >= whole.index(b"first\r\n--xXboundaryXx") + len(b"first\r\n--xXboundaryXx"), cut)
            self.assertEqual(self.source_files(), [], cut)

    def test_connection_cut_in_mid_file_leaves_no_file(self):
        for end in (lambda s: s.shutdown(socket.SHUT_WR), lambda s: s.setsockopt(
                socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")):
            with Wire() as wire:
                wire.send(upload([("a.zip", b"q" * 300000)])[:200000])
                jxtest.wait_until(lambda: self.source_files() == ["upload-0.zip"], what="the file is there")
                end(wire.socket)
            jxtest.wait_until(lambda: self.source_files() == [], what="the part is removed")
        self.assertEqual(exchange(b"GET / HTTP/1.1\r\n\r\n"), page(FORM_PAGE))

    def test_odd_lengths_do_no_harm(self):
        for field in (b"Content-Length: 99999999999999999999", b"Content-Length: 4294967296", b"Content-Length: -3",
                      b"Content-Length: abc", b"Content-Length: 2147483648", b"Transfer-Encoding: chunked"):
            for body in (b"", b"-5\r\nhello", b"ffffffffffffffffff\r\nx", b"80000000\r\nx", b"zz\r\n", b"7fffffff\r\nx"):
                with Wire() as wire:
                    wire.send(b"POST /upload HTTP/1.1\r\n" + field + b"\r\n\r\n" + body)
                    wire.socket.shutdown(socket.SHUT_WR)
                    # A body that can be read to its end is a form without a boundary; any other gets silence.
                    self.assertIn(wire.read_all(), (b"", page(FAILED_PAGE)), (field, body))
        self.assertEqual(exchange(b"GET / HTTP/1.1\r\n\r\n"), page(FORM_PAGE))

    def test_escapes_in_the_target(self):
        self.assertEqual(exchange(b"GET /%3Fa HTTP/1.1\r\n\r\n"), page(FORM_PAGE))
        self.assertEqual(exchange(b"GET /%253Fa HTTP/1.1\r\n\r\n"), page(FORM_PAGE))
        for target in (b"/%", b"/%4", b"/%zz", b"%", b"/%00", b"\\..\\..\\etc"):
            self.assertEqual(exchange(b"GET " + target + b" HTTP/1.1\r\n\r\n"), NOT_FOUND, target)

    def test_certificates(self):
        (self.root / "certs").mkdir()
        (self.root / "certs/a.pem").write_text("-----BEGIN CERTIFICATE-----\n")
        for path in (b"/certificates.tar", b"/certificates.tar?x", b"/certificates.tarball", b"/certificates.tar.gz"):
            reply = exchange(b"GET " + path + b" HTTP/1.1\r\n\r\n")
            self.assertIn(b"Content-Type: application/x-tar\r\n", reply)
            self.assertIn(b"-----BEGIN CERTIFICATE-----", reply)

    def test_certificates_missing_is_an_empty_or_partial_archive(self):
        self.assertTrue(exchange(b"GET /certificates.tar HTTP/1.1\r\n\r\n").startswith(b"HTTP/1.1 200 OK\r\n"))


class QuietTest(jxtest.Case):
    def test_nothing_goes_to_standard_output_or_error(self):
        with open(self.root / "output", "wb") as output:
            server = self.start_http_server(stdout=output, stderr=output)
        for sent in (b"GET / HTTP/1.1\r\n\r\n", b"nonsense\r\n", request("POST", "/upload", b"no form"),
                     upload([("a.zip", package()), ("b.zip", b"no package")]), upload([("a.zip", package())])[:-30]):
            with Wire() as wire:
                wire.send(sent)
                wire.socket.shutdown(socket.SHUT_WR)
                wire.read_all()
        self.stop(server)
        self.assertEqual((self.root / "output").read_bytes(), b"")


if __name__ == "__main__":
    unittest.main()
