#include "InstallerSession.h"

#include <vector>

std::wstring InstallerSession::property(const wchar_t* name) const {
  DWORD size = 0;
  wchar_t none[1] = {};
  if (MsiGetPropertyW(install_, name, none, &size) != ERROR_MORE_DATA)
    return std::wstring();
  std::vector<wchar_t> value(++size, L'\0');
  if (MsiGetPropertyW(install_, name, value.data(), &size) != ERROR_SUCCESS)
    return std::wstring();
  return std::wstring(value.data(), size);
}

bool InstallerSession::setProperty(const wchar_t* name, const std::wstring& value) const {
  return MsiSetPropertyW(install_, name, value.c_str()) == ERROR_SUCCESS;
}

void InstallerSession::log(const std::wstring& line) const {
  message(INSTALLMESSAGE_INFO, line);
}

void InstallerSession::fail(const std::wstring& reason) const {
  message(INSTALLMESSAGE_ERROR, reason);
}

void InstallerSession::message(INSTALLMESSAGE type, const std::wstring& text) const {
  const MSIHANDLE record = MsiCreateRecord(1);
  if (record == 0)
    return;
  // The text goes into field 1 of the template "[1]", so that brackets in it (a URL's
  // placeholders) are not read as property names.
  MsiRecordSetStringW(record, 0, L"[1]");
  MsiRecordSetStringW(record, 1, text.c_str());
  MsiProcessMessage(install_, type, record);
  MsiCloseHandle(record);
}
