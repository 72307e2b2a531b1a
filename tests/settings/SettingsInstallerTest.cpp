#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "logging/Logger.h"
#include "settings/Settings.h"
#include "settings/SettingsInstaller.h"
#include "support/TestSupport.h"
#include "updater/Localize.h"

using testsupport::ScopedStore;
using testsupport::TempDir;

namespace {

const char kTestRoot[] = "Software\\CorvaneTestIni";
const char kKey[] = "Software\\CorvaneTestIni\\Installer";

struct RegistryValue {
  bool found = false;
  DWORD type = REG_NONE;
  std::string data;  // the bytes as stored, data.size() is the stored size
};

RegistryValue readValue(const std::string& keyPath, const std::string& name) {
  RegistryValue value;
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS)
    return value;
  DWORD size = 0;
  if (RegQueryValueExA(key, name.c_str(), nullptr, &value.type, nullptr, &size) == ERROR_SUCCESS) {
    value.data.resize(size + 1);
    value.found = RegQueryValueExA(key, name.c_str(), nullptr, &value.type,
                                   reinterpret_cast<BYTE*>(&value.data[0]), &size) == ERROR_SUCCESS;
    value.data.resize(size);
  }
  RegCloseKey(key);
  return value;
}

std::string dwordBytes(DWORD number) {
  return std::string(reinterpret_cast<const char*>(&number), sizeof(number));
}

// Every test owns the store of this executable and the private key tree below kTestRoot.
class SettingsInstallerTest : public testing::Test {
 protected:
  ~SettingsInstallerTest() override { testsupport::deleteKeyTree(kTestRoot); }

  std::string write(const std::string& content) {
    const std::string path = dir_.file("settings" + std::to_string(++files_) + ".loc");
    EXPECT_TRUE(testsupport::writeFile(path, content));
    return path;
  }

  ScopedStore store_;
  TempDir dir_;
  int files_ = 0;
};

// The settings file beside this executable (cvseqnv.loc), removed at the end of the scope.
class MarkerFile {
 public:
  MarkerFile() : path_(testsupport::executableDirectory() + Settings::getMarkerFilePath()) {
    DeleteFileA(path_.c_str());
  }
  ~MarkerFile() { DeleteFileA(path_.c_str()); }
  MarkerFile(const MarkerFile&) = delete;
  MarkerFile& operator=(const MarkerFile&) = delete;
  // Also flushes the private-profile functions' cached copy of the file (all three names null),
  // so that the next read sees the new content.
  bool write(const std::string& content) const {
    const bool written = testsupport::writeFile(path_, content);
    WritePrivateProfileStringA(nullptr, nullptr, nullptr, path_.c_str());
    return written;
  }
  void remove() const { DeleteFileA(path_.c_str()); }

 private:
  std::string path_;
};

}  // namespace

TEST_F(SettingsInstallerTest, WritesEachValueWithTheTypeAndDataItsTypeWordGives) {
  struct Case {
    const char* name;
    const char* fileValue;
    DWORD type;  // REG_NONE: not written
    std::string data;
  };
  const Case cases[] = {
      {"Dword", "dword:30", REG_DWORD, dwordBytes(30)},
      {"Negative", "dword: -5", REG_DWORD, dwordBytes(static_cast<DWORD>(-5))},
      {"TrailingText", "dword:12abc", REG_DWORD, dwordBytes(12)},
      {"Hex", "dword:0x10", REG_DWORD, dwordBytes(0)},
      {"NoNumber", "dword:", REG_DWORD, dwordBytes(0)},
      // Strings are written without their terminating zero.
      {"String", "string:abc", REG_SZ, "abc"},
      {"NoText", "string:", REG_SZ, ""},
      {"Url", "string:http://127.0.0.1:8765/[os_code]", REG_SZ, "http://127.0.0.1:8765/[os_code]"},
      {"UpperDword", "DWORD:5", REG_NONE, ""},
      {"UpperString", "String:x", REG_NONE, ""},
      {"NoColon", "abc", REG_NONE, ""},
      {"ColonFirst", ":abc", REG_NONE, ""},
      {"OtherType", "binary:01", REG_NONE, ""},
  };
  std::string content = std::string("[") + kKey + "\\Values]\r\n";
  for (const Case& c : cases)
    content += std::string(c.name) + "=" + c.fileValue + "\r\n";
  const std::string path = write(content);
  testsupport::LogCapture log;

  EXPECT_FALSE(SettingsInstaller(path).installSettings());
  const std::string written = log.next();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const RegistryValue value = readValue(std::string(kKey) + "\\Values", c.name);
    EXPECT_EQ(c.type != REG_NONE, value.found);
    if (c.type == REG_NONE) {
      EXPECT_NE(std::string::npos,
                written.find(std::string("Could not retrieve the type information for value='") +
                             c.fileValue + "' skipping....\r\n"));
    } else {
      EXPECT_EQ(c.type, value.type);
      // Wine reads any non-empty REG_SZ back with a terminating zero, written or not; only the
      // empty string shows the size written (0, where a written zero would read as 1).
      std::string data = value.data;
      if (value.type == REG_SZ && data.size() > 1 && data.back() == '\0')
        data.pop_back();
      EXPECT_EQ(c.data, data);
    }
  }
  EXPECT_NE(std::string::npos,
            written.find(std::string("Return Code for writing sectionName='") + kKey +
                         "\\Values',key='Negative',value='4294967291' is = 0"));
}

TEST_F(SettingsInstallerTest, LogsEveryProblemAndGoesOnWithTheRestOfTheFile) {
  struct Case {
    const char* name;
    std::string content;  // empty: no file
    bool result;
    std::string logLine;
    std::string written;  // a value name in kKey\Good that must be there afterwards
  };
  const std::string good = std::string("[") + kKey + "\\Good]\r\n";
  const std::string key = kKey;
  const Case cases[] = {
      {"complete file", good + "a=dword:1\r\n[" + key + "\\Deep\\er]\r\nb=string:x\r\n", true,
       "',key='b',value='x' is = 0", "a"},
      {"missing file", "", false, "Settings file could not be parsed properly.", ""},
      {"exactly 64 KiB", good + "a=string:" + std::string(65536 - good.size() - 11, 'x') + "\r\n",
       false, "Settings file could not be parsed properly.", ""},
      {"keys before any section", "a=dword:1\r\n", false,
       "Settings file could not be parsed properly.", ""},
      {"section without keys", "[" + key + "\\Empty]\r\n" + good + "a=dword:1\r\n", false,
       "Empty Section found. Skipping..", "a"},
      {"larger than 64 KiB, section name cut",
       good + "a=string:" + std::string(65536 + 20 - good.size() - 11, 'x') + "\r\n", false,
       "Empty Section found. Skipping..", ""},
      {"empty key name", good + "a=dword:1\r\n=string:2\r\nb=dword:3\r\n", false,
       "Empty KeyValue pair found in Section='" + key +
           "\\Good' where key='' and value='string:2'):",
       "b"},
      // The reader skips a key without a value with its own message; the file still counts as
      // installed.
      {"key without value", good + "a=\r\nb=dword:1\r\n", true,
       "Could not retrieve value for key='a' under section='" + key + "\\Good'", "b"},
      // A failed write is logged with its status only.
      {"unusable key path", "[\\" + key + "\\Bad]\r\nc=dword:1\r\n" + good + "a=dword:1\r\n", true,
       "',key='c',value='1' is = 161", "a"},
  };
  testsupport::LogCapture log;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testsupport::deleteKeyTree(kTestRoot);
    const std::string path = c.content.empty() ? dir_.file("absent.loc") : write(c.content);
    log.next();
    EXPECT_EQ(c.result, SettingsInstaller(path).installSettings());
    const std::string written = log.next();
    EXPECT_NE(std::string::npos, written.find(c.logLine)) << c.logLine;
    if (!c.written.empty()) {
      EXPECT_TRUE(readValue(key + "\\Good", c.written).found);
    }
    if (!c.result) {
      EXPECT_NE(std::string::npos, written.find("-SettingsInstaller::installSettings(): rc=0"));
    }
  }
}

TEST_F(SettingsInstallerTest, InstallDefaultSettingsReportsAndRecordsWhetherTheFileWentInWhole) {
  const std::string section = testsupport::storeRoot() + "Settings\\Updater";
  MarkerFile marker;
  // Without a store: the install creates it.
  testsupport::deleteKeyTree(Localize::getInstance()->getProductFamilyRegistryPath());
  Settings settings;
  EXPECT_FALSE(settings.isValid());
  ASSERT_TRUE(marker.write("[" + section + "]\r\nPrinterPollInterval=dword:2000\r\n"));
  EXPECT_EQ(0u, settings.installDefaultSettings());
  EXPECT_TRUE(settings.isValid());
  unsigned long interval = 0;
  EXPECT_TRUE(Settings().getDwordValue("Settings\\Updater", "PrinterPollInterval", interval, 0));
  EXPECT_EQ(2000u, interval);

  ASSERT_TRUE(marker.write("[" + section + "]\r\nDataUpdated=dword:1\r\nWebServerUrl=http:x\r\n"));
  EXPECT_EQ(1359u, settings.installDefaultSettings());
  EXPECT_FALSE(settings.isValid());
  unsigned long flag = 0;
  EXPECT_TRUE(Settings().getDwordValue("Settings\\Updater", "DataUpdated", flag, 0));
  EXPECT_EQ(1u, flag);

  ASSERT_TRUE(marker.write("[" + section + "]\r\nDataUpdated=dword:0\r\n"));
  EXPECT_EQ(0u, settings.installDefaultSettings());
  EXPECT_TRUE(settings.isValid());

  marker.remove();
  EXPECT_EQ(1359u, settings.installDefaultSettings());
  EXPECT_FALSE(settings.isValid());
}
