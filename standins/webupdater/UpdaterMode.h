#pragma once

#include <cstdint>
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
  kEmpty,   // a block of 0 bytes from the allocation callback replaces the pointer
  kFull,    // the caller's buffer is filled with the path repeated, with no terminator
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

// What the stand-in answers, chosen by [Library] Mode: a table of the four operations, each
// reading the scenario of the call. The exports own the caller's buffers and the journal; a mode
// only decides results and does the work (files, HTTP). None throws.
struct UpdaterMode {
  int (*checkConnection)(const standin::ScenarioFile& scenario);
  CheckOutcome (*checkForUpdate)(const standin::ScenarioFile& scenario,
                                 const std::string& url,
                                 const std::string& currentVersion,
                                 uint32_t timeout,
                                 uint32_t retries);
  DownloadOutcome (*download)(const standin::ScenarioFile& scenario,
                              const std::string& url,
                              uint32_t timeout,
                              uint32_t retries);
  int (*apply)(const standin::ScenarioFile& scenario,
               const std::string& packageFile,
               const std::string& destinationDir);
};

// Answers from the scenario's [Library], [Check], [Download] and [Apply] rules. Downloads create
// the rule's file (with missing parent directories) whatever the result code.
extern const UpdaterMode kScriptedMode;

// Talks to a real update service with WinINet:
// - checkForUpdate GETs the URL, whose body is the latest version text;
// - download GETs the URL into [Library] DownloadDirectory (default %TEMP%), named after the
//   URL's last path segment (without query or fragment; "package.bin" when that is empty), and
//   hands the path back through the allocation callback;
// - apply unpacks a package file (see Package) into the destination directory.
extern const UpdaterMode kHttpMode;

// kHttpMode when [Library] Mode is "http", otherwise kScriptedMode.
const UpdaterMode& updaterMode(const standin::ScenarioFile& scenario);

}  // namespace wupd
