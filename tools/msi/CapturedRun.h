#pragma once

#include <string>

// Runs the command line `command` with its standard output and error going to the file
// `outputFile` (made anew: it must not exist; deleted again once read), in a job object that holds
// the process and whatever it starts, for at most `limitMs`. Nothing is read while it runs, so
// neither the process nor anything that inherited its output can keep the caller waiting past the
// limit. When it ends, what it started and left running is ended too.
//
// Returns its exit code, with `output` what it wrote; or -1, with `output` what it wrote and then
// why: it could not be started, or it "did not end within N s" and was ended, with all it
// started. Not safe across threads that share `outputFile`.
long runCaptured(const std::wstring& command,
                 const std::wstring& outputFile,
                 unsigned long limitMs,
                 std::string& output);
