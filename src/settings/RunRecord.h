#pragma once

#include <list>
#include <memory>
#include <string>

#include "system/Mutex.h"

// A note that an update run keeps while it has something to undo (printers it paused, packages it
// downloaded), so that a later run can undo it when this one ends first: killed, powered off, or
// stuck in the vendor library.
//
// The note is the REG_MULTI_SZ value `name` in the store's key "Records", flushed to disk with
// every write. The first write makes that key with a DACL that lets only SYSTEM and administrators
// write it (users may read), and every write and read checks that it is still so: the key's owner
// is SYSTEM or the administrators, and no other account is allowed a right to change it. A key
// that fails the check (made by a user beforehand, or loosened since) takes no write, and its note
// is read as untrusted. Earlier releases kept the note under "Settings\Updater", which users may
// write: a note found there is read as untrusted too, and release() deletes it with the other.
// Its owner holds the machine-wide named mutex "Global\" + local id + `name` (createMachineMutex(),
// a DACL that lets SYSTEM, administrators and users open it), from before the first write until it
// deletes the note. A later run that finds the mutex free or abandoned knows the owner is gone.
//
// Failures are logged at the always-written level, led by `owner` (the class that keeps the note),
// and reported as false; nothing throws. Not thread-safe: one object per run and note.
class RunRecord {
 public:
  RunRecord(std::string name, std::string owner);
  // Releases the mutex without deleting a note that is still written: it was not undone, and a
  // later run finds it.
  ~RunRecord();
  RunRecord(const RunRecord&) = delete;
  RunRecord& operator=(const RunRecord&) = delete;

  // Takes the mutex, waiting a moment (10 s) for a run that is recovering the note; false
  // (logged) when it cannot be had: another process still holds it after the wait, or it cannot
  // be made at all (made first by someone else). Either way the caller must not go on
  // unrecorded: it abandons its installation, as the line logged says, and failure() says why.
  bool hold();
  bool isHeld() const { return held_; }
  // Why hold() failed, one line led by the owner ("PauseRecord: the mutex '...' is held by
  // another process"); empty otherwise.
  const std::string& failure() const { return failure_; }
  // Replaces the note with `items`, which must not be empty; needs hold(). False (logged) when it
  // could not be written, or its key is not trusted.
  bool write(const std::list<std::string>& items);
  // Deletes the note (in both places) and releases the mutex; does nothing when it is not held.
  // An untrusted records key left empty is deleted, so that the next write makes it anew.
  void release();

  // The note as it is now; empty when there is none or it cannot be read. With `untrusted`, the
  // items of an untrusted note (above) go there instead of into the result.
  std::list<std::string> read(std::list<std::string>* untrusted = nullptr) const;
  // Takes over the note of an owner that is gone (the mutex free or abandoned, asked without
  // waiting): true when this object now holds it, false while its owner lives.
  bool takeOver();

  // The mutex's name in the global namespace.
  std::string mutexName() const;

  // How long hold() waits, for every object of this process; 0 restores the 10 s. A seam, so
  // that tests can present a mutex held past the wait without waiting that long.
  static void setHoldWait(unsigned long waitMs);

 private:
  // Makes the mutex and takes it, waiting `waitMs` (0: asking without waiting); false when it is
  // held elsewhere, or cannot be made (`error` then says why).
  bool acquire(unsigned long waitMs, std::string& error);
  // Deletes the note's value in the key `path`, and with `dropUntrustedKey` the key too when it
  // is then empty and not trusted.
  void deleteValue(const std::string& path, bool dropUntrustedKey) const;
  void logFailure(const std::string& text) const;

  std::string name_;
  std::string owner_;
  std::unique_ptr<Mutex> mutex_;
  bool held_ = false;
  std::string failure_;
};
