#include <gtest/gtest.h>

#include <thread>

#include "support/TestSupport.h"
#include "system/InterProcessLock.h"
#include "system/Mutex.h"
#include "system/Win32Exception.h"

using testsupport::BackgroundProcess;

namespace {

std::string uniqueName(const char* base) {
  return std::string("cvtest_") + base + "_" + std::to_string(GetCurrentProcessId());
}

std::string helper(const std::string& arguments) {
  return "\"" + testsupport::executableDirectory() + "test_helper.exe\" " + arguments;
}

// What another process sees when it tries the mutex for `ms`: "acquired" or "busy".
std::string probeFromOtherProcess(const std::string& name, DWORD ms = 50) {
  const testsupport::ProcessResult result =
      testsupport::runProcess(helper("mutex-try " + name + " " + std::to_string(ms)));
  return result.output.substr(0, result.output.find_first_of("\r\n"));
}

}  // namespace

TEST(MutexAcrossProcesses, ExcludesOtherProcessesUntilReleased) {
  const std::string name = uniqueName("exclusion");
  Mutex mutex(false, name, true);
  BackgroundProcess holder(helper("mutex-hold " + name + " 800 release"));
  ASSERT_TRUE(holder.waitForOutput("held", 20000));

  EXPECT_FALSE(mutex.acquire(50));
  EXPECT_TRUE(mutex.acquire(20000));
  EXPECT_TRUE(holder.waitForOutput("released", 5000));
  EXPECT_EQ("busy", probeFromOtherProcess(name));
  mutex.release();
  EXPECT_EQ("acquired", probeFromOtherProcess(name));
}

TEST(MutexAcrossProcesses, AbandonedByADeadHolderIsAcquiredByTheNextWaiter) {
  const std::string name = uniqueName("abandon");
  Mutex mutex(false, name, true);
  BackgroundProcess holder(helper("mutex-hold " + name + " 200 abandon"));
  ASSERT_TRUE(holder.waitForOutput("held", 20000));

  EXPECT_TRUE(mutex.acquire(20000));
  EXPECT_TRUE(holder.wait(5000));
  mutex.release();
}

TEST(MutexAcrossProcesses, OneReleaseDropsAllRecursiveHolds) {
  const std::string name = uniqueName("recursive");
  Mutex mutex(false, name, true);
  // The helper takes the mutex twice, calls release() once and then stays alive.
  BackgroundProcess holder(helper("mutex-hold " + name + " 3000 recursive"));
  ASSERT_TRUE(holder.waitForOutput("released", 20000));
  EXPECT_TRUE(mutex.acquire(1000));
  mutex.release();

  // The same in this process: two holds, one release().
  ASSERT_TRUE(mutex.acquire(1000));
  ASSERT_TRUE(mutex.acquire(1000));
  EXPECT_EQ("busy", probeFromOtherProcess(name));
  mutex.release();
  EXPECT_EQ("acquired", probeFromOtherProcess(name));
}

TEST(MutexAcrossProcesses, ReleaseFromAThreadThatDoesNotOwnItDoesNothing) {
  const std::string name = uniqueName("foreign");
  Mutex mutex(false, name, true);
  ASSERT_TRUE(mutex.acquire(1000));
  std::thread other([&mutex] { mutex.release(); });
  other.join();
  EXPECT_EQ("busy", probeFromOtherProcess(name));
  mutex.release();
  EXPECT_EQ("acquired", probeFromOtherProcess(name));
}

TEST(MutexAcrossProcesses, AcquireWithZeroTimeOutReturnsFalseAndTouchesNothing) {
  const std::string name = uniqueName("zero");
  Mutex mutex(false, name, true);
  EXPECT_FALSE(mutex.acquire(0));
  EXPECT_EQ("acquired", probeFromOtherProcess(name));
  // Nothing was recorded: a release() now has no hold to give up.
  mutex.release();
  EXPECT_EQ("acquired", probeFromOtherProcess(name));
}

TEST(MutexAcrossProcesses, InterProcessLockHoldsForItsScope) {
  const std::string name = uniqueName("scoped");
  Mutex mutex(false, name, true);
  {
    InterProcessLock lock(mutex);
    EXPECT_EQ("busy", probeFromOtherProcess(name));
  }
  EXPECT_EQ("acquired", probeFromOtherProcess(name));
}

TEST(MutexAcrossProcesses, InterProcessLockOnAnUnnamedMutexThrowsBeforeWaiting) {
  Mutex unnamed(false, "", false);
  // Held by another thread: a wait would never end.
  std::thread holder([&unnamed] { unnamed.acquire(INFINITE); });
  holder.join();
  try {
    InterProcessLock lock(unnamed);
    FAIL() << "no exception";
  } catch (const Win32Exception& e) {
    EXPECT_EQ("InterProcessLock has no name", e.getMessage());
    EXPECT_EQ(0u, e.getCode());
  }
}
