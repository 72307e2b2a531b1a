#include <gtest/gtest.h>

#include <windows.h>

#include "settings/TrustedPublishers.h"
#include "support/TestSupport.h"

using Lines = std::vector<std::string>;

namespace {

const char kUpdater[] = "Settings\\Updater";
// As the settings tool's /lock leaves a key, and as the program makes its own keys.
const char kLocked[] = "O:BAD:P(A;CI;KA;;;BA)(A;CI;KA;;;SY)";
const char kOpen[] = "D:(A;CI;GA;;;WD)";
const std::string kBuiltIn(64, 'b'), kPolicy(64, 'c'), kStore(64, 'd');

// The store's key and its section's key, locked or open.
void secureStore(const char* sddl) {
  const std::string root = testsupport::storeRoot();
  for (const std::string& key : {root.substr(0, root.size() - 1), root + kUpdater})
    ASSERT_TRUE(testsupport::setKeySecurity(key, sddl)) << key;
}

}  // namespace

// The list in force is the union of the built-in list, the policy's and a locked store's, each
// hash once and in lower case; a store that users can change lends none, and says why.
TEST(TrustedPublishers, UnitesTheBuiltInThePolicyAndALockedStoresLists) {
  testsupport::ScopedStore store;
  testsupport::ScopedPolicy policy;
  EXPECT_TRUE(TrustedPublishers("").empty());
  EXPECT_TRUE(TrustedPublishers("").problems().empty());

  policy.set(kUpdater, "TrustedPublishers",
             "CCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCCC; " + kBuiltIn);
  store.set(kUpdater, "TrustedPublishers", kStore + '\0' + kPolicy + '\0', REG_MULTI_SZ);
  secureStore(kLocked);
  const TrustedPublishers locked(kBuiltIn + ";" + kBuiltIn);
  EXPECT_EQ((Lines{kBuiltIn, kPolicy, kStore}), locked.hashes());
  EXPECT_TRUE(locked.contains(std::string(64, 'D')));
  EXPECT_FALSE(locked.contains(std::string(64, 'e')));
  EXPECT_TRUE(locked.problems().empty());

  // Either key open to others: its list is ignored, the others stay.
  const std::string root = testsupport::storeRoot();
  for (const std::string& key : {root.substr(0, root.size() - 1), root + kUpdater}) {
    secureStore(kLocked);
    ASSERT_TRUE(testsupport::setKeySecurity(key, kOpen));
    const TrustedPublishers open(kBuiltIn);
    EXPECT_EQ((Lines{kBuiltIn, kPolicy}), open.hashes()) << key;
    EXPECT_EQ(
        (Lines{"the store's TrustedPublishers is ignored: its key can be changed by S-1-1-0"}),
        open.problems());
  }
  policy.remove(kUpdater, "TrustedPublishers");
  EXPECT_EQ(Lines{kBuiltIn}, TrustedPublishers(kBuiltIn).hashes());
}

// Each source stands on its own; a store entry that is no hash is left out and named.
TEST(TrustedPublishers, TakesAListFromAnyOneSource) {
  testsupport::ScopedStore store;
  testsupport::ScopedPolicy policy;
  EXPECT_EQ(Lines{kBuiltIn}, TrustedPublishers(kBuiltIn).hashes());
  policy.set(kUpdater, "TrustedPublishers", kPolicy);
  EXPECT_EQ(Lines{kPolicy}, TrustedPublishers("").hashes());
  policy.remove(kUpdater, "TrustedPublishers");
  store.set(kUpdater, "TrustedPublishers", kStore + '\0' + "not-a-hash" + '\0', REG_MULTI_SZ);
  secureStore(kLocked);
  const TrustedPublishers stored("");
  EXPECT_EQ(Lines{kStore}, stored.hashes());
  EXPECT_EQ((Lines{"the store's TrustedPublishers entry 'not-a-hash' is ignored: it is not a "
                   "SHA-256 hash (64 hexadecimal characters)"}),
            stored.problems());
}

// What the build option compiles in: publisher_probe.exe is built with two hashes of its own
// (tests/CMakeLists.txt), and reads them as its list, in lower case, with nothing configured.
TEST(TrustedPublishers, TheBuildOptionsListIsCompiledIn) {
  testsupport::ScopedStore store;
  testsupport::ScopedPolicy policy;
  const std::string output = testsupport::runCopy(
      "publisher_probe.exe", testsupport::localId() + "_probe.exe", "publishers");
  EXPECT_EQ(
      "5d1c2b3a4f5e6d7c8b9a0f1e2d3c4b5a69788796a5b4c3d2e1f0011223344556;"
      "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef",
      testsupport::facts(output)["publishers"])
      << output;
  EXPECT_EQ("", testsupport::facts(testsupport::runCopy("test_helper.exe",
                                                        testsupport::localId() + "_helper.exe",
                                                        "publishers"))["publishers"]);
}
