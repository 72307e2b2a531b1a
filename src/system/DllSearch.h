#pragma once

#include <string>

// The DLL search of this process, narrowed at start-up because the elevated run loads the
// vendor's library with full rights. Every function is looked up at run time and skipped where
// the system lacks it (SetDllDirectoryA before XP SP1; SetDefaultDllDirectories and
// AddDllDirectory before Windows 8 or Windows 7 with KB2533623). Nothing throws or logs.

// Takes the current directory out of the search (SetDllDirectoryA("")) and, where possible,
// limits the default search to the system directory, the application's directory and the
// directories added with allowDllDirectory().
void hardenDllSearch();

// Adds `directory` to the search, so that a library loaded from there by its full path finds
// its own imports beside it. Returns false where the system cannot add it.
bool allowDllDirectory(const std::string& directory);
