#include <gtest/gtest.h>

#include <windows.h>

#include <thread>

#include "support/TestSupport.h"
#include "updater/RunLock.h"

namespace {

// What another process sees when it tries the mutex for 50 ms: "acquired" or "busy".
std::string fromOtherProcess(const std::string& name) {
  const std::string output = testsupport::runProcess(
      testsupport::besideTests("test_helper.exe", "mutex-try " + name + " 50"));
  return output.substr(0, output.find('='));
}

}  // namespace

// The lock is the machine-wide mutex "Global\<local id>UpdateRun" with the records' DACL, held
// until it is handed over. A run stands aside while a live run holds it, and takes it once that
// run has let it go or died; a relaunched child waits for a run that lets it go meanwhile.
TEST(RunLock, OneRunAtATimeOnTheMachine) {
  const std::string name = "Global\\" + testsupport::localId() + "UpdateRun";
  EXPECT_EQ(name, RunLock::mutexName());
  {
    RunLock lock;
    ASSERT_TRUE(lock.take(false));
    EXPECT_EQ("D:(A;;0x1f0001;;;SY)(A;;0x1f0001;;;BA)(A;;0x100001;;;AU)",
              testsupport::dacl(ScopedHandle(OpenMutexA(READ_CONTROL, FALSE, name.c_str())).get(),
                                SE_KERNEL_OBJECT));
    EXPECT_EQ("busy", fromOtherProcess(name));
    lock.handOver();
    EXPECT_EQ("acquired", fromOtherProcess(name));
  }
  for (const std::string mode : {"release", "abandon"}) {
    testsupport::MutexHolder holder(name, mode);
    ASSERT_TRUE(holder.holds());
    RunLock lock;
    EXPECT_FALSE(lock.take(false)) << mode;
    holder.letGo();
    EXPECT_TRUE(lock.take(false)) << mode;
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
