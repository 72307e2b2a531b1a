#pragma once

// One whole process: the DLL search narrowed (hardenDllSearch), the start-up of ProcessScope, the
// recovery of what an earlier run left behind (its paused printers, PauseRecord; its downloads,
// DownloadRecord), one update run, and the shutdown. Always returns 0.
int runApplication(const char* commandLine);
