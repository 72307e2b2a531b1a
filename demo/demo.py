#!/usr/bin/env python3
"""The main job: a complete update run of cvupdater.exe under Wine against a local update service.

Installs the release MSI into a scratch Wine prefix with Windows Installer (msiexec /i ... /qn and
the local service's address as a property), serves a newer software package and a newer catalog
data package on 127.0.0.1, runs the program once (it relaunches
itself elevated with "-UAC" and the child installs), prints a summary, then runs it again to show
that nothing is left to update. After each run it prints the run's status as a fleet's tools read
it (`cvupsettings.exe /status`). With --check the summary's facts are asserted (the end-to-end
test).
"""

import argparse
import glob
import os
import re
import struct
import subprocess
import sys
import time
import zipfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from update_service import UpdateService, version_file  # noqa: E402
from wineprefix import Prefix  # noqa: E402

LOCAL_ID = "cvup"
INSTALL_DIR = r"C:\Program Files\Corvane\Orrery"
DRIVER_NAME = "Corvane Inkjet Driver"
DATA_DIR = r"C:\ProgramData\Corvane Inkjet Driver\Job Status"
LIBRARY_DIR = r"C:\windows\system32\spool\drivers\x64\3"
DOWNLOAD_DIR = r"C:\ProgramData\Corvane Downloads"
STORE_KEY = r"HKLM\Software\CorvaneInkjet\QNV\Local\cvup"
LOG_FILE = r"C:\ProgramData\cvupQNV.log"
PRINTER = "Corvane Inkjet 5100"
OLD_SOFTWARE, NEW_SOFTWARE = "1.0.0.0", "1.1.0.0"
OLD_CATALOG, NEW_CATALOG = "2026.1", "2026.2"
RUN_TIME_LIMIT = 120
# What the demo puts beside the programs in place of the printer driver's parts.
STAND_INS = ("winspool.drv", "spooler-scenario.ini")


class StepFailed(Exception):
    pass


def section_names(path):
    """The section names of a PE file; a long name (a debug section's) reads as "/<offset>"."""
    with open(path, "rb") as f:
        data = f.read()
    pe = struct.unpack_from("<I", data, 0x3C)[0]
    count, = struct.unpack_from("<H", data, pe + 6)
    optional_size, = struct.unpack_from("<H", data, pe + 20)
    table = pe + 24 + optional_size
    return [data[table + 40 * i:table + 40 * i + 8].rstrip(b"\0").decode("latin-1")
            for i in range(count)]


def package_version(text):
    match = re.search(r"<PackageVersion>(.*?)</PackageVersion>", text or "", re.S)
    return match.group(1) if match else "(none)"


class Demo:
    def __init__(self, args):
        self.args = args
        self.bin = os.path.join(args.build_dir, "bin")
        self.template = os.path.join(args.build_dir, "template-prefix")
        # The check expects US English codes; a plain run shows the machine's own.
        self.prefix = Prefix(os.path.join(args.build_dir, "demo", "prefix"),
                             "en_US.UTF-8" if args.check else None)
        self.service = None
        self.facts = {}

    # -- steps --------------------------------------------------------------------------------

    def prepare(self):
        self.prefix.create_from(self.template)

    def release(self, pattern):
        """The newest release file of the build that matches `pattern`."""
        found = sorted(glob.glob(os.path.join(self.args.build_dir, pattern)), key=os.path.getmtime)
        if not found:
            raise StepFailed("no %s in %s; build it with: cmake --build %s --target package" % (
                pattern, self.args.build_dir, self.args.build_dir))
        return found[-1]

    def install_release(self):
        """Installs the release MSI silently with Windows Installer, as a fleet does: the sample
        settings with the local service's address, the store locked, the daily task registered."""
        p = self.prefix
        package = self.release("orrery-updater-*-x64.msi")
        p.copy_in(package, r"C:\demo")
        url = "http://127.0.0.1:%d/orrery/[language_code]/[country_code]/[os_code]/[package_code]" % (
            self.service.port)
        command = ["msiexec", "/i", "C:\\demo\\" + os.path.basename(package), "/qn",
                   "WEBSERVERURL=" + url, "/l*v", r"C:\demo\msiexec.log"]
        print("  " + subprocess.list2cmdline(command))
        result = p.wine(command, timeout=180)
        for line in result.stdout.splitlines():  # The settings tool's own lines.
            if line.strip() and "fixme:" not in line:
                print("    " + line.strip())
        if result.returncode != 0:
            raise StepFailed("msiexec exited with %d; its log: %s" % (
                result.returncode, p.unix(r"C:\demo\msiexec.log")))
        names = sorted(set(os.listdir(p.unix(INSTALL_DIR))) - set(STAND_INS))
        unstripped = [n for n in names if n.endswith(".exe") and any(
            s.startswith("/") or s.startswith(".debug") for s in section_names(
                os.path.join(p.unix(INSTALL_DIR), n)))]
        with zipfile.ZipFile(self.release("orrery-updater-*-win64.zip")) as archive:
            zipped = sorted(m.filename.split("/", 1)[-1] for m in archive.infolist()
                            if not m.is_dir())
        self.facts.update(release=os.path.basename(package), release_files=names,
                          zip_files=zipped, unstripped=unstripped,
                          task=p.exists(r"C:\windows\system32\tasks\Corvane\Orrery Updater"),
                          url=p.reg_value(STORE_KEY + r"\Settings\Updater", "WebServerUrl",
                                          "REG_SZ"))
        print("  installed into %s: %s" % (INSTALL_DIR, ", ".join(names)))
        sbom = [n for n in zipped if n.endswith(".spdx.json")]
        templates = [n for n in zipped if n.startswith("policy/")]
        print("  the release ZIP, for deployers without Windows Installer, holds %s" % (
            "the same files, the policy templates and the bill of materials " + ", ".join(sbom)
            if set(zipped) - set(sbom) - set(templates) <= set(names) else ", ".join(zipped)))
        print("  store %s: WebServerUrl=%s" % (STORE_KEY, self.facts["url"]))
        print("  scheduled task \\Corvane\\Orrery Updater: %s" % (
            "registered" if self.facts["task"] else "MISSING"))

    def install(self):
        p = self.prefix
        for name in ("winspool.drv", "wupdstandin.dll"):
            if not os.path.isfile(os.path.join(self.bin, name)):
                raise StepFailed("missing build output " + os.path.join(self.bin, name))
        # The machine has its printer before the updater comes: the stand-in spooler beside the
        # programs, which Wine loads instead of its own.
        p.copy_in(os.path.join(self.bin, "winspool.drv"), INSTALL_DIR)
        for program in ("cvupdater.exe", "cvupsettings.exe"):
            p.wine(["reg", "add", r"HKCU\Software\Wine\AppDefaults\%s\DllOverrides" % program,
                    "/v", "winspool.drv", "/d", "native", "/f"])
        # The vendor's library is installed with the printer driver, where the program looks
        # for it when "WebUpdaterDllPath" is not set.
        p.copy_in(os.path.join(self.bin, "wupdstandin.dll"), LIBRARY_DIR, LOCAL_ID + "wupd.DLL")
        # The library's HTTP mode: it asks the service at the URLs the program hands it.
        p.write(LIBRARY_DIR + "\\" + LOCAL_ID + "wupd.DLL.ini",
                "[Library]\r\nMode=http\r\nDownloadDirectory=" + DOWNLOAD_DIR +
                "\r\nJournal=C:\\demo\\library-journal.txt\r\n")
        # One printer of the vendor's driver with two queued jobs that drain after two polls.
        p.write(INSTALL_DIR + "\\spooler-scenario.ini",
                "[Spooler]\r\nGeneration=1\r\nPrinters=1\r\nJournal=C:\\demo\\spooler-journal.txt"
                "\r\n[Printer0]\r\nName=" + PRINTER + "\r\nDriver=" + DRIVER_NAME +
                "\r\nPort=USB001\r\nJobs=2\r\nDrainAfterPolls=2\r\n")
        self.install_release()
        p.write(INSTALL_DIR + "\\" + LOCAL_ID + "Prog.ver", version_file(OLD_SOFTWARE))
        p.write(DATA_DIR + "\\orData.ver", version_file(OLD_CATALOG))
        # The sample keeps the log off; the demo reads it, with the process id in every line.
        p.import_registry({STORE_KEY.replace("HKLM", "HKEY_LOCAL_MACHINE") + r"\Logger": {
            "startLog": 1, "Proc_Id_In_Header": 1}})
        p.wait_idle(30)

    def run_program(self, label):
        before = self.versions()
        started = time.time()
        result = self.prefix.wine([self.prefix.unix(INSTALL_DIR + "\\cvupdater.exe")],
                                  timeout=RUN_TIME_LIMIT, cwd=self.prefix.unix(INSTALL_DIR))
        # A relaunched child may still be working: wait until the prefix is idle.
        if not self.prefix.wait_idle(RUN_TIME_LIMIT):
            raise StepFailed("the update run did not end within %d s" % RUN_TIME_LIMIT)
        run = {
            "exit": result.returncode,
            "seconds": time.time() - started,
            "requests": self.service.take_requests(),
            "before": before,
            "after": self.versions(),
        }
        self.facts[label] = run
        if result.returncode != 0:
            raise StepFailed("cvupdater.exe exited with %d" % result.returncode)
        return run

    # -- facts ----------------------------------------------------------------------------------

    def versions(self):
        return {
            "software": package_version(self.prefix.read(INSTALL_DIR + "\\" + LOCAL_ID + "Prog.ver")),
            "catalog": package_version(self.prefix.read(DATA_DIR + "\\orData.ver")),
        }

    def log_lines(self):
        return (self.prefix.read(LOG_FILE) or "").splitlines()

    def spooler_calls(self):
        return (self.prefix.read(r"C:\demo\spooler-journal.txt") or "").splitlines()

    def flags(self):
        key = STORE_KEY + r"\Settings\Updater"
        return {name: self.prefix.reg_dword(key, name)
                for name in ("CompleteSoftwareUpdated", "DataUpdated")}

    def downloads_left(self):
        directory = self.prefix.unix(DOWNLOAD_DIR)
        return sorted(os.listdir(directory)) if os.path.isdir(directory) else []

    # -- report ---------------------------------------------------------------------------------

    def summarize_first_run(self, run):
        log = self.log_lines()
        starts = [l for l in log if "+CommandLineParams::CommandLineParams(" in l]
        relaunched = [l for l in starts if "-UAC" in l.upper()]
        paused = [l for l in self.spooler_calls() if " SetPrinterA " in l and "command=1" in l]
        resumed = [l for l in self.spooler_calls() if " SetPrinterA " in l and "command=2" in l]
        polls = [l for l in self.spooler_calls() if " GetPrinterA " in l and "buffer=1" in l]
        self.facts.update(relaunched=len(relaunched), runs=len(starts), paused=len(paused),
                          resumed=len(resumed), polls=len(polls), flags=self.flags(),
                          downloads_left=self.downloads_left())
        print("\nRequests the update service received:")
        for r in run["requests"]:
            print("  %-16s language=%s country=%s os=%s  (%d)" % (
                r.get("package", r["path"]), r.get("language"), r.get("country"), r.get("os"),
                r["status"]))
        print("Relaunched itself with \"-UAC\": %s (%d process runs in the log)" % (
            "yes" if relaunched else "no", len(starts)))
        print("Printer \"%s\": polled %d times until quiet, paused %d, resumed %d" % (
            PRINTER, len(polls), len(paused), len(resumed)))
        print("Registry flags: " + ", ".join("%s=%s" % kv for kv in self.facts["flags"].items()))
        print("Installed versions: software %s -> %s, catalog %s -> %s" % (
            run["before"]["software"], run["after"]["software"], run["before"]["catalog"],
            run["after"]["catalog"]))
        print("Downloads left behind: %s" % (", ".join(self.facts["downloads_left"]) or "none"))
        self.print_log_tail(8)
        self.print_status("first")

    def summarize_second_run(self, run):
        nothing = any("Checking for updates failed or there are no updates available!" in l
                      for l in self.log_lines()[-40:])
        self.facts["second_run_found_nothing"] = nothing
        print("\nSecond run: %d requests (%s); %s" % (
            len(run["requests"]), ", ".join(r.get("package", "?") for r in run["requests"]),
            "no update available now" if nothing else "UNEXPECTED: updates were found"))
        self.print_status("second")

    def print_status(self, label):
        """The run's status as a fleet's detection rule reads it: the settings tool's /status."""
        result = self.prefix.wine([self.prefix.unix(INSTALL_DIR + "\\cvupsettings.exe"), "/status"],
                                  timeout=60, cwd=self.prefix.unix(INSTALL_DIR))
        lines = [l.strip() for l in result.stdout.splitlines() if l.strip()]
        status = dict(l.split(": ", 1) if ": " in l else (l.rstrip(":"), "") for l in lines)
        self.facts[label].update(status=status, status_exit=result.returncode)
        print("Status: cvupsettings.exe /status (exit %d: %s)" % (
            result.returncode, "a success within 7 days" if result.returncode == 0 else
            "no success within 7 days"))
        for line in lines:
            print("  " + line)

    def print_log_tail(self, count):
        """The log's path and the last lines of the update runs (teardown lines left out)."""
        print("Log file: %s (in the prefix: %s); last lines of the run:" % (
            LOG_FILE, self.prefix.unix(LOG_FILE)))
        lines = [l for l in self.log_lines() if "UpdatesController::" in l]
        for line in lines[-count:]:
            print("  " + line)

    # -- check ----------------------------------------------------------------------------------

    def check(self):
        first, second = self.facts["first"], self.facts["second"]
        problems = []

        def expect(condition, text):
            if not condition:
                problems.append(text)

        shipped = ["DEPLOYING.md", "cvupdater.exe", "cvupqnv.loc", "cvupsettings.exe",
                   "orrery-updater-system.xml", "orrery-updater-users.xml"]
        expect(self.facts["release_files"] == sorted(shipped + ["orrery-updater-task.xml"]),
               "files the MSI installed %s" % self.facts["release_files"])
        sbom = self.facts["release"].replace("-x64.msi", ".spdx.json")
        templates = ["policy/en-US/orrery-updater.adml", "policy/orrery-updater-sample.reg",
                     "policy/orrery-updater.admx"]
        expect(self.facts["zip_files"] == sorted(shipped + [sbom] + templates),
               "files of the release ZIP %s" % self.facts["zip_files"])
        expect(self.facts["task"], "the daily task was not registered")
        expect(not self.facts["unstripped"], "not stripped: %s" % self.facts["unstripped"])
        packages = [r.get("package") for r in first["requests"]]
        expect(packages == ["ORRERY-VERSION", "CATALOG-VERSION"] * 2 +
               ["ORRERY-PACKAGE", "CATALOG-PACKAGE"],
               "requests of the first run: %s" % packages)
        for r in first["requests"] + second["requests"]:
            expect((r.get("language"), r.get("country"), r.get("os")) == ("0", "00000409", "3"),
                   "codes of %s" % r)
            expect(r["status"] == 200, "status of %s" % r)
        expect(self.facts["relaunched"] == 1 and self.facts["runs"] == 2,
               "the first run and its relaunched child (%d/%d)" % (
                   self.facts["relaunched"], self.facts["runs"]))
        expect(self.facts["paused"] == 1 and self.facts["resumed"] == 1,
               "printer paused and resumed once (%d/%d)" % (self.facts["paused"],
                                                              self.facts["resumed"]))
        expect(self.facts["polls"] == 3, "three polls until quiet (%d)" % self.facts["polls"])
        expect(self.facts["flags"] == {"CompleteSoftwareUpdated": 1, "DataUpdated": None},
               "flags %s" % self.facts["flags"])
        expect(first["after"] == {"software": NEW_SOFTWARE, "catalog": NEW_CATALOG},
               "versions after %s" % first["after"])
        expect(self.facts["downloads_left"] == [], "downloads left %s" % self.facts["downloads_left"])
        expect([r.get("package") for r in second["requests"]] ==
               ["ORRERY-VERSION", "CATALOG-VERSION"],
               "requests of the second run: %s" % second["requests"])
        expect(self.facts["second_run_found_nothing"], "the second run found an update")
        # The child's verdict replaced its parent's "Elevating"; the second run found nothing.
        for run, result, applied in ((first, "Updated", "software+catalog"),
                                     (second, "UpToDate", "software+catalog")):
            status = run["status"]
            expect(run["status_exit"] == 0 and status.get("LastResult") == result and
                   status.get("LastUpdateApplied") == applied and
                   status.get("LastSuccess") == status.get("LastRunEnded") and
                   status.get("ConsecutiveFailures") == "0" and
                   status.get("SoftwareVersion") == NEW_SOFTWARE and
                   status.get("CatalogVersion") == NEW_CATALOG,
                   "status %s (exit %d)" % (status, run["status_exit"]))
        if problems:
            raise StepFailed("the summary does not hold:\n    " + "\n    ".join(problems))
        print("\nAll facts of the summary hold.")

    # -- driver ---------------------------------------------------------------------------------

    def main(self):
        steps = [
            ("Preparing a scratch Windows environment (Wine prefix)", self.prepare),
            ("Installing the release MSI, and the stand-ins", self.install),
            ("First update run", lambda: self.summarize_first_run(self.run_program("first"))),
            ("Second update run", lambda: self.summarize_second_run(self.run_program("second"))),
        ]
        if self.args.check:
            steps.append(("Checking the summary", self.check))
        self.service = UpdateService(NEW_SOFTWARE, NEW_CATALOG, LOCAL_ID, self.args.port).start()
        print("Local update service on http://127.0.0.1:%d/ (software %s, catalog %s)" % (
            self.service.port, NEW_SOFTWARE, NEW_CATALOG))
        try:
            for number, (title, step) in enumerate(steps, 1):
                print("\n[%d/%d] %s" % (number, len(steps), title))
                try:
                    step()
                except (StepFailed, subprocess.SubprocessError, OSError) as e:
                    print("\nFAILED at step %d (%s): %s" % (number, title, e), file=sys.stderr)
                    print("See the log: %s" % self.prefix.unix(LOG_FILE), file=sys.stderr)
                    print("  (switch it on or up in %s\\Logger)" % STORE_KEY, file=sys.stderr)
                    return 1
            return 0
        finally:
            self.service.stop()
            self.prefix.kill()


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build-dir", default=os.path.join(os.path.dirname(here), "build"))
    parser.add_argument("--port", type=int, default=8765,
                        help="port of the local update service (0: any free port)")
    parser.add_argument("--check", action="store_true", help="assert the summary's facts")
    args = parser.parse_args()
    args.build_dir = os.path.abspath(args.build_dir)
    return Demo(args).main()


if __name__ == "__main__":
    sys.exit(main())
