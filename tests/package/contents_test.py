#!/usr/bin/env python3
"""What is in the package: files, sums, the list of contents, and a program built with nothing else."""
import hashlib
import json
import re
import unittest

import handed_out
from handed_out import FOLDER, NAME, ROOT, VERSION, run


class Contents(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = cls.enterClassContext(handed_out.scratch())
        cls.folder = handed_out.unpack(NAME + ".zip", cls.scratch)

    def test_the_folder_has_every_part(self):
        self.assertEqual(
            sorted(["SHA256SUMS", NAME + ".zip", NAME + "-symbols.zip", NAME + ".msi", NAME + ".spdx.json"]),
            sorted(file.name for file in FOLDER.iterdir() if not file.name.startswith("zarext-check-")))
        run("sha256sum", "--quiet", "-c", "SHA256SUMS", cwd=FOLDER)
        self.assertEqual(len(list(FOLDER.iterdir())) - 1, len((FOLDER / "SHA256SUMS").read_text().splitlines()))

    def test_the_zip_has_every_file_with_its_sum(self):
        expected = ["CHANGELOG.md", "SECURITY.md", "SHA256SUMS", "ZAREXT.dll", "docs/compatibility.md",
                    "docs/install.md", "docs/reference.md", "docs/support.md", "include/zarext.h",
                    "lib/libZAREXT.dll.a", "licences/GPL-3.txt", "licences/README.txt", "licences/cli11.txt",
                    "licences/gcc-runtime.txt", "licences/mingw-w64-runtime.txt", "licences/nlohmann-json.txt",
                    "zarext-user-store.reg", "zarextctl.exe"]
        found = sorted(str(p.relative_to(self.folder)) for p in self.folder.rglob("*") if p.is_file())
        self.assertEqual(sorted(expected), found)
        run("sha256sum", "--quiet", "-c", "SHA256SUMS", cwd=self.folder)
        self.assertEqual(len(expected) - 1, len((self.folder / "SHA256SUMS").read_text().splitlines()))

    def test_the_licences_are_the_runtimes_own(self):
        for file, text in (("gcc-runtime.txt", "GCC RUNTIME LIBRARY EXCEPTION"),
                           ("mingw-w64-runtime.txt", "winpthreads"), ("GPL-3.txt", "GNU GENERAL PUBLIC LICENSE"),
                           ("cli11.txt", "BSD-3-clause"), ("nlohmann-json.txt", "Expat")):
            self.assertIn(text, (self.folder / "licences" / file).read_text(), file)

    def test_links_of_the_documents_lead_to_documents_of_the_package(self):
        for document in self.folder.rglob("*.md"):
            for target in re.findall(r"\]\(([^)#:]+)[^):]*\)", document.read_text()):
                self.assertTrue((document.parent / target).is_file(), "%s links to %s" % (document.name, target))

    def test_the_security_page_names_tests_that_exist(self):
        sources = "".join(file.read_text() for file in (ROOT / "tests").rglob("*.cpp"))
        # Of a suite alone, or with one of its tests.
        names = re.findall(r"`([A-Z][a-z]\w+)(?:\.(\w+))?`", (self.folder / "SECURITY.md").read_text())
        self.assertGreater(len(names), 20)
        for suite, test in names:
            if suite in ("ZarCertVerifyRevocation", "GuardedMemory"):
                continue
            self.assertRegex(sources, r"TEST(_F|_P)?\(\s*%s\w*,\s*%s" % (suite, test + r"\)" if test else ""))

    def test_the_symbols_are_those_of_the_module(self):
        symbols = handed_out.unpack(NAME + "-symbols.zip", self.scratch)
        self.assertEqual(["ZAREXT.pdb", "zarextctl.pdb"], sorted(file.name for file in symbols.iterdir()))

    def test_the_list_of_contents_names_files_and_runtimes(self):
        document = json.loads((FOLDER / (NAME + ".spdx.json")).read_text())
        self.assertEqual("SPDX-2.3", document["spdxVersion"])
        self.assertEqual("CC0-1.0", document["dataLicense"])
        packages = {package["name"]: package for package in document["packages"]}
        self.assertEqual(VERSION, packages["ZAREXT"]["versionInfo"])
        for name, debian in (("libstdc++ and libgcc", "gcc-mingw-w64-x86-64-posix-runtime"),
                             ("mingw-w64 runtime and winpthreads", "mingw-w64-x86-64-dev"),
                             ("CLI11", "libcli11-dev"), ("JSON for Modern C++", "nlohmann-json3-dev")):
            installed = run("dpkg-query", "-W", "-f", "${Version}", debian)[1]
            self.assertEqual(installed, packages[name]["versionInfo"])
        sums = {entry["fileName"]: entry["checksums"][0]["checksumValue"] for entry in document["files"]}
        module = hashlib.sha256((self.folder / "ZAREXT.dll").read_bytes()).hexdigest()
        self.assertEqual(module, sums["./ZAREXT.dll"])
        known = {"SPDXRef-DOCUMENT"} | {part["SPDXID"] for part in document["packages"] + document["files"]}
        for relation in document["relationships"]:
            self.assertLessEqual({relation["spdxElementId"], relation["relatedSpdxElement"]}, known)

    def test_the_version_is_the_same_everywhere(self):
        table = run("msiinfo", "export", FOLDER / (NAME + ".msi"), "Property")[1]
        self.assertIn("ProductVersion\t%s\r\n" % VERSION, table.replace("\r\n", "\n").replace("\n", "\r\n"))
        self.assertIn(VERSION.encode("utf-16-le"), (self.folder / "ZAREXT.dll").read_bytes())
        self.assertRegex((self.folder / "CHANGELOG.md").read_text(), r"(?m)^## %s\b" % re.escape(VERSION))

    def test_the_imports_are_part_of_windows(self):
        text = run("x86_64-w64-mingw32-objdump", "-p", self.folder / "ZAREXT.dll")[1]
        self.assertEqual(["ADVAPI32.dll", "CRYPT32.dll", "KERNEL32.dll", "msvcrt.dll"],
                         sorted(re.findall(r"DLL Name: (\S+)", text)))
        text = run("x86_64-w64-mingw32-objdump", "-p", self.folder / "zarextctl.exe")[1]
        self.assertEqual(["ADVAPI32.dll", "CRYPT32.dll", "KERNEL32.dll", "SHELL32.dll", "VERSION.dll", "WINTRUST.dll",
                          "msvcrt.dll"], sorted(re.findall(r"DLL Name: (\S+)", text)))

    def test_a_program_builds_and_runs_with_the_package_alone(self):
        work = self.folder
        warnings = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]
        (work / "header.cpp").write_text('#include "zarext.h"\n')
        run("x86_64-w64-mingw32-g++-posix", "-std=c++20", *warnings, "-Iinclude", "-fsyntax-only", "header.cpp", cwd=work)
        run("x86_64-w64-mingw32-gcc-posix", "-std=c11", *warnings, "-Iinclude", "-o", "program.exe",
            ROOT / "tests/package/package_program.c", "lib/libZAREXT.dll.a", "-lcrypt32", cwd=work)
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "key.pem", "-subj",
            "/CN=Package test", "-days", "2", "-outform", "DER", "-out", "certificate.der", cwd=work)
        run(ROOT / "script/run-wine", "program.exe", "certificate.der", cwd=work)
        for name in ("header.cpp", "program.exe", "key.pem", "certificate.der"):
            (work / name).unlink()


if __name__ == "__main__":
    unittest.main()
