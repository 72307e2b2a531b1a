#pragma once

#include <string>

// Appends one line to the journal file: the calling process id, a blank, `text` and CR LF.
// The file is opened, appended to and closed for every line, shared for reading and writing, so
// that several processes can append to the same journal; a named mutex keeps their lines whole.
// Does nothing when `path` is empty; failures are ignored. The thread's last error is not
// preserved.
void AppendJournalLine(const std::string& path, const std::string& text);
