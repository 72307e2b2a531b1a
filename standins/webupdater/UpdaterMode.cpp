#include "UpdaterMode.h"

#include "HttpMode.h"
#include "Scenario.h"
#include "ScriptedMode.h"

#include <string.h>

namespace wupd {

std::unique_ptr<UpdaterMode> makeUpdaterMode(const Scenario& scenario) {
  std::string mode = scenario.value("Library", "Mode", "scripted");
  if (_stricmp(mode.c_str(), "http") == 0)
    return std::make_unique<HttpMode>(scenario);
  return std::make_unique<ScriptedMode>(scenario);
}

}  // namespace wupd
