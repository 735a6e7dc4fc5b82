"""The documents' commands for an administrator, run as they stand in a clean system.

systemd is not process 1 there: what would start a unit says so, and all else of the command is done."""

import hashlib
import pathlib
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "system"))
import jxdocuments
import jxtest
import jxtree

NOT_BOOTED = "System has not been booted with systemd as init system (PID 1). Can't operate."
# Of Debian, and larger than all else together: packages of these names stand in for them.
STAND_INS = ("cage", "chromium", "curl")


class AdministratorTest(jxtree.Case):
    def setUp(self):
        super().setUp()
        self.offer_stand_ins()

    def offer_stand_ins(self):
        """A package source with empty packages."""
        source = self.tree / "stand-ins"
        index = ""
        for name in STAND_INS:
            control = f"Package: {name}\nVersion: 1\nArchitecture: all\nMaintainer: nobody <nobody@localhost>\nDescription: empty\n"
            (source / name / "DEBIAN").mkdir(parents=True)
            (source / name / "DEBIAN/control").write_text(control)
            subprocess.run(["dpkg-deb", "--root-owner-group", "--build", source / name, source / f"{name}.deb"],
                           check=True, stdout=subprocess.DEVNULL)
            package = (source / f"{name}.deb").read_bytes()
            index += f"{control}Filename: ./{name}.deb\nSize: {len(package)}\nSHA256: {hashlib.sha256(package).hexdigest()}\n\n"
        (source / "Packages").write_text(index)
        (self.tree / "etc/apt/sources.list").write_text("deb [trusted=yes] file:/stand-ins ./\n")
        self.run_in("apt-get", "update")

    def run_line(self, line, place):
        done = self.run_in("sh", "-c", f"cd /packages && {line}", succeeds=None)
        expected = 0
        if line.startswith("systemctl ") and "--now" in line:
            self.assertIn(NOT_BOOTED, done.stderr, f"{place}: {line}")
            expected = 1
        self.assertEqual(done.returncode, expected, f"{place}: {line}\n{done.stdout}{done.stderr}")

    def run_blocks(self, document):
        path = jxtest.SOURCE / document
        blocks = [block for block in jxdocuments.blocks(path) if block.word == "root"]
        for block in blocks:
            for line in block.lines:
                if document == "docs/operating.md" and line.startswith("systemctl enable"):
                    self.assertTrue(self.is_fenced(), f"{block.place}: {line}")
                self.run_line(line, block.place)
        return len(blocks)

    def is_enabled(self, unit):
        return self.run_in("systemctl", "is-enabled", unit, succeeds=None).stdout.strip()

    def test_installing(self):
        self.assertEqual(self.run_blocks("docs/installing.md"), 1)
        for unit in ("jxdownloader-http", "jxdownloader-terminal"):
            self.assertEqual(self.is_enabled(unit), "enabled")
        self.assertIn("install ok installed", self.run_in("dpkg", "--status", "jxdownloader").stdout)

    def test_sending(self):
        self.assertEqual(self.run_blocks("docs/technician.md"), 1)
        self.run_in("jxpush", "--version")

    def provide_settings(self):
        """What the administrator brings along: a certificate, and the terminal's settings as the document has them."""
        (self.tree / "packages/vendor.pem").write_text("")
        [settings] = [block for block in jxdocuments.blocks(jxtest.SOURCE / "docs/operating.md") if block.language == "json"]
        (self.tree / "packages/terminal.json").write_text(settings.text)

    def is_fenced(self):
        state = self.tree / "var/lib/jxplatform"
        settings = state / "terminal.json"
        return any(state.glob("certs/*.pem")) and settings.exists() and '"signatures": "required"' in settings.read_text()

    def test_operating(self):
        self.provide_settings()
        self.assertGreater(self.run_blocks("docs/operating.md"), 4)
        self.assertEqual(self.is_enabled("jxdownloader-kiosk"), "enabled")
        self.assertEqual(self.is_enabled("serial-getty@ttyAMA0"), "masked")
        for name in STAND_INS:
            self.assertIn("install ok installed", self.run_in("dpkg", "--status", name).stdout)
        kiosk = self.service_section_of(self.tree / "etc/systemd/system/jxdownloader-kiosk.service")
        self.assertEqual(kiosk["User"], "kiosk")
        self.run_in("getent", "passwd", kiosk["User"])

    def test_every_document_with_such_commands_is_tried(self):
        found = {str(path.relative_to(jxtest.SOURCE)) for path in jxdocuments.documents()
                 if any(block.word == "root" for block in jxdocuments.blocks(path))}
        self.assertEqual(found, {"docs/installing.md", "docs/operating.md", "docs/technician.md"})


if __name__ == "__main__":
    unittest.main()
