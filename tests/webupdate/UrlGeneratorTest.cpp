#include <gtest/gtest.h>

#include "support/TestSupport.h"
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
};

}  // namespace

// The machine's codes are filled in once, from the template as it was at construction; the
// package code per request. Only the first occurrence of each placeholder is replaced. The tests
// run on Canadian French Windows 7 (LC_ALL=fr_CA.UTF-8): language 1, country 00000C0C, OS 3.
TEST_F(UrlGeneratorTest, FillsTheMachineCodesOnceAndThePackageCodePerRequest) {
  store_.set(kUpdater, "WebServerUrl",
             "http://svc/[language_code]/[country_code]/[os_code]/[package_code][os_code]");
  UrlGenerator urls;
  store_.set(kUpdater, "WebServerUrl", "http://other/[package_code]");
  const std::string base = "http://svc/1/00000C0C/3/";
  EXPECT_EQ(base + "CATV[os_code]", urls.generateUrl(CATALOG_VERSION));
  EXPECT_EQ(base + "ORRV[os_code]", urls.generateUrl(ORRERY_VERSION));
  EXPECT_EQ(base + "CATD[os_code]", urls.generateUrl(CATALOG_DOWNLOAD));
  EXPECT_EQ(base + "ORRD[os_code]", urls.generateUrl(ORRERY_DOWNLOAD));
  EXPECT_EQ(base + "[package_code][os_code]", urls.generateUrl(4));
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

// A policy's template is the one the URLs are built from, while the store keeps its own; once the
// policy is removed, the store's template is used again.
TEST_F(UrlGeneratorTest, APolicyTemplateWinsUntilItIsRemoved) {
  testsupport::ScopedPolicy policy;
  store_.set(kUpdater, "WebServerUrl", "http://store/[package_code]");
  policy.set(kUpdater, "WebServerUrl", "https://policy/[os_code]/[package_code]");
  EXPECT_EQ("https://policy/3/ORRD", UrlGenerator().generateUrl(ORRERY_DOWNLOAD));
  EXPECT_EQ("http://store/[package_code]", store_.get(kUpdater, "WebServerUrl"));
  policy.remove(kUpdater, "WebServerUrl");
  EXPECT_EQ("http://store/ORRD", UrlGenerator().generateUrl(ORRERY_DOWNLOAD));
}
