#include "updater/Application.h"

#include <memory>

#include "printers/PauseRecord.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "system/DllSearch.h"
#include "updater/DownloadRecord.h"
#include "updater/ProcessScope.h"
#include "updater/UpdatesController.h"

int runApplication(const char* commandLine) {
  hardenDllSearch();
  const ProcessScope process(commandLine != nullptr ? commandLine : "");
  if (!process.started())
    return 0;
  try {
    // What an earlier run left behind when it died (it was killed, or the vendor library crashed
    // or hung) is undone first, before the library is even loaded: the printers it paused are
    // resumed, and the packages it downloaded are deleted.
    PrinterSpoolerWrapper spooler;
    PauseRecord::recoverAbandonedPause(spooler);
    DownloadRecord::recoverAbandonedDownloads();
    std::unique_ptr<UpdatesController> controller(new UpdatesController());
    controller->performUpdates();
  } catch (...) {
    // The run handles its own failures; only the log writer can throw this far (a failed wait
    // on its mutex). The exit code stays 0 and the teardown still runs.
  }
  return 0;
}
