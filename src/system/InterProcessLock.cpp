#include "system/InterProcessLock.h"

#include "system/Win32Exception.h"

InterProcessLock::InterProcessLock(Mutex& mutex) : mutex_(&mutex) {
  if (mutex_->getName().empty())
    throw Win32Exception("InterProcessLock has no name", 0, "InterProcessLock", __LINE__);
  mutex_->acquire(INFINITE);
}

InterProcessLock::~InterProcessLock() {
  try {
    mutex_->release();
  } catch (const Exception&) {
    // release() fails only for a thread that no longer owns the mutex; nothing is left to undo,
    // and a destructor must not throw.
  }
}
