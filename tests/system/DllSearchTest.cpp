#include <gtest/gtest.h>

#include "support/TestSupport.h"

// A DLL planted in the current directory under a name the process loads is found by the default
// search, and no longer once the start-up hardening has run.
TEST(DllSearch, StartUpHardeningTakesTheCurrentDirectoryOutOfTheSearch) {
  testsupport::TempDir planted;
  ASSERT_TRUE(CopyFileA((testsupport::executableDirectory() + "wupdstandin.dll").c_str(),
                        planted.file("cvplanted.dll").c_str(), FALSE));
  const std::string load = "load-from \"" + planted.path() + "\" cvplanted.dll";
  const auto run = [](const std::string& arguments) {
    return testsupport::runProcess(testsupport::besideTests("test_helper.exe", arguments))
        .substr(0, 8);
  };
  EXPECT_EQ("loaded=1", run(load));
  EXPECT_EQ("loaded=0", run(load + " harden"));
}
