#pragma once

#include <cstdint>

// The interface of the vendor's web-updater library, a closed DLL loaded at run time. These
// declarations give the exports' signatures for typed lookups; the program never links them.
extern "C" {

// The allocator the library uses for memory it hands back to the program.
typedef void* (*UpdAllocCallback)(unsigned long long size);

int UpdInitializeA(UpdAllocCallback allocate,
                   void* reserved1,
                   void* reserved2,
                   void* reserved3,
                   uint32_t reserved4,
                   void* reserved5,
                   void* reserved6);
int UpdUninitialize();
// 1: connected to the internet.
int UpdCheckConnection();
// Writes the available version into the 20-byte `newVersion`; returns one of the UPD_ codes.
int UpdCheckForUpdateA(const char* url,
                       const char* currentVersion,
                       char* newVersion,
                       uint32_t timeOut,
                       uint32_t retryCount,
                       void* reserved);
// 0: success; *downloadedFile then points to the file's path, either in the program's buffer or
// in a block from the allocation callback.
int UpdDownloadUpdateExA(const char* url,
                         void* reserved1,
                         void* ignoredOut,
                         void* reserved2,
                         uint32_t timeOut,
                         uint32_t retryCount,
                         char** downloadedFile,
                         void* reserved3);
// 1: applied.
int UpdApplyUpdateA(const char* packageFile,
                    const char* destinationDir,
                    void* reserved1,
                    void* reserved2,
                    void* reserved3);
}

// Result codes of UpdCheckForUpdateA.
enum UpdCheckCode : int32_t {
  UPD_UPDATES_INET_CONN_NOT_AVAILABLE = 0,
  UPD_UPDATES_SERVER_NO_RESPONSE = 1,
  UPD_UPDATES_NOT_AVAILABLE = 2,
  UPD_UPDATES_AVAILABLE = 3,
  UPD_INSUFFICIENT_USER_PRIVILEGE = 4,
  UPD_INVALID_RESPONSE_DOC = 5,
};
