// A second log writer for the multi-process tests. Its file name starts with "cvlo", so it
// shares the test executable's local id: the same settings store, log file and log mutex.
//
//   cvlo_writer write TAG ITERATIONS GATE   print "ready", wait for the named event GATE, then
//                                           run ITERATIONS traced operations (three lines each),
//                                           print "done"
//   cvlo_writer hold                        start a line and stop inside it while holding the log
//                                           mutex; print "held" and wait to be killed
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "logging/FunctionTrace.h"
#include "logging/LogText.h"
#include "logging/Logger.h"
#include "updater/Localize.h"

namespace {

// The detail text of iteration `n`: long enough that a torn or overlapped line shows.
std::string detailText(const std::string& tag, int n) {
  std::string text = " tag=" + tag + " n=" + std::to_string(n) + " ";
  for (int i = 0; i < 64; ++i)
    text += static_cast<char>('a' + (n + i) % 26);
  return text;
}

int write(const std::string& tag, int iterations, const std::string& gate) {
  HANDLE event = OpenEventA(SYNCHRONIZE, FALSE, gate.c_str());
  if (event == nullptr)
    return 3;
  Localize::createInstance(nullptr);
  Logger::createInstance();
  printf("ready\n");
  fflush(stdout);
  WaitForSingleObject(event, 60000);
  CloseHandle(event);
  for (int n = 0; n < iterations; ++n) {
    FunctionTrace trace = FunctionTrace::open(kLogUpdater, "Writer::writeLine() ");
    if (trace.isOn()) {
      trace.log(detailText(tag, n));
      trace.setRc(n);
    }
  }
  Logger::destroyInstance();
  Localize::destroyInstance();
  printf("done\n");
  fflush(stdout);
  return 0;
}

// Stops inside write(), after the log mutex is taken and before the line reaches the file.
class StuckLogger : public BasicLogger {
 public:
  StuckLogger() : BasicLogger(Logger::getLogFilePath(), 15) {}

 protected:
  std::string getLinePrefix(const LoggerComponent&, uint32_t, const char*) override {
    printf("held\n");
    fflush(stdout);
    Sleep(INFINITE);
    return std::string();
  }
};

int hold() {
  Localize::createInstance(nullptr);
  StuckLogger logger;
  logger.write(kLogUpdater, LOG_ALWAYS, "never written");
  return 4;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  if (command == "write" && argc > 4)
    return write(argv[2], atoi(argv[3]), argv[4]);
  if (command == "hold")
    return hold();
  fprintf(stderr, "usage: cvlo_writer write TAG ITERATIONS GATE | hold\n");
  return 2;
}
