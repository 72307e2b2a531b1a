"""Scratch Wine prefixes for the demo and the end-to-end tests.

Each prefix is a copy of one template prefix (made once with cmake/make-prefix.sh), so that a run
gets a machine of its own in about two seconds. Windows paths map into the prefix's drive_c.
Every process started in a prefix runs with a time limit; when it runs out the prefix is ended
with `wineserver -k`, which touches no other prefix.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys

SOURCE_DIR = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
MAKE_PREFIX = os.path.join(SOURCE_DIR, "cmake", "make-prefix.sh")


def build_dir_argument():
    """A test script's --build-dir, made absolute; the other arguments stay for unittest."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--build-dir", required=True)
    args, sys.argv[1:] = parser.parse_known_args()
    return os.path.abspath(args.build_dir)


class Prefix:
    def __init__(self, path, locale=None):
        """`locale` (e.g. "en_US.UTF-8") fixes the Windows locale; by default it follows LC_ALL."""
        self.path = path
        self.env = dict(os.environ, WINEPREFIX=path, WINEDEBUG="-all")
        self.env.pop("WINEDLLOVERRIDES", None)
        if locale:
            self.env["LC_ALL"] = locale
        self.launcher = []  # what runs wine: trust_root() puts it in a mount namespace

    def trust_root(self, ca_pem):
        """Wine programs run by wine() from now on trust the certificate `ca_pem` as a root
        (scripts/with-trusted-root.sh: needs root and `unshare -m`)."""
        self.launcher = [os.path.join(SOURCE_DIR, "scripts", "with-trusted-root.sh"), ca_pem]

    def create_from(self, template):
        """Replaces this prefix with a fresh copy of `template` (made first when missing)."""
        if not os.path.isfile(os.path.join(template, "system.reg")):
            subprocess.run([MAKE_PREFIX, template], check=True)
        self.kill()
        shutil.rmtree(self.path, ignore_errors=True)
        os.makedirs(os.path.dirname(self.path), exist_ok=True)
        subprocess.run(["cp", "-a", template, self.path], check=True)
        return self

    def keep_running(self):
        """Keeps the prefix's wineserver alive until kill(), and with it what Wine does not save,
        such as a key's DACL. Its services start here, kept apart from any output a test reads."""
        subprocess.run(["wineserver", "-p"], env=self.env, check=True)
        subprocess.run(["wine", "cmd", "/c", "exit"], env=self.env, timeout=60,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def remove(self):
        self.kill()
        shutil.rmtree(self.path, ignore_errors=True)

    def unix(self, windows_path):
        assert windows_path[1:3] == ":\\", windows_path
        return os.path.join(self.path, "drive_c", *windows_path[3:].split("\\"))

    def write(self, windows_path, text):
        path = self.unix(windows_path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="latin-1", newline="") as f:
            f.write(text)

    def read(self, windows_path):
        try:
            with open(self.unix(windows_path), encoding="latin-1", newline="") as f:
                return f.read()
        except OSError:
            return None

    def exists(self, windows_path):
        return os.path.exists(self.unix(windows_path))

    def copy_in(self, source, windows_dir, name=None):
        os.makedirs(self.unix(windows_dir), exist_ok=True)
        shutil.copy(source, os.path.join(self.unix(windows_dir), name or os.path.basename(source)))

    def wine(self, args, timeout=60, cwd=None):
        """Runs a Windows program; ends the whole prefix if it overruns."""
        try:
            return subprocess.run(self.launcher + ["wine"] + args, env=self.env, cwd=cwd,
                                  timeout=timeout, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, text=True, errors="replace")
        except subprocess.TimeoutExpired:
            self.kill()
            raise

    def wait_idle(self, timeout):
        """Waits until every process of the prefix has ended; ends them all on time-out."""
        try:
            subprocess.run(["wineserver", "-w"], env=self.env, timeout=timeout)
            return True
        except subprocess.TimeoutExpired:
            self.kill()
            return False

    def kill(self):
        if os.path.isdir(self.path):
            subprocess.run(["wineserver", "-k"], env=self.env, stderr=subprocess.DEVNULL)
            # A server still on its way out would serve the next prefix made at this path.
            subprocess.run(["wineserver", "-w"], env=self.env, stderr=subprocess.DEVNULL, timeout=60)

    def import_registry(self, entries):
        """Writes {key: {name: value}} (int: REG_DWORD, str: REG_SZ, list: REG_MULTI_SZ) through
        regedit."""
        lines = ["REGEDIT4", ""]
        for key, values in entries.items():
            lines.append("[" + key + "]")
            for name, value in values.items():
                if isinstance(value, int):
                    lines.append('"%s"=dword:%08x' % (name, value))
                elif isinstance(value, list):
                    data = "".join(item + "\0" for item in value) + "\0"
                    lines.append('"%s"=hex(7):%s' % (name, ",".join(
                        "%02x" % byte for byte in data.encode("latin-1"))))
                else:
                    lines.append('"%s"="%s"' % (name, value.replace("\\", "\\\\")))
            lines.append("")
        self.write(r"C:\import.reg", "\r\n".join(lines))
        self.wine(["regedit", "/S", r"C:\import.reg"])

    def reg_value(self, key, name, kind="REG_DWORD"):
        """A value's data as `reg query` prints it, or None when there is no such value."""
        out = self.wine(["reg", "query", key, "/v", name]).stdout
        match = re.search(re.escape(name) + r"\s+" + kind + r"\s+(.*?)\s*$", out, re.M)
        return match.group(1) if match else None

    def reg_dword(self, key, name):
        value = self.reg_value(key, name)
        return int(value, 16) if value else None
