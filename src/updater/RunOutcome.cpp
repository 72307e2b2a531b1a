#include "updater/RunOutcome.h"

#include <iterator>

namespace {

const WORD kInformation = EVENTLOG_INFORMATION_TYPE;
const WORD kWarning = EVENTLOG_WARNING_TYPE;
const WORD kError = EVENTLOG_ERROR_TYPE;
const FailureCount kReset = FailureCount::kReset;
const FailureCount kKeep = FailureCount::kKeep;
const FailureCount kCount = FailureCount::kCount;

// The vocabulary. A new word takes a new id; an id once shipped never changes its word.
const OutcomeInfo kOutcomes[] = {
    {RunOutcome::kUpToDate, "UpToDate", 1000, kInformation, true, kReset},
    {RunOutcome::kUpdated, "Updated", 1001, kInformation, true, kReset},
    {RunOutcome::kUpdateAvailable, "UpdateAvailable", 1002, kInformation, false, kReset},
    {RunOutcome::kOffline, "Offline", 2000, kWarning, false, kKeep},
    {RunOutcome::kElevating, "Elevating", 2001, kWarning, false, kKeep},
    {RunOutcome::kAnotherRunInProgress, "AnotherRunInProgress", 2002, kWarning, false, kKeep},
    {RunOutcome::kUpdatedWithWarnings, "UpdatedWithWarnings", 2003, kWarning, false, kKeep},
    {RunOutcome::kDisabledByPolicy, "DisabledByPolicy", 2004, kWarning, false, kKeep},
    {RunOutcome::kDeferred, "Deferred", 2005, kWarning, false, kKeep},
    {RunOutcome::kCheckFailed, "CheckFailed", 3000, kError, false, kCount},
    {RunOutcome::kLibraryMissing, "LibraryMissing", 3001, kError, false, kCount},
    {RunOutcome::kNotPermitted, "NotPermitted", 3002, kError, false, kCount},
    {RunOutcome::kElevationFailed, "ElevationFailed", 3003, kError, false, kCount},
    {RunOutcome::kDownloadFailed, "DownloadFailed", 3004, kError, false, kCount},
    {RunOutcome::kPauseFailed, "PauseFailed", 3005, kError, false, kCount},
    {RunOutcome::kApplyFailed, "ApplyFailed", 3006, kError, false, kCount},
    {RunOutcome::kResumeFailed, "ResumeFailed", 3007, kError, false, kCount},
    {RunOutcome::kLibraryIncompatible, "LibraryIncompatible", 3008, kError, false, kCount},
    {RunOutcome::kLockUnavailable, "LockUnavailable", 3009, kError, false, kCount},
    {RunOutcome::kPackageUntrusted, "PackageUntrusted", 3010, kError, false, kCount},
};

}  // namespace

const OutcomeInfo& outcomeInfo(RunOutcome outcome) {
  for (const OutcomeInfo& entry : kOutcomes) {
    if (entry.outcome == outcome)
      return entry;
  }
  return kOutcomes[std::size(kOutcomes) - 1];  // Unreachable: every outcome has its row.
}

const char* outcomeWord(RunOutcome outcome) {
  return outcomeInfo(outcome).word;
}

WORD outcomeEventId(RunOutcome outcome) {
  return outcomeInfo(outcome).eventId;
}

WORD outcomeEventType(RunOutcome outcome) {
  return outcomeInfo(outcome).eventType;
}

uint32_t failuresAfter(RunOutcome outcome, uint32_t before) {
  switch (outcomeInfo(outcome).failures) {
    case FailureCount::kReset:
      return 0;
    case FailureCount::kCount:
      return before + 1;
    case FailureCount::kKeep:
      break;
  }
  return before;
}
