#include "settings/PathHelpers.h"

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

void toUpperCase(std::string& text) {
  for (char& c : text)
    c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
}
