#include <gtest/gtest.h>

#include <windows.h>

#include <winspool.h>

#include <map>

#include "printers/DeviceEnumerator.h"
#include "printers/PauseRecord.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "support/StandIns.h"

using testsupport::LogCapture;
using testsupport::ScopedStore;
using testsupport::SpoolerScenario;
using testsupport::StagedPrinter;

namespace {

const char kDriver[] = "Corvane Inkjet Driver";

StagedPrinter printer(const std::string& name) {
  StagedPrinter p;
  p.name = name;
  p.driver = kDriver;
  return p;
}

class PrinterSpoolerWrapperTest : public testing::Test {
 protected:
  void SetUp() override {
    store_.setString("Settings\\", "DriverName", kDriver);
    store_.setDword("Settings\\Updater", "PrinterPollInterval", 1);
  }
  void TearDown() override { DeviceEnumerator::destroy(); }

  // The printer names of the spooler calls of one function, in call order.
  std::vector<std::string> namesOf(const std::string& function, const std::string& filter = "") {
    std::vector<std::string> names;
    for (const std::string& call : spooler_.calls(function)) {
      if (call.find(filter) == std::string::npos)
        continue;
      const std::string::size_type start = call.find("name=") + 5;
      std::string::size_type end = call.find(" level=", start);
      if (end == std::string::npos)
        end = call.find(" command=", start);
      if (end == std::string::npos)
        end = call.find(" access=", start);
      if (end == std::string::npos)
        end = call.find(" result=", start);
      names.push_back(call.substr(start, end - start));
    }
    return names;
  }

  std::vector<std::string> polls() { return namesOf("GetPrinterA", "buffer=1"); }
  std::vector<std::string> paused() { return namesOf("SetPrinterA", "command=1 result=1"); }
  std::vector<std::string> resumed() { return namesOf("SetPrinterA", "command=2 result=1"); }

  ScopedStore store_;
  SpoolerScenario spooler_;
  PrinterSpoolerWrapper wrapper_;
};

using Names = std::vector<std::string>;

}  // namespace

TEST_F(PrinterSpoolerWrapperTest, PausesEveryPrinterOfInterestAndResumesThem) {
  spooler_.add(printer("A")).add(printer("B")).write();
  std::list<HANDLE> handles;
  ASSERT_TRUE(wrapper_.pausePrinters(handles));
  EXPECT_EQ(2u, handles.size());
  EXPECT_EQ((Names{"A", "B"}), namesOf("OpenPrinterA", "access=0xf000c result=1"));
  EXPECT_EQ((Names{"A", "B"}), paused());
  EXPECT_TRUE(wrapper_.resumePrinters(handles));
  EXPECT_EQ((Names{"A", "B"}), resumed());
  // The handles stay open after a normal run.
  EXPECT_TRUE(spooler_.calls("ClosePrinter").empty());
}

TEST_F(PrinterSpoolerWrapperTest, PrintersPausedByTheUserOrOfflineDoNotHoldTheWait) {
  StagedPrinter userPaused = printer("Paused");
  userPaused.status = 1;  // PRINTER_STATUS_PAUSED
  userPaused.jobs = 3;
  StagedPrinter offline = printer("Offline");
  offline.attributes = 0x400;  // PRINTER_ATTRIBUTE_WORK_OFFLINE
  offline.jobs = 3;
  spooler_.add(userPaused).add(offline).write();
  std::list<HANDLE> handles;
  EXPECT_TRUE(wrapper_.pausePrinters(handles));
  EXPECT_EQ((Names{"Paused", "Offline"}), polls());
  wrapper_.resumePrinters(handles);
}

TEST_F(PrinterSpoolerWrapperTest, JobsThatDrainAfterNPollsGiveNPlusOnePolls) {
  for (int drain : {0, 1, 3}) {
    StagedPrinter busy = printer("Busy");
    busy.jobs = 2;
    busy.drainAfterPolls = drain;
    spooler_.clear().add(busy).write();
    DeviceEnumerator::destroy();
    std::list<HANDLE> handles;
    EXPECT_TRUE(wrapper_.pausePrinters(handles));
    EXPECT_EQ(static_cast<size_t>(drain + 1), polls().size()) << "drain after " << drain;
    // The pause follows the first poll that finds the printer empty.
    EXPECT_EQ("SetPrinterA", spooler_.calls().back().substr(0, 11));
    wrapper_.resumePrinters(handles);
  }
}

TEST_F(PrinterSpoolerWrapperTest, ABusyPrinterRestartsThePassFromTheFirstHandle) {
  StagedPrinter busy = printer("Second");
  busy.jobs = 1;
  busy.drainAfterPolls = 2;
  spooler_.add(printer("First")).add(busy).add(printer("Third")).write();
  store_.setDword("Settings\\Updater", "PrinterPollInterval", 0);  // Poll again at once.
  std::list<HANDLE> handles;
  EXPECT_TRUE(wrapper_.pausePrinters(handles));
  EXPECT_EQ((Names{"First", "Second", "First", "Second", "First", "Second", "Third"}), polls());
  wrapper_.resumePrinters(handles);
}

TEST_F(PrinterSpoolerWrapperTest, APrinterThatCannotBeQueriedCountsAsQuiet) {
  StagedPrinter unknown = printer("Unknown");
  unknown.jobs = 5;
  unknown.failGetPrinter = ERROR_INVALID_HANDLE;
  spooler_.add(unknown).write();
  LogCapture log;
  std::list<HANDLE> handles;
  EXPECT_TRUE(wrapper_.pausePrinters(handles));
  EXPECT_EQ(Names{"Unknown"}, paused());
  EXPECT_TRUE(
      log.contains("PrinterSpoolerWrapper::pausePrinters() GetPrinter failed, GetLastError()=6"));
  wrapper_.resumePrinters(handles);
}

TEST_F(PrinterSpoolerWrapperTest, WithoutPrintersOfInterestThePauseFails) {
  StagedPrinter other = printer("Other");
  other.driver = "Generic Text";
  spooler_.add(other).write();
  LogCapture log;
  std::list<HANDLE> handles;
  EXPECT_FALSE(wrapper_.pausePrinters(handles));
  EXPECT_TRUE(handles.empty());
  EXPECT_TRUE(spooler_.calls("OpenPrinterA").empty());
  EXPECT_TRUE(
      log.contains("PrinterSpoolerWrapper::pausePrinters() No printers are installed on "
                   "the OS with the Print Driver of interest"));
  EXPECT_TRUE(log.contains("-PrinterSpoolerWrapper::pausePrinters()  rc=false"));
}

TEST_F(PrinterSpoolerWrapperTest, APrinterThatCannotBeOpenedClosesTheOthersAndPausesNothing) {
  StagedPrinter locked = printer("Locked");
  locked.failOpen = ERROR_ACCESS_DENIED;
  spooler_.add(printer("Open")).add(locked).add(printer("Never")).write();
  LogCapture log;
  std::list<HANDLE> handles;
  EXPECT_FALSE(wrapper_.pausePrinters(handles));
  EXPECT_EQ(Names{"Open"}, namesOf("ClosePrinter"));
  EXPECT_TRUE(spooler_.calls("SetPrinterA").empty());
  EXPECT_TRUE(namesOf("OpenPrinterA", "Never").empty());
  EXPECT_TRUE(
      log.contains("PrinterSpoolerWrapper::OpenPrinters() OpenPrinter failed to open "
                   "printer 'Locked' with ADMIN permissions. GetLastError()=5"));
  EXPECT_TRUE(
      log.contains("PrinterSpoolerWrapper::pausePrinters() Failed to open all the "
                   "printers in the list, so closing and exiting"));
}

TEST_F(PrinterSpoolerWrapperTest, AFailedPauseResumesTheWholeList) {
  StagedPrinter stuck = printer("Stuck");
  stuck.failPause = ERROR_NOT_READY;
  spooler_.add(printer("One")).add(stuck).add(printer("Three")).write();
  LogCapture log;
  std::list<HANDLE> handles;
  EXPECT_FALSE(wrapper_.pausePrinters(handles));
  EXPECT_EQ(Names{"One"}, paused());
  EXPECT_EQ((Names{"One", "Stuck", "Three"}), resumed());
  EXPECT_TRUE(
      log.contains("PrinterSpoolerWrapper::pausePrinters() SetPrinter(hPrinter, 0, NULL, "
                   "PRINTER_CONTROL_PAUSE) failed. GetLastError()=21"));
}

TEST_F(PrinterSpoolerWrapperTest, AResumeFailureGoesOnWithTheNextPrinterAndReportsFalse) {
  StagedPrinter stuck = printer("Stuck");
  stuck.failResume = ERROR_NOT_READY;
  spooler_.add(stuck).add(printer("Fine")).write();
  std::list<HANDLE> handles;
  ASSERT_TRUE(wrapper_.pausePrinters(handles));
  LogCapture log;
  EXPECT_FALSE(wrapper_.resumePrinters(handles));
  EXPECT_EQ(Names{"Fine"}, resumed());
  EXPECT_EQ(2u, spooler_.calls("SetPrinterA").size() - paused().size());
  EXPECT_TRUE(
      log.contains("PrinterSpoolerWrapper::resumePrinters() SetPrinter(hPrinter, 0, NULL, "
                   "PRINTER_CONTROL_RESUME) failed. GetLastError()=21"));
}

TEST_F(PrinterSpoolerWrapperTest, ClosePrintersTriesEveryHandle) {
  StagedPrinter sticky = printer("Sticky");
  sticky.failClose = ERROR_INVALID_HANDLE;
  spooler_.add(sticky).add(printer("Plain")).write();
  std::list<HANDLE> handles;
  ASSERT_TRUE(wrapper_.OpenPrinters({"Sticky", "Plain"}, handles));
  EXPECT_FALSE(wrapper_.ClosePrinters(handles));
  EXPECT_EQ((Names{"Sticky", "Plain"}), namesOf("ClosePrinter"));
}

TEST_F(PrinterSpoolerWrapperTest, TheAdminProbeOpensOnlyTheFirstPrinter) {
  StagedPrinter locked = printer("Second");
  locked.failOpen = ERROR_ACCESS_DENIED;
  spooler_.add(printer("First")).add(locked).write();
  EXPECT_TRUE(wrapper_.canWeOpenPrintersInAdminMode());
  EXPECT_EQ(Names{"First"}, namesOf("OpenPrinterA"));
  EXPECT_EQ(Names{"First"}, namesOf("ClosePrinter"));
  // The test is for full rights: PRINTER_ALL_ACCESS.
  EXPECT_NE(std::string::npos, spooler_.calls("OpenPrinterA")[0].find(" access=0xf000c "));

  spooler_.clear();
  StagedPrinter first = printer("First");
  first.failOpen = ERROR_ACCESS_DENIED;
  spooler_.add(first).add(printer("Second")).write();
  DeviceEnumerator::destroy();
  LogCapture log;
  EXPECT_FALSE(wrapper_.canWeOpenPrintersInAdminMode());
  EXPECT_EQ(Names{"First"}, namesOf("OpenPrinterA"));
  EXPECT_TRUE(
      log.contains("PrinterSpoolerWrapper::canWeOpenPrintersInAdminMode() OpenPrinter "
                   "failed to open printer 'First' with ADMIN permissions. "
                   "GetLastError()=5"));
}

TEST_F(PrinterSpoolerWrapperTest, TheAdminProbeWithoutPrintersOfInterestIsTrue) {
  EXPECT_TRUE(wrapper_.canWeOpenPrintersInAdminMode());
  EXPECT_TRUE(spooler_.calls("OpenPrinterA").empty());
}

// Before Windows 6 the probe answers true without asking the spooler; observed from a process
// that Wine presents as Windows XP.
TEST_F(PrinterSpoolerWrapperTest, TheAdminProbeBeforeVistaDoesNotTouchTheSpooler) {
  StagedPrinter locked = printer("Locked");
  locked.failOpen = ERROR_ACCESS_DENIED;
  spooler_.add(locked).write();
  for (const char* version : {"winxp", "win7"}) {
    std::map<std::string, std::string> facts = testsupport::runHelperCopy(
        std::string("cvpr_probe_") + version + ".exe", "admin-probe", version);
    const bool xp = std::string(version) == "winxp";
    EXPECT_EQ(xp ? "1" : "0", facts["admin"]) << version;
    std::vector<std::string> opened;
    for (const std::string& line : testsupport::readLines(spooler_.journalPath())) {
      if (line.find(" OpenPrinterA ") != std::string::npos)
        opened.push_back(line);
    }
    EXPECT_EQ(xp ? 0u : 1u, opened.size()) << version;
    spooler_.clearJournal();
  }
}

// The pause record: written just before the pause, gone after the resume.
TEST_F(PrinterSpoolerWrapperTest, PausedPrintersAreRecordedUntilTheResume) {
  spooler_.add(printer("Office Inkjet")).add(printer("Back Office")).write();
  std::list<HANDLE> handles;
  ASSERT_TRUE(wrapper_.pausePrinters(handles));
  EXPECT_EQ((std::list<std::string>{"Office Inkjet", "Back Office"}),
            PauseRecord::recordedPrinters());
  EXPECT_TRUE(wrapper_.resumePrinters(handles));
  EXPECT_TRUE(PauseRecord::recordedPrinters().empty());
  wrapper_.ClosePrinters(handles);
}

// A record whose owner is gone: only its printers that are still paused are resumed, a printer
// that no longer exists is skipped, and the record goes. A live owner keeps its record.
TEST_F(PrinterSpoolerWrapperTest, RecoveryResumesOnlyRecordedPrintersStillPausedOfADeadOwner) {
  StagedPrinter paused = printer("Office Inkjet");
  paused.status = PRINTER_STATUS_PAUSED;
  StagedPrinter pausedByAPerson = printer("Front Desk");
  pausedByAPerson.status = PRINTER_STATUS_PAUSED;
  spooler_.add(paused).add(printer("Back Office")).add(pausedByAPerson).write();
  {
    // Held and dropped without release(), as a run that dies leaves it.
    PauseRecord record;
    ASSERT_TRUE(record.hold({"Office Inkjet", "Back Office", "Gone"}));
  }
  {
    testsupport::BackgroundProcess owner("\"" + testsupport::executableDirectory() +
                                         "test_helper.exe\" mutex-hold cvprPausedPrinters 5000 "
                                         "release");
    ASSERT_TRUE(owner.waitForOutput("held", 20000));
    EXPECT_FALSE(PauseRecord::recoverAbandonedPause(wrapper_));
    EXPECT_EQ(3u, PauseRecord::recordedPrinters().size());
  }
  EXPECT_TRUE(PauseRecord::recoverAbandonedPause(wrapper_));
  EXPECT_EQ(Names{"Office Inkjet"}, resumed());
  EXPECT_TRUE(PauseRecord::recordedPrinters().empty());
  EXPECT_FALSE(PauseRecord::recoverAbandonedPause(wrapper_));
}

// Without the setting, the poll interval is created with its default of 30 seconds.
TEST_F(PrinterSpoolerWrapperTest, AMissingPollIntervalIsCreatedWithItsDefault) {
  RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, (testsupport::storeRoot() + "Settings\\Updater").c_str(),
                     "PrinterPollInterval");
  spooler_.add(printer("Office Inkjet")).write();
  std::list<HANDLE> handles;
  ASSERT_TRUE(wrapper_.pausePrinters(handles));
  wrapper_.resumePrinters(handles);
  wrapper_.ClosePrinters(handles);
  DWORD interval = 0;
  ASSERT_TRUE(store_.getDword("Settings\\Updater", "PrinterPollInterval", interval));
  EXPECT_EQ(30000u, interval);
}
