"""The serial download from the sender to the installed application, as operator and technician see it."""

import hashlib
import json
import os
import signal
import unittest

import jxtest
from jxpackages import write_package
from jxserial import Line, SerialCase

SUCCESS = "<span style='color:#0f0'><b>Download successful</b></span><br>"
ABORTED = "<span style='color:#f00'><b>Download aborted</b></span><br>"
ERROR = "<span style='color:#f00'><b>Error:</b></span><br>"
PROGRESS = "download-ddl.html"
SLOW = 20000  # bytes a second


class SerialDownloadTest(SerialCase):
    def setUp(self):
        super().setUp()
        self.package = write_package(self.root / "hello-1.0.0.zip")
        self.large = write_package(self.root / "large-1.0.0.zip", "large", files={"data": os.urandom(400000)})

    def begin(self, result=3, **settings):
        """Starts the terminal and a download on one of its lines; returns the line."""
        line = Line(self, **settings)
        self.start_terminal_with_lines({result: line})
        self.operator.choose("mainmenu.html", 1)
        self.operator.choose("download.html", result)
        return line

    def outcome(self):
        """The text of the outcome, which is then left."""
        self.operator.see_past([PROGRESS, "install-ddl.html"], "result.html")
        return self.leave_outcome()

    def leave_outcome(self):
        text = self.operator.last["vars"]["text"]
        self.operator.answer(-1)
        self.operator.see("download.html")
        return text

    def leave_installation_page(self):
        """As a browser does, which may be slower than the page returns by itself."""
        self.operator.see_past([PROGRESS], "install-ddl.html")
        self.operator.press_if_open(0)

    def outcome_of_abort(self):
        """The text of the outcome, which is then left, of a download whose line may not be open yet."""
        self.operator.see(PROGRESS)
        self.assertEqual(self.operator.press_until_another(1)["page"], "result.html")
        return self.leave_outcome()

    def press_abort(self, result=1):
        """Presses the button of the progress page, which a message may replace in the meantime."""
        self.operator.see(PROGRESS)
        while not self.operator.press_if_open(result):
            self.operator.see(PROGRESS)

    def wait_for_bytes(self, count=20000):
        archive = self.root / "source/upload-0.zip"
        jxtest.wait_until(lambda: archive.exists() and archive.stat().st_size >= count, what="the download is under way")

    def assert_nothing_installed(self):
        self.assertEqual(list((self.root / "apps").glob("*")), [])

    def check_line(self, result, name):
        line = self.begin(result)
        self.assertEqual(self.operator.see(PROGRESS)["vars"], {"portname": name})
        output, _ = self.pushed(line, self.package)
        digest = hashlib.sha256(self.package.read_bytes()).hexdigest()
        self.assertIn(f"hello-1.0.0.zip: {self.package.stat().st_size} bytes, sha256 {digest}\n", output)
        self.assertTrue(output.endswith("\nThe terminal's screen shows whether it was installed\n"), output)
        self.leave_installation_page()
        text = self.outcome()
        self.assertTrue(text.startswith(SUCCESS), text)
        self.assertIn(f"sha256 {digest}<br>", text)
        self.assertIn("Installed hello 1.0.0<br>", text)
        self.assertIn("List of installed applications:", text)

    def test_finished_download_is_installed_without_a_browser(self):
        line = self.begin()
        self.pushed(line, self.package)
        self.assertIn("Installed hello 1.0.0<br>", self.outcome())

    def test_usb_brings_a_package_to_its_application(self):
        self.check_line(2, "USB")

    def test_com1_brings_a_package_to_its_application(self):
        self.check_line(3, "COM1")

    def test_com2_brings_a_package_to_its_application(self):
        self.check_line(4, "COM2")

    def test_several_packages_are_installed_in_their_order(self):
        line = self.begin()
        second = write_package(self.root / "other.zip", "other", "2.0")
        self.pushed(line, self.package, second)
        self.leave_installation_page()
        text = self.outcome()
        self.assertLess(text.index("Installed hello 1.0.0"), text.index("Installed other 2.0"))

    def test_operator_sees_file_and_progress(self):
        line = self.begin(rate=SLOW)
        self.operator.see(PROGRESS)
        process = self.push(line, self.large)
        self.assertEqual(self.operator.see(PROGRESS)["vars"]["message"], "large-1.0.0.zip: 0 %")
        percent = int(self.operator.see(PROGRESS)["vars"]["message"].removeprefix("large-1.0.0.zip: ").removesuffix(" %"))
        self.assertLess(0, percent)
        self.assertFalse(self.operator.last["sync"])
        self.operator.answer(1)
        process.communicate(timeout=60)
        self.outcome()

    def test_abort_while_the_host_is_silent(self):
        self.begin()
        self.assertEqual(self.outcome_of_abort(), ABORTED)

    def test_other_results_of_the_page_change_nothing(self):
        line = self.begin()
        self.operator.see(PROGRESS)
        self.operator.answer(0)
        self.operator.answer(-1)
        self.pushed(line, self.package)
        self.leave_installation_page()
        self.assertTrue(self.outcome().startswith(SUCCESS))

    def test_abort_in_the_middle_ends_the_sender_with_34(self):
        line = self.begin(rate=SLOW)
        process = self.push(line, "--json", "--progress", "none", self.large)
        self.wait_for_bytes()
        self.operator.see(PROGRESS)
        self.press_abort()
        output, _ = process.communicate(timeout=60)
        self.assertIn(process.returncode, (30, 34))
        result = json.loads(output.splitlines()[-1])
        self.assertEqual(result["code"], process.returncode)
        self.assertLessEqual(20, result["records"])  # of 1024 bytes
        self.assertIn("sent_again", result)
        self.assertIn(self.outcome(), (ABORTED, ERROR + "COM1 download failed -3."))
        self.assert_nothing_installed()

    def test_download_without_its_progress_page_goes_on_and_can_be_left(self):
        self.use_pages_without(PROGRESS)
        line = self.begin(rate=SLOW)
        process = self.push(line, self.large)
        self.wait_for_bytes()
        self.press_abort(-1)
        process.communicate(timeout=60)
        self.assertIn(self.outcome(), (ABORTED, ERROR + "COM1 download failed -3."))

    def test_interrupted_sender_makes_the_terminal_drop_the_download(self):
        line = self.begin(rate=SLOW)
        process = self.push(line, self.large)
        self.wait_for_bytes()
        process.send_signal(signal.SIGINT)
        _, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 130)
        self.assertRegex(errors, "jxpush: interrupted; the terminal was told to drop the download\n"
                                 r"jxpush: \d+ records sent, \d+ of them again\n$")
        self.assertEqual(self.outcome(), ERROR + "COM1 download failed -4.")
        self.assert_nothing_installed()

    def test_killed_sender_leaves_a_terminal_that_can_be_aborted_and_used_again(self):
        line = self.begin(rate=SLOW)
        process = self.push(line, self.large)
        self.wait_for_bytes()
        process.kill()
        process.communicate()
        line.give_free()
        self.press_abort()
        self.assertIn(self.outcome(), (ABORTED, ERROR + "COM1 download failed -3."))
        self.assert_nothing_installed()
        self.operator.answer(3)
        self.pushed(line, self.package)
        self.leave_installation_page()
        self.assertIn("Installed hello 1.0.0", self.outcome())

    def test_line_that_is_unplugged_ends_the_download(self):
        line = self.begin(rate=SLOW)
        process = self.push(line, self.large)
        self.wait_for_bytes()
        line.hang_up()
        _, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 30, errors)
        self.assertEqual(self.outcome(), ERROR + "COM1 download failed -3.")
        self.assert_nothing_installed()

    def test_absent_device_is_reported(self):
        self.begin(2)
        self.outcome_of_abort()
        self.assertFalse(os.path.exists(f"/proc/{self.program.pid}/root/dev/ttyAMA1"))
        self.operator.answer(4)
        self.assertEqual(self.outcome(), ERROR + "COM2 download failed -1.")

    def test_faulty_line_ends_with_the_application_or_with_a_code(self):
        line = self.begin(seed=1, to_terminal=30000, to_host=3000, delay_ms=5)
        for _ in range(3):
            process = self.push(line, self.large)
            _, errors = process.communicate(timeout=200)
            if process.returncode == 0:
                self.leave_installation_page()
                self.assertIn("nstalled large 1.0.0", self.outcome())
            else:
                self.assertIn(process.returncode, (30, 34), errors)
                self.end_download()
            self.operator.answer(3)

    def end_download(self):
        """Brings the terminal back to its menu after a sending that failed."""
        while self.operator.next()["page"] != "result.html":
            if self.operator.last["page"] == "install-ddl.html":
                self.operator.press_if_open(0)
        self.operator.answer(-1)
        self.operator.see("download.html")


if __name__ == "__main__":
    unittest.main()
