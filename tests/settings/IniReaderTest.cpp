#include <gtest/gtest.h>

#include "settings/IniReader.h"
#include "support/TestSupport.h"

namespace {

// The reader's whole result: "[section]{key=value}...[section]...", or "not built".
std::string read(const std::string& path) {
  IniReader reader(path);
  std::string text = reader.isBuilt() ? "" : "not built";
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

// The reader sees what the private-profile functions see, through buffers as large as the file's
// size cut to its low 16 bits.
TEST(IniReader, ReadsWhatThePrivateProfileFunctionsSee) {
  const std::pair<std::string, std::string> rows[] = {
      {"; defaults\r\n[A\\B]\r\n k1 = string:one two \r\nk2=dword:2\r\n\r\n[C]\r\n"
       "url=\"string:http://h:1/x\"\r\n",
       "[A\\B]{k1=string:one two}{k2=dword:2}[C]{url=string:http://h:1/x}"},
      // A key without a value is dropped; a section without keys is kept empty.
      {"[A]\r\nk=\r\n[B]\r\nm=string:x\r\n", "[A][B]{m=string:x}"},
      // Every lookup of equal (case-blind) key names finds the first.
      {"[A]\r\nk=dword:1\r\nk=dword:2\r\nK=dword:3\r\n", "[A]{k=dword:1}{K=dword:1}"},
      {"[A]\r\na=string:1\r\n=string:2\r\nb=string:3\r\n",
       "[A]{a=string:1}{=string:2}{b=string:3}"},
      {"k=dword:1\r\n", "not built"},
      {"", "not built"},
      {fileOfSize(65536), "not built"},
      {fileOfSize(65700), "[A]{v=string:" + std::string(65700 - 65536 - 8, 'a') + "}"},
      {"[Alphabet]\r\n" + fileOfSize(65536 + 8 - 12), "[Alphab]"}};
  testsupport::TempDir dir;
  for (const auto& [content, expected] : rows) {
    ASSERT_TRUE(testsupport::writeFile(dir.file("reader.ini"), content));
    EXPECT_EQ(expected, read(dir.file("reader.ini"))) << content.substr(0, 80);
  }
  EXPECT_EQ("not built", read(dir.file("absent.ini")));
}
