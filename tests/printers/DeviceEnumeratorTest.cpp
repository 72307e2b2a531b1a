#include <gtest/gtest.h>

#include "printers/DeviceEnumerator.h"
#include "support/StandIns.h"

using testsupport::LogCapture;
using testsupport::ScopedStore;
using testsupport::SpoolerScenario;
using testsupport::StagedPrinter;

namespace {

const char kDriver[] = "Corvane Inkjet Driver";

class DeviceEnumeratorTest : public testing::Test {
 protected:
  void SetUp() override { store_.setString("Settings\\", "DriverName", kDriver); }
  void TearDown() override { DeviceEnumerator::destroy(); }

  std::list<std::string> printers() {
    std::list<std::string> names = {"stale"};
    DeviceEnumerator::instance()->getPrinters(names);
    return names;
  }

  ScopedStore store_;
  SpoolerScenario spooler_;
};

StagedPrinter printer(const std::string& name, const std::string& driver) {
  StagedPrinter p;
  p.name = name;
  p.driver = driver;
  return p;
}

}  // namespace

TEST_F(DeviceEnumeratorTest, DriverNamesMatchByteForByteInSpoolerOrder) {
  spooler_.add(printer("Office", kDriver))
      .add(printer("Lower", "corvane inkjet driver"))
      .add(printer("Trailing", "Corvane Inkjet Driver "))
      .add(printer("Other", "Generic Text"))
      .add(printer("\\\\server\\Shared", kDriver))
      .write();
  EXPECT_EQ((std::list<std::string>{"Office", "\\\\server\\Shared"}), printers());
  // Local printers and connections are both asked for.
  ASSERT_EQ(2u, spooler_.calls("EnumPrintersA").size());
  EXPECT_EQ("EnumPrintersA flags=6 level=2 buffer=1 result=1", spooler_.calls("EnumPrintersA")[1]);
}

TEST_F(DeviceEnumeratorTest, AnEmptyResultIsAskedForAgainOnEveryCall) {
  spooler_.add(printer("Other", "Generic Text")).write();
  EXPECT_TRUE(printers().empty());
  EXPECT_TRUE(printers().empty());
  EXPECT_EQ(4u, spooler_.calls("EnumPrintersA").size());
}

TEST_F(DeviceEnumeratorTest, AFoundListIsKeptForTheRestOfTheRun) {
  spooler_.add(printer("Office", kDriver)).write();
  EXPECT_EQ(std::list<std::string>{"Office"}, printers());
  spooler_.add(printer("Added later", kDriver)).write();
  EXPECT_EQ(std::list<std::string>{"Office"}, printers());
  EXPECT_EQ(2u, spooler_.calls("EnumPrintersA").size());
}

TEST_F(DeviceEnumeratorTest, DestroyWithoutInstanceDoesNothingAndANewInstanceReadsTheDriverAgain) {
  DeviceEnumerator::destroy();
  DeviceEnumerator::destroy();
  spooler_.add(printer("Office", kDriver)).add(printer("Lab", "Lab Driver")).write();
  EXPECT_EQ(std::list<std::string>{"Office"}, printers());
  DeviceEnumerator::destroy();
  store_.setString("Settings\\", "DriverName", "Lab Driver");
  EXPECT_EQ(std::list<std::string>{"Lab"}, printers());
}

TEST_F(DeviceEnumeratorTest, AMissingDriverNameIsLoggedAndMatchesNothing) {
  HKEY key = nullptr;
  RegOpenKeyExA(HKEY_LOCAL_MACHINE, (testsupport::storeRoot() + "Settings").c_str(), 0,
                KEY_ALL_ACCESS, &key);
  RegDeleteValueA(key, "DriverName");
  RegCloseKey(key);
  spooler_.add(printer("Office", kDriver)).write();
  LogCapture log;
  EXPECT_TRUE(printers().empty());
  EXPECT_TRUE(
      log.contains("DeviceEnumerator::DeviceEnumerator: Error - "
                   "settings.getStringValue(keyName=Settings\\, valueName=DriverName, "
                   "rc=false."));
  EXPECT_TRUE(log.contains("DeviceEnumerator::instance: creating DeviceEnumerator."));
}

TEST_F(DeviceEnumeratorTest, ASpoolerFailureIsLoggedWithItsCode) {
  spooler_.add(printer("Office", kDriver)).failEnumeration(ERROR_ACCESS_DENIED).write();
  LogCapture log;
  EXPECT_TRUE(printers().empty());
  EXPECT_TRUE(log.contains(
      "DeviceEnumerator::enumPrinters():Printer enumeration failed with win32 error code =5"));
}
