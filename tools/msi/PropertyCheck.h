#pragma once

#include <functional>
#include <string>

// The deployer's properties, checked before the install writes anything, and the defaults of a
// first install (one where neither Installed nor WIX_UPGRADE_DETECTED is set). A property not
// given (empty) is not checked; every one given must be valid:
//   INSTALLDIR    a folder below ProgramFiles64Folder (whose permissions let only administrators
//                 change what is in it), compared as Windows resolves paths: in any case, with
//                 ".", ".." and a trailing backslash resolved; the folder itself, a short (8.3)
//                 name or a \\?\ path is refused. Every folder of it that exists, and every one
//                 above it up to ProgramFiles64Folder, must pass the WriteAccess rule (only
//                 SYSTEM, administrators, TrustedInstaller and the installing account can change
//                 it) and be no junction or link: a folder on the way that users can change
//                 (another vendor's "Corvane" with Users: Modify) lets them replace the programs
//   SCHEDULE      system, users or none, in any case (TaskSchedule's words); unless given, system
//                 on a first install, and on an upgrade or a second install the kind that the
//                 settings tool registered from INSTALLDIR (registered again with this version's
//                 definition); none then (SCHEDULE=none, or a task made by other means) leaves
//                 the task as it is
//   LOCKSTORE     0 or 1; on a first install 1 unless given. SCHEDULE=users with LOCKSTORE=1 is
//                 refused (a user's run cannot open a locked store), and so is a SYSTEM task with
//                 LOCKSTORE=0 (every user could change what it runs): the task given, the first
//                 install's default, or on an upgrade or a second install the one registered from
//                 INSTALLDIR that stays
//   SETTINGSFILE  an absolute path (C:\... or \\server\...) of a file this process can read
//   TRUSTEDPUBLISHERS  SHA-256 hashes of publishers' public keys (64 hexadecimal characters each)
//                 separated by ';', at least one; refused with LOCKSTORE=0 given, since the
//                 updater ignores a list in a store that users can change
//   every text property the settings tool or the task receives (INSTALLDIR, SETTINGSFILE,
//   WEBSERVERURL, DRIVERNAME, DLLPATH, DATAPATH) holds only characters of the system's ANSI code
//   page, which the tool and the program work in, and no double quote or control character (which
//   would end the tool's option on its command line and start another); INSTALLDIR and
//   SETTINGSFILE hold no '|' either (which separates the parts of the install's data)
class PropertyCheck {
 public:
  // `property` reads one property by name: "" when it is not given.
  using Reader = std::function<std::wstring(const wchar_t*)>;
  // The owner and DACL of the folder `path` as SDDL (as GetSecurityInfo gives them); "" when there
  // is no such folder, kLinkFolder when it is a junction or a link (a reparse point), "unknown"
  // when it cannot be read.
  using FolderSecurity = std::function<std::string(const std::wstring& path)>;
  static constexpr char kLinkFolder[] = "link";

  // The folders' security as Windows gives it.
  static std::string folderSecurity(const std::wstring& path);

  explicit PropertyCheck(Reader property, FolderSecurity folder = folderSecurity)
      : property_(std::move(property)), folder_(std::move(folder)) {}

  // "" when every property given is valid; otherwise why the first invalid one is refused, naming
  // it and its value ("SCHEDULE=bogus is refused: ...").
  std::wstring refusal() const;
  // SCHEDULE as the install applies it, in lower case, as the package's conditions compare it:
  // the one given, a first install's default, or on an upgrade or a second install the kind the
  // settings tool installed; "" when the task stays as it is.
  std::wstring schedule() const;
  // LOCKSTORE as the install applies it: the one given or a first install's default; "" when the
  // store's lock stays as it is.
  std::wstring lockStore() const;

 private:
  bool isFirstInstall() const;
  // Why the folders from `folder` up to `programFiles` (both resolved) cannot be trusted; "" when
  // they can.
  std::wstring untrustedFolder(const std::wstring& folder, const std::wstring& programFiles) const;

  Reader property_;
  FolderSecurity folder_;
};
