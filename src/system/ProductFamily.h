#pragma once

#include <cstdint>
#include <cstring>
#include <string>

// The product families, and how a module's file name selects one: the one table that Localize
// (the program, its tools) and the installer's custom-action DLL, which computes the store's key
// without the rest of the program, both read. Constant data and pure functions only.
struct ProductFamily {
  const char* prefix;
  const char* registryKey;  // Spelled as in the registry, "InkJet" and "Inkjet" alike.
  uint32_t laser;
  const char* vendor;
};

// Scanned in row order; rows sharing a prefix resolve to the first one for paths.
inline constexpr ProductFamily kProductFamilyTable[16] = {
    {"cv", "CorvaneInkjet", 0, "Corvane"},
    {"hk", "HalvikInkJet", 0, "Halvik"},
    {"hx", "HalvikLaser", 1, "Halvik"},
    {"pd", "PardoInkJet", 0, "Pardo"},
    {"ts", "TessinInkjet", 0, "Tessin"},
    {"mw", "MorrowInkJet", 0, "Morrow"},
    {"bz", "OpalInkJet", 0, "Brisa"},
    {"cl", "CorvaneLaser", 1, "Corvane"},
    {"kk", "KetterLaser", 1, "Ketter"},
    {"gn", "QvsLaser", 1, "Generic"},
    {"gn", "QvsScanner", 1, "Generic"},
    {"kk", "KetterScanner", 1, "Ketter"},
    {"rw", "RWInkjet", 0, ""},
    {"vd", "VandelInkjet", 0, "Vandel"},
    {"nn", "N-NetInkjet", 0, "N-Net"},
    {"yb", "OemInkjet", 0, ""},
};

inline constexpr char kUnknownFamilyPath[] = "Software\\Corvane Tools";

// Whether the family row's prefix matches the local id's first two characters, in any case.
inline bool matchesFamily(const std::string& localId, const ProductFamily& family) {
  return localId.size() >= 2 && _strnicmp(localId.c_str(), family.prefix, 2) == 0;
}

// The local id of a module's path: the first four characters after its last backslash, with the
// letters A-Z lower-cased.
inline std::string localIdOf(const std::string& modulePath) {
  std::string name = modulePath.substr(modulePath.rfind('\\') + 1, 4);
  for (char& c : name) {
    if (c >= 'A' && c <= 'Z')
      c = static_cast<char>(c - 'A' + 'a');
  }
  return name;
}

// "Software\" + the family key of the first row that matches `localId`; kUnknownFamilyPath, and
// false, when none does.
inline bool findProductFamilyPath(const std::string& localId, std::string& path) {
  for (const ProductFamily& family : kProductFamilyTable) {
    if (matchesFamily(localId, family)) {
      path = std::string("Software\\") + family.registryKey;
      return true;
    }
  }
  path = kUnknownFamilyPath;
  return false;
}

// The store of the program or tool whose local id is `localId`, below HKEY_LOCAL_MACHINE, without
// a trailing backslash: "Software\<family>\QNV\Local\<local id>".
inline std::string localStorePath(const std::string& localId) {
  std::string family;
  findProductFamilyPath(localId, family);
  return family + "\\QNV\\Local\\" + localId;
}
