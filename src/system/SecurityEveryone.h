#pragma once

#include "system/Security.h"

// A security descriptor whose DACL holds one ACE: allow Everyone (S-1-1-0) GENERIC_ALL. With
// `inheritable` the ACE also carries the container-inherit flag, so that subkeys created later
// inherit the grant (used for registry keys). Owns the descriptor, the ACL and the SID.
// Construction throws Win32Exception when a security call fails.
class SecurityEveryone : public Security {
 public:
  explicit SecurityEveryone(bool inheritable);
  ~SecurityEveryone() override;

  void doApply(HANDLE kernelObject) override;
  void doApply(HKEY registryKey) override;

 private:
  void setSecurityIdEveryone();
  void release();

  PSECURITY_DESCRIPTOR descriptor_ = nullptr;
  PACL acl_ = nullptr;
  PSID everyone_ = nullptr;
};
