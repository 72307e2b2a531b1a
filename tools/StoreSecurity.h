#pragma once

#include <string>
#include <vector>

// The security of the program's store (a key below HKEY_LOCAL_MACHINE, no trailing backslash) and
// of the keys below it, as the settings tool's /lock and /unlock set it and the installer's
// StoreBackup puts it back. The store's key "Records" keeps its own: the program makes it
// administrators-only whatever the store's (settings/RunRecord), and a run trusts its records only
// while it stays so.
//
// A store that was open to users may hold what they put there: registry links, which would lead
// whoever opens them by name to a key elsewhere, and keys of their own. So every key is opened as
// itself, one below the other from HKEY_LOCAL_MACHINE (settings/RegistryLink), and a link is never
// followed: a link in the store is deleted as the link, its target untouched, and a link on the
// store's own path fails the operation. Each key's security is set through its own handle, with no
// propagation to the keys below (which are set one by one).
//
// Windows API only (the installer's custom-action DLL compiles it too); nothing throws.
namespace StoreSecurity {

// What a walk over the store deleted and could not do, one line each.
struct Notes {
  std::vector<std::string> deleted;  // "Deleted HKLM\...: a registry link to \Registry\..."
  std::vector<std::string> failed;   // "HKLM\...: status 5"
};

// Gives `store` and every key below it the owner (when `sddl` names one) and the DACL of the
// security descriptor `sddl` (its protected flag, "D:P", included). The store's "Records" keeps
// its own owner and DACL while it is the program's (owned by SYSTEM or administrators, and no one
// else may change it); otherwise, made or loosened by a user, it is deleted with the records in
// it, which no run trusts, and the next run makes it anew. Links, the store's own key included,
// are deleted. False when a key could not be set or deleted (or the store is gone); the others are
// set all the same.
bool applyToStore(const std::string& store, const std::string& sddl, Notes& notes);
// The same, after making the store's key when it is missing (a link in its place deleted first),
// one key of its path below the other, none of them a link.
bool makeStore(const std::string& store, const std::string& sddl, Notes& notes);
// Gives the one key `path` (not a link, and none on its path) owner and DACL as above.
bool applyToKey(const std::string& path, const std::string& sddl);

// The key's owner (with `owner`) and DACL as SDDL, read from the key itself (a link's own); ""
// when the key cannot be read.
std::string describe(const std::string& path, bool owner);

// "" when the store is locked: it exists, no key on its path and none in it is a link, and only
// SYSTEM, administrators and this process's own account can change each key of it
// (WriteAccess::kKeyRights on its owner and DACL; "Records" passes with its own). Otherwise why
// not, naming the first key that fails ("HKLM\...\Evil is a registry link",
// "HKLM\...\Updater: S-1-5-11 can change it").
std::string whyNotLocked(const std::string& store);
inline bool isLocked(const std::string& store) {
  return whyNotLocked(store).empty();
}

}  // namespace StoreSecurity
