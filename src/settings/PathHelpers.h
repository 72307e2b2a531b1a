#pragma once

#include <string>

// Joins two path pieces with exactly one backslash: `first`, a backslash when `first` is empty
// or does not end in one, then `second` without its first character when that is a backslash.
std::string joinPath(const std::string& first, const std::string& second);

// Whether `path` names its place without the current drive or directory: a drive letter, a colon
// and a backslash ("C:\..."), or two backslashes (a UNC path, "\\server\share\...").
bool isFullyQualifiedPath(const std::string& path);

// Whether some folder on the way to the full local path `path` ("C:\..."), or `path` itself, is a
// link (any reparse point: a junction, a symbolic link, a mount point) now. A user who may make
// folders where a SYSTEM run deletes or writes (C:\ProgramData, a download folder) can make one a
// link to a place of their choosing.
bool hasLinkOnTheWay(const std::string& path);

// Replaces every byte of `text` by its toupper value, in place.
void toUpperCase(std::string& text);
