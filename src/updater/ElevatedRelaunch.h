#pragma once

#include <windows.h>

class FunctionTrace;

// The relaunch of this program elevated: the shell's ShellExecuteA with the verb "RunAs", the
// program's path, the marker "-UAC" alone as its parameters, no working directory and a normal
// window. Nothing is waited for.
namespace ElevatedRelaunch {

// The shell's ShellExecuteA; a seam so that tests can present a declined elevation prompt.
using ShellExecuteFunction = HINSTANCE(WINAPI*)(HWND, LPCSTR, LPCSTR, LPCSTR, LPCSTR, INT);

// Starts this program elevated; the value the shell returned (above 32: the child was started).
// Says through `trace` whether the child was started, with the shell's value when it was not; a
// failure to find the program's own path is logged at the always-written level and returns 0.
INT_PTR launch(FunctionTrace& trace);

// Replaces ShellExecuteA for every later start; null restores it.
void setShellExecuteFunction(ShellExecuteFunction function);

}  // namespace ElevatedRelaunch
