#!/usr/bin/env python3
"""The installer under Wine's msiexec, compared key by key with regsvr32 by hand. Wine lacks functions that
registration needs: a copy of the installer loads the tests' patches beside the module; the unchanged one
shows an installation whose registration fails. What Wine cannot show stands in docs/platform.md."""
import importlib.util
import shutil
import struct
import unittest

import handed_out
import wine
from handed_out import FOLDER, NAME, ROOT, VERSION, run

PATCHES = ROOT / "build/windows/bin/patches.dll"
OWN = r"Software\ZAREXT"
ACTIVE_SETUP = r"Software\Microsoft\Active Setup\Installed Components\{B6B0F1D4-92D5-5E0A-A2C7-0C5D8E7F6A33}"
FILES = ["CHANGELOG.md", "SECURITY.md", "ZAREXT.dll", "docs/compatibility.md", "docs/install.md",
         "docs/reference.md", "docs/support.md", "licences.txt", "zarext-user-store.reg"]
if (ROOT / "tools/zarextctl").is_dir():
    FILES.append("zarextctl.exe")
# 1603, and what Wine says instead (1627), modulo 256.
FAILED = (1603 % 256, 1627 % 256)


def script_package():
    spec = importlib.util.spec_from_file_location("script_package", ROOT / "tools/installer/package.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


class NotSigned:
    def sign(self, file):
        pass


def patched(installer, target):
    """The same with the patches in the process that registers."""
    shutil.copyfile(installer, target)
    for action, option in (("RegisterModule", "/s"), ("TakeBackUnregister", "/s"), ("UnregisterModule", "/u /s"),
                           ("TakeBackRegister", "/u /s")):
        run("msibuild", target, "-q", "UPDATE CustomAction SET Target = '%s \"%s\" \"[#ZAREXT.dll]\"' "
            "WHERE Action = '%s'" % (option, wine.windows_path(PATCHES), action))
    return target


def with_file_version(dll, old, new):
    """The module with another version in its resource (VS_FIXEDFILEINFO, signature 0xFEEF04BD)."""
    octets = bytearray(dll.read_bytes())
    place = octets.index(struct.pack("<II", 0xFEEF04BD, 0x10000))
    assert struct.unpack_from("<HHHH", octets, place + 8) == (old[1], old[0], old[3], old[2])
    for field in (8, 16):
        struct.pack_into("<HHHH", octets, place + field, new[1], new[0], new[3], new[2])
    dll.write_bytes(octets)


class Msi(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = cls.enterClassContext(handed_out.scratch())
        cls.folder = handed_out.unpack(NAME + ".zip", cls.scratch)
        cls.unchanged = FOLDER / (NAME + ".msi")
        cls.installer = patched(cls.unchanged, cls.scratch / "patched.msi")
        with wine.prefix() as prefix:
            cls.clean = prefix.registration()
            place = prefix.drive / "Program Files/ZAREXT/ZAREXT.dll"
            place.parent.mkdir()
            shutil.copyfile(cls.folder / "ZAREXT.dll", place)
            arguments = [wine.windows_path(PATCHES), r"C:\Program Files\ZAREXT\ZAREXT.dll"]
            prefix.run("regsvr32", "/s", *arguments)
            cls.registered = prefix.registration()
            prefix.run("regsvr32", "/u", "/s", *arguments)
            cls.left = prefix.registration()
        assert cls.clean != cls.registered and cls.registered != cls.left and cls.left != cls.clean

    def other_version(self, version, file_version=None, change=False):
        """An installer of another version, with a module of another version or other contents."""
        package = script_package()
        package.OUT = self.scratch / ("make-" + version)
        staged = package.OUT / "zip"
        shutil.copytree(self.folder, staged, dirs_exist_ok=True)
        now = tuple(map(int, VERSION.split("."))) + (0,)
        if file_version:
            with_file_version(staged / "ZAREXT.dll", now, file_version)
        if change:
            octets = bytearray((staged / "ZAREXT.dll").read_bytes())
            text = octets.index(b"This program cannot be run in DOS mode")
            octets[text:text + 4] = b"THIS"
            (staged / "ZAREXT.dll").write_bytes(octets)
        made = package.OUT / "made.msi"
        package.make_installer(staged, made, version, 1700000000, NotSigned())
        return patched(made, self.scratch / (version + ".msi")), (staged / "ZAREXT.dll").read_bytes()

    @staticmethod
    def msiexec(prefix, *arguments):
        return prefix.run("msiexec", *arguments, "/qn", check=False)[0]

    @staticmethod
    def install_into(prefix, installer, folder):
        """As it is typed. As one argument the property would stand in quotes as a whole, which Wine 10 refuses (1639)."""
        command = 'msiexec /i "%s" INSTALLDIR="%s" /qn\r\n' % (wine.windows_path(installer), folder)
        (prefix.drive / "install.cmd").write_text(command)
        return prefix.run("cmd", "/c", r"C:\install.cmd", check=False)[0]

    def expect_files(self, folder, module=None):
        found = sorted(str(file.relative_to(folder)) for file in folder.rglob("*") if file.is_file())
        self.assertEqual(sorted(FILES), found)
        self.assertTrue((folder / "ZAREXT.dll").read_bytes() == (module or (self.folder / "ZAREXT.dll").read_bytes()))

    def expect_registered(self, prefix, folder=r"C:\Program Files\ZAREXT"):
        found = prefix.registration()
        escaped = (folder + r"\ZAREXT.dll").replace("\\", r"\\")
        expected = {hive: {key: [line.replace(r"C:\\Program Files\\ZAREXT\\ZAREXT.dll", escaped) for line in lines]
                           for key, lines in keys.items()} for hive, keys in self.registered.items()}
        for hive in expected:
            self.assertEqual(sorted(expected[hive]), sorted(found[hive]))
            for key in expected[hive]:
                self.assertEqual(expected[hive][key], found[hive][key], key)

    def test_install_repair_remove(self):
        with wine.prefix() as prefix:
            self.assertEqual(0, self.msiexec(prefix, "/i", wine.windows_path(self.installer)))
            folder = prefix.drive / "Program Files/ZAREXT"
            self.expect_files(folder)
            self.expect_registered(prefix)
            own = prefix.keys("system.reg", OWN, ACTIVE_SETUP)
            self.assertEqual(['"InstallDir"="C:\\\\Program Files\\\\ZAREXT\\\\"', '"Version"="%s"' % VERSION], own[OWN])
            self.assertEqual(sorted([
                '@="ZAREXT: the provider\'s certificates in the personal store"',
                '"StubPath"="C:\\\\windows\\\\system32\\\\reg.exe import \\"C:\\\\Program Files\\\\ZAREXT\\\\'
                'zarext-user-store.reg\\" /reg:64"',
                '"Version"="%s,0"' % VERSION.replace(".", ",")]), own[ACTIVE_SETUP])

            # A user for whom nothing was registered, at the next logon.
            store = r"HKCU\Software\Microsoft\SystemCertificates\MY\PhysicalStores\Zarvel Store Provider"
            prefix.run("reg", "delete", store, "/f")
            self.assertNotEqual(self.registered["user"], prefix.registration()["user"])
            prefix.run("reg", "import", r"C:\Program Files\ZAREXT\zarext-user-store.reg", "/reg:64")
            self.expect_registered(prefix)

            # Repair brings the file and the registration back.
            (folder / "ZAREXT.dll").unlink()
            prefix.run("reg", "delete", r"HKLM\SOFTWARE\Microsoft\Cryptography\OID\EncodingType 1"
                       r"\CryptDllImportPublicKeyInfoEx", "/f", "/reg:64")
            self.assertEqual(0, self.msiexec(prefix, "/i", wine.windows_path(self.installer), "REINSTALL=ALL",
                                             "REINSTALLMODE=amus"))
            self.expect_files(folder)
            self.expect_registered(prefix)

            self.assertEqual(0, self.msiexec(prefix, "/x", wine.windows_path(self.installer)))
            self.assertFalse((folder / "ZAREXT.dll").exists())
            self.assertEqual([], [file for file in folder.rglob("*") if file.is_file()])
            # Only with the file still there can this be: see docs/install.md for what stays.
            self.assertEqual(self.left, prefix.registration())
            self.assertEqual({}, prefix.keys("system.reg", OWN, ACTIVE_SETUP))

    def test_upgrade_keeps_the_folder_and_downgrade_is_refused(self):
        older, old_module = self.other_version("0.9.0", file_version=(0, 9, 0, 0))
        with wine.prefix() as prefix:
            self.assertEqual(0, self.install_into(prefix, older, r"C:\Some place\here"))
            folder = prefix.drive / "Some place/here"
            self.expect_files(folder, old_module)
            self.expect_registered(prefix, r"C:\Some place\here")
            self.assertEqual(0, self.msiexec(prefix, "/i", wine.windows_path(self.installer)))
            self.expect_files(folder)
            self.expect_registered(prefix, r"C:\Some place\here")
            self.assertFalse((prefix.drive / "Program Files/ZAREXT").exists())
            products = prefix.keys("system.reg", r"Software\Microsoft\Windows\CurrentVersion\Uninstall")
            self.assertEqual(1, sum('"DisplayName"="ZAREXT"' in values for values in products.values()))

            self.assertIn(self.msiexec(prefix, "/i", wine.windows_path(older)), FAILED)
            self.expect_files(folder)
            self.expect_registered(prefix, r"C:\Some place\here")

    def test_an_upgrade_replaces_the_file_whatever_its_version(self):
        # Only the contents differ; and the file that is there claims to be newer.
        for version, file_version in (("0.9.1", None), ("0.9.2", (9, 0, 0, 0))):
            older, old_module = self.other_version(version, file_version, change=True)
            with self.subTest(version), wine.prefix() as prefix:
                self.assertEqual(0, self.msiexec(prefix, "/i", wine.windows_path(older)))
                folder = prefix.drive / "Program Files/ZAREXT"
                self.expect_files(folder, old_module)
                self.assertEqual(0, self.msiexec(prefix, "/i", wine.windows_path(self.installer)))
                self.expect_files(folder)

    def test_a_registration_that_fails_takes_the_installation_back(self):
        with wine.prefix() as prefix:
            log = prefix.drive / "install.log"
            code = self.msiexec(prefix, "/i", wine.windows_path(self.unchanged), "/L*v", r"C:\install.log")
            self.assertIn(code, FAILED)
            folder = prefix.drive / "Program Files/ZAREXT"
            self.assertEqual([], [file for file in folder.rglob("*") if file.is_file()])
            self.assertEqual(self.clean, prefix.registration())
            self.assertEqual({}, prefix.keys("system.reg", OWN, ACTIVE_SETUP))
            # Wine says 0 of an action that failed, Windows 3.
            self.assertRegex(log.read_text(errors="replace"), r"Action ended [^\n]*: RegisterModule\. Return value 0\.")


if __name__ == "__main__":
    unittest.main()
