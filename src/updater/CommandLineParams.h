#pragma once

#include <string>

#include "system/CriticalSection.h"

// The process's command-line tail, kept as received, and the one question asked of it: was this
// process started as the elevated child of an earlier run (the marker "-UAC", in any case,
// anywhere in the line)?
//
// One instance per process, held in a global pointer that start-up and shutdown create and
// destroy under the command-line lock.
class CommandLineParams {
 public:
  // The elevation marker, passed alone to the relaunched child.
  static const std::string kUacMarker;

  explicit CommandLineParams(const std::string& commandLine);
  ~CommandLineParams();
  CommandLineParams(const CommandLineParams&) = delete;
  CommandLineParams& operator=(const CommandLineParams&) = delete;

  bool containsUacParams() const;

  // The process-wide instance and its lock.
  static CriticalSection& lock();
  static CommandLineParams* instance();
  // Stores a new instance for `commandLine` unless one exists; takes the lock.
  static void createInstance(const std::string& commandLine);
  static void destroyInstance();

 private:
  std::string commandLine_;
};
