"""`./jx`: what a newcomer meets. The build is the one that is there; cmake, ninja and Debian's tools are scripts of the test."""

import fcntl
import json
import os
import pathlib
import re
import shlex
import signal
import socket
import subprocess
import termios
import unittest
import urllib.request

import jxdocuments
import jxtest

FAKES = ("apt-get", "cmake", "dpkg-query", "ninja", "npm")
INSTALLED = "[ \"$1\" = -W ] && shift 3; for name; do printf ' installed/%s ' \"$name\"; done"
BEGIN = "This builds the terminal and starts it; Ctrl-C ends it.\n"
HELLO = r"Package \S+: \d+ bytes, sha256 \w{64}\n%s hello 1.0.0\nList of installed applications:\n  hello 1.0.0\n"


def running():
    """The processes of the test's namespace but its own: pid -> command line; ended ones have none."""
    found = {}
    for path in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        try:
            command = path.read_bytes().replace(b"\0", b" ").decode()
        except OSError:
            continue
        if command and int(path.parent.name) != os.getpid():
            found[int(path.parent.name)] = command
    return found


class Case(jxtest.Case):
    folder = "tree"

    def setUp(self):
        super().setUp()
        self.before = running()
        self.tree = jxdocuments.make_tree(self.root, jxtest.BUILD, self.folder)
        (self.tree / "jx").unlink()
        (self.tree / "jx").symlink_to(jxtest.SOURCE / "jx")
        self.state = self.tree / "build/run"
        self.fakes = self.root / "fakes"
        self.fakes.mkdir()
        for name in FAKES:
            self.fake(name, f"echo {name} >>{shlex.quote(str(self.root))}/called")
        self.fake("dpkg-query", INSTALLED)
        self.env.update(PATH=f"{self.fakes}:{self.env['PATH']}", JXPLATFORM_PAGES=str(jxtest.SOURCE / "pages"), LC_ALL="C.UTF-8")
        for name in ("JXPLATFORM_ROOT", "JXPLATFORM_BUS"):
            del self.env[name]

    def fake(self, name, script):
        path = self.fakes / name
        path.write_text(f"#!/bin/sh\n{script}\n")
        path.chmod(0o755)

    def jx(self, *arguments, **environment):
        return subprocess.run(["./jx", *arguments], cwd=self.tree, env={**self.env, **environment}, capture_output=True, text=True,
                              timeout=120, stdin=subprocess.DEVNULL)

    def start_jx(self, *arguments, until="(choose Download, then the line", **options):
        """Starts it and reads what it says until a line with `until`."""
        options = {"stdout": subprocess.PIPE, "start_new_session": True, **options}
        process = subprocess.Popen(["./jx", *arguments], cwd=self.tree, env=self.env, stderr=subprocess.STDOUT, text=True, **options)
        self.addCleanup(self.end, process)
        self.said = ""
        while until not in self.said:
            line = process.stdout.readline()
            self.assertTrue(line, self.said)
            self.said += line
        return process

    def end(self, process, sig=signal.SIGTERM):
        if process.poll() is None:
            process.send_signal(sig)
        process.wait(60)
        if process.stdout:
            process.stdout.close()

    def assert_nothing_is_left(self):
        jxtest.wait_until(lambda: set(running()) <= set(self.before), what="the processes have ended")
        self.assertEqual([name for name in ("lines", "bus", "screen.url") if (self.state / name).exists()], [])
        self.assertNotIn(str(self.root), pathlib.Path("/proc/mounts").read_text())

    def refused(self, *arguments, **environment):
        """What it says before it ends with 1, without having made anything."""
        run = self.jx("run", *arguments, **environment)
        self.assertEqual((run.returncode, run.stdout), (1, ""), run.stderr)
        self.assertTrue(run.stderr.startswith(BEGIN), run.stderr)
        self.assertFalse((self.root / "called").exists())
        said = run.stderr.removeprefix(BEGIN)
        self.assertRegex(said, r"\A\./jx run: .*\n\Z")
        return said


class FirstStartTest(Case):
    folder = "Büro & it's 100%"

    def press(self, *presses):
        base = (self.state / "screen.url").read_text().strip()
        for page, result in presses:
            def shown(page=page):
                with urllib.request.urlopen(base + "api/screen", timeout=30) as answer:
                    screen = json.load(answer) if answer.status == 200 else {}
                return screen if screen.get("page") == page else None
            self.screen = jxtest.wait_until(shown, what=f"{page} on the screen")
            if result is not None:
                body = json.dumps({"result": result}).encode()
                urllib.request.urlopen(f"{base}api/screen/{self.screen['id']}/result", body, timeout=30).close()

    def run_printed(self, beginning):
        """Runs a command that was printed, as it stands, in another folder."""
        [command] = re.findall(rf"^{beginning} +(.*)$", self.said, re.M)
        run = subprocess.run(["bash", "-c", command], cwd="/", env=self.env, capture_output=True, text=True, timeout=60)
        self.assertEqual(run.returncode, 0, run.stderr)
        return run.stdout + run.stderr

    def log(self, page):
        """The text of the log in an answer's or the screen's HTML."""
        text = re.sub(r"<input.*|<[^>]*>", lambda tag: "\n" if tag[0] == "<br>" else "", page)
        return text[text.index("Package "):]

    def test_printed_commands_install_the_example_without_a_warning(self):
        address = ["192.0.2.7/24", "dev", "lo"]
        subprocess.run(["ip", "address", "add", *address], check=True)
        self.addCleanup(subprocess.run, ["ip", "address", "delete", *address], check=True)
        self.start_jx("run")
        self.press(("mainmenu.html", 1), ("download.html", 1), ("download-http.html", None))
        jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the upload server accepts")
        self.assertRegex(self.log(self.run_printed("Send the example:")), HELLO % "Installed")
        self.press(("download-http.html", -1))
        for result, line in ((2, "USB"), (3, "COM1"), (4, "COM2")):
            self.press(("download.html", result), ("download-ddl.html", None))
            self.run_printed(f"Send over {line}:")
            self.press(("result.html", None))
            self.assertRegex(self.log(self.screen["vars"]["text"]), HELLO % "Reinstalled")
            self.press(("result.html", 0))

    def test_server_alone_installs_the_example_without_a_warning(self):
        self.start_jx("run", "--http", until="Send the example")
        self.assertRegex(self.log(self.run_printed("Send the example:")), HELLO % "Installed")

    def test_chosen_certificates_are_left_as_they_are(self):
        certificates = self.state / "certs"
        certificates.mkdir(parents=True)
        self.start_jx("run", "--http", until="Send the example")
        self.assertEqual(list(certificates.iterdir()), [])
        self.assertIn("Warning: hello 1.0.0 is signed by a certificate", self.run_printed("Send the example:"))


class ProgressTest(Case):
    def on_a_terminal(self, *arguments):
        master, slave = os.openpty()
        process = subprocess.Popen(["./jx", *arguments], cwd=self.tree, env=self.env, stdin=slave, stdout=slave, stderr=slave)
        os.close(slave)
        said = b""
        while True:
            try:
                said += os.read(master, 65536)
            except OSError:  # the other side is closed
                break
        os.close(master)
        return process.wait(60), said.decode().replace("\r\n", "\n")

    def test_build_is_shown_by_numbers_and_a_failure_by_its_text(self):
        self.fake("ninja", "printf '[0/2] Re-checking\\n[1/2] one\\nof no interest\\n[2/2] two\\nFAILED: two\\nwhy\\nninja: stopped\\n'; exit 3")
        run = self.jx("run")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (
            3, "FAILED: two\nwhy\nninja: stopped\n", BEGIN + "Configuring release\nBuilding release\n"))
        self.assertEqual(self.on_a_terminal("run"), (
            3, f"\x1b[1m{BEGIN[:-1]}\x1b[0m\n" + "".join(f"\r\x1b[K{text}" for text in (
                "Configuring release", "Building release", "Building release: 1 of 2", "Building release: 2 of 2",
                "FAILED: two\nwhy\nninja: stopped\n", ""))))

    def test_nothing_to_build_is_not_told(self):
        self.fake("ninja", "echo 'ninja: no work to do.'")
        self.start_jx("run", "--http", until="Upload page")
        self.assertNotIn("ninja", self.said)

    def test_installation_is_shown_by_percent(self):
        self.fake("dpkg-query", "exit 1")
        self.fake("apt-get", "echo \"$*\" >>apt; echo Reading; echo dlstatus:1:40.2:x; echo pmstatus:cmake:7.1:x; exit 100")
        code, said = self.on_a_terminal("run")
        self.assertEqual(code, 1)
        self.assertRegex(said, r"Installing \d+ packages: g\+\+ cmake .*\n")
        self.assertIn("\r\x1b[KInstalling; fetching the list of packages", said)
        self.assertTrue(said.endswith("\r\x1b[KReading\n./jx: the packages were not installed: see above, and all of it in "
                                      "build/installing.log\n"), said)
        self.fake("apt-get", "echo \"$*\" >>apt; echo dlstatus:1:40.2:x; echo pmstatus:cmake:7.1:x")
        self.fake("ninja", "exit 3")
        self.assertRegex(self.on_a_terminal("run")[1], r"\r\x1b\[KInstalling; 40 % fetched\r\x1b\[KInstalling; 7 % set up\r\x1b\[K")
        self.assertRegex((self.tree / "apt").read_text(), r"(?m)^install .* APT::Status-Fd=1 g\+\+ cmake ")


class RefusalTest(Case):
    def test_long_folder(self):
        long = f"{self.root}/".ljust(101, "x")
        said = (f"./jx run: {long} has 101 bytes, and the folder of the terminal's state at most 100: name another, as in "
                "JXPLATFORM_ROOT=/tmp/terminal ./jx run\n")
        self.assertEqual(self.refused(JXPLATFORM_ROOT=long), said)
        self.assertEqual(self.refused("--http", JXPLATFORM_ROOT=long + "/"), said)
        self.env["JXPLATFORM_ROOT"] = long[:100]
        self.start_jx("run")

    def test_folder_that_cannot_be_written(self):
        self.assertIn("nothing can be written in /proc/x, the folder", self.refused(JXPLATFORM_ROOT="/proc/x"))

    def listen(self, port):
        taken = socket.socket()
        self.addCleanup(taken.close)
        taken.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        taken.bind(("127.0.0.1", port))
        taken.listen()

    def test_ports_that_are_taken(self):
        self.listen(6380)
        who = rf"is taken by python3\S*, process {os.getpid()}: end that first"
        self.assertRegex(self.refused(), rf"port 6380, where the screen is shown, {who}, or name another port, as in JXPLATFORM_SCREEN")
        self.env["JXPLATFORM_SCREEN"] = "127.0.0.1:6381"
        self.start_jx("run")
        self.doCleanups()
        self.setUp()
        self.listen(6370)
        for option in ((), ("--http",)):
            self.assertRegex(self.refused(*option), rf"port 6370, where packages are uploaded, {who}\n")

    def test_second_start_leaves_the_first_unharmed(self):
        first = self.start_jx("run")
        for option in ((), ("--http",)):
            self.assertEqual(self.refused_beside(*option), (
                f"./jx run: it runs already, as process {first.pid}, on the state in {self.state}: end that one with Ctrl-C first\n"))
        with urllib.request.urlopen((self.state / "screen.url").read_text().strip() + "api/screen", timeout=30) as answer:
            self.assertEqual(json.load(answer)["page"], "mainmenu.html")
        self.assertEqual(sorted(path.name for path in (self.state / "lines").iterdir() if path.exists() and path.name != "dev"),
                         ["com1", "com2", "ttyAMA0", "ttyAMA1", "ttyGS0", "usb"])

    def refused_beside(self, *option):
        (self.root / "called").unlink(missing_ok=True)
        return self.refused(*option)

    def test_machine_without_apt(self):
        (self.fakes / "apt-get").unlink()
        here = self.root / "programs"
        here.mkdir()
        for folder in reversed(self.env["PATH"].split(":")):
            for path in pathlib.Path(folder).glob("*"):
                if path.name not in ("apt-get", "socat") and not (here / path.name).is_symlink():
                    (here / path.name).symlink_to(path)
        (here / "dpkg-query").unlink()
        run = self.jx("run", PATH=str(here))
        self.assertEqual(run.returncode, 1)
        self.assertRegex(run.stderr, r"there is no apt-get to install with: install the programs socat and what Debian 12 has as g\+\+ cmake ")

    def test_machine_that_mounts_nothing(self):
        limit = pathlib.Path("/proc/sys/user/max_mnt_namespaces")
        self.addCleanup(limit.write_text, limit.read_text())
        limit.write_text("0")
        self.start_jx("run", until="Serial lines: ")
        self.assertIn("Serial lines:       none, since nothing may be mounted here", self.said)
        self.assertNotIn("Send over", self.said)

    def test_wrong_command_lines_make_nothing(self):
        whole = "takes a whole number from 1 to 999999"
        for arguments, said in (
                ("start", 'there is no command "start".'),
                ("start --help", 'there is no command "start".'),
                ("run --htpp", 'run takes --http and nothing else, not "--htpp"'),
                ("run --http 6370", 'run takes --http and nothing else, not "6370"'),
                ("setup now", 'setup takes nothing, not "now"'),
                ("test --al", 'test has no option "--al"'),
                ("test --part", "--part needs a name: release "),
                ("test --part sanitizer", 'there is no part "sanitizer" of the tests: release '),
                ("test uploads", 'no test concerns "uploads": there are tests of base '),
                ("test upload --short", "what folders or --changed choose is tested without another option"),
                ("test upload --changed", "test takes either folders or --changed"),
                ("package deb", 'package takes nothing, not "deb"'),
                ("check --cover", 'check takes --coverage and nothing else, not "--cover"'),
                ("fuzz --seconds", f"--seconds {whole}"),
                ("fuzz --seconds one", f'--seconds {whole}, not "one"'),
                ("fuzz --second 1", 'fuzz has no option "--second"'),
                ("fuzz urls", 'there is no fuzzer "urls"; there are answer_page '),
                ("mutate --seconds 0", f'--seconds {whole}, not "0"'),
                ("mutate --seed", "--seed needs a value"),
                ("mutate --jobs x", f'--jobs {whole}, not "x"'),
                ("mutate --all", 'mutate has no option "--all"'),
                ("mutate uploads", 'there is no folder or file "uploads" in the tree'),
                ("arm --foot", 'arm takes --footprint and nothing else, not "--foot"'),
                ("run --http --http", "run takes --http once"),
                ("bench", "bench takes http, serial or fleet"),
                ("bench usb", 'bench takes http, serial or fleet, not "usb"'),
                ("bench http --fast", 'bench takes --quick and nothing else, not "--fast"')):
            run = self.jx(*arguments.split())
            self.assertEqual((run.returncode, run.stdout), (2, ""), arguments)
            first, usage, *lines = run.stderr.splitlines()
            self.assertTrue(first.startswith(f"./jx: {said}"), run.stderr)
            self.assertEqual(usage, "Usage: ./jx COMMAND [OPTION...]", arguments)
            known = arguments.split()[0].replace("start", "setup")
            self.assertTrue(any(line.startswith(f"  {known}") for line in lines), run.stderr)
        self.assertEqual((list((self.tree / "build").iterdir()), (self.root / "called").exists()),
                         ([self.tree / "build/release"], False))

    def test_options_of_the_mutation_tester_are_known(self):
        told = self.jx("mutate", "--help").stdout
        [known] = re.findall(r"^check_mutate\(\) \{\n(.*?)^\}", (jxtest.SOURCE / "jx").read_text(), re.S | re.M)
        self.assertEqual(set(re.findall(r"--[a-z-]+", told)) - {"--help"}, set(re.findall(r"--[a-z-]+(?=[ |)])", known)))


class EndTest(Case):
    def hang_up(self, process):
        os.close(self.master)

    def start_on_a_terminal(self):
        self.master, slave = os.openpty()
        process = self.start_jx("run", stdin=slave, preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(slave)
        return process

    def test_nothing_is_left_and_the_next_start_works(self):
        ends = {130: lambda process: os.write(self.master, b"\x03"), 129: self.hang_up, 143: lambda process: process.terminate()}
        for code, end in ends.items():
            process = self.start_on_a_terminal()
            end(process)
            self.assertEqual(process.wait(60), code)
            self.assert_nothing_is_left()
            if code != 129:
                os.close(self.master)

    def test_killed_one_leaves_no_process(self):
        process = self.start_jx("run")
        process.kill()
        jxtest.wait_until(lambda: set(running()) <= set(self.before), what="the processes have ended")
        self.end(self.start_jx("run"))
        self.assert_nothing_is_left()

    def test_end_of_the_build(self):
        self.fake("ninja", "touch begun; exec sleep 1000")
        process = subprocess.Popen(["./jx", "run"], cwd=self.tree, env=self.env, stderr=subprocess.DEVNULL, start_new_session=True)
        begun = jxtest.BUILD / "begun"
        self.addCleanup(begun.unlink)
        jxtest.wait_until(begun.exists, what="the build has begun")
        process.terminate()
        self.assertEqual(process.wait(60), 143)
        self.assert_nothing_is_left()


if __name__ == "__main__":
    unittest.main()
