#pragma once

// One whole process: the DLL search narrowed (hardenDllSearch), the start-up of ProcessScope, the
// run's lock (RunLock), the recovery of what an earlier run left behind (its paused printers,
// PauseRecord; its downloads, DownloadRecord), one update run, and the shutdown. A run that finds
// the lock held by another live run logs "Another update run is in progress, this one ends." and
// does nothing else. Always returns 0.
int runApplication(const char* commandLine);
