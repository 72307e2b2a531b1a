#include "printers/PauseRecord.h"

#include <windows.h>

#include <cstring>
#include <vector>

#include "logging/FunctionTrace.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "settings/RegistryKey.h"
#include "settings/SettingsKeys.h"
#include "system/Exception.h"
#include "system/Localize.h"

namespace {

const char kRecordValue[] = "PausedPrinters";
// How long hold() waits for a recovering run to finish with the mutex.
const DWORD kHoldWaitMs = 10000;
// How long the start-up check waits: a live owner holds the mutex for the whole installation.
const DWORD kProbeWaitMs = 1;

std::string recordKeyPath() {
  return Localize::getInstance()->getRegistryPath(Localize::kLocalPath) +
         SettingsKeys::kUpdaterSection;
}

void logFailure(const std::string& text) {
  BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS, "PauseRecord: " + text);
}

}  // namespace

PauseRecord::PauseRecord() = default;

PauseRecord::~PauseRecord() {
  // Deliberately no deleteRecord(): a record still written here was not resumed.
  if (held_) {
    try {
      mutex_->release();
    } catch (...) {
    }
  }
}

std::string PauseRecord::mutexName() {
  return Localize::getInstance()->getLocalId() + kRecordValue;
}

bool PauseRecord::hold(const std::list<std::string>& names) {
  try {
    mutex_.reset(new Mutex(false, mutexName(), false));
    held_ = mutex_->acquire(kHoldWaitMs);
  } catch (const Exception& e) {
    logFailure(e.toString());
  }
  if (!held_) {
    logFailure("the pause is not recorded: the mutex '" + mutexName() + "' could not be taken");
    return false;
  }
  return writeRecord(names);
}

void PauseRecord::release() {
  if (!held_)
    return;
  deleteRecord();
  mutex_->release();
  held_ = false;
}

bool PauseRecord::writeRecord(const std::list<std::string>& names) {
  std::string data;
  for (const std::string& name : names)
    data += name + '\0';
  data += '\0';
  try {
    RegistryKey key(recordKeyPath(), false, HKEY_LOCAL_MACHINE);
    LONG status =
        RegSetValueExA(key.getHandle(), kRecordValue, 0, REG_MULTI_SZ,
                       reinterpret_cast<const BYTE*>(data.data()), static_cast<DWORD>(data.size()));
    if (status == ERROR_SUCCESS)
      status = RegFlushKey(key.getHandle());  // Survives a power cut too, not only a kill.
    if (status != ERROR_SUCCESS) {
      logFailure("the pause is not recorded: RegSetValueExA failed, status=" +
                 std::to_string(status));
      return false;
    }
    return true;
  } catch (const Exception& e) {
    logFailure(e.toString());
    return false;
  }
}

void PauseRecord::deleteRecord() {
  try {
    RegistryKey key(recordKeyPath(), false, HKEY_LOCAL_MACHINE);
    const LONG status = RegDeleteValueA(key.getHandle(), kRecordValue);
    if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND)
      logFailure("the record could not be deleted, status=" + std::to_string(status));
  } catch (const Exception& e) {
    logFailure(e.toString());
  }
}

std::list<std::string> PauseRecord::recordedPrinters() {
  std::list<std::string> names;
  try {
    RegistryKey key(recordKeyPath(), false, HKEY_LOCAL_MACHINE);
    DWORD type = 0;
    DWORD size = 0;
    LONG status = RegQueryValueExA(key.getHandle(), kRecordValue, nullptr, &type, nullptr, &size);
    if (status != ERROR_SUCCESS || type != REG_MULTI_SZ)
      return names;
    // Room for the terminators a writer may have left out.
    std::vector<char> data(size + 2, '\0');
    status = RegQueryValueExA(key.getHandle(), kRecordValue, nullptr, &type,
                              reinterpret_cast<BYTE*>(data.data()), &size);
    if (status != ERROR_SUCCESS || type != REG_MULTI_SZ)
      return names;
    for (const char* name = data.data(); *name != '\0'; name += strlen(name) + 1)
      names.push_back(name);
  } catch (const Exception&) {
    // No store, so nothing recorded.
  }
  return names;
}

bool PauseRecord::recoverAbandonedPause(PrinterSpoolerWrapper& spooler) {
  // The common case, nothing recorded, reads one value and writes nothing, not even a log line.
  const std::list<std::string> names = recordedPrinters();
  if (names.empty())
    return false;
  std::unique_ptr<Mutex> mutex;
  try {
    mutex.reset(new Mutex(false, mutexName(), false));
    if (!mutex->acquire(kProbeWaitMs))
      return false;  // Its run is still installing and will resume them itself.
  } catch (const Exception&) {
    return false;  // The owner's mutex cannot be opened, so the owner is alive.
  }
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "PauseRecord::recoverAbandonedPause() ");
  trace.detail([&] {
    LogText text("A run that paused printers ended before resuming them:");
    for (const std::string& name : names)
      text += " '" + name + "'";
    return text;
  });
  const bool resumed = spooler.resumePausedPrinters(names);
  if (resumed)
    deleteRecord();
  else
    trace.detail("Not every printer could be resumed; the record is kept for the next run.");
  mutex->release();
  return trace.returning(resumed);
}
