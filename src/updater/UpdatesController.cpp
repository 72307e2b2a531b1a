#include "updater/UpdatesController.h"

#include <exception>

#include "logging/FunctionTrace.h"
#include "settings/InstallTargets.h"
#include "settings/SettingsKeys.h"
#include "system/CriticalSectionLock.h"
#include "system/CurrentProcess.h"
#include "system/Exception.h"
#include "system/OsVersion.h"
#include "updater/CommandLineParams.h"
#include "updater/ElevatedRelaunch.h"
#include "webupdate/VersionInfo.h"

namespace {

using Step = RunResults::Step;
using Decision = RunResults::Decision;

const char kDownloadOrInstallFailed[] = "The either the download or the installation has failed.";
const char kUacEnabledElevating[] = "UAC IS enabled, attempting to elevate permissions.";
const char kNoUpdatesToInstall[] = "NO updates were available to install !";

std::string code(long value) {
  return "code " + std::to_string(value);
}

}  // namespace

UpdatesController::UpdatesController(const RunConditions& conditions) : conditions_(conditions) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::UpdatesController() ");
  results_.checkOnly = conditions.checkOnly();
  results_.deferred = conditions.isDeferred();
  results_.nextApplyWindow = conditions.nextApplyWindow();
  if (!webUpdater_.isLoaded()) {
    results_.library = RunResults::Library::kMissing;
    results_.libraryError = webUpdater_.lastCode();
    results_.libraryRefusal = webUpdater_.refusal();
  } else if (!(results_.missingExport = webUpdater_.missingExport()).empty()) {
    results_.library = RunResults::Library::kIncompatible;
  }
}

UpdatesController::~UpdatesController() {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "UpdatesController::~UpdatesController() ");
}

void UpdatesController::performUpdates() {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::performUpdates() ");

  if (!isInternetStateOk()) {
    trace.detail("The InternetState is not OK to start downloads, quitting the update process.");
    return;
  }
  typeOfUpdateAvailable type = 0;
  if (!checkForUpdates(type) || type == 0) {
    trace.detail("Checking for updates failed or there are no updates available!");
    return;
  }
  if (!results_.checkOnly.empty()) {
    trace.detail(
        [&] { return "Updates are available; this run only reports them: " + results_.checkOnly; });
    return;
  }
  trace.detail("Updates are available, now, we will attempt to download and install them");
  results_.decision = decideInstallation(type, trace);
  if (results_.decision == Decision::kInstall && !downloadAndInstallUpdates(type)) {
    trace.detail(kDownloadOrInstallFailed);
  } else if (results_.decision == Decision::kElevate) {
    trace.detail(kUacEnabledElevating);
    launchElevatedProcess();
  }
}

RunResults::Decision UpdatesController::decideInstallation(typeOfUpdateAvailable type,
                                                           FunctionTrace& trace) {
  if (!OsVersion::getInstance().isVistaOrLater()) {
    trace.detail(
        "The OS is Win XP or Win 2K, we have the spooler privilages, we do not need extra "
        "permissions");
    return Decision::kInstall;
  }
  trace.detail("We are running on Windows Vista, following the Vista algorithm");

  if (!isProcessRunningWithAdminPrivileges()) {
    trace.detail("The current process is running under an non admin user.");
    // isUacEnabled() is constant true; the branch is kept on purpose.
    if (!CurrentProcess::getInstance()->isUacEnabled()) {
      trace.detail("UAC is NOT enabled under non admin login, EXITING UPDATE PROCESS");
      results_.notPermitted = "not an administrator, UAC off";
      return Decision::kNotPermitted;
    }
    // A relaunched child never relaunches again.
    if (isProcessElevated()) {
      trace.detail("Elevated permissions and still not an Admin. UAC must be off.");
      trace.detail("Exiting update process.");
      results_.notPermitted = "still not an administrator after the relaunch";
      return Decision::kNotPermitted;
    }
    return Decision::kElevate;
  }
  trace.detail("The current process has admin permissions!");

  if (type == 1) {
    trace.detail("This is a CATALOG only update, so we are installing the updates right away!");
    return Decision::kInstall;
  }
  trace.detail("This is a CATALOG + DLLs update");

  if (isProcessElevated()) {
    trace.detail(
        "The process has already been elevated. We have all the permissions we need, attempting "
        "to install updates now.");
    return Decision::kInstall;
  }
  trace.detail("The process has NOT been elevated.");

  if (CurrentProcess::getInstance()->isUacEnabled())
    return Decision::kElevate;
  trace.detail(
      "UAC is NOT enabled and we are running under an admin user. i.e. We have permissions to "
      "write into the drivers dir. Installing updates...");
  return Decision::kInstall;
}

bool UpdatesController::isInternetStateOk() {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::isInternetStateOk() ");
  const bool online = webUpdater_.isInternetAvailable();
  results_.connection = online ? Step::kDone : Step::kFailed;
  results_.connectionCode = webUpdater_.lastCode();
  if (!online) {
    trace.detail("Internet connection is not available, halting the update process");
    return trace.returning(false);
  }
  // A dial-up line is reported as halting, yet the run goes on; deliberate.
  if (webUpdater_.isDialUpConnection())
    trace.detail(
        "The user is connected to the internet over a dial up connection, halting the update "
        "process.");
  return trace.returning(true);
}

bool UpdatesController::isProcessRunningWithAdminPrivileges() {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "UpdatesController::isProcessRunningWithAdminPrivileges() ");
  return trace.returning(spooler_.canWeOpenPrintersInAdminMode());
}

bool UpdatesController::isProcessElevated() {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::isProcessElevated() ");
  {
    CriticalSectionLock lock(CommandLineParams::lock());
    if (CommandLineParams::instance() == nullptr)
      CommandLineParams::createInstance("");
  }
  return trace.returning(CommandLineParams::instance()->containsUacParams());
}

bool UpdatesController::launchElevatedProcess() {
  // The label of isProcessElevated(), reused on purpose.
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::isProcessElevated() ");
  results_.elevationValue = static_cast<long>(ElevatedRelaunch::launch(trace));
  results_.elevation = results_.elevationValue > 32 ? Step::kDone : Step::kFailed;
  return trace.returning(results_.elevation == Step::kDone);
}

bool UpdatesController::checkForUpdates(typeOfUpdateAvailable& type) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::checkForUpdates() ");
  type = 0;
  const std::string softwareVersion = VersionInfo::GetOrreryVersionNumber();
  const std::string softwareUrl = urlGenerator_.generateUrl(ORRERY_VERSION);
  const UpdateCheckResult softwareAnswer =
      webUpdater_.isUpdateAvailable(softwareUrl, softwareVersion);
  results_.software = {true, softwareAnswer, webUpdater_.lastCode(), webUpdater_.lastNewVersion()};
  switch (softwareAnswer) {
    case UPDATE_AVAILABLE:
      trace.detail("Orrery Software Update is available.");
      type = 2;
      trace.detail("Check for a data update also.");
      break;
    case UPDATE_NOT_AVAILABLE:
      trace.detail("Orrery Software Update is NOT available.");
      trace.detail("Will check for a data update.");
      break;
    case UPDATE_CHECK_FAILED:
      trace.detail("Unable to determine if Orrery Software Update is available.");
      trace.detail("Terminating the update process.");
      return trace.returning(false);
    case UPDATE_NO_PRIVILEGE:
      trace.detail("Software Update is available, user does not have priveleges to install.");
      trace.detail("Terminating the update process.");
      return trace.returning(false);
    default:
      break;  // Any other answer goes on to the data check silently.
  }

  const std::string dataVersion = VersionInfo::GetCatalogVersionNumber();
  const std::string dataUrl = urlGenerator_.generateUrl(CATALOG_VERSION);
  // Only the software check can end the run: every other data answer means "not available".
  const UpdateCheckResult dataAnswer = webUpdater_.isUpdateAvailable(dataUrl, dataVersion);
  results_.catalog = {true, dataAnswer, webUpdater_.lastCode(), webUpdater_.lastNewVersion()};
  if (dataAnswer == UPDATE_AVAILABLE) {
    trace.detail("Catalog/Orrery Data Update is available.");
    type = type == 2 ? 3 : 1;
  } else {
    trace.detail("Data Update is NOT available.");
    if (type == 0)
      return trace.returning(false);
  }
  trace.detail("Atleast one update is available");
  return trace.returning(true);
}

bool UpdatesController::downloadAndInstallUpdates(typeOfUpdateAvailable type) {
  FunctionTrace trace = FunctionTrace::open(
      kLogUpdater, "UpdatesController::downloadAndInstallUpdates(" + std::to_string(type) + ") ");
  if (type == 0) {
    trace.detail("There are no updates to download and install.");
    return trace.returning(false);
  }
  std::string softwarePath;
  std::string dataPath;
  if (!downloadUpdates(type, softwarePath, dataPath)) {
    trace.detail("Updates failed to download.");
    return trace.returning(false);
  }
  admitPackage(true, softwarePath);
  admitPackage(false, dataPath);
  const bool installed = installUpdates(softwarePath, dataPath);
  trace.detail([&] {
    return installed ? "Updates were downloaded and installed successfully"
                     : "Updates installation failed, halting the update process.";
  });
  return trace.returning(installed);
}

void UpdatesController::admitPackage(bool software, std::string& path) {
  if (path.empty() || !packages_.isActive())
    return;
  RunResults::Trust& trust = software ? results_.softwareTrust : results_.catalogTrust;
  trust.refusal = packages_.admit(software, path);
  trust.result = trust.refusal.empty() ? Step::kDone : Step::kFailed;
}

bool UpdatesController::downloadUpdates(typeOfUpdateAvailable type,
                                        std::string& softwarePath,
                                        std::string& dataPath) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::downloadUpdates() ");
  trace.detail([&] { return LogText("typeOfUpdateAvailable=") + decimal(type); });
  softwarePath.clear();
  dataPath.clear();
  switch (type) {
    case 1:
      trace.detail("Only Data update is available, so downloading only the data update.");
      return trace.returning(downloadUpdate(false, dataPath));
    case 2:
      trace.detail("Only Software update is available, so downloading only the software update.");
      return trace.returning(downloadUpdate(true, softwarePath));
    case 3:
      trace.detail(
          "Both the software and data updates are available, so downloading both updates.");
      if (!downloadUpdate(true, softwarePath)) {
        softwarePath.clear();
        trace.detail(
            "The software update failed to download, so we not downloading the data update");
        return trace.returning(false);
      }
      if (downloadUpdate(false, dataPath)) {
        trace.detail("Both updates were downloaded successfully.");
        return trace.returning(true);
      }
      trace.detail(
          "The data update failed to download, so we are deleting the downloaded software "
          "update");
      if (!downloads_.deleteFile(softwarePath))
        trace.detail([&] { return "Failed to delete '" + softwarePath + "'"; });
      softwarePath.clear();
      dataPath.clear();
      return trace.returning(false);
    default:
      trace.detail("NO updates are available to download!");
      return trace.returning(false);
  }
}

bool UpdatesController::downloadUpdate(bool isSoftwareUpdate, std::string& path) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::downloadUpdate() ");
  trace.detail([&] { return LogText("isSoftwareUpdate=") + LogText(isSoftwareUpdate); });
  path.clear();
  const std::string url =
      urlGenerator_.generateUrl(isSoftwareUpdate ? ORRERY_DOWNLOAD : CATALOG_DOWNLOAD);
  RunResults::Download& result =
      isSoftwareUpdate ? results_.softwareDownload : results_.catalogDownload;
  bool downloaded = webUpdater_.downloadUpdate(url, path);
  result.code = webUpdater_.lastCode();
  if (downloaded && !downloads_.add(path)) {
    // The record's lock cannot be had: this run goes no further and deletes its own download.
    result.lockFailure = downloads_.failure();
    downloads_.deleteFile(path);
    downloaded = false;
  }
  result.result = downloaded ? Step::kDone : Step::kFailed;
  trace.detail([&] {
    return downloaded ? "The update was downloaded SUCCESSFULLY to: '" + path + "'"
                      : std::string("The update FAILED to download!");
  });
  return trace.returning(downloaded);
}

bool UpdatesController::installUpdates(const std::string& softwarePath,
                                       const std::string& dataPath) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::installUpdates() ");
  trace.detail([&] { return "softwareUpdateFileName=" + softwarePath; });
  trace.detail([&] { return "dataUpdateFileName=" + dataPath; });
  if (softwarePath.empty() && dataPath.empty()) {
    trace.detail(kNoUpdatesToInstall);
    return trace.returning(false);
  }
  const QuietWaitLimit limit = conditions_.quietWaitLimit();
  const bool paused = conditions_.drains()
                          ? spooler_.drainPrinters(pausedPrinters_, limit, &results_.stillBusy)
                          : spooler_.pausePrinters(pausedPrinters_, limit, &results_.stillBusy);
  results_.pause = paused ? Step::kDone : Step::kFailed;
  if (!paused) {
    results_.pauseLockFailure = spooler_.pauseRecordFailure();
    trace.detail("FAILED to pause all printers installed with our driver!");
    performPostUpdateCleanUp(softwarePath, dataPath);
    pausedPrinters_.clear();
    return trace.returning(false);
  }
  trace.detail("All Printer were paused successfully, now applying updates");

  // From here on every way out resumes the printers and handles the downloads, an exception of
  // any type included.
  bool result = false;
  try {
    result = applyUpdates(softwarePath, dataPath, trace);
  } catch (...) {
    // A C++ exception of the vendor's library, say: it ends here, while the library that may own
    // the object is still loaded; the installation has failed, and the printers are resumed.
    BasicLogger::getInstance().write(
        kLogUpdater, LOG_ALWAYS,
        "UpdatesController::installUpdates() An unexpected exception ended the installation.");
    results_.exception = "ended by an unexpected exception";
  }
  const bool resumed = spooler_.resumePrinters(pausedPrinters_);
  results_.resume = resumed ? Step::kDone : Step::kFailed;
  if (!resumed) {
    trace.detail("FAILED to resume all printers installed with our driver!");
    result = false;
  } else {
    trace.detail("All Printer were resumed successfully");
  }
  performPostUpdateCleanUp(softwarePath, dataPath);
  pausedPrinters_.clear();
  return trace.returning(result);
}

bool UpdatesController::applyUpdates(const std::string& softwarePath,
                                     const std::string& dataPath,
                                     FunctionTrace& trace) {
  if (softwarePath.empty()) {
    trace.detail("Only data updates are available to install");
    if (!installDataUpdate(dataPath)) {
      trace.detail("Data update FAILED");
      return false;
    }
    trace.detail("Data update was successful. Setting the flag to indicate it.");
    setDataUpdatedFlag();
    return true;
  }
  trace.detail("Software updates are available to install");
  bool applied = false;
  try {
    applied = webUpdater_.installUpdateUsingCurrentProcess(
        softwarePath, CurrentProcess::getInstance()->getDirectory());
    results_.softwareApply = {applied ? Step::kDone : Step::kFailed, code(webUpdater_.lastCode())};
  } catch (const Exception& e) {
    BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS, e.toString());
    results_.softwareApply = {Step::kFailed, e.toString()};
  }
  if (!applied) {
    trace.detail("The software updates FAILED! exiting update process");
    return false;
  }
  trace.detail("The software updates were applied successfully");
  if (dataPath.empty()) {
    // Misleading line and no flag for a software-only update: both deliberate.
    trace.detail("software update FAILED");
    return true;
  }
  trace.detail("Data update also required.");
  if (!installDataUpdate(dataPath)) {
    trace.detail("Data files update FAILED");
    return false;
  }
  trace.detail("Data update was also successful. Setting the flag to indicate total update.");
  setCompleteSoftwareUpdatedFlag();
  return true;
}

bool UpdatesController::installDataUpdate(const std::string& dataPath) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::installDataUpdate() ");
  if (dataPath.empty()) {
    trace.detail(kNoUpdatesToInstall);
    return trace.returning(false);
  }
  const std::string directory = getDataUpdatesDirectory();
  if (directory.empty()) {
    trace.detail("Failed to retrieve the directory into which we need to install the updates");
    results_.catalogApply = {Step::kFailed, "the data folder could not be found"};
    return trace.returning(false);
  }
  const int error = InstallTargets::makeDirectory(directory, trace);
  if (error != ERROR_SUCCESS) {
    results_.catalogApply = {Step::kFailed,
                             error == ERROR_CANT_ACCESS_FILE
                                 ? "a link in the folder's path"
                                 : "folder not made, error " + std::to_string(error)};
    return trace.returning(false);
  }
  const bool applied = webUpdater_.installUpdateUsingCurrentProcess(dataPath, directory);
  results_.catalogApply = {applied ? Step::kDone : Step::kFailed, code(webUpdater_.lastCode())};
  trace.detail([&] {
    return applied ? "The data updates were applied successfully." : "The data updates FAILED.";
  });
  return trace.returning(applied);
}

std::string UpdatesController::getDataUpdatesDirectory() {
  return InstallTargets::dataUpdatesDirectory();
}

void UpdatesController::setUpdaterFlag(const std::string& name, uint32_t value) {
  InstallTargets::setUpdaterFlag(name, value);
}

void UpdatesController::setDataUpdatedFlag() {
  setUpdaterFlag(SettingsKeys::kDataUpdated, 1);
}

void UpdatesController::setCompleteSoftwareUpdatedFlag() {
  setUpdaterFlag(SettingsKeys::kCompleteSoftwareUpdated, 1);
}

void UpdatesController::performPostUpdateCleanUp(const std::string& softwarePath,
                                                 const std::string& dataPath) {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "UpdatesController::performPostUpdateCleanUp() ");
  // The applies have returned: the verified copies need holding no longer.
  packages_.release();
  downloads_.cleanUp(softwarePath, dataPath, trace);
  packages_.cleanUpDownloads(trace);
}
