#include <gtest/gtest.h>

#include <string>

#include "logging/Logger.h"
#include "settings/IniReader.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "support/TestSupport.h"

using testsupport::ScopedStore;

namespace {

// The sample settings file, as the build puts it beside the programs, and the program's store.
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

TEST(SettingsSample, LiesInTheProgramsStoreAndGivesEveryUpdateRunSettingItsType) {
  {
    IniReader reader(besideTests(kSample));
    ASSERT_TRUE(reader.isBuilt());
    for (const std::string& section : reader.getSections())
      EXPECT_EQ(0u, section.find(kProgramRoot)) << section;
  }
  // Installed as this executable's own settings file, and read back as the program reads it.
  ScopedStore store;
  FileBeside marker(Settings::getMarkerFilePath());
  ASSERT_TRUE(marker.write(sampleFor(testsupport::storeRoot())));
  ASSERT_EQ(0u, Settings().installDefaultSettings());

  using namespace SettingsKeys;
  const char* const dwords[][2] = {
      {kUpdaterSection, kPrinterPollInterval},
      {kUpdaterSection, kDoNotDeleteDownloadedFiles},
      {kUpdaterSection, kCheckForUpdateTimeOut},
      {kUpdaterSection, kCheckForUpdateRetryCount},
      {kUpdaterSection, kDownloadUpdateTimeOut},
      {kUpdaterSection, kDownloadUpdateRetryCount},
      {kUpdaterSection, kDataUpdated},
      {kUpdaterSection, kCompleteSoftwareUpdated},
      {kSettingsSection, kDeleteStoreOnUninstall},
      {kLoggerSection, kStartLog},
      {kLoggerSection, kProcIdInHeader},
  };
  const char* const strings[][2] = {
      {kUpdaterSection, kWebServerUrl},
      {kUpdaterSection, kTandemOrreryVersionPackageCode},
      {kUpdaterSection, kTandemCatalogVersionPackageCode},
      {kUpdaterSection, kTandemOrreryDownloadPackageCode},
      {kUpdaterSection, kTandemCatalogDownloadPackageCode},
      {kUpdaterSection, kDataUpdatesDirectoryName},
      {kSettingsSection, kOrreryVersionInfoFileName},
      {kSettingsSection, kCatalogVersionInfoFileName},
      {kSettingsSection, kDllPath},
      {kSettingsSection, kDataPath},
      {kSettingsSection, kDriverName},
  };
  Settings settings;
  unsigned long number = 0;
  for (const auto& key : dwords)
    EXPECT_TRUE(settings.getDwordValue(key[0], key[1], number, 0)) << key[1];
  std::string text;
  for (const auto& key : strings)
    EXPECT_TRUE(settings.getStringValue(key[0], key[1], text, 0)) << key[1];

  ASSERT_TRUE(settings.getDwordValue(kUpdaterSection, kPrinterPollInterval, number, 0));
  EXPECT_EQ(2000u, number);
  ASSERT_TRUE(settings.getStringValue(kUpdaterSection, kWebServerUrl, text, 0));
  EXPECT_EQ(0u, text.find("http://127.0.0.1:8765/")) << text;
  for (const char* placeholder :
       {"[package_code]", "[language_code]", "[country_code]", "[os_code]"})
    EXPECT_NE(std::string::npos, text.find(placeholder)) << placeholder;
  ASSERT_TRUE(settings.getStringValue(kSettingsSection, kDriverName, text, 0));
  EXPECT_EQ("Corvane Inkjet Driver", text);
  // Left for the program to fill in on its first run.
  EXPECT_FALSE(settings.getStringValue(kUpdaterSection, kWebUpdaterDllPath, text, 0));
}

class SettingsInstallerTool : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(testsupport::copyBeside("cvupsettings.exe", kToolCopy)); }
  ~SettingsInstallerTool() override {
    DeleteFileA(besideTests(kToolCopy).c_str());
    DeleteFileA((Logger::getAllUsersProfileDir() + "cvszQNV.log").c_str());
  }

  testsupport::ProcessResult run() {
    return testsupport::runProcess("\"" + besideTests(kToolCopy) + "\"", 30000);
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
