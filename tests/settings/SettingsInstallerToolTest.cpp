#include <gtest/gtest.h>

#include "logging/Logger.h"
#include "support/TestSupport.h"

// The installer tool under a name of its own, local id "cvsz": it installs cvszqnv.loc beside it
// into "...\Local\cvsz\" and never touches the program's store.
TEST(SettingsInstallerTool, InstallsTheFileBesideItAndSaysWhatItDidInOneLine) {
  const std::string directory = testsupport::executableDirectory();
  const std::string file = directory + "cvszqnv.loc";
  const std::string root = "Software\\CorvaneInkjet\\QNV\\Local\\cvsz\\";
  const std::string store = "HKLM\\" + root;
  // The shipped sample, moved from the program's store to the tool's.
  std::string sample = testsupport::readFile(directory + "cvupqnv.loc");
  for (size_t at = 0; (at = sample.find("\\Local\\cvup\\", at)) != std::string::npos;)
    sample.replace(at, 12, "\\Local\\cvsz\\");
  const struct {
    std::string content;  // empty: no file
    std::string arguments;
    DWORD exitCode;
    std::string output;  // its start
    DWORD interval;      // the PrinterPollInterval installed, or 0
  } rows[] = {
      {sample, "", 0, "Installed the default settings from " + file + " into " + store + "\r\n",
       2000},
      {"", "", 2, "Settings file not found: " + file, 0},
      {sample, "/quiet", 2, "Usage: ", 0},
      {"[" + root + "Settings\\Updater]\r\nPrinterPollInterval=dword:7\r\nBad=DWORD:1\r\n", "", 1,
       "Could not install every default setting from " + file + " into " + store + " (status 1359)",
       7},
  };
  ASSERT_TRUE(CopyFileA((directory + "cvupsettings.exe").c_str(),
                        (directory + "cvsztool.exe").c_str(), FALSE));
  for (const auto& row : rows) {
    testsupport::deleteKeyTree("Software\\CorvaneInkjet");
    DeleteFileA(file.c_str());
    if (!row.content.empty()) {
      ASSERT_TRUE(testsupport::writeFile(file, row.content));
    }
    const testsupport::ProcessResult result =
        testsupport::runProcess(testsupport::besideTests("cvsztool.exe", row.arguments));
    EXPECT_EQ(row.exitCode, result.exitCode) << result.output;
    EXPECT_EQ(row.output, result.output.substr(0, row.output.size()));
    DWORD interval = 0, size = sizeof(interval);
    RegGetValueA(HKEY_LOCAL_MACHINE, (root + "Settings\\Updater").c_str(), "PrinterPollInterval",
                 RRF_RT_REG_DWORD, nullptr, &interval, &size);
    EXPECT_EQ(row.interval, interval) << row.arguments;
  }
  testsupport::deleteKeyTree("Software\\CorvaneInkjet");
  DeleteFileA(file.c_str());
  DeleteFileA((directory + "cvsztool.exe").c_str());
  DeleteFileA((Logger::getAllUsersProfileDir() + "cvszQNV.log").c_str());
}
