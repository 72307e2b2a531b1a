#include "system/Localize.h"

#include <atomic>
#include <cstring>

#include "system/CriticalSection.h"
#include "system/CriticalSectionLock.h"
#include "system/ProductFamily.h"
#include "system/Win32Exception.h"

namespace {

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
  localId = localIdOf(buffer);
  return true;
}

std::string Localize::getLocalId() const {
  return localId_;
}

bool Localize::findProductFamilyPath(std::string& path) const {
  // Callers use the unknown family's path too.
  return ::findProductFamilyPath(localId_, path);
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
    if (family.laser == 1 && matchesFamily(localId_, family))
      return true;
  }
  return false;
}
