#include "system/Security.h"

#include "system/OsVersion.h"

Security::Security() : supported_(OsVersion::getInstance().isNt()) {
  attributes_.nLength = sizeof(SECURITY_ATTRIBUTES);
  attributes_.lpSecurityDescriptor = nullptr;
  attributes_.bInheritHandle = TRUE;
}

Security::~Security() = default;

SECURITY_ATTRIBUTES* Security::getSecurityAttributes() {
  return &attributes_;
}
