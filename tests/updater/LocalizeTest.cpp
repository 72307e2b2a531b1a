#include <gtest/gtest.h>

#include <map>

#include "support/TestSupport.h"
#include "updater/Localize.h"

namespace {

struct FamilyCase {
  const char* exeName;
  const char* localId;
  const char* familyPath;
  const char* laser;
};

}  // namespace

class ProductFamily : public testing::TestWithParam<FamilyCase> {};

TEST_P(ProductFamily, FollowsTheExecutableName) {
  const FamilyCase& c = GetParam();
  std::map<std::string, std::string> facts = testsupport::runHelperCopy(c.exeName, "probe");
  ASSERT_FALSE(facts.empty()) << "the probe did not run as " << c.exeName;
  EXPECT_EQ(c.localId, facts["localId"]);
  EXPECT_EQ(c.familyPath, facts["familyPath"]);
  EXPECT_EQ(std::string(c.familyPath) + "\\QNV\\", facts["qnvPath"]);
  EXPECT_EQ(std::string(c.familyPath) + "\\QNV\\Local\\" + c.localId + "\\", facts["localPath"]);
  EXPECT_EQ(std::string(c.familyPath) + "\\QNV\\Shared\\", facts["sharedPath"]);
  EXPECT_EQ("Software\\CorvaneTemp\\temp", facts["tempPath"]);
  EXPECT_EQ(c.laser, facts["laser"]);
  EXPECT_EQ(c.laser, facts["knownFamily"]);
}

// Rows that share a prefix ("gn", "kk") resolve to the first row for paths.
INSTANTIATE_TEST_SUITE_P(
    ExecutableNames,
    ProductFamily,
    testing::Values(FamilyCase{"CVxyz.exe", "cvxy", "Software\\CorvaneInkjet", "0"},
                    FamilyCase{"gnabc.exe", "gnab", "Software\\QvsLaser", "1"},
                    FamilyCase{"kkfoo.exe", "kkfo", "Software\\KetterLaser", "1"},
                    FamilyCase{"HKtool.exe", "hkto", "Software\\HalvikInkJet", "0"},
                    FamilyCase{"hxtool.exe", "hxto", "Software\\HalvikLaser", "1"},
                    FamilyCase{"nnnet.exe", "nnne", "Software\\N-NetInkjet", "0"},
                    FamilyCase{"zzzz.exe", "zzzz", "Software\\Corvane Tools", "0"},
                    FamilyCase{"ab.exe", "ab.e", "Software\\Corvane Tools", "0"}));

TEST(LocalizeSingleton, GetInstanceBeforeCreateInstanceThrowsPlainText) {
  Localize::destroyInstance();
  bool thrown = false;
  try {
    Localize::getInstance();
  } catch (const char* text) {
    thrown = true;
    EXPECT_STREQ("You must call Localize::createInstance() before calling getInstance()", text);
  }
  Localize::createInstance(nullptr);
  EXPECT_TRUE(thrown);
  EXPECT_EQ("cvct", Localize::getInstance()->getLocalId());
}

TEST(LocalizeSingleton, ASecondCreateInstanceKeepsTheFirst) {
  Localize* first = Localize::getInstance();
  Localize::createInstance(GetModuleHandleA("kernel32.dll"));
  EXPECT_EQ(first, Localize::getInstance());
  EXPECT_EQ("cvct", Localize::getInstance()->getLocalId());
}
