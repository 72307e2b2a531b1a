#include <gtest/gtest.h>

#include <thread>

#include "support/TestSupport.h"
#include "system/InterProcessLock.h"
#include "system/MachineMutex.h"
#include "system/Mutex.h"
#include "system/Win32Exception.h"

// A zero time-out takes nothing; one release() gives up every hold of the owning thread, and
// one from another thread none; an InterProcessLock holds for its scope.
TEST(Mutex, OneReleaseOfTheOwningThreadGivesUpEveryHold) {
  const std::string name = "cvtest_recursive_" + std::to_string(GetCurrentProcessId());
  Mutex mutex(false, name, true);
  EXPECT_FALSE(mutex.acquire(0));
  EXPECT_EQ("acquired", testsupport::tryMutexElsewhere(name));
  ASSERT_TRUE(mutex.acquire(1000));
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
}

// The runs' machine-wide mutexes: the global name with a DACL that SYSTEM, administrators and
// users' runs share; the plain name where the namespace does not exist; any other failure (an
// object of another kind squats the name) throws.
TEST(Mutex, MachineWideMutexesFallBackToThePlainNameWithoutTheNamespace) {
  const std::string plain = testsupport::localId() + "MachineMutex";
  const std::pair<std::string, std::string> rows[] = {{kGlobalSpace, "Global\\" + plain},
                                                      {"NoSuchSpace\\", plain}};
  for (const auto& [space, name] : rows) {
    const std::unique_ptr<Mutex> mutex = createMachineMutex("MachineMutex", space);
    EXPECT_EQ(name, mutex->getName());
    EXPECT_EQ("D:(A;;0x1f0001;;;SY)(A;;0x1f0001;;;BA)(A;;0x100001;;;AU)",
              testsupport::dacl(ScopedHandle(OpenMutexA(READ_CONTROL, FALSE, name.c_str())).get(),
                                SE_KERNEL_OBJECT));
  }
  EXPECT_EQ("Global\\" + plain, machineMutexName("MachineMutex"));
  const std::string squatted = "Global\\" + plain + "Squatted";
  const ScopedHandle squatter(CreateEventA(nullptr, TRUE, FALSE, squatted.c_str()));
  EXPECT_THROW(createMachineMutex("MachineMutexSquatted"), Win32Exception);
}
