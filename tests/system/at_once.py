"""Uploads at once, and a serial download beside them, in one terminal."""

import json
import os
import queue
import subprocess
import threading
import unittest

import jxtest
from jxbus import Peer
from jxhttp import RESULT_HEAD, RESULT_TAIL, Wire, exchange, package, upload
from jxpackages import write_package
from jxserial import Line, SerialCase

HELD_BACK = 50_000  # bytes of an upload
PROGRESS = "download-ddl.html"
LIST = "List of installed applications:"


class AtOnceTest(SerialCase):
    def setUp(self):
        super().setUp()
        self.controller = Peer(self, self.start_bus(), "_mac")
        for words in ("link add jxa type veth peer name jxb", "link set jxa up", "link set jxb up",
                      "addr add 10.1.0.1/24 dev jxa"):
            subprocess.run(["ip", *words.split()], check=True)
        self.addCleanup(subprocess.run, ["ip", "link", "del", "jxa"], check=True)
        self.large = write_package(self.root / "serial-1.zip", "serial", files={"data": bytes(range(256)) * 400},
                                   compression=0)

    def begin_uploads(self, names):
        """Starts the upload server, sends most of a package for each name, and leaves the server's screen."""
        self.operator.choose("download.html", 1)
        self.operator.see_past(["wait.html"], "download-http.html")
        jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the server listens")
        uploads = []
        for name in names:
            wire, sent = Wire(), upload([("a.zip", package(name, files={"data": os.urandom(100_000)}))])
            self.addCleanup(wire.socket.close)
            wire.send(sent[:-HELD_BACK])
            uploads.append((wire, sent[-HELD_BACK:]))
        jxtest.wait_until((self.root / "source/upload-0.zip").exists, what="an upload is under way")
        self.operator.answer(-1)
        return uploads

    def end_uploads(self, uploads):
        """Sends the rest of each at the same time; returns the answers."""
        answers = queue.Queue()
        threads = [threading.Thread(target=lambda wire=wire, rest=rest: answers.put(wire.send(rest).read_all()))
                   for wire, rest in uploads]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        return [answers.get_nowait() for _ in uploads]

    def end_serial_download(self, sender):
        """The text that the operator sees at its end."""
        self.operator.see_past([PROGRESS], "install-ddl.html")
        self.operator.press_if_open(0)
        text = self.operator.see_past([PROGRESS, "install-ddl.html"], "result.html")["vars"]["text"]
        output, errors = sender.communicate(timeout=120)
        self.assertEqual(sender.returncode, 0, output + errors)
        return text

    def test_each_installation_has_its_log_and_its_notification(self):
        # What is received at the same time shares its name in the source directory, so that one overwrites the other; what
        # the installers then find is reported, and nothing is half installed.
        line = Line(self, rate=50000)  # bytes a second
        self.start_terminal_with_lines({3: line})
        self.operator.choose("mainmenu.html", 1)
        uploads = self.begin_uploads(["one", "two"])
        self.operator.choose("download.html", 3)
        sender = self.push(line, self.large)
        self.operator.see(PROGRESS)
        self.assertEqual(self.operator.see(PROGRESS)["vars"]["message"], "serial-1.zip: 0 %")
        answers = self.end_uploads(uploads)
        text = self.end_serial_download(sender)
        for answer in answers:
            body = answer.partition(b"\r\n\r\n")[2]
            self.assertTrue(body.startswith(RESULT_HEAD + b"Upload successful<br>\n"), answer)
            self.assertTrue(body.endswith(RESULT_TAIL), answer)
        for log in (*(answer.decode() for answer in answers), text):
            self.assertEqual(log.count(LIST), 1, log)
        for _ in range(3):
            self.assertEqual(json.loads(self.controller.notification()[1])["libmac_cmd"], "libmac_scan_manifests")
        for folder in (self.root / "apps").iterdir():
            files = json.loads((folder / "manifest.json").read_text())["files"]
            self.assertTrue(all((folder / name).exists() for name in files), folder)

    def test_next_upload_is_served_as_ever(self):
        line = Line(self, rate=50000)
        self.start_terminal_with_lines({3: line})
        self.operator.choose("mainmenu.html", 1)
        (wire, rest), = self.begin_uploads(["one"])
        self.operator.choose("download.html", 3)
        sender = self.push(line, self.large)
        self.operator.see(PROGRESS)
        wire.send(rest).read_all()
        self.end_serial_download(sender)
        self.operator.answer(-1)
        self.operator.choose("download.html", 1)
        self.operator.see_past(["wait.html"], "download-http.html")
        jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the server listens again")
        self.assertIn(b"nstalled hello 1.0.0", exchange(upload([("a.zip", package())])))


class TwoUploadsTest(jxtest.Case):
    def test_upload_is_received_and_installed_while_another_stalls_in_mid_file(self):
        self.start_http_server()
        stalled, sent = Wire(), upload([("a.zip", package("one", files={"data": os.urandom(200_000)}))])
        self.addCleanup(stalled.socket.close)
        stalled.send(sent[:-HELD_BACK])
        file = self.root / "source/upload-0.zip"
        jxtest.wait_until(lambda: file.exists() and file.stat().st_size > 0, what="the first file is being written")
        answer = exchange(upload([("b.zip", package("two"))]))
        self.assertIn(b"Installed two 1.0.0", answer)
        # The first was neither waited for nor given up.
        self.assertFalse((self.root / "apps/one").exists())
        page = stalled.send(sent[-HELD_BACK:]).read_all().partition(b"\r\n\r\n")[2]
        self.assertTrue(page.startswith(RESULT_HEAD + b"Upload successful<br>\n"), page)
        self.assertTrue(page.endswith(RESULT_TAIL), page)


if __name__ == "__main__":
    unittest.main()
