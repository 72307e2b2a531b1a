#include <gtest/gtest.h>

#include <windows.h>

#include <future>

#include "printers/DeviceEnumerator.h"
#include "support/TestSupport.h"
#include "updater/PackageTrust.h"
#include "updater/RunResults.h"
#include "updater/UpdatesController.h"

using Lines = std::vector<std::string>;

namespace {

const char kDriver[] = "Corvane Inkjet Driver";
const char kUpdater[] = "Settings\\Updater";
const char kCatalogFolder[] = "C:\\ProgramData\\Corvane Inkjet Driver\\Job Status";
const char kSubject[] = "'O=Orrery Tests, CN=Orrery Test Publisher ";

// A machine staged for update runs with trusted publishers from policy: the library downloads the
// fixtures' packages (tests/trust) as the software package "as" and the catalog's "ad", and
// unpacks the catalog into its folder; one printer of the driver.
class PackageTrustTest : public testing::Test {
 protected:
  void SetUp() override {
    testsupport::stageUpdateRun(store_, kDriver);
    spooler_.write({PrinterScenario{"Office Inkjet", kDriver}});
    testsupport::setCommandLine("");
  }
  void TearDown() override {
    DeviceEnumerator::destroy();
    testsupport::setCommandLine("");
    testsupport::removeTree("C:\\ProgramData\\Corvane Inkjet Driver");
    testsupport::removeTree(PackageTrust::folderPath());
  }

  // The hashes of the signers named in `signers` ("listed second"), as a policy list.
  void trust(const std::string& signers) {
    std::string list;
    for (size_t start = 0; start < signers.size();) {
      const size_t end = std::min(signers.find(' ', start), signers.size());
      list += (list.empty() ? "" : ";") +
              testsupport::publisherHash(signers.substr(start, end - start));
      start = end + 1;
    }
    policy_.set(kUpdater, "TrustedPublishers", list);
  }
  // The library offers the fixture packages `software` and `catalog` ("" for none).
  void offer(const std::string& software, const std::string& catalog) {
    for (const auto& [fixture, file] :
         {std::make_pair(software, download("as")), std::make_pair(catalog, download("ad"))}) {
      if (!fixture.empty()) {
        EXPECT_TRUE(
            CopyFileA(testsupport::trustFixture(fixture + ".pkg").c_str(), file.c_str(), FALSE));
      }
    }
    testsupport::setCommandLine(software.empty() ? "" : "-UAC");
    library_.clear()
        .check("cs", software.empty() ? "2" : "3,1.1")
        .check("cd", catalog.empty() ? "2" : "3,2026.2")
        .download("ds", "0,named," + download("as"))
        .download("dd", "0,named," + download("ad"))
        .apply("\\as", "1")
        .apply("\\ad", "unpack");
  }
  // One whole run; its verdict.
  RunVerdict run() {
    library_.write();
    UpdatesController controller;
    controller.performUpdates();
    return judge(controller.results());
  }
  std::string download(const std::string& name) const { return files_.file(name); }
  static std::string copy(const std::string& kind, const std::string& name) {
    return PackageTrust::folderPath() + "\\" + kind + "\\" + name;
  }
  // The packages the library was given to apply.
  Lines applied() const {
    Lines packages;
    for (const std::string& call : library_.calls("UpdApplyUpdateA"))
      packages.push_back(
          call.substr(call.find("package=") + 8, call.find(" | dir=") - call.find("package=") - 8));
    return packages;
  }

  testsupport::ScopedStore store_;
  testsupport::ScopedPolicy policy_;
  testsupport::WebUpdaterScenario library_;
  testsupport::SpoolerScenario spooler_;
  testsupport::TempDir files_;
};

struct Row {
  const char* name;
  const char* listed;    // the signers whose keys are trusted
  const char* software;  // the fixture offered as the software package, or ""
  const char* catalog;   // and as the catalog's
  const char* result;    // LastResult
  // LastResultDetail, its signer's subject and key added for the signer named after '@'
  // ("...; signer @unlisted"); empty for a success.
  const char* detail;
  const char* applied;  // what the run applied
  bool needsRoot;       // the test root must be trusted for this row
};

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.name;
}

const Row kRows[] = {
    {"ACatalogSignedByAListedKeyIsApplied", "listed", "", "listed", "Updated", "", "catalog", true},
    {"TheSecondListedKeySigns", "listed second", "", "second", "Updated", "", "catalog", true},
    {"BothSignedByAListedKeyAreApplied", "listed", "listed", "listed", "Updated", "",
     "software+catalog", true},
    // Refused before any pause, deleted, recorded with the reason.
    {"AnUnsignedPackageIsRefused", "listed", "", "unsigned", "PackageUntrusted",
     "catalog package: not signed; signer no signer", "", false},
    {"OneByteChangedAfterSigningIsRefused", "listed", "", "changed", "PackageUntrusted",
     "catalog package: its contents changed after signing; signer no signer", "", false},
    {"AnUnlistedKeyIsRefused", "listed", "", "unlisted", "PackageUntrusted",
     "catalog package: its signer is not a trusted publisher; signer @unlisted", "", true},
    {"AListedKeyUnderAnUnknownRootIsRefused", "listed stranger", "", "stranger", "PackageUntrusted",
     "catalog package: its signer's chain is not trusted here: it does not end in a trusted root "
     "(0x10000); signer @stranger",
     "", false},
    // The other package of the run is judged on its own.
    {"TheOtherPackageIsAppliedOnItsOwn", "listed", "unlisted", "listed", "PackageUntrusted",
     "software package: its signer is not a trusted publisher; signer @unlisted", "catalog", true},
    {"BothRefusedNothingIsPaused", "listed", "unsigned", "changed", "PackageUntrusted",
     "software package: not signed; signer no signer", "", false},
};

class TrustedRun : public PackageTrustTest, public testing::WithParamInterface<Row> {};

}  // namespace

// A whole run with a list in force, for each kind of package; the journals show what was paused
// and applied, and the store what was recorded.
TEST_P(TrustedRun, AppliesOnlyPackagesThatAListedKeySigned) {
  const Row& row = GetParam();
  if (row.needsRoot)
    SKIP_WITHOUT_TEST_ROOT();
  trust(row.listed);
  offer(row.software, row.catalog);
  testsupport::LogCapture log(0);
  const RunVerdict verdict = run();

  std::string detail = row.detail;
  const std::string::size_type at = detail.find('@');
  if (at != std::string::npos) {
    const std::string signer = detail.substr(at + 1);
    detail.replace(at, std::string::npos,
                   kSubject + signer + "', key " + testsupport::publisherHash(signer));
  }
  EXPECT_EQ(row.result, std::string(outcomeWord(verdict.outcome)));
  EXPECT_EQ(detail, verdict.detail);
  EXPECT_EQ(row.applied, verdict.applied);
  const bool software = std::string(row.applied).find("software") != std::string::npos;
  const bool catalog = std::string(row.applied).find("catalog") != std::string::npos;
  // The library is given the verified copies alone, and only those it applies.
  Lines expected;
  if (software)
    expected.push_back(copy("software", "as"));
  if (catalog)
    expected.push_back(copy("catalog", "ad"));
  EXPECT_EQ(expected, applied());
  EXPECT_EQ(catalog, testsupport::readFile(std::string(kCatalogFolder) + "\\trusted.txt") ==
                         "verified bytes\r\n");
  EXPECT_EQ(software || catalog ? Lines{"Office Inkjet"} : Lines{},
            spooler_.names("SetPrinterA", "command=1 result=1"));
  // Every file is gone, the downloads and their copies, and nothing is left recorded.
  for (const std::string& file :
       {download("as"), download("ad"), copy("software", "as"), copy("catalog", "ad")})
    EXPECT_FALSE(testsupport::fileExists(file)) << file;
  EXPECT_EQ("none", store_.get("Records", "PendingDownloads"));
  // One always-written line for each refused package, with its reason and signer.
  if (!detail.empty()) {
    const std::string refused = detail.substr(0, detail.find(' '));
    const std::string reason = detail.substr(detail.find(": ") + 2);
    EXPECT_TRUE(log.contains("PackageTrust: the " + refused + " package '" +
                             download(refused == "software" ? "as" : "ad") +
                             "' is not applied: " + reason));
  }
}

INSTANTIATE_TEST_SUITE_P(Rows,
                         TrustedRun,
                         testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& row) { return row.param.name; });

// Between the check and the apply, another process can neither write the verified copy nor delete
// it, and the library applies the bytes that were verified; meanwhile the download and its copy
// are both recorded, so that a run killed there leaves neither behind.
TEST_F(PackageTrustTest, AnotherProcessCannotChangeTheCopyBetweenTheCheckAndTheApply) {
  SKIP_WITHOUT_TEST_ROOT();
  trust("listed");
  offer("", "listed");
  const std::string gate = files_.file("gate");
  library_.clear()
      .gate(gate)
      .check("cs", "2")
      .check("cd", "3,2026.2")
      .download("dd", "0,named," + download("ad"))
      .apply("\\ad", "gate unpack");
  std::string attempt, recorded;
  std::future<void> other = std::async(std::launch::async, [&] {
    for (int polls = 0; polls < 2000 && library_.journal().find("| started") == std::string::npos;
         ++polls)
      Sleep(10);
    recorded = store_.get("Records", "PendingDownloads");
    attempt = testsupport::runProcess(
        testsupport::besideTests("test_helper.exe", "overwrite \"" + copy("catalog", "ad") + "\""));
    testsupport::writeFile(gate, "");
  });
  const RunVerdict verdict = run();
  other.get();
  EXPECT_EQ("Updated", std::string(outcomeWord(verdict.outcome)));
  const std::string sharingViolation = std::to_string(ERROR_SHARING_VIOLATION);
  EXPECT_EQ(sharingViolation, testsupport::facts(attempt)["write"]) << attempt;
  EXPECT_EQ(sharingViolation, testsupport::facts(attempt)["delete"]) << attempt;
  EXPECT_NE(std::string::npos, recorded.find(download("ad"))) << recorded;
  EXPECT_NE(std::string::npos, recorded.find(copy("catalog", "ad"))) << recorded;
  EXPECT_EQ("verified bytes\r\n",
            testsupport::readFile(std::string(kCatalogFolder) + "\\trusted.txt"));
}

// "DoNotDeleteDownloadedFiles" keeps both the download and its verified copy, and hands both over.
TEST_F(PackageTrustTest, DownloadsKeptOnRequestKeepTheirCopiesToo) {
  SKIP_WITHOUT_TEST_ROOT();
  trust("listed");
  offer("", "listed");
  store_.set(kUpdater, "DoNotDeleteDownloadedFiles", 1);
  testsupport::LogCapture log;
  EXPECT_EQ(RunOutcome::kUpdated, run().outcome);
  EXPECT_TRUE(testsupport::fileExists(download("ad")));
  EXPECT_TRUE(testsupport::fileExists(copy("catalog", "ad")));
  EXPECT_EQ("none", store_.get("Records", "PendingDownloads"));
  EXPECT_TRUE(
      log.contains("UpdatesController::performPostUpdateCleanUp() NOT deleting files : '' "
                   "and '" +
                   copy("catalog", "ad") + "'"));
  EXPECT_TRUE(
      log.contains("UpdatesController::performPostUpdateCleanUp() NOT deleting the "
                   "download '" +
                   download("ad") + "'"));
}

// Where the verified folder belongs stands a file: the package is refused, nothing is paused.
TEST_F(PackageTrustTest, AVerifiedFolderThatIsNotTheProgramsOwnFailsClosed) {
  trust("listed");
  offer("", "listed");
  ASSERT_TRUE(testsupport::writeFile(PackageTrust::folderPath(), "squatted"));
  const RunVerdict verdict = run();
  DeleteFileA(PackageTrust::folderPath().c_str());
  EXPECT_EQ(RunOutcome::kPackageUntrusted, verdict.outcome);
  EXPECT_EQ("catalog package: '" + PackageTrust::folderPath() +
                "' is not a folder of its own (a file or a link)",
            verdict.detail);
  EXPECT_TRUE(spooler_.names("SetPrinterA").empty());
  EXPECT_FALSE(testsupport::fileExists(download("ad")));
}

// The vendor library signed by a key that is not listed is not loaded, and the run says why.
TEST_F(PackageTrustTest, ALibrarySignedByAnUnlistedKeyIsNotLoaded) {
  SKIP_WITHOUT_TEST_ROOT();
  trust("listed");
  ASSERT_TRUE(CopyFileA(testsupport::trustFixture("unlisted-library.dll").c_str(),
                        files_.file("cvctwupd.DLL").c_str(), FALSE));
  store_.set(kUpdater, "WebUpdaterDllPath", files_.path());
  const RunVerdict verdict = run();
  EXPECT_EQ(RunOutcome::kLibraryMissing, verdict.outcome);
  EXPECT_EQ("library not loaded: its signer is not a trusted publisher; signer " +
                std::string(kSubject) + "unlisted', key " + testsupport::publisherHash("unlisted"),
            verdict.detail);
  EXPECT_TRUE(library_.calls().empty());
}

// The list in a locked store is in force for a run; in a store that users can change it is not,
// and every run says so: no package is then copied or checked.
TEST_F(PackageTrustTest, ARunTakesTheListOfALockedStoreAndNotOfAnOpenOne) {
  SKIP_WITHOUT_TEST_ROOT();
  const std::string list = testsupport::publisherHash("unlisted");
  store_.set(kUpdater, "TrustedPublishers", list + '\0', REG_MULTI_SZ);
  const std::string root = testsupport::storeRoot();
  for (const bool locked : {true, false}) {
    for (const std::string& key : {root.substr(0, root.size() - 1), root + kUpdater}) {
      ASSERT_TRUE(testsupport::setKeySecurity(
          key, locked ? "O:BAD:P(A;CI;KA;;;BA)(A;CI;KA;;;SY)" : "D:(A;CI;GA;;;WD)"));
    }
    offer("", "listed");
    testsupport::LogCapture log(0);
    const RunVerdict verdict = run();
    EXPECT_EQ(locked ? RunOutcome::kPackageUntrusted : RunOutcome::kUpdated, verdict.outcome);
    EXPECT_EQ(locked ? Lines{} : Lines{download("ad")}, applied());
    EXPECT_EQ(!locked, log.contains("PackageTrust: the store's TrustedPublishers is ignored: its "
                                    "key can be changed by S-1-1-0"));
    library_.clearJournal();
  }
}
