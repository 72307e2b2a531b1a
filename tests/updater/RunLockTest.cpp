#include <gtest/gtest.h>

#include <windows.h>

#include <thread>

#include "support/TestSupport.h"
#include "updater/RunLock.h"

using Taken = RunLock::Taken;

// The lock is the machine-wide mutex "Global\<local id>UpdateRun" (made as the records' are), held
// until it is handed over. A run stands aside while a live run holds it, and takes it (to hand it
// over in turn) once that run has let it go or died; a relaunched child waits for a run that lets
// it go meanwhile. A name made first by someone else fails closed: the run cannot know whether
// another one runs.
TEST(RunLock, OneRunAtATimeOnTheMachine) {
  const std::string name = "Global\\" + testsupport::localId() + "UpdateRun";
  EXPECT_EQ(name, RunLock::mutexName());
  {
    RunLock lock;
    ASSERT_EQ(Taken::kTaken, lock.take(false));
    EXPECT_EQ("", lock.failure());
    EXPECT_EQ("busy", testsupport::tryMutexElsewhere(name));
    lock.handOver();
    EXPECT_EQ("acquired", testsupport::tryMutexElsewhere(name));
  }
  for (const std::string mode : {"release", "abandon"}) {
    testsupport::MutexHolder holder(name, mode);
    ASSERT_TRUE(holder.holds());
    RunLock lock;
    EXPECT_EQ(Taken::kHeldByAnotherRun, lock.take(false)) << mode;
    EXPECT_EQ("run lock: '" + name + "' is held by another run", lock.failure());
    holder.letGo();
    EXPECT_EQ(Taken::kTaken, lock.take(false)) << mode;
    lock.handOver();
    EXPECT_EQ("acquired", testsupport::tryMutexElsewhere(name)) << mode;
  }
  {
    testsupport::MutexHolder holder(name);
    ASSERT_TRUE(holder.holds());
    std::thread letGo([&holder] {
      Sleep(20);  // Lets the child begin its wait first.
      holder.letGo();
    });
    RunLock child;
    EXPECT_EQ(Taken::kTaken, child.take(true));
    letGo.join();
  }
  testsupport::MutexHolder squatter(name, "squat");
  ASSERT_TRUE(squatter.holds());
  for (const bool relaunched : {false, true}) {
    RunLock lock;
    EXPECT_EQ(Taken::kUnavailable, lock.take(relaunched));
    EXPECT_EQ(0u, lock.failure().find("run lock: '" + name + "' could not be made: "))
        << lock.failure();
  }
}
