#pragma once

#include <windows.h>
#include <winspool.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "Scenario.h"

// The stand-in print spooler behind the six winspool exports.
//
// Every operation re-reads the scenario file (see Scenario.h; parsed again only when its bytes
// changed), answers from it and from this process's in-memory state, appends one line to the
// scenario's journal and returns TRUE or FALSE as the winspool function does. On FALSE the thread's
// last error holds the failure code; on TRUE the caller's last error is left as it was, except
// after an answer without data (last error 0). A null count pointer fails with
// RPC_X_NULL_REF_POINTER, as the real spooler's does.
//
// The in-memory state is, per printer name, the number of level-2 GetPrinterA polls served and a
// paused flag. It is reset whenever the scenario's source changes: its path, existence, last-write
// time, size or [Spooler] Generation. Open handles survive a reset; a handle whose printer has
// left the scenario answers ERROR_INVALID_HANDLE until it is closed.
//
// Safe across threads: one critical section guards everything. Not shared across processes: each
// process that loads the DLL has its own polls, paused flags and handles.
class Spooler {
 public:
  explicit Spooler(HMODULE module);
  ~Spooler();
  Spooler(const Spooler&) = delete;
  Spooler& operator=(const Spooler&) = delete;

  // Level 2: PRINTER_INFO_2A for every printer, strings packed after the structures; a buffer
  // smaller than *needed fails with ERROR_INSUFFICIENT_BUFFER. Levels 1 and 4 list no printers;
  // others fail with ERROR_INVALID_LEVEL. [Spooler] FailEnum fails every call that passes a buffer.
  BOOL enumPrinters(DWORD flags,
                    DWORD level,
                    BYTE* buffer,
                    DWORD size,
                    DWORD* needed,
                    DWORD* returned);
  // Opens the printer with exactly this name (ERROR_INVALID_PRINTER_NAME if none); FailOpen fails
  // with its code. Every open gets a new handle.
  BOOL openPrinter(const char* name, HANDLE* handle, const PRINTER_DEFAULTSA* defaults);
  // Level 2 only (else ERROR_INVALID_LEVEL). FailGetPrinter fails the calls that pass a buffer,
  // and AnswerWithoutData makes them succeed without writing it. A call that fills the buffer is
  // a poll: cJobs is Jobs until DrainAfterPolls polls have been served, then 0 (with BusyChance:
  // at each poll Jobs, at least 1, with that chance, else 0). Status carries
  // PRINTER_STATUS_PAUSED while paused through setPrinter.
  BOOL getPrinter(HANDLE handle, DWORD level, BYTE* buffer, DWORD size, DWORD* needed);
  // Level 0 with PRINTER_CONTROL_PAUSE, _RESUME (FailPause / FailResume fail them) or _PURGE,
  // which is accepted and changes nothing. Other levels: ERROR_INVALID_LEVEL; other commands:
  // ERROR_INVALID_PARAMETER.
  BOOL setPrinter(HANDLE handle, DWORD level, DWORD command);
  // Releases the handle, also when FailClose makes the call fail.
  BOOL closePrinter(HANDLE handle);
  // Level 1 only: the scenario's DriverDirectory, *needed counting the terminating zero;
  // [Spooler] FailDriverDirectory fails every call with its code, as a stopped spooler does.
  BOOL getDriverDirectory(DWORD level, BYTE* buffer, DWORD size, DWORD* needed);

 private:
  struct PrinterState {
    long long polls = 0;
    bool paused = false;
  };

  // What every operation does first, in this order: keeps the caller's last error, takes the
  // lock and reads the scenario. Defined with the operations.
  struct Call;

  // Reads the scenario and resets the in-memory state if its source changed.
  std::shared_ptr<const Scenario> refresh();
  // Journals `text` with its result field and sets the last error; returns the BOOL result.
  BOOL finish(const Call& call, const std::string& text, DWORD error);
  // The printer behind an open handle, or null; `name` receives the handle's printer name.
  const PrinterScenario* printerOf(const Scenario& scenario,
                                   HANDLE handle,
                                   std::string* name) const;
  DWORD jobsNow(const Scenario& scenario, const PrinterScenario& printer);
  DWORD statusNow(const PrinterScenario& printer);

  CRITICAL_SECTION section_;
  HMODULE module_;
  bool haveSource_ = false;
  ScenarioSource source_;
  std::shared_ptr<const Scenario> scenario_;
  std::map<std::string, PrinterState> states_;
  // Open handles and the printer name each was opened for.
  std::map<uintptr_t, std::string> handles_;
  uintptr_t lastHandle_ = 0x5000;
};
