#include <gtest/gtest.h>

#include "logging/Logger.h"
#include "updater/CurrentProcess.h"
#include "updater/Localize.h"

// Every test executable runs with the program's start-up singletons in place, as the program
// does: Localize (named after this executable) and the Logger.
int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  Localize::createInstance(nullptr);
  Logger::createInstance();
  const int result = RUN_ALL_TESTS();
  CurrentProcess::destroyInstance();
  Logger::destroyInstance();
  Localize::destroyInstance();
  return result;
}
