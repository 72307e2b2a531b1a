#include "PrivateFolder.h"

#include <windows.h>

#include <sddl.h>

#include "system/UniqueHandle.h"

namespace {

// SYSTEM and administrators alone, for the folder and what is made in it.
const char kPrivate[] = "D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";
const int kAttempts = 100;

}  // namespace

PrivateFolder::PrivateFolder() {
  wchar_t temp[MAX_PATH + 1] = {};
  ScopedLocal descriptor;
  const DWORD length = GetTempPathW(MAX_PATH + 1, temp);
  if (length == 0 || length > MAX_PATH ||
      !ConvertStringSecurityDescriptorToSecurityDescriptorA(kPrivate, SDDL_REVISION_1,
                                                            descriptor.receive(), nullptr))
    return;
  SECURITY_ATTRIBUTES attributes = {sizeof(attributes), descriptor.get(), FALSE};
  // A name someone made first is passed over: the folder must be one this process made.
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const std::wstring path = std::wstring(temp) + L"orrery-" +
                              std::to_wstring(GetCurrentProcessId()) + L"-" +
                              std::to_wstring(GetTickCount64()) + L"-" + std::to_wstring(attempt);
    if (CreateDirectoryW(path.c_str(), &attributes)) {
      path_ = path + L"\\";
      return;
    }
    if (GetLastError() != ERROR_ALREADY_EXISTS)
      return;
  }
}

PrivateFolder::~PrivateFolder() {
  if (path_.empty())
    return;
  WIN32_FIND_DATAW found = {};
  const HANDLE search = FindFirstFileW((path_ + L"*").c_str(), &found);
  if (search != INVALID_HANDLE_VALUE) {
    do {
      if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        DeleteFileW((path_ + found.cFileName).c_str());
    } while (FindNextFileW(search, &found));
    FindClose(search);
  }
  RemoveDirectoryW(path_.c_str());
}
