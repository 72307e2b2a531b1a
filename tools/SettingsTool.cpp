// cvupsettings: installs the program's settings into the registry, as an installer does before the
// first update run, and looks after what a deployment needs around them. The tool takes the
// program's four-character prefix ("cvup"), so it finds the program's settings file beside it
// (local id + "qnv.loc") and fills the program's store.
//
//   cvupsettings [/file PATH | /nofile] [/set SECTION\NAME=dword:N|string:TEXT|multi:A;B]...
//                [/lock | /unlock] [/schedule system|users|none]
//   cvupsettings /remove
//   cvupsettings /status ..., /register-events (StatusCommand), /publisher FILE (PublisherCommand)
#include "SettingsTool.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <list>
#include <string>

#include "PublisherCommand.h"
#include "StatusCommand.h"
#include "StoreSecurity.h"
#include "TaskSchedule.h"
#include "logging/LogSwitches.h"
#include "logging/Logger.h"
#include "printers/DeviceEnumerator.h"
#include "printers/PauseRecord.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "settings/RegistryKey.h"
#include "settings/Settings.h"
#include "settings/SettingsInstaller.h"
#include "settings/SettingsKeys.h"
#include "system/CurrentProcess.h"
#include "system/Exception.h"
#include "system/Localize.h"
#include "system/UniqueHandle.h"
#include "updater/DownloadRecord.h"
#include "updater/PackageTrust.h"
#include "updater/ProcessScope.h"
#include "updater/RunEventLog.h"

namespace {

const char kUsage[] =
    "Usage: %s [/file PATH | /nofile] [/set SECTION\\NAME=dword:N|string:TEXT|multi:A;B]...\n"
    "          [/lock | /unlock] [/schedule system|users|none]\n"
    "       %s /remove\n"
    "       cvupsettings /status [/maxage DAYS] | /register-events | /publisher FILE\n"
    "Installs the settings file beside it (or PATH) into the program's store, then the values of\n"
    "/set (multi: a REG_MULTI_SZ of the strings between ';'; /nofile: the values alone); /lock\n"
    "leaves the store to administrators and SYSTEM, /unlock opens it to everyone again;\n"
    "/schedule registers the daily task (none deletes it).\n"
    "/remove ends and deletes the task, waits for running updates, undoes what a killed one left,\n"
    "and deletes the store.\n";
// How long /remove waits for a running update to end once its task is ended.
const unsigned long kRunWaitMs = 120000;
// Owned by administrators, who with SYSTEM may do anything with a key; nobody else anything, also
// below it.
const char kLockedKey[] = "O:BAD:P(A;CI;KA;;;BA)(A;CI;KA;;;SY)";
// Unlocked, every key has the DACL the program creates its keys with: Everyone, inherited.
const char kOpenKey[] = "D:(A;CI;GA;;;WD)";

struct Options {
  std::string file;
  std::list<std::string> values;  // SECTION\NAME=TYPE:DATA
  bool lock = false;
  // Changes to a deployed store (an installer's upgrade): no settings file, the store opened again.
  bool noFile = false;
  bool unlock = false;
  bool scheduleGiven = false;
  TaskSchedule::Kind schedule = TaskSchedule::Kind::kNone;
  bool remove = false;
};

bool parse(const std::vector<std::string>& arguments, Options& options) {
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& option = arguments[i];
    const std::string value = i + 1 < arguments.size() ? arguments[i + 1] : "";
    if (option == "/file" && !value.empty()) {
      options.file = arguments[++i];
    } else if (option == "/set" && value.find('=') != std::string::npos) {
      options.values.push_back(arguments[++i]);
    } else if (option == "/lock") {
      options.lock = true;
    } else if (option == "/nofile") {
      options.noFile = true;
    } else if (option == "/unlock") {
      options.unlock = true;
    } else if (option == "/schedule" && TaskSchedule::parseKind(value, options.schedule)) {
      options.scheduleGiven = true;
      ++i;
    } else if (option == "/remove") {
      options.remove = true;
    } else {
      return false;
    }
  }
  return (!options.remove || arguments.size() == 1) && !(options.noFile && !options.file.empty()) &&
         !(options.lock && options.unlock);
}

void failed(const std::string& what) {
  fprintf(stderr, "%s\n", what.c_str());
}

// The store's path below HKEY_LOCAL_MACHINE, with its trailing backslash (storeRoot) or without.
std::string storeRoot() {
  return Localize::getInstance()->getRegistryPath(Localize::kLocalPath);
}
std::string storePath() {
  const std::string root = storeRoot();
  return root.substr(0, root.size() - 1);
}

// Whether every user could change what a SYSTEM task runs once this command is done: "" when not,
// else why it is refused. /unlock while the SYSTEM task stays (with /schedule system too), and
// /schedule system over a store that is not locked key by key (and that this command does not
// lock), are.
std::string systemTaskOverOpenStore(const Options& options, const std::string& folder) {
  const TaskSchedule::Kind task =
      options.scheduleGiven ? options.schedule : TaskSchedule::registeredKind(folder);
  if (options.unlock && task == TaskSchedule::Kind::kSystem)
    return "Refused: /unlock would let every user change the store that the SYSTEM task (" +
           folder + TaskSchedule::kRegistered +
           ") runs from; give /schedule users or /schedule none with it";
  if (!options.scheduleGiven || task != TaskSchedule::Kind::kSystem || options.lock)
    return std::string();
  const std::string why = StoreSecurity::whyNotLocked(storePath());
  if (why.empty())
    return std::string();
  return "Refused: /schedule system over the store HKLM\\" + storePath() +
         ", which users can change, would let every user choose what runs as SYSTEM; give "
         "/lock with it (" +
         why + ")";
}

// Says what a walk over the store did: each key it deleted on stdout, each it could not set or
// delete on stderr after `what`. Returns `done`.
bool walked(bool done, const StoreSecurity::Notes& notes, const std::string& what) {
  for (const std::string& line : notes.deleted)
    printf("%s\n", line.c_str());
  for (const std::string& line : notes.failed)
    failed(what + ": " + line);
  return done;
}

// Leaves the store to administrators and SYSTEM, then reads every key of it back; false (said on
// stderr) unless every key is locked.
bool lockStore() {
  const std::string store = "HKLM\\" + storePath();
  StoreSecurity::Notes notes;
  const bool done = walked(StoreSecurity::applyToStore(storePath(), kLockedKey, notes), notes,
                           "Could not leave the store " + store + " to administrators and SYSTEM");
  const std::string why = StoreSecurity::whyNotLocked(storePath());
  if (done && !why.empty())
    failed("Could not leave the store " + store + " to administrators and SYSTEM: " + why);
  return done && why.empty();
}

// Opens the store to everyone again, unless the SYSTEM task runs from it: then it stays locked,
// which is a failure when /unlock asked for it.
bool openStore(const std::string& folder, bool asked) {
  const std::string store = "HKLM\\" + storePath();
  if (TaskSchedule::registeredKind(folder) == TaskSchedule::Kind::kSystem) {
    const std::string line = "The store " + store + " stays locked: the SYSTEM task (" + folder +
                             TaskSchedule::kRegistered + ") runs from it";
    if (asked)
      failed(line);
    else
      printf("%s\n", line.c_str());
    return !asked;
  }
  StoreSecurity::Notes notes;
  return walked(StoreSecurity::applyToStore(storePath(), kOpenKey, notes), notes,
                "Could not open the store " + store + " to everyone");
}

// Registers the task asked for, or deletes it. A SYSTEM task only over a store that is locked key
// by key now: after a lock that failed, there is none.
bool schedule(TaskSchedule::Kind kind, const std::string& folder) {
  if (kind == TaskSchedule::Kind::kNone) {
    TaskSchedule::unregisterTask(folder);
    return true;
  }
  const std::string why = kind == TaskSchedule::Kind::kSystem
                              ? StoreSecurity::whyNotLocked(storePath())
                              : std::string();
  if (!why.empty()) {
    failed("Not registering the SYSTEM task: the store HKLM\\" + storePath() +
           " is not locked: " + why);
    return false;
  }
  std::string error;
  if (!TaskSchedule::registerTask(folder, kind, error)) {
    failed("Could not register the scheduled task: " + error);
    return false;
  }
  return true;
}

// The pre-flight word: a driver name that no printer uses makes every later run fail at its pause.
void warnWithoutPrinters() {
  std::string driver;
  Settings().getStringValue(SettingsKeys::kSettingsSection, SettingsKeys::kDriverName, driver, 0);
  std::list<std::string> printers;
  DeviceEnumerator::instance()->getPrinters(printers);
  if (printers.empty())
    printf(
        "Warning: no printer on this machine uses the driver '%s' (DriverName); updates fail "
        "until one does\n",
        driver.c_str());
}

// The strings of a /set value "multi:A;B" (blanks around each trimmed, empty ones left out);
// none for a value of another type.
std::vector<std::string> multiStrings(const std::string& typed) {
  const std::string prefix = "multi:";
  std::vector<std::string> strings;
  if (typed.compare(0, prefix.size(), prefix) != 0)
    return strings;
  for (size_t start = prefix.size(); start <= typed.size();) {
    size_t end = typed.find(';', start);
    if (end == std::string::npos)
      end = typed.size();
    const std::string item = typed.substr(start, end - start);
    const size_t first = item.find_first_not_of(' ');
    if (first != std::string::npos)
      strings.push_back(item.substr(first, item.find_last_not_of(' ') - first + 1));
    start = end + 1;
  }
  return strings;
}

// Installs the settings file and the single values; false when anything was not installed as
// written (each named on stderr).
bool installSettings(const std::string& file, const std::list<std::string>& values) {
  const std::string root = storeRoot();
  bool complete = true;
  const auto report = [&complete](const std::string& section, const std::string& key,
                                  const std::string& cause) {
    failed("Not installed as written: [" + section + "] " + key + ": " + cause);
    complete = false;
  };
  { RegistryKey store(root, true, HKEY_LOCAL_MACHINE); }
  if (!file.empty() && !SettingsInstaller(file, report).installSettings())
    complete = false;
  // A value of /set is an entry of its own section, relative to the store.
  for (const std::string& value : values) {
    const std::string::size_type equals = value.find('='), name = value.rfind('\\', equals);
    const std::string section = root + (name == std::string::npos ? "" : value.substr(0, name));
    const std::string key =
        value.substr(name == std::string::npos ? 0 : name + 1, equals - name - 1);
    std::string data;
    const uint32_t type = IniReader::getValueType(value.substr(equals + 1), data);
    const std::vector<std::string> strings = multiStrings(value.substr(equals + 1));
    // Unlike the file's, a /set value of no type or no decimal number is not written at all.
    const LONG status = type == IniReader::kDwordType && IniReader::isDecimal(data)
                            ? writeDwordValue(section, key, static_cast<DWORD>(atol(data.c_str())))
                        : type == IniReader::kStringType ? writeStringValue(section, key, data)
                        : !strings.empty() ? writeMultiStringValue(section, key, strings)
                                           : ERROR_INVALID_DATA;
    if (status != ERROR_SUCCESS)
      report(section, key,
             "/set " + value + " was not written (status " + std::to_string(status) + ")");
  }
  return complete;
}

// Everything but the store itself, which goes once the tool's log is gone (deleteStore()).
int remove(bool& deleteStore) {
  std::string error;
  if (!TaskSchedule::removeTask(Localize::getInstance()->getLocalId(), kRunWaitMs, error)) {
    failed("Could not remove the updater: " + error + "; try again when it has ended");
    return 1;
  }
  DeleteFileA((CurrentProcess::getInstance()->getDirectory() + TaskSchedule::kRegistered).c_str());
  // What a run that the task's end killed left behind is undone while its notes still exist.
  PrinterSpoolerWrapper spooler;
  PauseRecord::recoverAbandonedPause(spooler);
  DownloadRecord::recoverAbandonedDownloads();
  // The folders of the verified packages' copies, once the copies are gone (a folder that still
  // holds something stays).
  const std::string verified = PackageTrust::folderPath();
  for (const std::string& folder : {verified + "\\software", verified + "\\catalog", verified})
    RemoveDirectoryA(folder.c_str());
  // The event source that /register-events made (the MSI deletes its own as well).
  RunEventLog::unregisterSource();
  deleteStore = true;
  return 0;
}

// The log's switches while the store goes: none, so that no line reads a switch (and writes it
// back, bringing the store back with it).
class NoSwitches : public LogSwitches {
 public:
  bool exist() const override { return false; }
  uint32_t read(const std::string&, uint32_t defaultValue) const override { return defaultValue; }
};

// Deletes the store, and the product family's key with it when it was the last component's and
// "DeleteStoreOnUninstall" allows; 0, or 1 when the store could not be deleted.
int deleteStore() {
  static const NoSwitches none;
  Localize::createInstance(nullptr);
  Logger::createInstance(none);
  const std::string store = storePath();
  const std::string family = Localize::getInstance()->getProductFamilyRegistryPath();
  int result = 0;
  try {
    Settings().deleteStore();
    ScopedKey left;
    std::string removed = "the store HKLM\\" + store;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, family.c_str(), 0, KEY_READ, left.receive()) !=
        ERROR_SUCCESS)
      removed += " and, the last component's, the family's key HKLM\\" + family;
    printf("Removed the scheduled task and %s\n", removed.c_str());
  } catch (const Exception& e) {
    failed("Could not delete the store HKLM\\" + store + ": " + e.getMessage());
    result = 1;
  }
  Logger::destroyInstance();
  Localize::destroyInstance();
  return result;
}

int run(const Options& options, bool& storeToDelete) {
  if (options.remove)
    return remove(storeToDelete);
  const std::string folder = CurrentProcess::getInstance()->getDirectory();
  const std::string file = options.noFile         ? std::string()
                           : options.file.empty() ? folder + Settings::getMarkerFilePath()
                                                  : options.file;
  const std::string store = "HKLM\\" + storeRoot();
  const std::string refusal = systemTaskOverOpenStore(options, folder);
  if (!refusal.empty()) {
    failed(refusal);
    return 2;
  }
  const DWORD attributes = options.noFile ? 0 : GetFileAttributesA(file.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    failed("Settings file not found: " + file);
    return 2;
  }
  // While the tool writes the store, as SYSTEM or an administrator, only they can change it: a
  // registry link planted in an open store would have the values written wherever it points (the
  // Run key, say). The store is opened again at the end when it was open and not to be locked, or
  // when /unlock asks for it.
  const bool wasLocked = StoreSecurity::isLocked(storePath());
  StoreSecurity::Notes notes;
  const bool guarded = walked(StoreSecurity::makeStore(storePath(), kLockedKey, notes), notes,
                              "Could not leave the store " + store +
                                  " to administrators and SYSTEM while its settings are written");
  const bool installed = guarded && installSettings(file, options.values);
  if (guarded && !installed)
    failed("Could not install every default setting from " + file + " into " + store);
  else if (installed && options.noFile)
    printf("Installed the values given into %s\n", store.c_str());
  else if (installed)
    printf("Installed the default settings from %s into %s\n", file.c_str(), store.c_str());
  warnWithoutPrinters();
  // After a failed entry nothing further is done (an installer that rolls back on it leaves no
  // task behind), but the store is open again if it was. The task comes last, once the store is
  // as it will stay; the store is opened only once the task is no longer SYSTEM's.
  const bool open = installed ? options.unlock || (!options.lock && !wasLocked) : !wasLocked;
  bool complete = installed;
  if (installed && !open)
    complete = lockStore();
  if (installed && options.scheduleGiven)
    complete = schedule(options.schedule, folder) && complete;
  if (open)
    complete = openStore(folder, options.unlock) && complete;
  return complete ? 0 : 1;
}

}  // namespace

std::vector<std::string> commandLineArguments(const char* commandLine) {
  std::vector<std::string> arguments;
  std::string argument;
  bool quoted = false, started = false;
  for (const char* c = commandLine;; ++c) {
    if (*c == '\0' || (!quoted && (*c == ' ' || *c == '\t'))) {
      if (started)
        arguments.push_back(argument);
      argument.clear();
      started = false;
      if (*c == '\0')
        break;
    } else {
      if (*c == '"')
        quoted = !quoted;
      else
        argument += *c;
      started = true;
    }
  }
  if (!arguments.empty())
    arguments.erase(arguments.begin());  // The program's path.
  return arguments;
}

int runSettingsTool(const std::vector<std::string>& arguments) {
  // The run status and its events, and a file's signer: commands of their own.
  if (StatusCommand::isAskedFor(arguments))
    return StatusCommand::run(arguments);
  if (PublisherCommand::isAskedFor(arguments))
    return PublisherCommand::run(arguments);

  Options options;
  if (!parse(arguments, options)) {
    fprintf(stderr, kUsage, "cvupsettings", "cvupsettings");
    return 2;
  }
  int result = 3;
  bool storeToDelete = false;
  {
    const ProcessScope process;
    if (!process.started()) {
      fprintf(stderr, "Could not start: out of memory while setting up the log\n");
      return 3;
    }
    try {
      result = run(options, storeToDelete);
    } catch (...) {
      fprintf(stderr, "Could not finish: unexpected failure\n");
    }
  }
  // Deleted once the log is gone: a line written later would bring its switches back.
  if (storeToDelete)
    result = deleteStore();
  fflush(stdout);
  return result;
}
