#include "updater/CommandLineParams.h"

#include "logging/FunctionTrace.h"
#include "settings/PathHelpers.h"
#include "system/CriticalSectionLock.h"

const std::string CommandLineParams::kUacMarker = "-UAC";

namespace {
CriticalSection g_commandLineSection;
CommandLineParams* g_commandLineParams = nullptr;
}  // namespace

CommandLineParams::CommandLineParams(const std::string& commandLine) : commandLine_(commandLine) {
  FunctionTrace trace = FunctionTrace::open(
      kLogUpdater, "CommandLineParams::CommandLineParams(" + commandLine + ") ");
}

CommandLineParams::~CommandLineParams() {
  FunctionTrace trace =
      FunctionTrace::open(kLogUpdater, "CommandLineParams::~CommandLineParams() ");
  commandLine_.clear();
}

bool CommandLineParams::containsUacParams() const {
  FunctionTrace trace = FunctionTrace::open(kLogUpdater, "CommandLineParams::containsUacParams() ");
  std::string line = commandLine_;
  std::string marker = kUacMarker;
  toUpperCase(line);
  toUpperCase(marker);
  const bool found = line.find(marker, 0) != std::string::npos;
  return trace.returning(found);
}

CriticalSection& CommandLineParams::lock() {
  return g_commandLineSection;
}

CommandLineParams* CommandLineParams::instance() {
  return g_commandLineParams;
}

void CommandLineParams::createInstance(const std::string& commandLine) {
  CriticalSectionLock lock(g_commandLineSection);
  if (g_commandLineParams == nullptr)
    g_commandLineParams = new CommandLineParams(commandLine);
}

void CommandLineParams::destroyInstance() {
  CriticalSectionLock lock(g_commandLineSection);
  delete g_commandLineParams;
  g_commandLineParams = nullptr;
}
