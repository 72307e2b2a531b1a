#include "Spooler.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "Journal.h"

namespace {

class Lock {
 public:
  explicit Lock(CRITICAL_SECTION* section) : section_(section) { EnterCriticalSection(section_); }
  ~Lock() { LeaveCriticalSection(section_); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  CRITICAL_SECTION* section_;
};

// SplitMix64's finaliser: a well-spread 64-bit value from any input.
uint64_t Mix(uint64_t value) {
  value += 0x9e3779b97f4a7c15ull;
  value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9ull;
  value = (value ^ (value >> 27)) * 0x94d049bb133111ebull;
  return value ^ (value >> 31);
}

// FNV-1a of the name.
uint64_t NameHash(const std::string& name) {
  uint64_t hash = 0xcbf29ce484222325ull;
  for (const char c : name)
    hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3ull;
  return hash;
}

std::string Flag(bool value) {
  return value ? "1" : "0";
}

std::string Hex(DWORD value) {
  const char digits[] = "0123456789abcdef";
  std::string text;
  do {
    text.insert(text.begin(), digits[value & 0xF]);
    value >>= 4;
  } while (value != 0);
  return "0x" + text;
}

DWORD StringsSize(const PrinterScenario& printer) {
  return static_cast<DWORD>(printer.name.size() + printer.driver.size() + printer.port.size() + 3);
}

// Copies `text` to *strings, moves *strings past its terminating zero and returns the copy.
char* PackString(const std::string& text, char** strings) {
  char* copy = *strings;
  memcpy(copy, text.c_str(), text.size() + 1);
  *strings += text.size() + 1;
  return copy;
}

void FillInfo2(const PrinterScenario& printer,
               DWORD status,
               DWORD jobs,
               PRINTER_INFO_2A* info,
               char** strings) {
  memset(info, 0, sizeof(*info));
  info->pPrinterName = PackString(printer.name, strings);
  info->pPortName = PackString(printer.port, strings);
  info->pDriverName = PackString(printer.driver, strings);
  info->Attributes = printer.attributes;
  info->Status = status;
  info->cJobs = jobs;
}

}  // namespace

struct Spooler::Call {
  explicit Call(Spooler* spooler)
      : callerError(GetLastError()), lock(&spooler->section_), scenario(spooler->refresh()) {}

  const DWORD callerError;
  const Lock lock;
  const std::shared_ptr<const Scenario> scenario;
};

Spooler::Spooler(HMODULE module) : module_(module) {
  InitializeCriticalSection(&section_);
}

Spooler::~Spooler() {
  DeleteCriticalSection(&section_);
}

BOOL Spooler::enumPrinters(DWORD flags,
                           DWORD level,
                           BYTE* buffer,
                           DWORD size,
                           DWORD* needed,
                           DWORD* returned) {
  const Call call(this);
  const Scenario& scenario = *call.scenario;
  DWORD error = 0;
  if (needed == nullptr || returned == nullptr) {
    error = RPC_X_NULL_REF_POINTER;
  } else if (level != 1 && level != 2 && level != 4) {
    error = ERROR_INVALID_LEVEL;
  } else if (buffer != nullptr && scenario.failEnum != 0) {
    error = scenario.failEnum;
  } else {
    *returned = 0;
    *needed = 0;
    // A "\\server\name" printer is a connection: listed only when connections are asked for.
    std::vector<const PrinterScenario*> listed;
    for (const PrinterScenario& printer : scenario.printers) {
      const bool connection = printer.name.compare(0, 2, "\\\\") == 0;
      if (flags & (connection ? PRINTER_ENUM_CONNECTIONS : PRINTER_ENUM_LOCAL))
        listed.push_back(&printer);
    }
    if (level == 2) {
      for (const PrinterScenario* printer : listed) {
        *needed += static_cast<DWORD>(sizeof(PRINTER_INFO_2A)) + StringsSize(*printer);
      }
    }
    if (*needed > 0 && (buffer == nullptr || size < *needed)) {
      error = ERROR_INSUFFICIENT_BUFFER;
    } else if (*needed > 0) {
      auto* infos = reinterpret_cast<PRINTER_INFO_2A*>(buffer);
      char* strings = reinterpret_cast<char*>(infos + listed.size());
      for (const PrinterScenario* printer : listed) {
        FillInfo2(*printer, statusNow(*printer), jobsNow(scenario, *printer), infos++, &strings);
      }
      *returned = static_cast<DWORD>(listed.size());
    }
  }
  return finish(call,
                "EnumPrintersA flags=" + std::to_string(flags) + " level=" + std::to_string(level) +
                    " buffer=" + Flag(buffer != nullptr),
                error);
}

BOOL Spooler::openPrinter(const char* name, HANDLE* handle, const PRINTER_DEFAULTSA* defaults) {
  const Call call(this);
  const Scenario& scenario = *call.scenario;
  std::string printerName = name != nullptr ? name : "";
  DWORD access = defaults != nullptr ? defaults->DesiredAccess : 0;
  const PrinterScenario* printer = scenario.findPrinter(printerName);
  DWORD error = 0;
  if (handle == nullptr) {
    error = RPC_X_NULL_REF_POINTER;
  } else if (name == nullptr || printer == nullptr) {
    error = ERROR_INVALID_PRINTER_NAME;
  } else if (printer->failOpen != 0) {
    error = printer->failOpen;
  } else {
    lastHandle_ += 4;
    handles_[lastHandle_] = printerName;
    *handle = reinterpret_cast<HANDLE>(lastHandle_);
  }
  return finish(call, "OpenPrinterA name=" + printerName + " access=" + Hex(access), error);
}

BOOL Spooler::getPrinter(HANDLE handle, DWORD level, BYTE* buffer, DWORD size, DWORD* needed) {
  const Call call(this);
  const Scenario& scenario = *call.scenario;
  std::string name;
  const PrinterScenario* printer = printerOf(scenario, handle, &name);
  std::string jobs = "0";
  DWORD error = 0;
  bool clearError = false;
  if (printer == nullptr) {
    error = ERROR_INVALID_HANDLE;
  } else if (level != 2) {
    error = ERROR_INVALID_LEVEL;
  } else if (needed == nullptr) {
    error = RPC_X_NULL_REF_POINTER;
  } else {
    *needed = sizeof(PRINTER_INFO_2A) + StringsSize(*printer);
    if (buffer != nullptr && printer->failGetPrinter != 0) {
      error = printer->failGetPrinter;
    } else if (buffer != nullptr && printer->answerWithoutData != 0) {
      jobs = "none";
      clearError = true;
    } else if (buffer == nullptr || size < *needed) {
      error = ERROR_INSUFFICIENT_BUFFER;
    } else {
      const DWORD count = jobsNow(scenario, *printer);
      jobs = std::to_string(count);
      char* strings = reinterpret_cast<char*>(buffer) + sizeof(PRINTER_INFO_2A);
      FillInfo2(*printer, statusNow(*printer), count, reinterpret_cast<PRINTER_INFO_2A*>(buffer),
                &strings);
      ++states_[printer->name].polls;
    }
  }
  const BOOL result = finish(call,
                             "GetPrinterA name=" + name + " level=" + std::to_string(level) +
                                 " buffer=" + Flag(buffer != nullptr) + " jobs=" + jobs,
                             error);
  if (clearError)
    SetLastError(0);
  return result;
}

BOOL Spooler::setPrinter(HANDLE handle, DWORD level, DWORD command) {
  const Call call(this);
  const Scenario& scenario = *call.scenario;
  std::string name;
  const PrinterScenario* printer = printerOf(scenario, handle, &name);
  DWORD error = 0;
  if (printer == nullptr) {
    error = ERROR_INVALID_HANDLE;
  } else if (level != 0) {
    error = ERROR_INVALID_LEVEL;
  } else if (command == PRINTER_CONTROL_PAUSE || command == PRINTER_CONTROL_RESUME) {
    bool pause = command == PRINTER_CONTROL_PAUSE;
    error = pause ? printer->failPause : printer->failResume;
    if (error == 0) {
      states_[printer->name].paused = pause;
    }
  } else if (command != PRINTER_CONTROL_PURGE) {
    error = ERROR_INVALID_PARAMETER;
  }
  return finish(call, "SetPrinterA name=" + name + " command=" + std::to_string(command), error);
}

BOOL Spooler::closePrinter(HANDLE handle) {
  const Call call(this);
  const Scenario& scenario = *call.scenario;
  std::string name;
  const PrinterScenario* printer = printerOf(scenario, handle, &name);
  DWORD error = 0;
  auto open = handles_.find(reinterpret_cast<uintptr_t>(handle));
  if (open == handles_.end()) {
    error = ERROR_INVALID_HANDLE;
  } else {
    handles_.erase(open);
    error = printer != nullptr ? printer->failClose : 0;
  }
  return finish(call, "ClosePrinter name=" + name, error);
}

BOOL Spooler::getDriverDirectory(DWORD level, BYTE* buffer, DWORD size, DWORD* needed) {
  const Call call(this);
  const Scenario& scenario = *call.scenario;
  DWORD error = 0;
  if (needed == nullptr) {
    error = RPC_X_NULL_REF_POINTER;
  } else if (level != 1) {
    error = ERROR_INVALID_LEVEL;
  } else if (scenario.failDriverDirectory != 0) {
    error = scenario.failDriverDirectory;
  } else {
    *needed = static_cast<DWORD>(scenario.driverDirectory.size() + 1);
    if (buffer == nullptr || size < *needed) {
      error = ERROR_INSUFFICIENT_BUFFER;
    } else {
      memcpy(buffer, scenario.driverDirectory.c_str(), *needed);
    }
  }
  return finish(call, "GetPrinterDriverDirectoryA", error);
}

std::shared_ptr<const Scenario> Spooler::refresh() {
  scenario_ = Scenario::load(module_, scenario_);
  if (!haveSource_ || scenario_->source != source_) {
    states_.clear();
    source_ = scenario_->source;
    haveSource_ = true;
  }
  return scenario_;
}

BOOL Spooler::finish(const Call& call, const std::string& text, DWORD error) {
  AppendJournalLine(call.scenario->journalPath, text + " result=" + Flag(error == 0));
  // Reading the scenario and writing the journal change the last error; the caller sees only
  // this call's own outcome.
  SetLastError(error == 0 ? call.callerError : error);
  return error == 0 ? TRUE : FALSE;
}

const PrinterScenario* Spooler::printerOf(const Scenario& scenario,
                                          HANDLE handle,
                                          std::string* name) const {
  auto open = handles_.find(reinterpret_cast<uintptr_t>(handle));
  if (open == handles_.end()) {
    return nullptr;
  }
  *name = open->second;
  return scenario.findPrinter(open->second);
}

DWORD Spooler::jobsNow(const Scenario& scenario, const PrinterScenario& printer) {
  const PrinterState& state = states_[printer.name];
  bool drained = printer.drainAfterPolls >= 0 && state.polls >= printer.drainAfterPolls;
  if (drained)
    return 0;
  if (printer.busyChance <= 0)
    return printer.jobs;
  const uint64_t draw =
      Mix(Mix(Mix(scenario.seed) ^ NameHash(printer.name)) ^ static_cast<uint64_t>(state.polls));
  const double uniform = static_cast<double>(draw >> 11) / 9007199254740992.0;  // [0, 1)
  return uniform < printer.busyChance ? std::max<DWORD>(printer.jobs, 1) : 0;
}

DWORD Spooler::statusNow(const PrinterScenario& printer) {
  return printer.status | (states_[printer.name].paused ? PRINTER_STATUS_PAUSED : 0);
}
