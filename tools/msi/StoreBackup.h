#pragma once

#include <string>
#include <vector>

// The program's store (a key below HKEY_LOCAL_MACHINE) as it was before an install, kept so that
// a failed install can put it back: values, subkeys and the store's DACL (given back to every key
// below it but the records key, which gets its own owner and DACL back: StoreSecurity), or the
// fact that it did not exist (and which of its parent keys did not either). The copy is a key of
// its own below HKEY_LOCAL_MACHINE, `backup`; it records whether the store existed only once the
// copy is complete, so that a save that failed midway is never restored. The backup key is made
// with a DACL of its own before anything is copied into it, so that only SYSTEM and
// administrators can read it (its parent lets users read). No registry link is followed: a link in
// the store is not copied, and every key is deleted and made as itself (tools/RegistryTree). Not
// safe across processes that save or restore the same store at once. Every operation returns
// false with `error` saying why.
class StoreBackup {
 public:
  StoreBackup(std::string store, std::string backup)
      : store_(std::move(store)), backup_(std::move(backup)) {}

  // Replaces any earlier backup with the store as it is now; each link in the store, which is not
  // kept, is named in `skipped` by its path below the store.
  bool save(std::string& error, std::vector<std::string>& skipped) const;
  // Puts the store back as saved (deleting it, and the parent keys it created, when it did not
  // exist), then discards the backup. Without a complete backup it changes nothing.
  bool restore(std::string& error) const;
  // Deletes the backup; true also when there was none.
  bool discard(std::string& error) const;

 private:
  std::string store_;
  std::string backup_;
};
