#pragma once

#include <string>

// The scheduled task of the program "<folder>cvupdater.exe" (the program beside the settings
// tool), registered and removed through the system's schtasks.exe under the name
// "Corvane\Orrery Updater". Each operation returns false with `error` saying why.
namespace TaskSchedule {

// The definition last registered, kept in the program's folder as schtasks read it.
inline constexpr char kRegistered[] = "orrery-updater-task.xml";

// Registers the task of the shipped definition "orrery-updater-<kind>.xml" in `folder` (kind
// "system" or "users"), its Command set to the program in `folder`, as the UTF-16 XML schtasks
// needs (kept as kRegistered in `folder`). An existing task of that name is replaced.
bool registerTask(const std::string& folder, const std::string& kind, std::string& error);

// Deletes the task, leaving an update it runs to end by itself, and the definition kept in
// `folder`. A task that is not there is no failure: nothing is reported.
void unregisterTask(const std::string& folder);

// Ends the task's running update, deletes the task, and waits until no process of the program's
// local id (`localId`, the first four characters of its name) runs, at most `waitMs`.
bool removeTask(const std::string& localId, unsigned long waitMs, std::string& error);

}  // namespace TaskSchedule
