#include "Journal.h"

#include "FileUtil.h"
#include "common/JournalFile.h"

#include <windows.h>

namespace wupd {

Journal::Journal(std::string path) : path_(std::move(path)) {}

void Journal::append(const std::string& text) const {
  if (path_.empty())
    return;
  const std::string parent = parentDirectory(path_);
  if (!parent.empty())
    createDirectories(parent);
  standin::appendJournalLine(path_, std::to_string(GetCurrentProcessId()) + " | " + text);
}

}  // namespace wupd
