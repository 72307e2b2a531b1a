#pragma once

#include <optional>
#include <string>
#include <vector>

namespace wupd {

// An update package: a text file whose first line is "ORRERY-PACKAGE 1", followed by files,
// each introduced by a line "--- file: <relative name>" and made of the lines up to the next
// such line. Names may use sub-folders but never "..", a drive or a leading separator.
class Package {
 public:
  struct File {
    std::string name;
    std::vector<std::string> lines;
  };

  // Nothing when `text` is not a package (wrong first line, lines before the first file) or
  // names an unsafe file. LF and CR LF line ends are both accepted.
  static std::optional<Package> parse(const std::string& text);

  const std::vector<File>& files() const { return files_; }

  // Writes every file below `dir` (created with its parents when missing), each line ended by
  // CR LF. False as soon as a file cannot be written; files written before stay.
  bool applyTo(const std::string& dir) const;

 private:
  std::vector<File> files_;
};

}  // namespace wupd
