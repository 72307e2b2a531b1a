#include "TaskKind.h"

#include <windows.h>

#include <sddl.h>

#include <cstring>
#include <vector>

#include "system/UniqueHandle.h"

namespace {

const char* const kNames[] = {"none", "system", "users"};
// How long schtasks may run.
const ULONGLONG kSchtasksLimitMs = 60000;

// The accounts a task runs elevated as, by name where the SID cannot be looked up (names as
// Windows writes them in English; LocalSystem is the service manager's own word).
const wchar_t* const kElevatedNames[] = {L"SYSTEM",
                                         L"NT AUTHORITY\\SYSTEM",
                                         L"LocalSystem",
                                         L"LOCAL SERVICE",
                                         L"NT AUTHORITY\\LOCAL SERVICE",
                                         L"NETWORK SERVICE",
                                         L"NT AUTHORITY\\NETWORK SERVICE",
                                         L"Administrators",
                                         L"BUILTIN\\Administrators"};

std::wstring trimmed(const std::wstring& text) {
  const std::wstring::size_type first = text.find_first_not_of(L" \t\r\n");
  if (first == std::wstring::npos)
    return std::wstring();
  return text.substr(first, text.find_last_not_of(L" \t\r\n") - first + 1);
}

// The texts of every element <tag>...</tag> in `xml`, trimmed.
std::vector<std::wstring> elements(const std::wstring& xml, const std::wstring& tag) {
  const std::wstring open = L"<" + tag + L">", close = L"</" + tag + L">";
  std::vector<std::wstring> texts;
  for (std::wstring::size_type at = xml.find(open); at != std::wstring::npos;
       at = xml.find(open, at)) {
    at += open.size();
    const std::wstring::size_type end = xml.find(close, at);
    if (end == std::wstring::npos)
      break;
    texts.push_back(trimmed(xml.substr(at, end - at)));
  }
  return texts;
}

bool isElevatedSid(PSID sid) {
  return IsWellKnownSid(sid, WinLocalSystemSid) || IsWellKnownSid(sid, WinLocalServiceSid) ||
         IsWellKnownSid(sid, WinNetworkServiceSid) ||
         IsWellKnownSid(sid, WinBuiltinAdministratorsSid);
}

// Whether the account a principal names (a SID or a name) runs with an administrator's rights.
bool isElevatedAccount(const std::wstring& account) {
  for (const wchar_t* name : kElevatedNames) {
    if (_wcsicmp(account.c_str(), name) == 0)
      return true;
  }
  if (_wcsnicmp(account.c_str(), L"S-1-", 4) == 0) {
    ScopedLocal sid;
    PSID converted = nullptr;
    if (!ConvertStringSidToSidW(account.c_str(), &converted))
      return false;
    sid.reset(converted);
    return isElevatedSid(converted);
  }
  // A name in this machine's language ("NT-AUTORITÄT\SYSTEM", "VORDEFINIERT\Administratoren").
  BYTE sid[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof(sid);
  wchar_t domain[256];
  DWORD domainSize = 256;
  SID_NAME_USE use = SidTypeUnknown;
  return LookupAccountNameW(nullptr, account.c_str(), sid, &size, domain, &domainSize, &use) &&
         isElevatedSid(sid);
}

// schtasks writes in the console's code page, or in UTF-16 with its byte-order mark.
std::wstring decoded(const std::string& bytes) {
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
      static_cast<unsigned char>(bytes[1]) == 0xFE) {
    std::wstring text((bytes.size() - 2) / sizeof(wchar_t), L'\0');
    if (!text.empty())
      memcpy(&text[0], bytes.data() + 2, text.size() * sizeof(wchar_t));
    return text;
  }
  std::wstring text(bytes.size(), L'\0');
  const int length =
      bytes.empty() ? 0
                    : MultiByteToWideChar(CP_OEMCP, 0, bytes.data(), static_cast<int>(bytes.size()),
                                          &text[0], static_cast<int>(text.size()));
  text.resize(static_cast<size_t>(length > 0 ? length : 0));
  return text;
}

// The definition the settings tool kept in `folder`, as registerTask() wrote it (UTF-16).
std::wstring keptDefinition(const std::string& folder) {
  const ScopedHandle file(CreateFileA((folder + TaskSchedule::kRegistered).c_str(), GENERIC_READ,
                                      FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file.valid())
    return std::wstring();
  std::wstring text(32768, L'\0');  // Far more than a definition holds.
  DWORD read = 0;
  if (!ReadFile(file.get(), &text[0], static_cast<DWORD>(text.size() * sizeof(wchar_t)), &read,
                nullptr))
    read = 0;
  text.resize(read / sizeof(wchar_t));
  return text;
}

// Appends what the pipe holds now to `output`.
void drain(HANDLE pipe, std::string& output) {
  DWORD available = 0;
  while (PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) && available > 0) {
    std::string chunk(available, '\0');
    DWORD read = 0;
    if (!ReadFile(pipe, &chunk[0], available, &read, nullptr) || read == 0)
      return;
    output.append(chunk, 0, read);
  }
}

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

TaskSchedule::Kind TaskSchedule::kindOfDefinition(const std::wstring& xml) {
  bool named = false;
  for (const wchar_t* tag : {L"UserId", L"GroupId"}) {
    for (const std::wstring& account : elements(xml, tag)) {
      named = true;
      if (isElevatedAccount(account))
        return Kind::kSystem;
    }
  }
  for (const std::wstring& level : elements(xml, L"RunLevel")) {
    named = true;
    if (_wcsicmp(level.c_str(), L"HighestAvailable") == 0)
      return Kind::kSystem;
  }
  return named ? Kind::kUsers : Kind::kNone;
}

TaskSchedule::Kind TaskSchedule::installedKind(const std::string& folder) {
  return kindOfDefinition(keptDefinition(folder));
}

TaskSchedule::Kind TaskSchedule::registeredKind(const std::string& folder) {
  std::string output;
  const Kind kept = installedKind(folder);
  const Kind scheduled =
      schtasks(std::string("/Query /TN \"") + kTaskName + "\" /XML", &output) == 0
          ? kindOfDefinition(decoded(output))
          : Kind::kNone;
  if (kept == Kind::kSystem || scheduled == Kind::kSystem)
    return Kind::kSystem;
  return kept == Kind::kUsers || scheduled == Kind::kUsers ? Kind::kUsers : Kind::kNone;
}

long TaskSchedule::schtasks(const std::string& arguments, std::string* output) {
  char system[MAX_PATH] = {};
  GetSystemDirectoryA(system, MAX_PATH);
  std::string line = "\"" + std::string(system) + "\\schtasks.exe\" " + arguments;
  STARTUPINFOA startup = {};
  startup.cb = sizeof(startup);
  ScopedHandle readEnd, writeEnd;
  if (output != nullptr) {
    SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
    if (!CreatePipe(readEnd.receive(), writeEnd.receive(), &inherited, 0) ||
        !SetHandleInformation(readEnd.get(), HANDLE_FLAG_INHERIT, 0))
      return -1;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writeEnd.get();
  }
  PROCESS_INFORMATION process = {};
  if (!CreateProcessA(nullptr, &line[0], nullptr, nullptr, output != nullptr, CREATE_NO_WINDOW,
                      nullptr, nullptr, &startup, &process))
    return -1;
  const ScopedHandle child(process.hProcess), thread(process.hThread);
  writeEnd.reset();  // The child's now: the pipe ends when it does.
  // Read while it runs, so that a full pipe does not keep it waiting; never past the limit.
  const ULONGLONG start = GetTickCount64();
  while (WaitForSingleObject(child.get(), 50) == WAIT_TIMEOUT) {
    if (output != nullptr)
      drain(readEnd.get(), *output);
    if (GetTickCount64() - start > kSchtasksLimitMs) {
      TerminateProcess(child.get(), 1);
      return -1;
    }
  }
  if (output != nullptr)
    drain(readEnd.get(), *output);
  DWORD code = 1;
  return GetExitCodeProcess(child.get(), &code) ? static_cast<long>(code) : -1;
}

void TaskSchedule::unregisterTask(const std::string& folder) {
  schtasks(std::string("/Delete /TN \"") + kTaskName + "\" /F");
  DeleteFileA((folder + kRegistered).c_str());
}

bool TaskSchedule::dropSystemTaskSince(Kind before, const std::string& folder) {
  if (before == Kind::kSystem || registeredKind(folder) != Kind::kSystem)
    return false;
  unregisterTask(folder);
  return true;
}
