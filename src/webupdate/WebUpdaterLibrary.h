#pragma once

#include <cstdint>

// The interface of the vendor's web-updater library, a closed DLL loaded at run time. The
// declarations give the six exports' signatures for typed lookups (the program never links
// them); a library built from them is checked against them by the compiler. Arguments named
// "reserved" are passed as null or zero.
extern "C" {

// The program's allocator (operator new); the library hands back memory obtained from it.
typedef void* UpdAllocateFn(unsigned long long size);

// Result ignored.
int UpdInitializeA(UpdAllocateFn* allocate,
                   void* reserved1,
                   void* reserved2,
                   void* reserved3,
                   uint32_t reserved4,
                   void* reserved5,
                   void* reserved6);
// Result ignored.
int UpdUninitialize();
// kUpdConnected when connected to the internet.
int UpdCheckConnection();
// Writes the available version (null-terminated) into `newVersion`, a zero-filled buffer of
// kUpdNewVersionSize bytes; returns one of the UPD_ check codes.
int UpdCheckForUpdateA(const char* url,
                       const char* currentVersion,
                       char* newVersion,
                       uint32_t timeOut,
                       uint32_t retryCount,
                       void* reserved);
// On entry *downloadedFile points to the program's kUpdPathBufferSize-byte buffer; on return to
// the downloaded file's path, either in that buffer or in a block from the allocation callback
// that replaced the pointer (or null). `ignoredOut` receives 8 bytes nobody reads.
// kUpdDownloadSucceeded on success.
int UpdDownloadUpdateExA(const char* url,
                         void* reserved1,
                         void* ignoredOut,
                         void* reserved2,
                         uint32_t timeOut,
                         uint32_t retryCount,
                         char** downloadedFile,
                         void* reserved3);
// kUpdApplied when the package was applied into `destinationDir`.
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

inline constexpr int kUpdConnected = 1;
inline constexpr int kUpdDownloadSucceeded = 0;
inline constexpr int kUpdApplied = 1;
inline constexpr unsigned kUpdNewVersionSize = 20;
inline constexpr unsigned kUpdPathBufferSize = 260;
