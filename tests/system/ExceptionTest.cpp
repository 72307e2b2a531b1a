#include <gtest/gtest.h>

#include "system/Exception.h"
#include "system/Win32Exception.h"

// The one-line description the log carries: [file:source:line: ]message[: code text], where a
// Win32Exception's code text is "Win32(" + the code + the system's message, and no closing
// parenthesis (the established format).
TEST(Exception, DescribesItselfInOneLogLine) {
  EXPECT_EQ(
      "file:.\\Mutex:42: Mutex::acquire() WaitForSingleObject failed: Win32(6" +
          getSystemMessage(6),
      Win32Exception("Mutex::acquire() WaitForSingleObject failed", 6, ".\\Mutex", 42).toString());
  EXPECT_EQ("file:InterProcessLock:7: InterProcessLock has no name",
            Win32Exception("InterProcessLock has no name", 0, "InterProcessLock", 7).toString());
  EXPECT_EQ("BasicLogger::getInstance(): Win32(1" + getSystemMessage(1),
            Win32Exception("BasicLogger::getInstance()", 1, "", 0).toString());
  EXPECT_EQ("m: -1", Exception("m", 0xFFFFFFFF, "", 0).toString());
}

TEST(Exception, SystemMessagesLoseTheirLineBreaksAndUnknownCodesSayWhy) {
  for (uint32_t code : {2u, 5u, 87u}) {
    const std::string text = getSystemMessage(code);
    EXPECT_FALSE(text.empty()) << code;
    EXPECT_EQ(std::string::npos, text.find_first_of("\r\n")) << code;
  }
  const std::string unknown = getSystemMessage(0x2000ABCD);
  EXPECT_EQ("Error getting message:", unknown.substr(0, 22));
  EXPECT_EQ(std::string::npos, unknown.find_first_not_of("0123456789", 22));
}
