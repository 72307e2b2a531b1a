#include <gtest/gtest.h>

#include <climits>

#include "logging/LogText.h"

// How every number and flag reaches the log.
TEST(LogText, NumbersAreDecimalAsTheirTypeIsSignedAndFlagsAreWords) {
  EXPECT_EQ("-2147483648 0 2147483647 4294967295 2147942405",
            (decimal(INT32_MIN) + " " + decimal(0) + " " + decimal(INT32_MAX) + " " +
             decimal(UINT32_MAX) + " " + decimal(0x80070005u))
                .str());
  EXPECT_EQ("true false", (LogText(true) + " " + LogText(false)).str());
}
