#!/usr/bin/env python3
"""The last commit, packaged twice: in folders of different names, some time apart, without a compiler cache."""
import os
import unittest

import handed_out
from handed_out import ROOT, run


class Reproducible(unittest.TestCase):
    def test_two_folders_give_the_same_octets(self):
        folder = self.enterContext(handed_out.scratch())
        environment = {name: value for name, value in os.environ.items() if not name.startswith("CMAKE_CXX_COMPILER_L")}
        environment.update(CCACHE_DISABLE="1", ZAREXT_WINE_BASE=environment.get("ZAREXT_WINE_BASE",
                                                                               str(ROOT / "build/wine/base")))
        environment.pop("SOURCE_DATE_EPOCH", None)
        packages = []
        for name, umask, zone in (("one", 0o022, "UTC"), ("another-of-a-longer-name/below", 0o077, "Asia/Almaty")):
            clone = folder / name
            clone.parent.mkdir(parents=True, exist_ok=True)
            run("git", "clone", "--quiet", "--no-hardlinks", ROOT, clone)
            run("script/package", cwd=clone, env=dict(environment, TZ=zone, LC_ALL="C"), umask=umask)
            packages.append({file.name: file.read_bytes() for file in (clone / "build/package").iterdir()})
        self.assertEqual(sorted(packages[0]), sorted(packages[1]))
        self.assertGreaterEqual(len(packages[0]), 5)
        for name, octets in packages[0].items():
            # The whole contents would fill the log.
            self.assertTrue(octets == packages[1][name], name)


if __name__ == "__main__":
    unittest.main()
