#pragma once

#include <string>

// The daily task's kinds, in one vocabulary: the settings tool's "/schedule system|users|none", the
// installer package's SCHEDULE property (checked and defaulted by its custom-action DLL, which
// compiles this file too) and the definition the tool keeps of the task it registered. Windows API
// and the standard library only; nothing throws.
namespace TaskSchedule {

enum class Kind { kNone, kSystem, kUsers };

// The definition last registered, kept in the program's folder as schtasks read it (UTF-16).
inline constexpr char kRegistered[] = "orrery-updater-task.xml";

// "system", "users" or "none", in any case; false for any other word.
bool parseKind(const std::string& word, Kind& kind);
// The kind's word, in lower case.
const char* kindName(Kind kind);

// The kind of the task registered from `folder` (with its trailing backslash), from the definition
// kept there: kSystem when its principal is SYSTEM (S-1-5-18), kUsers for any other, kNone when
// none is kept.
Kind registeredKind(const std::string& folder);

}  // namespace TaskSchedule
