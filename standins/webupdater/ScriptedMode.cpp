#include "UpdaterMode.h"

#include "FileUtil.h"
#include "Package.h"
#include "common/ScenarioFile.h"

#include <string.h>

#include <optional>

namespace wupd {

namespace {

int checkConnection(const standin::ScenarioFile& scenario) {
  return static_cast<int>(scenario.number("Library", "Connection", 1));
}

CheckOutcome checkForUpdate(const standin::ScenarioFile& scenario,
                            const std::string& url,
                            const std::string&,
                            uint32_t,
                            uint32_t) {
  CheckOutcome outcome;
  outcome.result = 2;
  std::optional<std::string> rule = scenario.rule("Check", url);
  if (!rule)
    return outcome;
  std::vector<std::string> fields = standin::splitFields(*rule, 2);
  outcome.result = static_cast<int>(standin::parseNumber(fields[0], 2));
  if (fields.size() > 1)
    outcome.newVersion = standin::trim(fields[1]);
  return outcome;
}

DownloadOutcome download(const standin::ScenarioFile& scenario,
                         const std::string& url,
                         uint32_t,
                         uint32_t) {
  DownloadOutcome outcome;
  std::optional<std::string> rule = scenario.rule("Download", url);
  if (!rule)
    return outcome;
  std::vector<std::string> fields = standin::splitFields(*rule, 4);
  outcome.result = static_cast<int>(standin::parseNumber(fields[0], 1));
  std::string mode = fields.size() > 1 ? standin::trim(fields[1]) : std::string();
  if (_stricmp(mode.c_str(), "alloc") == 0)
    outcome.delivery = PathDelivery::kAlloc;
  else if (_stricmp(mode.c_str(), "null") == 0)
    outcome.delivery = PathDelivery::kNull;
  else if (_stricmp(mode.c_str(), "empty") == 0)
    outcome.delivery = PathDelivery::kEmpty;
  else if (_stricmp(mode.c_str(), "full") == 0)
    outcome.delivery = PathDelivery::kFull;
  outcome.file = fields.size() > 2 ? standin::trim(fields[2]) : std::string();
  // "named": the path is handed back in the buffer, and nothing is written there.
  if (!outcome.file.empty() && _stricmp(mode.c_str(), "named") != 0)
    writeFile(outcome.file, fields.size() > 3 ? fields[3] : std::string("package"));
  return outcome;
}

int apply(const standin::ScenarioFile& scenario,
          const std::string& packageFile,
          const std::string& destinationDir) {
  std::optional<std::string> rule = scenario.rule("Apply", packageFile);
  // "unpack" (also after "gate"): the package's files are written, as a real apply does.
  if (rule && rule->find("unpack") != std::string::npos)
    return Package::unpack(packageFile, destinationDir) ? 1 : 0;
  return rule ? static_cast<int>(standin::parseNumber(*rule, 1)) : 1;
}

}  // namespace

const UpdaterMode kScriptedMode = {checkConnection, checkForUpdate, download, apply};

}  // namespace wupd
