#include <gtest/gtest.h>

#include <windows.h>

#include <shellapi.h>
#include <wininet.h>

#include <optional>
#include <regex>

#include "logging/BasicLogger.h"
#include "printers/DeviceEnumerator.h"
#include "settings/RunRecord.h"
#include "support/TestSupport.h"
#include "system/OsVersion.h"
#include "updater/CommandLineParams.h"
#include "updater/DownloadRecord.h"
#include "updater/ElevatedRelaunch.h"
#include "updater/PackageTrust.h"
#include "updater/RunResults.h"
#include "updater/RunStatus.h"
#include "updater/UpdatesController.h"
#include "webupdate/WebUpdaterAdapter.h"

using Lines = std::vector<std::string>;

namespace {

const char kDriver[] = "Corvane Inkjet Driver";
const char kCatalogFolder[] = "C:\\ProgramData\\Corvane Inkjet Driver\\Job Status";

// The relaunches that the fake shell was asked for, "<verb> <file> <parameters> <directory>
// <show>", and what it answers (above 32: started).
std::vector<std::string> g_relaunches;
INT_PTR g_shellResult = 42;

HINSTANCE WINAPI
fakeShellExecute(HWND, LPCSTR verb, LPCSTR file, LPCSTR parameters, LPCSTR directory, INT show) {
  g_relaunches.push_back(std::string(verb) + " " + file + " " + parameters + " " +
                         (directory == nullptr ? "null" : directory) + " " + std::to_string(show));
  return reinterpret_cast<HINSTANCE>(g_shellResult);
}

// A machine staged for one update run in this process: the settings store, the stand-in library
// beside the test exe and the fake shell. The package codes and the packages'
// file names are the short names that libraryCalls() reports.
class UpdatesControllerTest : public testing::Test {
 protected:
  void SetUp() override {
    testsupport::stageUpdateRun(store_, kDriver);
    // The installed versions that the run's status reports.
    store_.set("Settings\\", "DllPath", files_.path());
    store_.set("Settings\\", "DataPath", files_.path());
    testsupport::writeFile(files_.file("cvctProg.ver"), "<PackageVersion>1.2.3.4</PackageVersion>");
    testsupport::writeFile(files_.file("orData.ver"), "<PackageVersion>2026.1</PackageVersion>");
    g_relaunches.clear();
    g_shellResult = 42;
    ElevatedRelaunch::setShellExecuteFunction(&fakeShellExecute);
    testsupport::setCommandLine("");
  }
  void TearDown() override {
    ElevatedRelaunch::setShellExecuteFunction(nullptr);
    DeviceEnumerator::destroy();
    testsupport::setCommandLine("");
    testsupport::removeTree("C:\\ProgramData\\Corvane Inkjet Driver");
  }

  // The library's checks, downloads and applies, in order: "c", "d" or "a", then "s" for the
  // software or "d" for the catalog data.
  std::string libraryCalls() const {
    std::string calls;
    for (const std::string& call : library_.calls()) {
      const std::string::size_type end = call.find(" | ", call.find(" | ") + 3);
      if (call.find("| url=") != std::string::npos || call.find("| package=") != std::string::npos)
        calls += (calls.empty() ? "" : " ") + call.substr(end - 2, 2);
    }
    return calls;
  }
  std::string flag(const char* name) const { return store_.get("Settings\\Updater", name); }
  std::string softwarePackage() const { return files_.file("as"); }
  std::string dataPackage() const { return files_.file("ad"); }

  testsupport::ScopedStore store_;
  testsupport::WebUpdaterScenario library_;
  testsupport::SpoolerScenario spooler_;
  testsupport::TempDir files_;
};

// The line of performUpdates() that says the download or the installation failed.
const char kFailed[] = "The either the download or the installation has failed.";

struct Row {
  const char* name;
  // How the machine differs from Windows Vista or later, an administrator, no "-UAC", both
  // updates available (check code 3), every download and apply succeeding and one printer of the
  // driver: "offline", "dial-up", "xp", "user", "declined" (the elevation prompt), "-UAC",
  // "sw=<check code>", "data=<check code>" (2 none, 0 failed, 4 no privilege), "held=<record>"
  // (its mutex held by another process past the wait), "no-sw-download",
  // "no-data-download", "sw-apply=<0|throw>", "data-apply=0", "other-driver", "flags=2" (set by
  // another component), "keep-files", "resume-fails", "data-dir-blocked" (a file where the
  // catalog's folder belongs), "no-library", "no-exports" (a library without the exports),
  // "mode=<UpdateMode>", "window=out" (an apply window that excludes now), "window=in" (one that
  // began 10 minutes ago and lasts two hours), "window=closing" (one that ends in 10 minutes,
  // within its reserve), "busy" (the printer's jobs never drain),
  // "drain" (QuietWaitMode 1).
  const char* given;
  const char* calls;  // libraryCalls()
  // "failed" (performUpdates() says so), "relaunch", "complete=1", "data=1", "flags=2" (kept),
  // "paused" (and resumed unless the resume fails), "files-left"; the run's status:
  // "result=<LastResult>", "applied=<LastUpdateApplied>".
  const char* outcome;
  const char* line = "";  // a detail line, "Operation() text", that the log must hold
};

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.name;
}

const Row kRows[] = {
    {"OfflineNoCheck", "offline", "", "result=Offline"},
    {"LibraryMissingNoCheck", "no-library", "", "result=LibraryMissing"},
    // A library without the exports the run calls is no "offline" and no "up to date".
    {"LibraryWithoutExportsIsIncompatible", "no-exports", "", "result=LibraryIncompatible"},
    {"DialUpLineGoesOn", "dial-up sw=2 data=2", "cs cd", "result=UpToDate"},
    {"NothingAvailable", "sw=2 data=2", "cs cd", "result=UpToDate"},
    {"SoftwareCheckFailsNoDataCheck", "sw=0", "cs", "result=CheckFailed"},
    {"SoftwareNoPrivilegeNoDataCheck", "sw=4", "cs", "result=NotPermitted"},
    {"DataCheckNoPrivilegeIsNothing", "sw=2 data=4", "cs cd", "result=UpToDate"},
    {"UserRelaunches", "user", "cs cd", "relaunch result=Elevating"},
    {"UserDeclinesTheRelaunch", "user declined", "cs cd", "relaunch result=ElevationFailed"},
    {"UserCatalogOnlyRelaunches", "user sw=2", "cs cd", "relaunch result=Elevating"},
    {"UserChildNeverRelaunchesAgain", "user -UAC", "cs cd", "result=NotPermitted"},
    {"AdminCatalogOnlyInstallsInPlace", "sw=2", "cs cd dd ad",
     "data=1 paused result=Updated applied=catalog"},
    {"AdminSoftwareUpdateRelaunches", "", "cs cd", "relaunch result=Elevating"},
    {"ChildInstallsBoth", "-UAC", "cs cd ds dd as ad",
     "complete=1 paused result=Updated applied=software+catalog"},
    // The misleading line and the missing flag are long-standing behaviour that other
    // components rely on.
    {"ChildSoftwareOnlySetsNoFlag", "-UAC data=2", "cs cd ds as",
     "paused result=Updated applied=software",
     "UpdatesController::installUpdates() software update FAILED"},
    {"DataCheckFailureLeavesTheSoftwareUpdate", "-UAC data=0", "cs cd ds as",
     "paused result=UpdatedWithWarnings applied=software"},
    {"SoftwareDownloadFailsNothingElseHappens", "-UAC no-sw-download", "cs cd ds",
     "failed result=DownloadFailed"},
    {"DataDownloadFailsSoftwareDownloadRemoved", "-UAC no-data-download", "cs cd ds dd",
     "failed result=DownloadFailed"},
    {"SoftwareApplyFailsPrintersResumed", "-UAC sw-apply=0", "cs cd ds dd as",
     "failed paused result=ApplyFailed"},
    {"SoftwareApplyThrowsPrintersResumed", "-UAC sw-apply=throw", "cs cd ds dd as",
     "failed paused result=ApplyFailed"},
    {"DataApplyFailsNoFlag", "-UAC data-apply=0", "cs cd ds dd as ad",
     "failed paused result=ApplyFailed applied=software"},
    {"CatalogApplyFails", "sw=2 data-apply=0", "cs cd dd ad", "failed paused result=ApplyFailed"},
    {"CatalogFolderCannotBeMade", "sw=2 data-dir-blocked", "cs cd dd",
     "failed paused result=ApplyFailed",
     "UpdatesController::installDataUpdate() SHCreateDirectory() failed. ErrorCode=3"},
    {"ResumeFailsTheInstallation", "-UAC resume-fails", "cs cd ds dd as ad",
     "failed complete=1 paused result=ResumeFailed applied=software+catalog",
     "UpdatesController::installUpdates() FAILED to resume all printers installed with our "
     "driver!"},
    {"NoPrinterOfInterestInstallsNothing", "sw=2 other-driver", "cs cd dd",
     "failed result=PauseFailed"},
    // A record's mutex that another process holds past the wait: nothing paused or applied
    // unrecorded, the run's own downloads deleted.
    {"HeldPauseRecordAbandonsTheInstallation", "-UAC held=PausedPrinters", "cs cd ds dd",
     "failed result=LockUnavailable",
     "PauseRecord: the mutex 'Global\\cvctPausedPrinters' is held by another process; this run "
     "abandons its installation"},
    {"HeldDownloadRecordAbandonsTheInstallation", "-UAC held=PendingDownloads", "cs cd ds",
     "failed result=LockUnavailable",
     "DownloadRecord: the mutex 'Global\\cvctPendingDownloads' is held by another process; this "
     "run abandons its installation"},
    {"FlagsHeldAtTwoAreKept", "-UAC flags=2", "cs cd ds dd as ad",
     "flags=2 paused result=Updated applied=software+catalog"},
    {"CatalogFlagHeldAtTwoIsKept", "sw=2 flags=2", "cs cd dd ad",
     "flags=2 paused result=Updated applied=catalog"},
    {"DownloadsKeptOnRequest", "-UAC keep-files", "cs cd ds dd as ad",
     "complete=1 paused files-left result=Updated applied=software+catalog"},
    // Beyond the automatic run: check and report only; outside the apply window; a window that
    // closes while a printer stays busy; the printers drained one by one.
    {"ReportOnlyChecksAndStops", "mode=2", "cs cd", "result=UpdateAvailable"},
    {"OutsideTheWindowChecksAndDefers", "-UAC window=out", "cs cd", "result=Deferred"},
    {"InsideTheWindowRunsAsUsual", "-UAC window=in", "cs cd ds dd as ad",
     "complete=1 paused result=Updated applied=software+catalog"},
    {"WindowClosingDuringTheWaitPausesNothing", "-UAC window=closing busy", "cs cd ds dd",
     "failed result=Deferred"},
    {"DrainModeInstallsBoth", "-UAC drain", "cs cd ds dd as ad",
     "complete=1 paused result=Updated applied=software+catalog"},
    // Windows 2000, XP and 2003: no administrator test, no relaunch.
    {"XpInstallsBothInPlace", "xp", "cs cd ds dd as ad",
     "complete=1 paused result=Updated applied=software+catalog"},
    {"XpSoftwareOnly", "xp -UAC data=2", "cs cd ds as", "paused result=Updated applied=software"},
};

// Whether the blank-separated `words` hold `word`; the text after "<key>=" for a key.
bool has(const std::string& words, const std::string& word) {
  return (" " + words + " ").find(" " + word + " ") != std::string::npos;
}
std::string valueOf(const std::string& words, const std::string& key, const std::string& fallback) {
  const std::string::size_type at = (" " + words).find(" " + key + "=");
  const std::string::size_type start = at + key.size() + 1;
  return at == std::string::npos ? fallback : words.substr(start, words.find(' ', start) - start);
}

class UpdateRunMatrix : public UpdatesControllerTest, public testing::WithParamInterface<Row> {
 protected:
  // The run's whole log, each line as LogCapture gives it, with this machine's folders named (and
  // the size of a block for a path in them, and the times of day, left out).
  Lines transcript(const testsupport::LogCapture& log) const {
    Lines lines = log.lines();
    const std::regex blockSize("AllocMemory\\([0-9]+\\)");
    const std::regex time("20[0-9]{2}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z");
    for (std::string& line : lines) {
      line = std::regex_replace(line, blockSize, "AllocMemory(<size>)");
      line = std::regex_replace(line, time, "<utc>");
      for (const auto& [folder, name] :
           {std::pair<std::string, std::string>{testsupport::executableDirectory(), "<exe>\\"},
            {files_.path(), "<files>"}}) {
        for (std::string::size_type at = line.find(folder); at != std::string::npos;
             at = line.find(folder, at + name.size()))
          line.replace(at, folder.size(), name);
      }
    }
    return lines;
  }
};

// Every line that each path of the run writes, in order, as the file of its row in
// tests/updater/runs/ has it: a line moved, dropped or reworded fails its row. With the
// environment variable UPDATE_RUN_TRANSCRIPTS set, the files are written instead.
void expectTranscript(const std::string& row, const Lines& lines) {
  const std::string file = testsupport::sourcePath("updater\\runs\\" + row + ".log");
  if (getenv("UPDATE_RUN_TRANSCRIPTS") != nullptr) {
    std::string text;
    for (const std::string& line : lines)
      text += line + "\n";
    testsupport::writeFile(file, text);
    return;
  }
  const Lines expected = testsupport::splitLines(testsupport::readFile(file));
  const auto differ = std::mismatch(expected.begin(), expected.end(), lines.begin(), lines.end());
  if (differ.first != expected.end() || differ.second != lines.end())
    ADD_FAILURE() << file << ", line " << (differ.first - expected.begin() + 1)
                  << ":\n  expected: " << (differ.first != expected.end() ? *differ.first : "(end)")
                  << "\n  written:  " << (differ.second != lines.end() ? *differ.second : "(end)");
}

BOOL WINAPI dialUp(LPDWORD flags, DWORD) {
  *flags = INTERNET_CONNECTION_MODEM;
  return TRUE;
}

}  // namespace

// The copy of this executable that Wine presents as Windows XP, told by its name alone.
bool isXpCopy() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  return strstr(path, "_xp_") != nullptr;
}

TEST_P(UpdateRunMatrix, TakesTheDecisionsAndLeavesTheMachineAsExpected) {
  const Row& row = GetParam();
  if (has(row.given, "xp") != isXpCopy())
    GTEST_SKIP() << "runs in the copy of this test that Wine presents as the other version";
  ASSERT_EQ(!isXpCopy(), OsVersion::getInstance().isVistaOrLater()) << "the wrong Windows version";
  PrinterScenario printer{"Office Inkjet",
                          has(row.given, "other-driver") ? "Generic Text" : kDriver};
  printer.jobs = 1;
  printer.drainAfterPolls = has(row.given, "busy") ? -1 : 1;
  printer.failOpen = has(row.given, "user") ? ERROR_ACCESS_DENIED : 0;
  printer.failResume = has(row.given, "resume-fails") ? ERROR_NOT_READY : 0;
  spooler_.write({printer});
  if (has(row.given, "data-dir-blocked"))
    testsupport::writeFile("C:\\ProgramData\\Corvane Inkjet Driver", "");
  WebUpdaterAdapter::setConnectedStateFunction(has(row.given, "dial-up") ? &dialUp : nullptr);
  g_shellResult = has(row.given, "declined") ? SE_ERR_ACCESSDENIED : 42;
  library_.connection(has(row.given, "offline") ? 0 : 1)
      .check("cs", valueOf(row.given, "sw", "3") + ",1.1")
      .check("cd", valueOf(row.given, "data", "3") + ",2026.2")
      .download("ds",
                has(row.given, "no-sw-download") ? "1,buffer," : "0,alloc," + softwarePackage())
      .download("dd",
                has(row.given, "no-data-download") ? "1,buffer," : "0,buffer," + dataPackage())
      .apply("\\as", valueOf(row.given, "sw-apply", "1"))
      .apply("\\ad", valueOf(row.given, "data-apply", "1"))
      .write();
  for (const char* flag : {"CompleteSoftwareUpdated", "DataUpdated"}) {
    if (has(row.given, "flags=2"))
      store_.set("Settings\\Updater", flag, 2);
  }
  store_.set("Settings\\Updater", "DoNotDeleteDownloadedFiles", has(row.given, "keep-files"));
  testsupport::setCommandLine(has(row.given, "-UAC") ? "-UAC" : "");
  const std::string held = valueOf(row.given, "held", "");
  std::optional<testsupport::MutexHolder> holder;
  if (!held.empty())
    holder.emplace("Global\\" + testsupport::localId() + held);
  RunRecord::setHoldWait(holder ? 20 : 0);

  const std::string mode = valueOf(row.given, "mode", "");
  if (!mode.empty())
    store_.set("Settings\\Updater", "UpdateMode", std::stoul(mode));
  if (has(row.given, "drain"))
    store_.set("Settings\\Updater", "QuietWaitMode", 1);
  const std::string window = valueOf(row.given, "window", "");
  if (!window.empty()) {
    SYSTEMTIME local;
    GetLocalTime(&local);
    const int now = local.wHour * 60 + local.wMinute;
    store_.set("Settings\\Updater", "ApplyWindowStart",
               static_cast<DWORD>((now + (window == "out" ? 120 : 1430)) % 1440));
    store_.set("Settings\\Updater", "ApplyWindowDuration", window == "in" ? 120 : 20);
  }
  if (has(row.given, "no-library") || has(row.given, "no-exports"))
    store_.set("Settings\\Updater", "WebUpdaterDllPath", files_.path());
  if (has(row.given, "no-exports")) {
    ASSERT_TRUE(CopyFileA((testsupport::executableDirectory() + "wupdnoexports.dll").c_str(),
                          files_.file("cvctwupd.DLL").c_str(), FALSE));
  }
  // The status as a parent that relaunched itself left it: the run's verdict replaces it.
  const std::string earlier = "2020-01-02T03:04:05Z";
  store_.set("Status", "LastResult", "Elevating");
  store_.set("Status", "LastSuccess", earlier);
  store_.set("Status", "ConsecutiveFailures", 2);

  testsupport::LogCapture log;
  const std::string before = RunStatus::utcNow();
  RunStatus status;
  RunVerdict verdict;
  {
    UpdatesController controller(RunConditions::read());
    controller.performUpdates();
    verdict = judge(controller.results());
  }
  status.finish(verdict);
  WebUpdaterAdapter::setConnectedStateFunction(nullptr);
  RunRecord::setHoldWait(0);

  expectTranscript(row.name, transcript(log));
  const Lines run = log.details("UpdatesController::performUpdates() ");
  EXPECT_EQ(has(row.outcome, "failed"), std::find(run.begin(), run.end(), kFailed) != run.end());
  EXPECT_EQ(row.calls, libraryCalls());
  const std::string self =
      "RunAs " + testsupport::executableDirectory() + "cvctl_tests.exe -UAC null 1";
  EXPECT_EQ(has(row.outcome, "relaunch") ? Lines{self} : Lines{}, g_relaunches);
  const char* launch = has(row.given, "declined") ? "The new process FAILED to launch. Casted "
                                                    "HINSTANCE value = 5"
                                                  : "The new process was launched successfully";
  EXPECT_EQ(has(row.outcome, "relaunch") ? Lines{launch} : Lines{},
            log.details("UpdatesController::isProcessElevated() "));
  EXPECT_TRUE(*row.line == '\0' || log.contains(row.line)) << row.line;
  // The software goes into the program's own folder, the catalog into the driver's data folder.
  for (const std::string& apply : library_.calls("UpdApplyUpdateA")) {
    const bool software = apply.find(softwarePackage() + " |") != std::string::npos;
    const std::string folder = software ? testsupport::executableDirectory() : kCatalogFolder;
    EXPECT_NE(std::string::npos, apply.find(" | dir=" + folder + " | ")) << apply;
  }
  const std::string kept = has(row.outcome, "flags=2") ? "2" : "none";
  EXPECT_EQ(has(row.outcome, "complete=1") ? "1" : kept, flag("CompleteSoftwareUpdated"));
  EXPECT_EQ(has(row.outcome, "data=1") ? "1" : kept, flag("DataUpdated"));
  EXPECT_EQ(has(row.outcome, "files-left"), testsupport::fileExists(softwarePackage()));
  EXPECT_EQ(has(row.outcome, "files-left"), testsupport::fileExists(dataPackage()));
  EXPECT_EQ("none", store_.get("Records", "PendingDownloads"));  // Nothing left noted.
  // No list: no package is copied for a verification.
  EXPECT_FALSE(testsupport::fileExists(PackageTrust::folderPath()));
  const Lines printers = has(row.outcome, "paused") ? Lines{"Office Inkjet"} : Lines{};
  EXPECT_EQ(printers, spooler_.names("SetPrinterA", "command=1 result=1"));
  EXPECT_EQ(has(row.given, "resume-fails") ? Lines{} : printers,
            spooler_.names("SetPrinterA", "command=2 result=1"));

  // The status: a success moves LastSuccess and ends the failures' count, a failure counts, a
  // warning (offline, a relaunch) leaves both.
  const std::string result = valueOf(row.outcome, "result", "?");
  const bool success = result == "UpToDate" || result == "Updated";
  const bool warning = result == "Offline" || result == "Elevating" ||
                       result == "UpdatedWithWarnings" || result == "Deferred";
  const std::string ended = store_.get("Status", "LastRunEnded");
  EXPECT_EQ(result, store_.get("Status", "LastResult"));
  EXPECT_EQ(success, store_.get("Status", "LastResultDetail").empty());
  EXPECT_EQ(success ? ended : earlier, store_.get("Status", "LastSuccess"));
  const bool reported = result == "UpdateAvailable";  // Neither a failure nor up to date.
  EXPECT_EQ(success || reported ? "0"
            : warning           ? "2"
                                : "3",
            store_.get("Status", "ConsecutiveFailures"));
  // What the checks found, and a deferred run's next window.
  const bool checked = row.calls[0] != '\0';
  const bool softwareFound = valueOf(row.given, "sw", "3") == "3";
  EXPECT_EQ(!checked        ? "none"
            : softwareFound ? "1.1"
                            : "",
            store_.get("Status", "AvailableSoftwareVersion"));
  EXPECT_EQ(has(row.given, "window=out") || has(row.given, "window=closing"),
            store_.get("Status", "NextApplyWindow") != "none");
  const std::string applied = valueOf(row.outcome, "applied", "none");
  EXPECT_EQ(applied, store_.get("Status", "LastUpdateApplied"));
  EXPECT_EQ(applied == "none" ? "none" : ended, store_.get("Status", "LastUpdate"));
  EXPECT_EQ("0", store_.get("Status", "RunInProgress"));
  const std::string lockFailure = store_.get("Status", "LastLockFailure");
  EXPECT_EQ(result == "LockUnavailable",
            lockFailure.find(" " + store_.get("Status", "LastResultDetail")) == 20)
      << lockFailure;
  EXPECT_EQ("1.2.3.4", store_.get("Status", "SoftwareVersion"));
  EXPECT_EQ("2026.1", store_.get("Status", "CatalogVersion"));
  const std::regex utc("20[0-9]{2}-[01][0-9]-[0-3][0-9]T[0-2][0-9]:[0-5][0-9]:[0-6][0-9]Z");
  EXPECT_TRUE(std::regex_match(ended, utc)) << ended;
  EXPECT_LE(before, store_.get("Status", "LastRunStarted"));
  EXPECT_LE(store_.get("Status", "LastRunStarted"), ended);
  EXPECT_LE(ended, RunStatus::utcNow());
}

INSTANTIATE_TEST_SUITE_P(Rows,
                         UpdateRunMatrix,
                         testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& row) { return row.param.name; });

// The rows for Windows 2000, XP and 2003 run, all of them, in a copy of this executable that Wine
// presents as XP.
TEST(UpdateRunMatrixOnXp, PassesInACopyPresentedAsWindowsXp) {
  if (isXpCopy())
    GTEST_SKIP() << "this is the copy";
  const std::string output = testsupport::runCopy("cvctl_tests.exe", "cvctl_xp_tests.exe",
                                                  "--gtest_filter=Rows/UpdateRunMatrix.*", "winxp");
  const auto xpRows = std::count_if(std::begin(kRows), std::end(kRows),
                                    [](const Row& row) { return has(row.given, "xp"); });
  EXPECT_NE(std::string::npos, output.find("[  PASSED  ] " + std::to_string(xpRows) + " tests."))
      << output;
}

// Odd download paths from the library: after the run, and after one more run's recovery, nothing is
// left noted, and the program and its log are never deleted because the library named them.
TEST_F(UpdatesControllerTest, OddDownloadPathsLeaveNothingNoted) {
  const std::string folder = files_.file("folder");
  CreateDirectoryA(folder.c_str(), nullptr);
  const std::string exe = testsupport::executableDirectory() + "cvctl_tests.exe";
  testsupport::LogCapture log(0);
  const std::string logFile = BasicLogger::getInstance().getLogFilePath();
  const std::string answers[] = {"named," + folder,
                                 "named,C:",
                                 "named,NUL",
                                 "named,\\\\server\\share\\data.pkg",
                                 "named," + exe,
                                 "named," + logFile,
                                 "named," + files_.file("gone\xE9.pkg"),
                                 "buffer," + files_.file("caf\xE9.pkg"),
                                 "empty,"};
  for (const std::string& answer : answers) {
    SCOPED_TRACE(answer);
    spooler_.write({PrinterScenario{"Office Inkjet", kDriver}});
    library_.clear().check("cs", "2").check("cd", "3,2026.2").download("dd", "0," + answer);
    library_.apply("*", "1").write();
    UpdatesController().performUpdates();
    EXPECT_EQ("none", store_.get("Records", "PendingDownloads"));
    DownloadRecord::recoverAbandonedDownloads();
    EXPECT_EQ("none", store_.get("Records", "PendingDownloads"));
  }
  EXPECT_FALSE(testsupport::fileExists(files_.file("caf\xE9.pkg")));
  EXPECT_TRUE(testsupport::fileExists(exe) && testsupport::fileExists(logFile));
  for (const std::string& own : {exe, logFile})
    EXPECT_TRUE(
        log.contains("DownloadRecord: not deleting '" + own + "': a file of the program's own"));
}

// The catalog goes into <all users' application data>\<DriverName>\<DataUpdatesDirectoryName>,
// which is made when it is missing and used as it is when it exists.
TEST_F(UpdatesControllerTest, TheCatalogsFolderIsMadeOnlyWhenItIsMissing) {
  library_.apply("*", "1").write();
  UpdatesController controller;
  EXPECT_FALSE(controller.installUpdates("", ""));
  for (const bool exists : {false, true}) {
    testsupport::LogCapture log;
    EXPECT_TRUE(controller.installDataUpdate(dataPackage())) << exists;
    EXPECT_EQ(!exists, log.contains("UpdatesController::installDataUpdate() Attempting to create "
                                    "dir : " +
                                    std::string(kCatalogFolder)));
  }
  store_.set("Settings\\Updater", "DataUpdatesDirectoryName", "\\Catalog");
  store_.set("Settings\\", "DriverName", "Other Driver\\");
  EXPECT_EQ("C:\\ProgramData\\Other Driver\\Catalog", controller.getDataUpdatesDirectory());
}

// A whole run in a process of its own (a copy of the helper in this store): a start-up that fails
// (here once the logger exists) ends it with 0 before the library is even loaded; a run that
// started tears down in order, the command line last, while the log still takes its lines.
TEST_F(UpdatesControllerTest, AFailedStartUpRunsNothingAndTheTeardownEndsWhileTheLogLives) {
  library_.connection(0).write();
  for (const bool fails : {false, true}) {
    library_.clearJournal();
    testsupport::LogCapture log;
    DWORD exitCode = 1;
    testsupport::runCopy("test_helper.exe", testsupport::localId() + "_helper.exe",
                         fails ? "run fail-startup" : "run", "", &exitCode);
    EXPECT_EQ(0u, exitCode) << fails;
    EXPECT_EQ(fails, library_.journal().empty()) << fails;
    const Lines lines = log.lines();
    const Lines teardown = {"RulesEng        -DeviceEnumerator::destroy: ",
                            "Updater         +CommandLineParams::~CommandLineParams() ",
                            "Updater         -CommandLineParams::~CommandLineParams() "};
    EXPECT_EQ(fails ? Lines{} : teardown,
              lines.size() < 3 ? lines : Lines(lines.end() - 3, lines.end()));
  }
}

// Whole runs in processes of their own: the status is written only by the run that holds the run
// lock. One that stands aside changes no value of it; a parent whose relaunch was declined records
// ElevationFailed itself, ends its run (RunInProgress 0) and leaves the lock free.
TEST_F(UpdatesControllerTest, OnlyTheRunThatHoldsTheLockWritesTheStatus) {
  spooler_.write({PrinterScenario{"Office Inkjet", kDriver}});
  library_.connection(1).check("cs", "3,1.1").check("cd", "3,2026.2").write();
  const std::vector<std::pair<std::string, std::string>> killed = {
      {"LastRunStarted", "2026-01-02T03:04:09Z"},
      {"LastRunEnded", "2026-01-02T03:04:05Z"},
      {"LastResult", "DownloadFailed"},
      {"RunInProgress", "1"},
      {"ConsecutiveFailures", "2"}};
  for (const auto& [name, value] : killed) {
    if (name == "RunInProgress" || name == "ConsecutiveFailures")
      store_.set("Status", name, std::stoul(value));
    else
      store_.set("Status", name, value);
  }
  const std::string helper = testsupport::localId() + "_helper.exe";
  {
    testsupport::MutexHolder run("Global\\" + testsupport::localId() + "UpdateRun");
    ASSERT_TRUE(run.holds());
    testsupport::runCopy("test_helper.exe", helper, "run");
    for (const auto& [name, value] : killed)
      EXPECT_EQ(value, store_.get("Status", name)) << name;
    EXPECT_TRUE(library_.calls().empty());
  }
  testsupport::runCopy("test_helper.exe", helper, "run declined");
  EXPECT_EQ("ElevationFailed", store_.get("Status", "LastResult"));
  EXPECT_EQ("relaunch: ShellExecuteA failed, value 5", store_.get("Status", "LastResultDetail"));
  EXPECT_EQ("0", store_.get("Status", "RunInProgress"));
  EXPECT_EQ("3", store_.get("Status", "ConsecutiveFailures"));
  EXPECT_EQ("acquired",
            testsupport::tryMutexElsewhere("Global\\" + testsupport::localId() + "UpdateRun"));
}

// Whole runs of the scheduled task and of the update modes, in processes of their own. Every start
// recovers what a killed run left; a scheduled start then goes on only when a check is due (its
// last one older than the period, and inside the apply window when there is one), and one that is
// not due loads no library and changes no status value. A start by hand always runs. Update mode 0
// ends before the library is loaded; a policy value that is ignored is logged.
TEST_F(UpdatesControllerTest, ScheduledStartsRunOnlyWhenDueAndUpdateModeOffLoadsNothing) {
  SYSTEMTIME local;
  GetLocalTime(&local);
  const DWORD outside = static_cast<DWORD>((local.wHour * 60 + local.wMinute + 120) % 1440);
  const struct {
    const char* name;
    const char* arguments;
    const char* lastCheck;  // "an hour ago", or a time
    bool window;            // an apply window that excludes now
    DWORD mode;             // UpdateMode
    bool runs;              // the library is asked
    const char* result;     // LastResult afterwards
  } rows[] = {
      {"checked within the period", "run scheduled", "an hour ago", false, 1, false, "Offline"},
      {"outside the apply window", "run scheduled", "2020-01-01T00:00:00Z", true, 1, false,
       "Offline"},
      {"due", "run scheduled", "2020-01-01T00:00:00Z", false, 1, true, "UpToDate"},
      {"by hand, checked within the period", "run", "an hour ago", false, 1, true, "UpToDate"},
      {"by hand, update mode off", "run", "an hour ago", false, 0, false, "DisabledByPolicy"},
  };
  spooler_.write({PrinterScenario{"Office Inkjet", kDriver}});
  library_.connection(1).check("cs", "2").check("cd", "2").write();
  const std::string helper = testsupport::localId() + "_helper.exe";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string lastCheck = std::string(row.lastCheck) == "an hour ago"
                                      ? testsupport::utcFromNow(-3600)
                                      : row.lastCheck;
    store_.set("Status", "LastCheck", lastCheck);
    store_.set("Status", "LastResult", "Offline");
    store_.set("Settings\\Updater", "UpdateMode", row.mode);
    if (row.window) {
      store_.set("Settings\\Updater", "ApplyWindowStart", outside);
      store_.set("Settings\\Updater", "ApplyWindowDuration", 30);
    } else {
      store_.remove("Settings\\Updater", "ApplyWindowStart");
    }
    // A record of printers that a killed run left paused: every start resumes them.
    {
      RunRecord killed("PausedPrinters", "PauseRecord");
      ASSERT_TRUE(killed.hold() && killed.write({"Office Inkjet"}));
    }
    PrinterScenario paused{"Office Inkjet", kDriver};
    paused.status = PRINTER_STATUS_PAUSED;
    spooler_.write({paused});
    library_.clearJournal();
    testsupport::LogCapture log;
    DWORD exitCode = 0;
    const std::string output =
        testsupport::runCopy("test_helper.exe", helper, row.arguments, "", &exitCode);
    EXPECT_EQ(0u, exitCode) << output;
    // The helper's calls, as the journals have them (the helper is another process).
    const std::string journal = library_.journal();
    EXPECT_EQ(row.runs, journal.find(" | UpdCheckConnection") != std::string::npos) << journal;
    EXPECT_EQ(row.runs, !journal.empty()) << journal;
    EXPECT_EQ(row.result, store_.get("Status", "LastResult"));
    EXPECT_EQ(row.runs, store_.get("Status", "LastCheck") != lastCheck);
    EXPECT_NE(std::string::npos,
              spooler_.journal().find(" SetPrinterA name=Office Inkjet command=2 result=1"));
    EXPECT_EQ("none", store_.get("Records", "PausedPrinters"));
    const Lines notDue = log.details("UpdateRun: a scheduled start with no update check due (");
    const bool due = row.runs || std::string(row.arguments) == "run";
    ASSERT_EQ(due ? 0u : 1u, notDue.size());
    const std::string why =
        row.window ? "outside the apply window, the next opens at "
                   : "the last check, at " + lastCheck + ", is less than 1440 minute(s) old)";
    EXPECT_TRUE(due || notDue[0].find(why) == 0) << notDue[0];
  }
}

// A policy value that is ignored is said in the run's log; the store's value is used.
TEST_F(UpdatesControllerTest, APolicyValueThatIsIgnoredIsLogged) {
  testsupport::ScopedPolicy policy;
  policy.set("Settings\\Updater", "UpdateMode", "off");  // A text, where a number belongs.
  library_.connection(0).write();
  testsupport::LogCapture log;
  testsupport::runCopy("test_helper.exe", testsupport::localId() + "_helper.exe", "run");
  const Lines ignored = log.details("UpdateRun: Policy UpdateMode = ");
  ASSERT_EQ(1u, ignored.size());
  EXPECT_NE(std::string::npos, ignored[0].find(" is ignored: it must be a REG_DWORD; the store's "
                                               "value is used"))
      << ignored[0];
  EXPECT_EQ("Offline", store_.get("Status", "LastResult"));
}

TEST(CommandLineParams, TheMarkerIsACaseInsensitiveSubstring) {
  const std::pair<const char*, bool> lines[] = {{"", false},          {"-UAC", true},
                                                {"-uac", true},       {"/silent -Uac", true},
                                                {"foo-UACbar", true}, {"/silent /update", false},
                                                {"- UAC", false},     {"UAC", false}};
  for (const auto& [line, elevated] : lines)
    EXPECT_EQ(elevated, CommandLineParams(line).containsUacParams()) << line;
}
