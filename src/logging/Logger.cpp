#include "logging/Logger.h"

#include <windows.h>

#include <vector>

#include "system/Localize.h"

namespace {

const uint32_t kInitialColumnWidth = 25;
const uint32_t kColumnWidth = 15;

Logger* g_logger = nullptr;

}  // namespace

Logger::Logger(const LogSwitches& switches)
    : BasicLogger(getLogFilePath(), kInitialColumnWidth), switches_(switches) {}

void Logger::createInstance(const LogSwitches& switches) {
  if (g_logger != nullptr)
    return;
  Logger* logger = new Logger(switches);
  logger->setComponentColumnWidth(kColumnWidth);
  if (isRegistered()) {
    delete logger;
    return;
  }
  registerInstance(logger);
  g_logger = logger;
}

void Logger::destroyInstance() {
  if (isRegistered()) {
    delete unregisterInstance();
  }
  g_logger = nullptr;
}

bool Logger::exists() {
  return g_logger != nullptr;
}

bool Logger::switchesExist() {
  return g_logger != nullptr && g_logger->switches_.exist();
}

std::string Logger::getLogFilePath() {
  return getAllUsersProfileDir() + Localize::getInstance()->getLocalId() + "QNV.log";
}

std::string Logger::getAllUsersProfileDir() {
  const char kTemplate[] = "%ALLUSERSPROFILE%\\";
  const DWORD size = ExpandEnvironmentStringsA(kTemplate, nullptr, 0);
  if (size == 0)
    return std::string();
  std::vector<char> buffer(size + 1, '\0');
  // A longer expansion than the first call announced (the variable changed between the calls) is
  // cut by the system; it is no folder then.
  const DWORD expanded = ExpandEnvironmentStringsA(kTemplate, buffer.data(), size);
  if (expanded == 0 || expanded > size)
    return std::string();
  return buffer.data();
}

void Logger::readSetting(const std::string& name, uint32_t& value, uint32_t defaultValue) {
  value = switches_.read(name, defaultValue);
}
