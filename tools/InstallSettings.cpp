// cvupsettings: installs the program's default settings file into the registry, as an installer
// does before the first update run. The tool takes the program's four-character prefix ("cvup"),
// so it finds the same settings file beside it (local id + "qnv.loc") and fills the same store.
//
// Exit codes: 0 installed; 1 not every entry could be installed (the log names each one when
// logging is on); 2 the settings file is missing, or arguments were given; 3 start-up failed.

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "logging/Logger.h"
#include "settings/Settings.h"
#include "system/CurrentProcess.h"
#include "system/Localize.h"
#include "updater/ProcessScope.h"

namespace {

bool isFile(const std::string& path) {
  const DWORD attributes = GetFileAttributesA(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

int installDefaultSettings() {
  const std::string file =
      CurrentProcess::getInstance()->getDirectory() + Settings::getMarkerFilePath();
  const std::string store =
      "HKLM\\" + Localize::getInstance()->getRegistryPath(Localize::kLocalPath);
  if (!isFile(file)) {
    fprintf(stderr, "Settings file not found: %s\n", file.c_str());
    return 2;
  }
  const uint32_t status = Settings().installDefaultSettings();
  if (status != Settings::kInstalled) {
    fprintf(stderr,
            "Could not install every default setting from %s into %s (status %u); the log %s "
            "names each entry that failed when %sLogger\\startLog is 1\n",
            file.c_str(), store.c_str(), static_cast<unsigned>(status),
            Logger::getLogFilePath().c_str(), store.c_str());
    return 1;
  }
  printf("Installed the default settings from %s into %s\n", file.c_str(), store.c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) {
    fprintf(stderr, "Usage: %s\nInstalls the settings file beside it into the registry.\n",
            argv[0]);
    return 2;
  }
  const ProcessScope process;
  if (!process.started()) {
    fprintf(stderr, "Could not start: the executable's name or the log could not be set up\n");
    return 3;
  }
  int result = 3;
  try {
    result = installDefaultSettings();
  } catch (...) {
    fprintf(stderr, "Could not install the default settings: unexpected failure\n");
  }
  fflush(stdout);
  return result;
}
