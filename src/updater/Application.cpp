#include "updater/Application.h"

#include <memory>

#include "printers/PauseRecord.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "system/DllSearch.h"
#include "updater/DownloadRecord.h"
#include "updater/ProcessScope.h"
#include "updater/RunStatus.h"
#include "updater/UpdatesController.h"

int runApplication(const char* commandLine) {
  hardenDllSearch();
  const ProcessScope process(commandLine != nullptr ? commandLine : "");
  if (!process.started())
    return 0;
  // The run's verdict goes to the status and the event log here, and nowhere else.
  RunStatus status;
  RunVerdict verdict{RunOutcome::kCheckFailed, "run: ended by an unexpected exception", ""};
  try {
    // What an earlier run left behind when it died (it was killed, or the vendor library crashed
    // or hung) is undone first, before the library is even loaded: the printers it paused are
    // resumed, and the packages it downloaded are deleted.
    PrinterSpoolerWrapper spooler;
    PauseRecord::recoverAbandonedPause(spooler);
    DownloadRecord::recoverAbandonedDownloads();
    std::unique_ptr<UpdatesController> controller(new UpdatesController());
    controller->performUpdates();
    verdict = controller->verdict();
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
