#pragma once

#include <windows.h>

#include <string>

#include "system/UniqueHandle.h"

class TrustedPublishers;

// Whether an update run may load the vendor's library from where it found it, before it loads it.
//
// An elevated run (CurrentProcess::isElevated(): an elevated token, or SYSTEM) loads it only from
// a folder, and only a file, that no one but SYSTEM, the administrators, TrustedInstaller and the
// account it runs as can own or change (system/WriteAccess on their security descriptors): a
// library that users can replace would run their code with the run's rights. With trusted
// publishers in force (settings/TrustedPublishers), a library that carries an embedded signature
// is loaded only when that signature is good (system/FileSignature) and its signer is listed; one
// without an embedded signature (signed through a catalog, or not at all) is judged by its folder
// alone. A run that is not elevated and has no list checks nothing.
//
// The object holds the library open (reading shared, writing and deleting denied) and its folder
// (its deletion and renaming denied) from the check until it goes, so that the file checked is
// the one the loader maps: keep it until LoadLibrary has returned. A library that is not there is
// no refusal: LoadLibrary reports it as before. Nothing throws; nothing is logged.
class LibraryCheck {
 public:
  LibraryCheck(const std::string& directory,
               const std::string& path,
               bool elevated,
               const TrustedPublishers& publishers);
  LibraryCheck(const LibraryCheck&) = delete;
  LibraryCheck& operator=(const LibraryCheck&) = delete;

  // Why the library must not be loaded, one line ("its folder can be changed by S-1-5-32-545");
  // empty when it may be.
  const std::string& refusal() const { return refusal_; }
  // For a library loaded under a list: who signed it ("'CN=...', key ..."), or "not signed" when
  // it carries no embedded signature; empty without a list.
  const std::string& signer() const { return signer_; }

  // The rule for the folder or the file whose security descriptor (owner and DACL) is
  // `descriptor`, for a process that runs as `account`: "" when only SYSTEM, the administrators,
  // TrustedInstaller and `account` can own or change it, else who else can, as a SID ("unknown"
  // when it cannot be read).
  static std::string whoElseCanChange(PSECURITY_DESCRIPTOR descriptor, PSID account);

 private:
  std::string folderAndFileRefusal(const std::string& directory);
  void checkSignature(const std::string& path, const TrustedPublishers& publishers);

  ScopedHandle folder_;
  ScopedHandle file_;
  std::string refusal_;
  std::string signer_;
};
