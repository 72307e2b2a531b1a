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
  RegSetKeyValueA(HKEY_LOCAL_MACHINE, settings.c_str(), "Kept", REG_SZ, "1", 2);
  RegSetKeyValueA(HKEY_LOCAL_MACHINE, records.c_str(), "PausedPrinters", REG_MULTI_SZ, "P\0", 3);
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
