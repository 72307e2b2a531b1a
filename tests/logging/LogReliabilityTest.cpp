// The log under load: processes (mwlo_writer.exe, which shares this executable's log file, store
// and mutex) and threads writing at once.
#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <thread>

#include "logging/FunctionTrace.h"
#include "logging/Logger.h"
#include "support/TestSupport.h"
#include "system/Mutex.h"
#include "system/UniqueHandle.h"

using testsupport::besideTests;
using Lines = std::vector<std::string>;

namespace {

// A whole line with every header: clock, process id, thread id, the component column, the text.
const std::regex kLine(
    R"(\d{4}/\d\d/\d\d-\d\d:\d\d:\d\d\.\d{3} pid=([0-9a-f]{4,8}) tid=([0-9a-f]{4,8}) (.{15}) (.*))");

// An id as the header writes it: hexadecimal, at least four digits.
std::string hex(DWORD id) {
  char text[16];
  snprintf(text, sizeof(text), "%04lx", id);
  return text;
}

class LogReliability : public testing::Test {
 protected:
  // The texts of the "Updater" lines written since the test began, per "<pid>/<tid>"; a line
  // that is not whole fails the test.
  std::map<std::string, Lines> textsPerWriter() const {
    const std::string content = testsupport::readFile(Logger::getLogFilePath()).substr(start_);
    EXPECT_EQ("\r\n", content.substr(content.size() < 2 ? 0 : content.size() - 2));
    std::map<std::string, Lines> texts;
    for (const std::string& line : testsupport::splitLines(content)) {
      std::smatch match;
      EXPECT_TRUE(std::regex_match(line, match, kLine)) << line;
      if (match[3] == "Updater        ")
        texts[match[1].str() + "/" + match[2].str()].push_back(match[4]);
    }
    return texts;
  }

  // Starts `count` writer processes of `operations` traced operations each, once all are ready.
  // Then every writer's lines must be there, whole and in order: per operation an entry line, a
  // long detail line one level deeper and an exit line.
  void runWriters(int count, int operations) {
    const std::string gate = "mwlo_gate_" + std::to_string(GetTickCount());
    const ScopedHandle event(CreateEventA(nullptr, TRUE, FALSE, gate.c_str()));
    std::vector<std::unique_ptr<testsupport::Process>> writers;
    for (int i = 0; i < count; ++i) {
      writers.push_back(std::make_unique<testsupport::Process>(
          besideTests("mwlo_writer.exe", "write w " + std::to_string(operations) + " " + gate)));
      ASSERT_TRUE(writers.back()->waitForOutput("ready", 30000));
    }
    SetEvent(event.get());
    std::set<std::string> pids, seen;
    for (const auto& writer : writers) {
      EXPECT_TRUE(writer->wait(90000) && writer->exitCode() == 0);
      pids.insert(hex(writer->id()));
    }
    Lines expected;
    for (int n = 0; n < operations; ++n) {
      std::string detail = " Writer::writeLine()  tag=w n=" + std::to_string(n) + " ";
      for (int i = 0; i < 64; ++i)
        detail += static_cast<char>('a' + (n + i) % 26);
      expected.insert(expected.end(), {"+Writer::writeLine() ", detail,
                                       "-Writer::writeLine()  rc=" + std::to_string(n)});
    }
    for (const auto& [writer, written] : textsPerWriter()) {
      seen.insert(writer.substr(0, writer.find('/')));
      EXPECT_EQ(expected, written) << writer;
    }
    EXPECT_EQ(pids, seen);
  }

  testsupport::ScopedStore store_;
  testsupport::LogCapture capture_{0xFFFFFFFF, true};
  const size_t start_ = testsupport::readFile(Logger::getLogFilePath()).size();
};

}  // namespace

TEST_F(LogReliability, ConcurrentProcessesLoseNoLineAndKeepEachLineWhole) {
  runWriters(16, 150);
}

// Threads of one process keep their own nesting; a thread that has finished its lines holds
// nothing, even while it lives on.
TEST_F(LogReliability, ConcurrentThreadsKeepTheirOwnNestingAndLeaveTheMutexFree) {
  const int kThreads = 4, kOperations = 150;
  std::atomic<int> finished{0};
  std::atomic<bool> quit{false};
  std::vector<std::thread> threads;
  std::vector<std::string> ids(kThreads);
  for (size_t i = 0; i < ids.size(); ++i) {
    threads.emplace_back([&finished, &quit, &id = ids[i]] {
      id = hex(GetCurrentProcessId()) + "/" + hex(GetCurrentThreadId());
      for (int n = 0; n < kOperations; ++n) {
        FunctionTrace outer = FunctionTrace::open(kLogUpdater, "Outer::run() ");
        FunctionTrace inner = FunctionTrace::open(kLogUpdater, "Inner::run() ");
        inner.log(" n=" + std::to_string(n));
        inner.setRc(n);
      }
      ++finished;
      while (!quit)
        Sleep(1);
    });
  }
  while (finished < kThreads)
    Sleep(1);
  Mutex logMutex(false, "CVLOG_mwloQNV.log", true);
  EXPECT_TRUE(logMutex.acquire(2000)) << "a thread that has finished writing holds the log mutex";
  logMutex.release();
  quit = true;
  for (std::thread& thread : threads)
    thread.join();
  Lines expected;
  for (int n = 0; n < kOperations; ++n)
    expected.insert(expected.end(),
                    {"+Outer::run() ", " +Inner::run() ", "  Inner::run()  n=" + std::to_string(n),
                     " -Inner::run()  rc=" + std::to_string(n), "-Outer::run() "});
  std::set<std::string> writers(ids.begin(), ids.end());
  for (const auto& [writer, written] : textsPerWriter()) {
    EXPECT_EQ(1u, writers.erase(writer)) << writer;
    EXPECT_EQ(expected, written) << writer;
  }
  EXPECT_TRUE(writers.empty());
}
