#include <gtest/gtest.h>

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <cstdio>

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

void report(const char* what, const AceFacts& facts) {
  printf("[ stored   ] %s: %d ACE(s), type %u, flags 0x%02x, mask 0x%08lx, %s\n", what,
         facts.aceCount, facts.type, facts.flags, static_cast<unsigned long>(facts.mask),
         facts.sid.c_str());
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

// Reads the DACL of a registry key or file back from the system.
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

bool sameFacts(const AceFacts& a, const AceFacts& b) {
  return a.aceCount == b.aceCount && a.type == b.type && a.flags == b.flags && a.mask == b.mask &&
         a.sid == b.sid;
}

bool isEveryoneGrant(const AceFacts& facts) {
  return facts.aceCount == 1 && facts.type == ACCESS_ALLOWED_ACE_TYPE && facts.sid == "S-1-1-0";
}

// A key created through RegistryKey asks for the Everyone descriptor. Windows stores it; Wine's
// RegCreateKeyExA drops the security attributes and gives the key its default DACL. Both are
// accepted here, and what was stored is printed.
TEST(SecurityEveryone, KeyCreatedThroughRegistryKeyGetsTheGrantOrWinesDefault) {
  testsupport::deleteKeyTree(kKeyRoot);
  AceFacts created;
  {
    RegistryKey key(std::string(kKeyRoot) + "\\Secured", true, HKEY_LOCAL_MACHINE);
    created = storedDacl(key.getHandle(), SE_REGISTRY_KEY);
  }
  report("key created with the descriptor", created);
  HKEY plain = nullptr;
  RegCreateKeyExA(HKEY_LOCAL_MACHINE, (std::string(kKeyRoot) + "\\Plain").c_str(), 0, nullptr, 0,
                  KEY_ALL_ACCESS, nullptr, &plain, nullptr);
  const AceFacts byDefault = storedDacl(plain, SE_REGISTRY_KEY);
  RegCloseKey(plain);
  report("key created without one", byDefault);
  testsupport::deleteKeyTree(kKeyRoot);
  if (isEveryoneGrant(created)) {
    EXPECT_TRUE(created.flags & CONTAINER_INHERIT_ACE);
  } else {
    EXPECT_TRUE(sameFacts(created, byDefault));
  }
}

// Applied to an existing key, the DACL is stored as it was built: one ACE, Everyone, all rights,
// inherited by subkeys.
TEST(SecurityEveryone, AppliedToAKeyTheDaclReadsBackAsOneInheritableEveryoneAce) {
  testsupport::deleteKeyTree(kKeyRoot);
  HKEY key = nullptr;
  ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExA(HKEY_LOCAL_MACHINE, kKeyRoot, 0, nullptr, 0,
                                           KEY_ALL_ACCESS, nullptr, &key, nullptr));
  SecurityEveryone security(true);
  EXPECT_NO_THROW(security.doApply(key));
  const AceFacts facts = storedDacl(key, SE_REGISTRY_KEY);
  report("key after doApply", facts);
  RegCloseKey(key);
  testsupport::deleteKeyTree(kKeyRoot);
  EXPECT_TRUE(isEveryoneGrant(facts));
  EXPECT_EQ(CONTAINER_INHERIT_ACE, facts.flags);
  EXPECT_EQ(static_cast<ACCESS_MASK>(GENERIC_ALL), facts.mask);
}

// The log file is created with the log writer's (not inheritable) descriptor. Wine keeps file
// security only where the file system stores it; otherwise it derives a DACL from the Unix mode.
TEST(SecurityEveryone, FileCreatedWithTheLoggersAttributes) {
  testsupport::TempDir directory;
  SecurityEveryone security(false);
  const std::string path = directory.file("secured.log");
  HANDLE file =
      CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  security.getSecurityAttributes(), OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(INVALID_HANDLE_VALUE, file);
  const AceFacts created = storedDacl(file, SE_FILE_OBJECT);
  report("file created with the descriptor", created);
  CloseHandle(file);
  // Applying needs a handle with the right to change the DACL.
  file = CreateFileA(path.c_str(), READ_CONTROL | WRITE_DAC, FILE_SHARE_READ | FILE_SHARE_WRITE,
                     nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(INVALID_HANDLE_VALUE, file);
  EXPECT_NO_THROW(security.doApply(file));
  const AceFacts applied = storedDacl(file, SE_FILE_OBJECT);
  report("file after doApply", applied);
  CloseHandle(file);
  if (isEveryoneGrant(created)) {
    EXPECT_EQ(0, created.flags);
  }
  if (isEveryoneGrant(applied)) {
    EXPECT_EQ(0, applied.flags);
  }
}

TEST(SecurityEveryone, AppliesToKernelObjects) {
  SecurityEveryone security(false);
  HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  EXPECT_NO_THROW(security.doApply(event));
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  PACL dacl = nullptr;
  ASSERT_EQ(ERROR_SUCCESS, GetSecurityInfo(event, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION,
                                           nullptr, nullptr, &dacl, nullptr, &descriptor));
  const AceFacts facts = describe(dacl);
  LocalFree(descriptor);
  CloseHandle(event);
  EXPECT_TRUE(isEveryoneGrant(facts));
  EXPECT_EQ(0, facts.flags);
}
