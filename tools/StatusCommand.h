#pragma once

#include <string>
#include <vector>

// The settings tool's commands for the program's run status and its events:
//   cvupsettings /status [/maxage DAYS]
//       prints the status of the program's last run (updater/RunStatus) as "Name: value" lines,
//       then the settings that fleet policy can set as "Name (source): value" lines (source:
//       policy, store or default) and the policy values that are ignored, one a line;
//       exits 0 when LastSuccess is at most DAYS days old (default 7), 1 when it is older or there
//       is none, 2 on wrong arguments: a detection or compliance rule is this one command.
//   cvupsettings /register-events
//       registers the event source "Orrery Updater" with the program beside the tool
//       (cvupdater.exe) as its message file, as the MSI does; 0, or 1 when it could not.
// /remove deletes the registration with the rest (SettingsTool).
namespace StatusCommand {

// Whether `arguments` ask for one of these commands.
bool isAskedFor(const std::vector<std::string>& arguments);
// Runs it; the exit code.
int run(const std::vector<std::string>& arguments);

}  // namespace StatusCommand
