#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>

#include "system/Exception.h"
#include "system/Win32Exception.h"

namespace {

// The system's text for `code`, read another way (the wide form, in English), on one line.
std::string systemText(DWORD code) {
  wchar_t wide[256] = {};
  FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                 MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), wide, 256, nullptr);
  char text[512] = {};
  WideCharToMultiByte(CP_ACP, 0, wide, -1, text, sizeof(text), nullptr, nullptr);
  std::string line = text;
  line.erase(
      std::remove_if(line.begin(), line.end(), [](char c) { return c == '\r' || c == '\n'; }),
      line.end());
  return line;
}

}  // namespace

// The one-line description the log carries: [file:source:line: ]message[: code text], where a
// Win32Exception's code text is "Win32(" + the code + the system's message without its line breaks,
// and no closing parenthesis (the established format).
TEST(Exception, DescribesItselfInOneLogLine) {
  EXPECT_EQ(
      "file:.\\Mutex:42: Mutex::acquire() WaitForSingleObject failed: Win32(6" + systemText(6),
      Win32Exception("Mutex::acquire() WaitForSingleObject failed", 6, ".\\Mutex", 42).toString());
  EXPECT_EQ("file:InterProcessLock:7: InterProcessLock has no name",
            Win32Exception("InterProcessLock has no name", 0, "InterProcessLock", 7).toString());
  EXPECT_EQ("BasicLogger::getInstance(): Win32(1" + systemText(1),
            Win32Exception("BasicLogger::getInstance()", 1, "", 0).toString());
  EXPECT_EQ("m: -1", Exception("m", 0xFFFFFFFF, "", 0).toString());
}
