#pragma once

#include <windows.h>

#include <list>
#include <string>

#include "printers/PauseRecord.h"

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
// The quiet wait has no time-out: it polls every "PrinterPollInterval" milliseconds for as long
// as a printer that is neither paused nor offline has queued jobs. Failures are logged and
// reported as false; nothing throws except the log writer.
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
  // Opens the printers of interest, waits until none is busy, and pauses them all; pauses none
  // (closing them again) when the pause record's lock cannot be had (PauseRecord), which
  // pauseRecordFailure() then names.
  bool pausePrinters(std::list<HANDLE>& handles);
  const std::string& pauseRecordFailure() const { return pauseRecord_.failure(); }
  // Resumes every printer of the list; goes on after a failure and then reports false. Ends the
  // pause record of pausePrinters().
  bool resumePrinters(std::list<HANDLE> handles);
  // Opens each named printer and resumes it when it is paused: the recovery of printers that a
  // run which died left paused. A printer that no longer exists counts as done; false when a
  // paused printer could not be resumed (or asked).
  bool resumePausedPrinters(const std::list<std::string>& names);

 private:
  void waitUntilQuiet(const std::list<HANDLE>& handles, DWORD interval, FunctionTrace& trace);

  PauseRecord pauseRecord_;
};
