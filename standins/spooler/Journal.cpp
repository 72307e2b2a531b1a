#include "Journal.h"

#include <windows.h>

void AppendJournalLine(const std::string& path, const std::string& text) {
  if (path.empty()) {
    return;
  }
  std::string line = std::to_string(GetCurrentProcessId()) + " " + text + "\r\n";
  // Append-only access makes every write land at the end of the file, whatever other processes
  // appended since this one opened it.
  HANDLE file = CreateFileA(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                            nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    return;
  }
  DWORD written = 0;
  WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
  CloseHandle(file);
}
