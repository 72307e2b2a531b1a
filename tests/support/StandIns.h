#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "support/TestSupport.h"

// Scenarios for the project's stand-in DLLs, written to files that the stand-ins read on every
// call, and their journals (one line per call they served).
namespace testsupport {

// One printer the stand-in spooler presents.
struct StagedPrinter {
  std::string name;
  std::string driver;
  std::string port = "USB001";
  DWORD attributes = 0;
  DWORD status = 0;
  DWORD jobs = 0;
  int drainAfterPolls = -1;  // -1: the jobs never drain.
  DWORD failOpen = 0;
  DWORD failGetPrinter = 0;
  DWORD failPause = 0;
  DWORD failResume = 0;
  DWORD failClose = 0;
};

// The stand-in winspool.drv's scenario (SPOOLER_SCENARIO), for the length of a scope.
class SpoolerScenario {
 public:
  SpoolerScenario();
  ~SpoolerScenario();
  SpoolerScenario(const SpoolerScenario&) = delete;
  SpoolerScenario& operator=(const SpoolerScenario&) = delete;

  SpoolerScenario& add(const StagedPrinter& printer);
  // Removes every printer and failure, and empties the journal.
  SpoolerScenario& clear();
  SpoolerScenario& failEnumeration(DWORD error);
  // Writes the scenario; the stand-in's in-memory printer state starts afresh.
  void write();

  // The journal lines of this process, without the pid.
  std::vector<std::string> calls() const;
  // Only the calls of one function, e.g. "SetPrinterA".
  std::vector<std::string> calls(const std::string& function) const;
  void clearJournal();
  const std::string& journalPath() const { return journal_; }
  const std::string& path() const { return path_; }

 private:
  TempDir directory_;
  std::string path_;
  std::string journal_;
  std::vector<StagedPrinter> printers_;
  DWORD failEnum_ = 0;
  unsigned generation_ = 0;
};

// The stand-in web-updater library's scenario (WUPD_SCENARIO), for the length of a scope.
// Rules are matched in order against the URL (check, download) or the package path (apply);
// the key "*" matches anything.
class WebUpdaterScenario {
 public:
  WebUpdaterScenario();
  ~WebUpdaterScenario();
  WebUpdaterScenario(const WebUpdaterScenario&) = delete;
  WebUpdaterScenario& operator=(const WebUpdaterScenario&) = delete;

  // Removes every rule and empties the journal.
  WebUpdaterScenario& clear();
  WebUpdaterScenario& connection(int result);
  // value: "<code>[,<new version>]"
  WebUpdaterScenario& check(const std::string& urlPart, const std::string& value);
  // value: "<code>,<buffer|alloc|null>,<file path>[,<content>]"
  WebUpdaterScenario& download(const std::string& urlPart, const std::string& value);
  WebUpdaterScenario& apply(const std::string& packagePart, int code);
  void write();

  // The journal lines of this process: "Export | field | field ...", without the pid.
  std::vector<std::string> calls() const;
  std::vector<std::string> calls(const std::string& function) const;
  void clearJournal();
  const std::string& journalPath() const { return journal_; }
  const std::string& path() const { return path_; }
  TempDir& directory() { return directory_; }

 private:
  TempDir directory_;
  std::string path_;
  std::string journal_;
  int connection_ = 1;
  std::vector<std::pair<std::string, std::string>> checks_;
  std::vector<std::pair<std::string, std::string>> downloads_;
  std::vector<std::pair<std::string, int>> applies_;
};

}  // namespace testsupport
