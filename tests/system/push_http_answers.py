"""jxpush over HTTP against servers that answer as no terminal does, late, in pieces or not at all, and against servers that
are something else."""

import functools
import http.server
import re
import signal
import socket
import subprocess
import threading
import unittest

import jxnginx
import jxschema
from jxhttp import FAILED_PAGE, FORM_PAGE, RESULT_HEAD, RESULT_TAIL, package
from jxnginx import start_nginx
from jxpushing import JXPUSH, LARGE, HttpPushCase, answer, stored


class Fake:
    """A server for one connection at a time, in the hands of `serve(socket)`."""

    def __init__(self, case, serve, receive_buffer=None):
        self.listener = socket.socket()
        if receive_buffer:
            self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.listener.bind(("127.0.0.1", 0))
        self.listener.listen()
        self.url = "http://127.0.0.1:%d" % self.listener.getsockname()[1]
        self.serve = serve
        self.thread = threading.Thread(target=self.run)
        self.thread.start()
        case.addCleanup(self.close)

    def run(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            with connection:
                connection.settimeout(60)
                try:
                    self.serve(connection)
                except OSError:
                    pass  # the client went away, which is its right

    def close(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.thread.join()


def receive_head(connection):
    data = b""
    while b"\r\n\r\n" not in data:
        piece = connection.recv(65536)
        if not piece:
            raise OSError("cut")
        data += piece
    return data.split(b"\r\n\r\n", 1)


def receive_request(connection):
    """(head, body) of a request with a length."""
    head, body = receive_head(connection)
    length = int(re.search(rb"\r\nContent-Length: (\d+)", head).group(1))
    while len(body) < length:
        piece = connection.recv(65536)
        if not piece:
            raise OSError("cut")
        body += piece
    return head, body


def wait_for_end(connection):
    while connection.recv(65536):
        pass


class FakeTerminalTest(HttpPushCase):
    def setUp(self):
        super().setUp()
        self.content = b"content of a file"
        self.path = self.file("a.zip", self.content)

    def fake(self, serve, **kwargs):
        return Fake(self, serve, **kwargs).url

    def answering(self, *pieces):
        """The address of a server that receives the request and then answers with these bytes."""
        def serve(connection):
            receive_request(connection)
            for piece in pieces:
                connection.sendall(piece)
        return self.fake(serve)

    def test_request_on_the_wire(self):
        seen = []

        def serve(connection):
            seen.append(receive_request(connection))
            connection.sendall(stored())
        url = self.fake(serve)
        self.pushed(self.path, to=url)
        head, body = seen[0]
        boundary = re.search(rb"boundary=(jxpush-[0-9A-F]{48})\r\n", head).group(1)
        self.assertEqual(head, b"\r\n".join([
            b"POST /upload HTTP/1.1", b"Host: " + url[7:].encode(), b"Content-Length: %d" % len(body),
            b"Content-Type: multipart/form-data; boundary=" + boundary, b"Connection: close", b"User-Agent: jxpush"]))
        self.assertEqual(body, b"--" + boundary + b"\r\nContent-Disposition: form-data; name=\"upload\"; filename=\"a.zip\"\r\n"
                         b"Content-Type: application/octet-stream\r\n\r\n" + self.content + b"\r\n--" + boundary + b"--\r\n")

    def test_slow_terminal(self):
        received = []

        def serve(connection):
            head, body = receive_head(connection)
            length = int(re.search(rb"\r\nContent-Length: (\d+)", head).group(1))
            pause = threading.Event()
            while len(body) < length:
                body += connection.recv(65536)
                pause.wait(0.01)
            received.append(len(body) == length)
            for byte in stored(b"done<br>"):
                connection.sendall(bytes([byte]))
                pause.wait(0.005)
        url = self.fake(serve, receive_buffer=4096)
        result = self.pushed(self.sparse("large", 3_000_000), to=url)
        self.assertEqual((received, self.texts(result)), ([True], ["done"]))

    def test_answer_in_every_cut_of_its_bytes(self):
        whole = stored(b"<span style='color:#f00'>Warning: &lt;x&gt;<br></span>")
        for at in range(1, len(whole), 23):
            result = self.pushed(self.path, to=self.answering(whole[:at], whole[at:]))
            self.assertEqual(self.texts(result), ["Warning: <x>"])

    def test_chunked_answer(self):
        page = RESULT_HEAD + b"Upload successful<br>\nok<br>" + RESULT_TAIL
        chunked = b"".join(b"%x\r\n%s\r\n" % (len(page[at:at + 9]), page[at:at + 9]) for at in range(0, len(page), 9))
        url = self.answering(b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked + b"0\r\n\r\n")
        self.assertEqual(self.texts(self.pushed(self.path, to=url)), ["ok"])

    def test_error_lines_give_their_code(self):
        for log in (b"Error: x<br>", b"<span style='color:#f00'>Error: x</span>"):
            result = self.pushed(self.path, to=self.answering(stored(log)), code=40, status="not-installed")
            self.assertEqual(result["log"], [{"kind": "error", "text": "Error: x"}])

    def test_refusals(self):
        once = "--retry", "1"  # what has been answered is not sent again
        self.pushed(self.path, *once, to=self.answering(answer(FAILED_PAGE)), code=30, status="refused")
        for status, reason in ((400, "Bad Request"), (404, "Not Found"), (408, "Request Timeout"), (500, "Internal Server Error"),
                               (302, "Found"), (599, "Error")):
            url = self.answering(b"HTTP/1.1 %d Whatever\r\nContent-Length: 0\r\n\r\n" % status)
            result = self.pushed(self.path, *once, to=url, code=30, status="refused")
            self.assertIn(f"refused the upload: {status} (", result["message"])
            if status in (404, 400):
                self.assertIn(f"{status} ({reason})", result["message"])

    def test_answers_of_something_else(self):
        for bytes_ in (answer(b"<html>It works!</html>"), answer(b""), answer(FORM_PAGE), answer(FAILED_PAGE + b"\n"),
                       stored(b"<script>alert(1)</script>"), stored(b"<span style='color:#f00'>Error: open"),
                       b"HTTP/1.1 200 OK\r\n\r\n" + FAILED_PAGE, b"220 mail.example ESMTP\r\n\r\n", b"\r\n\r\n",
                       b"\x00\x01\x02\n", b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n",
                       b"GET / HTTP/1.1\r\n\r\n"):
            with self.subTest(bytes_):
                result = self.pushed(self.path, to=self.answering(bytes_), code=30, status="not-a-terminal")
                self.assertIn("is not a terminal's upload server", result["message"])

    def test_endless_answer_is_not_read_to_its_end(self):
        def serve(connection):
            receive_request(connection)
            connection.sendall(b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n")
            while True:
                connection.sendall(b"10000\r\n" + b"x" * 65536 + b"\r\n")
        self.pushed(self.path, to=self.fake(serve), code=30, status="not-a-terminal")

    def test_answer_that_is_cut(self):
        whole = stored(b"Installed x<br>")
        for at in (0, 1, 10, 40, 80, len(whole) // 2, len(whole) - 1):
            with self.subTest(at):
                result = self.pushed(self.path, to=self.answering(whole[:at]), code=41, status="unknown")
                self.assertEqual(result["message"], "the terminal closed the connection; it had everything, and may have "
                                                    "installed it or may be installing it now")

    def test_terminal_that_never_answers(self):
        def serve(connection):
            receive_request(connection)
            wait_for_end(connection)
        result = self.pushed("--timeout", "1", self.path, to=self.fake(serve), code=41, status="unknown")
        self.assertIn("the terminal was silent for 1 s", result["message"])

    def test_early_answer_ends_the_sending(self):
        large = self.sparse("large", LARGE)

        def refuse_and_wait(connection):
            receive_head(connection)
            connection.sendall(b"HTTP/1.1 413 Too Large\r\nContent-Length: 0\r\n\r\n")
            wait_for_end(connection)

        def refuse_and_reset(connection):
            receive_head(connection)
            connection.sendall(b"HTTP/1.1 413 Too Large\r\nContent-Length: 0\r\n\r\n")

        for serve in (refuse_and_wait, *[refuse_and_reset] * 10):
            result = self.pushed(large, to=self.fake(serve), code=30, status="refused")
            self.assertIn("413", result["message"])

    def test_early_page(self):
        large = self.sparse("large", LARGE)

        def serve(page, connection):
            receive_head(connection)
            connection.sendall(page)
            wait_for_end(connection)

        self.pushed(large, to=self.fake(functools.partial(serve, answer(FAILED_PAGE))), code=30, status="refused")
        result = self.pushed(large, to=self.fake(functools.partial(serve, stored())), code=41, status="unknown")
        self.assertIn("before it had everything", result["message"])

    def test_terminal_that_closes_before_it_has_the_file(self):
        result = self.pushed(self.sparse("large", LARGE), to=self.fake(receive_head), code=20, status="connection-lost")
        self.assertIn("it installs nothing", result["message"])

    # --- connecting ---

    def full_listener(self):
        """The address of a listener that takes no connection any more."""
        listener = socket.socket()
        listener.bind(("127.0.0.1", 0))
        listener.listen(0)
        self.addCleanup(listener.close)
        for _ in range(4):
            client = socket.socket()
            client.setblocking(False)
            client.connect_ex(listener.getsockname())
            self.addCleanup(client.close)
        return "http://127.0.0.1:%d" % listener.getsockname()[1]

    def test_unreachable_port(self):
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", 0))
            result = self.pushed(self.path, to="http://127.0.0.1:%d" % taken.getsockname()[1], code=20, status="unreachable")
        self.assertIn("unreachable: Connection refused", result["message"])

    def test_name_without_an_address(self):
        result = self.pushed(self.path, to="http://terminal.invalid", code=20, status="unreachable")
        self.assertIn("http://terminal.invalid:6370: unreachable: no address for this name", result["message"])

    def test_connection_that_is_not_taken(self):
        result = self.pushed("--wait", "1", self.path, to=self.full_listener(), code=20, status="unreachable")
        self.assertIn("no connection within 1 s", result["message"])

    def test_interrupted_while_connecting(self):
        process = self.push("--progress", "plain", self.path, to=self.full_listener())
        self.wait_line(process, "Waiting for a connection")
        process.send_signal(signal.SIGINT)
        self.assertEqual(self.result(process, 130, "interrupted")["message"], "interrupted before the terminal was reached")

    def test_wrong_addresses(self):
        for address in ("https://localhost", "http://", "http://::1", "http://localhost:0", "http://localhost/upload"):
            self.pushed(self.path, to=address, code=2, status="usage")


class ForeignServerTest(HttpPushCase):
    def assert_foreign(self, url):
        """Each command says that this is no terminal."""
        for path in (self.file("a.zip", package()), self.sparse("large", LARGE)):
            result = self.pushed(path, to=url, code=30, status="refused")
            self.assertIn("refused the upload: ", result["message"])
        run = subprocess.run([JXPUSH, "status", "--to", url, "--json"], capture_output=True, text=True, timeout=120)
        self.assertEqual((run.returncode, jxschema.read(run.stdout)["status"]), (30, "not-a-terminal"))

    def test_python(self):
        handler = functools.partial(http.server.SimpleHTTPRequestHandler, directory=self.root)
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
        handler.func.log_message = lambda *_: None
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        self.addCleanup(server.server_close)
        self.addCleanup(thread.join)
        self.addCleanup(server.shutdown)
        self.assert_foreign(f"http://127.0.0.1:{server.server_port}")

    def test_nginx(self):
        folder = start_nginx(self, "")
        (folder / "index.html").write_text("<html>It works!</html>")
        self.assert_foreign(f"http://127.0.0.1:{jxnginx.PORT}")


if __name__ == "__main__":
    unittest.main()
