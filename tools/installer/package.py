"""script/package: makes what is handed out, in build/package:

  zarext-VERSION.zip          the module, its tool, header, import library, documents, licences
  zarext-VERSION-symbols.zip  the PDB files
  zarext-VERSION.msi          the installer
  zarext-VERSION.spdx.json    what is inside, with the versions of the linked runtimes
  zarext-check-VERSION.zip    the tests, to be run on a Windows (with --check)
  SHA256SUMS                  of all these

The version stands in src/version.h. The same commit gives the same octets: every time that is stored is
SOURCE_DATE_EPOCH, by default the commit's.

Signed with --sign FILE.p12, or with a token: --pkcs11 MODULE --key URI --certificate FILE. The password or
PIN is read from the file that --password-file names. Every signature is verified before the script ends,
against the certificates of --ca (by default those that come with the key).
"""
import argparse
import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
import uuid
import zipfile
from datetime import datetime, timezone
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
INSTALLER = ROOT / "tools/installer"
BUILT = ROOT / "build/windows-release"
OUT = ROOT / "build/package"
# Names that only this script makes are derived from this one.
NAMESPACE = uuid.UUID("5f0c3a5e-8a64-5b0e-9d0c-7f1f6f1c2b10")
# What is statically linked, the Debian package that it came from, and its licence.
RUNTIMES = [
    ("libstdc++ and libgcc", "gcc-mingw-w64-x86-64-posix-runtime", "GPL-3.0-or-later WITH GCC-exception-3.1"),
    ("mingw-w64 runtime and winpthreads", "mingw-w64-x86-64-dev", "ZPL-2.1 AND MIT"),
    ("CLI11", "libcli11-dev", "BSD-3-Clause"),
    ("JSON for Modern C++", "nlohmann-json3-dev", "MIT"),
]
LICENCES = """ZAREXT.dll and zarextctl.exe contain compiled parts of:

- libstdc++ and libgcc: GNU General Public License version 3 (GPL-3.txt) with the GCC Runtime Library
  Exception version 3.1 (in gcc-runtime.txt), which allows their use here.
- the mingw-w64 runtime and winpthreads: the permissive licences in mingw-w64-runtime.txt.

zarextctl.exe also contains:

- CLI11: the 3-clause BSD licence in cli11.txt.
- JSON for Modern C++: the MIT licence in nlohmann-json.txt.

The texts are those of the packages that the runtimes were taken from.
"""


def run(*command, **options):
    result = subprocess.run([str(part) for part in command], text=True, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    if result.returncode != 0:
        sys.exit("%s failed (%d):\n%s" % (command[0], result.returncode, result.stdout[-3000:]))
    return result.stdout


def version_text():
    return re.search(r'^#define ZAREXT_VERSION_TEXT "(.*)"$', (ROOT / "src/version.h").read_text(), re.M)[1]


def commit_time():
    if "SOURCE_DATE_EPOCH" in os.environ:
        return int(os.environ["SOURCE_DATE_EPOCH"])
    return int(run("git", "log", "-1", "--format=%ct", cwd=ROOT))


def build(preset, *targets):
    # The linker would keep the search path of the environment in the PDB.
    environment = {name: value for name, value in os.environ.items()
                   if name not in ("LIBRARY_PATH", "CPATH", "C_INCLUDE_PATH", "CPLUS_INCLUDE_PATH")}
    run("cmake", "--preset", preset, cwd=ROOT, env=environment)
    run("cmake", "--build", "--preset", preset, "--parallel", os.cpu_count(), *(["--target", *targets] if targets else []),
        cwd=ROOT, env=environment)


def zip_folder(folder, archive, epoch):
    """With names in order, times of the commit and modes that do not depend on the builder's umask."""
    moment = datetime.fromtimestamp(epoch, timezone.utc)
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as out:
        for file in sorted(path for path in folder.rglob("*") if path.is_file()):
            entry = zipfile.ZipInfo(str(file.relative_to(folder.parent)), moment.timetuple()[:6])
            entry.create_system, entry.external_attr = 3, 0o100644 << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            out.writestr(entry, file.read_bytes())


def sha256(file):
    return hashlib.sha256(file.read_bytes()).hexdigest()


def write_sums(folder):
    files = sorted(path for path in folder.rglob("*") if path.is_file() and path.name != "SHA256SUMS")
    (folder / "SHA256SUMS").write_text("".join("%s  %s\n" % (sha256(f), f.relative_to(folder)) for f in files))


class Signer:
    """Signs and verifies with osslsigncode, or does nothing without a key."""

    def __init__(self, options, epoch):
        self.arguments, self.ca, self.epoch, self.url = [], options.ca, epoch, options.timestamp
        password = ["-readpass", options.password_file] if options.password_file else []
        if options.sign:
            self.arguments = ["-pkcs12", options.sign, *password]
            self.ca = self.ca or self.certificates_of(options)
        elif options.pkcs11:
            if not options.key or not options.certificate:
                sys.exit("--pkcs11 needs --key and --certificate")
            self.arguments = ["-pkcs11module", options.pkcs11, "-key", options.key, "-certs", options.certificate,
                              *password]
            self.ca = self.ca or options.certificate

    @staticmethod
    def certificates_of(options):
        if not options.password_file:
            sys.exit("--sign needs --password-file")
        file = OUT / "signer.pem"
        run("openssl", "pkcs12", "-in", options.sign, "-nokeys", "-passin", "file:%s" % options.password_file,
            "-out", file)
        return file

    def sign(self, file):
        if not self.arguments:
            return
        signed = file.with_name(file.name + ".signed")
        # Without a time-stamp server the time in the signature is the commit's, and not vouched for.
        time = ["-ts", self.url] if self.url else ["-st", self.epoch]
        dse = ["-add-msi-dse"] if file.suffix == ".msi" else []
        run("osslsigncode", "sign", *self.arguments, "-h", "sha256", "-n", "ZAREXT", *time, *dse,
            "-in", file, "-out", signed)
        signed.replace(file)
        run("osslsigncode", "verify", "-CAfile", self.ca, "-in", file)
        print("signed and verified: %s" % file.name)


def stage_zip(folder, version):
    for name in ("include", "lib", "docs", "licences"):
        (folder / name).mkdir(parents=True)
    copy = lambda source, target="": shutil.copyfile(source, folder / target / Path(source).name)
    copy(BUILT / "bin/ZAREXT.dll")
    copy(BUILT / "bin/zarextctl.exe")
    copy(INSTALLER / "zarext-user-store.reg")
    copy(ROOT / "include/zarext.h", "include")
    copy(BUILT / "lib/libZAREXT.dll.a", "lib")
    for name in ("install", "reference", "compatibility", "support"):
        copy(ROOT / "docs" / (name + ".md"), "docs")
    copy(ROOT / "CHANGELOG.md")
    copy(ROOT / "SECURITY.md")
    shutil.copyfile("/usr/share/doc/gcc-mingw-w64-x86-64-posix-runtime/copyright", folder / "licences/gcc-runtime.txt")
    shutil.copyfile("/usr/share/doc/mingw-w64-x86-64-dev/copyright", folder / "licences/mingw-w64-runtime.txt")
    shutil.copyfile("/usr/share/doc/libcli11-dev/copyright", folder / "licences/cli11.txt")
    shutil.copyfile("/usr/share/doc/nlohmann-json3-dev/copyright", folder / "licences/nlohmann-json.txt")
    copy("/usr/share/common-licenses/GPL-3", "licences")
    (folder / "licences/GPL-3").rename(folder / "licences/GPL-3.txt")
    (folder / "licences/README.txt").write_text(LICENCES)


def make_installer(handed_out, installer, version, epoch, signer):
    """From the staged files of the zip. wixl says nothing of what it drops, hence the fatal warnings."""
    work = OUT / "installer"
    shutil.rmtree(work, ignore_errors=True)
    shutil.copytree(handed_out, work)
    shutil.copyfile(INSTALLER / "zarext.wxs", work / "zarext.wxs")
    parts = sorted((work / "licences").iterdir(), key=lambda part: (part.name != "README.txt", part.name))
    (work / "licences.txt").write_text("\n\n".join("%s\n\n%s" % (p.name, p.read_text()) for p in parts))
    for file in work.rglob("*"):
        os.utime(file, (epoch, epoch))
    defines = {"Version": version, "VersionCommas": (version + ".0").replace(".", ","),
               "ProductCode": str(uuid.uuid5(NAMESPACE, "product " + version)).upper()}
    # The times of the files go into the cabinet as local ones.
    run("wixl", "-a", "x64", *(part for pair in defines.items() for part in ("-D", "%s=%s" % pair)),
        "-o", installer, "zarext.wxs", cwd=work, env=dict(os.environ, TZ="UTC", G_DEBUG="fatal-warnings"))
    queries = [
        # Properties are set at once (wixl marks them as run in the system's context); rollback actions
        # run only when the installation is taken back, and whatever comes of them.
        "UPDATE CustomAction SET Type = 51 WHERE Action = 'UseRememberedDir'",
        "UPDATE CustomAction SET Type = 51 WHERE Action = 'FindRegsvr32'",
        "UPDATE CustomAction SET Type = 3442 WHERE Action = 'TakeBackRegister'",
        "UPDATE CustomAction SET Type = 3442 WHERE Action = 'TakeBackUnregister'",
        "UPDATE Property SET Value = 'INSTALLDIR;REMEMBEREDDIR;WIX_DOWNGRADE_DETECTED;WIX_UPGRADE_DETECTED' "
        "WHERE Property = 'SecureCustomProperties'",
    ]
    # Whether a component is installed is decided while the older product's file is still there; what is
    # not newer than it would be left out, and then removed with the older product. An image that claims
    # the highest version is always installed.
    for image in ("ZAREXT.dll", "zarextctl.exe"):
        queries += ["UPDATE File SET Version = '65535.0.0.0', Language = '1033' WHERE File = '%s'" % image,
                    "DELETE FROM MsiFileHash WHERE File_ = '%s'" % image]
    for query in queries:
        run("msibuild", installer, "-q", query)
    package_code = uuid.uuid5(NAMESPACE, "package " + " ".join(
        sha256(file) for file in sorted(work.rglob("*")) if file.is_file()))
    time = datetime.fromtimestamp(epoch, timezone.utc).strftime("%Y/%m/%d %H:%M:%S")
    summary = {1: 1252, 2: "Installation Database", 3: "Certificate framework extension for Zarvel CSP", 4: "Zarvel",
               5: "Installer", 6: "ZAREXT " + version, 7: "x64;1033", 9: "{%s}" % str(package_code).upper(),
               12: time, 13: time, 14: 200, 15: 2, 18: "ZAREXT", 19: 2}
    table = work / "_SummaryInformation.idt"
    table.write_text("PropertyId\tValue\r\ni2\tl255\r\n_SummaryInformation\tPropertyId\r\n"
                     + "".join("%d\t%s\r\n" % row for row in summary.items()), newline="")
    run("msibuild", installer, "-i", table, env=dict(os.environ, TZ="UTC"))
    signer.sign(installer)


def package_version(package):
    return run("dpkg-query", "-W", "-f", "${Version}", package).strip()


def make_spdx(handed_out, file, version, epoch):
    """SPDX 2.3: the product, the runtimes that are linked into it, and the files with their sums."""
    def package(identifier, name, its_version, licence, files_analyzed=False, **more):
        return {"SPDXID": "SPDXRef-" + identifier, "name": name, "versionInfo": its_version,
                "downloadLocation": "NOASSERTION", "filesAnalyzed": files_analyzed, "licenseConcluded": licence,
                "licenseDeclared": licence, "copyrightText": "NOASSERTION", **more}

    files = [{"SPDXID": "SPDXRef-File-%d" % i, "fileName": "./" + str(path.relative_to(handed_out)),
              "checksums": [{"algorithm": "SHA256", "checksumValue": sha256(path)},
                            {"algorithm": "SHA1", "checksumValue": hashlib.sha1(path.read_bytes()).hexdigest()}],
              "licenseConcluded": "NOASSERTION", "copyrightText": "NOASSERTION"}
             for i, path in enumerate(sorted(p for p in handed_out.rglob("*") if p.is_file()))]
    packages = [package("ZAREXT", "ZAREXT", version, "NOASSERTION", supplier="NOASSERTION")]
    relations = [("SPDXRef-DOCUMENT", "DESCRIBES", "SPDXRef-ZAREXT")]
    for i, (name, debian, licence) in enumerate(RUNTIMES):
        its_version = package_version(debian)
        packages.append(package("Runtime-%d" % i, name, its_version, licence, externalRefs=[{
            "referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
            "referenceLocator": "pkg:deb/debian/%s@%s" % (debian, its_version.replace(":", "%3A").replace("+", "%2B"))}]))
        relations.append(("SPDXRef-ZAREXT", "STATIC_LINK", "SPDXRef-Runtime-%d" % i))
    relations += [("SPDXRef-ZAREXT", "CONTAINS", entry["SPDXID"]) for entry in files]
    sums = "".join(entry["checksums"][0]["checksumValue"] for entry in files)
    document = {
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT", "name": "zarext-" + version,
        "documentNamespace": "urn:uuid:%s" % uuid.uuid5(NAMESPACE, "contents " + sums),
        "creationInfo": {"created": datetime.fromtimestamp(epoch, timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
                         "creators": ["Tool: zarext-script-package"],
                         "comment": "Compiler: " + run("clang++-19", "--version").splitlines()[0]},
        "packages": packages, "files": files,
        "relationships": [{"spdxElementId": a, "relationshipType": kind, "relatedSpdxElement": b}
                          for a, kind, b in relations]}
    file.write_text(json.dumps(document, indent=1) + "\n")


# Tests that write into the system's certificate stores, which check.cmd leaves out but with /all: "stores" for
# a whole program, else GoogleTest's filter.
SYSTEM_STORES = {
    "store_system": "stores", "soak_threads": "stores",
    "anomaly_contract": "-AnomalySystemStores*", "flow_e2e": "-Maintenance.*",
    "store_contract": "-StoreLoad.*", "store_e2e": "-StoreContainers.ARoot*",
}


def stage_check(folder, handed_out):
    """The test programs of the preset windows beside the module as it is handed out."""
    tests = json.loads(run("ctest", "--preset", "windows", "-L", "wine", "--show-only=json-v1", cwd=ROOT))["tests"]
    # Those of the tool compare with files of the sources.
    names = [test["name"] for test in tests if not test["name"].startswith("ctl_")]
    binaries = ROOT / "build/windows/bin"
    bin = folder / "bin"
    bin.mkdir(parents=True)
    programs = [binaries / (name + ".exe") for name in [*names, "zarext-check", "zarext-demo"]]
    libraries = [file for file in binaries.glob("*.dll") if file.name not in ("ZAREXT.dll", "empty_module.dll")]
    for file in programs + sorted(libraries):
        run("x86_64-w64-mingw32-strip", "--strip-all", "--preserve-dates", "-o", bin / file.name, file)
    shutil.copyfile(handed_out / "ZAREXT.dll", bin / "ZAREXT.dll")
    certificates = OUT / "certificates"
    run("script/demo-certificates", certificates, cwd=ROOT)
    (folder / "certificates").mkdir()
    for file in certificates.glob("*.der"):
        shutil.copyfile(file, folder / "certificates" / file.name)
    rows = []
    for name in names:
        what = SYSTEM_STORES.get(name, "*")
        rows.append("%s stores *" % name if what == "stores" else "%s any %s" % (name, what))
    rows.append("zarext-demo stores *")
    (folder / "programs.txt").write_text("".join(row + "\r\n" for row in rows), newline="")
    shutil.copyfile(ROOT / "tools/check/check.cmd", folder / "check.cmd")
    shutil.copyfile(ROOT / "tools/check/README.md", folder / "README.md")


def main():
    parser = argparse.ArgumentParser(prog="script/package", description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--check", action="store_true", help="the tests too: builds the preset windows")
    parser.add_argument("--sign", type=Path, metavar="FILE.p12")
    parser.add_argument("--pkcs11", type=Path, metavar="MODULE")
    parser.add_argument("--key", metavar="URI", help="the key in the token")
    parser.add_argument("--certificate", type=Path, metavar="FILE")
    parser.add_argument("--password-file", type=Path, metavar="FILE")
    parser.add_argument("--ca", type=Path, metavar="FILE")
    parser.add_argument("--timestamp", metavar="URL", help="a time-stamp server (RFC 3161)")
    parser.add_argument("--output", type=Path, metavar="FOLDER", help="another folder, whose contents are deleted first")
    options = parser.parse_args()
    if options.output:
        global OUT
        OUT = options.output.resolve()

    version, epoch = version_text(), commit_time()
    os.environ["SOURCE_DATE_EPOCH"] = str(epoch)
    os.umask(0o022)
    build("windows-release", "zarext", "zarextctl")
    shutil.rmtree(OUT, ignore_errors=True)
    OUT.mkdir(parents=True)
    signer = Signer(options, epoch)

    name = "zarext-" + version
    handed_out = OUT / name
    stage_zip(handed_out, version)
    for image in ("ZAREXT.dll", "zarextctl.exe"):
        signer.sign(handed_out / image)
    make_installer(handed_out, OUT / (name + ".msi"), version, epoch, signer)
    make_spdx(handed_out, OUT / (name + ".spdx.json"), version, epoch)
    write_sums(handed_out)
    zip_folder(handed_out, OUT / (name + ".zip"), epoch)

    symbols = OUT / (name + "-symbols")
    symbols.mkdir()
    for pdb in sorted((BUILT / "bin").glob("*.pdb")):
        shutil.copyfile(pdb, symbols / pdb.name)
    zip_folder(symbols, OUT / (name + "-symbols.zip"), epoch)

    if options.check:
        build("windows")
        check = OUT / ("zarext-check-" + version)
        stage_check(check, handed_out)
        zip_folder(check, OUT / (check.name + ".zip"), epoch)

    for rest in [path for path in OUT.iterdir() if path.is_dir() or path.name == "signer.pem"]:
        shutil.rmtree(rest) if rest.is_dir() else rest.unlink()
    write_sums(OUT)
    for file in sorted(OUT.iterdir()):
        print("%9d  %s" % (file.stat().st_size, os.path.relpath(file, ROOT)))


if __name__ == "__main__":
    main()
