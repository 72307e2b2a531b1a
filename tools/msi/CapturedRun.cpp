#include "CapturedRun.h"

#include <windows.h>

#include "system/UniqueHandle.h"

namespace {

// How long a process that was ended is waited for, so that its output is complete.
const DWORD kEndWaitMs = 5000;

// The job that ends every process in it when its last handle closes; null when none can be made.
ScopedHandle makeJob() {
  ScopedHandle job(CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  if (job.valid() && !SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits,
                                              sizeof(limits)))
    job.reset();
  return job;
}

std::string readAll(HANDLE file) {
  std::string text;
  char buffer[4096];
  DWORD got = 0;
  SetFilePointer(file, 0, nullptr, FILE_BEGIN);
  while (ReadFile(file, buffer, sizeof(buffer), &got, nullptr) && got > 0)
    text.append(buffer, got);
  return text;
}

}  // namespace

long runCaptured(const std::wstring& command,
                 const std::wstring& outputFile,
                 unsigned long limitMs,
                 std::string& output) {
  SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
  // One file object for the process and the reader: the reader reads it from the start once the
  // process has ended, and the system deletes it when the last of them closes it.
  const ScopedHandle file(
      CreateFileW(outputFile.c_str(), GENERIC_READ | GENERIC_WRITE,
                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inherit, CREATE_NEW,
                  FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  if (!file.valid()) {
    output = "could not make its output file (error " + std::to_string(GetLastError()) + ")\n";
    return -1;
  }
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = startup.hStdError = file.get();
  PROCESS_INFORMATION started = {};
  std::wstring line = command;
  if (!CreateProcessW(nullptr, &line[0], nullptr, nullptr, TRUE,
                      CREATE_NO_WINDOW | CREATE_SUSPENDED, nullptr, nullptr, &startup, &started)) {
    output = "could not start (error " + std::to_string(GetLastError()) + ")\n";
    return -1;
  }
  const ScopedHandle process(started.hProcess), thread(started.hThread);
  // Where the caller's own job forbids a job inside it (before Windows 8), the process alone is
  // ended at the limit.
  ScopedHandle job = makeJob();
  if (job.valid() && !AssignProcessToJobObject(job.get(), process.get()))
    job.reset();
  ResumeThread(thread.get());
  DWORD code = 0;
  const bool ended = WaitForSingleObject(process.get(), limitMs) == WAIT_OBJECT_0;
  if (!ended) {
    if (!job.valid() || !TerminateJobObject(job.get(), 1))
      TerminateProcess(process.get(), 1);
    WaitForSingleObject(process.get(), kEndWaitMs);
  }
  job.reset();  // Ends whatever it started and left running.
  output = readAll(file.get());
  if (!ended) {
    output += "did not end within " + std::to_string(limitMs / 1000) + " s; it was ended\n";
    return -1;
  }
  if (!GetExitCodeProcess(process.get(), &code)) {
    output += "its exit code could not be read (error " + std::to_string(GetLastError()) + ")\n";
    return -1;
  }
  return static_cast<long>(code);
}
