#pragma once

#include <string>
#include <utility>
#include <vector>

#include "updater/RunOutcome.h"

// The verdict of the latest update run, kept where administrators' tools read it: the key
// "Status" beside "Settings" in the program's store (HKLM\...\Local\<local id>\Status), every
// write flushed. The values (times in UTC, "2026-11-25T10:42:17Z", REG_SZ):
//   LastRunStarted      written when the run starts, so a killed run leaves it newer than
//                       LastRunEnded;
//   LastRunEnded, LastResult (the outcome's word), LastResultDetail (the failing step with its
//   code), SoftwareVersion, CatalogVersion (as read when the run ends);
//   LastSuccess         when a run last ended UpToDate or Updated;
//   LastUpdate, LastUpdateApplied ("software", "catalog", "software+catalog"): the last run that
//                       applied packages;
//   ConsecutiveFailures REG_DWORD: failures since the last success (warnings leave it as it is).
// finish() also reports the run's event (updater/RunEventLog) unless the store's
// "Settings\Updater\ReportRunEvents" is 0 (default 1).
//
// The key is created with the store's inherited security and only while the store exists. Nothing
// throws: a status that cannot be written is logged at the always-written level and changes
// nothing else. Nothing the run decides reads it. One object per run.
class RunStatus {
 public:
  // One status value as "Name" and its text (a DWORD in decimal).
  using Value = std::pair<std::string, std::string>;

  // The run starts: writes "LastRunStarted".
  RunStatus();
  RunStatus(const RunStatus&) = delete;
  RunStatus& operator=(const RunStatus&) = delete;

  // The run ends with `verdict`: writes the other values and reports the event. Called once, at
  // the end of the process's run.
  void finish(const RunVerdict& verdict);

  // The status values that exist, in the order above; empty when there is no status.
  static std::vector<Value> read();
  // UTC now in the status's format.
  static std::string utcNow();
  // Whether `time`, in the status's format, lies at most `days` days before now (a time ahead of
  // the clock counts as fresh); false for any other text.
  static bool isWithinDays(const std::string& time, unsigned long days);
};
