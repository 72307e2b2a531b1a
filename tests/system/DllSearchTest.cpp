#include <gtest/gtest.h>

#include "support/TestSupport.h"

// Where a DLL that the process loads by name is found, before and after an update run's start-up
// has narrowed the search: the current directory and PATH drop out, the program's own folder stays.
// (A copy of the helper runs in this executable's store, where it finds no library and ends.)
TEST(DllSearch, AnUpdateRunSearchesNeitherTheCurrentDirectoryNorPathButItsOwnFolder) {
  const testsupport::ScopedStore store;
  testsupport::TempDir planted;
  const std::string library = testsupport::executableDirectory() + "wupdstandin.dll";
  const std::string beside = testsupport::executableDirectory() + "tsbeside.dll";
  ASSERT_TRUE(CopyFileA(library.c_str(), planted.file("tsplanted.dll").c_str(), FALSE));
  ASSERT_TRUE(CopyFileA(library.c_str(), beside.c_str(), FALSE));
  const std::string folder = " \"" + planted.path() + "\" ";
  const std::pair<std::string, const char*> rows[] = {
      {"cwd" + folder + "tsplanted.dll", "loaded=1"},
      {"cwd" + folder + "tsplanted.dll run", "loaded=0"},
      {"path" + folder + "tsplanted.dll", "loaded=1"},
      {"path" + folder + "tsplanted.dll run", "loaded=0"},
      {"cwd" + folder + "tsbeside.dll run", "loaded=1"}};
  for (const auto& [arguments, loaded] : rows) {
    EXPECT_EQ(loaded,
              testsupport::runCopy("test_helper.exe", testsupport::localId() + "_helper.exe",
                                   "load-from " + arguments)
                  .substr(0, 8))
        << arguments;
  }
  DeleteFileA(beside.c_str());
}
