#pragma once

#include <string>

// The daily task's kinds, in one vocabulary: the settings tool's "/schedule system|users|none", the
// installer package's SCHEDULE property (checked and defaulted by its custom-action DLL, which
// compiles this file too) and the definition of the task registered. Windows API and the standard
// library only; nothing throws.
namespace TaskSchedule {

enum class Kind { kNone, kSystem, kUsers };

// The task's name in Task Scheduler.
inline constexpr char kTaskName[] = "Corvane\\Orrery Updater";
// The definition last registered, kept in the program's folder as schtasks read it (UTF-16).
inline constexpr char kRegistered[] = "orrery-updater-task.xml";

// "system", "users" or "none", in any case; false for any other word.
bool parseKind(const std::string& word, Kind& kind);
// The kind's word, in lower case.
const char* kindName(Kind kind);

// The kind of a task from its definition, the XML text that Task Scheduler takes and gives out.
// kSystem when it runs with an administrator's rights or more: a principal's UserId or GroupId is
// SYSTEM (S-1-5-18, "SYSTEM", "NT AUTHORITY\SYSTEM", "LocalSystem"), LOCAL SERVICE or NETWORK
// SERVICE (which can reach SYSTEM's rights) or Administrators (S-1-5-32-544), as a SID or a name
// that this machine resolves to one, in any case; or its RunLevel is HighestAvailable. kUsers when
// its principals do none of this; kNone when it names no principal.
Kind kindOfDefinition(const std::wstring& xml);

// The kind of the task registered now: kSystem when either of two sources says so, else kUsers
// when either does, else kNone. The sources: the definition that the settings tool kept in
// `folder` (with its trailing backslash) when it registered the task, and Task Scheduler's own
// definition of the task registered under kTaskName (schtasks /Query /XML), which is also there
// for a task registered by other means (PowerShell, Group Policy, Intune). Wine's task scheduler
// gives no definition out: there the kept one decides.
Kind registeredKind(const std::string& folder);

// The kind of the task that the settings tool registered last from `folder`, read from the
// definition it kept there: the record of what an install scheduled. kNone when it registered
// none (SCHEDULE=none, /schedule none) or the task was made by other means.
Kind installedKind(const std::string& folder);

// Runs the system's schtasks.exe (from the system folder, never one found by the search path)
// with `arguments`, for at most 60 s (then it is ended). Its exit code, or -1 when it could not
// run or was ended; with `output`, what it wrote to its standard output.
long schtasks(const std::string& arguments, std::string* output = nullptr);

// Deletes the task, leaving an update it runs to end by itself, and the definition kept in
// `folder`. A task that is not there is no failure: nothing is reported.
void unregisterTask(const std::string& folder);

// After a run of the settings tool that failed, and whose store was put back as it was (maybe
// open to users): a SYSTEM task registered now where there was none before (the kind `before`,
// read before the run) was registered by that run, and is deleted (unregisterTask). True when it
// was.
bool dropSystemTaskSince(Kind before, const std::string& folder);

}  // namespace TaskSchedule
