#include <gtest/gtest.h>

#include "printers/DeviceEnumerator.h"
#include "support/TestSupport.h"

using testsupport::SpoolerScenario;
using Printer = PrinterScenario;  // Name and driver, nothing queued.
using Names = std::list<std::string>;

namespace {

const char kDriver[] = "Corvane Inkjet Driver";

class DeviceEnumeratorTest : public testing::Test {
 protected:
  void SetUp() override { store_.set("Settings\\", "DriverName", kDriver); }
  void TearDown() override { DeviceEnumerator::destroy(); }

  static Names printers() {
    Names names = {"stale"};
    DeviceEnumerator::instance()->getPrinters(names);
    return names;
  }

  testsupport::ScopedStore store_;
  SpoolerScenario spooler_;
};

}  // namespace

// Local printers and connections whose driver name matches byte for byte, in spooler order.
TEST_F(DeviceEnumeratorTest, ListsThePrintersOfTheDriverByteForByte) {
  spooler_.write({Printer{"Office", kDriver}, Printer{"Lower", "corvane inkjet driver"},
                  Printer{"Trailing", "Corvane Inkjet Driver "}, Printer{"Other", "Generic Text"},
                  Printer{"\\\\server\\Shared", kDriver}});
  EXPECT_EQ((Names{"Office", "\\\\server\\Shared"}), printers());
  EXPECT_EQ("EnumPrintersA flags=6 level=2 buffer=1 result=1",
            spooler_.calls("EnumPrintersA").at(1));
}

// An empty result is asked for again on every call; a found list is kept for the rest of the run,
// and a new instance reads the driver name again.
TEST_F(DeviceEnumeratorTest, KeepsAFoundListUntilItIsDestroyed) {
  spooler_.write({Printer{"Lab", "Lab Driver"}});
  EXPECT_TRUE(printers().empty());
  EXPECT_TRUE(printers().empty());
  EXPECT_EQ(4u, spooler_.calls("EnumPrintersA").size());
  spooler_.write({Printer{"Lab", "Lab Driver"}, Printer{"Office", kDriver}});
  EXPECT_EQ(Names{"Office"}, printers());
  spooler_.write(
      {Printer{"Lab", "Lab Driver"}, Printer{"Office", kDriver}, Printer{"Later", kDriver}});
  EXPECT_EQ(Names{"Office"}, printers());
  EXPECT_EQ(6u, spooler_.calls("EnumPrintersA").size());
  DeviceEnumerator::destroy();
  store_.set("Settings\\", "DriverName", "Lab Driver");
  EXPECT_EQ(Names{"Lab"}, printers());
}
