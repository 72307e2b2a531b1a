#include "updater/RunLock.h"

#include "system/Exception.h"
#include "system/MachineMutex.h"

namespace {

const char kName[] = "UpdateRun";
// A relaunched child waits for the parent that started it to let the lock go.
const DWORD kHandOverWaitMs = 3000;

}  // namespace

RunLock::RunLock() = default;

RunLock::~RunLock() {
  handOver();
}

RunLock::Taken RunLock::take(bool relaunched) {
  failure_.clear();
  try {
    mutex_ = createMachineMutex(kName);
    held_ = relaunched ? mutex_->acquire(kHandOverWaitMs) : mutex_->tryAcquire();
  } catch (const Exception& e) {
    failure_ = "run lock: '" + mutexName() + "' could not be made: " + e.toString();
    return Taken::kUnavailable;
  }
  if (held_)
    return Taken::kTaken;
  failure_ = "run lock: '" + mutexName() + "' is held by another run";
  return Taken::kHeldByAnotherRun;
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
