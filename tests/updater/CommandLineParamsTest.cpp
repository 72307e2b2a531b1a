#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "updater/CommandLineParams.h"

TEST(CommandLineParams, TheMarkerIsACaseInsensitiveSubstring) {
  const std::pair<const char*, bool> lines[] = {{"", false},          {"-UAC", true},
                                                {"-uac", true},       {"/silent -Uac", true},
                                                {"foo-UACbar", true}, {"/silent /update", false},
                                                {"- UAC", false},     {"UAC", false}};
  for (const auto& [line, elevated] : lines)
    EXPECT_EQ(elevated, CommandLineParams(line).containsUacParams()) << line;
}

// The shipped program, whatever its command line: one run and exit code 0.
TEST(CommandLineParams, TheProgramExitsWithZeroWhateverItsCommandLine) {
  for (const std::string& arguments :
       {std::string("-uac"), std::string(3000, 'x') + " \"%$#@!\" /?"}) {
    DWORD exitCode = 1;
    testsupport::runProcess(testsupport::besideTests("cvupdater.exe", arguments), &exitCode);
    EXPECT_EQ(0u, exitCode);
  }
}
