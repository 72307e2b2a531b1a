#pragma once

#include <list>
#include <string>
#include <vector>

// Typed access to a registry-backed settings store below HKEY_LOCAL_MACHINE, relative to a store
// root: scope 0 is "Local\<local id>\" below the root, any other scope "Shared\".
//
// Each operation opens its own RegistryKey and closes it before returning. No operation lets an
// exception out except deleteKey: a missing value reads as false with the last-error code left
// alone; any other registry failure reads as false with the failure's code in GetLastError().
// The read-with-default operations create nothing and return false when the root itself is
// missing; otherwise they write the default back when the value is absent.
class BasicSettings {
 public:
  BasicSettings(const std::string& rootPath, const std::string& localId);
  virtual ~BasicSettings();

  virtual bool getOrCreateBinaryValue(const std::string& section,
                                      const std::string& name,
                                      std::vector<unsigned char>& value,
                                      const std::vector<unsigned char>& defaultValue,
                                      int scope);
  virtual bool getBinaryValue(const std::string& section,
                              const std::string& name,
                              std::vector<unsigned char>& value,
                              int scope);
  virtual bool getOrCreateDwordValue(const std::string& section,
                                     const std::string& name,
                                     unsigned long& value,
                                     unsigned long defaultValue,
                                     int scope);
  virtual bool getDwordValue(const std::string& section,
                             const std::string& name,
                             unsigned long& value,
                             int scope);
  virtual bool getOrCreateStringValue(const std::string& section,
                                      const std::string& name,
                                      std::string& value,
                                      const std::string& defaultValue,
                                      int scope);
  virtual bool getStringValue(const std::string& section,
                              const std::string& name,
                              std::string& value,
                              int scope);
  virtual bool setStringValue(const std::string& section,
                              const std::string& name,
                              const std::string& value,
                              int scope);
  virtual bool setDwordValue(const std::string& section,
                             const std::string& name,
                             unsigned long value,
                             int scope);
  virtual bool getValueNames(const std::string& section, std::list<std::string>& names, int scope);
  // Throws Win32Exception when the recursive delete fails.
  virtual bool deleteKey(const std::string& section, int scope);
  virtual bool deleteValue(const std::string& section, const std::string& name, int scope);
  virtual bool deleteStore();
  virtual void getKeyPath(std::string& path, int scope);

  // Whether the root (without scope) exists below HKEY_LOCAL_MACHINE.
  bool rootKeyExists();

 protected:
  const std::string& rootPath() const { return rootPath_; }

 private:
  // Runs `operation` on the key of `section`; a Win32Exception becomes false + SetLastError.
  template <typename Operation>
  bool withKey(const std::string& section, int scope, bool create, Operation operation);
  // Reads `name`; when it is absent writes `defaultValue` and returns it. Creates nothing while
  // the root is missing.
  template <typename Value>
  bool getOrCreate(const std::string& section,
                   const std::string& name,
                   Value& value,
                   const Value& defaultValue,
                   int scope);

  std::string rootPath_;
  std::string localId_;
};
