#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Reading the log back: CR LF lines, each taken apart by a strict parser, so that a line torn or
// interleaved by a concurrent writer does not pass for a good one.
namespace loglines {

struct Headers {
  bool clock;
  bool processId;
  bool threadId;
};

struct LogLine {
  std::string clock;  // "YYYY/MM/DD-hh:mm:ss.mmm" when the clock is on
  uint32_t processId = 0;
  uint32_t threadId = 0;
  std::string component;
  std::string text;  // with its indentation
};

// The content of `path` from byte `start` on, split at CR LF. `complete` tells whether it ended
// with CR LF.
std::vector<std::string> readLines(const std::string& path,
                                   uint64_t start = 0,
                                   bool* complete = nullptr);
uint64_t fileSize(const std::string& path);

// False unless the line has exactly the header fields asked for ("pid="/"tid=" with at least
// four lower-case hexadecimal digits), the component padded to `width` plus one blank, and a
// text without CR or LF.
bool parse(const std::string& line, Headers headers, LogLine& out, size_t width = 15);

// An id as the header writes it, and the local time as the header writes it.
std::string hexId(uint32_t id);
std::string clockNow();

}  // namespace loglines
