#include "Journal.h"

#include <windows.h>

#include "common/JournalFile.h"

void AppendJournalLine(const std::string& path, const std::string& text) {
  standin::appendJournalLine(path, std::to_string(GetCurrentProcessId()) + " " + text);
}
