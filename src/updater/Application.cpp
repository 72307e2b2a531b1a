#include "updater/Application.h"

#include <memory>

#include "logging/BasicLogger.h"
#include "printers/PauseRecord.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "system/DllSearch.h"
#include "updater/CommandLineParams.h"
#include "updater/DownloadRecord.h"
#include "updater/ProcessScope.h"
#include "updater/RunLock.h"
#include "updater/RunStatus.h"
#include "updater/UpdatesController.h"

namespace {

// The run itself, by the process that holds the run lock. Its status is written here and nowhere
// else, while the lock is still held.
void runHoldingTheLock(RunLock& runLock) {
  RunStatus status;
  RunVerdict verdict{RunOutcome::kCheckFailed, "run: ended by an unexpected exception", ""};
  try {
    // What an earlier run left behind when it died (it was killed, or the vendor library
    // crashed or hung) is undone first, before the library is even loaded: the printers it
    // paused are resumed, and the packages it downloaded are deleted.
    PrinterSpoolerWrapper spooler;
    PauseRecord::recoverAbandonedPause(spooler);
    DownloadRecord::recoverAbandonedDownloads();
    std::unique_ptr<UpdatesController> controller(new UpdatesController());
    controller->setHandOver([&runLock] { runLock.handOver(); });
    controller->performUpdates();
    verdict = controller->verdict();
  } catch (...) {
    // The run handles its own failures; only the log writer can throw this far (a failed wait
    // on its mutex). The exit code stays 0 and the teardown still runs.
  }
  status.finish(verdict);
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
