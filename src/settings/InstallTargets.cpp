#include "settings/InstallTargets.h"

#include <windows.h>

#include <shlobj.h>

#include "logging/FunctionTrace.h"
#include "settings/PathHelpers.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "system/CurrentProcess.h"

namespace {
const char kDefaultDataUpdatesDirectoryName[] = "Job Status";
const int kCommonAppData = 0x23;  // CSIDL_COMMON_APPDATA
}  // namespace

std::string InstallTargets::dataUpdatesDirectory() {
  char folder[MAX_PATH] = {};
  if (!SHGetSpecialFolderPathA(nullptr, folder, kCommonAppData, FALSE))
    return std::string();
  Settings settings;
  std::string directoryName = kDefaultDataUpdatesDirectoryName;
  settings.getOrCreateStringValue(SettingsKeys::kUpdaterSection,
                                  SettingsKeys::kDataUpdatesDirectoryName, directoryName,
                                  kDefaultDataUpdatesDirectoryName, 0);
  std::string driverName;
  settings.getStringValue(SettingsKeys::kSettingsSection, SettingsKeys::kDriverName, driverName, 0);
  return joinPath(joinPath(folder, driverName), directoryName);
}

int InstallTargets::makeDirectory(const std::string& directory, FunctionTrace& trace) {
  if (CurrentProcess::fileExists(directory))
    return ERROR_SUCCESS;
  trace.detail([&] { return "Attempting to create dir : " + directory; });
  const int error = SHCreateDirectoryExA(nullptr, directory.c_str(), nullptr);
  if (error != ERROR_SUCCESS)
    trace.detail(
        [&] { return LogText("SHCreateDirectory() failed. ErrorCode=") + decimal(error); });
  return error;
}

void InstallTargets::setUpdaterFlag(const std::string& name, uint32_t value) {
  Settings settings;
  unsigned long current = 0;
  settings.getOrCreateDwordValue(SettingsKeys::kUpdaterSection, name, current, 0, 0);
  if (current == 2)
    return;
  settings.setDwordValue(SettingsKeys::kUpdaterSection, name, value, 0);
}
