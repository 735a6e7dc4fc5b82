"""jxpack at the command line."""

import hashlib
import json
import os
import re
import shutil
import subprocess
import unittest
import zipfile

from jxpackages import JXPACK, LIST, InstallerCase, write_package
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
        return self.run_jxpack("--name", name, "--version", version, *options, folder or self.folder, **kwargs)

    def run_jxpack(self, *arguments, **kwargs):
        return subprocess.run([JXPACK, *arguments], capture_output=True, text=True, cwd=self.out, timeout=120, check=False,
                              **kwargs)

    def packed(self, *arguments, code=0):
        """Packs the folder with the arguments alone; the names in the package and what was said of what is not in it."""
        result = self.run_jxpack(*arguments, "--force", "-o", "x.zip", self.folder)
        self.assertEqual(result.returncode, code, result.stderr)
        with zipfile.ZipFile(self.out / "x.zip") as archive:
            return set(archive.namelist()) - {"manifest.json"}, result.stderr

    def assert_refused(self, message, code=1, options=(), **kwargs):
        result = self.jxpack(*options, **kwargs)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (code, "", f"jxpack: {message}\n"))
        self.assertEqual(os.listdir(self.out), [])

    def test_package_is_named_after_the_application_and_installs(self):
        result = self.jxpack("--description", "Grüße")
        package = (self.out / "hello-1.0.0.zip").read_bytes()
        told = f"hello-1.0.0.zip: 2 files, {len(package)} bytes, sha256 {hashlib.sha256(package).hexdigest()}\n"
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, told, ""))
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
            self.jxpack("--force", folder=copy, env=dict(self.env, TZ=zone), umask=mask)
            packages.append((self.out / "hello-1.0.0.zip").read_bytes())
        self.assertEqual(packages[0], packages[1])

    def test_output_replaces_an_old_one_by_force_alone_whole_and_keeps_to_the_mask(self):
        (self.out / "x.zip").write_text("old")
        result = self.jxpack("-o", "x.zip")
        self.assertEqual((result.returncode, result.stdout, result.stderr),
                         (3, "", "jxpack: x.zip: is there already; --force replaces it\n"))
        self.assertEqual((self.out / "x.zip").read_text(), "old")
        self.jxpack("--force", "-o", "x.zip", umask=0o027)
        self.assertTrue(zipfile.is_zipfile(self.out / "x.zip"))
        self.assertEqual((self.out / "x.zip").stat().st_mode & 0o777, 0o640)
        self.assertEqual(os.listdir(self.out), ["x.zip"])

    def test_what_shrinks_too_much_is_stored_and_installs(self):
        (self.folder / "zeros").write_bytes(bytes(17 << 20))
        result = self.jxpack("-o", self.source / "upload-0.zip")
        self.assertEqual(result.returncode, 0)
        package = (self.source / "upload-0.zip").read_bytes()
        self.assertIn(f" {len(package)} bytes, sha256 {hashlib.sha256(package).hexdigest()}\n", result.stdout)
        self.assertIn("Installed hello 1.0.0\n", self.run_installer(code=0))

    def test_names_versions_and_descriptions_against_the_rules(self):
        self.assert_refused('manifest.json: the name "Hello" is not [a-z0-9][a-z0-9._-]{0,63}', name="Hello")
        self.assert_refused('manifest.json: the version "1_0" is not [0-9A-Za-z][0-9A-Za-z.+~-]{0,63}', version="1_0")
        result = self.jxpack("--description", "a\nb")
        self.assertEqual((result.returncode, result.stderr), (1, 'jxpack: manifest.json: "description" has a control character\n'))
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
        case(lambda p: p.touch(), "a\\b", "the name has a backslash")
        case(lambda p: p.touch(), "ä", "the name has a character that is not printable ASCII")

        (self.folder / "TEXT").touch()
        self.assert_refused(f'{self.folder}: "text": the name differs from "TEXT" in case only')

    def test_folder_that_is_none(self):
        self.assert_refused(f"{self.root}/none/: cannot be read: No such file or directory", code=3,
                            folder=self.root / "none")

    def test_package_below_its_own_folder_is_left_out(self):
        for expected in ("", "jxpack: left out x.zip (the package itself)\n"):
            result = self.jxpack("--force", "-o", self.folder / "x.zip")
            self.assertEqual((result.returncode, result.stderr), (0, expected))
        with zipfile.ZipFile(self.folder / "x.zip") as archive:
            self.assertNotIn("x.zip", archive.namelist())

    def test_what_no_application_needs_is_left_out_and_told(self):
        (self.folder / ".git/objects").mkdir(parents=True)
        (self.folder / ".git/objects/link").symlink_to("nowhere")
        (self.folder / "bin/run~").touch()
        (self.folder / "notes").mkdir()
        (self.folder / "notes/.DS_Store").touch()
        names, told = self.packed("--name", "hello", "--version", "1")
        self.assertEqual(names, {"bin/run", "text"})
        self.assertEqual(told, "jxpack: left out .git/ (version control)\njxpack: left out bin/run~ (an editor's backup)\n"
                               "jxpack: left out notes/.DS_Store (a desktop's file)\n")

    def test_folder_tells_its_own_package(self):
        (self.folder / "jxpackage.json").write_text(
            '{"name": "mine", "version": "0.1", "description": "Mine", "exclude": ["*.o", "doc/"]}')
        (self.folder / ".jxignore").write_text("# kept back\n*.zip\n!keep.o\n")
        (self.folder / "doc").mkdir()
        for path in ("a.o", "keep.o", "doc/text", "old.zip"):
            (self.folder / path).touch()
        result = subprocess.run([JXPACK, "--exclude", "text", "."], capture_output=True, text=True, cwd=self.folder, check=False)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, "".join(f"jxpack: left out {line}\n" for line in (
            ".jxignore (jxpack's own file)", "a.o (jxpackage.json: *.o)", "doc/ (jxpackage.json: doc/)",
            "jxpackage.json (jxpack's own file)", "old.zip (.jxignore: *.zip)", "text (--exclude: text)")))
        with zipfile.ZipFile(self.folder / "mine-0.1.zip") as archive:
            facts = json.loads(archive.read("manifest.json"))
            self.assertEqual(set(archive.namelist()), {"manifest.json", "bin/run", "keep.o"})
        self.assertEqual((facts["name"], facts["version"], facts["description"]), ("mine", "0.1", "Mine"))
        # The command line has the last word.
        result = subprocess.run([JXPACK, "--version", "2", "."], capture_output=True, text=True, cwd=self.folder, check=False)
        self.assertIn("mine-2.zip: ", result.stdout)

    def test_nothing_left_to_pack(self):
        self.assert_refused(f"{self.folder}: nothing is left to be packed", options=["--exclude", "*"])

    def test_malformed_words_of_the_folder(self):
        path = self.folder / "jxpackage.json"
        for text, why in (("{", "is not a JSON object"), ("[]", "is not a JSON object"),
                          ('{"nme": "a"}', '"nme" is not known; name, version, description and exclude are'),
                          ('{"version": 1}', '"version" is not a string'),
                          ('{"exclude": "*.o"}', '"exclude" is not a list of patterns'),
                          ('{"exclude": [1]}', '"exclude" has something that is not a string')):
            path.write_text(text)
            self.assert_refused(f"{path}: {why}", code=2)
        path.write_text('{"exclude": [""]}')
        self.assert_refused('jxpackage.json: the pattern "" is empty', code=2)
        path.unlink()
        path.mkdir()
        self.assert_refused(f"{path}: cannot be read: Is a directory", code=3)

    def test_private_keys_stay_at_home_unless_told(self):
        for form in ("PEM", "DER"):
            subprocess.run(["openssl", "genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-outform", form,
                            "-out", self.folder / "key"], check=True, capture_output=True)
            self.assert_refused(f"{self.folder}/key: holds a private key, which everyone with the package could read; "
                                "--allow-private-keys packs it")
        self.assertIn("key", self.packed("--name", "a", "--version", "1", "--allow-private-keys")[0])

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

    def test_removal_is_a_package_that_removes(self):
        self.jxpack("-o", self.source / "upload-0.zip")
        self.run_installer(code=0)
        result = self.run_jxpack("--remove", "hello")
        package = (self.out / "hello-remove.zip").read_bytes()
        told = f"hello-remove.zip: removes hello, {len(package)} bytes, sha256 {hashlib.sha256(package).hexdigest()}\n"
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, told, ""))
        shutil.copy(self.out / "hello-remove.zip", self.source / "upload-0.zip")
        self.assertIn("Removed hello\n" + LIST + "  (none)\n", self.run_installer(code=0))
        self.assertEqual(self.tree(), {})
        self.assertEqual(self.run_jxpack("--remove", "hello").returncode, 3)
        self.assertEqual(self.run_jxpack("--remove", "Hello").returncode, 1)
        for other in (["--name", "a"], ["--version", "1"], ["--exclude", "x"], ["--allow-private-keys"], [self.folder]):
            self.assertEqual(self.run_jxpack("--remove", "hello", "--force", *other).returncode, 2, other)

    def test_package_is_shown(self):
        self.jxpack("--description", "Says hello")
        result = self.run_jxpack("show", "hello-1.0.0.zip")
        package = (self.out / "hello-1.0.0.zip").read_bytes()
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(result.stdout.splitlines(), [
            f"hello-1.0.0.zip: {len(package)} bytes, sha256 {hashlib.sha256(package).hexdigest()}", "name: hello", "version: 1.0.0",
            "description: Says hello", "signature: no", "         10 x bin/run", "          5 - text"])
        self.run_jxpack("--remove", "hello")
        self.assertEqual(self.run_jxpack("show", "hello-remove.zip").stdout.splitlines()[1:],
                         ["name: hello", "removes: yes", "signature: no"])

    def test_package_is_verified_in_the_installers_words(self):
        self.jxpack()
        result = self.run_jxpack("verify", "hello-1.0.0.zip")
        self.assertEqual((result.returncode, result.stdout), (0, "hello-1.0.0.zip: hello 1.0.0, good, not signed\n"))
        write_package(self.out / "bad.zip", files={"a": b"a"}, extra={"b": b"b"})
        changed = write_package(self.out / "changed.zip", files={"a": b"right"}, compression=zipfile.ZIP_STORED)
        with zipfile.ZipFile(changed) as archive:
            manifest = archive.read("manifest.json")
        with zipfile.ZipFile(changed, "w") as archive:
            archive.writestr("manifest.json", manifest)
            archive.writestr("a", b"wrong")
        (self.out / "junk.zip").write_bytes(b"junk")
        for name, why in (("bad.zip", '"b": is not listed in manifest.json'), ("junk.zip", "is not a zip archive"),
                          ("changed.zip", '"a": does not match its digest in manifest.json')):
            for command in ("verify", "show"):
                result = self.run_jxpack(command, name)
                self.assertEqual((result.returncode, result.stdout, result.stderr), (1, "", f"jxpack: {name}: {why}\n"))
            shutil.copy(self.out / name, self.source / "upload-0.zip")
            self.assertIn(f"Error: upload-0.zip: {why}\n", self.run_installer(code=1))
        for name, why in (("none", "No such file or directory"), (".", "is not a file")):
            result = self.run_jxpack("verify", name)
            self.assertEqual((result.returncode, result.stderr), (3, f"jxpack: {name}: {why}\n"))
        self.assertEqual(self.run_jxpack("verify").returncode, 2)
        self.assertEqual(self.run_jxpack("show", "--certs", ".", "hello-1.0.0.zip").returncode, 2)

    def test_what_is_missing_is_told(self):
        for arguments, option in ((["--version", "1"], "--name"), (["--name", "a"], "--version")):
            result = self.run_jxpack(*arguments, self.folder)
            self.assertEqual((result.returncode, result.stderr),
                             (2, f"jxpack: {option} is required, here or in jxpackage.json in the folder\n"))

    def test_version_of_jxpack_is_not_the_packages(self):
        result = self.run_jxpack("--tool-version")
        self.assertEqual(result.returncode, 0)
        self.assertRegex(result.stdout, r"^jxpack \d+\.\d+\.\d+\n$")

    def test_manual_and_help_have_the_same_options(self):
        text = subprocess.run([JXPACK, "--help"], capture_output=True, text=True, check=True).stdout
        manual = (SOURCE / "tools/jxpack/jxpack.1").read_text().replace("\\-", "-")
        options = set(re.findall(r"--[a-z]+", text))
        self.assertEqual(options, set(re.findall(r"--[a-z]+", manual)))
        self.assertIn("--description", options)


if __name__ == "__main__":
    unittest.main()
