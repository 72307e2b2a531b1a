#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Helpers shared by the test executables. All of them work on the real Wine registry, files and
// processes of the test prefix.
namespace testsupport {

// The store root of this executable (scope 0), e.g. "Software\CorvaneInkjet\QNV\Local\cvse\".
std::string storeRoot();

// Creates this executable's settings store for the length of a scope and deletes the whole
// product-family key afterwards, so that every test starts from an empty registry.
class ScopedStore {
 public:
  ScopedStore();
  ~ScopedStore();
  ScopedStore(const ScopedStore&) = delete;
  ScopedStore& operator=(const ScopedStore&) = delete;

  void setDword(const std::string& section, const std::string& name, DWORD value);
  void setString(const std::string& section, const std::string& name, const std::string& value);
  bool getDword(const std::string& section, const std::string& name, DWORD& value);
  bool getString(const std::string& section, const std::string& name, std::string& value);
};

// Deletes a key tree below HKEY_LOCAL_MACHINE (no error when missing).
void deleteKeyTree(const std::string& path);

// Turns the log on with the given masks for the length of a scope (the logger is recreated so
// that its switch cache starts empty) and reads the lines written meanwhile. Needs a ScopedStore.
class LogCapture {
 public:
  explicit LogCapture(DWORD allMask = 0xFFFFFFFF, bool headers = false);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // The lines written since construction, without CR LF; without headers, each line is the
  // 15-column component name, a blank, the indentation and the text.
  std::vector<std::string> lines() const;
  // The same lines with the component column removed.
  std::vector<std::string> texts() const;
  // Whether some line's text equals `text` after its indentation.
  bool contains(const std::string& text) const;
  // The raw text written since the previous call (or construction).
  std::string next();

 private:
  // The log's text from `offset` to its end.
  std::string readFrom(uint64_t offset) const;

  std::string path_;
  uint64_t start_ = 0;
  uint64_t next_ = 0;
};

// Recreates the process's logger, emptying its switch cache.
void restartLogger();

// A fresh directory below %TEMP%, removed with its files at the end of the scope.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "\\" + name; }

 private:
  std::string path_;
};

// Deletes a directory with everything in it (no error when missing).
void removeTree(const std::string& path);

bool writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);
bool fileExists(const std::string& path);
std::vector<std::string> readLines(const std::string& path);

struct ProcessResult {
  bool started = false;
  bool timedOut = false;
  DWORD exitCode = 0;
  std::string output;  // stdout and stderr
};

// Runs a command line and waits at most `timeoutMs`; a process that overruns is terminated.
ProcessResult runProcess(const std::string& commandLine, DWORD timeoutMs = 30000);

// A process started in the background with its output captured; terminated (if still running)
// when the object goes.
class BackgroundProcess {
 public:
  explicit BackgroundProcess(const std::string& commandLine);
  ~BackgroundProcess();
  BackgroundProcess(const BackgroundProcess&) = delete;
  BackgroundProcess& operator=(const BackgroundProcess&) = delete;

  bool started() const { return process_ != nullptr; }
  // Waits until the output holds `text` (true) or `timeoutMs` passes (false).
  bool waitForOutput(const std::string& text, DWORD timeoutMs);
  // Waits for the exit; false on time-out.
  bool wait(DWORD timeoutMs);
  // Ends the process if it still runs and waits until its whole output has been read.
  void stop();
  DWORD exitCode() const;
  std::string output() const;

 private:
  static DWORD WINAPI readOutput(void* self);

  HANDLE process_ = nullptr;
  HANDLE pipe_ = nullptr;
  HANDLE reader_ = nullptr;
  mutable CRITICAL_SECTION lock_;
  std::string output_;
};

// The directory of this test executable, with a trailing backslash.
std::string executableDirectory();

// Copies this directory's `source` file to `target` (both in the executable directory).
bool copyBeside(const std::string& source, const std::string& target);

// Runs a copy of test_helper.exe named `exeName` (its first four characters are its local id),
// presented by Wine as `wineVersion` when that is not empty, with `arguments`, and returns the
// "key=value" lines it printed. The copy is removed afterwards.
std::map<std::string, std::string> runHelperCopy(const std::string& exeName,
                                                 const std::string& arguments,
                                                 const std::string& wineVersion = "");

// Sets the Windows version that Wine reports to the executable named `exeName` (e.g. "win7",
// "winxp64"), or removes the setting for an empty version.
void setWineVersion(const std::string& exeName, const std::string& version);

}  // namespace testsupport
