#include "updater/RunOutcome.h"

#include <iterator>

namespace {

const WORD kInformation = EVENTLOG_INFORMATION_TYPE;
const WORD kWarning = EVENTLOG_WARNING_TYPE;
const WORD kError = EVENTLOG_ERROR_TYPE;
const FailureCount kReset = FailureCount::kReset;
const FailureCount kKeep = FailureCount::kKeep;
const FailureCount kCount = FailureCount::kCount;

// The vocabulary: word, outcome, failures' count, event id and type, whether LastSuccess moves. A
// new word takes a new id; an id once shipped never changes its word.
const OutcomeInfo kOutcomes[] = {
    {"UpToDate", RunOutcome::kUpToDate, kReset, 1000, kInformation, true},
    {"Updated", RunOutcome::kUpdated, kReset, 1001, kInformation, true},
    {"UpdateAvailable", RunOutcome::kUpdateAvailable, kReset, 1002, kInformation, false},
    {"Offline", RunOutcome::kOffline, kKeep, 2000, kWarning, false},
    {"Elevating", RunOutcome::kElevating, kKeep, 2001, kWarning, false},
    {"AnotherRunInProgress", RunOutcome::kAnotherRunInProgress, kKeep, 2002, kWarning, false},
    {"UpdatedWithWarnings", RunOutcome::kUpdatedWithWarnings, kKeep, 2003, kWarning, false},
    {"DisabledByPolicy", RunOutcome::kDisabledByPolicy, kKeep, 2004, kWarning, false},
    {"Deferred", RunOutcome::kDeferred, kKeep, 2005, kWarning, false},
    {"CheckFailed", RunOutcome::kCheckFailed, kCount, 3000, kError, false},
    {"LibraryMissing", RunOutcome::kLibraryMissing, kCount, 3001, kError, false},
    {"NotPermitted", RunOutcome::kNotPermitted, kCount, 3002, kError, false},
    {"ElevationFailed", RunOutcome::kElevationFailed, kCount, 3003, kError, false},
    {"DownloadFailed", RunOutcome::kDownloadFailed, kCount, 3004, kError, false},
    {"PauseFailed", RunOutcome::kPauseFailed, kCount, 3005, kError, false},
    {"ApplyFailed", RunOutcome::kApplyFailed, kCount, 3006, kError, false},
    {"ResumeFailed", RunOutcome::kResumeFailed, kCount, 3007, kError, false},
    {"LibraryIncompatible", RunOutcome::kLibraryIncompatible, kCount, 3008, kError, false},
    {"LockUnavailable", RunOutcome::kLockUnavailable, kCount, 3009, kError, false},
    {"PackageUntrusted", RunOutcome::kPackageUntrusted, kCount, 3010, kError, false},
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
