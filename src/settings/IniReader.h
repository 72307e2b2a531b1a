#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <utility>

// Reads a whole INI settings file at construction, through the private-profile functions, and
// keeps its sections and key/value pairs in file order. Every read buffer is as large as the
// file's size cut to its low 16 bits (so a file of exactly 64 KiB reads nothing, and a larger one
// is cut): that limit is part of the file format. A key with an empty value is dropped (logged); an
// entry with an empty key name ("=value") is kept, for the installer to report. A section or key
// whose name the private-profile functions cannot take (longer than kMaxProfileNameLength) is
// refused before it is looked up; a name they take but the registry does not is read, and left to
// the registry to refuse when it is written. Nothing throws; problems are logged.
class IniReader {
 public:
  using KeyValPair = std::pair<std::string, std::string>;
  using KeyValPairs = std::list<KeyValPair>;

  // A section or key refused for the length of its name, as a report shows them (a long name by
  // its start and its length), with the limit it exceeds.
  struct Refusal {
    std::string section;
    std::string key;
    std::string cause;
  };

  // The longest section or key name the private-profile functions take, in characters: the
  // longest a counted UTF-16 string holds with its terminator. A longer one is not looked up as
  // given (Wine reads a section name of 32,767 characters as no name at all).
  static constexpr size_t kMaxProfileNameLength = 32766;

  // Value types decoded by getValueType().
  enum : uint32_t { kUnknownType = 0, kStringType = 1, kDwordType = 2 };

  explicit IniReader(const std::string& iniFileName);

  bool build();
  bool buildSections(uint32_t bufferSize);
  bool buildSectionsData(uint32_t bufferSize);

  // A copy of the section's pairs (exact, case-sensitive name); empty when unknown or unread.
  KeyValPairs getSectionData(const std::string& sectionName);
  std::list<std::string> getSections() const { return sections_; }
  bool isBuilt() const { return built_; }
  // The keys dropped for having no value, as (section, key), in file order.
  const KeyValPairs& getDroppedKeys() const { return dropped_; }
  // The sections and keys refused for their names' length, in file order.
  const std::list<Refusal>& getRefusals() const { return refusals_; }

  // Splits "type:data" at the first colon: 1 for "string", 2 for "dword", 0 otherwise.
  // `parsedValue` gets the data only when there is at least one character after the colon.
  static uint32_t getValueType(const std::string& value, std::string& parsedValue);
  // Whether a "dword:" value's data is a number that atol reads whole: blanks, a sign, and
  // digits to the end ("0x10" is not: atol reads 0).
  static bool isDecimal(const std::string& data);

 private:
  struct SectionData {
    std::string name;
    KeyValPairs pairs;
  };

  std::list<std::string> sections_;
  std::list<SectionData> sectionsData_;
  KeyValPairs dropped_;
  std::list<Refusal> refusals_;
  std::string iniFileName_;
  bool built_ = false;
};
