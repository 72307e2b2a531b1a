#include "LogLines.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>

#include "support/TestSupport.h"

namespace loglines {

std::vector<std::string> readLines(const std::string& path, uint64_t start, bool* complete) {
  const std::string content = testsupport::readFile(path);
  std::vector<std::string> lines;
  size_t position = static_cast<size_t>(start);
  size_t end;
  while (position < content.size() && (end = content.find("\r\n", position)) != std::string::npos) {
    lines.push_back(content.substr(position, end - position));
    position = end + 2;
  }
  if (position < content.size())
    lines.push_back(content.substr(position));
  if (complete != nullptr)
    *complete = position >= content.size();
  return lines;
}

uint64_t fileSize(const std::string& path) {
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data))
    return 0;
  return (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

bool parse(const std::string& line, Headers headers, LogLine& out, size_t width) {
  out = LogLine();
  size_t at = 0;
  if (headers.clock) {
    const std::string pattern = "dddd/dd/dd-dd:dd:dd.ddd ";
    if (line.size() < pattern.size())
      return false;
    for (size_t i = 0; i < pattern.size(); ++i) {
      if (pattern[i] == 'd' ? !isdigit(static_cast<unsigned char>(line[i])) : line[i] != pattern[i])
        return false;
    }
    out.clock = line.substr(0, pattern.size() - 1);
    at = pattern.size();
  }
  const auto id = [&](bool on, const char* tag, uint32_t& value) {
    if (!on)
      return true;
    if (line.compare(at, 4, tag) != 0)
      return false;
    const size_t end = line.find_first_not_of("0123456789abcdef", at + 4);
    if (end == std::string::npos || line[end] != ' ' || end - at - 4 < 4 || end - at - 4 > 8)
      return false;
    value = static_cast<uint32_t>(std::stoul(line.substr(at + 4, end - at - 4), nullptr, 16));
    at = end + 1;
    return true;
  };
  if (!id(headers.processId, "pid=", out.processId) || !id(headers.threadId, "tid=", out.threadId))
    return false;
  const size_t nameEnd = line.find(' ', at);
  if (nameEnd == std::string::npos || nameEnd == at)
    return false;
  out.component = line.substr(at, nameEnd - at);
  const size_t textAt = at + std::max(out.component.size(), width) + 1;
  if (line.size() <= textAt || line.find_first_not_of(' ', nameEnd) < textAt)
    return false;
  out.text = line.substr(textAt);
  return out.text.find_first_not_of(' ') != std::string::npos &&
         out.text.find_first_of("\r\n") == std::string::npos;
}

std::string hexId(uint32_t id) {
  char buffer[16];
  snprintf(buffer, sizeof(buffer), "%04x", static_cast<unsigned>(id));
  return buffer;
}

std::string clockNow() {
  SYSTEMTIME t;
  GetLocalTime(&t);
  char buffer[32];
  snprintf(buffer, sizeof(buffer), "%04u/%02u/%02u-%02u:%02u:%02u.%03u", t.wYear, t.wMonth, t.wDay,
           t.wHour, t.wMinute, t.wSecond, t.wMilliseconds);
  return buffer;
}

}  // namespace loglines
