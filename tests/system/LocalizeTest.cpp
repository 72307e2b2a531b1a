#include <gtest/gtest.h>

#include "support/TestSupport.h"

// The first four characters of the executable's name, lower-cased, are the local id; its first
// two pick the product family (the first row of a shared prefix), else "Corvane Tools".
TEST(Localize, TheExecutablesNameGivesTheLocalIdAndTheProductFamily) {
  const char* rows[][4] = {{"CVxyz.exe", "cvxy", "Software\\CorvaneInkjet", "0"},
                           {"gnabc.exe", "gnab", "Software\\QvsLaser", "1"},
                           {"kkfoo.exe", "kkfo", "Software\\KetterLaser", "1"},
                           {"HKtool.exe", "hkto", "Software\\HalvikInkJet", "0"},
                           {"nnnet.exe", "nnne", "Software\\N-NetInkjet", "0"},
                           {"zzzz.exe", "zzzz", "Software\\Corvane Tools", "0"},
                           {"ab.exe", "ab.e", "Software\\Corvane Tools", "0"}};
  for (const auto& [exe, localId, family, laser] : rows) {
    std::map<std::string, std::string> facts =
        testsupport::facts(testsupport::runCopy("test_helper.exe", exe, "probe"));
    EXPECT_EQ(localId, facts["localId"]) << exe;
    EXPECT_EQ(family, facts["familyPath"]) << exe;
    EXPECT_EQ(std::string(family) + "\\QNV\\Local\\" + localId + "\\", facts["localPath"]) << exe;
    EXPECT_EQ(std::string(family) + "\\QNV\\Shared\\", facts["sharedPath"]) << exe;
    EXPECT_EQ(laser, facts["laser"]) << exe;
  }
}
