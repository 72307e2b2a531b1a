#!/usr/bin/env python3
"""Black-box tests of the shipped cvupdater.exe under Wine.

Each test gets a prefix of its own (a copy of the template), installs the program with the
stand-in web-updater library (scripted) and the stand-in spooler, runs the exe once and waits
until the prefix is idle, so that a relaunched child is waited for too. Every run has a time
limit; when it runs out the prefix is ended with `wineserver -k` (a relaunch by mistake would
otherwise go on forever).
"""

import argparse
import os
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "demo"))
from wineprefix import Prefix  # noqa: E402

BUILD_DIR = None
INSTALL = r"C:\Program Files\Corvane\Orrery"
STORE = r"HKEY_LOCAL_MACHINE\Software\CorvaneInkjet\QNV\Local\cvup"
LOG = r"C:\ProgramData\cvupQNV.log"
DRIVER = "Corvane Inkjet Driver"
RUN_LIMIT = 90


class ShippedProgram(unittest.TestCase):
    def setUp(self):
        name = self.id().rsplit(".", 1)[-1]
        self.prefix = Prefix(os.path.join(BUILD_DIR, "e2e", name)).create_from(
            os.path.join(BUILD_DIR, "template-prefix"))
        self.addCleanup(self.prefix.remove)
        bin_dir = os.path.join(BUILD_DIR, "bin")
        for file in ("cvupdater.exe", "winspool.drv"):
            self.prefix.copy_in(os.path.join(bin_dir, file), INSTALL)
        self.prefix.copy_in(os.path.join(bin_dir, "wupdstandin.dll"), INSTALL, "cvupwupd.DLL")
        self.prefix.write(INSTALL + r"\spooler-scenario.ini",
                          "[Spooler]\r\nPrinters=1\r\nJournal=C:\\e2e\\spooler.txt\r\n"
                          "[Printer0]\r\nName=Office Inkjet\r\nDriver=" + DRIVER +
                          "\r\nJobs=1\r\nDrainAfterPolls=1\r\n")
        self.prefix.import_registry({
            STORE + r"\Settings\Updater": {
                "WebUpdaterDllPath": INSTALL,
                "WebServerUrl": "http://updates.invalid/[package_code]",
                "TandemOrreryVersionPackageCode": "SWVER",
                "TandemCatalogVersionPackageCode": "DATAVER",
                "TandemOrreryDownloadPackageCode": "SWPKG",
                "TandemCatalogDownloadPackageCode": "DATAPKG",
                "PrinterPollInterval": 1,
            },
            STORE + r"\Settings": {"DriverName": DRIVER, "DllPath": INSTALL,
                                   "DataPath": r"C:\ProgramData\Corvane Inkjet Driver\Job Status"},
            STORE + r"\Logger": {"startLog": 1, "Proc_Id_In_Header": 1},
            r"HKEY_CURRENT_USER\Software\Wine\AppDefaults\cvupdater.exe\DllOverrides": {
                "winspool.drv": "native"},
        })

    def library(self, connection=1, software="2", data="2", apply="1"):
        self.prefix.write(INSTALL + r"\cvupwupd.DLL.ini",
                          "[Library]\r\nJournal=C:\\e2e\\library.txt\r\nConnection=%d\r\n"
                          "[Check]\r\nSWVER=%s\r\nDATAVER=%s\r\n"
                          "[Download]\r\nSWPKG=0,alloc,C:\\e2e\\sw.pkg\r\n"
                          "DATAPKG=0,buffer,C:\\e2e\\data.pkg\r\n[Apply]\r\n*=%s\r\n" % (
                              connection, software, data, apply))

    def printers(self, *printers):
        """The spooler's printers of the driver: (name, status) pairs; status 1 is paused."""
        text = "[Spooler]\r\nPrinters=%d\r\nJournal=C:\\e2e\\spooler.txt\r\n" % len(printers)
        for number, (name, status) in enumerate(printers):
            text += "[Printer%d]\r\nName=%s\r\nDriver=%s\r\nStatus=%d\r\n" % (
                number, name, DRIVER, status)
        self.prefix.write(INSTALL + r"\spooler-scenario.ini", text)

    def printer_commands(self):
        """The pause (1) and resume (2) commands that reached the spooler, as "name command"."""
        return [c.split("name=", 1)[1].split(" result=")[0].replace(" command=", " ")
                for c in self.journal("spooler.txt") if " SetPrinterA " in c]

    def pause_record(self):
        out = self.prefix.wine(["reg", "query", STORE + r"\Settings\Updater", "/v",
                                "PausedPrinters"]).stdout
        line = [l for l in out.splitlines() if "PausedPrinters" in l]
        return line[0].split("REG_MULTI_SZ", 1)[1].strip() if line else None

    def recovery_lines(self):
        return [l for l in self.log_texts() if "PauseRecord::recoverAbandonedPause()" in l]

    def windows_version(self, version):
        self.prefix.import_registry({
            r"HKEY_CURRENT_USER\Software\Wine\AppDefaults\cvupdater.exe": {"Version": version}})

    def run_program(self, *args, wait_idle=True):
        result = self.prefix.wine([self.prefix.unix(INSTALL + r"\cvupdater.exe")] + list(args),
                                  timeout=RUN_LIMIT, cwd=self.prefix.unix(INSTALL))
        self.assertEqual(0, result.returncode)
        if wait_idle:
            self.assertTrue(self.prefix.wait_idle(RUN_LIMIT), "the run did not end in time")

    def log_texts(self):
        return [line for line in (self.prefix.read(LOG) or "").splitlines()]

    def runs(self):
        return [l for l in self.log_texts() if "+UpdatesController::performUpdates()" in l]

    def journal(self, name):
        return (self.prefix.read("C:\\e2e\\" + name) or "").splitlines()

    def flag(self, name):
        return self.prefix.reg_dword(STORE + r"\Settings\Updater", name)

    def test_offline_machine_stops_the_run(self):
        self.library(connection=0, software="3", data="3")
        self.run_program()
        log = "\n".join(self.log_texts())
        self.assertIn("UpdatesController::isInternetStateOk() Internet connection is not available, "
                      "halting the update process", log)
        self.assertIn("UpdatesController::performUpdates() The InternetState is not OK to start "
                      "downloads, quitting the update process.", log)
        self.assertEqual(1, len(self.runs()))
        self.assertFalse([c for c in self.journal("library.txt") if "UpdCheckForUpdateA" in c])

    def test_windows7_relaunches_elevated_and_the_child_installs(self):
        self.library(software="3,1.1.0.0", data="3,2026.2")
        self.run_program()
        runs = self.runs()
        self.assertEqual(2, len(runs), "exactly the first run and its child, no grandchild")
        starts = [l for l in self.log_texts() if "+CommandLineParams::CommandLineParams(" in l]
        self.assertEqual(["", "-UAC"], [l.split("CommandLineParams(", 1)[1].rsplit(")", 1)[0]
                                        for l in starts])
        self.assertEqual(1, self.flag("CompleteSoftwareUpdated"))
        self.assertIsNone(self.flag("DataUpdated"))
        self.assertFalse(self.prefix.exists(r"C:\e2e\sw.pkg"))
        self.assertFalse(self.prefix.exists(r"C:\e2e\data.pkg"))
        commands = [c.split(" ", 1)[1] for c in self.journal("spooler.txt") if " SetPrinterA " in c]
        self.assertEqual(["SetPrinterA name=Office Inkjet command=1 result=1",
                          "SetPrinterA name=Office Inkjet command=2 result=1"], commands)
        pids = {c.split(" | ")[0] for c in self.journal("library.txt")}
        self.assertEqual(2, len(pids))
        applies = [c.split(" | ", 1)[1] for c in self.journal("library.txt") if "UpdApplyUpdateA" in c]
        self.assertEqual(2, len(applies))
        self.assertIn("dir=" + INSTALL + "\\ |", applies[0])

    def test_a_killed_install_leaves_no_printer_paused(self):
        self.windows_version("winxp64")
        self.printers(("Office Inkjet", 0), ("Back Office", 0))
        self.library(software="3,1.1.0.0", data="3,2026.2", apply="hang")
        installer = subprocess.Popen(["wine", self.prefix.unix(INSTALL + r"\cvupdater.exe")],
                                     env=self.prefix.env, cwd=self.prefix.unix(INSTALL),
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(installer.wait)
        self.addCleanup(self.prefix.kill)
        deadline = time.time() + RUN_LIMIT
        hung = []
        while not hung and time.time() < deadline:
            time.sleep(0.05)
            hung = [c for c in self.journal("library.txt") if "result=hang" in c]
        self.assertTrue(hung, "the install never reached the library's apply")
        self.assertEqual(["Office Inkjet 1", "Back Office 1"], self.printer_commands())

        # While the installer lives, a new run leaves its printers alone.
        self.library(software="2", data="2")
        self.run_program(wait_idle=False)
        self.assertEqual([], self.recovery_lines())
        self.assertEqual(2, len(self.printer_commands()))

        # Killed the way a crash ends it: both printers stay paused, and the record says so.
        self.prefix.wine(["taskkill", "/F", "/PID", hung[0].split(" | ")[0]])
        installer.wait(timeout=RUN_LIMIT)
        self.assertEqual("Office Inkjet\\0Back Office", self.pause_record())

        # The next run resumes exactly those two (the stand-in spooler keeps its printers' state
        # per process, so the scenario now shows them as the killed run left them), not a printer
        # someone else paused, clears the record, and goes on with its update check.
        self.printers(("Office Inkjet", 1), ("Back Office", 1), ("Front Desk", 1))
        self.run_program()
        self.assertEqual(["Office Inkjet 2", "Back Office 2"], self.printer_commands()[2:])
        self.assertIsNone(self.pause_record())
        self.assertTrue(self.recovery_lines())
        self.assertTrue(any("Checking for updates failed or there are no updates available!" in l
                            for l in self.log_texts()[-30:]))

        # Nothing is left to recover.
        recovered = len(self.recovery_lines())
        self.run_program()
        self.assertEqual(recovered, len(self.recovery_lines()))

    def test_an_apply_that_throws_still_resumes_the_printers(self):
        self.windows_version("winxp64")
        self.printers(("Office Inkjet", 0), ("Back Office", 0))
        self.library(software="3,1.1.0.0", data="3,2026.2", apply="throw")
        self.run_program()
        self.assertEqual(["Office Inkjet 1", "Back Office 1", "Office Inkjet 2", "Back Office 2"],
                         self.printer_commands())
        self.assertIsNone(self.pause_record())
        self.assertFalse(self.prefix.exists(r"C:\e2e\sw.pkg"))
        self.assertFalse(self.prefix.exists(r"C:\e2e\data.pkg"))

    def test_windows_2003_installs_a_catalog_update_in_place(self):
        self.windows_version("winxp64")
        self.library(software="2", data="3,2026.2")
        self.run_program()
        self.assertEqual(1, len(self.runs()))
        self.assertEqual(1, self.flag("DataUpdated"))
        self.assertIsNone(self.flag("CompleteSoftwareUpdated"))
        self.assertFalse(self.prefix.exists(r"C:\e2e\data.pkg"))
        self.assertTrue(any("The OS is Win XP or Win 2K" in l for l in self.log_texts()))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--build-dir", required=True)
    args, rest = parser.parse_known_args()
    BUILD_DIR = os.path.abspath(args.build_dir)
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)
