#include "settings/RunRecord.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <cstring>
#include <utility>
#include <vector>

#include "logging/BasicLogger.h"
#include "settings/SettingsKeys.h"
#include "system/Exception.h"
#include "system/Localize.h"
#include "system/MachineMutex.h"
#include "system/UniqueHandle.h"
#include "system/Win32Exception.h"

namespace {

// How long hold() waits for another holder (a run that is recovering the note), unless set.
const DWORD kHoldWaitMs = 10000;
DWORD g_holdWaitMs = kHoldWaitMs;

// The records' own key: owned by the administrators; SYSTEM and administrators may do anything,
// users may read.
const char kRecordsKeyDacl[] = "O:BAD:P(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;BU)";
// Rights that change a key's values, subkeys or security.
const ACCESS_MASK kWriteRights = KEY_SET_VALUE | KEY_CREATE_SUB_KEY | KEY_CREATE_LINK | DELETE |
                                 WRITE_DAC | WRITE_OWNER | GENERIC_WRITE | GENERIC_ALL;

std::string storePath() {
  const std::string root = Localize::getInstance()->getRegistryPath(Localize::kLocalPath);
  return root.substr(0, root.size() - 1);
}

// Where earlier releases kept the records, in the store that users may write.
std::string earlierPath() {
  return storePath() + "\\" + SettingsKeys::kUpdaterSection;
}

ScopedKey openKey(const std::string& path) {
  ScopedKey key;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_ALL_ACCESS, key.receive()) !=
      ERROR_SUCCESS)
    key.reset();
  return key;
}

bool isAdministratorsOrSystem(PSID sid) {
  return IsWellKnownSid(sid, WinLocalSystemSid) || IsWellKnownSid(sid, WinBuiltinAdministratorsSid);
}

// Whether only SYSTEM and administrators can change `key`: owned by one of them, and no entry of
// its DACL that applies to the key itself gives anyone else a right to write.
bool onlyAdministratorsCanWrite(HKEY key) {
  PSID owner = nullptr;
  PACL dacl = nullptr;
  ScopedLocal descriptor;
  if (GetSecurityInfo(key, SE_REGISTRY_KEY, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                      &owner, nullptr, &dacl, nullptr, descriptor.receive()) != ERROR_SUCCESS ||
      owner == nullptr || dacl == nullptr || !isAdministratorsOrSystem(owner))
    return false;
  for (DWORD index = 0; index < dacl->AceCount; ++index) {
    void* entry = nullptr;
    if (!GetAce(dacl, index, &entry))
      return false;
    const ACE_HEADER* header = static_cast<const ACE_HEADER*>(entry);
    if (header->AceType == ACCESS_DENIED_ACE_TYPE || (header->AceFlags & INHERIT_ONLY_ACE) != 0)
      continue;
    if (header->AceType != ACCESS_ALLOWED_ACE_TYPE)
      return false;  // A kind of grant this check does not read.
    ACCESS_ALLOWED_ACE* allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    if ((allowed->Mask & kWriteRights) != 0 && !isAdministratorsOrSystem(&allowed->SidStart))
      return false;
  }
  return true;
}

std::list<std::string> readValue(HKEY key, const std::string& name) {
  std::list<std::string> items;
  DWORD type = 0;
  DWORD size = 0;
  LONG status = RegQueryValueExA(key, name.c_str(), nullptr, &type, nullptr, &size);
  if (status != ERROR_SUCCESS || type != REG_MULTI_SZ)
    return items;
  // Room for the terminators a writer may have left out.
  std::vector<char> data(size_t{size} + 2, '\0');
  status = RegQueryValueExA(key, name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(data.data()),
                            &size);
  if (status != ERROR_SUCCESS || type != REG_MULTI_SZ)
    return items;
  for (const char* item = data.data(); *item != '\0'; item += strlen(item) + 1)
    items.push_back(item);
  return items;
}

}  // namespace

RunRecord::RunRecord(std::string name, std::string owner)
    : name_(std::move(name)), owner_(std::move(owner)) {}

RunRecord::~RunRecord() {
  if (!held_)
    return;
  try {
    mutex_->release();
  } catch (const Exception&) {
    // The mutex is abandoned when this process ends, which tells a later run the same.
  }
}

void RunRecord::setHoldWait(unsigned long waitMs) {
  g_holdWaitMs = waitMs != 0 ? waitMs : kHoldWaitMs;
}

std::string RunRecord::mutexName() const {
  return machineMutexName(name_);
}

bool RunRecord::acquire(unsigned long waitMs, std::string& error) {
  try {
    mutex_ = createMachineMutex(name_);
    held_ = waitMs == 0 ? mutex_->tryAcquire() : mutex_->acquire(waitMs);
  } catch (const Exception& e) {
    error = e.toString();
  }
  return held_;
}

bool RunRecord::hold() {
  failure_.clear();
  std::string error;
  if (held_ || acquire(g_holdWaitMs, error))
    return true;
  const std::string why =
      "the mutex '" + mutexName() +
      (error.empty() ? "' is held by another process" : "' could not be made: " + error);
  failure_ = owner_ + ": " + why;
  logFailure(why + "; this run abandons its installation");
  return false;
}

bool RunRecord::takeOver() {
  // A live owner holds the mutex for as long as its note may change; one that cannot be made
  // leaves the owner unknown, and the note alone.
  std::string error;
  return held_ || acquire(0, error);
}

bool RunRecord::write(const std::list<std::string>& items) {
  std::string data;
  for (const std::string& item : items)
    data += item + '\0';
  data += '\0';
  const ScopedKey store = openKey(storePath());
  if (!store.valid()) {
    logFailure("not recorded: the store cannot be opened");
    return false;
  }
  ScopedLocal descriptor;
  SECURITY_ATTRIBUTES attributes = {sizeof(attributes), nullptr, FALSE};
  PSID owner = nullptr;
  PACL dacl = nullptr;
  BOOL present = FALSE, defaulted = FALSE;
  if (ConvertStringSecurityDescriptorToSecurityDescriptorA(kRecordsKeyDacl, SDDL_REVISION_1,
                                                           descriptor.receive(), nullptr)) {
    attributes.lpSecurityDescriptor = descriptor.get();
    GetSecurityDescriptorOwner(descriptor.get(), &owner, &defaulted);
    GetSecurityDescriptorDacl(descriptor.get(), &present, &dacl, &defaulted);
  }
  ScopedKey key;
  DWORD disposition = 0;
  LONG status = RegCreateKeyExA(store.get(), SettingsKeys::kRecordsKey, 0, nullptr, 0,
                                KEY_ALL_ACCESS, &attributes, key.receive(), &disposition);
  // Wine creates the key without the attributes' descriptor: the DACL is set once more.
  if (status == ERROR_SUCCESS && disposition == REG_CREATED_NEW_KEY && dacl != nullptr)
    status =
        static_cast<LONG>(SetSecurityInfo(key.get(), SE_REGISTRY_KEY,
                                          OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION |
                                              PROTECTED_DACL_SECURITY_INFORMATION,
                                          owner, nullptr, dacl, nullptr));
  if (status != ERROR_SUCCESS) {
    logFailure("not recorded: the record's key cannot be made, status=" + std::to_string(status));
    return false;
  }
  if (!onlyAdministratorsCanWrite(key.get())) {
    logFailure("not recorded: the record's key is writable by users");
    return false;
  }
  status =
      RegSetValueExA(key.get(), name_.c_str(), 0, REG_MULTI_SZ,
                     reinterpret_cast<const BYTE*>(data.data()), static_cast<DWORD>(data.size()));
  if (status == ERROR_SUCCESS)
    status = RegFlushKey(key.get());  // Survives a power cut too, not only a kill.
  if (status == ERROR_SUCCESS) {
    deleteValue(earlierPath(), false);  // This note replaces an earlier release's.
    return true;
  }
  logFailure("not recorded: RegSetValueExA failed, status=" + std::to_string(status));
  return false;
}

void RunRecord::deleteValue(const std::string& path, bool dropUntrustedKey) const {
  const ScopedKey key = openKey(path);
  if (!key.valid())
    return;
  const LONG status = RegDeleteValueA(key.get(), name_.c_str());
  if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND)
    logFailure("the record could not be deleted, status=" + std::to_string(status));
  // A records key that others may write is deleted once empty, so that the next write makes it
  // anew with the records' DACL.
  DWORD subkeys = 0, values = 0;
  if (dropUntrustedKey && !onlyAdministratorsCanWrite(key.get()) &&
      RegQueryInfoKeyA(key.get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values,
                       nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS &&
      subkeys == 0 && values == 0)
    RegDeleteKeyA(HKEY_LOCAL_MACHINE, path.c_str());
}

void RunRecord::release() {
  if (!held_)
    return;
  deleteValue(storePath() + "\\" + SettingsKeys::kRecordsKey, true);
  deleteValue(earlierPath(), false);
  held_ = false;
  try {
    mutex_->release();
  } catch (const Exception& e) {
    logFailure(e.toString());
  }
}

std::list<std::string> RunRecord::read(std::list<std::string>* untrusted) const {
  std::list<std::string> items;
  std::list<std::string> doubtful;
  const ScopedKey key = openKey(storePath() + "\\" + SettingsKeys::kRecordsKey);
  if (key.valid()) {
    items = readValue(key.get(), name_);
    if (!items.empty() && !onlyAdministratorsCanWrite(key.get()))
      doubtful.swap(items);
  }
  const ScopedKey earlier = openKey(earlierPath());
  if (earlier.valid())
    doubtful.splice(doubtful.end(), readValue(earlier.get(), name_));
  if (untrusted != nullptr)
    untrusted->swap(doubtful);
  else
    items.splice(items.end(), doubtful);
  return items;
}

void RunRecord::logFailure(const std::string& text) const {
  BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS, owner_ + ": " + text);
}
