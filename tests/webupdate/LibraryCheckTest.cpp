#include <gtest/gtest.h>

#include <windows.h>

#include <sddl.h>

#include "support/TestSupport.h"
#include "system/UniqueHandle.h"
#include "webupdate/LibraryCheck.h"
#include "webupdate/WebUpdaterAdapter.h"

namespace {

const char kRunning[] = "S-1-5-21-1-2-3-1001";  // The account the elevated run runs as.
const char kUpdater[] = "Settings\\Updater";

std::string whoElse(const char* sddl) {
  ScopedLocal descriptor, running;
  PSID sid = nullptr;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(sddl, SDDL_REVISION_1,
                                                            descriptor.receive(), nullptr) ||
      !ConvertStringSidToSidA(kRunning, &sid))
    return "bad test SDDL";
  running.reset(sid);
  return LibraryCheck::whoElseCanChange(descriptor.get(), sid);
}

}  // namespace

// The folder an elevated run loads the library from, as Windows describes it: only SYSTEM, the
// administrators, TrustedInstaller and the running account may own it or change what is in it.
TEST(LibraryCheck, AnElevatedRunTrustsOnlyAFolderThatUsersCannotChange) {
  const std::pair<const char*, const char*> rows[] = {
      // The driver folder's usual DACL (spool\drivers\x64\3): SYSTEM and administrators change
      // it, CREATOR OWNER what is made inside, users and application packages read and run it.
      {"O:SYD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICIIO;GA;;;CO)(A;OICI;0x1200a9;;;BU)"
       "(A;OICI;0x1200a9;;;S-1-15-2-1)",
       ""},
      // A folder of TrustedInstaller's, and one the running account owns and changes.
      {"O:S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464D:PAI(A;OICI;FA;;;S-1-5-"
       "80-956008885-3418522649-1831038044-1853292631-2271478464)(A;OICI;0x1200a9;;;BU)",
       ""},
      {"O:S-1-5-21-1-2-3-1001D:(A;OICI;FA;;;S-1-5-21-1-2-3-1001)(A;OICI;FA;;;SY)", ""},
      // Users may change it; everyone may add a file to it; a folder made below C:\ inherits
      // Authenticated Users: Modify; a user owns it.
      {"O:BAD:(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1301bf;;;BU)", "S-1-5-32-545"},
      {"O:BAD:(A;;FA;;;BA)(A;;0x100002;;;WD)", "S-1-1-0"},
      {"O:BAD:AI(A;OICIID;FA;;;BA)(A;OICIID;0x1301bf;;;AU)", "S-1-5-11"},
      {"O:S-1-5-21-9-9-9-1002D:(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)", "S-1-5-21-9-9-9-1002"},
  };
  for (const auto& [sddl, expected] : rows)
    EXPECT_EQ(expected, whoElse(sddl)) << sddl;
}

// With trusted publishers in force (here from policy), a library that carries an embedded
// signature is loaded only when its signer is listed; one without is judged by its folder alone;
// without a list nothing is checked. A refusal is written whatever the log's switches.
TEST(LibraryCheckUnderTestRoot, LoadsASignedLibraryOnlyFromAListedSigner) {
  SKIP_WITHOUT_TEST_ROOT();
  testsupport::ScopedStore store;
  testsupport::ScopedPolicy policy;
  testsupport::WebUpdaterScenario scenario;
  testsupport::TempDir folder;
  const std::string library = folder.file("hkwewupd.DLL");
  store.set(kUpdater, "WebUpdaterDllPath", folder.path());
  const auto loads = [&](const std::string& source, const std::string& list, std::string& refusal) {
    if (list.empty())
      policy.remove(kUpdater, "TrustedPublishers");
    else
      policy.set(kUpdater, "TrustedPublishers", list);
    EXPECT_TRUE(CopyFileA(source.c_str(), library.c_str(), FALSE)) << source;
    const WebUpdaterAdapter adapter;
    refusal = adapter.refusal();
    return adapter.isLoaded();
  };
  const std::string listed = testsupport::publisherHash("listed");
  const std::string unlisted = testsupport::publisherHash("unlisted");
  const std::string subject = "'O=Orrery Tests, CN=Orrery Test Publisher ";
  std::string refusal;
  {
    testsupport::LogCapture log;
    EXPECT_TRUE(loads(testsupport::trustFixture("listed-library.dll"), listed, refusal));
    EXPECT_TRUE(log.contains(
        "WebUpdaterAdapter::initialize() The library's signer, checked against the trusted "
        "publishers: " +
        subject + "listed', key " + listed));
  }
  {
    testsupport::LogCapture log(0);
    EXPECT_FALSE(loads(testsupport::trustFixture("unlisted-library.dll"),
                       std::string(64, 'A') + ";" + listed, refusal));
    EXPECT_EQ(
        "its signer is not a trusted publisher; signer " + subject + "unlisted', key " + unlisted,
        refusal);
    EXPECT_TRUE(
        log.contains("WebUpdaterAdapter::initialize : not loading '" + library + "': " + refusal));
  }
  EXPECT_TRUE(loads(testsupport::trustFixture("unlisted-library.dll"), "", refusal));
  EXPECT_TRUE(
      loads(testsupport::executableDirectory() + "wupdstandin.dll", listed, refusal));  // unsigned
  EXPECT_EQ("", refusal);
}
