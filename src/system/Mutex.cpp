#include "system/Mutex.h"

#include <sddl.h>

#include "system/ExportLookup.h"
#include "system/Win32Exception.h"

Mutex::Mutex(bool initialOwner, const std::string& name, bool allowEveryone) : name_(name) {
  if (!allowEveryone) {
    handle_.reset(createMutex(nullptr, initialOwner, name));
    return;
  }
  SECURITY_DESCRIPTOR descriptor;
  if (!InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION)) {
    const DWORD error = GetLastError();
    throw Win32Exception("Mutex::Mutex() InitializeSecurityDescriptor failed", error, "", 0);
  }
  // A null DACL: every user's processes may open the mutex.
  if (!SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE)) {
    const DWORD error = GetLastError();
    throw Win32Exception("Mutex::Mutex() SetSecurityDescriptorDacl failed", error, "", 0);
  }
  SECURITY_ATTRIBUTES attributes = {sizeof(SECURITY_ATTRIBUTES), &descriptor, FALSE};
  handle_.reset(createMutex(&attributes, initialOwner, name));
}

Mutex::Mutex(const std::string& name, const std::string& sddl) : name_(name) {
  ScopedLocal descriptor;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(sddl.c_str(), SDDL_REVISION_1,
                                                            descriptor.receive(), nullptr)) {
    const DWORD error = GetLastError();
    throw Win32Exception(
        "Mutex::Mutex() ConvertStringSecurityDescriptorToSecurityDescriptor failed", error, "Mutex",
        __LINE__);
  }
  SECURITY_ATTRIBUTES attributes = {sizeof(SECURITY_ATTRIBUTES), descriptor.get(), FALSE};
  // CreateMutexA opens an existing mutex with every right, which its DACL may refuse to users;
  // CreateMutexExA (Vista and later) asks for these alone.
  auto createMutexEx = LOOKUP_EXPORT(GetModuleHandleA("kernel32.dll"), CreateMutexExA);
  if (createMutexEx != nullptr)
    handle_.reset(createMutexEx(&attributes, name.c_str(), 0, SYNCHRONIZE | MUTEX_MODIFY_STATE));
  else
    handle_.reset(CreateMutexA(&attributes, FALSE, name.c_str()));
  if (!handle_.valid()) {
    const DWORD error = GetLastError();
    throw Win32Exception("Mutex::createMutex() CreateMutex failed", error, "Mutex", __LINE__);
  }
}

Mutex::~Mutex() = default;

HANDLE Mutex::createMutex(SECURITY_ATTRIBUTES* securityAttributes,
                          bool initialOwner,
                          const std::string& name) {
  // An existing mutex of that name is opened and used as it is.
  HANDLE handle = CreateMutexA(securityAttributes, initialOwner ? TRUE : FALSE, name.c_str());
  if (handle == nullptr) {
    const DWORD error = GetLastError();
    throw Win32Exception("Mutex::createMutex() CreateMutex failed", error, "Mutex", __LINE__);
  }
  if (initialOwner) {
    ownerThread_ = GetCurrentThreadId();
    ++holdCount_;
  }
  return handle;
}

bool Mutex::acquire(DWORD timeoutMs) {
  return timeoutMs != 0 && wait(timeoutMs);
}

bool Mutex::tryAcquire() {
  return wait(0);
}

bool Mutex::wait(DWORD timeoutMs) {
  switch (WaitForSingleObject(handle_.get(), timeoutMs)) {
    case WAIT_OBJECT_0:
    case WAIT_ABANDONED:
      ownerThread_ = GetCurrentThreadId();
      ++holdCount_;
      return true;
    case WAIT_TIMEOUT:
      return false;
    default: {
      const DWORD error = GetLastError();
      throw Win32Exception("Mutex::acquire() WaitForSingleObject failed", error, "Mutex", __LINE__);
    }
  }
}

void Mutex::release() {
  if (ownerThread_ != GetCurrentThreadId() || holdCount_ == 0)
    return;
  // Deliberately drops every recursive hold at once. The count is taken first: once the last
  // ReleaseMutex returns, another thread of this process may own the mutex and its fields.
  uint32_t holds = holdCount_;
  while (holds > 0) {
    --holds;
    --holdCount_;
    if (!ReleaseMutex(handle_.get())) {
      const DWORD error = GetLastError();
      throw Win32Exception("Mutex::release() ReleaseMutex failed", error, "Mutex", __LINE__);
    }
  }
}

std::string Mutex::getName() const {
  return name_;
}
