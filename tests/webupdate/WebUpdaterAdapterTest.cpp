#include <gtest/gtest.h>

#include <windows.h>

#include <set>

#include "support/TestSupport.h"
#include "webupdate/AllocationTracker.h"
#include "webupdate/WebUpdaterAdapter.h"

using Lines = std::vector<std::string>;

namespace {

const char kUpdater[] = "Settings\\Updater";

// The library is found beside the test exe (hkwewupd.DLL is the stand-in).
class WebUpdaterAdapterTest : public testing::Test {
 protected:
  void SetUp() override {
    store_.set(kUpdater, "WebUpdaterDllPath", testsupport::executableDirectory());
  }

  // Every operation of a new adapter, as "<online> <check result> <downloaded> <installed>".
  static std::string everyOperation() {
    WebUpdaterAdapter adapter;
    std::string downloaded = "stale";
    const bool online = adapter.isInternetAvailable();
    const UpdateCheckResult check = adapter.isUpdateAvailable("u", "1");
    const bool download = adapter.downloadUpdate("u", downloaded) || !downloaded.empty();
    const bool install = adapter.installUpdateUsingCurrentProcess("p", "d");
    return std::to_string(online) + " " + std::to_string(check) + " " + std::to_string(download) +
           " " + std::to_string(install);
  }

  testsupport::ScopedStore store_;
  testsupport::WebUpdaterScenario library_;
};

}  // namespace

// The new version that the library writes is logged whole, also when it fills its 20 bytes.
TEST_F(WebUpdaterAdapterTest, MapsTheLibrarysCheckCodesAndLogsTheNewVersion) {
  const std::pair<int, UpdateCheckResult> rows[] = {
      {0, UPDATE_CHECK_FAILED}, {1, UPDATE_CHECK_FAILED}, {2, UPDATE_NOT_AVAILABLE},
      {3, UPDATE_AVAILABLE},    {4, UPDATE_NO_PRIVILEGE}, {5, UPDATE_CHECK_FAILED},
      {6, UPDATE_CHECK_FAILED}, {-1, UPDATE_CHECK_FAILED}};
  WebUpdaterAdapter adapter;
  for (const auto& [code, result] : rows) {
    library_.clear().check("*", std::to_string(code) + ",2026.1125.1300.0042").write();
    EXPECT_EQ(result, adapter.isUpdateAvailable("http://service/v", "1.0.0.0")) << code;
  }
  testsupport::LogCapture log;
  adapter.isUpdateAvailable("http://service/v", "1.0.0.0");
  EXPECT_TRUE(log.contains(
      "WebUpdaterAdapter::isUpdateAvailable()  New version number=2026.1125.1300.0042"));
}

// The library is initialised with the allocation callback, uninitialised and unloaded again;
// only a connection result of 1 counts as online.
TEST_F(WebUpdaterAdapterTest, InitialisesTheLibraryForItsLifetimeAndAsksItWhetherOnline) {
  for (const int connection : {1, 0, 2}) {
    library_.clear().connection(connection).write();
    EXPECT_EQ(connection == 1, WebUpdaterAdapter().isInternetAvailable());
    EXPECT_EQ(
        (Lines{"UpdInitializeA | callback=1",
               "UpdCheckConnection | result=" + std::to_string(connection), "UpdUninitialize"}),
        library_.calls());
    EXPECT_EQ(nullptr, GetModuleHandleA("hkwewupd.DLL"));
  }
}

// The directory is taken with or without its trailing backslash; without one stored, the first
// run writes the printer-driver directory back (Windows 7: version code 9, so "\3"). A directory
// that did not come from the spooler is never written back, and a library path without its drive
// (a folder below the current drive's root, where anyone may plant a DLL) is not loaded, whether
// it is stored so or what a failing spooler left; the always-written log says so.
TEST_F(WebUpdaterAdapterTest, FindsTheLibraryInTheStoredOrThePrinterDriverDirectoryWithItsDrive) {
  testsupport::SpoolerScenario spooler;
  const std::string planted = "C:\\hkweplant", here = testsupport::executableDirectory();
  CreateDirectoryA(planted.c_str(), nullptr);
  ASSERT_TRUE(
      CopyFileA((here + "wupdstandin.dll").c_str(), (planted + "\\hkwewupd.DLL").c_str(), FALSE));
  const struct {
    std::string stored;  // "-": none, "!": none and a failing spooler
    bool loaded;
    std::string refused, written;
  } rows[] = {{here.substr(0, here.size() - 1), true, "", here.substr(0, here.size() - 1)},
              {here, true, "", here},
              {"-", false, "", "C:\\windows\\system32\\spool\\drivers\\x64\\3"},
              {"\\hkweplant", false, "\\hkweplant\\hkwewupd.DLL", "\\hkweplant"},
              {".", false, ".\\hkwewupd.DLL", "."},
              {"!", false, "\\hkwewupd.DLL", "none"}};
  for (const auto& row : rows) {
    store_.set(kUpdater, "WebUpdaterDllPath", row.stored);
    if (row.stored == "-" || row.stored == "!")
      store_.remove(kUpdater, "WebUpdaterDllPath");
    spooler.write({}, row.stored == "!" ? RPC_S_SERVER_UNAVAILABLE : 0);
    testsupport::LogCapture log(0);
    EXPECT_EQ(row.loaded, WebUpdaterAdapter().isInternetAvailable()) << row.stored;
    EXPECT_EQ(!row.refused.empty(),
              log.contains("WebUpdaterAdapter::initialize : The updater dll path is not fully "
                           "qualified, not loading '" +
                           row.refused + "'"))
        << row.stored;
    EXPECT_EQ(row.written, store_.get(kUpdater, "WebUpdaterDllPath")) << row.stored;
  }
  testsupport::removeTree(planted);
}

// A missing library or missing exports: every operation gives its failure value, and a failed
// load is logged even with logging off.
TEST_F(WebUpdaterAdapterTest, WithoutTheLibraryOrItsExportsEveryOperationFails) {
  testsupport::TempDir empty;
  store_.set(kUpdater, "WebUpdaterDllPath", empty.path());
  {
    testsupport::LogCapture log(0);
    EXPECT_EQ("0 2 0 0", everyOperation());
    EXPECT_TRUE(
        log.contains("WebUpdaterAdapter::initialize : LoadLibrary Failed. ::GetLastError()=126"));
  }
  ASSERT_TRUE(CopyFileA((testsupport::executableDirectory() + "wupdnoexports.dll").c_str(),
                        empty.file("hkwewupd.DLL").c_str(), FALSE));
  EXPECT_EQ("0 2 0 0", everyOperation());
  EXPECT_TRUE(library_.calls().empty());
}

// In a process whose DLL search is hardened, the library's folder joins the search, so that the
// library finds the DLLs it ships beside it (the helper runs as hkwe_helper.exe, so that it shares
// this executable's store, which names the folder).
TEST_F(WebUpdaterAdapterTest, TheLibrarysFolderJoinsTheHardenedDllSearch) {
  testsupport::TempDir folder;
  for (const char* name : {"hkwewupd.DLL", "cvcompanion.dll"})
    ASSERT_TRUE(CopyFileA((testsupport::executableDirectory() + "wupdstandin.dll").c_str(),
                          folder.file(name).c_str(), FALSE));
  store_.set(kUpdater, "WebUpdaterDllPath", folder.path());
  const std::string output =
      testsupport::runCopy("test_helper.exe", "hkwe_helper.exe", "library-search cvcompanion.dll");
  EXPECT_EQ("loaded=1", output.substr(0, 8)) << output;
}

TEST_F(WebUpdaterAdapterTest, TimeOutsAndRetriesAreCreatedWithDefaultsAndPassedUnchanged) {
  library_.check("*", "2").download("*", "1,buffer,").write();
  // What the check and the download were given: "timeout=<s> | retries=<n> " each.
  const auto passed = [this] {
    library_.clearJournal();
    WebUpdaterAdapter adapter;
    std::string downloaded, text;
    adapter.isUpdateAvailable("http://v", "1");
    adapter.downloadUpdate("http://d", downloaded);
    for (const std::string& call : library_.calls()) {
      const std::string::size_type at = call.find("timeout=");
      if (at != std::string::npos)
        text += call.substr(at, call.find(" | result") - at) + " ";
    }
    return text;
  };
  EXPECT_EQ("timeout=5 | retries=0 timeout=30 | retries=1 ", passed());
  const std::pair<const char*, DWORD> rows[] = {{"CheckForUpdateTimeOut", 5},
                                                {"CheckForUpdateRetryCount", 0},
                                                {"DownloadUpdateTimeOut", 30},
                                                {"DownloadUpdateRetryCount", 1}};
  for (const auto& [name, created] : rows) {
    EXPECT_EQ(std::to_string(created), store_.get(kUpdater, name)) << name;
    store_.set(kUpdater, name, created == 30 ? 0xFFFFFFFF : created + 4);
  }
  EXPECT_EQ("timeout=9 | retries=4 timeout=4294967295 | retries=5 ", passed());
}

// The path of a download counts only for code 0 and a path handed back, whether in the adapter's
// buffer (up to the longest the library writes there: 259 characters) or in a block from its
// allocation callback, and not when it is empty (a block of 0 bytes) or fills the buffer without
// its terminator; every block is freed.
TEST_F(WebUpdaterAdapterTest, ADownloadGivesThePathOnlyForCodeZeroAndFreesEveryBlock) {
  testsupport::TempDir files;
  const std::string file = files.file("package.bin");
  const std::string longest = files.file(std::string(258 - files.path().size(), 'p'));
  const std::pair<std::string, bool> rows[] = {
      {"0,buffer," + file, true},  {"0,buffer," + longest, true}, {"0,alloc," + file, true},
      {"3,buffer," + file, false}, {"3,alloc," + file, false},    {"0,null," + file, false},
      {"7,null," + file, false},   {"0,empty," + file, false},    {"0,full," + file, false}};
  WebUpdaterAdapter adapter;
  for (const auto& [rule, downloaded] : rows) {
    library_.clear().download("*", rule).write();
    std::string path = "stale";
    adapter.downloadUpdate("http://d", path);  // Warms the switch cache.
    std::set<void*> live;
    g_liveBlocks = &live;
    EXPECT_EQ(downloaded, adapter.downloadUpdate("http://d", path)) << rule;
    g_liveBlocks = nullptr;
    live.erase(path.data());
    EXPECT_EQ(downloaded ? rule.substr(rule.find(',', 2) + 1) : "", path) << rule;
    EXPECT_TRUE(live.empty()) << rule << ": " << live.size() << " block(s) not freed";
  }
}
