#include <gtest/gtest.h>

#include <windows.h>

#include <map>

#include "settings/Policy.h"
#include "settings/Settings.h"
#include "support/TestSupport.h"

using testsupport::familyPath;
using testsupport::keyExists;
using testsupport::ScopedPolicy;
using testsupport::ScopedStore;

namespace {

const char kUpdater[] = "Settings\\Updater";
const std::string kHashA(64, 'a');
const std::string kHashB = std::string(63, '0') + "F";

std::string ignored(const std::string& text) {
  return "Policy " + text + "; the store's value is used";
}

// A setting as Settings reads it: a DWORD in decimal, a text, a list joined by ';'.
std::string readSetting(const std::string& name, bool& result) {
  Settings settings;
  if (name == "WebServerUrl") {
    std::string text;
    result = settings.getStringValue(kUpdater, name, text, 0);
    return text;
  }
  if (name == "TrustedPublishers") {
    std::vector<std::string> list;
    result = settings.getMultiStringValue(kUpdater, name, list, 0);
    std::string text;
    for (const std::string& item : list)
      text += (text.empty() ? "" : ";") + item;
    return text;
  }
  unsigned long number = 0;
  result = settings.getDwordValue(kUpdater, name, number, 0);
  return std::to_string(number);
}

}  // namespace

// Each kind of setting: a policy value of its type and in its range wins, at the bounds too; any
// other is ignored, with one line that names it, its value and why, and the store's value is read.
// The store keeps its own value either way.
TEST(Policy, AValueOfItsTypeAndInRangeWinsAndAnyOtherIsIgnoredWithItsReason) {
  const std::string url(1024, 'u');
  const std::string shownUrl = "'" + url.substr(0, 64) + "...' (1024 characters)";
  const struct {
    const char* name;
    DWORD type;
    std::string data;  // REG_DWORD: in decimal
    std::string read;
    std::string problem;  // empty: in force
  } rows[] = {
      {"PrinterPollInterval", REG_DWORD, "2000", "2000", ""},
      {"PrinterPollInterval", REG_DWORD, "0", "0", ""},
      {"PrinterPollInterval", REG_DWORD, "3600000", "3600000", ""},
      {"PrinterPollInterval", REG_DWORD, "3600001", "500",
       ignored("PrinterPollInterval = 3600001 is ignored: above the maximum 3600000")},
      {"CheckPeriodMinutes", REG_DWORD, "59", "500",
       ignored("CheckPeriodMinutes = 59 is ignored: below the minimum 60")},
      {"CheckPeriodMinutes", REG_DWORD, "60", "60", ""},
      {"UpdateMode", REG_DWORD, "3", "500",
       ignored("UpdateMode = 3 is ignored: above the maximum 2")},
      {"PrinterPollInterval", REG_SZ, "fast", "500",
       ignored("PrinterPollInterval = 'fast' (REG_SZ, 5 bytes) is ignored: it must be a "
               "REG_DWORD")},
      {"WebServerUrl", REG_SZ, "http://policy/[package_code]", "http://policy/[package_code]", ""},
      {"WebServerUrl", REG_EXPAND_SZ, "%HOST%/u", "%HOST%/u", ""},
      {"WebServerUrl", REG_SZ, url.substr(1), url.substr(1), ""},
      {"WebServerUrl", REG_SZ, url, "store",
       ignored("WebServerUrl = " + shownUrl + " is ignored: longer than 1023 characters")},
      {"WebServerUrl", REG_SZ, "", "store", ignored("WebServerUrl = '' is ignored: it is empty")},
      {"WebServerUrl", REG_DWORD, "5", "store",
       ignored("WebServerUrl = (REG_DWORD, 4 bytes) is ignored: it must be a REG_SZ")},
      {"TrustedPublishers", REG_SZ, " " + kHashA + " ;" + kHashB + ";", kHashA + ";" + kHashB, ""},
      {"TrustedPublishers", REG_SZ, kHashB + ";abc", "S1;S2",
       ignored("TrustedPublishers = '" + kHashB +
               "...' (68 characters) is ignored: 'abc' is "
               "not a SHA-256 hash (64 hexadecimal characters)")},
      {"TrustedPublishers", REG_SZ, kHashA.substr(1) + "g", "S1;S2",
       ignored("TrustedPublishers = '" + kHashA.substr(1) + "g' is ignored: '" + kHashA.substr(1) +
               "g' is not a SHA-256 hash (64 hexadecimal characters)")},
      {"TrustedPublishers", REG_SZ, " ; ", "S1;S2",
       ignored("TrustedPublishers = ' ; ' is ignored: it names no hash")},
  };
  const std::map<std::string, std::string> stored = {{"PrinterPollInterval", "500"},
                                                     {"CheckPeriodMinutes", "500"},
                                                     {"UpdateMode", "500"},
                                                     {"WebServerUrl", "store"},
                                                     {"TrustedPublishers", "S1;S2"}};
  for (const auto& row : rows) {
    ScopedStore store;
    ScopedPolicy policy;
    for (const char* name : {"PrinterPollInterval", "CheckPeriodMinutes", "UpdateMode"})
      store.set(kUpdater, name, 500);
    store.set(kUpdater, "WebServerUrl", "store");
    store.set(kUpdater, "TrustedPublishers", std::string("S1\0S2\0", 6), REG_MULTI_SZ);
    if (row.type == REG_DWORD)
      policy.set(kUpdater, row.name, std::stoul(row.data));
    else
      policy.set(kUpdater, row.name, row.data, row.type);

    bool result = false;
    EXPECT_EQ(row.read, readSetting(row.name, result)) << row.name << " = " << row.data;
    EXPECT_TRUE(result) << "the store has the value";
    const std::vector<std::string> problems = Policy().problems();
    EXPECT_EQ(
        row.problem.empty() ? std::vector<std::string>{} : std::vector<std::string>{row.problem},
        problems);
    EXPECT_EQ("500", store.get(kUpdater, "PrinterPollInterval"));
    EXPECT_EQ("store", store.get(kUpdater, "WebServerUrl"));
    // Removed, the policy leaves the store's value.
    policy.remove(kUpdater, row.name);
    EXPECT_EQ(stored.at(row.name), readSetting(row.name, result));
  }
}

// A policy changes only what a read hands out. The store is read and written as without one: the
// default is created where it is missing, nothing is created without the family's key, a stored
// value of another type stays with the registry's code as the last error, and a missing one
// leaves the last error alone. Only the table's settings of the program's own store (scope 0)
// have a policy.
TEST(Policy, ReadsKeepTheStoresSemanticsWhileAPolicyIsInForce) {
  ScopedPolicy policy;
  policy.set(kUpdater, "PrinterPollInterval", 2000);
  policy.set(kUpdater, "WebServerUrl", "http://policy/");
  unsigned long interval = 7;
  std::string url = "kept";
  testsupport::deleteKeyTree(familyPath());
  EXPECT_FALSE(
      Settings().getOrCreateDwordValue(kUpdater, "PrinterPollInterval", interval, 30000, 0));
  EXPECT_EQ(2000ul, interval);
  EXPECT_FALSE(keyExists(familyPath()));

  ScopedStore store;
  interval = 7;
  EXPECT_TRUE(
      Settings().getOrCreateDwordValue(kUpdater, "PrinterPollInterval", interval, 30000, 0));
  EXPECT_EQ(2000ul, interval);
  EXPECT_EQ("30000", store.get(kUpdater, "PrinterPollInterval"));
  store.set(kUpdater, "PrinterPollInterval", "fast");
  SetLastError(0);
  EXPECT_FALSE(
      Settings().getOrCreateDwordValue(kUpdater, "PrinterPollInterval", interval, 30000, 0));
  EXPECT_EQ(static_cast<DWORD>(ERROR_MORE_DATA), GetLastError());
  EXPECT_EQ(2000ul, interval);
  EXPECT_EQ("fast", store.get(kUpdater, "PrinterPollInterval"));
  SetLastError(1234);
  EXPECT_FALSE(Settings().getStringValue(kUpdater, "WebServerUrl", url, 0));
  EXPECT_EQ(1234u, GetLastError());
  EXPECT_EQ("http://policy/", url);
  EXPECT_TRUE(
      Settings().getOrCreateStringValue("settings\\updater\\", "webserverurl", url, "x", 0));
  EXPECT_EQ("http://policy/", url) << "names compare as the registry compares them";
  EXPECT_EQ("x", store.get(kUpdater, "WebServerUrl"));

  for (const char* name : {"DoNotDeleteDownloadedFiles", "DataUpdated", "CheckForUpdateTimeOut"}) {
    policy.set(kUpdater, name, 9);
    store.set(kUpdater, name, 1);
    EXPECT_TRUE(Settings().getDwordValue(kUpdater, name, interval, 0));
    EXPECT_EQ(1ul, interval) << name << " is not the policy's";
  }
  policy.set(kUpdater, "WebUpdaterDllPath", "C:\\policy");
  store.set(kUpdater, "WebUpdaterDllPath", "C:\\store");
  EXPECT_TRUE(Settings().getStringValue(kUpdater, "WebUpdaterDllPath", url, 0));
  EXPECT_EQ("C:\\store", url);
  EXPECT_TRUE(
      Settings().getOrCreateDwordValue(kUpdater, "PrinterPollInterval", interval, 30000, 1));
  EXPECT_EQ(30000ul, interval) << "the shared store has no policy";
}

// The listing names every setting of the table once, in its order, with its value and where it
// comes from; it creates nothing, neither the store's defaults nor the policy key.
TEST(Policy, TheEffectiveValuesNameTheirSourceAndWriteNothing) {
  ScopedStore store;
  ScopedPolicy policy;
  store.set(kUpdater, "PrinterPollInterval", 500);
  store.set(kUpdater, "UpdateMode", 0);
  store.set(kUpdater, "ApplyWindowDuration", 90);
  store.set("Logger", "startLog", "on");  // Of another type: the default.
  store.set(kUpdater, "TrustedPublishers", std::string("S1\0S2\0", 6), REG_MULTI_SZ);
  const auto listing = [] {
    std::vector<std::string> lines;
    for (const Settings::EffectiveValue& setting : Settings().getEffectiveValues())
      lines.push_back(setting.section + "\\" + setting.name + " " + setting.source + " " +
                      (setting.isSet ? setting.value : "(not set)"));
    return lines;
  };
  const std::vector<std::string> expected = {
      "Settings\\Updater\\UpdateMode store 0",
      "Settings\\Updater\\WebServerUrl default (not set)",
      "Settings\\Updater\\PrinterPollInterval store 500",
      "Settings\\Updater\\ReportRunEvents default 1",
      "Logger\\startLog default 0",
      "Settings\\Updater\\TrustedPublishers store S1;S2",
      "Settings\\Updater\\ApplyWindowStart default (not set)",
      "Settings\\Updater\\ApplyWindowDuration store 90",
      "Settings\\Updater\\ApplyWindowDays default 127",
      "Settings\\Updater\\ApplyWindowReserve default 15",
      "Settings\\Updater\\CheckPeriodMinutes default 1440",
      "Settings\\Updater\\QuietWaitMode default 0"};
  EXPECT_EQ(expected, listing());
  EXPECT_FALSE(keyExists(ScopedPolicy::root()));
  EXPECT_EQ("none", store.get(kUpdater, "ReportRunEvents"));

  policy.set(kUpdater, "UpdateMode", 2);
  policy.set(kUpdater, "WebServerUrl", "http://policy/");
  policy.set(kUpdater, "ApplyWindowStart", 1440);  // Out of range: ignored.
  policy.set(kUpdater, "TrustedPublishers", kHashB);
  std::vector<std::string> changed = expected;
  changed[0] = "Settings\\Updater\\UpdateMode policy 2";
  changed[1] = "Settings\\Updater\\WebServerUrl policy http://policy/";
  changed[5] = "Settings\\Updater\\TrustedPublishers policy " + kHashB;
  EXPECT_EQ(changed, listing());
}
