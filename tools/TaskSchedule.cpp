#include "TaskSchedule.h"

#include <windows.h>

#include <tlhelp32.h>

#include <fstream>
#include <sstream>
#include <vector>

#include "WideText.h"
#include "system/UniqueHandle.h"

namespace {

// Whether a process other than this one runs from an executable whose name begins with `prefix`.
bool anotherRuns(const std::string& prefix) {
  const ScopedHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32 entry = {};
  entry.dwSize = sizeof(entry);
  for (BOOL more = Process32First(snapshot.get(), &entry); more;
       more = Process32Next(snapshot.get(), &entry)) {
    if (entry.th32ProcessID != GetCurrentProcessId() &&
        _strnicmp(entry.szExeFile, prefix.c_str(), prefix.size()) == 0)
      return true;
  }
  return false;
}

}  // namespace

bool TaskSchedule::registerTask(const std::string& folder, Kind kind, std::string& error) {
  const std::string definition = folder + "orrery-updater-" + kindName(kind) + ".xml";
  std::ifstream in(definition.c_str(), std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  std::string xml = text.str();
  const std::string::size_type command = xml.find("<Command>");
  const std::string::size_type end = xml.find("</Command>");
  const std::string::size_type encoding = xml.find("encoding=\"UTF-8\"");
  if (!in || command == std::string::npos || end < command || encoding == std::string::npos) {
    error = "the task definition " + definition + " is missing or has no Command";
    return false;
  }
  xml.replace(encoding, 16, "encoding=\"UTF-16\"");
  // schtasks /XML reads UTF-16 alone. The definition is UTF-8, the folder in the system's code
  // page (as the narrow API gives it): each is converted from its own, the folder escaped for XML.
  const std::string::size_type start = xml.find("<Command>") + 9;
  const std::wstring before = widen(xml.substr(0, start), CP_UTF8);
  const std::wstring after = widen(xml.substr(xml.find("</Command>")), CP_UTF8);
  std::wstring path;
  for (const wchar_t c : widen("\"" + folder + "cvupdater.exe\"", CP_ACP))
    path += c == L'&' ? L"&amp;" : c == L'<' ? L"&lt;" : c == L'>' ? L"&gt;" : std::wstring(1, c);
  const std::wstring wide = L"\xFEFF" + before + path + after;
  const std::string file = folder + kRegistered;
  {
    std::ofstream out(file.c_str(), std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(wide.data()),
              static_cast<std::streamsize>(sizeof(wchar_t) * wide.size()));
  }
  const long code =
      schtasks(std::string("/Create /TN \"") + kTaskName + "\" /XML \"" + file + "\" /F");
  if (code != 0)
    error = "schtasks /Create exited with " + std::to_string(code);
  return code == 0;
}

bool TaskSchedule::removeTask(const std::string& localId,
                              unsigned long waitMs,
                              std::string& error) {
  // Disabled first, so that it starts no update while one is awaited, and the update it runs
  // ended. A task that is not there (or a schtasks without /Change /DISABLE or /End, as Wine's)
  // is no failure.
  const std::string task = std::string(" /TN \"") + kTaskName + "\"";
  schtasks("/Change" + task + " /DISABLE");
  schtasks("/End" + task);
  for (const ULONGLONG start = GetTickCount64(); anotherRuns(localId); Sleep(200)) {
    if (GetTickCount64() - start > waitMs) {
      // Left as it was: the removal can be tried again, and meanwhile the updates go on.
      schtasks("/Change" + task + " /ENABLE");
      error = "a process of " + localId + "*.exe still runs";
      return false;
    }
  }
  // Deleted only now: a removal that fails above leaves the task registered.
  schtasks("/Delete" + task + " /F");
  return true;
}
