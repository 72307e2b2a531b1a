#include <windows.h>

#include "updater/Application.h"

// The windowless entry point: one update run, exit code 0 in every case.
int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR commandLine, int) {
  return runApplication(commandLine);
}
