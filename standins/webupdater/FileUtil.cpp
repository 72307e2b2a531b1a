#include "FileUtil.h"

#include "system/UniqueHandle.h"

#include <algorithm>
#include <vector>

namespace wupd {

namespace {

bool isSeparator(char c) {
  return c == '\\' || c == '/';
}

bool directoryExists(const std::string& dir) {
  DWORD attributes = GetFileAttributesA(dir.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

}  // namespace

bool createDirectories(const std::string& dir) {
  std::string trimmed = dir;
  while (trimmed.size() > 1 && isSeparator(trimmed.back()))
    trimmed.pop_back();
  if (trimmed.empty() || directoryExists(trimmed))
    return !trimmed.empty();
  // "C:" (a drive) exists or not; nothing to create above it.
  if (trimmed.size() == 2 && trimmed[1] == ':')
    return false;
  std::string parent = parentDirectory(trimmed);
  if (!parent.empty() && !createDirectories(parent))
    return false;
  if (CreateDirectoryA(trimmed.c_str(), nullptr))
    return true;
  // Another process may have created it meanwhile.
  return GetLastError() == ERROR_ALREADY_EXISTS && directoryExists(trimmed);
}

std::string parentDirectory(const std::string& path) {
  size_t slash = path.find_last_of("\\/");
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string joinPath(const std::string& dir, const std::string& name) {
  if (dir.empty())
    return name;
  return isSeparator(dir.back()) ? dir + name : dir + "\\" + name;
}

bool writeFile(const std::string& path, const std::string& bytes) {
  std::string parent = parentDirectory(path);
  if (!parent.empty())
    createDirectories(parent);
  ScopedHandle file(CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file.valid())
    return false;
  size_t offset = 0;
  while (offset < bytes.size()) {
    DWORD chunk = static_cast<DWORD>(std::min<size_t>(bytes.size() - offset, 1u << 20));
    DWORD written = 0;
    if (!WriteFile(file.get(), bytes.data() + offset, chunk, &written, nullptr) || written == 0)
      return false;
    offset += written;
  }
  return true;
}

bool readFile(const std::string& path, std::string* bytes) {
  ScopedHandle file(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file.valid())
    return false;
  bytes->clear();
  char buffer[64 * 1024];
  for (;;) {
    DWORD read = 0;
    if (!ReadFile(file.get(), buffer, sizeof(buffer), &read, nullptr))
      return false;
    if (read == 0)
      return true;
    bytes->append(buffer, read);
  }
}

std::string modulePath(HMODULE module) {
  std::vector<char> buffer(MAX_PATH);
  for (;;) {
    DWORD length = GetModuleFileNameA(module, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0)
      return std::string();
    if (length < buffer.size())
      return std::string(buffer.data(), length);
    buffer.resize(buffer.size() * 2);
  }
}

std::string fullPath(const std::string& path) {
  char buffer[MAX_PATH * 2];
  DWORD length = GetFullPathNameA(path.c_str(), sizeof(buffer), buffer, nullptr);
  if (length == 0 || length >= sizeof(buffer))
    return path;
  return std::string(buffer, length);
}

std::string environmentVariable(const char* name) {
  DWORD size = GetEnvironmentVariableA(name, nullptr, 0);
  if (size == 0)
    return std::string();
  std::vector<char> buffer(size);
  DWORD length = GetEnvironmentVariableA(name, buffer.data(), size);
  return length < size ? std::string(buffer.data(), length) : std::string();
}

}  // namespace wupd
