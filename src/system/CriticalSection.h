#pragma once

#include <windows.h>

#include <cstdint>

// A process-local lock over a system critical section. Recursive for the owning thread.
// Not copyable; the section is deleted with the object.
class CriticalSection {
 public:
  CriticalSection();
  ~CriticalSection();
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void enter();
  void leave();

 private:
  CRITICAL_SECTION section_;
  // How deep the owner is; diagnostic only, touched only while held.
  uint32_t count_ = 0;
};
