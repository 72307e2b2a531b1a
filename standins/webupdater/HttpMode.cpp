#include "FileUtil.h"
#include "HttpClient.h"
#include "Package.h"
#include "UpdaterMode.h"
#include "common/ScenarioFile.h"

#include <optional>

namespace wupd {

namespace {

std::string temporaryDirectory() {
  char buffer[MAX_PATH + 1];
  DWORD length = GetTempPathA(sizeof(buffer), buffer);
  return length == 0 || length > MAX_PATH ? std::string(".") : std::string(buffer, length);
}

std::string downloadFileName(const std::string& url) {
  std::string path = url.substr(0, url.find_first_of("?#"));
  size_t scheme = path.find("://");
  size_t hostStart = scheme == std::string::npos ? 0 : scheme + 3;
  size_t pathStart = path.find('/', hostStart);
  std::string name;
  if (pathStart != std::string::npos)
    name = path.substr(path.find_last_of('/') + 1);
  return name.empty() ? std::string("package.bin") : name;
}

int checkConnection(const standin::ScenarioFile&) {
  HttpClient client;
  return client.isOpen() ? 1 : 0;
}

CheckOutcome checkForUpdate(const standin::ScenarioFile&,
                            const std::string& url,
                            const std::string& currentVersion,
                            uint32_t timeout,
                            uint32_t retries) {
  CheckOutcome outcome;
  const HttpResponse response = HttpClient().get(url, timeout, retries);
  switch (response.outcome) {
    case HttpResponse::Outcome::kNoSession:
    case HttpResponse::Outcome::kNoConnection:
      outcome.result = 0;
      return outcome;
    case HttpResponse::Outcome::kFailed:
      outcome.result = 1;
      return outcome;
    case HttpResponse::Outcome::kOk:
      break;
  }
  std::string latest = standin::trim(response.body);
  if (latest.empty()) {
    outcome.result = 5;
  } else if (latest == currentVersion) {
    outcome.result = 2;
  } else {
    outcome.result = 3;
    outcome.newVersion = latest;
  }
  return outcome;
}

DownloadOutcome download(const standin::ScenarioFile& scenario,
                         const std::string& url,
                         uint32_t timeout,
                         uint32_t retries) {
  DownloadOutcome outcome;
  const HttpResponse response = HttpClient().get(url, timeout, retries);
  if (response.outcome != HttpResponse::Outcome::kOk)
    return outcome;
  std::string dir = scenario.value("Library", "DownloadDirectory", temporaryDirectory());
  std::string file = fullPath(joinPath(dir, downloadFileName(url)));
  if (!writeFile(file, response.body))
    return outcome;
  outcome.result = 0;
  outcome.delivery = PathDelivery::kAlloc;
  outcome.file = file;
  return outcome;
}

int apply(const standin::ScenarioFile&,
          const std::string& packageFile,
          const std::string& destinationDir) {
  return Package::unpack(packageFile, destinationDir) ? 1 : 0;
}

}  // namespace

const UpdaterMode kHttpMode = {checkConnection, checkForUpdate, download, apply};

}  // namespace wupd
