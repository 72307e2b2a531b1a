#include "settings/SettingsLogSwitches.h"

#include "settings/Settings.h"
#include "settings/SettingsKeys.h"

bool SettingsLogSwitches::exist() const {
  return Settings().isValid();
}

uint32_t SettingsLogSwitches::read(const std::string& name, uint32_t defaultValue) const {
  unsigned long stored = defaultValue;
  Settings().getOrCreateDwordValue(SettingsKeys::kLoggerSection, name, stored, defaultValue, 0);
  return static_cast<uint32_t>(stored);
}
