#pragma once

#include <memory>
#include <string>

#include "system/Mutex.h"

// One update run at a time on the machine: the SYSTEM task, users' runs at logon (several on a
// terminal server) and a run started by hand may all start at once, and only one of them may check,
// download, pause the printers and apply.
//
// The lock is the machine-wide named mutex "Global\" + local id + "UpdateRun"
// (createMachineMutex(): the records' DACL), held from before the recovery of an earlier run's
// records and the update check until the run ends. take() says which of three things happened:
//   kTaken            this run holds the lock (a mutex abandoned by a run that died counts as
//                     free: the run that takes it recovers what the dead one left);
//   kHeldByAnotherRun a live run holds it: this run stands aside;
//   kUnavailable      the mutex cannot be made or opened at all (a name made first by someone
//                     else with a DACL that keeps this process out, an object of another kind under
//                     the name): this run cannot know whether another one runs, and ends without
//                     checking, pausing or applying (it fails closed).
// failure() then says why, in one line.
//
// The relaunch hands the run over: the parent releases the lock (handOver()) once the "-UAC" child
// has been started, and does nothing more that needs it; the child, started with "-UAC", waits up
// to 3 s for the lock, so that the parent's last steps do not make it stand aside. A third run that
// takes the lock between the parent and the child does the update itself; the child then finds the
// lock held past its wait and ends quietly.
//
// Owns the mutex's handle; the destructor releases the lock. Not thread-safe: one per process.
class RunLock {
 public:
  enum class Taken { kTaken, kHeldByAnotherRun, kUnavailable };

  RunLock();
  ~RunLock();
  RunLock(const RunLock&) = delete;
  RunLock& operator=(const RunLock&) = delete;

  // Takes the lock, without waiting or (`relaunched`, a "-UAC" child) for at most 3 s.
  Taken take(bool relaunched);
  // Why the lock was not taken ("run lock: 'Global\...' is held by another run"); empty after
  // kTaken.
  const std::string& failure() const { return failure_; }
  // Releases the lock for the relaunched child; does nothing when it is not held.
  void handOver();

  // The mutex's name.
  static std::string mutexName();

 private:
  std::unique_ptr<Mutex> mutex_;
  bool held_ = false;
  std::string failure_;
};
