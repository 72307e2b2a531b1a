#include "webupdate/TandemUtilities.h"

#include <windows.h>

#include <cstdio>

#include "logging/FunctionTrace.h"
#include "system/CurrentProcess.h"
#include "system/OsVersion.h"

namespace {

struct LanguageEntry {
  uint16_t langId;
  uint16_t number;
};

// LANGID (decimal) to the service's language number. Every regional identifier is listed one by
// one; neighbours that are not listed give 0.
const LanguageEntry kLanguages[] = {
    {1025, 47},
    {1026, 40},
    {1027, 39},
    {1028, 14},
    {1029, 15},
    {1030, 5},
    {1031, 2},
    {1032, 16},
    {1033, 0},
    {1034, 4},
    {1035, 9},
    {1036, 1},
    {1037, 46},
    {1038, 17},
    {1039, 18},
    {1040, 3},
    {1041, 12},
    {1042, 19},
    {1043, 7},
    {1044, 6},
    {1045, 20},
    {1046, 21},
    {1048, 32},
    {1049, 22},
    {1050, 38},
    {1051, 23},
    {1052, 43},
    {1053, 8},
    {1054, 27},
    {1055, 24},
    {1057, 35},
    {1058, 26},
    {1059, 41},
    {1060, 29},
    {1061, 37},
    {1062, 34},
    {1063, 33},
    {1066, 25},
    {1069, 42},
    {1071, 48},
    {1078, 44},
    {1080, 36},
    {1086, 49},
    {2052, 13},
    {2064, 3},
    {2066, 19},
    {2067, 7},
    {2068, 45},
    {2070, 10},
    {2074, 30},
    {2077, 8},
    {3076, 14},
    {3082, 28},
    {3098, 31},
    {4100, 13},
    {5124, 14},
    // Arabic, every region.
    {2049, 47},
    {3073, 47},
    {4097, 47},
    {5121, 47},
    {6145, 47},
    {7169, 47},
    {8193, 47},
    {9217, 47},
    {10241, 47},
    {11265, 47},
    {12289, 47},
    {13313, 47},
    {14337, 47},
    {15361, 47},
    {16385, 47},
    // Spanish regions (modern sort, 3082, gives 28 above, unlike every other Spanish one).
    {2058, 4},
    {4106, 4},
    {5130, 4},
    {6154, 4},
    {7178, 4},
    {8202, 4},
    {9226, 4},
    {10250, 4},
    {11274, 4},
    {12298, 4},
    {13322, 4},
    {14346, 4},
    {15370, 4},
    {16394, 4},
    {17418, 4},
    {18442, 4},
    {19466, 4},
    {20490, 4},
    // German regions.
    {2055, 2},
    {3079, 2},
    {4103, 2},
    {5127, 2},
    // French regions (Monaco, 6156, is not among them).
    {2060, 1},
    {3084, 1},
    {4108, 1},
    {5132, 1},
};

}  // namespace

uint32_t TandemUtilities::languageNumber(uint16_t langId) {
  for (const LanguageEntry& entry : kLanguages) {
    if (entry.langId == langId)
      return entry.number;
  }
  return 0;
}

std::string TandemUtilities::getCountryCode() {
  FunctionTrace trace = FunctionTrace::open(kLogRulesEng, "TandemUtilities::getCountryCode()");
  char buffer[10] = {};
  // Eight digits always fit.
  static_cast<void>(
      snprintf(buffer, sizeof(buffer), "%.8X", static_cast<unsigned>(GetSystemDefaultLangID())));
  std::string code = buffer;
  trace.setRc(code);
  return code;
}

std::string TandemUtilities::getLanguageCode() {
  FunctionTrace trace = FunctionTrace::open(kLogRulesEng, "TandemUtilities::getLanguageCode()");
  std::string code = std::to_string(languageNumber(GetUserDefaultLangID()));
  trace.setRc(code);
  return code;
}

std::string TandemUtilities::getOsCode() {
  FunctionTrace trace = FunctionTrace::open(kLogRulesEng, "TandemUtilities::getOsCode()");
  std::string code = "3";
  const char* code64 = nullptr;  // The code of the 64-bit edition, and the line that says so.
  const char* note64 = nullptr;
  switch (OsVersion::getInstance().getWindowsVersion()) {
    case OsVersion::kWindowsXp:
      code = "5";
      break;
    case OsVersion::kWindows2003:
      code = "5";
      code64 = "9";
      note64 = "is 64 bit XP";
      break;
    case OsVersion::kWindowsVista:
      code = "10";
      code64 = "11";
      note64 = "is 64 bit Vista";
      break;
    default:
      break;
  }
  // isWow64() is asked first; is64BitProcess() is always true, so a 64-bit code always applies.
  if (code64 != nullptr &&
      (OsVersion::getInstance().isWow64() || CurrentProcess::getInstance()->is64BitProcess())) {
    trace.detail(note64);
    code = code64;
  }
  trace.setRc(code);
  return code;
}
