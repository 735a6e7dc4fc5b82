"""Application packages made by other means than the project's own tools, and runs of the installer on them."""

import hashlib
import json
import subprocess
import zipfile

import jxtest

DRIVER = jxtest.BIN / "jxinstall_driver"
JXPACK = jxtest.BIN / "jxpack"
LIST = "List of installed applications:\n"


def manifest(name, version, files):
    return json.dumps({"name": name, "version": version, "description": "A test",
                       "files": {path: hashlib.sha256(content).hexdigest() for path, content in files.items()}}).encode()


def write_package(path, name="hello", version="1.0.0", files=None, compression=zipfile.ZIP_DEFLATED, extra=None):
    """Writes a package with Python's zip writer; `extra` are entries beside the listed files."""
    files = {"bin/hello": b"#!/bin/sh\necho hello\n", "data/text": b"text " * 1000} if files is None else files
    with zipfile.ZipFile(path, "w", compression) as archive:
        archive.writestr("manifest.json", manifest(name, version, files))
        for file, content in files.items():
            archive.writestr(file, content)
        for file, content in (extra or {}).items():
            archive.writestr(file, content)
    return path


def write_removal(path, name="hello"):
    """Writes a package that removes an application."""
    with zipfile.ZipFile(path, "w") as archive:
        archive.writestr("manifest.json", json.dumps({"name": name, "remove": True}))
    return path


class InstallerCase(jxtest.Case):
    def setUp(self):
        super().setUp()
        self.source = self.root / "source"
        self.source.mkdir()
        self.instruct_sanitizer("detect_leaks=0")  # which cannot work under a tracer

    def run_installer(self, *options, prefix=(), code=None):
        """Runs the installer and returns its log."""
        result = subprocess.run([*map(str, prefix), str(DRIVER), *options], env=self.env, capture_output=True, text=True,
                                timeout=120)
        self.assertIn(result.returncode, (0, 1) if code is None else (code,), result.stdout + result.stderr)
        return result.stdout

    def tree(self, folder="apps"):
        """Everything below a folder of the root: path -> content and mode of a file, None for a directory."""
        base = self.root / folder
        return {str(path.relative_to(base)): None if path.is_dir() else (path.read_bytes(), path.stat().st_mode)
                for path in base.rglob("*")}
