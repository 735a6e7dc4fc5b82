"""The installer killed at every system call."""

import shutil
import subprocess
import unittest

from jxpackages import LIST, InstallerCase, write_package, write_removal
from jxtest import BIN

OLD = {"bin/hello": b"old program", "old/only": b"old"}
NEW = {"bin/hello": b"new program" * 20000, "new/only": b"new"}


class KilledAnywhere(InstallerCase):
    """Kills an installation at its 1st, 2nd, 3rd, ... system call, starts the installer again, and looks at what stands."""

    def setUp(self):
        super().setUp()
        # In memory, where bringing a file to the disk takes no time.
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", self.root], check=True)
        self.addCleanup(subprocess.run, ["umount", self.root], check=True)
        self.source.mkdir()
        self.packages = {}
        for version, files in (("1", OLD), ("2", NEW)):
            self.packages[version] = write_package(self.root / f"{version}.zip", version=version, files=files)
        self.removal = write_removal(self.root / "removal.zip")

    def installed(self):
        """The whole applications by version, as a fresh installation leaves them."""
        trees = {}
        for version, package in self.packages.items():
            shutil.rmtree(self.root / "apps", ignore_errors=True)
            shutil.copy(package, self.source / "upload-0.zip")
            self.run_installer(code=0)
            trees[version] = self.tree()
            shutil.copytree(self.root / "apps", self.root / f"whole-{version}")
        return trees

    def prepare(self, update, package=None):
        shutil.rmtree(self.root / "apps", ignore_errors=True)
        if update:
            shutil.copytree(self.root / "whole-1", self.root / "apps")
        shutil.copy(package or self.packages["2"], self.source / "upload-0.zip")

    def killed_at(self, call, options):
        """Kills the installer at a system call; false when it ended before."""
        result = subprocess.run([BIN / "kill_at", str(call), BIN / "jxinstall_driver", "--stop", *options], env=self.env,
                                stdout=subprocess.DEVNULL, timeout=120, check=False)
        self.assertIn(result.returncode, (0, 1))
        return result.returncode == 0

    def check_all_calls(self, update, options=(), package=None, expected=frozenset("12"), least=60):
        whole = self.installed()
        seen = set()
        call = 1
        self.prepare(update, package)
        while self.killed_at(call, options):
            # Without the archive, so that what stands then is what the killed installation left.
            (self.source / "upload-0.zip").unlink(missing_ok=True)
            log = self.run_installer(code=0)
            version = "2" if "  hello 2\n" in log else "1" if "  hello 1\n" in log else None
            self.assertEqual(log, LIST + (f"  hello {version}\n" if version else "  (none)\n"), f"call {call}")
            self.assertEqual(self.tree(), whole[version] if version else {}, f"call {call}")
            seen.add(version)
            self.prepare(update, package)
            call += 1
        self.assertGreater(call, least)
        self.assertEqual(seen, expected)

    def test_update_by_exchange(self):
        self.check_all_calls(update=True)

    def test_update_by_two_renames(self):
        self.check_all_calls(update=True, options=["--two-renames"])

    def test_first_installation(self):
        self.check_all_calls(update=False, expected={None, "2"})

    def test_removal(self):
        self.check_all_calls(update=True, package=self.removal, expected={"1", None}, least=40)

    def test_sweep_after_a_kill_between_two_renames(self):
        whole = self.installed()
        call = 1
        while True:
            shutil.rmtree(self.root / "apps")
            shutil.copytree(self.root / "whole-1/hello", self.root / "apps/.old-hello")
            shutil.copytree(self.root / "whole-2/hello", self.root / "apps/.new-hello")
            if not self.killed_at(call, []):
                break
            self.assertEqual(self.run_installer(code=0), LIST + "  hello 1\n", f"call {call}")
            self.assertEqual(self.tree(), whole["1"], f"call {call}")
            call += 1
        self.assertGreater(call, 20)
        self.assertEqual(self.tree(), whole["1"])

    def test_the_next_start_with_the_archive_installs_it(self):
        whole = self.installed()
        for call in range(1, 2000, 17):
            self.prepare(update=True)
            if not self.killed_at(call, []):
                break
            self.assertTrue(self.run_installer(code=0).endswith(LIST + "  hello 2\n"))
            self.assertEqual(self.tree(), whole["2"])
        self.assertGreater(call, 60)


if __name__ == "__main__":
    unittest.main()
