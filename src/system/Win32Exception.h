#pragma once

#include "system/Exception.h"

// The exception thrown for every failed system call (and, with code 0 or 1, for the few failures
// that have no system code). Its code text joins "Win32(", the code and the system's own message,
// with no closing parenthesis: that is the established log format.
class Win32Exception : public Exception {
 public:
  Win32Exception(std::string message, uint32_t code, std::string sourceFile, uint32_t line);

  std::string getCodeText() const override;
};

// The system's text for an error code (English, US), flattened to one line; on failure
// "Error getting message:" followed by FormatMessageA's own error code.
std::string getSystemMessage(uint32_t code);
