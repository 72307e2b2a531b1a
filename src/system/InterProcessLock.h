#pragma once

#include "system/Mutex.h"

// Holds a named Mutex for the length of a scope. Throws Win32Exception("InterProcessLock has no
// name") before waiting when the mutex has no name. The destructor gives up every hold of the
// calling thread (Mutex::release()) when the wait took the mutex, and nothing when it ran out.
class InterProcessLock {
 public:
  // Waits without time-out.
  explicit InterProcessLock(Mutex& mutex);
  // Waits at most `timeoutMs`; isHeld() tells whether the mutex was had.
  InterProcessLock(Mutex& mutex, DWORD timeoutMs);
  ~InterProcessLock();
  InterProcessLock(const InterProcessLock&) = delete;
  InterProcessLock& operator=(const InterProcessLock&) = delete;

  bool isHeld() const { return held_; }

 private:
  Mutex* mutex_;
  bool held_;
};
