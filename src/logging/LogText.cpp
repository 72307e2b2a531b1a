#include "logging/LogText.h"

namespace {

std::string toRadix(uint32_t value, int radix) {
  if (radix < 2 || radix > 36)
    radix = 10;
  std::string digits;
  do {
    const uint32_t digit = value % static_cast<uint32_t>(radix);
    digits.insert(digits.begin(), static_cast<char>(digit < 10 ? '0' + digit : 'a' + digit - 10));
    value /= static_cast<uint32_t>(radix);
  } while (value != 0);
  return digits;
}

}  // namespace

LogText::LogText(int32_t value, int radix) {
  if (value < 0)
    text_ = "-" + toRadix(0u - static_cast<uint32_t>(value), radix);
  else
    text_ = toRadix(static_cast<uint32_t>(value), radix);
}

LogText::LogText(uint32_t value, int radix) : text_(toRadix(value, radix)) {}

LogText& LogText::operator+=(const LogText& other) {
  text_ += other.text_;
  return *this;
}

LogText& LogText::operator+=(const std::string& other) {
  text_ += other;
  return *this;
}

LogText& LogText::operator+=(const char* other) {
  if (other != nullptr)
    text_ += other;
  return *this;
}

LogText operator+(LogText left, const LogText& right) {
  return left += right;
}

LogText operator+(LogText left, const std::string& right) {
  return left += right;
}

LogText operator+(LogText left, const char* right) {
  return left += right;
}

LogText operator+(const char* left, const LogText& right) {
  return LogText(left) += right;
}
