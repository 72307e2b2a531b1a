#pragma once

#include <optional>
#include <string>
#include <vector>

namespace wupd {

// An update package: a text file whose first line is "ORRERY-PACKAGE 1", followed by files,
// each introduced by a line "--- file: <relative name>" and made of the lines up to the next
// such line. Names may use sub-folders but never "..", a drive or a leading separator.
//
// A package file is that text, or the text in a container that Authenticode signs: a PE file
// with no code whose section ".orpkg" holds it (made by package_pe.py beside this file).
class Package {
 public:
  // The package in the file `bytes` (the text, or a container); nothing when it is neither.
  static std::optional<Package> read(const std::string& bytes);
  // Reads the package file `path` and writes its files below `dir`: false when it cannot be read,
  // is no package, or a file cannot be written.
  static bool unpack(const std::string& path, const std::string& dir);

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
