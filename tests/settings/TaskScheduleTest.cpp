#include <gtest/gtest.h>

#include <windows.h>

#include "TaskSchedule.h"
#include "support/TestSupport.h"

// A removal whose wait for the running updates fails keeps the task registered, and enabled
// (Wine's schtasks can neither disable nor report a disabled task: the task it stores says
// Enabled all along); once they have ended, the removal deletes it.
TEST(TaskSchedule, ARemovalThatCannotWaitKeepsTheTask) {
  const testsupport::TempDir folder;
  const std::string definition = "orrery-updater-system.xml";
  ASSERT_TRUE(CopyFileA((testsupport::executableDirectory() + definition).c_str(),
                        folder.file(definition).c_str(), FALSE));
  char system[MAX_PATH] = {};
  GetSystemDirectoryA(system, MAX_PATH);
  const std::string stored = std::string(system) + "\\Tasks\\Corvane\\Orrery Updater";
  std::string error;
  ASSERT_TRUE(TaskSchedule::registerTask(folder.path() + "\\", TaskSchedule::Kind::kSystem, error))
      << error;
  ASSERT_TRUE(testsupport::fileExists(stored));

  testsupport::MutexHolder run("pdsq_run", "release", "pdsq_run.exe");
  ASSERT_TRUE(run.holds());
  EXPECT_FALSE(TaskSchedule::removeTask("pdsq", 500, error));
  EXPECT_EQ("a process of pdsq*.exe still runs", error);
  EXPECT_NE(std::string::npos, testsupport::readFile(stored).find("<Enabled>true</Enabled>"));
  run.letGo();
  EXPECT_TRUE(TaskSchedule::removeTask("pdsq", 20000, error)) << error;
  EXPECT_FALSE(testsupport::fileExists(stored));
}
