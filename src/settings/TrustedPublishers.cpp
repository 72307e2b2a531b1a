#include "settings/TrustedPublishers.h"

#include <windows.h>

#include <aclapi.h>

#include <algorithm>
#include <cctype>
#include <cstring>

#include "settings/Policy.h"
#include "settings/SettingsKeys.h"
#include "system/FileSignature.h"
#include "system/Localize.h"
#include "system/UniqueHandle.h"
#include "system/WriteAccess.h"

namespace {

std::string lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  });
  return text;
}

// Who besides SYSTEM, the administrators, TrustedInstaller and this process's account can change
// `key`: "" when no one, else a SID ("unknown" when its security cannot be read).
std::string whoElseCanChange(HKEY key) {
  ScopedLocal descriptor;
  std::vector<BYTE> account = WriteAccess::processAccount();
  if (account.empty() ||
      GetSecurityInfo(key, SE_REGISTRY_KEY, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                      nullptr, nullptr, nullptr, nullptr, descriptor.receive()) != ERROR_SUCCESS)
    return "unknown";
  return WriteAccess::whoElseCanWrite(descriptor.get(), account.data(), WriteAccess::kKeyRights);
}

// The strings of the REG_MULTI_SZ `name` of `key`; false when there is no such value of that type.
bool readMultiString(HKEY key, const char* name, std::vector<std::string>& items) {
  DWORD type = 0;
  DWORD size = 0;
  if (RegQueryValueExA(key, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
      type != REG_MULTI_SZ)
    return false;
  // Room for the terminators a writer may have left out.
  std::vector<char> data(size_t{size} + 2, '\0');
  if (RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(data.data()), &size) !=
          ERROR_SUCCESS ||
      type != REG_MULTI_SZ)
    return false;
  for (const char* item = data.data(); *item != '\0'; item += strlen(item) + 1)
    items.emplace_back(item);
  return true;
}

}  // namespace

TrustedPublishers::TrustedPublishers(const std::string& builtIn) {
  for (size_t start = 0; start < builtIn.size();) {
    size_t end = builtIn.find(';', start);
    if (end == std::string::npos)
      end = builtIn.size();
    // The build checks its list; an entry that is no hash cannot come from there.
    const std::string hash = builtIn.substr(start, end - start);
    if (isPublisherHash(hash))
      add(hash);
    start = end + 1;
  }
  std::vector<std::string> policy;
  if (Policy().read(SettingsKeys::kUpdaterSection, SettingsKeys::kTrustedPublishers, policy)) {
    for (const std::string& hash : policy)
      add(hash);
  }
  readStore();
}

void TrustedPublishers::add(const std::string& hash) {
  const std::string key = lowered(hash);
  if (std::find(hashes_.begin(), hashes_.end(), key) == hashes_.end())
    hashes_.push_back(key);
}

bool TrustedPublishers::contains(const std::string& keyHash) const {
  return std::find(hashes_.begin(), hashes_.end(), lowered(keyHash)) != hashes_.end();
}

void TrustedPublishers::readStore() {
  const std::string root = Localize::getInstance()->getRegistryPath(Localize::kLocalPath);
  ScopedKey store, section;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, root.c_str(), 0, READ_CONTROL, store.receive()) !=
          ERROR_SUCCESS ||
      RegOpenKeyExA(HKEY_LOCAL_MACHINE, (root + SettingsKeys::kUpdaterSection).c_str(), 0,
                    KEY_QUERY_VALUE | READ_CONTROL, section.receive()) != ERROR_SUCCESS)
    return;
  std::vector<std::string> entries;
  if (!readMultiString(section.get(), SettingsKeys::kTrustedPublishers, entries) || entries.empty())
    return;
  // The section's key holds the value; the store's key is what a deployer locks.
  for (HKEY key : {store.get(), section.get()}) {
    const std::string other = whoElseCanChange(key);
    if (!other.empty()) {
      problems_.push_back("the store's TrustedPublishers is ignored: its key can be changed by " +
                          other);
      return;
    }
  }
  for (const std::string& entry : entries) {
    if (isPublisherHash(entry))
      add(entry);
    else
      problems_.push_back("the store's TrustedPublishers entry '" + entry +
                          "' is ignored: it is not a SHA-256 hash (64 hexadecimal characters)");
  }
}
