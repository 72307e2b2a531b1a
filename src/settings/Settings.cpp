#include "settings/Settings.h"

#include <windows.h>

#include <list>

#include "settings/Policy.h"
#include "settings/RegistryKey.h"
#include "settings/SettingsInstaller.h"
#include "settings/SettingsKeys.h"
#include "system/CurrentProcess.h"
#include "system/Localize.h"
#include "system/Win32Exception.h"

namespace {

const int kMaxChildren = 100;

// Gives `value` the policy's value for `name` in `section` when one is in force. Only the
// program's own store (scope 0) has a policy. Policy leaves the last-error code alone, so it stays
// the store's.
template <typename Value>
void applyPolicy(const std::string& section, const std::string& name, Value& value, int scope) {
  if (scope == 0 && Policy::find(section, name) != nullptr)
    Policy().read(section, name, value);
}

std::string joined(const std::vector<std::string>& texts) {
  std::string text;
  for (const std::string& item : texts)
    text += (text.empty() ? "" : ";") + item;
  return text;
}

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

bool Settings::getOrCreateDwordValue(const std::string& section,
                                     const std::string& name,
                                     unsigned long& value,
                                     unsigned long defaultValue,
                                     int scope) {
  const bool result =
      BasicSettings::getOrCreateDwordValue(section, name, value, defaultValue, scope);
  applyPolicy(section, name, value, scope);
  return result;
}

bool Settings::getDwordValue(const std::string& section,
                             const std::string& name,
                             unsigned long& value,
                             int scope) {
  const bool result = BasicSettings::getDwordValue(section, name, value, scope);
  applyPolicy(section, name, value, scope);
  return result;
}

bool Settings::getOrCreateStringValue(const std::string& section,
                                      const std::string& name,
                                      std::string& value,
                                      const std::string& defaultValue,
                                      int scope) {
  const bool result =
      BasicSettings::getOrCreateStringValue(section, name, value, defaultValue, scope);
  applyPolicy(section, name, value, scope);
  return result;
}

bool Settings::getStringValue(const std::string& section,
                              const std::string& name,
                              std::string& value,
                              int scope) {
  const bool result = BasicSettings::getStringValue(section, name, value, scope);
  applyPolicy(section, name, value, scope);
  return result;
}

bool Settings::getMultiStringValue(const std::string& section,
                                   const std::string& name,
                                   std::vector<std::string>& value,
                                   int scope) {
  const bool result = readMultiString(section, name, value, scope);
  applyPolicy(section, name, value, scope);
  return result;
}

bool Settings::readMultiString(const std::string& section,
                               const std::string& name,
                               std::vector<std::string>& value,
                               int scope) {
  try {
    std::string path;
    getKeyPath(path, scope);
    RegistryKey key(path + section, false, HKEY_LOCAL_MACHINE);
    return key.getValue(name, value);
  } catch (const Win32Exception& e) {
    SetLastError(e.getCode());
    return false;
  }
}

std::vector<Settings::EffectiveValue> Settings::getEffectiveValues() {
  const Policy policy;
  std::vector<EffectiveValue> values;
  for (size_t i = 0; i < PolicyTable::kRowCount; ++i) {
    const PolicyTable::Row& row = PolicyTable::kRows[i];
    EffectiveValue effective;
    effective.section = row.section;
    effective.name = row.name;
    effective.isSet = true;
    // The plain reads of the store: nothing is created.
    if (row.kind == PolicyTable::Kind::kDword) {
      unsigned long number = row.dwordDefault;
      effective.source = policy.read(row.section, row.name, number) ? "policy"
                         : BasicSettings::getDwordValue(row.section, row.name, number, 0)
                             ? "store"
                             : "default";
      effective.value = std::to_string(number);
    } else if (row.kind == PolicyTable::Kind::kText) {
      effective.value = row.textDefault;
      effective.source = policy.read(row.section, row.name, effective.value) ? "policy"
                         : BasicSettings::getStringValue(row.section, row.name, effective.value, 0)
                             ? "store"
                             : "default";
    } else {
      std::vector<std::string> texts;
      effective.source = policy.read(row.section, row.name, texts)          ? "policy"
                         : readMultiString(row.section, row.name, texts, 0) ? "store"
                                                                            : "default";
      effective.value = effective.source == "default" ? row.textDefault : joined(texts);
    }
    if (effective.source == "default" && !row.hasDefault) {
      effective.isSet = false;
      effective.value.clear();
    }
    values.push_back(effective);
  }
  return values;
}
