"""jxpack at the command line."""

import os
import re
import shutil
import subprocess
import unittest
import zipfile

from jxpackages import JXPACK, InstallerCase
from jxtest import SOURCE


class Pack(InstallerCase):
    def setUp(self):
        super().setUp()
        self.folder = self.root / "work"
        (self.folder / "bin").mkdir(parents=True)
        (self.folder / "bin/run").write_text("#!/bin/sh\n")
        (self.folder / "bin/run").chmod(0o755)
        (self.folder / "text").write_text("text\n")
        self.out = self.root / "out"
        self.out.mkdir()

    def jxpack(self, *options, folder=None, name="hello", version="1.0.0", **kwargs):
        return subprocess.run([JXPACK, "--name", name, "--version", version, *options, folder or self.folder],
                              capture_output=True, text=True, cwd=self.out, timeout=120, check=False, **kwargs)

    def assert_refused(self, message, code=1, **kwargs):
        result = self.jxpack(**kwargs)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (code, "", f"jxpack: {message}\n"))
        self.assertEqual(os.listdir(self.out), [])

    def test_package_is_named_after_the_application_and_installs(self):
        result = self.jxpack("--description", "Grüße")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "hello-1.0.0.zip: 2 files\n", ""))
        self.assertEqual(os.listdir(self.out), ["hello-1.0.0.zip"])
        shutil.copy(self.out / "hello-1.0.0.zip", self.source / "upload-0.zip")
        self.assertIn("Installed hello 1.0.0\n", self.run_installer(code=0))
        self.assertEqual((self.root / "apps/hello/bin/run").stat().st_mode & 0o777, 0o755)
        self.assertEqual((self.root / "apps/hello/text").stat().st_mode & 0o777, 0o644)

    def test_same_files_make_the_same_bytes(self):
        packages = []
        for zone, mask in (("UTC", 0o022), ("Asia/Tokyo", 0o077)):
            copy = self.root / f"copy-{mask}"
            shutil.copytree(self.folder, copy)
            os.utime(copy / "text", (mask, mask))
            self.jxpack(folder=copy, env=dict(self.env, TZ=zone), umask=mask)
            packages.append((self.out / "hello-1.0.0.zip").read_bytes())
        self.assertEqual(packages[0], packages[1])

    def test_output_replaces_the_old_one_whole_and_keeps_to_the_mask(self):
        (self.out / "x.zip").write_text("old")
        self.jxpack("-o", "x.zip", umask=0o027)
        self.assertTrue(zipfile.is_zipfile(self.out / "x.zip"))
        self.assertEqual((self.out / "x.zip").stat().st_mode & 0o777, 0o640)
        self.assertEqual(os.listdir(self.out), ["x.zip"])

    def test_what_shrinks_too_much_is_stored_and_installs(self):
        (self.folder / "zeros").write_bytes(bytes(17 << 20))
        self.assertEqual(self.jxpack("-o", self.source / "upload-0.zip").returncode, 0)
        self.assertIn("Installed hello 1.0.0\n", self.run_installer(code=0))

    def test_names_versions_and_descriptions_against_the_rules(self):
        self.assert_refused("the name must match [a-z0-9][a-z0-9._-]{0,63}", name="Hello")
        self.assert_refused("the version must match [0-9A-Za-z][0-9A-Za-z.+~-]{0,63}", version="1_0")
        result = self.jxpack("--description", "a\nb")
        self.assertEqual((result.returncode, result.stderr), (1, "jxpack: the description has a control character\n"))
        result = subprocess.run([JXPACK, "--name", "a", "--version", "1", "--description", b"\xff", self.folder],
                                capture_output=True, cwd=self.out, check=False)
        self.assertEqual((result.returncode, result.stderr), (1, b"jxpack: the description is not UTF-8\n"))

    def test_files_that_the_installer_would_refuse(self):
        def case(make, path, message):
            shutil.copytree(self.folder, self.root / "case", symlinks=True)
            make(self.root / "case" / path)
            self.assert_refused(f"{self.root}/case/{path}: {message}", folder=self.root / "case")
            shutil.rmtree(self.root / "case")

        case(lambda p: p.symlink_to("text"), "link", "is a link")
        case(os.mkfifo, "pipe", "is neither a file nor a directory")
        case(lambda p: p.mkdir(), "empty/", "the directory is empty; the installer makes none without files")
        case(lambda p: p.touch(), "manifest.json", "the name is reserved")
        case(lambda p: p.touch(), "a\\b", "the path has a character that is not printable ASCII, or a backslash")
        case(lambda p: p.touch(), "ä", "the path has a character that is not printable ASCII, or a backslash")

        (self.folder / "TEXT").touch()
        self.assert_refused(f'{self.folder}: "TEXT" and "text" differ in case only')

    def test_folder_that_is_none(self):
        self.assert_refused(f"{self.root}/none/: cannot be read: No such file or directory", code=3,
                            folder=self.root / "none")

    def test_output_that_lies_among_the_files(self):
        (self.folder / "x.zip").touch()
        result = self.jxpack("-o", self.folder / "x.zip")
        self.assertEqual((result.returncode, result.stderr), (1, f"jxpack: {self.folder}/x.zip: is the output file\n"))

    def test_output_that_cannot_be_written(self):
        result = self.jxpack("-o", "/proc/x.zip")
        self.assertEqual((result.returncode, result.stderr),
                         (3, "jxpack: /proc/x.zip: cannot be written: No such file or directory\n"))

    def test_full_disk_leaves_nothing(self):
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", self.out], check=True)
        self.addCleanup(subprocess.run, ["umount", self.out], check=True)
        (self.folder / "big").write_bytes(os.urandom(1 << 20))
        result = self.jxpack()
        self.assertEqual((result.returncode, result.stderr),
                         (3, "jxpack: the package cannot be written: No space left on device\n"))
        self.assertEqual(os.listdir(self.out), [])

    def test_wrong_command_lines(self):
        for options in ([], ["--name", "a"], ["--name", "a", "--version", "1"], ["--frobnicate"],
                        ["--name", "a", "--version", "1", "--key", "k", self.folder]):
            result = subprocess.run([JXPACK, *options], capture_output=True, text=True, cwd=self.out, check=False)
            self.assertEqual(result.returncode, 2, options)
            self.assertNotEqual(result.stderr, "")
            self.assertEqual(result.stdout, "")

    def test_manual_and_help_have_the_same_options(self):
        text = subprocess.run([JXPACK, "--help"], capture_output=True, text=True, check=True).stdout
        manual = (SOURCE / "tools/jxpack/jxpack.1").read_text().replace("\\-", "-")
        options = set(re.findall(r"--[a-z]+", text))
        self.assertEqual(options, set(re.findall(r"--[a-z]+", manual)))
        self.assertIn("--description", options)


if __name__ == "__main__":
    unittest.main()
