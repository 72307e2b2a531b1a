#pragma once

#include <cstdint>
#include <string>

// Base of every exception the program throws. Carries the failing operation's message, a system
// error code (0 or 1 where the thrower has none), and the source unit and line of the throw.
// Copyable: exceptions are thrown by value and caught by reference.
class Exception {
 public:
  Exception(std::string message, uint32_t code, std::string sourceFile, uint32_t line);
  virtual ~Exception();

  // The code in signed decimal, or an empty text for code 0.
  virtual std::string getCodeText() const;
  virtual uint32_t getCode() const;
  virtual std::string getMessage() const;

  // One-line description for the log:
  // ["file:" source ":" line ": "] message [": " code text].
  std::string toString() const;

 private:
  std::string message_;
  uint32_t code_;
  std::string sourceFile_;
  uint32_t line_;
};
