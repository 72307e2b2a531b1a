#include "updater/RunResults.h"

namespace {

using Step = RunResults::Step;

std::string code(long value) {
  return "code " + std::to_string(value);
}

bool applied(const RunResults::Apply& apply) {
  return apply.result == Step::kDone;
}

std::string appliedParts(const RunResults& results) {
  if (applied(results.softwareApply))
    return applied(results.catalogApply) ? "software+catalog" : "software";
  return applied(results.catalogApply) ? "catalog" : "";
}

bool downloaded(const RunResults& results) {
  return results.softwareDownload.result == Step::kDone ||
         results.catalogDownload.result == Step::kDone;
}

// Where an exception ended the run: the step that was in progress, after the last one that
// reported, and the word of that step's failure.
std::pair<RunOutcome, const char*> stepInProgress(const RunResults& results) {
  if (results.resume != Step::kNotRun)
    return {RunOutcome::kApplyFailed, "clean-up"};
  if (results.pause == Step::kDone)
    return {RunOutcome::kApplyFailed, "apply"};
  if (downloaded(results))
    return {RunOutcome::kPauseFailed, "pause printers"};
  if (results.decision == RunResults::Decision::kInstall)
    return {RunOutcome::kDownloadFailed, "download"};
  if (results.decision == RunResults::Decision::kElevate)
    return {RunOutcome::kElevationFailed, "relaunch"};
  return {RunOutcome::kCheckFailed, results.software.asked ? "update check" : "run"};
}

// What the checks found available: "software 1.1, catalog 2026.2".
std::string available(const RunResults& results) {
  std::string text;
  for (const auto& [check, kind] : {std::make_pair(&results.software, "software"),
                                    std::make_pair(&results.catalog, "catalog")}) {
    if (check->answer == UPDATE_AVAILABLE)
      text += (text.empty() ? "" : ", ") + std::string(kind) + " " + check->newVersion;
  }
  return text;
}

}  // namespace

RunVerdict judge(const RunResults& results) {
  RunVerdict verdict{RunOutcome::kUpToDate, "", appliedParts(results), {}, "", false};
  verdict.checked = results.software.asked && results.software.answer != UPDATE_CHECK_FAILED;
  if ((results.deferred || !results.stillBusy.empty()) && !results.nextApplyWindow.empty())
    verdict.values.emplace_back("NextApplyWindow", results.nextApplyWindow);
  for (const auto& [check, name] : {std::make_pair(&results.software, "AvailableSoftwareVersion"),
                                    std::make_pair(&results.catalog, "AvailableCatalogVersion")}) {
    if (check->asked)
      verdict.values.emplace_back(name, check->answer == UPDATE_AVAILABLE ? check->newVersion : "");
  }
  const auto ended = [&verdict](RunOutcome outcome, const std::string& detail) {
    verdict.outcome = outcome;
    verdict.detail = detail;
    return verdict;
  };

  if (results.disabled)
    return ended(RunOutcome::kDisabledByPolicy, "update mode 0 (off): nothing was checked");
  switch (results.library) {
    case RunResults::Library::kMissing:
      return ended(RunOutcome::kLibraryMissing,
                   results.libraryRefusal.empty()
                       ? "library load: error " + std::to_string(results.libraryError)
                       : "library not loaded: " + results.libraryRefusal);
    case RunResults::Library::kIncompatible:
      return ended(RunOutcome::kLibraryIncompatible,
                   "library: no export '" + results.missingExport + "'");
    case RunResults::Library::kLoaded:
      break;
  }
  if (results.connection == Step::kFailed)
    return ended(RunOutcome::kOffline, "connection check: " + code(results.connectionCode));

  const RunResults::Check& software = results.software;
  const RunResults::Check& catalog = results.catalog;
  if (software.asked && software.answer == UPDATE_CHECK_FAILED)
    return ended(RunOutcome::kCheckFailed, "software check: " + code(software.code));
  if (software.asked && software.answer == UPDATE_NO_PRIVILEGE)
    return ended(RunOutcome::kNotPermitted, "software check: no privilege, " + code(software.code));
  const bool catalogCheckFailed = catalog.asked && catalog.answer == UPDATE_CHECK_FAILED;
  if (catalogCheckFailed && software.answer != UPDATE_AVAILABLE)
    return ended(RunOutcome::kCheckFailed, "catalog check: " + code(catalog.code));

  if (!results.checkOnly.empty()) {
    const std::string found = available(results);
    if (found.empty())
      return verdict;
    return ended(results.deferred ? RunOutcome::kDeferred : RunOutcome::kUpdateAvailable,
                 results.checkOnly + ": " + found + " available");
  }
  if (results.decision == RunResults::Decision::kNotPermitted)
    return ended(RunOutcome::kNotPermitted, "install decision: " + results.notPermitted);
  if (results.elevation == Step::kDone)
    return ended(RunOutcome::kElevating, "relaunched with -UAC");
  if (results.elevation == Step::kFailed)
    return ended(RunOutcome::kElevationFailed,
                 "relaunch: ShellExecuteA failed, value " + std::to_string(results.elevationValue));

  for (const auto& [download, kind] : {std::make_pair(&results.softwareDownload, "software"),
                                       std::make_pair(&results.catalogDownload, "catalog")}) {
    if (!download->lockFailure.empty())
      return ended(RunOutcome::kLockUnavailable, download->lockFailure);
    if (download->result == Step::kFailed)
      return ended(RunOutcome::kDownloadFailed,
                   std::string(kind) + " download: " + code(download->code));
  }
  for (const auto& [trust, kind] : {std::make_pair(&results.softwareTrust, "software"),
                                    std::make_pair(&results.catalogTrust, "catalog")}) {
    if (trust->result == Step::kFailed)
      return ended(RunOutcome::kPackageUntrusted,
                   std::string(kind) + " package: " + trust->refusal);
  }
  if (!results.pauseLockFailure.empty())
    return ended(RunOutcome::kLockUnavailable, results.pauseLockFailure);
  if (!results.stillBusy.empty()) {
    std::string busy;
    for (const std::string& printer : results.stillBusy)
      busy += (busy.empty() ? "'" : ", '") + printer + "'";
    return ended(RunOutcome::kDeferred, "pause printers: the apply window was closing while " +
                                            busy + " stayed busy; the next opens at " +
                                            results.nextApplyWindow);
  }
  if (results.pause == Step::kFailed)
    return ended(RunOutcome::kPauseFailed, "pause printers: not all could be paused");
  if (results.softwareApply.result == Step::kFailed)
    return ended(RunOutcome::kApplyFailed, "software apply: " + results.softwareApply.failure);
  if (results.catalogApply.result == Step::kFailed)
    return ended(RunOutcome::kApplyFailed, "catalog apply: " + results.catalogApply.failure);
  if (!results.exception.empty()) {
    const auto [outcome, step] = stepInProgress(results);
    return ended(outcome, std::string(step) + ": " + results.exception);
  }
  if (results.resume == Step::kFailed)
    return ended(RunOutcome::kResumeFailed, "resume printers: not all could be resumed");

  if (verdict.applied.empty())
    return verdict;
  if (applied(results.softwareApply) && catalogCheckFailed)
    return ended(RunOutcome::kUpdatedWithWarnings,
                 "catalog check: " + code(catalog.code) + "; the software update was applied");
  return ended(RunOutcome::kUpdated, "");
}
