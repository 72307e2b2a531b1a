#pragma once

#include <memory>
#include <string>

#include "system/Mutex.h"

// The machine-wide mutexes that the program's runs share across sessions (the update run's lock
// and the records of what a run has to undo): the named Mutex "Global\" + local id + `name`, in the
// namespace every session of the machine shares. Its DACL lets SYSTEM and administrators do
// anything with it and authenticated users wait on it and release it, so that a user's run and
// the SYSTEM task see the same mutex; the creator's DACL stays for as long as the mutex exists.
//
// There is no other name to fall back to: any name a run could use, a user could make first. So
// a mutex that cannot be made or opened (a name made first with a DACL that keeps this process
// out, an object of another kind under the name, a system without the namespace) throws
// Win32Exception, and the callers fail closed: they pause and apply nothing. The mutex is returned
// not held.
std::unique_ptr<Mutex> createMachineMutex(const std::string& name);

// The mutex's name: "Global\" + local id + `name`.
std::string machineMutexName(const std::string& name);
