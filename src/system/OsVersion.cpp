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
  const DWORD major = info_.dwMajorVersion;
  const DWORD minor = info_.dwMinorVersion;
  if (info_.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS) {
    if (major == 4 && minor == 0)
      return kWindows95;
    if (major == 4 && minor == 10)
      return kWindows98;
    if (major == 4 && minor == 90)
      return kWindowsMe;
    return kUnknown;
  }
  if (!isNt())
    return kUnknown;
  if (major == 4 && minor == 0)
    return kWindowsNt4;
  if (major == 5 && minor == 0)
    return kWindows2000;
  if (major == 5 && minor == 1)
    return kWindowsXp;
  if (major == 5 && minor == 2)
    return kWindows2003;
  if (major == 6 && minor == 0)
    return kWindowsVista;
  if (major == 6 && minor == 1)
    return kWindows7;
  return kUnknown;
}

std::string OsVersion::getPrinterDriverDirectory() const {
  char buffer[MAX_PATH] = {};
  DWORD needed = 0;
  GetPrinterDriverDirectoryA(nullptr, nullptr, 1, reinterpret_cast<BYTE*>(buffer), sizeof(buffer),
                             &needed);
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
