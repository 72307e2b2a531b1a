#include <gtest/gtest.h>

#include <map>

#include "support/TestSupport.h"
#include "updater/CurrentProcess.h"
#include "updater/OsVersion.h"

namespace {

struct VersionCase {
  const char* wineVersion;
  const char* code;
  const char* vistaOrLater;
  const char* driverSuffix;  // What getPrinterDriverDirectory() appends.
  const char* infoSize;      // 156 once the extended record was asked for.
};

bool endsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

class WindowsVersion : public testing::TestWithParam<VersionCase> {};

TEST_P(WindowsVersion, GivesTheCodeAndTheDriverDirectorySuffix) {
  const VersionCase& c = GetParam();
  std::map<std::string, std::string> facts = testsupport::runHelperCopy(
      std::string("cvver_") + c.wineVersion + ".exe", "probe", c.wineVersion);
  ASSERT_FALSE(facts.empty());
  EXPECT_EQ(c.code, facts["windowsVersion"]);
  EXPECT_EQ(c.vistaOrLater, facts["vistaOrLater"]);
  EXPECT_EQ("1", facts["nt"]);
  EXPECT_EQ("0", facts["wow64"]);
  EXPECT_EQ(c.infoSize, facts["infoSize"]);
  const std::string directory = facts["driverDirectory"];
  EXPECT_TRUE(endsWith(directory, std::string("\\x64") + c.driverSuffix)) << directory;
}

// 6.2 has no code of its own (0), so it gets no suffix although it is "Vista or later".
INSTANTIATE_TEST_SUITE_P(WineVersions,
                         WindowsVersion,
                         testing::Values(VersionCase{"nt40", "4", "0", "\\2", "148"},
                                         VersionCase{"win2k", "5", "0", "\\3", "156"},
                                         VersionCase{"winxp", "6", "0", "\\3", "156"},
                                         VersionCase{"winxp64", "7", "0", "\\3", "156"},
                                         VersionCase{"vista", "8", "1", "\\3", "156"},
                                         VersionCase{"win7", "9", "1", "\\3", "156"},
                                         VersionCase{"win10", "0", "1", "", "156"}));

TEST(CurrentProcess, KnowsItsPathAndDirectory) {
  CurrentProcess* process = CurrentProcess::getInstance();
  EXPECT_EQ(process, CurrentProcess::getInstance());
  EXPECT_TRUE(endsWith(process->getPath(), "\\cvctl_tests.exe"));
  EXPECT_EQ(testsupport::executableDirectory(), process->getDirectory());
  EXPECT_TRUE(process->isUacEnabled());
  EXPECT_TRUE(process->is64BitProcess());
  CurrentProcess::destroyInstance();
  EXPECT_EQ(testsupport::executableDirectory(), CurrentProcess::getInstance()->getDirectory());
}

TEST(CurrentProcess, FileExistsOnlyFailsForMissingFilesAndPaths) {
  testsupport::TempDir directory;
  testsupport::writeFile(directory.file("present.txt"), "x");
  EXPECT_TRUE(CurrentProcess::fileExists(directory.file("present.txt")));
  EXPECT_TRUE(CurrentProcess::fileExists(directory.path()));
  EXPECT_FALSE(CurrentProcess::fileExists(directory.file("absent.txt")));
  EXPECT_FALSE(CurrentProcess::fileExists(directory.file("absent\\deeper\\file.txt")));
  // An invalid name is an error other than "not found": it counts as existing.
  EXPECT_TRUE(CurrentProcess::fileExists(directory.file("bad\"name?.txt")));
}
