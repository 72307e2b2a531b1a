#include <gtest/gtest.h>

#include <windows.h>

#include "support/TestSupport.h"
#include "system/UniqueHandle.h"
#include "updater/RunOutcome.h"

// Every result word has its text in the message table compiled into cvupdater.exe (what the event
// viewer shows through the source's "EventMessageFile"), and its id tells its type as documented:
// 1xxx information, 2xxx warning, 3xxx error.
TEST(RunEventLog, EveryResultHasItsTextInTheProgramsMessageTable) {
  const ScopedModule program(
      LoadLibraryExA((testsupport::executableDirectory() + "cvupdater.exe").c_str(), nullptr,
                     LOAD_LIBRARY_AS_DATAFILE));
  ASSERT_TRUE(program.valid());
  const WORD types[] = {EVENTLOG_INFORMATION_TYPE, EVENTLOG_WARNING_TYPE, EVENTLOG_ERROR_TYPE};
  for (int index = 0; index <= static_cast<int>(RunOutcome::kResumeFailed); ++index) {
    const RunOutcome outcome = static_cast<RunOutcome>(index);
    const char* word = outcomeWord(outcome);
    DWORD_PTR strings[] = {
        reinterpret_cast<DWORD_PTR>(word), reinterpret_cast<DWORD_PTR>("1.0.0.1"),
        reinterpret_cast<DWORD_PTR>("2026.1"), reinterpret_cast<DWORD_PTR>("code 1")};
    char text[1024] = {};
    const DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY,
                                        program.get(), outcomeEventId(outcome), 0, text,
                                        sizeof text, reinterpret_cast<va_list*>(strings));
    ASSERT_NE(0u, length) << word << " has no text, error " << GetLastError();
    EXPECT_EQ("Orrery Updater run: " + std::string(word) + ".",
              std::string(text, strlen(word) + 21));
    EXPECT_NE(nullptr, strstr(text, "Software version: 1.0.0.1")) << text;
    const int kind = outcomeEventId(outcome) / 1000;
    ASSERT_TRUE(kind >= 1 && kind <= 3) << word;
    EXPECT_EQ(types[kind - 1], outcomeEventType(outcome)) << word;
  }
}
