#pragma once

#include <string>

// The security of the program's store (a key below HKEY_LOCAL_MACHINE, no trailing backslash) and
// of the keys below it, as the settings tool's /lock and /unlock set it and the installer's
// StoreBackup puts it back. The store's key "Records" keeps its own: the program makes it
// administrators-only whatever the store's (settings/RunRecord), and a run trusts its records only
// while it stays so. Windows API only (the installer's custom-action DLL compiles it too); nothing
// throws.
namespace StoreSecurity {

// Gives `store` and every key below it, except the store's "Records", the owner (when `sddl` names
// one) and the DACL of the security descriptor `sddl`: a DACL marked protected ("D:P") cuts what
// the keys inherit from above, an unprotected one takes it. False when a key could not be set; the
// others are set all the same.
bool applyToStore(const std::string& store, const std::string& sddl);
// The same for the one key `path` alone.
bool applyToKey(const std::string& path, const std::string& sddl);

// The key's owner (with `owner`) and DACL as SDDL; "" when the key cannot be read.
std::string describe(const std::string& path, bool owner);

// Whether only SYSTEM, administrators and this process's own account can change the store's key
// itself (WriteAccess::kKeyRights); false when there is no store.
bool isLocked(const std::string& store);

}  // namespace StoreSecurity
