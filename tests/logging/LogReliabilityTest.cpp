// The log under load: processes (cvlo_writer.exe, which shares this executable's log file, store
// and mutex) and threads writing at once, the file deleted under them, a writer killed while it
// holds the log mutex.
#include <gtest/gtest.h>

#include <windows.h>

#include <map>
#include <memory>
#include <thread>

#include "LogLines.h"
#include "logging/FunctionTrace.h"
#include "logging/Logger.h"
#include "support/TestSupport.h"
#include "system/Mutex.h"

using testsupport::BackgroundProcess;
using testsupport::LogCapture;
using testsupport::ScopedStore;

namespace {

const loglines::Headers kAllHeaders = {true, true, true};

// What cvlo_writer writes for TAG and ITERATIONS, with indentation: per iteration an entry line,
// a long detail line one level deeper and an exit line.
std::vector<std::string> writerLines(const std::string& tag, int iterations) {
  std::vector<std::string> lines;
  for (int n = 0; n < iterations; ++n) {
    std::string detail = " Writer::writeLine()  tag=" + tag + " n=" + std::to_string(n) + " ";
    for (int i = 0; i < 64; ++i)
      detail += static_cast<char>('a' + (n + i) % 26);
    lines.insert(lines.end(), {"+Writer::writeLine() ", detail,
                               "-Writer::writeLine()  rc=" + std::to_string(n)});
  }
  return lines;
}

// Checks the log from `start` on: every line whole, with all headers; per process, one thread id
// and exactly the writer's lines, in order, ending with its last one. With `whole`, all of them;
// otherwise (file deleted meanwhile) a tail of them.
void expectWriters(const std::string& path,
                   uint64_t start,
                   int writers,
                   int iterations,
                   bool whole) {
  bool complete = false;
  std::map<uint32_t, std::vector<loglines::LogLine>> perProcess;
  for (const std::string& raw : loglines::readLines(path, start, &complete)) {
    loglines::LogLine line;
    ASSERT_TRUE(loglines::parse(raw, kAllHeaders, line) && line.component == "Updater") << raw;
    perProcess[line.processId].push_back(line);
  }
  EXPECT_TRUE(complete);
  ASSERT_EQ(static_cast<size_t>(writers), perProcess.size());
  for (const auto& [processId, lines] : perProcess) {
    std::string tag;
    for (const loglines::LogLine& line : lines) {
      const size_t at = line.text.find("tag=");
      if (at != std::string::npos && tag.empty())
        tag = line.text.substr(at + 4, line.text.find(' ', at) - at - 4);
      ASSERT_EQ(lines[0].threadId, line.threadId) << "pid " << processId;
    }
    const std::vector<std::string> expected = writerLines(tag, iterations);
    ASSERT_TRUE(whole ? lines.size() == expected.size() : lines.size() <= expected.size())
        << "pid " << processId << ": " << lines.size() << " lines";
    for (size_t i = 0, offset = expected.size() - lines.size(); i < lines.size(); ++i)
      ASSERT_EQ(expected[offset + i], lines[i].text) << "pid " << processId << " line " << i;
  }
}

// Writer processes, all ready before any of them starts: they wait for one event.
class Writers {
 public:
  Writers(int count, int iterations) {
    const std::string gate = "cvlo_gate_" + std::to_string(GetTickCount());
    gate_ = CreateEventA(nullptr, TRUE, FALSE, gate.c_str());
    for (int i = 0; i < count; ++i) {
      processes_.push_back(std::make_unique<BackgroundProcess>(
          "\"" + testsupport::executableDirectory() + "cvlo_writer.exe\" write w" +
          std::to_string(i) + " " + std::to_string(iterations) + " " + gate));
    }
    for (auto& process : processes_)
      ready_ = process->waitForOutput("ready", 30000) && ready_;
  }
  ~Writers() { CloseHandle(gate_); }

  bool ready() const { return ready_; }
  void start() { SetEvent(gate_); }
  bool anyDone() const {
    for (const auto& process : processes_) {
      if (process->output().find("done") != std::string::npos)
        return true;
    }
    return false;
  }
  bool finish() {
    bool ok = true;
    for (auto& process : processes_)
      ok = process->wait(90000) && process->exitCode() == 0 && ok;
    return ok;
  }

 private:
  HANDLE gate_ = nullptr;
  bool ready_ = true;
  std::vector<std::unique_ptr<BackgroundProcess>> processes_;
};

TEST(LogReliability, ConcurrentProcessesLoseNoLineAndKeepEachLineWhole) {
  ScopedStore store;
  LogCapture capture(0xFFFFFFFF, true);
  const uint64_t start = loglines::fileSize(Logger::getLogFilePath());
  Writers writers(16, 667);  // 2001 lines each
  ASSERT_TRUE(writers.ready());
  writers.start();
  ASSERT_TRUE(writers.finish());
  expectWriters(Logger::getLogFilePath(), start, 16, 667, true);
}

TEST(LogReliability, FileDeletedWhileWritersRunIsCreatedAgainWithEveryLaterLine) {
  ScopedStore store;
  LogCapture capture(0xFFFFFFFF, true);
  const std::string path = Logger::getLogFilePath();
  const uint64_t start = loglines::fileSize(path);
  Writers writers(4, 1000);
  ASSERT_TRUE(writers.ready());
  writers.start();
  // Some hundred lines in, with thousands to go.
  for (DWORD began = GetTickCount();
       loglines::fileSize(path) < start + 30000 && GetTickCount() - began < 30000;)
    Sleep(5);
  BasicLogger::getInstance().deleteLogFile();
  EXPECT_FALSE(writers.anyDone());
  ASSERT_TRUE(writers.finish());
  EXPECT_LT(loglines::readLines(path).size(), 4u * 3 * 1000);  // The early lines went with it.
  expectWriters(path, 0, 4, 1000, false);
}

TEST(LogReliability, WriterKilledWhileHoldingTheLogMutexDoesNotBlockTheOthers) {
  ScopedStore store;
  LogCapture capture(0xFFFFFFFF, true);
  const uint64_t start = loglines::fileSize(Logger::getLogFilePath());
  auto holder = std::make_unique<BackgroundProcess>("\"" + testsupport::executableDirectory() +
                                                    "cvlo_writer.exe\" hold");
  ASSERT_TRUE(holder->waitForOutput("held", 30000));
  Mutex logMutex(false, "CVLOG_cvloQNV.log", true);
  ASSERT_FALSE(logMutex.acquire(20));

  Writers writers(4, 100);
  ASSERT_TRUE(writers.ready());
  writers.start();
  EXPECT_FALSE(writers.anyDone());
  holder.reset();  // TerminateProcess while it holds the mutex.
  ASSERT_TRUE(writers.finish());
  expectWriters(Logger::getLogFilePath(), start, 4, 100, true);
}

// Threads of one process share the log mutex, each with its own nesting; a thread that has
// finished its lines holds nothing, even while it lives on.
TEST(LogReliability, ConcurrentThreadsKeepTheirOwnNestingAndLeaveTheMutexFree) {
  const int kThreads = 4, kIterations = 150;
  ScopedStore store;
  LogCapture capture(0xFFFFFFFF, true);
  HANDLE quit = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  HANDLE finished[kThreads];
  std::vector<std::thread> threads;
  for (HANDLE& done : finished) {
    done = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    threads.emplace_back([quit, done] {
      for (int n = 0; n < kIterations; ++n) {
        FunctionTrace outer = FunctionTrace::open(kLogUpdater, "Outer::run() ");
        FunctionTrace inner = FunctionTrace::open(kLogUpdater, "Inner::run() ");
        inner.log(" n=" + std::to_string(n));
        inner.setRc(n);
      }
      SetEvent(done);
      WaitForSingleObject(quit, 60000);
    });
  }
  WaitForMultipleObjects(kThreads, finished, TRUE, 15000);
  Mutex logMutex(false, "CVLOG_cvloQNV.log", true);
  const bool free = logMutex.acquire(2000);
  if (free)
    logMutex.release();
  SetEvent(quit);
  for (size_t i = 0; i < threads.size(); ++i) {
    threads[i].join();
    CloseHandle(finished[i]);
  }
  CloseHandle(quit);
  EXPECT_TRUE(free) << "a thread that has finished writing still holds the log mutex";

  std::map<uint32_t, std::vector<std::string>> perThread;
  for (const std::string& raw : capture.lines()) {
    loglines::LogLine line;
    ASSERT_TRUE(loglines::parse(raw, kAllHeaders, line)) << raw;
    perThread[line.threadId].push_back(line.text);
  }
  std::vector<std::string> expected;
  for (int n = 0; n < kIterations; ++n) {
    expected.insert(expected.end(),
                    {"+Outer::run() ", " +Inner::run() ", "  Inner::run()  n=" + std::to_string(n),
                     " -Inner::run()  rc=" + std::to_string(n), "-Outer::run() "});
  }
  ASSERT_EQ(static_cast<size_t>(kThreads), perThread.size());
  for (const auto& [threadId, texts] : perThread)
    EXPECT_EQ(expected, texts) << "thread " << threadId;
}

}  // namespace
