#pragma once

#include <windows.h>

#include <list>
#include <string>
#include <vector>

#include "system/SecurityEveryone.h"
#include "system/UniqueHandle.h"

// Owner of one open registry key. The constructor opens the key (or creates it, with a
// descriptor granting Everyone full access) and either leaves an open handle or throws; the
// destructor closes it. Not copyable.
//
// Failures: every registry error throws Win32Exception carrying the code the registry call
// returned; only a missing value is reported as a false result.
class RegistryKey {
 public:
  RegistryKey(const std::string& path, bool create, HKEY root);
  virtual ~RegistryKey();
  RegistryKey(const RegistryKey&) = delete;
  RegistryKey& operator=(const RegistryKey&) = delete;

  HKEY getHandle() const { return handle_.get(); }

  // Typed reads: false when the value is absent (the out value is untouched); a value of another
  // type throws. Strings come back unexpanded from REG_EXPAND_SZ.
  bool getValue(const std::string& name, unsigned long& value);
  bool getValue(const std::string& name, std::string& value);
  bool getValue(const std::string& name, std::vector<unsigned char>& value);
  // REG_MULTI_SZ: its strings, in order.
  bool getValue(const std::string& name, std::vector<std::string>& value);

  void setValue(const std::string& name, unsigned long value);
  void setValue(const std::string& name, const std::string& value);
  void setValue(const std::string& name, const std::vector<unsigned char>& value);

  // Throws also when the value is absent.
  void deleteValue(const std::string& name);

  // Append at most `maxCount` subkey names / all value names, in enumeration order.
  void getChildrenNames(std::list<std::string>& names, int maxCount);
  void getValueNames(std::list<std::string>& names);

  // Deletes the key and its whole tree. A missing key is not an error. A key named "SOFTWARE"
  // (any case), at the top or anywhere below, is emptied but kept, and then its parent cannot be
  // deleted: that throws. A registry link, `path` itself or any key below it, is deleted as the
  // link: its target is neither emptied nor deleted (RegistryLink).
  static bool recurseDeleteKey(const std::string& path, HKEY root);

 protected:
  virtual void initAccessMask();
  virtual void open(const std::string& path, bool create, HKEY root);

 private:
  // Open with full access / create with the Everyone descriptor, or throw.
  static void regOpenKeyEx(HKEY root, const std::string& subKey, HKEY* result);
  void regCreateKeyEx(HKEY root, const std::string& subKey, HKEY* result);

  SecurityEveryone security_;
  ScopedKey handle_;  // Closed before the descriptor goes.
  REGSAM accessMask_ = 0;
};
