#pragma once

#include <windows.h>

#include <string>

// Text between the narrow code pages the tools work in and the UTF-16 that Windows Installer and
// schtasks take. Header only: the settings tool and the installer's custom-action DLL share it.

// `text` read in `codePage` (the system's ANSI code page unless given); "" when it cannot be.
inline std::wstring widen(const std::string& text, UINT codePage = CP_ACP) {
  if (text.empty())
    return std::wstring();
  std::wstring result(text.size(), L'\0');
  const int length = MultiByteToWideChar(codePage, 0, text.data(), static_cast<int>(text.size()),
                                         &result[0], static_cast<int>(result.size()));
  result.resize(static_cast<size_t>(length > 0 ? length : 0));
  return result;
}

// `text` in the system's ANSI code page, '?' for what it cannot hold.
inline std::string narrow(const std::wstring& text) {
  if (text.empty())
    return std::string();
  const int size = WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()),
                                       nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<size_t>(size > 0 ? size : 0), '\0');
  if (size > 0)
    WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), &result[0], size,
                        nullptr, nullptr);
  return result;
}
