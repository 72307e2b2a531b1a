#include "Journal.h"

#include <windows.h>

#include "system/UniqueHandle.h"

void AppendJournalLine(const std::string& path, const std::string& text) {
  if (path.empty()) {
    return;
  }
  std::string line = std::to_string(GetCurrentProcessId()) + " " + text + "\r\n";
  // Under Wine, append-only writes of two processes at once can overwrite each other's line, so
  // a named mutex, the same as the stand-in library's, serialises the appends of all processes.
  // Deliberate.
  const ScopedHandle mutex(CreateMutexA(nullptr, FALSE, "Local\\StandinJournal"));
  DWORD wait = mutex.valid() ? WaitForSingleObject(mutex.get(), 5000) : WAIT_FAILED;
  {
    const ScopedHandle file(CreateFileA(path.c_str(), FILE_APPEND_DATA,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (file.valid())
      WriteFile(file.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
  }
  if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) {
    ReleaseMutex(mutex.get());
  }
}
