#pragma once

#include <cstdint>
#include <string>

#include "settings/BasicSettings.h"

// The program's own settings store: BasicSettings rooted at the product family's QNV path with
// this program's local id (both from Localize, which must exist). Not a singleton: construct one
// per use. `isValid()` tells whether the scope-0 root existed at construction.
class Settings : public BasicSettings {
 public:
  // Status codes of installDefaultSettings().
  enum : uint32_t { kInstalled = 0, kInstallFailed = 1359 };

  Settings();

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
  bool valid_ = false;
};
