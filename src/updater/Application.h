#pragma once

#include <string>

// Start-up: creates Localize, the Logger, the CommandLineParams and the DeviceEnumerator, in that
// order. False when any step threw; nothing is logged and nothing created is torn down then.
bool initialize(const std::string& commandLine);

// One whole process: the DLL search narrowed (hardenDllSearch), start-up, the recovery of printers
// an earlier run left paused (PauseRecord), one update run, teardown in the fixed order
// (CurrentProcess, DeviceEnumerator, CommandLineParams, Logger, Localize). Always returns 0.
int runApplication(const char* commandLine);
