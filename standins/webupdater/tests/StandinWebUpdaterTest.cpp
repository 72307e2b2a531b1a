// Self-test of the stand-in web-updater library: loads wupdstandin.dll from the test's own
// folder, scripts it through a scenario file in %TEMP% and checks what a caller observes.
//   standin_webupdater_test              the automatic checks
//   standin_webupdater_test --http URL   HTTP mode against a server at URL serving "latest.txt"
//                                        (a version) and "pkg.pkg" (a package)

#include "webupdate/WebUpdaterLibrary.h"

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

int g_passed = 0;
int g_failed = 0;

void check(bool ok, const char* what, int line) {
  if (ok) {
    ++g_passed;
  } else {
    ++g_failed;
    std::printf("FAILED line %d: %s\n", line, what);
  }
}

void checkEqual(const std::string& actual, const std::string& expected, int line) {
  check(actual == expected, ("\"" + actual + "\" == \"" + expected + "\"").c_str(), line);
}

#define CHECK(condition) check((condition), #condition, __LINE__)
#define CHECK_EQ(actual, expected) checkEqual((actual), (expected), __LINE__)

int g_allocations = 0;

void* countingAllocate(unsigned long long size) {
  ++g_allocations;
  return ::operator new(static_cast<size_t>(size));
}

std::string folderOf(const std::string& path) {
  return path.substr(0, path.find_last_of('\\'));
}

std::string ownFolder() {
  char path[MAX_PATH];
  DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
  return folderOf(std::string(path, length));
}

std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
}

void writeText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

bool fileExists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void removeTree(const std::string& dir) {
  WIN32_FIND_DATAA entry;
  HANDLE find = FindFirstFileA((dir + "\\*").c_str(), &entry);
  if (find != INVALID_HANDLE_VALUE) {
    do {
      std::string name = entry.cFileName;
      if (name == "." || name == "..")
        continue;
      std::string child = dir + "\\" + name;
      if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
        removeTree(child);
      else
        DeleteFileA(child.c_str());
    } while (FindNextFileA(find, &entry));
    FindClose(find);
  }
  RemoveDirectoryA(dir.c_str());
}

void printTree(const std::string& dir, const std::string& prefix) {
  WIN32_FIND_DATAA entry;
  HANDLE find = FindFirstFileA((dir + "\\*").c_str(), &entry);
  if (find == INVALID_HANDLE_VALUE)
    return;
  do {
    std::string name = entry.cFileName;
    if (name == "." || name == "..")
      continue;
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
      printTree(dir + "\\" + name, prefix + name + "\\");
    else
      std::printf("  %s%s: \"%s\"\n", prefix.c_str(), name.c_str(),
                  readText(dir + "\\" + name).c_str());
  } while (FindNextFileA(find, &entry));
  FindClose(find);
}

// A loaded DLL and typed lookups of its exports.
class Library {
 public:
  explicit Library(const std::string& path) : module_(LoadLibraryA(path.c_str())) {}
  ~Library() {
    if (module_ != nullptr)
      FreeLibrary(module_);
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  bool loaded() const { return module_ != nullptr; }

  template <typename Fn>
  Fn* get(const char* name) const {
    if (module_ == nullptr)
      return nullptr;
    // Deliberate detour through void(*)(): GCC's -Wcast-function-type accepts that as a
    // generic function pointer, but not FARPROC's own signature.
    return reinterpret_cast<Fn*>(reinterpret_cast<void (*)()>(GetProcAddress(module_, name)));
  }

 private:
  HMODULE module_;
};

struct Api {
  explicit Api(const Library& library)
      : initialize(library.get<decltype(UpdInitializeA)>("UpdInitializeA")),
        uninitialize(library.get<decltype(UpdUninitialize)>("UpdUninitialize")),
        checkConnection(library.get<decltype(UpdCheckConnection)>("UpdCheckConnection")),
        checkForUpdate(library.get<decltype(UpdCheckForUpdateA)>("UpdCheckForUpdateA")),
        download(library.get<decltype(UpdDownloadUpdateExA)>("UpdDownloadUpdateExA")),
        apply(library.get<decltype(UpdApplyUpdateA)>("UpdApplyUpdateA")) {}

  bool complete() const {
    return initialize && uninitialize && checkConnection && checkForUpdate && download && apply;
  }

  // Calls UpdCheckForUpdateA as the program does; returns the code and the new version.
  int check(const std::string& url, std::string* newVersion, const char* current = "1.0.0.0") {
    char buffer[kUpdNewVersionSize] = {};
    int result = checkForUpdate(url.c_str(), current, buffer, 30, 2, nullptr);
    *newVersion = std::string(buffer, strnlen(buffer, sizeof(buffer)));
    terminated = buffer[kUpdNewVersionSize - 1] == '\0';
    return result;
  }

  decltype(UpdInitializeA)* initialize;
  decltype(UpdUninitialize)* uninitialize;
  decltype(UpdCheckConnection)* checkConnection;
  decltype(UpdCheckForUpdateA)* checkForUpdate;
  decltype(UpdDownloadUpdateExA)* download;
  decltype(UpdApplyUpdateA)* apply;
  bool terminated = true;
};

// What the caller sees after UpdDownloadUpdateExA.
struct Download {
  int result = -1;
  bool ownBuffer = false;  // the pointer still points to the caller's buffer
  bool isNull = false;
  std::string path;
};

Download download(Api& api, const std::string& url) {
  char* buffer = new char[kUpdPathBufferSize];
  std::memset(buffer, 'x', kUpdPathBufferSize);
  char* path = buffer;
  unsigned long long unused = 0;
  Download seen;
  seen.result = api.download(url.c_str(), nullptr, &unused, nullptr, 30, 1, &path, nullptr);
  seen.ownBuffer = path == buffer;
  seen.isNull = path == nullptr;
  if (path != nullptr)
    seen.path = std::string(path, strnlen(path, kUpdPathBufferSize));
  if (!seen.ownBuffer)
    ::operator delete(path);
  delete[] buffer;
  return seen;
}

// A scratch folder with the scenario (named by WUPD_SCENARIO) and the journal.
struct Workspace {
  Workspace() {
    char temp[MAX_PATH];
    GetTempPathA(MAX_PATH, temp);
    dir = std::string(temp) + "wupd-selftest-" + std::to_string(GetCurrentProcessId());
    CreateDirectoryA(dir.c_str(), nullptr);
    scenario = dir + "\\scenario.ini";
    journal = dir + "\\journal.txt";
    SetEnvironmentVariableA("WUPD_SCENARIO", scenario.c_str());
  }
  ~Workspace() { removeTree(dir); }

  // Writes the scenario with the journal configured; `library` goes into [Library].
  void setScenario(const std::string& sections, const std::string& library = "") const {
    writeText(scenario, "[Library]\r\nJournal=" + journal + "\r\n" + library + sections);
  }

  std::vector<std::string> journalLines() const {
    std::vector<std::string> lines;
    std::string text = readText(journal);
    for (size_t start = 0; start < text.size();) {
      size_t end = text.find("\r\n", start);
      if (end == std::string::npos)
        end = text.size();
      lines.push_back(text.substr(start, end - start));
      start = end + 2;
    }
    return lines;
  }

  std::string dir;
  std::string scenario;
  std::string journal;
};

void testLibrarySettings(Api& api, const Workspace& work) {
  DeleteFileA(work.scenario.c_str());
  CHECK(api.checkConnection() == 1);
  CHECK(api.initialize(countingAllocate, nullptr, nullptr, nullptr, 0, nullptr, nullptr) == 0);

  // An inline comment after blanks is not part of the value.
  work.setScenario("", "Connection=0   ; offline\r\nInitialize=7\r\n");
  CHECK(api.checkConnection() == 0);
  CHECK(api.initialize(countingAllocate, nullptr, nullptr, nullptr, 0, nullptr, nullptr) == 7);

  // A rewrite within the same clock tick, keeping the size, must still be seen.
  for (int round = 0; round < 20; ++round) {
    work.setScenario("", "Connection=" + std::to_string(round % 10) + "\r\n");
    CHECK(api.checkConnection() == round % 10);
  }
}

void testCheckRules(Api& api, const Workspace& work) {
  std::string version;
  work.setScenario(
      "[Check]\r\nSWVER=3,2.0.0.0\r\nFWVER=4\r\nDOC=5,ignored, with comma\r\nLONG=3,"
      "12345678901234567890123\r\n*=2\r\n");
  CHECK(api.check("http://host/q?SWVER=1", &version) == 3);
  CHECK_EQ(version, "2.0.0.0");
  // Rules apply in file order, not by position in the URL.
  CHECK(api.check("http://host/q?FWVER=1&SWVER=1", &version) == 3);
  CHECK(api.check("http://host/q?FWVER=1", &version) == 4);
  CHECK_EQ(version, "");
  CHECK(api.check("http://host/q?DOC", &version) == 5);
  CHECK_EQ(version, "ignored, with comma");
  CHECK(api.check("http://host/LONG", &version) == 3);
  CHECK_EQ(version, "1234567890123456789");
  CHECK(api.terminated);
  CHECK(api.check("http://host/other", &version) == 2);

  // "*" placed first shadows everything after it; no rule at all means 2.
  work.setScenario("[Check]\r\n*=1\r\nSWVER=3,2.0.0.0\r\n");
  CHECK(api.check("http://host/SWVER", &version) == 1);
  work.setScenario("[Check]\r\nSWVER=3,2.0.0.0\r\n");
  CHECK(api.check("http://host/FWVER", &version) == 2);
  CHECK_EQ(version, "");
}

void testDownloadModes(Api& api, const Workspace& work) {
  const std::string buffered = work.dir + "\\dl\\new\\software.pkg";
  const std::string allocated = work.dir + "\\dl\\firmware.pkg";
  const std::string nulled = work.dir + "\\dl\\null.pkg";
  work.setScenario("[Download]\r\nSWPKG=0,buffer," + buffered +
                   ",software package, v2\r\nFWPKG=0,alloc," + allocated + "\r\nNULLPKG=6,null," +
                   nulled + ",\r\nEMPTY=0,buffer,\r\n");
  api.initialize(countingAllocate, nullptr, nullptr, nullptr, 0, nullptr, nullptr);

  Download seen = download(api, "http://host/get?SWPKG");
  CHECK(seen.result == 0);
  CHECK(seen.ownBuffer);
  CHECK_EQ(seen.path, buffered);
  CHECK_EQ(readText(buffered), "software package, v2");

  int allocationsBefore = g_allocations;
  seen = download(api, "http://host/get?FWPKG");
  CHECK(seen.result == 0);
  CHECK(!seen.ownBuffer && !seen.isNull);
  CHECK(g_allocations == allocationsBefore + 1);
  CHECK_EQ(seen.path, allocated);
  CHECK_EQ(readText(allocated), "package");

  // The file is created whatever the code; an empty content field makes an empty file.
  seen = download(api, "http://host/get?NULLPKG");
  CHECK(seen.result == 6);
  CHECK(seen.isNull);
  CHECK(fileExists(nulled));
  CHECK_EQ(readText(nulled), "");

  seen = download(api, "http://host/get?EMPTY");
  CHECK(seen.result == 0 && seen.ownBuffer);
  CHECK_EQ(seen.path, "");

  // No matching rule: code 1, an empty path in the caller's buffer.
  seen = download(api, "http://host/get?OTHER");
  CHECK(seen.result == 1 && seen.ownBuffer);
  CHECK_EQ(seen.path, "");

  // Without an allocation callback the path lands in the caller's buffer.
  api.uninitialize();
  seen = download(api, "http://host/get?FWPKG");
  CHECK(seen.ownBuffer);
  CHECK_EQ(seen.path, allocated);
}

void testApplyRules(Api& api, const Workspace& work) {
  work.setScenario("[Apply]\r\nbad.pkg=0\r\nodd=9\r\n*=1\r\n");
  CHECK(api.apply("C:\\dl\\bad.pkg", "C:\\app", nullptr, nullptr, nullptr) == 0);
  CHECK(api.apply("C:\\odd\\good.pkg", "C:\\app", nullptr, nullptr, nullptr) == 9);
  CHECK(api.apply("C:\\dl\\good.pkg", "C:\\app", nullptr, nullptr, nullptr) == 1);
  work.setScenario("");
  CHECK(api.apply("C:\\dl\\bad.pkg", "C:\\app", nullptr, nullptr, nullptr) == 1);
}

void testJournal(Api& api, const Workspace& work) {
  const std::string file = work.dir + "\\j\\fw.pkg";
  work.setScenario("[Check]\r\nFW=3,1.2.3.4\r\n[Download]\r\nFW=0,alloc," + file + "\r\n",
                   "Connection=1\r\n");
  DeleteFileA(work.journal.c_str());
  api.initialize(countingAllocate, nullptr, nullptr, nullptr, 0, nullptr, nullptr);
  api.checkConnection();
  std::string version;
  api.check("http://h/FW", &version, "1.0.0.0");
  download(api, "http://h/FW/pkg");
  api.apply("C:\\p.pkg", "C:\\dest dir", nullptr, nullptr, nullptr);
  api.uninitialize();
  api.initialize(nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr);

  const std::string pid = std::to_string(GetCurrentProcessId()) + " | ";
  const std::vector<std::string> expected = {
      pid + "UpdInitializeA | callback=1",
      pid + "UpdCheckConnection | result=1",
      pid +
          "UpdCheckForUpdateA | url=http://h/FW | version=1.0.0.0 | timeout=30 | retries=2 | "
          "result=3 | newversion=1.2.3.4",
      pid +
          "UpdDownloadUpdateExA | url=http://h/FW/pkg | timeout=30 | retries=1 | result=0 | "
          "mode=alloc | file=" +
          file,
      pid + "UpdApplyUpdateA | package=C:\\p.pkg | dir=C:\\dest dir | result=1",
      pid + "UpdUninitialize",
      pid + "UpdInitializeA | callback=0",
  };
  std::vector<std::string> lines = work.journalLines();
  CHECK(lines.size() == expected.size());
  for (size_t i = 0; i < expected.size() && i < lines.size(); ++i)
    CHECK_EQ(lines[i], expected[i]);
}

void testPackageApply(Api& api, const Workspace& work) {
  work.setScenario("", "Mode=http\r\n");
  const std::string package = work.dir + "\\update.pkg";
  const std::string dest = work.dir + "\\app\\new";
  writeText(package,
            "ORRERY-PACKAGE 1\n--- file: readme.txt\nline one\r\n\nline three\n--- file: "
            "sub\\dir/config.ini\n[Main]\nKey=Value\n");
  CHECK(api.apply(package.c_str(), dest.c_str(), nullptr, nullptr, nullptr) == 1);
  CHECK_EQ(readText(dest + "\\readme.txt"), "line one\r\n\r\nline three\r\n");
  CHECK_EQ(readText(dest + "\\sub\\dir\\config.ini"), "[Main]\r\nKey=Value\r\n");

  const std::string evilDest = work.dir + "\\app\\evil";
  const std::vector<std::string> rejected = {
      "ORRERY-PACKAGE 1\n--- file: ok.txt\nx\n--- file: ..\\escape.txt\nx\n",
      "ORRERY-PACKAGE 1\n--- file: C:\\escape.txt\nx\n",
      "ORRERY-PACKAGE 1\n--- file: \\escape.txt\nx\n",
      "ORRERY-PACKAGE 2\n--- file: ok.txt\nx\n",
      "ORRERY-PACKAGE 1\nstray line\n--- file: ok.txt\nx\n",
      "",
  };
  for (const std::string& text : rejected) {
    writeText(package, text);
    CHECK(api.apply(package.c_str(), evilDest.c_str(), nullptr, nullptr, nullptr) == 0);
  }
  CHECK(!fileExists(evilDest + "\\ok.txt"));
  CHECK(!fileExists(work.dir + "\\app\\escape.txt"));
  CHECK(api.apply((work.dir + "\\missing.pkg").c_str(), dest.c_str(), nullptr, nullptr, nullptr) ==
        0);

  // A closed port on this machine: the connection cannot be made at all.
  std::string version;
  CHECK(api.check("http://127.0.0.1:1/latest.txt", &version) ==
        UPD_UPDATES_INET_CONN_NOT_AVAILABLE);
  CHECK(api.checkConnection() == kUpdConnected);
}

// The library found beside a program under its local-id name reads "<dll>.ini" by default.
void testDefaultScenarioPath(const std::string& standin, const Workspace& work) {
  const std::string copy = work.dir + "\\cvupwupd.DLL";
  CHECK(CopyFileA(standin.c_str(), copy.c_str(), FALSE));
  writeText(copy + ".ini", "[Library]\r\nConnection=5\r\n");
  SetEnvironmentVariableA("WUPD_SCENARIO", nullptr);
  {
    Library library(copy);
    Api api(library);
    CHECK(api.complete() && api.checkConnection() == 5);
  }
  SetEnvironmentVariableA("WUPD_SCENARIO", work.scenario.c_str());
}

void testNoExports() {
  Library library(ownFolder() + "\\wupdnoexports.dll");
  CHECK(library.loaded());
  Api api(library);
  CHECK(!api.initialize && !api.uninitialize && !api.checkConnection && !api.checkForUpdate &&
        !api.download && !api.apply);
  CHECK(library.get<int()>("StandinNoUpdaterExports") != nullptr);
}

void runHttp(Api& api, const Workspace& work, std::string base) {
  if (base.empty() || base.back() != '/')
    base += '/';
  work.setScenario("", "Mode=http\r\nDownloadDirectory=" + work.dir + "\\downloads\r\n");
  api.initialize(countingAllocate, nullptr, nullptr, nullptr, 0, nullptr, nullptr);
  std::printf("UpdCheckConnection: %d\n", api.checkConnection());

  std::string latest;
  int result = api.check(base + "latest.txt", &latest, "0.0.0.0");
  std::printf("check latest.txt against 0.0.0.0: %d \"%s\"\n", result, latest.c_str());
  CHECK(result == UPD_UPDATES_AVAILABLE && !latest.empty());
  std::string none;
  result = api.check(base + "latest.txt", &none, latest.c_str());
  std::printf("check latest.txt against %s: %d\n", latest.c_str(), result);
  CHECK(result == UPD_UPDATES_NOT_AVAILABLE);
  result = api.check(base + "missing.txt", &none);
  std::printf("check missing.txt: %d\n", result);
  CHECK(result == UPD_UPDATES_SERVER_NO_RESPONSE);

  Download seen = download(api, base + "pkg.pkg?cache=no");
  std::printf("download pkg.pkg: %d path=%s (alloc=%d)\n", seen.result, seen.path.c_str(),
              !seen.ownBuffer && !seen.isNull);
  CHECK(seen.result == 0 && !seen.ownBuffer);
  CHECK_EQ(seen.path, work.dir + "\\downloads\\pkg.pkg");
  seen = download(api, base + "missing.pkg");
  std::printf("download missing.pkg: %d\n", seen.result);
  CHECK(seen.result == 1 && seen.ownBuffer);

  const std::string dest = work.dir + "\\applied";
  result = api.apply((work.dir + "\\downloads\\pkg.pkg").c_str(), dest.c_str(), nullptr, nullptr,
                     nullptr);
  std::printf("apply pkg.pkg: %d\n", result);
  CHECK(result == kUpdApplied);
  printTree(dest, "");
  for (const std::string& line : work.journalLines())
    std::printf("journal: %s\n", line.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string standin = ownFolder() + "\\wupdstandin.dll";
  Workspace work;
  {
    Library library(standin);
    Api api(library);
    CHECK(api.complete());
    if (!api.complete()) {
      std::printf("cannot load %s\n", standin.c_str());
      return 1;
    }
    if (argc == 3 && std::strcmp(argv[1], "--http") == 0) {
      runHttp(api, work, argv[2]);
    } else {
      testLibrarySettings(api, work);
      testCheckRules(api, work);
      testDownloadModes(api, work);
      testApplyRules(api, work);
      testJournal(api, work);
      testPackageApply(api, work);
    }
  }
  if (argc == 1) {
    testDefaultScenarioPath(standin, work);
    testNoExports();
  }
  std::printf("%d passed, %d failed\n", g_passed, g_failed);
  return g_failed == 0 ? 0 : 1;
}
