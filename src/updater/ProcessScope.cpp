#include "updater/ProcessScope.h"

#include "logging/Logger.h"
#include "printers/DeviceEnumerator.h"
#include "settings/SettingsLogSwitches.h"
#include "system/CurrentProcess.h"
#include "system/Localize.h"
#include "updater/CommandLineParams.h"

namespace {
const SettingsLogSwitches g_logSwitches;
ProcessScope::CreateLoggerFunction g_createLogger = &Logger::createInstance;
}  // namespace

void ProcessScope::setCreateLoggerFunction(CreateLoggerFunction function) {
  g_createLogger = function != nullptr ? function : &Logger::createInstance;
}

ProcessScope::ProcessScope() : started_(initialize(nullptr)) {}

ProcessScope::ProcessScope(const std::string& commandLine) : started_(initialize(&commandLine)) {}

bool ProcessScope::initialize(const std::string* commandLine) {
  try {
    Localize::createInstance(nullptr);
    g_createLogger(g_logSwitches);
    if (commandLine != nullptr) {
      CommandLineParams::createInstance(*commandLine);
      DeviceEnumerator::instance();
    }
    return true;
  } catch (...) {
    return false;
  }
}

ProcessScope::~ProcessScope() {
  if (!started_)
    return;
  CurrentProcess::destroyInstance();
  DeviceEnumerator::destroy();
  CommandLineParams::destroyInstance();
  Logger::destroyInstance();
  Localize::destroyInstance();
}
