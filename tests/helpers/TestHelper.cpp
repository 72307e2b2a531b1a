// A small console program that tests start as a separate process, to observe the program's
// classes from outside: under another file name (product family), another Windows version, or
// holding a named mutex while the test process waits for it.
//
//   test_helper probe                        print the facts of Localize, OsVersion, CurrentProcess
//   test_helper mutex-hold NAME MS MODE      take the mutex, print "held", sleep MS, then
//                                            MODE = release | abandon (exit while holding) |
//                                            recursive (take it twice, one release())
//   test_helper mutex-try NAME MS            print "acquired" or "busy" after waiting up to MS
//   test_helper admin-probe                  print "admin=" and canWeOpenPrintersInAdminMode()
//   test_helper codes                        print the language, country and OS codes
//   test_helper load-from DIR NAME [harden]  in DIR as current directory, print "loaded=" and
//                                            whether LoadLibraryA(NAME) found it, after the
//                                            program's start-up DLL search hardening with harden
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "logging/Logger.h"
#include "printers/DeviceEnumerator.h"
#include "printers/PrinterSpoolerWrapper.h"
#include "settings/Settings.h"
#include "system/DllSearch.h"
#include "system/Mutex.h"
#include "updater/CurrentProcess.h"
#include "updater/Localize.h"
#include "updater/OsVersion.h"
#include "webupdate/TandemUtilities.h"

namespace {

int probe() {
  Localize::createInstance(nullptr);
  const Localize& localize = *Localize::getInstance();
  const OsVersion& os = OsVersion::getInstance();
  printf("localId=%s\n", localize.getLocalId().c_str());
  printf("familyPath=%s\n", localize.getProductFamilyRegistryPath().c_str());
  printf("qnvPath=%s\n", localize.getQnvRegistryPath().c_str());
  printf("localPath=%s\n", localize.getRegistryPath(0).c_str());
  printf("sharedPath=%s\n", localize.getRegistryPath(1).c_str());
  printf("tempPath=%s\n", localize.getRegistryPath(7).c_str());
  printf("laser=%d\n", localize.isLaserProductFamily() ? 1 : 0);
  printf("knownFamily=%d\n", Settings().isKnownProductFamily() ? 1 : 0);
  printf("windowsVersion=%u\n", os.getWindowsVersion());
  printf("major=%lu\nminor=%lu\n", os.getVersionInfo().dwMajorVersion,
         os.getVersionInfo().dwMinorVersion);
  printf("infoSize=%lu\n", os.getVersionInfo().dwOSVersionInfoSize);
  printf("nt=%d\n", os.isNt() ? 1 : 0);
  printf("vistaOrLater=%d\n", os.isVistaOrLater() ? 1 : 0);
  printf("wow64=%d\n", os.isWow64() ? 1 : 0);
  printf("driverDirectory=%s\n", os.getPrinterDriverDirectory().c_str());
  printf("path=%s\n", CurrentProcess::getInstance()->getPath().c_str());
  printf("directory=%s\n", CurrentProcess::getInstance()->getDirectory().c_str());
  CurrentProcess::destroyInstance();
  Localize::destroyInstance();
  return 0;
}

int mutexHold(const std::string& name, DWORD ms, const std::string& mode) {
  Mutex mutex(false, name, true);
  if (!mutex.acquire(INFINITE))
    return 2;
  if (mode == "recursive" && !mutex.acquire(INFINITE))
    return 2;
  printf("held\n");
  fflush(stdout);
  Sleep(ms);
  if (mode == "abandon")
    ExitProcess(0);  // Leaves the mutex abandoned for the next waiter.
  mutex.release();   // One release() gives up every recursive hold.
  printf("released\n");
  fflush(stdout);
  Sleep(mode == "recursive" ? ms : 0);
  return 0;
}

int mutexTry(const std::string& name, DWORD ms) {
  Mutex mutex(false, name, true);
  const bool acquired = mutex.acquire(ms);
  printf(acquired ? "acquired\n" : "busy\n");
  if (acquired)
    mutex.release();
  return 0;
}

int adminProbe() {
  Localize::createInstance(nullptr);
  Logger::createInstance();
  const bool admin = PrinterSpoolerWrapper().canWeOpenPrintersInAdminMode();
  printf("admin=%d\n", admin ? 1 : 0);
  DeviceEnumerator::destroy();
  Logger::destroyInstance();
  Localize::destroyInstance();
  return 0;
}

int codes() {
  Localize::createInstance(nullptr);
  Logger::createInstance();
  printf("language=%s\n", TandemUtilities::getLanguageCode().c_str());
  printf("country=%s\n", TandemUtilities::getCountryCode().c_str());
  printf("os=%s\n", TandemUtilities::getOsCode().c_str());
  CurrentProcess::destroyInstance();
  Logger::destroyInstance();
  Localize::destroyInstance();
  return 0;
}

int loadFrom(const std::string& directory, const std::string& name, bool harden) {
  SetCurrentDirectoryA(directory.c_str());
  if (harden)
    hardenDllSearch();
  printf("loaded=%d\n", LoadLibraryA(name.c_str()) != nullptr ? 1 : 0);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  if (command == "probe")
    return probe();
  if (command == "codes")
    return codes();
  if (command == "admin-probe")
    return adminProbe();
  if (command == "mutex-hold" && argc > 4)
    return mutexHold(argv[2], strtoul(argv[3], nullptr, 10), argv[4]);
  if (command == "mutex-try" && argc > 3)
    return mutexTry(argv[2], strtoul(argv[3], nullptr, 10));
  if (command == "load-from" && argc > 3)
    return loadFrom(argv[2], argv[3], argc > 4 && std::string(argv[4]) == "harden");
  fprintf(stderr, "usage: test_helper probe | mutex-hold NAME MS MODE | mutex-try NAME MS\n");
  return 2;
}
