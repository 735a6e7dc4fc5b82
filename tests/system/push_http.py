"""jxpush over HTTP against the real upload server, in every way that it can end."""

import fcntl
import functools
import hashlib
import os
import pathlib
import signal
import subprocess
import unittest

import jxschema
from jxhttp import package
from jxpushing import JXPUSH, LARGE, SANITIZED, HttpPushCase
from jxtest import HTTP_PORT, wait_until


class TerminalTest(HttpPushCase):
    def setUp(self):
        super().setUp()
        self.server = self.start_http_server()
        self.package = self.file("hello.zip", package())

    @staticmethod
    def connections_have_ended():
        """True when the terminal has closed every connection."""
        rows = [row.split() for family in ("tcp", "tcp6")
                for row in pathlib.Path(f"/proc/net/{family}").read_text().splitlines()[1:]]
        established, closed_by_the_client = "01", "08"
        return not any(row[1].endswith(f":{HTTP_PORT:04X}") and row[3] in (established, closed_by_the_client) for row in rows)

    def assert_alive(self):
        # Uploads at the same time take the same names: the one that was broken off has to have ended.
        wait_until(self.connections_have_ended, what="the connections end")
        self.assertIsNone(self.server.poll())
        self.pushed(self.file("alive.zip", package("alive")))

    # --- what is sent arrives ---

    def test_one_file(self):
        result = self.pushed(self.package)
        digest = hashlib.sha256(self.package.read_bytes()).hexdigest()
        self.assertEqual(result["log"], [
            {"kind": "text", "text": f"Package upload-0.zip: {self.package.stat().st_size} bytes, sha256 {digest}"},
            {"kind": "warning", "text": "Warning: hello 1.0.0 is not signed"},
            {"kind": "text", "text": "Installed hello 1.0.0"},
            {"kind": "list", "text": "List of installed applications:"}, {"kind": "list", "text": "  hello 1.0.0"}])
        self.assertEqual((result["errors"], result["warnings"], result["files"]), (0, 1, 1))
        self.assertNotIn("records", result)

    def test_output_as_text(self):
        bad = self.file("bad.zip", b"nonsense")
        run = subprocess.run([JXPUSH, "--to", "http://localhost/", "--progress", "plain", self.package, bad],
                             capture_output=True, text=True, timeout=120)
        self.assertEqual(run.returncode, 40, run.stderr)
        digest = hashlib.sha256(b"nonsense").hexdigest()
        self.assertEqual(run.stdout.splitlines()[1:], [
            f"bad.zip: 8 bytes, sha256 {digest}", "   " + "Package hello.zip: " + run.stdout.split(": ", 1)[1].split("\n")[0],
            " ! Warning: hello 1.0.0 is not signed", "   Installed hello 1.0.0",
            f"   Package bad.zip: 8 bytes, sha256 {digest}", "!! Error: bad.zip: is not a zip archive",
            "   List of installed applications:", "     hello 1.0.0"])
        lines = run.stderr.splitlines()
        self.assertEqual((lines[0], lines[-2], lines[-1]), ("Waiting for a connection to http://localhost:6370 ...",
                         "Installing ...", "jxpush: the terminal's installer reported an error"))

    def test_success_as_text_ends_with_a_sentence(self):
        run = subprocess.run([JXPUSH, "--to", "http://localhost", "--progress", "none", self.package], capture_output=True,
                             text=True, timeout=120)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertRegex(run.stdout.splitlines()[-1], rf"^Sent 1 file, {self.package.stat().st_size} bytes in \d+\.\d s$")

    def test_every_form_of_the_address(self):
        for address in ("http://127.0.0.1", "http://127.0.0.1:6370/", "http://[::1]", "http://[::1]:6370/",
                        "http://localhost", "HTTP://LOCALHOST:6370"):
            with self.subTest(address):
                self.pushed(self.package, to=address)

    def test_many_files(self):
        files = [self.file(f"app{i}.zip", package(f"app{i}", "1.0", {"data": os.urandom(i * 999)})) for i in range(40)]
        result = self.pushed(*files)
        self.assertEqual(result["errors"], 0)
        self.assertEqual(sum(text.startswith("Installed app") for text in self.texts(result)), 40)
        self.assertEqual(len(list((self.root / "apps").iterdir())), 40)

    def test_sizes_around_every_buffer(self):
        sizes = [1, 4095, 4096, 4097, 16384, 65535, 65536, 65537, 131072, 1000003]
        files = [self.file(f"f{size}", os.urandom(size)) for size in sizes]
        result = self.pushed(*files, code=40, status="not-installed")  # none is a package
        for number, path in enumerate(files):
            digest = hashlib.sha256(path.read_bytes()).hexdigest()
            self.assertIn(f"Package upload-{number}.zip: {sizes[number]} bytes, sha256 {digest}", self.texts(result))

    def test_content_that_looks_like_a_form(self):
        content = b"\r\n--jxpush-\r\n--\r\n\r\n--jxpush-0123--\r\nContent-Disposition: form-data\r\n\r\n" * 1000
        result = self.pushed(self.file("form", content), code=40, status="not-installed")
        self.assertIn(f"Package upload-0.zip: {len(content)} bytes, sha256 {hashlib.sha256(content).hexdigest()}",
                      self.texts(result))

    def test_names_that_mean_something_elsewhere(self):
        for name in ('a"; name="x.zip', "a\\", "a\r\n\r\nb", "\x01\x7f", "-", "ü;=.zip", "n" * 255):
            with self.subTest(name):
                self.pushed("--", self.file(name, package()))

    def test_empty_file(self):
        result = self.pushed(self.file("empty", b""), code=40, status="not-installed")
        self.assertEqual(result["errors"], 1)
        self.assertIn(f"Package upload-0.zip: 0 bytes, sha256 {hashlib.sha256(b'').hexdigest()}", self.texts(result))
        result = self.pushed(self.root / "empty", self.package, code=40, status="not-installed")
        self.assertIn("Installed hello 1.0.0", self.texts(result))

    def test_unreadable_files_stop_before_the_terminal(self):
        for path in (self.root / "absent", self.root):
            result = self.pushed(self.package, path, code=10, status="input")
            self.assertTrue(result["message"].startswith(f"{path}: "))
        self.assertFalse((self.root / "apps").exists())

    def test_dry_run_connects_to_nobody(self):
        result = self.pushed("--dry-run", self.package, status="checked", to="http://192.0.2.1:1")
        self.assertEqual((result["files"], result["bytes"]), (1, self.package.stat().st_size))

    def test_progress_as_json(self):
        process = self.push("--progress", "json", self.package)
        _, errors = process.communicate(timeout=120)
        events = jxschema.read_all(errors)
        self.assertEqual([event["event"] for event in events], ["waiting", "progress", "progress", "installing"])
        self.assertEqual((events[2]["percent"], events[2]["acknowledged"]), (100, self.package.stat().st_size))

    # --- verdicts ---

    def test_terminal_that_can_store_nothing_refuses(self):
        (self.root / "source").write_text("in the way")
        result = self.pushed(self.package, code=30, status="refused")
        self.assertIn("the terminal refused the upload", result["message"])

    def test_file_that_the_terminal_could_not_store_is_noticed(self):
        # It answers that the upload was successful, as one file was stored.
        source = self.root / "source"
        source.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=256k", "tmpfs", source], check=True)
        self.addCleanup(subprocess.run, ["umount", source], check=True)
        large = self.file("large.zip", package("large", "1", {"data": os.urandom(1_000_000)}))
        result = self.pushed(self.package, large, code=40, status="not-installed")
        self.assertEqual(result["message"], f"the terminal's log does not show {large} as it was sent")
        self.assertIn("Installed hello 1.0.0", self.texts(result))

    # --- endings ---

    def hold_installations(self):
        """Keeps the installer waiting until the test ends."""
        fd = os.open(self.root, os.O_RDONLY)
        fcntl.flock(fd, fcntl.LOCK_EX)
        self.addCleanup(os.close, fd)

    def test_terminal_killed_while_it_installs(self):
        self.hold_installations()
        process = self.push("--progress", "plain", self.package)
        self.wait_line(process, "Installing ...")
        wait_until(lambda: (self.root / "source/upload-0.zip").exists(), what="the upload is stored")
        self.server.kill()
        result = self.result(process, 41, "unknown")
        self.assertIn("it had everything", result["message"])

    def test_terminal_that_installs_for_too_long(self):
        self.hold_installations()
        result = self.pushed("--timeout", "1", self.package, code=41, status="unknown")
        self.assertIn("the terminal was silent for 1 s; it had everything", result["message"])

    @staticmethod
    def bytes_wait():
        """True when a connection's sender has bytes that its receiver does not take."""
        rows = pathlib.Path("/proc/net/tcp").read_text().splitlines()[1:]
        return any(row.split()[4].split(":")[0] != "00000000" for row in rows)

    def begin_upload_that_stays(self, *files, last):
        """An upload to a terminal that reads nothing, seen to have begun its last file and to be stuck in it."""
        self.server.send_signal(signal.SIGSTOP)
        self.addCleanup(self.server.send_signal, signal.SIGCONT)
        process = self.push("--progress", "json", *files)
        self.wait_line(process, last)
        wait_until(self.bytes_wait, what="the upload is stuck")
        return process

    def test_terminal_killed_while_it_receives_the_first_file(self):
        process = self.begin_upload_that_stays(self.sparse("large", LARGE), last='"large"')
        self.server.kill()
        result = self.result(process, 20, "connection-lost")
        self.assertIn("it installs nothing", result["message"])

    def test_terminal_killed_while_it_receives_the_last_file(self):
        process = self.begin_upload_that_stays(self.package, self.sparse("large", LARGE), last='"large"')
        self.server.kill()
        result = self.result(process, 41, "unknown")
        self.assertIn("of 2 files it may have 1 whole, and may install it", result["message"])

    def test_terminal_that_takes_nothing_is_given_up(self):
        self.server.send_signal(signal.SIGSTOP)
        self.addCleanup(self.server.send_signal, signal.SIGCONT)
        result = self.pushed("--timeout", "1", self.sparse("large", LARGE), code=20, status="connection-lost")
        self.assertEqual(result["message"], "the terminal was silent for 1 s; it installs nothing")

    def test_interrupted_while_sending(self):
        process = self.begin_upload_that_stays(self.sparse("large", LARGE), last='"large"')
        process.send_signal(signal.SIGINT)
        result = self.result(process, 130, "interrupted")
        self.assertEqual(result["message"], "interrupted; it installs nothing")
        self.server.send_signal(signal.SIGCONT)
        self.assert_alive()
        self.assertFalse((self.root / "source/upload-0.zip").exists())

    def test_interrupted_while_it_installs(self):
        self.hold_installations()
        process = self.push("--progress", "plain", self.package)
        self.wait_line(process, "Installing ...")
        process.send_signal(signal.SIGTERM)
        self.assertIn("it had everything", self.result(process, 130, "interrupted")["message"])

    def change_while_sent(self, change):
        large = self.sparse("large", LARGE)
        process = self.begin_upload_that_stays(self.package, large, last='"large"')
        change(large)
        self.server.send_signal(signal.SIGCONT)
        result = self.result(process, 10, "input")
        self.assertIn("of 2 files it may have 1 whole", result["message"])
        wait_until(lambda: (self.root / "apps/hello").exists(), what="the whole file is installed")
        self.assert_alive()
        self.assertFalse((self.root / "source/upload-1.zip").exists())

    def test_file_that_becomes_shorter(self):
        self.change_while_sent(lambda path: os.truncate(path, 1000))

    def test_file_that_grows(self):
        self.change_while_sent(lambda path: os.truncate(path, LARGE + 1))

    # --- status ---

    def status(self, code, status, to=f"http://127.0.0.1:{HTTP_PORT}"):
        run = subprocess.run([JXPUSH, "status", "--to", to, "--json", "--timeout", "20"], capture_output=True, text=True,
                             timeout=120)
        self.assertEqual(run.returncode, code, run.stdout + run.stderr)
        result = jxschema.read(run.stdout)
        self.assertEqual((result["event"], result["code"], result["status"]), ("result", code, status))
        return result

    def make_certificate(self, name, *args):
        (self.root / "certs").mkdir(exist_ok=True)
        path = self.root / "certs" / name
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                        "-keyout", "/dev/null", "-out", path, *args], check=True, capture_output=True)
        return path

    def test_status_lists_the_certificates(self):
        self.assertEqual(self.status(0, "reachable")["certificates"], [])
        path = self.make_certificate("ca.pem", "-subj", "/O=Org/CN=Test CA", "-days", "30")
        (self.root / "certs/broken.pem").write_bytes(b"-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n")
        found = {entry["file"]: entry for entry in self.status(0, "reachable")["certificates"]}
        self.assertEqual(found.keys(), {"ca.pem", "broken.pem"})
        self.assertEqual(found["broken.pem"], {"file": "broken.pem", "error": "no certificate that can be read"})
        entry = found["ca.pem"]
        self.assertEqual((entry["subject"], entry["issuer"], entry["validity"]), ("O=Org, CN=Test CA",) * 2 + ("valid",))
        shown = subprocess.run(["openssl", "x509", "-in", path, "-noout", "-dates", "-fingerprint", "-sha256", "-dateopt",
                                "iso_8601"], capture_output=True, text=True, check=True).stdout.replace(" ", "T")
        self.assertIn(f"notBefore={entry['not_before']}".replace("Z", "TZ"), shown.replace("TZ", "Z").replace("Z", "TZ"))
        self.assertIn(entry["sha256"].upper(), shown.replace(":", ""))

    def test_status_as_text(self):
        run = functools.partial(subprocess.run, [JXPUSH, "status", "--to", "http://localhost"], capture_output=True,
                                text=True, timeout=120)
        self.assertEqual(run().stdout, "A terminal answers at http://localhost:6370\nIt offers no certificates\n")
        self.make_certificate("ca.pem", "-subj", "/CN=Test", "-days", "30")
        lines = run().stdout.splitlines()
        self.assertEqual(lines[1:3], ["ca.pem: CN=Test", "  issued by CN=Test"])
        self.assertRegex(lines[3], r"^  \d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ to \d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ, valid$")

    def test_status_of_nobody(self):
        result = self.status(20, "unreachable", to="http://127.0.0.1:1")
        self.assertIn("Connection refused", result["message"])

    def test_status_over_a_serial_line_is_not_known(self):
        self.status(2, "usage", to="serial:/dev/null")


class HugeTest(HttpPushCase):
    def test_file_beyond_2_gib(self):
        # In memory, so that storing it is quick.
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4g", "tmpfs", self.root], check=True)
        self.addCleanup(subprocess.run, ["umount", self.root], check=True)
        server = self.start_http_server()
        self.addCleanup(self.stop, server)  # before the root goes
        size = 3 * 1024 ** 3
        huge = self.sparse("huge", size)
        process = self.push(huge, self.file("hello.zip", package()))
        output, errors = process.stdout.read(), process.stderr.read()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual(process.returncode, 40, errors)
        told = jxschema.read(output.splitlines()[0])
        result = jxschema.read(output.splitlines()[-1])
        # The installer received what was sent, and says that it is no package.
        self.assertEqual(told["bytes"], size)
        self.assertIn(f"Package upload-0.zip: {size} bytes, sha256 {told['sha256']}", self.texts(result))
        self.assertIn("Installed hello 1.0.0", self.texts(result))
        if not SANITIZED:
            self.assertLess(usage.ru_maxrss, 50 * 1024, "KiB of memory")


if __name__ == "__main__":
    unittest.main()
