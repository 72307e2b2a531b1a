#include "system/Localize.h"

#include <atomic>
#include <cstring>

#include "system/CriticalSection.h"
#include "system/CriticalSectionLock.h"
#include "system/Win32Exception.h"

namespace {

struct ProductFamily {
  const char* prefix;
  const char* registryKey;  // Spelled as in the registry, "InkJet" and "Inkjet" alike.
  uint32_t laser;
  const char* vendor;
};

// Scanned in row order; rows sharing a prefix resolve to the first one for paths.
const ProductFamily kProductFamilyTable[16] = {
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

const char kUnknownFamilyPath[] = "Software\\Corvane Tools";
const char kTemporaryPath[] = "Software\\CorvaneTemp\\temp";

CriticalSection g_localizeSection;
Localize* g_localize = nullptr;
std::atomic<bool> g_localizeCreated{false};

}  // namespace

Localize::Localize(HMODULE module) : module_(module) {
  char buffer[MAX_PATH] = {};
  if (GetModuleFileNameA(module_, buffer, MAX_PATH) == 0)
    throw Win32Exception("Localize::Localize(): GetModuleFileName failed", 0, "Localize", __LINE__);
  modulePath_ = buffer;
  if (!queryLocalId(localId_))
    throw Win32Exception("Localize::Localize(): GetLocalId failed", 0, "Localize", __LINE__);
}

// Double-checked: the first test without the lock, the second under it, where no other thread
// can set the flag meanwhile.
void Localize::createInstance(HMODULE module) {
  if (g_localizeCreated.load(std::memory_order_acquire))
    return;
  CriticalSectionLock lock(g_localizeSection);
  if (g_localizeCreated.load(std::memory_order_relaxed))
    return;
  g_localize = new Localize(module);
  g_localizeCreated.store(true, std::memory_order_release);
}

Localize* Localize::getInstance() {
  if (!g_localizeCreated)
    throw "You must call Localize::createInstance() before calling getInstance()";
  return g_localize;
}

void Localize::destroyInstance() {
  delete g_localize;
  g_localize = nullptr;
  g_localizeCreated = false;
}

bool Localize::queryLocalId(std::string& localId) const {
  char buffer[MAX_PATH] = {};
  if (GetModuleFileNameA(module_, buffer, MAX_PATH) == 0)
    return false;
  for (char* p = buffer; *p != '\0'; ++p) {
    if (*p >= 'A' && *p <= 'Z')
      *p = static_cast<char>(*p - 'A' + 'a');
  }
  const char* slash = strrchr(buffer, '\\');
  const char* name = slash != nullptr ? slash + 1 : buffer;
  localId.assign(name, strnlen(name, 4));
  return true;
}

std::string Localize::getLocalId() const {
  return localId_;
}

bool Localize::findProductFamilyPath(std::string& path) const {
  for (const ProductFamily& family : kProductFamilyTable) {
    if (localId_.size() >= 2 && _strnicmp(localId_.c_str(), family.prefix, 2) == 0) {
      path = std::string("Software\\") + family.registryKey;
      return true;
    }
  }
  // Callers use this path even though no family matched.
  path = kUnknownFamilyPath;
  return false;
}

std::string Localize::getProductFamilyRegistryPath() const {
  std::string path;
  findProductFamilyPath(path);
  return path;
}

std::string Localize::getQnvRegistryPath() const {
  return getProductFamilyRegistryPath() + "\\QNV\\";
}

std::string Localize::getRegistryPath(uint32_t kind) const {
  switch (kind) {
    case kLocalPath:
      return getQnvRegistryPath() + "Local\\" + localId_ + "\\";
    case kSharedPath:
      return getQnvRegistryPath() + "Shared\\";
    default:
      return kTemporaryPath;
  }
}

bool Localize::isLaserProductFamily() const {
  for (const ProductFamily& family : kProductFamilyTable) {
    if (family.laser == 1 && localId_.size() >= 2 &&
        _strnicmp(localId_.c_str(), family.prefix, 2) == 0)
      return true;
  }
  return false;
}
