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
  // FILE_APPEND_DATA without FILE_WRITE_DATA: every write goes to the current end of file, so
  // lines from several processes never overwrite each other.
  ScopedHandle file(CreateFileA(path_.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file.valid())
    return;
  DWORD written = 0;
  WriteFile(file.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

}  // namespace wupd
