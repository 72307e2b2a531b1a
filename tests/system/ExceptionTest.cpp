#include <gtest/gtest.h>

#include <windows.h>

#include "system/Exception.h"
#include "system/Win32Exception.h"

namespace {

bool isDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

TEST(ExceptionText, FullDescriptionHasFileLineMessageAndCodeText) {
  const Win32Exception e("Mutex::acquire() WaitForSingleObject failed", 6, ".\\Mutex", 42);
  EXPECT_EQ("file:.\\Mutex:42: Mutex::acquire() WaitForSingleObject failed: Win32(6" +
                getSystemMessage(6),
            e.toString());
  // No closing parenthesis: the established log format.
  EXPECT_EQ("Win32(6" + getSystemMessage(6), e.getCodeText());
}

TEST(ExceptionText, CodeZeroHasNoCodeText) {
  const Win32Exception e("InterProcessLock has no name", 0, "InterProcessLock", 7);
  EXPECT_EQ("", e.getCodeText());
  EXPECT_EQ("file:InterProcessLock:7: InterProcessLock has no name", e.toString());
}

TEST(ExceptionText, EmptySourceFileHasNoFilePart) {
  const Win32Exception e("BasicLogger::getInstance()", 1, "", 0);
  EXPECT_EQ("BasicLogger::getInstance(): Win32(1" + getSystemMessage(1), e.toString());
}

TEST(ExceptionText, PlainExceptionWritesTheCodeInSignedDecimal) {
  EXPECT_EQ("-1", Exception("m", 0xFFFFFFFF, "", 0).getCodeText());
  EXPECT_EQ("5", Exception("m", 5, "", 0).getCodeText());
  EXPECT_EQ("m: 5", Exception("m", 5, "", 0).toString());
  EXPECT_EQ("Win32(-1", Win32Exception("m", 0xFFFFFFFF, "", 0).getCodeText().substr(0, 8));
}

// The system's text without its line breaks, whatever the system's wording.
TEST(SystemMessage, IsTheSystemTextWithoutLineBreaks) {
  int withBreaks = 0;
  for (DWORD code : {ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_INVALID_PARAMETER}) {
    char raw[256] = {};
    ASSERT_NE(0u, FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                 nullptr, code, MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), raw,
                                 sizeof(raw), nullptr));
    std::string expected;
    for (const char* p = raw; *p != '\0'; ++p) {
      if (*p != '\r' && *p != '\n')
        expected += *p;
    }
    withBreaks += expected.size() != strlen(raw) ? 1 : 0;
    EXPECT_EQ(expected, getSystemMessage(code)) << "code " << code;
  }
  EXPECT_GT(withBreaks, 0) << "no system text with a line break was seen";
}

TEST(SystemMessage, UnknownCodeNamesFormatMessagesOwnError) {
  const std::string message = getSystemMessage(0x2000ABCD);
  const std::string prefix = "Error getting message:";
  ASSERT_EQ(prefix, message.substr(0, prefix.size()));
  EXPECT_TRUE(isDigits(message.substr(prefix.size()))) << message;
}
