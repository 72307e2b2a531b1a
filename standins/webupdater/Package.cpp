#include "Package.h"

#include "FileUtil.h"
#include "common/ScenarioFile.h"

#include <cstdint>
#include <cstring>

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

// The bytes of the section `name` of the PE file `bytes`; nothing when it is no PE file or has
// no such section.
std::optional<std::string> peSection(const std::string& bytes, const char* name) {
  const auto number = [&bytes](size_t at, size_t size) -> std::optional<uint32_t> {
    if (at + size > bytes.size())
      return std::nullopt;
    uint32_t value = 0;
    for (size_t i = size; i-- > 0;)
      value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
    return value;
  };
  const std::optional<uint32_t> header = number(0x3C, 4);
  if (bytes.compare(0, 2, "MZ") != 0 || !header ||
      bytes.compare(*header, 4, std::string("PE\0\0", 4)) != 0)
    return std::nullopt;
  const std::optional<uint32_t> sections = number(*header + 6, 2);
  const std::optional<uint32_t> optionalSize = number(*header + 20, 2);
  if (!sections || !optionalSize)
    return std::nullopt;
  const size_t table = *header + 24 + *optionalSize;
  for (uint32_t index = 0; index < *sections; ++index) {
    const size_t entry = table + 40 * size_t{index};
    const std::optional<uint32_t> size = number(entry + 8, 4);
    const std::optional<uint32_t> offset = number(entry + 20, 4);
    if (!size || !offset)
      return std::nullopt;
    if (bytes.compare(entry, strlen(name) + 1, std::string(name, strlen(name) + 1)) == 0 &&
        size_t{*offset} + *size <= bytes.size())
      return bytes.substr(*offset, *size);
  }
  return std::nullopt;
}

}  // namespace

std::optional<Package> Package::read(const std::string& bytes) {
  if (bytes.compare(0, 2, "MZ") != 0)
    return parse(bytes);
  const std::optional<std::string> text = peSection(bytes, ".orpkg");
  return text ? parse(*text) : std::nullopt;
}

bool Package::unpack(const std::string& path, const std::string& dir) {
  std::string bytes;
  if (!readFile(path, &bytes))
    return false;
  const std::optional<Package> package = read(bytes);
  return package && package->applyTo(dir);
}

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
