#pragma once

#include "system/Mutex.h"

// Holds a named Mutex for the length of a scope, waiting without time-out. Throws
// Win32Exception("InterProcessLock has no name") before waiting when the mutex has no name.
// The destructor gives up every hold of the calling thread (Mutex::release()).
class InterProcessLock {
 public:
  explicit InterProcessLock(Mutex& mutex);
  ~InterProcessLock();
  InterProcessLock(const InterProcessLock&) = delete;
  InterProcessLock& operator=(const InterProcessLock&) = delete;

 private:
  Mutex* mutex_;
};
