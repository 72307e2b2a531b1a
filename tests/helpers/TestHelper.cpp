// The program that tests start as a separate process (under another name, Windows version or
// locale) to see the program's classes from outside; it prints key=value lines. Its commands:
//   probe                        facts of Localize, OsVersion, CurrentProcess, the service codes
//   mutex-hold NAME EVENT MODE   hold the mutex until EVENT is set, then release ("release"),
//                                abandon ("abandon") it; "squat": made first, for SYSTEM alone
//   squat SECONDS NAME...        make each mutex first, for SYSTEM alone, and hold them SECONDS
//   mutex-try NAME MS            "acquired" or "busy" after waiting up to MS
//   load-from cwd|path DIR NAME [run]  whether LoadLibraryA(NAME) finds NAME in DIR as the
//                                current directory or first in PATH (after an update run)
//   library-search NAME          whether a hardened process with the library loaded finds NAME
//   run [fail-startup|declined|scheduled]  one whole update run (runApplication)
//   settings-tool-cannot-start   the settings tool, whose start-up fails (exit code 3)
//   key-dacl PATH, reg-link PATH TARGET  a key's DACL in SDDL; make a registry link (HKLM)
//   publishers                   the trusted publishers in force, "publishers=<hash>;<hash>"
//   overwrite PATH               "write=<error>", then "delete=<error>" of the file PATH; 0: done
//   write TAG COUNT [GATE]       once GATE is set, COUNT traced operations and one line always
//                                written
//   hang [alone]                 start "hang alone", print "child=<its pid>", never end
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "SettingsTool.h"
#include "logging/FunctionTrace.h"
#include "logging/Logger.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "settings/TrustedPublishers.h"
#include "support/TestSupport.h"
#include "system/CurrentProcess.h"
#include "system/DllSearch.h"
#include "system/Localize.h"
#include "system/Mutex.h"
#include "system/OsVersion.h"
#include "system/UniqueHandle.h"
#include "updater/Application.h"
#include "updater/ElevatedRelaunch.h"
#include "updater/ProcessScope.h"
#include "webupdate/TandemUtilities.h"
#include "webupdate/WebUpdaterAdapter.h"

namespace {

void print(const char* key, const std::string& value) {
  printf("%s=%s\n", key, value.c_str());
  fflush(stdout);
}

void probe() {
  const ProcessScope process;
  const Localize& localize = *Localize::getInstance();
  const OsVersion& os = OsVersion::getInstance();
  print("localId", localize.getLocalId());
  print("familyPath", localize.getProductFamilyRegistryPath());
  print("localPath", localize.getRegistryPath(0));
  print("sharedPath", localize.getRegistryPath(1));
  print("laser", std::to_string(localize.isLaserProductFamily()));
  print("windowsVersion", std::to_string(os.getWindowsVersion()));
  print("vistaOrLater", std::to_string(os.isVistaOrLater()));
  print("driverDirectory", os.getPrinterDriverDirectory());
  print("directory", CurrentProcess::getInstance()->getDirectory());
  print("language", TandemUtilities::getLanguageCode());
  print("country", TandemUtilities::getCountryCode());
  print("os", TandemUtilities::getOsCode());
  print("admin", std::to_string(PrinterSpoolerWrapper().canWeOpenPrintersInAdminMode()));
}

void mutexHold(const std::string& name, const std::string& event, const std::string& mode) {
  const ScopedHandle letGo(OpenEventA(SYNCHRONIZE, FALSE, event.c_str()));
  // A squatter makes the name first, with a DACL that lets no one else open it.
  Mutex mutex = mode == "squat" ? Mutex(name, "D:P(A;;GA;;;SY)") : Mutex(false, name, true);
  mutex.acquire(INFINITE);
  print("held", "1");
  WaitForSingleObject(letGo.get(), 60000);
  if (mode == "abandon")
    ExitProcess(0);  // Leaves the mutex abandoned for the next waiter.
  mutex.release();
}

// Writes `count` traced operations once the event `gate` is set; the detail text is long enough
// that a torn or overlapped line shows.
void writeLines(const std::string& tag, int count, const std::string& gate) {
  const ScopedHandle event(OpenEventA(SYNCHRONIZE, FALSE, gate.c_str()));
  const ProcessScope process;
  print("ready", "1");
  WaitForSingleObject(event.get(), 60000);
  for (int n = 0; n < count; ++n) {
    FunctionTrace trace = FunctionTrace::open(kLogUpdater, "Writer::writeLine() ");
    std::string text = " tag=" + tag + " n=" + std::to_string(n) + " ";
    for (int i = 0; i < 64; ++i)
      text += static_cast<char>('a' + (n + i) % 26);
    trace.log(text);
    trace.setRc(n);
  }
  BasicLogger::getInstance().write(kLogQnv, LOG_ALWAYS, "always");
  print("done", "1");
}

}  // namespace

int main(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  const auto number = [argv](int i) { return strtoul(argv[i], nullptr, 10); };
  if (command == "probe") {
    probe();
  } else if (command == "mutex-hold" && argc > 4) {
    mutexHold(argv[2], argv[3], argv[4]);
  } else if (command == "squat" && argc > 3) {
    std::vector<std::unique_ptr<Mutex>> squatted;
    for (int i = 3; i < argc; ++i)
      squatted.emplace_back(new Mutex(argv[i], "D:P(A;;GA;;;SY)"));
    print("held", "1");
    fflush(stdout);
    Sleep(number(2) * 1000);
  } else if (command == "mutex-try" && argc > 3) {
    Mutex mutex(false, argv[2], true);
    const bool acquired = mutex.acquire(number(3));
    print(acquired ? "acquired" : "busy", "1");
    mutex.release();
  } else if (command == "load-from" && argc > 4) {
    if (std::string(argv[2]) == "path")
      SetEnvironmentVariableA("PATH", (std::string(argv[3]) + ";" + getenv("PATH")).c_str());
    else
      SetCurrentDirectoryA(argv[3]);
    if (argc > 5)
      runApplication("");
    print("loaded", std::to_string(LoadLibraryA(argv[4]) != nullptr));
  } else if (command == "library-search" && argc > 2) {
    hardenDllSearch();
    const ProcessScope process;
    const WebUpdaterAdapter library;
    print("loaded", std::to_string(LoadLibraryA(argv[2]) != nullptr));
  } else if (command == "run") {
    if (argc > 2 && std::string(argv[2]) == "declined")
      ElevatedRelaunch::setShellExecuteFunction(
          [](HWND, LPCSTR, LPCSTR, LPCSTR, LPCSTR, INT) { return reinterpret_cast<HINSTANCE>(5); });
    if (argc > 2 && std::string(argv[2]) == "fail-startup")
      ProcessScope::setCreateLoggerFunction([](const LogSwitches& switches) {
        Logger::createInstance(switches);
        throw std::bad_alloc();
      });
    // The scheduled task's start carries its marker.
    return runApplication(argc > 2 && std::string(argv[2]) == "scheduled" ? "/scheduled" : "");
  } else if (command == "key-dacl" && argc > 2) {
    ScopedKey key;
    RegOpenKeyExA(HKEY_LOCAL_MACHINE, argv[2], 0, READ_CONTROL, key.receive());
    print("dacl", testsupport::dacl(key.get(), SE_REGISTRY_KEY));
  } else if (command == "reg-link" && argc > 3) {
    print("linked", std::to_string(testsupport::makeLink(argv[2], argv[3])));
  } else if (command == "settings-tool-cannot-start") {
    ProcessScope::setCreateLoggerFunction([](const LogSwitches&) { throw std::bad_alloc(); });
    return runSettingsTool({});
  } else if (command == "hang") {
    if (argc == 2) {
      char self[MAX_PATH] = {};
      GetModuleFileNameA(nullptr, self, MAX_PATH);
      std::string line = "\"" + std::string(self) + "\" hang alone";
      STARTUPINFOA startup = {};
      startup.cb = sizeof(startup);
      PROCESS_INFORMATION child = {};
      if (CreateProcessA(nullptr, &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                         &child)) {
        const ScopedHandle process(child.hProcess), thread(child.hThread);
        print("child", std::to_string(child.dwProcessId));
      }
    }
    Sleep(INFINITE);
  } else if (command == "publishers") {
    const ProcessScope process;
    const TrustedPublishers publishers;
    std::string list;
    for (const std::string& hash : publishers.hashes())
      list += (list.empty() ? "" : ";") + hash;
    print("publishers", list);
  } else if (command == "overwrite" && argc > 2) {
    // Another process trying to change a file: write into it, then delete it.
    ScopedHandle file(CreateFileA(argv[2], GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    print("write", std::to_string(file.valid() ? 0 : GetLastError()));
    DWORD written = 0;
    if (file.valid())
      WriteFile(file.get(), "MZ changed", 10, &written, nullptr);
    file.close();
    print("delete", std::to_string(DeleteFileA(argv[2]) ? 0 : GetLastError()));
  } else if (command == "write" && argc > 3) {
    writeLines(argv[2], static_cast<int>(number(3)), argc > 4 ? argv[4] : "");
  } else {
    fprintf(stderr, "test_helper: unknown command '%s'\n", command.c_str());
    return 2;
  }
  return 0;
}
