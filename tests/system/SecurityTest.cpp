#include <gtest/gtest.h>

#include <windows.h>

#include "support/TestSupport.h"
#include "system/Mutex.h"
#include "system/SecurityEveryone.h"
#include "system/UniqueHandle.h"

// One ACE allowing Everyone all rights, inherited by subkeys only when asked for.
TEST(SecurityEveryone, AllowsEveryoneEverything) {
  for (const bool inheritable : {true, false}) {
    SecurityEveryone security(inheritable);
    const SECURITY_ATTRIBUTES* attributes = security.getSecurityAttributes();
    EXPECT_TRUE(attributes->bInheritHandle);
    EXPECT_EQ(inheritable ? "D:(A;CI;GA;;;WD)" : "D:(A;;GA;;;WD)",
              testsupport::dacl(attributes->lpSecurityDescriptor));
  }
}

// The mutexes that processes of every user share (the log's) have a null DACL.
TEST(SecurityEveryone, MutexesForEveryoneHaveANullDacl) {
  Mutex mutex(false, "cvtest_everyone", true);
  const ScopedHandle opened(OpenMutexA(READ_CONTROL, FALSE, "cvtest_everyone"));
  EXPECT_EQ("null", testsupport::dacl(opened.get(), SE_KERNEL_OBJECT));
}
