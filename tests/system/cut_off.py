"""Uploads that the program's end cut off: nothing of them is installed later, nor told to another client."""

import signal
import subprocess
import unittest

import jxtest
from jxhttp import Wire, exchange, package, upload
from jxpackages import write_package
from jxserial import Line, SerialCase

INSTALLED = b"Upload successful<br>\nPackage upload-0.zip: "


class CutOffTest(SerialCase):
    def begin_upload(self):
        """Sends two packages of a form and the beginning of a third; returns the connection and what is left to send."""
        wire = Wire()
        self.addCleanup(wire.socket.close)
        sent = upload([("a.zip", package("one")), ("b.zip", package("two")), ("c.zip", package("three") + bytes(100_000))])
        wire.send(sent[:-50_000])
        jxtest.wait_until((self.root / "source/upload-2.zip").exists, what="the third package is being received")
        return wire, sent[-50_000:]

    def assert_own_upload_alone(self):
        """The next client's upload installs, and tells of, what that client sent."""
        answer = exchange(upload([("own.zip", package("own"))]))
        self.assertIn(INSTALLED, answer)
        self.assertEqual(answer.count(b"Package upload-"), 1, answer)
        self.assertNotIn(b"Error:", answer)
        self.assertEqual([path.name for path in (self.root / "apps").iterdir()], ["own"])

    def test_killed(self):
        server = self.start_http_server()
        self.begin_upload()
        self.stop(server, signal.SIGKILL)
        self.start_http_server()
        self.assert_own_upload_alone()

    def test_terminated(self):
        server = self.start_http_server()
        self.begin_upload()
        self.stop(server)
        self.start_http_server()
        self.assert_own_upload_alone()

    def leave_in_mid_upload(self):
        for words in ("link add jxa type veth peer name jxb", "link set jxa up", "link set jxb up",
                      "addr add 10.1.0.1/24 dev jxa"):
            subprocess.run(["ip", *words.split()], check=True)
        self.addCleanup(subprocess.run, ["ip", "link", "del", "jxa"], check=True)
        operator = self.start_terminal()
        operator.choose("mainmenu.html", 1)
        operator.choose("download.html", 1)
        operator.see_past(["wait.html"], "download-http.html")
        jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the server listens")
        self.begin_upload()
        operator.answer(-1)
        operator.choose("download.html", -1)
        operator.choose("mainmenu.html", -1)
        self.assertEqual(self.program.wait(60), 0)

    def test_operator_leaves(self):
        self.leave_in_mid_upload()
        self.start_http_server()
        self.assert_own_upload_alone()

    def test_operator_leaves_and_comes_back_for_a_serial_download(self):
        self.leave_in_mid_upload()
        (self.root / "screen.url").unlink(missing_ok=True)
        line = Line(self)
        self.start_terminal_with_lines({3: line})
        self.operator.choose("mainmenu.html", 1)
        self.operator.choose("download.html", 3)
        self.pushed(line, write_package(self.root / "own.zip", "own"))
        text = self.operator.see_past(["download-ddl.html", "install-ddl.html"], "result.html")["vars"]["text"]
        self.assertIn("Installed own 1.0.0", text)
        self.assertEqual(text.count("Package upload-"), 1, text)

    def test_another_start_takes_nothing_from_an_upload_under_way(self):
        self.start_http_server()
        wire, rest = self.begin_upload()
        self.instruct_sanitizer("detect_leaks=0")  # of the port that cannot be opened
        other = subprocess.run([jxtest.BIN / "jxdownloader", "--http"], env=self.env, capture_output=True, timeout=60)
        self.assertEqual(other.stderr, b"Failed to listen on port 6370\n")
        answer = wire.send(rest).read_all()
        self.assertIn(b"Installed one 1.0.0", answer)
        self.assertIn(b"Installed two 1.0.0", answer)


if __name__ == "__main__":
    unittest.main()
