#include "updater/RunStatus.h"

#include <windows.h>

#include <cstdio>
#include <cstring>

#include "logging/BasicLogger.h"
#include "settings/RegistryKey.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "system/Exception.h"
#include "system/Localize.h"
#include "system/UniqueHandle.h"
#include "updater/RunEventLog.h"
#include "webupdate/VersionInfo.h"

namespace {

const char kStatusKey[] = "Status";
const char kReportRunEvents[] = "ReportRunEvents";
const char kConsecutiveFailures[] = "ConsecutiveFailures";
const char kRunInProgress[] = "RunInProgress";
const char kLastLockFailure[] = "LastLockFailure";
// The order in which read() gives the values.
const char* const kValueNames[] = {"LastRunStarted",
                                   kRunInProgress,
                                   "LastRunEnded",
                                   "LastResult",
                                   "LastResultDetail",
                                   "LastSuccess",
                                   "LastUpdate",
                                   "LastUpdateApplied",
                                   "SoftwareVersion",
                                   "CatalogVersion",
                                   kConsecutiveFailures,
                                   kLastLockFailure,
                                   "AvailableSoftwareVersion",
                                   "AvailableCatalogVersion",
                                   "LastCheck",
                                   "NextApplyWindow"};
const unsigned long long kTicksPerSecond = 10000000ULL;  // FILETIME's 100 ns ticks.
const unsigned long long kTicksPerDay = 86400 * kTicksPerSecond;
// How far ahead of the clock a time may lie and still count: clocks of a fleet differ a little.
const unsigned long long kAllowedAheadTicks = 5ULL * 60 * kTicksPerSecond;
// The scheduled task ends a run after 12 hours; a run still in progress after that was killed.
const unsigned long long kRunTimeLimitHours = 12;

void logFailure(const std::string& text) {
  try {
    BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS,
                                     "RunStatus: the run's status was not written: " + text);
  } catch (const Exception&) {
    // The log writer's own failure; the status is never worth more than the run.
  }
}

// The status key, created below the store when the store exists; invalid (and logged) otherwise.
ScopedKey openStatusKey(bool create) {
  ScopedKey status;
  try {
    const RegistryKey store(Localize::getInstance()->getRegistryPath(Localize::kLocalPath), false,
                            HKEY_LOCAL_MACHINE);
    const LONG code =
        create
            ? RegCreateKeyExA(store.getHandle(), kStatusKey, 0, nullptr, 0,
                              KEY_QUERY_VALUE | KEY_SET_VALUE, nullptr, status.receive(), nullptr)
            : RegOpenKeyExA(store.getHandle(), kStatusKey, 0, KEY_QUERY_VALUE, status.receive());
    if (code != ERROR_SUCCESS && create)
      logFailure("RegCreateKeyExA failed, status=" + std::to_string(code));
  } catch (const Exception&) {
    // No store: a removed or never installed program keeps no status.
  }
  return status;
}

LONG setString(HKEY key, const char* name, const std::string& value) {
  return RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                        static_cast<DWORD>(value.size() + 1));
}

// Writes each value, the DWORDs after the strings, and flushes; logs the first failure.
void write(HKEY key,
           const std::vector<RunStatus::Value>& values,
           const std::vector<std::pair<const char*, DWORD>>& numbers = {}) {
  LONG code = ERROR_SUCCESS;
  for (const RunStatus::Value& value : values) {
    if (code == ERROR_SUCCESS)
      code = setString(key, value.first.c_str(), value.second);
  }
  for (const auto& [name, number] : numbers) {
    if (code == ERROR_SUCCESS)
      code = RegSetValueExA(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                            sizeof number);
  }
  if (code == ERROR_SUCCESS)
    code = RegFlushKey(key);  // Survives a power cut too, not only a kill.
  if (code != ERROR_SUCCESS)
    logFailure("RegSetValueExA failed, status=" + std::to_string(code));
}

// Reports the run's event unless the store switches events off.
void reportEvent(const RunVerdict& verdict,
                 const std::string& software,
                 const std::string& catalog) {
  unsigned long reportEvents = 1;
  Settings().getOrCreateDwordValue(SettingsKeys::kUpdaterSection, kReportRunEvents, reportEvents, 1,
                                   0);
  if (reportEvents != 0)
    RunEventLog().report(verdict, software, catalog);
}

// The event of a run that ended before it ran: the versions as they are.
void reportEarlyEnd(RunOutcome outcome, const std::string& detail) {
  reportEvent(RunVerdict{outcome, detail, "", {}, "", false}, VersionInfo::GetOrreryVersionNumber(),
              VersionInfo::GetCatalogVersionNumber());
}

bool parseTime(const std::string& text, FILETIME& time) {
  SYSTEMTIME parts = {};
  return RunStatus::parseUtc(text, parts) && SystemTimeToFileTime(&parts, &time) != FALSE;
}

unsigned long long ticks(const FILETIME& time) {
  return (static_cast<unsigned long long>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

}  // namespace

bool RunStatus::parseUtc(const std::string& text, SYSTEMTIME& parts) {
  parts = SYSTEMTIME();
  unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  char zone = '\0';
  char rest = '\0';
  if (sscanf(text.c_str(), "%4u-%2u-%2uT%2u:%2u:%2u%c%c", &year, &month, &day, &hour, &minute,
             &second, &zone, &rest) != 7 ||
      zone != 'Z' || text.size() != 20)
    return false;
  parts.wYear = static_cast<WORD>(year);
  parts.wMonth = static_cast<WORD>(month);
  parts.wDay = static_cast<WORD>(day);
  parts.wHour = static_cast<WORD>(hour);
  parts.wMinute = static_cast<WORD>(minute);
  parts.wSecond = static_cast<WORD>(second);
  FILETIME valid;
  return SystemTimeToFileTime(&parts, &valid) != FALSE;
}

RunStatus::RunStatus() {
  const ScopedKey key = openStatusKey(true);
  if (key.valid())
    write(key.get(), {{"LastRunStarted", utcNow()}}, {{kRunInProgress, 1}});
}

void RunStatus::finish(const RunVerdict& verdict) {
  const std::string software = VersionInfo::GetOrreryVersionNumber();
  const std::string catalog = VersionInfo::GetCatalogVersionNumber();
  const ScopedKey key = openStatusKey(true);
  if (key.valid()) {
    DWORD failures = 0;
    DWORD type = 0;
    DWORD size = sizeof failures;
    if (RegQueryValueExA(key.get(), kConsecutiveFailures, nullptr, &type,
                         reinterpret_cast<BYTE*>(&failures), &size) != ERROR_SUCCESS ||
        type != REG_DWORD)
      failures = 0;
    const std::string now = utcNow();
    std::vector<Value> values = {{"LastRunEnded", now},
                                 {"LastResult", outcomeWord(verdict.outcome)},
                                 {"LastResultDetail", verdict.detail},
                                 {"SoftwareVersion", software},
                                 {"CatalogVersion", catalog}};
    if (outcomeInfo(verdict.outcome).movesLastSuccess)
      values.emplace_back("LastSuccess", now);
    if (!verdict.applied.empty()) {
      values.emplace_back("LastUpdate", now);
      values.emplace_back("LastUpdateApplied", verdict.applied);
    }
    if (verdict.outcome == RunOutcome::kLockUnavailable)
      values.emplace_back(kLastLockFailure, now + " " + verdict.detail);
    values.insert(values.end(), verdict.values.begin(), verdict.values.end());
    if (verdict.checked)
      values.emplace_back("LastCheck", now);
    write(key.get(), values,
          {{kConsecutiveFailures, failuresAfter(verdict.outcome, failures)}, {kRunInProgress, 0}});
  }
  reportEvent(verdict, software, catalog);
}

void RunStatus::reportStandingAside(const std::string& detail) {
  reportEarlyEnd(RunOutcome::kAnotherRunInProgress, detail);
}

void RunStatus::reportLockFailure(const std::string& why) {
  const ScopedKey key = openStatusKey(true);
  if (key.valid())
    write(key.get(), {{kLastLockFailure, utcNow() + " " + why}});
  reportEarlyEnd(RunOutcome::kLockUnavailable, why);
}

bool RunStatus::isRunOverdue(const std::vector<Value>& values, std::string& why) {
  std::string inProgress, started;
  for (const Value& value : values) {
    if (value.first == kRunInProgress)
      inProgress = value.second;
    else if (value.first == "LastRunStarted")
      started = value.second;
  }
  FILETIME then = {}, now = {};
  GetSystemTimeAsFileTime(&now);
  if (inProgress != "1" || !parseTime(started, then) || ticks(then) >= ticks(now) ||
      ticks(now) - ticks(then) <= kRunTimeLimitHours * 3600ULL * kTicksPerSecond)
    return false;
  why = "the run that started at " + started + " has not ended after " +
        std::to_string(kRunTimeLimitHours) + " hours: it was killed, or it hangs";
  return true;
}

std::vector<RunStatus::Value> RunStatus::read() {
  std::vector<Value> values;
  const ScopedKey key = openStatusKey(false);
  if (!key.valid())
    return values;
  for (const char* name : kValueNames) {
    char data[1024] = {};
    DWORD type = 0;
    DWORD size = sizeof data - 1;
    if (RegQueryValueExA(key.get(), name, nullptr, &type, reinterpret_cast<BYTE*>(data), &size) !=
        ERROR_SUCCESS)
      continue;
    if (type == REG_DWORD && size == sizeof(DWORD)) {
      DWORD number = 0;
      memcpy(&number, data, sizeof number);
      values.emplace_back(name, std::to_string(number));
    } else if (type == REG_SZ) {
      values.emplace_back(name, data);
    }
  }
  return values;
}

std::string RunStatus::value(const std::string& name) {
  for (const Value& entry : read()) {
    if (entry.first == name)
      return entry.second;
  }
  return std::string();
}

std::string RunStatus::utcNow() {
  SYSTEMTIME now = {};
  GetSystemTime(&now);
  return formatUtc(now);
}

std::string RunStatus::formatUtc(const SYSTEMTIME& time) {
  char text[32] = {};
  static_cast<void>(snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02uZ", time.wYear,
                             time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond));
  return text;
}

bool RunStatus::isWithinDays(const std::string& time, unsigned long days, std::string* why) {
  FILETIME then = {};
  if (!parseTime(time, then)) {
    if (why != nullptr)
      *why = time.empty() ? "no time" : "'" + time + "' is not a time of the status's format";
    return false;
  }
  FILETIME now = {};
  GetSystemTimeAsFileTime(&now);
  if (ticks(then) > ticks(now) + kAllowedAheadTicks) {
    if (why != nullptr)
      *why = time + " lies ahead of this machine's clock (" + utcNow() +
             "): the clock jumped back, or the value was written by hand";
    return false;
  }
  const bool fresh =
      ticks(then) >= ticks(now) ||
      ticks(now) - ticks(then) <= static_cast<unsigned long long>(days) * kTicksPerDay;
  if (!fresh && why != nullptr)
    *why = time + " is more than " + std::to_string(days) + " day(s) ago";
  return fresh;
}
