#pragma once

#include <cstdint>
#include <string>

// Request kinds of generateUrl().
enum UrlFunction : uint32_t {
  CATALOG_VERSION = 0,
  ORRERY_VERSION = 1,
  CATALOG_DOWNLOAD = 2,
  ORRERY_DOWNLOAD = 3,
};

// Builds the request URLs from the "WebServerUrl" template. The language, country and OS codes
// are filled in once at construction (first occurrence of each placeholder only); the package
// code of the request kind is filled in per request. Nothing here fails: missing settings leave
// their placeholders or parts empty.
class UrlGenerator {
 public:
  static const std::string kLanguageCodePlaceholder;
  static const std::string kCountryCodePlaceholder;
  static const std::string kOsCodePlaceholder;
  static const std::string kPackageCodePlaceholder;

  UrlGenerator();

  void initialize();
  std::string generateUrl(uint32_t function);

 private:
  std::string baseUrl_;
};
