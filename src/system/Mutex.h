#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "system/UniqueHandle.h"

// A named system mutex, shared by every process that opens the same name (no namespace prefix is
// added; a name may carry one, "Global\" for every session of the machine). Owns its handle; the
// destructor closes it without releasing holds, so other waiters then find the mutex abandoned.
//
// Threads: acquire() and release() may be called from any thread; the hold count and owner are
// written only by the thread holding the mutex. Failures of system calls throw Win32Exception.
class Mutex {
 public:
  // Creates the mutex or opens the existing one of that name. With allowEveryone the mutex gets a
  // null DACL so that processes of every user can open it.
  Mutex(bool initialOwner, const std::string& name, bool allowEveryone);
  // Creates the mutex, not owned, with the security descriptor `sddl` (SDDL text), or opens the
  // existing one of that name asking only for the rights to wait on it and release it (where the
  // system has CreateMutexExA), so that a DACL granting no more than that still lets users share
  // it. Throws Win32Exception when the descriptor or the mutex cannot be made.
  Mutex(const std::string& name, const std::string& sddl);
  ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  HANDLE createMutex(SECURITY_ATTRIBUTES* securityAttributes,
                     bool initialOwner,
                     const std::string& name);

  // True when the calling thread now holds the mutex. A mutex abandoned by a dead owner counts as
  // acquired. A time-out of 0 returns false without touching the mutex.
  bool acquire(DWORD timeoutMs);
  // The same, asking the system without waiting: true when the mutex was free or abandoned.
  bool tryAcquire();

  // Gives up every hold of the calling thread at once; does nothing for a thread that does not
  // hold the mutex.
  void release();

  std::string getName() const;

 private:
  bool wait(DWORD timeoutMs);

  ScopedHandle handle_;
  std::string name_;
  uint32_t holdCount_ = 0;
  uint32_t ownerThread_ = 0;
};
