#pragma once

// One whole process: the DLL search narrowed (hardenDllSearch), the start-up of ProcessScope, the
// recovery of printers an earlier run left paused (PauseRecord), one update run, and the
// shutdown. Always returns 0.
int runApplication(const char* commandLine);
