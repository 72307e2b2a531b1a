#!/usr/bin/env python3
"""The release as a security team checks it. The release is built a second time, from the same
sources, in a build folder of its own (release-rebuild, configured without the tests: only the two
programs and the installer's custom actions are compiled before cpack), and must be the same bytes
as this build's; then it is signed with a throwaway CA's code-signing certificate, once from PEM
files and once from a PKCS#12 file. The custom actions' DLL, which runs as SYSTEM, is signed and
listed in the bill of materials like the programs, and the MSI holds it as signed.

osslsigncode checks the signatures, their digests and their chain to that CA. (Wine's WinVerifyTrust
would add nothing: it checks a program's digest alone, not the chain, and no MSI.)
"""

import glob
import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "demo"))
from wineprefix import build_dir_argument  # noqa: E402

BUILD_DIR = None
SOURCE_DIR = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
PROGRAMS = ["cvupdater.exe", "cvupsettings.exe"]
# The policy templates, in the ZIP's policy folder and beside the MSI.
TEMPLATES = ["policy/en-US/orrery-updater.adml", "policy/orrery-updater-sample.reg",
             "policy/orrery-updater.admx"]
ACTIONS = "orreryactions.dll"  # Built into the MSI (Binary.OrreryActions), not in the ZIP.
RUNTIME = {"MinGW-w64 CRT", "libstdc++", "libgcc", "winpthreads"}


def sha256(path):
    with open(path, "rb") as f:
        return hashlib.sha256(f.read()).hexdigest()


def run(command, **options):
    """The command's output; its output in the exception when it fails."""
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            **options)
    if result.returncode != 0:
        raise RuntimeError("%s exited %d:\n%s" % (" ".join(command), result.returncode,
                                                  result.stdout[-3000:]))
    return result.stdout


def msi_table(msi, table):
    """The rows of an MSI table, each a dict of its columns (msiinfo export)."""
    lines = run(["msiinfo", "export", msi, table]).splitlines()
    return [dict(zip(lines[0].split("\t"), row.split("\t"))) for row in lines[3:]]


def product_code(msi):
    return {r["Property"]: r["Value"] for r in msi_table(msi, "Property")}["ProductCode"]


def release(build):
    """{name: path} of a build's release files: the staged programs and the packages."""
    staged = glob.glob(os.path.join(build, "_CPack_Packages", "*", "ZIP", "*", "cvupdater.exe"))
    files = {name: os.path.join(os.path.dirname(staged[0]), name) for name in PROGRAMS}
    files[ACTIONS] = os.path.join(os.path.dirname(staged[0]), "..", "msi-binary", ACTIONS)
    for pattern in ("*-x64.msi", "*-win64.zip", "*.spdx.json", "SHA256SUMS"):
        path = glob.glob(os.path.join(build, pattern))[0]
        files[os.path.basename(path)] = path
    files.update({name: os.path.join(build, name) for name in TEMPLATES})
    return files


def package(build, **signing):
    """Configures `build` with the signing options given (none: unsigned) and makes the release;
    returns a copy of its files, which the next package() replaces."""
    options = dict(dict.fromkeys(["UPDATER_SIGNING_CERT", "UPDATER_SIGNING_KEY",
                                  "UPDATER_SIGNING_PKCS12", "UPDATER_SIGNING_PASSWORD_FILE",
                                  "UPDATER_SIGNATURES_FROM", "UPDATER_SIGNATURES_CA"], ""),
                   **signing)
    run(["cmake", "-S", SOURCE_DIR, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
         "-DCMAKE_TOOLCHAIN_FILE=" + os.path.join(SOURCE_DIR, "cmake", "mingw-w64-x86_64.cmake"),
         "-DUPDATER_BUILD_TESTS=OFF"] + ["-D%s=%s" % option for option in options.items()])
    run(["cmake", "--build", build, "--target", "cvupdater", "cvupsettings", "orreryactions"])
    output = run(["cpack", "--config", "CPackConfig.cmake"], cwd=build)
    copy = tempfile.mkdtemp(dir=Release.scratch)
    files = {}
    for name, path in release(build).items():
        os.makedirs(os.path.dirname(os.path.join(copy, name)), exist_ok=True)
        files[name] = shutil.copy(path, os.path.join(copy, name))
    return files, output


def throwaway_keys(folder):
    """A CA and a code-signing certificate it issued, valid from 2000 for a century (the
    signatures carry the commit's time), as PEM files and as a PKCS#12 file with a password."""
    def openssl(*arguments):
        run(["faketime", "2000-01-01 00:00:00", "openssl"] + list(arguments), cwd=folder)
    openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "ca.key", "-out", "ca.pem",
            "-subj", "/CN=Throwaway Test CA", "-days", "36500",
            "-addext", "basicConstraints=critical,CA:TRUE",
            "-addext", "keyUsage=critical,keyCertSign")
    openssl("req", "-newkey", "rsa:2048", "-nodes", "-keyout", "sign.key", "-out", "sign.csr",
            "-subj", "/CN=Corvane Test Signing")
    with open(os.path.join(folder, "leaf.ext"), "w") as f:
        f.write("basicConstraints=CA:FALSE\nkeyUsage=critical,digitalSignature\n"
                "extendedKeyUsage=codeSigning\n")
    openssl("x509", "-req", "-in", "sign.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-set_serial",
            "1", "-days", "36500", "-extfile", "leaf.ext", "-out", "sign.pem")
    with open(os.path.join(folder, "password"), "w") as f:
        f.write("throwaway password\n")
    openssl("pkcs12", "-export", "-in", "sign.pem", "-inkey", "sign.key", "-out", "sign.p12",
            "-passout", "file:password")
    return {name: os.path.join(folder, name) for name in ("ca.pem", "sign.pem", "sign.key",
                                                          "sign.p12", "password")}


class Release(unittest.TestCase):
    scratch = None

    @classmethod
    def setUpClass(cls):
        Release.scratch = tempfile.mkdtemp(prefix="release-test-")
        cls.rebuild = os.path.join(BUILD_DIR, "release-rebuild")
        cls.first = release(BUILD_DIR)
        cls.second, cls.unsigned_output = package(cls.rebuild)
        other = tempfile.mkdtemp(dir=cls.scratch)
        run(["cpack", "--config", "CPackConfig.cmake", "-B", other, "-D",
             "CPACK_PACKAGE_VERSION=9.9.9", "-D", "CPACK_MSI_FILE_NAME=other.msi"], cwd=cls.rebuild)
        cls.other_version = os.path.join(other, "other.msi")
        keys = cls.keys = throwaway_keys(tempfile.mkdtemp(dir=cls.scratch))
        cls.signed, _ = package(cls.rebuild, UPDATER_SIGNING_CERT=keys["sign.pem"],
                                UPDATER_SIGNING_KEY=keys["sign.key"])
        cls.signed_pkcs12, _ = package(cls.rebuild, UPDATER_SIGNING_PKCS12=keys["sign.p12"],
                                       UPDATER_SIGNING_PASSWORD_FILE=keys["password"])
        # Anyone can rebuild a signed release: with the published one's signatures, without a key.
        published = tempfile.mkdtemp(dir=cls.scratch)
        for name, path in cls.signed.items():
            if name.endswith(".msi"):
                shutil.copy(path, published)
            elif name.endswith(".zip"):
                with zipfile.ZipFile(path) as z:
                    z.extractall(published)
        cls.attached, _ = package(cls.rebuild, UPDATER_SIGNATURES_FROM=published,
                                  UPDATER_SIGNATURES_CA=keys["ca.pem"])

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.scratch, ignore_errors=True)

    def test_two_builds_of_one_commit_are_the_same_bytes_and_an_unsigned_one_says_so(self):
        names = PROGRAMS + sorted(set(self.first) - set(PROGRAMS))
        differing = [n for n in names if sha256(self.first[n]) != sha256(self.second[n])]
        self.assertEqual([], differing[:1], "the first file that differs (of %s)" % differing)
        self.assertEqual(1, self.unsigned_output.count("The release is not signed"))

    def test_the_checksums_and_the_bill_of_materials_match(self):
        run(["sha256sum", "--quiet", "-c", "SHA256SUMS"], cwd=BUILD_DIR)
        with open(os.path.join(BUILD_DIR, "SHA256SUMS")) as f:
            self.assertLessEqual(set(TEMPLATES), {line.split()[1] for line in f})
        sbom_path = next(p for n, p in self.first.items() if n.endswith(".spdx.json"))
        with open(sbom_path, "rb") as f:
            sbom_bytes = f.read()
        with zipfile.ZipFile(next(p for n, p in self.first.items() if n.endswith(".zip"))) as z:
            zipped = [z.read(n) for n in z.namelist()
                      if n.endswith("/" + os.path.basename(sbom_path))]
        self.assertEqual([sbom_bytes], zipped)

        sbom = json.loads(sbom_bytes)
        self.assertEqual({"./" + n: sha256(self.first[n]) for n in PROGRAMS + TEMPLATES + [ACTIONS]},
                         {f["fileName"]: next(c["checksumValue"] for c in f["checksums"]
                                               if c["algorithm"] == "SHA256")
                          for f in sbom["files"]})
        project = sbom["packages"][0]
        self.assertEqual(run(["git", "rev-parse", "HEAD"], cwd=SOURCE_DIR).strip(),
                         project["sourceInfo"].split()[-1])
        debian = {}
        for entry in sbom["packages"][1:]:
            locator = entry["externalRefs"][0]["referenceLocator"]
            deb, version = re.match(r"pkg:deb/debian/([^@]+)@([^?]+)", locator).groups()
            self.assertEqual(version, entry["versionInfo"])
            debian[entry["name"]] = (deb, version)
        self.assertLessEqual(RUNTIME | {"wixl"}, set(debian))
        for name, (deb, version) in debian.items():
            self.assertEqual(run(["dpkg-query", "-W", "-f=${Version}", deb]), version, name)

    def test_one_product_per_version_and_the_programs_are_versioned_in_the_msi(self):
        msi = next(p for n, p in self.first.items() if n.endswith(".msi"))
        version = re.search(r"-(\d+\.\d+\.\d+)-x64\.msi$", msi).group(1)
        self.assertEqual(product_code(msi), product_code(self.second[os.path.basename(msi)]))
        self.assertEqual({n: (version + ".0", "1033") for n in PROGRAMS},
                         {r["File"]: (r["Version"], r["Language"])
                          for r in msi_table(msi, "File") if r["File"] in PROGRAMS})
        self.assertNotIn(product_code(self.other_version), (product_code(msi), "", None))

    def test_a_signed_release_verifies_and_is_reproducible(self):
        ca = self.keys["ca.pem"]
        msi = next(p for n, p in self.signed.items() if n.endswith(".msi"))
        signed = [self.signed[n] for n in PROGRAMS + [ACTIONS]] + [msi]
        for path in signed:
            verify = ["osslsigncode", "verify", "-CAfile", ca, "-in"]
            quiet = dict(stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            self.assertEqual(0, subprocess.run(verify + [path], **quiet).returncode, path)
            changed = path + ".changed"
            with open(path, "rb") as f:
                data = bytearray(f.read())
            # A byte of the program's code, or of the MSI's cabinet.
            at = data.find(b"MSCF") + 256 if path.endswith(".msi") else len(data) // 2
            data[at] ^= 1
            with open(changed, "wb") as f:
                f.write(data)
            self.assertNotEqual(0, subprocess.run(verify + [changed], **quiet).returncode, changed)
        # The MSI runs the DLL that was signed.
        built_in = os.path.join(os.path.dirname(msi), "built-in.dll")
        with open(built_in, "wb") as f:
            subprocess.run(["msiinfo", "extract", msi, "Binary.OrreryActions"], check=True, stdout=f)
        self.assertEqual(sha256(self.signed[ACTIONS]), sha256(built_in))
        signed = {n: sha256(p) for n, p in self.signed.items()}
        self.assertEqual(signed, {n: sha256(p) for n, p in self.signed_pkcs12.items()})
        self.assertEqual(signed, {n: sha256(p) for n, p in self.attached.items()})

        # Nothing of the key in the build folder or the packages.
        secrets = [subprocess.run(["openssl", "pkey", "-in", self.keys["sign.key"], "-outform",
                                   "DER"], check=True, stdout=subprocess.PIPE).stdout]
        with open(self.keys["sign.key"], "rb") as f:
            secrets += f.read().splitlines()[1:3]
        for folder, _, names in os.walk(self.rebuild):
            for name in names:
                with open(os.path.join(folder, name), "rb") as f:
                    data = f.read()
                self.assertFalse(any(s in data for s in secrets), os.path.join(folder, name))


if __name__ == "__main__":
    BUILD_DIR = build_dir_argument()
    unittest.main(verbosity=2)
