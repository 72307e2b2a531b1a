#include <gtest/gtest.h>

#include <windows.h>

#include "TaskSchedule.h"
#include "WideText.h"
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

// A task's kind is read from its principal as Task Scheduler gives it out, however it was
// registered: SYSTEM, LOCAL SERVICE, NETWORK SERVICE and the Administrators group by SID or name,
// in any case, and any principal with the highest run level count as the SYSTEM task.
TEST(TaskSchedule, TellsATaskThatRunsElevatedByItsPrincipal) {
  using Kind = TaskSchedule::Kind;
  const auto principal = [](const std::wstring& inside) {
    return L"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n<Task version=\"1.2\"><Principals>"
           L"<Principal id=\"Author\">" +
           inside + L"</Principal></Principals><Actions/></Task>";
  };
  const std::pair<std::wstring, Kind> rows[] = {
      {L"<UserId>S-1-5-18</UserId><RunLevel>HighestAvailable</RunLevel>", Kind::kSystem},
      {L"<UserId>S-1-5-18</UserId>", Kind::kSystem},
      {L"<UserId>SYSTEM</UserId>", Kind::kSystem},
      {L"<UserId>NT AUTHORITY\\SYSTEM</UserId><LogonType>ServiceAccount</LogonType>",
       Kind::kSystem},
      {L"<UserId>nt authority\\system</UserId>", Kind::kSystem},
      {L"<UserId>LocalSystem</UserId>", Kind::kSystem},
      {L"<UserId>\r\n  S-1-5-18 </UserId>", Kind::kSystem},
      {L"<UserId>S-1-5-19</UserId>", Kind::kSystem},
      {L"<UserId>NETWORK SERVICE</UserId>", Kind::kSystem},
      {L"<GroupId>S-1-5-32-544</GroupId><RunLevel>LeastPrivilege</RunLevel>", Kind::kSystem},
      {L"<GroupId>BUILTIN\\Administrators</GroupId>", Kind::kSystem},
      {L"<GroupId>S-1-5-32-545</GroupId><RunLevel>HighestAvailable</RunLevel>", Kind::kSystem},
      {L"<GroupId>S-1-5-32-545</GroupId><RunLevel>LeastPrivilege</RunLevel>", Kind::kUsers},
      {L"<GroupId>Users</GroupId>", Kind::kUsers},
      {L"<UserId>S-1-5-21-1-2-3-1001</UserId><LogonType>InteractiveToken</LogonType>",
       Kind::kUsers},
      {L"<UserId>CONTOSO\\alice</UserId>", Kind::kUsers},
      {L"<UserId>S-1-5-180</UserId>", Kind::kUsers},
      {L"<RunLevel>LeastPrivilege</RunLevel>", Kind::kUsers},
      {L"<LogonType>InteractiveToken</LogonType>", Kind::kNone}};
  for (const auto& [inside, kind] : rows)
    EXPECT_EQ(kind, TaskSchedule::kindOfDefinition(principal(inside))) << narrow(inside);
  EXPECT_EQ(Kind::kNone, TaskSchedule::kindOfDefinition(L""));
  // The definitions the package ships.
  for (const auto& [name, kind] :
       {std::make_pair("system", Kind::kSystem), std::make_pair("users", Kind::kUsers)}) {
    const std::string text = testsupport::readFile(testsupport::executableDirectory() +
                                                   "orrery-updater-" + name + ".xml");
    EXPECT_EQ(kind, TaskSchedule::kindOfDefinition(widen(text, CP_UTF8))) << name;
  }
}

// After a failed run of the settings tool, a SYSTEM task where there was none (or the users')
// before is deleted, with the definition kept; one that was there before stays.
TEST(TaskSchedule, DropsOnlyASystemTaskThatAFailedRunRegistered) {
  using Kind = TaskSchedule::Kind;
  const testsupport::TempDir folder;
  const std::string kept = folder.file(TaskSchedule::kRegistered);
  const auto keep = [&kept](const std::wstring& principal) {
    const std::wstring text =
        L"\xFEFF<Task><Principals><Principal>" + principal + L"</Principal></Principals></Task>";
    testsupport::writeFile(
        kept, std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2));
  };
  keep(L"<UserId>S-1-5-18</UserId>");
  EXPECT_EQ(Kind::kSystem, TaskSchedule::registeredKind(folder.path() + "\\"));
  EXPECT_FALSE(TaskSchedule::dropSystemTaskSince(Kind::kSystem, folder.path() + "\\"));
  EXPECT_TRUE(testsupport::fileExists(kept));
  keep(L"<GroupId>S-1-5-32-545</GroupId>");
  EXPECT_FALSE(TaskSchedule::dropSystemTaskSince(Kind::kNone, folder.path() + "\\"));
  EXPECT_TRUE(testsupport::fileExists(kept));
  keep(L"<UserId>SYSTEM</UserId>");
  EXPECT_TRUE(TaskSchedule::dropSystemTaskSince(Kind::kUsers, folder.path() + "\\"));
  EXPECT_FALSE(testsupport::fileExists(kept));
  EXPECT_EQ(Kind::kNone, TaskSchedule::registeredKind(folder.path() + "\\"));
}
