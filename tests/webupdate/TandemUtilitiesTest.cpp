#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "webupdate/TandemUtilities.h"

// Regional identifiers are listed one by one: neighbours of a group that the service's table
// leaves out give 0. (The ctest entries codes_<locale> check whole locales.)
TEST(TandemUtilities, LanguageNumbersFollowTheServicesTable) {
  const std::pair<uint16_t, uint32_t> rows[] = {{1033, 0},  {2057, 0},  {3084, 1},  {6156, 0},
                                                {1034, 4},  {20490, 4}, {21514, 0}, {16385, 47},
                                                {4100, 13}, {1086, 49}, {0xFFFF, 0}};
  for (const auto& [langId, number] : rows)
    EXPECT_EQ(number, TandemUtilities::languageNumber(langId)) << langId;
}

// The 64-bit build reports "9" on 5.2 and "11" on 6.0; Windows 7 and everything before XP fall
// into "3". Observed from processes that Wine presents as each version.
TEST(TandemUtilities, TheOsCodeFollowsTheWindowsVersion) {
  const std::pair<const char*, const char*> rows[] = {{"win2k", "3"},   {"winxp", "5"},
                                                      {"winxp64", "9"}, {"vista", "11"},
                                                      {"win7", "3"},    {"win10", "3"}};
  for (const auto& [version, os] : rows) {
    std::map<std::string, std::string> facts =
        testsupport::runHelperCopy(std::string("cvwe_codes_") + version + ".exe", "codes", version);
    EXPECT_EQ(os, facts["os"]) << version;
    EXPECT_EQ(TandemUtilities::getCountryCode(), facts["country"]) << version;
  }
}
