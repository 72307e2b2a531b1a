#include "settings/RegistryLink.h"

#include <winternl.h>

// The registry's own deletion of the key behind a handle (ntdll). RegDeleteKey takes a name and
// opens it again without REG_OPTION_OPEN_LINK, which would delete a link's target instead.
extern "C" NTSTATUS NTAPI NtDeleteKey(HANDLE key);

namespace {

const wchar_t kLinkValue[] = L"SymbolicLinkValue";
// A key name has at most 255 characters.
const DWORD kNameLength = 256;

// `text` read in the system's code page.
std::wstring wide(const std::string& text) {
  if (text.empty())
    return std::wstring();
  std::wstring result(text.size(), L'\0');
  const int length = MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()),
                                         &result[0], static_cast<int>(result.size()));
  result.resize(static_cast<size_t>(length > 0 ? length : 0));
  return result;
}

}  // namespace

LONG RegistryLink::open(HKEY root, const std::string& path, REGSAM access, ScopedKey& key) {
  return RegOpenKeyExA(root, path.c_str(), REG_OPTION_OPEN_LINK, access, key.receive());
}

LONG RegistryLink::openEach(HKEY root, const std::string& path, REGSAM access, ScopedKey& key) {
  ScopedKey parent;
  HKEY at = root;
  std::string::size_type start = 0;
  while (start <= path.size()) {
    std::string::size_type end = path.find('\\', start);
    if (end == std::string::npos)
      end = path.size();
    const std::string name = path.substr(start, end - start);
    start = end + 1;
    if (name.empty())
      continue;
    const bool last = path.find_first_not_of('\\', start) == std::string::npos;
    ScopedKey next;
    const LONG status = openChild(at, wide(name), last ? access : KEY_QUERY_VALUE, next);
    if (status != ERROR_SUCCESS)
      return status;
    if (!last && isLink(next.get()))
      return kStoppedOnLink;
    parent = std::move(next);
    at = parent.get();
  }
  if (at == root)
    return ERROR_INVALID_PARAMETER;  // No key named at all.
  key = std::move(parent);
  return ERROR_SUCCESS;
}

LONG RegistryLink::openChild(HKEY parent, const std::wstring& name, REGSAM access, ScopedKey& key) {
  return RegOpenKeyExW(parent, name.c_str(), REG_OPTION_OPEN_LINK, access, key.receive());
}

bool RegistryLink::isLink(HKEY key) {
  DWORD type = REG_NONE;
  return RegQueryValueExW(key, kLinkValue, nullptr, &type, nullptr, nullptr) == ERROR_SUCCESS &&
         type == REG_LINK;
}

std::string RegistryLink::target(HKEY key) {
  wchar_t text[1024] = {};
  DWORD size = sizeof(text) - sizeof(wchar_t);
  DWORD type = REG_NONE;
  if (RegQueryValueExW(key, kLinkValue, nullptr, &type, reinterpret_cast<BYTE*>(text), &size) !=
      ERROR_SUCCESS)
    return std::string();
  // REG_LINK is stored without its terminator.
  const int length = static_cast<int>(size / sizeof(wchar_t));
  const int bytes = WideCharToMultiByte(CP_ACP, 0, text, length, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<size_t>(bytes > 0 ? bytes : 0), '\0');
  if (bytes > 0)
    WideCharToMultiByte(CP_ACP, 0, text, length, &result[0], bytes, nullptr, nullptr);
  return result;
}

LONG RegistryLink::deleteKey(HKEY key) {
  return static_cast<LONG>(RtlNtStatusToDosError(NtDeleteKey(key)));
}

std::vector<std::wstring> RegistryLink::childNames(HKEY key) {
  std::vector<std::wstring> names;
  for (DWORD index = 0;; ++index) {
    wchar_t name[kNameLength];
    DWORD length = kNameLength;
    if (RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS)
      return names;
    names.emplace_back(name, length);
  }
}
