#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

// A log line under construction. Numbers are written in the given radix (every caller passes
// 10); a bool reads "true" only when it is exactly 1.
class LogText {
 public:
  LogText() = default;
  LogText(const std::string& text) : text_(text) {}                  // NOLINT: implicit by design.
  LogText(const char* text) : text_(text != nullptr ? text : "") {}  // NOLINT
  explicit LogText(bool value) : text_(value ? "true" : "false") {}
  LogText(int32_t value, int radix);
  LogText(uint32_t value, int radix);

  LogText& operator+=(const LogText& other);
  LogText& operator+=(const std::string& other);
  LogText& operator+=(const char* other);

  operator std::string() const { return text_; }  // NOLINT: implicit by design.
  const std::string& str() const { return text_; }

 private:
  std::string text_;
};

LogText operator+(LogText left, const LogText& right);
LogText operator+(LogText left, const std::string& right);
LogText operator+(LogText left, const char* right);
LogText operator+(const char* left, const LogText& right);

// A 32-bit number in decimal, signed or unsigned as its type is: how every number reaches the log.
template <typename Integer>
LogText decimal(Integer value) {
  static_assert(std::is_integral<Integer>::value, "decimal() takes an integer");
  if (std::is_signed<Integer>::value)
    return LogText(static_cast<int32_t>(value), 10);
  return LogText(static_cast<uint32_t>(value), 10);
}
