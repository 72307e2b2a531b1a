#include <gtest/gtest.h>

#include <windows.h>

#include <wininet.h>

#include "support/StandIns.h"
#include "webupdate/AllocationTracker.h"
#include "webupdate/WebUpdaterAdapter.h"

using testsupport::LogCapture;
using testsupport::ScopedStore;
using testsupport::WebUpdaterScenario;

namespace {

const char kUpdater[] = "Settings\\Updater";

class WebUpdaterAdapterTest : public testing::Test {
 protected:
  // The library is found beside the test exe (cvwewupd.DLL is the stand-in).
  void SetUp() override {
    store_.setString(kUpdater, "WebUpdaterDllPath", testsupport::executableDirectory());
  }

  ScopedStore store_;
  WebUpdaterScenario library_;
};

struct CheckCase {
  int code;
  UpdateCheckResult result;
  const char* name;
};

class CheckCodeMapping : public WebUpdaterAdapterTest,
                         public testing::WithParamInterface<CheckCase> {};

}  // namespace

TEST_P(CheckCodeMapping, MapsTheLibrarysCodeAndLogsItsName) {
  library_.check("*", std::to_string(GetParam().code) + ",9.9.9.9").write();
  LogCapture log;
  WebUpdaterAdapter adapter;
  EXPECT_EQ(GetParam().result, adapter.isUpdateAvailable("http://service/v", "1.0.0.0"));
  EXPECT_TRUE(log.contains(std::string("WebUpdaterAdapter::isUpdateAvailable()  WebUpdaterDll "
                                       "Check for updates call returned : ") +
                           GetParam().name));
}

INSTANTIATE_TEST_SUITE_P(
    Codes,
    CheckCodeMapping,
    testing::Values(CheckCase{0, UPDATE_CHECK_FAILED, "UPD_UPDATES_INET_CONN_NOT_AVAILABLE"},
                    CheckCase{1, UPDATE_CHECK_FAILED, "UPD_UPDATES_SERVER_NO_RESPONSE"},
                    CheckCase{2, UPDATE_NOT_AVAILABLE, "UPD_UPDATES_NOT_AVAILABLE"},
                    CheckCase{3, UPDATE_AVAILABLE, "UPD_UPDATES_AVAILABLE"},
                    CheckCase{4, UPDATE_NO_PRIVILEGE, "UPD_INSUFFICIENT_USER_PRIVILEGE"},
                    CheckCase{5, UPDATE_CHECK_FAILED, "UPD_INVALID_RESPONSE_DOC"},
                    CheckCase{6, UPDATE_CHECK_FAILED, "UPD_UPDATES_RESPONSE_UNKNOWN"},
                    CheckCase{-1, UPDATE_CHECK_FAILED, "UPD_UPDATES_RESPONSE_UNKNOWN"}));

TEST_F(WebUpdaterAdapterTest, LoadsInitializesAndReleasesTheLibrary) {
  library_.connection(1).write();
  {
    WebUpdaterAdapter adapter;
    EXPECT_TRUE(adapter.isInternetAvailable());
  }
  const std::vector<std::string> calls = library_.calls();
  ASSERT_EQ(3u, calls.size());
  EXPECT_EQ("UpdInitializeA | callback=1", calls[0]);
  EXPECT_EQ("UpdCheckConnection | result=1", calls[1]);
  EXPECT_EQ("UpdUninitialize", calls[2]);
  // The library is unloaded again.
  EXPECT_EQ(nullptr, GetModuleHandleA("cvwewupd.DLL"));
}

TEST_F(WebUpdaterAdapterTest, OnlyConnectionResultOneCountsAsOnline) {
  for (int result : {0, 2, -1}) {
    library_.connection(result).write();
    LogCapture log;
    EXPECT_FALSE(WebUpdaterAdapter().isInternetAvailable()) << result;
    EXPECT_TRUE(
        log.contains("WebUpdaterAdapter::isInternetAvailable() WebUpdaterDll Check for "
                     "connection call returned : " +
                     std::to_string(result)));
  }
}

TEST_F(WebUpdaterAdapterTest, AStoredDirectoryWithOrWithoutTrailingBackslashGivesOnePath) {
  std::string directory = testsupport::executableDirectory();
  directory.pop_back();
  const std::string expected =
      "WebUpdaterAdapter::initialize() About to load web updater dll. "
      "Dll Name:" +
      directory + "\\cvwewupd.DLL";
  for (const std::string& stored : {directory, directory + "\\"}) {
    store_.setString(kUpdater, "WebUpdaterDllPath", stored);
    LogCapture log;
    WebUpdaterAdapter adapter;
    EXPECT_TRUE(log.contains(expected)) << stored;
    EXPECT_TRUE(adapter.isInternetAvailable());
  }
}

TEST_F(WebUpdaterAdapterTest, FirstRunWritesThePrinterDriverDirectoryBackAndLaterRunsUseIt) {
  HKEY key = nullptr;
  RegOpenKeyExA(HKEY_LOCAL_MACHINE, (testsupport::storeRoot() + kUpdater).c_str(), 0,
                KEY_ALL_ACCESS, &key);
  RegDeleteValueA(key, "WebUpdaterDllPath");
  RegCloseKey(key);
  {
    LogCapture log;
    WebUpdaterAdapter adapter;
    EXPECT_TRUE(
        log.contains("WebUpdaterAdapter::initialize() No registry entry for the updater dll "
                     "path."));
    EXPECT_FALSE(adapter.isInternetAvailable());  // Not in the driver directory.
  }
  std::string stored;
  ASSERT_TRUE(store_.getString(kUpdater, "WebUpdaterDllPath", stored));
  // Windows 7 (Wine's default): version code 9, so "\3".
  EXPECT_EQ("C:\\windows\\system32\\spool\\drivers\\x64\\3", stored);

  LogCapture log;
  WebUpdaterAdapter adapter;
  EXPECT_FALSE(
      log.contains("WebUpdaterAdapter::initialize() No registry entry for the updater "
                   "dll path."));
  EXPECT_TRUE(
      log.contains("WebUpdaterAdapter::initialize() About to load web updater dll. Dll "
                   "Name:C:\\windows\\system32\\spool\\drivers\\x64\\3\\cvwewupd.DLL"));
}

TEST_F(WebUpdaterAdapterTest, AMissingLibrarySendsEveryOperationDownItsNotLoadedPath) {
  testsupport::TempDir empty;
  store_.setString(kUpdater, "WebUpdaterDllPath", empty.path());
  std::string downloaded = "stale";
  {
    LogCapture log(0);  // Logging off: the load failure is written all the same.
    WebUpdaterAdapter adapter;
    EXPECT_TRUE(
        log.contains("WebUpdaterAdapter::initialize : LoadLibrary Failed. "
                     "::GetLastError()=126"));
  }
  LogCapture log;
  {
    WebUpdaterAdapter adapter;
    EXPECT_FALSE(adapter.isInternetAvailable());
    EXPECT_EQ(UPDATE_NOT_AVAILABLE, adapter.isUpdateAvailable("u", "1"));
    EXPECT_FALSE(adapter.downloadUpdate("u", downloaded));
    EXPECT_FALSE(adapter.installUpdateUsingCurrentProcess("p", "d"));
  }
  EXPECT_EQ("", downloaded);
  EXPECT_TRUE(library_.calls().empty());
}

TEST_F(WebUpdaterAdapterTest, MissingExportsAreLoggedAndGiveTheFailureValues) {
  testsupport::TempDir directory;
  ASSERT_TRUE(CopyFileA((testsupport::executableDirectory() + "wupdnoexports.dll").c_str(),
                        directory.file("cvwewupd.DLL").c_str(), FALSE));
  store_.setString(kUpdater, "WebUpdaterDllPath", directory.path());
  LogCapture log;
  std::string downloaded;
  {
    WebUpdaterAdapter adapter;
    EXPECT_FALSE(adapter.isInternetAvailable());
    EXPECT_EQ(UPDATE_NOT_AVAILABLE, adapter.isUpdateAvailable("u", "1"));
    EXPECT_FALSE(adapter.downloadUpdate("u", downloaded));
    EXPECT_FALSE(adapter.installUpdateUsingCurrentProcess("p", "d"));
  }
  // Each of the six operations logs its failed lookup with the error code.
  const std::string failed =
      "::GetProcAddress failed. ::GetLastError()=" + std::to_string(ERROR_PROC_NOT_FOUND);
  size_t count = 0;
  for (const std::string& line : log.texts())
    count += line.find(failed) != std::string::npos ? 1 : 0;
  EXPECT_EQ(6u, count);
}

TEST_F(WebUpdaterAdapterTest, TimeOutsAndRetriesAreCreatedWithDefaultsAndPassedUnchanged) {
  library_.check("*", "2").download("*", "1,buffer,").write();
  {
    WebUpdaterAdapter adapter;
    std::string downloaded;
    adapter.isUpdateAvailable("http://v", "1");
    adapter.downloadUpdate("http://d", downloaded);
  }
  DWORD value = 0;
  for (const auto& expected :
       {std::make_pair("CheckForUpdateTimeOut", 5u), std::make_pair("CheckForUpdateRetryCount", 0u),
        std::make_pair("DownloadUpdateTimeOut", 30u),
        std::make_pair("DownloadUpdateRetryCount", 1u)}) {
    ASSERT_TRUE(store_.getDword(kUpdater, expected.first, value)) << expected.first;
    EXPECT_EQ(expected.second, value) << expected.first;
  }
  EXPECT_NE(std::string::npos,
            library_.calls("UpdCheckForUpdateA")[0].find("| timeout=5 | retries=0 |"));
  EXPECT_NE(std::string::npos,
            library_.calls("UpdDownloadUpdateExA")[0].find("| timeout=30 | retries=1 |"));

  store_.setDword(kUpdater, "CheckForUpdateTimeOut", 17);
  store_.setDword(kUpdater, "CheckForUpdateRetryCount", 4);
  store_.setDword(kUpdater, "DownloadUpdateTimeOut", 0xFFFFFFFF);
  store_.setDword(kUpdater, "DownloadUpdateRetryCount", 9);
  library_.clearJournal();
  {
    WebUpdaterAdapter adapter;
    std::string downloaded;
    adapter.isUpdateAvailable("http://v", "1");
    adapter.downloadUpdate("http://d", downloaded);
  }
  EXPECT_NE(std::string::npos,
            library_.calls("UpdCheckForUpdateA")[0].find("| timeout=17 | retries=4 |"));
  EXPECT_NE(std::string::npos,
            library_.calls("UpdDownloadUpdateExA")[0].find("| timeout=4294967295 | retries=9 |"));
}

TEST_F(WebUpdaterAdapterTest, DownloadsGiveThePathOnlyForCodeZeroAndFreeEveryBlock) {
  struct Case {
    const char* rule;
    bool result;
    bool path;
  };
  testsupport::TempDir files;
  const std::string file = files.file("package.bin");
  for (const Case& c : {Case{"0,buffer,", true, true}, Case{"0,alloc,", true, true},
                        Case{"3,buffer,", false, false}, Case{"3,alloc,", false, false},
                        Case{"0,null,", false, false}, Case{"7,null,", false, false}}) {
    library_.clear().download("*", c.rule + file).write();
    WebUpdaterAdapter adapter;
    std::string downloaded = "stale";
    adapter.downloadUpdate("http://d", downloaded);  // Warms the switch cache.
    allocations::start();
    const bool result = adapter.downloadUpdate("http://d", downloaded);
    std::set<void*> live = allocations::stop();
    live.erase(const_cast<char*>(downloaded.data()));
    EXPECT_EQ(c.result, result) << c.rule;
    EXPECT_EQ(c.path ? file : "", downloaded) << c.rule;
    EXPECT_TRUE(live.empty()) << c.rule << ": " << live.size() << " block(s) not freed";
  }
}

TEST_F(WebUpdaterAdapterTest, InstallSucceedsOnlyForCodeOneWhateverThePackage) {
  library_.apply("good", 1).apply("*", 0).write();
  LogCapture log;
  WebUpdaterAdapter adapter;
  EXPECT_TRUE(adapter.installUpdateUsingCurrentProcess("C:\\dl\\good.pkg", "C:\\target"));
  EXPECT_FALSE(adapter.installUpdateUsingCurrentProcess("C:\\dl\\bad.pkg", "C:\\target"));
  const std::string name = "WebUpdaterAdapter::installUpdateUsingCurrentProcess() ";
  EXPECT_TRUE(log.contains(name + "installationFileName='C:\\dl\\good.pkg', "
                                  "destinationDir='C:\\target'"));
  EXPECT_TRUE(log.contains(name + " About to install a DATA update 'C:\\dl\\good.pkg' into dir "
                                  ":'C:\\target'"));
  EXPECT_TRUE(log.contains(name + " UpdaterDll apply updates call returned : 1"));
  EXPECT_TRUE(log.contains(name + " DATA update was SUCCESSFUL"));
  EXPECT_TRUE(log.contains(name + " DATA update FAILED"));
  const std::vector<std::string> applied = library_.calls("UpdApplyUpdateA");
  ASSERT_EQ(2u, applied.size());
  EXPECT_EQ("UpdApplyUpdateA | package=C:\\dl\\good.pkg | dir=C:\\target | result=1", applied[0]);
}

namespace {

DWORD g_fakeFlags = 0;
BOOL g_fakeResult = TRUE;

BOOL WINAPI fakeConnectedState(LPDWORD flags, DWORD) {
  *flags = g_fakeFlags;
  if (!g_fakeResult)
    SetLastError(ERROR_NOT_CONNECTED);
  return g_fakeResult;
}

}  // namespace

// Wine never reports a modem; the connection-state query is the adapter's seam for it.
TEST_F(WebUpdaterAdapterTest, DialUpIsReportedFromTheModemFlag) {
  WebUpdaterAdapter adapter;
  LogCapture log;
  EXPECT_FALSE(adapter.isDialUpConnection());  // Wine's own answer: LAN.
  EXPECT_TRUE(
      log.contains("WebUpdaterAdapter::isDialUpConnection() NOT connected to the internet "
                   "on a dial up connection"));

  WebUpdaterAdapter::setConnectedStateFunction(&fakeConnectedState);
  g_fakeFlags = INTERNET_CONNECTION_MODEM | INTERNET_CONNECTION_CONFIGURED;
  g_fakeResult = TRUE;
  EXPECT_TRUE(adapter.isDialUpConnection());
  g_fakeResult = FALSE;
  EXPECT_FALSE(adapter.isDialUpConnection());
  WebUpdaterAdapter::setConnectedStateFunction(nullptr);
  EXPECT_TRUE(
      log.contains("WebUpdaterAdapter::isDialUpConnection() CONNECTED to the internet on a "
                   "DIAL UP connection"));
  EXPECT_TRUE(
      log.contains("WebUpdaterAdapter::isDialUpConnection() Call into "
                   "InternetGetConnectedState() failed, GetLastError()=" +
                   std::to_string(ERROR_NOT_CONNECTED)));
}
