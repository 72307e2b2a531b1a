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

int runApplication(const char* commandLine) {
  hardenDllSearch();
  const ProcessScope process(commandLine != nullptr ? commandLine : "");
  if (!process.started())
    return 0;
  // The run's verdict goes to the status and the event log here, and nowhere else, while the run
  // lock is still held. A parent that relaunched itself has handed the lock over already; its
  // child's own run takes far longer than these writes, so the child's verdict is the later one.
  RunStatus status;
  RunVerdict verdict{RunOutcome::kCheckFailed, "run: ended by an unexpected exception", ""};
  RunLock runLock;
  try {
    // One run at a time on the machine; the one that holds the lock does everything below.
    if (!runLock.take(CommandLineParams::instance()->containsUacParams())) {
      BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS,
                                       "Another update run is in progress, this one ends.");
      verdict = RunVerdict{RunOutcome::kAnotherRunInProgress,
                           "run lock: '" + RunLock::mutexName() + "' is held by another run", ""};
    } else {
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
    }
  } catch (...) {
    // The run handles its own failures; only the log writer can throw this far (a failed wait
    // on its mutex). The exit code stays 0 and the teardown still runs.
  }
  try {
    status.finish(verdict);
  } catch (...) {
    // Only the log writer can throw here too; the status is never worth the run's exit code.
  }
  return 0;
}
