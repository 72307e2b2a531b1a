#pragma once

#include <windows.h>

#include <winspool.h>

#include <utility>

// The one owner of a handle, a key, a module, a printer or a LocalAlloc block: it closes what it
// holds when it goes, with the close function of its kind. Not copyable; moving hands the
// ownership over. Null and INVALID_HANDLE_VALUE both mean "nothing held".
template <typename Handle, typename Close>
class UniqueHandle {
 public:
  UniqueHandle() = default;
  explicit UniqueHandle(Handle handle) : handle_(handle) {}
  ~UniqueHandle() { close(); }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other)
      reset(other.release());
    return *this;
  }

  Handle get() const { return handle_; }
  bool valid() const {
    return handle_ != Handle() && reinterpret_cast<HANDLE>(handle_) != INVALID_HANDLE_VALUE;
  }
  // For the functions that hand out a new handle through a pointer; closes the one held first.
  Handle* receive() {
    close();
    return &handle_;
  }
  // Gives the handle up without closing it.
  Handle release() { return std::exchange(handle_, Handle()); }
  void reset(Handle handle = Handle()) {
    close();
    handle_ = handle;
  }
  // Closes what is held now; false when the close function failed. Holds nothing afterwards.
  bool close() {
    const Handle handle = release();
    return handle == Handle() || reinterpret_cast<HANDLE>(handle) == INVALID_HANDLE_VALUE ||
           Close()(handle);
  }

 private:
  Handle handle_ = Handle();
};

// The close functions, each saying whether it succeeded.
struct CloseKernelHandle {
  bool operator()(HANDLE handle) const { return CloseHandle(handle) != FALSE; }
};
struct CloseRegistryKey {
  bool operator()(HKEY key) const { return RegCloseKey(key) == ERROR_SUCCESS; }
};
struct FreeModule {
  bool operator()(HMODULE module) const { return FreeLibrary(module) != FALSE; }
};
struct ClosePrinterHandle {
  bool operator()(HANDLE printer) const { return ClosePrinter(printer) != FALSE; }
};
struct FreeLocalBlock {
  bool operator()(HLOCAL block) const { return LocalFree(block) == nullptr; }
};

using ScopedHandle = UniqueHandle<HANDLE, CloseKernelHandle>;
using ScopedKey = UniqueHandle<HKEY, CloseRegistryKey>;
using ScopedModule = UniqueHandle<HMODULE, FreeModule>;
using ScopedPrinter = UniqueHandle<HANDLE, ClosePrinterHandle>;
using ScopedLocal = UniqueHandle<HLOCAL, FreeLocalBlock>;
