#pragma once

#include <cstdint>
#include <string>

#include "logging/BasicLogger.h"
#include "logging/LogText.h"

// Whether entry/exit lines of `component` at `level` are written: false without a Logger or
// without the program's settings store; otherwise the logger's level test.
bool isTraceOn(const LoggerComponent& component, uint32_t level);

// The scoped entry/exit trace of one operation. Writes "+" + name on construction and
// "-" + name [+ " rc=" + result] on destruction (also when an exception leaves the scope), and
// indents the lines written in between by one blank per nesting level of the calling thread.
// Detail lines need LOG_DETAIL in the masks as well; callers compose text only when isOn().
//
// A failure while writing the entry or a detail line propagates; one while writing the exit
// line is dropped.
class FunctionTrace {
 public:
  FunctionTrace(BasicLogger& logger,
                const LoggerComponent& component,
                const std::string& functionName,
                uint32_t level,
                bool traceWanted);
  ~FunctionTrace();
  FunctionTrace(const FunctionTrace&) = delete;
  FunctionTrace& operator=(const FunctionTrace&) = delete;

  // The usual way in: asks isTraceOn(component, LOG_TRACE), then takes the registered logger
  // (which throws when there is none) and opens the trace with `functionName` when tracing is on.
  static FunctionTrace open(const LoggerComponent& component, const std::string& functionName);

  bool isOn() const { return on_; }
  void setRc(int value);
  void setRc(const std::string& text);
  // Sets the result text "true" or "false" when the trace is on; returns `result`.
  bool returning(bool result);
  void log(const std::string& text);

 private:
  std::string functionName_;
  const LoggerComponent* component_;
  std::string result_;
  bool on_ = false;
  BasicLogger* logger_;
  uint32_t level_ = 0;
};
