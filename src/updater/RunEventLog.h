#pragma once

#include <windows.h>

#include <string>

#include "system/UniqueHandle.h"
#include "updater/RunOutcome.h"

struct DeregisterEventSourceHandle {
  bool operator()(HANDLE source) const { return DeregisterEventSource(source) != FALSE; }
};

// The event that ends an update run, in the Application log under the source "Orrery Updater":
// the outcome's event id and type (updater/RunOutcome), and four strings: the outcome's word, the
// installed software and catalog versions, and the detail (what was applied, for a success),
// followed by the verdict's notes. The
// texts come from the message table compiled into cvupdater.exe, which the source's registration
// names as its "EventMessageFile".
//
// Owns the event-source handle from construction to destruction. Nothing throws: a source that
// cannot be opened or an event that cannot be written makes report() false.
class RunEventLog {
 public:
  static const char kSourceName[];

  RunEventLog();
  RunEventLog(const RunEventLog&) = delete;
  RunEventLog& operator=(const RunEventLog&) = delete;

  bool report(const RunVerdict& verdict,
              const std::string& softwareVersion,
              const std::string& catalogVersion);

  // Registers the source in HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application with
  // `messageFile` (the program's full path) as "EventMessageFile" and the three types as
  // "TypesSupported"; false with the registry's code in GetLastError() when it fails.
  static bool registerSource(const std::string& messageFile);
  // Deletes the registration; a missing one is no error.
  static bool unregisterSource();

 private:
  UniqueHandle<HANDLE, DeregisterEventSourceHandle> source_;
};
