#include <gtest/gtest.h>

#include <windows.h>

#include "settings/RegistryKey.h"
#include "support/TestSupport.h"
#include "system/Win32Exception.h"

using testsupport::keyExists;

namespace {

// Each test works below its own root, never below the prefix's real keys.
const std::string kRoot = "Software\\CorvaneTestRegistry\\";

class RegistryKeyTest : public testing::Test {
 protected:
  ~RegistryKeyTest() override { testsupport::deleteKeyTree(kRoot); }
  static std::string freshRoot() {
    testsupport::deleteKeyTree(kRoot);
    return kRoot;
  }

  // "<message> (<code>)" of the Win32Exception that `action` throws.
  template <typename Action>
  static std::string thrown(Action action) {
    try {
      action();
    } catch (const Win32Exception& e) {
      return e.getMessage() + " (" + std::to_string(e.getCode()) + ")";
    }
    return "nothing thrown";
  }

  RegistryKey key_{freshRoot() + "a\\b\\c", true, HKEY_LOCAL_MACHINE};  // Several levels at once.
};

}  // namespace

// Children are listed in enumeration order after what the list holds, up to the limit given.
TEST_F(RegistryKeyTest, OpensOnlyExistingKeysUnlessToldToCreateAndListsChildrenUpToALimit) {
  EXPECT_TRUE(keyExists(kRoot + "a\\b\\c"));
  EXPECT_EQ("RegistryKey::regOpenKeyEx() (2)",
            thrown([] { RegistryKey key(kRoot + "x\\y", false, HKEY_LOCAL_MACHINE); }));
  EXPECT_FALSE(keyExists(kRoot + "x"));
  for (const std::string name : {"c0", "c1", "c2"})
    RegistryKey child(kRoot + "a\\b\\c\\" + name, true, HKEY_LOCAL_MACHINE);
  std::list<std::string> names = {"existing"};
  key_.getChildrenNames(names, 2);
  EXPECT_EQ((std::list<std::string>{"existing", "c0", "c1"}), names);
}

// Strings are written as REG_SZ with their terminating zero; a value of another type throws;
// REG_EXPAND_SZ strings are read unexpanded.
TEST_F(RegistryKeyTest, StringsAreRegSzAValueOfAnotherTypeThrowsAndExpandableOnesStayUnexpanded) {
  key_.setValue("Number", 5ul);
  key_.setValue("Text", std::string("a longer text"));
  DWORD type = 0, size = 0;
  RegQueryValueExA(key_.getHandle(), "Text", nullptr, &type, nullptr, &size);
  EXPECT_TRUE(type == REG_SZ && size == 14) << type << " " << size;
  RegSetValueExA(key_.getHandle(), "Four", 0, REG_BINARY, reinterpret_cast<const BYTE*>("abc"), 4);
  RegSetValueExA(key_.getHandle(), "Dir", 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>("%TEMP%"),
                 7);
  unsigned long dword = 0;
  std::string text;
  std::vector<unsigned char> bytes;
  EXPECT_EQ("RegistryKey::getValue(ulong)Text : incorrect value type (234)",
            thrown([&] { key_.getValue("Text", dword); }));
  EXPECT_EQ("RegistryKey::getValue(ulong)Four : incorrect value type (0)",
            thrown([&] { key_.getValue("Four", dword); }));
  EXPECT_EQ("RegistryKey::getValue(string) Number : incorrect value type (0)",
            thrown([&] { key_.getValue("Number", text); }));
  EXPECT_EQ("RegistryKey::getValue(binary)Text : incorrect value type (0)",
            thrown([&] { key_.getValue("Text", bytes); }));
  EXPECT_EQ(0ul, dword);
  EXPECT_TRUE(key_.getValue("Dir", text));
  EXPECT_EQ("%TEMP%", text);
}

// A tree is deleted whole and a missing one is no error; a key named SOFTWARE in any case is
// emptied but kept, also below the key deleted, whose deletion then fails instead of hanging.
TEST_F(RegistryKeyTest, RecursiveDeleteRemovesTheTreeButKeepsAKeyNamedSoftware) {
  key_.setValue("x", 1ul);
  EXPECT_TRUE(RegistryKey::recurseDeleteKey(kRoot + "a", HKEY_LOCAL_MACHINE));
  EXPECT_FALSE(keyExists(kRoot + "a"));
  EXPECT_TRUE(keyExists(kRoot));
  EXPECT_TRUE(RegistryKey::recurseDeleteKey(kRoot + "nothing\\here", HKEY_LOCAL_MACHINE));
  for (const char* spelling : {"SOFTWARE", "software"}) {
    RegistryKey(kRoot + "SOFTWARE\\vendor\\product", true, HKEY_LOCAL_MACHINE);
    RegistryKey root(kRoot, false, HKEY_LOCAL_MACHINE);
    EXPECT_TRUE(RegistryKey::recurseDeleteKey(spelling, root.getHandle()));
    EXPECT_TRUE(keyExists(kRoot + "SOFTWARE")) << spelling;
    EXPECT_FALSE(keyExists(kRoot + "SOFTWARE\\vendor")) << spelling;
  }
  RegistryKey(kRoot + "store\\Software\\x", true, HKEY_LOCAL_MACHINE);
  EXPECT_EQ("RegistryKey::recurseDeleteKey() RegDeleteKey() (5)",
            thrown([] { RegistryKey::recurseDeleteKey(kRoot + "store", HKEY_LOCAL_MACHINE); }));
  EXPECT_TRUE(keyExists(kRoot + "store\\Software") && !keyExists(kRoot + "store\\Software\\x"));
}

// A registry link in the tree, or the key named itself a link, is deleted as the link: its target
// keeps its keys and values, and a dangling link goes too. A child whose name the code page cannot
// hold is not found again for ever: the key's own deletion fails.
TEST_F(RegistryKeyTest, RecursiveDeleteDeletesALinkAsTheLinkAndEnds) {
  const std::string target = kRoot + "target";
  key_.setValue("x", 1ul);
  testsupport::setValue(target + "\\deep", "Keep", "me");
  ASSERT_TRUE(testsupport::makeLink(kRoot + "a\\link", target));
  ASSERT_TRUE(testsupport::makeLink(kRoot + "a\\b\\dangling", kRoot + "nowhere"));
  ASSERT_TRUE(testsupport::makeLink(kRoot + "top", target));
  EXPECT_TRUE(RegistryKey::recurseDeleteKey(kRoot + "a", HKEY_LOCAL_MACHINE));
  EXPECT_FALSE(keyExists(kRoot + "a"));
  EXPECT_TRUE(RegistryKey::recurseDeleteKey(kRoot + "top", HKEY_LOCAL_MACHINE));
  EXPECT_FALSE(testsupport::isLinkKey(kRoot + "top"));
  EXPECT_EQ("me", testsupport::registryValue(target + "\\deep", "Keep"));

  ScopedKey odd;
  ASSERT_EQ(ERROR_SUCCESS,
            RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"Software\\CorvaneTestRegistry\\odd\\\x0436\x0436",
                            0, nullptr, 0, KEY_ALL_ACCESS, nullptr, odd.receive(), nullptr));
  odd.close();
  EXPECT_EQ("RegistryKey::recurseDeleteKey() RegDeleteKey() (5)",
            thrown([] { RegistryKey::recurseDeleteKey(kRoot + "odd", HKEY_LOCAL_MACHINE); }));
}
