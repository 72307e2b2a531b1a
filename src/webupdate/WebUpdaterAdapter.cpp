#include "webupdate/WebUpdaterAdapter.h"

#include <wininet.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "logging/FunctionTrace.h"
#include "settings/PathHelpers.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "system/DllSearch.h"
#include "system/ExportLookup.h"
#include "system/Localize.h"
#include "system/OsVersion.h"
#include "webupdate/WebUpdaterLibrary.h"

namespace {

const char kLibrarySuffix[] = "wupd.DLL";

WebUpdaterAdapter::ConnectedStateFunction g_connectedState = &InternetGetConnectedState;

// The failed lookup of an export; some operations write it without its leading blank.
const char kLookupFailed[] = " ::GetProcAddress failed. ::GetLastError()=";

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

// The owner of a block from operator new: the adapter's path buffer, or the library's block from
// AllocMemory that replaced it. Held so that a log line that throws frees it too.
struct OperatorDelete {
  void operator()(char* block) const { ::operator delete(block); }
};
using Block = std::unique_ptr<char, OperatorDelete>;

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

template <typename FunctionPointer>
FunctionPointer WebUpdaterAdapter::find(FunctionTrace& trace,
                                        const char* name,
                                        const char* notLoaded,
                                        const char* lookupFailed) const {
  if (!module_.valid()) {
    trace.detail(notLoaded);
    return nullptr;
  }
  const FunctionPointer function = lookupExport<FunctionPointer>(module_.get(), name);
  if (function == nullptr) {
    const DWORD error = GetLastError();
    trace.detail([&] { return LogText(lookupFailed) + decimal(error); });
  }
  return function;
}

// The export that `function` declares, or null after the operation's lines for a library that is
// not loaded (`notLoaded`) or an export that is missing (`lookupFailed`).
#define FIND_EXPORT(trace, function, notLoaded, lookupFailed) \
  find<decltype(&(function))>((trace), #function, (notLoaded), (lookupFailed))

void WebUpdaterAdapter::initialize() {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::initialize() ");
  const std::string fileName = Localize::getInstance()->getLocalId() + kLibrarySuffix;

  Settings settings;
  std::string directory;
  if (!settings.getStringValue(SettingsKeys::kUpdaterSection, SettingsKeys::kWebUpdaterDllPath,
                               directory, 0) ||
      directory.empty()) {
    trace.detail("No registry entry for the updater dll path.");
    directory = OsVersion::getInstance().getPrinterDriverDirectory();
    // Only a directory the spooler named is kept for later runs.
    if (directory.empty())
      trace.detail("Unable to get the printer driver directory.");
    else if (!settings.setStringValue(SettingsKeys::kUpdaterSection,
                                      SettingsKeys::kWebUpdaterDllPath, directory, 0))
      trace.detail("Unable to set the updater dll path registry entry.");
  }

  const std::string path = joinPath(directory, fileName);
  // A path without its drive ("\3\...") would be found below whatever drive is current, where a
  // user may have planted the file: such a library is treated as missing.
  if (!isFullyQualifiedPath(path)) {
    BasicLogger::getInstance().write(kLogUpdater, LOG_ALWAYS,
                                     "WebUpdaterAdapter::initialize : The updater dll path is not "
                                     "fully qualified, not loading '" +
                                         path + "'");
    return;
  }
  trace.detail([&] { return "About to load web updater dll. Dll Name:" + path; });
  // The library's own imports are found beside it; the process searches nowhere else but the
  // system and application directories.
  allowDllDirectory(directory);
  module_.reset(LoadLibraryA(path.c_str()));
  if (!module_.valid()) {
    const DWORD error = GetLastError();
    lastCode_ = static_cast<long>(error);
    BasicLogger::getInstance().write(
        kLogUpdater, LOG_ALWAYS,
        LogText("WebUpdaterAdapter::initialize : LoadLibrary Failed. ::GetLastError()=") +
            decimal(error));
    return;
  }
  if (auto initializeLibrary = FIND_EXPORT(trace, UpdInitializeA, "", kLookupFailed))
    initializeLibrary(&WebUpdaterAdapter::AllocMemory, nullptr, nullptr, nullptr, 0, nullptr,
                      nullptr);
}

void WebUpdaterAdapter::uninitialize() {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::uninitialize() ");
  if (!module_.valid()) {
    trace.detail(" WebUpdaterAdapter DLL is not loaded, so not doing anything");
    return;
  }
  if (auto uninitializeLibrary = FIND_EXPORT(trace, UpdUninitialize, "", kLookupFailed))
    uninitializeLibrary();
  module_.close();
}

void* WebUpdaterAdapter::AllocMemory(unsigned long long size) {
  // The library's C code calls this: nothing may unwind through it, so every failure, the log
  // writer's included, is a null block.
  try {
    FunctionTrace trace = FunctionTrace::open(
        kLogUpdater, "WebUpdaterAdapter::AllocMemory(" + std::to_string(size) + ")");
    // One byte more than asked, and all of them zero: whatever the library writes into the block,
    // a path read from it ends inside it (a block of 0 bytes holds an empty path).
    if (size >= SIZE_MAX)
      return nullptr;
    const size_t bytes = size_t{size} + 1;  // A 64-bit process: the size fits.
    void* block = ::operator new(bytes, std::nothrow);
    if (block != nullptr)
      ZeroMemory(block, bytes);
    return block;
  } catch (...) {
    return nullptr;
  }
}

std::string WebUpdaterAdapter::missingExport() const {
  if (!module_.valid())
    return std::string();
  for (const char* name :
       {"UpdCheckConnection", "UpdCheckForUpdateA", "UpdDownloadUpdateExA", "UpdApplyUpdateA"}) {
    if (GetProcAddress(module_.get(), name) == nullptr)
      return name;
  }
  return std::string();
}

bool WebUpdaterAdapter::isDialUpConnection() {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::isDialUpConnection() ");
  DWORD flags = 0;
  bool result = false;
  if (!g_connectedState(&flags, 0)) {
    const DWORD error = GetLastError();
    trace.detail([&] {
      return LogText("Call into InternetGetConnectedState() failed, GetLastError()=") +
             decimal(error);
    });
  } else if (flags & INTERNET_CONNECTION_MODEM) {
    trace.detail("CONNECTED to the internet on a DIAL UP connection");
    result = true;
  } else {
    trace.detail("NOT connected to the internet on a dial up connection");
  }
  return trace.returning(result);
}

bool WebUpdaterAdapter::isInternetAvailable() {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::isInternetAvailable() ");
  auto checkConnection =
      FIND_EXPORT(trace, UpdCheckConnection, "WebUpdater DLL is not loaded.", kLookupFailed + 1);
  if (checkConnection == nullptr)
    return trace.returning(false);
  const int connection = checkConnection();
  lastCode_ = connection;
  trace.detail([&] {
    return LogText("WebUpdaterDll Check for connection call returned : ") + decimal(connection);
  });
  return trace.returning(connection == kUpdConnected);
}

UpdateCheckResult WebUpdaterAdapter::isUpdateAvailable(const std::string& url,
                                                       const std::string& currentVersionNumber) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::isUpdateAvailable() ");
  lastNewVersion_.clear();
  // The misspelling below is the established log text.
  trace.detail([&] { return "url=" + url + ", currentVerionsNumber=" + currentVersionNumber; });
  const auto finish = [&trace](UpdateCheckResult result) {
    trace.setRc(static_cast<int>(result));
    return result;
  };
  auto checkForUpdate =
      FIND_EXPORT(trace, UpdCheckForUpdateA, "WebUpdater DLL is not loaded.", kLookupFailed + 1);
  if (checkForUpdate == nullptr)
    return finish(UPDATE_NOT_AVAILABLE);
  const unsigned long timeOut = readDword(SettingsKeys::kCheckForUpdateTimeOut, 5);
  const unsigned long retryCount = readDword(SettingsKeys::kCheckForUpdateRetryCount, 0);

  std::unique_ptr<char[]> newVersion(new (std::nothrow) char[kUpdNewVersionSize]);
  if (!newVersion) {
    trace.detail("Unable to allocate memory for the version number!!");
    return finish(UPDATE_NOT_AVAILABLE);
  }
  ZeroMemory(newVersion.get(), kUpdNewVersionSize);
  const int code = checkForUpdate(url.c_str(), currentVersionNumber.c_str(), newVersion.get(),
                                  timeOut, retryCount, nullptr);
  lastCode_ = code;
  // The library may fill all 20 bytes; never read past them.
  lastNewVersion_.assign(newVersion.get(), strnlen(newVersion.get(), kUpdNewVersionSize));
  trace.detail([&] { return " New version number=" + lastNewVersion_; });
  newVersion.reset();
  trace.detail([&] {
    return LogText(" WebUpdaterDll Check for updates call returned : ") + checkCodeName(code);
  });
  return finish(mapCheckCode(code));
}

bool WebUpdaterAdapter::downloadUpdate(const std::string& url, std::string& downloadedFile) {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::downloadUpdate() ");
  trace.detail([&] { return " url=" + url; });
  downloadedFile.clear();
  auto download =
      FIND_EXPORT(trace, UpdDownloadUpdateExA, " WebUpdater DLL is not loaded.", kLookupFailed);
  if (download == nullptr)
    return false;

  Block ownBuffer(static_cast<char*>(::operator new(kUpdPathBufferSize)));
  ZeroMemory(ownBuffer.get(), kUpdPathBufferSize);
  char* path = ownBuffer.get();
  const unsigned long timeOut = readDword(SettingsKeys::kDownloadUpdateTimeOut, 30);
  const unsigned long retryCount = readDword(SettingsKeys::kDownloadUpdateRetryCount, 1);
  trace.detail("About to download update file.");

  unsigned long long ignored = 0;
  const int code =
      download(url.c_str(), nullptr, &ignored, nullptr, timeOut, retryCount, &path, nullptr);
  lastCode_ = code;
  Block libraryBlock;
  const bool inOwnBuffer = path == ownBuffer.get();
  if (!inOwnBuffer) {
    ownBuffer.reset();
    libraryBlock.reset(path);
  }

  trace.detail(
      [&] { return LogText(" WebUpdaterDll Download updates call returned : ") + decimal(code); });
  if (path == nullptr)
    trace.detail("ERROR - Download update file = ''");
  trace.detail([&] {
    return LogText("Download update file = '") +
           (path == nullptr ? std::string()
                            : std::string(path, strnlen(path, kUpdPathBufferSize))) +
           "'";
  });
  // A success without a path is no download: there is nothing to install. Nor is an empty path,
  // or one that fills the program's buffer without its terminator.
  const bool terminated = !inOwnBuffer || strnlen(path, kUpdPathBufferSize) < kUpdPathBufferSize;
  const bool result =
      code == kUpdDownloadSucceeded && path != nullptr && terminated && *path != '\0';
  if (result) {
    downloadedFile = path;
    trace.detail([&] { return "Update successfully downloaded '" + downloadedFile + "'"; });
  }
  return trace.returning(result);
}

bool WebUpdaterAdapter::installUpdateUsingCurrentProcess(const std::string& installationFileName,
                                                         const std::string& destinationDir) {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "WebUpdaterAdapter::installUpdateUsingCurrentProcess() ");
  trace.detail([&] {
    return "installationFileName='" + installationFileName + "', destinationDir='" +
           destinationDir + "'";
  });
  auto apply = FIND_EXPORT(trace, UpdApplyUpdateA, " Updater DLL is not loaded.", kLookupFailed);
  if (apply == nullptr) {
    trace.setRc(0);
    return false;
  }
  // "DATA" is the established wording whatever kind of package is applied.
  trace.detail([&] {
    return " About to install a DATA update '" + installationFileName + "' into dir :'" +
           destinationDir + "'";
  });
  const int code =
      apply(installationFileName.c_str(), destinationDir.c_str(), nullptr, nullptr, nullptr);
  lastCode_ = code;
  trace.detail(
      [&] { return LogText(" UpdaterDll apply updates call returned : ") + decimal(code); });
  const bool result = code == kUpdApplied;
  trace.detail(result ? " DATA update was SUCCESSFUL" : " DATA update FAILED");
  trace.setRc(result ? 1 : 0);
  return result;
}
