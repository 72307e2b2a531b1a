#include <gtest/gtest.h>

#include <string>

#include "logging/Logger.h"
#include "support/TestSupport.h"

using testsupport::ScopedStore;

namespace {

// The sample settings file, as the build puts it beside the programs, and the program's store.
// (The main job installs the sample itself through the tool and runs on it.)
const char kSample[] = "cvupqnv.loc";
const char kProgramRoot[] = "Software\\CorvaneInkjet\\QNV\\Local\\cvup\\";

// The installer tool under a name of its own: local id "cvsz", so it installs cvszqnv.loc into
// the store "...\Local\cvsz\" and never touches the program's.
const char kToolCopy[] = "cvsztool.exe";
const char kToolRoot[] = "Software\\CorvaneInkjet\\QNV\\Local\\cvsz\\";

std::string besideTests(const std::string& name) {
  return testsupport::executableDirectory() + name;
}

// The sample with its store root replaced by `root`.
std::string sampleFor(const std::string& root) {
  std::string text = testsupport::readFile(besideTests(kSample));
  const std::string from = std::string("[") + kProgramRoot;
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + 1))
    text.replace(at, from.size(), "[" + root);
  return text;
}

std::string firstLine(const std::string& text) {
  return text.substr(0, text.find_first_of("\r\n"));
}

bool dwordAt(const std::string& keyPath, const char* name, DWORD& value) {
  DWORD size = sizeof(value);
  return RegGetValueA(HKEY_LOCAL_MACHINE, keyPath.c_str(), name, RRF_RT_REG_DWORD, nullptr, &value,
                      &size) == ERROR_SUCCESS;
}

// A file beside the test executable, removed at the end of the scope.
class FileBeside {
 public:
  explicit FileBeside(const std::string& name) : path_(besideTests(name)) {
    DeleteFileA(path_.c_str());
  }
  ~FileBeside() { DeleteFileA(path_.c_str()); }
  FileBeside(const FileBeside&) = delete;
  FileBeside& operator=(const FileBeside&) = delete;
  const std::string& path() const { return path_; }
  // Also flushes the private-profile functions' cached copy of the file (all three names null),
  // so that the next read sees the new content.
  bool write(const std::string& content) const {
    const bool written = testsupport::writeFile(path_, content);
    WritePrivateProfileStringA(nullptr, nullptr, nullptr, path_.c_str());
    return written;
  }

 private:
  std::string path_;
};

}  // namespace

class SettingsInstallerTool : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(testsupport::copyBeside("cvupsettings.exe", kToolCopy)); }
  ~SettingsInstallerTool() override {
    DeleteFileA(besideTests(kToolCopy).c_str());
    DeleteFileA((Logger::getAllUsersProfileDir() + "cvszQNV.log").c_str());
  }

  testsupport::ProcessResult run(const std::string& arguments = "") {
    return testsupport::runProcess("\"" + besideTests(kToolCopy) + "\"" + arguments, 30000);
  }

  ScopedStore store_;
  FileBeside settingsFile_{"cvszqnv.loc"};
  const std::string storeName_ = std::string("HKLM\\") + kToolRoot;
};

TEST_F(SettingsInstallerTool, InstallsTheFileBesideItAndSaysSoInOneLine) {
  ASSERT_TRUE(settingsFile_.write(sampleFor(kToolRoot)));
  const testsupport::ProcessResult result = run();
  ASSERT_TRUE(result.started);
  EXPECT_EQ(0u, result.exitCode);
  EXPECT_EQ("Installed the default settings from " + settingsFile_.path() + " into " + storeName_ +
                "\r\n",
            result.output);
  DWORD interval = 0;
  EXPECT_TRUE(
      dwordAt(std::string(kToolRoot) + "Settings\\Updater", "PrinterPollInterval", interval));
  EXPECT_EQ(2000u, interval);
}

TEST_F(SettingsInstallerTool, FailsWithoutTheFileAndInstallsNothing) {
  const testsupport::ProcessResult result = run();
  ASSERT_TRUE(result.started);
  EXPECT_EQ(2u, result.exitCode);
  EXPECT_EQ("Settings file not found: " + settingsFile_.path(), firstLine(result.output));
  HKEY key = nullptr;
  EXPECT_NE(ERROR_SUCCESS, RegOpenKeyExA(HKEY_LOCAL_MACHINE, kToolRoot, 0, KEY_READ, &key));
}

TEST_F(SettingsInstallerTool, RefusesArgumentsAndInstallsNothing) {
  ASSERT_TRUE(settingsFile_.write(sampleFor(kToolRoot)));
  const testsupport::ProcessResult result = run(" /quiet");
  ASSERT_TRUE(result.started);
  EXPECT_EQ(2u, result.exitCode);
  EXPECT_EQ(0u, result.output.find("Usage: ")) << result.output;
  HKEY key = nullptr;
  EXPECT_NE(ERROR_SUCCESS, RegOpenKeyExA(HKEY_LOCAL_MACHINE, kToolRoot, 0, KEY_READ, &key));
}

TEST_F(SettingsInstallerTool, FailsWhenAnEntryCannotBeInstalledButKeepsTheOthers) {
  ASSERT_TRUE(settingsFile_.write(std::string("[") + kToolRoot +
                                  "Settings\\Updater]\r\nDataUpdated=dword:1\r\nBad=DWORD:1\r\n"));
  const testsupport::ProcessResult result = run();
  ASSERT_TRUE(result.started);
  EXPECT_EQ(1u, result.exitCode);
  EXPECT_EQ(0u, result.output.find("Could not install every default setting from " +
                                   settingsFile_.path() + " into " + storeName_ + " (status 1359)"))
      << result.output;
  DWORD flag = 0;
  EXPECT_TRUE(dwordAt(std::string(kToolRoot) + "Settings\\Updater", "DataUpdated", flag));
  EXPECT_EQ(1u, flag);
}
