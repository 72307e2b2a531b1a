#pragma once

#include <string>

#include "logging/BasicLogger.h"
#include "logging/LogSwitches.h"

// The program's log writer: the file "%ALLUSERSPROFILE%\" + local id + "QNV.log", with the
// switches it is handed (the settings store's "Logger" section). Exactly one per process, created
// at start-up and destroyed at shutdown.
class Logger : public BasicLogger {
 public:
  // Creates and registers the process's logger unless one exists; `switches` must outlive it.
  // Throws when the logger cannot be constructed.
  static void createInstance(const LogSwitches& switches);
  static void destroyInstance();
  // Whether a Logger exists, and whether the store of its switches does (isTraceOn asks both).
  static bool exists();
  static bool switchesExist();

  static std::string getLogFilePath();
  // "%ALLUSERSPROFILE%\" expanded; empty when the expansion fails.
  static std::string getAllUsersProfileDir();

 protected:
  void readSetting(const std::string& name, uint32_t& value, uint32_t defaultValue) override;

 private:
  explicit Logger(const LogSwitches& switches);

  const LogSwitches& switches_;
};
