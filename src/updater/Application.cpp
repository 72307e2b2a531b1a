#include "updater/Application.h"

#include <memory>

#include "printers/PauseRecord.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "system/DllSearch.h"
#include "updater/ProcessScope.h"
#include "updater/UpdatesController.h"

int runApplication(const char* commandLine) {
  hardenDllSearch();
  const ProcessScope process(commandLine != nullptr ? commandLine : "");
  if (!process.started())
    return 0;
  try {
    // Printers that an earlier run paused and could not resume (it was killed, or the vendor
    // library crashed or hung) are resumed first, before the library is even loaded.
    PrinterSpoolerWrapper spooler;
    PauseRecord::recoverAbandonedPause(spooler);
    std::unique_ptr<UpdatesController> controller(new UpdatesController());
    controller->performUpdates();
  } catch (...) {
    // The run handles its own failures; only the log writer can throw this far (a failed wait
    // on its mutex). The exit code stays 0 and the teardown still runs.
  }
  return 0;
}
