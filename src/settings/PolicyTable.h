#pragma once

#include <cstddef>

// The settings that fleet policy (Group Policy, Intune) may set, one row each. The rows are
// generated at configure time from config/policies.json by cmake/generate-policy.py, the same
// table that the administrative templates, the sample .reg file and DEPLOYING.md's Intune section
// come from, so that none of them can say what the program does not do. Constant data; safe to
// read from any thread.
namespace PolicyTable {

enum class Kind {
  kDword,     // REG_DWORD within [minimum, maximum] (an enum's values are consecutive)
  kText,      // REG_SZ (or REG_EXPAND_SZ, kept unexpanded) of minimum..maximum characters
  kHashList,  // as a policy REG_SZ: SHA-256 hashes (64 hexadecimal characters) separated by ';',
              // at most maximum characters; in the store REG_MULTI_SZ, one hash a string
};

struct Row {
  const char* name;     // the value's name, in the store and below the policy key alike
  const char* section;  // the store's section, e.g. "Settings\Updater"
  Kind kind;
  unsigned long minimum;       // kDword: the smallest value; kText: the shortest text
  unsigned long maximum;       // kDword: the largest value; otherwise the longest text
  bool hasDefault;             // false: the setting has no default (a window not set)
  unsigned long dwordDefault;  // kDword
  const char* textDefault;     // kText, kHashList
};

extern const Row kRows[];
extern const size_t kRowCount;

}  // namespace PolicyTable
