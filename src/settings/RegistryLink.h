#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "system/UniqueHandle.h"

// Registry symbolic links, and opening keys without following them. A process that may create
// subkeys in a key (KEY_CREATE_LINK, which a DACL granting Everyone full control grants) can make
// a subkey a link (REG_OPTION_CREATE_LINK, its target in the REG_LINK value "SymbolicLinkValue"):
// whoever opens that subkey by name then opens the target, with the opener's own rights. So code
// that runs as SYSTEM or as an administrator and walks, deletes, copies or secures a tree that
// others could write opens every key of it through these functions, one key below the other, and
// decides about a link as the link.
//
// Windows API only (the installer's custom-action DLL links it too). Nothing throws; every
// function that can fail returns the registry's status. Safe on any thread.
namespace RegistryLink {

// ERROR_STOPPED_ON_SYMLINK, which MinGW's headers lack: a key on the way to the one asked for is a
// link.
inline constexpr LONG kStoppedOnLink = 681;

// Opens `path` below `root` with `access`; the key that `path` names is opened as itself (a link
// as the link). The keys on the way are resolved as Windows resolves them, system links such as
// CurrentControlSet included.
LONG open(HKEY root, const std::string& path, REGSAM access, ScopedKey& key);

// Opens `path` below `root` one key at a time, each as itself: kStoppedOnLink when a key on the
// way (not the last) is a link. Empty parts of `path` (a trailing backslash) are skipped.
LONG openEach(HKEY root, const std::string& path, REGSAM access, ScopedKey& key);

// Opens the subkey `name` (one name, no backslash) of `parent` as itself.
LONG openChild(HKEY parent, const std::wstring& name, REGSAM access, ScopedKey& key);

// Whether the open key is a link: it holds "SymbolicLinkValue" of type REG_LINK. The handle needs
// KEY_QUERY_VALUE; false when the value cannot be read.
bool isLink(HKEY key);

// The link's target as it is written (an NT path, "\Registry\Machine\..."), in the code page.
std::string target(HKEY key);

// Deletes the key that `key` is (a link as the link), through the handle, which needs DELETE: a
// key swapped for another under its name meanwhile is not touched. Fails with ERROR_ACCESS_DENIED
// when it still has subkeys.
LONG deleteKey(HKEY key);

// The names of the key's subkeys (needs KEY_ENUMERATE_SUB_KEYS), in Unicode, so that a name
// outside the code page is still the key's own; empty when they cannot be read.
std::vector<std::wstring> childNames(HKEY key);

}  // namespace RegistryLink
