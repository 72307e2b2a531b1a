#include <gtest/gtest.h>

#include <windows.h>

#include <regex>

#include "logging/BasicLogger.h"
#include "support/TestSupport.h"
#include "system/UniqueHandle.h"

namespace {

const LoggerComponent kQnv("QNV", 0);

// The text's CR LF lines, each with its clock checked and cut off.
std::vector<std::string> afterClock(const std::string& text) {
  const std::regex clock(R"(\d{4}/\d\d/\d\d-\d\d:\d\d:\d\d\.\d{3} (.*))");
  std::vector<std::string> lines;
  for (size_t at = 0, end; (end = text.find("\r\n", at)) != std::string::npos; at = end + 2) {
    std::smatch match;
    const std::string line = text.substr(at, end - at);
    EXPECT_TRUE(std::regex_match(line, match, clock)) << line;
    lines.push_back(match[1]);
  }
  return lines;
}

}  // namespace

// Each write appends one line: the clock, the component padded to the column width (a longer
// name is not cut), the text and CR LF. A bare file name goes to the root of the Windows drive.
TEST(BasicLogger, AppendsOneLinePerWriteToTheFileItWasGiven) {
  testsupport::TempDir dir;
  for (const std::string& path : {dir.file("given.log"), std::string("mwlotest.log")}) {
    const std::string file = path == "mwlotest.log" ? "C:\\mwlotest.log" : path;
    ASSERT_TRUE(testsupport::writeFile(file, "earlier\r\n"));
    {
      BasicLogger logger(path, 25);
      EXPECT_EQ(file, logger.getLogFilePath());
      logger.write(kQnv, LOG_TRACE, "+A::b() ");
      logger.write(LoggerComponent("AVeryLongComponentNameOfThirty", 0), LOG_TRACE, "x");
      EXPECT_EQ(ERROR_INVALID_PARAMETER, logger.setComponentColumnWidth(0));  // Keeps 25.
      logger.write(kQnv, LOG_TRACE, static_cast<const char*>(nullptr));
    }
    const std::string text = testsupport::readFile(file);
    EXPECT_EQ("earlier\r\n", text.substr(0, 9));
    EXPECT_EQ((std::vector<std::string>{"QNV" + std::string(23, ' ') + "+A::b() ",
                                        "AVeryLongComponentNameOfThirty x",
                                        "QNV" + std::string(23, ' ')}),
              afterClock(text.substr(9)));
    DeleteFileA(file.c_str());
  }
}

// A log of 2 GiB and more (it is never rotated) still gets each line at its end, and its start
// stays as it was. The file is sparse: it costs no disk.
TEST(BasicLogger, AppendsAtTheEndOfALogOfMoreThan2GiB) {
  testsupport::TempDir dir;
  const std::string path = dir.file("large.log");
  LARGE_INTEGER end;
  end.QuadPart = (1LL << 31) + 10;
  {
    const ScopedHandle file(CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(file.get(), "earlier\r\n", 9, &written, nullptr) &&
                SetFilePointerEx(file.get(), end, nullptr, FILE_BEGIN) && SetEndOfFile(file.get()));
  }
  BasicLogger(path, 5).write(kQnv, LOG_DETAIL, "late");
  const ScopedHandle file(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  char head[9] = {}, tail[64] = {};
  DWORD read = 0, lineLength = 0;
  ReadFile(file.get(), head, sizeof(head), &read, nullptr);
  SetFilePointerEx(file.get(), end, nullptr, FILE_BEGIN);
  ReadFile(file.get(), tail, sizeof(tail), &lineLength, nullptr);
  EXPECT_EQ("earlier\r\n", std::string(head, sizeof(head)));
  EXPECT_EQ(std::vector<std::string>{"QNV   late"}, afterClock(std::string(tail, lineLength)));
}

// A plain writer logs while its file exists; lines that must always be written are, regardless.
// A deleted file is created again by the next line.
TEST(BasicLogger, LogsWhileItsFileExistsAndCreatesItAgainAfterADelete) {
  testsupport::TempDir dir;
  const std::string path = dir.file("plain.log");
  EXPECT_FALSE(BasicLogger(path, 15).isLevelEnabled(kQnv, LOG_TRACE));
  EXPECT_TRUE(BasicLogger(path, 15).isLevelEnabled(kQnv, LOG_ALWAYS));
  ASSERT_TRUE(testsupport::writeFile(path, ""));
  EXPECT_TRUE(BasicLogger(path, 15).isLevelEnabled(kQnv, LOG_TRACE));
  BasicLogger logger(path, 5);
  logger.write(kQnv, LOG_DETAIL, "y");
  logger.deleteLogFile();
  EXPECT_FALSE(testsupport::fileExists(path));
  logger.write(kQnv, LOG_DETAIL, "z");
  EXPECT_EQ(std::vector<std::string>{"QNV   z"}, afterClock(testsupport::readFile(path)));
}

// A process that holds the log's mutex ("CVLOG_" + the file name) without end stalls no writer:
// each line is dropped after a bounded wait (the file and the log stay as they were), and the first
// line that gets through once the log is free says how many were dropped.
TEST(BasicLogger, DropsAndCountsTheLinesOfALogHeldByAnotherProcess) {
  testsupport::TempDir dir;
  const std::string path = dir.file("held.log");
  BasicLogger logger(path, 5);
  logger.write(kQnv, LOG_DETAIL, "before");
  {
    testsupport::MutexHolder holder("CVLOG_held.log");
    ASSERT_TRUE(holder.holds());
    for (const char* text : {"one", "two", "three"})
      logger.write(kQnv, LOG_DETAIL, text);
    logger.deleteLogFile();
  }
  logger.write(kQnv, LOG_DETAIL, "after");
  EXPECT_EQ((std::vector<std::string>{
                "QNV   before",
                "QNV   BasicLogger: 3 line(s) dropped: another process held the log past the "
                "wait (3000 ms for the first, 50 ms for each one after it)",
                "QNV   after"}),
            afterClock(testsupport::readFile(path)));
}
