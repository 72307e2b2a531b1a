#pragma once

#include <string>
#include <vector>

#include "settings/PolicyTable.h"

// The fleet policy over the program's settings store: values that Group Policy or Intune put
// below HKLM\Software\Policies\<family>\QNV\Local\<local id>\, in the store's own sections and
// under the store's own names (...\Settings\Updater\WebServerUrl), for the settings of
// PolicyTable and no others. A value of its row's type and in its range is in force; any other is
// ignored, and problems() says so.
//
// Settings consults it in its typed reads, so nothing above the store knows where a value came
// from. Read only: the key is opened to query values, never created or written, and no domain
// membership is asked for (only administrators can write below Software\Policies). Every call
// reads the registry afresh, so a policy refresh shows at the next read. Nothing throws, and the
// thread's last-error code is left as it was. Needs Localize.
class Policy {
 public:
  Policy();

  // The value in force for `name` in `section` (compared as the registry compares names, with or
  // without a trailing backslash) into `value`: true when a row of that kind has a valid policy
  // value; false, with `value` untouched, when there is no row, no value or an ignored one.
  bool read(const std::string& section, const std::string& name, unsigned long& value) const;
  bool read(const std::string& section, const std::string& name, std::string& value) const;
  bool read(const std::string& section,
            const std::string& name,
            std::vector<std::string>& value) const;

  // One line for each policy value that is ignored, in the table's order, e.g.
  //   Policy PrinterPollInterval = 4000000 is ignored: above the maximum 3600000; the store's
  //   value is used
  // Empty when every policy value is in force (or there is none).
  std::vector<std::string> problems() const;

  // "Software\Policies\<family>\QNV\Local\<local id>\", below HKEY_LOCAL_MACHINE.
  const std::string& keyPath() const { return keyPath_; }

  // The row of `name` in `section`, or null.
  static const PolicyTable::Row* find(const std::string& section, const std::string& name);

 private:
  // What the key holds for one row.
  struct Reading {
    bool present = false;            // a value of the row's name exists
    std::string problem;             // non-empty: it is ignored, and why
    unsigned long number = 0;        // kDword in force
    std::vector<std::string> texts;  // kText (one) or kHashList in force
  };
  Reading evaluate(const PolicyTable::Row& row) const;

  std::string keyPath_;
};
