#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "webupdate/TandemUtilities.h"
#include "webupdate/UrlGenerator.h"

namespace {

const char kUpdater[] = "Settings\\Updater";

class UrlGeneratorTest : public testing::Test {
 protected:
  void SetUp() override {
    store_.set(kUpdater, "TandemCatalogVersionPackageCode", "CATV");
    store_.set(kUpdater, "TandemOrreryVersionPackageCode", "ORRV");
    store_.set(kUpdater, "TandemCatalogDownloadPackageCode", "CATD");
    store_.set(kUpdater, "TandemOrreryDownloadPackageCode", "ORRD");
  }

  testsupport::ScopedStore store_;
  const std::string language_ = TandemUtilities::getLanguageCode();
  const std::string country_ = TandemUtilities::getCountryCode();
  const std::string os_ = TandemUtilities::getOsCode();
};

}  // namespace

// The machine's codes are filled in once, from the template as it was at construction; the
// package code per request.
TEST_F(UrlGeneratorTest, FillsTheMachineCodesOnceAndThePackageCodePerRequest) {
  store_.set(kUpdater, "WebServerUrl",
             "http://svc/[language_code]/[country_code]/[os_code]/[package_code]");
  UrlGenerator urls;
  store_.set(kUpdater, "WebServerUrl", "http://other/[package_code]");
  const std::string base = "http://svc/" + language_ + "/" + country_ + "/" + os_ + "/";
  EXPECT_EQ(base + "CATV", urls.generateUrl(CATALOG_VERSION));
  EXPECT_EQ(base + "ORRV", urls.generateUrl(ORRERY_VERSION));
  EXPECT_EQ(base + "CATD", urls.generateUrl(CATALOG_DOWNLOAD));
  EXPECT_EQ(base + "ORRD", urls.generateUrl(ORRERY_DOWNLOAD));
  EXPECT_EQ(base + "[package_code]", urls.generateUrl(4));
}

// Only the first occurrence of each placeholder is replaced, and a placeholder that appears only
// once the text around it is replaced is not searched for again.
TEST_F(UrlGeneratorTest, ReplacesOnlyTheFirstOccurrenceOfEachPlaceholder) {
  store_.set(kUpdater, "WebServerUrl",
             "[os_code][os_code]?p=[package_code]&q=[package_code]&l=[language_code][language_code]"
             "&c=[country_code][country_code]&x=[os_[language_code]code]");
  EXPECT_EQ(os_ + "[os_code]?p=CATV&q=[package_code]&l=" + language_ +
                "[language_code]&c=" + country_ + "[country_code]&x=[os_[language_code]code]",
            UrlGenerator().generateUrl(CATALOG_VERSION));
}

// An empty or missing package code keeps the placeholder (and is not written back); without a
// template every URL is empty.
TEST_F(UrlGeneratorTest, KeepsThePlaceholderWithoutAPackageCode) {
  store_.set(kUpdater, "WebServerUrl", "http://svc/[package_code]");
  store_.set(kUpdater, "TandemOrreryDownloadPackageCode", "");
  store_.remove(kUpdater, "TandemCatalogDownloadPackageCode");
  UrlGenerator urls;
  EXPECT_EQ("http://svc/[package_code]", urls.generateUrl(ORRERY_DOWNLOAD));
  EXPECT_EQ("http://svc/[package_code]", urls.generateUrl(CATALOG_DOWNLOAD));
  EXPECT_EQ("none", store_.get(kUpdater, "TandemCatalogDownloadPackageCode"));
  store_.remove(kUpdater, "WebServerUrl");
  EXPECT_EQ("", UrlGenerator().generateUrl(ORRERY_VERSION));
}
