// Self-test of the stand-in web-updater library: what the program's own tests and the main job
// do not reach of it (scenario rewrites and comments, the package format's rejections, a refused
// connection). Loads wupdstandin.dll from the test's own folder and scripts it through a scenario
// file in %TEMP%.

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

void* allocate(unsigned long long size) {
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

  std::string dir;
  std::string scenario;
  std::string journal;
};

void testLibrarySettings(Api& api, const Workspace& work) {
  DeleteFileA(work.scenario.c_str());
  CHECK(api.checkConnection() == 1);
  CHECK(api.initialize(allocate, nullptr, nullptr, nullptr, 0, nullptr, nullptr) == 0);

  // An inline comment after blanks is not part of the value.
  work.setScenario("", "Connection=0   ; offline\r\nInitialize=7\r\n");
  CHECK(api.checkConnection() == 0);
  CHECK(api.initialize(allocate, nullptr, nullptr, nullptr, 0, nullptr, nullptr) == 7);

  // A rewrite within the same clock tick, keeping the size, must still be seen.
  for (int round = 0; round < 20; ++round) {
    work.setScenario("", "Connection=" + std::to_string(round % 10) + "\r\n");
    CHECK(api.checkConnection() == round % 10);
  }
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

}  // namespace

int main() {
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
    testLibrarySettings(api, work);
    testPackageApply(api, work);
  }
  std::printf("%d passed, %d failed\n", g_passed, g_failed);
  return g_failed == 0 ? 0 : 1;
}
