#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <map>

#include "LogLines.h"
#include "logging/FunctionTrace.h"
#include "logging/Logger.h"
#include "support/TestSupport.h"

using testsupport::LogCapture;
using testsupport::ScopedStore;

namespace {

// One traced operation with one detail line and result 0.
void tracedOperation(const LoggerComponent& component, const char* name) {
  FunctionTrace trace = FunctionTrace::open(component, name);
  if (trace.isOn()) {
    trace.log(" detail");
    trace.setRc(0);
  }
}

// The DWORD values of the store's "Logger" key.
std::map<std::string, DWORD> loggerValues() {
  std::map<std::string, DWORD> values;
  HKEY key = nullptr;
  RegOpenKeyExA(HKEY_LOCAL_MACHINE, (testsupport::storeRoot() + "Logger").c_str(), 0, KEY_READ,
                &key);
  char name[256];
  DWORD nameLength = sizeof(name), data = 0, size = sizeof(data);
  for (DWORD i = 0; RegEnumValueA(key, i, name, &nameLength, nullptr, nullptr,
                                  reinterpret_cast<BYTE*>(&data), &size) == ERROR_SUCCESS;
       ++i, nameLength = sizeof(name), size = sizeof(data))
    values[name] = data;
  RegCloseKey(key);
  return values;
}

TEST(LoggerSwitches, AbsentStartLogIsCreatedOffThenTheOthersFollowOnFirstUse) {
  EXPECT_EQ("C:\\ProgramData\\cvloQNV.log", Logger::getLogFilePath());
  ScopedStore store;
  testsupport::restartLogger();
  BasicLogger& logger = BasicLogger::getInstance();
  const uint64_t size = loglines::fileSize(Logger::getLogFilePath());
  const int32_t depth = logger.getDepth(GetCurrentThreadId());
  {
    FunctionTrace trace = FunctionTrace::open(kLogUpdater, "Switches::off() ");
    EXPECT_FALSE(trace.isOn());
    trace.log(" never written");
    EXPECT_EQ(depth, logger.getDepth(GetCurrentThreadId()));
  }
  EXPECT_EQ(size, loglines::fileSize(Logger::getLogFilePath()));
  EXPECT_EQ((std::map<std::string, DWORD>{{"startLog", 0}}), loggerValues());
  EXPECT_TRUE(logger.isLevelEnabled(kLogCatalog, LOG_ALWAYS));

  store.setDword("Logger", "startLog", 1);
  testsupport::restartLogger();
  tracedOperation(kLogUpdater, "Switches::on() ");
  EXPECT_EQ(3u, loglines::readLines(Logger::getLogFilePath(), size).size());
  EXPECT_EQ((std::map<std::string, DWORD>{{"startLog", 1},
                                          {"All", 0xFFFFFFFF},
                                          {"Updater", 0xFFFFFFFF},
                                          {"Clocktime_In_Header", 1},
                                          {"Proc_Id_In_Header", 0},
                                          {"Thread_Id_In_Header", 0}}),
            loggerValues());
}

TEST(LoggerSwitches, GlobalAndComponentMasksTogetherChooseTheLines) {
  const std::string u[] = {"Updater         +U::run() ", "Updater          U::run()  detail",
                           "Updater         -U::run()  rc=0"};
  const std::string r[] = {"RulesEng        +R::run() ", "RulesEng         R::run()  detail",
                           "RulesEng        -R::run()  rc=0"};
  const struct {
    DWORD all, updater, rulesEng;
    std::vector<std::string> expected;
  } cases[] = {
      {0, 0, 0, {}},
      {0, 2, 0, {u[0], u[2]}},
      {0, 8, 0, {}},  // Detail lines need the trace bit as well.
      {0, 4, 0, {}},
      {0, 10, 0, {u[0], u[1], u[2]}},
      {0, 0, 0xFFFFFFFF, {r[0], r[1], r[2]}},
      {2, 0, 0, {u[0], u[2], r[0], r[2]}},
      {8, 2, 0, {u[0], u[1], u[2]}},
      {8, 2, 2, {u[0], u[1], u[2], r[0], r[1], r[2]}},
  };
  for (const auto& c : cases) {
    ScopedStore store;
    LogCapture capture(c.all);
    store.setDword("Logger", "Updater", c.updater);
    store.setDword("Logger", "RulesEng", c.rulesEng);
    testsupport::restartLogger();
    tracedOperation(kLogUpdater, "U::run() ");
    tracedOperation(kLogRulesEng, "R::run() ");
    EXPECT_EQ(c.expected, capture.lines())
        << "All=" << c.all << " Updater=" << c.updater << " RulesEng=" << c.rulesEng;
  }
}

TEST(LoggerSwitches, HeaderSwitchesAddClockProcessAndThreadIds) {
  const loglines::Headers cases[] = {{false, false, false}, {true, false, false},
                                     {false, true, false},  {false, false, true},
                                     {true, true, true},    {false, true, true}};
  for (const loglines::Headers& h : cases) {
    ScopedStore store;
    LogCapture capture;
    store.setDword("Logger", "Clocktime_In_Header", h.clock ? 1 : 0);
    store.setDword("Logger", "Proc_Id_In_Header", h.processId ? 7 : 0);
    store.setDword("Logger", "Thread_Id_In_Header", h.threadId ? 1 : 0);
    testsupport::restartLogger();
    const std::string before = loglines::clockNow();
    BasicLogger::getInstance().write(kLogRulesEng, LOG_TRACE, "text");
    const std::string after = loglines::clockNow();

    const std::vector<std::string> lines = capture.lines();
    ASSERT_EQ(1u, lines.size());
    loglines::LogLine line;
    ASSERT_TRUE(loglines::parse(lines[0], h, line)) << lines[0];
    std::string expected;
    if (h.clock) {
      EXPECT_TRUE(before <= line.clock && line.clock <= after) << line.clock;
      expected = line.clock + " ";
    }
    if (h.processId)
      expected += "pid=" + loglines::hexId(GetCurrentProcessId()) + " ";
    if (h.threadId)
      expected += "tid=" + loglines::hexId(GetCurrentThreadId()) + " ";
    EXPECT_EQ(expected + "RulesEng        text", lines[0]);
  }
}

// A logger whose every switch read returns the number of reads so far.
class CountingLogger : public BasicLogger {
 public:
  explicit CountingLogger(const std::string& path) : BasicLogger(path, 15) {}
  uint32_t reads = 0;

 protected:
  void readSetting(const std::string&, uint32_t& value, uint32_t) override { value = ++reads; }
};

void waitForNextTick() {
  const DWORD tick = GetTickCount();
  while (GetTickCount() == tick)
    Sleep(1);
}

// Switches are cached per name for a given age: five seconds in the program, 200 ms here.
TEST(LoggerSwitches, ASwitchIsReadAgainOnlyOnceItsCacheEntryIsOld) {
  testsupport::TempDir directory;
  CountingLogger logger(directory.file("cache.log"));
  uint32_t value = 0;
  logger.getCachedSetting("startLog", value, 0, 200);
  const uint32_t first = value;
  waitForNextTick();  // A switch read in the current tick is read again.
  logger.getCachedSetting("startLog", value, 0, 200);
  EXPECT_EQ(first, value) << "fresh: from the cache";
  logger.getCachedSetting("All", value, 0, 200);
  EXPECT_EQ(first + 1, value) << "each name has its own entry";
  const DWORD cached = GetTickCount();
  while (GetTickCount() - cached < 250)
    Sleep(20);
  logger.getCachedSetting("startLog", value, 0, 200);
  EXPECT_EQ(first + 2, value) << "old: read again";
}

}  // namespace
