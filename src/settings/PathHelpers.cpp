#include "settings/PathHelpers.h"

#include <windows.h>

#include <cctype>

std::string joinPath(const std::string& first, const std::string& second) {
  std::string path = first;
  if (path.empty() || path.back() != '\\')
    path += '\\';
  if (!second.empty() && second.front() == '\\')
    path.append(second, 1, std::string::npos);
  else
    path += second;
  return path;
}

bool isFullyQualifiedPath(const std::string& path) {
  if (path.size() >= 3 && isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':' &&
      path[2] == '\\')
    return true;
  return path.compare(0, 2, "\\\\") == 0;
}

bool hasLinkOnTheWay(const std::string& path) {
  for (std::string::size_type end = path.find('\\', 3);; end = path.find('\\', end + 1)) {
    const DWORD attributes = GetFileAttributesA(path.substr(0, end).c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
      return true;
    if (end == std::string::npos)
      return false;
  }
}

void toUpperCase(std::string& text) {
  for (char& c : text)
    c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
}
