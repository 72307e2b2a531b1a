#include <gtest/gtest.h>

#include "logging/Logger.h"
#include "support/TestSupport.h"

// The installer tool under a name of its own in this executable's family, local id "<xx>sz": it
// installs <xx>szqnv.loc beside it into "...\Local\<xx>sz\" and never touches the program's
// store. It says what it did in one line: on stdout when it installed everything, on stderr
// otherwise.
TEST(SettingsInstallerTool, InstallsTheFileBesideItAndExitsWithWhatHappened) {
  const std::string id = testsupport::localId().substr(0, 2) + "sz";
  const std::string file = testsupport::executableDirectory() + id + "qnv.loc";
  const std::string root = testsupport::familyPath() + "\\QNV\\Local\\" + id + "\\";
  const std::string store = "HKLM\\" + root;
  // The shipped sample, moved from the program's store to the tool's.
  std::string sample = testsupport::readFile(testsupport::executableDirectory() + "cvupqnv.loc");
  const std::string programRoot = "Software\\CorvaneInkjet\\QNV\\Local\\cvup\\";
  for (size_t at = 0; (at = sample.find(programRoot, at)) != std::string::npos;)
    sample.replace(at, programRoot.size(), root);
  const struct {
    std::string content;  // empty: no file
    std::string arguments;
    DWORD exitCode;
    std::string output;    // its start
    std::string interval;  // the PrinterPollInterval installed
  } rows[] = {
      {sample, "", 0, "Installed the default settings from " + file + " into " + store + "\r\n",
       "2000"},
      {"", "", 2, "Settings file not found: " + file, "none"},
      {sample, "/quiet", 2, "Usage: ", "none"},
      {"[" + root + "Settings\\Updater]\r\nPrinterPollInterval=dword:7\r\nBad=DWORD:1\r\n", "", 1,
       "Could not install every default setting from " + file + " into " + store + " (status 1359)",
       "7"}};
  for (const auto& row : rows) {
    testsupport::deleteKeyTree(root);
    DeleteFileA(file.c_str());
    if (!row.content.empty())
      testsupport::writeFile(file, row.content);
    DWORD exitCode = 99;
    std::string errors;
    const std::string output = testsupport::runCopy("cvupsettings.exe", id + "tool.exe",
                                                    row.arguments, "", &exitCode, &errors);
    EXPECT_EQ(row.exitCode, exitCode) << output << errors;
    const bool failed = row.exitCode != 0;
    EXPECT_EQ(row.output, (failed ? errors : output).substr(0, row.output.size()));
    EXPECT_EQ("", failed ? output : errors);
    EXPECT_EQ(row.interval,
              testsupport::registryValue(root + "Settings\\Updater", "PrinterPollInterval"));
  }
  testsupport::deleteKeyTree(root);
  DeleteFileA(file.c_str());
  DeleteFileA((Logger::getAllUsersProfileDir() + id + "QNV.log").c_str());
}
