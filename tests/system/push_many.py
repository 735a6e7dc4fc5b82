"""jxpush to many terminals at once: real programs, each in a network namespace of its own, and one at a serial line."""

import os
import pty
import re
import select
import signal
import subprocess
import unittest

import jxschema
import jxtest
from jxhttp import package
from jxpushing import JXPUSH, LARGE, HttpPushCase, SANITIZED
from jxserial import Line
from jxtest import HTTP_PORT, can_connect, wait_until


class ManyCase(HttpPushCase):
    def setUp(self):
        super().setUp()
        self.package = self.file("hello.zip", package())

    def start_terminal(self, number):
        """Starts a terminal behind a link of its own; its address and its process."""
        root = self.root / f"terminal{number}"
        root.mkdir()
        host, terminal = f"10.9.{number}.1/24", f"10.9.{number}.2"
        ready = f"ip link set lo up; read go; ip addr add {terminal}/24 dev t{number}; ip link set t{number} up; exec \"$@\""
        process = self.start("unshare", "--net", "sh", "-c", ready, "terminal", jxtest.BIN / "jxdownloader", "--http",
                             stdin=subprocess.PIPE, env={**self.env, "JXPLATFORM_ROOT": str(root)})
        own = os.readlink("/proc/self/ns/net")
        wait_until(lambda: os.readlink(f"/proc/{process.pid}/ns/net") != own, what="the namespace is there")
        for words in (f"link add h{number} type veth peer name t{number} netns {process.pid}",
                      f"addr add {host} dev h{number}", f"link set h{number} up"):
            subprocess.run(["ip", *words.split()], check=True)
        self.addCleanup(subprocess.run, ["ip", "link", "del", f"h{number}"], check=True)
        process.stdin.write(b"\n")
        process.stdin.close()
        return terminal, process

    def start_terminals(self, count):
        terminals = [self.start_terminal(number) for number in range(count)]
        for address, _ in terminals:
            wait_until(lambda: can_connect(HTTP_PORT, address), what=f"{address} accepts")
        return terminals

    def begin(self, *args):
        """Starts jxpush; ended by the test."""
        process = subprocess.Popen([str(JXPUSH), *map(str, args)], text=True, env=self.env, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)
        self.addCleanup(self.reap, process)
        return process

    def push_many(self, targets, *args, code, files=None, **kwargs):
        """Runs jxpush with --json; its objects by name, its summary and its standard error."""
        words = [word for target in targets for word in ("--to", target)]
        run = subprocess.run([JXPUSH, *words, "--json", *map(str, args), *map(str, files or [self.package])], text=True,
                             env=self.env, capture_output=True, timeout=240, **kwargs)
        return (*self.read_objects(run.stdout, run.returncode, code, run.stderr), run.stderr)

    def read_objects(self, output, got, code, errors=""):
        self.assertEqual(got, code, output + errors)
        objects = jxschema.read_all(output)
        self.assertEqual(objects[-1]["event"], "summary")
        self.assertEqual(objects[-1]["code"], code)
        return {each["name"]: each for each in objects if each["event"] == "target"}, objects[-1]


class ManyTerminalsTest(ManyCase):
    def test_twenty_terminals_one_of_them_without_space(self):
        terminals = self.start_terminals(20)
        (self.root / "terminal7/source").write_text("in the way")
        text = "".join(f"{address} till {number}\n" for number, (address, _) in enumerate(terminals))
        listed = self.file("list", text.encode())
        other = self.file("other.zip", b"no package")
        results, summary, _ = self.push_many([], "--targets", listed, "--jobs", "5", code=50, files=[self.package, other])
        self.assertEqual(results.keys(), {f"till {number}" for number in range(20)})
        self.assertEqual((summary["targets"], summary["succeeded"], summary["failed"]), (20, 0, 20))
        self.assertEqual((results["till 7"]["code"], results["till 7"]["status"]), (30, "refused"))
        self.assertEqual((results["till 3"]["code"], results["till 3"]["installed"]), (40, ["hello 1.0.0"]))
        self.assertEqual(results["till 3"]["files"], [{"name": "hello.zip", "verdict": "installed"},
                                                      {"name": "other.zip", "verdict": "refused"}])
        installed = {path.parent.parent.name for path in self.root.glob("terminal*/apps/hello")}
        self.assertEqual(installed, {f"terminal{number}" for number in range(20) if number != 7})

    def test_table_and_lines(self):
        addresses = [address for address, _ in self.start_terminals(2)]
        run = subprocess.run([JXPUSH, "-t", addresses[0], "-t", addresses[1], "-t", "127.0.0.1:9", self.package], text=True,
                             capture_output=True, timeout=120)
        self.assertEqual(run.returncode, 50, run.stderr)
        lines = run.stdout.splitlines()
        self.assertRegex(lines[1], "^TARGET +CODE  RESULT +TIME  INSTALLED$")
        for line, address in zip(lines[2:], addresses):
            self.assertRegex(line, rf"^{re.escape(address)} +0  sent +\d+\.\d s  hello 1\.0\.0$")
        self.assertRegex(lines[4], r"^127\.0\.0\.1:9 +20  unreachable +0\.0 s  http://127\.0\.0\.1:9: unreachable: ")
        self.assertRegex(lines[5], r"^Sent to 2 of 3 terminals in \d+\.\d s$")
        for address in addresses:
            own = [line for line in run.stderr.splitlines() if line.startswith(f"{address}: ")]
            self.assertRegex("\n".join(own), rf"(?s)Waiting for .*hello\.zip  100 %.*Installing \.\.\..*{address}: sent in")

    def test_interrupt_reaches_all(self):
        terminals = self.start_terminals(3)
        for _, process in terminals:
            process.send_signal(signal.SIGSTOP)
            self.addCleanup(process.send_signal, signal.SIGCONT)
        line = Line(self)
        words = [word for address, _ in terminals for word in ("--to", address)]
        process = self.begin(*words, "--to", line.host, "--jobs", "2", "--progress", "json", "--json",
                             self.sparse("large", LARGE))
        begun = set()
        while len(begun) < 3:
            event = jxschema.read(process.stderr.readline())
            if event["event"] == "progress" or event["target"].startswith("serial:"):
                begun.add(event["target"])
        process.send_signal(signal.SIGINT)
        output = process.communicate(timeout=60)[0]
        results, summary = self.read_objects(output, process.returncode, 50)
        self.assertEqual(summary["succeeded"], 0)
        self.assertEqual({result["code"] for result in results.values()}, {130})
        messages = sorted(result["message"] for result in results.values())
        self.assertEqual(messages, ["interrupted before its turn; nothing was sent to it",
                                    "interrupted before the terminal answered"] + ["interrupted; it installs nothing"] * 2)

    def test_door_that_opens_is_waited_for(self):
        process = self.begin("--to", "127.0.0.1", "--wait", "120", "--progress", "plain", self.package)
        self.assertIn("Waiting for a connection", process.stderr.readline())
        self.start_http_server()
        output, errors = process.communicate(timeout=150)
        self.assertEqual(process.returncode, 0, errors)
        self.assertIn("Sent 1 file", output)

    def test_refused_connection_is_tried_again(self):
        process = self.begin("--to", "127.0.0.1", "--retry", "100", "--progress", "none", self.package)
        self.assertRegex(process.stderr.readline(), r"^jxpush: .*; trying again in 1 s \(1 of 100\)$")
        self.start_http_server()
        _, errors = process.communicate(timeout=150)
        self.assertEqual(process.returncode, 0, errors)

    def test_wrong_lists_stop_before_anything_is_sent(self):
        self.start_http_server()
        for text, message in ((b"127.0.0.1 ok\nhttps://x\n", r":2: https://x: a terminal does not speak https$"),
                              (b"127.0.0.1\nHTTP://127.0.0.1:6370/ again\n", r":2: .*: the same terminal as in "),
                              (b"# nobody\n", ": has no target$")):
            with self.subTest(text):
                listed = self.file("list", text)
                run = subprocess.run([JXPUSH, "--targets", "-", self.package], input=text.decode(), text=True,
                                     capture_output=True, timeout=60)
                self.assertEqual((run.returncode, run.stdout), (2, ""))
                run = subprocess.run([JXPUSH, "--targets", listed, self.package], text=True, capture_output=True, timeout=60)
                self.assertEqual((run.returncode, run.stdout), (2, ""))
                self.assertRegex(run.stderr, "^jxpush: " + re.escape(str(listed)) + message)
        self.assertFalse((self.root / "apps").exists())

    def test_lines_that_are_written_over_fit_the_terminal(self):
        addresses = [address for address, _ in self.start_terminals(2)]
        name = "文" * 60 + "\x1b[2J.zip"
        self.file(name, package())
        leader, follower = pty.openpty()
        self.addCleanup(os.close, leader)
        subprocess.run(["stty", "cols", "40", "rows", "10"], stdin=follower, check=True)
        listed = self.file("list", "".join(f"{address} {'文' * 60}\n" for address in addresses).encode())
        for words in (["--to", addresses[0]], ["--targets", listed]):
            with self.subTest(words):
                process = self.start(JXPUSH, *words, self.root / name, stdout=subprocess.DEVNULL, stderr=follower,
                                     env={**self.env, "LC_ALL": "C.UTF-8", "TERM": "xterm"})
                process.wait(60)
                text = b""
                while select.select([leader], [], [], 0)[0]:
                    text += os.read(leader, 65536)
                plain = re.sub(r"\x1b\[\d*[KJA]", "", text.decode())
                self.assertNotIn("\x1b", plain)
                self.assertIn("文", plain)
                columns = [sum(2 if letter == "文" else 1 for letter in line) for line in re.split(r"[\r\n]+", plain)]
                self.assertLessEqual(max(columns), 39)
        os.close(follower)

    def test_memory_for_many_targets(self):
        # Refused at once, all of them: what is kept for each target counts, whatever the terminals do.
        listed = self.file("list", "".join(f"127.0.1.{number}:9\n" for number in range(200)).encode())
        files = [self.sparse("large", 8 * 1024 * 1024)]
        process = subprocess.Popen([JXPUSH, "--targets", listed, "-q", *files], stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL)
        output = process.stdout.read()
        process.stdout.close()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual(process.returncode, 50)
        self.assertEqual(len(output.splitlines()), 203)
        if not SANITIZED:
            self.assertLess(usage.ru_maxrss, 32 * 1024, "KiB of memory")


if __name__ == "__main__":
    unittest.main()
