// The six exports of the stand-in web-updater library. Each call reads the scenario afresh,
// lets the configured mode decide, fills the caller's buffers and appends a journal line.

#include "FileUtil.h"
#include "Journal.h"
#include "UpdaterMode.h"
#include "common/ScenarioFile.h"
#include "webupdate/WebUpdaterLibrary.h"

#include <windows.h>

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <stdexcept>
#include <type_traits>

namespace {

HMODULE g_module = nullptr;
std::atomic<UpdAllocateFn*> g_allocate{nullptr};

std::string scenarioPath() {
  std::string path = wupd::environmentVariable("WUPD_SCENARIO");
  return path.empty() ? wupd::modulePath(g_module) + ".ini" : path;
}

// The per-call context: the scenario as it is now, its journal and its mode.
struct Call {
  Call()
      : scenario(scenarioPath()),
        journal(scenario.value("Library", "Journal", "")),
        mode(wupd::updaterMode(scenario)) {}

  standin::ScenarioFile scenario;
  wupd::Journal journal;
  const wupd::UpdaterMode& mode;
};

std::string text(const char* value) {
  return value != nullptr ? std::string(value) : std::string();
}

// The library's documented buffers, kept apart from the program's constants: it may fill all 20
// bytes of the new version, and writes paths of up to MAX_PATH bytes.
const size_t kNewVersionBytes = 20;
const size_t kPathBytes = MAX_PATH;

// Copies `value` into the caller's heap block `buffer`, truncated to `documented` bytes and always
// null-terminated. A block shorter than documented is overrun by the real library; here the value
// comes back cut to the block's size instead, so that a short buffer shows.
void copyTruncated(const std::string& value, char* buffer, size_t documented) {
  const size_t length = std::min(value.size(), std::min(documented, _msize(buffer)) - 1);
  std::memcpy(buffer, value.data(), length);
  buffer[length] = '\0';
}

// Hands `file` to the caller as `wanted` asks; returns how it was handed over. Without an
// allocation callback (or when it fails) an alloc request falls back to the caller's buffer.
wupd::PathDelivery deliverPath(char** path, wupd::PathDelivery wanted, const std::string& file) {
  if (path == nullptr)
    return wanted;
  if (wanted == wupd::PathDelivery::kNull) {
    *path = nullptr;
    return wanted;
  }
  if (wanted == wupd::PathDelivery::kEmpty) {
    UpdAllocateFn* allocate = g_allocate.load();
    void* block = allocate != nullptr ? allocate(0) : nullptr;
    if (block != nullptr) {
      *path = static_cast<char*>(block);
      return wanted;
    }
  }
  if (wanted == wupd::PathDelivery::kFull && *path != nullptr && !file.empty()) {
    for (size_t at = 0; at < kUpdPathBufferSize; ++at)
      (*path)[at] = file[at % file.size()];
    return wanted;
  }
  if (wanted == wupd::PathDelivery::kAlloc) {
    UpdAllocateFn* allocate = g_allocate.load();
    void* block = allocate != nullptr ? allocate(file.size() + 1) : nullptr;
    if (block != nullptr) {
      std::memcpy(block, file.c_str(), file.size() + 1);
      *path = static_cast<char*>(block);
      return wanted;
    }
  }
  if (*path != nullptr)
    copyTruncated(file, *path, kPathBytes);
  return wupd::PathDelivery::kBuffer;
}

const char* deliveryName(wupd::PathDelivery delivery) {
  switch (delivery) {
    case wupd::PathDelivery::kAlloc:
      return "alloc";
    case wupd::PathDelivery::kNull:
      return "null";
    case wupd::PathDelivery::kEmpty:
      return "empty";
    case wupd::PathDelivery::kFull:
      return "full";
    case wupd::PathDelivery::kBuffer:
      break;
  }
  return "buffer";
}

}  // namespace

extern "C" {

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    g_module = instance;
    DisableThreadLibraryCalls(instance);
  }
  return TRUE;
}

int UpdInitializeA(UpdAllocateFn* allocate, void*, void*, void*, uint32_t, void*, void*) {
  g_allocate.store(allocate);
  Call call;
  call.journal.append(std::string("UpdInitializeA | callback=") +
                      (allocate != nullptr ? "1" : "0"));
  return static_cast<int>(call.scenario.number("Library", "Initialize", 0));
}

int UpdUninitialize() {
  g_allocate.store(nullptr);
  Call call;
  call.journal.append("UpdUninitialize");
  return 0;
}

int UpdCheckConnection() {
  Call call;
  int result = call.mode.checkConnection(call.scenario);
  call.journal.append("UpdCheckConnection | result=" + std::to_string(result));
  return result;
}

int UpdCheckForUpdateA(const char* url,
                       const char* currentVersion,
                       char* newVersion,
                       uint32_t timeout,
                       uint32_t retries,
                       void*) {
  Call call;
  wupd::CheckOutcome outcome =
      call.mode.checkForUpdate(call.scenario, text(url), text(currentVersion), timeout, retries);
  std::string written;
  if (newVersion != nullptr && !outcome.newVersion.empty()) {
    copyTruncated(outcome.newVersion, newVersion, kNewVersionBytes);
    written = newVersion;
  }
  call.journal.append(
      "UpdCheckForUpdateA | url=" + text(url) + " | version=" + text(currentVersion) +
      " | timeout=" + std::to_string(timeout) + " | retries=" + std::to_string(retries) +
      " | result=" + std::to_string(outcome.result) + " | newversion=" + written);
  return outcome.result;
}

int UpdDownloadUpdateExA(const char* url,
                         void*,
                         void* result8,
                         void*,
                         uint32_t timeout,
                         uint32_t retries,
                         char** path,
                         void*) {
  Call call;
  wupd::DownloadOutcome outcome = call.mode.download(call.scenario, text(url), timeout, retries);
  if (result8 != nullptr)
    std::memset(result8, 0, 8);
  wupd::PathDelivery delivery = deliverPath(path, outcome.delivery, outcome.file);
  call.journal.append(
      "UpdDownloadUpdateExA | url=" + text(url) + " | timeout=" + std::to_string(timeout) +
      " | retries=" + std::to_string(retries) + " | result=" + std::to_string(outcome.result) +
      " | mode=" + deliveryName(delivery) + " | file=" + outcome.file);
  return outcome.result;
}

int UpdApplyUpdateA(const char* packageFile, const char* destinationDir, void*, void*, void*) {
  Call call;
  // Scripted faults of a real library: [Apply] <rule>=hang never returns, =throw throws a C++
  // exception that is not the program's own. Both are journaled first. A slow apply, =gate,
  // journals its start, waits (a minute at most) until the file [Library] Gate exists, and then
  // succeeds; =gate unpack then writes the package's files.
  const std::string fault = call.scenario.rule("Apply", text(packageFile)).value_or("");
  if (fault == "gate" || fault == "gate unpack") {
    call.journal.append("UpdApplyUpdateA | package=" + text(packageFile) + " | started");
    const std::string gate = call.scenario.value("Library", "Gate", "");
    for (int polls = 0; polls < 6000 && GetFileAttributesA(gate.c_str()) == INVALID_FILE_ATTRIBUTES;
         ++polls)
      Sleep(10);
    const int result =
        fault == "gate" ? 1
                        : call.mode.apply(call.scenario, text(packageFile), text(destinationDir));
    call.journal.append("UpdApplyUpdateA | package=" + text(packageFile) +
                        " | dir=" + text(destinationDir) + " | result=" + std::to_string(result));
    return result;
  }
  if (fault == "hang" || fault == "throw") {
    call.journal.append("UpdApplyUpdateA | package=" + text(packageFile) +
                        " | dir=" + text(destinationDir) + " | result=" + fault);
    if (fault == "throw")
      throw std::runtime_error("stand-in library: apply failed");
    for (;;)
      Sleep(INFINITE);
  }
  int result = call.mode.apply(call.scenario, text(packageFile), text(destinationDir));
  call.journal.append("UpdApplyUpdateA | package=" + text(packageFile) +
                      " | dir=" + text(destinationDir) + " | result=" + std::to_string(result));
  return result;
}

}  // extern "C"

// The exports must keep the library's signatures exactly.
