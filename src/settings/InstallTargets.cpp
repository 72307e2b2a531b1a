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
  // Users may make folders in the application-data folder: one made a link would take what a
  // SYSTEM run writes wherever it points. Checked before the folder is made and once it is.
  const auto linked = [&] {
    if (!hasLinkOnTheWay(directory))
      return false;
    trace.detail([&] { return "Not using '" + directory + "': a link in its path"; });
    return true;
  };
  if (linked())
    return ERROR_CANT_ACCESS_FILE;
  if (CurrentProcess::fileExists(directory))
    return ERROR_SUCCESS;
  trace.detail([&] { return "Attempting to create dir : " + directory; });
  const int error = SHCreateDirectoryExA(nullptr, directory.c_str(), nullptr);
  if (error != ERROR_SUCCESS)
    trace.detail(
        [&] { return LogText("SHCreateDirectory() failed. ErrorCode=") + decimal(error); });
  return error == ERROR_SUCCESS && linked() ? ERROR_CANT_ACCESS_FILE : error;
}

void InstallTargets::setUpdaterFlag(const std::string& name, uint32_t value) {
  Settings settings;
  unsigned long current = 0;
  settings.getOrCreateDwordValue(SettingsKeys::kUpdaterSection, name, current, 0, 0);
  if (current == 2)
    return;
  settings.setDwordValue(SettingsKeys::kUpdaterSection, name, value, 0);
}
