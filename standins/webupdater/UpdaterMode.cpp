#include "UpdaterMode.h"

#include "HttpMode.h"
#include "ScriptedMode.h"
#include "common/ScenarioFile.h"

#include <string.h>

namespace wupd {

std::unique_ptr<UpdaterMode> makeUpdaterMode(const standin::ScenarioFile& scenario) {
  std::string mode = scenario.value("Library", "Mode", "scripted");
  if (_stricmp(mode.c_str(), "http") == 0)
    return std::make_unique<HttpMode>(scenario);
  return std::make_unique<ScriptedMode>(scenario);
}

}  // namespace wupd
