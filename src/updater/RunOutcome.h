#pragma once

#include <windows.h>

#include <string>

// How an update run ended: one word each, of a fixed vocabulary that administrators' tools read
// (the "LastResult" status value and the event log), so words and event ids never change once
// shipped. Warnings are neither a success nor a failure.
enum class RunOutcome {
  kUpToDate,
  kUpdated,
  kOffline,
  kElevating,
  kAnotherRunInProgress,
  kCheckFailed,
  kLibraryMissing,
  kNotPermitted,
  kElevationFailed,
  kDownloadFailed,
  kPauseFailed,
  kApplyFailed,
  kResumeFailed,
};

// The verdict of one run: its outcome, the failing step with its code (one line, empty for a
// success), and what it applied ("software", "catalog", "software+catalog", or empty).
struct RunVerdict {
  RunOutcome outcome = RunOutcome::kUpToDate;
  std::string detail;
  std::string applied;
};

// The outcome's word ("UpToDate", ...).
const char* outcomeWord(RunOutcome outcome);
// Its event id in the program's message table: 1xxx information, 2xxx warning, 3xxx error.
WORD outcomeEventId(RunOutcome outcome);
// Its event type: EVENTLOG_INFORMATION_TYPE, EVENTLOG_WARNING_TYPE or EVENTLOG_ERROR_TYPE.
WORD outcomeEventType(RunOutcome outcome);
