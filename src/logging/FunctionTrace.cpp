#include "logging/FunctionTrace.h"

#include "logging/Logger.h"
#include "system/Exception.h"

bool isTraceOn(const LoggerComponent& component, uint32_t level) {
  if (!Logger::exists())
    return false;
  if (!Logger::switchesExist())
    return false;
  return BasicLogger::getInstance().isLevelEnabled(component, level);
}

FunctionTrace FunctionTrace::open(const LoggerComponent& component,
                                  const std::string& functionName) {
  const bool traceOn = isTraceOn(component, LOG_TRACE);
  BasicLogger& logger = BasicLogger::getInstance();
  return FunctionTrace(logger, component, traceOn ? functionName : std::string(), LOG_TRACE, true);
}

FunctionTrace::FunctionTrace(BasicLogger& logger,
                             const LoggerComponent& component,
                             const std::string& functionName,
                             uint32_t level,
                             bool traceWanted)
    : component_(&component), logger_(&logger) {
  if (!traceWanted)
    return;
  level_ = level;
  on_ = logger_->isLevelEnabled(*component_, level_);
  if (!on_)
    return;
  functionName_ = functionName;
  logger_->write(*component_, level_, ("+" + functionName_).c_str());
  logger_->enterFunction();
}

FunctionTrace::~FunctionTrace() {
  if (!on_)
    return;
  try {
    std::string text = "-" + functionName_;
    if (!result_.empty())
      text += " rc=" + result_;
    logger_->leaveFunction();
    logger_->write(*component_, level_, text.c_str());
  } catch (const Exception&) {
    // The exit line is best effort.
  }
}

void FunctionTrace::setRc(int value) {
  if (on_)
    result_ = LogText(int32_t{value}, 10);
}

void FunctionTrace::setRc(const std::string& text) {
  if (on_)
    result_ = text;
}

bool FunctionTrace::returning(bool result) {
  if (on_)
    setRc(LogText(result));
  return result;
}

void FunctionTrace::log(const std::string& text) {
  if (!logger_->isLevelEnabled(*component_, LOG_DETAIL))
    return;
  logger_->write(*component_, level_, functionName_ + text);
}
