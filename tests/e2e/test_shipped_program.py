#!/usr/bin/env python3
"""The shipped cvupdater.exe in a Wine prefix of its own with the stand-in library and spooler:
killed while its printers are paused and its packages are downloaded, its store installed by
cvupsettings.exe open to users (as a ZIP install leaves it) or locked (as the MSI does), the next
run resumes the printers and deletes the packages; several runs started at once update once, and
the runs that stand aside touch nothing. Every run has a time limit, after which the prefix is
ended with `wineserver -k`. A killed run's status shows it started and never ended, and each run
ends with one event, read from Wine's eventlog channel. (e2e_main_job covers a whole update run.)
"""

import os
import shutil
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "demo"))
from wineprefix import Prefix, build_dir_argument  # noqa: E402

BUILD_DIR = None
INSTALL = r"C:\Program Files\Corvane\Orrery"
STORE = r"HKEY_LOCAL_MACHINE\Software\CorvaneInkjet\QNV\Local\cvup"
LOG = r"C:\ProgramData\cvupQNV.log"
DRIVER = "Corvane Inkjet Driver"
RUN_LIMIT = 90
# How long the runs started at once get to stand aside before the slow apply may end.
STAND_ASIDE_LIMIT = 20
JOURNAL = r"C:\e2e\journal.txt"  # The library's and the spooler's calls, in one order.
GATE = r"C:\e2e\gate"  # Ends the library's slow ("gate") applies once it exists.
STOOD_ASIDE = "Another update run is in progress, this one ends."
PACKAGES = [r"C:\e2e\sw.pkg", r"C:\e2e\data.pkg"]


class ShippedProgram(unittest.TestCase):
    def setUp(self):
        self.prefix = Prefix(os.path.join(BUILD_DIR, "e2e", "killed")).create_from(
            os.path.join(BUILD_DIR, "template-prefix"))
        self.addCleanup(self.prefix.remove)
        bin_dir = os.path.join(BUILD_DIR, "bin")
        for file in ("cvupdater.exe", "winspool.drv", "cvupsettings.exe"):
            self.prefix.copy_in(os.path.join(bin_dir, file), INSTALL)
        self.prefix.copy_in(os.path.join(bin_dir, "wupdstandin.dll"), INSTALL, "cvupwupd.DLL")
        self.prefix.write(INSTALL + r"\cvupqnv.loc", "\r\n".join([
            "[" + STORE[len("HKEY_LOCAL_MACHINE\\"):] + r"\Settings\Updater]",
            "WebUpdaterDllPath=string:" + INSTALL, "WebServerUrl=string:http://updates.invalid/[package_code]",
            "TandemOrreryVersionPackageCode=string:SWVER", "TandemCatalogVersionPackageCode=string:DATAVER",
            "TandemOrreryDownloadPackageCode=string:SWPKG",
            "TandemCatalogDownloadPackageCode=string:DATAPKG", "PrinterPollInterval=dword:1",
            "[" + STORE[len("HKEY_LOCAL_MACHINE\\"):] + r"\Settings]",
            "DriverName=string:" + DRIVER, "DllPath=string:" + INSTALL,
            "[" + STORE[len("HKEY_LOCAL_MACHINE\\"):] + r"\Logger]", "startLog=dword:1", ""]))
        self.prefix.import_registry({
            r"HKEY_CURRENT_USER\Software\Wine\AppDefaults\cvupdater.exe": {"Version": "winxp64"},
            r"HKEY_CURRENT_USER\Software\Wine\AppDefaults\cvupdater.exe\DllOverrides": {
                "winspool.drv": "native"},
        })

    def library(self, software, data, apply, download="0,alloc," + PACKAGES[0],
                data_download="0,buffer," + PACKAGES[1]):
        self.prefix.write(INSTALL + r"\cvupwupd.DLL.ini",
                          "[Library]\r\nJournal=%s\r\nGate=%s\r\n[Check]\r\nSWVER=%s\r\n"
                          "DATAVER=%s\r\n[Download]\r\nSWPKG=%s\r\n"
                          "DATAPKG=%s\r\n[Apply]\r\n*=%s\r\n" % (
                              JOURNAL, GATE, software, data, download, data_download, apply))

    def printers(self, *printers):
        """The spooler's printers of the driver: (name, status[, jobs]) tuples; status 1 is paused,
        and jobs that are given never drain."""
        text = "[Spooler]\r\nPrinters=%d\r\nJournal=%s\r\n" % (len(printers), JOURNAL)
        for number, (name, status, *jobs) in enumerate(printers):
            text += "[Printer%d]\r\nName=%s\r\nDriver=%s\r\nStatus=%d\r\nJobs=%d\r\n" % (
                number, name, DRIVER, status, jobs[0] if jobs else 0)
        self.prefix.write(INSTALL + r"\spooler-scenario.ini", text)

    def journal(self):  # One line per call of either stand-in, led by the caller's pid.
        return (self.prefix.read(JOURNAL) or "").splitlines()

    def printer_commands(self):
        """The pause (1) and resume (2) commands that reached the spooler, as "name command"."""
        return [c.split("name=", 1)[1].split(" result=")[0].replace(" command=", " ")
                for c in self.journal() if " SetPrinterA " in c]

    def records_left(self):
        """The records in the store as the registry file says once the prefix has ended (faster
        than asking `reg query`, which starts the prefix again)."""
        with open(os.path.join(self.prefix.path, "system.reg"), encoding="latin-1") as f:
            text = f.read()
        key = "[" + (STORE + r"\Records").split("\\", 1)[1].replace("\\", "\\\\") + "]"
        values = text.split(key, 1)[1].split("\n\n", 1)[0] if key in text else ""
        return [name for name in ("PausedPrinters", "PendingDownloads") if '"%s"=' % name in values]

    def log_lines(self, text):
        return [l for l in (self.prefix.read(LOG) or "").splitlines() if l.endswith(text)]

    def start(self):
        return subprocess.Popen(["wine", self.prefix.unix(INSTALL + r"\cvupdater.exe")],
                                env=self.prefix.env, cwd=self.prefix.unix(INSTALL),
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def applies(self):
        """From the journal's order: the (pid, package) of every apply that ended, how many applies
        started while another was in progress, and how many printers were resumed meanwhile."""
        running, ended, overlapping, resumed = set(), [], 0, 0
        for line in self.journal():
            pid = line.split(" ", 1)[0]
            if " UpdApplyUpdateA " in line:
                package = line.split("package=", 1)[1].split(" |", 1)[0]
                if line.endswith(" | started"):
                    overlapping += bool(running)
                    running.add((pid, package))
                else:
                    running.discard((pid, package))
                    ended.append((pid, package))
            elif " SetPrinterA " in line and " command=2 " in line:
                resumed += bool(running)
        return ended, overlapping, resumed

    def run_at_once(self, runs, stood_aside):
        """Starts `runs` runs at once with the slow apply; lets it end once `stood_aside` runs have
        stood aside (or the limit ran out); returns their exit codes once every process ended."""
        for path in (LOG, JOURNAL, GATE):
            if self.prefix.exists(path):
                os.remove(self.prefix.unix(path))
        started = [self.start() for _ in range(runs)]
        self.addCleanup(lambda: [run.wait() for run in started])
        self.addCleanup(self.prefix.kill)  # First: a run that overran ends with its prefix.
        deadline = time.time() + STAND_ASIDE_LIMIT
        while len(self.log_lines(STOOD_ASIDE)) < stood_aside and time.time() < deadline:
            time.sleep(0.05)
        self.prefix.write(GATE, "")
        codes = [run.wait(timeout=RUN_LIMIT) for run in started]
        self.assertTrue(self.prefix.wait_idle(RUN_LIMIT), "the runs did not end in time")
        return codes

    def record(self, name):  # A REG_MULTI_SZ note as `reg query` prints it ("a\0b"), or None.
        return self.prefix.reg_value(STORE + r"\Records", name, "REG_MULTI_SZ")

    def install_store(self, lock):
        result = self.prefix.wine([self.prefix.unix(INSTALL + r"\cvupsettings.exe")] +
                                  (["/lock"] if lock else []), timeout=RUN_LIMIT,
                                  cwd=self.prefix.unix(INSTALL))
        self.assertEqual(0, result.returncode, result.stdout)

    def status(self, name, kind="REG_SZ"):  # A value of the run's status, or None.
        return self.prefix.reg_value(STORE + r"\Status", name, kind)

    def whole_status(self):
        """The values that tell a killed run, and the failures' count, as `reg query` prints them."""
        return {name: self.status(name, kind) for name, kind in (
            ("LastRunStarted", "REG_SZ"), ("LastRunEnded", "REG_SZ"), ("LastResult", "REG_SZ"),
            ("RunInProgress", "REG_DWORD"), ("ConsecutiveFailures", "REG_DWORD"))}

    def recovery_lines(self):
        return [l for l in (self.prefix.read(LOG) or "").splitlines()
                if "::recoverAbandoned" in l or "DownloadRecord: " in l]

    def run_program(self):
        """One run, as Windows XP presents it (no relaunch): it has ended when `wine` returns."""
        result = self.prefix.wine([self.prefix.unix(INSTALL + r"\cvupdater.exe")],
                                  timeout=RUN_LIMIT, cwd=self.prefix.unix(INSTALL))
        self.assertEqual(0, result.returncode)
        return result

    def test_a_killed_install_leaves_nothing_behind_with_an_open_store(self):
        self.killed_install_leaves_nothing_behind(lock=False)

    def test_a_killed_install_leaves_nothing_behind_with_a_locked_store(self):
        self.killed_install_leaves_nothing_behind(lock=True)

    def killed_install_leaves_nothing_behind(self, lock):
        self.prefix.keep_running()  # The keys' DACLs live as long as the wineserver.
        self.install_store(lock)
        self.printers(("Office Inkjet", 0), ("Back Office", 0))
        self.library(software="3,1.1.0.0", data="3,2026.2", apply="hang")
        self.prefix.import_registry({STORE + r"\Status": {
            "LastRunStarted": "2026-01-02T03:04:00Z", "LastRunEnded": "2026-01-02T03:04:05Z",
            "LastResult": "Offline", "RunInProgress": 0, "ConsecutiveFailures": 2}})
        installer = self.start()
        self.addCleanup(installer.wait)
        self.addCleanup(self.prefix.kill)
        deadline = time.time() + RUN_LIMIT
        hung = []
        while not hung and time.time() < deadline:
            time.sleep(0.05)
            hung = [c for c in self.journal() if "result=hang" in c]
        self.assertTrue(hung, "the install never reached the library's apply; its log ends:\n" +
                        "\n".join((self.prefix.read(LOG) or "").splitlines()[-30:]))
        self.assertEqual(["Office Inkjet 1", "Back Office 1"], self.printer_commands())
        # The run in the library's apply has said that it started, and not yet that it ended.
        status = self.whole_status()
        self.assertEqual("2026-01-02T03:04:05Z", status["LastRunEnded"])
        self.assertGreater(status["LastRunStarted"], status["LastRunEnded"])
        self.assertEqual(("Offline", "0x1", "0x2"), (
            status["LastResult"], status["RunInProgress"], status["ConsecutiveFailures"]))

        # While the installer lives, a new run stands aside: it leaves its printers and the status
        # alone.
        self.library(software="2", data="2", apply="1")
        self.run_program()
        self.assertEqual([], self.recovery_lines())
        self.assertEqual(1, len(self.log_lines(STOOD_ASIDE)))
        self.assertEqual(2, len(self.printer_commands()))
        self.assertEqual(status, self.whole_status())

        # Killed the way a crash ends it: both printers stay paused, both packages stay, and the
        # records say so; the status shows a run that started and never ended.
        self.prefix.wine(["taskkill", "/F", "/PID", hung[0].split(" | ")[0]])
        installer.wait(timeout=RUN_LIMIT)
        self.assertEqual(status, self.whole_status())
        self.assertEqual("Office Inkjet\\0Back Office", self.record("PausedPrinters"))
        downloads = self.record("PendingDownloads").split("\\0")
        self.assertEqual([r"C:\e2e\sw.pkg", r"C:\e2e\data.pkg"], [d.split("|")[2] for d in downloads])
        self.assertTrue(self.prefix.exists(r"C:\e2e\sw.pkg") and self.prefix.exists(r"C:\e2e\data.pkg"))

        # A forged entry that reaches a file through a link (a symbolic link made on the Unix side,
        # which Wine shows as a reparse point) deletes nothing.
        os.symlink("e2e", self.prefix.unix(r"C:\e2elink"))
        self.prefix.write(r"C:\e2e\victim.pkg", "victim")
        forged = downloads[0].split("|")[0] + r"|0|C:\e2elink\victim.pkg"
        self.prefix.import_registry({STORE + r"\Records": {
            "PendingDownloads": [forged] + downloads}})

        # The next run resumes exactly those two (the stand-in spooler keeps its printers' state
        # per process, so the scenario now shows them as the killed run left them), not a printer
        # someone else paused, clears the record, and goes on with its update run.
        self.printers(("Office Inkjet", 1), ("Back Office", 1), ("Front Desk", 1))
        self.run_program()
        self.assertEqual(["Office Inkjet 2", "Back Office 2"], self.printer_commands()[2:])
        self.assertIsNone(self.record("PausedPrinters"))
        self.assertIsNone(self.record("PendingDownloads"))
        self.assertEqual([False, False, True], [self.prefix.exists(p) for p in (
            r"C:\e2e\sw.pkg", r"C:\e2e\data.pkg", r"C:\e2e\victim.pkg")])
        recovered = self.recovery_lines()
        self.assertTrue(any("DownloadRecord: not deleting 'C:\\e2elink\\victim.pkg': a link in its path"
                            in l for l in recovered), recovered)

        # A catalog that the library says it put at a link to a folder is not recorded, nor deleted
        # through the link after the apply (the log says so), and the folder stays.
        self.library(software="2", data="3,2026.3", apply="1", data_download=r"0,named,C:\e2elink")
        self.run_program()
        self.assertIsNone(self.record("PendingDownloads"))
        self.assertIn(r"'C:\e2elink' is not recorded: not a regular file", self.prefix.read(LOG))
        self.assertTrue(self.prefix.exists(r"C:\e2e\victim.pkg"))
        self.assertEqual(["DownloadRecord: not deleting 'C:\\e2elink': a link in its path"],
                         [l.split("Updater", 1)[1].strip()
                          for l in self.recovery_lines()[len(recovered):]])

        # Users may make folders in C:\ProgramData: a catalog folder whose way passes a link gets
        # nothing, and a download below a link is not deleted through it once the run is done.
        catalog = "C:\\ProgramData\\" + DRIVER
        shutil.rmtree(self.prefix.unix(catalog), ignore_errors=True)
        os.symlink(self.prefix.unix(r"C:\e2e"), self.prefix.unix(catalog))
        self.library(software="3,1.2.0.0", data="3,2026.4", apply="1",
                     download=r"0,alloc,C:\e2elink\sw2.pkg",
                     data_download=r"0,buffer,C:\e2e\data2.pkg")
        self.run_program()
        log = self.prefix.read(LOG)
        self.assertIn("Not using '%s\\Job Status': a link in its path" % catalog, log)
        self.assertIn(r"DownloadRecord: not deleting 'C:\e2elink\sw2.pkg': a link in its path", log)
        self.assertEqual([], [c for c in self.journal() if "data2.pkg" in c and "UpdApply" in c])
        self.assertEqual([True, False, False], [self.prefix.exists(p) for p in (
            r"C:\e2e\sw2.pkg", r"C:\e2e\data2.pkg", r"C:\e2e\Job Status")])
        self.assertIsNone(self.record("PendingDownloads"))

        # A download that was not there when the library named it (so nothing was recorded), put
        # there through a link while the apply runs, is not deleted through the link either.
        self.library(software="3,1.3.0.0", data="2", apply="gate",
                     download=r"0,named,C:\e2elink\late.pkg")
        run = self.start()
        self.addCleanup(run.wait)
        deadline = time.time() + RUN_LIMIT
        while not any("late.pkg" in c and "UpdApply" in c for c in self.journal()):
            self.assertLess(time.time(), deadline, "the run never reached the apply")
            time.sleep(0.05)
        self.prefix.write(r"C:\e2e\late.pkg", "package")
        self.prefix.write(GATE, "")
        self.assertEqual(0, run.wait(timeout=RUN_LIMIT))
        self.assertTrue(self.prefix.exists(r"C:\e2e\late.pkg"))
        self.assertIn(r"DownloadRecord: not deleting 'C:\e2elink\late.pkg': a link in its path",
                      self.prefix.read(LOG))

    def events(self):
        """Runs the program once; its events as (type channel, event id, strings)."""
        self.prefix.env["WINEDEBUG"] = "-all,+eventlog,fixme+advapi"
        try:
            result = self.run_program()
        finally:
            self.prefix.env["WINEDEBUG"] = "-all"
        self.assertTrue(self.prefix.wait_idle(RUN_LIMIT), "the run did not end in time")
        events = []
        for line in result.stdout.splitlines():
            if "fixme:advapi:ReportEventA " in line:
                events.append((None, int(line.split(",")[3], 16), []))
            elif ":eventlog:ReportEventW " in line and events:
                kind = line.split(":")[1]
                events[-1] = (kind, events[-1][1], events[-1][2] + [line.split(' L"', 1)[1][:-1]])
        return events

    def test_each_run_ends_with_one_event_that_names_its_result(self):
        self.install_store(lock=False)
        self.printers(("Office Inkjet", 0))
        for name, version in (("cvupProg.ver", "1.0.0.1"), ("orData.ver", "2026.1")):
            self.prefix.write(INSTALL + "\\" + name, "<PackageVersion>%s</PackageVersion>" % version)
        self.library(software="2", data="2", apply="1")
        self.assertEqual([("trace", 1000, ["UpToDate", "1.0.0.1", "2026.1", ""])], self.events())
        self.library(software="3,1.1.0.0", data="2", apply="1", download="1,buffer,")
        self.assertEqual([("err", 3004, ["DownloadFailed", "1.0.0.1", "2026.1",
                                         "software download: code 1"])], self.events())
        # Switched off in the store: no event, the status all the same.
        self.prefix.import_registry({STORE + r"\Settings\Updater": {"ReportRunEvents": 0}})
        self.assertEqual([], self.events())
        self.assertEqual("0x2", self.status("ConsecutiveFailures", "REG_DWORD"))

    def test_runs_started_at_once_apply_each_package_once(self):
        self.install_store(lock=False)
        self.printers(("Office Inkjet", 0), ("Back Office", 0))
        self.library(software="3,1.1.0.0", data="3,2026.2", apply="gate")
        for runs in (2, 4, 8):
            with self.subTest(runs=runs):
                codes = self.run_at_once(runs, stood_aside=runs - 1)
                applied, overlapping, resumed = self.applies()
                self.assertEqual(PACKAGES, [package for _, package in applied])
                self.assertEqual((0, 0), (overlapping, resumed))
                self.assertEqual([0] * runs, codes)
                self.assertEqual(runs - 1, len(self.log_lines(STOOD_ASIDE)))
                # Only the run that updated checked: the others stood aside before their check.
                self.assertEqual(2, len([l for l in self.journal() if " UpdCheckForUpdateA " in l]))
                self.assertEqual([], self.records_left())
                self.assertEqual([False, False], [self.prefix.exists(p) for p in PACKAGES])

    def test_a_relaunch_and_a_run_started_with_it_apply_once(self):
        # Windows Vista: a plain run checks, then relaunches itself with "-UAC" to install.
        self.prefix.import_registry({
            r"HKEY_CURRENT_USER\Software\Wine\AppDefaults\cvupdater.exe": {"Version": "vista"}})
        self.install_store(lock=False)
        self.printers(("Office Inkjet", 0))
        self.library(software="3,1.1.0.0", data="3,2026.2", apply="gate")
        self.assertEqual([0, 0], self.run_at_once(2, stood_aside=1))
        applied, overlapping, resumed = self.applies()
        self.assertEqual(PACKAGES, [package for _, package in applied])
        self.assertEqual(1, len({pid for pid, _ in applied}))
        self.assertEqual((0, 0), (overlapping, resumed))
        # The child's verdict stands: no value shows the parent's relaunch once the child ended.
        self.assertEqual(("Updated", "0x0"), (self.status("LastResult"),
                                              self.status("RunInProgress", "REG_DWORD")))

    def test_a_drain_killed_halfway_leaves_no_printer_paused_after_the_next_run(self):
        """Drain mode pauses each printer once it is quiet, recording it first: a run killed while
        it waits for the last one leaves the others to the next run, which resumes them."""
        self.install_store(lock=False)
        self.prefix.import_registry({STORE + r"\Settings\Updater": {"QuietWaitMode": 1}})
        self.printers(("Office Inkjet", 0), ("Print Room", 0, 1), ("Back Office", 0))
        self.library(software="3,1.1.0.0", data="3,2026.2", apply="1")
        run = self.start()
        self.addCleanup(run.wait)
        self.addCleanup(self.prefix.kill)
        deadline = time.time() + RUN_LIMIT
        while len(self.printer_commands()) < 2 and time.time() < deadline:
            time.sleep(0.05)
        self.assertEqual(["Office Inkjet 1", "Back Office 1"], self.printer_commands())
        self.assertEqual("Office Inkjet\\0Back Office", self.record("PausedPrinters"))
        pid = [c for c in self.journal() if " SetPrinterA " in c][0].split(" ", 1)[0]
        self.prefix.wine(["taskkill", "/F", "/PID", pid])
        run.wait(timeout=RUN_LIMIT)
        self.assertEqual([], [l for l in self.journal() if " UpdApplyUpdateA " in l])

        # The next run resumes the two as it starts; the busy one was never paused.
        self.printers(("Office Inkjet", 1), ("Print Room", 0), ("Back Office", 1))
        self.library(software="2", data="2", apply="1")
        self.run_program()
        self.assertEqual(["Office Inkjet 2", "Back Office 2"], self.printer_commands()[2:])
        self.assertIsNone(self.record("PausedPrinters"))

    def test_a_user_who_squats_the_locks_makes_no_run_apply(self):
        """A process that makes every lock's name first, with a DACL that admits SYSTEM alone (as
        a standard user could on Windows): runs started at once then each fail closed."""
        self.install_store(lock=False)
        self.printers(("Office Inkjet", 0), ("Back Office", 0))
        self.library(software="3,1.1.0.0", data="3,2026.2", apply="gate")
        self.prefix.copy_in(os.path.join(BUILD_DIR, "bin", "test_helper.exe"), INSTALL)
        squatter = subprocess.Popen(
            ["wine", self.prefix.unix(INSTALL + r"\test_helper.exe"), "squat", str(RUN_LIMIT)] +
            ["Global\\cvup" + name for name in ("UpdateRun", "PendingDownloads", "PausedPrinters")],
            env=self.prefix.env, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(squatter.wait)
        self.addCleanup(self.prefix.kill)
        self.assertEqual("held=1", squatter.stdout.readline().strip())
        started = [self.start() for _ in range(4)]
        self.addCleanup(lambda: [run.wait() for run in started])
        codes = [run.wait(timeout=RUN_LIMIT) for run in started]
        squatter.kill()
        self.assertTrue(self.prefix.wait_idle(RUN_LIMIT), "the runs did not end in time")
        applied, overlapping, resumed = self.applies()
        self.assertEqual(([], 0, 0), (applied, overlapping, resumed))
        self.assertEqual([0] * 4, codes)
        self.assertEqual([], self.printer_commands())
        self.assertEqual([], [l for l in self.journal() if " UpdCheckForUpdateA " in l])
        self.assertEqual([], self.records_left())
        why = ("RunLock: run lock: 'Global\\cvupUpdateRun' could not be made: ")
        refused = [l for l in (self.prefix.read(LOG) or "").splitlines() if why in l]
        self.assertEqual(4, len(refused), refused)
        self.assertTrue(all(l.endswith("; this run ends without checking for updates")
                            for l in refused), refused)
        failure = self.status("LastLockFailure")
        self.assertRegex(failure, r"^20\d\d-\d\d-\d\dT\d\d:\d\d:\d\dZ run lock: "
                                  r"'Global\\cvupUpdateRun' could not be made: ")
        self.assertIsNone(self.status("LastResult"))  # No run held the lock: no verdict.


if __name__ == "__main__":
    BUILD_DIR = build_dir_argument()
    unittest.main(verbosity=2)
