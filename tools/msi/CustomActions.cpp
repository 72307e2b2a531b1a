// orreryactions.dll: the package's custom actions (the Binary "OrreryActions"), each an export
// that Windows Installer calls with the session's handle and that returns ERROR_SUCCESS or
// ERROR_INSTALL_FAILURE. The deferred ones read "TOOL|SETTINGSFILE|ARGUMENTS" as their
// CustomActionData: the settings tool's path, the deployer's settings file (or nothing) and the
// tool's other options. The store's key follows from the tool's name, as the tool and the program
// compute it (its local id, and the product family's key).
//   ValidateProperties   immediate: refuses an invalid property before anything is written
//                        (PropertyCheck), with a message naming it; sets SCHEDULE (in lower
//                        case) and LOCKSTORE as the install applies them
//   InstallSettings      deferred, the install's last step: reads SETTINGSFILE as checked into a
//                        folder of its own (SettingsFileCopy), keeps the store as it is
//                        (StoreBackup), runs the tool with that copy and copies every line it
//                        prints, and its exit code, into the msiexec log. When the tool fails, the
//                        store is put back as it was, a SYSTEM task it registered is deleted, and
//                        the install fails (and rolls back the rest); else the backup is deleted.
//   RemoveSettings       deferred: runs the tool (its /remove) the same way
// The store is put back by InstallSettings itself, not by a rollback action: nothing of the
// install runs after it, and wixl can make no rollback action.
#include <windows.h>

#include <msi.h>
#include <msiquery.h>

#include <string>
#include <vector>

#include "CapturedRun.h"
#include "InstallerSession.h"
#include "PrivateFolder.h"
#include "PropertyCheck.h"
#include "SettingsFileCopy.h"
#include "StoreBackup.h"
#include "TaskKind.h"
#include "WideText.h"
#include "system/ProductFamily.h"

#define ORRERY_ACTION extern "C" __declspec(dllexport) UINT __stdcall

namespace {

// Where InstallSettings keeps the store, below HKEY_LOCAL_MACHINE.
const char kBackup[] = "Software\\Corvane\\Orrery Updater\\Store before install";
// How long the settings tool may run: its /remove waits two minutes for a running update.
const DWORD kToolTimeoutMs = 300000;

// Logs each line of `output` (the tool's, in the ANSI code page) on its own.
void logLines(const InstallerSession& session, const std::string& output) {
  std::string::size_type start = 0;
  while (start < output.size()) {
    std::string::size_type end = output.find('\n', start);
    if (end == std::string::npos)
      end = output.size();
    std::string line = output.substr(start, end - start);
    if (!line.empty() && line.back() == '\r')
      line.pop_back();
    if (!line.empty())
      session.log(L"cvupsettings: " + widen(line));
    start = end + 1;
  }
}

// The settings tool's run: true when it exited with 0; otherwise the install is failed with its
// exit code and its last line.
bool runSettingsTool(const InstallerSession& session,
                     const std::wstring& command,
                     const PrivateFolder& folder) {
  std::string output;
  const long code =
      runCaptured(command, folder.file(L"cvupsettings-output.txt"), kToolTimeoutMs, output);
  logLines(session, output);
  if (code == 0)
    return true;
  std::wstring reason =
      L"The settings tool failed (exit " + std::to_wstring(code) + L"): " + command;
  const std::string::size_type last = output.find_last_not_of("\r\n");
  if (last != std::string::npos)
    reason += L": " + widen(output.substr(0, last + 1));
  session.fail(reason);
  return false;
}

// Whether `folder` was made; the install is failed when not.
bool isMade(const InstallerSession& session, const PrivateFolder& folder) {
  if (!folder.valid())
    session.fail(
        L"Could not make a folder that only administrators can change, for the settings "
        L"tool (error " +
        std::to_wstring(GetLastError()) + L")");
  return folder.valid();
}

// A deferred action's CustomActionData, "TOOL|SETTINGSFILE|ARGUMENTS" (a path holds no '|').
struct ActionData {
  explicit ActionData(const InstallerSession& session) {
    const std::wstring data = session.property(L"CustomActionData");
    const std::wstring::size_type first = data.find(L'|');
    const std::wstring::size_type second =
        first == std::wstring::npos ? first : data.find(L'|', first + 1);
    tool = data.substr(0, first);
    if (second != std::wstring::npos) {
      settingsFile = data.substr(first + 1, second - first - 1);
      arguments = data.substr(second + 1);
    }
  }
  // The store's key below HKEY_LOCAL_MACHINE, as the tool computes it from its own name.
  std::string store() const { return localStorePath(localIdOf(narrow(tool))); }
  // The tool's folder, with its trailing backslash, where it keeps the task it registered.
  std::string toolFolder() const { return narrow(tool.substr(0, tool.rfind(L'\\') + 1)); }

  std::wstring tool;
  std::wstring settingsFile;
  std::wstring arguments;
};

}  // namespace

ORRERY_ACTION ValidateProperties(MSIHANDLE install) {
  const InstallerSession session(install);
  const PropertyCheck check([&session](const wchar_t* name) { return session.property(name); });
  const std::wstring refusal = check.refusal();
  if (!refusal.empty()) {
    session.fail(refusal);
    return ERROR_INSTALL_FAILURE;
  }
  session.setProperty(L"SCHEDULE", check.schedule());
  session.setProperty(L"LOCKSTORE", check.lockStore());
  return ERROR_SUCCESS;
}

ORRERY_ACTION InstallSettings(MSIHANDLE install) {
  const InstallerSession session(install);
  const ActionData data(session);
  const PrivateFolder folder;
  if (!isMade(session, folder))
    return ERROR_INSTALL_FAILURE;
  std::wstring command = L"\"" + data.tool + L"\"" + data.arguments;
  if (!data.settingsFile.empty()) {
    std::wstring copy;
    const std::wstring refusal = copySettingsFile(data.settingsFile, folder, copy);
    if (!refusal.empty()) {
      session.fail(refusal);
      return ERROR_INSTALL_FAILURE;
    }
    session.log(L"SETTINGSFILE=" + data.settingsFile + L" was read as checked into " + copy);
    command += L" /file \"" + copy + L"\"";
  }
  const StoreBackup backup(data.store(), kBackup);
  const TaskSchedule::Kind taskBefore = TaskSchedule::registeredKind(data.toolFolder());
  std::string error;
  std::vector<std::string> links;
  if (!backup.save(error, links)) {
    session.fail(L"Could not keep the settings as they are before the install: " + widen(error));
    return ERROR_INSTALL_FAILURE;
  }
  for (const std::string& link : links)
    session.log(L"Not kept with the settings before the install: HKLM\\" + widen(data.store()) +
                L"\\" + widen(link) + L", a registry link");
  if (runSettingsTool(session, command, folder)) {
    backup.discard(error);
    return ERROR_SUCCESS;
  }
  if (!backup.restore(error))
    session.log(L"Could not put the settings back as they were before the install: " +
                widen(error));
  // The store is as it was, maybe open to users: a SYSTEM task that the failed run registered
  // must not run from it.
  if (TaskSchedule::dropSystemTaskSince(taskBefore, data.toolFolder()))
    session.log(L"Deleted the SYSTEM task that the failed settings tool registered");
  return ERROR_INSTALL_FAILURE;
}

ORRERY_ACTION RemoveSettings(MSIHANDLE install) {
  const InstallerSession session(install);
  const ActionData data(session);
  const PrivateFolder folder;
  if (!isMade(session, folder))
    return ERROR_INSTALL_FAILURE;
  return runSettingsTool(session, L"\"" + data.tool + L"\"" + data.arguments, folder)
             ? ERROR_SUCCESS
             : ERROR_INSTALL_FAILURE;
}
