// A library that loads but exports none of the web-updater functions, for the paths that handle
// a missing export.

#include <windows.h>

extern "C" {

BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) {
  return TRUE;
}

// The one export, so the file is a normal DLL with an export table.
int StandinNoUpdaterExports() {
  return 0;
}

}  // extern "C"
