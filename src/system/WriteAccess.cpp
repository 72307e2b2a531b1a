#include "system/WriteAccess.h"

#include <aclapi.h>
#include <sddl.h>

#include "system/UniqueHandle.h"

namespace {

const char kTrustedInstaller[] = "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
const ACCESS_MASK kGenericWrite = GENERIC_ALL | GENERIC_WRITE;

std::string sidText(PSID sid) {
  ScopedLocal text;
  char* raw = nullptr;
  if (!ConvertSidToStringSidA(sid, &raw))
    return "unknown";
  text.reset(raw);
  return raw;
}

bool isTrusted(PSID sid, PSID runningAccount) {
  if (IsWellKnownSid(sid, WinLocalSystemSid) || IsWellKnownSid(sid, WinBuiltinAdministratorsSid) ||
      (runningAccount != nullptr && EqualSid(sid, runningAccount)))
    return true;
  ScopedLocal trustedInstaller;
  PSID installer = nullptr;
  if (!ConvertStringSidToSidA(kTrustedInstaller, &installer))
    return false;
  trustedInstaller.reset(installer);
  return EqualSid(sid, installer) != FALSE;
}

// The rights of an entry's mask among `writeRights`, its generic write rights spelled out.
ACCESS_MASK writeRightsOf(ACCESS_MASK mask, ACCESS_MASK writeRights) {
  return (mask & writeRights) | ((mask & kGenericWrite) != 0 ? writeRights : 0);
}

}  // namespace

std::string WriteAccess::whoElseCanWrite(PSECURITY_DESCRIPTOR descriptor,
                                         PSID runningAccount,
                                         ACCESS_MASK writeRights) {
  PSID owner = nullptr;
  PACL dacl = nullptr;
  BOOL defaulted = FALSE, present = FALSE;
  if (descriptor == nullptr || !IsValidSecurityDescriptor(descriptor) ||
      !GetSecurityDescriptorOwner(descriptor, &owner, &defaulted) || owner == nullptr ||
      !GetSecurityDescriptorDacl(descriptor, &present, &dacl, &defaulted))
    return "unknown";
  if (!isTrusted(owner, runningAccount))
    return sidText(owner);
  if (!present || dacl == nullptr)
    return "S-1-1-0";
  // What the deny entries read so far took away: from one account, or from Everyone.
  std::vector<std::pair<PSID, ACCESS_MASK>> denied;
  for (DWORD index = 0; index < dacl->AceCount; ++index) {
    void* entry = nullptr;
    if (!GetAce(dacl, index, &entry))
      return "unknown";
    const ACE_HEADER* header = static_cast<const ACE_HEADER*>(entry);
    if ((header->AceFlags & INHERIT_ONLY_ACE) != 0)
      continue;
    switch (header->AceType) {
      case ACCESS_DENIED_ACE_TYPE: {
        ACCESS_DENIED_ACE* deny = static_cast<ACCESS_DENIED_ACE*>(entry);
        denied.emplace_back(&deny->SidStart, writeRightsOf(deny->Mask, writeRights));
        break;
      }
      // A conditional (callback) grant is read as if its condition held.
      case ACCESS_ALLOWED_ACE_TYPE:
      case ACCESS_ALLOWED_CALLBACK_ACE_TYPE: {
        ACCESS_ALLOWED_ACE* allow = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        PSID sid = &allow->SidStart;
        ACCESS_MASK granted = writeRightsOf(allow->Mask, writeRights);
        for (const auto& [deniedSid, rights] : denied) {
          if (EqualSid(deniedSid, sid) || IsWellKnownSid(deniedSid, WinWorldSid))
            granted &= ~rights;
        }
        // An "OWNER RIGHTS" entry applies to the owner, who is trusted by now.
        if (granted != 0 && !isTrusted(sid, runningAccount) &&
            !IsWellKnownSid(sid, WinCreatorOwnerRightsSid))
          return sidText(sid);
        break;
      }
      case ACCESS_ALLOWED_OBJECT_ACE_TYPE:
      case ACCESS_ALLOWED_CALLBACK_OBJECT_ACE_TYPE:
      case ACCESS_ALLOWED_COMPOUND_ACE_TYPE:
        return "unknown";  // A grant whose account this rule does not read.
      default:
        break;  // Other denials (conditional, object) are not counted on: they only take away.
    }
  }
  return std::string();
}

std::vector<BYTE> WriteAccess::processAccount() {
  ScopedHandle token;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.receive()))
    return std::vector<BYTE>();
  DWORD size = 0;
  GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
  std::vector<BYTE> user(size);
  if (size == 0 || !GetTokenInformation(token.get(), TokenUser, user.data(), size, &size))
    return std::vector<BYTE>();
  const PSID sid = reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid;
  const DWORD length = GetLengthSid(sid);
  const BYTE* bytes = static_cast<const BYTE*>(sid);
  return std::vector<BYTE>(bytes, bytes + length);
}

std::string WriteAccess::whoElseCanChangeFile(HANDLE handle) {
  ScopedLocal descriptor;
  std::vector<BYTE> account = processAccount();
  if (account.empty() ||
      GetSecurityInfo(handle, SE_FILE_OBJECT,
                      OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, nullptr, nullptr,
                      nullptr, nullptr, descriptor.receive()) != ERROR_SUCCESS)
    return "unknown";
  return whoElseCanWrite(descriptor.get(), account.data(), kFileRights);
}
