#include "webupdate/WebUpdaterAdapter.h"

#include <wininet.h>

#include <new>

#include "logging/FunctionTrace.h"
#include "settings/PathHelpers.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "system/DllSearch.h"
#include "updater/Localize.h"
#include "updater/OsVersion.h"
#include "webupdate/WebUpdaterLibrary.h"

namespace {

const char kLibrarySuffix[] = "wupd.DLL";

WebUpdaterAdapter::ConnectedStateFunction g_connectedState = &InternetGetConnectedState;

// Looks an export up with the type of its declaration, so a signature mismatch fails to compile.
template <typename Function>
Function lookup(HMODULE module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}
#define LOOKUP_EXPORT(module, name) lookup<decltype(&name)>(module, #name)

const char* checkCodeName(int code) {
  switch (static_cast<uint32_t>(code)) {
    case UPD_UPDATES_INET_CONN_NOT_AVAILABLE:
      return "UPD_UPDATES_INET_CONN_NOT_AVAILABLE";
    case UPD_UPDATES_SERVER_NO_RESPONSE:
      return "UPD_UPDATES_SERVER_NO_RESPONSE";
    case UPD_UPDATES_NOT_AVAILABLE:
      return "UPD_UPDATES_NOT_AVAILABLE";
    case UPD_UPDATES_AVAILABLE:
      return "UPD_UPDATES_AVAILABLE";
    case UPD_INSUFFICIENT_USER_PRIVILEGE:
      return "UPD_INSUFFICIENT_USER_PRIVILEGE";
    case UPD_INVALID_RESPONSE_DOC:
      return "UPD_INVALID_RESPONSE_DOC";
    default:
      return "UPD_UPDATES_RESPONSE_UNKNOWN";
  }
}

UpdateCheckResult mapCheckCode(int code) {
  switch (static_cast<uint32_t>(code)) {
    case UPD_UPDATES_NOT_AVAILABLE:
      return UPDATE_NOT_AVAILABLE;
    case UPD_UPDATES_AVAILABLE:
      return UPDATE_AVAILABLE;
    case UPD_INSUFFICIENT_USER_PRIVILEGE:
      return UPDATE_NO_PRIVILEGE;
    default:
      return UPDATE_CHECK_FAILED;
  }
}

unsigned long readDword(const char* name, unsigned long defaultValue) {
  unsigned long value = defaultValue;
  Settings().getOrCreateDwordValue(SettingsKeys::kUpdaterSection, name, value, defaultValue, 0);
  return value;
}

}  // namespace

WebUpdaterAdapter::WebUpdaterAdapter() {
  initialize();
}

WebUpdaterAdapter::~WebUpdaterAdapter() {
  uninitialize();
}

void WebUpdaterAdapter::setConnectedStateFunction(ConnectedStateFunction function) {
  g_connectedState = function != nullptr ? function : &InternetGetConnectedState;
}

void WebUpdaterAdapter::initialize() {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::initialize() ");
  const std::string fileName = Localize::getInstance()->getLocalId() + kLibrarySuffix;

  Settings settings;
  std::string directory;
  if (!settings.getStringValue(SettingsKeys::kUpdaterSection, SettingsKeys::kWebUpdaterDllPath,
                               directory, 0) ||
      directory.empty()) {
    if (trace.isOn())
      trace.log("No registry entry for the updater dll path.");
    directory = OsVersion::getInstance().getPrinterDriverDirectory();
    if (!settings.setStringValue(SettingsKeys::kUpdaterSection, SettingsKeys::kWebUpdaterDllPath,
                                 directory, 0)) {
      if (trace.isOn())
        trace.log("Unable to set the updater dll path registry entry.");
    }
  }

  const std::string path = joinPath(directory, fileName);
  if (trace.isOn())
    trace.log("About to load web updater dll. Dll Name:" + path);
  // The library's own imports are found beside it; the process searches nowhere else but the
  // system and application directories.
  allowDllDirectory(directory);
  module_ = LoadLibraryA(path.c_str());
  if (module_ == nullptr) {
    const DWORD error = GetLastError();
    BasicLogger::getInstance().write(
        kLogUpdater, LOG_ALWAYS,
        LogText("WebUpdaterAdapter::initialize : LoadLibrary Failed. ::GetLastError()=") +
            decimal(error));
    return;
  }
  auto initializeLibrary = LOOKUP_EXPORT(module_, UpdInitializeA);
  if (initializeLibrary == nullptr) {
    const DWORD error = GetLastError();
    if (trace.isOn())
      trace.log(LogText(" ::GetProcAddress failed. ::GetLastError()=") + decimal(error));
    return;
  }
  initializeLibrary(&WebUpdaterAdapter::AllocMemory, nullptr, nullptr, nullptr, 0, nullptr,
                    nullptr);
}

void WebUpdaterAdapter::uninitialize() {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::uninitialize() ");
  if (module_ == nullptr) {
    if (trace.isOn())
      trace.log(" WebUpdaterAdapter DLL is not loaded, so not doing anything");
    return;
  }
  auto uninitializeLibrary = LOOKUP_EXPORT(module_, UpdUninitialize);
  if (uninitializeLibrary != nullptr) {
    uninitializeLibrary();
  } else {
    const DWORD error = GetLastError();
    if (trace.isOn())
      trace.log(LogText(" ::GetProcAddress failed. ::GetLastError()=") + decimal(error));
  }
  FreeLibrary(module_);
}

void* WebUpdaterAdapter::AllocMemory(unsigned long long size) {
  // The library's C code calls this: nothing may unwind through it, so every failure, the log
  // writer's included, is a null block.
  try {
    FunctionTrace trace = FunctionTrace::open(
        kLogUpdater, "WebUpdaterAdapter::AllocMemory(" + std::to_string(size) + ")");
    return ::operator new(static_cast<size_t>(size), std::nothrow);
  } catch (...) {
    return nullptr;
  }
}

bool WebUpdaterAdapter::isDialUpConnection() {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::isDialUpConnection() ");
  DWORD flags = 0;
  bool result = false;
  if (!g_connectedState(&flags, 0)) {
    const DWORD error = GetLastError();
    if (trace.isOn())
      trace.log(LogText("Call into InternetGetConnectedState() failed, GetLastError()=") +
                decimal(error));
  } else if (flags & INTERNET_CONNECTION_MODEM) {
    if (trace.isOn())
      trace.log("CONNECTED to the internet on a DIAL UP connection");
    result = true;
  } else if (trace.isOn()) {
    trace.log("NOT connected to the internet on a dial up connection");
  }
  return trace.returning(result);
}

bool WebUpdaterAdapter::isInternetAvailable() {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::isInternetAvailable() ");
  bool result = false;
  if (module_ == nullptr) {
    if (trace.isOn())
      trace.log("WebUpdater DLL is not loaded.");
  } else if (auto checkConnection = LOOKUP_EXPORT(module_, UpdCheckConnection)) {
    const int connection = checkConnection();
    if (trace.isOn())
      trace.log(LogText("WebUpdaterDll Check for connection call returned : ") +
                decimal(connection));
    result = connection == kUpdConnected;
  } else {
    const DWORD error = GetLastError();
    if (trace.isOn())
      trace.log(LogText("::GetProcAddress failed. ::GetLastError()=") + decimal(error));
  }
  return trace.returning(result);
}

UpdateCheckResult WebUpdaterAdapter::isUpdateAvailable(const std::string& url,
                                                       const std::string& currentVersionNumber) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::isUpdateAvailable() ");
  // The misspelling below is the established log text.
  if (trace.isOn())
    trace.log("url=" + url + ", currentVerionsNumber=" + currentVersionNumber);
  const auto finish = [&trace](UpdateCheckResult result) {
    if (trace.isOn())
      trace.setRc(static_cast<int>(result));
    return result;
  };
  if (module_ == nullptr) {
    if (trace.isOn())
      trace.log("WebUpdater DLL is not loaded.");
    return finish(UPDATE_NOT_AVAILABLE);
  }
  auto checkForUpdate = LOOKUP_EXPORT(module_, UpdCheckForUpdateA);
  if (checkForUpdate == nullptr) {
    const DWORD error = GetLastError();
    if (trace.isOn())
      trace.log(LogText("::GetProcAddress failed. ::GetLastError()=") + decimal(error));
    return finish(UPDATE_NOT_AVAILABLE);
  }
  const unsigned long timeOut = readDword(SettingsKeys::kCheckForUpdateTimeOut, 5);
  const unsigned long retryCount = readDword(SettingsKeys::kCheckForUpdateRetryCount, 0);

  char* newVersion = new (std::nothrow) char[kUpdNewVersionSize];
  if (newVersion == nullptr) {
    if (trace.isOn())
      trace.log("Unable to allocate memory for the version number!!");
    return finish(UPDATE_NOT_AVAILABLE);
  }
  ZeroMemory(newVersion, kUpdNewVersionSize);
  const int code = checkForUpdate(url.c_str(), currentVersionNumber.c_str(), newVersion, timeOut,
                                  retryCount, nullptr);
  // The library may fill all 20 bytes; never read past them.
  const std::string newVersionText(newVersion, strnlen(newVersion, kUpdNewVersionSize));
  if (trace.isOn())
    trace.log(" New version number=" + newVersionText);
  delete[] newVersion;
  if (trace.isOn())
    trace.log(LogText(" WebUpdaterDll Check for updates call returned : ") + checkCodeName(code));
  return finish(mapCheckCode(code));
}

bool WebUpdaterAdapter::downloadUpdate(const std::string& url, std::string& downloadedFile) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::downloadUpdate() ");
  if (trace.isOn())
    trace.log(" url=" + url);
  downloadedFile.clear();
  if (module_ == nullptr) {
    if (trace.isOn())
      trace.log(" WebUpdater DLL is not loaded.");
    return false;
  }
  auto download = LOOKUP_EXPORT(module_, UpdDownloadUpdateExA);
  if (download == nullptr) {
    const DWORD error = GetLastError();
    if (trace.isOn())
      trace.log(LogText(" ::GetProcAddress failed. ::GetLastError()=") + decimal(error));
    return false;
  }

  char* const ownBuffer = static_cast<char*>(::operator new(kUpdPathBufferSize));
  ZeroMemory(ownBuffer, kUpdPathBufferSize);
  char* path = ownBuffer;
  const unsigned long timeOut = readDword(SettingsKeys::kDownloadUpdateTimeOut, 30);
  const unsigned long retryCount = readDword(SettingsKeys::kDownloadUpdateRetryCount, 1);
  if (trace.isOn())
    trace.log("About to download update file.");

  unsigned long long ignored = 0;
  const int code =
      download(url.c_str(), nullptr, &ignored, nullptr, timeOut, retryCount, &path, nullptr);
  if (path != ownBuffer)
    ::operator delete(ownBuffer);

  if (trace.isOn()) {
    trace.log(LogText(" WebUpdaterDll Download updates call returned : ") + decimal(code));
    if (path == nullptr)
      trace.log("ERROR - Download update file = ''");
    trace.log(LogText("Download update file = '") + (path != nullptr ? path : "") + "'");
  }
  // A success without a path is no download: there is nothing to install.
  const bool result = code == kUpdDownloadSucceeded && path != nullptr;
  if (result) {
    downloadedFile = path;
    if (trace.isOn())
      trace.log("Update successfully downloaded '" + downloadedFile + "'");
  }
  ::operator delete(path);
  return trace.returning(result);
}

bool WebUpdaterAdapter::installUpdateUsingCurrentProcess(const std::string& installationFileName,
                                                         const std::string& destinationDir) {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::installUpdateUsingCurrentProcess() ");
  if (trace.isOn())
    trace.log("installationFileName='" + installationFileName + "', destinationDir='" +
              destinationDir + "'");
  if (module_ == nullptr) {
    if (trace.isOn()) {
      trace.log(" Updater DLL is not loaded.");
      trace.setRc(0);
    }
    return false;
  }
  auto apply = LOOKUP_EXPORT(module_, UpdApplyUpdateA);
  if (apply == nullptr) {
    const DWORD error = GetLastError();
    if (trace.isOn()) {
      trace.log(LogText(" ::GetProcAddress failed. ::GetLastError()=") + decimal(error));
      trace.setRc(0);
    }
    return false;
  }
  // "DATA" is the established wording whatever kind of package is applied.
  if (trace.isOn())
    trace.log(" About to install a DATA update '" + installationFileName + "' into dir :'" +
              destinationDir + "'");
  const int code =
      apply(installationFileName.c_str(), destinationDir.c_str(), nullptr, nullptr, nullptr);
  if (trace.isOn())
    trace.log(LogText(" UpdaterDll apply updates call returned : ") + decimal(code));
  const bool result = code == kUpdApplied;
  if (trace.isOn()) {
    trace.log(result ? " DATA update was SUCCESSFUL" : " DATA update FAILED");
    trace.setRc(result ? 1 : 0);
  }
  return result;
}
