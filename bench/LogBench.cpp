// Benchmark of the log writer, printed as ratios against what the same work costs when done
// with the bare system calls, all measured in this one run:
//
//   1. one log line (BasicLogger::write, default headers) against the calls it cannot avoid:
//      the mutex wait and release, both CreateFileA, SetFilePointerEx to the end, WriteFile and
//      both CloseHandle, done by hand;
//   2. a traced call with logging off (FunctionTrace::open with the store present and
//      "startLog" = 0) against one RegOpenKeyExA + RegCloseKey of the store root;
//   3. lines per second of 16 processes writing at once against one process alone, beside the
//      same scaling for lines written by hand, which is what the machine itself allows.
//
// The two sides alternate round by round and their medians are compared, so that drift of the
// machine hits both alike.
//
//   cvbench                              run the benchmark
//   cvbench writer|byhand COUNT TAG    (internal) one writer process of measurement 3
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "logging/BasicLogger.h"
#include "logging/FunctionTrace.h"
#include "logging/Logger.h"
#include "system/Localize.h"
#include "system/SecurityEveryone.h"
#include "system/UniqueHandle.h"
#include "updater/ProcessScope.h"

namespace {

const int kRounds = 9;
const char kText[] = " Bench::run()  a detail line of typical length, n=12345";

double now() {
  static const double frequency = [] {
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    return static_cast<double>(f.QuadPart);
  }();
  LARGE_INTEGER counter;
  QueryPerformanceCounter(&counter);
  return static_cast<double>(counter.QuadPart) / frequency;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t middle = values.size() / 2;
  return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// The line BasicLogger writes for kText with default headers (same length; the clock differs).
std::string lineOfText() {
  return "2026/11/16-04:43:39.123 Updater         " + std::string(kText) + "\r\n";
}

// The system calls of one line, by hand, in the writer's order.
void writeLineByHand(HANDLE mutex,
                     const std::string& path,
                     SECURITY_ATTRIBUTES* attributes,
                     const std::string& line) {
  WaitForSingleObject(mutex, INFINITE);
  ScopedHandle(CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                           FILE_SHARE_READ | FILE_SHARE_WRITE, attributes, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, nullptr));
  const ScopedHandle file(CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, attributes, OPEN_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
  const LARGE_INTEGER none = {};
  SetFilePointerEx(file.get(), none, nullptr, FILE_END);
  DWORD written = 0;
  WriteFile(file.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
  ReleaseMutex(mutex);
}

HANDLE openLogMutex(const std::string& path) {
  return CreateMutexA(nullptr, FALSE, ("CVLOG_" + path.substr(path.rfind('\\') + 1)).c_str());
}

// Seconds per call of `body`, run `count` times.
double timePerCall(int count, const std::function<void()>& body) {
  const double start = now();
  for (int i = 0; i < count; ++i)
    body();
  return (now() - start) / count;
}

void report(const char* title,
            const char* measuredName,
            double measured,
            const char* floorName,
            double floor,
            const char* unit,
            double ratio,
            const char* target,
            bool met) {
  printf("%s\n  %-46s %10.2f %s\n  %-46s %10.2f %s\n  ratio %.3f (target %s) %s\n", title,
         measuredName, measured, unit, floorName, floor, unit, ratio, target,
         met ? "met" : "MISSED");
}

// Times `measured` against `floor` in alternating rounds; prints microseconds per call.
void compare(const char* title,
             int count,
             const std::function<void()>& measured,
             const char* measuredName,
             const std::function<void()>& floor,
             const char* floorName,
             double target) {
  timePerCall(count / 4, measured);  // Warm-up.
  timePerCall(count / 4, floor);
  std::vector<double> m, f;
  for (int round = 0; round < kRounds; ++round) {
    if (round % 2 == 0)
      m.push_back(timePerCall(count, measured));
    f.push_back(timePerCall(count, floor));
    if (round % 2 != 0)
      m.push_back(timePerCall(count, measured));
  }
  const double ratio = median(m) / median(f);
  char targetText[16];
  snprintf(targetText, sizeof(targetText), "<= %.2f", target);
  report(title, measuredName, median(m) * 1e6, floorName, median(f) * 1e6, "us", ratio, targetText,
         ratio <= target);
  printf("\n");
}

// --- 1. One line ----------------------------------------------------------------------------

void benchLine(const std::string& directory) {
  const std::string path = directory + "cvbench_line.log";
  ScopedHandle(CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr));
  BasicLogger logger(path, 15);  // Default headers: the clock, no ids.
  const ScopedHandle mutex(openLogMutex(path));
  SecurityEveryone security(false);  // What the writer passes to CreateFileA.
  const std::string line = lineOfText();
  compare(
      "1. One log line, default headers", 2000,
      [&] { logger.write(kLogUpdater, LOG_TRACE, kText); }, "BasicLogger::write()",
      [&] { writeLineByHand(mutex.get(), path, security.getSecurityAttributes(), line); },
      "the system calls of one line, by hand", 1.10);
  logger.deleteLogFile();
}

// --- 2. A traced call with logging off ------------------------------------------------------

void benchTracedCallOff() {
  const std::string root = Localize::getInstance()->getRegistryPath(0);
  const DWORD off = 0;
  RegSetKeyValueA(HKEY_LOCAL_MACHINE, (root + "Logger").c_str(), "startLog", REG_DWORD, &off,
                  sizeof(off));
  compare(
      "2. Traced call, logging off", 5000,
      [] {
        FunctionTrace trace = FunctionTrace::open(kLogUpdater, "Bench::tracedCall() ");
        if (trace.isOn())
          trace.setRc(0);
      },
      "FunctionTrace::open() and its scope",
      [&root] {
        ScopedKey storeRoot;
        RegOpenKeyExA(HKEY_LOCAL_MACHINE, root.c_str(), 0, KEY_ALL_ACCESS, storeRoot.receive());
      },
      "RegOpenKeyExA + RegCloseKey of the store root", 1.3);
}

// --- 3. Concurrent processes ----------------------------------------------------------------

// Runs `processes` children in `mode`, `linesEach` lines each, all released at once; returns
// lines per second from the release until the last child has written its last line.
double runWriters(const char* mode, int processes, int linesEach) {
  const std::string tag = std::to_string(GetCurrentProcessId()) + "_" + std::to_string(processes);
  const ScopedHandle gate(CreateEventA(nullptr, TRUE, FALSE, ("cvbench_gate_" + tag).c_str()));
  const ScopedHandle ready(
      CreateSemaphoreA(nullptr, 0, processes, ("cvbench_ready_" + tag).c_str()));
  const ScopedHandle done(CreateSemaphoreA(nullptr, 0, processes, ("cvbench_done_" + tag).c_str()));
  char self[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, self, MAX_PATH);
  std::vector<ScopedHandle> children;
  for (int i = 0; i < processes; ++i) {
    std::string command =
        "\"" + std::string(self) + "\" " + mode + " " + std::to_string(linesEach) + " " + tag;
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessA(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &process)) {
      fprintf(stderr, "CreateProcess failed: %lu\n", GetLastError());
      exit(1);
    }
    const ScopedHandle thread(process.hThread);  // Not needed: closed at once.
    children.emplace_back(process.hProcess);
  }
  for (int i = 0; i < processes; ++i)
    WaitForSingleObject(ready.get(), INFINITE);
  Sleep(300);  // Let Wine's start-up work of the children settle.
  const double start = now();
  SetEvent(gate.get());
  for (int i = 0; i < processes; ++i)
    WaitForSingleObject(done.get(), INFINITE);
  const double elapsed = now() - start;
  for (const ScopedHandle& child : children)
    WaitForSingleObject(child.get(), INFINITE);
  return processes * linesEach / elapsed;
}

void benchProcesses() {
  const int kProcesses = 16;
  const int kLines = 8000;
  const int kProcessRounds = 5;
  std::vector<double> many, one, manyByHand, oneByHand;
  runWriters("writer", 1, kLines / 8);  // Warm-up.
  for (int round = 0; round < kProcessRounds; ++round) {
    for (const bool byHand : {false, true}) {
      const char* mode = byHand ? "byhand" : "writer";
      const auto manyRun = [&] {
        (byHand ? manyByHand : many).push_back(runWriters(mode, kProcesses, kLines / kProcesses));
      };
      const auto oneRun = [&] {
        (byHand ? oneByHand : one).push_back(runWriters(mode, 1, kLines));
      };
      if (round % 2 == 0) {
        manyRun();
        oneRun();
      } else {
        oneRun();
        manyRun();
      }
    }
  }
  // The machine's own scaling (the same lines by hand) sits beside the logger's, so that a
  // machine with few cores is not taken for a slow logger.
  const double scaling = median(many) / median(one);
  const double machineScaling = median(manyByHand) / median(oneByHand);
  printf("3. Lines per second, 16 processes at once against one\n");
  printf("  %-22s %10.0f lines/s with 16, %10.0f with 1: scaling %.3f\n", "BasicLogger::write()",
         median(many), median(one), scaling);
  printf("  %-22s %10.0f lines/s with 16, %10.0f with 1: scaling %.3f\n", "by hand (the machine)",
         median(manyByHand), median(oneByHand), machineScaling);
  printf("  logger's scaling %.3f (target >= 0.80) %s; against the machine's %.3f\n\n", scaling,
         scaling >= 0.8 ? "met" : "MISSED", scaling / machineScaling);
}

// A child of measurement 3: writes `count` lines to the program's log, through the Logger or
// by hand, once the parent opens the gate.
int writer(int count, const std::string& tag, bool byHand) {
  const ScopedHandle gate(OpenEventA(SYNCHRONIZE, FALSE, ("cvbench_gate_" + tag).c_str()));
  const ScopedHandle ready(
      OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, ("cvbench_ready_" + tag).c_str()));
  const ScopedHandle done(
      OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, ("cvbench_done_" + tag).c_str()));
  if (!gate.valid() || !ready.valid() || !done.valid())
    return 3;
  const ProcessScope process;
  BasicLogger& logger = BasicLogger::getInstance();
  logger.write(kLogUpdater, LOG_TRACE, "writer ready");  // Fills the switch cache.
  const std::string path = Logger::getLogFilePath();
  const std::string line = lineOfText();
  const ScopedHandle mutex(openLogMutex(path));
  SecurityEveryone security(false);
  ReleaseSemaphore(ready.get(), 1, nullptr);
  WaitForSingleObject(gate.get(), INFINITE);
  for (int i = 0; i < count; ++i) {
    if (byHand)
      writeLineByHand(mutex.get(), path, security.getSecurityAttributes(), line);
    else
      logger.write(kLogUpdater, LOG_TRACE, kText);
  }
  ReleaseSemaphore(done.get(), 1, nullptr);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  if (argc > 3 && (command == "writer" || command == "byhand"))
    return writer(atoi(argv[2]), argv[3], command == "byhand");

  const ProcessScope process;
  char temp[MAX_PATH] = {};
  GetTempPathA(MAX_PATH, temp);
  printf("Log writer benchmark (medians of alternating rounds)\n\n");
  fflush(stdout);
  benchLine(temp);
  fflush(stdout);
  benchTracedCallOff();
  fflush(stdout);
  benchProcesses();
  // Leave nothing behind: the log file and the store of this executable's local id.
  DeleteFileA(Logger::getLogFilePath().c_str());
  const std::string store = Localize::getInstance()->getRegistryPath(0);
  RegDeleteTreeA(HKEY_LOCAL_MACHINE, store.c_str());
  RegDeleteKeyA(HKEY_LOCAL_MACHINE, store.c_str());
  return 0;
}
