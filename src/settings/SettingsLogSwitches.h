#pragma once

#include "logging/LogSwitches.h"

// The log's switches in the program's settings store: the values of its "Logger" section, each
// created with its default on first read while the store exists. Stateless.
class SettingsLogSwitches : public LogSwitches {
 public:
  bool exist() const override;
  uint32_t read(const std::string& name, uint32_t defaultValue) const override;
};
