#pragma once

#include <windows.h>

#include <cstdint>
#include <list>
#include <string>

#include "printers/PrinterSpoolerWrapper.h"
#include "updater/DownloadRecord.h"
#include "updater/PackageTrust.h"
#include "updater/RunConditions.h"
#include "updater/RunResults.h"
#include "webupdate/UrlGenerator.h"
#include "webupdate/WebUpdaterAdapter.h"

class FunctionTrace;

// What checkForUpdates() found: 0 nothing, 1 catalog data only, 2 software only, 3 both.
using typeOfUpdateAvailable = uint32_t;

// One update run's decision tree: online test, update check, the decision whether this process
// may install (or relaunches itself elevated with "-UAC" and stops), download, installation with
// the printers paused, outcome flags, clean-up. Owns the web-updater adapter (the library is
// loaded for the controller's lifetime), the URL generator, the spooler wrapper, and the record of
// the downloads it has not deleted yet (DownloadRecord), so that a later run deletes them if this
// one dies first. With trusted publishers in force, a downloaded package goes on to the
// installation only as a verified copy signed by one of them (PackageTrust); one that is not is
// deleted before anything is paused.
//
// Every failure becomes a false result and a log line. Each step also reports what happened in
// results() (RunResults, judged into the run's verdict by the caller); nothing the run decides
// depends on them. Printers paused for an installation are resumed on every path.
class UpdatesController {
 public:
  // The run under `conditions` (RunConditions): the update mode and the apply window may make it
  // only check and report, and they set how it waits for the printers. The default is the
  // automatic run, without a window, waiting for all printers at once.
  explicit UpdatesController(const RunConditions& conditions = RunConditions());
  ~UpdatesController();
  UpdatesController(const UpdatesController&) = delete;
  UpdatesController& operator=(const UpdatesController&) = delete;

  void performUpdates();
  // What the steps run so far reported.
  const RunResults& results() const { return results_; }

  bool isInternetStateOk();
  bool isProcessRunningWithAdminPrivileges();
  // Started with the marker "-UAC"; no token is queried.
  bool isProcessElevated();
  // Starts this executable again elevated with "-UAC" alone (ElevatedRelaunch); does not wait.
  bool launchElevatedProcess();

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
  // The catalog's folder (InstallTargets::dataUpdatesDirectory()); empty when it is unknown.
  std::string getDataUpdatesDirectory();

  // The outcome flags that other components read (InstallTargets::setUpdaterFlag()).
  static void setUpdaterFlag(const std::string& name, uint32_t value);
  static void setDataUpdatedFlag();
  static void setCompleteSoftwareUpdatedFlag();

 private:
  // Whether this process installs the updates itself, relaunches itself elevated or may not (and
  // why not), from the Windows version, its rights, the "-UAC" marker and the kind of update.
  RunResults::Decision decideInstallation(typeOfUpdateAvailable type, FunctionTrace& trace);
  // The applies, once the printers are paused; false when one failed.
  bool applyUpdates(const std::string& softwarePath,
                    const std::string& dataPath,
                    FunctionTrace& trace);
  // With trusted publishers in force, replaces the downloaded `path` by its verified copy, or
  // empties it when the package is refused; nothing without a list or a path.
  void admitPackage(bool software, std::string& path);

  WebUpdaterAdapter webUpdater_;
  UrlGenerator urlGenerator_;
  PrinterSpoolerWrapper spooler_;
  std::list<HANDLE> pausedPrinters_;
  DownloadRecord downloads_;
  RunResults results_;
  PackageTrust packages_{downloads_};
  RunConditions conditions_;
};
