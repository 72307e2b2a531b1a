#pragma once

#include <windows.h>

#include <functional>
#include <memory>
#include <string>

#include "settings/IniReader.h"

// Writes the default settings of an INI settings file into the registry: each section names a
// key path below HKEY_LOCAL_MACHINE (created when missing), each key a value, and each value is
// "dword:<decimal>" (REG_DWORD) or "string:<text>" (REG_SZ, stored without its terminating zero).
// Every problem is logged and makes installSettings() false, but processing goes on with the next
// pair and nothing is rolled back; a failed registry write is only logged.
//
// A caller that must know whether every entry landed as written (the settings tool) is told of
// each one that did not through its Reporter, with the entry's section, key and cause: a section
// without a name or values, a section or key whose name is too long for the reader (IniReader), a
// key without a value (dropped by the reader), a value of no known
// type, a DWORD that is not a decimal number (written as the number it starts with), a failed
// registry write.
class SettingsInstaller {
 public:
  using Reporter = std::function<
      void(const std::string& section, const std::string& key, const std::string& cause)>;

  explicit SettingsInstaller(const std::string& fileName, Reporter reporter = Reporter());

  bool installSettings();

 private:
  void report(const std::string& section, const std::string& key, const std::string& cause) const;

  std::unique_ptr<IniReader> reader_;
  bool parsed_ = false;
  Reporter reporter_;
};

// Write one value below HKEY_LOCAL_MACHINE; return the registry status (0 = success).
LONG writeDwordValue(const std::string& keyPath, const std::string& valueName, DWORD value);
LONG writeStringValue(const std::string& keyPath,
                      const std::string& valueName,
                      const std::string& value);
