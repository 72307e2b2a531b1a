#!/usr/bin/env python3
"""The Windows Installer package, installed by Wine's own msiexec in prefixes of their own: a silent
install with properties into a folder with Latin-1 letters and its removal, a settings file of
one's own, the properties it refuses and a settings file that fails (each leaving the machine as it
was), registry links planted in an open store (deleted as links by the next install's lock and by
the removal, their targets untouched), a major upgrade, a second install with a new value, a repair
and a downgrade. Every process
has a time limit, after which its prefix is ended with `wineserver -k`. msiexec's exit codes are read
in full through cmd's %ERRORLEVEL% (a Unix exit status keeps 8 bits). Where Wine differs from
Windows: msiexec answers `/fa` with 1605 (a repair is asked for with REINSTALL=ALL instead); its task
scheduler keeps neither triggers nor principal, so the definition the settings tool registered is
read; and a key's DACL lives only as long as the prefix's wineserver (it is not saved), so the
server is kept running.
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
KEPT_TASK = r"C:\Program Files\Corvane\Orrery\orrery-updater-task.xml"  # as the tool registered it
UNINSTALL = r"HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall"
HASH_A, HASH_B = "a" * 64, "0123456789ABCDEF" * 4  # TRUSTEDPUBLISHERS
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
        self.prefix.write(r"C:\msiexec.bat", "@start /wait msiexec %*\r\n@echo EXIT=%ERRORLEVEL%\r\n")

    def msiexec(self, *arguments):
        """msiexec's full exit code (0 for success) and its verbose log."""
        self.prefix.write(r"C:\msi.log", "")
        output = self.prefix.wine(["cmd", "/c", r"C:\msiexec.bat"] + list(arguments) +
                                  ["/qn", "/l*v", r"C:\msi.log"], timeout=180).stdout
        return int(output[output.rindex("EXIT=") + 5:].split()[0]), self.prefix.read(r"C:\msi.log")

    def kept_task(self):
        with open(self.prefix.unix(KEPT_TASK), encoding="utf-16") as f:
            return f.read()

    def export(self, key=STORE):
        """The key as `reg export` writes it ("" when there is none)."""
        path = self.prefix.unix(r"C:\store.reg")
        if os.path.exists(path):
            os.remove(path)
        self.prefix.wine(["reg", "export", key, r"C:\store.reg"])
        if not os.path.exists(path):
            return ""
        with open(path, encoding="utf-16") as f:
            return f.read()

    def value(self, section, name, kind="REG_SZ"):
        return self.prefix.reg_value(STORE + "\\" + section, name, kind)

    def installed_program(self):
        with open(self.prefix.unix(r"C:\Program Files\Corvane\Orrery\cvupdater.exe"), "rb") as f:
            return f.read()

    def dacl(self, key):
        output = self.prefix.wine([os.path.join(BUILD_DIR, "bin", "test_helper.exe"), "key-dacl",
                                   key[5:]]).stdout
        return output[output.find("("):].strip()  # The ACEs alone: Wine keeps no "P" flag.

    def test_a_silent_install_is_configured_locked_and_scheduled_and_its_removal_leaves_nothing(self):
        folder = "C:\\Program Files\\Orrery \u00dc Pr\u00f6gramme"  # Latin-1 letters, in the code page.
        code, _ = self.msiexec("/i", r"C:\orrery.msi", "INSTALLDIR=" + folder + "\\",
                               "WEBSERVERURL=http://updates.example/[package_code]",
                               "DRIVERNAME=Office Driver", r"DATAPATH=C:\Data\Catalog",
                               "SCHEDULE=System", "TRUSTEDPUBLISHERS=%s; %s" % (HASH_A, HASH_B))
        self.assertEqual(0, code)
        self.assertEqual(HASH_A + "\\0" + HASH_B,
                         self.value(r"Settings\Updater", "TrustedPublishers", "REG_MULTI_SZ"))
        self.assertEqual(sorted(SHIPPED + ["orrery-updater-task.xml"]),
                         sorted(os.listdir(self.prefix.unix(folder))))
        self.assertEqual(["http://updates.example/[package_code]", "Office Driver", r"C:\Data\Catalog"],
                         [self.value(*v) for v in ((r"Settings\Updater", "WebServerUrl"),
                          ("Settings", "DriverName"), ("Settings", "DataPath"))])
        # reg query prints in the code page: the folder is read from an export (UTF-16).
        self.assertIn('"DllPath"="%s\\\\"' % folder.replace("\\", "\\\\"), self.export())
        self.assertEqual("0x7d0", self.value(r"Settings\Updater", "PrinterPollInterval", "REG_DWORD"))
        self.assertEqual(["(A;CI;KA;;;BA)(A;CI;KA;;;SY)"] * 2,
                         [self.dacl(STORE), self.dacl(STORE + r"\Settings\Updater")])
        self.assertTrue(self.prefix.exists(TASK))
        source = self.export(EVENT_SOURCE)
        self.assertIn('"EventMessageFile"="%s\\\\cvupdater.exe"' % folder.replace("\\", "\\\\"), source)
        self.assertIn('"TypesSupported"=dword:00000007', source)
        with open(self.prefix.unix(folder + r"\orrery-updater-task.xml"), encoding="utf-16") as f:
            task = f.read()
        for part in ("<Interval>PT1H</Interval>", "<RandomDelay>PT1H</RandomDelay>",
                     "<UserId>S-1-5-18</UserId>", "<Arguments>/scheduled</Arguments>",
                     '<Command>"%s\\cvupdater.exe"</Command>' % folder):
            self.assertIn(part, task)

        # Removed while a run is alive with the log on and another process holds the log's mutex:
        # the run and the removal drop their lines after a bounded wait instead of hanging.
        self.prefix.wine(["reg", "add", FAMILY + r"\othr\Settings", "/v", "X", "/d", "y", "/f"])
        self.prefix.import_registry({STORE.replace("HKLM", "HKEY_LOCAL_MACHINE") + r"\Logger": {
            "startLog": 1}})
        holder = subprocess.Popen(["wine", os.path.join(BUILD_DIR, "bin", "test_helper.exe"),
                                   "mutex-hold", "CVLOG_cvupQNV.log", "msi_let_go", "release"],
                                  env=self.prefix.env, stdout=subprocess.PIPE, text=True)
        self.addCleanup(holder.wait)
        self.addCleanup(self.prefix.kill)
        self.assertEqual("held=1", holder.stdout.readline().strip())
        run = subprocess.Popen(["wine", self.prefix.unix(folder + r"\cvupdater.exe")],
                               env=self.prefix.env, stdout=subprocess.DEVNULL)
        code, _ = self.msiexec("/x", r"C:\orrery.msi")
        self.assertEqual(0, code)
        self.assertEqual(0, run.wait(timeout=60))
        self.assertFalse(self.prefix.exists(folder) or self.prefix.exists(TASK))
        self.assertIsNone(self.value("Settings", "DriverName"))
        self.assertNotIn("Orrery Updater", self.prefix.wine(["reg", "query", EVENT_SOURCE[:-15]]).stdout)
        self.assertEqual("y", self.prefix.reg_value(FAMILY + r"\othr\Settings", "X", "REG_SZ"))

    def test_a_settings_file_of_ones_own_is_installed_and_what_is_refused_leaves_all_as_it_was(self):
        own = "[Software\\CorvaneInkjet\\QNV\\Local\\cvup\\Settings]\r\nDriverName=string:%s\r\n"
        self.prefix.write(r"C:\bad.loc", own.replace("string:%s", "DWORD:1"))
        # A failed first install leaves no store, no family key, no files: the settings tool
        # failed, or a folder outside Program Files was refused before anything was written.
        for arguments, log_says in (
                ([r"SETTINGSFILE=C:\bad.loc"], "The settings tool failed (exit 1)"),
                (["INSTALLDIR=C:\\Tools\\Orrery\\"],
                 "INSTALLDIR=C:\\Tools\\Orrery\\ is refused: give a folder below "
                 "C:\\Program Files\\ (ProgramFiles64Folder)")):
            code, log = self.msiexec("/i", r"C:\orrery.msi", *arguments)
            self.assertEqual(1603, code)
            self.assertIn(log_says, log)
            self.assertNotEqual(0, self.prefix.wine(["reg", "query", r"HKLM\Software\CorvaneInkjet"]).returncode)
            self.assertEqual("", self.export())
            self.assertFalse(self.prefix.exists(r"C:\Program Files\Corvane") or self.prefix.exists(TASK)
                             or self.prefix.exists(r"C:\Tools"))

        self.prefix.write(r"C:\own.loc", own % "Own Driver")
        code, log = self.msiexec("/i", r"C:\orrery.msi", r"SETTINGSFILE=C:\own.loc", "SCHEDULE=none")
        self.assertEqual(0, code)
        # The tool installed the custom action's checked copy, deleted since.
        copy = log.split(r"SETTINGSFILE=C:\own.loc was read as checked into ")[1].split("\n")[0].strip()
        self.assertIn("cvupsettings: Installed the default settings from %s into" % copy, log)
        self.assertFalse(self.prefix.exists(copy))
        self.assertEqual(["Own Driver", None],
                         [self.value("Settings", "DriverName"), self.value("Settings", "DataPath")])
        self.assertFalse(self.prefix.exists(TASK))
        self.assertRegex(self.prefix.wine(["reg", "query", UNINSTALL, "/s"]).stdout,
                         r"InstallLocation\s+REG_SZ\s+C:\\Program Files\\Corvane\\Orrery\\")
        store = self.export()
        folder = self.prefix.unix(r"C:\Program Files\Corvane\Orrery")
        files = sorted(os.listdir(folder))

        # Each refused property fails with its reason in the log and changes nothing; the last
        # row gets as far as the settings tool, whose failure puts the store back.
        for arguments, log_says in (
                (["LOCKSTORE=2"], "LOCKSTORE=2 is refused"),
                (["SCHEDULE=bogus"], "SCHEDULE=bogus is refused"),
                (["SCHEDULE=Users", "LOCKSTORE=1"], "SCHEDULE=Users is refused: with LOCKSTORE=1"),
                (["SCHEDULE=system", "LOCKSTORE=0"], "SCHEDULE=system is refused: with LOCKSTORE=0"),
                (["TRUSTEDPUBLISHERS=" + HASH_A[1:]], "TRUSTEDPUBLISHERS=%s is refused" % HASH_A[1:]),
                (["SETTINGSFILE=own.loc"], "SETTINGSFILE=own.loc is refused: give the file's absolute"),
                ([r"SETTINGSFILE=C:\missing.loc"], r"SETTINGSFILE=C:\missing.loc is refused: the file"),
                (["DRIVERNAME=\u041f\u0440\u0438\u043d\u0442\u0435\u0440"],
                 "is refused: it has characters outside the system's code page"),
                # A double quote or a control character would end the settings tool's option and
                # start another (Wine's msiexec hands no double quote on from its command line).
                (["DRIVERNAME=Office\tDriver"],
                 "DRIVERNAME=Office\tDriver is refused: it holds a double quote or a control"),
                ([r"SETTINGSFILE=C:\bad.loc", "WEBSERVERURL=http://other/", "SCHEDULE=SYSTEM"],
                 "cvupsettings: Not installed as written:  DriverName: 'DWORD:1' has no type")):
            with self.subTest(arguments=arguments):
                code, log = self.msiexec("/i", r"C:\orrery.msi", *arguments)
                self.assertEqual(1603, code)
                self.assertIn(log_says, log)
                self.assertEqual(store, self.export())
                self.assertEqual(files, sorted(os.listdir(folder)))
                self.assertFalse(self.prefix.exists(TASK))
        self.assertEqual("(A;CI;KA;;;BA)(A;CI;KA;;;SY)", self.dacl(STORE))  # Locked again.

        self.assertEqual(0, self.msiexec("/x", r"C:\orrery.msi")[0])
        self.assertFalse(self.prefix.exists(r"C:\Program Files\Corvane"))

    def test_registry_links_planted_in_an_open_store_are_never_followed(self):
        helper = os.path.join(BUILD_DIR, "bin", "test_helper.exe")
        store, victim = STORE[5:], r"Software\Victim"

        def link(key, target):
            output = self.prefix.wine([helper, "reg-link", store + "\\" + key, target]).stdout
            self.assertIn("linked=1", output)

        def deleted(key, target):
            return ("cvupsettings: Deleted HKLM\\%s\\%s: a registry link to "
                    "\\Registry\\Machine\\%s" % (store, key, target))

        # The store open to users, under their task; one of them replaces Settings\Updater by a
        # link to a key elsewhere, and plants another.
        self.assertEqual(0, self.msiexec("/i", r"C:\orrery.msi", "SCHEDULE=users", "LOCKSTORE=0")[0])
        self.prefix.wine(["reg", "add", "HKLM\\" + victim + r"\Sub", "/v", "Keep", "/d", "me", "/f"])
        victim_dacl = self.dacl("HKLM\\" + victim + r"\Sub")
        self.prefix.wine(["reg", "delete", STORE + r"\Settings\Updater", "/f"])
        link(r"Settings\Updater", victim + r"\Sub")
        link(r"Logger\Evil", victim)

        # Locked for the SYSTEM task: the links go as links, and what they pointed to stays as it
        # was; the backup kept neither.
        code, log = self.msiexec("/i", r"C:\orrery.msi", "REINSTALL=ALL", "REINSTALLMODE=omus",
                                 "LOCKSTORE=1", "SCHEDULE=system")
        self.assertEqual(0, code)
        self.assertIn(deleted(r"Logger\Evil", victim), log)
        self.assertIn(deleted(r"Settings\Updater", victim + r"\Sub"), log)
        self.assertIn("Not kept with the settings before the install: HKLM\\%s\\Logger\\Evil, a "
                      "registry link" % store, log)
        self.assertEqual([victim_dacl, "me"], [self.dacl("HKLM\\" + victim + r"\Sub"),
                         self.prefix.reg_value("HKLM\\" + victim + r"\Sub", "Keep", "REG_SZ")])
        self.assertEqual("(A;CI;KA;;;BA)(A;CI;KA;;;SY)", self.dacl(STORE))
        with open(self.prefix.unix(r"C:\Program Files\Corvane\Orrery\orrery-updater-task.xml"),
                  encoding="utf-16") as f:
            self.assertIn("<UserId>S-1-5-18</UserId>", f.read())

        # The removal deletes a link as the link (here one only an administrator could plant).
        link(r"Settings\Evil", victim)
        self.assertEqual(0, self.msiexec("/x", r"C:\orrery.msi")[0])
        self.assertEqual("", self.export())
        self.assertEqual("me", self.prefix.reg_value("HKLM\\" + victim + r"\Sub", "Keep", "REG_SZ"))

    def test_a_major_upgrade_keeps_the_store_and_the_task_and_an_older_version_is_refused(self):
        staged = os.path.dirname(glob.glob(os.path.join(
            BUILD_DIR, "_CPack_Packages", "*", "ZIP", "*", "cvupdater.exe"))[-1])
        with tempfile.TemporaryDirectory() as old:
            for name in SHIPPED:
                shutil.copy(os.path.join(staged, name), old)
            with open(os.path.join(old, "cvupdater.exe"), "w") as f:
                f.write("the old program")
            # The older version's task started once a day, without the scheduled start's marker.
            with open(os.path.join(old, "orrery-updater-system.xml"), encoding="utf-8") as f:
                definition = f.read()
            with open(os.path.join(old, "orrery-updater-system.xml"), "w", encoding="utf-8") as f:
                f.write(definition.replace("<Arguments>/scheduled</Arguments>", ""))
            shutil.copy(os.path.join(BUILD_DIR, "bin", "orreryactions.dll"), old)
            subprocess.run(["wixl", "-a", "x64", "-D", "Version=0.9.0", "-D", "Files=.",
                            "-D", "Actions=orreryactions.dll", "-o",
                            self.prefix.unix(r"C:\old.msi"),
                            os.path.join(SOURCE_DIR, "installer", "orrery-updater.wxs")],
                           cwd=old, check=True)
        self.assertEqual(0, self.msiexec("/i", r"C:\old.msi", "WEBSERVERURL=http://old/")[0])
        updater = STORE.replace("HKLM", "HKEY_LOCAL_MACHINE") + r"\Settings\Updater"
        self.prefix.import_registry({updater: {"DataUpdated": 2, "PrinterPollInterval": 1234}})

        self.assertNotIn("<Arguments>/scheduled</Arguments>", self.kept_task())

        # An upgrade keeps what it is not given, and registers the task it installed again with
        # this version's definition; a second install applies what it is given.
        self.assertEqual(0, self.msiexec("/i", r"C:\orrery.msi")[0])
        self.assertEqual("http://old/", self.value(r"Settings\Updater", "WebServerUrl"))
        self.assertIn("<Arguments>/scheduled</Arguments>", self.kept_task())
        self.assertEqual(0, self.msiexec("/i", r"C:\orrery.msi", "REINSTALL=ALL",
                                            "REINSTALLMODE=omus", "WEBSERVERURL=http://new/")[0])
        self.assertEqual(["0x2", "0x4d2", "http://new/"],
                         [self.value(r"Settings\Updater", "DataUpdated", "REG_DWORD"),
                          self.value(r"Settings\Updater", "PrinterPollInterval", "REG_DWORD"),
                          self.value(r"Settings\Updater", "WebServerUrl")])
        installed = self.installed_program()
        with open(os.path.join(staged, "cvupdater.exe"), "rb") as f:
            self.assertEqual(f.read(), installed)
        self.assertTrue(self.prefix.exists(TASK))

        # The store cannot be opened under the SYSTEM task that stays.
        code, log = self.msiexec("/i", r"C:\orrery.msi", "REINSTALL=ALL", "REINSTALLMODE=omus",
                                 "LOCKSTORE=0")
        self.assertEqual(1603, code)
        self.assertIn("LOCKSTORE=0 is refused: the installed SYSTEM task (SCHEDULE=system), which "
                      "stays,", log)
        self.assertEqual("(A;CI;KA;;;BA)(A;CI;KA;;;SY)", self.dacl(STORE))

        # No task (SCHEDULE=none), and then a task made by hand, stay as they are.
        self.assertEqual(0, self.msiexec("/i", r"C:\orrery.msi", "REINSTALL=ALL",
                                            "REINSTALLMODE=omus", "SCHEDULE=none")[0])
        self.assertFalse(self.prefix.exists(TASK))
        self.assertEqual(0, self.msiexec("/i", r"C:\orrery.msi", "REINSTALL=ALL",
                                            "REINSTALLMODE=omus")[0])
        self.assertFalse(self.prefix.exists(TASK) or self.prefix.exists(KEPT_TASK))
        with open(self.prefix.unix(r"C:\own-task.xml"), "w", encoding="utf-16") as f:
            f.write('<Task version="1.2" xmlns="http://schemas.microsoft.com/windows/2004/02/mit/'
                    'task"><Actions><Exec><Command>C:\\own\\run.exe</Command></Exec></Actions>'
                    '</Task>')
        made = self.prefix.wine(["schtasks", "/Create", "/TN", r"Corvane\Orrery Updater", "/XML",
                                 r"C:\own-task.xml"])
        self.assertEqual(0, made.returncode, made.stdout)
        by_hand = self.prefix.read(TASK)
        self.assertEqual(0, self.msiexec("/i", r"C:\orrery.msi", "REINSTALL=ALL",
                                            "REINSTALLMODE=omus")[0])
        self.assertEqual(by_hand, self.prefix.read(TASK))
        self.assertFalse(self.prefix.exists(KEPT_TASK))

        # The older one is refused by its launch condition (whose message Wine does not log).
        code, log = self.msiexec("/i", r"C:\old.msi")
        self.assertEqual(1603, code)
        self.assertIn("Property(S): WIX_DOWNGRADE_DETECTED", log)
        self.assertEqual(installed, self.installed_program())


if __name__ == "__main__":
    BUILD_DIR = build_dir_argument()
    unittest.main(verbosity=2)
