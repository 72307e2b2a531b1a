#include "SettingsFileCopy.h"

#include <windows.h>

#include <aclapi.h>

#include <vector>

#include "WideText.h"
#include "system/UniqueHandle.h"
#include "system/WriteAccess.h"

namespace {

// Far above any settings file: the settings tool reads at most 64 KiB of one.
const DWORD kLargest = 16 * 1024 * 1024;

std::wstring error(const wchar_t* what, DWORD code) {
  return std::wstring(what) + L" (error " + std::to_wstring(code) + L")";
}

}  // namespace

std::wstring copySettingsFile(const std::wstring& path,
                              const PrivateFolder& folder,
                              std::wstring& copy) {
  const std::wstring refused = L"SETTINGSFILE=" + path + L" is refused: ";
  const ScopedHandle file(CreateFileW(path.c_str(), GENERIC_READ | READ_CONTROL, FILE_SHARE_READ,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  if (!file.valid())
    return refused + error(L"it cannot be opened for reading alone", GetLastError());
  LARGE_INTEGER size = {};
  if (GetFileType(file.get()) != FILE_TYPE_DISK || !GetFileSizeEx(file.get(), &size) ||
      size.QuadPart > kLargest)
    return refused + L"it is not a file of at most 16 MiB";
  ScopedLocal descriptor;
  const DWORD read = GetSecurityInfo(file.get(), SE_FILE_OBJECT,
                                     OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                                     nullptr, nullptr, nullptr, nullptr, descriptor.receive());
  if (read != ERROR_SUCCESS)
    return refused + error(L"its owner and permissions cannot be read", read);
  std::vector<BYTE> account = WriteAccess::processAccount();
  const std::string other = WriteAccess::whoElseCanWrite(
      descriptor.get(), account.empty() ? nullptr : account.data(), WriteAccess::kFileRights);
  if (!other.empty())
    return refused + widen(other) +
           L" can change it (its owner, or its permissions); give a file that only "
           L"administrators and SYSTEM can change";
  std::vector<char> bytes(static_cast<size_t>(size.QuadPart));
  DWORD got = 0;
  if (!bytes.empty() &&
      (!ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &got, nullptr) ||
       got != bytes.size()))
    return refused + error(L"it could not be read whole", GetLastError());

  copy = folder.file(path.substr(path.find_last_of(L"\\/") + 1));
  const ScopedHandle out(CreateFileW(copy.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  if (!out.valid() ||
      (!bytes.empty() &&
       (!WriteFile(out.get(), bytes.data(), got, &written, nullptr) || written != got)))
    return refused + error(L"its copy could not be written", GetLastError());
  return std::wstring();
}
