#pragma once

#include <string>
#include <vector>

// The settings tool (cvupsettings.exe), whole: what its main runs, and what the tests run with a
// start-up that fails. Returns the exit code:
//   0  everything asked for was done
//   1  not everything: each entry of the settings file that was not installed as written, and
//      each step that failed, is named on its own line of stderr
//   2  the arguments are wrong, or the settings file is missing
//   3  the tool could not start (it cannot set up its log: out of memory)
int runSettingsTool(const std::vector<std::string>& arguments);

// The arguments of a command line, the program's path left out. Blanks separate them, a double
// quote starts or ends a quoted part, and nothing else is special: a path that ends in a backslash
// keeps it before its closing quote ("C:\Data\"), as a deployer (or an installer's command
// line, filled in from properties) writes it.
std::vector<std::string> commandLineArguments(const char* commandLine);
