#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "system/CurrentProcess.h"

// What the Windows version decides, seen from copies of the helper that Wine presents as each
// version: its code (6.2 has none, so its driver directory gets no suffix although it counts as
// Vista or later), the OS code sent to the service (the 64-bit build reports "9" on 5.2 and "11"
// on 6.0), and whether the administrator test asks the spooler (from Vista on: the first printer
// of the driver, here one that refuses full rights).
TEST(OsVersion, DecidesTheCodesTheDriverDirectoryAndTheAdministratorTest) {
  testsupport::ScopedStore store;
  store.set("Settings\\", "DriverName", "Corvane Inkjet Driver");
  testsupport::SpoolerScenario spooler;
  PrinterScenario locked{"Locked", "Corvane Inkjet Driver"};
  locked.failOpen = ERROR_ACCESS_DENIED;
  spooler.write({locked});
  const char* rows[][6] = {
      {"nt40", "4", "0", "\\x64\\2", "3", "1"},   {"win2k", "5", "0", "\\x64\\3", "3", "1"},
      {"winxp", "6", "0", "\\x64\\3", "5", "1"},  {"winxp64", "7", "0", "\\x64\\3", "9", "1"},
      {"vista", "8", "1", "\\x64\\3", "11", "0"}, {"win7", "9", "1", "\\x64\\3", "3", "0"},
      {"win10", "0", "1", "\\x64", "3", "0"}};
  for (const auto& [version, code, vistaOrLater, suffix, os, admin] : rows) {
    std::map<std::string, std::string> facts = testsupport::facts(testsupport::runCopy(
        "test_helper.exe", testsupport::localId() + "_" + version + ".exe", "probe", version));
    EXPECT_EQ(code, facts["windowsVersion"]) << version;
    EXPECT_EQ(vistaOrLater, facts["vistaOrLater"]) << version;
    EXPECT_EQ("C:\\windows\\system32\\spool\\drivers" + std::string(suffix),
              facts["driverDirectory"])
        << version;
    EXPECT_EQ(os, facts["os"]) << version;
    EXPECT_EQ(admin, facts["admin"]) << version;
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
