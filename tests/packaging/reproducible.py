"""A second build of the same sources, in a folder of another name, gives the same files to the last byte."""

import filecmp
import os
import pathlib
import shutil
import subprocess
import sys
import tarfile
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "system"))
import jxtest


def run(*command, **kwargs):
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **kwargs)
    if done.returncode != 0:
        raise AssertionError(f"{command}:\n{done.stdout[-4000:]}")
    return done.stdout


def content(package):
    """The package's files: name -> (kind, mode, owner, time, content or target)."""
    with subprocess.Popen(["dpkg-deb", "--fsys-tarfile", package], stdout=subprocess.PIPE) as unpacked, \
            tarfile.open(fileobj=unpacked.stdout, mode="r|") as archive:
        return {entry.name: (entry.type, entry.mode, entry.uname, entry.mtime, entry.linkname,
                             archive.extractfile(entry).read() if entry.isfile() else None) for entry in archive}


def differing(one, other):
    """The files below two folders that only one of them has or that differ."""
    def files(top):
        return {path.relative_to(top) for path in top.rglob("*") if path.is_symlink() or path.is_file()}
    return sorted(str(path) for path in files(one) ^ files(other)) + [
        str(path) for path in sorted(files(one) & files(other)) if not filecmp.cmp(one / path, other / path, shallow=False)]


class ReproducibleTest(unittest.TestCase):
    def setUp(self):
        self.place = pathlib.Path(tempfile.mkdtemp(prefix="jxsecond-"))
        self.addCleanup(shutil.rmtree, self.place)
        self.packages = sorted((jxtest.BUILD / "packages").glob("*.deb"))
        self.assertEqual({package.name.split("_")[0] for package in self.packages}, {"jxdownloader", "jxdownloader-tools"})

    def copy_sources(self):
        """The sources alone, under another path."""
        sources = self.place / "another folder with a longer name"
        ignored = shutil.ignore_patterns(".git", "build", "node_modules", "__pycache__")
        shutil.copytree(jxtest.SOURCE, sources, symlinks=True, ignore=ignored)
        return sources

    def build_packages(self, sources):
        # What stands before the compiler could hand back what the first build made.
        environment = {name: value for name, value in os.environ.items() if "COMPILER_LAUNCHER" not in name}
        moment = {entry[3] for entry in content(self.packages[0]).values()}
        self.assertEqual(len(moment), 1, "every file bears the release's time")
        environment["SOURCE_DATE_EPOCH"] = str(moment.pop())
        run("cmake", "--preset", "release", "-DJX_TESTS=OFF", cwd=sources, env=environment)
        run("cmake", "--build", "--preset", "release", cwd=sources, env=environment)
        run("cpack", cwd=sources / "build/release", env=environment)
        return sources / "build/release"

    def installed(self, build, name):
        run("cmake", "--install", build, "--prefix", "/usr", env={**os.environ, "DESTDIR": str(self.place / name)})
        return self.place / name

    def test_second_build_elsewhere_gives_the_same_files(self):
        build = self.build_packages(self.copy_sources())
        first, second = self.installed(jxtest.BUILD, "first"), self.installed(build, "second")
        self.assertTrue((first / "usr/bin/jxdownloader").is_file())
        self.assertEqual(differing(first, second), [])
        for package in self.packages:
            with self.subTest(package.name):
                one, other = content(package), content(build / "packages" / package.name)
                self.assertEqual([name for name in sorted({*one, *other}) if one.get(name) != other.get(name)], [])
                self.assertTrue(filecmp.cmp(package, build / "packages" / package.name, shallow=False))

    def test_difference_is_noticed(self):
        for name, text in (("one", "a"), ("other", "b")):
            (self.place / name).mkdir()
            (self.place / name / "same").write_text("same")
            (self.place / name / "file").write_text(text)
        (self.place / "one/alone").write_text("")
        self.assertEqual(differing(self.place / "one", self.place / "other"), ["alone", "file"])


if __name__ == "__main__":
    unittest.main()
