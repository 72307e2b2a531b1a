#pragma once

#include <cstdint>
#include <string>

// The log's switch names: "startLog", the header fields, and the component masks, which take the
// components' names.
namespace LogSwitchNames {
inline constexpr char kStartLog[] = "startLog";
inline constexpr char kClocktimeInHeader[] = "Clocktime_In_Header";
inline constexpr char kProcIdInHeader[] = "Proc_Id_In_Header";
inline constexpr char kThreadIdInHeader[] = "Thread_Id_In_Header";
}  // namespace LogSwitchNames

// Where the program's log finds its switches: the settings store's "Logger" section, read by the
// store's side (SettingsLogSwitches) and handed to the Logger at start-up, so that the log writer
// knows nothing of the store. Implementations must not trace.
class LogSwitches {
 public:
  virtual ~LogSwitches() = default;

  // Whether the store that holds the switches exists; nothing is traced without it.
  virtual bool exist() const = 0;
  // The switch `name`, written back with `defaultValue` when it is missing.
  virtual uint32_t read(const std::string& name, uint32_t defaultValue) const = 0;
};
