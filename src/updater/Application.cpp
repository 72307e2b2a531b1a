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
#include "updater/UpdatesController.h"

int runApplication(const char* commandLine) {
  hardenDllSearch();
  const ProcessScope process(commandLine != nullptr ? commandLine : "");
  if (!process.started())
    return 0;
  try {
    // One run at a time on the machine; the one that holds the lock does everything below.
    RunLock runLock;
    const bool stoodAside = !runLock.take(CommandLineParams::instance()->containsUacParams());
    if (stoodAside) {
      BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS,
                                       "Another update run is in progress, this one ends.");
      return 0;
    }
    // What an earlier run left behind when it died (it was killed, or the vendor library crashed
    // or hung) is undone first, before the library is even loaded: the printers it paused are
    // resumed, and the packages it downloaded are deleted.
    PrinterSpoolerWrapper spooler;
    PauseRecord::recoverAbandonedPause(spooler);
    DownloadRecord::recoverAbandonedDownloads();
    std::unique_ptr<UpdatesController> controller(new UpdatesController());
    controller->setHandOver([&runLock] { runLock.handOver(); });
    controller->performUpdates();
  } catch (...) {
    // The run handles its own failures; only the log writer can throw this far (a failed wait
    // on its mutex). The exit code stays 0 and the teardown still runs.
  }
  return 0;
}
