#include <gtest/gtest.h>

#include <windows.h>

#include <winspool.h>

#include "printers/DeviceEnumerator.h"
#include "printers/PauseRecord.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "support/TestSupport.h"

using testsupport::SpoolerScenario;
using Names = std::vector<std::string>;

namespace {

const char kDriver[] = "Corvane Inkjet Driver";

PrinterScenario printer(const std::string& name, DWORD jobs = 0, long long drainAfterPolls = -1) {
  PrinterScenario printer{name, kDriver};
  printer.jobs = jobs;
  printer.drainAfterPolls = drainAfterPolls;
  return printer;
}

class PrinterSpoolerWrapperTest : public testing::Test {
 protected:
  void SetUp() override {
    store_.set("Settings\\", "DriverName", kDriver);
    store_.set("Settings\\Updater", "PrinterPollInterval", 0);
  }
  void TearDown() override { DeviceEnumerator::destroy(); }

  // A fresh enumeration of the printers `printers`.
  void stage(const std::vector<PrinterScenario>& printers) {
    spooler_.clearJournal();
    spooler_.write(printers);
    DeviceEnumerator::destroy();
  }
  Names polls() const { return spooler_.names("GetPrinterA", "buffer=1"); }
  Names paused() const { return spooler_.names("SetPrinterA", "command=1 result=1"); }
  Names resumed() const { return spooler_.names("SetPrinterA", "command=2 result=1"); }

  testsupport::ScopedStore store_;
  SpoolerScenario spooler_;
  PrinterSpoolerWrapper wrapper_;
  std::list<HANDLE> handles_;
};

}  // namespace

// The printers of interest: local printers and connections whose driver name matches byte for
// byte, in spooler order. An empty list is asked for again on every call; a found one is kept for
// the rest of the run, and a new instance reads the driver name again.
TEST_F(PrinterSpoolerWrapperTest, ThePrintersOfTheDriverByteForByteAreListedOnceFound) {
  const auto printers = [] {
    std::list<std::string> names = {"stale"};
    DeviceEnumerator::instance()->getPrinters(names);
    return Names(names.begin(), names.end());
  };
  stage({printer("Office"), PrinterScenario{"Lower", "corvane inkjet driver"},
         PrinterScenario{"Trailing", "Corvane Inkjet Driver "}, printer("\\\\server\\Shared")});
  EXPECT_EQ((Names{"Office", "\\\\server\\Shared"}), printers());
  const PrinterScenario lab{"Lab", "Lab Driver"};
  stage({lab});
  EXPECT_TRUE(printers().empty() && printers().empty());
  EXPECT_EQ(4u, spooler_.calls("EnumPrintersA").size());
  spooler_.write({lab, printer("Office")});
  EXPECT_EQ(Names{"Office"}, printers());
  spooler_.write({lab, printer("Office"), printer("Later")});
  EXPECT_EQ(Names{"Office"}, printers());
  EXPECT_EQ(6u, spooler_.calls("EnumPrintersA").size());
  DeviceEnumerator::destroy();
  store_.set("Settings\\", "DriverName", "Lab Driver");
  EXPECT_EQ(Names{"Lab"}, printers());
}

// Every printer of interest is opened with full rights and paused; the pause is recorded until
// the resume, under the records' machine-wide mutex, and the handles stay open for the caller. A
// pause whose record's mutex cannot be had (an object of another kind holds its name) pauses
// nothing and closes the printers again: it fails closed, says why, and the always-written log
// says so.
TEST_F(PrinterSpoolerWrapperTest, PausesEveryPrinterOfInterestAndRecordsItUntilTheResume) {
  for (const bool recordable : {false, true}) {
    stage({printer("A"), PrinterScenario{"Other", "Generic Text"}, printer("B")});
    const std::string mutex = "Global\\" + testsupport::localId() + "PausedPrinters";
    const ScopedHandle squatter(recordable ? nullptr
                                           : CreateEventA(nullptr, TRUE, FALSE, mutex.c_str()));
    testsupport::LogCapture log(0);
    handles_.clear();
    ASSERT_EQ(recordable, wrapper_.pausePrinters(handles_));
    EXPECT_EQ((Names{"A", "B"}), spooler_.names("OpenPrinterA", "access=0xf000c result=1"));
    const std::string why = "PauseRecord: the mutex '" + mutex + "' could not be made: ";
    EXPECT_EQ(recordable ? std::string::npos : 0u, wrapper_.pauseRecordFailure().find(why));
    EXPECT_EQ(!recordable,
              log.contains(wrapper_.pauseRecordFailure() + "; this run abandons its installation"));
    if (!recordable) {
      EXPECT_EQ(Names{}, paused());
      EXPECT_EQ(2u, spooler_.calls("ClosePrinter").size());
      continue;
    }
    EXPECT_EQ((Names{"A", "B"}), paused());
    EXPECT_EQ((std::list<std::string>{"A", "B"}), PauseRecord::recordedPrinters());
    EXPECT_TRUE(wrapper_.resumePrinters(handles_));
    EXPECT_EQ((Names{"A", "B"}), resumed());
    EXPECT_TRUE(PauseRecord::recordedPrinters().empty());
    EXPECT_TRUE(spooler_.calls("ClosePrinter").empty());
  }
}

// The wait polls the printers in order, starting again from the first after every busy one, until
// none that is neither paused nor offline has jobs; one that cannot be asked counts as quiet.
TEST_F(PrinterSpoolerWrapperTest, WaitsUntilNoPrinterHasQueuedJobs) {
  PrinterScenario userPaused = printer("Paused", 3);
  userPaused.status = PRINTER_STATUS_PAUSED;
  PrinterScenario offline = printer("Offline", 3);
  offline.attributes = PRINTER_ATTRIBUTE_WORK_OFFLINE;
  PrinterScenario unknown = printer("Unknown", 5);
  unknown.failGetPrinter = ERROR_INVALID_HANDLE;
  const std::pair<std::vector<PrinterScenario>, Names> rows[] = {
      {{userPaused, offline, unknown}, {"Paused", "Offline", "Unknown"}},
      {{printer("Busy", 2, 0)}, {"Busy"}},
      {{printer("Busy", 2, 3)}, {"Busy", "Busy", "Busy", "Busy"}},
      {{printer("First"), printer("Second", 1, 2), printer("Third")},
       {"First", "Second", "First", "Second", "First", "Second", "Third"}},
  };
  for (const auto& [printers, expected] : rows) {
    stage(printers);
    handles_.clear();
    EXPECT_TRUE(wrapper_.pausePrinters(handles_));
    EXPECT_EQ(expected, polls());
    EXPECT_EQ(printers.size(), paused().size());
    EXPECT_EQ("SetPrinterA", spooler_.calls("").back().substr(0, 11));  // No poll after a pause.
    wrapper_.resumePrinters(handles_);
  }
}

// Nothing is paused without printers of interest or when one cannot be opened (the others are
// closed again); a failed pause resumes the whole list; the resume and the close go on past a
// failure and report it.
TEST_F(PrinterSpoolerWrapperTest, FailuresLeaveNoPrinterPaused) {
  EXPECT_FALSE(wrapper_.pausePrinters(handles_));
  EXPECT_TRUE(spooler_.calls("OpenPrinterA").empty());

  PrinterScenario locked = printer("Locked");
  locked.failOpen = ERROR_ACCESS_DENIED;
  stage({printer("Open"), locked, printer("Never")});
  EXPECT_FALSE(wrapper_.pausePrinters(handles_));
  EXPECT_EQ((Names{"Open", "Locked"}), spooler_.names("OpenPrinterA"));
  EXPECT_EQ(Names{"Open"}, spooler_.names("ClosePrinter"));
  EXPECT_TRUE(spooler_.calls("SetPrinterA").empty());

  PrinterScenario stuck = printer("Stuck");
  stuck.failPause = ERROR_NOT_READY;
  stage({printer("One"), stuck, printer("Three")});
  handles_.clear();
  EXPECT_FALSE(wrapper_.pausePrinters(handles_));
  EXPECT_EQ(Names{"One"}, paused());
  EXPECT_EQ((Names{"One", "Stuck", "Three"}), resumed());
  EXPECT_TRUE(PauseRecord::recordedPrinters().empty());

  stuck.failPause = 0;
  stuck.failResume = ERROR_NOT_READY;
  stuck.failClose = ERROR_INVALID_HANDLE;
  stage({stuck, printer("Fine")});
  handles_.clear();
  ASSERT_TRUE(wrapper_.pausePrinters(handles_));
  EXPECT_FALSE(wrapper_.resumePrinters(handles_));
  EXPECT_EQ(Names{"Fine"}, resumed());
  EXPECT_FALSE(wrapper_.ClosePrinters(handles_));
  EXPECT_EQ((Names{"Stuck", "Fine"}), spooler_.names("ClosePrinter"));
}

// The administrator test opens the first printer of interest with full rights and closes it again
// (from Vista on; the version test shows it does not before).
TEST_F(PrinterSpoolerWrapperTest, TheAdministratorTestOpensTheFirstPrinterWithFullRights) {
  EXPECT_TRUE(wrapper_.canWeOpenPrintersInAdminMode());
  PrinterScenario locked = printer("Locked");
  locked.failOpen = ERROR_ACCESS_DENIED;
  stage({printer("First"), locked});
  EXPECT_TRUE(wrapper_.canWeOpenPrintersInAdminMode());
  EXPECT_EQ(Names{"OpenPrinterA name=First access=0xf000c result=1"},
            spooler_.calls("OpenPrinterA"));
  EXPECT_EQ(Names{"First"}, spooler_.names("ClosePrinter"));
  stage({locked, printer("Second")});
  EXPECT_FALSE(wrapper_.canWeOpenPrintersInAdminMode());
  EXPECT_EQ(Names{"Locked"}, spooler_.names("OpenPrinterA"));
}

// A record whose owner is gone: its printers that are still paused are resumed, one that no
// longer exists is skipped, and the record goes. A live owner keeps its record.
TEST_F(PrinterSpoolerWrapperTest, RecoveryResumesThePausedPrintersOfARunThatIsGone) {
  PrinterScenario paused = printer("Office Inkjet");
  paused.status = PRINTER_STATUS_PAUSED;
  PrinterScenario pausedByAPerson = printer("Front Desk");
  pausedByAPerson.status = PRINTER_STATUS_PAUSED;
  stage({paused, printer("Back Office"), pausedByAPerson});
  {
    PauseRecord record;  // Dropped without release(), as a run that dies leaves it.
    ASSERT_TRUE(record.hold({"Office Inkjet", "Back Office", "Gone"}));
  }
  {
    testsupport::MutexHolder owner("Global\\" + testsupport::localId() + "PausedPrinters");
    ASSERT_TRUE(owner.holds());
    EXPECT_FALSE(PauseRecord::recoverAbandonedPause(wrapper_));
    EXPECT_EQ(3u, PauseRecord::recordedPrinters().size());
  }
  paused.failResume = ERROR_NOT_READY;  // Kept for a later run, perhaps one with more rights.
  stage({paused, printer("Back Office"), pausedByAPerson});
  EXPECT_FALSE(PauseRecord::recoverAbandonedPause(wrapper_));
  EXPECT_EQ(3u, PauseRecord::recordedPrinters().size());
  paused.failResume = 0;
  stage({paused, printer("Back Office"), pausedByAPerson});
  EXPECT_TRUE(PauseRecord::recoverAbandonedPause(wrapper_));
  EXPECT_EQ(Names{"Office Inkjet"}, resumed());
  EXPECT_TRUE(PauseRecord::recordedPrinters().empty());
  EXPECT_FALSE(PauseRecord::recoverAbandonedPause(wrapper_));
}

// "PrinterPollInterval" milliseconds pass between two passes of the wait (a printer busy for two
// polls: two waits); a missing interval is created with its default of 30 seconds.
TEST_F(PrinterSpoolerWrapperTest, ThePollIntervalIsTheWaitBetweenTwoPassesAndDefaultsTo30Seconds) {
  store_.set("Settings\\Updater", "PrinterPollInterval", 200);
  stage({printer("Office Inkjet", 1, 2)});
  const ULONGLONG start = GetTickCount64();
  ASSERT_TRUE(wrapper_.pausePrinters(handles_));
  EXPECT_GE(GetTickCount64() - start, 390u);
  wrapper_.resumePrinters(handles_);
  store_.remove("Settings\\Updater", "PrinterPollInterval");
  stage({printer("Office Inkjet")});
  handles_.clear();
  ASSERT_TRUE(wrapper_.pausePrinters(handles_));
  wrapper_.resumePrinters(handles_);
  EXPECT_EQ("30000", store_.get("Settings\\Updater", "PrinterPollInterval"));
}
