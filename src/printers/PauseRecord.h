#pragma once

#include <list>
#include <string>

#include "settings/RunRecord.h"

class PrinterSpoolerWrapper;

// The durable note of the printers an update run has paused, so that printers are never left
// paused when the run dies between pause and resume (killed, or the vendor library crashed or
// hung while applying).
//
// A run that is about to pause takes the machine-wide mutex "Global\<local id>PausedPrinters" and
// writes the printers' names as the REG_MULTI_SZ value "PausedPrinters" in the store's
// "Settings\Updater" key (a RunRecord); once it has attempted the resume it deletes the value and
// releases the mutex. Every run calls recoverAbandonedPause() at start: a record whose mutex is
// free or abandoned belongs to a run that is gone, and the printers it names that are still paused
// are resumed. A record whose owner still holds the mutex (an elevated child that is still
// installing, in this session or another) is left alone.
//
// Nothing is logged and nothing is written while there is nothing to recover, apart from the
// record itself between pause and resume. Failures are logged and never stop the update run:
// the record is a safety net, not a precondition. Not thread-safe; one object per run.
class PauseRecord {
 public:
  PauseRecord();

  // Takes the mutex and records `names`; false (logged) when either failed. Waits at most a
  // moment for the mutex. A run whose record cannot be made or written still pauses, unrecorded;
  // one whose mutex another process holds past the wait (heldElsewhere()) pauses nothing.
  bool hold(const std::list<std::string>& names);
  bool heldElsewhere() const { return record_.heldElsewhere(); }
  // Deletes the record and releases the mutex; does nothing when hold() did not take it.
  void release();

  // Resumes, through `spooler`, the still-paused printers of a record whose owner is gone, then
  // deletes the record. Keeps the record when a printer could not be resumed, so that a later
  // run (perhaps one with more rights) tries again. Returns whether a record was recovered.
  static bool recoverAbandonedPause(PrinterSpoolerWrapper& spooler);

  // The printers recorded now (empty when there is no record).
  static std::list<std::string> recordedPrinters();

 private:
  RunRecord record_;
};
