#pragma once

#include <memory>
#include <string>

#include "system/Mutex.h"

// One update run at a time on the machine: the SYSTEM task, users' runs at logon (several on a
// terminal server) and a run started by hand may all start at once, and only one of them may check,
// download, pause the printers and apply.
//
// The lock is the machine-wide named mutex "Global\" + local id + "UpdateRun"
// (createMachineMutex(): the records' DACL, the plain name where the system has no
// Global\ namespace), held from before the recovery of an earlier run's records and the update
// check until the run ends. A run that finds it held by a live run stands aside: it ends at once
// and does nothing else. A mutex abandoned by a run that died counts as free: the run that takes it
// recovers what the dead one left (its records). A mutex that cannot be made at all is logged and
// the run goes on unguarded, as a run of a program without the lock would.
//
// The relaunch hands the run over: the parent releases the lock (handOver()) just before it starts
// the "-UAC" child, and does nothing more that needs it; the child, started with "-UAC", waits up
// to 3 s for the lock, so that another run that only holds it for its own check and relaunch does
// not make it stand aside. A third run that takes the lock between the parent and the child does
// the update itself; the child then finds the lock held past its wait and ends quietly.
//
// Owns the mutex's handle; the destructor releases the lock. Not thread-safe: one per process.
class RunLock {
 public:
  RunLock();
  ~RunLock();
  RunLock(const RunLock&) = delete;
  RunLock& operator=(const RunLock&) = delete;

  // Takes the lock, without waiting or (`relaunched`, a "-UAC" child) for at most 3 s; false when
  // another live run holds it. Failures to make the mutex are logged and return true.
  bool take(bool relaunched);
  // Releases the lock for the relaunched child; does nothing when it is not held.
  void handOver();

  // The mutex's name in the global namespace.
  static std::string mutexName();

 private:
  std::unique_ptr<Mutex> mutex_;
  bool held_ = false;
};
