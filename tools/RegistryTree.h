#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "system/UniqueHandle.h"

// Whole key trees below HKEY_LOCAL_MACHINE, made, deleted and copied without ever following a
// registry link (settings/RegistryLink): what the settings tool and the installer's custom
// actions, which run as SYSTEM or as an administrator, do to a store that users may have been able
// to write. Windows API only (the custom-action DLL compiles it too); nothing throws; every
// function returns the registry's status. Safe on any thread, not across processes that change the
// same tree at once.
namespace RegistryTree {

// Deletes the open key `key` (which needs KEY_ALL_ACCESS) and everything below it; a link, `key`
// itself or one below, is deleted as the link, its target untouched.
LONG deleteTree(HKEY key);
// The same for `path` below HKEY_LOCAL_MACHINE, opened one key at a time (a link on the way:
// RegistryLink::kStoppedOnLink, nothing deleted). A missing key is no failure.
LONG deleteTree(const std::string& path);

// Opens `path` below HKEY_LOCAL_MACHINE with KEY_ALL_ACCESS, making the keys that are missing
// (with `security`, null for the default), one key at a time: a key on the way, or `path` itself,
// that is a link fails with RegistryLink::kStoppedOnLink. `created` says whether the last key was
// made by this call.
LONG createPath(const std::string& path,
                SECURITY_ATTRIBUTES* security,
                ScopedKey& key,
                bool& created);

// Copies the values and subkeys of `source` (KEY_READ) into `destination` (KEY_ALL_ACCESS), which
// must not have those subkeys yet: each key is made anew (ERROR_ALREADY_EXISTS when one was
// there). Links, and values of type REG_LINK, are not copied: each link is named in `skipped`, by
// its path below `source`. Security is not copied: each key made gets the DACL of `security`, or
// without it (null) what `destination` passes down.
LONG copyTree(HKEY source,
              HKEY destination,
              PSECURITY_DESCRIPTOR security,
              std::vector<std::string>& skipped);

}  // namespace RegistryTree
