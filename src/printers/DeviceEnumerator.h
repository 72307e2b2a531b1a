#pragma once

#include <cstdint>
#include <list>
#include <string>

// The printers installed on this machine (local ones and connections) whose driver name equals
// the "DriverName" setting byte for byte. A process-wide singleton: instance() creates it (and
// reads the driver name), destroy() deletes it. The spooler is asked lazily on the first
// getPrinters(), and again on every call while the list is empty; a non-empty list is kept for
// the rest of the run.
//
// Threads: instance(), destroy() and getPrinters() run entirely under one critical section.
// Failures (no driver name, spooler errors) are logged and leave the list empty; nothing throws.
class DeviceEnumerator {
 public:
  static DeviceEnumerator* instance();
  static void destroy();

  DeviceEnumerator(const DeviceEnumerator&) = delete;
  DeviceEnumerator& operator=(const DeviceEnumerator&) = delete;

  // Replaces `names` with the names of the printers of interest, in spooler order.
  void getPrinters(std::list<std::string>& names);

 private:
  // One printer of interest.
  class Printer {
   public:
    void setName(const std::string& name) { name_ = name; }
    void setPort(const std::string& port) { port_ = port; }
    void setAttributes(uint32_t attributes) { attributes_ = attributes; }
    const std::string& getName() const { return name_; }

   private:
    std::string name_;
    std::string port_;
    uint32_t attributes_ = 0;
  };

  DeviceEnumerator();
  ~DeviceEnumerator();
  void enumPrinters();
  void clearPrinters();

  std::string driverName_;
  std::list<Printer*> printers_;
};
