#pragma once

#include <string>
#include <vector>

// The publishers whose packages an update run applies, and from whom it loads the vendor's
// library when that library is signed: SHA-256 hashes of their signing certificates' public keys
// (the DER SubjectPublicKeyInfo), several at once so that a vendor can rotate its certificate.
//
// The list in force is the union of three lists:
// - the program's own, built in (the build option UPDATER_TRUSTED_PUBLISHERS, builtInList());
// - the policy value TrustedPublishers (settings/Policy: hashes separated by ';');
// - the store's "Settings\Updater" value TrustedPublishers (REG_MULTI_SZ, one hash a string),
//   only while the store's key and that section's key can be changed by no one but SYSTEM, the
//   administrators, TrustedInstaller and the account this process runs as (system/WriteAccess):
//   a user who can write an open store could otherwise delete the list.
// An empty list in force means that no publisher is pinned: runs verify nothing.
//
// Reads only: nothing is created, and nothing is logged; problems() says what was left out.
// Needs Localize. Nothing throws.
class TrustedPublishers {
 public:
  // Reads the three lists now; `builtIn` is the program's own, hashes separated by ';'.
  explicit TrustedPublishers(const std::string& builtIn = builtInList());

  bool empty() const { return hashes_.empty(); }
  // Whether `keyHash` (in either case) is in the list.
  bool contains(const std::string& keyHash) const;
  // The list in force, each hash once, in lower case: the built-in ones, the policy's, the
  // store's.
  const std::vector<std::string>& hashes() const { return hashes_; }
  // One line for each part of the store's list that is not used: the whole list while its key is
  // open to others ("the store's TrustedPublishers is ignored: its key can be changed by
  // S-1-1-0"), or an entry that is no hash. Empty when nothing was left out.
  const std::vector<std::string>& problems() const { return problems_; }

  // The program's own list, as the build made it (hashes separated by ';'); defined in the source
  // that the build generates from UPDATER_TRUSTED_PUBLISHERS.
  static std::string builtInList();

 private:
  void add(const std::string& hash);
  void readStore();

  std::vector<std::string> hashes_;
  std::vector<std::string> problems_;
};
