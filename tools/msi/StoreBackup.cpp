#include "StoreBackup.h"

#include <windows.h>

#include "StoreSecurity.h"
#include "settings/SettingsKeys.h"
#include "system/UniqueHandle.h"

namespace {

// The backup's values beside its copy of the store (subkey kCopy).
const char kCopy[] = "Store";
const char kExisted[] = "StoreExisted";     // REG_DWORD 1 or 0: written last
const char kCreated[] = "FirstKeyCreated";  // the topmost key an install creates
const char kSecurity[] = "StoreSecurity";   // the store's DACL, SDDL
const char kRecords[] = "RecordsSecurity";  // the records key's owner and DACL, SDDL

std::string status(const char* what, LONG code) {
  return std::string(what) + " (status " + std::to_string(code) + ")";
}

bool exists(const std::string& path) {
  ScopedKey key;
  return RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.receive()) ==
         ERROR_SUCCESS;
}

LONG deleteTree(const std::string& path) {
  const LONG code = RegDeleteTreeA(HKEY_LOCAL_MACHINE, path.c_str());
  if (code != ERROR_SUCCESS && code != ERROR_FILE_NOT_FOUND)
    return code;
  const LONG removed = RegDeleteKeyA(HKEY_LOCAL_MACHINE, path.c_str());
  return removed == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : removed;
}

// The topmost key of `path` that does not exist ("" when all of it does).
std::string firstMissing(const std::string& path) {
  for (std::string::size_type end = path.find('\\');; end = path.find('\\', end + 1)) {
    const std::string key = path.substr(0, end);
    if (!exists(key))
      return key;
    if (end == std::string::npos)
      return std::string();
  }
}

// The store's records key, which keeps a security of its own (StoreSecurity).
std::string recordsKey(const std::string& store) {
  return store + "\\" + SettingsKeys::kRecordsKey;
}

LONG setText(HKEY key, const char* name, const std::string& text) {
  return RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                        static_cast<DWORD>(text.size() + 1));
}

// A text value of the backup; "" when there is none.
std::string text(HKEY key, const char* name) {
  char value[4096] = {};
  DWORD size = sizeof(value) - 1;
  return RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(value), &size) ==
                 ERROR_SUCCESS
             ? value
             : "";
}

}  // namespace

bool StoreBackup::save(std::string& error) const {
  LONG code = deleteTree(backup_);
  ScopedKey backup;
  if (code == ERROR_SUCCESS)
    code = RegCreateKeyExA(HKEY_LOCAL_MACHINE, backup_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                           nullptr, backup.receive(), nullptr);
  if (code != ERROR_SUCCESS) {
    error = status(("could not make the backup key HKLM\\" + backup_).c_str(), code);
    return false;
  }
  const DWORD existed = exists(store_) ? 1 : 0;
  if (existed != 0) {
    ScopedKey store, copy;
    code = RegOpenKeyExA(HKEY_LOCAL_MACHINE, store_.c_str(), 0, KEY_READ, store.receive());
    if (code == ERROR_SUCCESS)
      code = RegCreateKeyExA(backup.get(), kCopy, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                             copy.receive(), nullptr);
    if (code == ERROR_SUCCESS)
      code = RegCopyTreeA(store.get(), nullptr, copy.get());
    if (code == ERROR_SUCCESS)
      code = setText(backup.get(), kSecurity, StoreSecurity::describe(store_, false));
    if (code == ERROR_SUCCESS && exists(recordsKey(store_)))
      code = setText(backup.get(), kRecords, StoreSecurity::describe(recordsKey(store_), true));
  } else {
    code = setText(backup.get(), kCreated, firstMissing(store_));
  }
  if (code == ERROR_SUCCESS)
    code = RegSetValueExA(backup.get(), kExisted, 0, REG_DWORD,
                          reinterpret_cast<const BYTE*>(&existed), sizeof(existed));
  if (code != ERROR_SUCCESS) {
    error =
        status(("could not copy the store HKLM\\" + store_ + " to HKLM\\" + backup_).c_str(), code);
    return false;
  }
  return true;
}

bool StoreBackup::restore(std::string& error) const {
  ScopedKey backup;
  DWORD existed = 0, size = sizeof(existed);
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, backup_.c_str(), 0, KEY_READ, backup.receive()) !=
          ERROR_SUCCESS ||
      RegQueryValueExA(backup.get(), kExisted, nullptr, nullptr, reinterpret_cast<BYTE*>(&existed),
                       &size) != ERROR_SUCCESS)
    return true;  // Nothing was saved: the install had not reached the store.
  const std::string saved = text(backup.get(), existed != 0 ? kSecurity : kCreated);
  LONG code = deleteTree(existed != 0 || saved.empty() ? store_ : saved);
  if (code == ERROR_SUCCESS && existed != 0) {
    ScopedKey store, copy;
    code = RegCreateKeyExA(HKEY_LOCAL_MACHINE, store_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                           nullptr, store.receive(), nullptr);
    if (code == ERROR_SUCCESS)
      code = RegOpenKeyExA(backup.get(), kCopy, 0, KEY_READ, copy.receive());
    if (code == ERROR_SUCCESS)
      code = RegCopyTreeA(copy.get(), nullptr, store.get());
  }
  if (code != ERROR_SUCCESS) {
    error = status(("could not put the store HKLM\\" + store_ + " back").c_str(), code);
    return false;
  }
  // A store whose DACL differs from what a new key gets (a locked one) is given its own again;
  // the records key, made anew by the copy, its own.
  const std::string records = existed != 0 ? text(backup.get(), kRecords) : "";
  if (existed != 0 && !saved.empty() && StoreSecurity::describe(store_, false) != saved &&
      !StoreSecurity::applyToStore(store_, saved)) {
    error = "could not give the store HKLM\\" + store_ + " back its DACL " + saved;
    return false;
  }
  if (!records.empty() && !StoreSecurity::applyToKey(recordsKey(store_), records)) {
    error = "could not give HKLM\\" + recordsKey(store_) + " back its security " + records;
    return false;
  }
  return discard(error);
}

bool StoreBackup::discard(std::string& error) const {
  const LONG code = deleteTree(backup_);
  if (code != ERROR_SUCCESS)
    error = status(("could not delete the backup HKLM\\" + backup_).c_str(), code);
  return code == ERROR_SUCCESS;
}
