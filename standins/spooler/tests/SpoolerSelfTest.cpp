// Self-test of the stand-in winspool.drv. It links the system's import library, so it exercises
// whichever winspool.drv Wine loads: run it from <build>/bin with
// WINEDLLOVERRIDES="winspool.drv=n". Prints "N passed, M failed" and exits non-zero on any failure.
#include <windows.h>
#include <winspool.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

int g_passed = 0;
int g_failed = 0;
std::string g_scenario;
std::string g_journal;
int g_generation = 0;

void Expect(bool ok, const std::string& what, int line) {
  if (ok) {
    ++g_passed;
    return;
  }
  ++g_failed;
  printf("FAILED (line %d): %s\n", line, what.c_str());
}

void ExpectEq(unsigned long long actual, unsigned long long expected, const char* what, int line) {
  Expect(actual == expected,
         std::string(what) + " is " + std::to_string(actual) + ", expected " +
             std::to_string(expected),
         line);
}

void ExpectEq(const std::string& actual, const std::string& expected, const char* what, int line) {
  Expect(actual == expected,
         std::string(what) + " is \"" + actual + "\", expected \"" + expected + "\"", line);
}

#define EXPECT(condition) Expect((condition), #condition, __LINE__)
#define EXPECT_EQ(actual, expected) ExpectEq((actual), (expected), #actual, __LINE__)
// A call's BOOL result and its last error (0 when it succeeds).
#define EXPECT_CALL(call, ok, error)                                              \
  do {                                                                            \
    BOOL result_ = (call);                                                        \
    ExpectEq(result_, (ok), #call, __LINE__);                                     \
    ExpectEq(result_ ? 0 : GetLastError(), (error), "error of " #call, __LINE__); \
  } while (false)

std::string Pid(DWORD pid = GetCurrentProcessId()) {
  return std::to_string(pid);
}

std::string TempFile(const std::string& name) {
  char dir[MAX_PATH];
  GetTempPathA(sizeof(dir), dir);
  return std::string(dir) + "spooler-selftest-" + Pid() + "-" + name;
}

// Writes the file, then sets its last-write time to *time if given.
void WriteText(const std::string& path, const std::string& text, const FILETIME* time = nullptr) {
  HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  DWORD written = 0;
  WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  if (time != nullptr) {
    SetFileTime(file, nullptr, nullptr, time);
  }
  CloseHandle(file);
}

std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// A new scenario with a new Generation and the journal; `spooler` continues [Spooler].
void WriteScenario(const std::string& spooler, const std::string& printers) {
  WriteText(g_scenario, "[Spooler]\nGeneration=" + std::to_string(++g_generation) +
                            "\nJournal=" + g_journal + "\n" + spooler + printers);
}

const char kTwoPrinters[] =
    "[Printer0]\nName=Office Laser\nDriver=Corvane Inkjet Driver\nPort=USB001\nJobs=3\n"
    "DrainAfterPolls=2\n"
    "[Printer1]\nName=Back Room\nDriver=Other Driver\nPort=LPT1:\n"
    "Attributes=0x400   ; work offline\nStatus=1\nJobs=7\n";

struct PrinterView {
  std::string name, driver, port;
  DWORD attributes = 0, status = 0, jobs = 999;  // 999: the call failed
};

PrinterView ViewOf(const PRINTER_INFO_2A& info) {
  return {info.pPrinterName, info.pDriverName, info.pPortName,
          info.Attributes,   info.Status,      info.cJobs};
}

std::vector<PrinterView> Enumerate() {
  DWORD needed = 0, count = 0;
  EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &count);
  std::vector<BYTE> buffer(needed + 1);
  std::vector<PrinterView> views;
  if (EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, buffer.data(), needed, &needed, &count)) {
    auto* infos = reinterpret_cast<PRINTER_INFO_2A*>(buffer.data());
    for (DWORD i = 0; i < count; ++i) {
      auto* name = reinterpret_cast<const BYTE*>(infos[i].pPrinterName);
      EXPECT(name >= buffer.data() + count * sizeof(*infos) && name < buffer.data() + needed);
      views.push_back(ViewOf(infos[i]));
    }
  }
  return views;
}

PrinterView First() {
  std::vector<PrinterView> printers = Enumerate();
  return printers.empty() ? PrinterView() : printers[0];
}

// One level-2 GetPrinterA poll, after a size query.
PrinterView Poll(HANDLE printer) {
  DWORD needed = 0;
  GetPrinterA(printer, 2, nullptr, 0, &needed);
  std::vector<BYTE> buffer(needed);
  if (!GetPrinterA(printer, 2, buffer.data(), needed, &needed)) {
    return PrinterView();
  }
  return ViewOf(*reinterpret_cast<PRINTER_INFO_2A*>(buffer.data()));
}

HANDLE Open(const char* name, DWORD access = PRINTER_ALL_ACCESS) {
  PRINTER_DEFAULTSA defaults = {nullptr, nullptr, access};
  HANDLE printer = nullptr;
  OpenPrinterA(const_cast<char*>(name), &printer, &defaults);
  return printer;
}

std::string DriverDirectory() {
  char directory[MAX_PATH] = "";
  DWORD needed = 0;
  GetPrinterDriverDirectoryA(nullptr, nullptr, 1, reinterpret_cast<BYTE*>(directory),
                             sizeof(directory), &needed);
  return directory;
}

void TestWithoutScenario() {
  SetEnvironmentVariableA("SPOOLER_SCENARIO", TempFile("missing.ini").c_str());
  DWORD needed = 99, count = 99;
  EXPECT_CALL(EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &count), TRUE, 0);
  EXPECT(needed == 0 && count == 0);
  const std::string directory = "C:\\windows\\system32\\spool\\drivers\\x64";
  std::vector<BYTE> exact(directory.size() + 1, 'x');
  EXPECT_CALL(
      GetPrinterDriverDirectoryA(nullptr, nullptr, 1, exact.data(), exact.size() - 1, &needed),
      FALSE, ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(needed, exact.size());
  EXPECT_CALL(GetPrinterDriverDirectoryA(nullptr, nullptr, 1, exact.data(), needed, &needed), TRUE,
              0);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(exact.data()),
                        strnlen(reinterpret_cast<char*>(exact.data()), exact.size())),
            directory);
  EXPECT(Open("Office Laser") == nullptr && GetLastError() == ERROR_INVALID_PRINTER_NAME);
}

void TestDrainingAndReset() {
  SetEnvironmentVariableA("SPOOLER_SCENARIO", g_scenario.c_str());
  WriteScenario("Printers=4\n", std::string(kTwoPrinters) +
                                    "[Printer2]\nName=Drained\nJobs=2\nDrainAfterPolls=0\n"
                                    "[Printer3]\nName=Stuck\nJobs=4\nDrainAfterPolls=-1\n");
  HANDLE first = Open("Office Laser");
  HANDLE second = Open("Office Laser");
  EXPECT_EQ(Poll(first).jobs, 3);  // Poll's size query is no poll
  EXPECT_EQ(First().jobs, 3);      // nor is an enumeration
  EXPECT_EQ(Poll(second).jobs, 3);
  EXPECT_EQ(Poll(first).jobs, 0);  // polls count per printer, not per handle
  EXPECT_EQ(First().jobs, 0);

  HANDLE never = Open("Back Room");
  HANDLE stuck = Open("Stuck");
  HANDLE drained = Open("Drained");
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(Poll(never).jobs + Poll(stuck).jobs, 11);
  }
  EXPECT_EQ(Poll(drained).jobs, 0);

  // Each of a new Generation, size or write time alone resets polls and the paused flag; handles
  // stay open. A whole-second write time stands for a rewrite within one timestamp tick.
  std::string text = ReadText(g_scenario);
  std::string renamed = text;
  renamed.replace(renamed.find("Generation=") + 11, 1, "g");
  FILETIME time = {0, 0x01D00000};
  WriteText(g_scenario, text, &time);
  FILETIME later = {0, time.dwHighDateTime + 1};
  struct Change {
    const char* what;
    std::string text;
    FILETIME time;
  } changes[] = {{"Generation", renamed, time},
                 {"size", renamed + "; edited\n", time},
                 {"write time", renamed + "; edited\n", later}};
  for (const Change& change : changes) {
    SetPrinterA(first, 0, nullptr, PRINTER_CONTROL_PAUSE);
    Poll(first);
    Poll(first);
    WriteText(g_scenario, change.text, &change.time);
    PrinterView view = Poll(first);
    Expect(view.jobs == 3 && view.status == 0, std::string("reset by ") + change.what, __LINE__);
  }
  for (HANDLE printer : {first, second, never, stuck, drained}) {
    ClosePrinter(printer);
  }
}

void TestJournal() {
  WriteScenario("Printers=2\n", kTwoPrinters);
  DeleteFileA(g_journal.c_str());
  DWORD needed = 0, count = 0;
  EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &count);
  HANDLE user = nullptr;
  OpenPrinterA(const_cast<char*>("Back Room"), &user, nullptr);
  HANDLE admin = Open("Office Laser", PRINTER_ACCESS_ADMINISTER | PRINTER_ACCESS_USE);
  Poll(admin);
  SetPrinterA(admin, 0, nullptr, PRINTER_CONTROL_PAUSE);
  ClosePrinter(admin);
  ClosePrinter(admin);
  ClosePrinter(user);
  DriverDirectory();
  std::string expected;
  for (const char* line : {
           "EnumPrintersA flags=2 level=2 buffer=0 result=0",
           "OpenPrinterA name=Back Room access=0x0 result=1",
           "OpenPrinterA name=Office Laser access=0xc result=1",
           "GetPrinterA name=Office Laser level=2 buffer=0 jobs=0 result=0",
           "GetPrinterA name=Office Laser level=2 buffer=1 jobs=3 result=1",
           "SetPrinterA name=Office Laser command=1 result=1",
           "ClosePrinter name=Office Laser result=1",
           "ClosePrinter name= result=0",
           "ClosePrinter name=Back Room result=1",
           "GetPrinterDriverDirectoryA result=1",
       }) {
    expected += Pid() + " " + line + "\r\n";
  }
  EXPECT_EQ(ReadText(g_journal), expected);

  // A child process appends to the same journal while this one does.
  DeleteFileA(g_journal.c_str());
  char exe[MAX_PATH];
  GetModuleFileNameA(nullptr, exe, sizeof(exe));
  std::string command = std::string("\"") + exe + "\" --journal-child";
  STARTUPINFOA startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION child = {};
  EXPECT(CreateProcessA(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &child));
  for (int i = 0; i < 500 && ReadText(g_journal).empty(); ++i) {
    Sleep(10);
  }
  for (int i = 0; i < 200; ++i) {
    EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &count);
  }
  WaitForSingleObject(child.hProcess, 30000);
  CloseHandle(child.hThread);
  CloseHandle(child.hProcess);
  const std::string line = " EnumPrintersA flags=2 level=2 buffer=0 result=0\r";
  int mine = 0, childs = 0, lines = 0;
  std::istringstream journal(ReadText(g_journal));
  for (std::string entry; std::getline(journal, entry); ++lines) {
    mine += entry == Pid() + line;
    childs += entry == Pid(child.dwProcessId) + line;
  }
  EXPECT(mine == 200 && childs == 200 && lines == 400);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::string(argv[1]) == "--journal-child") {
    DWORD needed = 0, count = 0;
    for (int i = 0; i < 200; ++i) {
      EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &count);
    }
    return 0;
  }
  g_scenario = TempFile("scenario.ini");
  g_journal = TempFile("journal.txt");

  // Wine reports its builtin under the path of the file beside the exe, so the path tells
  // nothing; the stand-in exports only the six functions the programs import.
  if (GetProcAddress(GetModuleHandleA("winspool.drv"), "EnumPrintersW") != nullptr) {
    SetEnvironmentVariableA("SPOOLER_SCENARIO", g_scenario.c_str());
    WriteScenario("Printers=2\n", kTwoPrinters);
    Expect(false,
           "Wine's own winspool.drv answered, listing " + std::to_string(Enumerate().size()) +
               " of 2 printers; run with WINEDLLOVERRIDES=\"winspool.drv=n\"",
           __LINE__);
  } else {
    TestWithoutScenario();
    TestDrainingAndReset();
    TestJournal();
  }
  DeleteFileA(g_scenario.c_str());
  DeleteFileA(g_journal.c_str());
  printf("%d passed, %d failed\n", g_passed, g_failed);
  return g_failed == 0 ? 0 : 1;
}
