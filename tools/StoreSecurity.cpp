#include "StoreSecurity.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <list>

#include "settings/SettingsKeys.h"
#include "system/UniqueHandle.h"
#include "system/WriteAccess.h"

namespace {

// Sets what `descriptor` holds on the key `path`, and on the keys below it unless `records` is
// empty, skipping the subkey named `records`.
bool setKey(const std::string& path, PSECURITY_DESCRIPTOR descriptor, const char* records) {
  PSID owner = nullptr;
  PACL dacl = nullptr;
  BOOL present = FALSE, defaulted = FALSE;
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  ScopedKey key;
  if (!GetSecurityDescriptorOwner(descriptor, &owner, &defaulted) ||
      !GetSecurityDescriptorDacl(descriptor, &present, &dacl, &defaulted) ||
      !GetSecurityDescriptorControl(descriptor, &control, &revision) ||
      RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_ALL_ACCESS, key.receive()) !=
          ERROR_SUCCESS)
    return false;
  const SECURITY_INFORMATION what =
      DACL_SECURITY_INFORMATION | (owner != nullptr ? OWNER_SECURITY_INFORMATION : 0) |
      ((control & SE_DACL_PROTECTED) != 0 ? PROTECTED_DACL_SECURITY_INFORMATION
                                          : UNPROTECTED_DACL_SECURITY_INFORMATION);
  bool complete = SetSecurityInfo(key.get(), SE_REGISTRY_KEY, what, owner, nullptr, dacl,
                                  nullptr) == ERROR_SUCCESS;
  if (records == nullptr)
    return complete;
  std::list<std::string> children;
  char name[256];
  for (DWORD i = 0, size = sizeof(name); RegEnumKeyExA(key.get(), i, name, &size, nullptr, nullptr,
                                                       nullptr, nullptr) == ERROR_SUCCESS;
       ++i, size = sizeof(name)) {
    if (_stricmp(name, records) != 0)
      children.push_back(name);
  }
  // Below the store, every key is set, whatever its name.
  for (const std::string& child : children)
    complete = setKey(path + "\\" + child, descriptor, "") && complete;
  return complete;
}

bool apply(const std::string& path, const std::string& sddl, const char* records) {
  ScopedLocal descriptor;
  return ConvertStringSecurityDescriptorToSecurityDescriptorA(sddl.c_str(), SDDL_REVISION_1,
                                                              descriptor.receive(), nullptr) &&
         setKey(path, descriptor.get(), records);
}

}  // namespace

bool StoreSecurity::applyToStore(const std::string& store, const std::string& sddl) {
  return apply(store, sddl, SettingsKeys::kRecordsKey);
}

bool StoreSecurity::applyToKey(const std::string& path, const std::string& sddl) {
  return apply(path, sddl, nullptr);
}

std::string StoreSecurity::describe(const std::string& path, bool owner) {
  const SECURITY_INFORMATION what =
      DACL_SECURITY_INFORMATION | (owner ? OWNER_SECURITY_INFORMATION : 0);
  ScopedKey key;
  ScopedLocal descriptor, text;
  char* sddl = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, READ_CONTROL, key.receive()) !=
          ERROR_SUCCESS ||
      GetSecurityInfo(key.get(), SE_REGISTRY_KEY, what, nullptr, nullptr, nullptr, nullptr,
                      descriptor.receive()) != ERROR_SUCCESS ||
      !ConvertSecurityDescriptorToStringSecurityDescriptorA(descriptor.get(), SDDL_REVISION_1, what,
                                                            &sddl, nullptr))
    return std::string();
  text.reset(sddl);
  return sddl;
}

bool StoreSecurity::isLocked(const std::string& store) {
  ScopedKey key;
  ScopedLocal descriptor;
  std::vector<BYTE> account = WriteAccess::processAccount();
  return RegOpenKeyExA(HKEY_LOCAL_MACHINE, store.c_str(), 0, READ_CONTROL, key.receive()) ==
             ERROR_SUCCESS &&
         GetSecurityInfo(key.get(), SE_REGISTRY_KEY,
                         OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, nullptr, nullptr,
                         nullptr, nullptr, descriptor.receive()) == ERROR_SUCCESS &&
         !account.empty() &&
         WriteAccess::whoElseCanWrite(descriptor.get(), account.data(), WriteAccess::kKeyRights)
             .empty();
}
