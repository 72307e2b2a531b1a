#include <gtest/gtest.h>

#include <windows.h>

#include "settings/RegistryKey.h"
#include "support/TestSupport.h"
#include "system/Win32Exception.h"

using testsupport::keyExists;

namespace {

// Each test works below its own root, never below the prefix's real keys.
const std::string kRoot = "Software\\CorvaneTestRegistry";

class RegistryKeyTest : public testing::Test {
 protected:
  void SetUp() override { testsupport::deleteKeyTree(kRoot); }
  void TearDown() override { testsupport::deleteKeyTree(kRoot); }

  static std::string path(const std::string& tail) { return kRoot + "\\" + tail; }

  // The message and code of the Win32Exception that `action` throws.
  template <typename Action>
  static std::string thrown(Action action) {
    try {
      action();
    } catch (const Win32Exception& e) {
      return e.getMessage() + " (" + std::to_string(e.getCode()) + ")";
    }
    return "nothing thrown";
  }
};

}  // namespace

TEST_F(RegistryKeyTest, OpensOrCreatesSeveralLevelsAtOnce) {
  EXPECT_EQ("RegistryKey::regOpenKeyEx() (2)",
            thrown([] { RegistryKey key(path("a\\b"), false, HKEY_LOCAL_MACHINE); }));
  EXPECT_FALSE(keyExists(path("a")));
  RegistryKey key(path("a\\b\\c"), true, HKEY_LOCAL_MACHINE);
  EXPECT_TRUE(keyExists(path("a\\b\\c")));
}

TEST_F(RegistryKeyTest, ValuesRoundTripAndMissingOnesReadFalseUntouched) {
  RegistryKey key(path("values"), true, HKEY_LOCAL_MACHINE);
  unsigned long number = 7;
  std::string text = "kept";
  std::vector<unsigned char> bytes = {9};
  EXPECT_FALSE(key.getValue("Dword", number) || key.getValue("Text", text) ||
               key.getValue("Bytes", bytes));
  EXPECT_EQ(7ul, number);
  EXPECT_EQ("kept", text);
  EXPECT_EQ(std::vector<unsigned char>{9}, bytes);

  key.setValue("Dword", 30000ul);
  key.setValue("Text", std::string("Job Status"));
  key.setValue("Bytes", std::vector<unsigned char>{1, 0, 255});
  EXPECT_TRUE(key.getValue("Dword", number) && key.getValue("Text", text) &&
              key.getValue("Bytes", bytes));
  EXPECT_EQ(30000ul, number);
  EXPECT_EQ("Job Status", text);
  EXPECT_EQ((std::vector<unsigned char>{1, 0, 255}), bytes);
  DWORD size = 0;  // The string is stored with its terminating zero.
  RegQueryValueExA(key.getHandle(), "Text", nullptr, nullptr, nullptr, &size);
  EXPECT_EQ(11u, size);

  key.deleteValue("Text");
  EXPECT_FALSE(key.getValue("Text", text));
  EXPECT_EQ("RegistryKey::deleteValue() (2)", thrown([&] { key.deleteValue("Text"); }));
}

TEST_F(RegistryKeyTest, AValueOfAnotherTypeThrowsAndExpandableStringsStayUnexpanded) {
  RegistryKey key(path("types"), true, HKEY_LOCAL_MACHINE);
  key.setValue("Number", 5ul);
  key.setValue("Text", std::string("a longer text"));
  RegSetValueExA(key.getHandle(), "Four", 0, REG_BINARY, reinterpret_cast<const BYTE*>("abc"), 4);
  RegSetValueExA(key.getHandle(), "Dir", 0, REG_EXPAND_SZ,
                 reinterpret_cast<const BYTE*>("%TEMP%\\x"), 9);
  unsigned long dword = 0;
  std::string text;
  std::vector<unsigned char> bytes;
  EXPECT_EQ("RegistryKey::getValue(ulong)Text : incorrect value type (234)",
            thrown([&] { key.getValue("Text", dword); }));
  EXPECT_EQ("RegistryKey::getValue(ulong)Four : incorrect value type (0)",
            thrown([&] { key.getValue("Four", dword); }));
  EXPECT_EQ("RegistryKey::getValue(string) Number : incorrect value type (0)",
            thrown([&] { key.getValue("Number", text); }));
  EXPECT_EQ("RegistryKey::getValue(binary)Text : incorrect value type (0)",
            thrown([&] { key.getValue("Text", bytes); }));
  EXPECT_EQ(0ul, dword);
  EXPECT_TRUE(key.getValue("Dir", text));
  EXPECT_EQ("%TEMP%\\x", text);
}

TEST_F(RegistryKeyTest, ListsChildrenUpToTheLimitAndEveryValueName) {
  RegistryKey key(path("list"), true, HKEY_LOCAL_MACHINE);
  for (int i = 0; i < 3; ++i) {
    RegistryKey child(path("list\\child" + std::to_string(i)), true, HKEY_LOCAL_MACHINE);
    key.setValue("v" + std::to_string(i), 1ul);
  }
  std::list<std::string> names = {"existing"};
  key.getChildrenNames(names, 2);
  EXPECT_EQ((std::list<std::string>{"existing", "child0", "child1"}), names);
  names.clear();
  key.getValueNames(names);
  EXPECT_EQ((std::list<std::string>{"v0", "v1", "v2"}), names);
  key.setValue(std::string(261, 'n'), 1ul);  // Longer than a name may be.
  EXPECT_EQ("RegistryKey:getValueNames() (234)", thrown([&] { key.getValueNames(names); }));
}

// A tree is deleted whole, a missing one is no error, and a key named SOFTWARE in any case is
// emptied but kept.
TEST_F(RegistryKeyTest, RecursiveDeleteRemovesTheTreeButKeepsAKeyNamedSoftware) {
  RegistryKey(path("tree\\a\\b"), true, HKEY_LOCAL_MACHINE).setValue("x", 1ul);
  RegistryKey(path("tree\\c"), true, HKEY_LOCAL_MACHINE);
  EXPECT_TRUE(RegistryKey::recurseDeleteKey(path("tree"), HKEY_LOCAL_MACHINE));
  EXPECT_FALSE(keyExists(path("tree")));
  EXPECT_TRUE(keyExists(kRoot));
  EXPECT_TRUE(RegistryKey::recurseDeleteKey(path("nothing\\here"), HKEY_LOCAL_MACHINE));
  for (const char* spelling : {"SOFTWARE", "software"}) {
    RegistryKey(path("guard\\SOFTWARE\\vendor\\product"), true, HKEY_LOCAL_MACHINE);
    RegistryKey guard(path("guard"), false, HKEY_LOCAL_MACHINE);
    EXPECT_TRUE(RegistryKey::recurseDeleteKey(spelling, guard.getHandle()));
    EXPECT_TRUE(keyExists(path("guard\\SOFTWARE"))) << spelling;
    EXPECT_FALSE(keyExists(path("guard\\SOFTWARE\\vendor"))) << spelling;
  }
}
