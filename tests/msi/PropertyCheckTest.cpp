#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>

#include "PropertyCheck.h"
#include "WideText.h"
#include "support/TestSupport.h"

namespace {

using Properties = std::map<std::wstring, std::wstring>;

PropertyCheck checkOf(const Properties& properties,
                      PropertyCheck::FolderSecurity folders = PropertyCheck::folderSecurity) {
  return PropertyCheck(
      [properties](const wchar_t* name) {
        const auto found = properties.find(name);
        return found == properties.end() ? std::wstring() : found->second;
      },
      std::move(folders));
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
// and on an upgrade (with the task registered from INSTALLDIR, registered again unless SCHEDULE is
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
      // Upgrades and second installs: the task the tool registered is registered again (with the
      // new definition), no task stays none; otherwise only what is given changes.
      {L"<UserId>S-1-5-18</UserId>", {{L"Installed", L"1"}}, L"system,"},
      {L"<UserId>S-1-5-18</UserId>", {{L"WIX_UPGRADE_DETECTED", L"{X}"}}, L"system,"},
      {L"<UserId>S-1-5-18</UserId>",
       {{L"Installed", L"1"}, {L"LOCKSTORE", L"0"}},
       L"LOCKSTORE=0 is refused:"},
      {L"<UserId>S-1-5-18</UserId>",
       {{L"WIX_UPGRADE_DETECTED", L"{X}"}, {L"LOCKSTORE", L"0"}, {L"SCHEDULE", L"users"}},
       L"users,0"},
      {L"<GroupId>S-1-5-32-545</GroupId>",
       {{L"Installed", L"1"}, {L"LOCKSTORE", L"0"}},
       L"users,0"},
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

// TRUSTEDPUBLISHERS: SHA-256 hashes separated by ';', never over a store the updater will not
// take a list from.
TEST(PropertyCheck, TakesOnlyPublisherHashesOverALockedStore) {
  const std::wstring a(64, L'a'), b = std::wstring(63, L'0') + L"F";
  const std::pair<std::wstring, std::wstring> rows[] = {
      {a, L""},
      {a + L"; " + b + L";", L""},
      {a + L";" + a.substr(1), L"TRUSTEDPUBLISHERS=" + a + L";" + a.substr(1) + L" is refused:"},
      {a + L"a", L"TRUSTEDPUBLISHERS=" + a + L"a is refused:"},
      {std::wstring(63, L'a') + L"g",
       L"TRUSTEDPUBLISHERS=" + std::wstring(63, L'a') + L"g is refused:"},
      {L" ; ", L"TRUSTEDPUBLISHERS= ;  is refused:"}};
  for (const auto& [list, expected] : rows) {
    EXPECT_EQ(expected, refused({{L"ProgramFiles64Folder", L"C:\\Program Files\\"},
                                 {L"INSTALLDIR", L"C:\\Program Files\\Orrery\\"},
                                 {L"TRUSTEDPUBLISHERS", list}}))
        << narrow(list);
  }
  EXPECT_EQ(L"TRUSTEDPUBLISHERS=" + a + L" is refused:",
            refused({{L"ProgramFiles64Folder", L"C:\\Program Files\\"},
                     {L"INSTALLDIR", L"C:\\Program Files\\Orrery\\"},
                     {L"SCHEDULE", L"users"},
                     {L"LOCKSTORE", L"0"},
                     {L"TRUSTEDPUBLISHERS", a}}));
}

// What the settings tool receives on its command line holds no double quote and no control
// character, which would end its option and start another ("/unlock", "/file \\host\evil.loc");
// the paths hold no '|' either, which separates the parts of the install's data.
TEST(PropertyCheck, RefusesTextThatWouldBreakTheToolsCommandLine) {
  const struct {
    const wchar_t* name;
    const wchar_t* value;
    bool taken;
  } rows[] = {{L"WEBSERVERURL", L"x\" /file \"\\\\host\\share\\evil.loc", false},
              {L"WEBSERVERURL", L"http://x/\" /unlock /set \"a=b", false},
              {L"DRIVERNAME", L"Office\tDriver", false},
              {L"DLLPATH", L"C:\\Data\"", false},
              {L"DATAPATH", L"C:\\Data\nX", false},
              {L"DATAPATH", L"C:\\Data\x7F", false},
              {L"SETTINGSFILE", L"C:\\own.loc| /unlock", false},
              {L"INSTALLDIR", L"C:\\Program Files\\A|B\\", false},
              {L"INSTALLDIR", L"C:\\Program Files\\A\"B\\", false},
              {L"WEBSERVERURL", L"http://x/[package_code]?a=1|2&b='3'", true},
              {L"DRIVERNAME", L"Corvane Inkjet Driver (v2) | 64-bit", true},
              {L"DLLPATH", L"C:\\Data\\", true}};
  for (const auto& row : rows) {
    Properties properties = {{L"ProgramFiles64Folder", L"C:\\Program Files\\"},
                             {L"INSTALLDIR", L"C:\\Program Files\\Corvane\\Orrery\\"}};
    properties[row.name] = row.value;
    const std::wstring refusal =
        checkOf(properties, [](const std::wstring&) { return std::string(); }).refusal();
    EXPECT_EQ(
        row.taken ? L"" : std::wstring(row.name) + L"=" + row.value + L" is refused: it holds",
        refusal.substr(0, refusal.find(L" a double quote")))
        << narrow(row.value);
  }
}

// The folders of INSTALLDIR that exist, and those above it up to Program Files, must let no one
// but SYSTEM, administrators, TrustedInstaller and the installing account change them, and be no
// junction: another vendor's "Corvane" that users may modify is refused. Read from SDDL, as Windows
// gives them (under Wine every folder reads back as the running account's).
TEST(PropertyCheck, RefusesAnInstallFolderThatUsersCouldChangeOnTheWay) {
  const std::string trustedInstaller =
      "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
  // C:\Program Files and a folder made below it as Windows makes them.
  const std::string programFiles = "O:" + trustedInstaller + "D:P(A;;FA;;;" + trustedInstaller +
                                   ")(A;;0x1301bf;;;SY)(A;OICIIO;GA;;;SY)(A;;0x1301bf;;;BA)"
                                   "(A;OICIIO;GA;;;BA)(A;;0x1200a9;;;BU)(A;OICIIO;GXGR;;;BU)"
                                   "(A;OICIIO;GA;;;CO)(A;;0x1200a9;;;AC)";
  const std::string madeBelow =
      "O:BAD:AI(A;OICIIOID;GA;;;CO)(A;OICIID;FA;;;SY)(A;OICIID;FA;;;BA)(A;OICIID;0x1200a9;;;BU)";
  const struct {
    std::string corvane, orrery, top;  // "" : no such folder
    std::wstring refused;              // the reason up to its ", and whoever ..."
  } rows[] = {{"", "", programFiles, L""},
              {madeBelow, madeBelow, programFiles, L""},
              {madeBelow, "", programFiles, L""},
              {"O:BAD:(A;OICI;FA;;;BA)(A;OICI;0x1301bf;;;BU)", "", programFiles,
               L"S-1-5-32-545 can change C:\\Program Files\\Corvane"},
              {"O:BAD:(A;OICI;FA;;;BA)(A;OICI;0x1301bf;;;AU)", madeBelow, programFiles,
               L"S-1-5-11 can change C:\\Program Files\\Corvane"},
              {madeBelow, "O:S-1-5-21-1-2-3-1001D:(A;OICI;FA;;;BA)", programFiles,
               L"S-1-5-21-1-2-3-1001 can change C:\\Program Files\\Corvane\\Orrery"},
              {PropertyCheck::kLinkFolder, "", programFiles,
               L"C:\\Program Files\\Corvane is a junction or a link"},
              {madeBelow, "unknown", programFiles,
               L"unknown can change C:\\Program Files\\Corvane\\Orrery"},
              {"", "", "O:BAD:(A;OICI;FA;;;BA)(A;OICI;0x1301bf;;;BU)",
               L"S-1-5-32-545 can change C:\\Program Files"}};
  for (const auto& row : rows) {
    const std::map<std::wstring, std::string> folders = {
        {L"C:\\Program Files", row.top},
        {L"C:\\Program Files\\Corvane", row.corvane},
        {L"C:\\Program Files\\Corvane\\Orrery", row.orrery}};
    const Properties properties = {{L"ProgramFiles64Folder", L"C:\\Program Files\\"},
                                   {L"INSTALLDIR", L"C:\\Program Files\\Corvane\\Orrery\\"}};
    const std::wstring refusal =
        checkOf(properties, [&folders](const std::wstring& path) {
          const auto found = folders.find(path);
          return found == folders.end() ? std::string("unknown") : found->second;
        }).refusal();
    const std::wstring start = L"INSTALLDIR=C:\\Program Files\\Corvane\\Orrery\\ is refused: ";
    EXPECT_EQ(row.refused.empty() ? L"" : start + row.refused,
              refusal.substr(0, refusal.find(L", and whoever")))
        << narrow(refusal);
  }
}
