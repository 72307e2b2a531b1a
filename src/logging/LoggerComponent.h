#pragma once

#include <cstdint>
#include <string>

// Log levels, bit flags.
inline constexpr uint32_t LOG_ALWAYS = 1;  // Written regardless of the switches.
inline constexpr uint32_t LOG_TRACE = 2;   // Function entry and exit.
inline constexpr uint32_t LOG_DETAIL = 8;  // Free-text lines inside an operation.

// A named logging category. The name is also the "Logger" registry value that holds the
// component's level mask; the default mask applies when the registry has none.
class LoggerComponent {
 public:
  LoggerComponent(const char* name, uint32_t defaultMask);
  virtual ~LoggerComponent();

  virtual std::string getName() const;
  virtual void setMask(uint32_t mask);
  // The default mask.
  virtual uint32_t getMask() const;

 private:
  std::string name_;
  uint32_t mask_;
};

// The program's components. "All" is logged through by nobody: its registry value is the global
// mask OR-ed into every component's own.
extern const LoggerComponent kLogAll;
extern const LoggerComponent kLogUpdater;
extern const LoggerComponent kLogRulesEng;
extern const LoggerComponent kLogQnv;
extern const LoggerComponent kLogCatalog;
