#pragma once

#include <windows.h>

#include <msi.h>
#include <msiquery.h>

#include <string>

// One call of a custom action: the installer's session handle (owned by Windows Installer, which
// closes it), its properties and its log. Not safe across threads. Nothing here throws.
class InstallerSession {
 public:
  explicit InstallerSession(MSIHANDLE install) : install_(install) {}
  InstallerSession(const InstallerSession&) = delete;
  InstallerSession& operator=(const InstallerSession&) = delete;

  // The property's value as Windows Installer holds it (Unicode); "" when it is not set or cannot
  // be read. A deferred action reads its data as "CustomActionData".
  std::wstring property(const wchar_t* name) const;
  // Sets the property; false when the installer refused.
  bool setProperty(const wchar_t* name, const std::wstring& value) const;
  // Writes `line` into the msiexec log as it stands (brackets are not formatted).
  void log(const std::wstring& line) const;
  // Reports `reason` as an error: logged, and shown to a user where the installer has a UI.
  void fail(const std::wstring& reason) const;

 private:
  void message(INSTALLMESSAGE type, const std::wstring& text) const;

  MSIHANDLE install_;
};
