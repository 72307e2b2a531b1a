#include "UpdaterMode.h"

#include "common/ScenarioFile.h"

#include <string.h>

namespace wupd {

const UpdaterMode& updaterMode(const standin::ScenarioFile& scenario) {
  std::string mode = scenario.value("Library", "Mode", "scripted");
  return _stricmp(mode.c_str(), "http") == 0 ? kHttpMode : kScriptedMode;
}

}  // namespace wupd
