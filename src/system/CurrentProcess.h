#pragma once

#include <string>

// Facts about the running executable. A lazily created singleton: getInstance() creates it under
// its own lock, destroyInstance() (at shutdown) deletes it. Construction throws
// Win32Exception("CurrentProcess::CurrentProcess") when the executable's path cannot be read.
class CurrentProcess {
 public:
  static CurrentProcess* getInstance();
  static void destroyInstance();

  CurrentProcess(const CurrentProcess&) = delete;
  CurrentProcess& operator=(const CurrentProcess&) = delete;

  std::string getPath() const;
  // The path up to and including its last backslash; empty for an empty path.
  std::string getDirectory() const;
  // Constant answers; callers keep both branches on purpose.
  bool isUacEnabled() const { return true; }
  bool is64BitProcess() const { return true; }
  // Whether the process runs with full rights: its token is elevated, it runs as SYSTEM, or,
  // where Windows has no elevation (before Vista), it is an enabled member of the administrators.
  // A token that cannot be read counts as elevated, so that what elevated runs must check is
  // checked.
  bool isElevated() const;

  // True when the path's attributes can be read, and also for errors other than "file not found"
  // and "path not found" (an unreadable path exists).
  static bool fileExists(const std::string& path);

 private:
  CurrentProcess();

  std::string path_;
};
