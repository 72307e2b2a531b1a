#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "logging/FunctionTrace.h"
#include "logging/Logger.h"
#include "support/TestSupport.h"
#include "system/Win32Exception.h"

using testsupport::LogCapture;
using testsupport::ScopedStore;

namespace {

const std::string kColumn = "Updater         ";

TEST(FunctionTrace, ExitLineCarriesTheResultTextWhenOneWasSet) {
  const struct {
    void (*finish)(FunctionTrace&);
    const char* exitLine;
  } cases[] = {
      {[](FunctionTrace&) {}, "-Probe::run() "},
      {[](FunctionTrace& t) { t.setRc(-1); }, "-Probe::run()  rc=-1"},
      {[](FunctionTrace& t) { t.setRc(0); }, "-Probe::run()  rc=0"},
      {[](FunctionTrace& t) { t.setRc("false"); }, "-Probe::run()  rc=false"},
      {[](FunctionTrace& t) { t.setRc(std::string()); }, "-Probe::run() "},
  };
  ScopedStore store;
  for (const auto& c : cases) {
    LogCapture capture;
    {
      FunctionTrace trace = FunctionTrace::open(kLogUpdater, "Probe::run() ");
      ASSERT_TRUE(trace.isOn());
      trace.log(" detail text");
      c.finish(trace);
    }
    EXPECT_EQ(
        (std::vector<std::string>{kColumn + "+Probe::run() ",
                                  kColumn + " Probe::run()  detail text", kColumn + c.exitLine}),
        capture.lines());
  }
}

void throwingOperation(bool setResultFirst) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "Inner::run() ");
  trace.log(" deep");
  if (setResultFirst)
    trace.setRc(5);
  throw std::runtime_error("failed");
}

TEST(FunctionTrace, NestedScopesIndentAndAnExceptionStillWritesTheExitLine) {
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
      trace.setRc("true");
    }
    EXPECT_EQ((std::vector<std::string>{
                  kColumn + "+Outer::run() ", kColumn + " +Inner::run() ",
                  kColumn + "  Inner::run()  deep",
                  kColumn + (setResultFirst ? " -Inner::run()  rc=5" : " -Inner::run() "),
                  kColumn + " Outer::run()  caught", kColumn + "-Outer::run()  rc=true"}),
              capture.lines());
  }
}

TEST(FunctionTrace, EachThreadHasItsOwnDepthStartingAtZero) {
  ScopedStore store;
  LogCapture capture;
  const auto worker = [] {
    FunctionTrace trace = FunctionTrace::open(kLogUpdater, "W::run() ");
    trace.log(" w");
  };
  {
    FunctionTrace trace = FunctionTrace::open(kLogUpdater, "Main::run() ");
    std::thread(worker).join();
    trace.log(" back");
    std::thread(worker).join();
  }
  const std::vector<std::string> worked = {kColumn + "+W::run() ", kColumn + " W::run()  w",
                                           kColumn + "-W::run() "};
  std::vector<std::string> expected = {kColumn + "+Main::run() "};
  expected.insert(expected.end(), worked.begin(), worked.end());
  expected.push_back(kColumn + " Main::run()  back");
  expected.insert(expected.end(), worked.begin(), worked.end());
  expected.push_back(kColumn + "-Main::run() ");
  EXPECT_EQ(expected, capture.lines());
}

TEST(FunctionTrace, WithoutALoggerTracingIsOffAndOpeningThrows) {
  ScopedStore store;
  LogCapture capture;
  Logger::destroyInstance();
  EXPECT_FALSE(isTraceOn(kLogUpdater, LOG_TRACE));
  try {
    FunctionTrace trace = FunctionTrace::open(kLogUpdater, "Late::run() ");
    ADD_FAILURE() << "no exception";
  } catch (const Win32Exception& e) {
    EXPECT_EQ("BasicLogger::getInstance()", e.getMessage());
    EXPECT_EQ(1u, e.getCode());
  }
  Logger::createInstance();
  EXPECT_TRUE(isTraceOn(kLogUpdater, LOG_TRACE));
}

}  // namespace
