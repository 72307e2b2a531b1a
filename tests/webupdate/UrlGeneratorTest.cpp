#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "webupdate/TandemUtilities.h"
#include "webupdate/UrlGenerator.h"

using testsupport::LogCapture;
using testsupport::ScopedStore;

namespace {

const char kUpdater[] = "Settings\\Updater";

class UrlGeneratorTest : public testing::Test {
 protected:
  void SetUp() override {
    store_.setString(kUpdater, "TandemCatalogVersionPackageCode", "CATV");
    store_.setString(kUpdater, "TandemOrreryVersionPackageCode", "ORRV");
    store_.setString(kUpdater, "TandemCatalogDownloadPackageCode", "CATD");
    store_.setString(kUpdater, "TandemOrreryDownloadPackageCode", "ORRD");
  }

  static std::string codes() {
    return TandemUtilities::getLanguageCode() + "/" + TandemUtilities::getCountryCode() + "/" +
           TandemUtilities::getOsCode();
  }

  ScopedStore store_;
};

}  // namespace

TEST_F(UrlGeneratorTest, FillsTheMachineCodesOnceAndThePackageCodePerRequest) {
  store_.setString(kUpdater, "WebServerUrl",
                   "http://svc/[language_code]/[country_code]/[os_code]/[package_code]");
  UrlGenerator urls;
  EXPECT_EQ("http://svc/" + codes() + "/CATV", urls.generateUrl(CATALOG_VERSION));
  EXPECT_EQ("http://svc/" + codes() + "/ORRV", urls.generateUrl(ORRERY_VERSION));
  EXPECT_EQ("http://svc/" + codes() + "/CATD", urls.generateUrl(CATALOG_DOWNLOAD));
  EXPECT_EQ("http://svc/" + codes() + "/ORRD", urls.generateUrl(ORRERY_DOWNLOAD));
  // The template is read once, at construction.
  store_.setString(kUpdater, "WebServerUrl", "http://other/[package_code]");
  EXPECT_EQ("http://svc/" + codes() + "/ORRD", urls.generateUrl(ORRERY_DOWNLOAD));
}

TEST_F(UrlGeneratorTest, OnlyTheFirstOccurrenceOfEachPlaceholderIsReplaced) {
  store_.setString(kUpdater, "WebServerUrl",
                   "[os_code][os_code]?p=[package_code]&q=[package_code]&l=[language_code]"
                   "[language_code]&c=[country_code][country_code]");
  const std::string url = UrlGenerator().generateUrl(CATALOG_VERSION);
  EXPECT_EQ(TandemUtilities::getOsCode() +
                "[os_code]?p=CATV&q=[package_code]&l=" + TandemUtilities::getLanguageCode() +
                "[language_code]&c=" + TandemUtilities::getCountryCode() + "[country_code]",
            url);
}

TEST_F(UrlGeneratorTest, AnEarlierCodeIsNotSearchedForLaterPlaceholders) {
  // The language code is filled in first; a placeholder that only appears once the text around
  // it is replaced is not searched for again.
  store_.setString(kUpdater, "WebServerUrl", "[os_[language_code]code]");
  EXPECT_EQ("[os_" + TandemUtilities::getLanguageCode() + "code]", UrlGenerator().generateUrl(7));
}

TEST_F(UrlGeneratorTest, ATemplateWithoutPlaceholdersIsUsedAsItIs) {
  store_.setString(kUpdater, "WebServerUrl", "https://updates.example/orrery");
  UrlGenerator urls;
  for (uint32_t kind : {0u, 1u, 2u, 3u, 4u})
    EXPECT_EQ("https://updates.example/orrery", urls.generateUrl(kind));
}

TEST_F(UrlGeneratorTest, AnInvalidKindIsLoggedAndKeepsThePlaceholder) {
  store_.setString(kUpdater, "WebServerUrl", "http://svc/[package_code]");
  LogCapture log;
  EXPECT_EQ("http://svc/[package_code]", UrlGenerator().generateUrl(4));
  EXPECT_TRUE(
      log.contains("UrlGenerator::generateUrl(4)  INVALID UrlFunction passed into the "
                   "function!!"));
  EXPECT_TRUE(log.contains("-UrlGenerator::generateUrl(4)  rc=http://svc/[package_code]"));
  EXPECT_TRUE(
      log.contains("UrlGenerator::initialize()  WebServerBase URL = 'http://svc/"
                   "[package_code]'"));
}

TEST_F(UrlGeneratorTest, AnEmptyOrMissingPackageCodeKeepsThePlaceholder) {
  store_.setString(kUpdater, "WebServerUrl", "http://svc/[package_code]");
  store_.setString(kUpdater, "TandemOrreryDownloadPackageCode", "");
  HKEY key = nullptr;
  RegOpenKeyExA(HKEY_LOCAL_MACHINE, (testsupport::storeRoot() + kUpdater).c_str(), 0,
                KEY_ALL_ACCESS, &key);
  RegDeleteValueA(key, "TandemCatalogDownloadPackageCode");
  RegCloseKey(key);
  UrlGenerator urls;
  EXPECT_EQ("http://svc/[package_code]", urls.generateUrl(ORRERY_DOWNLOAD));
  EXPECT_EQ("http://svc/[package_code]", urls.generateUrl(CATALOG_DOWNLOAD));
  // A plain read: the missing code is not written back.
  std::string value;
  EXPECT_FALSE(store_.getString(kUpdater, "TandemCatalogDownloadPackageCode", value));
}

TEST_F(UrlGeneratorTest, WithoutATemplateEveryUrlIsEmpty) {
  EXPECT_EQ("", UrlGenerator().generateUrl(ORRERY_VERSION));
}
