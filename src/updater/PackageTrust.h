#pragma once

#include <windows.h>

#include <list>
#include <string>
#include <vector>

#include "settings/TrustedPublishers.h"
#include "system/UniqueHandle.h"

class DownloadRecord;
class FunctionTrace;

// The check that a downloaded package was signed by a trusted publisher, made after the downloads
// and before anything is paused for it. It does something only while trusted publishers are in
// force (settings/TrustedPublishers); without a list no package is copied, held or checked.
//
// admit() copies the library's download into a folder of the program's own,
// <all users' application data>\<local id>Verified\software (or \catalog), which only SYSTEM and
// the administrators can change: it is made with a protected DACL of its own, and refused when it
// exists with an owner or a writer outside that rule (system/WriteAccess), or as a link. The copy
// is a new file, so that it does not keep the download folder's DACL; its path is noted in the
// DownloadRecord before it is made, so that a run killed at any point leaves nothing unnoted. The
// copy is then opened with reading shared and writing and deleting denied (a sharing violation is
// a refusal), and its signature verified on that handle (system/FileSignature); the signer's key
// must be in the list. The handle, and the folders', are held until release(), once the library's
// applies have returned, so the library is given the bytes that were verified.
//
// A refused package is deleted (the download and its copy) at once, and the always-written log
// says why, with its signer's subject and key hash. Not thread-safe; one object per run.
class PackageTrust {
 public:
  // Reads the trusted publishers in force; what of the store's list is ignored goes to the
  // always-written log. `downloads` notes the copies, and must outlive this object.
  explicit PackageTrust(DownloadRecord& downloads);
  PackageTrust(const PackageTrust&) = delete;
  PackageTrust& operator=(const PackageTrust&) = delete;

  // Whether a list is in force.
  bool isActive() const { return !publishers_.empty(); }

  // Admits the package the library downloaded to `path` (the software package, or the catalog
  // data's): "" when it is signed by a trusted publisher, and `path` then names its verified copy,
  // the file to give the library; otherwise why not, one line with its signer ("its signer is not
  // a trusted publisher; signer 'CN=...', key ..."), and `path` is emptied.
  std::string admit(bool software, std::string& path);
  // Lets go of the copies and their folders: call once the library's applies have returned.
  void release();
  // The downloads whose copies were admitted, deleted as the clean-up deletes the copies, or kept
  // and handed over with them ("DoNotDeleteDownloadedFiles"), each with a detail line through
  // `trace`.
  void cleanUpDownloads(FunctionTrace& trace);

  // <all users' application data>\<local id>Verified, no trailing backslash; empty when the
  // application-data folder is unknown.
  static std::string folderPath();

 private:
  // A package admitted: the library's download, its copy, and the copy held open.
  struct Admitted {
    std::string download;
    std::string copy;
    ScopedHandle held;
  };

  // Makes `copy` from `download` in the verified folder of `kind`, holds it and checks its
  // signature; "" or why not. `copy` is set once the copy is noted.
  std::string copyAndVerify(const char* kind,
                            const std::string& download,
                            std::string& copy,
                            ScopedHandle& held,
                            std::string& signer);
  // Makes the folder `path` when it is missing and holds it; "" or why it cannot be used.
  std::string holdFolder(const std::string& path);

  DownloadRecord& downloads_;
  TrustedPublishers publishers_;
  std::vector<ScopedHandle> folders_;
  std::list<Admitted> admitted_;
};
