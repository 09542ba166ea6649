#!/usr/bin/env python3
"""The module as it is handed out: size, protections, symbols."""
import re
import shutil
import unittest

import handed_out
from handed_out import NAME, ROOT
from portable_executable import Image

# Where each export begins.
SOURCES = {
    "src/frame/pass_through.cpp": [
        "ZarCertVerifyCTLUsage", "ZarCertVerifyRevocation", "ZarCryptDecodeObject", "ZarCryptEncodeObject",
        "ZarCryptEncodeObjectEx", "ZarCryptFindLocalizedName", "ZarCryptFormatObject"],
    "src/keyinfo/private_key_transfer.cpp": ["ZarExportPrivKeyFunc", "ZarImportPrivKeyFunc"],
    "src/keyinfo/public_key_conversion.cpp": ["ZarConvertPublicKeyInfo", "ZarEncodePublicKeyAndParameters"],
    "src/keyinfo/public_key_export.cpp": ["ZarExportPublicKeyInfo", "ZarExportPublicKeyInfoEx"],
    "src/keyinfo/public_key_import.cpp": ["ZarImportPublicKeyInfo", "ZarImportPublicKeyInfoEx"],
    "src/msgkeys/export_key.cpp": ["ZarExportEncryptKey", "ZarMsgExportKeyTrans"],
    "src/msgkeys/generate_key.cpp": ["ZarGenEncryptKey", "ZarMsgGenContentEncryptKey"],
    "src/msgkeys/import_key.cpp": ["ZarImportEncryptKey", "ZarMsgImportKeyTrans"],
    "src/registration/register.cpp": ["DllRegisterServer", "DllUnregisterServer"],
    "src/store/open_store.cpp": ["ZarOpenStoreProv"],
    "src/store/system_stores.cpp": ["DelOtherCert", "SetOtherCert", "SetSelfCert"],
}


def output_of(*command):
    return handed_out.run(*command)[1]


def symbolize(dll, *addresses):
    """Per address the frames, innermost first: (function, file, line)."""
    output = output_of("llvm-symbolizer-19", "--relative-address", "--obj=%s" % dll, *map(hex, addresses))
    found = []
    for block in output.strip().split("\n\n"):
        lines = block.splitlines()
        frames = []
        for function, place in zip(lines[0::2], lines[1::2]):
            file, line, _ = place.rsplit(":", 2)
            frames.append((function, file.replace("\\", "/").removeprefix("./"), int(line)))
        found.append(frames)
    return found


class ReleaseImage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = cls.enterClassContext(handed_out.scratch())
        cls.dll = handed_out.unpack(NAME + ".zip", folder) / "ZAREXT.dll"
        symbols = handed_out.unpack(NAME + "-symbols.zip", folder) / "ZAREXT.pdb"
        # Where a debugger looks: beside the image.
        cls.pdb = cls.dll.with_name("ZAREXT.pdb")
        shutil.copyfile(symbols, cls.pdb)
        cls.image = Image(cls.dll.read_bytes())

    def test_is_at_most_160_kib(self):
        self.assertLessEqual(len(self.image.octets), 160 * 1024)

    def test_brings_no_exceptions_with_messages(self):
        # With them the library of Debian 13 makes it larger than that.
        for text in (b"St11logic_error", b"St12length_error", b"random_device"):
            self.assertFalse(text in self.image.octets, text)

    def test_is_stripped_and_names_its_symbols_without_a_folder(self):
        self.assertEqual("ZAREXT.pdb", self.image.debug_file())
        self.assertEqual((0, 0), self.image.unpack("<II", self.image.unpack("<I", 60)[0] + 12), "a symbol table")

    def test_address_space_and_execution_protections(self):
        self.assertEqual(0x20 | 0x40 | 0x100, self.image.flags & (0x20 | 0x40 | 0x100))
        self.assertNotEqual(0, self.image.directories[5][1], "relocations")

    def test_imports_exports_and_unwind_data_are_read_only(self):
        for directory, what in ((0, "exports"), (1, "imports"), (3, "unwind data"), (6, "debug"), (12, "import addresses")):
            self.assertFalse(self.image.writable(directory), what)

    def test_no_section_is_writable_and_executable(self):
        for section in self.image.sections:
            self.assertNotEqual(0xA0000000, section[5] & 0xA0000000, section[0])

    def test_has_no_load_configuration(self):
        self.assertEqual((0, 0), self.image.directories[10])

    def test_the_stack_protector_is_the_own_one(self):
        symbols = output_of("llvm-pdbutil-19", "dump", "-symbols", str(self.pdb)).split("stack_guard.cpp.obj`", 1)
        self.assertEqual(2, len(symbols), "no object with the guard")
        place = re.search(r"`__stack_chk_fail`\n.*addr = 0001:(\d+)", symbols[1])
        self.assertTrue(place, "the reaction is another one's")
        called = output_of("x86_64-w64-mingw32-objdump", "-d", str(self.dll)).count(
            "call   0x%x\n" % (0x180000000 + self.image.sections[0][2] + int(place[1])))
        self.assertGreater(called, 20)
        imports = output_of("x86_64-w64-mingw32-objdump", "-p", str(self.dll))
        self.assertFalse("CryptGenRandom" in imports or "CryptReleaseContext" in imports, "libssp")

    def test_every_export_has_its_source_and_line(self):
        addresses = self.image.exports()
        self.assertEqual(sorted(addresses), sorted(name for names in SOURCES.values() for name in names))
        self.assertEqual(27, len(addresses))
        for file, names in SOURCES.items():
            text = (ROOT / file).read_text().splitlines()
            for name, frames in zip(names, symbolize(self.dll, *(addresses[name] for name in names))):
                function, found, line = frames[-1]
                self.assertEqual((name, file), (function, found))
                # The first instruction belongs to the head or to the first lines of the body.
                start = next(i for i, code in enumerate(text, 1) if "WINAPI %s(" % name in code)
                self.assertTrue(start <= line <= start + 6, "%s is at %d, not %d" % (name, start, line))

    def test_inlined_functions_have_frames_of_their_own(self):
        start = self.image.exports()["ZarOpenStoreProv"]
        deepest = max(symbolize(self.dll, *range(start, start + 400, 4)), key=len)
        self.assertGreaterEqual(len(deepest), 3)
        self.assertTrue(all(line > 0 for _, _, line in deepest), deepest)
        self.assertTrue(deepest[-1][1].startswith("src/"), deepest)

    def test_no_folder_of_the_build_machine_is_in_it(self):
        for file in (self.dll, self.pdb):
            self.assertFalse(str(ROOT).encode() in file.read_bytes(), file.name)


if __name__ == "__main__":
    unittest.main()
