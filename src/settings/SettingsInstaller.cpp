#include "settings/SettingsInstaller.h"

#include <cstdlib>
#include <new>
#include <utility>

#include "logging/FunctionTrace.h"
#include "system/UniqueHandle.h"

namespace {

const char kNotParsed[] = "Settings file could not be parsed properly.";

LONG writeValue(const std::string& keyPath,
                const std::string& valueName,
                DWORD type,
                const BYTE* data,
                DWORD size) {
  ScopedKey key;
  const LONG status =
      RegCreateKeyExA(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                      KEY_ALL_ACCESS, nullptr, key.receive(), nullptr);
  if (status != ERROR_SUCCESS)
    return status;
  return RegSetValueExA(key.get(), valueName.c_str(), 0, type, data, size);
}

}  // namespace

LONG writeDwordValue(const std::string& keyPath, const std::string& valueName, DWORD value) {
  return writeValue(keyPath, valueName, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                    sizeof(value));
}

LONG writeStringValue(const std::string& keyPath,
                      const std::string& valueName,
                      const std::string& value) {
  // Stored without the terminating zero, as settings files always have been.
  return writeValue(keyPath, valueName, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                    static_cast<DWORD>(value.size()));
}

LONG writeMultiStringValue(const std::string& keyPath,
                           const std::string& valueName,
                           const std::vector<std::string>& values) {
  std::string data;
  for (const std::string& value : values)
    data += value + '\0';
  data += '\0';
  return writeValue(keyPath, valueName, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(data.data()),
                    static_cast<DWORD>(data.size()));
}

SettingsInstaller::SettingsInstaller(const std::string& fileName, Reporter reporter)
    : reporter_(std::move(reporter)) {
  FunctionTrace trace = FunctionTrace::open(
      kLogQnv, "SettingsInstaller::SettingsInstaller(fileName='" + fileName + "'):");
  reader_.reset(new (std::nothrow) IniReader(fileName));
  if (!reader_) {
    trace.detail("Could not allocate memory for INI reader. Settings file could not be parsed.");
  } else if (reader_->isBuilt()) {
    parsed_ = true;
  } else {
    trace.detail(kNotParsed);
  }
}

bool SettingsInstaller::installSettings() {
  FunctionTrace trace = FunctionTrace::open(kLogQnv, "SettingsInstaller::installSettings():");
  if (!parsed_) {
    trace.detail(kNotParsed);
    trace.setRc(0);
    return false;
  }
  // A failed write is only told; the result stays as it is.
  const auto reportWrite = [this](const std::string& section, const std::string& key, LONG status) {
    if (status != ERROR_SUCCESS)
      report(section, key, "the registry refused it (status " + std::to_string(status) + ")");
  };
  bool result = true;
  for (const IniReader::KeyValPair& dropped : reader_->getDroppedKeys())
    report(dropped.first, dropped.second, "it has no value");
  for (const IniReader::Refusal& refusal : reader_->getRefusals()) {
    report(refusal.section, refusal.key, refusal.cause);
    result = false;
  }
  const std::list<std::string> sections = reader_->getSections();
  if (sections.empty())
    trace.detail("No registry keys found in file to be installed.");
  for (const std::string& section : sections) {
    if (section.empty()) {
      trace.detail("Empty Section name. Skipping..");
      report(section, "", "the section has no name");
      result = false;
      continue;
    }
    const IniReader::KeyValPairs pairs = reader_->getSectionData(section);
    if (pairs.empty()) {
      trace.detail("Empty Section found. Skipping..");
      report(section, "", "the section has no values");
      result = false;
      continue;
    }
    for (const IniReader::KeyValPair& pair : pairs) {
      const std::string& key = pair.first;
      const std::string& value = pair.second;
      if (key.empty() || value.empty()) {
        trace.detail([&] {
          return "Empty KeyValue pair found in Section='" + section + "' where key='" + key +
                 "' and value='" + value + "'):";
        });
        report(section, key, key.empty() ? "the value has no name" : "it has no value");
        result = false;
        continue;
      }
      std::string data;
      switch (IniReader::getValueType(value, data)) {
        case IniReader::kStringType: {
          const LONG status = writeStringValue(section, key, data);
          reportWrite(section, key, status);
          trace.detail([&] {
            return "Return Code for writing sectionName='" + section + "',key='" + key +
                   "',value='" + data + "' is = " + std::to_string(status);
          });
          break;
        }
        case IniReader::kDwordType: {
          const DWORD number = static_cast<DWORD>(atol(data.c_str()));
          const LONG status = writeDwordValue(section, key, number);
          if (!IniReader::isDecimal(data))
            report(section, key,
                   "'" + data + "' is not a decimal number; " + std::to_string(number) +
                       " was written");
          reportWrite(section, key, status);
          trace.detail([&] {
            return "Return Code for writing sectionName='" + section + "',key='" + key +
                   "',value='" + std::to_string(number) + "' is = " + std::to_string(status);
          });
          break;
        }
        default:
          trace.detail([&] {
            return "Could not retrieve the type information for value='" + value + "' skipping....";
          });
          report(section, key, "'" + value + "' has no type (dword: or string:)");
          result = false;
          break;
      }
    }
  }
  trace.setRc(result ? 1 : 0);
  return result;
}

void SettingsInstaller::report(const std::string& section,
                               const std::string& key,
                               const std::string& cause) const {
  if (reporter_)
    reporter_(section, key, cause);
}
