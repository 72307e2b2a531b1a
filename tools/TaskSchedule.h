#pragma once

#include <string>

#include "TaskKind.h"

// The scheduled task of the program "<folder>cvupdater.exe" (the program beside the settings
// tool), registered and removed through the system's schtasks.exe under the name kTaskName
// (TaskKind.h, with the deletion of the task). Each operation returns false with `error` saying
// why.
namespace TaskSchedule {

// Registers the task of the shipped definition "orrery-updater-<kind>.xml" in `folder` (kind
// kSystem or kUsers), its Command set to the program in `folder`, as the UTF-16 XML schtasks
// needs (kept as kRegistered in `folder`). An existing task of that name is replaced.
bool registerTask(const std::string& folder, Kind kind, std::string& error);

// Disables the task and ends its running update, then waits until no process of the program's
// local id (`localId`, the first four characters of its name) runs, at most `waitMs`; then
// deletes the task. When one still runs after the wait, the task is enabled again and kept, and
// the result is false.
bool removeTask(const std::string& localId, unsigned long waitMs, std::string& error);

}  // namespace TaskSchedule
