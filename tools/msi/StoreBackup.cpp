#include "StoreBackup.h"

#include <windows.h>

#include <sddl.h>

#include "RegistryTree.h"
#include "StoreSecurity.h"
#include "settings/RegistryLink.h"
#include "settings/SettingsKeys.h"
#include "system/UniqueHandle.h"

namespace {

// The backup's values beside its copy of the store (subkey kCopy).
const char kCopy[] = "Store";
const char kExisted[] = "StoreExisted";     // REG_DWORD 1 or 0: written last
const char kCreated[] = "FirstKeyCreated";  // the topmost key an install creates
const char kSecurity[] = "StoreSecurity";   // the store's DACL, SDDL
const char kRecords[] = "RecordsSecurity";  // the records key's owner and DACL, SDDL
// The backup holds a locked store's values: SYSTEM and administrators alone may read it, and
// every key made below it (each given it), whatever its parent lets users do (HKLM\Software:
// read).
const char kBackupSecurity[] = "D:P(A;CI;KA;;;SY)(A;CI;KA;;;BA)";

std::string status(const char* what, LONG code) {
  return std::string(what) + " (status " + std::to_string(code) + ")";
}

// Whether the key `path` is there, opened as itself (a link too).
bool exists(const std::string& path) {
  ScopedKey key;
  return RegistryLink::openEach(HKEY_LOCAL_MACHINE, path, KEY_READ, key) == ERROR_SUCCESS;
}

// Whether the key `path` is a key of its own, not a link (and none on its path).
bool isRealKey(const std::string& path) {
  ScopedKey key;
  return RegistryLink::openEach(HKEY_LOCAL_MACHINE, path, KEY_READ, key) == ERROR_SUCCESS &&
         !RegistryLink::isLink(key.get());
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

bool StoreBackup::save(std::string& error, std::vector<std::string>& skipped) const {
  ScopedLocal descriptor;
  LONG code = ConvertStringSecurityDescriptorToSecurityDescriptorA(kBackupSecurity, SDDL_REVISION_1,
                                                                   descriptor.receive(), nullptr)
                  ? RegistryTree::deleteTree(backup_)
                  : static_cast<LONG>(GetLastError());
  SECURITY_ATTRIBUTES attributes = {sizeof(attributes), descriptor.get(), FALSE};
  ScopedKey backup;
  bool created = false;
  if (code == ERROR_SUCCESS)
    code = RegistryTree::createPath(backup_, &attributes, backup, created);
  // Given its own DACL before anything is copied into it, also where the one given at its making
  // was dropped (Wine's registry does).
  if (code == ERROR_SUCCESS)
    code = RegSetKeySecurity(backup.get(), DACL_SECURITY_INFORMATION, descriptor.get());
  if (code != ERROR_SUCCESS) {
    error = status(("could not make the backup key HKLM\\" + backup_).c_str(), code);
    return false;
  }
  // A link in the store's place is no store: as if there were none, so that a restore deletes
  // what the install made there.
  const DWORD existed = isRealKey(store_) ? 1 : 0;
  if (existed != 0) {
    ScopedKey store, copy;
    code = RegistryLink::openEach(HKEY_LOCAL_MACHINE, store_, KEY_READ, store);
    if (code == ERROR_SUCCESS)
      code = RegCreateKeyExA(backup.get(), kCopy, 0, nullptr, 0, KEY_ALL_ACCESS, &attributes,
                             copy.receive(), nullptr);
    if (code == ERROR_SUCCESS)
      code = RegSetKeySecurity(copy.get(), DACL_SECURITY_INFORMATION, descriptor.get());
    if (code == ERROR_SUCCESS)
      code = RegistryTree::copyTree(store.get(), copy.get(), descriptor.get(), skipped);
    if (code == ERROR_SUCCESS)
      code = setText(backup.get(), kSecurity, StoreSecurity::describe(store_, false));
    if (code == ERROR_SUCCESS && isRealKey(recordsKey(store_)))
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
  if (RegistryLink::openEach(HKEY_LOCAL_MACHINE, backup_, KEY_READ, backup) != ERROR_SUCCESS ||
      RegQueryValueExA(backup.get(), kExisted, nullptr, nullptr, reinterpret_cast<BYTE*>(&existed),
                       &size) != ERROR_SUCCESS)
    return true;  // Nothing was saved: the install had not reached the store.
  const std::string saved = text(backup.get(), existed != 0 ? kSecurity : kCreated);
  LONG code = RegistryTree::deleteTree(existed != 0 || saved.empty() ? store_ : saved);
  if (code == ERROR_SUCCESS && existed != 0) {
    ScopedKey store, copy;
    bool created = false;
    std::vector<std::string> skipped;  // The backup holds none.
    code = RegistryTree::createPath(store_, nullptr, store, created);
    if (code == ERROR_SUCCESS && !created)
      code = ERROR_ALREADY_EXISTS;  // Made again by someone else since it was deleted.
    if (code == ERROR_SUCCESS)
      code = RegistryLink::open(backup.get(), kCopy, KEY_READ, copy);
    if (code == ERROR_SUCCESS)
      code = RegistryTree::copyTree(copy.get(), store.get(), nullptr, skipped);
  }
  if (code != ERROR_SUCCESS) {
    error = status(("could not put the store HKLM\\" + store_ + " back").c_str(), code);
    return false;
  }
  // The records key, made anew by the copy, gets its own security back first, so that the
  // store's walk below finds it the program's and leaves it so; then a store whose DACL differs
  // from what a new key gets (a locked one) is given its own again.
  const std::string records = existed != 0 ? text(backup.get(), kRecords) : "";
  if (!records.empty() && !StoreSecurity::applyToKey(recordsKey(store_), records)) {
    error = "could not give HKLM\\" + recordsKey(store_) + " back its security " + records;
    return false;
  }
  StoreSecurity::Notes notes;
  if (existed != 0 && !saved.empty() && StoreSecurity::describe(store_, false) != saved &&
      !StoreSecurity::applyToStore(store_, saved, notes)) {
    error = "could not give the store HKLM\\" + store_ + " back its DACL " + saved;
    for (const std::string& line : notes.failed)
      error += "; " + line;
    return false;
  }
  return discard(error);
}

bool StoreBackup::discard(std::string& error) const {
  const LONG code = RegistryTree::deleteTree(backup_);
  if (code != ERROR_SUCCESS)
    error = status(("could not delete the backup HKLM\\" + backup_).c_str(), code);
  return code == ERROR_SUCCESS;
}
