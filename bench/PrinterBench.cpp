// Benchmark of the wait for quiet printers before an apply, on a print server: N printers of the
// driver behind the stand-in spooler, each found busy with probability 0.05 at every poll
// (seeded, so every run polls the same), "PrinterPollInterval" 50 ms. For N = 10, 50, 100 and 200,
// in the one-round mode (pausePrinters: one round at which every printer is quiet at once) and in
// drain mode (drainPrinters: each printer paused once quiet), it prints the poll rounds, the
// GetPrinterA calls and the time until the apply would start, all measured in this one run, beside
// the rounds that the probabilities predict and the time slept between rounds (the rest is the
// stand-in's own cost per call); for drain mode also the printers' total paused time against an
// apply of a fixed length, which the one-round mode holds for N x that length, and how many poll
// intervals longer than that each printer stays paused on average.
//
// The one-round mode needs about 0.95^-N rounds (about 28,000 for 200 printers), so it is given
// up after kRoundCap rounds, and the table says so.
//
//   cvprnbench      run the benchmark (scripts/bench.sh runs it with the stand-in spooler)
#include <windows.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "printers/DeviceEnumerator.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "system/Localize.h"
#include "updater/ProcessScope.h"

namespace {

const char kDriver[] = "Corvane Inkjet Driver";
const double kBusyChance = 0.05;
const unsigned kSeed = 2024;
const DWORD kPollIntervalMs = 50;
const double kApplySeconds = 60;
const int kRoundCap = 400;
const int kTargetIntervals = 10;
const int kPrinterCounts[] = {10, 50, 100, 200};

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

std::string readFile(const std::string& path) {
  std::string content;
  HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE)
    return content;
  char buffer[65536];
  DWORD read = 0;
  while (ReadFile(file, buffer, sizeof(buffer), &read, nullptr) && read > 0)
    content.append(buffer, read);
  CloseHandle(file);
  return content;
}

size_t countLines(const std::string& journal, const std::string& text) {
  size_t count = 0;
  for (size_t at = journal.find(text); at != std::string::npos; at = journal.find(text, at + 1))
    ++count;
  return count;
}

// The expected rounds: until one finds all N quiet at once, or until each has been quiet once.
double expectedOneRound(int printers) {
  return std::pow(1 - kBusyChance, -printers);
}
double expectedDrain(int printers) {
  double rounds = 0;
  for (int k = 0; k < 200; ++k)
    rounds += 1 - std::pow(1 - std::pow(kBusyChance, k), printers);
  return rounds;
}

struct Result {
  bool paused = false;
  int rounds = 0;
  size_t getPrinterCalls = 0;
  double seconds = 0;
  double pausedPrinterSeconds = 0;
};

class Bench {
 public:
  Bench() {
    char temp[MAX_PATH] = {};
    GetTempPathA(MAX_PATH, temp);
    scenario_ = std::string(temp) + "cvprnbench-scenario.ini";
    journal_ = std::string(temp) + "cvprnbench-journal.txt";
    SetEnvironmentVariableA("SPOOLER_SCENARIO", scenario_.c_str());
    store_ = Localize::getInstance()->getRegistryPath(0);
    RegSetKeyValueA(HKEY_LOCAL_MACHINE, (store_ + "Settings").c_str(), "DriverName", REG_SZ,
                    kDriver, sizeof(kDriver));
    RegSetKeyValueA(HKEY_LOCAL_MACHINE, (store_ + "Settings\\Updater").c_str(),
                    "PrinterPollInterval", REG_DWORD, &kPollIntervalMs, sizeof(kPollIntervalMs));
  }
  ~Bench() {
    DeleteFileA(scenario_.c_str());
    DeleteFileA(journal_.c_str());
    RegDeleteTreeA(HKEY_LOCAL_MACHINE, store_.c_str());
    RegDeleteKeyA(HKEY_LOCAL_MACHINE, store_.c_str());
  }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  Result run(int printers, bool drain) {
    stage(printers);
    std::vector<double> asked;     // When each round that left a printer busy ended.
    std::vector<size_t> pausedAt;  // And how many were paused by then.
    const QuietWaitLimit limit = QuietWaitLimit::whenAsked([&] {
      asked.push_back(now());
      if (drain)
        pausedAt.push_back(countLines(readFile(journal_), "command=1 result=1"));
      return !drain && static_cast<int>(asked.size()) >= kRoundCap;
    });
    PrinterSpoolerWrapper spooler;
    std::list<HANDLE> handles;
    Result result;
    const double start = now();
    result.paused =
        drain ? spooler.drainPrinters(handles, limit) : spooler.pausePrinters(handles, limit);
    const double end = now();
    result.seconds = end - start;
    result.rounds = static_cast<int>(asked.size()) + (result.paused ? 1 : 0);
    result.getPrinterCalls = countLines(readFile(journal_), "GetPrinterA");
    if (result.paused) {
      // The apply starts now; each printer stays paused from its pause to the apply's end.
      result.pausedPrinterSeconds = printers * kApplySeconds;
      size_t before = 0;
      for (size_t round = 0; round < pausedAt.size(); ++round) {
        result.pausedPrinterSeconds +=
            static_cast<double>(pausedAt[round] - before) * (end - asked[round]);
        before = pausedAt[round];
      }
      spooler.resumePrinters(handles);
      spooler.ClosePrinters(handles);
    }
    return result;
  }

 private:
  // N printers of the driver, busy by chance, their polls counted afresh.
  void stage(int printers) {
    std::string text = "[Spooler]\r\nGeneration=" + std::to_string(++generation_) +
                       "\r\nPrinters=" + std::to_string(printers) + "\r\nJournal=" + journal_ +
                       "\r\nSeed=" + std::to_string(kSeed) + "\r\n";
    for (int i = 0; i < printers; ++i) {
      char name[32];
      snprintf(name, sizeof(name), "Printer %03d", i + 1);
      text += "[Printer" + std::to_string(i) + "]\r\nName=" + name + "\r\nDriver=" + kDriver +
              "\r\nBusyChance=" + std::to_string(kBusyChance) + "\r\n";
    }
    HANDLE file = CreateFileA(scenario_.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                              CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written = 0;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
    WritePrivateProfileStringA(nullptr, nullptr, nullptr, scenario_.c_str());
    DeleteFileA(journal_.c_str());
    DeviceEnumerator::destroy();  // Enumerates the new printers.
  }

  std::string scenario_, journal_, store_;
  unsigned generation_ = 0;
};

}  // namespace

int main() {
  const ProcessScope process;
  Bench bench;
  printf(
      "Quiet wait before an apply: printers busy with probability %.2f at each poll (seed %u),\n"
      "poll interval %lu ms, apply of %.0f s; one run of each, measured in this run\n\n",
      kBusyChance, kSeed, kPollIntervalMs, kApplySeconds);
  printf("%5s  %-9s %6s %9s %11s %11s %10s   %s\n", "N", "mode", "rounds", "expected",
         "GetPrinterA", "to apply/s", "sleeping/s", "paused printer-time");
  fflush(stdout);
  int drainRoundsAtMost = 0;
  for (const int printers : kPrinterCounts) {
    for (const bool drain : {false, true}) {
      const Result result = bench.run(printers, drain);
      const double expected = drain ? expectedDrain(printers) : expectedOneRound(printers);
      const double applyTime = printers * kApplySeconds;
      const double interval = kPollIntervalMs / 1000.0;
      char paused[64];
      if (result.paused)
        snprintf(paused, sizeof(paused), "%.0f s = N x apply + %.2f interval(s) each",
                 result.pausedPrinterSeconds,
                 (result.pausedPrinterSeconds - applyTime) / (printers * interval));
      else
        snprintf(paused, sizeof(paused), "gave up after %d rounds", result.rounds);
      printf("%5d  %-9s %6d %9.1f %11zu %11.2f %10.2f   %s\n", printers,
             drain ? "drain" : "one round", result.rounds, expected, result.getPrinterCalls,
             result.seconds, (result.rounds - (result.paused ? 1 : 0)) * interval, paused);
      fflush(stdout);
      if (drain && printers == kPrinterCounts[3])
        drainRoundsAtMost = result.paused ? result.rounds : kRoundCap;
    }
  }
  printf(
      "\nDrain mode, %d printers: the apply starts after %d poll rounds, %d poll intervals "
      "(target < %d) %s\n",
      kPrinterCounts[3], drainRoundsAtMost, drainRoundsAtMost - 1, kTargetIntervals,
      drainRoundsAtMost - 1 < kTargetIntervals ? "met" : "MISSED");
  printf("One-round mode: unchanged, it needs about 0.95^-N rounds and is given up after %d.\n",
         kRoundCap);
  return 0;
}
