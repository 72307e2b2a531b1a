#include "Scenario.h"

#include <windows.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace wupd {

namespace {

// The profile API truncates silently; it reports a full buffer as size - 1 (values) or
// size - 2 (key lists), so grow until the answer fits.
std::vector<char> readProfile(const char* section,
                              const char* key,
                              const std::string& path,
                              DWORD* length) {
  std::vector<char> buffer(1024);
  for (;;) {
    DWORD size = static_cast<DWORD>(buffer.size());
    *length = GetPrivateProfileStringA(section, key, "", buffer.data(), size, path.c_str());
    if (*length + 2 < size)
      return buffer;
    buffer.resize(buffer.size() * 4);
  }
}

std::string withoutInlineComment(const std::string& text) {
  for (size_t i = 1; i < text.size(); ++i) {
    if (text[i] == ';' && (text[i - 1] == ' ' || text[i - 1] == '\t'))
      return text.substr(0, i);
  }
  return text;
}

}  // namespace

Scenario::Scenario(std::string path) : path_(std::move(path)) {}

std::string Scenario::rawValue(const char* section, const char* key) const {
  DWORD length = 0;
  std::vector<char> buffer = readProfile(section, key, path_, &length);
  return trim(withoutInlineComment(std::string(buffer.data(), length)));
}

std::string Scenario::value(const char* section,
                            const char* key,
                            const std::string& fallback) const {
  std::string text = rawValue(section, key);
  return text.empty() ? fallback : text;
}

int Scenario::intValue(const char* section, const char* key, int fallback) const {
  return parseInt(rawValue(section, key), fallback);
}

std::vector<std::string> Scenario::keys(const char* section) const {
  DWORD length = 0;
  std::vector<char> buffer = readProfile(section, nullptr, path_, &length);
  std::vector<std::string> result;
  for (size_t start = 0; start < length;) {
    std::string key(buffer.data() + start);
    start += key.size() + 1;
    if (!key.empty())
      result.push_back(key);
  }
  return result;
}

std::optional<std::string> Scenario::rule(const char* section, const std::string& subject) const {
  for (const std::string& key : keys(section)) {
    if (key == "*" || subject.find(key) != std::string::npos)
      return rawValue(section, key.c_str());
  }
  return std::nullopt;
}

std::vector<std::string> splitFields(const std::string& value, size_t count) {
  std::vector<std::string> fields;
  size_t start = 0;
  while (fields.size() + 1 < count) {
    size_t comma = value.find(',', start);
    if (comma == std::string::npos)
      break;
    fields.push_back(value.substr(start, comma - start));
    start = comma + 1;
  }
  fields.push_back(value.substr(start));
  return fields;
}

std::string trim(const std::string& text) {
  const char* blanks = " \t\r\n";
  size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos)
    return std::string();
  size_t last = text.find_last_not_of(blanks);
  return text.substr(first, last - first + 1);
}

int parseInt(const std::string& text, int fallback) {
  std::string digits = trim(text);
  if (digits.empty())
    return fallback;
  char* end = nullptr;
  errno = 0;
  long long number = std::strtoll(digits.c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || number < INT_MIN || number > INT_MAX)
    return fallback;
  return static_cast<int>(number);
}

}  // namespace wupd
