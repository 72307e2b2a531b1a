#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace standin {
class ScenarioFile;
}  // namespace standin

namespace wupd {

// How the downloaded file's path reaches the caller's char**.
enum class PathDelivery {
  kBuffer,  // written into the caller's buffer
  kAlloc,   // a block from the allocation callback replaces the pointer
  kNull,    // the pointer is set to null
};

struct CheckOutcome {
  int result = 0;
  std::string newVersion;  // written into the caller's buffer when not empty
};

struct DownloadOutcome {
  int result = 1;
  PathDelivery delivery = PathDelivery::kBuffer;
  std::string file;  // the path handed back; may be empty
};

// What the stand-in answers, chosen by [Library] Mode. The exports own the caller's buffers
// and the journal; a mode only decides results and does the work (files, HTTP). None throws.
class UpdaterMode {
 public:
  virtual ~UpdaterMode() = default;

  virtual int checkConnection() = 0;
  virtual CheckOutcome checkForUpdate(const std::string& url,
                                      const std::string& currentVersion,
                                      uint32_t timeout,
                                      uint32_t retries) = 0;
  virtual DownloadOutcome download(const std::string& url, uint32_t timeout, uint32_t retries) = 0;
  virtual int apply(const std::string& packageFile, const std::string& destinationDir) = 0;
};

// The scripted mode, or the HTTP mode when [Library] Mode is "http". The mode keeps a
// reference to `scenario`, which must outlive it.
std::unique_ptr<UpdaterMode> makeUpdaterMode(const standin::ScenarioFile& scenario);

}  // namespace wupd
