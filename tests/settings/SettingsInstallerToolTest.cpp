#include <gtest/gtest.h>

#include <windows.h>

#include <winspool.h>

#include "logging/Logger.h"
#include "support/TestSupport.h"

namespace {

std::string withoutCarriageReturns(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  return text;
}

}  // namespace

// The settings tool under a name of its own in this executable's family, local id "<xx>sz": it
// installs <xx>szqnv.loc beside it into "...\Local\<xx>sz\" and never touches the program's store.
// It says on stdout what it did, and on stderr each entry and step it could not do as asked, one a
// line; its exit code tells which happened (3 when it cannot start, here made to fail).
TEST(SettingsInstallerTool, SaysWhatItDidAndExitsWithWhatHappened) {
  const std::string id = testsupport::localId().substr(0, 2) + "sz";
  const std::string folder = testsupport::executableDirectory(), file = folder + id + "qnv.loc";
  const std::string root = testsupport::familyPath() + "\\QNV\\Local\\" + id + "\\";
  const std::string store = "HKLM\\" + root, updater = root + "Settings\\Updater";
  // The shipped sample, moved from the program's store to the tool's.
  std::string sample = testsupport::readFile(folder + "cvupqnv.loc");
  const std::string programRoot = "Software\\CorvaneInkjet\\QNV\\Local\\cvup\\";
  for (size_t at = 0; (at = sample.find(programRoot, at)) != std::string::npos;)
    sample.replace(at, programRoot.size(), root);
  const std::string tooLong = root + std::string(300, 'k');
  // Entries that the installer itself takes as installed, and that the tool still reports.
  const std::string bad = "[" + updater + "]\r\nPrinterPollInterval=dword:0x10\r\nFoo=\r\n[" +
                          tooLong + "]\r\nz=dword:1\r\n";
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
           "PrinterPollInterval: '0x10' is not a decimal number; 0 was written\nNot installed as "
           "written: [" +
           tooLong + "] z: the registry refused it (status 234)\n" + failed,
       "0"},
      {"[" + updater + "]\r\nBad=DWORD:1\r\n", "", 1, noPrinter("").substr(1),
       notAsWritten + "Bad: 'DWORD:1' has no type (dword: or string:)\n" + failed, "none"},
      // No section: a file the installer cannot parse.
      {"a=dword:1\r\n", "", 1, noPrinter("").substr(1), failed, "none"}};
  testsupport::SpoolerScenario spooler;  // No printers.
  for (const auto& row : rows) {
    testsupport::deleteKeyTree(root);
    DeleteFileA(file.c_str());
    if (!row.content.empty())
      testsupport::writeFile(file, row.content);
    DWORD exitCode = 99;
    std::string errors;
    const std::string output = withoutCarriageReturns(testsupport::runCopy(
        "cvupsettings.exe", id + "tool.exe", row.arguments, "", &exitCode, &errors));
    EXPECT_EQ(row.exitCode, exitCode) << output << errors;
    EXPECT_EQ(row.output, output);
    EXPECT_EQ(row.errors, withoutCarriageReturns(errors).substr(0, row.errors.size()));
    EXPECT_EQ(row.errors.empty(), errors.empty());
    EXPECT_EQ(row.interval, testsupport::registryValue(updater, "PrinterPollInterval"));
    // Every key of the store: administrators and SYSTEM alone (Wine keeps no protected flag).
    if (row.arguments.find("/lock") != std::string::npos) {
      ScopedKey key;
      RegOpenKeyExA(HKEY_LOCAL_MACHINE, updater.c_str(), 0, READ_CONTROL, key.receive());
      const std::string dacl = testsupport::dacl(key.get(), SE_REGISTRY_KEY);
      EXPECT_EQ("(A;CI;KA;;;BA)(A;CI;KA;;;SY)", dacl.substr(dacl.find('(')));
    }
  }
  DWORD exitCode = 99;
  std::string errors;
  testsupport::runCopy("test_helper.exe", id + "_helper.exe", "settings-tool-cannot-start", "",
                       &exitCode, &errors);
  EXPECT_EQ(3u, exitCode);
  EXPECT_EQ("Could not start: out of memory while setting up the log\n",
            withoutCarriageReturns(errors));
  testsupport::deleteKeyTree(root);
  DeleteFileA(file.c_str());
  DeleteFileA((Logger::getAllUsersProfileDir() + id + "QNV.log").c_str());
}

// /remove waits until no other process of the program's local id runs (here a copy of the helper
// that holds on until let go), then resumes the printers that a killed run left paused, and
// deletes the store and says so (the MSI's test shows a family key that other components keep).
TEST(SettingsInstallerTool, RemovalWaitsForARunningUpdateThenRecoversAndDeletesTheStore) {
  const std::string id = testsupport::localId().substr(0, 2) + "sz";
  const std::string root = testsupport::familyPath() + "\\QNV\\Local\\" + id;
  const std::string record = "Office Inkjet\0\0";
  RegSetKeyValueA(HKEY_LOCAL_MACHINE, (root + "\\Settings\\Updater").c_str(), "PausedPrinters",
                  REG_MULTI_SZ, record.c_str(), static_cast<DWORD>(record.size() + 1));
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
            withoutCarriageReturns(remover.output()));
  EXPECT_FALSE(testsupport::keyExists(testsupport::familyPath()));
  DeleteFileA(remove.c_str());
  DeleteFileA((Logger::getAllUsersProfileDir() + id + "QNV.log").c_str());
}
