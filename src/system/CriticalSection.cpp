#include "system/CriticalSection.h"

CriticalSection::CriticalSection() {
  InitializeCriticalSection(&section_);
}

CriticalSection::~CriticalSection() {
  DeleteCriticalSection(&section_);
}

void CriticalSection::enter() {
  EnterCriticalSection(&section_);
  ++count_;
}

void CriticalSection::leave() {
  --count_;
  LeaveCriticalSection(&section_);
}
