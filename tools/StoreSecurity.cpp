#include "StoreSecurity.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include "RegistryTree.h"
#include "WideText.h"
#include "settings/RegistryLink.h"
#include "settings/SettingsKeys.h"
#include "system/UniqueHandle.h"
#include "system/WriteAccess.h"

namespace {

std::string hklm(const std::string& path) {
  return "HKLM\\" + path;
}

bool isRecords(const std::wstring& name) {
  return _stricmp(narrow(name).c_str(), SettingsKeys::kRecordsKey) == 0;
}

// The open key's owner and DACL, as GetSecurityInfo hands them out; nothing when unreadable.
ScopedLocal securityOf(HKEY key) {
  ScopedLocal descriptor;
  if (GetSecurityInfo(key, SE_REGISTRY_KEY, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                      nullptr, nullptr, nullptr, nullptr, descriptor.receive()) != ERROR_SUCCESS)
    descriptor.reset();
  return descriptor;
}

// "" when only SYSTEM, administrators, TrustedInstaller and `account` (null: none) can change
// the key; otherwise the first other account that can.
std::string whoElseCanChange(HKEY key, PSID account) {
  const ScopedLocal descriptor = securityOf(key);
  return descriptor.valid()
             ? WriteAccess::whoElseCanWrite(descriptor.get(), account, WriteAccess::kKeyRights)
             : "unknown";
}

// What RegSetKeySecurity sets from `descriptor`: its DACL, and its owner when it names one. It
// takes the DACL's protected flag from the descriptor's control and, unlike SetSecurityInfo, passes
// nothing down to the keys below (a walk sets each).
SECURITY_INFORMATION whatOf(PSECURITY_DESCRIPTOR descriptor) {
  PSID owner = nullptr;
  BOOL defaulted = FALSE;
  return DACL_SECURITY_INFORMATION |
         (GetSecurityDescriptorOwner(descriptor, &owner, &defaulted) && owner != nullptr
              ? OWNER_SECURITY_INFORMATION
              : 0);
}

// One walk that gives a security descriptor to a store's keys.
class Walk {
 public:
  Walk(PSECURITY_DESCRIPTOR descriptor, StoreSecurity::Notes& notes)
      : descriptor_(descriptor), what_(whatOf(descriptor)), notes_(notes) {}

  // Sets the store's key, opened as `key`, and every key below it.
  bool store(HKEY key, const std::string& path) {
    set(key, path, true);
    return complete_;
  }

  // The store's key, or one below it, when it is a link: deleted as the link.
  void deleteLink(HKEY key, const std::string& path) {
    const std::string target = RegistryLink::target(key);
    deleted(path, RegistryLink::deleteKey(key), "a registry link to " + target);
  }

  void failed(const std::string& path, LONG status) {
    notes_.failed.push_back(hklm(path) + ": status " + std::to_string(status));
    complete_ = false;
  }

 private:
  void deleted(const std::string& path, LONG status, const std::string& what) {
    if (status == ERROR_SUCCESS)
      notes_.deleted.push_back("Deleted " + hklm(path) + ": " + what);
    else
      failed(path, status);
  }

  void set(HKEY key, const std::string& path, bool isStore) {
    const LONG status = RegSetKeySecurity(key, what_, descriptor_);
    if (status != ERROR_SUCCESS)
      failed(path, status);
    else
      below(key, path, isStore);
  }

  // The keys below `key`, each opened as itself. Below a key already set, no one else can add
  // one; one may only go meanwhile.
  void below(HKEY key, const std::string& path, bool isStore) {
    for (const std::wstring& name : RegistryLink::childNames(key)) {
      const std::string child = path + "\\" + narrow(name);
      ScopedKey opened;
      const LONG status = RegistryLink::openChild(key, name, KEY_ALL_ACCESS, opened);
      if (status == ERROR_FILE_NOT_FOUND)
        continue;
      if (status != ERROR_SUCCESS) {
        failed(child, status);
      } else if (RegistryLink::isLink(opened.get())) {
        deleteLink(opened.get(), child);
      } else if (!isStore || !isRecords(name)) {
        set(opened.get(), child, false);
      } else {
        // The program's records keep their own security; records anyone else may change are
        // trusted by no run.
        const std::string who = whoElseCanChange(opened.get(), nullptr);
        if (who.empty())
          below(opened.get(), child, false);
        else
          deleted(child, RegistryTree::deleteTree(opened.get()),
                  "records that " + who + " can change, which no run trusts");
      }
    }
  }

  PSECURITY_DESCRIPTOR descriptor_;
  SECURITY_INFORMATION what_;
  StoreSecurity::Notes& notes_;
  bool complete_ = true;
};

ScopedLocal descriptorOf(const std::string& sddl) {
  ScopedLocal descriptor;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(sddl.c_str(), SDDL_REVISION_1,
                                                            descriptor.receive(), nullptr))
    descriptor.reset();
  return descriptor;
}

}  // namespace

bool StoreSecurity::applyToStore(const std::string& store, const std::string& sddl, Notes& notes) {
  const ScopedLocal descriptor = descriptorOf(sddl);
  if (!descriptor.valid()) {
    notes.failed.push_back("the security descriptor " + sddl + " cannot be read");
    return false;
  }
  Walk walk(descriptor.get(), notes);
  ScopedKey key;
  const LONG status = RegistryLink::openEach(HKEY_LOCAL_MACHINE, store, KEY_ALL_ACCESS, key);
  if (status != ERROR_SUCCESS) {
    walk.failed(store, status);
    return false;
  }
  if (RegistryLink::isLink(key.get())) {
    walk.deleteLink(key.get(), store);
    return false;  // There is no store now.
  }
  return walk.store(key.get(), store);
}

bool StoreSecurity::makeStore(const std::string& store, const std::string& sddl, Notes& notes) {
  ScopedKey key;
  if (RegistryLink::openEach(HKEY_LOCAL_MACHINE, store, KEY_ALL_ACCESS, key) == ERROR_SUCCESS &&
      RegistryLink::isLink(key.get()))
    applyToStore(store, sddl, notes);  // Deletes the link, and makes no store.
  bool created = false;
  const LONG status = RegistryTree::createPath(store, nullptr, key, created);
  key.reset();
  if (status != ERROR_SUCCESS) {
    notes.failed.push_back(hklm(store) + ": status " + std::to_string(status));
    return false;
  }
  return applyToStore(store, sddl, notes);
}

bool StoreSecurity::applyToKey(const std::string& path, const std::string& sddl) {
  const ScopedLocal descriptor = descriptorOf(sddl);
  ScopedKey key;
  return descriptor.valid() &&
         RegistryLink::openEach(HKEY_LOCAL_MACHINE, path, KEY_ALL_ACCESS, key) == ERROR_SUCCESS &&
         !RegistryLink::isLink(key.get()) &&
         RegSetKeySecurity(key.get(), whatOf(descriptor.get()), descriptor.get()) == ERROR_SUCCESS;
}

std::string StoreSecurity::describe(const std::string& path, bool owner) {
  const SECURITY_INFORMATION what =
      DACL_SECURITY_INFORMATION | (owner ? OWNER_SECURITY_INFORMATION : 0);
  ScopedKey key;
  ScopedLocal descriptor, text;
  char* sddl = nullptr;
  if (RegistryLink::open(HKEY_LOCAL_MACHINE, path, READ_CONTROL, key) != ERROR_SUCCESS ||
      GetSecurityInfo(key.get(), SE_REGISTRY_KEY, what, nullptr, nullptr, nullptr, nullptr,
                      descriptor.receive()) != ERROR_SUCCESS ||
      !ConvertSecurityDescriptorToStringSecurityDescriptorA(descriptor.get(), SDDL_REVISION_1, what,
                                                            &sddl, nullptr))
    return std::string();
  text.reset(sddl);
  return sddl;
}

namespace {

// Why the key opened as `key` at `path`, or one below it, is not locked; "" when all are.
std::string whyNotLockedBelow(HKEY key, const std::string& path, PSID account) {
  if (RegistryLink::isLink(key))
    return hklm(path) + " is a registry link";
  const std::string who = whoElseCanChange(key, account);
  if (!who.empty())
    return hklm(path) + ": " + who + " can change it";
  for (const std::wstring& name : RegistryLink::childNames(key)) {
    ScopedKey child;
    const LONG status = RegistryLink::openChild(key, name, KEY_READ, child);
    const std::string childPath = path + "\\" + narrow(name);
    const std::string why =
        status == ERROR_SUCCESS
            ? whyNotLockedBelow(child.get(), childPath, account)
            : hklm(childPath) + " cannot be read (status " + std::to_string(status) + ")";
    if (!why.empty())
      return why;
  }
  return std::string();
}

}  // namespace

std::string StoreSecurity::whyNotLocked(const std::string& store) {
  std::vector<BYTE> account = WriteAccess::processAccount();
  ScopedKey key;
  const LONG status = RegistryLink::openEach(HKEY_LOCAL_MACHINE, store, KEY_READ, key);
  if (status == RegistryLink::kStoppedOnLink)
    return "a key on the path of " + hklm(store) + " is a registry link";
  if (status != ERROR_SUCCESS)
    return "there is no store " + hklm(store) + " (status " + std::to_string(status) + ")";
  if (account.empty())
    return "this process's account cannot be read";
  return whyNotLockedBelow(key.get(), store, account.data());
}
