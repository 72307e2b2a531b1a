#pragma once

#include <windows.h>

#include <string>
#include <vector>

// Who besides the machine's administrators can change a file, a folder or a registry key: the rule
// that an object must pass before a process that runs as SYSTEM or as an administrator trusts what
// it holds (a settings file it installs, a folder it loads a library from).
//
// The rule reads a security descriptor alone, as GetSecurityInfo gives it with
// OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, and needs nothing but the Windows API,
// so that the installer's custom-action DLL compiles it as well. Nothing is kept between calls;
// nothing throws; safe on any thread.
namespace WriteAccess {

// The rights that change a file or a folder: its data (a folder's new files and subfolders), its
// extended attributes and attributes, a folder's children, its deletion, its DACL and its owner.
inline constexpr ACCESS_MASK kFileRights = FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_EA |
                                           FILE_DELETE_CHILD | FILE_WRITE_ATTRIBUTES | DELETE |
                                           WRITE_DAC | WRITE_OWNER;
// The rights that change a registry key: its values, subkeys and links, its deletion, its DACL and
// its owner.
inline constexpr ACCESS_MASK kKeyRights =
    KEY_SET_VALUE | KEY_CREATE_SUB_KEY | KEY_CREATE_LINK | DELETE | WRITE_DAC | WRITE_OWNER;

// "" when only SYSTEM, the Administrators group, TrustedInstaller and `runningAccount` can change
// the object that `descriptor` describes; otherwise the first other account that can, as a SID
// string ("S-1-5-11"), or "unknown" when the descriptor cannot be read (it has no owner, or an
// entry of a kind this rule does not read grants something).
//
// The owner must be one of those accounts (an owner may always rewrite the DACL). The DACL's
// entries are read as Windows reads them, in order: an entry that applies only to children
// (inherit-only) is skipped; an allow entry counts when it grants one of `writeRights` (GENERIC_ALL
// and GENERIC_WRITE grant all of them) that no earlier deny entry for the same account or for
// Everyone took away. A missing (null) DACL lets Everyone ("S-1-1-0") change the object. A deny
// entry for another account is not assumed to cover this one: the rule errs towards "can write".
std::string whoElseCanWrite(PSECURITY_DESCRIPTOR descriptor,
                            PSID runningAccount,
                            ACCESS_MASK writeRights = kFileRights);

// The SID of the account this process runs as (its token's user, not a thread's impersonation),
// as bytes to hand on as a PSID; empty when the token cannot be read.
std::vector<BYTE> processAccount();

// whoElseCanWrite() of the file or folder open as `handle` (with READ_CONTROL), for this process's
// account; "unknown" when its security or the account cannot be read.
std::string whoElseCanChangeFile(HANDLE handle);

}  // namespace WriteAccess
