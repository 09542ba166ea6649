"""The package under test: what script/package left in build/package."""
import os
import re
import shutil
import subprocess
import tempfile
import zipfile
from contextlib import contextmanager
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
FOLDER = Path(os.environ.get("ZAREXT_PACKAGE", ROOT / "build/package"))
VERSION = re.search(r'^#define ZAREXT_VERSION_TEXT "(.*)"$', (ROOT / "src/version.h").read_text(), re.M)[1]
NAME = "zarext-" + VERSION


def run(*command, check=True, **options):
    """Exit code and output; a failure ends the test unless it is asked for."""
    # Into a file: a process of Wine's that outlives the program would keep a pipe open, and this would wait for it.
    with tempfile.TemporaryFile("w+", errors="replace") as file:
        code = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, stdout=file,
                              stderr=subprocess.STDOUT, **options).returncode
        file.seek(0)
        output = file.read()
    if check and code != 0:
        raise AssertionError("%s: %d\n%s" % (" ".join(map(str, command)), code, output[-2000:]))
    return code, output


@contextmanager
def scratch():
    """An empty folder inside build/, gone afterwards."""
    (ROOT / "build").mkdir(exist_ok=True)
    folder = Path(tempfile.mkdtemp(dir=ROOT / "build"))
    try:
        yield folder
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def unpack(archive, folder):
    """Unpacks one of the zips and returns the only folder that is in it."""
    with zipfile.ZipFile(FOLDER / archive) as source:
        source.extractall(folder)
    (inside,) = {Path(name).parts[0] for name in zipfile.ZipFile(FOLDER / archive).namelist()}
    return folder / inside
