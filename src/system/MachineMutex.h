#pragma once

#include <memory>
#include <string>

#include "system/Mutex.h"

// The machine-wide mutexes that the program's runs share across sessions (the update run's lock
// and the records of what a run has to undo): the named Mutex `space` + local id + `name`, where
// `space` is "Global\" for every session of the machine. Its DACL lets SYSTEM and administrators
// do anything with it and authenticated users wait on it and release it, so that a user's run and
// the SYSTEM task see the same mutex; the creator's DACL stays for as long as the mutex exists.
//
// A system without that namespace refuses the backslash in the name (ERROR_BAD_PATHNAME or
// ERROR_PATH_NOT_FOUND): the plain local id + `name` is used there instead. Every other failure,
// and a failure of the plain name, throws Win32Exception. The mutex is returned not held.
inline constexpr char kGlobalSpace[] = "Global\\";
std::unique_ptr<Mutex> createMachineMutex(const std::string& name,
                                          const std::string& space = kGlobalSpace);

// The name that createMachineMutex() tries first: "Global\" + local id + `name`.
std::string machineMutexName(const std::string& name);
