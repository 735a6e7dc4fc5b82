"""The installer on packages made by many packers, and on bad ones."""

import io
import subprocess
import tarfile
import unittest
import zipfile

import jxtest
from jxpackages import DRIVER, LIST, InstallerCase, manifest, write_package

FILES = {"bin/hello": b"#!/bin/sh\necho hello\n", "data/text": b"text " * 1000, "empty": b""}


class Unseekable(io.RawIOBase):
    """Makes Python's zip writer put sizes after the data."""

    def __init__(self, file):
        super().__init__()
        self.file = file

    def writable(self):
        return True

    def write(self, data):
        return self.file.write(data)


class Packers(InstallerCase):
    def assert_installs(self):
        self.assertTrue(self.run_installer(code=0).endswith(
            "Warning: hello 1.0.0 is not signed\nInstalled hello 1.0.0\n" + LIST + "  hello 1.0.0\n"))
        for path, content in FILES.items():
            self.assertEqual((self.root / "apps/hello" / path).read_bytes(), content)
        self.assertEqual(list(self.source.iterdir()), [])

    def test_example_package_installs_and_runs(self):
        package = jxtest.BUILD / "examples/hello-1.0.0.zip"
        (self.source / "upload-0.zip").write_bytes(package.read_bytes())
        self.run_installer(code=0)
        result = subprocess.run([self.root / "apps/hello/bin/hello"], capture_output=True, text=True, check=True)
        self.assertEqual(result.stdout, "Hello from the terminal.\n")

    def test_python_deflated_stored_and_streamed(self):
        for compression in (zipfile.ZIP_DEFLATED, zipfile.ZIP_STORED):
            for streamed in (False, True):
                with self.subTest(compression=compression, streamed=streamed):
                    self.tearDownApplications()
                    with open(self.source / "upload-0.zip", "wb") as file:
                        write_package(Unseekable(file) if streamed else file, files=FILES, compression=compression)
                    self.assert_installs()

    def tearDownApplications(self):
        subprocess.run(["rm", "-rf", self.root / "apps"], check=True)

    def test_info_zip_recursively_from_pipe_and_stored(self):
        folder = self.root / "work"
        for path, content in FILES.items():
            (folder / path).parent.mkdir(parents=True, exist_ok=True)
            (folder / path).write_bytes(content)
        (folder / "manifest.json").write_bytes(manifest("hello", "1.0.0", FILES))
        (folder / "bin/hello").chmod(0o755)
        for options in (["-qr"], ["-q0r"], ["-qrX"], ["-qrD"]):
            with self.subTest(options=options):
                self.tearDownApplications()
                subprocess.run(["zip", *options, self.source / "upload-0.zip", "."], cwd=folder, check=True)
                self.assert_installs()
                self.assertEqual((self.root / "apps/hello/bin/hello").stat().st_mode & 0o777, 0o755)
        with self.subTest("to a pipe"):
            self.tearDownApplications()
            with open(self.source / "upload-0.zip", "wb") as file:
                subprocess.run("zip -qr - . | cat", shell=True, cwd=folder, stdout=file, check=True)
            self.assert_installs()


class BadPackages(InstallerCase):
    def error_of(self, path="upload-0.zip"):
        """Runs the installer on the one archive that waits, which must fail, change nothing and go."""
        log = self.run_installer(code=1)
        lines = log.splitlines()
        self.assertRegex(lines[0], r"^Package upload-0.zip: [0-9]+ bytes, sha256 [0-9a-f]{64}$")
        self.assertEqual(lines[2:], ["List of installed applications:", "  (none)"], log)
        self.assertEqual(self.tree(), {})
        self.assertEqual(list(self.source.iterdir()), [])
        self.assertEqual([p.name for p in self.root.iterdir() if p.name not in ("apps", "source")], [])
        self.assertTrue(lines[1].startswith(f"Error: {path}: "), lines[1])
        return lines[1].removeprefix(f"Error: {path}: ")

    def test_bomb_of_one_file(self):
        size = write_package(self.source / "upload-0.zip", files={"zeros": bytes(64 << 20)}).stat().st_size
        self.assertRegex(self.error_of(), rf"^unpacks to 671\d+ bytes, more than 200 times its {size}$")

    def test_bomb_that_lies_about_its_size(self):
        path = write_package(self.source / "upload-0.zip", files={"zeros": bytes(1 << 20)})
        data = path.read_bytes().replace((1 << 20).to_bytes(4, "little"), (1000).to_bytes(4, "little"))
        path.write_bytes(data)
        self.assertRegex(self.error_of(), r'^"zeros": (unpacks to|cannot be unpacked)')

    def test_too_many_entries(self):
        write_package(self.source / "upload-0.zip", files={f"f{i}": b"" for i in range(10000)})
        self.assertEqual(self.error_of(), "has 10001 entries, at most 10000 are allowed")

    def test_most_entries_that_are_allowed_install(self):
        write_package(self.source / "upload-0.zip", files={f"f{i}": b"" for i in range(1000)})
        self.run_installer(code=0)
        self.assertEqual(len(self.tree("apps/hello")), 1001)

    def test_every_kind_of_escape(self):
        for name in ("../out", "/out", "a/../../out", "a\\..\\out", "..", "a/./b", "a//b"):
            with self.subTest(name=name):
                with zipfile.ZipFile(self.source / "upload-0.zip", "w") as archive:
                    archive.writestr("manifest.json", manifest("hello", "1", {name: b"x"}))
                    archive.writestr(zipfile.ZipInfo(name), b"x")
                self.assertIn("the name", self.error_of())

    def test_link_that_a_later_entry_goes_through(self):
        link = zipfile.ZipInfo("dir")
        link.create_system = 3
        link.external_attr = 0o120777 << 16
        with zipfile.ZipFile(self.source / "upload-0.zip", "w") as archive:
            archive.writestr("manifest.json", manifest("hello", "1", {"dir": b"/tmp", "dir/x": b"x"}))
            archive.writestr(link, "/tmp")
            archive.writestr("dir/x", b"x")
        self.assertEqual(self.error_of(), '"dir": is a link')

    def test_other_archives(self):
        stream = io.BytesIO()
        with tarfile.open(fileobj=stream, mode="w:gz") as archive:
            archive.addfile(tarfile.TarInfo("manifest.json"))
        for data in (stream.getvalue(), b"7z\xbc\xaf\x27\x1c" + bytes(100), b"Rar!\x1a\x07\x00" + bytes(100)):
            (self.source / "upload-0.zip").write_bytes(data)
            self.assertEqual(self.error_of(), "is not a zip archive")

    def test_self_extracting_prefix_and_suffix(self):
        package = write_package(self.root / "package.zip").read_bytes()
        (self.root / "package.zip").unlink()
        (self.source / "upload-0.zip").write_bytes(b"#!/bin/sh\n" + package)
        self.assertIn("the central directory is not where the end record says", self.error_of())
        (self.source / "upload-0.zip").write_bytes(package + b"\0")
        self.assertEqual(self.error_of(), "is cut off, or has bytes after its end")


class Versions(InstallerCase):
    def test_order_of_versions_is_dpkgs(self):
        (self.root / "terminal.json").write_text('{"signatures":"off"}')
        versions = ("0.9", "1.0~rc1", "1.0~rc1-1", "1.0", "1.00", "1.0-0", "1.0-1", "1.0-rc1", "1.0+git1", "1.0a", "1.0.0", "1.9",
                    "1.10", "2024a")
        for installed in versions:
            for version in versions:
                for name in (installed, version):
                    write_package(self.source / "upload-0.zip", version=name, files={})
                    log = self.run_installer(code=0)
                older = subprocess.run(["dpkg", "--compare-versions", version, "lt", installed], check=False).returncode == 0
                self.assertEqual(f"Warning: hello {version} is older than the installed {installed}\n" in log, older,
                                 (installed, version))


class Together(InstallerCase):
    def test_two_installers_at_once_install_everything_once(self):
        for number in range(20):
            write_package(self.source / f"upload-{number}.zip", name=f"app{number}")
        both = [subprocess.Popen([DRIVER], env=self.env, stdout=subprocess.PIPE, text=True) for _ in range(2)]
        logs = [process.communicate(timeout=120)[0] for process in both]
        self.assertEqual([process.returncode for process in both], [0, 0], logs)
        installed = [line for log in logs for line in log.splitlines() if line.startswith("Installed ")]
        self.assertEqual(sorted(installed), sorted(f"Installed app{number} 1.0.0" for number in range(20)))
        self.assertEqual(len([name for name in self.tree() if "/" not in name]), 20)


class Certificates(InstallerCase):
    def test_tar_lists_and_unpacks_the_archive(self):
        (self.root / "certs").mkdir()
        text = "-----BEGIN CERTIFICATE-----\nMA==\n-----END CERTIFICATE-----\n"
        for name in ("b.pem", "a.pem"):
            (self.root / "certs" / name).write_text(text)
        archive = subprocess.run([DRIVER, "--certificates"], env=self.env, capture_output=True, check=True).stdout
        listing = subprocess.run(["tar", "t"], input=archive, capture_output=True, check=True).stdout
        self.assertEqual(listing, b"a.pem\nb.pem\n")
        subprocess.run(["tar", "x", "-C", self.root], input=archive, check=True)
        self.assertEqual((self.root / "a.pem").read_text(), text)


if __name__ == "__main__":
    unittest.main()
