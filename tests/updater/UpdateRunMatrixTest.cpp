#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "updater/OsVersion.h"
#include "updater/UpdateRunFixture.h"
#include "updater/UpdatesController.h"

namespace {

// The update run's own detail lines.
const char kNothing[] = "Checking for updates failed or there are no updates available!";
const char kAvailable[] =
    "Updates are available, now, we will attempt to download and install them";
const char kXp[] =
    "The OS is Win XP or Win 2K, we have the spooler privilages, we do not need "
    "extra permissions";
const char kVista[] = "We are running on Windows Vista, following the Vista algorithm";
const char kNonAdmin[] = "The current process is running under an non admin user.";
const char kStillNotAdmin[] = "Elevated permissions and still not an Admin. UAC must be off.";
const char kExiting[] = "Exiting update process.";
const char kElevating[] = "UAC IS enabled, attempting to elevate permissions.";
const char kAdmin[] = "The current process has admin permissions!";
const char kCatalogOnly[] =
    "This is a CATALOG only update, so we are installing the updates "
    "right away!";
const char kCatalogAndDlls[] = "This is a CATALOG + DLLs update";
const char kElevated[] =
    "The process has already been elevated. We have all the permissions we "
    "need, attempting to install updates now.";
const char kNotElevated[] = "The process has NOT been elevated.";
const char kFailed[] = "The either the download or the installation has failed.";

const DWORD kAbsent = 0xDEAD;
const char kPrinter[] = "Office Inkjet";

using Lines = std::vector<std::string>;

struct Row {
  const char* name;
  bool vista;         // The row runs where Wine presents Vista or later (else XP).
  bool admin;         // The administrator probe (opening the first printer) passes.
  bool marker;        // Started with "-UAC".
  int softwareCheck;  // UpdCheckForUpdateA codes: 3 available, 2 not, 0 failed, 4 no privilege.
  int dataCheck;
  bool softwareDownloads;
  bool dataDownloads;
  bool softwareApplies;
  bool dataApplies;
  bool printerOfInterest;
  DWORD flagsBefore;  // kAbsent, or 2 set by another component.
  bool keepFiles;     // "DoNotDeleteDownloadedFiles"
  // What must happen:
  Lines runLines;
  Lines libraryCalls;
  bool relaunched;
  DWORD completeFlag;
  DWORD dataFlag;
  bool filesLeft;
  bool printersPaused;
};

const Lines kCheckBoth = {"check software", "check data"};
const Lines kSoftwareOnly = {"check software", "check data", "download software", "apply software"};
const Lines kDataOnly = {"check software", "check data", "download data", "apply data"};
const Lines kBoth = {"check software", "check data",     "download software",
                     "download data",  "apply software", "apply data"};

// Base rows: Vista, administrator, both packages available, everything succeeds.
Row vistaRow(const char* name) {
  return Row{name, true,    true,  false, 3,  3,     true,    true,    true,  true,
             true, kAbsent, false, {},    {}, false, kAbsent, kAbsent, false, false};
}

std::vector<Row> rows() {
  std::vector<Row> r;
  Row row = vistaRow("NothingAvailable");
  row.softwareCheck = row.dataCheck = 2;
  row.runLines = {kNothing};
  row.libraryCalls = kCheckBoth;
  r.push_back(row);

  row = vistaRow("SoftwareCheckFailsNoDataCheck");
  row.softwareCheck = 0;
  row.runLines = {kNothing};
  row.libraryCalls = {"check software"};
  r.push_back(row);

  row = vistaRow("SoftwareNoPrivilegeNoDataCheck");
  row.softwareCheck = 4;
  row.runLines = {kNothing};
  row.libraryCalls = {"check software"};
  r.push_back(row);

  row = vistaRow("DataCheckNoPrivilegeCountsAsNothing");
  row.softwareCheck = 2;
  row.dataCheck = 4;
  row.runLines = {kNothing};
  row.libraryCalls = kCheckBoth;
  r.push_back(row);

  row = vistaRow("NonAdminRelaunches");
  row.admin = false;
  row.runLines = {kAvailable, kVista, kNonAdmin, kElevating};
  row.libraryCalls = kCheckBoth;
  row.relaunched = true;
  r.push_back(row);

  row = vistaRow("NonAdminCatalogOnlyRelaunches");
  row.admin = false;
  row.softwareCheck = 2;
  row.runLines = {kAvailable, kVista, kNonAdmin, kElevating};
  row.libraryCalls = kCheckBoth;
  row.relaunched = true;
  r.push_back(row);

  row = vistaRow("NonAdminChildNeverRelaunchesAgain");
  row.admin = false;
  row.marker = true;
  row.runLines = {kAvailable, kVista, kNonAdmin, kStillNotAdmin, kExiting};
  row.libraryCalls = kCheckBoth;
  r.push_back(row);

  row = vistaRow("AdminCatalogOnlyInstallsInPlace");
  row.softwareCheck = 2;
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogOnly};
  row.libraryCalls = kDataOnly;
  row.dataFlag = 1;
  row.printersPaused = true;
  r.push_back(row);

  row = vistaRow("UnknownSoftwareAnswerIsAFailedCheck");
  row.softwareCheck = 7;
  row.runLines = {kNothing};
  row.libraryCalls = {"check software"};
  r.push_back(row);

  row = vistaRow("AdminSoftwareUpdateRelaunches");
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogAndDlls, kNotElevated, kElevating};
  row.libraryCalls = kCheckBoth;
  row.relaunched = true;
  r.push_back(row);

  row = vistaRow("ElevatedChildInstallsBoth");
  row.marker = true;
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogAndDlls, kElevated};
  row.libraryCalls = kBoth;
  row.completeFlag = 1;
  row.printersPaused = true;
  r.push_back(row);

  row = vistaRow("ElevatedChildSoftwareOnlySetsNoFlag");
  row.marker = true;
  row.dataCheck = 2;
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogAndDlls, kElevated};
  row.libraryCalls = kSoftwareOnly;
  row.printersPaused = true;
  r.push_back(row);

  row = vistaRow("DataCheckFailureLeavesTheSoftwareUpdate");
  row.marker = true;
  row.dataCheck = 0;
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogAndDlls, kElevated};
  row.libraryCalls = kSoftwareOnly;
  row.printersPaused = true;
  r.push_back(row);

  row = vistaRow("SoftwareDownloadFailsNothingElseHappens");
  row.marker = true;
  row.softwareDownloads = false;
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogAndDlls, kElevated, kFailed};
  row.libraryCalls = {"check software", "check data", "download software"};
  r.push_back(row);

  row = vistaRow("DataDownloadFailsTheSoftwareDownloadIsRemoved");
  row.marker = true;
  row.dataDownloads = false;
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogAndDlls, kElevated, kFailed};
  row.libraryCalls = {"check software", "check data", "download software", "download data"};
  r.push_back(row);

  row = vistaRow("SoftwareApplyFailsPrintersResumedFilesDeleted");
  row.marker = true;
  row.softwareApplies = false;
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogAndDlls, kElevated, kFailed};
  row.libraryCalls = {"check software", "check data", "download software", "download data",
                      "apply software"};
  row.printersPaused = true;
  r.push_back(row);

  row = vistaRow("DataApplyFailsNoFlag");
  row.marker = true;
  row.dataApplies = false;
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogAndDlls, kElevated, kFailed};
  row.libraryCalls = kBoth;
  row.printersPaused = true;
  r.push_back(row);

  row = vistaRow("CatalogApplyFails");
  row.softwareCheck = 2;
  row.dataApplies = false;
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogOnly, kFailed};
  row.libraryCalls = kDataOnly;
  row.printersPaused = true;
  r.push_back(row);

  row = vistaRow("NoPrinterOfInterestInstallsNothing");
  row.softwareCheck = 2;
  row.printerOfInterest = false;
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogOnly, kFailed};
  row.libraryCalls = {"check software", "check data", "download data"};
  r.push_back(row);

  row = vistaRow("FlagsHeldAtTwoAreKept");
  row.marker = true;
  row.flagsBefore = 2;
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogAndDlls, kElevated};
  row.libraryCalls = kBoth;
  row.completeFlag = 2;
  row.dataFlag = 2;
  row.printersPaused = true;
  r.push_back(row);

  row = vistaRow("CatalogFlagHeldAtTwoIsKept");
  row.softwareCheck = 2;
  row.flagsBefore = 2;
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogOnly};
  row.libraryCalls = kDataOnly;
  row.completeFlag = 2;
  row.dataFlag = 2;
  row.printersPaused = true;
  r.push_back(row);

  row = vistaRow("DownloadsKeptOnRequest");
  row.marker = true;
  row.keepFiles = true;
  row.runLines = {kAvailable, kVista, kAdmin, kCatalogAndDlls, kElevated};
  row.libraryCalls = kBoth;
  row.completeFlag = 1;
  row.filesLeft = true;
  row.printersPaused = true;
  r.push_back(row);

  // Windows 2000, XP and 2003: no administrator probe, no relaunch.
  row = vistaRow("XpInstallsBothInPlace");
  row.vista = false;
  row.runLines = {kAvailable, kXp};
  row.libraryCalls = kBoth;
  row.completeFlag = 1;
  row.printersPaused = true;
  r.push_back(row);

  row = vistaRow("XpCatalogOnly");
  row.vista = false;
  row.softwareCheck = 2;
  row.runLines = {kAvailable, kXp};
  row.libraryCalls = kDataOnly;
  row.dataFlag = 1;
  row.printersPaused = true;
  r.push_back(row);

  row = vistaRow("XpSoftwareOnly");
  row.vista = false;
  row.marker = true;
  row.dataCheck = 2;
  row.runLines = {kAvailable, kXp};
  row.libraryCalls = kSoftwareOnly;
  row.printersPaused = true;
  r.push_back(row);

  row = vistaRow("XpDataDownloadFails");
  row.vista = false;
  row.dataDownloads = false;
  row.runLines = {kAvailable, kXp, kFailed};
  row.libraryCalls = {"check software", "check data", "download software", "download data"};
  r.push_back(row);

  row = vistaRow("XpNothingAvailable");
  row.vista = false;
  row.softwareCheck = 2;
  row.dataCheck = 2;
  row.runLines = {kNothing};
  row.libraryCalls = kCheckBoth;
  r.push_back(row);
  return r;
}

class UpdateRunMatrix : public UpdateRunFixture, public testing::WithParamInterface<Row> {};

}  // namespace

TEST_P(UpdateRunMatrix, TakesTheDecisionsAndLeavesTheMachineAsExpected) {
  const Row& row = GetParam();
  if (row.vista != OsVersion::getInstance().isVistaOrLater())
    GTEST_SKIP() << "runs in the copy of this test that Wine presents as "
                 << (row.vista ? "Windows 7" : "Windows XP");

  testsupport::StagedPrinter printer;
  printer.name = kPrinter;
  printer.driver = row.printerOfInterest ? kDriver : "Generic Text";
  printer.jobs = 1;
  printer.drainAfterPolls = 1;
  printer.failOpen = row.admin ? 0 : ERROR_ACCESS_DENIED;
  spooler_.add(printer).write();

  library_.check("SWVER", std::to_string(row.softwareCheck) + ",1.1")
      .check("DATAVER", std::to_string(row.dataCheck) + ",2026.2")
      .download("SWPKG", row.softwareDownloads ? "0,alloc," + softwarePackage() : "1,buffer,")
      .download("DATAPKG", row.dataDownloads ? "0,buffer," + dataPackage() : "1,buffer,")
      .apply("sw.pkg", row.softwareApplies ? 1 : 0)
      .apply("data.pkg", row.dataApplies ? 1 : 0)
      .write();
  if (row.flagsBefore != kAbsent) {
    store_.setDword("Settings\\Updater", "CompleteSoftwareUpdated", row.flagsBefore);
    store_.setDword("Settings\\Updater", "DataUpdated", row.flagsBefore);
  }
  store_.setDword("Settings\\Updater", "DoNotDeleteDownloadedFiles", row.keepFiles ? 1 : 0);
  setCommandLine(row.marker ? "-UAC" : "");

  testsupport::LogCapture log;
  {
    UpdatesController controller;
    controller.performUpdates();
  }

  EXPECT_EQ(row.runLines, detailLines(log, "UpdatesController::performUpdates() "));
  EXPECT_EQ(row.libraryCalls, libraryCalls());
  ASSERT_EQ(row.relaunched ? 1u : 0u, relaunches_.size());
  if (row.relaunched) {
    EXPECT_EQ("RunAs", relaunches_[0].verb);
    EXPECT_EQ(testsupport::executableDirectory() + "cvctl_tests.exe", relaunches_[0].file);
    EXPECT_EQ("-UAC", relaunches_[0].parameters);
    EXPECT_TRUE(relaunches_[0].directoryNull);
    EXPECT_EQ(1, relaunches_[0].show);
  }
  EXPECT_EQ(row.completeFlag, flag("CompleteSoftwareUpdated"));
  EXPECT_EQ(row.dataFlag, flag("DataUpdated"));
  EXPECT_EQ(row.filesLeft, testsupport::fileExists(softwarePackage()));
  EXPECT_EQ(row.filesLeft, testsupport::fileExists(dataPackage()));
  // Every paused printer was resumed.
  const Lines expectedPrinters = row.printersPaused ? Lines{std::string("pause ") + kPrinter,
                                                            std::string("resume ") + kPrinter}
                                                    : Lines{};
  EXPECT_EQ(expectedPrinters, printerCommands());
}

INSTANTIATE_TEST_SUITE_P(Rows,
                         UpdateRunMatrix,
                         testing::ValuesIn(rows()),
                         [](const testing::TestParamInfo<Row>& info) {
                           return std::string(info.param.name) + (info.param.vista ? "" : "_OnXp");
                         });

// The rows for Windows 2000/XP/2003 run in a copy of this executable that Wine presents as XP.
TEST(UpdateRunMatrixOnXp, PassesInACopyPresentedAsWindowsXp) {
  if (!OsVersion::getInstance().isVistaOrLater())
    GTEST_SKIP() << "this is the copy";
  const std::string copy = "cvctl_xp_tests.exe";
  ASSERT_TRUE(testsupport::copyBeside("cvctl_tests.exe", copy));
  testsupport::setWineVersion(copy, "winxp");
  const testsupport::ProcessResult result = testsupport::runProcess(
      "\"" + testsupport::executableDirectory() + copy + "\" --gtest_filter=Rows/UpdateRunMatrix.*",
      120000);
  testsupport::setWineVersion(copy, "");
  DeleteFileA((testsupport::executableDirectory() + copy).c_str());
  ASSERT_FALSE(result.timedOut);
  EXPECT_EQ(0u, result.exitCode) << result.output;
  EXPECT_NE(std::string::npos, result.output.find("[  PASSED  ]")) << result.output;
  EXPECT_NE(
      std::string::npos,
      result.output.find("OK ] "
                         "Rows/UpdateRunMatrix.TakesTheDecisionsAndLeavesTheMachineAsExpected/"
                         "XpInstallsBothInPlace_OnXp"))
      << result.output;
}
