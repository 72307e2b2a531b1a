#include "Scenario.h"

namespace {

const char kSpoolerSection[] = "Spooler";
const char kEnvironmentVariable[] = "SPOOLER_SCENARIO";
const char kDefaultFileName[] = "spooler-scenario.ini";
const char kDefaultDriverDirectory[] = "C:\\windows\\system32\\spool\\drivers\\x64";
const long long kMaxPrinters = 256;

// Profile values keep everything after '=', so "2   ; note" is cut back to "2".
std::string StripComment(std::string value) {
  for (size_t i = 1; i < value.size(); ++i) {
    if (value[i] == ';' && (value[i - 1] == ' ' || value[i - 1] == '\t')) {
      value.erase(value.find_last_not_of(" \t", i - 1) + 1);
      break;
    }
  }
  return value;
}

bool ParseNumber(const std::string& text, long long* number) {
  size_t pos = 0;
  bool negative = false;
  if (pos < text.size() && (text[pos] == '-' || text[pos] == '+')) {
    negative = text[pos] == '-';
    ++pos;
  }
  int base = 10;
  if (pos + 1 < text.size() && text[pos] == '0' && (text[pos + 1] == 'x' || text[pos + 1] == 'X')) {
    base = 16;
    pos += 2;
  }
  if (pos == text.size()) {
    return false;
  }
  unsigned long long value = 0;
  for (; pos < text.size(); ++pos) {
    char c = text[pos];
    int digit = -1;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (base == 16 && c >= 'a' && c <= 'f') {
      digit = c - 'a' + 10;
    } else if (base == 16 && c >= 'A' && c <= 'F') {
      digit = c - 'A' + 10;
    }
    if (digit < 0 || value > (0xFFFFFFFFFFFFull - digit) / base) {
      return false;
    }
    value = value * base + digit;
  }
  *number = negative ? -static_cast<long long>(value) : static_cast<long long>(value);
  return true;
}

class ProfileReader {
 public:
  explicit ProfileReader(const std::string& path) : path_(path) {}

  std::string text(const char* section, const char* key) const {
    char buffer[4096];
    DWORD length =
        GetPrivateProfileStringA(section, key, "", buffer, sizeof(buffer), path_.c_str());
    return StripComment(std::string(buffer, length));
  }

  bool number(const char* section, const char* key, long long* value) const {
    return ParseNumber(text(section, key), value);
  }

  DWORD code(const char* section, const char* key) const {
    long long value = 0;
    return number(section, key, &value) ? static_cast<DWORD>(value) : 0;
  }

 private:
  std::string path_;
};

std::string ScenarioPath(HMODULE module) {
  char buffer[MAX_PATH * 4];
  std::string path;
  DWORD length = GetEnvironmentVariableA(kEnvironmentVariable, buffer, sizeof(buffer));
  if (length > 0 && length < sizeof(buffer)) {
    path.assign(buffer, length);
  } else {
    length = GetModuleFileNameA(module, buffer, sizeof(buffer));
    path.assign(buffer, length);
    path.erase(path.find_last_of("\\/") + 1);
    path += kDefaultFileName;
  }
  // A bare file name would send the profile functions to the Windows folder.
  length = GetFullPathNameA(path.c_str(), sizeof(buffer), buffer, nullptr);
  if (length > 0 && length < sizeof(buffer)) {
    path.assign(buffer, length);
  }
  return path;
}

ULONGLONG Join(DWORD high, DWORD low) {
  return (static_cast<ULONGLONG>(high) << 32) | low;
}

}  // namespace

bool ScenarioSource::operator==(const ScenarioSource& other) const {
  return path == other.path && exists == other.exists && lastWriteTime == other.lastWriteTime &&
         size == other.size && generation == other.generation;
}

Scenario Scenario::load(HMODULE module) {
  Scenario scenario;
  scenario.driverDirectory = kDefaultDriverDirectory;
  scenario.source.path = ScenarioPath(module);

  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExA(scenario.source.path.c_str(), GetFileExInfoStandard, &data) ||
      (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    return scenario;
  }
  scenario.source.exists = true;
  scenario.source.lastWriteTime =
      Join(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime);
  scenario.source.size = Join(data.nFileSizeHigh, data.nFileSizeLow);

  // Wine keeps parsed profiles while their last-write time is unchanged, and a file rewritten
  // within one timestamp tick keeps it; this documented flush call drops that copy. Deliberate.
  WritePrivateProfileStringA(nullptr, nullptr, nullptr, scenario.source.path.c_str());
  ProfileReader profile(scenario.source.path);
  scenario.source.generation = profile.text(kSpoolerSection, "Generation");
  scenario.journalPath = profile.text(kSpoolerSection, "Journal");
  scenario.failEnum = profile.code(kSpoolerSection, "FailEnum");
  std::string directory = profile.text(kSpoolerSection, "DriverDirectory");
  if (!directory.empty()) {
    scenario.driverDirectory = directory;
  }

  long long count = 0;
  profile.number(kSpoolerSection, "Printers", &count);
  count = count > kMaxPrinters ? kMaxPrinters : count;
  for (long long i = 0; i < count; ++i) {
    std::string section = "Printer" + std::to_string(i);
    const char* name = section.c_str();
    PrinterScenario printer;
    printer.name = profile.text(name, "Name");
    printer.driver = profile.text(name, "Driver");
    printer.port = profile.text(name, "Port");
    printer.attributes = profile.code(name, "Attributes");
    printer.status = profile.code(name, "Status");
    printer.jobs = profile.code(name, "Jobs");
    if (!profile.number(name, "DrainAfterPolls", &printer.drainAfterPolls)) {
      printer.drainAfterPolls = -1;
    }
    printer.failOpen = profile.code(name, "FailOpen");
    printer.failGetPrinter = profile.code(name, "FailGetPrinter");
    printer.failPause = profile.code(name, "FailPause");
    printer.failResume = profile.code(name, "FailResume");
    printer.failClose = profile.code(name, "FailClose");
    scenario.printers.push_back(printer);
  }
  return scenario;
}

const PrinterScenario* Scenario::findPrinter(const std::string& name) const {
  for (const PrinterScenario& printer : printers) {
    if (printer.name == name) {
      return &printer;
    }
  }
  return nullptr;
}
