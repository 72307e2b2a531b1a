#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

#include "updater/RunOutcome.h"

// The verdict of the latest update run, kept where administrators' tools read it: the key
// "Status" beside "Settings" in the program's store (HKLM\...\Local\<local id>\Status), every
// write flushed. Only the run that holds the run lock (RunLock) writes it, so that the sign of a
// killed or hung run is never overwritten by a run that stood aside. The values (times in UTC,
// "2026-11-25T10:42:17Z", REG_SZ):
//   LastRunStarted      written once the run holds the lock, with RunInProgress (REG_DWORD) 1;
//   RunInProgress       0 once the run has ended: a killed or hung run leaves 1 (and
//                       LastRunStarted newer than or equal to LastRunEnded);
//   LastRunEnded, LastResult (the outcome's word), LastResultDetail (the failing step with its
//   code), SoftwareVersion, CatalogVersion (as read when the run ends);
//   LastSuccess         when a run last ended with a word that moves it (RunOutcome);
//   LastUpdate, LastUpdateApplied ("software", "catalog", "software+catalog"): the last run that
//                       applied packages;
//   ConsecutiveFailures REG_DWORD: what each word does to it (RunOutcome);
//   LastLockFailure     "<time> <why>": the last run that could not have a lock of the run
//                       (RunLock, a record's lock); it is the only value such a run writes when it
//                       did not hold the run lock.
// finish() and the two reports also write the run's event (updater/RunEventLog) unless the store's
// "Settings\Updater\ReportRunEvents" is 0 (default 1).
//
// The key is created with the store's inherited security and only while the store exists. Nothing
// throws: a status that cannot be written is logged at the always-written level and changes
// nothing else. Nothing the run decides reads it. One object per run that holds the lock.
class RunStatus {
 public:
  // One status value as "Name" and its text (a DWORD in decimal).
  using Value = std::pair<std::string, std::string>;

  // The run holds the lock and starts: writes "LastRunStarted" and "RunInProgress" 1.
  RunStatus();
  RunStatus(const RunStatus&) = delete;
  RunStatus& operator=(const RunStatus&) = delete;

  // The run ends with `verdict`: writes the other values and reports the event. Called once, at
  // the end of the run, while the lock is still held.
  void finish(const RunVerdict& verdict);

  // A run that stood aside for another one (`detail` says which lock): its event alone.
  static void reportStandingAside(const std::string& detail);
  // A run that could not have the run lock at all (`why`): "LastLockFailure" and its event alone.
  static void reportLockFailure(const std::string& why);

  // The status values that exist, in the order above; empty when there is no status.
  static std::vector<Value> read();
  // Whether `values` (read()'s) show a run still in progress 12 hours after it started (the
  // scheduled task's limit): a run that was killed, or hangs; `why` then says so.
  static bool isRunOverdue(const std::vector<Value>& values, std::string& why);
  // UTC now, and any UTC time, in the status's format; and back (false for any other text).
  static std::string utcNow();
  static std::string formatUtc(const SYSTEMTIME& time);
  static bool parseUtc(const std::string& text, SYSTEMTIME& time);
  // The status value `name` as read() gives it; empty when there is none.
  static std::string value(const std::string& name);
  // Whether `time`, in the status's format, lies at most `days` days before now. A time more than
  // 5 minutes ahead of the clock is not fresh (a clock that jumped back, or a forged value); `why`
  // then says so, as it says why any other text is not.
  static bool isWithinDays(const std::string& time, unsigned long days, std::string* why = nullptr);
};
