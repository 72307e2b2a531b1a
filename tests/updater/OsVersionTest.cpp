#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "updater/CurrentProcess.h"

// Seen from processes that Wine presents as each version. 6.2 has no code of its own (0), so it
// gets no driver-directory suffix although it counts as Vista or later.
TEST(OsVersion, GivesTheVersionCodeAndTheDriverDirectory) {
  const char* rows[][5] = {
      {"nt40", "4", "0", "\\x64\\2", "148"},  {"win2k", "5", "0", "\\x64\\3", "156"},
      {"winxp", "6", "0", "\\x64\\3", "156"}, {"winxp64", "7", "0", "\\x64\\3", "156"},
      {"vista", "8", "1", "\\x64\\3", "156"}, {"win7", "9", "1", "\\x64\\3", "156"},
      {"win10", "0", "1", "\\x64", "156"}};
  for (const auto& [version, code, vistaOrLater, suffix, infoSize] : rows) {
    std::map<std::string, std::string> facts =
        testsupport::runHelperCopy(std::string("cvver_") + version + ".exe", "probe", version);
    EXPECT_EQ(code, facts["windowsVersion"]) << version;
    EXPECT_EQ(vistaOrLater, facts["vistaOrLater"]) << version;
    EXPECT_EQ("0", facts["wow64"]) << version;
    EXPECT_EQ(infoSize, facts["infoSize"]) << version;
    EXPECT_EQ("C:\\windows\\system32\\spool\\drivers" + std::string(suffix),
              facts["driverDirectory"])
        << version;
    EXPECT_EQ(testsupport::executableDirectory(), facts["directory"]) << version;
  }
}

// Only "not found" means missing: an invalid name, for one, counts as existing.
TEST(CurrentProcess, FileExistsIsFalseOnlyForMissingFilesAndPaths) {
  testsupport::TempDir directory;
  testsupport::writeFile(directory.file("present.txt"), "x");
  EXPECT_TRUE(CurrentProcess::fileExists(directory.file("present.txt")));
  EXPECT_TRUE(CurrentProcess::fileExists(directory.path()));
  EXPECT_FALSE(CurrentProcess::fileExists(directory.file("absent.txt")));
  EXPECT_FALSE(CurrentProcess::fileExists(directory.file("absent\\deeper\\file.txt")));
  EXPECT_TRUE(CurrentProcess::fileExists(directory.file("bad\"name?.txt")));
}
