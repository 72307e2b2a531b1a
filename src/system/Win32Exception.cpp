#include "system/Win32Exception.h"

#include <windows.h>

#include <utility>

Win32Exception::Win32Exception(std::string message,
                               uint32_t code,
                               std::string sourceFile,
                               uint32_t line)
    : Exception(std::move(message), code, std::move(sourceFile), line) {}

std::string Win32Exception::getCodeText() const {
  if (getCode() == 0)
    return std::string();
  return "Win32(" + std::to_string(static_cast<int32_t>(getCode())) + getSystemMessage(getCode());
}

std::string getSystemMessage(uint32_t code) {
  char buffer[256] = {};
  const DWORD length =
      FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                     MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), buffer, sizeof(buffer), nullptr);
  if (length == 0) {
    const DWORD error = GetLastError();
    return "Error getting message:" + std::to_string(error);
  }
  std::string text;
  for (const char* p = buffer; *p != '\0'; ++p) {
    if (*p != '\r' && *p != '\n')
      text += *p;
  }
  return text;
}
