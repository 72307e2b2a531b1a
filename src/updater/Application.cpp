#include "updater/Application.h"

#include <exception>
#include <memory>

#include <windows.h>

#include <ntsecapi.h>

#include "logging/BasicLogger.h"
#include "printers/PauseRecord.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "settings/PathHelpers.h"
#include "system/DllSearch.h"
#include "system/Exception.h"
#include "updater/CommandLineParams.h"
#include "updater/DownloadRecord.h"
#include "updater/ProcessScope.h"
#include "updater/RunConditions.h"
#include "updater/RunLock.h"
#include "updater/RunResults.h"
#include "updater/RunStatus.h"
#include "updater/UpdatesController.h"

namespace {

// The marker of the scheduled task's starts, kept apart from the relaunch's "-UAC".
const char kScheduledMarker[] = "/scheduled";

// Whether the command line carries the marker, in any case.
bool isScheduledStart(std::string commandLine) {
  toUpperCase(commandLine);
  std::string marker = kScheduledMarker;
  toUpperCase(marker);
  return commandLine.find(marker) != std::string::npos;
}

// A random value from 0 up to 1: the share of the check period by which this start spreads its
// check.
double randomSpread() {
  unsigned long value = 0;
  if (!RtlGenRandom(&value, sizeof value))
    value = GetTickCount() ^ GetCurrentProcessId();
  return static_cast<double>(value % 1000000UL) / 1000000.0;
}

// Runs `step`; the text of an exception that ended it, or "". The run handles its own failures;
// what comes this far (the log writer's failed wait on its mutex, say) ends the run where it was,
// and its verdict says so.
template <typename Step>
std::string guarded(Step step) {
  try {
    step();
    return std::string();
  } catch (const Exception& e) {
    return e.toString();
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "an unexpected exception";
  }
}

void log(const std::string& text) {
  BasicLogger::getInstance().write(kLogUpdater, LOG_DETAIL, "UpdateRun: " + text);
}

// The run itself, by the process that holds the run lock. What an earlier run left behind when it
// died (it was killed, or the vendor library crashed or hung) is undone first, by every start and
// before the library is even loaded: the printers it paused are resumed, and the packages it
// downloaded are deleted. A scheduled start that is not due ends there. Otherwise the run's status
// is written here and nowhere else, while the lock is still held; a parent that has started its
// "-UAC" child hands the lock over only after that, and writes nothing more.
void runHoldingTheLock(RunLock& runLock, bool scheduled) {
  RunConditions conditions;
  bool due = true;
  std::string exception = guarded([&] {
    PrinterSpoolerWrapper spooler;
    PauseRecord::recoverAbandonedPause(spooler);
    DownloadRecord::recoverAbandonedDownloads();
    conditions = RunConditions::read();
    std::string why;
    due = !scheduled || conditions.isDue(RunStatus::value("LastCheck"), randomSpread(), why);
    if (!due)
      log("a scheduled start with no update check due (" + why + "); it ends here");
  });
  if (!due)
    return;

  RunStatus status;
  std::unique_ptr<UpdatesController> controller;
  RunResults results;
  std::string notes;
  for (const std::string& note : conditions.notes()) {
    notes += (notes.empty() ? "" : "; ") + note;
    log(note);
  }
  if (exception.empty()) {
    exception = guarded([&] {
      if (conditions.updateMode() == RunConditions::UpdateMode::kOff) {
        log("update mode 0 (off): this run ends before it loads the library");
        results.disabled = true;
        return;
      }
      controller.reset(new UpdatesController(conditions));
      controller->performUpdates();
    });
  }
  if (controller)
    results = controller->results();
  if (!exception.empty())
    results.exception = exception;
  RunVerdict verdict = judge(results);
  verdict.notes = notes;
  status.finish(verdict);
  if (results.elevation == RunResults::Step::kDone)
    runLock.handOver();
}

}  // namespace

int runApplication(const char* commandLine) {
  hardenDllSearch();
  const ProcessScope process(commandLine != nullptr ? commandLine : "");
  if (!process.started())
    return 0;
  try {
    // One run at a time on the machine; the one that holds the lock does everything else.
    RunLock runLock;
    switch (runLock.take(CommandLineParams::instance()->containsUacParams())) {
      case RunLock::Taken::kTaken:
        runHoldingTheLock(runLock, isScheduledStart(commandLine != nullptr ? commandLine : ""));
        break;
      case RunLock::Taken::kHeldByAnotherRun:
        BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS,
                                         "Another update run is in progress, this one ends.");
        RunStatus::reportStandingAside(runLock.failure());
        break;
      case RunLock::Taken::kUnavailable:
        // Whether another run works cannot be told: nothing is checked, paused or applied.
        BasicLogger::getInstance().write(
            kLogUpdater, LOG_ALWAYS,
            "RunLock: " + runLock.failure() + "; this run ends without checking for updates");
        RunStatus::reportLockFailure(runLock.failure());
        break;
    }
  } catch (...) {
    // Only the log writer can throw this far; the exit code stays 0 and the teardown runs.
  }
  return 0;
}
