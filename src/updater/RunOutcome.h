#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// How an update run ended: one word each, of a fixed vocabulary that administrators' tools read
// (the "LastResult" status value, the event log and cvupsettings /status), so words and event ids
// never change once shipped. Information words are successes or neutral reports, warnings are
// neither a success nor a failure, errors count as failures.
enum class RunOutcome {
  kUpToDate,
  kUpdated,
  kUpdateAvailable,
  kOffline,
  kElevating,
  kAnotherRunInProgress,
  kUpdatedWithWarnings,
  kDisabledByPolicy,
  kDeferred,
  kCheckFailed,
  kLibraryMissing,
  kNotPermitted,
  kElevationFailed,
  kDownloadFailed,
  kPauseFailed,
  kApplyFailed,
  kResumeFailed,
  kLibraryIncompatible,
  kLockUnavailable,
  kPackageUntrusted,
};

// What a run's word does to "ConsecutiveFailures": sets 0, leaves it, or adds one.
enum class FailureCount { kReset, kKeep, kCount };

// One row of the vocabulary: the word, its event id in the program's message table (RunEvents.mc:
// 1xxx information, 2xxx warning, 3xxx error) and type (EVENTLOG_INFORMATION_TYPE,
// EVENTLOG_WARNING_TYPE or EVENTLOG_ERROR_TYPE), whether it moves "LastSuccess" (the machine is up
// to date as of this run), and what it does to the failures' count.
struct OutcomeInfo {
  const char* word;
  RunOutcome outcome;
  FailureCount failures;
  WORD eventId;
  WORD eventType;
  bool movesLastSuccess;
};

// The row of `outcome`.
const OutcomeInfo& outcomeInfo(RunOutcome outcome);
// The outcome's word ("UpToDate", ...).
const char* outcomeWord(RunOutcome outcome);
WORD outcomeEventId(RunOutcome outcome);
WORD outcomeEventType(RunOutcome outcome);
// "ConsecutiveFailures" after a run that ended with `outcome`, from its value before.
uint32_t failuresAfter(RunOutcome outcome, uint32_t before);

// The verdict of one run: its outcome, the failing step with its code (one line, empty for a
// success), what it applied ("software", "catalog", "software+catalog", or empty), further values
// it reports in its status (what the check found available), and notes that its event carries
// after the detail (the policy values that were ignored); `checked`: the run completed its update
// check (its time becomes "LastCheck").
struct RunVerdict {
  RunOutcome outcome = RunOutcome::kUpToDate;
  std::string detail;
  std::string applied;
  std::vector<std::pair<std::string, std::string>> values;
  std::string notes;
  bool checked = false;
};
