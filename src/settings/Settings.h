#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "settings/BasicSettings.h"

// The program's own settings store: BasicSettings rooted at the product family's QNV path with
// this program's local id (both from Localize, which must exist). Not a singleton: construct one
// per use. `isValid()` tells whether the scope-0 root existed at construction.
//
// Fleet policy: the typed reads of scope 0 consult settings/Policy. For a setting of the policy
// table with a policy value in force, `value` receives the policy's value, whether or not the
// store had one; the store is read, and by the read-with-default operations written, exactly as
// without a policy, and the result and the last-error code are the store's. Nothing above this
// class tells a policy value from a stored one.
class Settings : public BasicSettings {
 public:
  // Status codes of installDefaultSettings().
  enum : uint32_t { kInstalled = 0, kInstallFailed = 1359 };

  // One setting of the policy table as a run would read it now.
  struct EffectiveValue {
    std::string section;
    std::string name;
    std::string value;   // a DWORD in decimal, a text as it is, hashes joined by ';'
    std::string source;  // "policy", "store" or "default"
    bool isSet = false;  // false: neither policy nor store has it and it has no default
  };

  Settings();

  bool getOrCreateDwordValue(const std::string& section,
                             const std::string& name,
                             unsigned long& value,
                             unsigned long defaultValue,
                             int scope) override;
  bool getDwordValue(const std::string& section,
                     const std::string& name,
                     unsigned long& value,
                     int scope) override;
  bool getOrCreateStringValue(const std::string& section,
                              const std::string& name,
                              std::string& value,
                              const std::string& defaultValue,
                              int scope) override;
  bool getStringValue(const std::string& section,
                      const std::string& name,
                      std::string& value,
                      int scope) override;
  // A REG_MULTI_SZ value, one string each, with the same failures as the other plain reads and
  // the same policy rule.
  bool getMultiStringValue(const std::string& section,
                           const std::string& name,
                           std::vector<std::string>& value,
                           int scope);

  // Every setting of the policy table, in the table's order: the policy's value when one is in
  // force, else the store's (of the right type), else the default. Reads only: unlike the
  // read-with-default operations it creates nothing.
  std::vector<EffectiveValue> getEffectiveValues();

  // Removes this program's scope-0 store; when no other local id remains and
  // "DeleteStoreOnUninstall" is not 0, the whole product-family key too. Throws Win32Exception.
  bool deleteStore() override;
  void getKeyPath(std::string& path, int scope) override;

  bool isValid() const { return valid_; }
  // Installs the settings file beside the executable (local id + "qnv.loc") into the registry.
  uint32_t installDefaultSettings();
  bool isKnownProductFamily();

  // The settings file's name: local id + "qnv.loc".
  static std::string getMarkerFilePath();

 private:
  // The store's REG_MULTI_SZ value, no policy consulted.
  bool readMultiString(const std::string& section,
                       const std::string& name,
                       std::vector<std::string>& value,
                       int scope);

  bool valid_ = false;
};
