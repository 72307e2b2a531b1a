// cvupsettings: installs the program's settings and looks after its deployment (SettingsTool).
#include <windows.h>

#include "SettingsTool.h"

int main() {
  return runSettingsTool(commandLineArguments(GetCommandLineA()));
}
