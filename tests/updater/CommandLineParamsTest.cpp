#include <gtest/gtest.h>

#include "updater/CommandLineParams.h"

TEST(CommandLineParams, TheMarkerIsACaseInsensitiveSubstring) {
  const std::pair<const char*, bool> lines[] = {{"", false},          {"-UAC", true},
                                                {"-uac", true},       {"/silent -Uac", true},
                                                {"foo-UACbar", true}, {"/silent /update", false},
                                                {"- UAC", false},     {"UAC", false}};
  for (const auto& [line, elevated] : lines)
    EXPECT_EQ(elevated, CommandLineParams(line).containsUacParams()) << line;
}
