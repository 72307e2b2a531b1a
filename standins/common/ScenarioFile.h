#pragma once

#include <optional>
#include <string>
#include <vector>

// The scenario INI file that scripts a stand-in DLL, read with the private-profile functions on
// every call, so that a test's edits between calls take effect. A missing file or key reads as
// the caller's fallback. Values lose an inline comment (blanks followed by ';') but keep other
// blanks, so that a quoted value can carry them. Reading never fails; not shared between threads.
namespace standin {

class ScenarioFile {
 public:
  explicit ScenarioFile(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }

  // [section] key, or `fallback` when it is missing or empty.
  std::string value(const char* section, const char* key, const std::string& fallback = "") const;

  // [section] key read as parseNumber() reads it, or `fallback`.
  long long number(const char* section, const char* key, long long fallback) const;

  // The value of the first key of [section], in file order, that is "*" or occurs as a
  // (case-sensitive) substring of `subject`; nothing when no key applies.
  std::optional<std::string> rule(const char* section, const std::string& subject) const;

 private:
  std::string path_;
};

// A number that fills all of trim(text): decimal, or hexadecimal after "0x", optionally signed;
// `fallback` for anything else.
long long parseNumber(const std::string& text, long long fallback);

// Splits `value` at commas into at most `count` fields; the last field keeps any further commas.
std::vector<std::string> splitFields(const std::string& value, size_t count);

// `text` without leading and trailing blanks, tabs, CR and LF.
std::string trim(const std::string& text);

}  // namespace standin
