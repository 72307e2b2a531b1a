#pragma once

#include <string>

// The installed versions of the application software and the catalog data, read from their
// version files (the text of the first PackageVersion element in the first 1024 bytes). The
// version is passed on as it stands; "0.0.0.0" means unknown or not installed. Nothing throws.
class VersionInfo {
 public:
  static const std::string kUnknownVersion;

  // From "DllPath" + "OrreryVersionInfoFileName" (default: local id + "Prog.ver").
  static std::string GetOrreryVersionNumber();
  // From "DataPath" + "CatalogVersionInfoFileName" (default: "orData.ver").
  static std::string GetCatalogVersionNumber();
  static std::string GetVersionNumber(const std::string& fileName);

  VersionInfo() = delete;
};
