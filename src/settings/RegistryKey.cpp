#include "settings/RegistryKey.h"

#include <mbstring.h>

#include <climits>
#include <memory>

#include "settings/RegistryLink.h"
#include "system/OsVersion.h"
#include "system/Win32Exception.h"

namespace {

const char kSource[] = "RegistryKey";
const char kIncorrectType[] = " : incorrect value type";
const DWORD kNameBufferLength = 261;

// The one key name that a recursive delete empties but keeps, in any case.
bool isKeptKeyName(const std::string& name) {
  return _mbsicmp(reinterpret_cast<const unsigned char*>(name.c_str()),
                  reinterpret_cast<const unsigned char*>("SOFTWARE")) == 0;
}

Win32Exception registryError(const std::string& message, LONG code, int line) {
  return Win32Exception(message, static_cast<uint32_t>(code), kSource, static_cast<uint32_t>(line));
}

// Appends at most `maxCount` of the names that `enumerate` (RegEnumKeyExA or RegEnumValueA) hands
// out for `key`, in their order; a failure other than the end of the list throws as `operation`.
template <typename Enumerate>
void appendNames(HKEY key,
                 Enumerate enumerate,
                 int maxCount,
                 const char* operation,
                 int line,
                 std::list<std::string>& names) {
  for (DWORD index = 0; static_cast<int>(index) < maxCount; ++index) {
    char name[kNameBufferLength];
    DWORD length = kNameBufferLength;
    const LONG status = enumerate(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (status == ERROR_NO_MORE_ITEMS)
      return;
    if (status != ERROR_SUCCESS)
      throw registryError(operation, status, line);
    names.emplace_back(name, length);
  }
}

}  // namespace

// A constructor reaches this class's own operations, never a derived class's: said so by name.
RegistryKey::RegistryKey(const std::string& path, bool create, HKEY root) : security_(true) {
  RegistryKey::initAccessMask();
  RegistryKey::open(path, create, root);
}

RegistryKey::~RegistryKey() = default;

void RegistryKey::initAccessMask() {
  accessMask_ = KEY_ALL_ACCESS;
}

void RegistryKey::open(const std::string& path, bool create, HKEY root) {
  try {
    regOpenKeyEx(root, path, handle_.receive());
    return;
  } catch (const Win32Exception&) {
    if (!create)
      throw;
  }
  if (OsVersion::getInstance().isNt()) {
    regCreateKeyEx(root, path, handle_.receive());
    return;
  }
  // Without NT the path is created one level at a time.
  std::string rest = path;
  std::string prefix;
  while (prefix != path) {
    if (rest.size() >= 2 && rest[0] == '\\') {
      prefix += '\\';
      rest.erase(0, 1);
    }
    const std::string::size_type slash = rest.find('\\');
    if (slash == std::string::npos || slash == 0) {
      prefix += rest;
      rest.clear();
    } else {
      prefix += rest.substr(0, slash);
      rest.erase(0, slash);
    }
    ScopedKey level;
    regCreateKeyEx(root, prefix, level.receive());
  }
  regOpenKeyEx(root, path, handle_.receive());
}

void RegistryKey::regOpenKeyEx(HKEY root, const std::string& subKey, HKEY* result) {
  const LONG status = RegOpenKeyExA(root, subKey.c_str(), 0, KEY_ALL_ACCESS, result);
  if (status != ERROR_SUCCESS)
    throw registryError("RegistryKey::regOpenKeyEx()", status, __LINE__);
}

void RegistryKey::regCreateKeyEx(HKEY root, const std::string& subKey, HKEY* result) {
  char noClass[] = "";
  const LONG status =
      RegCreateKeyExA(root, subKey.c_str(), 0, noClass, REG_OPTION_NON_VOLATILE, accessMask_,
                      security_.getSecurityAttributes(), result, nullptr);
  if (status != ERROR_SUCCESS)
    throw registryError("RegistryKey::regCreateKeyEx()", status, __LINE__);
}

bool RegistryKey::getValue(const std::string& name, unsigned long& value) {
  DWORD type = 0;
  DWORD data = 0;
  DWORD size = sizeof(data);
  const LONG status = RegQueryValueExA(handle_.get(), name.c_str(), nullptr, &type,
                                       reinterpret_cast<BYTE*>(&data), &size);
  if (status == ERROR_FILE_NOT_FOUND)
    return false;
  if (status == ERROR_SUCCESS && type == REG_DWORD) {
    value = data;
    return true;
  }
  // The type stays 0 when the query fails for another reason, so the suffix comes then too.
  std::string message = "RegistryKey::getValue(ulong)" + name;
  if (type != REG_DWORD)
    message += kIncorrectType;
  throw registryError(message, status, __LINE__);
}

bool RegistryKey::getValue(const std::string& name, std::string& value) {
  DWORD type = 0;
  DWORD size = 0;
  LONG status = RegQueryValueExA(handle_.get(), name.c_str(), nullptr, &type, nullptr, &size);
  if (status == ERROR_FILE_NOT_FOUND)
    return false;
  if (status == ERROR_SUCCESS && (type == REG_SZ || type == REG_EXPAND_SZ)) {
    std::unique_ptr<char[]> buffer(new char[size + 1]());
    status = RegQueryValueExA(handle_.get(), name.c_str(), nullptr, &type,
                              reinterpret_cast<BYTE*>(buffer.get()), &size);
    if (status != ERROR_SUCCESS)
      throw registryError("RegistryKey::getValue() " + name, status, __LINE__);
    value = buffer.get();
    return true;
  }
  std::string message = "RegistryKey::getValue(string) " + name;
  if (type != REG_SZ)
    message += kIncorrectType;
  throw registryError(message, status, __LINE__);
}

bool RegistryKey::getValue(const std::string& name, std::vector<unsigned char>& value) {
  DWORD type = 0;
  DWORD size = 0;
  LONG status = RegQueryValueExA(handle_.get(), name.c_str(), nullptr, &type, nullptr, &size);
  if (status != ERROR_SUCCESS)
    return false;
  std::vector<unsigned char> buffer(size);
  status = RegQueryValueExA(handle_.get(), name.c_str(), nullptr, &type, buffer.data(), &size);
  if (status == ERROR_FILE_NOT_FOUND)
    return false;
  if (status == ERROR_SUCCESS && type == REG_BINARY) {
    value.assign(buffer.begin(), buffer.begin() + size);
    return true;
  }
  std::string message = "RegistryKey::getValue(binary)" + name;
  if (type != REG_BINARY)
    message += kIncorrectType;
  throw registryError(message, status, __LINE__);
}

bool RegistryKey::getValue(const std::string& name, std::vector<std::string>& value) {
  DWORD type = 0;
  DWORD size = 0;
  LONG status = RegQueryValueExA(handle_.get(), name.c_str(), nullptr, &type, nullptr, &size);
  if (status == ERROR_FILE_NOT_FOUND)
    return false;
  if (status == ERROR_SUCCESS && type == REG_MULTI_SZ) {
    // Two terminators more than asked for: a list stored without its own still ends.
    std::vector<char> buffer(size + 2, '\0');
    status = RegQueryValueExA(handle_.get(), name.c_str(), nullptr, &type,
                              reinterpret_cast<BYTE*>(buffer.data()), &size);
    if (status != ERROR_SUCCESS)
      throw registryError("RegistryKey::getValue(multi) " + name, status, __LINE__);
    value.clear();
    // The list ends at the empty string after the last one, or where the data ends.
    for (size_t at = 0; at < size && buffer[at] != '\0';) {
      value.emplace_back(&buffer[at]);
      at += value.back().size() + 1;
    }
    return true;
  }
  std::string message = "RegistryKey::getValue(multi) " + name;
  if (type != REG_MULTI_SZ)
    message += kIncorrectType;
  throw registryError(message, status, __LINE__);
}

void RegistryKey::setValue(const std::string& name, unsigned long value) {
  const DWORD data = value;
  const LONG status = RegSetValueExA(handle_.get(), name.c_str(), 0, REG_DWORD,
                                     reinterpret_cast<const BYTE*>(&data), sizeof(data));
  if (status != ERROR_SUCCESS)
    throw registryError("RegistryKey::setValue(ulong): Unable to set " + name, status, __LINE__);
}

void RegistryKey::setValue(const std::string& name, const std::string& value) {
  const LONG status = RegSetValueExA(handle_.get(), name.c_str(), 0, REG_SZ,
                                     reinterpret_cast<const BYTE*>(value.c_str()),
                                     static_cast<DWORD>(value.size() + 1));
  if (status != ERROR_SUCCESS)
    throw registryError("RegistryKey::setValue(string): Unable to set " + name, status, __LINE__);
}

void RegistryKey::setValue(const std::string& name, const std::vector<unsigned char>& value) {
  const LONG status = RegSetValueExA(handle_.get(), name.c_str(), 0, REG_BINARY, value.data(),
                                     static_cast<DWORD>(value.size()));
  // Deliberately the string variant's text.
  if (status != ERROR_SUCCESS)
    throw registryError("RegistryKey::setValue(string): Unable to set " + name, status, __LINE__);
}

void RegistryKey::deleteValue(const std::string& name) {
  const LONG status = RegDeleteValueA(handle_.get(), name.c_str());
  if (status != ERROR_SUCCESS)
    throw registryError("RegistryKey::deleteValue()", status, __LINE__);
}

void RegistryKey::getChildrenNames(std::list<std::string>& names, int maxCount) {
  appendNames(handle_.get(), RegEnumKeyExA, maxCount, "RegistryKey::getChildrenNames()", __LINE__,
              names);
}

void RegistryKey::getValueNames(std::list<std::string>& names) {
  appendNames(handle_.get(), RegEnumValueA, INT_MAX, "RegistryKey:getValueNames()", __LINE__,
              names);
}

bool RegistryKey::recurseDeleteKey(const std::string& path, HKEY root) {
  // The key is opened as itself: a registry link is deleted as the link, never emptied through it
  // (its target is another tree, and a dangling one cannot be opened at all).
  ScopedKey key;
  LONG status = RegistryLink::open(root, path, KEY_ALL_ACCESS, key);
  if (status == ERROR_FILE_NOT_FOUND)
    return true;
  if (status != ERROR_SUCCESS)
    throw registryError("RegistryKey::recurseDeleteKey() RegOpenKey()", status, __LINE__);
  if (!RegistryLink::isLink(key.get())) {
    // Each recursion removes its child, so the next one moves up to the same index. A child that
    // is still there afterwards (one named "SOFTWARE", or one whose name the code page cannot
    // hold, so that it cannot be opened by it) is stepped over, or the walk would find it again
    // for ever; the key's own deletion then fails.
    std::string previous;
    for (DWORD index = 0;;) {
      char child[256];
      DWORD length = sizeof(child);
      if (RegEnumKeyExA(key.get(), index, child, &length, nullptr, nullptr, nullptr, nullptr) !=
          ERROR_SUCCESS)
        break;
      if (previous == child) {
        ++index;
        previous.clear();
        continue;
      }
      recurseDeleteKey(child, key.get());
      previous = child;
    }
    // The key "SOFTWARE" itself is kept, though its subkeys are gone by now; deliberate.
    if (isKeptKeyName(path))
      return true;
  }
  // Deleted through the handle that was walked: a link put in its place meanwhile is not followed.
  status = RegistryLink::deleteKey(key.get());
  if (status != ERROR_SUCCESS)
    throw registryError("RegistryKey::recurseDeleteKey() RegDeleteKey()", status, __LINE__);
  return true;
}
