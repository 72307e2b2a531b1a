#include "logging/BasicLogger.h"

#include <windows.h>

#include <atomic>
#include <iomanip>
#include <sstream>

#include "logging/LogSwitches.h"
#include "system/CriticalSectionLock.h"
#include "system/InterProcessLock.h"
#include "system/UniqueHandle.h"
#include "system/Win32Exception.h"

namespace {

const uint32_t kSettingMaxAgeMs = 5000;

BasicLogger* g_registeredLogger = nullptr;
bool g_loggerRegistered = false;
std::atomic<bool> g_loggingDisabled{false};
// The last global mask read; the vendor library may log from threads of its own.
std::atomic<uint32_t> g_globalMask{0};

}  // namespace

BasicLogger::BasicLogger(const std::string& logFilePath, uint32_t componentColumnWidth)
    : componentColumnWidth_(0), security_(false) {
  setLogFile(logFilePath);
  componentColumnWidth_ = componentColumnWidth;
}

BasicLogger::~BasicLogger() {
  settingsCache_.clear();
  mutex_.reset();
}

BasicLogger& BasicLogger::getInstance() {
  if (!g_loggerRegistered || g_registeredLogger == nullptr)
    throw Win32Exception("BasicLogger::getInstance()", 1, "", 0);
  return *g_registeredLogger;
}

bool BasicLogger::isRegistered() {
  return g_loggerRegistered;
}

void BasicLogger::registerInstance(BasicLogger* logger) {
  g_registeredLogger = logger;
  g_loggerRegistered = true;
}

BasicLogger* BasicLogger::unregisterInstance() {
  BasicLogger* logger = g_registeredLogger;
  g_registeredLogger = nullptr;
  g_loggerRegistered = false;
  return logger;
}

void BasicLogger::setLogFile(const std::string& path) {
  try {
    const std::string::size_type slash = path.rfind('\\');
    const std::string fileName = slash == std::string::npos ? path : path.substr(slash + 1);
    mutex_.reset(new Mutex(false, "CVLOG_" + fileName, true));
    if (slash != std::string::npos) {
      logFilePath_ = path;
      return;
    }
    // A bare file name goes to the drive root of the Windows directory, by design.
    char buffer[MAX_PATH + 1] = {};
    const UINT length = GetWindowsDirectoryA(buffer, sizeof(buffer));
    std::string directory = (length == 0 || length >= sizeof(buffer)) ? "c:\\" : buffer;
    logFilePath_ = directory.substr(0, 3) + path;
  } catch (const Win32Exception&) {
    g_loggingDisabled = true;
  }
}

uint32_t BasicLogger::setComponentColumnWidth(uint32_t width) {
  if (width == 0)
    return ERROR_INVALID_PARAMETER;
  componentColumnWidth_ = width;
  return 0;
}

void BasicLogger::getCachedSetting(const std::string& name,
                                   uint32_t& value,
                                   uint32_t defaultValue,
                                   uint32_t maxAgeMs) {
  const uint32_t now = GetTickCount();
  CriticalSectionLock lock(cacheSection_);
  auto entry = settingsCache_.find(name);
  if (entry != settingsCache_.end() && now > entry->second.tick &&
      now - entry->second.tick < maxAgeMs) {
    value = entry->second.value;
    return;
  }
  readSetting(name, value, defaultValue);
  settingsCache_[name] = CachedSetting{value, now};
}

void BasicLogger::readSetting(const std::string& name, uint32_t& value, uint32_t defaultValue) {
  value = defaultValue;
  if (name != LogSwitchNames::kStartLog)
    return;
  value = 0xFFFFFFFF;
  const ScopedHandle file(CreateFileA(logFilePath_.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file.valid())
    value = 0;
}

bool BasicLogger::isLevelEnabled(const LoggerComponent& component, uint32_t level) {
  if (g_loggingDisabled)
    return false;
  if (level & LOG_ALWAYS)
    return true;
  uint32_t startLog = 0;
  getCachedSetting(LogSwitchNames::kStartLog, startLog, 0, kSettingMaxAgeMs);
  if (startLog == 0)
    return false;
  uint32_t globalMask = 0;
  getCachedSetting(kLogAll.getName(), globalMask, kLogAll.getMask(), kSettingMaxAgeMs);
  g_globalMask = globalMask;
  uint32_t componentMask = 0;
  getCachedSetting(component.getName(), componentMask, component.getMask(), kSettingMaxAgeMs);
  return (level & (globalMask | componentMask)) != 0;
}

void BasicLogger::write(const LoggerComponent& component, uint32_t level, const std::string& text) {
  write(component, level, text.c_str());
}

void BasicLogger::write(const LoggerComponent& component, uint32_t level, const char* text) {
  if (g_loggingDisabled || !mutex_)
    return;
  // Header switches are read before the lock is taken.
  LineHeader header = {0, 0, 0};
  getCachedSetting(LogSwitchNames::kClocktimeInHeader, header.clock, 1, kSettingMaxAgeMs);
  getCachedSetting(LogSwitchNames::kProcIdInHeader, header.processId, 0, kSettingMaxAgeMs);
  getCachedSetting(LogSwitchNames::kThreadIdInHeader, header.threadId, 0, kSettingMaxAgeMs);

  const InterProcessLock lock(*mutex_, lineWaitMs());
  if (!lock.isHeld()) {
    ++droppedLines_;
    return;
  }
  std::string lines;
  const uint32_t dropped = droppedLines_.exchange(0);
  if (dropped != 0) {
    // The first line dropped waited kLineWaitMs, each one after it kBusyLineWaitMs.
    std::string note = "BasicLogger: " + std::to_string(dropped) +
                       " line(s) dropped: another process held the log past the wait (" +
                       std::to_string(kLineWaitMs) + " ms";
    if (dropped > 1)
      note += " for the first, " + std::to_string(kBusyLineWaitMs) + " ms for each one after it";
    note += ")";
    lines = composeLine(header, component, LOG_ALWAYS, note.c_str());
  }
  appendToFile(lines + composeLine(header, component, level, text));
}

std::string BasicLogger::composeLine(const LineHeader& header,
                                     const LoggerComponent& component,
                                     uint32_t level,
                                     const char* text) {
  std::ostringstream stream;
  stream << getLinePrefix(component, level, text);
  stream << std::setfill('0');
  if (header.clock != 0) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    stream << std::setw(4) << now.wYear << "/" << std::setw(2) << now.wMonth << "/" << std::setw(2)
           << now.wDay << "-" << std::setw(2) << now.wHour << ":" << std::setw(2) << now.wMinute
           << ":" << std::setw(2) << now.wSecond << "." << std::setw(3) << now.wMilliseconds << " ";
  }
  // Hexadecimal stays on for the rest of the line.
  if (header.processId != 0)
    stream << "pid=" << std::hex << std::setw(4) << GetCurrentProcessId() << " ";
  const uint32_t currentThread = GetCurrentThreadId();
  if (header.threadId != 0)
    stream << "tid=" << std::hex << std::setw(4) << currentThread << " ";
  stream << std::setfill(' ') << std::left << std::setw(static_cast<int>(componentColumnWidth_))
         << component.getName() << " ";
  const int32_t depth = getDepth(currentThread);
  stream << std::string(depth > 0 ? static_cast<size_t>(depth) : 0, ' ')
         << (text != nullptr ? text : "") << getLineSuffix(component, level, text) << "\r\n";
  return stream.str();
}

uint32_t BasicLogger::lineWaitMs() const {
  return droppedLines_ == 0 ? kLineWaitMs : kBusyLineWaitMs;
}

void BasicLogger::appendToFile(const std::string& line) {
  SECURITY_ATTRIBUTES* attributes = security_.getSecurityAttributes();
  {
    const ScopedHandle existing(CreateFileA(logFilePath_.c_str(), GENERIC_READ | GENERIC_WRITE,
                                            FILE_SHARE_READ | FILE_SHARE_WRITE, attributes,
                                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!existing.valid())
      onLogFileMissing();
  }
  const ScopedHandle file(CreateFileA(logFilePath_.c_str(), GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, attributes, OPEN_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file.valid())
    return;
  // The end of the file, whatever its size: a 32-bit offset from the beginning turns negative at
  // 2 GiB. A line that cannot be placed there is dropped rather than written over the start.
  const LARGE_INTEGER none = {};
  if (!SetFilePointerEx(file.get(), none, nullptr, FILE_END))
    return;
  DWORD written = 0;
  WriteFile(file.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

void BasicLogger::deleteLogFile() {
  if (!mutex_)
    return;
  const InterProcessLock lock(*mutex_, lineWaitMs());
  if (lock.isHeld())
    DeleteFileA(logFilePath_.c_str());
}

void BasicLogger::onLogFileMissing() {}

std::string BasicLogger::getLinePrefix(const LoggerComponent&, uint32_t, const char*) {
  return std::string();
}

std::string BasicLogger::getLineSuffix(const LoggerComponent&, uint32_t, const char*) {
  return std::string();
}

void BasicLogger::enterFunction() {
  CriticalSectionLock lock(depthSection_);
  ++depths_[GetCurrentThreadId()];
}

void BasicLogger::leaveFunction() {
  CriticalSectionLock lock(depthSection_);
  --depths_[GetCurrentThreadId()];
}

int32_t BasicLogger::getDepth(uint32_t threadId) {
  CriticalSectionLock lock(depthSection_);
  return depths_[threadId];
}
