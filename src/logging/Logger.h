#pragma once

#include <string>

#include "logging/BasicLogger.h"

// The program's log writer: the file "%ALLUSERSPROFILE%\" + local id + "QNV.log", switches from
// the "Logger" section of the settings store (each created with its default on first read when
// the store exists). Exactly one per process, created at start-up and destroyed at shutdown.
class Logger : public BasicLogger {
 public:
  // Creates and registers the process's logger unless one exists. Throws when the logger cannot
  // be constructed.
  static void createInstance();
  static void destroyInstance();
  // Whether a Logger exists (isTraceOn asks this before anything else).
  static bool exists();

  static std::string getLogFilePath();
  // "%ALLUSERSPROFILE%\" expanded; empty when the expansion fails.
  static std::string getAllUsersProfileDir();

 protected:
  void readSetting(const std::string& name, uint32_t& value, uint32_t defaultValue) override;

 private:
  Logger();
};
