#include "PropertyCheck.h"

#include <windows.h>

#include <cwctype>

namespace {

const wchar_t* const kTextProperties[] = {L"INSTALLDIR", L"SETTINGSFILE", L"WEBSERVERURL",
                                          L"DRIVERNAME", L"DLLPATH",      L"DATAPATH"};

std::wstring lower(std::wstring text) {
  for (wchar_t& c : text)
    c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
  return text;
}

// Whether `text` converts to the ANSI code page and back unchanged (no '?', no best fit).
bool inCodePage(const std::wstring& text) {
  if (text.empty())
    return true;
  BOOL defaulted = FALSE;
  const int size =
      WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, text.c_str(), static_cast<int>(text.size()),
                          nullptr, 0, nullptr, &defaulted);
  return size > 0 && !defaulted;
}

bool isAbsolute(const std::wstring& path) {
  return (path.size() > 2 && std::iswalpha(static_cast<wint_t>(path[0])) && path[1] == L':' &&
          path[2] == L'\\') ||
         path.compare(0, 2, L"\\\\") == 0;
}

bool isReadableFile(const std::wstring& path) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE)
    return false;
  CloseHandle(file);
  return true;
}

}  // namespace

std::wstring PropertyCheck::refusal() const {
  const auto refused = [](const wchar_t* name, const std::wstring& value, const wchar_t* why) {
    return std::wstring(name) + L"=" + value + L" is refused: " + why;
  };
  for (const wchar_t* name : kTextProperties) {
    const std::wstring value = property_(name);
    if (!inCodePage(value))
      return refused(name, value,
                     L"it has characters outside the system's code page, which the settings "
                     L"tool and the updater cannot keep");
  }
  const std::wstring schedule = property_(L"SCHEDULE"), lock = property_(L"LOCKSTORE");
  const std::wstring kind = lower(schedule);
  if (!schedule.empty() && kind != L"system" && kind != L"users" && kind != L"none")
    return refused(L"SCHEDULE", schedule, L"give system, users or none");
  if (!lock.empty() && lock != L"0" && lock != L"1")
    return refused(L"LOCKSTORE", lock, L"give 1 (locked) or 0 (open to users)");
  if (kind == L"users" && lock == L"1")
    return refused(L"SCHEDULE", schedule,
                   L"with LOCKSTORE=1 a run as the logged-on user cannot open the locked store; "
                   L"give LOCKSTORE=0 or SCHEDULE=system");
  const std::wstring file = property_(L"SETTINGSFILE");
  if (!file.empty() && !isAbsolute(file))
    return refused(L"SETTINGSFILE", file, L"give the file's absolute path (C:\\...)");
  if (!file.empty() && !isReadableFile(file))
    return refused(L"SETTINGSFILE", file, L"the file cannot be read");
  return std::wstring();
}

std::wstring PropertyCheck::schedule() const {
  return lower(property_(L"SCHEDULE"));
}
