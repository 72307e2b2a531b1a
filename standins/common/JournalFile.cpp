#include "common/JournalFile.h"

#include <windows.h>

#include "system/UniqueHandle.h"

namespace standin {

void appendJournalLine(const std::string& path, const std::string& line) {
  if (path.empty())
    return;
  const std::string text = line + "\r\n";
  const ScopedHandle mutex(CreateMutexA(nullptr, FALSE, "Local\\StandinJournal"));
  const DWORD wait = mutex.valid() ? WaitForSingleObject(mutex.get(), 5000) : WAIT_FAILED;
  {
    // FILE_APPEND_DATA without FILE_WRITE_DATA: every write goes to the current end of the file.
    const ScopedHandle file(CreateFileA(path.c_str(), FILE_APPEND_DATA,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (file.valid())
      WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  }
  if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED)
    ReleaseMutex(mutex.get());
}

}  // namespace standin
