#include <gtest/gtest.h>

#include "support/TestSupport.h"

// A DLL planted in the current directory under a name the process loads is found by the default
// search, and no longer once an update run has started (a copy of the helper named tssy_helper.exe
// runs in this executable's store, where it finds no library and ends).
TEST(DllSearch, AnUpdateRunTakesTheCurrentDirectoryOutOfTheSearch) {
  const testsupport::ScopedStore store;
  testsupport::TempDir planted;
  ASSERT_TRUE(CopyFileA((testsupport::executableDirectory() + "wupdstandin.dll").c_str(),
                        planted.file("cvplanted.dll").c_str(), FALSE));
  const std::string load = "load-from \"" + planted.path() + "\" cvplanted.dll";
  const auto run = [](const std::string& arguments) {
    return testsupport::runCopy("test_helper.exe", testsupport::localId() + "_helper.exe", arguments).substr(0, 8);
  };
  EXPECT_EQ("loaded=1", run(load));
  EXPECT_EQ("loaded=0", run(load + " run"));
}
