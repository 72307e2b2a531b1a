#include "updater/Application.h"

#include <exception>
#include <memory>

#include "logging/BasicLogger.h"
#include "printers/PauseRecord.h"
#include "printers/PrinterSpoolerWrapper.h"
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

// The run itself, by the process that holds the run lock. Its status is written here and nowhere
// else, while the lock is still held. A parent that has started its "-UAC" child hands the lock
// over only after that, and writes nothing more.
void runHoldingTheLock(RunLock& runLock) {
  RunStatus status;
  std::unique_ptr<UpdatesController> controller;
  RunResults disabled;
  std::string exception, problems;
  try {
    // What an earlier run left behind when it died (it was killed, or the vendor library
    // crashed or hung) is undone first, before the library is even loaded: the printers it
    // paused are resumed, and the packages it downloaded are deleted.
    PrinterSpoolerWrapper spooler;
    PauseRecord::recoverAbandonedPause(spooler);
    DownloadRecord::recoverAbandonedDownloads();
    const RunConditions conditions = RunConditions::read();
    for (const std::string& problem : conditions.policyProblems()) {
      BasicLogger::getInstance().write(kLogUpdater, LOG_DETAIL, "RunConditions: " + problem);
      problems += (problems.empty() ? "" : "; ") + problem;
    }
    if (conditions.updateMode() == RunConditions::UpdateMode::kOff) {
      BasicLogger::getInstance().write(
          kLogUpdater, LOG_DETAIL,
          "RunConditions: update mode 0 (off): this run ends before it loads the library");
      disabled.disabled = true;
    } else {
      controller.reset(new UpdatesController(conditions.checkOnly()));
      controller->performUpdates();
    }
  } catch (const Exception& e) {
    // The run handles its own failures; what comes this far (the log writer's failed wait on
    // its mutex, say) ends the run where it was, and says so in its verdict.
    exception = e.toString();
  } catch (const std::exception& e) {
    exception = e.what();
  } catch (...) {
    exception = "an unexpected exception";
  }
  RunResults results = controller ? controller->results() : disabled;
  if (!exception.empty())
    results.exception = exception;
  RunVerdict verdict = judge(results);
  verdict.notes = problems;
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
        runHoldingTheLock(runLock);
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
