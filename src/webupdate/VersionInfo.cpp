#include "webupdate/VersionInfo.h"

#include <cstring>
#include <fstream>

#include "logging/FunctionTrace.h"
#include "settings/PathHelpers.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "system/Localize.h"

const std::string VersionInfo::kUnknownVersion = "0.0.0.0";

namespace {

const char kElementName[] = "PackageVersion";
const size_t kReadSize = 1024;

// The version held in the file that a file-name setting and a directory setting (both in
// "Settings\", written back with their defaults when absent) point at.
std::string readInstalledVersion(const char* traceName,
                                 const char* fileNameSetting,
                                 const std::string& defaultFileName,
                                 const char* directorySetting) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, traceName);
  Settings settings;
  std::string fileName = defaultFileName;
  settings.getOrCreateStringValue(SettingsKeys::kSettingsSection, fileNameSetting, fileName,
                                  defaultFileName, 0);
  std::string directory = ".";
  settings.getOrCreateStringValue(SettingsKeys::kSettingsSection, directorySetting, directory, ".",
                                  0);
  std::string version = VersionInfo::GetVersionNumber(joinPath(directory, fileName));
  trace.setRc(version);
  return version;
}

}  // namespace

std::string VersionInfo::GetOrreryVersionNumber() {
  return readInstalledVersion(
      "VersionInfo::GetOrreryVersionNumber()", SettingsKeys::kOrreryVersionInfoFileName,
      Localize::getInstance()->getLocalId() + "Prog.ver", SettingsKeys::kDllPath);
}

std::string VersionInfo::GetCatalogVersionNumber() {
  return readInstalledVersion("VersionInfo::GetCatalogVersionNumber()",
                              SettingsKeys::kCatalogVersionInfoFileName, "orData.ver",
                              SettingsKeys::kDataPath);
}

std::string VersionInfo::GetVersionNumber(const std::string& fileName) {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "VersionInfo::GetVersionNumber(" + fileName + ")");
  std::string version = kUnknownVersion;
  // Text mode: a carriage return before a line feed is dropped.
  std::ifstream file(fileName.c_str());
  if (!file.is_open()) {
    trace.detail([&] { return "FAILED to open: '" + fileName + "'"; });
    return version;
  }
  char buffer[kReadSize] = {};
  file.read(buffer, kReadSize);
  // A full buffer has no terminating zero: stop at 1024 bytes.
  const std::string text(buffer, strnlen(buffer, kReadSize));

  const std::string openTag = std::string("<") + kElementName + ">";
  const std::string closeTag = std::string("</") + kElementName + ">";
  const std::string::size_type open = text.find(openTag);
  const std::string::size_type close = text.find(closeTag);
  if (open != std::string::npos && close != std::string::npos) {
    const std::string::size_type start = open + openTag.size();
    // A closing tag before the opening one reads to the end of the text; deliberate.
    version = close >= start ? text.substr(start, close - start) : text.substr(start);
  } else {
    BasicLogger::getInstance().write(
        kLogUpdater, LOG_ALWAYS,
        "Unable to read the PackageVersion element from the file '" + fileName + "'");
  }
  trace.setRc(version);
  return version;
}
