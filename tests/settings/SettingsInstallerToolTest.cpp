#include <gtest/gtest.h>

#include <windows.h>

#include <winspool.h>

#include "StoreSecurity.h"
#include "TaskSchedule.h"
#include "logging/Logger.h"
#include "settings/SettingsInstaller.h"
#include "support/TestSupport.h"
#include "updater/RunStatus.h"

namespace {

const char kEventSource[] =
    "SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Orrery Updater";

// A local id of this executable's family for one test ("<xx>" + `suffix`), and its store.
std::string idOf(const char* suffix) {
  return testsupport::localId().substr(0, 2) + suffix;
}
std::string storeOf(const std::string& id) {
  return testsupport::familyPath() + "\\QNV\\Local\\" + id;
}

// The settings tool run as "<id>tool.exe"; its stdout.
std::string tool(const std::string& id,
                 const std::string& arguments,
                 DWORD* exitCode = nullptr,
                 std::string* errors = nullptr) {
  return testsupport::runCopy("cvupsettings.exe", id + "tool.exe", arguments, "", exitCode, errors);
}

// Deletes the store of `id` and its log.
void cleanUp(const std::string& id) {
  testsupport::deleteKeyTree(storeOf(id));
  DeleteFileA((Logger::getAllUsersProfileDir() + id + "QNV.log").c_str());
}

}  // namespace

// The settings tool under a name of its own in this executable's family, local id "<xx>sz": it
// installs <xx>szqnv.loc beside it into "...\Local\<xx>sz\" and never touches the program's store.
// It says on stdout what it did, and on stderr each entry and step it could not do as asked, one a
// line; its exit code tells which happened (3 when it cannot start, here made to fail).
TEST(SettingsInstallerTool, SaysWhatItDidAndExitsWithWhatHappened) {
  const std::string id = idOf("sz");
  const std::string folder = testsupport::executableDirectory(), file = folder + id + "qnv.loc";
  const std::string root = storeOf(id) + "\\";
  const std::string store = "HKLM\\" + root, updater = root + "Settings\\Updater";
  // The shipped sample, moved from the program's store to the tool's.
  std::string sample = testsupport::readFile(folder + "cvupqnv.loc");
  const std::string programRoot = "Software\\CorvaneInkjet\\QNV\\Local\\cvup\\";
  for (size_t at = 0; (at = sample.find(programRoot, at)) != std::string::npos;)
    sample.replace(at, programRoot.size(), root);
  // Entries that the installer itself takes as installed, and that the tool still reports: the
  // registry refuses a key name of 300 characters, and a path that starts with a backslash.
  const std::string tooLong = root + std::string(300, 'k');
  const std::string refused = "\\" + root + "Refused";
  const std::string bad = "[" + updater + "]\r\nPrinterPollInterval=dword:0x10\r\nFoo=\r\n[" +
                          tooLong + "]\r\nz=dword:1\r\n[" + refused + "]\r\ny=dword:1\r\n";
  const std::string failed =
      "Could not install every default setting from " + file + " into " + store + "\n";
  const std::string installed = "Installed the default settings from " + file + " into " + store;
  const auto noPrinter = [](const std::string& driver) {
    return "\nWarning: no printer on this machine uses the driver '" + driver +
           "' (DriverName); updates fail until one does\n";
  };
  const std::string notAsWritten = "Not installed as written: [" + updater + "] ";
  const struct {
    std::string content;  // empty: no file
    std::string arguments;
    DWORD exitCode;
    std::string output, errors;  // errors: its start
    std::string interval;        // the PrinterPollInterval installed
  } rows[] = {
      {sample, "", 0, installed + noPrinter("Corvane Inkjet Driver"), "", "2000"},
      {sample, "/set Settings\\Updater\\PrinterPollInterval=dword:70 /lock", 0,
       installed + noPrinter("Corvane Inkjet Driver"), "", "70"},
      {sample, "/set Settings\\Updater\\PrinterPollInterval=dword:0x46", 1,
       noPrinter("Corvane Inkjet Driver").substr(1),
       notAsWritten + "PrinterPollInterval: /set Settings\\Updater\\PrinterPollInterval=dword:0x46 "
                      "was not written (status 13)\n",
       "2000"},
      {"", "", 2, "", "Settings file not found: " + file + "\n", "none"},
      {sample, "/quiet", 2, "", "Usage: ", "none"},
      {bad, "", 1, noPrinter("").substr(1),
       notAsWritten + "Foo: it has no value\n" + notAsWritten +
           "PrinterPollInterval: '0x10' is not a decimal number; 0 was written\n" +
           "Not installed as written: [" + tooLong + "] z: the registry refused it (status " +
           std::to_string(writeDwordValue(tooLong, "z", 1)) + ")\n" +
           "Not installed as written: [" + refused + "] y: the registry refused it (status 161)\n" +
           failed,
       "0"},
      {"[" + updater + "]\r\nBad=DWORD:1\r\n", "", 1, noPrinter("").substr(1),
       notAsWritten + "Bad: 'DWORD:1' has no type (dword: or string:)\n" + failed, "none"},
      // No section: the installer fails the file without an entry to name.
      {"a=dword:1\r\n", "", 1, noPrinter("").substr(1), failed, "none"}};
  testsupport::SpoolerScenario spooler;  // No printers.
  for (const auto& row : rows) {
    testsupport::deleteKeyTree(root);
    DeleteFileA(file.c_str());
    if (!row.content.empty())
      testsupport::writeFile(file, row.content);
    DWORD exitCode = 99;
    std::string errors;
    const std::string output = tool(id, row.arguments, &exitCode, &errors);
    EXPECT_EQ(row.exitCode, exitCode) << output << errors;
    EXPECT_EQ(row.output, output);
    EXPECT_EQ(row.errors, errors.substr(0, row.errors.size()));
    EXPECT_EQ(row.errors.empty(), errors.empty());
    EXPECT_EQ(row.interval, testsupport::registryValue(updater, "PrinterPollInterval"));
  }
  DWORD exitCode = 99;
  std::string errors;
  testsupport::runCopy("test_helper.exe", id + "_helper.exe", "settings-tool-cannot-start", "",
                       &exitCode, &errors);
  EXPECT_EQ(3u, exitCode);
  EXPECT_EQ("Could not start: out of memory while setting up the log\n", errors);
  cleanUp(id);
  DeleteFileA(file.c_str());
}

// No SYSTEM task runs from a store that users can change: /schedule system needs the store locked
// (before, or in the same command), and /unlock needs the SYSTEM task gone (before, or in the same
// command). A refused command changes nothing and exits 2. The store's "Records" keeps the
// program's own DACL through /lock and /unlock.
TEST(SettingsInstallerTool, RunsNoSystemTaskFromAStoreUsersCanChange) {
  const std::string id = idOf("sy"), store = storeOf(id), records = store + "\\Records";
  testsupport::deleteKeyTree(store);
  ASSERT_TRUE(
      testsupport::setValue(records, "PausedPrinters", std::string("P\0", 2), REG_MULTI_SZ));
  ASSERT_TRUE(
      StoreSecurity::applyToKey(records, "O:BAD:P(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;BU)"));
  StoreSecurity::Notes notes;
  ASSERT_TRUE(StoreSecurity::applyToStore(store, "D:(A;CI;GA;;;WD)", notes));  // As a ZIP left it.
  const std::string recordsDacl = StoreSecurity::describe(records, true);
  const struct {
    const char* arguments;
    DWORD exitCode;
    const char* refusal;  // the start of stderr
    TaskSchedule::Kind task;
    bool locked;
  } rows[] = {
      {"/schedule system", 2, "Refused: /schedule system over the store", TaskSchedule::Kind::kNone,
       false},
      {"/lock /schedule system", 0, "", TaskSchedule::Kind::kSystem, true},
      {"/unlock", 2, "Refused: /unlock would let every user change the store",
       TaskSchedule::Kind::kSystem, true},
      {"/schedule system", 0, "", TaskSchedule::Kind::kSystem, true},
      {"/unlock /schedule users", 0, "", TaskSchedule::Kind::kUsers, false},
      {"/schedule system", 2, "Refused: /schedule system", TaskSchedule::Kind::kUsers, false},
      // A failed entry: no lock and no task; the store stays open.
      {"/set Settings\\Updater\\X=dword:0x10 /lock /schedule system", 1, "Not installed as written",
       TaskSchedule::Kind::kUsers, false},
      {"/unlock /schedule system", 2, "Refused: /unlock", TaskSchedule::Kind::kUsers, false},
      {"/lock /schedule none", 0, "", TaskSchedule::Kind::kNone, true}};
  for (const auto& row : rows) {
    DWORD exitCode = 99;
    std::string errors;
    tool(id, std::string("/nofile ") + row.arguments, &exitCode, &errors);
    EXPECT_EQ(row.exitCode, exitCode) << row.arguments << errors;
    EXPECT_EQ(row.refusal, errors.substr(0, strlen(row.refusal))) << row.arguments;
    EXPECT_EQ(row.task, TaskSchedule::registeredKind(testsupport::executableDirectory()))
        << row.arguments;
    EXPECT_EQ(row.locked, StoreSecurity::isLocked(store)) << row.arguments;
    EXPECT_EQ(recordsDacl, StoreSecurity::describe(records, true)) << row.arguments;
  }
  cleanUp(id);
}

// /remove waits until no other process of the program's local id runs (here a copy of the helper
// that holds on until let go), then resumes the printers that a killed run left paused, and
// deletes the store and says so (the MSI's test shows a family key that other components keep).
TEST(SettingsInstallerTool, RemovalWaitsForARunningUpdateThenRecoversAndDeletesTheStore) {
  const std::string id = idOf("sz"), root = storeOf(id);
  testsupport::setValue(kEventSource, "TypesSupported", "7");
  testsupport::setValue(root + "\\Settings\\Updater", "PausedPrinters",
                        std::string("Office Inkjet") + '\0', REG_MULTI_SZ);
  PrinterScenario paused{"Office Inkjet", "Corvane Inkjet Driver"};
  paused.status = PRINTER_STATUS_PAUSED;
  testsupport::SpoolerScenario spooler;
  spooler.write({paused});
  const std::string remove = testsupport::executableDirectory() + id + "_remove.exe";
  CopyFileA((testsupport::executableDirectory() + "cvupsettings.exe").c_str(), remove.c_str(),
            FALSE);
  testsupport::MutexHolder run(id, "release", id + "_run.exe");
  ASSERT_TRUE(run.holds());
  testsupport::Process remover("\"" + remove + "\" /remove");
  const std::string resumed = "SetPrinterA name=Office Inkjet command=2 result=1";
  EXPECT_FALSE(remover.wait(3000));
  EXPECT_EQ(std::string::npos, spooler.journal().find(resumed)) << "resumed before the run ended";
  run.letGo();
  ASSERT_TRUE(remover.wait(60000));
  EXPECT_EQ(0u, remover.exitCode()) << remover.errors();
  EXPECT_NE(std::string::npos, spooler.journal().find(resumed)) << spooler.journal();
  // The last component's store: the family's key goes with it ("DeleteStoreOnUninstall" is 1).
  EXPECT_EQ("Removed the scheduled task and the store HKLM\\" + root +
                " and, the last component's, the family's key HKLM\\" + testsupport::familyPath() +
                "\n",
            remover.output());
  EXPECT_FALSE(testsupport::keyExists(testsupport::familyPath()));
  EXPECT_FALSE(testsupport::keyExists(kEventSource)) << "the event source stays registered";
  DeleteFileA(remove.c_str());
  cleanUp(id);
}

// /status prints the last run's status, "Name: value" a line, and exits 0 while its last success is
// at most /maxage days old (7 by default), 1 when older, missing or more than 5 minutes ahead of
// the clock (saying why), 2 on wrong arguments; /register-events registers the event source with
// the program beside the tool.
TEST(SettingsInstallerTool, StatusTellsTheLastRunAndWhetherItSucceededRecently) {
  const std::string id = idOf("st"), status = storeOf(id) + "\\Status";
  const std::string now = RunStatus::utcNow(), old = "2026-01-02T03:04:05Z";
  const std::string soon = testsupport::utcFromNow(120), tomorrow = testsupport::utcFromNow(86400);
  const std::string lines = "LastRunEnded: " + now +
                            "\nLastResult: DownloadFailed\nLastResultDetail: catalog download: "
                            "code 1\nLastSuccess: ";
  const std::string versions = "\nSoftwareVersion: 1.0.0.1\nCatalogVersion: 2026.1\n";
  const std::string hourAgo = testsupport::utcFromNow(-3600),
                    dayAgo = testsupport::utcFromNow(-13 * 3600);
  const struct {
    std::string lastSuccess;  // "": no status
    std::string arguments;
    DWORD exitCode;
    std::string output;        // after "LastRunStarted" and "RunInProgress"
    std::string why = "";      // on stderr
    std::string started = "";  // LastRunStarted, when not now
    DWORD inProgress = 0;
  } rows[] = {
      {now, "/status", 0, lines + now + versions},
      {old, "/status /maxage 30", 1, lines + old + versions,
       "Not up to date: LastSuccess: " + old + " is more than 30 day(s) ago"},
      {soon, "/status", 0, lines + soon + versions},
      {tomorrow, "/status", 1, lines + tomorrow + versions,
       "Not up to date: LastSuccess: " + tomorrow + " lies ahead of this machine's clock"},
      {old, "/status /maxage 3650", 0, lines + old + versions},
      // A run still in progress: fine for a while; after the task's 12 hours, killed or hung.
      {now, "/status", 0, lines + now + versions, "", hourAgo, 1},
      {now, "/status", 1, lines + now + versions,
       "Not healthy: the run that started at " + dayAgo +
           " has not ended after 12 hours: it was killed, or it hangs",
       dayAgo, 1},
      {"", "/status", 1, ""},
      {now, "/status /maxage", 2, ""},
      {now, "/status /maxage -1", 2, ""},
      {now, "/status /days 3", 2, ""},
      {now, "/status /maxage 99999", 2, ""},
  };
  for (const auto& row : rows) {
    testsupport::deleteKeyTree(status);
    const std::string started = row.started.empty() ? now : row.started;
    std::string expected;
    if (!row.lastSuccess.empty()) {
      const std::string& success = row.lastSuccess;
      const std::pair<const char*, std::string> values[] = {
          {"LastRunStarted", started},      {"LastRunEnded", now},
          {"LastResult", "DownloadFailed"}, {"LastResultDetail", "catalog download: code 1"},
          {"LastSuccess", success},         {"SoftwareVersion", "1.0.0.1"},
          {"CatalogVersion", "2026.1"}};
      for (const auto& [name, value] : values)
        testsupport::setValue(status, name, value);
      testsupport::setValue(status, "ConsecutiveFailures", 1);
      testsupport::setValue(status, "RunInProgress", row.inProgress);
    }
    if (!row.output.empty())
      expected = "LastRunStarted: " + started +
                 "\nRunInProgress: " + std::to_string(row.inProgress) + "\n" + row.output +
                 "ConsecutiveFailures: 1\n";
    DWORD exitCode = 99;
    std::string errors;
    const std::string output = tool(id, row.arguments, &exitCode, &errors);
    EXPECT_EQ(row.exitCode, exitCode) << row.arguments << errors;
    // The status, up to the effective settings (the test below).
    EXPECT_EQ(expected, output.substr(0, output.find("\nEffective settings"))) << row.arguments;
    EXPECT_EQ(0u, errors.find(row.why)) << errors;
  }
  DWORD exitCode = 99;
  const std::string source = kEventSource;
  testsupport::deleteKeyTree(source);
  tool(id, "/register-events", &exitCode);
  EXPECT_EQ(0u, exitCode);
  EXPECT_EQ(testsupport::executableDirectory() + "cvupdater.exe",
            testsupport::registryValue(source, "EventMessageFile"));
  EXPECT_EQ("7", testsupport::registryValue(source, "TypesSupported"));
  testsupport::deleteKeyTree(source);
  cleanUp(id);
}

// After the status, /status lists every setting that policy can set with its value and source,
// then the policy values it ignores; it writes nothing (no default, no policy key).
TEST(SettingsInstallerTool, StatusShowsEachSettingsSourceAndThePolicyProblems) {
  const std::string id = idOf("sp"), store = storeOf(id) + "\\";
  const std::string family = testsupport::familyPath().substr(std::string("Software\\").size());
  const std::string policies = "Software\\Policies\\" + family;
  const std::string policy = policies + "\\QNV\\Local\\" + id + "\\Settings\\Updater";
  const std::string url = "https://updates.example.com/[package_code]";
  testsupport::setValue(store + "Settings\\Updater", "PrinterPollInterval", 2000);
  testsupport::setValue(store + "Settings\\Updater", "WebServerUrl", "http://store/");
  testsupport::setValue(policy, "WebServerUrl", url);
  testsupport::setValue(policy, "PrinterPollInterval", "fast");
  testsupport::setValue(policy, "QuietWaitMode", 0);
  // An apply window that opens in two hours: the store gives its start, policy its duration.
  SYSTEMTIME local;
  GetLocalTime(&local);
  const DWORD start = (local.wHour * 60u + local.wMinute + 120u) % 1440u;
  testsupport::setValue(store + "Settings\\Updater", "ApplyWindowStart", start);
  testsupport::setValue(policy, "ApplyWindowDuration", 30);
  DWORD exitCode = 99;
  std::string errors;
  std::string output = tool(id, "/status", &exitCode, &errors);
  EXPECT_EQ(1u, exitCode) << "no status";
  const std::string window = "Apply window: closed now; the next opens at 20";
  const std::string::size_type at = output.find(window);
  ASSERT_NE(std::string::npos, at) << output;
  output.erase(at, output.find('\n', at) + 1 - at);
  EXPECT_EQ(
      "\nEffective settings (source: policy, store or default):\n"
      "UpdateMode (default): 1\n"
      "WebServerUrl (policy): " +
          url +
          "\n"
          "PrinterPollInterval (store): 2000\n"
          "ReportRunEvents (default): 1\n"
          "startLog (default): 0\n"
          "TrustedPublishers (default): (not set)\n"
          "ApplyWindowStart (store): " +
          std::to_string(start) +
          "\n"
          "ApplyWindowDuration (policy): 30\n"
          "ApplyWindowDays (default): 127\n"
          "ApplyWindowReserve (default): 15\n"
          "CheckPeriodMinutes (default): 1440\n"
          "QuietWaitMode (policy): 0\n"
          "Policy problems:\n"
          "Policy PrinterPollInterval = 'fast' (REG_SZ, 5 bytes) is ignored: it must be a "
          "REG_DWORD; the store's value is used\n"
          "Trusted publishers in force (built in, policy, a locked store): none: packages are not "
          "verified\n",
      output);
  EXPECT_EQ("none", testsupport::registryValue(store + "Settings\\Updater", "ReportRunEvents"));
  EXPECT_EQ("http://store/",
            testsupport::registryValue(store + "Settings\\Updater", "WebServerUrl"));
  EXPECT_EQ("fast", testsupport::registryValue(policy, "PrinterPollInterval"));
  testsupport::deleteKeyTree(policies);
  cleanUp(id);
}

// /set "...=multi:A;B" writes a REG_MULTI_SZ (as the MSI's TRUSTEDPUBLISHERS does), and /publisher
// shows who signed a file: its subject, issuer and key hash, whether its chain is trusted here and
// whether this machine lists it; exit 0 for a signed file, 1 for an unsigned or unreadable one.
TEST(SettingsInstallerTool, WritesAListAndShowsWhoSignedAFile) {
  const std::string id = idOf("sp"), root = storeOf(id);
  testsupport::deleteKeyTree(root);
  const std::string stranger = testsupport::publisherHash("stranger"), other(64, 'B');
  DWORD exitCode = 99;
  std::string errors;
  tool(id,
       "/nofile /set \"Settings\\Updater\\TrustedPublishers=multi:" + stranger + "; " + other +
           ";\" /lock",
       &exitCode, &errors);
  EXPECT_EQ(0u, exitCode) << errors;
  EXPECT_EQ(stranger + "\n" + other,
            testsupport::registryValue(root + "\\Settings\\Updater", "TrustedPublishers"));
  tool(id, "/nofile /set Settings\\Updater\\TrustedPublishers=multi:", &exitCode, &errors);
  EXPECT_EQ(1u, exitCode);

  const std::string signedFile = testsupport::trustFixture("stranger.pkg");
  std::string output = tool(id, "/publisher " + signedFile, &exitCode, &errors);
  EXPECT_EQ(0u, exitCode) << errors;
  EXPECT_EQ("File: " + signedFile +
                "\nSigned: yes\nSubject: O=Orrery Tests, CN=Orrery Test Publisher stranger\n"
                "Issuer: CN=Orrery Unknown Root\nKey SHA-256: " +
                stranger +
                "\nChain: not trusted here: its signer's chain is not trusted here: it does not "
                "end in a trusted root (0x10000)\nTrusted publisher on this machine: yes\n",
            output);
  if (testsupport::whyTestRootUntrusted().empty()) {
    output = tool(id, "/publisher " + testsupport::trustFixture("listed.pkg"), &exitCode, &errors);
    EXPECT_NE(std::string::npos,
              output.find("\nChain: trusted here\nTrusted publisher on this machine: no\n"))
        << output;
  }
  const std::string unsignedFile = testsupport::trustFixture("unsigned.pkg");
  EXPECT_EQ("File: " + unsignedFile + "\nSigned: no: not signed\n",
            tool(id, "/publisher " + unsignedFile, &exitCode, &errors));
  EXPECT_EQ(1u, exitCode);
  EXPECT_EQ("'" + unsignedFile + "' is not signed as it is: not signed\n", errors);
  tool(id, "/publisher C:\\missing.pkg", &exitCode, &errors);
  EXPECT_EQ(1u, exitCode);
  EXPECT_EQ("Cannot read 'C:\\missing.pkg': error 2\n", errors);
  tool(id, "/publisher", &exitCode, &errors);
  EXPECT_EQ(2u, exitCode);
  cleanUp(id);
}

// A store that was open to users may hold registry links and keys of theirs. The tool never
// follows a link: /lock deletes each as the link (the store's "Records" too, and records that the
// program did not make), takes every other key over, reads the whole store back and only then
// registers the SYSTEM task; a store that is not locked key by key gets no SYSTEM task; /unlock
// and /remove delete a link as the link. What the links point to keeps its values and its DACL.
TEST(SettingsInstallerTool, NeverFollowsARegistryLinkPlantedInTheStore) {
  const std::string id = idOf("sk"), folder = testsupport::executableDirectory(),
                    store = storeOf(id);
  const std::string victim = "Software\\CorvaneLinkVictim", kept = victim + "\\Sub";
  const std::string victimDacl = "O:BAD:(A;CI;KA;;;BA)(A;CI;KR;;;BU)";
  const auto run = [&id](const std::string& arguments, DWORD expected, std::string* errors) {
    DWORD exitCode = 99;
    const std::string output = tool(id, arguments, &exitCode, errors);
    EXPECT_EQ(expected, exitCode) << arguments << "\n" << output << *errors;
    return output;
  };
  const auto victimIntact = [&] {
    return StoreSecurity::describe(kept, true) == victimDacl &&
           testsupport::registryValue(kept, "Keep") == "me";
  };
  const auto deleted = [&store](const std::string& key, const std::string& what) {
    return "Deleted HKLM\\" + store + "\\" + key + ": " + what + "\n";
  };
  testsupport::SpoolerScenario spooler;  // No printers.
  testsupport::deleteKeyTree(store);
  testsupport::deleteKeyTree(victim);
  testsupport::setValue(kept, "Keep", "me");
  ASSERT_TRUE(StoreSecurity::applyToKey(kept, victimDacl));
  ASSERT_TRUE(victimIntact());
  std::string errors;
  // Open, as a ZIP install without /lock leaves it; then a user replaces Settings\Updater by a
  // link, leaves a dangling one, a key of their own, and records of their own.
  run("/nofile /set Settings\\Updater\\WebServerUrl=string:http://x/", 0, &errors);
  testsupport::deleteKeyTree(store + "\\Settings\\Updater");
  ASSERT_TRUE(testsupport::makeLink(store + "\\Settings\\Updater", kept));
  ASSERT_TRUE(testsupport::makeLink(store + "\\Dangling", victim + "\\Nowhere"));
  ASSERT_TRUE(StoreSecurity::applyToKey(store + "\\Settings", "O:BUD:(A;CI;GA;;;WD)"));
  testsupport::setValue(store + "\\Records", "PendingDownloads", std::string("C:\\x\0", 5),
                        REG_MULTI_SZ);
  ASSERT_TRUE(StoreSecurity::applyToKey(store + "\\Records", "O:BUD:(A;CI;GA;;;WD)"));

  // The settings are written once the links are gone, never through one.
  std::string output =
      run("/nofile /set Settings\\Updater\\WebServerUrl=string:http://y/ /lock /schedule system", 0,
          &errors);
  EXPECT_EQ("http://y/", testsupport::registryValue(store + "\\Settings\\Updater", "WebServerUrl"));
  EXPECT_EQ("none", testsupport::registryValue(kept, "WebServerUrl"));
  EXPECT_NE(std::string::npos,
            output.find(deleted("Dangling",
                                "a registry link to \\Registry\\Machine\\" + victim + "\\Nowhere")))
      << output;
  EXPECT_NE(
      std::string::npos,
      output.find(deleted("Records", "records that S-1-5-32-545 can change, which no run trusts")))
      << output;
  EXPECT_NE(
      std::string::npos,
      output.find(deleted("Settings\\Updater", "a registry link to \\Registry\\Machine\\" + kept)))
      << output;
  EXPECT_TRUE(victimIntact()) << StoreSecurity::describe(kept, true);
  EXPECT_FALSE(testsupport::isLinkKey(store + "\\Settings\\Updater") ||
               testsupport::keyExists(store + "\\Records"));
  EXPECT_EQ("O:BA", StoreSecurity::describe(store + "\\Settings", true).substr(0, 4));
  EXPECT_EQ("", StoreSecurity::whyNotLocked(store));
  EXPECT_EQ(TaskSchedule::Kind::kSystem, TaskSchedule::registeredKind(folder));

  // A link, or a key that others own, makes the store one that is not locked.
  ASSERT_TRUE(StoreSecurity::applyToKey(store + "\\Settings", "O:BUD:P(A;CI;KA;;;BA)"));
  EXPECT_EQ("HKLM\\" + store + "\\Settings: S-1-5-32-545 can change it",
            StoreSecurity::whyNotLocked(store));
  ASSERT_TRUE(StoreSecurity::applyToKey(store + "\\Settings", "O:BAD:P(A;CI;KA;;;BA)"));
  ASSERT_TRUE(testsupport::makeLink(store + "\\Settings\\Link", kept));
  EXPECT_EQ("HKLM\\" + store + "\\Settings\\Link is a registry link",
            StoreSecurity::whyNotLocked(store));
  run("/nofile /schedule system", 2, &errors);
  EXPECT_NE(std::string::npos,
            errors.find("(HKLM\\" + store + "\\Settings\\Link is a registry link)"))
      << errors;

  // /unlock opens the store's own keys, never the link's target.
  output = run("/nofile /unlock /schedule users", 0, &errors);
  EXPECT_NE(
      std::string::npos,
      output.find(deleted("Settings\\Link", "a registry link to \\Registry\\Machine\\" + kept)))
      << output;
  EXPECT_TRUE(victimIntact()) << StoreSecurity::describe(kept, true);
  EXPECT_EQ(TaskSchedule::Kind::kUsers, TaskSchedule::registeredKind(folder));

  // A key the tool cannot open (a user took it and let no one else in): the lock fails, and no
  // SYSTEM task is registered over it.
  const std::string taken = store + "\\Taken";
  testsupport::setValue(taken, "x", "");
  ASSERT_TRUE(StoreSecurity::applyToKey(taken, "O:S-1-5-21-1-2-3-1001D:P(A;;0x60019;;;WD)"));
  run("/nofile /lock /schedule system", 1, &errors);
  EXPECT_NE(std::string::npos, errors.find(" to administrators and SYSTEM while its settings are "
                                           "written: HKLM\\" +
                                           taken + ": status 5\n"))
      << errors;
  EXPECT_EQ(TaskSchedule::Kind::kUsers, TaskSchedule::registeredKind(folder));
  EXPECT_EQ("HKLM\\" + store + ": S-1-1-0 can change it", StoreSecurity::whyNotLocked(store));
  // Given back, so that it can be deleted.
  ASSERT_TRUE(testsupport::setKeySecurity(taken, "D:(A;CI;GA;;;WD)"));

  // A link on the store's path stops the walk; one in the store's own place is deleted first.
  const std::string via = testsupport::familyPath() + "\\QNV\\Via";
  ASSERT_TRUE(testsupport::makeLink(via, testsupport::familyPath() + "\\QNV\\Local"));
  StoreSecurity::Notes notes;
  EXPECT_EQ("a key on the path of HKLM\\" + via + "\\" + id + " is a registry link",
            StoreSecurity::whyNotLocked(via + "\\" + id));
  EXPECT_FALSE(StoreSecurity::applyToStore(via + "\\" + id, "D:(A;CI;GA;;;WD)", notes));
  EXPECT_EQ((std::vector<std::string>{"HKLM\\" + via + "\\" + id + ": status 681"}), notes.failed);
  testsupport::deleteKeyTree(via);
  EXPECT_TRUE(victimIntact()) << StoreSecurity::describe(kept, true);

  // /remove deletes the store, a link in it as the link, and ends.
  ASSERT_TRUE(testsupport::makeLink(store + "\\Settings\\Link", victim));
  ASSERT_TRUE(testsupport::makeLink(store + "\\Dangling", victim + "\\Nowhere"));
  output = run("/remove", 0, &errors);
  EXPECT_FALSE(testsupport::keyExists(store));
  EXPECT_TRUE(victimIntact()) << StoreSecurity::describe(kept, true);
  ASSERT_TRUE(testsupport::makeLink(store, kept));
  notes = StoreSecurity::Notes();
  EXPECT_TRUE(StoreSecurity::makeStore(store, "O:BAD:P(A;CI;KA;;;BA)", notes));
  EXPECT_EQ((std::vector<std::string>{"Deleted HKLM\\" + store +
                                      ": a registry link to \\Registry\\Machine\\" + kept}),
            notes.deleted);
  EXPECT_TRUE(testsupport::keyExists(store) && !testsupport::isLinkKey(store));
  EXPECT_TRUE(victimIntact()) << StoreSecurity::describe(kept, true);
  cleanUp(id);
  testsupport::deleteKeyTree(victim);
}
