#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

#include "logging/BasicLogger.h"
#include "logging/LogText.h"

// Whether entry/exit lines of `component` at `level` are written: false without a Logger or
// without the program's settings store; otherwise the logger's level test.
bool isTraceOn(const LoggerComponent& component, uint32_t level);

// The scoped entry/exit trace of one operation. Writes "+" + name on construction and
// "-" + name [+ " rc=" + result] on destruction (also when an exception leaves the scope), and
// indents the lines written in between by one blank per nesting level of the calling thread.
// Detail lines need LOG_DETAIL in the masks as well. While the trace is off nothing is composed:
// detail() takes a callable for a text that costs something to build, and the result setters do
// nothing.
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
  // The result text of the exit line: a number in signed decimal, or a text.
  void setRc(int value);
  void setRc(const std::string& text);
  // Sets the result text "true" or "false"; returns `result`.
  bool returning(bool result);
  // One detail line while the trace is on: `text` is a text, or a callable that returns one and
  // is called only then.
  template <typename Text>
  void detail(const Text& text) {
    if (!on_)
      return;
    if constexpr (std::is_invocable_v<const Text&>)
      log(text());
    else
      log(text);
  }
  // One detail line, whatever the trace's state (the logger's detail level still applies).
  void log(const std::string& text);

 private:
  std::string functionName_;
  const LoggerComponent* component_;
  std::string result_;
  bool on_ = false;
  BasicLogger* logger_;
  uint32_t level_ = 0;
};
