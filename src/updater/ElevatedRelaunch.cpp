#include "updater/ElevatedRelaunch.h"

#include <shellapi.h>

#include "logging/FunctionTrace.h"
#include "system/CurrentProcess.h"
#include "system/Exception.h"
#include "updater/CommandLineParams.h"

namespace {
const int kShowNormal = 1;
ElevatedRelaunch::ShellExecuteFunction g_shellExecute = &ShellExecuteA;
}  // namespace

INT_PTR ElevatedRelaunch::launch(FunctionTrace& trace) {
  try {
    const std::string program = CurrentProcess::getInstance()->getPath();
    const INT_PTR value = reinterpret_cast<INT_PTR>(
        g_shellExecute(nullptr, "RunAs", program.c_str(), CommandLineParams::kUacMarker.c_str(),
                       nullptr, kShowNormal));
    if (value <= 32) {
      trace.detail([&] {
        return LogText("The new process FAILED to launch. Casted HINSTANCE value = ") +
               decimal(static_cast<int32_t>(value));
      });
    } else {
      trace.detail("The new process was launched successfully");
    }
    return value;
  } catch (const Exception& e) {
    BasicLogger::getInstance().write(
        kLogQnv, LOG_ALWAYS,
        "ERROR: The Orrery Updater executable FAILED to Launch! " + e.toString());
    return 0;
  }
}

void ElevatedRelaunch::setShellExecuteFunction(ShellExecuteFunction function) {
  g_shellExecute = function != nullptr ? function : &ShellExecuteA;
}
