#include "StoreBackup.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <list>

namespace {

// The backup's values beside its copy of the store (subkey kCopy).
const char kCopy[] = "Store";
const char kExisted[] = "StoreExisted";     // REG_DWORD 1 or 0: written last
const char kCreated[] = "FirstKeyCreated";  // the topmost key an install creates
const char kSecurity[] = "StoreSecurity";   // the store's DACL, SDDL

class Key {
 public:
  Key() = default;
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  ~Key() {
    if (key_ != nullptr)
      RegCloseKey(key_);
  }
  HKEY* receive() { return &key_; }
  HKEY get() const { return key_; }

 private:
  HKEY key_ = nullptr;
};

std::string status(const char* what, LONG code) {
  return std::string(what) + " (status " + std::to_string(code) + ")";
}

bool exists(const std::string& path) {
  Key key;
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

std::string dacl(const std::string& path) {
  Key key;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  std::string text;
  char* sddl = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, READ_CONTROL, key.receive()) ==
          ERROR_SUCCESS &&
      GetSecurityInfo(key.get(), SE_REGISTRY_KEY, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                      nullptr, nullptr, &descriptor) == ERROR_SUCCESS &&
      ConvertSecurityDescriptorToStringSecurityDescriptorA(
          descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &sddl, nullptr)) {
    text = sddl;
    LocalFree(sddl);
  }
  if (descriptor != nullptr)
    LocalFree(descriptor);
  return text;
}

// Gives `path` and every key below it the DACL of `sddl`.
bool setDacl(const std::string& path, PSECURITY_DESCRIPTOR descriptor) {
  Key key;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_ALL_ACCESS, key.receive()) !=
          ERROR_SUCCESS ||
      RegSetKeySecurity(key.get(), DACL_SECURITY_INFORMATION, descriptor) != ERROR_SUCCESS)
    return false;
  std::list<std::string> children;
  char name[256];
  for (DWORD i = 0, size = sizeof(name); RegEnumKeyExA(key.get(), i, name, &size, nullptr, nullptr,
                                                       nullptr, nullptr) == ERROR_SUCCESS;
       ++i, size = sizeof(name))
    children.push_back(name);
  bool complete = true;
  for (const std::string& child : children)
    complete = setDacl(path + "\\" + child, descriptor) && complete;
  return complete;
}

}  // namespace

bool StoreBackup::save(std::string& error) const {
  LONG code = deleteTree(backup_);
  Key backup;
  if (code == ERROR_SUCCESS)
    code = RegCreateKeyExA(HKEY_LOCAL_MACHINE, backup_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                           nullptr, backup.receive(), nullptr);
  if (code != ERROR_SUCCESS) {
    error = status(("could not make the backup key HKLM\\" + backup_).c_str(), code);
    return false;
  }
  const DWORD existed = exists(store_) ? 1 : 0;
  if (existed != 0) {
    Key store, copy;
    const std::string security = dacl(store_);
    code = RegOpenKeyExA(HKEY_LOCAL_MACHINE, store_.c_str(), 0, KEY_READ, store.receive());
    if (code == ERROR_SUCCESS)
      code = RegCreateKeyExA(backup.get(), kCopy, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                             copy.receive(), nullptr);
    if (code == ERROR_SUCCESS)
      code = RegCopyTreeA(store.get(), nullptr, copy.get());
    if (code == ERROR_SUCCESS)
      code = RegSetValueExA(backup.get(), kSecurity, 0, REG_SZ,
                            reinterpret_cast<const BYTE*>(security.c_str()),
                            static_cast<DWORD>(security.size() + 1));
  } else {
    const std::string created = firstMissing(store_);
    code = RegSetValueExA(backup.get(), kCreated, 0, REG_SZ,
                          reinterpret_cast<const BYTE*>(created.c_str()),
                          static_cast<DWORD>(created.size() + 1));
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
  Key backup;
  DWORD existed = 0, size = sizeof(existed);
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, backup_.c_str(), 0, KEY_READ, backup.receive()) !=
          ERROR_SUCCESS ||
      RegQueryValueExA(backup.get(), kExisted, nullptr, nullptr, reinterpret_cast<BYTE*>(&existed),
                       &size) != ERROR_SUCCESS)
    return true;  // Nothing was saved: the install had not reached the store.
  char text[4096] = {};
  DWORD textSize = sizeof(text) - 1;
  const LONG read = RegQueryValueExA(backup.get(), existed != 0 ? kSecurity : kCreated, nullptr,
                                     nullptr, reinterpret_cast<BYTE*>(text), &textSize);
  const std::string saved = read == ERROR_SUCCESS ? text : "";
  LONG code = deleteTree(existed != 0 || saved.empty() ? store_ : saved);
  if (code == ERROR_SUCCESS && existed != 0) {
    Key store, copy;
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
  // A store whose DACL differs from what a new key gets (a locked one) is given its own again.
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (existed != 0 && !saved.empty() && dacl(store_) != saved) {
    const bool converted = ConvertStringSecurityDescriptorToSecurityDescriptorA(
        saved.c_str(), SDDL_REVISION_1, &descriptor, nullptr);
    const bool set = converted && setDacl(store_, descriptor);
    if (descriptor != nullptr)
      LocalFree(descriptor);
    if (!set) {
      error = "could not give the store HKLM\\" + store_ + " back its DACL " + saved;
      return false;
    }
  }
  return discard(error);
}

bool StoreBackup::discard(std::string& error) const {
  const LONG code = deleteTree(backup_);
  if (code != ERROR_SUCCESS)
    error = status(("could not delete the backup HKLM\\" + backup_).c_str(), code);
  return code == ERROR_SUCCESS;
}
