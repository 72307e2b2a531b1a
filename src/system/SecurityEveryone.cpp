#include "system/SecurityEveryone.h"

#include <aclapi.h>

#include <cstdlib>

#include "system/Win32Exception.h"

namespace {
const char kInitFailed[] =
    "SecurityEveryone::SecurityEveryone() InitializeSecurityDescriptor failed";

// An access-allowed ACE without the SID that follows its header and mask.
const DWORD kAceSizeWithoutSid = sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD);
}  // namespace

SecurityEveryone::SecurityEveryone(bool inheritable) {
  if (!isSupported())
    return;
  try {
    descriptor_ = calloc(1, SECURITY_DESCRIPTOR_MIN_LENGTH);
    if (descriptor_ == nullptr)
      throw Win32Exception(kInitFailed, ERROR_NOT_ENOUGH_MEMORY, "SecurityEveryone", __LINE__);
    if (!InitializeSecurityDescriptor(descriptor_, SECURITY_DESCRIPTOR_REVISION)) {
      const DWORD error = GetLastError();
      throw Win32Exception(kInitFailed, error, "SecurityEveryone", __LINE__);
    }

    setSecurityIdEveryone();

    DWORD aclSize = sizeof(ACL);
    if (!IsValidSid(everyone_)) {
      const DWORD error = GetLastError();
      throw Win32Exception("SecurityEveryone::SecurityEveryone() IsValidSid failed", error,
                           "SecurityEveryone", __LINE__);
    }
    aclSize += kAceSizeWithoutSid + GetLengthSid(everyone_);

    // The three calls share one failure text by design.
    acl_ = static_cast<PACL>(calloc(1, aclSize));
    if (acl_ == nullptr)
      throw Win32Exception(kInitFailed, ERROR_NOT_ENOUGH_MEMORY, "SecurityEveryone", __LINE__);
    if (!InitializeAcl(acl_, aclSize, ACL_REVISION) ||
        !AddAccessAllowedAce(acl_, ACL_REVISION, GENERIC_ALL, everyone_) ||
        !SetSecurityDescriptorDacl(descriptor_, TRUE, acl_, FALSE)) {
      const DWORD error = GetLastError();
      throw Win32Exception(kInitFailed, error, "SecurityEveryone", __LINE__);
    }

    if (inheritable) {
      void* ace = nullptr;
      if (!GetAce(acl_, 0, &ace)) {
        const DWORD error = GetLastError();
        throw Win32Exception(kInitFailed, error, "SecurityEveryone", __LINE__);
      }
      static_cast<ACE_HEADER*>(ace)->AceFlags |= CONTAINER_INHERIT_ACE;
    }
  } catch (...) {
    release();
    throw;
  }
  setDescriptor(descriptor_);
}

SecurityEveryone::~SecurityEveryone() {
  release();
}

void SecurityEveryone::release() {
  if (everyone_ != nullptr)
    FreeSid(everyone_);
  free(acl_);
  free(descriptor_);
  everyone_ = nullptr;
  acl_ = nullptr;
  descriptor_ = nullptr;
}

void SecurityEveryone::setSecurityIdEveryone() {
  SID_IDENTIFIER_AUTHORITY world = SECURITY_WORLD_SID_AUTHORITY;
  if (!AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, &everyone_)) {
    const DWORD error = GetLastError();
    throw Win32Exception(
        "SecurityEveryone::setSecurityIdEveryone() AllocateAndInitializeSid failed", error,
        "SecurityEveryone", __LINE__);
  }
}

void SecurityEveryone::doApply(HANDLE kernelObject) {
  if (!isSupported())
    return;
  if (!SetKernelObjectSecurity(kernelObject, DACL_SECURITY_INFORMATION, descriptor_)) {
    const DWORD error = GetLastError();
    throw Win32Exception("Security::doApply() SetKernelObjectSecurity failed ", error, "Security",
                         __LINE__);
  }
}

void SecurityEveryone::doApply(HKEY registryKey) {
  if (!isSupported())
    return;
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  PACL dacl = nullptr;
  if (!GetSecurityDescriptorDacl(descriptor_, &present, &dacl, &defaulted)) {
    const DWORD error = GetLastError();
    throw Win32Exception("Security::doApply() GetSecurityDescriptorDacl failed ", error, "Security",
                         __LINE__);
  }
  const DWORD result = SetSecurityInfo(registryKey, SE_REGISTRY_KEY, DACL_SECURITY_INFORMATION,
                                       nullptr, nullptr, dacl, nullptr);
  if (result != ERROR_SUCCESS)
    throw Win32Exception("Security::doApply() SetSecurityInfo failed ", result, "Security",
                         __LINE__);
}
