#include <gtest/gtest.h>

#include <windows.h>

#include "settings/BasicSettings.h"
#include "settings/PathHelpers.h"
#include "settings/Settings.h"
#include "support/TestSupport.h"
#include "updater/Localize.h"

using testsupport::ScopedStore;

namespace {

const char kUpdater[] = "Settings\\Updater";

bool keyExists(const std::string& path) {
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS)
    return false;
  RegCloseKey(key);
  return true;
}

std::string familyPath() {
  return Localize::getInstance()->getProductFamilyRegistryPath();
}

}  // namespace

TEST(SettingsStore, WithoutTheFamilyRootReadsWithDefaultCreateNothing) {
  testsupport::deleteKeyTree(familyPath());
  Settings settings;
  EXPECT_FALSE(settings.isValid());
  unsigned long interval = 7;
  std::string text = "kept";
  std::vector<unsigned char> bytes = {1};
  EXPECT_FALSE(settings.getOrCreateDwordValue(kUpdater, "PrinterPollInterval", interval, 30000, 0));
  EXPECT_FALSE(
      settings.getOrCreateStringValue(kUpdater, "DataUpdatesDirectoryName", text, "Job Status", 0));
  EXPECT_FALSE(settings.getOrCreateBinaryValue(kUpdater, "Blob", bytes, {2, 3}, 0));
  EXPECT_EQ(7ul, interval);
  EXPECT_EQ("kept", text);
  EXPECT_FALSE(keyExists(familyPath()));
}

TEST(SettingsStore, AMissingValueIsCreatedWithItsDefault) {
  ScopedStore store;
  unsigned long interval = 0;
  EXPECT_TRUE(
      Settings().getOrCreateDwordValue(kUpdater, "PrinterPollInterval", interval, 30000, 0));
  EXPECT_EQ(30000ul, interval);
  DWORD stored = 0;
  ASSERT_TRUE(store.getDword(kUpdater, "PrinterPollInterval", stored));
  EXPECT_EQ(30000u, stored);

  // The stored value wins over the default from then on.
  store.setDword(kUpdater, "PrinterPollInterval", 50);
  EXPECT_TRUE(
      Settings().getOrCreateDwordValue(kUpdater, "PrinterPollInterval", interval, 30000, 0));
  EXPECT_EQ(50ul, interval);

  std::string directory;
  EXPECT_TRUE(Settings().getOrCreateStringValue(kUpdater, "DataUpdatesDirectoryName", directory,
                                                "Job Status", 0));
  EXPECT_EQ("Job Status", directory);
  ASSERT_TRUE(store.getString(kUpdater, "DataUpdatesDirectoryName", directory));
  EXPECT_EQ("Job Status", directory);
}

TEST(SettingsStore, AValueOfTheWrongTypeReadsFalseSetsTheErrorAndIsKept) {
  ScopedStore store;
  store.setString(kUpdater, "PrinterPollInterval", "fast");
  unsigned long interval = 3;
  SetLastError(0);
  EXPECT_FALSE(
      Settings().getOrCreateDwordValue(kUpdater, "PrinterPollInterval", interval, 30000, 0));
  EXPECT_NE(0u, GetLastError());
  EXPECT_EQ(3ul, interval);
  std::string text;
  ASSERT_TRUE(store.getString(kUpdater, "PrinterPollInterval", text));
  EXPECT_EQ("fast", text);
}

TEST(SettingsStore, PlainReadsOfMissingValuesLeaveTheLastErrorAlone) {
  ScopedStore store;
  store.setString(kUpdater, "Other", "x");
  std::string text = "kept";
  SetLastError(1234);
  EXPECT_FALSE(Settings().getStringValue(kUpdater, "WebServerUrl", text, 0));
  EXPECT_EQ(1234u, GetLastError());
  EXPECT_EQ("kept", text);
}

TEST(SettingsStore, ExpandableStringsAreReturnedUnexpanded) {
  ScopedStore store;
  HKEY key = nullptr;
  RegCreateKeyExA(HKEY_LOCAL_MACHINE, (testsupport::storeRoot() + "Settings").c_str(), 0, nullptr,
                  0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
  RegSetValueExA(key, "DataPath", 0, REG_EXPAND_SZ,
                 reinterpret_cast<const BYTE*>("%ProgramData%\\x"), 16);
  RegCloseKey(key);
  std::string text;
  EXPECT_TRUE(Settings().getStringValue("Settings\\", "DataPath", text, 0));
  EXPECT_EQ("%ProgramData%\\x", text);
}

TEST(SettingsStore, SettersCreateTheirKeyAndValuesRoundTrip) {
  ScopedStore store;
  Settings settings;
  EXPECT_TRUE(settings.isValid());
  EXPECT_TRUE(settings.setStringValue("Settings\\New\\Deep", "Name", "value", 0));
  EXPECT_TRUE(settings.setDwordValue("Settings\\New\\Deep", "Count", 42, 0));
  std::string text;
  unsigned long number = 0;
  EXPECT_TRUE(settings.getStringValue("Settings\\New\\Deep", "Name", text, 0));
  EXPECT_TRUE(settings.getDwordValue("Settings\\New\\Deep", "Count", number, 0));
  EXPECT_EQ("value", text);
  EXPECT_EQ(42ul, number);

  std::vector<unsigned char> bytes = {9, 9, 9};
  EXPECT_TRUE(settings.getOrCreateBinaryValue("Settings\\New", "Blob", bytes, {1, 2}, 0));
  EXPECT_EQ((std::vector<unsigned char>{1, 2}), bytes);
  bytes = {7};
  EXPECT_TRUE(settings.getBinaryValue("Settings\\New", "Blob", bytes, 0));
  EXPECT_EQ((std::vector<unsigned char>{1, 2}), bytes);

  std::list<std::string> names;
  EXPECT_TRUE(settings.getValueNames("Settings\\New\\Deep", names, 0));
  EXPECT_EQ(2u, names.size());
  EXPECT_FALSE(settings.getValueNames("", names, 0));

  EXPECT_TRUE(settings.deleteValue("Settings\\New\\Deep", "Name", 0));
  EXPECT_FALSE(settings.getStringValue("Settings\\New\\Deep", "Name", text, 0));
  EXPECT_FALSE(settings.deleteValue("Settings\\New\\Deep", "Name", 0));
  EXPECT_TRUE(settings.deleteKey("Settings\\New", 0));
  EXPECT_FALSE(keyExists(testsupport::storeRoot() + "Settings\\New"));
}

TEST(SettingsStore, ScopesSelectTheirPaths) {
  Settings settings;
  const std::string qnv = Localize::getInstance()->getQnvRegistryPath();
  const std::string localId = Localize::getInstance()->getLocalId();
  std::string path;
  settings.getKeyPath(path, 0);
  EXPECT_EQ(qnv + "Local\\" + localId + "\\", path);
  settings.getKeyPath(path, 1);
  EXPECT_EQ(qnv + "Shared\\", path);
  settings.getKeyPath(path, 2);
  EXPECT_EQ("Software\\CorvaneTemp\\temp", path);

  BasicSettings plain("Software\\Root", "abcd");
  plain.getKeyPath(path, 0);
  EXPECT_EQ("Software\\Root\\Local\\abcd\\", path);
  plain.getKeyPath(path, 1);
  EXPECT_EQ("Software\\Root\\Shared\\", path);
  BasicSettings noLocalId("Software\\Root\\", "");
  noLocalId.getKeyPath(path, 0);
  EXPECT_EQ("Software\\Root\\", path);
}

TEST(SettingsStore, DeleteStoreKeepsTheFamilyWhileOtherComponentsRemain) {
  ScopedStore store;
  const std::string other = Localize::getInstance()->getQnvRegistryPath() + "Local\\zzzz";
  RegCloseKey([&] {
    HKEY key = nullptr;
    RegCreateKeyExA(HKEY_LOCAL_MACHINE, other.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                    nullptr);
    return key;
  }());
  Settings settings;
  EXPECT_FALSE(settings.deleteStore());
  EXPECT_FALSE(settings.isValid());
  EXPECT_FALSE(keyExists(testsupport::storeRoot()));
  EXPECT_TRUE(keyExists(other));

  testsupport::deleteKeyTree(other);
  RegCloseKey([] {
    HKEY key = nullptr;
    RegCreateKeyExA(HKEY_LOCAL_MACHINE, testsupport::storeRoot().c_str(), 0, nullptr, 0,
                    KEY_ALL_ACCESS, nullptr, &key, nullptr);
    return key;
  }());
  EXPECT_TRUE(Settings().deleteStore());
  EXPECT_FALSE(keyExists(familyPath()));
}

TEST(SettingsStore, DeleteStoreOnUninstallZeroKeepsTheFamilyKey) {
  ScopedStore store;
  store.setDword("Settings\\", "DeleteStoreOnUninstall", 0);
  EXPECT_TRUE(Settings().deleteStore());
  EXPECT_FALSE(keyExists(testsupport::storeRoot()));
  EXPECT_TRUE(keyExists(familyPath()));
}

struct JoinCase {
  const char* first;
  const char* second;
  const char* joined;
};

class JoinPath : public testing::TestWithParam<JoinCase> {};

TEST_P(JoinPath, PutsExactlyOneBackslashBetween) {
  EXPECT_EQ(GetParam().joined, joinPath(GetParam().first, GetParam().second));
}

INSTANTIATE_TEST_SUITE_P(Pieces,
                         JoinPath,
                         testing::Values(JoinCase{"C:\\dir", "file", "C:\\dir\\file"},
                                         JoinCase{"C:\\dir\\", "file", "C:\\dir\\file"},
                                         JoinCase{"C:\\dir", "\\file", "C:\\dir\\file"},
                                         JoinCase{"C:\\dir\\", "\\file", "C:\\dir\\file"},
                                         JoinCase{"", "file", "\\file"},
                                         JoinCase{"C:\\dir", "", "C:\\dir\\"},
                                         JoinCase{"C:\\dir", "\\\\file", "C:\\dir\\\\file"}));

TEST(ToUpperCase, ChangesEveryByteInPlace) {
  std::string text = "-uac x1\xe9";
  toUpperCase(text);
  EXPECT_EQ("-UAC X1", text.substr(0, 7));
}
