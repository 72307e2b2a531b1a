#include "printers/DeviceEnumerator.h"

#include <windows.h>
#include <winspool.h>

#include <memory>
#include <new>

#include "logging/FunctionTrace.h"
#include "settings/Settings.h"
#include "settings/SettingsKeys.h"
#include "system/CriticalSectionLock.h"
#include "system/Win32Exception.h"

namespace {
CriticalSection g_deviceEnumeratorSection;
DeviceEnumerator* g_deviceEnumerator = nullptr;
}  // namespace

DeviceEnumerator* DeviceEnumerator::instance() {
  CriticalSectionLock lock(g_deviceEnumeratorSection);
  FunctionTrace trace = FunctionTrace::open(kLogRulesEng, "DeviceEnumerator::instance: ");
  if (g_deviceEnumerator == nullptr) {
    trace.detail("creating DeviceEnumerator.");
    g_deviceEnumerator = new DeviceEnumerator();
  }
  return g_deviceEnumerator;
}

void DeviceEnumerator::destroy() {
  CriticalSectionLock lock(g_deviceEnumeratorSection);
  FunctionTrace trace = FunctionTrace::open(kLogRulesEng, "DeviceEnumerator::destroy: ");
  if (g_deviceEnumerator != nullptr) {
    trace.detail("destroying DeviceEnumerator.");
    delete g_deviceEnumerator;
    g_deviceEnumerator = nullptr;
  }
}

DeviceEnumerator::DeviceEnumerator() {
  FunctionTrace trace = FunctionTrace::open(kLogRulesEng, "DeviceEnumerator::DeviceEnumerator: ");
  Settings settings;
  if (!settings.getStringValue(SettingsKeys::kSettingsSection, SettingsKeys::kDriverName,
                               driverName_, 0)) {
    trace.detail([&] {
      return LogText("Error - settings.getStringValue(keyName=") + SettingsKeys::kSettingsSection +
             ", valueName=" + SettingsKeys::kDriverName + ", rc=false.";
    });
    // Built and dropped on purpose: the enumerator stays usable with an empty driver name.
    Win32Exception unused("DeviceEnumerator::DeviceEnumerator - could not retrieve driver name", 1,
                          "DeviceEnumerator", __LINE__);
    (void)unused;
  }
}

DeviceEnumerator::~DeviceEnumerator() {
  FunctionTrace trace = FunctionTrace::open(kLogRulesEng, "DeviceEnumerator::~DeviceEnumerator: ");
  clearPrinters();
}

void DeviceEnumerator::clearPrinters() {
  for (Printer* printer : printers_)
    delete printer;
  printers_.clear();
}

void DeviceEnumerator::getPrinters(std::list<std::string>& names) {
  CriticalSectionLock lock(g_deviceEnumeratorSection);
  FunctionTrace trace = FunctionTrace::open(kLogRulesEng, "DeviceEnumerator::getPrinters(): ");
  if (printers_.empty())
    enumPrinters();
  names.clear();
  for (const Printer* printer : printers_)
    names.push_back(printer->getName());
}

void DeviceEnumerator::enumPrinters() {
  FunctionTrace trace = FunctionTrace::open(kLogRulesEng, "DeviceEnumerator::enumPrinters():");
  try {
    const DWORD flags = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;
    DWORD needed = 0;
    DWORD returned = 0;
    EnumPrintersA(flags, nullptr, 2, nullptr, 0, &needed, &returned);
    std::unique_ptr<BYTE[]> buffer(new (std::nothrow) BYTE[needed > 0 ? needed : 1]);
    if (!buffer) {
      trace.detail("could not allocate memory for results of printer enumeration");
      return;
    }
    if (!EnumPrintersA(flags, nullptr, 2, buffer.get(), needed, &needed, &returned)) {
      const DWORD error = GetLastError();
      trace.detail([&] {
        return LogText("Printer enumeration failed with win32 error code =") + decimal(error);
      });
      return;
    }
    clearPrinters();
    const auto* infos = reinterpret_cast<const PRINTER_INFO_2A*>(buffer.get());
    for (DWORD i = 0; i < returned; ++i) {
      const PRINTER_INFO_2A& info = infos[i];
      const std::string driver = info.pDriverName != nullptr ? info.pDriverName : "";
      if (driver != driverName_)
        continue;
      std::unique_ptr<Printer> printer(new Printer());
      printer->setName(info.pPrinterName != nullptr ? info.pPrinterName : "");
      printer->setPort(info.pPortName != nullptr ? info.pPortName : "");
      printer->setAttributes(info.Attributes);
      printers_.push_back(printer.release());
    }
  } catch (...) {
    trace.detail("DeviceEnumerator::enumPrinters unknown exception caught!!");
  }
}
