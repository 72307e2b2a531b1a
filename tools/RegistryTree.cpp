#include "RegistryTree.h"

#include "WideText.h"
#include "settings/RegistryLink.h"

namespace {

// Copies the values of `source` into `destination`, REG_LINK values left out.
LONG copyValues(HKEY source, HKEY destination) {
  DWORD nameLength = 0, dataSize = 0;
  LONG status = RegQueryInfoKeyW(source, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, &nameLength, &dataSize, nullptr, nullptr);
  std::vector<wchar_t> name(nameLength + 1);
  std::vector<BYTE> data(dataSize + 1);
  for (DWORD index = 0; status == ERROR_SUCCESS; ++index) {
    DWORD length = static_cast<DWORD>(name.size()), size = static_cast<DWORD>(data.size());
    DWORD type = REG_NONE;
    status = RegEnumValueW(source, index, name.data(), &length, nullptr, &type, data.data(), &size);
    if (status == ERROR_NO_MORE_ITEMS)
      return ERROR_SUCCESS;
    if (status == ERROR_SUCCESS && type != REG_LINK)
      status = RegSetValueExW(destination, name.data(), 0, type, data.data(), size);
  }
  return status;
}

LONG copyBelow(HKEY source,
               HKEY destination,
               PSECURITY_DESCRIPTOR security,
               const std::string& path,
               std::vector<std::string>& skipped) {
  LONG status = copyValues(source, destination);
  for (const std::wstring& name : RegistryLink::childNames(source)) {
    if (status != ERROR_SUCCESS)
      break;
    const std::string childPath = path + (path.empty() ? "" : "\\") + narrow(name);
    ScopedKey from, to;
    status = RegistryLink::openChild(source, name, KEY_READ, from);
    if (status == ERROR_SUCCESS && RegistryLink::isLink(from.get())) {
      skipped.push_back(childPath);
      continue;
    }
    DWORD disposition = 0;
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), security, FALSE};
    if (status == ERROR_SUCCESS)
      status =
          RegCreateKeyExW(destination, name.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                          security != nullptr ? &attributes : nullptr, to.receive(), &disposition);
    if (status == ERROR_SUCCESS && disposition != REG_CREATED_NEW_KEY)
      status = ERROR_ALREADY_EXISTS;  // Put there by someone else: maybe a link.
    // Set once more: Wine's registry drops a descriptor given when a key is made.
    if (status == ERROR_SUCCESS && security != nullptr)
      status = RegSetKeySecurity(to.get(), DACL_SECURITY_INFORMATION, security);
    if (status == ERROR_SUCCESS)
      status = copyBelow(from.get(), to.get(), security, childPath, skipped);
  }
  return status;
}

}  // namespace

LONG RegistryTree::deleteTree(HKEY key) {
  if (!RegistryLink::isLink(key)) {
    for (const std::wstring& name : RegistryLink::childNames(key)) {
      ScopedKey child;
      LONG status = RegistryLink::openChild(key, name, KEY_ALL_ACCESS, child);
      if (status == ERROR_SUCCESS)
        status = deleteTree(child.get());
      if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND)
        return status;
    }
  }
  return RegistryLink::deleteKey(key);
}

LONG RegistryTree::deleteTree(const std::string& path) {
  ScopedKey key;
  const LONG status = RegistryLink::openEach(HKEY_LOCAL_MACHINE, path, KEY_ALL_ACCESS, key);
  if (status == ERROR_FILE_NOT_FOUND)
    return ERROR_SUCCESS;
  return status == ERROR_SUCCESS ? deleteTree(key.get()) : status;
}

LONG RegistryTree::createPath(const std::string& path,
                              SECURITY_ATTRIBUTES* security,
                              ScopedKey& key,
                              bool& created) {
  ScopedKey parent;
  HKEY at = HKEY_LOCAL_MACHINE;
  created = false;
  std::string::size_type start = 0;
  while (start < path.size()) {
    std::string::size_type end = path.find('\\', start);
    if (end == std::string::npos)
      end = path.size();
    const std::wstring name = widen(path.substr(start, end - start));
    start = end + 1;
    if (name.empty())
      continue;
    ScopedKey next;
    LONG status = RegistryLink::openChild(at, name, KEY_ALL_ACCESS, next);
    created = status == ERROR_FILE_NOT_FOUND;
    if (created) {
      DWORD disposition = 0;
      status = RegCreateKeyExW(at, name.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, security,
                               next.receive(), &disposition);
      // Made by someone else since it was missing: it is judged as it is, opened as itself.
      if (status == ERROR_SUCCESS && disposition != REG_CREATED_NEW_KEY) {
        created = false;
        status = RegistryLink::openChild(at, name, KEY_ALL_ACCESS, next);
      }
    }
    if (status != ERROR_SUCCESS)
      return status;
    if (!created && RegistryLink::isLink(next.get()))
      return RegistryLink::kStoppedOnLink;
    parent = std::move(next);
    at = parent.get();
  }
  if (at == HKEY_LOCAL_MACHINE)
    return ERROR_INVALID_PARAMETER;
  key = std::move(parent);
  return ERROR_SUCCESS;
}

LONG RegistryTree::copyTree(HKEY source,
                            HKEY destination,
                            PSECURITY_DESCRIPTOR security,
                            std::vector<std::string>& skipped) {
  return copyBelow(source, destination, security, std::string(), skipped);
}
