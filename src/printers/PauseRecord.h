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

  // Takes the mutex and records `names`. False (logged) when the mutex cannot be had, held by
  // another process past a moment's wait or not makeable at all: the run then pauses nothing, and
  // failure() says why. A record that cannot be written (its key untrusted) is logged and the run
  // pauses all the same, unrecorded. Called again while held, it rewrites the record with `names`
  // (drain mode records its printers a few at a time, each before it pauses them).
  bool hold(const std::list<std::string>& names);
  const std::string& failure() const { return record_.failure(); }
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
