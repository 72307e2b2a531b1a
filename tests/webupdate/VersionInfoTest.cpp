#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "webupdate/VersionInfo.h"

using testsupport::LogCapture;
using testsupport::ScopedStore;
using testsupport::TempDir;

namespace {

struct VersionCase {
  const char* label;
  std::string content;
  const char* version;
};

std::string element(const std::string& text) {
  return "<PackageVersion>" + text + "</PackageVersion>";
}

}  // namespace

class VersionFile : public testing::TestWithParam<VersionCase> {};

TEST_P(VersionFile, YieldsTheTextOfTheFirstElement) {
  ScopedStore store;
  TempDir directory;
  const std::string path = directory.file("version.ver");
  testsupport::writeFile(path, GetParam().content);
  LogCapture log;
  EXPECT_EQ(GetParam().version, VersionInfo::GetVersionNumber(path));
  const bool unreadable = std::string(GetParam().version) == "0.0.0.0";
  EXPECT_EQ(unreadable,
            log.contains("Unable to read the PackageVersion element from the file '" + path + "'"));
}

INSTANTIATE_TEST_SUITE_P(
    Contents,
    VersionFile,
    testing::Values(
        VersionCase{"Xml", "<?xml version=\"1.0\"?>\r\n<P>" + element("3.1.0.7") + "</P>",
                    "3.1.0.7"},
        VersionCase{"BlanksAndLineBreakKept", element("  2.0\r\n "), "  2.0\n "},
        VersionCase{"FirstOfTwo", element("1.1") + element("2.2"), "1.1"},
        VersionCase{"ClosingTagFirstReadsToTheEnd", "</PackageVersion>x<PackageVersion>4.5 tail",
                    "4.5 tail"},
        VersionCase{"NoClosingTag", "<PackageVersion>4.5", "0.0.0.0"},
        VersionCase{"NoElement", "<Version>1</Version>", "0.0.0.0"},
        VersionCase{"ElementWithinTheFirst1024Bytes", std::string(1024 - 36, ' ') + element("9.9"),
                    "9.9"},
        VersionCase{"ElementCutAt1024Bytes", std::string(1024 - 35, ' ') + element("9.9"),
                    "0.0.0.0"},
        VersionCase{"ElementAfter1024Bytes", std::string(2000, 'x') + element("9.9"), "0.0.0.0"},
        VersionCase{"ZeroByteEndsTheText", std::string("ab\0", 3) + element("1"), "0.0.0.0"}),
    [](const testing::TestParamInfo<VersionCase>& info) { return info.param.label; });

TEST(VersionFiles, AMissingFileGivesTheUnknownVersionAndOneLine) {
  ScopedStore store;
  TempDir directory;
  LogCapture log;
  EXPECT_EQ("0.0.0.0", VersionInfo::GetVersionNumber(directory.file("absent.ver")));
  int lines = 0;
  for (const std::string& text : log.texts())
    lines += text.find("FAILED to open") != std::string::npos ? 1 : 0;
  EXPECT_EQ(1, lines);
  EXPECT_TRUE(log.contains("VersionInfo::GetVersionNumber(" + directory.file("absent.ver") +
                           ")FAILED to open: '" + directory.file("absent.ver") + "'"));
}

TEST(VersionFiles, InstalledVersionsComeFromTheConfiguredFiles) {
  ScopedStore store;
  TempDir program;
  TempDir data;
  testsupport::writeFile(program.file("cvweProg.ver"), element("5.0.0.1"));
  testsupport::writeFile(data.file("catalog.ver"), element("2026.3"));
  store.setString("Settings\\", "DllPath", program.path());
  store.setString("Settings\\", "DataPath", data.path() + "\\");
  store.setString("Settings\\", "CatalogVersionInfoFileName", "\\catalog.ver");
  LogCapture log;
  EXPECT_EQ("5.0.0.1", VersionInfo::GetOrreryVersionNumber());
  EXPECT_EQ("2026.3", VersionInfo::GetCatalogVersionNumber());
  EXPECT_TRUE(log.contains("-VersionInfo::GetOrreryVersionNumber() rc=5.0.0.1"));
  // The file-name default (local id + "Prog.ver") was written back.
  std::string name;
  ASSERT_TRUE(store.getString("Settings\\", "OrreryVersionInfoFileName", name));
  EXPECT_EQ("cvweProg.ver", name);
}

TEST(VersionFiles, DefaultsPointIntoTheWorkingDirectory) {
  ScopedStore store;
  EXPECT_EQ("0.0.0.0", VersionInfo::GetCatalogVersionNumber());
  std::string value;
  ASSERT_TRUE(store.getString("Settings\\", "DataPath", value));
  EXPECT_EQ(".", value);
  ASSERT_TRUE(store.getString("Settings\\", "CatalogVersionInfoFileName", value));
  EXPECT_EQ("orData.ver", value);
}
