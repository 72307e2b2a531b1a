#include "updater/Application.h"

#include <memory>

#include "logging/Logger.h"
#include "printers/DeviceEnumerator.h"
#include "printers/PauseRecord.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "system/DllSearch.h"
#include "updater/CommandLineParams.h"
#include "updater/CurrentProcess.h"
#include "updater/Localize.h"
#include "updater/UpdatesController.h"

bool initialize(const std::string& commandLine) {
  try {
    Localize::createInstance(nullptr);
    Logger::createInstance();
    CommandLineParams::createInstance(commandLine);
    DeviceEnumerator::instance();
    return true;
  } catch (...) {
    return false;
  }
}

int runApplication(const char* commandLine) {
  hardenDllSearch();
  if (!initialize(commandLine != nullptr ? commandLine : ""))
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
  // The order is required: everything before the logger may still log, and Localize outlives
  // the logger.
  CurrentProcess::destroyInstance();
  DeviceEnumerator::destroy();
  CommandLineParams::destroyInstance();
  Logger::destroyInstance();
  Localize::destroyInstance();
  return 0;
}
