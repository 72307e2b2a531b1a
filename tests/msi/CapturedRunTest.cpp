#include <gtest/gtest.h>

#include <windows.h>

#include <cstdlib>

#include "CapturedRun.h"
#include "PrivateFolder.h"
#include "WideText.h"
#include "support/TestSupport.h"

// What the tool writes, on both streams, and its exit code come back once it ends; its output
// file is gone.
TEST(CapturedRun, ReturnsTheExitCodeAndEverythingWritten) {
  const PrivateFolder folder;
  ASSERT_TRUE(folder.valid());
  std::string output;
  EXPECT_EQ(3, runCaptured(L"cmd /c \"echo out& echo err 1>&2& exit /b 3\"",
                           folder.file(L"output.txt"), 60000, output));
  EXPECT_EQ("out\r\nerr \r\n", output);
  EXPECT_FALSE(testsupport::fileExists(narrow(folder.file(L"output.txt"))));
}

// A tool that never ends, and a process it started that holds its output, do not keep the caller
// past the limit: both are ended, and the output says so.
TEST(CapturedRun, EndsAToolPastItsLimitWithWhatItStarted) {
  const PrivateFolder folder;
  std::string output;
  EXPECT_EQ(-1, runCaptured(widen(testsupport::besideTests("test_helper.exe", "hang")),
                            folder.file(L"output.txt"), 2000, output));
  const std::string ended = "did not end within 2 s; it was ended\n";
  ASSERT_GE(output.size(), ended.size()) << output;
  EXPECT_EQ(ended, output.substr(output.size() - ended.size()));
  const std::map<std::string, std::string> facts = testsupport::facts(output);
  ASSERT_EQ(1u, facts.count("child")) << output;
  const ScopedHandle child(
      OpenProcess(SYNCHRONIZE, FALSE, strtoul(facts.at("child").c_str(), nullptr, 10)));
  EXPECT_TRUE(!child.valid() || WaitForSingleObject(child.get(), 10000) == WAIT_OBJECT_0);
}
