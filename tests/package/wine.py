"""A Wine prefix of a test's own, and its registry as Wine writes it down."""
import os
import subprocess
from contextlib import contextmanager
from pathlib import Path

from handed_out import ROOT, run

OIDS = r"Software\Microsoft\Cryptography\OID"
STORES = r"Software\Microsoft\SystemCertificates\MY\PhysicalStores"


def shell(text, *arguments):
    return run("bash", "-c", "source script/lib.sh; " + text, "test", *arguments, cwd=ROOT)[1].strip()


class Prefix:
    def __init__(self, path):
        self.path = path
        self.drive = path / "drive_c"

    def run(self, *command, check=True):
        """Exit codes arrive modulo 256."""
        return run(ROOT / "script/run-wine", *command, check=check,
                   env=dict(os.environ, ZAREXT_WINE_PREFIX=str(self.path)))

    def keys(self, hive, *roots):
        """The keys below the roots: name to the lines of their values."""
        subprocess.run(["wineserver", "-k"], env=dict(os.environ, WINEPREFIX=str(self.path)), check=False)
        subprocess.run(["wineserver", "-w"], env=dict(os.environ, WINEPREFIX=str(self.path)), check=False)
        found, values = {}, None
        text = (self.path / hive).read_text(errors="surrogateescape").replace("\\\n  ", "")
        for line in text.splitlines():
            if line.startswith("["):
                name = line[1:line.rindex("]")].replace("\\\\", "\\")
                inside = any(name.lower() == root.lower() or name.lower().startswith(root.lower() + "\\")
                             for root in roots)
                values = found.setdefault(name, []) if inside else None
            elif values is not None and line and not line.startswith("#"):
                values.append(line)
        return {name: sorted(lines) for name, lines in found.items()}

    def registration(self):
        """All that the module's registration writes."""
        return {"machine": self.keys("system.reg", OIDS), "user": self.keys("user.reg", STORES)}


@contextmanager
def prefix():
    path = Path(shell("new_prefix"))
    try:
        yield Prefix(path)
    finally:
        shell('drop_prefix "$1"', path)


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")
