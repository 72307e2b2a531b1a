#include <gtest/gtest.h>

#include "updater/OsVersion.h"
#include "updater/UpdateRunFixture.h"

namespace {

// The update run's own detail lines.
const char kNothing[] = "Checking for updates failed or there are no updates available!";
const char kAvailable[] =
    "Updates are available, now, we will attempt to download and install them";
const char kXp[] =
    "The OS is Win XP or Win 2K, we have the spooler privilages, we do not need extra permissions";
const char kVista[] = "We are running on Windows Vista, following the Vista algorithm";
const char kNonAdmin[] = "The current process is running under an non admin user.";
const char kStillNotAdmin[] = "Elevated permissions and still not an Admin. UAC must be off.";
const char kExiting[] = "Exiting update process.";
const char kElevating[] = "UAC IS enabled, attempting to elevate permissions.";
const char kAdmin[] = "The current process has admin permissions!";
const char kCatalogOnly[] =
    "This is a CATALOG only update, so we are installing the updates right away!";
const char kBoth[] = "This is a CATALOG + DLLs update";
const char kElevated[] =
    "The process has already been elevated. We have all the permissions we need, attempting to "
    "install updates now.";
const char kNotElevated[] = "The process has NOT been elevated.";
const char kFailed[] = "The either the download or the installation has failed.";

using Lines = std::vector<std::string>;
const Lines kVistaAdmin = {kAvailable, kVista, kAdmin};
const Lines kElevatedBoth = {kAvailable, kVista, kAdmin, kBoth, kElevated};
const Lines kElevatedBothFailed = {kAvailable, kVista, kAdmin, kBoth, kElevated, kFailed};

struct Row {
  const char* name;
  // How the machine differs from Windows Vista or later, an administrator, no "-UAC", both
  // updates available (check code 3), every download and apply succeeding and one printer of the
  // driver: "xp", "user", "-UAC", "sw=<check code>", "data=<check code>" (2 none, 0 failed,
  // 4 no privilege), "no-sw-download", "no-data-download", "sw-apply=<0|throw>",
  // "data-apply=0", "other-driver", "flags=2" (set by another component), "keep-files".
  const char* given;
  Lines runLines;  // performUpdates()' own detail lines
  // The library's calls (see libraryCalls()), then what the run leaves: "relaunch", "complete=1",
  // "data=1", "flags=2", "paused" (the printer was paused and resumed), "files-left".
  const char* calls;
  const char* outcome;
};

const Row kRows[] = {
    {"NothingAvailable", "sw=2 data=2", {kNothing}, "cs cd", ""},
    {"SoftwareCheckFailsNoDataCheck", "sw=0", {kNothing}, "cs", ""},
    {"SoftwareNoPrivilegeNoDataCheck", "sw=4", {kNothing}, "cs", ""},
    {"UnknownSoftwareAnswerIsAFailedCheck", "sw=7", {kNothing}, "cs", ""},
    {"DataCheckNoPrivilegeIsNothing", "sw=2 data=4", {kNothing}, "cs cd", ""},
    {"UserRelaunches", "user", {kAvailable, kVista, kNonAdmin, kElevating}, "cs cd", "relaunch"},
    {"UserCatalogOnlyRelaunches",
     "user sw=2",
     {kAvailable, kVista, kNonAdmin, kElevating},
     "cs cd",
     "relaunch"},
    {"UserChildNeverRelaunchesAgain",
     "user -UAC",
     {kAvailable, kVista, kNonAdmin, kStillNotAdmin, kExiting},
     "cs cd",
     ""},
    {"AdminCatalogOnlyInstallsInPlace",
     "sw=2",
     {kAvailable, kVista, kAdmin, kCatalogOnly},
     "cs cd dd ad",
     "data=1 paused"},
    {"AdminSoftwareUpdateRelaunches",
     "",
     {kAvailable, kVista, kAdmin, kBoth, kNotElevated, kElevating},
     "cs cd",
     "relaunch"},
    {"ElevatedChildInstallsBoth", "-UAC", kElevatedBoth, "cs cd ds dd as ad", "complete=1 paused"},
    {"ElevatedChildSoftwareOnlySetsNoFlag", "-UAC data=2", kElevatedBoth, "cs cd ds as", "paused"},
    {"DataCheckFailureLeavesTheSoftwareUpdate", "-UAC data=0", kElevatedBoth, "cs cd ds as",
     "paused"},
    {"SoftwareDownloadFailsNothingElseHappens", "-UAC no-sw-download", kElevatedBothFailed,
     "cs cd ds", ""},
    {"DataDownloadFailsTheSoftwareDownloadIsRemoved", "-UAC no-data-download", kElevatedBothFailed,
     "cs cd ds dd", ""},
    {"SoftwareApplyFailsPrintersResumedFilesDeleted", "-UAC sw-apply=0", kElevatedBothFailed,
     "cs cd ds dd as", "paused"},
    {"SoftwareApplyThrowsPrintersResumedFilesDeleted", "-UAC sw-apply=throw", kElevatedBothFailed,
     "cs cd ds dd as", "paused"},
    {"DataApplyFailsNoFlag", "-UAC data-apply=0", kElevatedBothFailed, "cs cd ds dd as ad",
     "paused"},
    {"CatalogApplyFails",
     "sw=2 data-apply=0",
     {kAvailable, kVista, kAdmin, kCatalogOnly, kFailed},
     "cs cd dd ad",
     "paused"},
    {"NoPrinterOfInterestInstallsNothing",
     "sw=2 other-driver",
     {kAvailable, kVista, kAdmin, kCatalogOnly, kFailed},
     "cs cd dd",
     ""},
    {"FlagsHeldAtTwoAreKept", "-UAC flags=2", kElevatedBoth, "cs cd ds dd as ad", "flags=2 paused"},
    {"CatalogFlagHeldAtTwoIsKept",
     "sw=2 flags=2",
     {kAvailable, kVista, kAdmin, kCatalogOnly},
     "cs cd dd ad",
     "flags=2 paused"},
    {"DownloadsKeptOnRequest", "-UAC keep-files", kElevatedBoth, "cs cd ds dd as ad",
     "complete=1 paused files-left"},
    // Windows 2000, XP and 2003: no administrator test, no relaunch.
    {"XpInstallsBothInPlace", "xp", {kAvailable, kXp}, "cs cd ds dd as ad", "complete=1 paused"},
    {"XpCatalogOnly", "xp sw=2", {kAvailable, kXp}, "cs cd dd ad", "data=1 paused"},
    {"XpSoftwareOnly", "xp -UAC data=2", {kAvailable, kXp}, "cs cd ds as", "paused"},
    {"XpDataDownloadFails", "xp no-data-download", {kAvailable, kXp, kFailed}, "cs cd ds dd", ""},
    {"XpNothingAvailable", "xp sw=2 data=2", {kNothing}, "cs cd", ""},
};

// Whether the blank-separated `words` hold `word`; the text after "<key>=" for a key.
bool has(const std::string& words, const std::string& word) {
  return (" " + words + " ").find(" " + word + " ") != std::string::npos;
}
std::string valueOf(const std::string& words, const std::string& key, const std::string& fallback) {
  const std::string::size_type at = (" " + words).find(" " + key + "=");
  return at == std::string::npos
             ? fallback
             : words.substr(at + key.size() + 1, words.find(' ', at) - at - key.size() - 1);
}

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.name;
}

class UpdateRunMatrix : public UpdateRunFixture, public testing::WithParamInterface<Row> {};

}  // namespace

TEST_P(UpdateRunMatrix, TakesTheDecisionsAndLeavesTheMachineAsExpected) {
  const Row& row = GetParam();
  if (has(row.given, "xp") == OsVersion::getInstance().isVistaOrLater())
    GTEST_SKIP() << "runs in the copy of this test that Wine presents as the other version";
  PrinterScenario printer = testsupport::SpoolerScenario::printer("Office Inkjet", kDriver);
  printer.driver = has(row.given, "other-driver") ? "Generic Text" : kDriver;
  printer.jobs = 1;
  printer.drainAfterPolls = 1;
  printer.failOpen = has(row.given, "user") ? ERROR_ACCESS_DENIED : 0;
  spooler_.add(printer).write();
  library_.check("OrreryVersion", valueOf(row.given, "sw", "3") + ",1.1")
      .check("CatalogVersion", valueOf(row.given, "data", "3") + ",2026.2")
      .download("OrreryDownload",
                has(row.given, "no-sw-download") ? "1,buffer," : "0,alloc," + softwarePackage())
      .download("CatalogDownload",
                has(row.given, "no-data-download") ? "1,buffer," : "0,buffer," + dataPackage())
      .apply("sw.pkg", valueOf(row.given, "sw-apply", "1"))
      .apply("data.pkg", valueOf(row.given, "data-apply", "1"))
      .write();
  if (has(row.given, "flags=2")) {
    store_.set("Settings\\Updater", "CompleteSoftwareUpdated", 2);
    store_.set("Settings\\Updater", "DataUpdated", 2);
  }
  store_.set("Settings\\Updater", "DoNotDeleteDownloadedFiles",
             has(row.given, "keep-files") ? 1 : 0);
  setCommandLine(has(row.given, "-UAC") ? "-UAC" : "");

  testsupport::LogCapture log;
  UpdatesController().performUpdates();

  EXPECT_EQ(row.runLines, log.details("UpdatesController::performUpdates() "));
  EXPECT_EQ(row.calls, libraryCalls());
  EXPECT_EQ(has(row.outcome, "relaunch")
                ? std::vector<std::string>{"RunAs " + testsupport::executableDirectory() +
                                           "cvctl_tests.exe -UAC null 1"}
                : std::vector<std::string>{},
            relaunches());
  const DWORD held = has(row.outcome, "flags=2") ? 2 : 0xDEAD;
  EXPECT_EQ(has(row.outcome, "complete=1") ? 1 : held, flag("CompleteSoftwareUpdated"));
  EXPECT_EQ(has(row.outcome, "data=1") ? 1 : held, flag("DataUpdated"));
  EXPECT_EQ(has(row.outcome, "files-left"), testsupport::fileExists(softwarePackage()));
  EXPECT_EQ(has(row.outcome, "files-left"), testsupport::fileExists(dataPackage()));
  const Lines printers = has(row.outcome, "paused") ? Lines{"Office Inkjet"} : Lines{};
  EXPECT_EQ(printers, spooler_.names("SetPrinterA", "command=1 result=1"));
  EXPECT_EQ(printers, spooler_.names("SetPrinterA", "command=2 result=1"));
}

INSTANTIATE_TEST_SUITE_P(Rows,
                         UpdateRunMatrix,
                         testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& info) { return info.param.name; });

// The rows for Windows 2000, XP and 2003 run in a copy of this executable that Wine presents as XP.
TEST(UpdateRunMatrixOnXp, PassesInACopyPresentedAsWindowsXp) {
  if (!OsVersion::getInstance().isVistaOrLater())
    GTEST_SKIP() << "this is the copy";
  const std::string copy = "cvctl_xp_tests.exe";
  ASSERT_TRUE(CopyFileA((testsupport::executableDirectory() + "cvctl_tests.exe").c_str(),
                        (testsupport::executableDirectory() + copy).c_str(), FALSE));
  testsupport::setWineVersion(copy, "winxp");
  const testsupport::ProcessResult result = testsupport::runProcess(
      testsupport::besideTests(copy, "--gtest_filter=Rows/UpdateRunMatrix.*"), 120000);
  testsupport::setWineVersion(copy, "");
  DeleteFileA((testsupport::executableDirectory() + copy).c_str());
  EXPECT_EQ(0u, result.exitCode) << result.output;
  EXPECT_NE(std::string::npos, result.output.find("[  PASSED  ] 5 tests.")) << result.output;
}
