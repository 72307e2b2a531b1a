#include <gtest/gtest.h>

#include "updater/RunResults.h"

namespace {

using R = RunResults;
using Step = R::Step;
using Library = R::Library;
using Decision = R::Decision;

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

// `base` changed by `change`.
R with(R base, void (*change)(R&)) {
  change(base);
  return base;
}

struct Row {
  const char* name;
  RunResults run;
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
    {"NothingAvailable", checked(UPDATE_NOT_AVAILABLE, UPDATE_NOT_AVAILABLE), "UpToDate", "", "",
     true, 0},
    {"CatalogNoPrivilegeIsNothing", checked(UPDATE_NOT_AVAILABLE, UPDATE_NO_PRIVILEGE), "UpToDate",
     "", "", true, 0},
    {"LibraryMissing",
     with(R(),
          [](R& r) {
            r.library = Library::kMissing;
            r.libraryError = 126;
            r.connection = Step::kFailed;
          }),
     "LibraryMissing", "library load: error 126", "", false, 3},
    // A library that lacks the connection export would read as offline, and one that lacks the
    // check export as up to date: neither is.
    {"LibraryWithoutTheConnectionExport",
     with(R(),
          [](R& r) {
            r.library = Library::kIncompatible;
            r.missingExport = "UpdCheckConnection";
            r.connection = Step::kFailed;
          }),
     "LibraryIncompatible", "library: no export 'UpdCheckConnection'", "", false, 3},
    {"LibraryWithoutTheCheckExport",
     with(checked(UPDATE_NOT_AVAILABLE, UPDATE_NOT_AVAILABLE),
          [](R& r) {
            r.library = Library::kIncompatible;
            r.missingExport = "UpdCheckForUpdateA";
          }),
     "LibraryIncompatible", "library: no export 'UpdCheckForUpdateA'", "", false, 3},
    {"Offline", with(R(), [](R& r) { r.connection = Step::kFailed; }), "Offline",
     "connection check: code 0", "", false, 2},
    {"SoftwareCheckFails", checked(UPDATE_CHECK_FAILED, UPDATE_NOT_AVAILABLE), "CheckFailed",
     "software check: code 2", "", false, 3},
    {"SoftwareNoPrivilege", checked(UPDATE_NO_PRIVILEGE, UPDATE_NOT_AVAILABLE), "NotPermitted",
     "software check: no privilege, code 2", "", false, 3},
    {"CatalogCheckFailsNothingElse", checked(UPDATE_NOT_AVAILABLE, UPDATE_CHECK_FAILED),
     "CheckFailed", "catalog check: code 0", "", false, 3},
    {"StillNotAnAdministrator",
     with(checked(UPDATE_AVAILABLE, UPDATE_AVAILABLE),
          [](R& r) {
            r.decision = Decision::kNotPermitted;
            r.notPermitted = "still not an administrator after the relaunch";
          }),
     "NotPermitted", "install decision: still not an administrator after the relaunch", "", false,
     3},
    {"Relaunched",
     with(checked(UPDATE_AVAILABLE, UPDATE_CHECK_FAILED),
          [](R& r) {
            r.decision = Decision::kElevate;
            r.elevation = Step::kDone;
          }),
     "Elevating", "relaunched with -UAC", "", false, 2},
    {"RelaunchDeclined",
     with(checked(UPDATE_AVAILABLE, UPDATE_AVAILABLE),
          [](R& r) {
            r.decision = Decision::kElevate;
            r.elevation = Step::kFailed;
            r.elevationValue = 5;
          }),
     "ElevationFailed", "relaunch: ShellExecuteA failed, value 5", "", false, 3},
    {"CatalogDownloadFails",
     with(installed(true, true),
          [](R& r) {
            r.catalogDownload = {Step::kFailed, 1, ""};
            r.pause = r.resume = Step::kNotRun;
            r.softwareApply = r.catalogApply = {};
          }),
     "DownloadFailed", "catalog download: code 1", "", false, 3},
    {"DownloadRecordsLockHeld",
     with(installed(true, false),
          [](R& r) {
            r.softwareDownload = {Step::kFailed, 0, "DownloadRecord: the mutex 'm' is held"};
          }),
     "LockUnavailable", "DownloadRecord: the mutex 'm' is held", "software", false, 3},
    {"PauseRecordsLockHeld",
     with(installed(false, true),
          [](R& r) {
            r.pause = Step::kFailed;
            r.pauseLockFailure = "PauseRecord: the mutex 'm' could not be made";
            r.catalogApply = {};
            r.resume = Step::kNotRun;
          }),
     "LockUnavailable", "PauseRecord: the mutex 'm' could not be made", "", false, 3},
    {"NoPrinterToPause",
     with(installed(false, true),
          [](R& r) {
            r.pause = Step::kFailed;
            r.catalogApply = {};
            r.resume = Step::kNotRun;
          }),
     "PauseFailed", "pause printers: not all could be paused", "", false, 3},
    {"SoftwareApplyFails",
     with(installed(true, true),
          [](R& r) {
            r.softwareApply = {Step::kFailed, "code 0"};
            r.catalogApply = {};
          }),
     "ApplyFailed", "software apply: code 0", "", false, 3},
    // The catalog's folder unknown: a failure, not a software-only success.
    {"DataFolderNotFound",
     with(installed(true, true),
          [](R& r) {
            r.catalogApply = {Step::kFailed, "the data folder could not be found"};
          }),
     "ApplyFailed", "catalog apply: the data folder could not be found", "software", false, 3},
    // An exception after the applies keeps what was applied and names where it ended the run.
    {"ExceptionInTheCleanUp", with(installed(true, true), [](R& r) { r.exception = kException; }),
     "ApplyFailed", std::string("clean-up: ") + kException, "software+catalog", false, 3},
    {"ExceptionDuringTheApplies",
     with(installed(true, true),
          [](R& r) {
            r.catalogApply = {};
            r.resume = Step::kNotRun;
            r.exception = kException;
          }),
     "ApplyFailed", std::string("apply: ") + kException, "software", false, 3},
    {"ExceptionWhileWaitingForThePrinters",
     with(installed(false, true),
          [](R& r) {
            r.pause = r.resume = Step::kNotRun;
            r.catalogApply = {};
            r.exception = kException;
          }),
     "PauseFailed", std::string("pause printers: ") + kException, "", false, 3},
    {"ExceptionBeforeTheChecks", with(R(), [](R& r) { r.exception = kException; }), "CheckFailed",
     std::string("run: ") + kException, "", false, 3},
    {"ResumeFails", with(installed(true, true), [](R& r) { r.resume = Step::kFailed; }),
     "ResumeFailed", "resume printers: not all could be resumed", "software+catalog", false, 3},
    // The software applied while the catalog could not be checked: not a plain success.
    {"SoftwareAppliedCatalogCheckFailed",
     with(installed(true, false),
          [](R& r) {
            r.catalog = {true, UPDATE_CHECK_FAILED, 0, ""};
          }),
     "UpdatedWithWarnings", "catalog check: code 0; the software update was applied", "software",
     false, 2},
    // The update modes other than automatic: off before anything, report only after the checks.
    {"UpdatesOff", with(R(), [](R& r) { r.disabled = true; }), "DisabledByPolicy",
     "update mode 0 (off): nothing was checked", "", false, 2},
    {"ReportOnlyWithUpdates",
     with(checked(UPDATE_AVAILABLE, UPDATE_AVAILABLE),
          [](R& r) { r.checkOnly = "update mode 2 (check and report only)"; }),
     "UpdateAvailable",
     "update mode 2 (check and report only): software 1.1, catalog 2026.2 available", "", false, 0},
    {"ReportOnlyNothingAvailable",
     with(checked(UPDATE_NOT_AVAILABLE, UPDATE_NOT_AVAILABLE),
          [](R& r) { r.checkOnly = "update mode 2 (check and report only)"; }),
     "UpToDate", "", "", true, 0},
    {"ReportOnlyCheckFails",
     with(checked(UPDATE_CHECK_FAILED, UPDATE_NOT_AVAILABLE),
          [](R& r) { r.checkOnly = "update mode 2 (check and report only)"; }),
     "CheckFailed", "software check: code 2", "", false, 3},
    // A package refused by the trusted publishers' check: after the downloads, before the pause;
    // what was applied of the other package is kept, and a later failure does not hide it.
    {"PackageRefusedNothingApplied",
     with(installed(false, true),
          [](R& r) {
            r.catalogTrust = {Step::kFailed, "not signed; signer no signer"};
            r.pause = r.resume = Step::kNotRun;
            r.catalogApply = {};
          }),
     "PackageUntrusted", "catalog package: not signed; signer no signer", "", false, 3},
    {"PackageRefusedTheOtherApplied",
     with(installed(true, true),
          [](R& r) {
            r.softwareTrust = {Step::kFailed, "its contents changed after signing"};
            r.catalogTrust.result = Step::kDone;
            r.softwareApply = {};
            r.resume = Step::kFailed;
          }),
     "PackageUntrusted", "software package: its contents changed after signing", "catalog", false,
     3},
    {"PackagesAdmitted",
     with(installed(true, true),
          [](R& r) { r.softwareTrust.result = r.catalogTrust.result = Step::kDone; }),
     "Updated", "", "software+catalog", true, 0},
    {"LibraryRefused",
     with(R(),
          [](R& r) {
            r.library = Library::kMissing;
            r.libraryRefusal = "its folder can be changed by S-1-5-32-545";
            r.connection = Step::kFailed;
          }),
     "LibraryMissing", "library not loaded: its folder can be changed by S-1-5-32-545", "", false,
     3},
    {"BothApplied", installed(true, true), "Updated", "", "software+catalog", true, 0},
    {"CatalogApplied", installed(false, true), "Updated", "", "catalog", true, 0},
};

class RunVerdictTable : public testing::TestWithParam<Row> {};

}  // namespace

// The one mapping from what the steps reported to the run's word, detail and applied parts, and
// what the word then does to LastSuccess and ConsecutiveFailures.
TEST_P(RunVerdictTable, TheFirstFailingStepDecides) {
  const Row& row = GetParam();
  const RunVerdict verdict = judge(row.run);
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
