#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "webupdate/VersionInfo.h"

namespace {

std::string element(const std::string& text) {
  return "<PackageVersion>" + text + "</PackageVersion>";
}

}  // namespace

// The text of the first PackageVersion element within the file's first 1024 bytes, read in text
// mode; "0.0.0.0" when there is none, with a line that says so.
TEST(VersionInfo, IsTheTextOfTheFirstElementInTheFirst1024Bytes) {
  const std::pair<std::string, std::string> rows[] = {
      {"<?xml version=\"1.0\"?>\r\n<P>" + element("3.1.0.7") + "</P>", "3.1.0.7"},
      {element("  2.0\r\n "), "  2.0\n "},
      {element("1.1") + element("2.2"), "1.1"},
      {"</PackageVersion>x<PackageVersion>4.5 tail", "4.5 tail"},
      {"<PackageVersion>4.5", "0.0.0.0"},
      {"<Version>1</Version>", "0.0.0.0"},
      {std::string(1024 - 36, ' ') + element("9.9"), "9.9"},
      {std::string(1024 - 35, ' ') + element("9.9"), "0.0.0.0"},
      {std::string("ab\0", 3) + element("1"), "0.0.0.0"},
  };
  testsupport::ScopedStore store;
  testsupport::TempDir directory;
  const std::string path = directory.file("version.ver");
  for (const auto& [content, version] : rows) {
    testsupport::writeFile(path, content);
    testsupport::LogCapture log;
    EXPECT_EQ(version, VersionInfo::GetVersionNumber(path)) << content;
    EXPECT_EQ(
        version == "0.0.0.0",
        log.contains("Unable to read the PackageVersion element from the file '" + path + "'"));
  }
  EXPECT_EQ("0.0.0.0", VersionInfo::GetVersionNumber(directory.file("absent.ver")));
}

// The installed versions come from the files that "Settings\" names, whose defaults (local id +
// "Prog.ver" and "orData.ver" in ".") are written back.
TEST(VersionInfo, InstalledVersionsComeFromTheConfiguredFiles) {
  testsupport::ScopedStore store;
  testsupport::TempDir program;
  testsupport::writeFile(program.file("hkweProg.ver"), element("5.0.0.1"));
  testsupport::writeFile(program.file("catalog.ver"), element("2026.3"));
  EXPECT_EQ("0.0.0.0", VersionInfo::GetCatalogVersionNumber());
  EXPECT_EQ(".", store.get("Settings\\", "DataPath"));
  EXPECT_EQ("orData.ver", store.get("Settings\\", "CatalogVersionInfoFileName"));
  store.set("Settings\\", "DllPath", program.path());
  store.set("Settings\\", "DataPath", program.path() + "\\");
  store.set("Settings\\", "CatalogVersionInfoFileName", "\\catalog.ver");
  EXPECT_EQ("5.0.0.1", VersionInfo::GetOrreryVersionNumber());
  EXPECT_EQ("2026.3", VersionInfo::GetCatalogVersionNumber());
  EXPECT_EQ("hkweProg.ver", store.get("Settings\\", "OrreryVersionInfoFileName"));
}
