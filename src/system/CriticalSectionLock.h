#pragma once

#include "system/CriticalSection.h"

// Holds a CriticalSection for the length of a scope.
class CriticalSectionLock {
 public:
  explicit CriticalSectionLock(CriticalSection& section) : section_(&section) { section_->enter(); }
  ~CriticalSectionLock() { section_->leave(); }
  CriticalSectionLock(const CriticalSectionLock&) = delete;
  CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;

 private:
  CriticalSection* section_;
};
