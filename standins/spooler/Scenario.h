#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

// One [PrinterN] section of the scenario file.
struct PrinterScenario {
  std::string name;
  std::string driver;
  std::string port{};  // "{}": a printer is often written {name, driver}, the rest defaulted.
  DWORD attributes = 0;
  DWORD status = 0;
  DWORD jobs = 0;
  // Level-2 polls after which cJobs reads 0; negative when the jobs never drain.
  long long drainAfterPolls = -1;
  DWORD failOpen = 0;
  DWORD failGetPrinter = 0;
  DWORD failPause = 0;
  DWORD failResume = 0;
  DWORD failClose = 0;
  // The chance, from 0 to 1, that a poll finds the printer busy: drawn afresh at every poll, from
  // [Spooler] Seed, the printer's name and its poll count, so that one scenario always gives the
  // same polls. A busy poll shows Jobs jobs (at least 1), a quiet one none; DrainAfterPolls still
  // ends the jobs for good. 0: Jobs and DrainAfterPolls alone decide.
  double busyChance = 0;
  // Non-zero: a level-2 GetPrinterA with a buffer answers TRUE with last error 0 and writes
  // nothing into the buffer (a driver seen to do so); the size query answers as usual.
  DWORD answerWithoutData = 0;
};

// What tells one version of the scenario from the next. A change in any field resets the
// spooler's in-memory state.
struct ScenarioSource {
  std::string path;
  bool exists = false;
  ULONGLONG lastWriteTime = 0;
  ULONGLONG size = 0;
  std::string generation;

  bool operator==(const ScenarioSource& other) const;
  bool operator!=(const ScenarioSource& other) const { return !(*this == other); }
};

// The scenario file as read at one call. The file is an INI file named by the environment
// variable SPOOLER_SCENARIO, or else spooler-scenario.ini beside the stand-in DLL. A missing file
// is a spooler with no printers, no journal and the default driver directory.
//
// [Spooler]   Generation, Printers (at most 256), Journal, FailEnum, DriverDirectory,
//             FailDriverDirectory, Seed
// [PrinterN]  Name, Driver, Port, Attributes, Status, Jobs, DrainAfterPolls, FailOpen,
//             FailGetPrinter, FailPause, FailResume, FailClose, BusyChance, AnswerWithoutData
//
// Numbers are decimal or 0x-hex, optionally negative; a value that is not a number reads as 0
// (DrainAfterPolls: as absent). BusyChance is a decimal fraction, taken between 0 and 1. Every
// value may end in a comment led by a blank and ';'.
struct Scenario {
  ScenarioSource source;
  // The file's bytes: a file read again with the same bytes, path and last-write time is the same
  // scenario, and is not parsed again.
  std::string content;
  std::string journalPath;
  unsigned long long seed = 0;
  DWORD failEnum = 0;
  DWORD failDriverDirectory = 0;
  std::string driverDirectory;
  std::vector<PrinterScenario> printers;

  // Reads the scenario now. `module` is the stand-in DLL, whose folder holds the default file.
  // Returns `previous` itself when the file has not changed since it was read.
  static std::shared_ptr<const Scenario> load(HMODULE module,
                                              const std::shared_ptr<const Scenario>& previous);

  // The printer with exactly this name, or null.
  const PrinterScenario* findPrinter(const std::string& name) const;
};
