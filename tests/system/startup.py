"""How the program starts, walks through its menus and ends."""

import json
import os
import pathlib
import re
import socket
import stat
import subprocess
import unittest

import jxtest
from jxhttp import FORM_PAGE, exchange, package, request, upload
from jxoperator import OperatorCase

PROGRAM = jxtest.BIN / "jxdownloader"
CONFIGURATION = pathlib.Path("/mnt/flash/etc/config/jxapp")


class CommandLineTest(jxtest.Case):
    def run_program(self, *args, name="jxdownloader"):
        return subprocess.run([name, *args], executable=PROGRAM, env=self.env, capture_output=True, text=True, timeout=60)

    def test_wrong_first_argument_is_told(self):
        for args in (["--HTTP"], ["x"], ["--http "], ["--httpx"], ["--htt"], [""], ["-h"], ["x", "--http"]):
            run = self.run_program(*args)
            self.assertEqual((run.returncode, run.stdout, run.stderr), (1, "", "Usage: jxdownloader [--http]\n"), args)

    def test_usage_names_the_program_as_it_was_called(self):
        self.assertEqual(self.run_program("x", name="../some/name %s").stderr, "Usage: ../some/name %s [--http]\n")

    def test_wrong_first_argument_shows_no_page(self):
        self.run_program("x")
        self.assertFalse((self.root / "screen.url").exists())

    def set(self, setting, value):
        """Changes a setting of the test's own network."""
        path = pathlib.Path("/proc/sys/net/ipv6") / setting
        before = path.read_text()
        self.addCleanup(path.write_text, before)
        path.write_text(value)

    def test_http_serves_both_protocols_without_a_page(self):
        for taken_by_default in ("0", "1"):
            self.set("bindv6only", taken_by_default)
            server = self.start_http_server()
            for host in ("127.0.0.1", "::1"):
                self.assertTrue(exchange(request("GET", "/"), host=host).endswith(FORM_PAGE), host)
            self.assertFalse((self.root / "screen.url").exists())
            self.stop(server)

    def test_http_serves_ipv4_where_ipv6_is_off(self):
        self.set("conf/all/disable_ipv6", "1")
        self.start_http_server()
        self.assertTrue(exchange(request("GET", "/")).endswith(FORM_PAGE))
        self.assertFalse(jxtest.can_connect(jxtest.HTTP_PORT, "::1"))

    def test_menu_that_cannot_be_shown_counts_as_left(self):
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", 0))
            taken.listen()
            address = f"127.0.0.1:{taken.getsockname()[1]}"
            for said, environment in (
                    ("libzorguiprt: cannot read the page mainmenu.html in ", {"JXPLATFORM_PAGES": str(self.root)}),
                    (f"libzorguiprt: cannot show pages at {address}: ", {"JXPLATFORM_SCREEN": address})):
                self.env.update(environment)
                run = self.run_program()
                self.assertEqual((run.returncode, run.stdout), (0, ""))
                self.assertRegex(run.stderr, f"^{re.escape(said)}.+\n$")
                self.env.pop("JXPLATFORM_PAGES", None)

    def test_root_of_100_bytes_serves_and_a_longer_one_is_refused(self):
        for program in (["jxdownloader"], ["jxdownloader", "--http"], ["controllerd"], ["cloudproxyd"]):
            self.env["JXPLATFORM_ROOT"] = f"{self.root}/".ljust(101, "x")
            run = subprocess.run([jxtest.BIN / program[0], *program[1:]], env=self.env, capture_output=True, text=True, timeout=60)
            self.assertEqual((run.returncode, run.stdout, run.stderr), (
                1, "", "JXPLATFORM_ROOT has 101 bytes, at most 100 are allowed: choose a shorter path\n"), program)
        self.assertEqual(list(self.root.iterdir()), [])
        self.env["JXPLATFORM_ROOT"] = f"{self.root}/".ljust(100, "x") + "//"
        self.start_http_server()
        self.assertIn(b"Installed hello 1.0.0", exchange(upload([("hello.zip", package())])))

    def test_arguments_after_http_are_ignored(self):
        self.start(PROGRAM, "--http", "x", "--HTTP")
        jxtest.wait_until(lambda: jxtest.can_connect(jxtest.HTTP_PORT), what="the upload server accepts")

    def test_mask_is_set(self):
        server = self.start_http_server(preexec_fn=lambda: os.umask(0o077))
        status = pathlib.Path(f"/proc/{server.pid}/status").read_text()
        self.assertEqual(re.search(r"^Umask:\s*(\d+)$", status, re.M).group(1), "0022")


class ConfigurationTest(jxtest.Case):
    def setUp(self):
        super().setUp()
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/mnt"], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", "/mnt"], check=True)

    def prepare(self):
        """Runs the program as far as every start goes."""
        self.assertEqual(subprocess.run([PROGRAM, "x"], env=self.env, capture_output=True).returncode, 1)

    def make(self, name, mode):
        path = CONFIGURATION / name
        path.mkdir(parents=True, exist_ok=True)
        path.chmod(mode)
        return path

    def mode(self, path):
        return stat.S_IMODE(path.stat().st_mode)

    def test_closed_directories_are_opened_to_others(self):
        paths = [self.make(name, 0o700) for name in ("", "jx", "mp")]
        self.prepare()
        self.assertEqual([self.mode(path) for path in paths], [0o705] * 3)

    def test_modes_gain_what_they_lack(self):
        for before, after in ((0o000, 0o005), (0o704, 0o705), (0o701, 0o705), (0o702, 0o707), (0o750, 0o755),
                              (0o755, 0o755), (0o777, 0o777), (0o705, 0o705), (0o2700, 0o2705), (0o1770, 0o1775)):
            path = self.make("jx", before)
            self.prepare()
            self.assertEqual(oct(self.mode(path)), oct(after), oct(before))

    def test_missing_directories_stay_missing(self):
        self.make("mp", 0o700)
        self.prepare()
        self.assertEqual(self.mode(CONFIGURATION / "mp"), 0o705)
        self.assertFalse((CONFIGURATION / "jx").exists())
        self.assertEqual([path.name for path in CONFIGURATION.iterdir()], ["mp"])

    def test_nothing_there_is_no_failure(self):
        self.prepare()
        self.assertEqual(list(pathlib.Path("/mnt").iterdir()), [])

    def test_other_directories_are_left_alone(self):
        other = self.make("other", 0o700)
        above = CONFIGURATION.parent
        above.chmod(0o700)
        self.prepare()
        self.assertEqual((self.mode(other), self.mode(above)), (0o700, 0o700))

    def test_mode_that_cannot_be_changed_is_ignored(self):
        self.make("jx", 0o700)
        subprocess.run(["mount", "-o", "remount,ro", "/mnt"], check=True)
        self.prepare()
        self.assertEqual(self.mode(CONFIGURATION / "jx"), 0o700)


class MenuTest(OperatorCase):
    def test_menu_without_a_proxy_offers_neither_entry(self):
        screen = self.start_terminal().see("mainmenu.html")
        self.assertTrue(screen["sync"])
        self.assertEqual(screen["vars"], {"show_settings": "0", "show_cloudproxy": "0"})

    def test_results_below_1_end_the_program(self):
        for result in (-1, 0, -7):
            (self.root / "screen.url").unlink(missing_ok=True)
            self.start_terminal().choose("mainmenu.html", result)
            self.assertEqual(self.program.wait(60), 0, result)

    def test_results_above_4_show_the_menu_again(self):
        operator = self.start_terminal()
        operator.choose("mainmenu.html", 7)
        operator.see("mainmenu.html")

    def test_download_menu_and_back(self):
        operator = self.start_terminal()
        operator.choose("mainmenu.html", 1)
        for result in (0, 5, -2):
            self.assertEqual(operator.choose("download.html", result)["vars"], {})
        operator.choose("download.html", -1)
        operator.see("mainmenu.html")

    def test_information_without_facts(self):
        operator = self.start_terminal()
        operator.choose("mainmenu.html", 2)
        unknown = {"uiVersion": "unknown", "sponsorId": "unknown", "serialNo": "unknown"}
        self.assertEqual(operator.choose("info.html", 0)["vars"], unknown)
        self.assertEqual(operator.choose("info.html", -1)["vars"], unknown)
        operator.see("mainmenu.html")

    def test_information_from_the_terminal(self):
        (self.root / "terminal.json").write_text(json.dumps({
            "serial": "0815-4711", "gui_version": "2.1 <x>",
            "sponsor": {"identifier": "0203200821C5", "number": 123, "name": "ACME"}}))
        operator = self.start_terminal()
        operator.choose("mainmenu.html", 2)
        self.assertEqual(operator.choose("info.html", -1)["vars"],
                         {"uiVersion": "2.1 <x>", "sponsorId": "000123", "serialNo": "0815-4711"})
        operator.see("mainmenu.html")

    def test_leaving_tells_the_controller_to_show_the_desktop(self):
        self.start_bus()
        controller = self.start(jxtest.BIN / "controllerd", stdout=subprocess.PIPE, text=True)
        self.addCleanup(controller.stdout.close)
        name = "zoripc.App.a_5fmac"
        jxtest.wait_until(lambda: name in subprocess.run(
            ["busctl", f"--address={self.env['JXPLATFORM_BUS']}", "list"], capture_output=True, text=True).stdout,
            what="the controller is on the bus")
        self.start_terminal().choose("mainmenu.html", -1)
        self.assertEqual(self.program.wait(60), 0)
        self.assertEqual(controller.stdout.readline(), "The desktop is shown\n")


if __name__ == "__main__":
    unittest.main()
