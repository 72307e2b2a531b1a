#include <gtest/gtest.h>

#include <windows.h>

#include <shellapi.h>
#include <wininet.h>

#include "updater/UpdateRunFixture.h"
#include "webupdate/WebUpdaterAdapter.h"

using testsupport::LogCapture;
using Lines = std::vector<std::string>;

namespace {

class UpdatesControllerTest : public UpdateRunFixture {
 protected:
  void SetUp() override {
    UpdateRunFixture::SetUp();
    spooler_.add(testsupport::SpoolerScenario::printer("Office Inkjet", kDriver)).write();
  }
};

BOOL WINAPI dialUp(LPDWORD flags, DWORD) {
  *flags = INTERNET_CONNECTION_MODEM;
  return TRUE;
}

}  // namespace

// Offline, the run stops before any check; a dial-up line is logged (as "halting"), yet the run
// goes on.
TEST_F(UpdatesControllerTest, AnOfflineMachineStopsTheRunAndADialUpLineDoesNot) {
  library_.connection(0).check("*", "2").write();
  {
    LogCapture log;
    UpdatesController().performUpdates();
    EXPECT_EQ(Lines{"The InternetState is not OK to start downloads, quitting the update process."},
              log.details("UpdatesController::performUpdates() "));
    EXPECT_EQ("", libraryCalls());
  }
  library_.connection(1).write();
  WebUpdaterAdapter::setConnectedStateFunction(&dialUp);
  LogCapture log;
  UpdatesController().performUpdates();
  WebUpdaterAdapter::setConnectedStateFunction(nullptr);
  EXPECT_EQ(Lines{"The user is connected to the internet over a dial up connection, halting the "
                  "update process."},
            log.details("UpdatesController::isInternetStateOk() "));
  EXPECT_EQ("cs cd", libraryCalls());
}

// A relaunch is traced under the label of isProcessElevated(), on purpose.
TEST_F(UpdatesControllerTest, ADeclinedElevationIsLoggedAndNothingIsInstalled) {
  library_.check("*", "3").write();
  shellResult() = SE_ERR_ACCESSDENIED;
  LogCapture log;
  UpdatesController().performUpdates();
  EXPECT_EQ(1u, relaunches().size());
  EXPECT_EQ(Lines{"The new process FAILED to launch. Casted HINSTANCE value = 5"},
            log.details("UpdatesController::isProcessElevated() "));
  EXPECT_TRUE(log.contains("-UpdatesController::isProcessElevated()  rc=false"));
  EXPECT_EQ("cs cd", libraryCalls());
  EXPECT_TRUE(spooler_.calls("SetPrinterA").empty());
}

// The catalog goes into <all users' application data>\<DriverName>\<DataUpdatesDirectoryName>,
// created with its parents when missing.
TEST_F(UpdatesControllerTest, TheDataDirectoryIsCreatedWithItsParents) {
  library_.apply("*", "1").write();
  UpdatesController controller;
  EXPECT_EQ(kDataDirectory, controller.getDataUpdatesDirectory());
  EXPECT_TRUE(controller.installDataUpdate(dataPackage()));
  EXPECT_TRUE(testsupport::fileExists(kDataDirectory));
  EXPECT_EQ(Lines{"UpdApplyUpdateA | package=" + dataPackage() + " | dir=" + kDataDirectory +
                  " | result=1"},
            library_.calls("UpdApplyUpdateA"));
  store_.set("Settings\\Updater", "DataUpdatesDirectoryName", "\\Catalog");
  store_.set("Settings\\", "DriverName", "Other Driver\\");
  EXPECT_EQ("C:\\ProgramData\\Other Driver\\Catalog", controller.getDataUpdatesDirectory());
}

// A software-only installation sets no flag and logs "software update FAILED" although it
// succeeded: long-standing behaviour that other components rely on.
TEST_F(UpdatesControllerTest, ASoftwareOnlyInstallationSetsNoFlagAndSaysItFailed) {
  library_.apply("*", "1").write();
  testsupport::writeFile(softwarePackage(), "package");
  LogCapture log;
  UpdatesController controller;
  EXPECT_FALSE(controller.installUpdates("", ""));
  EXPECT_TRUE(controller.installUpdates(softwarePackage(), ""));
  const Lines lines = log.details("UpdatesController::installUpdates() ");
  EXPECT_NE(lines.end(), std::find(lines.begin(), lines.end(), "software update FAILED"));
  EXPECT_EQ(0xDEADu, flag("CompleteSoftwareUpdated"));
  EXPECT_EQ(0xDEADu, flag("DataUpdated"));
  EXPECT_FALSE(testsupport::fileExists(softwarePackage()));
  EXPECT_EQ((Lines{"Office Inkjet"}), spooler_.names("SetPrinterA", "command=2 result=1"));
}
