#include <gtest/gtest.h>

#include <thread>

#include "support/TestSupport.h"
#include "system/InterProcessLock.h"
#include "system/MachineMutex.h"
#include "system/Mutex.h"
#include "system/Win32Exception.h"

// A zero time-out takes nothing, while tryAcquire() asks the system without waiting; one release()
// gives up every hold of the owning thread, and one from another thread none; an InterProcessLock
// holds for its scope, and one whose wait ran out gives back nothing it did not take.
TEST(Mutex, OneReleaseOfTheOwningThreadGivesUpEveryHold) {
  const std::string name = "cvtest_recursive_" + std::to_string(GetCurrentProcessId());
  Mutex mutex(false, name, true);
  EXPECT_FALSE(mutex.acquire(0));
  EXPECT_EQ("acquired", testsupport::tryMutexElsewhere(name));
  ASSERT_TRUE(mutex.tryAcquire());
  ASSERT_TRUE(mutex.acquire(1000));
  std::thread([&mutex] { mutex.release(); }).join();
  EXPECT_EQ("busy", testsupport::tryMutexElsewhere(name));
  mutex.release();
  EXPECT_EQ("acquired", testsupport::tryMutexElsewhere(name));
  {
    InterProcessLock lock(mutex);
    EXPECT_EQ("busy", testsupport::tryMutexElsewhere(name));
  }
  EXPECT_EQ("acquired", testsupport::tryMutexElsewhere(name));
  testsupport::MutexHolder holder(name);
  ASSERT_TRUE(holder.holds());
  EXPECT_FALSE(mutex.tryAcquire());
}

// The runs' machine-wide mutexes: the global name with a DACL that SYSTEM, administrators and
// users' runs share. A name made first by someone else, a mutex whose DACL keeps the program out
// or an object of another kind, throws: there is no other name to fall back to.
TEST(Mutex, MachineWideMutexesHaveOneNameAndNoFallback) {
  const std::string name = "Global\\" + testsupport::localId() + "MachineMutex";
  const std::unique_ptr<Mutex> mutex = createMachineMutex("MachineMutex");
  EXPECT_EQ(name, mutex->getName());
  EXPECT_EQ(name, machineMutexName("MachineMutex"));
  EXPECT_EQ("D:(A;;0x1f0001;;;SY)(A;;0x1f0001;;;BA)(A;;0x100001;;;AU)",
            testsupport::dacl(ScopedHandle(OpenMutexA(READ_CONTROL, FALSE, name.c_str())).get(),
                              SE_KERNEL_OBJECT));
  const ScopedHandle event(CreateEventA(nullptr, TRUE, FALSE, (name + "Event").c_str()));
  EXPECT_THROW(createMachineMutex("MachineMutexEvent"), Win32Exception);
  testsupport::MutexHolder squatter(name + "Squatted", "squat");
  ASSERT_TRUE(squatter.holds());
  try {
    createMachineMutex("MachineMutexSquatted");
    ADD_FAILURE() << "a squatted name was opened";
  } catch (const Win32Exception& e) {
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), e.getCode());
  }
}
