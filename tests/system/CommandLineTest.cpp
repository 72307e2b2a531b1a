#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "updater/CommandLineParams.h"

struct MarkerCase {
  const char* commandLine;
  bool elevated;
};

class CommandLineMarker : public testing::TestWithParam<MarkerCase> {};

TEST_P(CommandLineMarker, IsACaseInsensitiveSubstring) {
  EXPECT_EQ(GetParam().elevated, CommandLineParams(GetParam().commandLine).containsUacParams());
}

INSTANTIATE_TEST_SUITE_P(Lines,
                         CommandLineMarker,
                         testing::Values(MarkerCase{"", false},
                                         MarkerCase{"-UAC", true},
                                         MarkerCase{"-uac", true},
                                         MarkerCase{"/silent -Uac", true},
                                         MarkerCase{"foo-UACbar", true},
                                         MarkerCase{"/silent /update", false},
                                         MarkerCase{"- UAC", false},
                                         MarkerCase{"UAC", false}));

// The shipped program under Wine: whatever the command line, one run and exit code 0.
class ProgramExitCode : public testing::TestWithParam<std::string> {};

TEST_P(ProgramExitCode, IsZero) {
  const testsupport::ProcessResult result = testsupport::runProcess(
      "\"" + testsupport::executableDirectory() + "cvupdater.exe\" " + GetParam(), 60000);
  ASSERT_TRUE(result.started);
  ASSERT_FALSE(result.timedOut);
  EXPECT_EQ(0u, result.exitCode);
}

INSTANTIATE_TEST_SUITE_P(CommandLines,
                         ProgramExitCode,
                         testing::Values("",
                                         "-UAC",
                                         "-uac",
                                         "foo-UACbar",
                                         std::string(3000, 'x') + " \"%%$#@!\" -- /? " +
                                             std::string(500, '\\')));
