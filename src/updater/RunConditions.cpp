#include "updater/RunConditions.h"

#include "settings/Policy.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "updater/RunStatus.h"

namespace {

const unsigned long kUnset = 0xFFFFFFFF;

// The DWORD `name` of "Settings\Updater" in force, or kUnset. A policy in force gives its value
// also where the store has none (the read is then false), so the value tells, not the result.
unsigned long readDword(Settings& settings, const char* name) {
  unsigned long value = kUnset;
  settings.getDwordValue(SettingsKeys::kUpdaterSection, name, value, 0);
  return value;
}

}  // namespace

RunConditions RunConditions::read() {
  SYSTEMTIME now = {};
  GetSystemTime(&now);
  TIME_ZONE_INFORMATION zone = {};
  GetTimeZoneInformation(&zone);
  return read(now, zone);
}

RunConditions RunConditions::read(const SYSTEMTIME& utcNow, const TIME_ZONE_INFORMATION& zone) {
  RunConditions conditions;
  conditions.now_ = utcNow;
  Settings settings;
  const unsigned long mode = readDword(settings, SettingsKeys::kUpdateMode);
  if (mode == 0)
    conditions.mode_ = UpdateMode::kOff;
  else if (mode == 2)
    conditions.mode_ = UpdateMode::kReportOnly;
  conditions.drain_ = readDword(settings, SettingsKeys::kQuietWaitMode) == 1;
  const unsigned long period = readDword(settings, SettingsKeys::kCheckPeriodMinutes);
  if (period != kUnset)
    conditions.checkPeriod_ = effectiveCheckPeriod(period);

  conditions.notes_ = Policy().problems();
  const unsigned long start = readDword(settings, SettingsKeys::kApplyWindowStart);
  const unsigned long duration = readDword(settings, SettingsKeys::kApplyWindowDuration);
  if (start != kUnset && duration != kUnset) {
    const unsigned long days = readDword(settings, SettingsKeys::kApplyWindowDays);
    const unsigned long reserve = readDword(settings, SettingsKeys::kApplyWindowReserve);
    const ApplyWindow& window = conditions.window_.emplace(
        start, duration, days != kUnset ? days : ApplyWindow::kEveryDay,
        reserve != kUnset ? reserve : ApplyWindow::kDefaultReserveMinutes, zone);
    if (window.settingsAdjusted())
      conditions.notes_.push_back(
          "The apply window's settings out of range are taken as the nearest "
          "valid values");
    if (window.reserveAdjusted())
      conditions.notes_.push_back(
          "ApplyWindowReserve does not fit the window's duration; it is "
          "taken as half the duration, " +
          std::to_string(window.reserveMinutes()) + " minute(s)");
  }
  return conditions;
}

std::string RunConditions::checkOnly() const {
  if (mode_ == UpdateMode::kReportOnly)
    return "update mode 2 (check and report only)";
  if (isDeferred())
    return "outside the apply window, the next opens at " + nextApplyWindow();
  return std::string();
}

bool RunConditions::isDeferred() const {
  return window_ && !window_->contains(now_);
}

std::string RunConditions::nextApplyWindow() const {
  return window_ ? RunStatus::formatUtc(window_->nextStart(now_)) : std::string();
}

QuietWaitLimit RunConditions::quietWaitLimit() const {
  if (!window_)
    return QuietWaitLimit();
  const ApplyWindow window = *window_;
  return QuietWaitLimit::whenAsked([window] {
    SYSTEMTIME now = {};
    GetSystemTime(&now);
    return window.mustGiveUp(now);
  });
}

bool RunConditions::isDue(const std::string& lastCheck, double spread, std::string& why) const {
  if (isDeferred()) {
    why = checkOnly();
    return false;
  }
  SYSTEMTIME last = {};
  if (!RunStatus::parseUtc(lastCheck, last))
    last = SYSTEMTIME();
  if (isCheckDue(now_, last, checkPeriod_, spread))
    return true;
  why = "the last check, at " + lastCheck + ", is less than " + std::to_string(checkPeriod_) +
        " minute(s) old";
  return false;
}
