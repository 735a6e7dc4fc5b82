"""The application controller as a process: what it prints for what it is told over the bus."""

import json
import signal
import subprocess
import unittest

import jxtest

DAEMON = jxtest.BIN / "controllerd"


class ControllerTest(jxtest.Case):
    def start_controller(self):
        controller = self.start(DAEMON, stdout=subprocess.PIPE, text=True)
        self.addCleanup(controller.stdout.close)
        return controller

    def tell(self, message, name="_mac_control_trigger"):
        call = ["busctl", f"--address={self.address}", "call", "zoripc.App.a_5fmac", "/zoripc",
                "zoripc.Notification1", "Notify", "ssus", name, message, "0", "jxdownloader"]
        return subprocess.run(call, capture_output=True, timeout=60).returncode

    def install(self, name, manifest):
        folder = self.root / "apps" / name
        folder.mkdir(parents=True)
        (folder / "manifest.json").write_text(manifest)

    def command(self, word):
        return json.dumps({"libmac_cmd": word, "libmac_version": "3.16.5-79"})

    def test_prints_what_it_is_told(self):
        self.address = self.start_bus()
        self.install("hello", '{"name":"hello","version":"1.0.0"}')
        self.install("broken", "{")
        self.install("alpha", '{"name":"alpha","version":"2"}')
        controller = self.start_controller()
        jxtest.wait_until(lambda: self.tell(self.command("libmac_scan_manifests")) == 0, what="the controller answers")
        lines = [controller.stdout.readline() for _ in range(4)]
        self.assertEqual(lines, ["Installed applications:\n", "alpha 2\n", "hello 1.0.0\n",
                                 "Error: apps/broken/manifest.json: not a JSON object\n"])
        self.assertEqual(self.tell(self.command("libmac_show_desktop")), 0)
        self.assertEqual(controller.stdout.readline(), "The desktop is shown\n")
        self.assertEqual(self.tell(self.command("dance")), 0)
        self.assertEqual(controller.stdout.readline(), "Unknown command from jxdownloader: dance\n")
        self.assertEqual(self.tell("[1]"), 0)
        self.assertEqual(controller.stdout.readline(), "Unknown message from jxdownloader: [1]\n")
        self.assertNotEqual(self.tell("{"), 0)
        self.assertNotEqual(self.tell("{}", name="Other"), 0)
        self.assertEqual(self.stop(controller), 0)
        self.assertEqual(controller.stdout.read(), "")

    def test_signals_end_it_with_and_without_a_bus(self):
        for sig in (signal.SIGTERM, signal.SIGINT):
            controller = self.start_controller()
            jxtest.wait_until(lambda: "SigIgn:\t0000000000001000" in self.status(controller), what="signals are awaited")
            self.assertEqual(self.stop(controller, sig), 0)

    def status(self, process):
        with open(f"/proc/{process.pid}/status") as file:
            return file.read()

    def test_reader_that_has_gone_does_not_end_it(self):
        self.address = self.start_bus()
        controller = self.start_controller()
        controller.stdout.close()
        jxtest.wait_until(lambda: self.tell(self.command("libmac_show_desktop")) == 0, what="the controller answers")
        for _ in range(3):
            self.assertEqual(self.tell(self.command("libmac_show_desktop")), 0)
        self.assertIsNone(controller.poll())
        self.assertEqual(self.stop(controller), 0)

    def test_command_line(self):
        help_run = subprocess.run([DAEMON, "--help"], capture_output=True, text=True, env=self.env)
        self.assertEqual(help_run.returncode, 0)
        self.assertIn("Usage: controllerd", help_run.stdout)
        wrong = subprocess.run([DAEMON, "--wrong"], capture_output=True, text=True, env=self.env)
        self.assertEqual((wrong.returncode, wrong.stdout), (2, ""))
        self.assertIn("unknown argument --wrong", wrong.stderr)


if __name__ == "__main__":
    unittest.main()
