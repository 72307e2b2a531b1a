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
  const char* setting = nullptr;
  switch (function) {
    case CATALOG_VERSION:
      setting = SettingsKeys::kTandemCatalogVersionPackageCode;
      break;
    case ORRERY_VERSION:
      setting = SettingsKeys::kTandemOrreryVersionPackageCode;
      break;
    case CATALOG_DOWNLOAD:
      setting = SettingsKeys::kTandemCatalogDownloadPackageCode;
      break;
    case ORRERY_DOWNLOAD:
      setting = SettingsKeys::kTandemOrreryDownloadPackageCode;
      break;
    default:
      trace.detail(" INVALID UrlFunction passed into the function!!");
      break;
  }
  std::string packageCode;
  if (setting != nullptr)
    Settings().getStringValue(SettingsKeys::kUpdaterSection, setting, packageCode, 0);

  std::string url = baseUrl_;
  if (!packageCode.empty())
    replaceFirst(url, kPackageCodePlaceholder, [&packageCode] { return packageCode; });
  trace.setRc(url);
  return url;
}
