#!/usr/bin/env python3
"""The check package, run as on a Windows: cmd /c check.cmd, in a prefix of its own."""
import os
import re
import subprocess
import unittest
import zipfile

import handed_out
import wine
from handed_out import VERSION

# The programs whose tests need the registration functions that Wine lacks.
REFUSED = ["envelope_e2e", "flow_e2e", "keyinfo_e2e", "registration_framework", "unregistered_e2e"]
KEPT = (r"Software\Microsoft\Cryptography", r"Software\ZAREXT-check")


class Check(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = handed_out.unpack("zarext-check-%s.zip" % VERSION, cls.enterClassContext(handed_out.scratch()))
        cls.programs = [line.split() for line in (cls.folder / "programs.txt").read_text().splitlines()]

    def check(self, *options):
        """Exit code, output, names of the logs; nothing of the registration may be left."""
        with wine.prefix() as prefix:
            # The maker's RSA provider, and somebody else's binding.
            prefix.run("reg", "add", r"HKLM\SOFTWARE\Microsoft\Cryptography\Defaults\Provider\Zarvel CSP RSA", "/v",
                       "Image Path", "/d", r"C:\Maker\cpzarvel.dll", "/f", "/reg:64")
            prefix.run("reg", "add", r"HKLM\SOFTWARE\Microsoft\Cryptography\OID\EncodingType 1"
                       r"\CheckOfTheCheck\1.2.3.4", "/v", "Dll", "/d", r"C:\Maker\old.dll", "/f", "/reg:64")
            machine, user = prefix.keys("system.reg", *KEPT), prefix.keys("user.reg", wine.STORES)
            with handed_out.scratch() as work:
                result = subprocess.run(
                    [str(handed_out.ROOT / "script/run-wine"), "cmd", "/c",
                     wine.windows_path(self.folder / "check.cmd"), *options], cwd=work, stdin=subprocess.DEVNULL,
                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
                    env=dict(os.environ, ZAREXT_WINE_PREFIX=str(prefix.path), ZAREXT_TIME_LIMIT="900"))
                archive = work / "zarext-check-logs.zip"
                logs = zipfile.ZipFile(archive) if archive.exists() else None
                self.assertIsNotNone(logs, result.stdout[-3000:])
                self.assertIsNone(logs.testzip())
                names = logs.namelist()
                printed = "\n".join(logs.read(name).decode(errors="replace") for name in names if name.endswith(".log"))
                failures = "\n".join(
                    re.findall(r"(?m)^.*Failure$(?:\n.*){0,8}", printed.replace("\r", "")))[:4000]
            self.assertEqual(machine, prefix.keys("system.reg", *KEPT))
            self.assertEqual(user, prefix.keys("user.reg", wine.STORES))
        return result.returncode, result.stdout, names, failures

    def expect_all_passed(self, code, output, failures):
        last = output.strip().splitlines()[-1].strip()
        self.assertRegex(last, r"^\d+ passed, 0 failed$", output[-2000:] + failures)
        self.assertEqual(0, code)
        return int(last.split()[0])

    def test_everything_passes_with_the_module_that_is_handed_out(self):
        code, output, names, failures = self.check("/all")
        self.assertGreater(self.expect_all_passed(code, output, failures), 600)
        for name, _, _ in self.programs:
            self.assertIn(name + ".log", names)
        self.assertNotIn("left out", output)

    def test_without_the_patches_the_refusals_are_counted_as_such(self):
        code, output, names, failures = self.check("/without-patches")
        self.assertGreater(self.expect_all_passed(code, output, failures), 400)
        refused = sorted(re.findall(r"(?m)^(\w+): not run, the platform refuses", output))
        self.assertEqual(REFUSED, refused)
        # Without /all what writes into the system's stores is left out.
        left_out = sorted(re.findall(r"(?m)^([\w-]+): left out", output))
        self.assertEqual(sorted(name for name, kind, _ in self.programs if kind == "stores"), left_out)
        self.assertIn("store_system", left_out)
        self.assertNotIn("store_system.log", names)


if __name__ == "__main__":
    unittest.main()
