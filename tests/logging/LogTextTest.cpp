#include <gtest/gtest.h>

#include <climits>

#include "logging/LogText.h"

namespace {

struct Case {
  const char* what;
  LogText text;
  const char* expected;
};

TEST(LogText, EachFormProducesItsText) {
  const char* nullText = nullptr;
  const Case cases[] = {
      {"bool true", LogText(true), "true"},
      {"bool false", LogText(false), "false"},
      {"zero", LogText(0, 10), "0"},
      {"negative", LogText(-1, 10), "-1"},
      {"smallest int", LogText(INT32_MIN, 10), "-2147483648"},
      {"largest int", LogText(INT32_MAX, 10), "2147483647"},
      {"largest unsigned", LogText(UINT32_MAX, 10), "4294967295"},
      {"unsigned error code", LogText(static_cast<uint32_t>(0x80070005u), 10), "2147942405"},
      {"hexadecimal", LogText(255u, 16), "ff"},
      {"negative hexadecimal", LogText(-255, 16), "-ff"},
      {"binary", LogText(5u, 2), "101"},
      {"radix 36", LogText(35u, 36), "z"},
      {"string", LogText(std::string("a b")), "a b"},
      {"null pointer", LogText(nullText), ""},
      {"pointer", LogText("x"), "x"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(c.expected, c.text.str()) << c.what;
}

TEST(LogText, ConcatenationInEveryForm) {
  const char* nullText = nullptr;
  LogText text("a");
  text += LogText(1, 10);
  text += std::string("b");
  text += nullText;
  text += "c";
  EXPECT_EQ("a1bc", text.str());

  EXPECT_EQ("x=-7", (LogText("x=") + LogText(-7, 10)).str());
  EXPECT_EQ("x=y", (LogText("x=") + std::string("y")).str());
  EXPECT_EQ("x=", (LogText("x=") + nullText).str());
  EXPECT_EQ("rc=42", ("rc=" + LogText(42u, 10)).str());
  const std::string converted = LogText("s") + "t";
  EXPECT_EQ("st", converted);
}

}  // namespace
