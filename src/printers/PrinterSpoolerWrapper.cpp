#include "printers/PrinterSpoolerWrapper.h"

#include <winspool.h>

#include <memory>
#include <new>

#include "logging/FunctionTrace.h"
#include "printers/DeviceEnumerator.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "system/OsVersion.h"
#include "system/UniqueHandle.h"

namespace {

const DWORD kDefaultPollInterval = 30000;

// Pauses or resumes one printer: `command` is PRINTER_CONTROL_PAUSE or _RESUME and `name` the
// word after "PRINTER_CONTROL_". Traces the outcome; false when the spooler refused.
bool controlPrinter(HANDLE printer, DWORD command, const char* name, FunctionTrace& trace) {
  if (SetPrinterA(printer, 0, nullptr, command)) {
    trace.detail([&] { return LogText("Printer was ") + name + "D successfully"; });
    return true;
  }
  const DWORD error = GetLastError();
  trace.detail([&] {
    return LogText("SetPrinter(hPrinter, 0, NULL, PRINTER_CONTROL_") + name + ") failed." +
           " GetLastError()=" + decimal(error);
  });
  return false;
}

unsigned long readPollInterval() {
  unsigned long interval = kDefaultPollInterval;
  Settings().getOrCreateDwordValue(SettingsKeys::kUpdaterSection,
                                   SettingsKeys::kPrinterPollInterval, interval,
                                   kDefaultPollInterval, 0);
  return interval;
}

enum class PrinterState { kQuiet, kBusy, kNoMemory };

// One level-2 poll of a printer. A printer that cannot be asked counts as quiet (logged).
// `busyName` receives the spooler's name of a busy printer.
PrinterState pollPrinter(HANDLE printer, std::string* busyName, FunctionTrace& trace) {
  DWORD needed = 0;
  GetPrinterA(printer, 2, nullptr, 0, &needed);
  // Zeroed, and never smaller than the structure: some spoolers answer TRUE without writing a
  // byte, and such an answer must read as a quiet printer, not as what the heap held. Deliberate.
  const size_t size = needed > sizeof(PRINTER_INFO_2A) ? needed : sizeof(PRINTER_INFO_2A);
  std::unique_ptr<BYTE[]> buffer(new (std::nothrow) BYTE[size]());
  if (!buffer)
    return PrinterState::kNoMemory;
  if (!GetPrinterA(printer, 2, buffer.get(), needed, &needed)) {
    const DWORD error = GetLastError();
    trace.detail([&] { return LogText("GetPrinter failed, GetLastError()=") + decimal(error); });
    return PrinterState::kQuiet;
  }
  const auto* info = reinterpret_cast<const PRINTER_INFO_2A*>(buffer.get());
  if ((info->Status & PRINTER_STATUS_PAUSED) != 0 ||
      (info->Attributes & PRINTER_ATTRIBUTE_WORK_OFFLINE) != 0 || info->cJobs == 0)
    return PrinterState::kQuiet;
  if (busyName != nullptr && info->pPrinterName != nullptr)
    *busyName = info->pPrinterName;
  return PrinterState::kBusy;
}

LogText quotedNames(LogText text, const std::list<std::string>& names) {
  for (const std::string& name : names)
    text += " '" + name + "'";
  return text;
}

}  // namespace

bool PrinterSpoolerWrapper::canWeOpenPrintersInAdminMode() {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "PrinterSpoolerWrapper::canWeOpenPrintersInAdminMode() ");
  bool result = true;
  if (OsVersion::getInstance().isVistaOrLater()) {
    std::list<std::string> names;
    DeviceEnumerator::instance()->getPrinters(names);
    // One printer stands for all; with none there is nothing to open.
    if (!names.empty()) {
      char name[MAX_PATH] = {};
      lstrcpynA(name, names.front().c_str(), MAX_PATH);
      PRINTER_DEFAULTSA defaults = {nullptr, nullptr, PRINTER_ALL_ACCESS};
      ScopedPrinter printer;
      if (OpenPrinterA(name, printer.receive(), &defaults)) {
        trace.detail("Printer was opened successfully with ADMIN privilages.");
        printer.close();
      } else {
        const DWORD error = GetLastError();
        trace.detail([&] {
          return LogText("OpenPrinter failed to open printer '") + name +
                 "' with ADMIN permissions. GetLastError()=" + decimal(error);
        });
        result = false;
      }
    }
  }
  return trace.returning(result);
}

bool PrinterSpoolerWrapper::OpenPrinters(const std::list<std::string>& names,
                                         std::list<HANDLE>& handles) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "PrinterSpoolerWrapper::OpenPrinters() ");
  for (const std::string& name : names) {
    PRINTER_DEFAULTSA defaults = {nullptr, nullptr, PRINTER_ALL_ACCESS};
    ScopedPrinter printer;
    if (!OpenPrinterA(const_cast<char*>(name.c_str()), printer.receive(), &defaults)) {
      const DWORD error = GetLastError();
      trace.detail([&] {
        return LogText("OpenPrinter failed to open printer '") + name +
               "' with ADMIN permissions. GetLastError()=" + decimal(error);
      });
      return trace.returning(false);
    }
    trace.detail([&] { return LogText("Successfully Opened printer '") + name; });
    handles.push_back(printer.release());
  }
  trace.detail("All printer were opened successfully with ADMIN privilages.");
  return trace.returning(true);
}

bool PrinterSpoolerWrapper::ClosePrinters(const std::list<HANDLE>& handles) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "PrinterSpoolerWrapper::ClosePrinters() ");
  trace.detail("Closing all open printers");
  bool result = true;
  for (HANDLE printer : handles) {
    if (!ScopedPrinter(printer).close())
      result = false;
  }
  return trace.returning(result);
}

bool PrinterSpoolerWrapper::pausePrinters(std::list<HANDLE>& handles,
                                          const QuietWaitLimit& limit,
                                          std::list<std::string>* stillBusy) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "PrinterSpoolerWrapper::pausePrinters() ");
  std::list<std::string> names;
  DeviceEnumerator::instance()->getPrinters(names);
  if (names.empty()) {
    trace.detail("No printers are installed on the OS with the Print Driver of interest");
    return trace.returning(false);
  }
  if (!OpenPrinters(names, handles)) {
    trace.detail("Failed to open all the printers in the list, so closing and exiting");
    ClosePrinters(handles);
    return trace.returning(false);
  }

  std::string busy;
  if (!waitUntilQuiet(handles, readPollInterval(), limit, busy, trace)) {
    trace.detail(
        [&] { return "Gave up waiting for the printers to be quiet, still busy: '" + busy + "'"; });
    if (stillBusy != nullptr)
      stillBusy->push_back(busy);
    ClosePrinters(handles);
    handles.clear();
    return trace.returning(false);
  }

  bool result = !handles.empty();
  trace.detail(
      [&] { return LogText("Total number of printers to pause = ") + decimal(handles.size()); });
  // Recorded before the first pause, so that a run that dies from here on leaves a note for the
  // next run to resume them. Never paused while the record's lock cannot be had.
  if (!pauseRecord_.hold(names)) {
    ClosePrinters(handles);
    return trace.returning(false);
  }
  for (HANDLE printer : handles) {
    if (!controlPrinter(printer, PRINTER_CONTROL_PAUSE, "PAUSE", trace)) {
      result = false;
      // Release the printers paused so far (and, harmlessly, the rest).
      resumePrinters(handles);
      break;
    }
  }
  return trace.returning(result);
}

bool PrinterSpoolerWrapper::waitUntilQuiet(const std::list<HANDLE>& handles,
                                           DWORD interval,
                                           const QuietWaitLimit& limit,
                                           std::string& busy,
                                           FunctionTrace& trace) {
  for (;;) {
    bool quiet = true;
    for (HANDLE printer : handles) {
      const PrinterState state = pollPrinter(printer, &busy, trace);
      if (state == PrinterState::kNoMemory)
        return true;  // Stop waiting, and pause.
      if (state == PrinterState::kBusy) {
        quiet = false;
        break;
      }
    }
    if (quiet)
      return true;
    if (limit.reached())
      return false;
    Sleep(limit.sleepBefore(interval));
  }
}

bool PrinterSpoolerWrapper::drainPrinters(std::list<HANDLE>& handles,
                                          const QuietWaitLimit& limit,
                                          std::list<std::string>* stillBusy) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "PrinterSpoolerWrapper::drainPrinters() ");
  std::list<std::string> names;
  DeviceEnumerator::instance()->getPrinters(names);
  if (names.empty()) {
    trace.detail("No printers are installed on the OS with the Print Driver of interest");
    return trace.returning(false);
  }
  std::list<HANDLE> opened;
  if (!OpenPrinters(names, opened)) {
    trace.detail("Failed to open all the printers in the list, so closing and exiting");
    ClosePrinters(opened);
    return trace.returning(false);
  }
  const DWORD interval = readPollInterval();
  trace.detail(
      [&] { return LogText("Total number of printers to drain = ") + decimal(names.size()); });

  struct Printer {
    HANDLE handle;
    std::string name;
  };
  std::list<Printer> waiting;
  auto name = names.begin();
  for (HANDLE printer : opened)
    waiting.push_back({printer, *name++});
  std::list<std::string> recorded;  // The printers paused, or about to be.
  std::list<HANDLE> paused;
  // Every way out before all are paused: the printers paused so far are resumed (which releases
  // the record), and every printer opened here is closed.
  const auto abandon = [&] {
    resumePrinters(paused);
    ClosePrinters(opened);
    return trace.returning(false);
  };
  for (;;) {
    std::list<std::string> quietNames;
    std::list<HANDLE> quiet;
    for (auto printer = waiting.begin(); printer != waiting.end();) {
      if (pollPrinter(printer->handle, nullptr, trace) == PrinterState::kBusy) {
        ++printer;
        continue;
      }
      quietNames.push_back(printer->name);
      quiet.push_back(printer->handle);
      printer = waiting.erase(printer);
    }
    if (!quiet.empty()) {
      recorded.insert(recorded.end(), quietNames.begin(), quietNames.end());
      // Recorded before they are paused; never paused while the record's lock cannot be had.
      if (!pauseRecord_.hold(recorded))
        return abandon();
      for (HANDLE printer : quiet) {
        if (!controlPrinter(printer, PRINTER_CONTROL_PAUSE, "PAUSE", trace)) {
          trace.detail("Failed to pause a quiet printer, so resuming the printers paused so far");
          return abandon();
        }
        paused.push_back(printer);
      }
      trace.detail([&] {
        return quotedNames("Paused as they became quiet:", quietNames) +
               "; still busy: " + decimal(waiting.size());
      });
    }
    if (waiting.empty())
      break;
    if (limit.reached()) {
      std::list<std::string> busyNames;
      for (const Printer& printer : waiting)
        busyNames.push_back(printer.name);
      trace.detail([&] {
        return quotedNames("Gave up waiting for the printers to drain, still busy:", busyNames);
      });
      if (stillBusy != nullptr)
        *stillBusy = busyNames;
      return abandon();
    }
    Sleep(limit.sleepBefore(interval));
  }
  trace.detail("All printers were drained and PAUSED successfully");
  handles.splice(handles.end(), opened);
  return trace.returning(true);
}

bool PrinterSpoolerWrapper::resumePrinters(std::list<HANDLE> handles) {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "PrinterSpoolerWrapper::resumePrinters() ");
  bool result = true;
  for (HANDLE printer : handles) {
    if (!controlPrinter(printer, PRINTER_CONTROL_RESUME, "RESUME", trace))
      result = false;
  }
  pauseRecord_.release();
  return trace.returning(result);
}

bool PrinterSpoolerWrapper::resumePausedPrinters(const std::list<std::string>& names) {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "PrinterSpoolerWrapper::resumePausedPrinters() ");
  bool result = true;
  for (const std::string& name : names) {
    PRINTER_DEFAULTSA defaults = {nullptr, nullptr, PRINTER_ALL_ACCESS};
    ScopedPrinter printer;
    if (!OpenPrinterA(const_cast<char*>(name.c_str()), printer.receive(), &defaults)) {
      const DWORD error = GetLastError();
      if (error == ERROR_INVALID_PRINTER_NAME) {
        trace.detail([&] { return "Printer '" + name + "' no longer exists"; });
        continue;
      }
      result = false;
      trace.detail([&] {
        return LogText("OpenPrinter failed to open printer '") + name +
               "' with ADMIN permissions. GetLastError()=" + decimal(error);
      });
      continue;
    }
    DWORD needed = 0;
    GetPrinterA(printer.get(), 2, nullptr, 0, &needed);
    std::unique_ptr<BYTE[]> buffer(new (std::nothrow) BYTE[needed > 0 ? needed : 1]);
    if (!buffer || !GetPrinterA(printer.get(), 2, buffer.get(), needed, &needed)) {
      const DWORD error = GetLastError();
      result = false;
      trace.detail([&] {
        return LogText("GetPrinter failed for printer '") + name +
               "', GetLastError()=" + decimal(error);
      });
    } else if ((reinterpret_cast<const PRINTER_INFO_2A*>(buffer.get())->Status &
                PRINTER_STATUS_PAUSED) == 0) {
      trace.detail([&] { return "Printer '" + name + "' is not paused"; });
    } else if (SetPrinterA(printer.get(), 0, nullptr, PRINTER_CONTROL_RESUME)) {
      trace.detail([&] { return "Printer '" + name + "' was RESUMED successfully"; });
    } else {
      const DWORD error = GetLastError();
      result = false;
      trace.detail([&] {
        return LogText("SetPrinter(hPrinter, 0, NULL, PRINTER_CONTROL_RESUME) failed for '") +
               name + "'. GetLastError()=" + decimal(error);
      });
    }
  }
  return trace.returning(result);
}
