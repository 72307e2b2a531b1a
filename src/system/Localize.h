#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

// The product family of this copy of the program, chosen by the first two characters of the
// module's file name, and the registry paths that follow from it.
//
// A singleton created first at start-up and destroyed last at shutdown. getInstance() before
// createInstance() throws a plain character string (not an Exception). Construction throws
// Win32Exception when the module's file name cannot be read.
class Localize {
 public:
  // Registry path kinds of getRegistryPath().
  enum : uint32_t { kLocalPath = 0, kSharedPath = 1 };

  // Creates the instance once for `module` (null: the program's own executable).
  static void createInstance(HMODULE module = nullptr);
  static Localize* getInstance();
  static void destroyInstance();

  Localize(const Localize&) = delete;
  Localize& operator=(const Localize&) = delete;

  // The first four characters of the module's file name, letters A-Z lower-cased.
  std::string getLocalId() const;
  std::string getModulePath() const { return modulePath_; }
  // "Software\" + family key, or "Software\Corvane Tools" when no family matches.
  std::string getProductFamilyRegistryPath() const;
  // The product-family path + "\QNV\".
  std::string getQnvRegistryPath() const;
  // kLocalPath: the QNV path + "Local\" + local id + "\"; kSharedPath: the QNV path + "Shared\";
  // any other kind: the temporary path.
  std::string getRegistryPath(uint32_t kind) const;
  // True when a family row with the laser flag matches the prefix.
  bool isLaserProductFamily() const;

 private:
  explicit Localize(HMODULE module);
  bool queryLocalId(std::string& localId) const;
  bool findProductFamilyPath(std::string& path) const;

  HMODULE module_;
  std::string localId_;
  std::string modulePath_;
  uint32_t reserved_ = 0;
};
