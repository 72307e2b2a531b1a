#include "updater/RunOutcome.h"

#include <iterator>

namespace {

struct OutcomeInfo {
  RunOutcome outcome;
  const char* word;
  WORD eventId;  // The message ids of RunEvents.mc.
  WORD eventType;
};

const OutcomeInfo kOutcomes[] = {
    {RunOutcome::kUpToDate, "UpToDate", 1000, EVENTLOG_INFORMATION_TYPE},
    {RunOutcome::kUpdated, "Updated", 1001, EVENTLOG_INFORMATION_TYPE},
    {RunOutcome::kOffline, "Offline", 2000, EVENTLOG_WARNING_TYPE},
    {RunOutcome::kElevating, "Elevating", 2001, EVENTLOG_WARNING_TYPE},
    {RunOutcome::kAnotherRunInProgress, "AnotherRunInProgress", 2002, EVENTLOG_WARNING_TYPE},
    {RunOutcome::kCheckFailed, "CheckFailed", 3000, EVENTLOG_ERROR_TYPE},
    {RunOutcome::kLibraryMissing, "LibraryMissing", 3001, EVENTLOG_ERROR_TYPE},
    {RunOutcome::kNotPermitted, "NotPermitted", 3002, EVENTLOG_ERROR_TYPE},
    {RunOutcome::kElevationFailed, "ElevationFailed", 3003, EVENTLOG_ERROR_TYPE},
    {RunOutcome::kDownloadFailed, "DownloadFailed", 3004, EVENTLOG_ERROR_TYPE},
    {RunOutcome::kPauseFailed, "PauseFailed", 3005, EVENTLOG_ERROR_TYPE},
    {RunOutcome::kApplyFailed, "ApplyFailed", 3006, EVENTLOG_ERROR_TYPE},
    {RunOutcome::kResumeFailed, "ResumeFailed", 3007, EVENTLOG_ERROR_TYPE},
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
