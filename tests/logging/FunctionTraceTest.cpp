#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>

#include "logging/FunctionTrace.h"
#include "support/TestSupport.h"

using testsupport::LogCapture;
using testsupport::ScopedStore;
using Lines = std::vector<std::string>;

namespace {

const std::string kColumn = "Updater         ";

void throwingOperation(bool setResultFirst) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "Inner::run() ");
  trace.log(" deep");
  if (setResultFirst)
    trace.setRc(-5);
  throw std::runtime_error("failed");
}

}  // namespace

// Entry and exit lines frame the operation's detail lines one level deeper; the exit line carries
// the result that was set, and is written also when an exception leaves the scope.
TEST(FunctionTrace, FramesNestedOperationsAndTheirResultsEvenWhenTheyThrow) {
  ScopedStore store;
  for (const bool setResultFirst : {false, true}) {
    LogCapture capture;
    {
      FunctionTrace trace = FunctionTrace::open(kLogUpdater, "Outer::run() ");
      try {
        throwingOperation(setResultFirst);
      } catch (const std::runtime_error&) {
        trace.log(" caught");
      }
      trace.returning(true);
    }
    EXPECT_EQ((Lines{kColumn + "+Outer::run() ", kColumn + " +Inner::run() ",
                     kColumn + "  Inner::run()  deep",
                     kColumn + (setResultFirst ? " -Inner::run()  rc=-5" : " -Inner::run() "),
                     kColumn + " Outer::run()  caught", kColumn + "-Outer::run()  rc=true"}),
              capture.lines());
  }
}

// Numbers are signed as their type is; digits beyond nine are lower-case letters.
TEST(LogText, NumbersKeepTheSignOfTheirTypeAndWriteLowerCaseDigits) {
  EXPECT_EQ("-2147483648 4294967295 7fffffff",
            (decimal(INT32_MIN) + " " + decimal(UINT32_MAX) + " " + LogText(INT32_MAX, 16)).str());
}
