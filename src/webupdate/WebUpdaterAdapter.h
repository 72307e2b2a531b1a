#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "system/UniqueHandle.h"

class FunctionTrace;

// Answers of isUpdateAvailable().
enum UpdateCheckResult : uint32_t {
  UPDATE_CHECK_FAILED = 0,
  UPDATE_AVAILABLE = 1,
  UPDATE_NOT_AVAILABLE = 2,
  UPDATE_NO_PRIVILEGE = 3,
};

// The only place that knows the vendor's web-updater library (local id + "wupd.DLL", in the
// directory "WebUpdaterDllPath" names, by default the printer-driver directory). The constructor
// loads and initialises it, the destructor uninitialises and unloads it; exports are looked up
// afresh on every call.
//
// No operation throws for a library problem: a missing library, a missing export or a failed
// allocation is logged and becomes the failure value (false, or UPDATE_NOT_AVAILABLE for the
// update check). Used from one thread.
class WebUpdaterAdapter {
 public:
  // The system's connection-state query; a seam so that tests can present a dial-up line.
  using ConnectedStateFunction = BOOL(WINAPI*)(LPDWORD flags, DWORD reserved);

  WebUpdaterAdapter();
  ~WebUpdaterAdapter();
  WebUpdaterAdapter(const WebUpdaterAdapter&) = delete;
  WebUpdaterAdapter& operator=(const WebUpdaterAdapter&) = delete;

  void initialize();
  // Unloads the library; the adapter is not loaded afterwards.
  void uninitialize();

  // The allocation callback handed to the library: `size` bytes from operator new, zero-filled,
  // with one zero byte more so that a path the library writes into them always ends inside the
  // block. Never throws (the library is C code): null when the block or its trace line could not
  // be had.
  static void* AllocMemory(unsigned long long size);

  bool isDialUpConnection();
  bool isInternetAvailable();
  UpdateCheckResult isUpdateAvailable(const std::string& url,
                                      const std::string& currentVersionNumber);
  // On success `downloadedFile` holds the library's path of the downloaded package; else empty.
  // An empty path, or one that fills the program's buffer with no terminator, is no success.
  bool downloadUpdate(const std::string& url, std::string& downloadedFile);
  bool installUpdateUsingCurrentProcess(const std::string& installationFileName,
                                        const std::string& destinationDir);

  static void setConnectedStateFunction(ConnectedStateFunction function);

  bool isLoaded() const { return module_.valid(); }
  // The first export that an update run calls (connection, check, download, apply) and the loaded
  // library lacks; empty when it has them all or no library is loaded. Asks without a log line.
  std::string missingExport() const;
  // What the library's last call (connection, check, download, apply) returned, or LoadLibrary's
  // error after a failed load; 0 before either.
  long lastCode() const { return lastCode_; }
  // The version the library's last update check named (its new version number), or empty.
  const std::string& lastNewVersion() const { return lastNewVersion_; }

 private:
  // The export `name`, typed as `FunctionPointer`; null after logging `notLoaded` when the
  // library is not loaded, or `lookupFailed` and the error when the export is missing.
  template <typename FunctionPointer>
  FunctionPointer find(FunctionTrace& trace,
                       const char* name,
                       const char* notLoaded,
                       const char* lookupFailed) const;

  ScopedModule module_;
  long lastCode_ = 0;
  std::string lastNewVersion_;
};
