// orreryactions.dll: the package's custom actions (the Binary "OrreryActions"), each an export
// that Windows Installer calls with the session's handle and that returns ERROR_SUCCESS or
// ERROR_INSTALL_FAILURE. The deferred ones read "STORE|COMMAND" as their CustomActionData: the
// store's key below HKEY_LOCAL_MACHINE, and the settings tool's command line.
//   ValidateProperties   immediate: refuses an invalid property before anything is written
//                        (PropertyCheck), with a message naming it; SCHEDULE in lower case
//   InstallSettings      deferred, the install's last step: keeps the store as it is
//                        (StoreBackup), runs the tool and copies every line it prints, and its
//                        exit code, into the msiexec log. When the tool fails, the store is put
//                        back as it was and the install fails (and rolls back the rest); else the
//                        copy is deleted.
//   RemoveSettings       deferred: runs the tool (its /remove) the same way
// The store is put back by InstallSettings itself, not by a rollback action: nothing of the
// install runs after it, and wixl can make no rollback action.
#include <windows.h>

#include <msi.h>
#include <msiquery.h>

#include <string>

#include "InstallerSession.h"
#include "PropertyCheck.h"
#include "StoreBackup.h"

#define ORRERY_ACTION extern "C" __declspec(dllexport) UINT __stdcall

namespace {

// Where InstallSettings keeps the store, below HKEY_LOCAL_MACHINE.
const char kBackup[] = "Software\\Corvane\\Orrery Updater\\Store before install";
// How long the settings tool may run: its /remove waits two minutes for a running update.
const DWORD kToolTimeoutMs = 300000;

std::wstring wide(const std::string& text) {
  if (text.empty())
    return std::wstring();
  std::wstring result(text.size(), L'\0');
  const int length = MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()),
                                         &result[0], static_cast<int>(result.size()));
  result.resize(static_cast<size_t>(length > 0 ? length : 0));
  return result;
}

std::string narrow(const std::wstring& text) {
  std::string result;
  for (const wchar_t c : text)
    result += static_cast<char>(c < 0x80 ? c : L'?');  // The store's path is plain ASCII.
  return result;
}

class Handle {
 public:
  explicit Handle(HANDLE handle = nullptr) : handle_(handle) {}
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() { reset(); }
  void reset() {
    if (handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE)
      CloseHandle(handle_);
    handle_ = nullptr;
  }
  HANDLE* receive() { return &handle_; }
  HANDLE get() const { return handle_; }

 private:
  HANDLE handle_;
};

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
      session.log(L"cvupsettings: " + wide(line));
    start = end + 1;
  }
}

// Runs `command` with its standard output and error in `output`; its exit code, or -1 with
// `output` saying why it could not run or did not end in time.
long runCaptured(std::wstring command, std::string& output) {
  SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
  Handle read, write;
  if (!CreatePipe(read.receive(), write.receive(), &inherit, 0) ||
      !SetHandleInformation(read.get(), HANDLE_FLAG_INHERIT, 0)) {
    output = "could not make a pipe (error " + std::to_string(GetLastError()) + ")";
    return -1;
  }
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = startup.hStdError = write.get();
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(nullptr, &command[0], nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                      nullptr, &startup, &process)) {
    output = "could not start (error " + std::to_string(GetLastError()) + ")";
    return -1;
  }
  const Handle child(process.hProcess), thread(process.hThread);
  write.reset();  // The pipe ends once the tool (and whatever inherited it) has closed it.
  char buffer[4096];
  DWORD got = 0;
  while (ReadFile(read.get(), buffer, sizeof(buffer), &got, nullptr) && got > 0)
    output.append(buffer, got);
  DWORD code = 0;
  if (WaitForSingleObject(child.get(), kToolTimeoutMs) != WAIT_OBJECT_0 ||
      !GetExitCodeProcess(child.get(), &code)) {
    output += "did not end within " + std::to_string(kToolTimeoutMs / 1000) + " s\n";
    TerminateProcess(child.get(), 1);
    return -1;
  }
  return static_cast<long>(code);
}

// The settings tool's run: true when it exited with 0; otherwise the install is failed with its
// exit code and its last line.
bool runSettingsTool(const InstallerSession& session, const std::wstring& command) {
  std::string output;
  const long code = runCaptured(command, output);
  logLines(session, output);
  if (code == 0)
    return true;
  std::wstring reason =
      L"The settings tool failed (exit " + std::to_wstring(code) + L"): " + command;
  const std::string::size_type last = output.find_last_not_of("\r\n");
  if (last != std::string::npos)
    reason += L": " + wide(output.substr(0, last + 1));
  session.fail(reason);
  return false;
}

// A deferred action's CustomActionData, "STORE|COMMAND".
struct ActionData {
  explicit ActionData(const InstallerSession& session)
      : ActionData(session.property(L"CustomActionData")) {}
  explicit ActionData(const std::wstring& data)
      : backup(narrow(data.substr(0, data.find(L'|'))), kBackup),
        command(data.find(L'|') == std::wstring::npos ? std::wstring()
                                                      : data.substr(data.find(L'|') + 1)) {}
  StoreBackup backup;
  std::wstring command;
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
  return ERROR_SUCCESS;
}

ORRERY_ACTION InstallSettings(MSIHANDLE install) {
  const InstallerSession session(install);
  const ActionData data(session);
  std::string error;
  if (!data.backup.save(error)) {
    session.fail(L"Could not keep the settings as they are before the install: " + wide(error));
    return ERROR_INSTALL_FAILURE;
  }
  if (runSettingsTool(session, data.command)) {
    data.backup.discard(error);
    return ERROR_SUCCESS;
  }
  if (!data.backup.restore(error))
    session.log(L"Could not put the settings back as they were before the install: " + wide(error));
  return ERROR_INSTALL_FAILURE;
}

ORRERY_ACTION RemoveSettings(MSIHANDLE install) {
  const InstallerSession session(install);
  const ActionData data(session);
  return runSettingsTool(session, data.command) ? ERROR_SUCCESS : ERROR_INSTALL_FAILURE;
}
