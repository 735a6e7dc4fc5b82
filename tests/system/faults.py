"""What the upload server does when clients, disks and memory fail."""

import pathlib
import socket
import subprocess
import unittest

import jxtest
from jxhttp import FAILED_PAGE, FORM_PAGE, Wire, exchange, form, package, request, upload

FIRST_BYTES = 200000
RESTING_THREADS = 2  # the listening one, and one that a sanitizer or an emulator starts at a time of its own


def threads_of(process):
    return len(list(pathlib.Path(f"/proc/{process.pid}/task").iterdir()))


def memory_of(process):
    """Resident, in pages."""
    return int(pathlib.Path(f"/proc/{process.pid}/statm").read_text().split()[1])


class FaultsTest(jxtest.Case):
    def setUp(self):
        super().setUp()
        # What a sanitizer keeps of freed memory is not what is looked for.
        self.instruct_sanitizer("quarantine_size_mb=1")
        self.source = self.root / "source"
        self.server = self.start_http_server()

    def mount(self, where, options):
        where.mkdir(exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", where], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", where], check=True)

    def wait_until_the_threads_end(self):
        jxtest.wait_until(lambda: threads_of(self.server) <= RESTING_THREADS, what="the threads end")

    def assert_alive(self):
        self.assertTrue(exchange(request("GET", "/")).endswith(FORM_PAGE))
        self.assertIsNone(self.server.poll())

    def test_disk_full_while_receiving(self):
        self.mount(self.source, "size=256k")
        self.assertTrue(exchange(upload([("a.zip", b"f" * 2_000_000)])).endswith(FAILED_PAGE))
        self.assertEqual(list(self.source.iterdir()), [])
        self.assertIn(b"nstalled hello", exchange(upload([("a.zip", package())])))

    def test_disk_full_at_the_last_byte(self):
        # What the library still holds when the file is closed has to count too.
        self.mount(self.source, "size=64k")
        (self.source / "filler").write_bytes(b"x" * (60 * 1024))
        self.assertTrue(exchange(upload([("a.zip", b"f" * 6000)])).endswith(FAILED_PAGE))
        self.assertEqual([path.name for path in self.source.iterdir()], ["filler"])

    def test_first_file_counts_when_the_second_fails(self):
        self.mount(self.source, "size=256k")
        reply = exchange(upload([("a.zip", package()), ("b.zip", b"f" * 2_000_000)]))
        self.assertIn(b"Upload successful<br>\n", reply)
        self.assertIn(b"Installed hello 1.0.0", reply)
        self.assertNotIn(b"upload-1.zip", reply)

    def test_no_inodes(self):
        self.mount(self.source, "size=256k,nr_inodes=2")
        (self.source / "filler").write_bytes(b"")
        self.assertTrue(exchange(upload([("a.zip", package())])).endswith(FAILED_PAGE))

    def test_read_only_source_directory(self):
        self.mount(self.source, "size=256k,ro")
        self.assertTrue(exchange(upload([("a.zip", package())])).endswith(FAILED_PAGE))
        self.assert_alive()

    def test_device_that_takes_nothing(self):
        self.source.mkdir(exist_ok=True)
        (self.source / "upload-0.zip").symlink_to("/dev/full")
        self.assertTrue(exchange(upload([("a.zip", b"f" * 500_000)])).endswith(FAILED_PAGE))
        self.assertFalse((self.source / "upload-0.zip").is_symlink())
        self.assertTrue(pathlib.Path("/dev/full").exists())

    def test_source_directory_is_a_file(self):
        self.source.write_text("in the way")
        self.assertTrue(exchange(upload([("a.zip", package())])).endswith(FAILED_PAGE))
        self.assertEqual(self.source.read_text(), "in the way")

    def test_stalled_client_holds_nobody_up(self):
        with Wire() as stalled:
            stalled.send(upload([("a.zip", b"s" * 500_000)])[:FIRST_BYTES])
            self.assert_alive()

    def test_clients_that_vanish_leave_no_thread(self):
        for _ in range(50):
            with Wire() as wire:
                wire.send(b"GET / HTTP/1.1\r\nConn")
                wire.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
        self.wait_until_the_threads_end()
        self.assert_alive()

    def test_client_that_does_not_read_the_answer(self):
        with Wire() as wire:
            wire.send(request("GET", "/", keep=True) * 20000)
            self.assert_alive()

    def test_many_idle_connections(self):
        connections = [Wire() for _ in range(300)]
        for wire in connections:
            wire.send(request("GET", "/", keep=True))
            self.assertEqual(wire.read_reply()[1], FORM_PAGE)
        for wire in connections:
            wire.send(request("GET", "/", keep=True))
            self.assertEqual(wire.read_reply()[1], FORM_PAGE)
            wire.socket.close()
        self.assert_alive()

    def test_a_thousand_idle_connections_leave_the_memory_as_it_was(self):
        rounds = []
        for _ in range(3):
            connections = [Wire() for _ in range(1000)]
            for wire in connections:
                wire.send(request("GET", "/", keep=True))
            for wire in connections:
                self.assertEqual(wire.read_reply()[1], FORM_PAGE)
            rounds.append(memory_of(self.server))
            for wire in connections:
                wire.socket.close()
            self.wait_until_the_threads_end()
        # The first round makes what is kept for the next ones.
        self.assertLess(rounds[2] - rounds[1], rounds[1] / 4)

    def test_one_byte_at_a_time_through_a_form(self):
        body = form([("a.zip", package(files={"f": b"small"}))])
        with Wire() as wire:
            wire.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            wire.send(request("POST", "/upload", body, ["Content-Type: multipart/form-data; boundary=xXboundaryXx"])[:-len(body)])
            for byte in body:
                wire.send(bytes([byte]))
            self.assertIn(b"Installed hello 1.0.0", wire.read_all())


class PortTest(jxtest.Case):
    def test_port_in_use(self):
        # The endpoint that could not listen is deliberately left to the end of the process.
        self.instruct_sanitizer("detect_leaks=0")
        with socket.create_server(("", jxtest.HTTP_PORT)):
            run = subprocess.run([jxtest.BIN / "jxdownloader", "--http"], env=self.env, capture_output=True, text=True,
                                 timeout=60)
        self.assertEqual(run.stderr, "Failed to listen on port 6370\n")
        self.assertEqual(run.returncode, 0)


if __name__ == "__main__":
    unittest.main()
