#pragma once

#include <cstdint>
#include <string>

// The country, language and OS codes that the update service selects packages by. Stateless;
// every operation reads the system afresh.
class TandemUtilities {
 public:
  // The system default LANGID as eight upper-case hexadecimal digits ("00000409").
  static std::string getCountryCode();
  // The user default LANGID mapped to the service's language number, in decimal ("0" when the
  // identifier is not known).
  static std::string getLanguageCode();
  // The service's OS code for the Windows version.
  static std::string getOsCode();

  // The mapping behind getLanguageCode(), for a given LANGID.
  static uint32_t languageNumber(uint16_t langId);

  TandemUtilities() = delete;
};
