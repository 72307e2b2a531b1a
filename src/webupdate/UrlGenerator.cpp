#include "webupdate/UrlGenerator.h"

#include "logging/FunctionTrace.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "webupdate/TandemUtilities.h"

const std::string UrlGenerator::kLanguageCodePlaceholder = "[language_code]";
const std::string UrlGenerator::kCountryCodePlaceholder = "[country_code]";
const std::string UrlGenerator::kOsCodePlaceholder = "[os_code]";
const std::string UrlGenerator::kPackageCodePlaceholder = "[package_code]";

namespace {

// Replaces the first occurrence of `placeholder` with what `code()` returns; the code is computed
// only when the placeholder is there.
template <typename CodeFunction>
void replaceFirst(std::string& text, const std::string& placeholder, CodeFunction code) {
  const std::string::size_type position = text.find(placeholder);
  if (position != std::string::npos)
    text.replace(position, placeholder.size(), code());
}

}  // namespace

UrlGenerator::UrlGenerator() {
  initialize();
}

void UrlGenerator::initialize() {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "UrlGenerator::initialize() ");
  baseUrl_.clear();
  Settings().getStringValue(SettingsKeys::kUpdaterSection, SettingsKeys::kWebServerUrl, baseUrl_,
                            0);
  replaceFirst(baseUrl_, kLanguageCodePlaceholder, &TandemUtilities::getLanguageCode);
  replaceFirst(baseUrl_, kCountryCodePlaceholder, &TandemUtilities::getCountryCode);
  replaceFirst(baseUrl_, kOsCodePlaceholder, &TandemUtilities::getOsCode);
  trace.detail([&] { return " WebServerBase URL = '" + baseUrl_ + "'"; });
}

std::string UrlGenerator::generateUrl(uint32_t function) {
  FunctionTrace trace = FunctionTrace::open(
      kLogUpdater, "UrlGenerator::generateUrl(" + std::to_string(function) + ") ");
  // The setting that holds each function's package code, in the order of the functions.
  static const char* const kPackageCodeSettings[] = {
      SettingsKeys::kTandemCatalogVersionPackageCode,
      SettingsKeys::kTandemOrreryVersionPackageCode,
      SettingsKeys::kTandemCatalogDownloadPackageCode,
      SettingsKeys::kTandemOrreryDownloadPackageCode,
  };
  std::string packageCode;
  if (function <= ORRERY_DOWNLOAD)
    Settings().getStringValue(SettingsKeys::kUpdaterSection, kPackageCodeSettings[function],
                              packageCode, 0);
  else
    trace.detail(" INVALID UrlFunction passed into the function!!");

  std::string url = baseUrl_;
  if (!packageCode.empty())
    replaceFirst(url, kPackageCodePlaceholder, [&packageCode] { return packageCode; });
  trace.setRc(url);
  return url;
}
