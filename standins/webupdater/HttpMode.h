#pragma once

#include "UpdaterMode.h"

namespace wupd {

// Talks to a real update service with WinINet:
// - checkForUpdate GETs the URL, whose body is the latest version text;
// - download GETs the URL into [Library] DownloadDirectory (default %TEMP%), named after the
//   URL's last path segment, and hands the path back through the allocation callback;
// - apply unpacks a package file (see Package) into the destination directory.
class HttpMode : public UpdaterMode {
 public:
  explicit HttpMode(const standin::ScenarioFile& scenario) : scenario_(scenario) {}

  int checkConnection() override;
  CheckOutcome checkForUpdate(const std::string& url,
                              const std::string& currentVersion,
                              uint32_t timeout,
                              uint32_t retries) override;
  DownloadOutcome download(const std::string& url, uint32_t timeout, uint32_t retries) override;
  int apply(const std::string& packageFile, const std::string& destinationDir) override;

 private:
  const standin::ScenarioFile& scenario_;
};

// The file name a download from `url` is saved under: the last path segment without query or
// fragment, or "package.bin" when that is empty.
std::string downloadFileName(const std::string& url);

}  // namespace wupd
