#pragma once

#include <windows.h>

namespace wupd {

// Owns one kernel handle (INVALID_HANDLE_VALUE or null = none) and closes it on destruction.
// Not copyable.
class ScopedHandle {
 public:
  explicit ScopedHandle(HANDLE handle) : handle_(handle) {}
  ~ScopedHandle() {
    if (valid())
      CloseHandle(handle_);
  }
  ScopedHandle(const ScopedHandle&) = delete;
  ScopedHandle& operator=(const ScopedHandle&) = delete;

  bool valid() const { return handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE; }
  HANDLE get() const { return handle_; }

 private:
  HANDLE handle_;
};

}  // namespace wupd
