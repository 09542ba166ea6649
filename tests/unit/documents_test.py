#!/usr/bin/env python3
"""What compatibility.md and architecture.md name is in the sources; no folder includes a later one."""
import re
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


def quoted(text):
    return re.findall(r"`([^`\n]+)`", text)


def lacks(text, name):
    return not re.search(r"(?<!\w)%s(?!\w)" % re.escape(name), text)


def exists(name):
    """A file or folder as the documents name it: below the root, or below src."""
    return any((ROOT / folder / name).exists() for folder in (".", "src", "tools/zarextctl"))


class Documents(unittest.TestCase):
    def test_each_row_of_the_compatibility_tables_names_what_decides(self):
        rows = [line for line in (ROOT / "docs/compatibility.md").read_text().splitlines()
                if line.startswith("| ") and not line.startswith(("| ---", "| Where", "| **"))]
        self.assertGreater(len(rows), 150)
        for row in rows:
            for place in row.rstrip(" |").split(" | ")[-1].split("; "):
                with self.subTest(row=row[:60]):
                    file, *names = quoted(place)
                    text = (ROOT / "src" / file).read_text()
                    self.assertEqual([], [name for name in names if lacks(text, name)])

    def test_what_the_architecture_names_exists(self):
        code = "\n".join(path.read_text() for folder in ("src", "include", "tools", "tests")
                         for path in (ROOT / folder).rglob("*") if path.suffix in (".h", ".cpp", ".txt"))
        folders = {folder.name for folder in (ROOT / "src").iterdir()}
        for name in quoted((ROOT / "docs/architecture.md").read_text()):
            with self.subTest(name=name):
                if re.fullmatch(r"[\w/.]+(\.(h|cpp|def|md)|/)|tests/\w+|tools/\w+", name):
                    self.assertTrue(exists(name))
                elif re.fullmatch(r"\w+(::\w+)*", name):
                    self.assertEqual([], [part for part in name.split("::")
                                          if part not in folders and lacks(code, part)])

    def test_no_folder_includes_a_later_one(self):
        order = ["frame", "asn1", "keyinfo", "msgkeys", "registration", "store"]
        alone = {("asn1", "frame"): "wipe.h", ("store", "keyinfo"): "last_import.h"}
        beside = {("msgkeys", "keyinfo"), ("registration", "keyinfo"), ("registration", "msgkeys"),
                  ("registration", "asn1"), ("store", "msgkeys"), ("store", "registration")}
        for path in (ROOT / "src").glob("*/*.*"):
            for folder, header in re.findall(r'#include "(\w+)/(\w+\.h)"', path.read_text()):
                with self.subTest(file=path.name, header=folder + "/" + header):
                    step = (path.parent.name, folder)
                    self.assertLessEqual(order.index(folder), order.index(path.parent.name))
                    self.assertNotIn(step, beside)
                    self.assertEqual(alone.get(step, header), header)


if __name__ == "__main__":
    unittest.main()
