#pragma once

#include <windows.h>

#include <memory>
#include <string>

#include "settings/IniReader.h"

// Writes the default settings of an INI settings file into the registry: each section names a
// key path below HKEY_LOCAL_MACHINE (created when missing), each key a value, and each value is
// "dword:<decimal>" (REG_DWORD) or "string:<text>" (REG_SZ, stored without its terminating zero).
// Every problem is logged and makes installSettings() false, but processing goes on with the next
// pair and nothing is rolled back; a failed registry write is only logged.
class SettingsInstaller {
 public:
  explicit SettingsInstaller(const std::string& fileName);

  bool installSettings();

 private:
  std::unique_ptr<IniReader> reader_;
  bool parsed_ = false;
};

// Write one value below HKEY_LOCAL_MACHINE; return the registry status (0 = success).
LONG writeDwordValue(const std::string& keyPath, const std::string& valueName, DWORD value);
LONG writeStringValue(const std::string& keyPath,
                      const std::string& valueName,
                      const std::string& value);
