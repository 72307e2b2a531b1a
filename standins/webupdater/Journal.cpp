#include "Journal.h"

#include "FileUtil.h"
#include "system/UniqueHandle.h"

#include <windows.h>

namespace wupd {

Journal::Journal(std::string path) : path_(std::move(path)) {}

void Journal::append(const std::string& text) const {
  if (path_.empty())
    return;
  std::string line = std::to_string(GetCurrentProcessId()) + " | " + text + "\r\n";
  std::string parent = parentDirectory(path_);
  if (!parent.empty())
    createDirectories(parent);
  // FILE_APPEND_DATA without FILE_WRITE_DATA: every write goes to the current end of file. Under
  // Wine the appends of two processes at once can still overwrite each other, so the stand-ins
  // (this library and the spooler, which may share one journal) take the same named mutex.
  const ScopedHandle mutex(CreateMutexA(nullptr, FALSE, "Local\\StandinJournal"));
  const DWORD wait = mutex.valid() ? WaitForSingleObject(mutex.get(), 5000) : WAIT_FAILED;
  {
    const ScopedHandle file(CreateFileA(path_.c_str(), FILE_APPEND_DATA,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (file.valid())
      WriteFile(file.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
  }
  if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED)
    ReleaseMutex(mutex.get());
}

}  // namespace wupd
