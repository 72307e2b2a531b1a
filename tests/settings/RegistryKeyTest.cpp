#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>

#include "settings/RegistryKey.h"
#include "support/TestSupport.h"
#include "system/Win32Exception.h"

namespace {

// Each test works below its own private root, never below the prefix's real keys.
const char kRoot[] = "Software\\CorvaneTestRegistry";

class RegistryKeyTest : public testing::Test {
 protected:
  void SetUp() override { testsupport::deleteKeyTree(kRoot); }
  void TearDown() override { testsupport::deleteKeyTree(kRoot); }

  static std::string path(const std::string& tail) { return std::string(kRoot) + "\\" + tail; }

  static void setRaw(const std::string& key,
                     const char* name,
                     DWORD type,
                     const void* data,
                     DWORD size) {
    HKEY handle = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExA(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0,
                                             KEY_ALL_ACCESS, nullptr, &handle, nullptr));
    RegSetValueExA(handle, name, 0, type, static_cast<const BYTE*>(data), size);
    RegCloseKey(handle);
  }

  static bool keyExists(const std::string& key) {
    HKEY handle = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS)
      return false;
    RegCloseKey(handle);
    return true;
  }

  // Runs `action` and returns the message of the Win32Exception it throws.
  template <typename Action>
  static std::string thrownMessage(Action action, uint32_t* code = nullptr) {
    try {
      action();
    } catch (const Win32Exception& e) {
      if (code != nullptr)
        *code = e.getCode();
      return e.getMessage();
    }
    return "<nothing thrown>";
  }
};

}  // namespace

TEST_F(RegistryKeyTest, CreatesSeveralMissingLevelsInOneCall) {
  RegistryKey key(path("a\\b\\c\\d"), true, HKEY_LOCAL_MACHINE);
  EXPECT_TRUE(keyExists(path("a\\b\\c\\d")));
}

TEST_F(RegistryKeyTest, OpeningAMissingKeyWithoutCreateThrowsTheOpenError) {
  uint32_t code = 0;
  EXPECT_EQ(
      "RegistryKey::regOpenKeyEx()",
      thrownMessage([] { RegistryKey key(path("missing"), false, HKEY_LOCAL_MACHINE); }, &code));
  EXPECT_EQ(static_cast<uint32_t>(ERROR_FILE_NOT_FOUND), code);
  EXPECT_FALSE(keyExists(path("missing")));
}

TEST_F(RegistryKeyTest, ValuesRoundTripWithTheirTypesAndSizes) {
  RegistryKey key(path("values"), true, HKEY_LOCAL_MACHINE);
  key.setValue("Dword", 30000ul);
  key.setValue("Text", std::string("Job Status"));
  key.setValue("Bytes", std::vector<unsigned char>{1, 0, 255});

  unsigned long number = 0;
  std::string text;
  std::vector<unsigned char> bytes;
  EXPECT_TRUE(key.getValue("Dword", number));
  EXPECT_TRUE(key.getValue("Text", text));
  EXPECT_TRUE(key.getValue("Bytes", bytes));
  EXPECT_EQ(30000ul, number);
  EXPECT_EQ("Job Status", text);
  EXPECT_EQ((std::vector<unsigned char>{1, 0, 255}), bytes);

  // The string is stored with its terminating zero.
  DWORD type = 0;
  DWORD size = 0;
  RegQueryValueExA(key.getHandle(), "Text", nullptr, &type, nullptr, &size);
  EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
  EXPECT_EQ(11u, size);
}

TEST_F(RegistryKeyTest, MissingValuesReadFalseAndLeaveTheOutputAlone) {
  RegistryKey key(path("empty"), true, HKEY_LOCAL_MACHINE);
  unsigned long number = 7;
  std::string text = "kept";
  std::vector<unsigned char> bytes = {9};
  EXPECT_FALSE(key.getValue("None", number));
  EXPECT_FALSE(key.getValue("None", text));
  EXPECT_FALSE(key.getValue("None", bytes));
  EXPECT_EQ(7ul, number);
  EXPECT_EQ("kept", text);
  EXPECT_EQ(std::vector<unsigned char>{9}, bytes);
}

TEST_F(RegistryKeyTest, WrongTypesThrowWithTheTypeSuffix) {
  const DWORD number = 5;
  setRaw(path("types"), "Number", REG_DWORD, &number, sizeof(number));
  setRaw(path("types"), "Text", REG_SZ, "a longer text", 14);
  setRaw(path("types"), "Four", REG_BINARY, "abc", 4);  // Fits a DWORD, yet is none.
  RegistryKey key(path("types"), false, HKEY_LOCAL_MACHINE);

  unsigned long dword = 0;
  std::string text;
  std::vector<unsigned char> bytes;
  EXPECT_EQ("RegistryKey::getValue(ulong)Text : incorrect value type",
            thrownMessage([&] { key.getValue("Text", dword); }));
  EXPECT_EQ("RegistryKey::getValue(ulong)Four : incorrect value type",
            thrownMessage([&] { key.getValue("Four", dword); }));
  EXPECT_EQ("RegistryKey::getValue(string) Number : incorrect value type",
            thrownMessage([&] { key.getValue("Number", text); }));
  EXPECT_EQ("RegistryKey::getValue(binary)Text : incorrect value type",
            thrownMessage([&] { key.getValue("Text", bytes); }));
  EXPECT_EQ(0ul, dword);
  EXPECT_EQ("", text);
}

TEST_F(RegistryKeyTest, ExpandableStringsAreReadUnexpanded) {
  setRaw(path("expand"), "Dir", REG_EXPAND_SZ, "%TEMP%\\x", 9);
  RegistryKey key(path("expand"), false, HKEY_LOCAL_MACHINE);
  std::string text;
  EXPECT_TRUE(key.getValue("Dir", text));
  EXPECT_EQ("%TEMP%\\x", text);
}

TEST_F(RegistryKeyTest, DeletingAMissingValueThrows) {
  RegistryKey key(path("delete"), true, HKEY_LOCAL_MACHINE);
  key.setValue("Gone", 1ul);
  key.deleteValue("Gone");
  unsigned long number = 0;
  EXPECT_FALSE(key.getValue("Gone", number));
  EXPECT_EQ("RegistryKey::deleteValue()", thrownMessage([&] { key.deleteValue("Gone"); }));
}

TEST_F(RegistryKeyTest, ChildrenAreListedUpToTheLimitInEnumerationOrder) {
  RegistryKey key(path("many"), true, HKEY_LOCAL_MACHINE);
  for (int i = 0; i < 150; ++i)
    RegistryKey child(path("many\\child" + std::to_string(i)), true, HKEY_LOCAL_MACHINE);

  std::list<std::string> names = {"existing"};
  key.getChildrenNames(names, 100);
  ASSERT_EQ(101u, names.size());
  EXPECT_EQ("existing", names.front());
  names.pop_front();
  DWORD index = 0;
  for (const std::string& name : names) {
    char expected[261];
    DWORD length = sizeof(expected);
    ASSERT_EQ(ERROR_SUCCESS, RegEnumKeyExA(key.getHandle(), index++, expected, &length, nullptr,
                                           nullptr, nullptr, nullptr));
    EXPECT_EQ(expected, name);
  }
}

TEST_F(RegistryKeyTest, ValueNamesOfAnyCountAreListed) {
  RegistryKey key(path("names"), true, HKEY_LOCAL_MACHINE);
  for (int i = 0; i < 120; ++i)
    key.setValue("v" + std::to_string(i), static_cast<unsigned long>(i));
  std::list<std::string> names;
  key.getValueNames(names);
  EXPECT_EQ(120u, names.size());
  EXPECT_NE(names.end(), std::find(names.begin(), names.end(), "v119"));
}

TEST_F(RegistryKeyTest, AValueNameOf261CharactersMakesTheEnumerationThrow) {
  RegistryKey key(path("long"), true, HKEY_LOCAL_MACHINE);
  key.setValue(std::string(261, 'n'), 1ul);
  std::list<std::string> names;
  uint32_t code = 0;
  EXPECT_EQ("RegistryKey:getValueNames()", thrownMessage([&] { key.getValueNames(names); }, &code));
  EXPECT_EQ(static_cast<uint32_t>(ERROR_MORE_DATA), code);
}

TEST_F(RegistryKeyTest, RecursiveDeleteRemovesTheWholeTree) {
  RegistryKey(path("tree\\a\\b"), true, HKEY_LOCAL_MACHINE).setValue("x", 1ul);
  RegistryKey(path("tree\\c"), true, HKEY_LOCAL_MACHINE);
  EXPECT_TRUE(RegistryKey::recurseDeleteKey(path("tree"), HKEY_LOCAL_MACHINE));
  EXPECT_FALSE(keyExists(path("tree")));
  EXPECT_TRUE(keyExists(kRoot));
}

TEST_F(RegistryKeyTest, RecursiveDeleteOfAMissingPathDoesNothing) {
  EXPECT_TRUE(RegistryKey::recurseDeleteKey(path("nothing\\here"), HKEY_LOCAL_MACHINE));
}

TEST_F(RegistryKeyTest, AKeyNamedSoftwareIsEmptiedButKept) {
  for (const char* spelling : {"SOFTWARE", "software"}) {
    RegistryKey(path("guard\\SOFTWARE\\vendor\\product"), true, HKEY_LOCAL_MACHINE);
    RegistryKey guard(path("guard"), false, HKEY_LOCAL_MACHINE);
    EXPECT_TRUE(RegistryKey::recurseDeleteKey(spelling, guard.getHandle()));
    EXPECT_TRUE(keyExists(path("guard\\SOFTWARE"))) << spelling;
    EXPECT_FALSE(keyExists(path("guard\\SOFTWARE\\vendor"))) << spelling;
  }
}
