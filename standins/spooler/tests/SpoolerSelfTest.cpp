// Self-test of the stand-in winspool.drv. It links the system's import library, so it exercises
// whichever winspool.drv Wine loads: run it from <build>/bin with
// WINEDLLOVERRIDES="winspool.drv=n". Prints "N passed, M failed" and exits non-zero on any failure.
#include <windows.h>
#include <winspool.h>

#include <cstdio>
#include <stdexcept>
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
  } else {
    ++g_failed;
    printf("FAILED (line %d): %s\n", line, what.c_str());
  }
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
// A call's BOOL result and, when it fails, its last error (0 when it succeeds).
#define EXPECT_CALL(call, ok, error)                             \
  do {                                                           \
    BOOL result_ = (call);                                       \
    DWORD error_ = result_ ? 0 : GetLastError();                 \
    ExpectEq(result_, (ok), #call, __LINE__);                    \
    ExpectEq(error_, (error), "last error of " #call, __LINE__); \
  } while (false)

std::string Pid(DWORD pid = GetCurrentProcessId()) {
  return std::to_string(pid);
}

std::string TempFile(const std::string& name) {
  char dir[MAX_PATH];
  GetTempPathA(sizeof(dir), dir);
  return std::string(dir) + "spooler-selftest-" + Pid() + "-" + name;
}

std::string FolderOf(HMODULE module) {
  char path[MAX_PATH];
  std::string text(path, GetModuleFileNameA(module, path, sizeof(path)));
  return text.substr(0, text.find_last_of('\\'));
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

FILETIME WriteTime(const std::string& path) {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data);
  return data.ftLastWriteTime;
}

std::string ReadText(const std::string& path) {
  HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  std::string text;
  char chunk[4096];
  DWORD read = 0;
  while (file != INVALID_HANDLE_VALUE && ReadFile(file, chunk, sizeof(chunk), &read, nullptr) &&
         read > 0) {
    text.append(chunk, read);
  }
  CloseHandle(file);
  return text;
}

std::vector<std::string> JournalLines() {
  std::vector<std::string> lines;
  std::string text = ReadText(g_journal);
  for (size_t start = 0, end; (end = text.find("\r\n", start)) != std::string::npos;
       start = end + 2) {
    lines.push_back(text.substr(start, end - start));
  }
  return lines;
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
  DWORD attributes = 0, status = 0, jobs = 0;
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
  if (!EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, buffer.data(), needed, &needed, &count)) {
    return views;
  }
  auto* infos = reinterpret_cast<PRINTER_INFO_2A*>(buffer.data());
  for (DWORD i = 0; i < count; ++i) {
    const BYTE* name = reinterpret_cast<const BYTE*>(infos[i].pPrinterName);
    EXPECT(name >= buffer.data() + count * sizeof(PRINTER_INFO_2A) &&
           name < buffer.data() + needed);
    views.push_back(ViewOf(infos[i]));
  }
  return views;
}

// One level-2 GetPrinterA poll (size query first); jobs reads 999 when it fails.
PrinterView Poll(HANDLE printer) {
  DWORD needed = 0;
  GetPrinterA(printer, 2, nullptr, 0, &needed);
  std::vector<BYTE> buffer(needed);
  PrinterView view;
  view.jobs = 999;
  if (GetPrinterA(printer, 2, buffer.data(), needed, &needed)) {
    view = ViewOf(*reinterpret_cast<PRINTER_INFO_2A*>(buffer.data()));
  }
  return view;
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
  EXPECT_EQ(needed, 0);
  EXPECT_EQ(count, 0);
  EXPECT_CALL(GetPrinterDriverDirectoryA(nullptr, nullptr, 1, nullptr, 0, &needed), FALSE,
              ERROR_INSUFFICIENT_BUFFER);
  const std::string directory = "C:\\windows\\system32\\spool\\drivers\\x64";
  EXPECT_EQ(needed, directory.size() + 1);
  std::vector<BYTE> exact(needed);
  EXPECT_CALL(GetPrinterDriverDirectoryA(nullptr, nullptr, 1, exact.data(), needed - 1, &needed),
              FALSE, ERROR_INSUFFICIENT_BUFFER);
  EXPECT_CALL(GetPrinterDriverDirectoryA(nullptr, nullptr, 1, exact.data(), needed, &needed), TRUE,
              0);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(exact.data())), directory);
  HANDLE printer = nullptr;
  EXPECT_CALL(OpenPrinterA(const_cast<char*>("Office Laser"), &printer, nullptr), FALSE,
              ERROR_INVALID_PRINTER_NAME);
}

void TestEnumeration() {
  SetEnvironmentVariableA("SPOOLER_SCENARIO", g_scenario.c_str());
  WriteScenario("Printers=2   ; two\nDriverDirectory=D:\\drivers\\x64\n", kTwoPrinters);
  DWORD needed = 0, count = 99;
  EXPECT_CALL(EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &count), FALSE,
              ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(needed, 2 * sizeof(PRINTER_INFO_2A) + sizeof("Office Laser") +
                        sizeof("Corvane Inkjet Driver") + sizeof("USB001") + sizeof("Back Room") +
                        sizeof("Other Driver") + sizeof("LPT1:"));
  std::vector<BYTE> buffer(needed);
  EXPECT_CALL(EnumPrintersA(2, nullptr, 2, buffer.data(), needed - 1, &needed, &count), FALSE,
              ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(count, 0);

  std::vector<PrinterView> printers = Enumerate();
  EXPECT_EQ(printers.size(), 2);
  if (printers.size() == 2) {
    EXPECT_EQ(printers[0].name, "Office Laser");
    EXPECT_EQ(printers[0].driver, "Corvane Inkjet Driver");
    EXPECT_EQ(printers[0].port, "USB001");
    EXPECT_EQ(printers[0].jobs, 3);
    EXPECT_EQ(printers[1].name, "Back Room");
    EXPECT_EQ(printers[1].attributes, PRINTER_ATTRIBUTE_WORK_OFFLINE);
    EXPECT_EQ(printers[1].status, PRINTER_STATUS_PAUSED);
  }
  EXPECT_EQ(DriverDirectory(), "D:\\drivers\\x64");
}

void TestHandlesPauseAndResume() {
  WriteScenario("Printers=2\n", kTwoPrinters);
  HANDLE first = Open("Office Laser");
  HANDLE second = Open("Office Laser");
  EXPECT(first != nullptr && second != nullptr && first != second);
  HANDLE other = nullptr;
  EXPECT_CALL(OpenPrinterA(const_cast<char*>("office laser"), &other, nullptr), FALSE,
              ERROR_INVALID_PRINTER_NAME);

  EXPECT_CALL(SetPrinterA(first, 0, nullptr, PRINTER_CONTROL_PAUSE), TRUE, 0);
  EXPECT_EQ(Poll(second).status, PRINTER_STATUS_PAUSED);
  EXPECT_EQ(Enumerate().at(0).status, PRINTER_STATUS_PAUSED);
  EXPECT_CALL(SetPrinterA(second, 0, nullptr, PRINTER_CONTROL_RESUME), TRUE, 0);
  EXPECT_EQ(Poll(first).status, 0);
  EXPECT_CALL(SetPrinterA(first, 0, nullptr, PRINTER_CONTROL_PURGE), TRUE, 0);
  EXPECT_CALL(SetPrinterA(first, 0, nullptr, PRINTER_CONTROL_SET_STATUS), FALSE,
              ERROR_INVALID_PARAMETER);

  EXPECT_CALL(ClosePrinter(first), TRUE, 0);
  DWORD needed = 0;
  EXPECT_CALL(GetPrinterA(first, 2, nullptr, 0, &needed), FALSE, ERROR_INVALID_HANDLE);
  EXPECT_CALL(SetPrinterA(first, 0, nullptr, PRINTER_CONTROL_PAUSE), FALSE, ERROR_INVALID_HANDLE);
  EXPECT_CALL(ClosePrinter(first), FALSE, ERROR_INVALID_HANDLE);
  EXPECT_EQ(Poll(second).name, "Office Laser");
  ClosePrinter(second);
}

void TestDrainingAndReset() {
  WriteScenario("Printers=4\n", std::string(kTwoPrinters) +
                                    "[Printer2]\nName=Drained\nJobs=2\nDrainAfterPolls=0\n"
                                    "[Printer3]\nName=Stuck\nJobs=4\nDrainAfterPolls=-1\n");
  HANDLE first = Open("Office Laser");
  HANDLE second = Open("Office Laser");
  DWORD needed = 0;
  for (int i = 0; i < 3; ++i) {
    GetPrinterA(first, 2, nullptr, 0, &needed);  // size queries are no polls
  }
  EXPECT_EQ(Poll(first).jobs, 3);
  EXPECT_EQ(Enumerate().at(0).jobs, 3);  // enumerations are no polls
  EXPECT_EQ(Poll(second).jobs, 3);       // polls count per printer, not per handle
  EXPECT_EQ(Poll(first).jobs, 0);
  EXPECT_EQ(Enumerate().at(0).jobs, 0);

  HANDLE never = Open("Back Room");
  HANDLE stuck = Open("Stuck");
  HANDLE drained = Open("Drained");
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(Poll(never).jobs, 7);
    EXPECT_EQ(Poll(stuck).jobs, 4);
  }
  EXPECT_EQ(Poll(drained).jobs, 0);

  // Each of a new Generation, size or write time resets polls and the paused flag; the others
  // are kept as they were, and handles stay open.
  std::string text = ReadText(g_scenario);
  std::string generation = "Generation=" + std::to_string(g_generation);
  std::string renamed = text;
  renamed.replace(text.find(generation), generation.size(),
                  "Generation=" + std::string(generation.size() - 11, 'g'));
  FILETIME time = WriteTime(g_scenario);
  FILETIME later = time;
  later.dwHighDateTime += 1;
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

void TestFailures() {
  WriteScenario("Printers=2\nFailEnum=1722\n",
                "[Printer0]\nName=Locked\nFailOpen=5\n"
                "[Printer1]\nName=Flaky\nFailGetPrinter=0x6BE\nFailPause=0x5\nFailResume=1726\n"
                "FailClose=1723\n");
  DWORD needed = 0, count = 0;
  std::vector<BYTE> buffer(4096);
  EXPECT_CALL(EnumPrintersA(2, nullptr, 2, nullptr, 0, &needed, &count), FALSE,
              ERROR_INSUFFICIENT_BUFFER);
  EXPECT_CALL(EnumPrintersA(2, nullptr, 2, buffer.data(), 4096, &needed, &count), FALSE, 1722);
  HANDLE printer = nullptr;
  EXPECT_CALL(OpenPrinterA(const_cast<char*>("Locked"), &printer, nullptr), FALSE,
              ERROR_ACCESS_DENIED);
  printer = Open("Flaky");
  EXPECT_CALL(GetPrinterA(printer, 2, nullptr, 0, &needed), FALSE, ERROR_INSUFFICIENT_BUFFER);
  EXPECT_CALL(GetPrinterA(printer, 2, buffer.data(), 4096, &needed), FALSE, 0x6BE);
  EXPECT_CALL(SetPrinterA(printer, 0, nullptr, PRINTER_CONTROL_PAUSE), FALSE, ERROR_ACCESS_DENIED);
  EXPECT_CALL(SetPrinterA(printer, 0, nullptr, PRINTER_CONTROL_RESUME), FALSE, 1726);
  EXPECT_CALL(ClosePrinter(printer), FALSE, 1723);
  EXPECT_CALL(ClosePrinter(printer), FALSE, ERROR_INVALID_HANDLE);  // released all the same

  // A successful call leaves the caller's last error alone, journal or not.
  SetLastError(12345);
  DriverDirectory();
  EXPECT_EQ(GetLastError(), 12345);
}

void TestJournal(const char* exe) {
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
  const std::string pid = Pid() + " ";
  const std::string expected[] = {
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
  };
  std::string text;
  for (const std::string& line : expected) {
    text += pid + line + "\r\n";
  }
  EXPECT_EQ(ReadText(g_journal), text);

  // A child process appends to the same journal while this one does.
  DeleteFileA(g_journal.c_str());
  std::string command = std::string("\"") + exe + "\" --journal-child";
  STARTUPINFOA startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION child = {};
  if (!CreateProcessA(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &child)) {
    EXPECT(!"child process started");
    return;
  }
  for (int i = 0; i < 500 && ReadText(g_journal).empty(); ++i) {
    Sleep(10);
  }
  for (int i = 0; i < 200; ++i) {
    EnumPrintersA(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &count);
  }
  WaitForSingleObject(child.hProcess, 30000);
  const std::string line = " EnumPrintersA flags=2 level=2 buffer=0 result=0";
  int mine = 0, childs = 0, broken = 0;
  for (const std::string& entry : JournalLines()) {
    mine += entry == Pid() + line;
    childs += entry == Pid(child.dwProcessId) + line;
    broken += entry != Pid() + line && entry != Pid(child.dwProcessId) + line;
  }
  EXPECT_EQ(mine, 200);
  EXPECT_EQ(childs, 200);
  EXPECT_EQ(broken, 0);
  CloseHandle(child.hThread);
  CloseHandle(child.hProcess);
}

void TestScenarioBesideDll() {
  std::string beside = FolderOf(GetModuleHandleA("winspool.drv")) + "\\spooler-scenario.ini";
  WriteText(beside, "[Spooler]\nPrinters=1\n[Printer0]\nName=Beside The DLL\n");
  SetEnvironmentVariableA("SPOOLER_SCENARIO", nullptr);
  std::vector<PrinterView> printers = Enumerate();
  EXPECT_EQ(printers.size(), 1);
  EXPECT_EQ(printers.empty() ? "" : printers[0].name, "Beside The DLL");
  DeleteFileA(beside.c_str());
  SetEnvironmentVariableA("SPOOLER_SCENARIO", g_scenario.c_str());
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

  // Wine names its builtin after the file it found beside the exe, so the path tells nothing;
  // the stand-in exports only the six functions the programs import.
  HMODULE spooler = GetModuleHandleA("winspool.drv");
  if (GetProcAddress(spooler, "EnumPrintersW") != nullptr) {
    SetEnvironmentVariableA("SPOOLER_SCENARIO", g_scenario.c_str());
    WriteScenario("Printers=2\n", kTwoPrinters);
    printf("not the stand-in: Wine's own spooler lists %u printers for a scenario of 2\n",
           static_cast<unsigned>(Enumerate().size()));
    printf("run with WINEDLLOVERRIDES=\"winspool.drv=n\"\n");
    ++g_failed;
  } else {
    try {
      TestWithoutScenario();
      TestEnumeration();
      TestHandlesPauseAndResume();
      TestDrainingAndReset();
      TestFailures();
      TestJournal(argv[0]);
      TestScenarioBesideDll();
    } catch (const std::exception& error) {
      Expect(false, std::string("exception: ") + error.what(), __LINE__);
    }
  }
  DeleteFileA(g_scenario.c_str());
  DeleteFileA(g_journal.c_str());
  printf("%d passed, %d failed\n", g_passed, g_failed);
  return g_failed == 0 ? 0 : 1;
}
