#include "updater/UpdatesController.h"

#include <shellapi.h>
#include <shlobj.h>

#include <cstdio>

#include "logging/FunctionTrace.h"
#include "settings/PathHelpers.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "system/CriticalSectionLock.h"
#include "system/CurrentProcess.h"
#include "system/Exception.h"
#include "system/OsVersion.h"
#include "updater/CommandLineParams.h"
#include "webupdate/VersionInfo.h"

namespace {

const char kDownloadOrInstallFailed[] = "The either the download or the installation has failed.";
const char kUacEnabledElevating[] = "UAC IS enabled, attempting to elevate permissions.";
const char kNoUpdatesToInstall[] = "NO updates were available to install !";
const char kDefaultDataUpdatesDirectoryName[] = "Job Status";
const int kCommonAppData = 0x23;  // CSIDL_COMMON_APPDATA
const int kShowNormal = 1;

UpdatesController::ShellExecuteFunction g_shellExecute = &ShellExecuteA;

}  // namespace

void UpdatesController::setShellExecuteFunction(ShellExecuteFunction function) {
  g_shellExecute = function != nullptr ? function : &ShellExecuteA;
}

UpdatesController::UpdatesController() {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::UpdatesController() ");
}

UpdatesController::~UpdatesController() {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "UpdatesController::~UpdatesController() ");
}

void UpdatesController::performUpdates() {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::performUpdates() ");

  if (!isInternetStateOk()) {
    trace.detail("The InternetState is not OK to start downloads, quitting the update process.");
    if (webUpdater_.isLoaded())
      conclude(RunOutcome::kOffline,
               "connection check: code " + std::to_string(webUpdater_.lastCode()));
    else
      conclude(RunOutcome::kLibraryMissing,
               "library load: error " + std::to_string(webUpdater_.lastCode()));
    return;
  }
  typeOfUpdateAvailable type = 0;
  if (!checkForUpdates(type) || type == 0) {
    trace.detail("Checking for updates failed or there are no updates available!");
    return;
  }
  trace.detail("Updates are available, now, we will attempt to download and install them");
  switch (decideInstallation(type, trace)) {
    case InstallDecision::kInstall:
      if (!downloadAndInstallUpdates(type))
        trace.detail(kDownloadOrInstallFailed);
      break;
    case InstallDecision::kElevate:
      trace.detail(kUacEnabledElevating);
      if (launchElevatedProcess())
        conclude(RunOutcome::kElevating, "relaunched with -UAC");
      else
        conclude(RunOutcome::kElevationFailed, "relaunch: ShellExecuteA failed");
      break;
    case InstallDecision::kStop:
      break;
  }
}

UpdatesController::InstallDecision UpdatesController::decideInstallation(typeOfUpdateAvailable type,
                                                                         FunctionTrace& trace) {
  if (!OsVersion::getInstance().isVistaOrLater()) {
    trace.detail(
        "The OS is Win XP or Win 2K, we have the spooler privilages, we do not need extra "
        "permissions");
    return InstallDecision::kInstall;
  }
  trace.detail("We are running on Windows Vista, following the Vista algorithm");

  if (!isProcessRunningWithAdminPrivileges()) {
    trace.detail("The current process is running under an non admin user.");
    // isUacEnabled() is constant true; the branch is kept on purpose.
    if (!CurrentProcess::getInstance()->isUacEnabled()) {
      trace.detail("UAC is NOT enabled under non admin login, EXITING UPDATE PROCESS");
      conclude(RunOutcome::kNotPermitted, "install decision: not an administrator, UAC off");
      return InstallDecision::kStop;
    }
    // A relaunched child never relaunches again.
    if (isProcessElevated()) {
      trace.detail("Elevated permissions and still not an Admin. UAC must be off.");
      trace.detail("Exiting update process.");
      conclude(RunOutcome::kNotPermitted,
               "install decision: still not an administrator after the relaunch");
      return InstallDecision::kStop;
    }
    return InstallDecision::kElevate;
  }
  trace.detail("The current process has admin permissions!");

  if (type == 1) {
    trace.detail("This is a CATALOG only update, so we are installing the updates right away!");
    return InstallDecision::kInstall;
  }
  trace.detail("This is a CATALOG + DLLs update");

  if (isProcessElevated()) {
    trace.detail(
        "The process has already been elevated. We have all the permissions we need, attempting "
        "to install updates now.");
    return InstallDecision::kInstall;
  }
  trace.detail("The process has NOT been elevated.");

  if (CurrentProcess::getInstance()->isUacEnabled())
    return InstallDecision::kElevate;
  trace.detail(
      "UAC is NOT enabled and we are running under an admin user. i.e. We have permissions to "
      "write into the drivers dir. Installing updates...");
  return InstallDecision::kInstall;
}

void UpdatesController::conclude(RunOutcome outcome, const std::string& detail) {
  if (verdict_.outcome != RunOutcome::kUpToDate && verdict_.outcome != RunOutcome::kUpdated)
    return;
  verdict_.outcome = outcome;
  verdict_.detail = detail;
}

bool UpdatesController::isInternetStateOk() {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::isInternetStateOk() ");
  if (!webUpdater_.isInternetAvailable()) {
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
  try {
    const std::string path = CurrentProcess::getInstance()->getPath();
    if (handOver_)
      handOver_();
    HINSTANCE instance =
        g_shellExecute(nullptr, "RunAs", path.c_str(), CommandLineParams::kUacMarker.c_str(),
                       nullptr, kShowNormal);
    const INT_PTR value = reinterpret_cast<INT_PTR>(instance);
    if (value <= 32) {
      trace.detail([&] {
        return LogText("The new process FAILED to launch. Casted HINSTANCE value = ") +
               decimal(static_cast<int32_t>(value));
      });
      return trace.returning(false);
    }
    trace.detail("The new process was launched successfully");
    return trace.returning(true);
  } catch (const Exception& e) {
    BasicLogger::getInstance().write(
        kLogQnv, LOG_ALWAYS,
        "ERROR: The Orrery Updater executable FAILED to Launch! " + e.toString());
    return trace.returning(false);
  }
}

bool UpdatesController::checkForUpdates(typeOfUpdateAvailable& type) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UpdatesController::checkForUpdates() ");
  type = 0;
  const std::string softwareVersion = VersionInfo::GetOrreryVersionNumber();
  const std::string softwareUrl = urlGenerator_.generateUrl(ORRERY_VERSION);
  switch (webUpdater_.isUpdateAvailable(softwareUrl, softwareVersion)) {
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
      conclude(RunOutcome::kCheckFailed,
               "software check: code " + std::to_string(webUpdater_.lastCode()));
      trace.detail("Unable to determine if Orrery Software Update is available.");
      trace.detail("Terminating the update process.");
      return trace.returning(false);
    case UPDATE_NO_PRIVILEGE:
      trace.detail("Software Update is available, user does not have priveleges to install.");
      trace.detail("Terminating the update process.");
      conclude(RunOutcome::kNotPermitted,
               "software check: no privilege, code " + std::to_string(webUpdater_.lastCode()));
      return trace.returning(false);
    default:
      break;  // Any other answer goes on to the data check silently.
  }

  const std::string dataVersion = VersionInfo::GetCatalogVersionNumber();
  const std::string dataUrl = urlGenerator_.generateUrl(CATALOG_VERSION);
  // Only the software check can end the run: every other data answer means "not available".
  const UpdateCheckResult dataAnswer = webUpdater_.isUpdateAvailable(dataUrl, dataVersion);
  if (dataAnswer == UPDATE_AVAILABLE) {
    trace.detail("Catalog/Orrery Data Update is available.");
    type = type == 2 ? 3 : 1;
  } else {
    trace.detail("Data Update is NOT available.");
    if (type == 0) {
      if (dataAnswer == UPDATE_CHECK_FAILED)
        conclude(RunOutcome::kCheckFailed,
                 "catalog check: code " + std::to_string(webUpdater_.lastCode()));
      return trace.returning(false);
    }
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
  const bool installed = installUpdates(softwarePath, dataPath);
  trace.detail([&] {
    return installed ? "Updates were downloaded and installed successfully"
                     : "Updates installation failed, halting the update process.";
  });
  return trace.returning(installed);
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
  const std::string step = std::string(isSoftwareUpdate ? "software" : "catalog") + " download: ";
  bool downloaded = webUpdater_.downloadUpdate(url, path);
  if (!downloaded) {
    conclude(RunOutcome::kDownloadFailed, step + "code " + std::to_string(webUpdater_.lastCode()));
  } else if (!downloads_.add(path)) {
    // Another process holds the note of downloads: this run goes no further and deletes its own.
    downloads_.deleteFile(path);
    downloaded = false;
    conclude(RunOutcome::kDownloadFailed, step + "its record is held by another process");
  }
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
  if (!spooler_.pausePrinters(pausedPrinters_)) {
    trace.detail("FAILED to pause all printers installed with our driver!");
    conclude(RunOutcome::kPauseFailed, "pause printers: not all could be paused");
    performPostUpdateCleanUp(softwarePath, dataPath);
    pausedPrinters_.clear();
    return trace.returning(false);
  }
  trace.detail("All Printer were paused successfully, now applying updates");

  // From here on every way out resumes the printers and handles the downloads, an exception of
  // any type included.
  const auto resumeAndCleanUp = [&](bool result) {
    if (!spooler_.resumePrinters(pausedPrinters_)) {
      conclude(RunOutcome::kResumeFailed, "resume printers: not all could be resumed");
      trace.detail("FAILED to resume all printers installed with our driver!");
      result = false;
    } else {
      trace.detail("All Printer were resumed successfully");
    }
    performPostUpdateCleanUp(softwarePath, dataPath);
    pausedPrinters_.clear();
    return result;
  };
  bool result = false;
  try {
    if (!softwarePath.empty()) {
      trace.detail("Software updates are available to install");
      bool applied = false;
      try {
        applied = webUpdater_.installUpdateUsingCurrentProcess(
            softwarePath, CurrentProcess::getInstance()->getDirectory());
      } catch (const Exception& e) {
        BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS, e.toString());
      }
      if (!applied) {
        trace.detail("The software updates FAILED! exiting update process");
        conclude(RunOutcome::kApplyFailed,
                 "software apply: code " + std::to_string(webUpdater_.lastCode()));
      } else {
        trace.detail("The software updates were applied successfully");
        verdict_.applied = "software";
        if (dataPath.empty()) {
          // Misleading line and no flag for a software-only update: both deliberate.
          trace.detail("software update FAILED");
          conclude(RunOutcome::kUpdated, "");
          result = true;
        } else {
          trace.detail("Data update also required.");
          if (!installDataUpdate(dataPath)) {
            trace.detail("Data files update FAILED");
          } else {
            trace.detail(
                "Data update was also successful. Setting the flag to indicate total update.");
            setCompleteSoftwareUpdatedFlag();
            verdict_.applied = "software+catalog";
            conclude(RunOutcome::kUpdated, "");
            result = true;
          }
        }
      }
    } else {
      trace.detail("Only data updates are available to install");
      if (!installDataUpdate(dataPath)) {
        trace.detail("Data update FAILED");
      } else {
        trace.detail("Data update was successful. Setting the flag to indicate it.");
        setDataUpdatedFlag();
        verdict_.applied = "catalog";
        conclude(RunOutcome::kUpdated, "");
        result = true;
      }
    }
  } catch (...) {
    // Not the program's own Exception (the applies catch those), for example a C++ exception of
    // the vendor's library. It ends here, while the library that may own the exception object is
    // still loaded; the installation has failed, and the printers are resumed all the same.
    BasicLogger::getInstance().write(
        kLogUpdater, LOG_ALWAYS,
        "UpdatesController::installUpdates() An unexpected exception ended the installation.");
    conclude(RunOutcome::kApplyFailed, "apply: ended by an unexpected exception");
    result = false;
  }
  return trace.returning(resumeAndCleanUp(result));
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
    return trace.returning(false);
  }
  if (!CurrentProcess::fileExists(directory)) {
    trace.detail([&] { return "Attempting to create dir : " + directory; });
    const int error = SHCreateDirectoryExA(nullptr, directory.c_str(), nullptr);
    if (error != ERROR_SUCCESS) {
      trace.detail(
          [&] { return LogText("SHCreateDirectory() failed. ErrorCode=") + decimal(error); });
      conclude(RunOutcome::kApplyFailed,
               "catalog apply: folder not made, error " + std::to_string(error));
      return trace.returning(false);
    }
  }
  const bool applied = webUpdater_.installUpdateUsingCurrentProcess(dataPath, directory);
  if (!applied)
    conclude(RunOutcome::kApplyFailed,
             "catalog apply: code " + std::to_string(webUpdater_.lastCode()));
  trace.detail([&] {
    return applied ? "The data updates were applied successfully." : "The data updates FAILED.";
  });
  return trace.returning(applied);
}

std::string UpdatesController::getDataUpdatesDirectory() {
  char folder[MAX_PATH] = {};
  if (!SHGetSpecialFolderPathA(nullptr, folder, kCommonAppData, FALSE))
    return std::string();
  Settings settings;
  std::string directoryName = kDefaultDataUpdatesDirectoryName;
  settings.getOrCreateStringValue(SettingsKeys::kUpdaterSection,
                                  SettingsKeys::kDataUpdatesDirectoryName, directoryName,
                                  kDefaultDataUpdatesDirectoryName, 0);
  std::string driverName;
  settings.getStringValue(SettingsKeys::kSettingsSection, SettingsKeys::kDriverName, driverName, 0);
  return joinPath(joinPath(folder, driverName), directoryName);
}

void UpdatesController::setUpdaterFlag(const std::string& name, uint32_t value) {
  Settings settings;
  unsigned long current = 0;
  settings.getOrCreateDwordValue(SettingsKeys::kUpdaterSection, name, current, 0, 0);
  if (current == 2)
    return;
  settings.setDwordValue(SettingsKeys::kUpdaterSection, name, value, 0);
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
  unsigned long keepFiles = 0;
  Settings().getOrCreateDwordValue(SettingsKeys::kUpdaterSection,
                                   SettingsKeys::kDoNotDeleteDownloadedFiles, keepFiles, 0, 0);
  if (keepFiles != 0) {
    trace.detail(
        [&] { return "NOT deleting files : '" + softwarePath + "' and '" + dataPath + "'"; });
    downloads_.remove(softwarePath);  // Handed over: they stay, and leave the note.
    downloads_.remove(dataPath);
    return;
  }
  // A file that cannot be deleted stays noted, for a later run to delete.
  if (!softwarePath.empty()) {
    trace.detail([&] { return "Attempting to deleting file : " + softwarePath; });
    downloads_.deleteFile(softwarePath);
  }
  // The data path is deleted without an emptiness check and without a word on the result;
  // deliberate.
  trace.detail([&] { return "Attempting to deleting file : " + dataPath; });
  downloads_.deleteFile(dataPath);
}
