#include <gtest/gtest.h>

#include "updater/ProcessScope.h"

// Every test executable runs as a tool of the program does: with Localize (named after this
// executable) and the Logger in place.
int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const ProcessScope process;
  return RUN_ALL_TESTS();
}
