"""What `cmake --install` puts where, and whether it works there: a foreign prefix, a staged tree, the units."""

import http.client
import os
import pathlib
import re
import shlex
import shutil
import socket
import subprocess
import tempfile
import unittest

import jxlibraries
import jxtest

PROGRAMS = ("bin/jxdownloader", "bin/jxpush", "bin/jxpack", "sbin/controllerd", "sbin/cloudproxyd")
UNITS = ("http", "terminal", "controllerd", "cloudproxyd")
FILES = (
    *PROGRAMS,
    *(f"lib/jxdownloader/{name}" for name in jxlibraries.FILES),
    *(f"lib/systemd/system/jxdownloader-{name}.service" for name in UNITS),
    "lib/sysusers.d/jxdownloader.conf", "lib/tmpfiles.d/jxdownloader.conf", "lib/udev/rules.d/60-jxdownloader.rules",
    "share/dbus-1/system.d/zoripc.conf",
    "share/man/man1/jxdownloader.1", "share/man/man1/jxpush.1", "share/man/man1/jxpack.1",
    "share/man/man8/controllerd.8", "share/man/man8/cloudproxyd.8",
    *(f"share/bash-completion/completions/{pathlib.Path(name).name}" for name in PROGRAMS),
    *(f"share/jxdownloader/pages/{page.name}" for page in (jxtest.SOURCE / "pages").iterdir()),
)
WORST_EXPOSURE = 2.5
KIOSK = "share/doc/jxdownloader/examples/jxdownloader-kiosk.service"


def stated_exposures():
    """The figure that docs/installing.md states for each unit, whose table has it last."""
    text = (jxtest.SOURCE / "docs/installing.md").read_text()
    return {name: float(figure) for name, figure in re.findall(r"^\| `jxdownloader-(\w+)` .* (\d\.\d) \|$", text, re.M)}


def version():
    return re.search(r"VERSION (\d+\.\d+\.\d+)", (jxtest.SOURCE / "CMakeLists.txt").read_text())[1]


class Installed(jxtest.Case):
    def setUp(self):
        super().setUp()
        self.place = pathlib.Path(tempfile.mkdtemp(prefix="jxinstalled-"))
        self.addCleanup(shutil.rmtree, self.place)
        self.prefix = self.place / "opt/jx"

    def install(self, prefix, **variables):
        run = subprocess.run(["cmake", "--install", jxtest.BUILD, "--prefix", prefix], capture_output=True, text=True,
                             env={**os.environ, **variables}, timeout=250)
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)

    def style_sheet(self, program):
        """The style sheet that the program's screen serves."""
        self.start(program, env={**self.env, "JXPLATFORM_SCREEN": "127.0.0.1:0"})
        url = jxtest.wait_until(lambda: (self.root / "screen.url").exists() and (self.root / "screen.url").read_text().strip(),
                                what="the screen's address")
        connection = http.client.HTTPConnection(url.split("/")[2], timeout=60)
        self.addCleanup(connection.close)
        connection.request("GET", "/pages/style.css")
        return connection.getresponse().read().decode()

    def check_programs(self, prefix):
        for program in PROGRAMS:
            told = subprocess.run(["ldd", prefix / program], capture_output=True, text=True, env=self.env).stdout
            self.assertNotIn("not found", told, program)
            found = re.findall(r"lib(\w+)\.so => (\S+)", told)
            for name, path in found:
                if name in jxlibraries.NAMES:
                    self.assertEqual(pathlib.Path(path).resolve(), prefix.resolve() / f"lib/jxdownloader/lib{name}.so")
            uses_port = any(name in jxlibraries.NAMES for name, _ in found)
            self.assertEqual(uses_port, program not in ("bin/jxpush", "bin/jxpack"), program)


class PrefixTest(Installed):
    def test_everything_is_there_and_works_under_any_prefix(self):
        self.install(self.prefix)
        missing = [path for path in FILES if not (self.prefix / path).is_file()]
        self.assertEqual(missing, [])
        self.check_programs(self.prefix)
        for program in ("bin/jxpush", "sbin/controllerd", "sbin/cloudproxyd"):
            told = subprocess.run([self.prefix / program, "--version"], capture_output=True, text=True, env=self.env).stdout
            self.assertEqual(told, f"{pathlib.Path(program).name} {version()}\n")
        unit = (self.prefix / "lib/systemd/system/jxdownloader-http.service").read_text()
        self.assertIn(f"ExecStart={self.prefix}/bin/jxdownloader --http\n", unit)

    def test_installed_program_shows_the_installed_pages(self):
        self.install(self.prefix)
        (self.prefix / "share/jxdownloader/pages/style.css").write_text("/* of this prefix */")
        self.assertEqual(self.style_sheet(self.prefix / "bin/jxdownloader"), "/* of this prefix */")

    def test_program_of_the_build_shows_the_pages_of_the_sources(self):
        self.assertEqual(self.style_sheet(jxtest.BIN / "jxdownloader"), (jxtest.SOURCE / "pages/style.css").read_text())

    def test_staged_tree_is_of_its_prefix_and_works_where_it_stands(self):
        self.install("/usr", DESTDIR=str(self.place))
        self.check_programs(self.place / "usr")
        unit = (self.place / "usr/lib/systemd/system/jxdownloader-cloudproxyd.service").read_text()
        self.assertIn("ExecStart=/usr/sbin/cloudproxyd ", unit)
        self.assertIn("EnvironmentFile=-/etc/default/jxdownloader-cloudproxyd\n", unit)


class UnitsTest(Installed):
    def setUp(self):
        super().setUp()
        self.install(self.prefix)
        self.units = [self.prefix / f"lib/systemd/system/jxdownloader-{name}.service" for name in UNITS]

    def analyze(self, *arguments):
        return subprocess.run(["systemd-analyze", *arguments], capture_output=True, text=True, timeout=120,
                              env={**self.env, "MANPATH": str(self.prefix / "share/man"),
                                   "SYSTEMD_UNIT_PATH": f"{self.prefix}/lib/systemd/system:"})

    def exposure(self, unit):
        run = self.analyze("security", "--offline=true", "--no-pager", unit)
        return float(re.search(r"Overall exposure level for \S+: (\d+\.\d)", run.stdout + run.stderr)[1])

    def test_units_are_well_formed(self):
        for unit in self.units:
            run = self.analyze("verify", unit)
            self.assertEqual((run.returncode, run.stderr), (0, ""), unit)

    def test_units_expose_as_little_as_stated(self):
        stated = stated_exposures()
        self.assertEqual(set(stated), {*UNITS, "kiosk"})
        for name, unit in zip(UNITS, self.units):
            self.assertLessEqual(stated[name], WORST_EXPOSURE, name)
            self.assertLessEqual(self.exposure(unit), stated[name], name)

    def test_example_for_a_display_exposes_no_more_than_a_browser_needs(self):
        unit = self.prefix / KIOSK
        self.assertLessEqual(self.exposure(unit), stated_exposures()["kiosk"])
        faults = [line for line in self.analyze("verify", unit).stderr.splitlines()
                  if not line.endswith("/usr/bin/cage is not executable: No such file or directory")]
        self.assertEqual(faults, [])

    def test_example_for_a_display_waits_for_the_screen(self):
        [command] = re.findall("^ExecStartPre=(.*)$", (self.prefix / KIOSK).read_text(), re.M)
        with socket.create_server(("127.0.0.1", 6380)) as nobody:
            nobody.settimeout(60)
            waiting = self.start(*shlex.split(command), stderr=subprocess.DEVNULL)
            nobody.accept()[0].close()  # the first request is in vain
        self.start(self.prefix / "bin/jxdownloader")
        self.assertEqual(waiting.wait(60), 0)
        self.assertTrue((self.root / "screen.url").exists())

    def test_unit_without_hardening_is_noticed(self):
        bare = self.place / "bare.service"
        bare.write_text("[Service]\nExecStart=/bin/true\n")
        self.assertGreater(self.exposure(bare), 9)
        bare.write_text("[Service]\nExecStart=/nowhere\nWrong=1\n")
        self.assertNotEqual(self.analyze("verify", bare).stderr, "")

    def test_units_are_bounded_and_unprivileged(self):
        for unit in self.units:
            lines = unit.read_text().splitlines()
            for wanted in ("User=jxdownloader", "NoNewPrivileges=yes", "CapabilityBoundingSet=", "ProtectSystem=strict",
                           "PrivateTmp=yes", "StateDirectory=jxplatform", "Environment=JXPLATFORM_BUS=system"):
                self.assertIn(wanted, lines, unit)
            for limit in ("MemoryMax=", "TasksMax="):
                self.assertTrue(any(line.startswith(limit) for line in lines), (unit, limit))


class VersionTest(jxtest.Case):
    FOLDERS = ("program", "shell", "http", "upload", "serial", "cloudproxy", "platform", "tools", "pages", "cmake",
               "packaging")

    def test_version_stands_in_one_place(self):
        files = [path for folder in self.FOLDERS for path in (jxtest.SOURCE / folder).rglob("*") if path.is_file()]
        self.assertGreater(len(files), 100)
        lines = [(path, line) for path in [*files, jxtest.SOURCE / "jx", jxtest.SOURCE / "CMakePresets.json"]
                 for line in path.read_text(errors="replace").splitlines()]
        # The example application has a version of its own.
        elsewhere = [(path.name, line) for path, line in lines if version() in line and "hello" not in line]
        self.assertEqual(elsewhere, [])

    def test_changes_begin_with_those_since_or_of_this_version(self):
        headings = re.findall(r"^## (.+)$", (jxtest.SOURCE / "CHANGELOG.md").read_text(), re.M)
        self.assertIn(version(), headings[:2])
        self.assertIn(headings[0], ("Unreleased", version()))


if __name__ == "__main__":
    unittest.main()
