"""jxpush at the command line: its codes and messages, its output, its manual page and completion."""

import ctypes
import fcntl
import hashlib
import os
import pty
import re
import signal
import subprocess
import termios
import unittest

import jxschema
import jxtest
from jxserial import JXPUSH, Line, SerialCase

CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, PR_CAPBSET_DROP = 1, 2, 24
MANUAL = jxtest.SOURCE / "tools/jxpush/jxpush.1"
COMPLETION = jxtest.SOURCE / "tools/jxpush/jxpush.bash"
CODES = {"0", "2", "10", "20", "21", "22", "30", "34", "40", "41", "50", "130"}


def drop_capabilities():
    """Takes from root what lets it open everything."""
    libc = ctypes.CDLL(None)
    for capability in (CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH):
        libc.prctl(PR_CAPBSET_DROP, capability, 0, 0, 0)


class JxpushTest(SerialCase):
    def setUp(self):
        super().setUp()
        self.file = self.root / "a.zip"
        self.file.write_bytes(b"content")

    def run_jxpush(self, *args, code, **kwargs):
        result = subprocess.run([JXPUSH, *map(str, args)], capture_output=True, text=True, timeout=120, check=False,
                                **kwargs)
        self.assertEqual(result.returncode, code, result.stdout + result.stderr)
        return result.stdout, result.stderr

    def to(self, device, *args, code, **kwargs):
        return self.run_jxpush("--to", f"serial:{device}", *args, code=code, **kwargs)

    def assert_result(self, output, code, status):
        """The last line is the result."""
        result = jxschema.read_all(output)[-1]
        self.assertEqual((result["event"], result["code"], result["status"]), ("result", code, status))
        return result

    # --- codes ---

    def test_wrong_command_lines(self):
        for args in ([], [self.file], ["--to", "serial:/dev/null"], ["--to", "carrier-pigeon:1", self.file],
                     ["--to", "serial:", self.file], ["--to", "serial:x", "--unknown", self.file],
                     ["--to", "serial:x", "--progress", "loud", self.file],
                     ["--to", "serial:x", "--wait", "soon", self.file]):
            with self.subTest(args):
                output, errors = self.run_jxpush(*args, code=2)
                self.assertEqual(output, "")
                self.assertTrue(errors.startswith("jxpush: ") and "CLI" not in errors and "{" not in errors, errors)
                output, _ = self.run_jxpush(*args, "--json", code=2)
                self.assert_result(output, 2, "usage")

    def test_wrong_option_names_the_one_that_was_meant(self):
        for args, message in ((["--progess", "tty"], "there is no option --progess; did you mean --progress?"),
                              (["--wait", "soon"], '--wait takes a whole number from 0 to 1000000, not "soon"'),
                              (["--progress", "l\x1boud"], '--progress takes auto, tty, plain, json or none, not "l?oud"'),
                              (["--wait", "1", "--wait", "2"], "--wait takes one value, once"),
                              (["-q", "--progress", "tty"], "--quiet and --progress exclude each other")):
            with self.subTest(args):
                _, errors = self.to("x", *args, self.file, code=2)
                self.assertEqual(errors, f"jxpush: {message}; see jxpush --help\n")

    def test_options_are_found_by_the_parser_alone(self):
        _, errors = self.to("/dev/ttyNONE9", "--", "--json", code=10)
        self.assertEqual(errors, "jxpush: --json: No such file or directory\n")
        for files in (["--", "status"], [self.file, "status"]):
            _, errors = self.to("/dev/ttyNONE9", *files, code=10)
            self.assertEqual(errors, "jxpush: status: No such file or directory\n")
        output, _ = self.run_jxpush("--json", "status", "--to", "127.0.0.1:9", code=20)
        self.assert_result(output, 20, "unreachable")

    def test_targets_as_people_type_them(self):
        for target, message in (("/dev/ttyNONE9", "/dev/ttyNONE9: no such port (No such file or directory)"),
                                ("127.0.0.1", "http://127.0.0.1:6370: unreachable: Connection refused; choose Download, then "
                                              "HTTP, on the terminal's screen"),
                                ("localhost:9", "http://localhost:9: unreachable: Connection refused; choose Download, then "
                                                "HTTP, on the terminal's screen"),
                                ("[::1]", "http://[::1]:6370: unreachable: Connection refused; choose Download, then "
                                          "HTTP, on the terminal's screen"),
                                ("no-such-till.invalid", "http://no-such-till.invalid:6370: unreachable: no address for this "
                                                         "name; the terminal's screen shows its address"),
                                ("192.0.2.1", "http://192.0.2.1:6370: unreachable: no way to it (Network is unreachable); is "
                                              "the terminal on, and in this network?")):
            with self.subTest(target):
                _, errors = self.run_jxpush("-t", target, "-q", self.file, code=20)
                self.assertEqual(errors, f"jxpush: {message}\n")

    def test_dumb_terminal_gets_plain_text(self):
        leader, follower = pty.openpty()
        self.addCleanup(os.close, leader)
        self.addCleanup(os.close, follower)
        self.run_piped_to(follower)
        text = os.read(leader, 65536)
        self.assertIn(b"Waiting for the terminal to answer ...\r\njxpush: the terminal did not answer", text)
        self.assertNotIn(b"\x1b", text)

    def run_piped_to(self, stderr):
        line = Line(self)
        run = subprocess.run([JXPUSH, "--to", line.host, "--wait", "0", self.file], stdout=subprocess.DEVNULL, stderr=stderr,
                             env={**self.env, "TERM": "dumb"}, timeout=60)
        self.assertEqual(run.returncode, 30)

    def test_names_do_not_reach_the_users_terminal_raw(self):
        name = self.root / "a\x1b[2J\u202eb.zip"
        name.touch()
        output, _ = self.to(Line(self).host, "--dry-run", name, code=0)
        self.assertTrue(output.startswith("a?[2J?b.zip: 0 bytes"), output)

    def test_unreadable_inputs(self):
        line = Line(self)
        for path in (self.root / "absent", self.root):
            _, errors = self.to(line.host, path, code=10)
            self.assertTrue(errors.startswith(f"jxpush: {path}: "), errors)
            output, _ = self.to(line.host, "--json", self.file, path, code=10)
            self.assert_result(output, 10, "input")
        large = self.root / "large"
        with large.open("wb") as stream:
            stream.truncate(2**32)
        # Its digest takes a while; its size alone tells.
        _, errors = self.to(line.host, "--dry-run", large, code=10)
        self.assertIn("larger than a serial line can carry", errors)

    def test_absent_port(self):
        for device in ("/dev/ttyNONE9", str(self.file), "/dev/null"):
            output, errors = self.to(device, "--json", self.file, code=20)
            self.assertTrue(errors.startswith(f"jxpush: {device}: "), errors)
            self.assert_result(output, 20, "no-port")

    def test_busy_port_names_its_holder(self):
        line = Line(self)
        fd = os.open(line.host, os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, fd)
        fcntl.flock(fd, fcntl.LOCK_EX)
        output, errors = self.to(line.host, "--json", self.file, code=21)
        self.assertRegex(errors, rf"jxpush: {line.host}: busy by .+ \(process \d+\)\n")
        self.assert_result(output, 21, "busy")

    def test_missing_permission_names_the_group(self):
        line = Line(self)
        group = os.stat(line.host).st_gid
        os.chmod(line.host, 0o060)
        for options in ([], ["--dry-run"]):
            output, errors = self.to(line.host, "--json", *options, self.file, code=22, preexec_fn=drop_capabilities)
            self.assert_result(output, 22, "no-permission")
            self.assertIn(f"jxpush: {line.host}: no permission; ", errors)
        if group == 0:
            self.assertIn("join the group root ", errors)
        os.chmod(line.host, 0o000)
        _, errors = self.to(line.host, self.file, code=22, preexec_fn=drop_capabilities)
        self.assertIn("it belongs to the user ", errors)

    def test_silent_terminal_is_given_up(self):
        line = Line(self)
        output, errors = self.to(line.host, "--json", "--wait", "1", self.file, code=30)
        self.assert_result(output, 30, "gave-up")
        self.assertIn("jxpush: the terminal did not answer within 1 s\n", errors)

    def test_interrupt_while_waiting(self):
        line = Line(self)
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            process = self.push(line, "--json", "--progress", "plain", self.file)
            self.assertIn("Waiting for the terminal", process.stderr.readline())
            process.send_signal(number)
            output, errors = process.communicate(timeout=60)
            self.assertEqual(process.returncode, 130)
            self.assert_result(output, 130, "interrupted")
            self.assertIn("jxpush: interrupted before the terminal answered\n", errors)

    def test_interrupt_while_the_files_are_read(self):
        line = Line(self)
        files = [self.root / f"{number}.zip" for number in range(500)]
        for path in files:
            path.touch()
        for options in (["--dry-run"], []):
            for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
                with self.subTest(options, number=number):
                    # More lines than the pipe holds: it cannot have come to the end before they are read.
                    process = self.push(line, "--json", *options, *files, pipesize=4096)
                    self.assertIn('"0.zip"', process.stdout.readline())
                    process.send_signal(number)
                    output, errors = process.communicate(timeout=60)
                    self.assertEqual(process.returncode, 130, output[-200:])
                    self.assert_result(output, 130, "interrupted")
                    self.assertEqual(errors, "jxpush: interrupted before anything was sent\n")

    # --- port ---

    def test_port_gets_its_settings_back(self):
        line = Line(self)
        fd = os.open(line.host, os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, fd)
        settings = termios.tcgetattr(fd)
        settings[3] |= termios.ECHO
        settings[4] = settings[5] = termios.B9600
        termios.tcsetattr(fd, termios.TCSANOW, settings)
        before = termios.tcgetattr(fd)
        self.to(line.host, "--wait", "0", self.file, code=30)
        self.assertEqual(termios.tcgetattr(fd), before)

    def test_killed_sender_leaves_the_port_free(self):
        line = Line(self)
        self.start("cat", line.terminal, stdout=subprocess.DEVNULL)  # a terminal that takes everything and says nothing
        process = self.push(line, "--progress", "plain", self.file)
        process.stderr.readline()
        process.kill()
        process.communicate()
        line.give_free()
        self.to(line.host, "--wait", "0", self.file, code=30)

    # --- output ---

    def test_dry_run_says_what_would_be_sent(self):
        line = Line(self)
        empty = self.root / "empty"
        empty.touch()
        output, errors = self.to(line.host, "--dry-run", self.file, empty, code=0)
        digests = [hashlib.sha256(content).hexdigest() for content in (b"content", b"")]
        self.assertEqual(output, f"a.zip: 7 bytes, sha256 {digests[0]}\nempty: 0 bytes, sha256 {digests[1]}\n"
                                 "Would send 2 files, 7 bytes\n")
        self.assertEqual(errors, "")
        output, _ = self.to(line.host, "--dry-run", "--json", self.file, code=0)
        objects = jxschema.read_all(output)
        self.assertEqual(objects, [
            {"event": "file", "name": "a.zip", "path": str(self.file), "bytes": 7, "sha256": digests[0]},
            {"event": "result", "status": "checked", "code": 0, "files": 1, "bytes": 7}])

    def test_sent_file_as_json(self):
        line = Line(self)
        operator = self.start_terminal_with_lines({3: line})
        operator.choose("mainmenu.html", 1)
        operator.choose("download.html", 3)
        output, errors = self.pushed(line, "--json", "--progress", "json", self.file)
        result = self.assert_result(output, 0, "sent")
        self.assertEqual((result["files"], result["bytes"], result["sent_again"]), (1, 7, 0))
        events = jxschema.read_all(errors)
        self.assertEqual([event["event"] for event in events], ["waiting", "progress", "progress"])
        self.assertEqual((events[-1]["percent"], events[-1]["acknowledged"], events[-1]["bytes"]), (100, 7, 7))

    def test_sending_goes_on_when_nobody_reads_its_output(self):
        line = Line(self)
        operator = self.start_terminal_with_lines({3: line})
        operator.choose("mainmenu.html", 1)
        operator.choose("download.html", 3)
        process = self.push(line, self.file)
        process.stdout.close()
        process.stderr.close()
        self.assertEqual(process.wait(60), 0)
        process.stdout = process.stderr = None

    # --- manual page and completion ---

    def options_of_help(self):
        output, _ = self.run_jxpush("--help", code=0)
        return set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", output.split("Exit codes")[0])), output

    def test_manual_page_has_the_options_and_codes_of_the_help(self):
        options, text = self.options_of_help()
        manual = MANUAL.read_text().replace("\\-", "-")
        described = set()
        for heading in re.findall(r"^\.TP\n(.+)$", manual.split(".SH OPTIONS")[1].split(".SH ")[0], re.M):
            described |= set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", heading))
        self.assertEqual(described, options)
        codes = set(re.findall(r"^\.TP\n\.B (\d+)$", manual.split('.SH "EXIT STATUS"')[1].split(".SH ")[0], re.M))
        self.assertEqual(codes, CODES)
        footer = re.sub(r"\s+", " ", text.split("Exit codes:")[1])
        self.assertEqual(set(re.findall(r"(?:^|, ) ?(\d+) ", footer)), CODES)
        for style in ("auto", "tty", "plain", "json", "none"):
            self.assertIn(style, text)
            self.assertIn(style, manual)

    def complete(self, *words):
        """What the completion offers for the last of the words."""
        script = ('source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _jxpush; '
                  'printf "%s\\n" "${COMPREPLY[@]}"')
        result = subprocess.run(["bash", "-c", script, "bash", str(COMPLETION), "jxpush", *words], capture_output=True,
                                text=True, check=True, cwd=self.root)
        self.assertEqual(result.stderr, "")
        return set(result.stdout.split())

    def test_completion_offers_the_options_of_the_help(self):
        options, _ = self.options_of_help()
        self.assertEqual(self.complete("-"), options)
        self.assertEqual(self.complete("--pro"), {"--progress"})

    def test_completion_offers_values(self):
        styles = self.complete("--progress", "")
        self.assertEqual(styles, {"auto", "tty", "plain", "json", "none"})
        for style in styles:
            self.to("/dev/ttyNONE9", "--progress", style, self.file, code=20)
        self.assertEqual(self.complete("--to", ""), {"serial:", "http://"})
        self.assertIn("a.zip", self.complete("--to", "serial:x", "a"))
        self.assertEqual(self.complete("--wait", "") | self.complete("--timeout", ""), set())

    def test_version(self):
        output, _ = self.run_jxpush("--version", code=0)
        self.assertRegex(output, r"^jxpush \d+\.\d+\.\d+\n$")


if __name__ == "__main__":
    unittest.main()
