#include "updater/RunOutcome.h"

#include <iterator>

namespace {

struct OutcomeInfo {
  const char* word;
  RunOutcome outcome;
  WORD eventId;  // The message ids of RunEvents.mc.
  WORD eventType;
};

const OutcomeInfo kOutcomes[] = {
    {"UpToDate", RunOutcome::kUpToDate, 1000, EVENTLOG_INFORMATION_TYPE},
    {"Updated", RunOutcome::kUpdated, 1001, EVENTLOG_INFORMATION_TYPE},
    {"Offline", RunOutcome::kOffline, 2000, EVENTLOG_WARNING_TYPE},
    {"Elevating", RunOutcome::kElevating, 2001, EVENTLOG_WARNING_TYPE},
    {"AnotherRunInProgress", RunOutcome::kAnotherRunInProgress, 2002, EVENTLOG_WARNING_TYPE},
    {"CheckFailed", RunOutcome::kCheckFailed, 3000, EVENTLOG_ERROR_TYPE},
    {"LibraryMissing", RunOutcome::kLibraryMissing, 3001, EVENTLOG_ERROR_TYPE},
    {"NotPermitted", RunOutcome::kNotPermitted, 3002, EVENTLOG_ERROR_TYPE},
    {"ElevationFailed", RunOutcome::kElevationFailed, 3003, EVENTLOG_ERROR_TYPE},
    {"DownloadFailed", RunOutcome::kDownloadFailed, 3004, EVENTLOG_ERROR_TYPE},
    {"PauseFailed", RunOutcome::kPauseFailed, 3005, EVENTLOG_ERROR_TYPE},
    {"ApplyFailed", RunOutcome::kApplyFailed, 3006, EVENTLOG_ERROR_TYPE},
    {"ResumeFailed", RunOutcome::kResumeFailed, 3007, EVENTLOG_ERROR_TYPE},
};

const OutcomeInfo& info(RunOutcome outcome) {
  for (const OutcomeInfo& entry : kOutcomes) {
    if (entry.outcome == outcome)
      return entry;
  }
  return kOutcomes[std::size(kOutcomes) - 1];  // Unreachable: every outcome has its row.
}

}  // namespace

const char* outcomeWord(RunOutcome outcome) {
  return info(outcome).word;
}

WORD outcomeEventId(RunOutcome outcome) {
  return info(outcome).eventId;
}

WORD outcomeEventType(RunOutcome outcome) {
  return info(outcome).eventType;
}
