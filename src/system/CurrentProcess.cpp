#include "system/CurrentProcess.h"

#include <windows.h>

#include "system/CriticalSection.h"
#include "system/CriticalSectionLock.h"
#include "system/UniqueHandle.h"
#include "system/Win32Exception.h"

namespace {
CriticalSection g_currentProcessSection;
CurrentProcess* g_currentProcess = nullptr;
}  // namespace

CurrentProcess::CurrentProcess() {
  char buffer[MAX_PATH + 1] = {};
  const DWORD length = GetModuleFileNameA(nullptr, buffer, sizeof(buffer));
  if (length == 0)
    throw Win32Exception("CurrentProcess::CurrentProcess", 0, "CurrentProcess", __LINE__);
  path_.assign(buffer, length);
}

CurrentProcess* CurrentProcess::getInstance() {
  CriticalSectionLock lock(g_currentProcessSection);
  if (g_currentProcess == nullptr)
    g_currentProcess = new CurrentProcess();
  return g_currentProcess;
}

void CurrentProcess::destroyInstance() {
  CriticalSectionLock lock(g_currentProcessSection);
  delete g_currentProcess;
  g_currentProcess = nullptr;
}

bool CurrentProcess::isElevated() const {
  ScopedHandle token;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.receive()))
    return true;
  TOKEN_ELEVATION elevation = {};
  DWORD size = 0;
  const bool hasElevation = GetTokenInformation(token.get(), TokenElevation, &elevation,
                                                sizeof(elevation), &size) != FALSE;
  if (hasElevation && elevation.TokenIsElevated != 0)
    return true;
  alignas(TOKEN_USER) BYTE buffer[SECURITY_MAX_SID_SIZE + sizeof(TOKEN_USER)] = {};
  if (!GetTokenInformation(token.get(), TokenUser, buffer, sizeof(buffer), &size))
    return true;
  if (IsWellKnownSid(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, WinLocalSystemSid))
    return true;
  if (hasElevation)
    return false;
  BYTE administrators[SECURITY_MAX_SID_SIZE] = {};
  DWORD sidSize = sizeof(administrators);
  BOOL member = FALSE;
  return !CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &sidSize) ||
         !CheckTokenMembership(nullptr, administrators, &member) || member != FALSE;
}

std::string CurrentProcess::getPath() const {
  return path_;
}

std::string CurrentProcess::getDirectory() const {
  const std::string::size_type slash = path_.rfind('\\');
  if (slash == std::string::npos)
    return std::string();
  return path_.substr(0, slash + 1);
}

bool CurrentProcess::fileExists(const std::string& path) {
  if (GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES)
    return true;
  const DWORD error = GetLastError();
  return error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND;
}
