#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/StandIns.h"

// A machine staged for one update run in this process: the settings store with the URL
// template and package codes, the stand-in library beside the test exe, one printer of the
// vendor's driver, version files, and a fake shell that records relaunches instead of
// starting them.
class UpdateRunFixture : public testing::Test {
 public:
  // A relaunch the fake shell was asked for.
  struct Relaunch {
    std::string verb;
    std::string file;
    std::string parameters;
    bool directoryNull = false;
    int show = 0;
  };
  static std::vector<Relaunch> relaunches_;
  // What the fake shell returns (above 32: started).
  static INT_PTR shellResult_;

 protected:
  static const char kDriver[];
  // Where catalog data is installed: the all-users application data + driver + "Job Status".
  static const char kDataDirectory[];

  void SetUp() override;
  void TearDown() override;

  // Sets the command line this process was "started" with.
  static void setCommandLine(const std::string& commandLine);

  // The library calls of this process as short tokens: "check software", "check data",
  // "download software", "download data", "apply software", "apply data".
  std::vector<std::string> libraryCalls() const;
  // The printers' pause and resume commands, in order: "pause <name>", "resume <name>".
  std::vector<std::string> printerCommands() const;
  // The detail lines of one traced operation, in order, without its name.
  static std::vector<std::string> detailLines(const testsupport::LogCapture& log,
                                              const std::string& functionName);
  DWORD flag(const char* name);
  std::string softwarePackage() const { return files_.file("sw.pkg"); }
  std::string dataPackage() const { return files_.file("data.pkg"); }

  testsupport::ScopedStore store_;
  testsupport::WebUpdaterScenario library_;
  testsupport::SpoolerScenario spooler_;
  testsupport::TempDir files_;
};
