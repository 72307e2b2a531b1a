#pragma once

#include <string>

namespace wupd {

// The record of calls that tests read back. Each line is "<pid> | <text>" followed by CR LF.
// The file is opened, appended to and closed per line, shared for reading and writing, so
// several processes (a program and its relaunched child) can append to one journal. Safe across
// threads and processes; a line that cannot be written is dropped.
class Journal {
 public:
  // An empty path disables the journal.
  explicit Journal(std::string path);

  void append(const std::string& text) const;

 private:
  std::string path_;
};

}  // namespace wupd
