#include <gtest/gtest.h>

#include <windows.h>

#include "StoreBackup.h"
#include "StoreSecurity.h"
#include "support/TestSupport.h"

namespace {

const char kLocked[] = "O:BAD:P(A;CI;KA;;;BA)(A;CI;KA;;;SY)";
const char kOpen[] = "D:(A;CI;GA;;;WD)";
// As the program makes it (settings/RunRecord).
const char kRecords[] = "O:BAD:P(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;BU)";

// A key's DACL entries (Wine keeps no "P" flag).
std::string entries(const std::string& path) {
  const std::string sddl = StoreSecurity::describe(path, false);
  return sddl.substr(sddl.find('('));
}

}  // namespace

// A store put back after a failed install has its lock on every key again, but the records key
// gets its own owner and DACL back, as the program made it; the store's lock never flattens it.
TEST(StoreBackup, PutsTheStoreBackWithTheRecordsKeysOwnSecurity) {
  const testsupport::ScopedStore scope;
  const std::string store = testsupport::storeRoot().substr(0, testsupport::storeRoot().size() - 1);
  const std::string settings = store + "\\Settings\\Updater", records = store + "\\Records";
  const std::string backupKey = testsupport::familyPath() + "\\Backup";
  testsupport::setValue(settings, "Kept", "1");
  testsupport::setValue(records, "PausedPrinters", std::string("P\0", 2), REG_MULTI_SZ);
  ASSERT_TRUE(StoreSecurity::applyToKey(records, kRecords));
  StoreSecurity::Notes notes;
  ASSERT_TRUE(StoreSecurity::applyToStore(store, kLocked, notes));
  const std::string locked = "(A;CI;KA;;;BA)(A;CI;KA;;;SY)";
  const std::string own = "(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;BU)";
  EXPECT_EQ(locked, entries(settings));
  EXPECT_EQ(own, entries(records));

  const StoreBackup backup(store, backupKey);
  std::string error;
  std::vector<std::string> links;
  ASSERT_TRUE(backup.save(error, links)) << error;
  // What a failed install could leave: the store opened, a value gone.
  ASSERT_TRUE(StoreSecurity::applyToStore(store, kOpen, notes));
  RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, settings.c_str(), "Kept");
  ASSERT_TRUE(backup.restore(error)) << error;

  EXPECT_EQ("1", testsupport::registryValue(settings, "Kept"));
  EXPECT_EQ("P", testsupport::registryValue(records, "PausedPrinters"));
  EXPECT_EQ(locked, entries(store));
  EXPECT_EQ(locked, entries(settings));
  EXPECT_EQ("O:BA", StoreSecurity::describe(records, true).substr(0, 4));
  EXPECT_EQ(own, entries(records));
  EXPECT_FALSE(testsupport::keyExists(backupKey));
}

// The backup key is SYSTEM's and administrators' alone (its parent lets users read) before the
// store is copied into it. A registry link in the store is not followed: its target is not
// copied, the link is named and left out, and putting the store back (over a link planted
// meanwhile) deletes no key of the target.
TEST(StoreBackup, NeverFollowsALinkAndKeepsTheCopyFromUsers) {
  const testsupport::ScopedStore scope;
  const std::string store = testsupport::storeRoot().substr(0, testsupport::storeRoot().size() - 1);
  const std::string backupKey = testsupport::familyPath() + "\\Backup";
  const std::string target = "Software\\CorvaneBackupVictim";
  const std::string adminsOnly = "(A;CI;KA;;;SY)(A;CI;KA;;;BA)";
  testsupport::setValue(target + "\\Secret", "Secret", "s");
  testsupport::setValue(store + "\\Settings", "DriverName", "d");
  ASSERT_TRUE(testsupport::makeLink(store + "\\Settings\\Link", target));
  ASSERT_TRUE(testsupport::makeLink(store + "\\Dangling", target + "\\Nowhere"));
  // What earlier backups' keys inherited: users may read.
  ASSERT_TRUE(
      StoreSecurity::applyToKey(testsupport::familyPath(), "D:(A;CI;KR;;;BU)(A;CI;KA;;;BA)"));

  const StoreBackup backup(store, backupKey);
  std::string error;
  std::vector<std::string> links;
  ASSERT_TRUE(backup.save(error, links)) << error;
  EXPECT_EQ((std::vector<std::string>{"Dangling", "Settings\\Link"}), links);
  EXPECT_EQ(adminsOnly, entries(backupKey));
  EXPECT_EQ("d", testsupport::registryValue(backupKey + "\\Store\\Settings", "DriverName"));
  EXPECT_FALSE(testsupport::keyExists(backupKey + "\\Store\\Settings\\Link"));
  for (const char* copied : {"\\Store", "\\Store\\Settings"})
    EXPECT_EQ(adminsOnly, entries(backupKey + copied)) << copied;

  ASSERT_TRUE(testsupport::makeLink(store + "\\Settings\\Later", target));
  ASSERT_TRUE(backup.restore(error)) << error;
  EXPECT_EQ("d", testsupport::registryValue(store + "\\Settings", "DriverName"));
  EXPECT_FALSE(testsupport::keyExists(store + "\\Settings\\Link") ||
               testsupport::keyExists(store + "\\Settings\\Later"));
  EXPECT_EQ("s", testsupport::registryValue(target + "\\Secret", "Secret"));
  EXPECT_FALSE(testsupport::keyExists(backupKey));
  testsupport::deleteKeyTree(target);
}
