#pragma once

#include <windows.h>

#include <accctrl.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "spooler/Scenario.h"
#include "system/Localize.h"
#include "system/UniqueHandle.h"

// Helpers of the test executables, over the real Wine registry, files, processes and stand-ins.
namespace testsupport {

// This executable's local id ("pdse"), store root (scope 0) and product family's key.
inline const auto localId = [] { return Localize::getInstance()->getLocalId(); };
inline const auto storeRoot = [] { return Localize::getInstance()->getRegistryPath(0); };
inline const auto familyPath = [] {
  return Localize::getInstance()->getProductFamilyRegistryPath();
};
// Keys below HKEY_LOCAL_MACHINE; deleting a missing tree is no error.
bool keyExists(const std::string& path);
// A DWORD in decimal, a string as it is, strings (REG_MULTI_SZ) one a line, or "none".
std::string registryValue(const std::string& path, const std::string& name);
// Creates the key as needed; false when it could not. A REG_MULTI_SZ `value` holds its strings,
// each ended by '\0'.
bool setValue(const std::string& path, const std::string& name, DWORD value);
bool setValue(const std::string& path,
              const std::string& name,
              const std::string& value,
              DWORD type = REG_SZ);
// Deletes a registry link as the link, never its target.
void deleteKeyTree(const std::string& path);
// Makes the key `path` a registry link to the key `target` (both ASCII); false when it could not.
bool makeLink(const std::string& path, const std::string& target);
// Whether the key `path` is there and is a link.
bool isLinkKey(const std::string& path);

// This executable's settings store for a scope; the family's key is deleted before and after.
class ScopedStore {
 public:
  ScopedStore();
  ~ScopedStore();
  ScopedStore(const ScopedStore&) = delete;
  ScopedStore& operator=(const ScopedStore&) = delete;

  void set(const std::string& section, const std::string& name, DWORD value);
  void set(const std::string& section,
           const std::string& name,
           const std::string& value,
           DWORD type = REG_SZ);
  void remove(const std::string& section, const std::string& name);
  std::string get(const std::string& section, const std::string& name) const {
    return registryValue(storeRoot() + section, name);
  }
};

// This executable's policy key for a scope; the family's policy key is deleted before and after.
class ScopedPolicy {
 public:
  ScopedPolicy();
  ~ScopedPolicy();
  ScopedPolicy(const ScopedPolicy&) = delete;
  ScopedPolicy& operator=(const ScopedPolicy&) = delete;

  static std::string root();
  void set(const std::string& section, const std::string& name, DWORD value);
  void set(const std::string& section,
           const std::string& name,
           const std::string& value,
           DWORD type = REG_SZ);
  void remove(const std::string& section, const std::string& name);
};

// The store of an update run against the stand-in library beside the tests (package codes "cs" and
// "cd" for the checks, "ds" and "dd" for the downloads) and the printers of `driver`.
void stageUpdateRun(ScopedStore& store, const std::string& driver);
// This process's command line as the program reads it.
void setCommandLine(const std::string& commandLine);

// The log on with the "All" mask (component masks 0, then `switches`) for a scope, and the lines
// written meanwhile; the logger is recreated at both ends. Needs a ScopedStore.
class LogCapture {
 public:
  explicit LogCapture(DWORD allMask = 0xFFFFFFFF,
                      bool headers = false,
                      const std::map<std::string, DWORD>& switches = {});
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // Without headers, each line is the 15-column component, a blank, the indentation and the text.
  std::vector<std::string> lines() const;
  // The detail lines of one traced operation, in order, each without the operation's name.
  std::vector<std::string> details(const std::string& functionName) const;
  // Whether some line's text after the component and the indentation equals `text`.
  bool contains(const std::string& text) const {
    const std::vector<std::string> rest = details(text);
    return std::find(rest.begin(), rest.end(), "") != rest.end();
  }

 private:
  std::string path_;
  uint64_t start_ = 0;
};

void restartLogger();  // Empties the switch cache.

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

void removeTree(const std::string& path);
// Also drops the private-profile functions' cached copy of the file.
bool writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);
// A file of the tests' source folder (`relative` below tests/), as Wine shows it.
std::string sourcePath(const std::string& relative);
inline bool fileExists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}
std::vector<std::string> splitLines(const std::string& text);  // CR LF or LF lines.

// A process with its stdout and stderr going to files; ended, if still running, with the object.
class Process {
 public:
  explicit Process(const std::string& commandLine);
  ~Process();

  // False when `timeoutMs` passes first.
  bool waitForOutput(const std::string& text, DWORD timeoutMs) const;
  DWORD id() const { return GetProcessId(process_.get()); }
  bool wait(DWORD timeoutMs) const {
    return process_.valid() && WaitForSingleObject(process_.get(), timeoutMs) == WAIT_OBJECT_0;
  }
  DWORD exitCode() const {
    DWORD code = 0;
    GetExitCodeProcess(process_.get(), &code);
    return code;
  }
  // Its stdout and stderr so far, each line ending in "\n".
  std::string output() const { return text("output.txt"); }
  std::string errors() const { return text("errors.txt"); }

 private:
  std::string text(const char* file) const;

  TempDir output_;
  ScopedHandle process_;
};

// The helper (or its copy named `copy`) holding the mutex `name` until letGo(), then releasing
// or ("abandon") abandoning it.
class MutexHolder {
 public:
  MutexHolder(const std::string& name,
              const std::string& mode = "release",
              const std::string& copy = "test_helper.exe");
  ~MutexHolder();
  bool holds() const { return holds_; }
  void letGo();

 private:
  const std::string event_, program_;
  ScopedHandle signal_;
  Process holder_;
  bool holds_;
};

// What another process sees when it tries the mutex `name` for 50 ms: "acquired" or "busy".
std::string tryMutexElsewhere(const std::string& name);

// The DACL of an object (SE_KERNEL_OBJECT, SE_REGISTRY_KEY) or of a security descriptor in SDDL,
// "null" for an object's null DACL, or "none" for a null handle or an unreadable DACL.
std::string dacl(HANDLE object, SE_OBJECT_TYPE type);
std::string dacl(PSECURITY_DESCRIPTOR descriptor);

// A command line's stdout after at most two minutes (its stderr too unless `errors` takes it);
// `exitCode` is STILL_ACTIVE when it had to be ended.
std::string runProcess(const std::string& commandLine,
                       DWORD* exitCode = nullptr,
                       std::string* errors = nullptr);

// This executable's directory with a trailing backslash, and a command line of a program in it.
std::string executableDirectory();
std::string besideTests(const std::string& name, const std::string& arguments = "");

// runProcess() of a copy `copy` of the executable `source` beside the tests (its first four
// characters its local id), that Wine presents as `wineVersion` ("winxp") unless empty.
std::string runCopy(const std::string& source,
                    const std::string& copy,
                    const std::string& arguments,
                    const std::string& wineVersion = "",
                    DWORD* exitCode = nullptr,
                    std::string* errors = nullptr);
// UTC now moved by `seconds`, as "2026-01-02T03:04:05Z".
std::string utcFromNow(long long seconds);
// The "key=value" lines of an output.
std::map<std::string, std::string> facts(const std::string& output);

// The trusted publishers' test files (tests/trust/make-fixtures.sh), in the folder "trust" beside
// the tests: trustFixture("listed.pkg"); a signer's public key hash, publisherHash("listed").
std::string trustFixture(const std::string& name);
std::string publisherHash(const std::string& signer);
// "" when the fixtures' test root is trusted here (scripts/with-trusted-root.sh), else why not.
std::string whyTestRootUntrusted();
// Skips the test where the fixtures' test root is not trusted, saying why.
#define SKIP_WITHOUT_TEST_ROOT()                                       \
  do {                                                                 \
    const std::string untrusted = testsupport::whyTestRootUntrusted(); \
    if (!untrusted.empty())                                            \
      GTEST_SKIP() << untrusted;                                       \
  } while (false)
// Sets the DACL, and the owner when it starts with one ("O:BAD:P(...)"), of the key `path` below
// HKEY_LOCAL_MACHINE from SDDL; false when the system refused. Under Wine the DACL lives as long as
// the wineserver.
bool setKeySecurity(const std::string& path, const char* sddl);

// A stand-in DLL's scenario file, named by the environment variable `variable` for a scope, and
// its journal (a line per call served, led by the caller's process id).
class StandInScenario {
 public:
  StandInScenario(const char* variable, const char* separator)
      : variable_(variable), separator_(separator) {
    SetEnvironmentVariableA(variable_, directory_.file("scenario.ini").c_str());
  }
  ~StandInScenario() { SetEnvironmentVariableA(variable_, nullptr); }

  // This process's calls of `function` (of every function when empty), without the process id.
  std::vector<std::string> calls(const std::string& function = "") const;
  void clearJournal() { DeleteFileA(journal_.c_str()); }
  // Every process's calls, as the journal holds them.
  std::string journal() const { return readFile(journal_); }

 protected:
  void writeScenario(const std::string& text) { writeFile(directory_.file("scenario.ini"), text); }

  TempDir directory_;
  const std::string journal_ = directory_.file("journal.txt");

 private:
  const char* variable_;
  std::string separator_;
};

// The stand-in winspool.drv's printers.
class SpoolerScenario : public StandInScenario {
 public:
  SpoolerScenario() : StandInScenario("SPOOLER_SCENARIO", " ") { write({}); }

  // These printers, and GetPrinterDriverDirectoryA failing with `failDriverDirectory` unless 0.
  void write(const std::vector<PrinterScenario>& printers, DWORD failDriverDirectory = 0);
  // The printer names of the calls of `function` that contain `filter` ("command=2 result=1").
  std::vector<std::string> names(const std::string& function, const std::string& filter = "") const;

 private:
  unsigned generation_ = 0;
};

// The stand-in web-updater library's answers. Rules are matched in order against the URL (check,
// download) or the package path (apply); the key "*" matches anything. Its calls read
// "Export | field | field ...".
class WebUpdaterScenario : public StandInScenario {
 public:
  WebUpdaterScenario() : StandInScenario("WUPD_SCENARIO", " | ") { write(); }

  // Removes every rule and empties the journal.
  WebUpdaterScenario& clear() {
    connection_ = 1;
    gate_.clear();
    for (auto& rules : rules_)
      rules.clear();
    clearJournal();
    return *this;
  }
  WebUpdaterScenario& connection(int result) {
    connection_ = result;
    return *this;
  }
  // "<code>[,<new version>]"
  WebUpdaterScenario& check(const std::string& url, const std::string& value) {
    return rule(0, url, value);
  }
  // "<code>,<buffer|alloc|null|empty|full|named>,<file path>": "empty" a block of 0 bytes, "full"
  // a buffer with no terminator, "named" the path alone, with no file written.
  WebUpdaterScenario& download(const std::string& url, const std::string& value) {
    return rule(1, url, value);
  }
  // A code, "hang", "throw", "unpack" (the package's files are written), or "gate" or "gate
  // unpack" (the apply waits until the file `gate()` names exists).
  WebUpdaterScenario& apply(const std::string& package, const std::string& value) {
    return rule(2, package, value);
  }
  WebUpdaterScenario& gate(const std::string& file) {
    gate_ = file;
    return *this;
  }
  void write();

 private:
  WebUpdaterScenario& rule(int section, const std::string& key, const std::string& value) {
    rules_[section].emplace_back(key, value);
    return *this;
  }

  int connection_ = 1;
  std::string gate_;
  std::vector<std::pair<std::string, std::string>> rules_[3];
};

}  // namespace testsupport
