#include <gtest/gtest.h>

#include <windows.h>

#include "settings/PathHelpers.h"
#include "settings/Settings.h"
#include "support/TestSupport.h"
#include "updater/Localize.h"

using testsupport::keyExists;
using testsupport::ScopedStore;

namespace {

const char kUpdater[] = "Settings\\Updater";

std::string familyPath() {
  return Localize::getInstance()->getProductFamilyRegistryPath();
}

}  // namespace

TEST(Settings, ReadsWithADefaultCreateNothingWithoutTheFamilyRoot) {
  testsupport::deleteKeyTree(familyPath());
  Settings settings;
  EXPECT_FALSE(settings.isValid());
  unsigned long interval = 7;
  std::string text = "kept";
  std::vector<unsigned char> bytes = {1};
  EXPECT_FALSE(settings.getOrCreateDwordValue(kUpdater, "PrinterPollInterval", interval, 30000, 0));
  EXPECT_FALSE(settings.getOrCreateStringValue(kUpdater, "Name", text, "Job Status", 0));
  EXPECT_FALSE(settings.getOrCreateBinaryValue(kUpdater, "Blob", bytes, {2, 3}, 0));
  EXPECT_EQ(7ul, interval);
  EXPECT_EQ("kept", text);
  EXPECT_FALSE(keyExists(familyPath()));
}

TEST(Settings, AMissingValueIsWrittenBackWithItsDefaultAndAStoredOneWins) {
  ScopedStore store;
  Settings settings;
  unsigned long interval = 0;
  std::string text;
  std::vector<unsigned char> bytes;
  EXPECT_TRUE(settings.getOrCreateDwordValue(kUpdater, "PrinterPollInterval", interval, 30000, 0));
  EXPECT_TRUE(settings.getOrCreateStringValue(kUpdater, "Name", text, "Job Status", 0));
  EXPECT_TRUE(settings.getOrCreateBinaryValue(kUpdater, "Blob", bytes, {1, 2}, 0));
  EXPECT_EQ(30000ul, interval);
  EXPECT_EQ("Job Status", text);
  EXPECT_EQ((std::vector<unsigned char>{1, 2}), bytes);
  DWORD stored = 0;
  ASSERT_TRUE(store.get(kUpdater, "PrinterPollInterval", stored));
  EXPECT_EQ(30000u, stored);
  ASSERT_TRUE(store.get(kUpdater, "Name", text));
  EXPECT_EQ("Job Status", text);
  EXPECT_TRUE(settings.getBinaryValue(kUpdater, "Blob", bytes, 0));
  EXPECT_EQ((std::vector<unsigned char>{1, 2}), bytes);

  store.set(kUpdater, "PrinterPollInterval", 50);
  EXPECT_TRUE(settings.getOrCreateDwordValue(kUpdater, "PrinterPollInterval", interval, 30000, 0));
  EXPECT_EQ(50ul, interval);
}

// A value of another type reads false with the registry's code as the thread's last error and
// stays as it is; a missing one reads false and leaves the last error alone.
TEST(Settings, FailedReadsSetTheLastErrorAndMissingValuesDoNot) {
  ScopedStore store;
  store.set(kUpdater, "PrinterPollInterval", "fast");
  unsigned long interval = 3;
  SetLastError(0);
  EXPECT_FALSE(
      Settings().getOrCreateDwordValue(kUpdater, "PrinterPollInterval", interval, 30000, 0));
  EXPECT_EQ(static_cast<DWORD>(ERROR_MORE_DATA), GetLastError());
  EXPECT_EQ(3ul, interval);
  std::string text;
  ASSERT_TRUE(store.get(kUpdater, "PrinterPollInterval", text));
  EXPECT_EQ("fast", text);
  SetLastError(1234);
  EXPECT_FALSE(Settings().getStringValue(kUpdater, "WebServerUrl", text, 0));
  EXPECT_EQ(1234u, GetLastError());
}

TEST(Settings, SettersCreateTheirKeysAndDeletesRemoveValuesAndKeys) {
  ScopedStore store;
  Settings settings;
  EXPECT_TRUE(settings.setStringValue("New\\Deep", "Name", "value", 0));
  EXPECT_TRUE(settings.setDwordValue("New\\Deep", "Count", 42, 0));
  std::string text;
  unsigned long number = 0;
  EXPECT_TRUE(settings.getStringValue("New\\Deep", "Name", text, 0));
  EXPECT_TRUE(settings.getDwordValue("New\\Deep", "Count", number, 0));
  EXPECT_EQ("value", text);
  EXPECT_EQ(42ul, number);
  std::list<std::string> names;
  EXPECT_TRUE(settings.getValueNames("New\\Deep", names, 0));
  names.sort();
  EXPECT_EQ((std::list<std::string>{"Count", "Name"}), names);
  EXPECT_TRUE(settings.deleteValue("New\\Deep", "Name", 0));
  EXPECT_FALSE(settings.deleteValue("New\\Deep", "Name", 0));
  EXPECT_TRUE(settings.deleteKey("New", 0));
  EXPECT_FALSE(keyExists(testsupport::storeRoot() + "New"));
  std::string shared;
  settings.getKeyPath(shared, 1);
  EXPECT_EQ(familyPath() + "\\QNV\\Shared\\", shared);
}

// Removing this program's store removes the family key only when no other component's store
// remains and "DeleteStoreOnUninstall" is not 0.
TEST(Settings, DeleteStoreKeepsTheFamilyForOtherComponentsOrWhenAskedTo) {
  const std::string other = familyPath() + "\\QNV\\Local\\zzzz";
  for (const bool otherComponent : {true, false}) {
    for (const bool keepFamily : {true, false}) {
      ScopedStore store;
      if (otherComponent)
        RegSetKeyValueA(HKEY_LOCAL_MACHINE, other.c_str(), "x", REG_DWORD, "\1\0\0\0", 4);
      if (keepFamily)
        store.set("Settings\\", "DeleteStoreOnUninstall", 0);
      Settings settings;
      EXPECT_EQ(!otherComponent, settings.deleteStore());
      EXPECT_FALSE(settings.isValid());
      EXPECT_FALSE(keyExists(testsupport::storeRoot()));
      EXPECT_EQ(otherComponent || keepFamily, keyExists(familyPath()));
    }
  }
}

TEST(Settings, JoinPathPutsExactlyOneBackslashBetween) {
  const char* rows[][3] = {{"C:\\dir", "file", "C:\\dir\\file"},
                           {"C:\\dir\\", "\\file", "C:\\dir\\file"},
                           {"", "file", "\\file"},
                           {"C:\\dir", "", "C:\\dir\\"},
                           {"C:\\dir", "\\\\file", "C:\\dir\\\\file"}};
  for (const auto& row : rows)
    EXPECT_EQ(row[2], joinPath(row[0], row[1])) << row[0] << " + " << row[1];
}
