"""What the Debian packages hold, say of themselves, and what Debian's own check finds in them."""

import fnmatch
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "system"))
import jxdocuments
import jxlibraries
import jxtest

PROGRAM = ("usr/bin/jxdownloader", "usr/sbin/controllerd", "usr/sbin/cloudproxyd",
           *(f"usr/lib/jxdownloader/{name}" for name in jxlibraries.FILES))
TOOLS = ("usr/bin/jxpush", "usr/bin/jxpack")
DEVICES = ("ttyGS0", "ttyAMA0", "ttyAMA1")


def told(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def packages():
    """Each package's name and file."""
    return {path.name.split("_")[0]: path for path in sorted((jxtest.BUILD / "packages").glob("*.deb"))}


def entries(package):
    """name -> (mode as ls shows it, owner) of the files, links and folders in a package."""
    lines = told("dpkg-deb", "--contents", package).splitlines()
    fields = [line.split(None, 5) for line in lines]
    return {name.removeprefix("./"): (mode, owner) for mode, owner, _, _, _, name in fields}


class ContentTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.packages = packages()
        self.assertEqual(sorted(self.packages), ["jxdownloader", "jxdownloader-tools"])

    def files(self, package):
        return {name for name in entries(self.packages[package]) if not name.endswith("/")}

    def test_programs_are_in_one_package_and_tools_in_the_other(self):
        def executable(package):
            return {name for name, (mode, _) in entries(self.packages[package]).items() if mode == "-rwxr-xr-x"}
        self.assertEqual(executable("jxdownloader"), {name for name in PROGRAM if name.startswith(("usr/bin", "usr/sbin"))})
        self.assertEqual(executable("jxdownloader-tools"), set(TOOLS))
        self.assertEqual({name for name in self.files("jxdownloader") if ".so" in name},
                         {name for name in PROGRAM if name.endswith(".so")})
        self.assertEqual({name for name in self.files("jxdownloader-tools") if ".so" in name}, set())

    def test_everything_that_is_installed_is_in_one_package_alone(self):
        self.assertEqual(self.files("jxdownloader") & self.files("jxdownloader-tools"), set())
        pages = {f"usr/share/jxdownloader/pages/{page.name}" for page in (jxtest.SOURCE / "pages").iterdir()}
        documents = [path for path in (jxtest.SOURCE / "docs").rglob("*") if path.is_file()]
        manuals = {f"usr/share/doc/jxdownloader/{path.relative_to(jxtest.SOURCE / 'docs')}" for path in documents}
        packed = {name.removesuffix(".gz") for name in self.files("jxdownloader")}
        self.assertEqual((pages | manuals) - packed, set())
        for name in self.files("jxdownloader") | self.files("jxdownloader-tools"):
            self.assertNotRegex(name, r"~$|\.orig$|/include/|\.a$|\.cmake$")

    def test_links_of_the_documents_lead_somewhere_where_they_are_installed(self):
        followed = 0
        with tempfile.TemporaryDirectory() as folder:
            for package in self.packages.values():
                told("dpkg-deb", "--extract", package, folder)
            for path in pathlib.Path(folder, "usr/share/doc").rglob("*.md"):
                for link in jxdocuments.links(path):
                    file, _, anchor = link.partition("#")
                    target = (path.parent / file).resolve() if file else path
                    if not re.match(r"^[a-z]+:", link):
                        self.assertTrue(target.exists(), f"{path.name}: {link}")
                        self.assertTrue(not anchor or anchor in jxdocuments.anchors(target), f"{path.name}: {link}")
                        followed += 1
        self.assertGreater(followed, 50)

    def test_every_program_has_a_manual_and_a_completion(self):
        for package in self.packages:
            files = self.files(package)
            for name in files:
                match = re.fullmatch(r"usr/(bin|sbin)/(\w+)", name)
                if match:
                    section = {"bin": 1, "sbin": 8}[match[1]]
                    self.assertIn(f"usr/share/man/man{section}/{match[2]}.{section}.gz", files)
                    self.assertIn(f"usr/share/bash-completion/completions/{match[2]}", files)

    def test_files_are_roots_and_nobody_elses_to_write(self):
        for package in self.packages.values():
            for name, (mode, owner) in entries(package).items():
                self.assertEqual(owner, "root/root", name)
                self.assertRegex(mode, r"^([-d]rwxr-xr-x|-rw-r--r--)$", name)

    def test_version_is_that_of_the_project(self):
        version = re.search(r"project\(jxdownloader VERSION (\S+)", (jxtest.SOURCE / "CMakeLists.txt").read_text())[1]
        for path in self.packages.values():
            self.assertEqual(told("dpkg-deb", "--field", path, "Version").strip(), version)

    def test_programs_are_hardened(self):
        with tempfile.TemporaryDirectory() as folder:
            for package in self.packages.values():
                told("dpkg-deb", "--extract", package, folder)
            for name in PROGRAM + TOOLS:
                about = told("readelf", "-W", "--file-header", "--segments", "--dynamic", "--dyn-syms", f"{folder}/{name}")
                self.assertRegex(about, r"Type: +DYN", name)  # loaded anywhere
                self.assertRegex(about, r"GNU_RELRO", name)
                self.assertRegex(about, r"BIND_NOW", name)
                self.assertRegex(about, r"GNU_STACK.* RW +0x", name)
                self.assertRegex(about, r"__stack_chk_fail", name)
                self.assertNotRegex(about, r" (sprintf|vsprintf|strcpy|strcat|gets)@", name)

    def test_tools_need_nothing_of_the_program(self):
        self.assertNotIn("jxdownloader", told("dpkg-deb", "--field", self.packages["jxdownloader-tools"], "Depends"))

    def test_debians_own_check_finds_nothing(self):
        run = subprocess.run(["lintian", "--fail-on=error,warning", *self.packages.values()], capture_output=True, text=True,
                             timeout=300)
        self.assertEqual((run.returncode, run.stdout), (0, ""))
        # What it is told to pass over is in the package, so that an override that is of no use is a finding.
        overrides = (jxtest.SOURCE / "packaging/debian/jxdownloader.lintian-overrides").read_text().splitlines()
        for number, line in enumerate(overrides):
            if not line.startswith("#"):
                self.assertTrue(overrides[number - 1].startswith("# "), f"no reason for {line}")


class Rules:
    """Follows a file of udev rules, as far as ours go, for one device."""

    MATCHES = ("ACTION", "SUBSYSTEM", "KERNEL")
    VALUES = ("GROUP", "MODE", "ENV{ID_MM_DEVICE_IGNORE}")

    def __init__(self, text):
        self.lines = [self.parse(line) for line in text.splitlines() if line and not line.startswith("#")]

    def parse(self, line):
        parts = re.split(r",\s*(?=[A-Z])", line)
        parsed = [re.fullmatch(r'([A-Z]+(?:\{\w+\})?)(==|=)"([^"]*)"', part) for part in parts]
        if not all(parsed):
            raise AssertionError(f"not a rule: {line}")
        for key, operator, _ in (match.groups() for match in parsed):
            if key not in {"==": self.MATCHES, "=": (*self.VALUES, "GOTO", "LABEL")}[operator]:
                raise AssertionError(f"{key}{operator} in {line}")
        return [match.groups() for match in parsed]

    def apply(self, **device):
        """What the rules set for a device."""
        found, wanted = {}, None
        for line in self.lines:
            assigned = {key: value for key, operator, value in line if operator == "="}
            if wanted in (None, assigned.get("LABEL")):
                wanted = None
                if all(any(fnmatch.fnmatchcase(device[key], pattern) for pattern in value.split("|"))
                       for key, operator, value in line if operator == "=="):
                    found.update(assigned)
                    wanted = assigned.get("GOTO")
        if wanted is not None:
            raise AssertionError(f"no label {wanted}")
        return {key: value for key, value in found.items() if key in self.VALUES}


class RulesTest(unittest.TestCase):
    def setUp(self):
        self.rules = Rules((jxtest.SOURCE / "packaging/60-jxdownloader.rules").read_text())

    def test_lines_of_the_program_are_opened_for_the_group(self):
        named = set(re.findall(r'"/dev/(\w+)"', (jxtest.SOURCE / "serial/download_session.cpp").read_text()))
        self.assertEqual(named, set(DEVICES))
        for device in DEVICES:
            for action in ("add", "change"):
                self.assertEqual(self.rules.apply(ACTION=action, SUBSYSTEM="tty", KERNEL=device),
                                 {"GROUP": "dialout", "MODE": "0660", "ENV{ID_MM_DEVICE_IGNORE}": "1"})

    def test_nothing_else_is_touched(self):
        for device in ("tty0", "ttyS0", "ttyUSB0", "ttyAMA2", "ttyAMA10", "ttyGS1", "console"):
            self.assertEqual(self.rules.apply(ACTION="add", SUBSYSTEM="tty", KERNEL=device), {})
        self.assertEqual(self.rules.apply(ACTION="remove", SUBSYSTEM="tty", KERNEL="ttyGS0"), {})
        self.assertEqual(self.rules.apply(ACTION="add", SUBSYSTEM="block", KERNEL="ttyGS0"), {})

    def test_mistakes_are_noticed(self):
        for wrong in ('KERNEL=="ttyGS0" MODE="0660"', 'KERNAL=="ttyGS0"', 'MODE=0660', 'GOTO=="end"', 'KERNEL="ttyGS0"'):
            with self.assertRaises(AssertionError):
                Rules(wrong)
        with self.assertRaises(AssertionError):
            Rules('KERNEL=="a", GOTO="end"').apply(KERNEL="a")


if __name__ == "__main__":
    unittest.main()
