#include "logging/Logger.h"

#include <windows.h>

#include <vector>

#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "updater/Localize.h"

namespace {

const uint32_t kInitialColumnWidth = 25;
const uint32_t kColumnWidth = 15;

Logger* g_logger = nullptr;

}  // namespace

Logger::Logger() : BasicLogger(getLogFilePath(), kInitialColumnWidth) {}

void Logger::createInstance() {
  if (g_logger != nullptr)
    return;
  Logger* logger = new Logger();
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

std::string Logger::getLogFilePath() {
  return getAllUsersProfileDir() + Localize::getInstance()->getLocalId() + "QNV.log";
}

std::string Logger::getAllUsersProfileDir() {
  const char kTemplate[] = "%ALLUSERSPROFILE%\\";
  const DWORD size = ExpandEnvironmentStringsA(kTemplate, nullptr, 0);
  if (size == 0)
    return std::string();
  std::vector<char> buffer(size + 1, '\0');
  if (ExpandEnvironmentStringsA(kTemplate, buffer.data(), size) == 0)
    return std::string();
  return buffer.data();
}

void Logger::readSetting(const std::string& name, uint32_t& value, uint32_t defaultValue) {
  unsigned long stored = defaultValue;
  Settings().getOrCreateDwordValue(SettingsKeys::kLoggerSection, name, stored, defaultValue, 0);
  value = static_cast<uint32_t>(stored);
}
