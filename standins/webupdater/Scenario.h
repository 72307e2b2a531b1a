#pragma once

#include <optional>
#include <string>
#include <vector>

namespace wupd {

// The scenario INI file that scripts the stand-in, read with GetPrivateProfileStringA. A
// Scenario is created per call, so edits to the file between calls take effect. A missing file
// or key reads as the caller's fallback. Values are trimmed and lose an inline comment (blanks
// followed by ';'). Not shared between threads; reading never fails.
class Scenario {
 public:
  explicit Scenario(std::string path);

  const std::string& path() const { return path_; }

  // [section] key, or `fallback` when missing or empty.
  std::string value(const char* section, const char* key, const std::string& fallback) const;

  // [section] key read as a decimal integer, or `fallback` when missing or not a number.
  int intValue(const char* section, const char* key, int fallback) const;

  // The value of the first key of [section], in file order, that is "*" or occurs as a
  // (case-sensitive) substring of `subject`; nothing when no key applies.
  std::optional<std::string> rule(const char* section, const std::string& subject) const;

 private:
  std::vector<std::string> keys(const char* section) const;
  std::string rawValue(const char* section, const char* key) const;

  std::string path_;
};

// Splits `value` at commas into at most `count` fields; the last field keeps any further commas.
std::vector<std::string> splitFields(const std::string& value, size_t count);

// `text` without leading and trailing blanks, tabs, CR and LF.
std::string trim(const std::string& text);

// Parses a decimal integer that fills all of trim(text); `fallback` otherwise.
int parseInt(const std::string& text, int fallback);

}  // namespace wupd
