#pragma once

#include <string>

// Joins two path pieces with exactly one backslash: `first`, a backslash when `first` is empty
// or does not end in one, then `second` without its first character when that is a backslash.
std::string joinPath(const std::string& first, const std::string& second);

// Whether `path` names its place without the current drive or directory: a drive letter, a colon
// and a backslash ("C:\..."), or two backslashes (a UNC path, "\\server\share\...").
bool isFullyQualifiedPath(const std::string& path);

// Replaces every byte of `text` by its toupper value, in place.
void toUpperCase(std::string& text);
