#include "updater/RunLock.h"

#include "logging/BasicLogger.h"
#include "system/Exception.h"
#include "system/MachineMutex.h"

namespace {

const char kName[] = "UpdateRun";
// A plain run asks without waiting (a time-out of 0 would not ask at all); a relaunched child waits
// for a run that holds the lock only for its check and its own relaunch.
const DWORD kProbeWaitMs = 1;
const DWORD kHandOverWaitMs = 3000;

}  // namespace

RunLock::RunLock() = default;

RunLock::~RunLock() {
  handOver();
}

bool RunLock::take(bool relaunched) {
  try {
    mutex_ = createMachineMutex(kName);
    held_ = mutex_->acquire(relaunched ? kHandOverWaitMs : kProbeWaitMs);
    return held_;
  } catch (const Exception& e) {
    BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS,
                                     "RunLock: " + e.toString() + "; the run goes on without it");
    return true;
  }
}

void RunLock::handOver() {
  if (!held_)
    return;
  held_ = false;
  try {
    mutex_->release();
  } catch (const Exception&) {
    // The mutex is abandoned when this process ends, which frees it all the same.
  }
}

std::string RunLock::mutexName() {
  return machineMutexName(kName);
}
