#pragma once

#include <gtest/gtest.h>

#include "printers/DeviceEnumerator.h"
#include "support/TestSupport.h"
#include "updater/CommandLineParams.h"
#include "updater/UpdatesController.h"

// A machine staged for one update run in this process: the settings store with the URL template
// and package codes, the stand-in library beside the test exe, version files, and a fake shell
// that records relaunches instead of starting them. The tests add the printers.
class UpdateRunFixture : public testing::Test {
 protected:
  static constexpr char kDriver[] = "Corvane Inkjet Driver";
  // Where catalog data is installed: the all-users application data + driver + "Job Status".
  static constexpr char kDataDirectory[] = "C:\\ProgramData\\Corvane Inkjet Driver\\Job Status";

  void SetUp() override {
    const std::string updater = "Settings\\Updater";
    store_.set(updater, "WebUpdaterDllPath", testsupport::executableDirectory());
    store_.set(updater, "WebServerUrl", "http://svc/[package_code]");
    for (const char* code :
         {"OrreryVersion", "CatalogVersion", "OrreryDownload", "CatalogDownload"})
      store_.set(updater, std::string("Tandem") + code + "PackageCode", code);
    store_.set(updater, "PrinterPollInterval", 1);
    store_.set("Settings\\", "DriverName", kDriver);
    store_.set("Settings\\", "DllPath", files_.path());
    store_.set("Settings\\", "DataPath", files_.path());
    testsupport::writeFile(files_.file("cvctProg.ver"), "<PackageVersion>1.0</PackageVersion>");
    testsupport::writeFile(files_.file("orData.ver"), "<PackageVersion>2026.1</PackageVersion>");
    relaunches().clear();
    shellResult() = 42;
    UpdatesController::setShellExecuteFunction(&fakeShellExecute);
    setCommandLine("");
  }

  void TearDown() override {
    UpdatesController::setShellExecuteFunction(nullptr);
    DeviceEnumerator::destroy();
    setCommandLine("");
    testsupport::removeTree("C:\\ProgramData\\Corvane Inkjet Driver");
  }

  // The relaunches the fake shell was asked for: "<verb> <file> <parameters> <directory> <show>".
  static std::vector<std::string>& relaunches() {
    static std::vector<std::string> relaunches;
    return relaunches;
  }
  // What the fake shell returns (above 32: started).
  static INT_PTR& shellResult() {
    static INT_PTR result = 42;
    return result;
  }

  // The command line this process was "started" with.
  static void setCommandLine(const std::string& commandLine) {
    CommandLineParams::destroyInstance();
    CommandLineParams::createInstance(commandLine);
  }

  // The library's check, download and apply calls of this process, in order: "c", "d" or "a",
  // then "s" for the software package or "d" for the catalog data; blank-separated.
  std::string libraryCalls() const {
    std::string calls;
    for (const std::string& call : library_.calls()) {
      const std::string firstField = call.substr(0, call.find(" | ", call.find(" | ") + 3));
      const char* kind = call.find("UpdCheckForUpdateA") == 0 ? "c"
                         : call.find("UpdDownload") == 0      ? "d"
                         : call.find("UpdApply") == 0         ? "a"
                                                              : nullptr;
      if (kind != nullptr)
        calls += std::string(calls.empty() ? "" : " ") + kind +
                 (firstField.find("Orrery") != std::string::npos ||
                          firstField.find("sw.pkg") != std::string::npos
                      ? "s"
                      : "d");
    }
    return calls;
  }
  DWORD flag(const char* name) {
    DWORD value = 0xDEAD;
    store_.get("Settings\\Updater", name, value);
    return value;
  }
  std::string softwarePackage() const { return files_.file("sw.pkg"); }
  std::string dataPackage() const { return files_.file("data.pkg"); }

  testsupport::ScopedStore store_;
  testsupport::WebUpdaterScenario library_;
  testsupport::SpoolerScenario spooler_;
  testsupport::TempDir files_;

 private:
  static HINSTANCE WINAPI
  fakeShellExecute(HWND, LPCSTR verb, LPCSTR file, LPCSTR parameters, LPCSTR directory, INT show) {
    relaunches().push_back(std::string(verb) + " " + file + " " + parameters + " " +
                           (directory == nullptr ? "null" : directory) + " " +
                           std::to_string(show));
    return reinterpret_cast<HINSTANCE>(shellResult());
  }
};
