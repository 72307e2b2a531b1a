#include "system/MachineMutex.h"

#include "system/Localize.h"

namespace {

// SYSTEM and administrators may do anything with the mutex; authenticated users may wait on it and
// release it, which is all a run needs.
const char kMachineMutexDacl[] = "D:(A;;0x1f0001;;;SY)(A;;0x1f0001;;;BA)(A;;0x100001;;;AU)";
const char kGlobalSpace[] = "Global\\";

}  // namespace

std::unique_ptr<Mutex> createMachineMutex(const std::string& name) {
  return std::unique_ptr<Mutex>(new Mutex(machineMutexName(name), kMachineMutexDacl));
}

std::string machineMutexName(const std::string& name) {
  return kGlobalSpace + Localize::getInstance()->getLocalId() + name;
}
