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
    const std::string updater = "Settings\\Updater";
    store_.set(updater, "WebUpdaterDllPath", testsupport::executableDirectory());
    store_.set(updater, "WebServerUrl", "http://svc/[package_code]");
    store_.set(updater, "TandemOrreryVersionPackageCode", "cs");
    store_.set(updater, "TandemCatalogVersionPackageCode", "cd");
    store_.set(updater, "TandemOrreryDownloadPackageCode", "ds");
    store_.set(updater, "TandemCatalogDownloadPackageCode", "dd");
    store_.set(updater, "PrinterPollInterval", 1);
    store_.set("Settings\\", "DriverName", kDriver);
    // The installed versions that the run's status reports.
    store_.set("Settings\\", "DllPath", files_.path());
    store_.set("Settings\\", "DataPath", files_.path());
    testsupport::writeFile(files_.file("cvctProg.ver"), "<PackageVersion>1.2.3.4</PackageVersion>");
    testsupport::writeFile(files_.file("orData.ver"), "<PackageVersion>2026.1</PackageVersion>");
    g_relaunches.clear();
    g_shellResult = 42;
    ElevatedRelaunch::setShellExecuteFunction(&fakeShellExecute);
    setCommandLine("");
  }
  void TearDown() override {
    ElevatedRelaunch::setShellExecuteFunction(nullptr);
    DeviceEnumerator::destroy();
    setCommandLine("");
    testsupport::removeTree("C:\\ProgramData\\Corvane Inkjet Driver");
  }

  static void setCommandLine(const std::string& commandLine) {
    CommandLineParams::destroyInstance();
    CommandLineParams::createInstance(commandLine);
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
  // catalog's folder belongs), "no-library", "no-exports" (a library without the exports).
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
  // the size of a block for a path in them left out).
  Lines transcript(const testsupport::LogCapture& log) const {
    Lines lines = log.lines();
    const std::regex blockSize("AllocMemory\\([0-9]+\\)");
    for (std::string& line : lines) {
      line = std::regex_replace(line, blockSize, "AllocMemory(<size>)");
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
  printer.drainAfterPolls = 1;
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
  setCommandLine(has(row.given, "-UAC") ? "-UAC" : "");
  const std::string held = valueOf(row.given, "held", "");
  std::optional<testsupport::MutexHolder> holder;
  if (!held.empty())
    holder.emplace("Global\\" + testsupport::localId() + held);
  RunRecord::setHoldWait(holder ? 20 : 0);

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
    UpdatesController controller;
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
  const Lines printers = has(row.outcome, "paused") ? Lines{"Office Inkjet"} : Lines{};
  EXPECT_EQ(printers, spooler_.names("SetPrinterA", "command=1 result=1"));
  EXPECT_EQ(has(row.given, "resume-fails") ? Lines{} : printers,
            spooler_.names("SetPrinterA", "command=2 result=1"));

  // The status: a success moves LastSuccess and ends the failures' count, a failure counts, a
  // warning (offline, a relaunch) leaves both.
  const std::string result = valueOf(row.outcome, "result", "?");
  const bool success = result == "UpToDate" || result == "Updated";
  const bool warning =
      result == "Offline" || result == "Elevating" || result == "UpdatedWithWarnings";
  const std::string ended = store_.get("Status", "LastRunEnded");
  EXPECT_EQ(result, store_.get("Status", "LastResult"));
  EXPECT_EQ(success, store_.get("Status", "LastResultDetail").empty());
  EXPECT_EQ(success ? ended : earlier, store_.get("Status", "LastSuccess"));
  EXPECT_EQ(success ? "0" : warning ? "2" : "3", store_.get("Status", "ConsecutiveFailures"));
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

TEST(CommandLineParams, TheMarkerIsACaseInsensitiveSubstring) {
  const std::pair<const char*, bool> lines[] = {{"", false},          {"-UAC", true},
                                                {"-uac", true},       {"/silent -Uac", true},
                                                {"foo-UACbar", true}, {"/silent /update", false},
                                                {"- UAC", false},     {"UAC", false}};
  for (const auto& [line, elevated] : lines)
    EXPECT_EQ(elevated, CommandLineParams(line).containsUacParams()) << line;
}
