#include "system/MachineMutex.h"

#include "system/Localize.h"
#include "system/Win32Exception.h"

namespace {

// SYSTEM and administrators may do anything with the mutex; authenticated users may wait on it and
// release it, which is all a run needs.
const char kMachineMutexDacl[] = "D:(A;;0x1f0001;;;SY)(A;;0x1f0001;;;BA)(A;;0x100001;;;AU)";

}  // namespace

std::unique_ptr<Mutex> createMachineMutex(const std::string& name, const std::string& space) {
  const std::string plain = Localize::getInstance()->getLocalId() + name;
  try {
    return std::unique_ptr<Mutex>(new Mutex(space + plain, kMachineMutexDacl));
  } catch (const Win32Exception& e) {
    // A system without the namespace refuses the backslash in the name.
    if (e.getCode() != ERROR_BAD_PATHNAME && e.getCode() != ERROR_PATH_NOT_FOUND)
      throw;
  }
  return std::unique_ptr<Mutex>(new Mutex(plain, kMachineMutexDacl));
}

std::string machineMutexName(const std::string& name) {
  return kGlobalSpace + Localize::getInstance()->getLocalId() + name;
}
