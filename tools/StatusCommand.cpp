#include "StatusCommand.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "settings/Policy.h"
#include "settings/Settings.h"
#include "settings/TrustedPublishers.h"
#include "system/CurrentProcess.h"
#include "system/Localize.h"
#include "updater/ProcessScope.h"
#include "updater/RunConditions.h"
#include "updater/RunEventLog.h"
#include "updater/RunStatus.h"

namespace {

const char kUsage[] =
    "Usage: cvupsettings /status [/maxage DAYS]\n"
    "       cvupsettings /register-events\n"
    "/status prints the last update run's status and exits 0 when its last success is at most\n"
    "DAYS (default 7) old, 1 otherwise; /register-events registers the program's event source.\n";
const unsigned long kDefaultMaxAgeDays = 7;
const unsigned long kLargestMaxAgeDays = 36500;

// DAYS: decimal digits only, at most kLargestMaxAgeDays.
bool parseDays(const std::string& text, unsigned long& days) {
  if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos)
    return false;
  days = strtoul(text.c_str(), nullptr, 10);
  return days <= kLargestMaxAgeDays;
}

// The settings that fleet policy can set, as a run would read them now, each with where its value
// comes from, then the policy values that are ignored, then the trusted publishers in force.
// Reads only.
void printEffectiveSettings() {
  printf("\nEffective settings (source: policy, store or default):\n");
  for (const Settings::EffectiveValue& setting : Settings().getEffectiveValues())
    printf("%s (%s): %s\n", setting.name.c_str(), setting.source.c_str(),
           setting.isSet ? setting.value.c_str() : "(not set)");
  const RunConditions conditions = RunConditions::read();
  const std::string next = conditions.nextApplyWindow();
  if (!next.empty())
    printf("Apply window: %s now; the next opens at %s\n",
           conditions.isDeferred() ? "closed" : "open", next.c_str());
  const std::vector<std::string>& notes = conditions.notes();
  printf("Policy problems:%s\n", notes.empty() ? " none" : "");
  for (const std::string& note : notes)
    printf("%s\n", note.c_str());
  // The list a run uses is the union of three, which the line of one setting above cannot show.
  const TrustedPublishers publishers;
  std::string list;
  for (const std::string& hash : publishers.hashes())
    list += (list.empty() ? "" : ";") + hash;
  printf("Trusted publishers in force (built in, policy, a locked store): %s\n",
         list.empty() ? "none: packages are not verified" : list.c_str());
  for (const std::string& problem : publishers.problems())
    printf("TrustedPublishers: %s\n", problem.c_str());
}

int status(unsigned long maxAgeDays) {
  std::string lastSuccess;
  const std::vector<RunStatus::Value> values = RunStatus::read();
  for (const RunStatus::Value& value : values) {
    printf("%s: %s\n", value.first.c_str(), value.second.c_str());
    if (value.first == "LastSuccess")
      lastSuccess = value.second;
  }
  if (values.empty())
    fprintf(stderr, "No run status in HKLM\\%sStatus: the program has not ended a run\n",
            Localize::getInstance()->getRegistryPath(Localize::kLocalPath).c_str());
  printEffectiveSettings();
  if (values.empty())
    return 1;
  std::string why;
  if (RunStatus::isRunOverdue(values, why)) {
    fprintf(stderr, "Not healthy: %s\n", why.c_str());
    return 1;
  }
  if (RunStatus::isWithinDays(lastSuccess, maxAgeDays, &why))
    return 0;
  fprintf(stderr, "Not up to date: LastSuccess: %s\n", why.c_str());
  return 1;
}

int registerEvents() {
  const std::string program = CurrentProcess::getInstance()->getDirectory() + "cvupdater.exe";
  if (!RunEventLog::registerSource(program)) {
    fprintf(stderr, "Could not register the event source '%s' (status %lu)\n",
            RunEventLog::kSourceName, GetLastError());
    return 1;
  }
  printf("Registered the event source '%s' with %s\n", RunEventLog::kSourceName, program.c_str());
  return 0;
}

}  // namespace

bool StatusCommand::isAskedFor(const std::vector<std::string>& arguments) {
  return !arguments.empty() && (arguments[0] == "/status" || arguments[0] == "/register-events");
}

int StatusCommand::run(const std::vector<std::string>& arguments) {
  unsigned long maxAgeDays = kDefaultMaxAgeDays;
  const bool valid =
      arguments[0] == "/status"
          ? arguments.size() == 1 || (arguments.size() == 3 && arguments[1] == "/maxage" &&
                                      parseDays(arguments[2], maxAgeDays))
          : arguments.size() == 1;
  if (!valid) {
    fputs(kUsage, stderr);
    return 2;
  }
  const ProcessScope process;
  if (!process.started()) {
    fprintf(stderr, "Could not start: out of memory while setting up the log\n");
    return 3;
  }
  const int result = arguments[0] == "/status" ? status(maxAgeDays) : registerEvents();
  fflush(stdout);
  return result;
}
