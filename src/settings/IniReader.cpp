#include "settings/IniReader.h"

#include <windows.h>

#include <memory>
#include <new>

#include "logging/FunctionTrace.h"
#include "system/UniqueHandle.h"

namespace {

// Splits the first `length` characters of a list of null-terminated strings, as the
// private-profile functions return it. The returned length ends the list, not the first empty
// item: a line with an empty key name ("=value") lists as an empty key in the middle of the list,
// and the keys after it belong to the file too. A last item cut short by the buffer has no null
// of its own and is kept as it is.
std::list<std::string> splitNullList(const char* buffer, uint32_t length) {
  std::list<std::string> items;
  uint32_t position = 0;
  while (position < length) {
    const std::string item(buffer + position, strnlen(buffer + position, length - position));
    items.push_back(item);
    position += static_cast<uint32_t>(item.size()) + 1;
  }
  return items;
}

// A name as a report shows it: whole while short, else its start and its length.
std::string shown(const std::string& name) {
  const size_t kShown = 64;
  return name.size() <= kShown
             ? name
             : name.substr(0, kShown) + "... (" + std::to_string(name.size()) + " characters)";
}

// Why the private-profile functions cannot take `name` as a section or key name; empty when
// they can.
std::string tooLong(const std::string& name) {
  return name.size() > IniReader::kMaxProfileNameLength
             ? "the name is longer than " + std::to_string(IniReader::kMaxProfileNameLength) +
                   " characters"
             : std::string();
}

}  // namespace

IniReader::IniReader(const std::string& iniFileName) : iniFileName_(iniFileName) {
  FunctionTrace trace =
      FunctionTrace::open(kLogQnv, "IniReader::IniReader(iniFileName=" + iniFileName + "):");
  built_ = build();
}

bool IniReader::build() {
  FunctionTrace trace = FunctionTrace::open(kLogQnv, "IniReader::build():");
  if (iniFileName_.empty())
    return false;
  ScopedHandle file(CreateFileA(iniFileName_.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file.valid()) {
    const DWORD error = GetLastError();
    trace.detail(
        [&] { return LogText("Could not open the settings file.errorCode =") + decimal(error); });
    trace.setRc(0);
    return false;
  }
  const DWORD fileSize = GetFileSize(file.get(), nullptr);
  file.close();
  // Only the low 16 bits: a file of 65536 bytes gives 0. Deliberate.
  const uint32_t bufferSize = fileSize & 0xFFFF;
  trace.detail([&] { return LogText("Size of the file=") + decimal(bufferSize); });

  bool result = buildSections(bufferSize);
  if (result && !sections_.empty())
    result = buildSectionsData(bufferSize);
  trace.setRc(result ? 1 : 0);
  return result;
}

bool IniReader::buildSections(uint32_t bufferSize) {
  FunctionTrace trace = FunctionTrace::open(
      kLogQnv, "IniReader::buildSections(bufferSize=" + std::to_string(bufferSize) + "):");
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[bufferSize + 1]());
  if (!buffer)
    return false;
  const DWORD length =
      GetPrivateProfileSectionNamesA(buffer.get(), bufferSize, iniFileName_.c_str());
  if (length == 0)
    return false;
  for (const std::string& name :
       splitNullList(buffer.get(), length < bufferSize ? length : bufferSize)) {
    const std::string cause = tooLong(name);
    if (!cause.empty()) {
      trace.detail([&] { return "Refused section='" + shown(name) + "': " + cause; });
      refusals_.push_back(Refusal{shown(name), std::string(), cause});
      continue;
    }
    sections_.push_back(name);
    sectionsData_.push_back(SectionData{name, KeyValPairs()});
  }
  trace.setRc(1);
  return true;
}

bool IniReader::buildSectionsData(uint32_t bufferSize) {
  FunctionTrace trace = FunctionTrace::open(
      kLogQnv, "IniReader::buildSectionsData(bufferSize=" + std::to_string(bufferSize) + "):");
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[bufferSize + 1]);
  if (!buffer) {
    trace.detail("Could not allocate memory for the buffer.");
    return false;
  }
  for (const std::string& section : sections_) {
    ZeroMemory(buffer.get(), bufferSize + 1);
    const DWORD keysLength = GetPrivateProfileStringA(
        section.c_str(), nullptr, nullptr, buffer.get(), bufferSize, iniFileName_.c_str());
    if (keysLength == 0) {
      trace.detail([&] { return "Could not retrieve key-value pairs for section=" + section; });
      continue;
    }
    const std::list<std::string> keys =
        splitNullList(buffer.get(), keysLength < bufferSize ? keysLength : bufferSize);
    if (keys.empty())
      trace.detail([&] { return "No key-value pairs found for section='" + section + "'"; });
    for (const std::string& key : keys) {
      const std::string cause = tooLong(key);
      if (!cause.empty()) {
        trace.detail([&] { return "Refused key='" + shown(key) + "': " + cause; });
        refusals_.push_back(Refusal{section, shown(key), cause});
        continue;
      }
      ZeroMemory(buffer.get(), bufferSize + 1);
      if (GetPrivateProfileStringA(section.c_str(), key.c_str(), nullptr, buffer.get(), bufferSize,
                                   iniFileName_.c_str()) == 0) {
        trace.detail([&] {
          return "Could not retrieve value for key='" + key + "' under section='" + section + "'";
        });
        dropped_.emplace_back(section, key);
        continue;
      }
      const std::string value(buffer.get(), strnlen(buffer.get(), bufferSize));
      for (SectionData& data : sectionsData_) {
        if (data.name != section)
          continue;
        bool replaced = false;
        for (KeyValPair& pair : data.pairs) {
          if (pair.first == key) {
            pair.second = value;
            replaced = true;
            break;
          }
        }
        if (!replaced)
          data.pairs.emplace_back(key, value);
        break;
      }
    }
  }
  trace.setRc(1);
  return true;
}

IniReader::KeyValPairs IniReader::getSectionData(const std::string& sectionName) {
  FunctionTrace trace =
      FunctionTrace::open(kLogQnv, "IniReader::getSectionData(sectionName=" + sectionName + "):");
  if (!built_) {
    trace.detail("Unsuccessful parsing settings file. returning empty key-value pairs");
    return KeyValPairs();
  }
  KeyValPairs pairs;
  for (const SectionData& data : sectionsData_) {
    if (data.name == sectionName) {
      pairs = data.pairs;
      break;
    }
  }
  trace.setRc("KeyValPairs");
  return pairs;
}

bool IniReader::isDecimal(const std::string& data) {
  const std::string::size_type start = data.find_first_not_of(" \t");
  if (start == std::string::npos)
    return false;
  const std::string::size_type digits = start + (data[start] == '-' || data[start] == '+' ? 1 : 0);
  return digits < data.size() && data.find_first_not_of("0123456789", digits) == std::string::npos;
}

uint32_t IniReader::getValueType(const std::string& value, std::string& parsedValue) {
  FunctionTrace trace =
      FunctionTrace::open(kLogQnv, "IniReader::getValueType(value=" + value + "):");
  uint32_t type = kUnknownType;
  const std::string::size_type colon = value.find(':');
  if (value.empty()) {
    type = kUnknownType;
  } else if (colon == std::string::npos || colon == 0) {
    trace.detail([&] { return "Could not find the type information for value=" + value; });
  } else {
    const std::string typeWord = value.substr(0, colon);
    if (typeWord == "string")
      type = kStringType;
    else if (typeWord == "dword")
      type = kDwordType;
    if (colon + 1 < value.size()) {
      parsedValue = value.substr(colon + 1);
      trace.detail(
          [&] { return "Parsed value for value='" + value + "' is ='" + parsedValue + "'"; });
    }
  }
  trace.setRc(static_cast<int>(type));
  return type;
}
