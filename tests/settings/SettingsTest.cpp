#include <gtest/gtest.h>

#include <windows.h>

#include "settings/Settings.h"
#include "support/TestSupport.h"

using testsupport::familyPath;
using testsupport::keyExists;
using testsupport::ScopedStore;

namespace {

const char kUpdater[] = "Settings\\Updater";

}  // namespace

// A missing value is written back with its default and a stored one wins; without the family
// root nothing is created.
TEST(Settings, ReadsWithADefaultWriteTheDefaultBackOnlyWhileTheFamilyExists) {
  unsigned long interval = 7;
  std::string text = "kept";
  std::vector<unsigned char> bytes = {1};
  testsupport::deleteKeyTree(familyPath());
  Settings settings;
  EXPECT_FALSE(settings.isValid());
  EXPECT_FALSE(settings.getOrCreateDwordValue(kUpdater, "Interval", interval, 30000, 0) ||
               settings.getOrCreateStringValue(kUpdater, "Name", text, "Job Status", 0) ||
               settings.getOrCreateBinaryValue(kUpdater, "Blob", bytes, {2, 3}, 0));
  EXPECT_TRUE(interval == 7 && text == "kept" && bytes.size() == 1);
  EXPECT_FALSE(keyExists(familyPath()));

  ScopedStore store;
  EXPECT_TRUE(settings.getOrCreateDwordValue(kUpdater, "Interval", interval, 30000, 0) &&
              settings.getOrCreateStringValue(kUpdater, "Name", text, "Job Status", 0) &&
              settings.getOrCreateBinaryValue(kUpdater, "Blob", bytes, {2, 3}, 0));
  EXPECT_TRUE(interval == 30000 && text == "Job Status" && bytes.size() == 2);
  EXPECT_EQ("30000", store.get(kUpdater, "Interval"));
  EXPECT_EQ("Job Status", store.get(kUpdater, "Name"));
  bytes.clear();
  EXPECT_TRUE(settings.getBinaryValue(kUpdater, "Blob", bytes, 0));
  EXPECT_EQ((std::vector<unsigned char>{2, 3}), bytes);
  store.set(kUpdater, "Interval", 50);
  EXPECT_TRUE(settings.getOrCreateDwordValue(kUpdater, "Interval", interval, 30000, 0));
  EXPECT_EQ(50ul, interval);
}

// A value of another type reads false with the registry's code as the thread's last error and
// stays as it is; a missing one reads false and leaves the last error alone.
TEST(Settings, FailedReadsSetTheLastErrorAndMissingValuesDoNot) {
  ScopedStore store;
  store.set(kUpdater, "Interval", "fast");
  unsigned long interval = 3;
  std::string text;
  SetLastError(0);
  EXPECT_FALSE(Settings().getOrCreateDwordValue(kUpdater, "Interval", interval, 30000, 0));
  EXPECT_EQ(static_cast<DWORD>(ERROR_MORE_DATA), GetLastError());
  EXPECT_EQ(3ul, interval);
  EXPECT_EQ("fast", store.get(kUpdater, "Interval"));
  SetLastError(1234);
  EXPECT_FALSE(Settings().getStringValue(kUpdater, "WebServerUrl", text, 0));
  EXPECT_EQ(1234u, GetLastError());
}

// Removing this program's store removes the family key only when no other component's store
// remains and "DeleteStoreOnUninstall" is not 0.
TEST(Settings, DeleteStoreKeepsTheFamilyForOtherComponentsOrWhenAskedTo) {
  for (const bool otherComponent : {true, false}) {
    for (const bool keepFamily : {true, false}) {
      ScopedStore store;
      if (otherComponent)
        testsupport::setValue(familyPath() + "\\QNV\\Local\\zzzz", "x", "");
      if (keepFamily)
        store.set("Settings\\", "DeleteStoreOnUninstall", 0);
      Settings settings;
      EXPECT_EQ(!otherComponent, settings.deleteStore());
      EXPECT_FALSE(settings.isValid() || keyExists(testsupport::storeRoot()));
      EXPECT_EQ(otherComponent || keepFamily, keyExists(familyPath()));
    }
  }
}
