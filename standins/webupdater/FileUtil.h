#pragma once

#include <windows.h>

#include <string>

// Small file-system helpers over the ANSI Windows API. All are thread-safe; none throws.
namespace wupd {

// Creates `dir` and any missing parents. True when the directory exists afterwards.
bool createDirectories(const std::string& dir);

// Everything before the last '\' or '/', or "" when there is none.
std::string parentDirectory(const std::string& path);

// `dir` and `name` joined with one backslash.
std::string joinPath(const std::string& dir, const std::string& name);

// Creates or truncates `path` (creating missing parent directories) and writes `bytes`.
bool writeFile(const std::string& path, const std::string& bytes);

// Reads the whole of `path` into `bytes`. False when it cannot be opened or read.
bool readFile(const std::string& path, std::string* bytes);

// The full path of `module`, or "" on failure.
std::string modulePath(HMODULE module);

// GetFullPathNameA of `path`, or `path` itself on failure.
std::string fullPath(const std::string& path);

// The environment variable `name`, or "" when unset.
std::string environmentVariable(const char* name);

}  // namespace wupd
