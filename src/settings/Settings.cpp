#include "settings/Settings.h"

#include <windows.h>

#include <list>

#include "settings/RegistryKey.h"
#include "settings/SettingsInstaller.h"
#include "settings/SettingsKeys.h"
#include "system/CurrentProcess.h"
#include "system/Localize.h"
#include "system/Win32Exception.h"

namespace {
const int kMaxChildren = 100;
}  // namespace

Settings::Settings()
    : BasicSettings(Localize::getInstance()->getQnvRegistryPath(),
                    Localize::getInstance()->getLocalId()) {
  try {
    std::string path;
    Settings::getKeyPath(path, 0);  // This class's own, as in any constructor.
    RegistryKey key(path, false, HKEY_LOCAL_MACHINE);
    valid_ = true;
  } catch (const Win32Exception&) {
    valid_ = false;
  }
}

void Settings::getKeyPath(std::string& path, int scope) {
  path = Localize::getInstance()->getRegistryPath(static_cast<uint32_t>(scope));
}

bool Settings::deleteStore() {
  unsigned long deleteFamily = 1;
  if (!Settings().getDwordValue(SettingsKeys::kSettingsSection,
                                SettingsKeys::kDeleteStoreOnUninstall, deleteFamily, 0))
    deleteFamily = 1;

  std::string path;
  getKeyPath(path, 0);
  RegistryKey::recurseDeleteKey(path, HKEY_LOCAL_MACHINE);
  valid_ = false;

  std::list<std::string> others;
  {
    RegistryKey local(rootPath() + "Local\\", false, HKEY_LOCAL_MACHINE);
    local.getChildrenNames(others, kMaxChildren);
  }
  if (!others.empty())
    return false;  // Other components still use the store.
  if (deleteFamily != 0)
    RegistryKey::recurseDeleteKey(Localize::getInstance()->getProductFamilyRegistryPath(),
                                  HKEY_LOCAL_MACHINE);
  return true;
}

uint32_t Settings::installDefaultSettings() {
  try {
    std::string path;
    getKeyPath(path, 0);
    RegistryKey root(path, true, HKEY_LOCAL_MACHINE);
    const std::string fileName =
        CurrentProcess::getInstance()->getDirectory() + getMarkerFilePath();
    SettingsInstaller installer(fileName);
    valid_ = installer.installSettings();
    return valid_ ? kInstalled : kInstallFailed;
  } catch (const Exception&) {
    return kInstallFailed;
  }
}

bool Settings::isKnownProductFamily() {
  return Localize::getInstance()->isLaserProductFamily();
}

std::string Settings::getMarkerFilePath() {
  return Localize::getInstance()->getLocalId() + "qnv.loc";
}
