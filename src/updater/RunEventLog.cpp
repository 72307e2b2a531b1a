#include "updater/RunEventLog.h"

namespace {

const char kSourceKey[] = "SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\";
const DWORD kTypesSupported =
    EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE;

}  // namespace

const char RunEventLog::kSourceName[] = "Orrery Updater";

RunEventLog::RunEventLog() : source_(RegisterEventSourceA(nullptr, kSourceName)) {}

bool RunEventLog::report(const RunVerdict& verdict,
                         const std::string& softwareVersion,
                         const std::string& catalogVersion) {
  if (!source_.valid())
    return false;
  std::string detail = verdict.detail.empty() ? verdict.applied : verdict.detail;
  if (!verdict.notes.empty())
    detail += (detail.empty() ? "" : "; ") + verdict.notes;
  const char* strings[] = {outcomeWord(verdict.outcome), softwareVersion.c_str(),
                           catalogVersion.c_str(), detail.c_str()};
  return ReportEventA(source_.get(), outcomeEventType(verdict.outcome), 0,
                      outcomeEventId(verdict.outcome), nullptr, 4, 0, strings, nullptr) != FALSE;
}

bool RunEventLog::registerSource(const std::string& messageFile) {
  const std::string path = std::string(kSourceKey) + kSourceName;
  ScopedKey key;
  LONG status = RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_SET_VALUE,
                                nullptr, key.receive(), nullptr);
  if (status == ERROR_SUCCESS)
    status = RegSetValueExA(key.get(), "EventMessageFile", 0, REG_EXPAND_SZ,
                            reinterpret_cast<const BYTE*>(messageFile.c_str()),
                            static_cast<DWORD>(messageFile.size() + 1));
  if (status == ERROR_SUCCESS)
    status =
        RegSetValueExA(key.get(), "TypesSupported", 0, REG_DWORD,
                       reinterpret_cast<const BYTE*>(&kTypesSupported), sizeof kTypesSupported);
  SetLastError(static_cast<DWORD>(status));
  return status == ERROR_SUCCESS;
}

bool RunEventLog::unregisterSource() {
  const std::string path = std::string(kSourceKey) + kSourceName;
  const LONG status = RegDeleteKeyA(HKEY_LOCAL_MACHINE, path.c_str());
  SetLastError(static_cast<DWORD>(status));
  return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND;
}
