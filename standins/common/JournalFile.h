#pragma once

#include <string>

// The journal that a stand-in DLL keeps of the calls it serves: one line a call, appended to the
// file `path` (nothing when it is empty). Both stand-ins may write one journal from several
// processes at once, and under Wine append-only writes of two processes can still overwrite each
// other, so every append holds the named mutex "Local\StandinJournal" (at most 5 s; a line is
// written all the same when it cannot be had). Writing never fails.
namespace standin {

// Appends `line` and CR LF.
void appendJournalLine(const std::string& path, const std::string& line);

}  // namespace standin
