"""The installer on full, read-only and failing disks."""

import shutil
import subprocess
import unittest

from jxpackages import LIST, InstallerCase, write_package, write_removal

OLD = {"bin/hello": b"old program", "old/only": b"old"}
NEW = {"bin/hello": b"new program" * 20000, "new/only": b"new"}


class FullDisk(InstallerCase):
    def mount(self, options):
        apps = self.root / "apps"
        apps.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", apps], check=True)
        self.addCleanup(subprocess.run, ["umount", apps], check=True)

    def test_too_few_bytes_are_told_with_the_numbers(self):
        self.mount("size=256k")
        write_package(self.source / "upload-0.zip", version="1", files=OLD)
        self.run_installer(code=0)
        before = self.tree()
        write_package(self.source / "upload-0.zip", version="2", files={"big": bytes(range(256)) * 4096})
        log = self.run_installer(code=1)
        self.assertRegex(log, r"\nError: upload-0.zip: needs 1\d{6} bytes on the disk, \d{5,6} are free\n" + LIST)
        self.assertEqual(self.tree(), before)
        self.assertEqual(list(self.source.iterdir()), [])

    def test_too_few_file_entries_are_told_with_the_numbers(self):
        self.mount("size=4m,nr_inodes=10")
        write_package(self.source / "upload-0.zip", files={f"f{number}": b"x" for number in range(20)})
        log = self.run_installer(code=1)
        self.assertRegex(log, r"\nError: upload-0.zip: needs 22 file entries on the disk, \d are free\n" + LIST)
        self.assertEqual(self.tree(), {})


class FaultCase(InstallerCase):
    """Makes the system refuse one call after the other, and looks that nothing half done stays."""

    def setUp(self):
        super().setUp()
        write_package(self.source / "upload-0.zip", version="1", files=OLD)
        self.run_installer(code=0)
        self.before = self.tree()

    def run_with(self, fault, path=None, code=None):
        """Runs the installer with a fault in the notation of strace, in calls on one path only where that is given."""
        prefix = ["strace", "-f", "-qq", "-o", "/dev/null", "-e", f"inject={fault}"]
        return self.run_installer(prefix=prefix + (["-P", path] if path else []), code=code)

    def refused(self, fault, path=None):
        log = self.run_with(fault, path, code=1)
        self.assertEqual(self.tree(), self.before, log)
        self.assertTrue(log.endswith(LIST + "  hello 1\n"), log)
        return next(line for line in log.splitlines() if line.startswith("Error: "))


class FailingInstallation(FaultCase):
    def setUp(self):
        super().setUp()
        write_package(self.source / "upload-0.zip", version="2", files=NEW)

    def test_disk_that_fills_while_it_is_written(self):
        self.assertRegex(self.refused(f"write:error=ENOSPC:when={self.first_file_write()}"),
                         r'^Error: upload-0.zip: "bin/hello": cannot be written after \d+ of 220000 bytes: '
                         r"No space left on device$")

    def first_file_write(self):
        """Which write of the process is the first into a file of the application."""
        trace = self.root / "trace"
        shutil.copy(self.source / "upload-0.zip", self.root / "kept.zip")
        self.run_installer(prefix=["strace", "-f", "-qq", "-o", trace, "-e", "trace=write", "-e", "decode-fds=path"])
        lines = trace.read_text().splitlines()
        number = next(n for n, line in enumerate(lines, 1) if "/apps/.new-hello/bin/hello" in line)
        subprocess.run(["rm", "-rf", self.root / "apps"], check=True)
        write_package(self.source / "upload-0.zip", version="1", files=OLD)
        self.run_installer(code=0)
        (self.root / "kept.zip").rename(self.source / "upload-0.zip")
        return number

    def test_directory_that_cannot_be_made(self):
        self.assertEqual(self.refused("mkdirat:error=ENOSPC:when=1"),
                         "Error: upload-0.zip: the application's folder cannot be created: No space left on device")

    def test_file_that_cannot_be_brought_to_the_disk(self):
        self.assertRegex(self.refused("fsync:error=EIO:when=1"),
                         r'^Error: upload-0.zip: ".*": cannot be brought to the disk: Input/output error$')

    def test_archive_that_cannot_be_read(self):
        archive = self.source / "upload-0.zip"
        kept = archive.read_bytes()
        self.assertEqual(self.refused("pread64:error=EIO:when=1", archive),
                         "Error: upload-0.zip: cannot be read at byte 0: Input/output error")
        # The digest takes one read of an archive this small; those after it are of the index.
        archive.write_bytes(kept)
        self.assertRegex(self.refused("pread64:error=EIO:when=2", archive),
                         r"^Error: upload-0.zip: cannot be read at byte \d+: Input/output error$")
        archive.write_bytes(kept)
        self.assertRegex(self.refused("read:error=EIO", archive),
                         r'^Error: upload-0.zip: .*cannot be unpacked: ".*"$')

    def test_exchange_that_fails(self):
        self.assertEqual(self.refused("renameat2:error=EIO"),
                         "Error: upload-0.zip: the application cannot be put in its place: Input/output error")

    def test_exchange_that_the_file_system_lacks_is_done_by_two_renames(self):
        for error in ("EINVAL", "ENOSYS"):
            write_package(self.source / "upload-0.zip", version="2", files=NEW)
            self.assertIn(LIST + "  hello 2\n", self.run_with(f"renameat2:error={error}", code=0))

    def test_interrupted_calls_are_taken_up_again(self):
        log = self.run_with("fsync:error=EINTR:when=1+2", code=0)
        self.assertIn("Updated hello 1 -> 2\n", log)

    def test_old_application_that_cannot_be_removed_is_swept_later(self):
        log = self.run_with("unlinkat:error=EBUSY:when=2+", code=1)
        self.assertIn("Updated hello 1 -> 2\n", log)
        self.assertIn("Error: upload-0.zip: the archive cannot be removed: Device or resource busy\n", log)
        (self.source / "upload-0.zip").unlink()
        self.run_installer(code=0)
        self.assertEqual({path.split("/")[0] for path in self.tree()}, {"hello"})
        self.assertEqual(self.tree()["hello/new/only"][0], b"new")


class FailingRemoval(FaultCase):
    def setUp(self):
        super().setUp()
        write_removal(self.source / "upload-0.zip")

    def test_application_that_cannot_be_taken_away_stays_whole(self):
        for fault in ("renameat:error=EIO:when=1", "fsync:error=EIO:when=1"):
            with self.subTest(fault):
                write_removal(self.source / "upload-0.zip")
                self.assertEqual(self.refused(fault), "Error: upload-0.zip: the application cannot be taken from its place: "
                                                      "Input/output error")

    def test_files_that_cannot_be_removed_are_swept_later(self):
        log = self.run_with("unlinkat:error=EBUSY:when=2+", code=1)
        self.assertIn("Removed hello\n", log)
        self.assertTrue(log.endswith(LIST + "  (none)\n"), log)
        self.assertTrue(self.tree())
        (self.source / "upload-0.zip").unlink()
        self.run_installer(code=0)
        self.assertEqual(self.tree(), {})


class ReadOnly(InstallerCase):
    def make_read_only(self, folder):
        subprocess.run(["mount", "--bind", folder, folder], check=True)
        self.addCleanup(subprocess.run, ["umount", folder], check=True)
        subprocess.run(["mount", "-o", "remount,bind,ro", folder], check=True)

    def test_source_directory(self):
        write_package(self.source / "upload-0.zip")
        self.make_read_only(self.source)
        log = self.run_installer(code=1)
        self.assertIn("Installed hello 1.0.0\n"
                      "Error: upload-0.zip: the archive cannot be removed: Read-only file system\n" + LIST, log)
        self.assertTrue((self.source / "upload-0.zip").exists())

    def test_applications(self):
        write_package(self.source / "upload-0.zip")
        (self.root / "apps").mkdir()
        self.make_read_only(self.root / "apps")
        self.assertIn("Error: upload-0.zip: the application's folder cannot be created: Read-only file system\n" + LIST,
                      self.run_installer(code=1))


if __name__ == "__main__":
    unittest.main()
