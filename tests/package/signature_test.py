#!/usr/bin/env python3
"""Signed packages: with a file and with a token; what is changed afterwards is found."""
import json
import os
import shutil
import unittest
from pathlib import Path

import handed_out
import wine
from handed_out import NAME, ROOT, run

SOFTHSM = Path("/usr/lib/softhsm/libsofthsm2.so")
ENGINE = Path("/usr/lib/x86_64-linux-gnu/engines-3/pkcs11.so")


class Signature(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = cls.enterClassContext(handed_out.scratch())
        (cls.folder / "password").write_text("a password of the test")
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "key.pem", "-out", "signer.pem",
            "-days", "2", "-subj", "/CN=Package signature test", "-addext", "extendedKeyUsage=codeSigning",
            "-addext", "keyUsage=critical,digitalSignature", cwd=cls.folder)
        run("openssl", "pkcs12", "-export", "-inkey", "key.pem", "-in", "signer.pem", "-out", "signer.p12",
            "-passout", "file:password", cwd=cls.folder)

    def expect_status(self, dll, signature, findings):
        """What the package's own tool says of the module."""
        output = run(ROOT / "script/run-wine", dll.with_name("zarextctl.exe"), "status", "--json", "--dll",
                     wine.windows_path(dll), check=False)[1]
        status = json.loads(output)
        self.assertEqual(signature, status["module"]["signature"])
        self.assertEqual(findings, [(finding["severity"], finding["id"]) for finding in status["findings"]
                                    if "signature" in finding["id"]])

    def check(self, package, signer):
        msi = package / (NAME + ".msi")
        run("osslsigncode", "verify", "-CAfile", signer, "-in", msi)
        with handed_out.scratch() as inside:
            shutil.unpack_archive(package / (NAME + ".zip"), inside)
            dll = inside / NAME / "ZAREXT.dll"
            run("osslsigncode", "verify", "-CAfile", signer, "-in", dll)
            # The installer carries the signed module.
            run("msiextract", "-C", inside, msi)
            (installed,) = inside.rglob("ZAREXT/ZAREXT.dll")
            self.assertTrue(installed.read_bytes() == dll.read_bytes())
            self.expect_status(dll, "signed", [])
            for file in (dll, inside / "changed.msi"):
                if not file.exists():
                    shutil.copyfile(msi, file)
                octets = bytearray(file.read_bytes())
                octets[len(octets) // 2] ^= 1
                file.write_bytes(octets)
                code, _ = run("osslsigncode", "verify", "-CAfile", signer, "-in", file, check=False)
                self.assertNotEqual(0, code, file.name)
            self.expect_status(dll, "signature 0x80096010 TRUST_E_BAD_DIGEST", [("warning", "module-signature")])
        run("sha256sum", "--quiet", "-c", "SHA256SUMS", cwd=package)

    def test_a_file_signs_and_the_password_is_on_no_command_line(self):
        package = self.folder / "package"
        # A program of the same name, first in the path, keeps the command lines.
        tools = self.folder / "tools"
        tools.mkdir()
        for name in ("osslsigncode", "openssl"):
            (tools / name).write_text('#!/bin/sh\nprintf "%%s\\n" "$*" >>"%s/lines"\nexec %s "$@"\n'
                                      % (self.folder, shutil.which(name)))
            (tools / name).chmod(0o755)
        run(ROOT / "script/package", "--output", package, "--sign", self.folder / "signer.p12",
            "--password-file", self.folder / "password", env=dict(os.environ, PATH="%s:%s" % (tools, os.environ["PATH"])))
        self.check(package, self.folder / "signer.pem")
        lines = (self.folder / "lines").read_text()
        self.assertGreaterEqual(lines.count("verify"), 2)
        self.assertNotIn("a password of the test", lines)

    def test_a_wrong_password_fails(self):
        (self.folder / "wrong").write_text("another")
        code, _ = run(ROOT / "script/package", "--output", self.folder / "refused", "--sign",
                      self.folder / "signer.p12", "--password-file", self.folder / "wrong", check=False)
        self.assertNotEqual(0, code)
        self.assertFalse((self.folder / "refused" / "SHA256SUMS").exists())

    @unittest.skipUnless(SOFTHSM.exists() and ENGINE.exists(), "no token in software (softhsm2, libengine-pkcs11-openssl)")
    def test_a_token_signs(self):
        (self.folder / "tokens").mkdir()
        (self.folder / "softhsm2.conf").write_text("directories.tokendir = %s/tokens\n" % self.folder)
        environment = dict(os.environ, SOFTHSM2_CONF=str(self.folder / "softhsm2.conf"))
        softhsm = lambda *arguments: run("softhsm2-util", *arguments, env=environment)
        softhsm("--init-token", "--free", "--label", "signing", "--pin", "1234", "--so-pin", "12345678")
        run("openssl", "pkcs8", "-topk8", "-nocrypt", "-in", "key.pem", "-out", "key.p8", cwd=self.folder)
        softhsm("--import", self.folder / "key.p8", "--token", "signing", "--label", "key", "--id", "01", "--pin", "1234")
        (self.folder / "pin").write_text("1234")
        package = self.folder / "by-token"
        run(ROOT / "script/package", "--output", package, "--pkcs11", SOFTHSM,
            "--key", "pkcs11:token=signing;object=key", "--certificate", self.folder / "signer.pem",
            "--password-file", self.folder / "pin", env=environment)
        self.check(package, self.folder / "signer.pem")


if __name__ == "__main__":
    unittest.main()
