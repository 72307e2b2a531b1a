#include <gtest/gtest.h>

#include <map>

#include "support/TestSupport.h"
#include "webupdate/TandemUtilities.h"

namespace {

// The service's language numbers, LANGID by LANGID.
const std::map<uint16_t, uint32_t>& languageTable() {
  static const std::map<uint16_t, uint32_t> table = [] {
    std::map<uint16_t, uint32_t> t = {
        {1025, 47}, {1026, 40}, {1027, 39}, {1028, 14}, {1029, 15}, {1030, 5},  {1031, 2},
        {1032, 16}, {1033, 0},  {1034, 4},  {1035, 9},  {1036, 1},  {1037, 46}, {1038, 17},
        {1039, 18}, {1040, 3},  {1041, 12}, {1042, 19}, {1043, 7},  {1044, 6},  {1045, 20},
        {1046, 21}, {1048, 32}, {1049, 22}, {1050, 38}, {1051, 23}, {1052, 43}, {1053, 8},
        {1054, 27}, {1055, 24}, {1057, 35}, {1058, 26}, {1059, 41}, {1060, 29}, {1061, 37},
        {1062, 34}, {1063, 33}, {1066, 25}, {1069, 42}, {1071, 48}, {1078, 44}, {1080, 36},
        {1086, 49}, {2052, 13}, {2064, 3},  {2066, 19}, {2067, 7},  {2068, 45}, {2070, 10},
        {2074, 30}, {2077, 8},  {3076, 14}, {3082, 28}, {3098, 31}, {4100, 13}, {5124, 14}};
    for (uint16_t id : {2049, 3073, 4097, 5121, 6145, 7169, 8193, 9217, 10241, 11265, 12289, 13313,
                        14337, 15361, 16385})
      t[id] = 47;  // Arabic
    for (uint16_t id : {2058, 4106, 5130, 6154, 7178, 8202, 9226, 10250, 11274, 12298, 13322, 14346,
                        15370, 16394, 17418, 18442, 19466, 20490})
      t[id] = 4;  // Spanish
    for (uint16_t id : {2055, 3079, 4103, 5127})
      t[id] = 2;  // German
    for (uint16_t id : {2060, 3084, 4108, 5132})
      t[id] = 1;  // French
    return t;
  }();
  return table;
}

}  // namespace

// Every identifier: the listed ones map as listed; every other one, including the regional
// neighbours that are not listed (French Monaco 6156, Spanish 21514, ...), gives 0.
TEST(LanguageCode, EveryLangIdMapsByTheTable) {
  int listed = 0;
  for (uint32_t id = 0; id <= 0xFFFF; ++id) {
    const auto entry = languageTable().find(static_cast<uint16_t>(id));
    const uint32_t expected = entry == languageTable().end() ? 0 : entry->second;
    listed += entry == languageTable().end() ? 0 : 1;
    ASSERT_EQ(expected, TandemUtilities::languageNumber(static_cast<uint16_t>(id))) << id;
  }
  EXPECT_EQ(97, listed);
  EXPECT_EQ(0u, TandemUtilities::languageNumber(6156));
  EXPECT_EQ(28u, TandemUtilities::languageNumber(3082));
  EXPECT_EQ(4u, TandemUtilities::languageNumber(1034));
}

TEST(CountryCode, IsTheSystemLangIdInEightUpperCaseHexDigits) {
  char expected[16];
  snprintf(expected, sizeof(expected), "%08X", static_cast<unsigned>(GetSystemDefaultLangID()));
  EXPECT_EQ(expected, TandemUtilities::getCountryCode());
}

struct OsCase {
  const char* wineVersion;
  const char* os;
};

class OsCode : public testing::TestWithParam<OsCase> {};

// Observed from processes that Wine presents as another Windows version. The locale codes are
// this process's own (the locale follows LC_ALL; the ctest entries "codes_<locale>" run the
// helper under several).
TEST_P(OsCode, FollowsTheWindowsVersion) {
  std::map<std::string, std::string> facts =
      testsupport::runHelperCopy(std::string("cvwe_codes_") + GetParam().wineVersion + ".exe",
                                 "codes", GetParam().wineVersion);
  ASSERT_FALSE(facts.empty());
  EXPECT_EQ(GetParam().os, facts["os"]);
  EXPECT_EQ(TandemUtilities::getLanguageCode(), facts["language"]);
  EXPECT_EQ(TandemUtilities::getCountryCode(), facts["country"]);
}

// The 64-bit build always reports "9" on 5.2 and "11" on 6.0; Windows 7 and everything before XP
// fall into "3".
INSTANTIATE_TEST_SUITE_P(WineVersions,
                         OsCode,
                         testing::Values(OsCase{"win2k", "3"},
                                         OsCase{"winxp", "5"},
                                         OsCase{"winxp64", "9"},
                                         OsCase{"vista", "11"},
                                         OsCase{"win7", "3"},
                                         OsCase{"win10", "3"}));
