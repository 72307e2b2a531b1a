#include <gtest/gtest.h>

#include <climits>

#include "logging/LogText.h"

// Numbers are signed as their type is; digits beyond nine are lower-case letters.
TEST(LogText, NumbersKeepTheSignOfTheirTypeAndWriteLowerCaseDigits) {
  EXPECT_EQ("-2147483648 4294967295 true false",
            (decimal(INT32_MIN) + " " + decimal(UINT32_MAX) + " " + LogText(true) + " " +
             LogText(false))
                .str());
  EXPECT_EQ("7fffffff", LogText(INT32_MAX, 16).str());
}
