#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "logging/Logger.h"
#include "settings/IniReader.h"
#include "support/TestSupport.h"

using testsupport::ScopedStore;
using testsupport::TempDir;

namespace {

const char kUntouched[] = "<untouched>";

// The reader's whole result in one line: "[section]{key=value}{key=value}[section]...".
std::string dump(IniReader& reader) {
  std::string text;
  for (const std::string& section : reader.getSections()) {
    text += "[" + section + "]";
    for (const IniReader::KeyValPair& pair : reader.getSectionData(section))
      text += "{" + pair.first + "=" + pair.second + "}";
  }
  return text;
}

// A file of exactly `size` bytes: one section [A] whose value v fills the rest with 'a'.
std::string fileOfSize(size_t size) {
  const std::string head = "[A]\r\nv=string:";
  return head + std::string(size - head.size() - 2, 'a') + "\r\n";
}

}  // namespace

TEST(IniReaderValueType, SplitsTheTypeWordFromTheDataAtTheFirstColon) {
  struct Case {
    const char* value;
    uint32_t type;
    const char* parsed;
    bool typeMissingLogged;
  };
  const Case cases[] = {
      {"string:abc", IniReader::kStringType, "abc", false},
      {"dword:30", IniReader::kDwordType, "30", false},
      {"string:http://host:8765/a", IniReader::kStringType, "http://host:8765/a", false},
      {"dword:0x10", IniReader::kDwordType, "0x10", false},
      // Nothing after the colon: the type stands, the data is left alone.
      {"dword:", IniReader::kDwordType, kUntouched, false},
      {"string:", IniReader::kStringType, kUntouched, false},
      // The type word is compared exactly; the data is still handed out.
      {"DWORD:5", IniReader::kUnknownType, "5", false},
      {"String:x", IniReader::kUnknownType, "x", false},
      {" string:x", IniReader::kUnknownType, "x", false},
      {"binary:01", IniReader::kUnknownType, "01", false},
      {"abc", IniReader::kUnknownType, kUntouched, true},
      {":abc", IniReader::kUnknownType, kUntouched, true},
      {"", IniReader::kUnknownType, kUntouched, false},
  };
  ScopedStore store;
  testsupport::LogCapture log;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value);
    std::string parsed = kUntouched;
    EXPECT_EQ(c.type, IniReader::getValueType(c.value, parsed));
    EXPECT_EQ(c.parsed, parsed);
    const std::string missing =
        std::string("Could not find the type information for value=") + c.value;
    EXPECT_EQ(c.typeMissingLogged, log.next().find(missing + "\r\n") != std::string::npos);
  }
}

TEST(IniReader, ReadsWhatThePrivateProfileFunctionsSeeAndLogsEveryEntryItDrops) {
  struct Case {
    const char* name;
    std::string content;
    bool built;
    std::string expected;  // dump()
    std::vector<std::string> loggedLines;
  };
  const std::string cutValue = "string:" + std::string(65700 - 65536 - 1 - 7, 'a');
  const Case cases[] = {
      {"well formed, with blanks, comments, quotes and a further colon",
       "; defaults\r\n[A\\B]\r\n k1 = string:one two \r\nk2=dword:2\r\n\r\n[C]\r\n"
       "url=\"string:http://h:1/x\"\r\n",
       true,
       "[A\\B]{k1=string:one two}{k2=dword:2}[C]{url=string:http://h:1/x}",
       {}},
      {"key with an empty value",
       "[A]\r\nk=\r\nm=string:x\r\n",
       true,
       "[A]{m=string:x}",
       {"Could not retrieve value for key='k' under section='A'"}},
      {"section without keys",
       "[A]\r\n[B]\r\nk=dword:1\r\n",
       true,
       "[A][B]{k=dword:1}",
       {"Could not retrieve key-value pairs for section=A"}},
      // The private-profile lookups find the first of equal (case-blind) key names.
      {"duplicate keys",
       "[A]\r\nk=dword:1\r\nk=dword:2\r\nK=dword:3\r\n",
       true,
       "[A]{k=dword:1}{K=dword:1}",
       {}},
      // Both copies of a section are listed; every lookup reaches the first one.
      {"duplicate sections",
       "[A]\r\nk=dword:1\r\n[A]\r\nm=dword:2\r\n",
       true,
       "[A]{k=dword:1}[A]{k=dword:1}",
       {}},
      {"empty key name between keys",
       "[A]\r\na=string:1\r\n=string:2\r\nb=string:3\r\n",
       true,
       "[A]{a=string:1}{=string:2}{b=string:3}",
       {}},
      // Wine lists neither nameless sections nor lines without an equals sign.
      {"empty section names and lines without '='",
       "[]\r\nk=dword:1\r\n[ ]\r\nm=dword:1\r\n[A]\r\njust text\r\nn=dword:1\r\n",
       true,
       "[A]{n=dword:1}",
       {}},
      {"binary junk between the lines",
       "[A]\r\nk=dword:1\r\n\x01\xff\xfe" + std::string(2, '\0') +
           "junk\x1a\r\n\x80\xe9=\x7f\r\n[B]\r\nm=string:\xe9t\xe9\r\n",
       true,
       "[A]{k=dword:1}{\x80\xe9=\x7f}[B]{m=string:\xe9t\xe9}",
       {}},
      {"keys before any section", "k=dword:1\r\n", false, "", {"Size of the file=11"}},
      {"empty file", "", false, "", {"Size of the file=0"}},
      {"exactly 64 KiB", fileOfSize(65536), false, "", {"Size of the file=0"}},
      {"larger than 64 KiB, value cut to the low 16 bits of the size",
       fileOfSize(65700),
       true,
       "[A]{v=" + cutValue + "}",
       {"Size of the file=164"}},
      {"larger than 64 KiB, section name cut",
       "[Alphabet]\r\n" + fileOfSize(65536 + 8 - 12),
       true,
       "[Alphab]",
       {"Could not retrieve key-value pairs for section=Alphab"}},
  };
  ScopedStore store;
  TempDir dir;
  testsupport::LogCapture log;
  int index = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = dir.file("reader" + std::to_string(++index) + ".ini");
    ASSERT_TRUE(testsupport::writeFile(path, c.content));
    IniReader reader(path);
    EXPECT_EQ(c.built, reader.isBuilt());
    EXPECT_EQ(c.expected, dump(reader));
    const std::string written = log.next();
    for (const std::string& line : c.loggedLines)
      EXPECT_NE(std::string::npos, written.find(line)) << line;
  }
}

TEST(IniReader, MissingFileReadsAsNothingAndSaysWhy) {
  ScopedStore store;
  TempDir dir;
  testsupport::LogCapture log;
  IniReader reader(dir.file("absent.ini"));
  EXPECT_FALSE(reader.isBuilt());
  EXPECT_TRUE(reader.getSections().empty());
  EXPECT_TRUE(reader.getSectionData("A").empty());
  const std::string written = log.next();
  EXPECT_NE(std::string::npos,
            written.find("IniReader::build():Could not open the settings file.errorCode =2\r\n"));
  EXPECT_NE(std::string::npos,
            written.find("Unsuccessful parsing settings file. returning empty key-value pairs"));
}

TEST(IniReader, LooksSectionsUpByTheirExactName) {
  ScopedStore store;
  TempDir dir;
  ASSERT_TRUE(testsupport::writeFile(dir.file("a.ini"), "[Abc]\r\nk=dword:1\r\n"));
  IniReader reader(dir.file("a.ini"));
  EXPECT_EQ(1u, reader.getSectionData("Abc").size());
  EXPECT_TRUE(reader.getSectionData("abc").empty());
  EXPECT_TRUE(reader.getSectionData("Ab").empty());
}
