#include <gtest/gtest.h>

#include "settings/Settings.h"
#include "settings/SettingsInstaller.h"
#include "support/TestSupport.h"

namespace {

const std::string kRoot = "Software\\CorvaneTestIni";
const std::string kKey = kRoot + "\\Installer";

// A value below kKey as "<type>:<the bytes stored>", or "none".
std::string stored(const std::string& name) {
  DWORD type = 0;
  char data[256] = {};
  DWORD size = sizeof(data);
  if (RegGetValueA(HKEY_LOCAL_MACHINE, kKey.c_str(), name.c_str(), RRF_RT_ANY | RRF_NOEXPAND, &type,
                   data, &size) != ERROR_SUCCESS)
    return "none";
  // Wine reads a non-empty REG_SZ back with a terminating zero, written or not; only the empty
  // string shows the size written.
  if (type == REG_SZ && size > 1 && data[size - 1] == '\0')
    --size;
  return std::to_string(type) + ":" + std::string(data, size);
}

std::string dword(DWORD number) {
  return "4:" + std::string(reinterpret_cast<const char*>(&number), sizeof(number));
}

class SettingsInstallerTest : public testing::Test {
 protected:
  ~SettingsInstallerTest() override { testsupport::deleteKeyTree(kRoot); }

  bool install(const std::string& content) {
    testsupport::deleteKeyTree(kRoot);
    EXPECT_TRUE(testsupport::writeFile(dir_.file("settings.loc"), content));
    return SettingsInstaller(dir_.file("settings.loc")).installSettings();
  }

  testsupport::ScopedStore store_;
  testsupport::TempDir dir_;
};

}  // namespace

// "dword:" takes the decimal number at the start of the data; "string:" the text, stored without
// its terminating zero. Any other type word, compared exactly, is skipped and fails the file.
TEST_F(SettingsInstallerTest, WritesEachValueAsItsTypeWordSays) {
  const std::pair<const char*, std::string> rows[] = {
      {"dword:30", dword(30)},
      {"dword: -5", dword(static_cast<DWORD>(-5))},
      {"dword:12abc", dword(12)},
      {"dword:0x10", dword(0)},
      {"dword:", dword(0)},
      {"string:abc", "1:abc"},
      {"string:", "1:"},
      {"string:http://h:8765/[os_code]", "1:http://h:8765/[os_code]"},
      {"DWORD:5", "none"},
      {"String:x", "none"},
      {"abc", "none"},
      {":abc", "none"},
      {"binary:01", "none"}};
  std::string content = "[" + kKey + "]\r\n";
  for (size_t i = 0; i < std::size(rows); ++i)
    content += "v" + std::to_string(i) + "=" + rows[i].first + "\r\n";
  EXPECT_FALSE(install(content));
  for (size_t i = 0; i < std::size(rows); ++i)
    EXPECT_EQ(rows[i].second, stored("v" + std::to_string(i))) << rows[i].first;
}

// Every problem fails the file, but the rest of it is still installed; a key without a value is
// dropped by the reader, and a failed registry write (a path that starts with a backslash, a key
// name of 256 characters, a value name of 16,384) does not fail the file: it is only logged and
// reported. A name that the private-profile functions cannot take (more than 32,766 characters) is
// refused by its length before it is looked up, and fails the file.
TEST_F(SettingsInstallerTest, InstallsWhatItCanAndFailsOnEveryProblem) {
  const std::string good = "[" + kKey + "]\r\na=dword:1\r\n";
  std::string deep = kKey;
  while (deep.size() <= 32766)
    deep += "\\" + std::string(200, 'p');
  const std::pair<std::string, bool> rows[] = {
      {good + "[" + kKey + "\\Deep\\er]\r\nb=string:x\r\n", true},
      {"[" + kKey + "\\Empty]\r\n" + good, false},
      {good + "=string:2\r\nb=dword:3\r\n", false},
      {good + "b=\r\n", true},
      {"[\\" + kKey + "\\Bad]\r\nc=dword:1\r\n" + good, true},
      {good + "[" + kKey + "\\" + std::string(300, 'k') + "]\r\nz=dword:1\r\n", true},
      {good + "[" + deep + "]\r\nz=dword:1\r\n", false},
      {good + std::string(16384, 'v') + "=dword:7\r\n", true},
      {good + std::string(32767, 'v') + "=dword:7\r\n", false}};
  for (const auto& [content, result] : rows) {
    EXPECT_EQ(result, install(content)) << content.substr(0, 200);
    EXPECT_EQ(dword(1), stored("a")) << content.substr(0, 200);
  }
}

// A value below a key name the registry refuses gets the installer's own line for a failed write,
// with the registry's status, and the file goes on.
TEST_F(SettingsInstallerTest, LogsAWriteTheRegistryRefusedAndGoesOn) {
  const std::string section = kKey + "\\" + std::string(300, 'k');
  testsupport::LogCapture log;
  EXPECT_TRUE(install("[" + section + "]\r\nz=dword:1\r\n" + "[" + kKey + "]\r\na=dword:1\r\n"));
  const std::string line =
      "Return Code for writing sectionName='" + section + "',key='z',value='1' is = ";
  std::string status;
  for (const std::string& detail : log.details("SettingsInstaller::installSettings():")) {
    if (detail.compare(0, line.size(), line) == 0)
      status = detail.substr(line.size());
  }
  EXPECT_NE("", status);
  EXPECT_NE("0", status);
  EXPECT_EQ(dword(1), stored("a"));
}
