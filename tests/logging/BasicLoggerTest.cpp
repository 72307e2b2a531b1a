#include <gtest/gtest.h>

#include <windows.h>

#include "LogLines.h"
#include "logging/BasicLogger.h"
#include "support/TestSupport.h"

using testsupport::TempDir;

namespace {

// A plain BasicLogger's lines: the clock ("YYYY/MM/DD-hh:mm:ss.mmm "), no ids.
std::vector<std::string> afterClock(const std::string& path) {
  std::vector<std::string> lines = loglines::readLines(path);
  for (std::string& line : lines)
    line.erase(0, 24);
  return lines;
}

TEST(BasicLogger, FileAndMutexFollowThePathGiven) {
  char windows[MAX_PATH] = {};
  ASSERT_GT(GetWindowsDirectoryA(windows, MAX_PATH), 3u);
  TempDir dir;
  const struct {
    std::string path, file, mutex;
  } cases[] = {
      // A bare name goes to the drive root of the Windows directory.
      {"cvlotest.log", std::string(windows, 3) + "cvlotest.log", "CVLOG_cvlotest.log"},
      {dir.file("given.log"), dir.file("given.log"), "CVLOG_given.log"},
  };
  EXPECT_EQ("C:\\cvlotest.log", cases[0].file);
  for (const auto& c : cases) {
    DeleteFileA(c.file.c_str());
    {
      BasicLogger logger(c.path, 15);
      EXPECT_EQ(c.file, logger.getLogFilePath());
      HANDLE mutex = OpenMutexA(SYNCHRONIZE, FALSE, c.mutex.c_str());
      EXPECT_NE(nullptr, mutex) << c.mutex;
      CloseHandle(mutex);
      logger.write(kLogQnv, LOG_TRACE, "first");
    }
    EXPECT_EQ(std::vector<std::string>{"QNV             first"}, afterClock(c.file));
    EXPECT_TRUE(DeleteFileA(c.file.c_str()));
  }
}

TEST(BasicLogger, LogsExactlyWhenItsFileAlreadyExists) {
  TempDir dir;
  const std::string path = dir.file("plain.log");
  EXPECT_FALSE(BasicLogger(path, 15).isLevelEnabled(kLogUpdater, LOG_TRACE));
  EXPECT_TRUE(BasicLogger(path, 15).isLevelEnabled(kLogUpdater, LOG_ALWAYS));
  ASSERT_TRUE(testsupport::writeFile(path, ""));
  EXPECT_TRUE(BasicLogger(path, 15).isLevelEnabled(kLogUpdater, LOG_TRACE | LOG_DETAIL));
}

TEST(BasicLogger, LinesAreAppendedWithClockPaddedComponentAndCrLf) {
  TempDir dir;
  const std::string path = dir.file("layout.log");
  ASSERT_TRUE(testsupport::writeFile(path, "earlier\r\n"));
  const char* names[] = {"QNV", "RulesEng", "FifteenCharsAbc", "AVeryLongComponentName"};
  const std::string before = loglines::clockNow();
  {
    BasicLogger logger(path, 15);
    for (const char* name : names)
      logger.write(LoggerComponent(name, 0xFFFFFFFF), LOG_TRACE, std::string("+A::b() "));
    logger.write(kLogQnv, LOG_TRACE, static_cast<const char*>(nullptr));
  }
  const std::string after = loglines::clockNow();
  bool complete = false;
  const std::vector<std::string> lines = loglines::readLines(path, 9, &complete);
  EXPECT_TRUE(complete);
  ASSERT_EQ(5u, lines.size());
  const std::vector<std::string> expected = {
      "QNV             +A::b() ",        "RulesEng        +A::b() ", "FifteenCharsAbc +A::b() ",
      "AVeryLongComponentName +A::b() ", "QNV             ",
  };
  for (size_t i = 0; i < lines.size(); ++i) {
    loglines::LogLine line;
    EXPECT_TRUE(i == 4 || loglines::parse(lines[i], {true, false, false}, line)) << lines[i];
    EXPECT_EQ(expected[i], lines[i].substr(24));
    EXPECT_LE(before, lines[i].substr(0, 23));
    EXPECT_GE(after, lines[i].substr(0, 23));
  }
}

TEST(BasicLogger, ColumnWidthComesFromTheConstructorAndZeroIsRefused) {
  TempDir dir;
  const std::string path = dir.file("width.log");
  BasicLogger logger(path, 25);
  logger.write(kLogQnv, LOG_TRACE, "a");
  EXPECT_EQ(87u, logger.setComponentColumnWidth(0));
  logger.write(kLogQnv, LOG_TRACE, "b");
  EXPECT_EQ(0u, logger.setComponentColumnWidth(5));
  logger.write(kLogQnv, LOG_TRACE, "c");
  const std::string padded = "QNV" + std::string(22, ' ') + " ";
  EXPECT_EQ((std::vector<std::string>{padded + "a", padded + "b", "QNV   c"}), afterClock(path));
}

// The hooks of a derived writer: a prefix before the header, a suffix before CR LF, and a call
// when the file is missing.
class HookedLogger : public BasicLogger {
 public:
  explicit HookedLogger(const std::string& path) : BasicLogger(path, 15) {}
  int missing = 0;

 protected:
  void onLogFileMissing() override { ++missing; }
  std::string getLinePrefix(const LoggerComponent& component,
                            uint32_t level,
                            const char* text) override {
    return "<" + component.getName() + "," + std::to_string(level) + "," + text + ">";
  }
  std::string getLineSuffix(const LoggerComponent&, uint32_t, const char*) override {
    return "|end";
  }
};

TEST(BasicLogger, DerivedHooksFrameTheLineAndHearOfAMissingFile) {
  TempDir dir;
  const std::string path = dir.file("hooks.log");
  HookedLogger logger(path);
  logger.write(kLogQnv, LOG_DETAIL, "x");
  logger.write(kLogQnv, LOG_DETAIL, "y");
  EXPECT_EQ(1, logger.missing);
  logger.deleteLogFile();
  logger.write(kLogQnv, LOG_DETAIL, "z");
  EXPECT_EQ(2, logger.missing);
  const std::vector<std::string> lines = loglines::readLines(path);
  ASSERT_EQ(1u, lines.size());
  ASSERT_EQ("<QNV,8,z>", lines[0].substr(0, 9));
  loglines::LogLine line;
  EXPECT_TRUE(loglines::parse(lines[0].substr(9), {true, false, false}, line));
  EXPECT_EQ("z|end", line.text);
}

}  // namespace
