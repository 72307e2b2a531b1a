#include <gtest/gtest.h>

#include <windows.h>

#include <winspool.h>

#include <functional>

#include "printers/DeviceEnumerator.h"
#include "printers/PauseRecord.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "settings/RunRecord.h"
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

namespace {

// A limit that counts its questions in `asked` and gives up at the `giveUpAt`th, after `check`.
QuietWaitLimit askedLimit(int giveUpAt, int* asked, std::function<void()> check = {}) {
  return QuietWaitLimit::whenAsked([=] {
    if (check)
      check();
    return ++*asked >= giveUpAt;
  });
}

}  // namespace

// A printer whose GetPrinterA answers TRUE without writing the buffer reads as quiet, in both
// waits, whatever the heap held: here the block that the busy printer's answer was just read from.
TEST_F(PrinterSpoolerWrapperTest, AnAnswerWithoutDataReadsAsAQuietPrinter) {
  PrinterScenario mute = printer("Mute", 3);
  mute.answerWithoutData = 1;
  const Names specPolls = {"Mute", "Busy", "Mute", "Busy"}, drainPolls = {"Mute", "Busy", "Busy"};
  for (const bool drain : {false, true}) {
    stage({mute, printer("Busy", 3, 1)});
    handles_.clear();
    int asked = 0;
    const QuietWaitLimit limit = askedLimit(5, &asked);
    EXPECT_TRUE(drain ? wrapper_.drainPrinters(handles_, limit)
                      : wrapper_.pausePrinters(handles_, limit));
    EXPECT_EQ(drain ? drainPolls : specPolls, polls());
    EXPECT_EQ(Names(drain ? 1 : 2, "Mute"), spooler_.names("GetPrinterA", "jobs=none result=1"));
    EXPECT_EQ(1, asked);
    wrapper_.resumePrinters(handles_);
  }
}

// Drain mode pauses each printer at the first poll that finds it quiet, after writing it into the
// pause record, and polls only the others from then on; the handles come back in the printers'
// order, for the resume that ends the record.
TEST_F(PrinterSpoolerWrapperTest, DrainModePausesEachPrinterOnceItIsQuiet) {
  PrinterScenario userPaused = printer("D", 3);
  userPaused.status = PRINTER_STATUS_PAUSED;
  stage({printer("A"), printer("B", 1, 2), printer("C", 4, 1), userPaused});
  std::vector<std::pair<Names, Names>> atEachQuestion;  // The record, and the printers paused.
  const auto look = [&] {
    const std::list<std::string> recorded = PauseRecord::recordedPrinters();
    atEachQuestion.emplace_back(Names(recorded.begin(), recorded.end()), paused());
  };
  int asked = 0;
  std::list<std::string> stillBusy = {"stale"};
  testsupport::LogCapture log;
  ASSERT_TRUE(wrapper_.drainPrinters(handles_, askedLimit(10, &asked, look), &stillBusy));
  EXPECT_EQ((Names{"A", "B", "C", "D", "B", "C", "B"}), polls());
  EXPECT_EQ((std::vector<std::pair<Names, Names>>{{{"A", "D"}, {"A", "D"}},
                                                  {{"A", "D", "C"}, {"A", "D", "C"}}}),
            atEachQuestion);
  EXPECT_EQ((Names{"A", "D", "C", "B"}), paused());
  EXPECT_EQ(std::list<std::string>{"stale"}, stillBusy);
  EXPECT_EQ((Names{"Total number of printers to drain = 4",
                   "Paused as they became quiet: 'A' 'D'; still busy: 2",
                   "Paused as they became quiet: 'C'; still busy: 1",
                   "Paused as they became quiet: 'B'; still busy: 0",
                   "All printers were drained and PAUSED successfully"}),
            [&] {
              Names lines = log.details("PrinterSpoolerWrapper::drainPrinters() ");
              lines.erase(
                  std::remove(lines.begin(), lines.end(), "Printer was PAUSED successfully"),
                  lines.end());
              return lines;
            }());
  EXPECT_EQ(4u, handles_.size());
  EXPECT_TRUE(wrapper_.resumePrinters(handles_));
  EXPECT_EQ((Names{"A", "B", "C", "D"}), resumed());
  EXPECT_TRUE(PauseRecord::recordedPrinters().empty());
}

// A wait that reaches its limit pauses nothing for good: drain mode resumes what it paused, both
// close every printer they opened, release the record and name the printers still busy (the
// one-round wait knows only the one it stopped at). A deadline is asked after each round, and
// shortens the sleep before the last poll to it.
TEST_F(PrinterSpoolerWrapperTest, AWaitThatReachesItsLimitLeavesNothingPaused) {
  for (const bool drain : {false, true}) {
    stage({printer("Free"), printer("Stuck", 2), printer("Jammed", 1)});
    handles_.clear();
    int asked = 0;
    std::list<std::string> stillBusy;
    const QuietWaitLimit limit = askedLimit(2, &asked);
    EXPECT_FALSE(drain ? wrapper_.drainPrinters(handles_, limit, &stillBusy)
                       : wrapper_.pausePrinters(handles_, limit, &stillBusy));
    const std::list<std::string> busy = {"Stuck", "Jammed"};
    EXPECT_EQ(drain ? busy : std::list<std::string>{"Stuck"}, stillBusy);
    const Names drainPolls = {"Free", "Stuck", "Jammed", "Stuck", "Jammed"};
    const Names specPolls = {"Free", "Stuck", "Free", "Stuck"};
    EXPECT_EQ(drain ? drainPolls : specPolls, polls());
    EXPECT_EQ(drain ? Names{"Free"} : Names{}, paused());
    EXPECT_EQ(paused(), resumed());
    EXPECT_EQ((Names{"Free", "Stuck", "Jammed"}), spooler_.names("ClosePrinter"));
    EXPECT_TRUE(handles_.empty());
    EXPECT_TRUE(PauseRecord::recordedPrinters().empty());
  }
  stage({printer("Stuck", 2)});
  EXPECT_FALSE(wrapper_.drainPrinters(handles_, QuietWaitLimit::after(0)));
  EXPECT_EQ(Names{"Stuck"}, polls());
  const QuietWaitLimit deadline = QuietWaitLimit::after(20000);
  EXPECT_FALSE(deadline.reached());
  EXPECT_GT(deadline.sleepBefore(30000), 10000u);
  EXPECT_LE(deadline.sleepBefore(30000), 20000u);
  EXPECT_EQ(50u, deadline.sleepBefore(50));
  EXPECT_EQ(30000u, QuietWaitLimit().sleepBefore(30000));
}

// Drain mode gives up before pausing anything more when the pause record's lock cannot be had,
// and when a pause fails; either way the printers it paused are resumed and all are closed.
TEST_F(PrinterSpoolerWrapperTest, DrainModeFailuresLeaveNoPrinterPaused) {
  PrinterScenario stuck = printer("Stuck");
  stuck.failPause = ERROR_NOT_READY;
  stage({printer("One"), printer("Late", 1, 1), stuck});
  EXPECT_FALSE(wrapper_.drainPrinters(handles_));
  EXPECT_EQ(Names{"One"}, paused());
  EXPECT_EQ(Names{"One"}, resumed());
  EXPECT_EQ((Names{"One", "Late", "Stuck"}), spooler_.names("ClosePrinter"));
  EXPECT_TRUE(PauseRecord::recordedPrinters().empty());

  testsupport::MutexHolder owner("Global\\" + testsupport::localId() + "PausedPrinters");
  ASSERT_TRUE(owner.holds());
  RunRecord::setHoldWait(20);
  stage({printer("One"), printer("Two")});
  EXPECT_FALSE(wrapper_.drainPrinters(handles_));
  RunRecord::setHoldWait(0);
  EXPECT_TRUE(paused().empty());
  EXPECT_EQ((Names{"One", "Two"}), spooler_.names("ClosePrinter"));
  EXPECT_TRUE(handles_.empty());
}

// Printers busy by chance: every poll draws afresh, from the seed, the printer and its poll count,
// so one scenario always gives the same polls, and a printer busy at one poll is quiet at a later
// one.
TEST_F(PrinterSpoolerWrapperTest, PrintersBusyByChanceGiveTheSamePollsForTheSameScenario) {
  std::vector<PrinterScenario> printers;
  for (const char* name : {"P1", "P2", "P3", "P4", "P5", "P6", "P7", "P8"}) {
    printers.push_back(printer(name));
    printers.back().busyChance = 0.5;
  }
  Names first;
  for (int run = 0; run < 2; ++run) {
    stage(printers);
    handles_.clear();
    int asked = 0;
    ASSERT_TRUE(wrapper_.drainPrinters(handles_, askedLimit(40, &asked)));
    wrapper_.resumePrinters(handles_);
    if (run == 0)
      first = polls();
    else
      EXPECT_EQ(first, polls());
  }
  EXPECT_GT(first.size(), 8u);  // Some printer was busy at its first poll.
  const Names busy = spooler_.names("GetPrinterA", "buffer=1 jobs=1");
  EXPECT_EQ(first.size() - 8, busy.size());
}
