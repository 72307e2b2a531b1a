#include <gtest/gtest.h>

#include <windows.h>

#include <thread>

#include "support/TestSupport.h"
#include "updater/RunLock.h"

// The lock is the machine-wide mutex "Global\<local id>UpdateRun" (made as the records' are), held
// until it is handed over. A run stands aside while a live run holds it, and takes it (to hand it
// over in turn) once that run has let it go or died; a relaunched child waits for a run that lets
// it go meanwhile.
TEST(RunLock, OneRunAtATimeOnTheMachine) {
  const std::string name = "Global\\" + testsupport::localId() + "UpdateRun";
  EXPECT_EQ(name, RunLock::mutexName());
  {
    RunLock lock;
    ASSERT_TRUE(lock.take(false));
    EXPECT_EQ("busy", testsupport::tryMutexElsewhere(name));
    lock.handOver();
    EXPECT_EQ("acquired", testsupport::tryMutexElsewhere(name));
  }
  for (const std::string mode : {"release", "abandon"}) {
    testsupport::MutexHolder holder(name, mode);
    ASSERT_TRUE(holder.holds());
    RunLock lock;
    EXPECT_FALSE(lock.take(false)) << mode;
    holder.letGo();
    EXPECT_TRUE(lock.take(false)) << mode;
    lock.handOver();
    EXPECT_EQ("acquired", testsupport::tryMutexElsewhere(name)) << mode;
  }
  testsupport::MutexHolder holder(name);
  ASSERT_TRUE(holder.holds());
  std::thread letGo([&holder] {
    Sleep(20);  // Lets the child begin its wait first.
    holder.letGo();
  });
  RunLock child;
  EXPECT_TRUE(child.take(true));
  letGo.join();
}
