#include <gtest/gtest.h>

#include <map>
#include <string>

#include "PropertyCheck.h"
#include "WideText.h"
#include "support/TestSupport.h"

namespace {

using Properties = std::map<std::wstring, std::wstring>;

PropertyCheck checkOf(const Properties& properties) {
  return PropertyCheck([properties](const wchar_t* name) {
    const auto found = properties.find(name);
    return found == properties.end() ? std::wstring() : found->second;
  });
}

// The refusal up to its reason ("NAME=value is refused:"); "" when accepted.
std::wstring refused(const Properties& properties) {
  const std::wstring refusal = checkOf(properties).refusal(), refused = L" is refused:";
  return refusal.substr(0, refusal.find(refused) + refused.size());
}

}  // namespace

// INSTALLDIR must lie below ProgramFiles64Folder as Windows resolves the two paths.
TEST(PropertyCheck, TakesOnlyAFolderBelowProgramFiles) {
  const std::pair<const wchar_t*, bool> rows[] = {
      {L"C:\\Program Files\\Corvane\\Orrery\\", true},
      {L"c:\\PROGRAM FILES\\Corvane", true},
      {L"C:\\Program Files\\.\\Corvane\\\\Orrery\\", true},
      {L"C:\\Program Files\\Corvane\\..\\..\\Tools\\", false},
      {L"C:\\Program Files\\..\\Program Files\\Orrery\\", true},
      {L"C:\\Program Files\\", false},
      {L"C:\\Program Files", false},
      {L"C:\\Program Files (x86)\\Corvane\\", false},
      {L"C:\\Program FilesX\\Corvane\\", false},
      {L"C:\\Tools\\Orrery\\", false},
      {L"D:\\Program Files\\Corvane\\", false},
      {L"\\\\server\\share\\Program Files\\Corvane\\", false},
      {L"\\\\?\\C:\\Program Files\\Corvane\\", false},
      {L"Program Files\\Corvane\\", false},
      {L"", false}};
  for (const auto& [folder, taken] : rows)
    EXPECT_EQ(taken ? L"" : L"INSTALLDIR=" + std::wstring(folder) + L" is refused:",
              refused({{L"ProgramFiles64Folder", L"C:\\Program Files\\"}, {L"INSTALLDIR", folder}}))
        << narrow(folder);
}

// The task and whom it runs as, against the store's lock, on a first install (with its defaults)
// and on an upgrade (with the task registered from INSTALLDIR, which stays unless SCHEDULE is
// given): a SYSTEM task over an open store and a users' task over a locked one are refused.
TEST(PropertyCheck, RefusesATaskOverAStoreItCannotTrustOrOpen) {
  const testsupport::TempDir root;
  const std::wstring folder = widen(root.path()) + L"\\Orrery\\";
  CreateDirectoryW(folder.c_str(), nullptr);
  const auto registered = [&folder](const wchar_t* principal) {
    const std::wstring text =
        L"\xFEFF<Task><Principal>" + std::wstring(principal) + L"</Principal>";
    testsupport::writeFile(
        narrow(folder) + "orrery-updater-task.xml",
        std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)));
  };
  // Each row: the refusal's start, or SCHEDULE and LOCKSTORE as the install applies them.
  const struct {
    const wchar_t* task;  // the principal registered, or nullptr: no task
    Properties given;
    std::wstring expected;
  } rows[] = {
      {nullptr, {}, L"system,1"},
      {nullptr, {{L"SCHEDULE", L"Users"}, {L"LOCKSTORE", L"0"}}, L"users,0"},
      {nullptr, {{L"SCHEDULE", L"NONE"}, {L"LOCKSTORE", L"0"}}, L"none,0"},
      {nullptr, {{L"LOCKSTORE", L"0"}}, L"LOCKSTORE=0 is refused:"},
      {nullptr, {{L"SCHEDULE", L"System"}, {L"LOCKSTORE", L"0"}}, L"SCHEDULE=System is refused:"},
      {nullptr, {{L"SCHEDULE", L"users"}}, L"SCHEDULE=users is refused:"},
      {nullptr, {{L"SCHEDULE", L"daily"}}, L"SCHEDULE=daily is refused:"},
      {nullptr, {{L"LOCKSTORE", L"yes"}}, L"LOCKSTORE=yes is refused:"},
      // Upgrades and second installs: only what is given changes.
      {L"<UserId>S-1-5-18</UserId>", {{L"Installed", L"1"}}, L","},
      {L"<UserId>S-1-5-18</UserId>",
       {{L"Installed", L"1"}, {L"LOCKSTORE", L"0"}},
       L"LOCKSTORE=0 is refused:"},
      {L"<UserId>S-1-5-18</UserId>",
       {{L"WIX_UPGRADE_DETECTED", L"{X}"}, {L"LOCKSTORE", L"0"}, {L"SCHEDULE", L"users"}},
       L"users,0"},
      {L"<GroupId>S-1-5-32-545</GroupId>", {{L"Installed", L"1"}, {L"LOCKSTORE", L"0"}}, L",0"},
      {L"<GroupId>S-1-5-32-545</GroupId>",
       {{L"Installed", L"1"}, {L"LOCKSTORE", L"1"}},
       L"LOCKSTORE=1 is refused:"},
      {nullptr, {{L"Installed", L"1"}, {L"LOCKSTORE", L"0"}}, L",0"}};
  for (const auto& row : rows) {
    DeleteFileW((folder + L"orrery-updater-task.xml").c_str());
    if (row.task != nullptr)
      registered(row.task);
    Properties properties = row.given;
    properties[L"ProgramFiles64Folder"] = widen(root.path());
    properties[L"INSTALLDIR"] = folder;
    const PropertyCheck check = checkOf(properties);
    const std::wstring refusal = refused(properties);
    EXPECT_EQ(row.expected, refusal.empty() ? check.schedule() + L"," + check.lockStore() : refusal)
        << narrow(check.refusal());
  }
}
