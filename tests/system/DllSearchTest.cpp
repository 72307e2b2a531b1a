#include <gtest/gtest.h>

#include "support/TestSupport.h"

// A DLL planted in the current directory under a name the process loads is found by the default
// search, and no longer once the start-up hardening has run.
TEST(DllSearch, StartUpHardeningTakesTheCurrentDirectoryOutOfTheSearch) {
  testsupport::TempDir planted;
  ASSERT_TRUE(CopyFileA((testsupport::executableDirectory() + "wupdstandin.dll").c_str(),
                        planted.file("cvplanted.dll").c_str(), FALSE));
  const std::string helper = "\"" + testsupport::executableDirectory() + "test_helper.exe\" " +
                             "load-from \"" + planted.path() + "\" cvplanted.dll";
  EXPECT_EQ("loaded=1", testsupport::runProcess(helper).output.substr(0, 8));
  EXPECT_EQ("loaded=0", testsupport::runProcess(helper + " harden").output.substr(0, 8));
}
