#include <gtest/gtest.h>

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include "support/TestSupport.h"
#include "system/Mutex.h"
#include "system/SecurityEveryone.h"
#include "system/UniqueHandle.h"

namespace {

// A DACL as "<ACE count> <type> <flags> <mask> <SID>" of its first ACE, or "null".
std::string describe(PACL dacl) {
  void* ace = nullptr;
  if (dacl == nullptr || !GetAce(dacl, 0, &ace))
    return "null";
  auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
  char* sid = nullptr;
  ConvertSidToStringSidA(&allowed->SidStart, &sid);
  const ScopedLocal sidText(sid);
  char text[128];
  snprintf(text, sizeof(text), "%u %u %u %#lx %s", dacl->AceCount, allowed->Header.AceType,
           allowed->Header.AceFlags, allowed->Mask, sid);
  return text;
}

}  // namespace

// One ACE allowing Everyone (S-1-1-0) all rights, inherited by subkeys only when asked for.
TEST(SecurityEveryone, AllowsEveryoneEverything) {
  for (const bool inheritable : {true, false}) {
    SecurityEveryone security(inheritable);
    SECURITY_ATTRIBUTES* attributes = security.getSecurityAttributes();
    BOOL present = FALSE, defaulted = TRUE;
    PACL dacl = nullptr;
    GetSecurityDescriptorDacl(attributes->lpSecurityDescriptor, &present, &dacl, &defaulted);
    EXPECT_TRUE(attributes->bInheritHandle && present && !defaulted);
    EXPECT_EQ(inheritable ? "1 0 2 0x10000000 S-1-1-0" : "1 0 0 0x10000000 S-1-1-0",
              describe(dacl));
  }
}

// The mutexes that processes of every user share (the log's) have a null DACL.
TEST(SecurityEveryone, MutexesForEveryoneHaveANullDacl) {
  Mutex mutex(false, "cvtest_everyone", true);
  const ScopedHandle opened(OpenMutexA(READ_CONTROL, FALSE, "cvtest_everyone"));
  EXPECT_EQ("null", testsupport::dacl(opened.get(), SE_KERNEL_OBJECT));
}
