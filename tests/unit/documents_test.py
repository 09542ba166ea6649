#!/usr/bin/env python3
"""The files, functions and tables that compatibility.md and architecture.md name are in the sources."""
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


if __name__ == "__main__":
    unittest.main()
