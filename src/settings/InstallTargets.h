#pragma once

#include <cstdint>
#include <string>

class FunctionTrace;

// Where an update run puts what it installs, as the store says: the catalog's folder, and the
// outcome flags in "Settings\Updater" that other components of the product read. Each call reads
// or writes the store afresh; nothing throws.
namespace InstallTargets {

// The all-users application-data folder + "DriverName" ("Settings\") + "DataUpdatesDirectoryName"
// ("Settings\Updater", created as "Job Status" when missing); empty when the application-data
// folder is unknown.
std::string dataUpdatesDirectory();

// Makes `directory` with every missing parent when it does not exist, saying so through `trace`
// ("Attempting to create dir : ...", and "SHCreateDirectory() failed. ErrorCode=..." on failure);
// the shell's code, ERROR_SUCCESS when the folder exists now. ERROR_CANT_ACCESS_FILE, with a line,
// when a folder on its way is a link (hasLinkOnTheWay()), before or after it is made.
int makeDirectory(const std::string& directory, FunctionTrace& trace);

// Sets the DWORD flag `name` in "Settings\Updater" to `value` unless it holds 2 (a flag that
// another component set to 2 is never overwritten); an absent flag is created as 0 first.
void setUpdaterFlag(const std::string& name, uint32_t value);

}  // namespace InstallTargets
