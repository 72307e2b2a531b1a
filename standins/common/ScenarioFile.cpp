#include "common/ScenarioFile.h"

#include <windows.h>

#include <cerrno>
#include <cstdlib>

namespace standin {

namespace {

// The profile functions truncate silently and report a full buffer as its size - 1 (a value) or
// - 2 (a key list), so the buffer grows until the answer fits.
std::string readProfile(const char* section, const char* key, const std::string& path) {
  std::vector<char> buffer(1024);
  for (;;) {
    const DWORD size = static_cast<DWORD>(buffer.size());
    const DWORD length =
        GetPrivateProfileStringA(section, key, "", buffer.data(), size, path.c_str());
    if (length + 2 < size)
      return std::string(buffer.data(), length);
    buffer.resize(buffer.size() * 4);
  }
}

}  // namespace

std::string ScenarioFile::value(const char* section,
                                const char* key,
                                const std::string& fallback) const {
  std::string text = readProfile(section, key, path_);
  for (size_t i = 1; i < text.size(); ++i) {
    if (text[i] == ';' && (text[i - 1] == ' ' || text[i - 1] == '\t')) {
      text.erase(text.find_last_not_of(" \t", i - 1) + 1);
      break;
    }
  }
  return text.empty() ? fallback : text;
}

long long ScenarioFile::number(const char* section, const char* key, long long fallback) const {
  return parseNumber(value(section, key), fallback);
}

std::optional<std::string> ScenarioFile::rule(const char* section,
                                              const std::string& subject) const {
  const std::string keys = readProfile(section, nullptr, path_);
  for (size_t start = 0; start < keys.size();) {
    const std::string key = keys.c_str() + start;
    start += key.size() + 1;
    if (!key.empty() && (key == "*" || subject.find(key) != std::string::npos))
      return value(section, key.c_str());
  }
  return std::nullopt;
}

long long parseNumber(const std::string& text, long long fallback) {
  const std::string digits = trim(text);
  const size_t sign = !digits.empty() && (digits[0] == '-' || digits[0] == '+') ? 1 : 0;
  const bool hex = digits.compare(sign, 2, "0x") == 0 || digits.compare(sign, 2, "0X") == 0;
  const std::string magnitude = digits.substr(sign + (hex ? 2 : 0));
  if (magnitude.empty() || magnitude[0] == '-' || magnitude[0] == '+')
    return fallback;
  char* end = nullptr;
  errno = 0;
  const long long number = std::strtoll(magnitude.c_str(), &end, hex ? 16 : 10);
  if (errno != 0 || *end != '\0')
    return fallback;
  return digits[0] == '-' ? -number : number;
}

std::vector<std::string> splitFields(const std::string& value, size_t count) {
  std::vector<std::string> fields;
  size_t start = 0;
  while (fields.size() + 1 < count) {
    const size_t comma = value.find(',', start);
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
  const size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos)
    return std::string();
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace standin
