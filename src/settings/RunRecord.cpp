#include "settings/RunRecord.h"

#include <windows.h>

#include <cstring>
#include <utility>
#include <vector>

#include "logging/BasicLogger.h"
#include "settings/RegistryKey.h"
#include "settings/SettingsKeys.h"
#include "system/Exception.h"
#include "system/Localize.h"
#include "system/MachineMutex.h"

namespace {

// How long hold() waits for another holder (a run that is recovering the note), unless set.
const DWORD kHoldWaitMs = 10000;
DWORD g_holdWaitMs = kHoldWaitMs;
// How long takeOver() asks: a live owner holds the mutex for as long as its note may change.
const DWORD kProbeWaitMs = 1;

std::string keyPath() {
  return Localize::getInstance()->getRegistryPath(Localize::kLocalPath) +
         SettingsKeys::kUpdaterSection;
}

}  // namespace

RunRecord::RunRecord(std::string name, std::string owner)
    : name_(std::move(name)), owner_(std::move(owner)) {}

RunRecord::~RunRecord() {
  if (!held_)
    return;
  try {
    mutex_->release();
  } catch (const Exception&) {
    // The mutex is abandoned when this process ends, which tells a later run the same.
  }
}

void RunRecord::setHoldWait(unsigned long waitMs) {
  g_holdWaitMs = waitMs != 0 ? waitMs : kHoldWaitMs;
}

std::string RunRecord::mutexName() const {
  return machineMutexName(name_);
}

bool RunRecord::acquire(unsigned long waitMs, bool logged) {
  heldElsewhere_ = false;
  try {
    mutex_ = createMachineMutex(name_);
    held_ = mutex_->acquire(waitMs);
    heldElsewhere_ = !held_;
  } catch (const Exception& e) {
    if (logged)
      logFailure(e.toString());
  }
  return held_;
}

bool RunRecord::hold() {
  if (held_ || acquire(g_holdWaitMs, true))
    return true;
  if (heldElsewhere_)
    logFailure("the mutex '" + mutexName() +
               "' is held by another process; this run abandons its installation");
  else
    logFailure("not recorded: the mutex '" + mutexName() + "' could not be taken");
  return false;
}

bool RunRecord::takeOver() {
  return held_ || acquire(kProbeWaitMs, false);
}

bool RunRecord::write(const std::list<std::string>& items) {
  std::string data;
  for (const std::string& item : items)
    data += item + '\0';
  data += '\0';
  try {
    RegistryKey key(keyPath(), false, HKEY_LOCAL_MACHINE);
    LONG status =
        RegSetValueExA(key.getHandle(), name_.c_str(), 0, REG_MULTI_SZ,
                       reinterpret_cast<const BYTE*>(data.data()), static_cast<DWORD>(data.size()));
    if (status == ERROR_SUCCESS)
      status = RegFlushKey(key.getHandle());  // Survives a power cut too, not only a kill.
    if (status == ERROR_SUCCESS)
      return true;
    logFailure("not recorded: RegSetValueExA failed, status=" + std::to_string(status));
  } catch (const Exception& e) {
    logFailure(e.toString());
  }
  return false;
}

void RunRecord::release() {
  if (!held_)
    return;
  try {
    RegistryKey key(keyPath(), false, HKEY_LOCAL_MACHINE);
    const LONG status = RegDeleteValueA(key.getHandle(), name_.c_str());
    if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND)
      logFailure("the record could not be deleted, status=" + std::to_string(status));
    held_ = false;
    mutex_->release();
  } catch (const Exception& e) {
    logFailure(e.toString());
  }
}

std::list<std::string> RunRecord::read() const {
  std::list<std::string> items;
  try {
    RegistryKey key(keyPath(), false, HKEY_LOCAL_MACHINE);
    DWORD type = 0;
    DWORD size = 0;
    LONG status = RegQueryValueExA(key.getHandle(), name_.c_str(), nullptr, &type, nullptr, &size);
    if (status != ERROR_SUCCESS || type != REG_MULTI_SZ)
      return items;
    // Room for the terminators a writer may have left out.
    std::vector<char> data(size_t{size} + 2, '\0');
    status = RegQueryValueExA(key.getHandle(), name_.c_str(), nullptr, &type,
                              reinterpret_cast<BYTE*>(data.data()), &size);
    if (status != ERROR_SUCCESS || type != REG_MULTI_SZ)
      return items;
    for (const char* item = data.data(); *item != '\0'; item += strlen(item) + 1)
      items.push_back(item);
  } catch (const Exception&) {
    // No store, so nothing recorded.
  }
  return items;
}

void RunRecord::logFailure(const std::string& text) const {
  BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS, owner_ + ": " + text);
}
