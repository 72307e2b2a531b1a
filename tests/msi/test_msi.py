#!/usr/bin/env python3
"""The Windows Installer package, installed by Wine's own msiexec in prefixes of their own: a silent
install with properties and its removal, a settings file of one's own and one that fails, a major
upgrade, a repair and a downgrade. Every process has a time limit, after which its prefix is ended
with `wineserver -k`. Where Wine differs from Windows: its msiexec exits 1627 where Windows' says
1603, and 69 for `/fa` (a repair is asked for with REINSTALL=ALL instead); its task scheduler keeps
neither triggers nor principal, so the definition the settings tool registered is read; and a key's
DACL lives only as long as the prefix's wineserver (it is not saved), so the server is kept running.
"""

import glob
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "demo"))
from wineprefix import Prefix, build_dir_argument  # noqa: E402

BUILD_DIR = None
SOURCE_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
FAMILY = r"HKLM\Software\CorvaneInkjet\QNV\Local"
STORE = FAMILY + r"\cvup"
EVENT_SOURCE = r"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\Orrery Updater"
TASK = r"C:\windows\system32\tasks\Corvane\Orrery Updater"
SHIPPED = ["DEPLOYING.md", "cvupdater.exe", "cvupqnv.loc", "cvupsettings.exe",
           "orrery-updater-system.xml", "orrery-updater-users.xml"]


class Msi(unittest.TestCase):
    def setUp(self):
        self.prefix = Prefix(os.path.join(BUILD_DIR, "msi", self._testMethodName)).create_from(
            os.path.join(BUILD_DIR, "template-prefix"))
        self.addCleanup(self.prefix.remove)
        self.prefix.keep_running()
        self.prefix.copy_in(glob.glob(os.path.join(BUILD_DIR, "orrery-updater-*-x64.msi"))[-1],
                            "C:\\", "orrery.msi")

    def msiexec(self, *arguments):
        """msiexec's exit code (0 for success) and its verbose log."""
        result = self.prefix.wine(["msiexec"] + list(arguments) + ["/qn", "/l*v", r"C:\msi.log"],
                                  timeout=180)
        return result.returncode, self.prefix.read(r"C:\msi.log") or ""

    def value(self, section, name, kind="REG_SZ"):
        return self.prefix.reg_value(STORE + "\\" + section, name, kind)

    def dacl(self, key):
        output = self.prefix.wine([os.path.join(BUILD_DIR, "bin", "test_helper.exe"), "key-dacl",
                                   key[5:]]).stdout
        return output[output.find("("):].strip()  # The ACEs alone: Wine keeps no "P" flag.

    def test_a_silent_install_is_configured_locked_and_scheduled_and_its_removal_leaves_nothing(self):
        folder = r"C:\Tools\Orrery"
        code, _ = self.msiexec("/i", r"C:\orrery.msi", "INSTALLDIR=" + folder + "\\",
                               "WEBSERVERURL=http://updates.example/[package_code]",
                               "DRIVERNAME=Office Driver", r"DATAPATH=C:\Data\Catalog")
        self.assertEqual(0, code)
        self.assertEqual(sorted(SHIPPED + ["orrery-updater-task.xml"]),
                         sorted(os.listdir(self.prefix.unix(folder))))
        self.assertEqual(["http://updates.example/[package_code]", "Office Driver", folder + "\\",
                          r"C:\Data\Catalog"],
                         [self.value(*v) for v in ((r"Settings\Updater", "WebServerUrl"),
                          ("Settings", "DriverName"), ("Settings", "DllPath"), ("Settings", "DataPath"))])
        self.assertEqual("0x7d0", self.value(r"Settings\Updater", "PrinterPollInterval", "REG_DWORD"))
        self.assertEqual(["(A;CI;KA;;;BA)(A;CI;KA;;;SY)"] * 2,
                         [self.dacl(STORE), self.dacl(STORE + r"\Settings\Updater")])
        self.assertTrue(self.prefix.exists(TASK))
        self.assertEqual([folder + r"\cvupdater.exe", "0x7"],
                         [self.prefix.reg_value(EVENT_SOURCE, "EventMessageFile", "REG_\\w+"),
                          self.prefix.reg_value(EVENT_SOURCE, "TypesSupported")])
        with open(self.prefix.unix(folder + r"\orrery-updater-task.xml"), encoding="utf-16") as f:
            task = f.read()
        for part in ("<RandomDelay>PT4H</RandomDelay>", "<UserId>S-1-5-18</UserId>",
                     '<Command>"%s\\cvupdater.exe"</Command>' % folder):
            self.assertIn(part, task)

        # One run of the installed program against the stand-in library asks with the installed
        # settings.
        vendor = r"C:\Vendor"
        self.prefix.copy_in(os.path.join(BUILD_DIR, "bin", "wupdstandin.dll"), vendor, "cvupwupd.DLL")
        self.prefix.write(vendor + r"\cvupwupd.DLL.ini", "[Library]\r\nJournal=C:\\library.txt\r\n")
        self.prefix.import_registry({STORE.replace("HKLM", "HKEY_LOCAL_MACHINE") + r"\Settings\Updater": {
            "WebUpdaterDllPath": vendor}})
        self.assertEqual(0, self.prefix.wine([self.prefix.unix(folder + r"\cvupdater.exe")],
                                             timeout=90).returncode)
        self.assertIn("url=http://updates.example/ORRERY-VERSION", self.prefix.read(r"C:\library.txt"))

        self.prefix.wine(["reg", "add", FAMILY + r"\othr\Settings", "/v", "X", "/d", "y", "/f"])
        code, _ = self.msiexec("/x", r"C:\orrery.msi")
        self.assertEqual(0, code)
        self.assertFalse(self.prefix.exists(folder) or self.prefix.exists(TASK))
        self.assertIsNone(self.value("Settings", "DriverName"))
        self.assertNotIn("Orrery Updater", self.prefix.wine(["reg", "query", EVENT_SOURCE[:-15]]).stdout)
        self.assertEqual("y", self.prefix.reg_value(FAMILY + r"\othr\Settings", "X", "REG_SZ"))

    def test_a_settings_file_of_ones_own_is_installed_and_one_that_fails_leaves_nothing(self):
        own = "[Software\\CorvaneInkjet\\QNV\\Local\\cvup\\Settings]\r\nDriverName=string:%s\r\n"
        self.prefix.write(r"C:\own.loc", own % "Own Driver")
        code, _ = self.msiexec("/i", r"C:\orrery.msi", r"SETTINGSFILE=C:\own.loc", "SCHEDULE=none")
        self.assertEqual(0, code)
        self.assertEqual(["Own Driver", None],
                         [self.value("Settings", "DriverName"), self.value("Settings", "DataPath")])
        self.assertFalse(self.prefix.exists(TASK))
        self.assertEqual(0, self.msiexec("/x", r"C:\orrery.msi")[0])

        self.prefix.write(r"C:\own.loc", own.replace("string:%s", "DWORD:1"))
        code, log = self.msiexec("/i", r"C:\orrery.msi", r"SETTINGSFILE=C:\own.loc")
        self.assertNotEqual(0, code)
        self.assertIn("InstallSettings. Return value 0", log)
        self.assertFalse(self.prefix.exists(r"C:\Program Files\Corvane\Orrery") or
                         self.prefix.exists(TASK))

    def test_a_major_upgrade_keeps_the_store_and_the_task_and_an_older_version_is_refused(self):
        staged = os.path.dirname(glob.glob(os.path.join(
            BUILD_DIR, "_CPack_Packages", "*", "ZIP", "*", "cvupdater.exe"))[-1])
        with tempfile.TemporaryDirectory() as old:
            for name in SHIPPED:
                shutil.copy(os.path.join(staged, name), old)
            with open(os.path.join(old, "cvupdater.exe"), "w") as f:
                f.write("the old program")
            subprocess.run(["wixl", "-a", "x64", "-D", "Version=0.9.0", "-D", "Files=.", "-o",
                            self.prefix.unix(r"C:\old.msi"),
                            os.path.join(SOURCE_DIR, "installer", "orrery-updater.wxs")],
                           cwd=old, check=True)
        self.assertEqual(0, self.msiexec("/i", r"C:\old.msi", "WEBSERVERURL=http://old/")[0])
        updater = STORE.replace("HKLM", "HKEY_LOCAL_MACHINE") + r"\Settings\Updater"
        self.prefix.import_registry({updater: {"DataUpdated": 2, "PrinterPollInterval": 1234}})

        self.assertEqual(0, self.msiexec("/i", r"C:\orrery.msi")[0])
        self.assertEqual(0, self.msiexec("/i", r"C:\orrery.msi", "REINSTALL=ALL",
                                            "REINSTALLMODE=omus")[0])  # A repair.
        self.assertEqual(["0x2", "0x4d2", "http://old/"],
                         [self.value(r"Settings\Updater", "DataUpdated", "REG_DWORD"),
                          self.value(r"Settings\Updater", "PrinterPollInterval", "REG_DWORD"),
                          self.value(r"Settings\Updater", "WebServerUrl")])
        with open(self.prefix.unix(r"C:\Program Files\Corvane\Orrery\cvupdater.exe"), "rb") as f:
            installed = f.read()
        with open(os.path.join(staged, "cvupdater.exe"), "rb") as f:
            self.assertEqual(f.read(), installed)
        self.assertTrue(self.prefix.exists(TASK))

        # The older one is refused by its launch condition (whose message Wine does not log).
        code, log = self.msiexec("/i", r"C:\old.msi")
        self.assertNotEqual(0, code)
        self.assertIn("Property(S): WIX_DOWNGRADE_DETECTED", log)
        with open(self.prefix.unix(r"C:\Program Files\Corvane\Orrery\cvupdater.exe"), "rb") as f:
            self.assertEqual(installed, f.read())


if __name__ == "__main__":
    BUILD_DIR = build_dir_argument()
    unittest.main(verbosity=2)
