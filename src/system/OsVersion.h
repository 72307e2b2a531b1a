#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

// Windows version facts, queried once during static initialisation and read-only afterwards.
// Construction throws Win32Exception when GetVersionExA fails, which ends the process before
// WinMain.
class OsVersion {
 public:
  // Version codes of getWindowsVersion().
  enum : uint32_t {
    kUnknown = 0,
    kWindows95 = 1,
    kWindows98 = 2,
    kWindowsMe = 3,
    kWindowsNt4 = 4,
    kWindows2000 = 5,
    kWindowsXp = 6,
    kWindows2003 = 7,
    kWindowsVista = 8,
    kWindows7 = 9,
  };

  OsVersion();
  OsVersion(const OsVersion&) = delete;
  OsVersion& operator=(const OsVersion&) = delete;

  static const OsVersion& getInstance();

  bool isNt() const;
  bool isWin2000OrLater() const;
  bool isVistaOrLater() const;
  uint32_t getWindowsVersion() const;
  // The local printer-driver directory, with "\3" for version codes 5 and up, "\2" for code 4;
  // empty when the spooler cannot say.
  std::string getPrinterDriverDirectory() const;
  // Looks IsWow64Process up at run time; false when it is missing.
  bool isWow64() const;

  const OSVERSIONINFOEXA& getVersionInfo() const { return info_; }

 private:
  OSVERSIONINFOEXA info_;
};
