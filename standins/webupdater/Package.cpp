#include "Package.h"

#include "FileUtil.h"
#include "common/ScenarioFile.h"

namespace wupd {

namespace {

const char kHeader[] = "ORRERY-PACKAGE 1";
const char kFileMarker[] = "--- file:";

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos)
      end = text.size();
    std::string line = text.substr(start, end - start);
    if (!line.empty() && line.back() == '\r')
      line.pop_back();
    lines.push_back(line);
    start = end + 1;
  }
  return lines;
}

bool isSafeName(const std::string& name) {
  return !name.empty() && name.find("..") == std::string::npos &&
         name.find(':') == std::string::npos && name[0] != '\\' && name[0] != '/';
}

}  // namespace

std::optional<Package> Package::parse(const std::string& text) {
  std::vector<std::string> lines = splitLines(text);
  if (lines.empty() || standin::trim(lines[0]) != kHeader)
    return std::nullopt;
  Package package;
  for (size_t i = 1; i < lines.size(); ++i) {
    const std::string& line = lines[i];
    if (line.compare(0, sizeof(kFileMarker) - 1, kFileMarker) == 0) {
      std::string name = standin::trim(line.substr(sizeof(kFileMarker) - 1));
      if (!isSafeName(name))
        return std::nullopt;
      package.files_.push_back(File{name, {}});
    } else if (package.files_.empty()) {
      if (!standin::trim(line).empty())
        return std::nullopt;
    } else {
      package.files_.back().lines.push_back(line);
    }
  }
  return package;
}

bool Package::applyTo(const std::string& dir) const {
  if (!createDirectories(dir))
    return false;
  for (const File& file : files_) {
    std::string content;
    for (const std::string& line : file.lines)
      content += line + "\r\n";
    if (!writeFile(joinPath(dir, file.name), content))
      return false;
  }
  return true;
}

}  // namespace wupd
