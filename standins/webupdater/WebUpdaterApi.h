#pragma once

// The vendor's web-updater library, loaded at run time. Its six ANSI exports are looked up by
// name with GetProcAddress; these are their function types (x64: one calling convention, `int`
// is 32-bit signed). Arguments documented as "null" or "zero" are reserved and passed as such.

#include <cstdint>

extern "C" {

// The caller's allocator (its operator new); the library hands back memory obtained from it.
typedef void* UpdAllocateFn(unsigned long long size);

// (allocate, null, null, null, 0, null, null). Result ignored.
typedef int UpdInitializeAFn(UpdAllocateFn* allocate,
                             void* reserved1,
                             void* reserved2,
                             void* reserved3,
                             uint32_t reserved4,
                             void* reserved5,
                             void* reserved6);

// Result ignored.
typedef int UpdUninitializeFn();

// Returns kUpdConnected when connected; anything else means not connected.
typedef int UpdCheckConnectionFn();

// Writes the available version (null-terminated, at most kUpdNewVersionSize - 1 characters) into
// newVersion, a zero-filled buffer of kUpdNewVersionSize bytes. Returns a kUpdCheck* code.
typedef int UpdCheckForUpdateAFn(const char* url,
                                 const char* currentVersion,
                                 char* newVersion,
                                 uint32_t timeout,
                                 uint32_t retries,
                                 void* reserved);

// On entry *path points to the caller's kUpdPathBufferSize-byte buffer. On return *path points
// to the downloaded file's full path: either still the caller's buffer (filled in), or a block
// from the allocate callback that replaces the pointer (the caller then owns both), or null.
// result8 receives an 8-byte value the caller does not use. Returns kUpdDownloadSucceeded on
// success.
typedef int UpdDownloadUpdateExAFn(const char* url,
                                   void* reserved1,
                                   void* result8,
                                   void* reserved2,
                                   uint32_t timeout,
                                   uint32_t retries,
                                   char** path,
                                   void* reserved3);

// Returns kUpdApplied when the package was applied into destinationDir.
typedef int UpdApplyUpdateAFn(const char* packageFile,
                              const char* destinationDir,
                              void* reserved1,
                              void* reserved2,
                              void* reserved3);

}  // extern "C"

// UpdCheckConnection
constexpr int kUpdConnected = 1;

// UpdCheckForUpdateA
constexpr int kUpdCheckInetConnNotAvailable = 0;
constexpr int kUpdCheckServerNoResponse = 1;
constexpr int kUpdCheckUpdatesNotAvailable = 2;
constexpr int kUpdCheckUpdatesAvailable = 3;
constexpr int kUpdCheckInsufficientUserPrivilege = 4;
constexpr int kUpdCheckInvalidResponseDoc = 5;
constexpr unsigned kUpdNewVersionSize = 20;

// UpdDownloadUpdateExA
constexpr int kUpdDownloadSucceeded = 0;
constexpr unsigned kUpdPathBufferSize = 260;

// UpdApplyUpdateA
constexpr int kUpdApplied = 1;
