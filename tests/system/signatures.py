"""Signed packages: made by jxpack and by OpenSSL's command line, checked by the installer and by OpenSSL's command line."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest
import zipfile

from jxpackages import JXPACK, LIST, InstallerCase


def openssl(*args, **kwargs):
    kwargs.setdefault("check", True)
    return subprocess.run(["openssl", *map(str, args)], capture_output=True, timeout=60, **kwargs)


class Signatures(InstallerCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.keys = pathlib.Path(tempfile.mkdtemp(prefix="jxkeys-"))
        cls.addClassCleanup(shutil.rmtree, cls.keys)
        for name in ("root", "stranger"):
            openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", f"/CN={name}",
                    "-keyout", cls.keys / f"{name}.key", "-out", cls.keys / f"{name}.pem")
        cls.issue("signer", "root")
        cls.issue("foreign", "stranger")
        cls.issue("expired", "root", ("-startdate", "20200101000000Z", "-enddate", "20200102000000Z"))
        cls.issue("early", "root", ("-startdate", "20980101000000Z", "-enddate", "20990101000000Z"))

    @classmethod
    def issue(cls, name, issuer, dates=("-days", "1")):
        """A key and a certificate, by OpenSSL's small authority, which can set any dates."""
        authority = cls.keys / f"{name}-authority"
        authority.mkdir()
        (authority / "index").touch()
        (authority / "config").write_text(
            f"[ca]\ndefault_ca=a\n[a]\ndatabase={authority}/index\nnew_certs_dir={authority}\nrand_serial=yes\n"
            "default_md=sha256\npolicy=p\nx509_extensions=e\n[p]\ncommonName=supplied\n[e]\nbasicConstraints=CA:FALSE\n")
        openssl("req", "-new", "-newkey", "rsa:2048", "-nodes", "-subj", f"/CN={name}", "-keyout",
                cls.keys / f"{name}.key", "-out", authority / "request")
        openssl("ca", "-batch", "-notext", "-config", authority / "config", "-cert", cls.keys / f"{issuer}.pem",
                "-keyfile", cls.keys / f"{issuer}.key", "-in", authority / "request", "-out", cls.keys / f"{name}.pem",
                *dates)

    @classmethod
    def authority(cls, name, issuer, *options):
        """Asks the small authority that issued a certificate."""
        return openssl("ca", "-config", cls.keys / f"{name}-authority/config", "-cert", cls.keys / f"{issuer}.pem", "-keyfile",
                       cls.keys / f"{issuer}.key", *options)

    def setUp(self):
        super().setUp()
        (self.root / "certs").mkdir()
        shutil.copy(self.keys / "root.pem", self.root / "certs")
        self.folder = self.root / "work"
        (self.folder / "bin").mkdir(parents=True)
        (self.folder / "bin/hello").write_text("#!/bin/sh\n")

    def pack(self, *options):
        """An archive's entries: name -> content."""
        path = self.root / "package.zip"
        subprocess.run([JXPACK, "--name", "hello", "--version", "1.0.0", "--force", *options, "-o", path, self.folder], check=True,
                       capture_output=True, env=self.env)
        with zipfile.ZipFile(path) as archive:
            return {name: archive.read(name) for name in archive.namelist()}

    def sign_by_openssl(self, manifest, signer):
        return openssl("cms", "-sign", "-binary", "-outform", "DER", "-signer", self.keys / f"{signer}.pem", "-inkey",
                       self.keys / f"{signer}.key", input=manifest).stdout

    def install(self, entries, policy, code):
        (self.root / "terminal.json").write_text('{"signatures":"%s"}' % policy)
        shutil.rmtree(self.root / "apps", ignore_errors=True)
        with zipfile.ZipFile(self.source / "upload-0.zip", "w") as archive:
            for name, content in entries.items():
                archive.writestr(name, content)
        return self.run_installer(code=code).splitlines()[1:-2]

    def options(self, signer):
        return "--key", self.keys / f"{signer}.key", "--cert", self.keys / f"{signer}.pem"

    def test_by_jxpack_is_accepted_by_the_installer_and_by_openssl(self):
        entries = self.pack(*self.options("signer"))
        self.assertEqual(list(entries), ["manifest.json", "manifest.json.p7s", "bin/hello"])
        for policy in ("off", "warn", "required"):
            self.assertEqual(self.install(entries, policy, 0), ["Installed hello 1.0.0"])
        signature = self.root / "signature"
        signature.write_bytes(entries["manifest.json.p7s"])
        manifest = self.root / "manifest"
        manifest.write_bytes(entries["manifest.json"])
        verify = ["cms", "-verify", "-binary", "-inform", "DER", "-in", signature, "-content", manifest, "-CAfile",
                  self.keys / "root.pem"]
        self.assertEqual(openssl(*verify).stdout, entries["manifest.json"])
        manifest.write_bytes(entries["manifest.json"] + b"\n")
        self.assertNotEqual(openssl(*verify, check=False).returncode, 0)

    def test_by_openssl_alone_is_accepted(self):
        entries = self.pack()
        entries["manifest.json.p7s"] = self.sign_by_openssl(entries["manifest.json"], "signer")
        self.assertEqual(self.install(entries, "required", 0), ["Installed hello 1.0.0"])

    def test_by_jxpack_at_a_fixed_time_is_the_same_each_time(self):
        self.env["SOURCE_DATE_EPOCH"] = "1700000000"
        one = self.pack(*self.options("signer"))
        self.assertEqual(self.pack(*self.options("signer")), one)
        self.assertEqual(self.install(one, "required", 0), ["Installed hello 1.0.0"])
        shown = openssl("cms", "-cmsout", "-print", "-inform", "DER", input=one["manifest.json.p7s"]).stdout
        self.assertIn(b"Nov 14 22:13:20 2023 GMT", shown)

    def test_each_fault_has_its_message_under_each_policy(self):
        entries = self.pack()
        manifest = entries["manifest.json"]
        good = self.sign_by_openssl(manifest, "signer")
        faults = {
            "is not signed": None,
            "has a signature that is not a detached CMS signature in DER": b"wrong",
            "has a signature for another manifest": self.sign_by_openssl(manifest + b" ", "signer"),
            "has a signature that does not match the signer's key": good[:-1] + bytes([good[-1] ^ 1]),
            'is signed by a certificate that does not chain to one in certs/: "CN=foreign"':
                self.sign_by_openssl(manifest, "foreign"),
            'is signed by a certificate that expired on Jan  2 00:00:00 2020 GMT: "CN=expired"':
                self.sign_by_openssl(manifest, "expired"),
            'is signed by a certificate that is not valid before Jan  1 00:00:00 2098 GMT: "CN=early"':
                self.sign_by_openssl(manifest, "early"),
        }
        for fault, signature in faults.items():
            with self.subTest(fault=fault):
                package = dict(entries) if signature is None else dict(entries, **{"manifest.json.p7s": signature})
                self.assertEqual(self.install(package, "off", 0), ["Installed hello 1.0.0"])
                self.assertEqual(self.install(package, "warn", 0),
                                 [f"Warning: hello 1.0.0 {fault}", "Installed hello 1.0.0"])
                self.assertEqual(self.install(package, "required", 1), [f"Error: upload-0.zip: hello 1.0.0 {fault}"])
                self.assertEqual(self.tree(), {})

    def test_removal_counts_when_it_is_signed(self):
        subprocess.run([JXPACK, "--remove", "hello", *self.options("signer"), "-o", self.root / "removal.zip"], check=True,
                       capture_output=True)
        with zipfile.ZipFile(self.root / "removal.zip") as archive:
            entries = {name: archive.read(name) for name in archive.namelist()}
        self.assertEqual(self.install(entries, "required", 0), ["Warning: hello is not installed, nothing was removed"])
        del entries["manifest.json.p7s"]
        self.assertEqual(self.install(entries, "required", 1), ["Error: upload-0.zip: the removal of hello is not signed"])

    def test_file_changed_under_a_good_signature(self):
        entries = self.pack(*self.options("signer"))
        entries["bin/hello"] += b"rm -rf /\n"
        self.assertEqual(self.install(entries, "required", 1),
                         ['Error: upload-0.zip: "bin/hello": does not match its digest in manifest.json'])

    def test_signature_is_verified_before_it_is_sent(self):
        for signer, code, told in (
                ("signer", 0, f"{self.root}/package.zip: hello 1.0.0, good, signature good\n"),
                ("foreign", 1, f"jxpack: {self.root}/package.zip: hello 1.0.0 is signed by a certificate that does not chain to one "
                               'in certs/: "CN=foreign"\n')):
            self.pack(*self.options(signer))
            result = subprocess.run([JXPACK, "verify", self.root / "package.zip", "--certs", self.root / "certs"],
                                    capture_output=True, text=True, check=False)
            self.assertEqual((result.returncode, result.stdout + result.stderr), (code, told))
        result = subprocess.run([JXPACK, "verify", self.root / "package.zip"], capture_output=True, text=True, check=False)
        self.assertEqual(result.stdout, f"{self.root}/package.zip: hello 1.0.0, good, signature not checked\n")
        result = subprocess.run([JXPACK, "verify", self.root / "package.zip", "--certs", self.root / "none"], capture_output=True,
                                text=True, check=False)
        self.assertEqual((result.returncode, result.stderr), (3, f"jxpack: {self.root}/none: No such file or directory\n"))

    def test_certificate_that_is_revoked(self):
        self.issue("stolen", "root")
        stolen, good = self.pack(*self.options("stolen")), self.pack(*self.options("signer"))
        self.authority("stolen", "root", "-revoke", self.keys / "stolen.pem")
        self.authority("stolen", "root", "-gencrl", "-crldays", "1", "-out", self.root / "certs/root.crl")
        self.assertEqual(self.install(good, "required", 0), ["Installed hello 1.0.0"])
        (line,) = self.install(stolen, "required", 1)
        self.assertRegex(line, r'^Error: upload-0.zip: hello 1.0.0 is signed by a certificate that was revoked on .* GMT: '
                               r'"CN=stolen"$')
        (self.root / "certs/root.crl").write_text("lost")
        self.assertEqual(self.install(good, "required", 1),
                         ["Error: upload-0.zip: hello 1.0.0 is signed, but certs/root.crl is no list of revoked certificates"])

    def test_certificate_put_into_certs_counts_at_once(self):
        entries = self.pack(*self.options("foreign"))
        self.install(entries, "required", 1)
        shutil.copy(self.keys / "stranger.pem", self.root / "certs")
        self.assertEqual(self.install(entries, "required", 0), ["Installed hello 1.0.0"])

    def test_jxpack_refuses_keys_that_do_not_serve(self):
        locked = self.root / "locked.key"
        openssl("pkey", "-in", self.keys / "signer.key", "-aes128", "-passout", "pass:x", "-out", locked)
        pem = {name: self.keys / f"{name}.pem" for name in ("signer", "foreign", "expired", "early")}
        key = {name: self.keys / f"{name}.key" for name in ("signer", "expired", "early")}
        cases = (
            (key["signer"], pem["foreign"], 4, f"{pem['foreign']}: the first certificate is not the key's"),
            (key["expired"], pem["expired"], 4, f"{pem['expired']}: the certificate has expired"),
            (key["early"], pem["early"], 4, f"{pem['early']}: the certificate is not valid yet"),
            (pem["signer"], pem["signer"], 4, f"{pem['signer']}: holds no private key in PEM, or one with a passphrase"),
            (locked, pem["signer"], 4, f"{locked}: holds no private key in PEM, or one with a passphrase"),
            (key["signer"], key["signer"], 4, f"{key['signer']}: holds no certificate in PEM"),
            (self.root / "none", pem["signer"], 3, f"{self.root}/none: cannot be read: No such file or directory"),
        )
        for a_key, certificate, code, message in cases:
            with self.subTest(message=message):
                result = subprocess.run([JXPACK, "--name", "a", "--version", "1", "--key", a_key, "--cert", certificate,
                                         "-o", self.root / "out.zip", self.folder], stdin=subprocess.DEVNULL,
                                        capture_output=True, text=True, check=False)
                self.assertEqual((result.returncode, result.stderr), (code, f"jxpack: {message}\n"))
                self.assertEqual([name for name in os.listdir(self.root) if name.startswith("out.zip")], [])


if __name__ == "__main__":
    unittest.main()
