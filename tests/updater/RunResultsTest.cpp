#include <gtest/gtest.h>

#include <functional>

#include "updater/RunResults.h"

namespace {

using Step = RunResults::Step;

// A run that got through its checks: the library loaded, online, both checks asked and answered.
RunResults checked(UpdateCheckResult software, UpdateCheckResult catalog) {
  RunResults results;
  results.connection = Step::kDone;
  results.software = {true, software, software == UPDATE_AVAILABLE ? 1 : 2, "1.1"};
  results.catalog = {software != UPDATE_CHECK_FAILED, catalog, 0, "2026.2"};
  return results;
}

// A run that installed here what was available, every step succeeding.
RunResults installed(bool software, bool catalog) {
  RunResults results = checked(software ? UPDATE_AVAILABLE : UPDATE_NOT_AVAILABLE,
                               catalog ? UPDATE_AVAILABLE : UPDATE_NOT_AVAILABLE);
  results.decision = RunResults::Decision::kInstall;
  if (software) {
    results.softwareDownload.result = Step::kDone;
    results.softwareApply.result = Step::kDone;
  }
  if (catalog) {
    results.catalogDownload.result = Step::kDone;
    results.catalogApply.result = Step::kDone;
  }
  results.pause = results.resume = Step::kDone;
  return results;
}

struct Row {
  const char* name;
  std::function<RunResults()> run;
  const char* word;
  std::string detail;
  const char* applied;
  bool movesLastSuccess;
  uint32_t failuresAfterTwo;  // ConsecutiveFailures after the run, from 2
};

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.name;
}

const char kException[] = "file:x:1: Mutex::acquire() WaitForSingleObject failed: Win32(6";

const Row kRows[] = {
    {"NothingAvailable", [] { return checked(UPDATE_NOT_AVAILABLE, UPDATE_NOT_AVAILABLE); },
     "UpToDate", "", "", true, 0},
    {"CatalogNoPrivilegeIsNothing",
     [] { return checked(UPDATE_NOT_AVAILABLE, UPDATE_NO_PRIVILEGE); }, "UpToDate", "", "", true,
     0},
    {"LibraryMissing",
     [] {
       RunResults results;
       results.library = RunResults::Library::kMissing;
       results.libraryError = 126;
       results.connection = Step::kFailed;
       return results;
     },
     "LibraryMissing", "library load: error 126", "", false, 3},
    // A library that lacks the connection export would read as offline, and one that lacks the
    // check export as up to date: neither is.
    {"LibraryWithoutTheConnectionExport",
     [] {
       RunResults results;
       results.library = RunResults::Library::kIncompatible;
       results.missingExport = "UpdCheckConnection";
       results.connection = Step::kFailed;
       return results;
     },
     "LibraryIncompatible", "library: no export 'UpdCheckConnection'", "", false, 3},
    {"LibraryWithoutTheCheckExport",
     [] {
       RunResults results = checked(UPDATE_NOT_AVAILABLE, UPDATE_NOT_AVAILABLE);
       results.library = RunResults::Library::kIncompatible;
       results.missingExport = "UpdCheckForUpdateA";
       return results;
     },
     "LibraryIncompatible", "library: no export 'UpdCheckForUpdateA'", "", false, 3},
    {"Offline",
     [] {
       RunResults results;
       results.connection = Step::kFailed;
       return results;
     },
     "Offline", "connection check: code 0", "", false, 2},
    {"SoftwareCheckFails", [] { return checked(UPDATE_CHECK_FAILED, UPDATE_NOT_AVAILABLE); },
     "CheckFailed", "software check: code 2", "", false, 3},
    {"SoftwareNoPrivilege", [] { return checked(UPDATE_NO_PRIVILEGE, UPDATE_NOT_AVAILABLE); },
     "NotPermitted", "software check: no privilege, code 2", "", false, 3},
    {"CatalogCheckFailsNothingElse",
     [] { return checked(UPDATE_NOT_AVAILABLE, UPDATE_CHECK_FAILED); }, "CheckFailed",
     "catalog check: code 0", "", false, 3},
    {"StillNotAnAdministrator",
     [] {
       RunResults results = checked(UPDATE_AVAILABLE, UPDATE_AVAILABLE);
       results.decision = RunResults::Decision::kNotPermitted;
       results.notPermitted = "still not an administrator after the relaunch";
       return results;
     },
     "NotPermitted", "install decision: still not an administrator after the relaunch", "", false,
     3},
    {"Relaunched",
     [] {
       RunResults results = checked(UPDATE_AVAILABLE, UPDATE_CHECK_FAILED);
       results.decision = RunResults::Decision::kElevate;
       results.elevation = Step::kDone;
       return results;
     },
     "Elevating", "relaunched with -UAC", "", false, 2},
    {"RelaunchDeclined",
     [] {
       RunResults results = checked(UPDATE_AVAILABLE, UPDATE_AVAILABLE);
       results.decision = RunResults::Decision::kElevate;
       results.elevation = Step::kFailed;
       results.elevationValue = 5;
       return results;
     },
     "ElevationFailed", "relaunch: ShellExecuteA failed, value 5", "", false, 3},
    {"CatalogDownloadFails",
     [] {
       RunResults results = installed(true, true);
       results.catalogDownload = {Step::kFailed, 1, ""};
       results.pause = results.resume = Step::kNotRun;
       results.softwareApply = results.catalogApply = {};
       return results;
     },
     "DownloadFailed", "catalog download: code 1", "", false, 3},
    {"DownloadRecordsLockHeld",
     [] {
       RunResults results = installed(true, false);
       results.softwareDownload = {Step::kFailed, 0, "DownloadRecord: the mutex 'm' is held"};
       return results;
     },
     "LockUnavailable", "DownloadRecord: the mutex 'm' is held", "software", false, 3},
    {"PauseRecordsLockHeld",
     [] {
       RunResults results = installed(false, true);
       results.pause = Step::kFailed;
       results.pauseLockFailure = "PauseRecord: the mutex 'm' could not be made";
       results.catalogApply = {};
       results.resume = Step::kNotRun;
       return results;
     },
     "LockUnavailable", "PauseRecord: the mutex 'm' could not be made", "", false, 3},
    {"NoPrinterToPause",
     [] {
       RunResults results = installed(false, true);
       results.pause = Step::kFailed;
       results.catalogApply = {};
       results.resume = Step::kNotRun;
       return results;
     },
     "PauseFailed", "pause printers: not all could be paused", "", false, 3},
    {"SoftwareApplyFails",
     [] {
       RunResults results = installed(true, true);
       results.softwareApply = {Step::kFailed, "code 0"};
       results.catalogApply = {};
       return results;
     },
     "ApplyFailed", "software apply: code 0", "", false, 3},
    // The catalog's folder unknown: a failure, not a software-only success.
    {"DataFolderNotFound",
     [] {
       RunResults results = installed(true, true);
       results.catalogApply = {Step::kFailed, "the data folder could not be found"};
       return results;
     },
     "ApplyFailed", "catalog apply: the data folder could not be found", "software", false, 3},
    // An exception after the applies keeps what was applied and names where it ended the run.
    {"ExceptionInTheCleanUp",
     [] {
       RunResults results = installed(true, true);
       results.exception = kException;
       return results;
     },
     "ApplyFailed", std::string("clean-up: ") + kException, "software+catalog", false, 3},
    {"ExceptionDuringTheApplies",
     [] {
       RunResults results = installed(true, true);
       results.catalogApply = {};
       results.resume = Step::kNotRun;
       results.exception = kException;
       return results;
     },
     "ApplyFailed", std::string("apply: ") + kException, "software", false, 3},
    {"ExceptionWhileWaitingForThePrinters",
     [] {
       RunResults results = installed(false, true);
       results.pause = results.resume = Step::kNotRun;
       results.catalogApply = {};
       results.exception = kException;
       return results;
     },
     "PauseFailed", std::string("pause printers: ") + kException, "", false, 3},
    {"ExceptionBeforeTheChecks",
     [] {
       RunResults results;
       results.exception = kException;
       return results;
     },
     "CheckFailed", std::string("run: ") + kException, "", false, 3},
    {"ResumeFails",
     [] {
       RunResults results = installed(true, true);
       results.resume = Step::kFailed;
       return results;
     },
     "ResumeFailed", "resume printers: not all could be resumed", "software+catalog", false, 3},
    // The software applied while the catalog could not be checked: not a plain success.
    {"SoftwareAppliedCatalogCheckFailed",
     [] {
       RunResults results = installed(true, false);
       results.catalog = {true, UPDATE_CHECK_FAILED, 0, ""};
       return results;
     },
     "UpdatedWithWarnings", "catalog check: code 0; the software update was applied", "software",
     false, 2},
    // The update modes other than automatic: off before anything, report only after the checks.
    {"UpdatesOff",
     [] {
       RunResults results;
       results.disabled = true;
       return results;
     },
     "DisabledByPolicy", "update mode 0 (off): nothing was checked", "", false, 2},
    {"ReportOnlyWithUpdates",
     [] {
       RunResults results = checked(UPDATE_AVAILABLE, UPDATE_AVAILABLE);
       results.checkOnly = "update mode 2 (check and report only)";
       return results;
     },
     "UpdateAvailable",
     "update mode 2 (check and report only): software 1.1, catalog 2026.2 available", "", false, 0},
    {"ReportOnlyNothingAvailable",
     [] {
       RunResults results = checked(UPDATE_NOT_AVAILABLE, UPDATE_NOT_AVAILABLE);
       results.checkOnly = "update mode 2 (check and report only)";
       return results;
     },
     "UpToDate", "", "", true, 0},
    {"ReportOnlyCheckFails",
     [] {
       RunResults results = checked(UPDATE_CHECK_FAILED, UPDATE_NOT_AVAILABLE);
       results.checkOnly = "update mode 2 (check and report only)";
       return results;
     },
     "CheckFailed", "software check: code 2", "", false, 3},
    {"BothApplied", [] { return installed(true, true); }, "Updated", "", "software+catalog", true,
     0},
    {"CatalogApplied", [] { return installed(false, true); }, "Updated", "", "catalog", true, 0},
};

class RunVerdictTable : public testing::TestWithParam<Row> {};

}  // namespace

// The one mapping from what the steps reported to the run's word, detail and applied parts, and
// what the word then does to LastSuccess and ConsecutiveFailures.
TEST_P(RunVerdictTable, TheFirstFailingStepDecides) {
  const Row& row = GetParam();
  const RunVerdict verdict = judge(row.run());
  EXPECT_STREQ(row.word, outcomeWord(verdict.outcome));
  EXPECT_EQ(row.detail, verdict.detail);
  EXPECT_EQ(row.applied, verdict.applied);
  EXPECT_EQ(row.movesLastSuccess, outcomeInfo(verdict.outcome).movesLastSuccess);
  EXPECT_EQ(row.failuresAfterTwo, failuresAfter(verdict.outcome, 2));
}

INSTANTIATE_TEST_SUITE_P(Rows,
                         RunVerdictTable,
                         testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& row) { return row.param.name; });
