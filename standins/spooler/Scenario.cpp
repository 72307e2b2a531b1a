#include "Scenario.h"

#include <algorithm>
#include <cstdlib>

#include "common/ScenarioFile.h"
#include "system/UniqueHandle.h"

namespace {

const char kSpoolerSection[] = "Spooler";
const char kEnvironmentVariable[] = "SPOOLER_SCENARIO";
const char kDefaultFileName[] = "spooler-scenario.ini";
const char kDefaultDriverDirectory[] = "C:\\windows\\system32\\spool\\drivers\\x64";
const long long kMaxPrinters = 256;

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

// The file's bytes; empty when it cannot be read.
std::string ReadContent(const std::string& path) {
  const ScopedHandle file(CreateFileA(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  std::string content;
  char buffer[16384];
  DWORD read = 0;
  while (file.valid() && ReadFile(file.get(), buffer, sizeof(buffer), &read, nullptr) && read > 0)
    content.append(buffer, read);
  return content;
}

// A fraction between 0 and 1; 0 for anything that is not a decimal number.
double Fraction(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || !(value > 0))
    return 0;
  return std::min(value, 1.0);
}

}  // namespace

bool ScenarioSource::operator==(const ScenarioSource& other) const {
  return path == other.path && exists == other.exists && lastWriteTime == other.lastWriteTime &&
         size == other.size && generation == other.generation;
}

std::shared_ptr<const Scenario> Scenario::load(HMODULE module,
                                               const std::shared_ptr<const Scenario>& previous) {
  auto loaded = std::make_shared<Scenario>();
  Scenario& scenario = *loaded;
  scenario.driverDirectory = kDefaultDriverDirectory;
  scenario.source.path = ScenarioPath(module);

  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExA(scenario.source.path.c_str(), GetFileExInfoStandard, &data) ||
      (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    return loaded;
  }
  scenario.source.exists = true;
  scenario.source.lastWriteTime =
      Join(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime);
  scenario.source.size = Join(data.nFileSizeHigh, data.nFileSizeLow);
  scenario.content = ReadContent(scenario.source.path);
  if (previous && previous->source.exists && previous->source.path == scenario.source.path &&
      previous->source.lastWriteTime == scenario.source.lastWriteTime &&
      previous->content == scenario.content) {
    return previous;  // Parsing a file of many printers on every call would swamp the callers.
  }

  // Wine keeps parsed profiles while their last-write time is unchanged, and a file rewritten
  // within one timestamp tick keeps it; this documented flush call drops that copy. Deliberate.
  WritePrivateProfileStringA(nullptr, nullptr, nullptr, scenario.source.path.c_str());
  const standin::ScenarioFile profile(scenario.source.path);
  const auto code = [&profile](const char* section, const char* key) {
    return static_cast<DWORD>(profile.number(section, key, 0));
  };
  scenario.source.generation = profile.value(kSpoolerSection, "Generation");
  scenario.journalPath = profile.value(kSpoolerSection, "Journal");
  scenario.seed = static_cast<unsigned long long>(profile.number(kSpoolerSection, "Seed", 0));
  scenario.failEnum = code(kSpoolerSection, "FailEnum");
  scenario.failDriverDirectory = code(kSpoolerSection, "FailDriverDirectory");
  scenario.driverDirectory =
      profile.value(kSpoolerSection, "DriverDirectory", kDefaultDriverDirectory);
  const long long count = std::min(profile.number(kSpoolerSection, "Printers", 0), kMaxPrinters);
  for (long long i = 0; i < count; ++i) {
    std::string section = "Printer" + std::to_string(i);
    const char* name = section.c_str();
    PrinterScenario printer;
    printer.name = profile.value(name, "Name");
    printer.driver = profile.value(name, "Driver");
    printer.port = profile.value(name, "Port");
    printer.attributes = code(name, "Attributes");
    printer.status = code(name, "Status");
    printer.jobs = code(name, "Jobs");
    printer.drainAfterPolls = profile.number(name, "DrainAfterPolls", -1);
    printer.failOpen = code(name, "FailOpen");
    printer.failGetPrinter = code(name, "FailGetPrinter");
    printer.failPause = code(name, "FailPause");
    printer.failResume = code(name, "FailResume");
    printer.failClose = code(name, "FailClose");
    printer.busyChance = Fraction(profile.value(name, "BusyChance"));
    printer.answerWithoutData = code(name, "AnswerWithoutData");
    scenario.printers.push_back(printer);
  }
  return loaded;
}

const PrinterScenario* Scenario::findPrinter(const std::string& name) const {
  for (const PrinterScenario& printer : printers) {
    if (printer.name == name) {
      return &printer;
    }
  }
  return nullptr;
}
