#pragma once

#include <string>

#include "PrivateFolder.h"

// The deployer's settings file (SETTINGSFILE), read as it was checked: opened once, with nobody
// else allowed to write it meanwhile; refused unless only SYSTEM, administrators, TrustedInstaller
// and this process's own account can change it (WriteAccess, on the owner and DACL read through
// that handle, so that a link or a file swapped in before the open is judged as what is read);
// read through the same handle; and written to a copy of the same name in `folder`, which the
// settings tool installs instead, so that it never opens the deployer's path. A file on a share
// is judged by its own DACL: the share's permissions cannot be read from here.
//
// Returns "" with `copy` the copy's path, or why the file is refused, naming SETTINGSFILE.
std::wstring copySettingsFile(const std::wstring& path,
                              const PrivateFolder& folder,
                              std::wstring& copy);
