#include "system/Exception.h"

#include <utility>

Exception::Exception(std::string message, uint32_t code, std::string sourceFile, uint32_t line)
    : message_(std::move(message)), code_(code), sourceFile_(std::move(sourceFile)), line_(line) {}

Exception::~Exception() = default;

std::string Exception::getCodeText() const {
  if (code_ == 0)
    return std::string();
  return std::to_string(static_cast<int32_t>(code_));
}

uint32_t Exception::getCode() const {
  return code_;
}

std::string Exception::getMessage() const {
  return message_;
}

std::string Exception::toString() const {
  std::string text;
  if (!sourceFile_.empty())
    text = "file:" + sourceFile_ + ":" + std::to_string(line_) + ": ";
  text += getMessage();
  const std::string codeText = getCodeText();
  if (!codeText.empty())
    text += ": " + codeText;
  return text;
}
