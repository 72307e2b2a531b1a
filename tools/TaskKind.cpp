#include "TaskKind.h"

#include <windows.h>

#include "system/UniqueHandle.h"

namespace {

const char* const kNames[] = {"none", "system", "users"};

}  // namespace

bool TaskSchedule::parseKind(const std::string& word, Kind& kind) {
  for (const Kind candidate : {Kind::kNone, Kind::kSystem, Kind::kUsers}) {
    if (_stricmp(word.c_str(), kindName(candidate)) == 0) {
      kind = candidate;
      return true;
    }
  }
  return false;
}

const char* TaskSchedule::kindName(Kind kind) {
  return kNames[static_cast<int>(kind)];
}

TaskSchedule::Kind TaskSchedule::registeredKind(const std::string& folder) {
  const ScopedHandle file(CreateFileA((folder + kRegistered).c_str(), GENERIC_READ, FILE_SHARE_READ,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file.valid())
    return Kind::kNone;
  // The definition as registerTask() wrote it: UTF-16, far smaller than this.
  std::wstring text(8192, L'\0');
  DWORD read = 0;
  if (!ReadFile(file.get(), &text[0], static_cast<DWORD>(text.size() * sizeof(wchar_t)), &read,
                nullptr))
    read = 0;
  text.resize(read / sizeof(wchar_t));
  return text.find(L"<UserId>S-1-5-18</UserId>") != std::wstring::npos ? Kind::kSystem
                                                                       : Kind::kUsers;
}
