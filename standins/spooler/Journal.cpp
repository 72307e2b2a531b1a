#include "Journal.h"

#include <windows.h>

void AppendJournalLine(const std::string& path, const std::string& text) {
  if (path.empty()) {
    return;
  }
  std::string line = std::to_string(GetCurrentProcessId()) + " " + text + "\r\n";
  // Under Wine, append-only writes of two processes at once can overwrite each other's line, so
  // a named mutex serialises the appends of all processes. Deliberate.
  HANDLE mutex = CreateMutexA(nullptr, FALSE, "Local\\StandinWinspoolJournal");
  DWORD wait = mutex != nullptr ? WaitForSingleObject(mutex, 5000) : WAIT_FAILED;
  HANDLE file = CreateFileA(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                            nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) {
    DWORD written = 0;
    WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    CloseHandle(file);
  }
  if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) {
    ReleaseMutex(mutex);
  }
  if (mutex != nullptr) {
    CloseHandle(mutex);
  }
}
