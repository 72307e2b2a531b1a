#include "updater/RunConditions.h"

#include "settings/Policy.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"

RunConditions RunConditions::read() {
  RunConditions conditions;
  Settings settings;
  // A policy in force gives its value also where the store has none (the read is then false).
  unsigned long mode = 1;
  settings.getDwordValue(SettingsKeys::kUpdaterSection, SettingsKeys::kUpdateMode, mode, 0);
  if (mode == 0)
    conditions.mode_ = UpdateMode::kOff;
  else if (mode == 2)
    conditions.mode_ = UpdateMode::kReportOnly;
  conditions.policyProblems_ = Policy().problems();
  return conditions;
}

std::string RunConditions::checkOnly() const {
  return mode_ == UpdateMode::kReportOnly ? "update mode 2 (check and report only)" : "";
}
