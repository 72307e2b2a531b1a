#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <utility>

#include "printers/PrinterSpoolerWrapper.h"
#include "updater/DownloadRecord.h"
#include "updater/RunOutcome.h"
#include "webupdate/UrlGenerator.h"
#include "webupdate/WebUpdaterAdapter.h"

class FunctionTrace;

// What checkForUpdates() found: 0 nothing, 1 catalog data only, 2 software only, 3 both.
using typeOfUpdateAvailable = uint32_t;

// One update run: online test, update check, the decision whether this process may install
// (or relaunches itself elevated with "-UAC" and stops), download, installation with the
// printers paused, outcome flags, clean-up. Owns the web-updater adapter (the library is loaded
// for the controller's lifetime), the URL generator and the spooler wrapper, and the note of the
// downloads it has not deleted yet (DownloadRecord), so that a later run deletes them if this one
// dies first.
//
// Every failure becomes a false result and a log line; the run's verdict (how it ended, the
// failing step with its code, what it applied) is kept for the caller to report, and nothing the
// run decides depends on it. Printers paused for an installation are resumed on every path.
class UpdatesController {
 public:
  // The shell's ShellExecuteA; a seam so that tests can present a declined elevation prompt.
  using ShellExecuteFunction = HINSTANCE(WINAPI*)(HWND, LPCSTR, LPCSTR, LPCSTR, LPCSTR, INT);

  UpdatesController();
  ~UpdatesController();
  UpdatesController(const UpdatesController&) = delete;
  UpdatesController& operator=(const UpdatesController&) = delete;

  void performUpdates();
  // How the run ended: the first failure or warning noted, else UpToDate or Updated.
  const RunVerdict& verdict() const { return verdict_; }

  bool isInternetStateOk();
  bool isProcessRunningWithAdminPrivileges();
  // Started with the marker "-UAC"; no token is queried.
  bool isProcessElevated();
  // Starts this executable again through "RunAs" with "-UAC" alone; does not wait for it. Calls
  // the hand-over just before, so that the child can take the run over.
  bool launchElevatedProcess();
  // What launchElevatedProcess() calls before it starts the child: the release of the run's lock
  // (RunLock::handOver()), which the caller owns. None by default.
  void setHandOver(std::function<void()> handOver) { handOver_ = std::move(handOver); }

  bool checkForUpdates(typeOfUpdateAvailable& type);
  bool downloadAndInstallUpdates(typeOfUpdateAvailable type);
  // Software first, then data; a failed data download removes the software download.
  bool downloadUpdates(typeOfUpdateAvailable type,
                       std::string& softwarePath,
                       std::string& dataPath);
  bool downloadUpdate(bool isSoftwareUpdate, std::string& path);

  bool installUpdates(const std::string& softwarePath, const std::string& dataPath);
  bool installDataUpdate(const std::string& dataPath);
  void performPostUpdateCleanUp(const std::string& softwarePath, const std::string& dataPath);
  // The all-users application-data folder + "DriverName" + "DataUpdatesDirectoryName"; empty
  // when the folder is unknown.
  std::string getDataUpdatesDirectory();

  // The outcome flags that other components read: the DWORD `name` in "Settings\Updater" is set
  // to `value` unless it holds 2 (a flag that another component set to 2 is never overwritten);
  // an absent flag is created as 0 first.
  static void setUpdaterFlag(const std::string& name, uint32_t value);
  static void setDataUpdatedFlag();
  static void setCompleteSoftwareUpdatedFlag();

  static void setShellExecuteFunction(ShellExecuteFunction function);

 private:
  enum class InstallDecision { kInstall, kElevate, kStop };
  // Whether this process installs the updates itself, relaunches itself elevated or stops, from
  // the Windows version, its rights, the "-UAC" marker and the kind of update.
  InstallDecision decideInstallation(typeOfUpdateAvailable type, FunctionTrace& trace);
  // Notes how the run ends unless a failure or warning was noted first; what was applied stays.
  void conclude(RunOutcome outcome, const std::string& detail);

  WebUpdaterAdapter webUpdater_;
  UrlGenerator urlGenerator_;
  PrinterSpoolerWrapper spooler_;
  std::list<HANDLE> pausedPrinters_;
  DownloadRecord downloads_;
  std::function<void()> handOver_;
  RunVerdict verdict_;
};
