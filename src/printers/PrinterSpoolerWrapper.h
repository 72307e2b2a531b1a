#pragma once

#include <windows.h>

#include <list>
#include <string>

#include "printers/PauseRecord.h"
#include "printers/QuietWaitLimit.h"

class FunctionTrace;

// Brings the printers of interest (DeviceEnumerator) to a quiet state and pauses them before an
// update, and resumes them afterwards, through the Windows spooler. The caller owns the list of
// printer handles that pausePrinters() fills and resumePrinters() takes; the wrapper keeps only
// the PauseRecord of the printers it paused, from just before the pause until the resume.
//
// Invariant: once pausePrinters() has paused anything, the printers are released again on every
// way out. A failed pause of one printer resumes the whole list before pausePrinters() returns
// false; after a successful pause the caller must hand the list to resumePrinters() on every path
// (the update installation does so also when installing fails).
//
// A printer is busy while it is neither paused nor offline and has queued jobs (level-2 cJobs);
// one that cannot be asked, or whose answer carries no data, counts as quiet. Both waits poll
// every "PrinterPollInterval" milliseconds and have no time-out unless the caller gives them a
// QuietWaitLimit. Failures are logged and reported as false; nothing throws except the log writer
// and a limit's own callback.
//
// Two ways to quiet the printers:
// - pausePrinters() waits for one poll round at which every printer is quiet at once, then
//   pauses them all. Nothing is paused while it waits, but on a server whose queues are each busy
//   a fraction u of the time that takes about (1-u)^-N rounds for N printers.
// - drainPrinters() pauses each printer at the first poll that finds it quiet and goes on polling
//   only the others, so that it ends after about as many rounds as the busiest single printer
//   needs; the printers paused first hold their new jobs until the last one is quiet.
class PrinterSpoolerWrapper {
 public:
  // Whether the first printer of interest can be opened with full administrative access; true
  // without asking the spooler before Windows version 6, and true when there is no printer.
  bool canWeOpenPrintersInAdminMode();

  // Opens every named printer with PRINTER_ALL_ACCESS, appending the handles; stops at the first
  // failure (the handles opened so far stay in the list).
  bool OpenPrinters(const std::list<std::string>& names, std::list<HANDLE>& handles);
  // Closes every handle; false when any close failed.
  bool ClosePrinters(const std::list<HANDLE>& handles);
  // Opens the printers of interest, waits until a poll round finds none busy (restarting the round
  // at the first busy one), and pauses them all; pauses none (closing them again) when the pause
  // record's lock cannot be had (PauseRecord), which pauseRecordFailure() then names. With a
  // `limit` that is reached first it pauses nothing, closes the printers, leaves `handles` empty
  // and names in `stillBusy` (when given) the printer that held the last round; `stillBusy` stays
  // empty on every other way out.
  bool pausePrinters(std::list<HANDLE>& handles,
                     const QuietWaitLimit& limit = QuietWaitLimit(),
                     std::list<std::string>* stillBusy = nullptr);
  // Opens the printers of interest and pauses each one at the first poll round that finds it quiet,
  // writing it into the pause record before pausing it (so that a run killed halfway leaves its
  // paused printers to the next run); later rounds poll only the printers still busy. True once
  // all are paused: their handles are then appended to `handles` in DeviceEnumerator's order, and
  // the caller hands them to resumePrinters() as after pausePrinters().
  //
  // False, with `handles` unchanged and every printer it opened closed, when there is no printer
  // of interest, one cannot be opened, the pause record's lock cannot be had (before the first
  // pause: pauseRecordFailure() names why), a pause fails, or `limit` is reached first; in the
  // last two cases the printers it paused are resumed and the record released first. On reaching
  // the limit `stillBusy` (when given) receives the names of the printers that were never quiet,
  // in DeviceEnumerator's order; it stays empty otherwise. A printer whose state cannot be read
  // for want of memory counts as quiet.
  bool drainPrinters(std::list<HANDLE>& handles,
                     const QuietWaitLimit& limit = QuietWaitLimit(),
                     std::list<std::string>* stillBusy = nullptr);
  const std::string& pauseRecordFailure() const { return pauseRecord_.failure(); }
  // Resumes every printer of the list; goes on after a failure and then reports false. Ends the
  // pause record of pausePrinters().
  bool resumePrinters(std::list<HANDLE> handles);
  // Opens each named printer and resumes it when it is paused: the recovery of printers that a
  // run which died left paused. A printer that no longer exists counts as done; false when a
  // paused printer could not be resumed (or asked).
  bool resumePausedPrinters(const std::list<std::string>& names);

 private:
  // False when `limit` was reached first; `busy` then names the printer that held the last round.
  bool waitUntilQuiet(const std::list<HANDLE>& handles,
                      DWORD interval,
                      const QuietWaitLimit& limit,
                      std::string& busy,
                      FunctionTrace& trace);

  PauseRecord pauseRecord_;
};
