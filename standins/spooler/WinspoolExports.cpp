// The six functions the programs import from winspool.drv, with their Windows signatures, each
// handed to the one Spooler of this process. winspool.def exports them undecorated.

// Newer Windows SDKs declare these functions DECLSPEC_IMPORT through WINSPOOLAPI; this DLL
// defines them.
#define WINSPOOLAPI
#include <windows.h>
#include <winspool.h>

#include "Spooler.h"

// The image base of this DLL, provided by both the MSVC and the MinGW linker.
extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace {

Spooler& TheSpooler() {
  static Spooler spooler(reinterpret_cast<HMODULE>(&__ImageBase));
  return spooler;
}

}  // namespace

extern "C" {

BOOL WINAPI EnumPrintersA(DWORD Flags,
                          LPSTR Name,
                          DWORD Level,
                          LPBYTE pPrinterEnum,
                          DWORD cbBuf,
                          LPDWORD pcbNeeded,
                          LPDWORD pcReturned) {
  (void)Name;
  return TheSpooler().enumPrinters(Flags, Level, pPrinterEnum, cbBuf, pcbNeeded, pcReturned);
}

BOOL WINAPI OpenPrinterA(LPSTR pPrinterName, LPHANDLE phPrinter, LPPRINTER_DEFAULTSA pDefault) {
  return TheSpooler().openPrinter(pPrinterName, phPrinter, pDefault);
}

BOOL WINAPI
GetPrinterA(HANDLE hPrinter, DWORD Level, LPBYTE pPrinter, DWORD cbBuf, LPDWORD pcbNeeded) {
  return TheSpooler().getPrinter(hPrinter, Level, pPrinter, cbBuf, pcbNeeded);
}

BOOL WINAPI SetPrinterA(HANDLE hPrinter, DWORD Level, LPBYTE pPrinter, DWORD Command) {
  (void)pPrinter;
  return TheSpooler().setPrinter(hPrinter, Level, Command);
}

BOOL WINAPI ClosePrinter(HANDLE hPrinter) {
  return TheSpooler().closePrinter(hPrinter);
}

BOOL WINAPI GetPrinterDriverDirectoryA(LPSTR pName,
                                       LPSTR pEnvironment,
                                       DWORD Level,
                                       LPBYTE pDriverDirectory,
                                       DWORD cbBuf,
                                       LPDWORD pcbNeeded) {
  (void)pName;
  (void)pEnvironment;
  return TheSpooler().getDriverDirectory(Level, pDriverDirectory, cbBuf, pcbNeeded);
}

}  // extern "C"
