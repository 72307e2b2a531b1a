#include <gtest/gtest.h>

#include <algorithm>

#include <windows.h>

#include <shellapi.h>
#include <wininet.h>

#include "support/TestSupport.h"
#include "updater/UpdateRunFixture.h"
#include "updater/UpdatesController.h"
#include "webupdate/WebUpdaterAdapter.h"

using testsupport::LogCapture;
using Lines = std::vector<std::string>;

namespace {

class UpdatesControllerTest : public UpdateRunFixture {
 protected:
  void SetUp() override {
    UpdateRunFixture::SetUp();
    testsupport::StagedPrinter printer;
    printer.name = "Office Inkjet";
    printer.driver = kDriver;
    spooler_.add(printer).write();
  }
};

BOOL WINAPI dialUp(LPDWORD flags, DWORD) {
  *flags = INTERNET_CONNECTION_MODEM;
  return TRUE;
}

}  // namespace

TEST_F(UpdatesControllerTest, AnOfflineMachineStopsTheRunBeforeAnyCheck) {
  library_.connection(0).check("*", "3").write();
  LogCapture log;
  UpdatesController().performUpdates();
  EXPECT_EQ(Lines{"Internet connection is not available, halting the update process"},
            detailLines(log, "UpdatesController::isInternetStateOk() "));
  EXPECT_EQ(Lines{"The InternetState is not OK to start downloads, quitting the update process."},
            detailLines(log, "UpdatesController::performUpdates() "));
  EXPECT_TRUE(libraryCalls().empty());
}

TEST_F(UpdatesControllerTest, ADialUpLineIsLoggedButTheRunGoesOn) {
  library_.check("*", "2").write();
  WebUpdaterAdapter::setConnectedStateFunction(&dialUp);
  LogCapture log;
  UpdatesController().performUpdates();
  WebUpdaterAdapter::setConnectedStateFunction(nullptr);
  EXPECT_EQ(Lines{"The user is connected to the internet over a dial up connection, halting the "
                  "update process."},
            detailLines(log, "UpdatesController::isInternetStateOk() "));
  EXPECT_TRUE(log.contains("-UpdatesController::isInternetStateOk()  rc=true"));
  EXPECT_EQ((Lines{"check software", "check data"}), libraryCalls());
}

TEST_F(UpdatesControllerTest, ADeclinedElevationIsLoggedAndNothingIsInstalled) {
  library_.check("*", "3").write();
  shellResult_ = SE_ERR_ACCESSDENIED;
  LogCapture log;
  UpdatesController().performUpdates();
  ASSERT_EQ(1u, relaunches_.size());
  // The relaunch is traced under the label of isProcessElevated(), on purpose.
  const Lines lines = detailLines(log, "UpdatesController::isProcessElevated() ");
  EXPECT_EQ(Lines{"The new process FAILED to launch. Casted HINSTANCE value = 5"}, lines);
  EXPECT_TRUE(log.contains("-UpdatesController::isProcessElevated()  rc=false"));
  EXPECT_EQ((Lines{"check software", "check data"}), libraryCalls());
  EXPECT_TRUE(printerCommands().empty());
}

TEST_F(UpdatesControllerTest, AStartedRelaunchIsLogged) {
  library_.check("*", "3").write();
  LogCapture log;
  EXPECT_TRUE(UpdatesController().launchElevatedProcess());
  EXPECT_EQ(Lines{"The new process was launched successfully"},
            detailLines(log, "UpdatesController::isProcessElevated() "));
}

TEST_F(UpdatesControllerTest, TheDataDirectoryIsCreatedOnceWithItsParents) {
  library_.apply("*", 1).write();
  testsupport::writeFile(dataPackage(), "package");
  LogCapture log;
  UpdatesController controller;
  EXPECT_EQ(kDataDirectory, controller.getDataUpdatesDirectory());
  EXPECT_TRUE(controller.installDataUpdate(dataPackage()));
  EXPECT_TRUE(controller.installDataUpdate(dataPackage()));
  const Lines lines = detailLines(log, "UpdatesController::installDataUpdate() ");
  EXPECT_EQ((Lines{std::string("Attempting to create dir : ") + kDataDirectory,
                   "The data updates were applied successfully.",
                   "The data updates were applied successfully."}),
            lines);
  EXPECT_TRUE(testsupport::fileExists(kDataDirectory));
  const Lines applied = library_.calls("UpdApplyUpdateA");
  ASSERT_EQ(2u, applied.size());
  EXPECT_NE(std::string::npos, applied[0].find(std::string("| dir=") + kDataDirectory + " |"));
}

TEST_F(UpdatesControllerTest, TheDataDirectoryNameComesFromTheSettings) {
  store_.setString("Settings\\Updater", "DataUpdatesDirectoryName", "\\Catalog");
  store_.setString("Settings\\", "DriverName", "Other Driver\\");
  EXPECT_EQ("C:\\ProgramData\\Other Driver\\Catalog",
            UpdatesController().getDataUpdatesDirectory());
}

TEST_F(UpdatesControllerTest, InstallationWithoutPackagesDoesNothing) {
  LogCapture log;
  UpdatesController controller;
  EXPECT_FALSE(controller.installUpdates("", ""));
  EXPECT_FALSE(controller.installDataUpdate(""));
  EXPECT_FALSE(controller.downloadAndInstallUpdates(0));
  EXPECT_TRUE(
      log.contains("UpdatesController::installUpdates() NO updates were available to "
                   "install !"));
  EXPECT_TRUE(
      log.contains("UpdatesController::downloadAndInstallUpdates(0) There are no updates "
                   "to download and install."));
  EXPECT_TRUE(printerCommands().empty());
}

TEST_F(UpdatesControllerTest, ASoftwareOnlyInstallLogsTheMisleadingLineAndSetsNoFlag) {
  library_.apply("*", 1).write();
  testsupport::writeFile(softwarePackage(), "package");
  LogCapture log;
  EXPECT_TRUE(UpdatesController().installUpdates(softwarePackage(), ""));
  const Lines lines = detailLines(log, "UpdatesController::installUpdates() ");
  EXPECT_NE(lines.end(), std::find(lines.begin(), lines.end(), "software update FAILED"));
  EXPECT_EQ(0xDEADu, flag("CompleteSoftwareUpdated"));
  EXPECT_EQ(0xDEADu, flag("DataUpdated"));
  // The empty data path is "deleted" as well, unchecked.
  const Lines cleanUp = detailLines(log, "UpdatesController::performPostUpdateCleanUp() ");
  EXPECT_EQ((Lines{"Attempting to deleting file : " + softwarePackage(),
                   "Attempting to deleting file : "}),
            cleanUp);
  EXPECT_EQ((Lines{"pause Office Inkjet", "resume Office Inkjet"}), printerCommands());
}

TEST_F(UpdatesControllerTest, KeptDownloadsAreNamedInTheLog) {
  store_.setDword("Settings\\Updater", "DoNotDeleteDownloadedFiles", 7);
  LogCapture log;
  UpdatesController().performPostUpdateCleanUp("C:\\dl\\a.pkg", "C:\\dl\\b.pkg");
  EXPECT_EQ(Lines{"NOT deleting files : 'C:\\dl\\a.pkg' and 'C:\\dl\\b.pkg'"},
            detailLines(log, "UpdatesController::performPostUpdateCleanUp() "));
}

TEST_F(UpdatesControllerTest, AFailedDataDownloadRemovesTheSoftwarePackage) {
  library_.download("SWPKG", "0,buffer," + softwarePackage())
      .download("DATAPKG", "1,buffer,")
      .write();
  LogCapture log;
  std::string software = "x";
  std::string data = "y";
  EXPECT_FALSE(UpdatesController().downloadUpdates(3, software, data));
  EXPECT_EQ("", software);
  EXPECT_EQ("", data);
  EXPECT_FALSE(testsupport::fileExists(softwarePackage()));
  const Lines lines = detailLines(log, "UpdatesController::downloadUpdates() ");
  EXPECT_EQ((Lines{"typeOfUpdateAvailable=3",
                   "Both the software and data updates are available, so downloading both "
                   "updates.",
                   "The data update failed to download, so we are deleting the downloaded "
                   "software update"}),
            lines);
}
