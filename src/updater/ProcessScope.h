#pragma once

#include <string>

#include "logging/LogSwitches.h"

// The process-wide objects of the program and its tools, created and destroyed in the required
// order. Start-up creates Localize (named after the executable) and the Logger (with the
// settings store's switches); for an update run also CommandLineParams and the DeviceEnumerator.
// Shutdown destroys CurrentProcess, DeviceEnumerator, CommandLineParams, the Logger and Localize,
// in that order: everything before the Logger may still log, and Localize outlives it. A
// start-up that throws is caught: nothing is logged, nothing is torn down, and started() is false.
// One per process, on the stack of main (or WinMain).
class ProcessScope {
 public:
  // The creation of the process's logger (Logger::createInstance); a seam so that tests can
  // present a start-up that fails, as it does when memory runs out.
  using CreateLoggerFunction = void (*)(const LogSwitches& switches);
  static void setCreateLoggerFunction(CreateLoggerFunction function);

  // The start-up of a tool, a benchmark or a test program.
  ProcessScope();
  // The start-up of an update run, with the command line that may carry "-UAC".
  explicit ProcessScope(const std::string& commandLine);
  ~ProcessScope();
  ProcessScope(const ProcessScope&) = delete;
  ProcessScope& operator=(const ProcessScope&) = delete;

  bool started() const { return started_; }

 private:
  // The start-up steps; false when one threw.
  static bool initialize(const std::string* commandLine);

  bool started_;
};
