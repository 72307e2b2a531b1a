#include "system/InterProcessLock.h"

#include "system/Win32Exception.h"

InterProcessLock::InterProcessLock(Mutex& mutex) : InterProcessLock(mutex, INFINITE) {}

InterProcessLock::InterProcessLock(Mutex& mutex, DWORD timeoutMs) : mutex_(&mutex), held_(false) {
  if (mutex_->getName().empty())
    throw Win32Exception("InterProcessLock has no name", 0, "InterProcessLock", __LINE__);
  held_ = mutex_->acquire(timeoutMs);
}

InterProcessLock::~InterProcessLock() {
  if (!held_)
    return;  // A wait that ran out took nothing to give back.
  try {
    mutex_->release();
  } catch (const Exception&) {
    // release() fails only for a thread that no longer owns the mutex; nothing is left to undo,
    // and a destructor must not throw.
  }
}
