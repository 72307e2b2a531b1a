#pragma once

#include <windows.h>

// The export `name` of `module` as a pointer of the type `FunctionPointer`, which
// LOOKUP_EXPORT takes from the export's declaration, so that a call that does not match the
// declared signature fails to compile. Null when the export is missing (GetLastError() says why).
template <typename FunctionPointer>
FunctionPointer lookupExport(HMODULE module, const char* name) {
  return reinterpret_cast<FunctionPointer>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

// The export of `module` that `function` declares, e.g. LOOKUP_EXPORT(kernel, IsWow64Process).
#define LOOKUP_EXPORT(module, function) lookupExport<decltype(&(function))>((module), #function)
