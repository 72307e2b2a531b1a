#include "system/OsVersion.h"

#include <winspool.h>

#include "system/ExportLookup.h"
#include "system/Win32Exception.h"

namespace {
const OsVersion g_osVersion;
}  // namespace

OsVersion::OsVersion() {
  ZeroMemory(&info_, sizeof(info_));
  info_.dwOSVersionInfoSize = sizeof(OSVERSIONINFOA);
  if (!GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&info_))) {
    const DWORD error = GetLastError();
    throw Win32Exception("OsVersion::OsVersion(): GetVersionEx failed", error, "OsVersion",
                         __LINE__);
  }
  // The extended record is asked for only where the plain query showed a system that has it.
  if (isWin2000OrLater()) {
    info_.dwOSVersionInfoSize = sizeof(OSVERSIONINFOEXA);
    if (!GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&info_))) {
      const DWORD error = GetLastError();
      throw Win32Exception("OsVersion::OsVersion(): GetVersionEx failed with OSVERSIONINFOEX",
                           error, "OsVersion", __LINE__);
    }
  }
}

const OsVersion& OsVersion::getInstance() {
  return g_osVersion;
}

bool OsVersion::isNt() const {
  return info_.dwPlatformId == VER_PLATFORM_WIN32_NT;
}

bool OsVersion::isWin2000OrLater() const {
  return isNt() && info_.dwMajorVersion >= 5;
}

bool OsVersion::isVistaOrLater() const {
  return isNt() && info_.dwMajorVersion >= 6;
}

uint32_t OsVersion::getWindowsVersion() const {
  struct Known {
    DWORD platform, major, minor;
    uint32_t code;
  };
  static const Known kKnown[] = {
      {VER_PLATFORM_WIN32_WINDOWS, 4, 0, kWindows95},
      {VER_PLATFORM_WIN32_WINDOWS, 4, 10, kWindows98},
      {VER_PLATFORM_WIN32_WINDOWS, 4, 90, kWindowsMe},
      {VER_PLATFORM_WIN32_NT, 4, 0, kWindowsNt4},
      {VER_PLATFORM_WIN32_NT, 5, 0, kWindows2000},
      {VER_PLATFORM_WIN32_NT, 5, 1, kWindowsXp},
      {VER_PLATFORM_WIN32_NT, 5, 2, kWindows2003},
      {VER_PLATFORM_WIN32_NT, 6, 0, kWindowsVista},
      {VER_PLATFORM_WIN32_NT, 6, 1, kWindows7},
  };
  for (const Known& known : kKnown) {
    if (info_.dwPlatformId == known.platform && info_.dwMajorVersion == known.major &&
        info_.dwMinorVersion == known.minor)
      return known.code;
  }
  return kUnknown;
}

std::string OsVersion::getPrinterDriverDirectory() const {
  char buffer[MAX_PATH] = {};
  DWORD needed = 0;
  // A failed call (a stopped spooler) gives no directory at all: a bare suffix would name a folder
  // below the current drive's root.
  if (!GetPrinterDriverDirectoryA(nullptr, nullptr, 1, reinterpret_cast<BYTE*>(buffer),
                                  sizeof(buffer), &needed))
    return std::string();
  std::string directory(buffer);
  const uint32_t version = getWindowsVersion();
  if (version >= kWindows2000)
    directory += "\\3";
  else if (version == kWindowsNt4)
    directory += "\\2";
  return directory;
}

bool OsVersion::isWow64() const {
  HMODULE kernel = GetModuleHandleA("kernel32");
  if (kernel == nullptr)
    return false;
  auto isWow64Process = LOOKUP_EXPORT(kernel, IsWow64Process);
  if (isWow64Process == nullptr)
    return false;
  BOOL wow64 = FALSE;
  isWow64Process(GetCurrentProcess(), &wow64);
  return wow64 == 1;
}
