#pragma once

#include <windows.h>

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
//             FailDriverDirectory
// [PrinterN]  Name, Driver, Port, Attributes, Status, Jobs, DrainAfterPolls, FailOpen,
//             FailGetPrinter, FailPause, FailResume, FailClose
//
// Numbers are decimal or 0x-hex, optionally negative; a value that is not a number reads as 0
// (DrainAfterPolls: as absent). Every value may end in a comment led by a blank and ';'.
struct Scenario {
  ScenarioSource source;
  std::string journalPath;
  DWORD failEnum = 0;
  DWORD failDriverDirectory = 0;
  std::string driverDirectory;
  std::vector<PrinterScenario> printers;

  // Reads the scenario now. `module` is the stand-in DLL, whose folder holds the default file.
  static Scenario load(HMODULE module);

  // The printer with exactly this name, or null.
  const PrinterScenario* findPrinter(const std::string& name) const;
};
