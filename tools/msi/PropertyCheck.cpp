#include "PropertyCheck.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <cwctype>
#include <vector>

#include "TaskKind.h"
#include "WideText.h"
#include "system/UniqueHandle.h"
#include "system/WriteAccess.h"

namespace {

const wchar_t* const kTextProperties[] = {L"INSTALLDIR", L"SETTINGSFILE", L"WEBSERVERURL",
                                          L"DRIVERNAME", L"DLLPATH",      L"DATAPATH"};

// Whether `text` converts to the ANSI code page and back unchanged (no '?', no best fit).
bool inCodePage(const std::wstring& text) {
  if (text.empty())
    return true;
  BOOL defaulted = FALSE;
  const int size =
      WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, text.c_str(), static_cast<int>(text.size()),
                          nullptr, 0, nullptr, &defaulted);
  return size > 0 && !defaulted;
}

// Whether `text` holds a character that would end the settings tool's option, or its line: a
// double quote, a control character, and with `path` a '|' (which separates the parts of the
// install's data).
bool breaksTheCommandLine(const std::wstring& text, bool path) {
  for (const wchar_t c : text) {
    if (c == L'"' || c < L' ' || c == 0x7F || (path && c == L'|'))
      return true;
  }
  return false;
}

bool hasDrive(const std::wstring& path) {
  return path.size() > 2 && std::iswalpha(static_cast<wint_t>(path[0])) && path[1] == L':' &&
         path[2] == L'\\';
}

bool isAbsolute(const std::wstring& path) {
  return hasDrive(path) || path.compare(0, 2, L"\\\\") == 0;
}

bool isReadableFile(const std::wstring& path) {
  return ScopedHandle(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr))
      .valid();
}

// The full path as Windows resolves it (".", ".." and repeated backslashes gone), without a
// trailing backslash; "" when it cannot be resolved.
std::wstring resolved(const std::wstring& path) {
  const DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
  std::wstring full(size, L'\0');
  const DWORD length = size == 0 ? 0 : GetFullPathNameW(path.c_str(), size, &full[0], nullptr);
  full.resize(length < size ? length : 0);
  while (!full.empty() && full.back() == L'\\')
    full.pop_back();
  return full;
}

bool isPublisherHash(const std::wstring& text) {
  return text.size() == 64 &&
         text.find_first_not_of(L"0123456789ABCDEFabcdef") == std::wstring::npos;
}

// Why the list of TRUSTEDPUBLISHERS (hashes separated by ';', blanks around each allowed) is no
// list; "" when it is one.
std::wstring whyNoPublisherList(const std::wstring& list) {
  size_t hashes = 0;
  for (size_t start = 0; start <= list.size();) {
    size_t end = list.find(L';', start);
    if (end == std::wstring::npos)
      end = list.size();
    const std::wstring item = list.substr(start, end - start);
    const size_t first = item.find_first_not_of(L' ');
    if (first != std::wstring::npos) {
      const std::wstring hash = item.substr(first, item.find_last_not_of(L' ') - first + 1);
      if (!isPublisherHash(hash))
        return L"'" + hash +
               L"' is not the SHA-256 hash of a public key (64 hexadecimal characters); "
               L"cvupsettings /publisher FILE prints a signed file's";
      ++hashes;
    }
    start = end + 1;
  }
  return hashes == 0 ? L"it names no hash" : std::wstring();
}

// Whether `folder` lies below `root` (not `root` itself), both drive-letter paths.
bool isBelow(const std::wstring& folder, const std::wstring& root) {
  if (!hasDrive(folder) || !hasDrive(root))
    return false;
  const std::wstring inner = resolved(folder), outer = resolved(root);
  return !outer.empty() && inner.size() > outer.size() + 1 && inner[outer.size()] == L'\\' &&
         CompareStringOrdinal(inner.c_str(), static_cast<int>(outer.size()), outer.c_str(),
                              static_cast<int>(outer.size()), TRUE) == CSTR_EQUAL;
}

// The folder that holds `path` ("" for a drive's root).
std::wstring parentOf(const std::wstring& path) {
  const std::wstring::size_type slash = path.rfind(L'\\');
  return slash == std::wstring::npos || slash < 3 ? std::wstring() : path.substr(0, slash);
}

}  // namespace

std::string PropertyCheck::folderSecurity(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES)
    return std::string();
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
    return kLinkFolder;
  // The folder itself, never where a reparse point put in its place meanwhile leads.
  const ScopedHandle folder(CreateFileW(
      path.c_str(), READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  const SECURITY_INFORMATION what = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
  ScopedLocal descriptor, text;
  char* sddl = nullptr;
  if (!folder.valid() ||
      GetSecurityInfo(folder.get(), SE_FILE_OBJECT, what, nullptr, nullptr, nullptr, nullptr,
                      descriptor.receive()) != ERROR_SUCCESS ||
      !ConvertSecurityDescriptorToStringSecurityDescriptorA(descriptor.get(), SDDL_REVISION_1, what,
                                                            &sddl, nullptr))
    return "unknown";
  text.reset(sddl);
  return sddl;
}

std::wstring PropertyCheck::untrustedFolder(const std::wstring& folder,
                                            const std::wstring& programFiles) const {
  std::vector<BYTE> account = WriteAccess::processAccount();
  const std::wstring top = resolved(programFiles);
  for (std::wstring path = resolved(folder); !path.empty(); path = parentOf(path)) {
    const std::string security = folder_(path);
    if (security == kLinkFolder)
      return path + L" is a junction or a link";
    ScopedLocal descriptor;
    if (!security.empty()) {
      const std::string who =
          ConvertStringSecurityDescriptorToSecurityDescriptorA(security.c_str(), SDDL_REVISION_1,
                                                               descriptor.receive(), nullptr)
              ? WriteAccess::whoElseCanWrite(descriptor.get(),
                                             account.empty() ? nullptr : account.data())
              : "unknown";
      if (!who.empty())
        return widen(who) + L" can change " + path;
    }
    if (CompareStringOrdinal(path.c_str(), -1, top.c_str(), -1, TRUE) == CSTR_EQUAL)
      break;
  }
  return std::wstring();
}

bool PropertyCheck::isFirstInstall() const {
  return property_(L"Installed").empty() && property_(L"WIX_UPGRADE_DETECTED").empty();
}

std::wstring PropertyCheck::schedule() const {
  const std::wstring given = property_(L"SCHEDULE");
  TaskSchedule::Kind kind = TaskSchedule::Kind::kSystem;
  if (!given.empty() && !TaskSchedule::parseKind(narrow(given), kind))
    return std::wstring();  // Refused.
  // An upgrade or a second install registers the task that the tool installed again, so that it
  // runs with this version's definition; no task, and one made by other means, stay as they are.
  if (given.empty() && !isFirstInstall()) {
    const std::wstring folder = resolved(property_(L"INSTALLDIR"));
    kind = folder.empty() ? TaskSchedule::Kind::kNone
                          : TaskSchedule::installedKind(narrow(folder) + "\\");
    if (kind == TaskSchedule::Kind::kNone)
      return std::wstring();
  }
  return widen(TaskSchedule::kindName(kind));
}

std::wstring PropertyCheck::lockStore() const {
  const std::wstring given = property_(L"LOCKSTORE");
  return !given.empty() || !isFirstInstall() ? given : L"1";
}

std::wstring PropertyCheck::refusal() const {
  const auto refused = [](const wchar_t* name, const std::wstring& value, const std::wstring& why) {
    return std::wstring(name) + L"=" + value + L" is refused: " + why;
  };
  for (const wchar_t* name : kTextProperties) {
    const std::wstring value = property_(name);
    if (!inCodePage(value))
      return refused(name, value,
                     L"it has characters outside the system's code page, which the settings "
                     L"tool and the updater cannot keep");
    const bool path = name == kTextProperties[0] || name == kTextProperties[1];
    if (breaksTheCommandLine(value, path))
      return refused(name, value,
                     path ? L"it holds a double quote, a '|' or a control character, which would "
                            L"end the settings tool's option and start another"
                          : L"it holds a double quote or a control character, which would end the "
                            L"settings tool's option and start another");
  }
  const std::wstring folder = property_(L"INSTALLDIR");
  const std::wstring programFiles = property_(L"ProgramFiles64Folder");
  if (!isBelow(folder, programFiles))
    return refused(L"INSTALLDIR", folder,
                   L"give a folder below " + programFiles +
                       L" (ProgramFiles64Folder), where only administrators can change the "
                       L"programs that run as SYSTEM");
  const std::wstring untrusted = untrustedFolder(folder, programFiles);
  if (!untrusted.empty())
    return refused(L"INSTALLDIR", folder,
                   untrusted +
                       L", and whoever can change a folder on the way can replace the programs "
                       L"that run as SYSTEM; give a folder that only administrators can change");

  const std::wstring givenSchedule = property_(L"SCHEDULE"), lock = lockStore();
  TaskSchedule::Kind kind = TaskSchedule::Kind::kNone;
  if (!givenSchedule.empty() && !TaskSchedule::parseKind(narrow(givenSchedule), kind))
    return refused(L"SCHEDULE", givenSchedule, L"give system, users or none");
  if (!lock.empty() && lock != L"0" && lock != L"1")
    return refused(L"LOCKSTORE", lock, L"give 1 (locked) or 0 (open to users)");
  // The task once the install is done, and whom it runs as, against the store's lock: the task
  // given is named, or else the lock given, against the default task or the one that stays.
  const bool first = isFirstInstall();
  if (givenSchedule.empty())
    kind = first ? TaskSchedule::Kind::kSystem
                 : TaskSchedule::registeredKind(narrow(resolved(folder)) + "\\");
  // Refused by the property given: SCHEDULE when it is, else LOCKSTORE.
  const auto mismatch = [&](const std::wstring& whyTask, const std::wstring& whyLock) {
    return !givenSchedule.empty() ? refused(L"SCHEDULE", givenSchedule, whyTask)
                                  : refused(L"LOCKSTORE", lock, whyLock);
  };
  if (kind == TaskSchedule::Kind::kUsers && lock == L"1")
    return mismatch(
        L"with LOCKSTORE=1 a run as the logged-on user cannot open the locked store; "
        L"give LOCKSTORE=0 or SCHEDULE=system",
        L"the installed task of the logged-on users (SCHEDULE=users), which stays, "
        L"cannot open a locked store; give SCHEDULE=system or SCHEDULE=none with it");
  if (kind == TaskSchedule::Kind::kSystem && lock == L"0")
    return mismatch(
        L"with LOCKSTORE=0 the SYSTEM task would run from a store that every user can "
        L"change; give LOCKSTORE=1 or SCHEDULE=users",
        std::wstring(first ? L"the default task, SCHEDULE=system,"
                           : L"the installed SYSTEM task (SCHEDULE=system), which "
                             L"stays,") +
            L" would run from a store that every user can change; give "
            L"SCHEDULE=users or SCHEDULE=none with it");

  // The updater takes no list from a store that users can change: refused, not ignored later.
  const std::wstring publishers = property_(L"TRUSTEDPUBLISHERS");
  if (!publishers.empty()) {
    const std::wstring why = whyNoPublisherList(publishers);
    if (!why.empty())
      return refused(L"TRUSTEDPUBLISHERS", publishers, why);
    if (lock == L"0")
      return refused(L"TRUSTEDPUBLISHERS", publishers,
                     L"with LOCKSTORE=0 the updater ignores a list in a store that users can "
                     L"change; give LOCKSTORE=1, or set the list by policy");
  }

  const std::wstring file = property_(L"SETTINGSFILE");
  if (!file.empty() && !isAbsolute(file))
    return refused(L"SETTINGSFILE", file, L"give the file's absolute path (C:\\...)");
  if (!file.empty() && !isReadableFile(file))
    return refused(L"SETTINGSFILE", file, L"the file cannot be read");
  return std::wstring();
}
