#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "logging/LoggerComponent.h"
#include "system/CriticalSection.h"
#include "system/Mutex.h"
#include "system/SecurityEveryone.h"

// Appends one text line per write() to a log file shared by every process that uses the same
// file name. Lines are serialised across processes and threads by the named mutex
// "CVLOG_" + file name; the file is opened and closed for every line, so it may be read or
// deleted between lines and is created again by the next one.
//
// Nothing that goes wrong with the file reaches the caller: a line that cannot be written is
// dropped. If the mutex cannot be set up, logging is off for the rest of the process. A failed
// wait on the mutex throws Win32Exception out of write().
//
// A process that holds the mutex without end (hung, or hostile) must not stall every other
// process: a line that cannot have the mutex within kLineWaitMs is dropped and counted, and while
// lines are being dropped the next ones wait only kBusyLineWaitMs. The first line that gets
// through is preceded by one line saying how many were dropped. deleteLogFile() waits as long as
// a line would, and deletes nothing when the wait runs out.
//
// Threads: write(), isLevelEnabled() and the depth operations may be called from any thread.
class BasicLogger {
 public:
  static constexpr uint32_t kLineWaitMs = 3000;
  static constexpr uint32_t kBusyLineWaitMs = 50;

  BasicLogger(const std::string& logFilePath, uint32_t componentColumnWidth);
  virtual ~BasicLogger();
  BasicLogger(const BasicLogger&) = delete;
  BasicLogger& operator=(const BasicLogger&) = delete;

  // The registered logger. Throws Win32Exception("BasicLogger::getInstance()", 1) when none is.
  static BasicLogger& getInstance();

  virtual void write(const LoggerComponent& component, uint32_t level, const std::string& text);
  virtual void write(const LoggerComponent& component, uint32_t level, const char* text);
  virtual void deleteLogFile();

  // 87 (invalid parameter) and no change for 0; else 0.
  uint32_t setComponentColumnWidth(uint32_t width);
  bool isLevelEnabled(const LoggerComponent& component, uint32_t level);
  // Reads a switch through a cache whose entries live for `maxAgeMs`.
  void getCachedSetting(const std::string& name,
                        uint32_t& value,
                        uint32_t defaultValue,
                        uint32_t maxAgeMs);

  void enterFunction();
  void leaveFunction();
  int32_t getDepth(uint32_t threadId);

  std::string getLogFilePath() const { return logFilePath_; }

 protected:
  // Where the switches come from. Here: defaults, with "startLog" on exactly when the log file
  // can be opened for reading.
  virtual void readSetting(const std::string& name, uint32_t& value, uint32_t defaultValue);
  virtual void onLogFileMissing();
  virtual std::string getLinePrefix(const LoggerComponent& component,
                                    uint32_t level,
                                    const char* text);
  virtual std::string getLineSuffix(const LoggerComponent& component,
                                    uint32_t level,
                                    const char* text);

  // Registration of the process-wide logger (used by Logger::createInstance/destroyInstance).
  static bool isRegistered();
  static void registerInstance(BasicLogger* logger);
  static BasicLogger* unregisterInstance();

 private:
  struct CachedSetting {
    uint32_t value;
    uint32_t tick;
  };
  // The header switches of a line, read before the mutex is taken.
  struct LineHeader {
    uint32_t clock;
    uint32_t processId;
    uint32_t threadId;
  };

  void setLogFile(const std::string& path);
  std::string composeLine(const LineHeader& header,
                          const LoggerComponent& component,
                          uint32_t level,
                          const char* text);
  void appendToFile(const std::string& line);
  // How long the next line waits for the mutex.
  uint32_t lineWaitMs() const;

  std::unique_ptr<Mutex> mutex_;
  std::atomic<uint32_t> droppedLines_{0};
  std::string logFilePath_;
  uint32_t componentColumnWidth_;
  CriticalSection depthSection_;
  std::map<uint32_t, int32_t> depths_;
  SecurityEveryone security_;
  CriticalSection cacheSection_;
  std::map<std::string, CachedSetting> settingsCache_;
};
