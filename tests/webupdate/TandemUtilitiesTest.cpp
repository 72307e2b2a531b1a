#include <gtest/gtest.h>

#include <utility>

#include "support/TestSupport.h"
#include "webupdate/TandemUtilities.h"

// One row per kind of table entry: a primary language, a regional variant listed on its own,
// the regional groups filled in by language, and identifiers the table leaves out.
TEST(LanguageCode, MapsLangIdsByTheServicesTable) {
  const std::pair<uint16_t, uint32_t> rows[] = {
      {1033, 0},    // English (US)
      {2057, 0},    // English (UK): not listed
      {1036, 1},    // French
      {3084, 1},    // French (Canada), by the French group
      {6156, 0},    // French (Monaco): outside the group
      {1031, 2},    // German
      {5127, 2},    // German (Liechtenstein)
      {1034, 4},    // Spanish (traditional sort)
      {3082, 28},   // Spanish (modern sort), listed on its own
      {20490, 4},   // Spanish (Puerto Rico), last of the Spanish group
      {21514, 0},   // Spanish (US): outside the group
      {1025, 47},   // Arabic
      {16385, 47},  // Arabic (Qatar)
      {2052, 13},   // Chinese (PRC)
      {4100, 13},   // Chinese (Singapore)
      {1086, 49},   // Malay, the highest number
      {0, 0},      {0xFFFF, 0},
  };
  for (const auto& [langId, number] : rows)
    EXPECT_EQ(number, TandemUtilities::languageNumber(langId)) << langId;
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
