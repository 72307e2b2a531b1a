#include <gtest/gtest.h>

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include "settings/RegistryKey.h"
#include "support/TestSupport.h"
#include "system/Exception.h"
#include "system/SecurityEveryone.h"

namespace {

struct AceFacts {
  int aceCount = -1;
  BYTE type = 0xFF;
  BYTE flags = 0xFF;
  ACCESS_MASK mask = 0;
  std::string sid;
};

AceFacts describe(PACL dacl) {
  AceFacts facts;
  if (dacl == nullptr)
    return facts;
  facts.aceCount = dacl->AceCount;
  void* ace = nullptr;
  if (dacl->AceCount == 0 || !GetAce(dacl, 0, &ace))
    return facts;
  auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
  facts.type = allowed->Header.AceType;
  facts.flags = allowed->Header.AceFlags;
  facts.mask = allowed->Mask;
  char* text = nullptr;
  if (ConvertSidToStringSidA(&allowed->SidStart, &text)) {
    facts.sid = text;
    LocalFree(text);
  }
  return facts;
}

// Reads the DACL of a registry key or kernel object back from the system.
AceFacts storedDacl(HANDLE object, SE_OBJECT_TYPE type) {
  PACL dacl = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  AceFacts facts;
  if (GetSecurityInfo(object, type, DACL_SECURITY_INFORMATION, nullptr, nullptr, &dacl, nullptr,
                      &descriptor) == ERROR_SUCCESS)
    facts = describe(dacl);
  LocalFree(descriptor);
  return facts;
}

const char kKeyRoot[] = "Software\\CorvaneTestSecurity";

}  // namespace

TEST(SecurityEveryone, DescriptorHoldsOneAllowEveryoneAce) {
  for (bool inheritable : {true, false}) {
    SecurityEveryone security(inheritable);
    SECURITY_ATTRIBUTES* attributes = security.getSecurityAttributes();
    ASSERT_NE(nullptr, attributes->lpSecurityDescriptor);
    EXPECT_EQ(sizeof(SECURITY_ATTRIBUTES), attributes->nLength);
    EXPECT_EQ(TRUE, attributes->bInheritHandle);
    BOOL present = FALSE;
    BOOL defaulted = TRUE;
    PACL dacl = nullptr;
    ASSERT_TRUE(
        GetSecurityDescriptorDacl(attributes->lpSecurityDescriptor, &present, &dacl, &defaulted));
    EXPECT_TRUE(present);
    EXPECT_FALSE(defaulted);
    EXPECT_EQ(28u, dacl->AclSize);
    const AceFacts facts = describe(dacl);
    EXPECT_EQ(1, facts.aceCount);
    EXPECT_EQ(ACCESS_ALLOWED_ACE_TYPE, facts.type);
    EXPECT_EQ(static_cast<ACCESS_MASK>(GENERIC_ALL), facts.mask);
    EXPECT_EQ("S-1-1-0", facts.sid);
    EXPECT_EQ(inheritable ? CONTAINER_INHERIT_ACE : 0, facts.flags);
  }
}

// Applied to an existing object, the DACL is stored as it was built: one ACE granting Everyone
// all rights, inherited by subkeys only for the inheritable descriptor.
TEST(SecurityEveryone, AppliedTheDaclReadsBackAsBuilt) {
  testsupport::deleteKeyTree(kKeyRoot);
  HKEY key = nullptr;
  ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExA(HKEY_LOCAL_MACHINE, kKeyRoot, 0, nullptr, 0,
                                           KEY_ALL_ACCESS, nullptr, &key, nullptr));
  EXPECT_NO_THROW(SecurityEveryone(true).doApply(key));
  const AceFacts onKey = storedDacl(key, SE_REGISTRY_KEY);
  RegCloseKey(key);
  testsupport::deleteKeyTree(kKeyRoot);
  HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  EXPECT_NO_THROW(SecurityEveryone(false).doApply(event));
  const AceFacts onEvent = storedDacl(event, SE_KERNEL_OBJECT);
  CloseHandle(event);
  for (const auto& [facts, flags] :
       {std::make_pair(onKey, BYTE{CONTAINER_INHERIT_ACE}), std::make_pair(onEvent, BYTE{0})}) {
    EXPECT_EQ(1, facts.aceCount);
    EXPECT_EQ(ACCESS_ALLOWED_ACE_TYPE, facts.type);
    EXPECT_EQ("S-1-1-0", facts.sid);
    EXPECT_EQ(flags, facts.flags);
  }
  // A key keeps the generic right as built; a kernel object stores it mapped to its own rights.
  EXPECT_EQ(static_cast<ACCESS_MASK>(GENERIC_ALL), onKey.mask);
}
