#include <gtest/gtest.h>

#include <windows.h>

#include <regex>

#include "logging/FunctionTrace.h"
#include "logging/Logger.h"
#include "support/TestSupport.h"

using testsupport::LogCapture;
using testsupport::ScopedStore;

namespace {

// One traced operation with one detail line and result 0, written as the program's are.
void tracedOperation(const LoggerComponent& component, const char* name) {
  FunctionTrace trace = FunctionTrace::open(component, name);
  trace.detail(" detail");
  trace.setRc(0);
}

// The "Logger" switches that exist, as " name=value" in a fixed order.
std::string switches(ScopedStore& store) {
  std::string text;
  for (const char* name : {"startLog", "All", "Updater", "RulesEng", "Clocktime_In_Header",
                           "Proc_Id_In_Header", "Thread_Id_In_Header"}) {
    if (store.get("Logger", name) != "none")
      text += std::string(" ") + name + "=" + store.get("Logger", name);
  }
  return text;
}

}  // namespace

// "startLog" is created off on the first trace, which writes nothing and leaves the depth alone.
// Switched on in the registry, it reaches the running logger once its cached value is five seconds
// old by the logger's clock (GetTickCount), not sooner and without a restart; then the masks and
// header switches follow with their defaults.
TEST(Logger, CreatesItsSwitchesOnFirstUseAndSeesAChangeOnceTheCachedValueIsFiveSecondsOld) {
  EXPECT_EQ("C:\\ProgramData\\mwloQNV.log", Logger::getLogFilePath());
  ScopedStore store;
  testsupport::restartLogger();
  const std::string before = testsupport::readFile(Logger::getLogFilePath());
  const DWORD readStart = GetTickCount();
  {
    FunctionTrace trace = FunctionTrace::open(kLogUpdater, "Switches::off() ");
    EXPECT_FALSE(trace.isOn());
    EXPECT_EQ(0, BasicLogger::getInstance().getDepth(GetCurrentThreadId()));
  }
  const DWORD readEnd = GetTickCount();
  EXPECT_EQ(before, testsupport::readFile(Logger::getLogFilePath()));
  EXPECT_EQ(" startLog=0", switches(store));
  // The cache takes an entry read in the current tick of the clock as stale; move past it first.
  while (GetTickCount() <= readEnd)
    Sleep(1);
  store.set("Logger", "startLog", 1);
  // A look that starts 5 s after the read ended must see the change.
  for (DWORD start = readEnd; !isTraceOn(kLogUpdater, LOG_TRACE); Sleep(20)) {
    ASSERT_LT(start - readEnd, 5000u) << "not seen once the cached value was 5 s old";
    start = GetTickCount();
  }
  EXPECT_GE(GetTickCount() - readStart, 5000u) << "seen before the cached value was 5 s old";
  tracedOperation(kLogUpdater, "Switches::on() ");
  const std::string after = testsupport::readFile(Logger::getLogFilePath());
  EXPECT_EQ(3u, testsupport::splitLines(after.substr(before.size())).size());
  EXPECT_EQ(
      " startLog=1 All=4294967295 Updater=4294967295 Clocktime_In_Header=1 Proc_Id_In_Header=0 "
      "Thread_Id_In_Header=0",
      switches(store));
}

// A line is written when its level is in the "All" mask or in its component's own; detail lines
// need the trace bit too.
TEST(Logger, TheGlobalAndTheComponentMasksTogetherChooseTheLines) {
  const std::string u[] = {"Updater         +U::run() ", "Updater          U::run()  detail",
                           "Updater         -U::run()  rc=0"};
  const std::string r[] = {"RulesEng        +R::run() ", "RulesEng         R::run()  detail",
                           "RulesEng        -R::run()  rc=0"};
  const struct {
    DWORD all, updater, rulesEng;
    std::vector<std::string> expected;
  } rows[] = {
      {0, 0, 0, {}},
      {0, 2, 0, {u[0], u[2]}},
      {0, 8, 0, {}},
      {0, 10, 0, {u[0], u[1], u[2]}},
      {0, 0, 0xFFFFFFFF, {r[0], r[1], r[2]}},
      {2, 0, 0, {u[0], u[2], r[0], r[2]}},
      {8, 2, 2, {u[0], u[1], u[2], r[0], r[1], r[2]}},
  };
  for (const auto& row : rows) {
    ScopedStore store;
    LogCapture capture(row.all, false, {{"Updater", row.updater}, {"RulesEng", row.rulesEng}});
    tracedOperation(kLogUpdater, "U::run() ");
    tracedOperation(kLogRulesEng, "R::run() ");
    EXPECT_EQ(row.expected, capture.lines())
        << "All=" << row.all << " Updater=" << row.updater << " RulesEng=" << row.rulesEng;
  }
}

TEST(Logger, HeaderSwitchesAddTheClockAndTheProcessAndThreadIdsInHexadecimal) {
  char pid[32], tid[32];
  snprintf(pid, sizeof(pid), "pid=%04lx ", GetCurrentProcessId());
  snprintf(tid, sizeof(tid), "tid=%04lx ", GetCurrentThreadId());
  const std::string clock = R"(\d{4}/\d\d/\d\d-\d\d:\d\d:\d\d\.\d{3} )";
  const std::pair<std::vector<DWORD>, std::string> rows[] = {
      {{0, 0, 0}, ""}, {{1, 0, 1}, clock + tid}, {{0, 7, 0}, pid}, {{1, 1, 1}, clock + pid + tid}};
  for (const auto& [switches, header] : rows) {
    ScopedStore store;
    LogCapture capture(0xFFFFFFFF, false,
                       {{"Clocktime_In_Header", switches[0]},
                        {"Proc_Id_In_Header", switches[1]},
                        {"Thread_Id_In_Header", switches[2]}});
    BasicLogger::getInstance().write(kLogRulesEng, LOG_TRACE, "text");
    EXPECT_TRUE(
        std::regex_match(capture.lines().at(0), std::regex(header + "RulesEng        text")))
        << capture.lines()[0];
  }
}

// An object of another kind under the log mutex's name (an event, made first) keeps the mutex from
// being made: that process then writes nothing, not even the lines always written, and goes on.
// (A copy of the helper with a local id of its own in this family: "<xx>lx".)
TEST(Logger, TurnsItselfOffWhenItsMutexCannotBeMade) {
  ScopedStore store;
  const std::string id = testsupport::localId().substr(0, 2) + "lx";
  const std::string file = Logger::getAllUsersProfileDir() + id + "QNV.log";
  const std::string switches = testsupport::familyPath() + "\\QNV\\Local\\" + id + "\\Logger";
  testsupport::setValue(switches, "startLog", 1);
  for (const bool blocked : {false, true}) {
    SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_NORMAL);  // A fault may have left it read-only.
    DeleteFileA(file.c_str());
    const ScopedHandle event(
        blocked ? CreateEventA(nullptr, TRUE, FALSE, ("CVLOG_" + id + "QNV.log").c_str())
                : nullptr);
    DWORD exitCode = 1;
    testsupport::runCopy("test_helper.exe", id + "_writer.exe", "write w 2", "", &exitCode);
    EXPECT_EQ(0u, exitCode) << blocked;
    const std::string text = testsupport::readFile(file);
    EXPECT_EQ(blocked, text.empty()) << text;
    EXPECT_EQ(!blocked, text.find("QNV             always\r\n") != std::string::npos);
  }
  DeleteFileA(file.c_str());
}
