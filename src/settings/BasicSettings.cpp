#include "settings/BasicSettings.h"

#include <windows.h>

#include "settings/RegistryKey.h"
#include "system/Win32Exception.h"

namespace {
const int kMaxChildren = 100;
}  // namespace

BasicSettings::BasicSettings(const std::string& rootPath, const std::string& localId)
    : rootPath_(rootPath), localId_(localId) {
  if (rootPath_.empty() || rootPath_.back() != '\\')
    rootPath_ += '\\';
  if (!localId_.empty())
    localId_ += '\\';
}

BasicSettings::~BasicSettings() = default;

template <typename Operation>
bool BasicSettings::withKey(const std::string& section,
                            int scope,
                            bool create,
                            Operation operation) {
  try {
    std::string path;
    getKeyPath(path, scope);
    RegistryKey key(path + section, create, HKEY_LOCAL_MACHINE);
    return operation(key);
  } catch (const Win32Exception& e) {
    SetLastError(e.getCode());
    return false;
  }
}

template <typename Value>
bool BasicSettings::getOrCreate(const std::string& section,
                                const std::string& name,
                                Value& value,
                                const Value& defaultValue,
                                int scope) {
  if (!rootKeyExists())
    return false;
  return withKey(section, scope, true, [&](RegistryKey& key) {
    if (!key.getValue(name, value)) {
      key.setValue(name, defaultValue);
      value = defaultValue;
    }
    return true;
  });
}

bool BasicSettings::rootKeyExists() {
  try {
    RegistryKey key(rootPath_, false, HKEY_LOCAL_MACHINE);
    return true;
  } catch (const Win32Exception&) {
    return false;
  }
}

bool BasicSettings::getOrCreateBinaryValue(const std::string& section,
                                           const std::string& name,
                                           std::vector<unsigned char>& value,
                                           const std::vector<unsigned char>& defaultValue,
                                           int scope) {
  return getOrCreate(section, name, value, defaultValue, scope);
}

bool BasicSettings::getBinaryValue(const std::string& section,
                                   const std::string& name,
                                   std::vector<unsigned char>& value,
                                   int scope) {
  return withKey(section, scope, false, [&](RegistryKey& key) {
    std::vector<unsigned char> bytes;
    if (!key.getValue(name, bytes))
      return false;
    value.clear();
    value.insert(value.end(), bytes.begin(), bytes.end());
    return true;
  });
}

bool BasicSettings::getOrCreateDwordValue(const std::string& section,
                                          const std::string& name,
                                          unsigned long& value,
                                          unsigned long defaultValue,
                                          int scope) {
  return getOrCreate(section, name, value, defaultValue, scope);
}

bool BasicSettings::getDwordValue(const std::string& section,
                                  const std::string& name,
                                  unsigned long& value,
                                  int scope) {
  return withKey(section, scope, false,
                 [&](RegistryKey& key) { return key.getValue(name, value); });
}

bool BasicSettings::getOrCreateStringValue(const std::string& section,
                                           const std::string& name,
                                           std::string& value,
                                           const std::string& defaultValue,
                                           int scope) {
  return getOrCreate(section, name, value, defaultValue, scope);
}

bool BasicSettings::getStringValue(const std::string& section,
                                   const std::string& name,
                                   std::string& value,
                                   int scope) {
  return withKey(section, scope, false,
                 [&](RegistryKey& key) { return key.getValue(name, value); });
}

bool BasicSettings::setStringValue(const std::string& section,
                                   const std::string& name,
                                   const std::string& value,
                                   int scope) {
  return withKey(section, scope, true, [&](RegistryKey& key) {
    key.setValue(name, value);
    return true;
  });
}

bool BasicSettings::setDwordValue(const std::string& section,
                                  const std::string& name,
                                  unsigned long value,
                                  int scope) {
  return withKey(section, scope, true, [&](RegistryKey& key) {
    key.setValue(name, value);
    return true;
  });
}

bool BasicSettings::getValueNames(const std::string& section,
                                  std::list<std::string>& names,
                                  int scope) {
  if (section.empty())
    return false;
  return withKey(section, scope, false, [&](RegistryKey& key) {
    key.getValueNames(names);
    return true;
  });
}

bool BasicSettings::deleteKey(const std::string& section, int scope) {
  std::string path;
  getKeyPath(path, scope);
  path += section;
  { RegistryKey key(path, false, HKEY_LOCAL_MACHINE); }
  return RegistryKey::recurseDeleteKey(path, HKEY_LOCAL_MACHINE);
}

bool BasicSettings::deleteValue(const std::string& section, const std::string& name, int scope) {
  return withKey(section, scope, false, [&](RegistryKey& key) {
    key.deleteValue(name);
    return true;
  });
}

bool BasicSettings::deleteStore() {
  if (localId_.empty()) {
    RegistryKey::recurseDeleteKey(rootPath_, HKEY_LOCAL_MACHINE);
    return true;
  }
  RegistryKey::recurseDeleteKey(rootPath_ + "Local\\" + localId_, HKEY_LOCAL_MACHINE);
  std::list<std::string> others;
  {
    RegistryKey local(rootPath_ + "Local\\", false, HKEY_LOCAL_MACHINE);
    local.getChildrenNames(others, kMaxChildren);
  }
  if (!others.empty())
    return false;
  RegistryKey::recurseDeleteKey(rootPath_, HKEY_LOCAL_MACHINE);
  return true;
}

void BasicSettings::getKeyPath(std::string& path, int scope) {
  if (localId_.empty())
    path = rootPath_;
  else if (scope != 0)
    path = rootPath_ + "Shared\\";
  else
    path = rootPath_ + "Local\\" + localId_;
}
