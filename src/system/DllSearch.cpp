#include "system/DllSearch.h"

#include <windows.h>

#include <vector>

#include "system/ExportLookup.h"

namespace {

// The exports of kernel32 that older systems lack.
#define KERNEL_EXPORT(name) LOOKUP_EXPORT(GetModuleHandleA("kernel32.dll"), name)

}  // namespace

void hardenDllSearch() {
  if (auto setDllDirectory = KERNEL_EXPORT(SetDllDirectoryA))
    setDllDirectory("");
  if (auto setDefaultDllDirectories = KERNEL_EXPORT(SetDefaultDllDirectories))
    setDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32 | LOAD_LIBRARY_SEARCH_APPLICATION_DIR |
                             LOAD_LIBRARY_SEARCH_USER_DIRS);
}

bool allowDllDirectory(const std::string& directory) {
  auto addDllDirectory = KERNEL_EXPORT(AddDllDirectory);
  if (addDllDirectory == nullptr || directory.empty())
    return false;
  // AddDllDirectory has no narrow form: the path in the system code page, widened.
  const int length = MultiByteToWideChar(CP_ACP, 0, directory.c_str(), -1, nullptr, 0);
  if (length <= 0)
    return false;
  std::vector<wchar_t> wide(static_cast<size_t>(length));
  MultiByteToWideChar(CP_ACP, 0, directory.c_str(), -1, wide.data(), length);
  return addDllDirectory(wide.data()) != nullptr;
}
