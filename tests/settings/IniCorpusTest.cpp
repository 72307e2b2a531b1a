#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "logging/Logger.h"
#include "settings/IniReader.h"
#include "settings/SettingsInstaller.h"
#include "support/TestSupport.h"

namespace {

// Every section of the corpus names a key below this root, so nothing lands elsewhere.
const char kRoot[] = "Software\\CorvaneTestIni\\Corpus";

// The installer's lines for the problems that make installSettings() false.
const char* const kInstallerProblems[] = {
    "Settings file could not be parsed properly.",
    "Empty Section name. Skipping..",
    "Empty Section found. Skipping..",
    "Empty KeyValue pair found in Section='",
    "Could not retrieve the type information for value='",
};

// Deterministic on every compiler: the engine's sequence is fixed by the standard, and no
// distribution is used.
class Random {
 public:
  explicit Random(uint32_t seed) : engine_(seed) {}
  uint32_t below(uint32_t n) { return static_cast<uint32_t>(engine_() % n); }
  bool percent(uint32_t p) { return below(100) < p; }
  template <size_t N>
  const char* pick(const char* const (&items)[N]) {
    return items[below(N)];
  }
  std::string text(const std::string& alphabet, uint32_t maxLength) {
    std::string result(below(maxLength + 1), ' ');
    for (char& c : result)
      c = alphabet[below(static_cast<uint32_t>(alphabet.size()))];
    return result;
  }
  // Any byte but the line ends.
  char junkByte() {
    const char c = static_cast<char>(below(256));
    return c == '\r' || c == '\n' ? '\x1a' : c;
  }

 private:
  std::mt19937 engine_;
};

const char kNameChars[] = "abcKLMxyz019 _-.:;#=\"'\x80\xe9";
const char kSectionChars[] = "abcKLMxyz019 _-.;=#'";

bool isHeader(const std::string& line) {
  const std::string::size_type first = line.find_first_not_of(" \t\x1a");
  return first != std::string::npos && line[first] == '[';
}

// A line that is not a header must never turn into one, or it could name a key outside kRoot.
std::string asPlainLine(std::string line) {
  for (char& c : line) {
    if (c == '[')
      c = '(';
  }
  return line;
}

std::string randomValue(Random& random) {
  static const char* const kNumbers[] = {"30", " -5",        "+7", "12abc",      "0x10",
                                         "",   "4294967295", "-",  "99999999999"};
  static const char* const kOdd[] = {
      "DWORD:1",   "String:x", "binary:01",         ":x",        "x", "",
      " string:x", "dword",    "\"string:quoted\"", "string:a:b"};
  const uint32_t kind = random.below(40);
  if (kind < 2)
    return random.pick(kOdd);
  if (kind < 15)
    return std::string("dword:") + random.pick(kNumbers);
  if (kind < 30)
    return "string:" + random.text(kNameChars, 12);
  if (kind < 36)
    return "string:" + std::string(random.below(300), 'v');
  std::string junk(random.below(12), ' ');
  for (char& c : junk)
    c = random.junkByte();
  return (random.percent(50) ? "string:" : "") + junk;
}

std::string randomLine(Random& random, const std::string& lastKey) {
  const uint32_t kind = random.below(40);
  if (kind == 0)
    return random.text(kNameChars, 8);  // no equals sign
  if (kind == 1)
    return "=" + randomValue(random);
  if (kind == 2)
    return "; " + random.text(kNameChars, 10);
  if (kind == 3)
    return "";
  if (kind == 4) {
    std::string junk(random.below(20), ' ');
    for (char& c : junk)
      c = random.junkByte();
    return asPlainLine(junk);
  }
  if (kind == 5)
    return lastKey + "=" + randomValue(random);  // a duplicate key
  return asPlainLine(random.text(kNameChars, 8) + "k" + (random.percent(20) ? " = " : "=") +
                     randomValue(random));
}

std::string lowered(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z')
      c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

struct Installed {
  std::string section;
  std::string key;
  uint32_t type;
  std::string data;
};

// A settings file of a few sections with random lines, many of them broken. `clean` gets the
// entries that nothing else in the file can hide or overwrite: a unique key with a well-formed
// value in the first section of its name. Such a section starts with one of them, as Wine lists
// no keys at all for a section whose first key name is empty.
std::vector<std::string> generateLines(Random& random, int number, std::vector<Installed>& clean) {
  std::vector<std::string> lines{"; corpus file " + std::to_string(number)};
  if (random.percent(5))
    lines.push_back("Orphan=dword:1");
  std::set<std::string> names;
  int cleanKeys = 0;
  std::string lastHeader;
  for (uint32_t s = 1 + random.below(3); s > 0; --s) {
    std::string name = std::string(kRoot) + "\\" + random.text(kSectionChars, 6) + "x";
    if (random.percent(30))
      name += "\\" + random.text(kSectionChars, 4) + "y";
    if (random.percent(15))
      name += "\\";
    const uint32_t kind = random.below(30);
    bool cleanSection = false;
    if (kind == 0) {
      lines.push_back(random.percent(50) ? "[]" : "[ ]");
    } else if (kind == 1 && !lastHeader.empty()) {
      lines.push_back(lastHeader);
    } else {
      lines.push_back((random.percent(10) ? "  [ " : "[") + name + "]");
      cleanSection = names.insert(lowered(name)).second;
    }
    lastHeader = lines.back();
    std::string lastKey = "k";
    const uint32_t keys = random.percent(5) ? 0 : 1 + random.below(5);
    for (uint32_t k = keys; k > 0; --k) {
      if ((cleanSection && k == keys) || random.percent(25)) {
        const std::string key = "Clean" + std::to_string(++cleanKeys);
        const bool isDword = random.percent(50);
        const std::string data =
            isDword ? std::to_string(random.below(100000)) : random.text("abcXYZ019", 10);
        lines.push_back(key + "=" + (isDword ? "dword:" : "string:") + data);
        if (cleanSection)
          clean.push_back(
              Installed{name, key, isDword ? IniReader::kDwordType : IniReader::kStringType, data});
      } else {
        lines.push_back(randomLine(random, lastKey));
        lastKey = lines.back().substr(0, lines.back().find('='));
      }
    }
  }
  return lines;
}

void mutate(Random& random, std::vector<std::string>& lines) {
  for (uint32_t n = 1 + random.below(4); n > 0 && lines.size() > 1; --n) {
    const size_t at = 1 + random.below(static_cast<uint32_t>(lines.size() - 1));
    std::string& line = lines[at];
    switch (random.below(6)) {
      case 0:
        if (!isHeader(line) && !line.empty()) {
          line[random.below(static_cast<uint32_t>(line.size()))] = random.junkByte();
          line = asPlainLine(line);
        }
        break;
      case 1:
        lines.erase(lines.begin() + at);
        break;
      case 2:
        lines.insert(lines.begin() + at, line);
        break;
      case 3:
        std::swap(line, lines[1 + random.below(static_cast<uint32_t>(lines.size() - 1))]);
        break;
      case 4:
        if (!isHeader(line)) {  // the file ends inside this line
          line.resize(random.below(static_cast<uint32_t>(line.size() + 1)));
          lines.resize(at + 1);
        }
        break;
      default: {
        const std::string::size_type root = line.find(kRoot);
        if (isHeader(line) && root != std::string::npos) {
          const size_t from = root + sizeof(kRoot);
          line.insert(from + random.below(static_cast<uint32_t>(line.size() - from)), 1,
                      kSectionChars[random.below(sizeof(kSectionChars) - 1)]);
        }
        break;
      }
    }
  }
}

// The header is one we made: a key below kRoot, or a nameless section.
bool isSafe(const std::string& line) {
  if (!isHeader(line))
    return true;
  std::string name = line.substr(line.find('[') + 1);
  name.erase(0, name.find_first_not_of(' '));
  return name.compare(0, sizeof(kRoot), std::string(kRoot) + "\\") == 0 ||
         name.find_first_not_of(' ') == name.find(']');
}

std::set<std::string> subkeys(const char* path) {
  std::set<std::string> names;
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) != ERROR_SUCCESS)
    return names;
  char name[256];
  for (DWORD index = 0;; ++index) {
    DWORD length = sizeof(name);
    if (RegEnumKeyExA(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS)
      break;
    names.insert(name);
  }
  RegCloseKey(key);
  return names;
}

// What the installer should leave in the registry for the reader's view of the file: the last
// write per registry key (case-blind, trailing backslashes folded) and value name.
std::map<std::string, Installed> expectedValues(IniReader& reader) {
  std::map<std::string, Installed> values;
  for (const std::string& section : reader.getSections()) {
    std::string keyPath = lowered(section);
    while (!keyPath.empty() && keyPath.back() == '\\')
      keyPath.pop_back();
    for (const IniReader::KeyValPair& pair : reader.getSectionData(section)) {
      std::string data;
      const uint32_t type = IniReader::getValueType(pair.second, data);
      if (!section.empty() && !pair.first.empty() && type != IniReader::kUnknownType)
        values[keyPath + "|" + lowered(pair.first)] = Installed{section, pair.first, type, data};
    }
  }
  return values;
}

void expectInstalled(const Installed& value) {
  SCOPED_TRACE(value.section + " / " + value.key);
  HKEY key = nullptr;
  ASSERT_EQ(ERROR_SUCCESS,
            RegOpenKeyExA(HKEY_LOCAL_MACHINE, value.section.c_str(), 0, KEY_READ, &key));
  char data[1024] = {};
  DWORD size = sizeof(data) - 1;
  DWORD type = REG_NONE;
  const LONG status = RegQueryValueExA(key, value.key.c_str(), nullptr, &type,
                                       reinterpret_cast<BYTE*>(data), &size);
  RegCloseKey(key);
  ASSERT_EQ(ERROR_SUCCESS, status);
  if (value.type == IniReader::kDwordType) {
    ASSERT_EQ(static_cast<DWORD>(REG_DWORD), type);
    DWORD number = 0;
    memcpy(&number, data, sizeof(number));
    EXPECT_EQ(static_cast<DWORD>(atol(value.data.c_str())), number);
  } else {
    ASSERT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_EQ(value.data, std::string(data));
  }
}

}  // namespace

// A few hundred generated and mutated settings files (and a few missing ones), each read by the
// reader and installed: no crash; a false result exactly when the installer logged a problem;
// every typed value the reader hands over, and every well-formed entry the generator wrote,
// lands in the registry; nothing lands outside the corpus root.
TEST(IniCorpus, EveryFileInstallsWhatItCanAndLogsWhatItCannot) {
  const int kFiles = 300;
  testsupport::ScopedStore store;
  testsupport::TempDir dir;
  const std::set<std::string> topKeys = subkeys("");
  const std::set<std::string> softwareKeys = subkeys("Software");

  // The files, and what the reader sees in each, read while the log is still off.
  testsupport::restartLogger();
  struct CorpusFile {
    std::string path;
    std::string content;
    std::map<std::string, Installed> expected;
    std::vector<Installed> clean;
  };
  std::vector<CorpusFile> corpus;
  Random random(20240611);
  std::vector<std::string> lines;
  for (int number = 0; number < kFiles; ++number) {
    CorpusFile file;
    if (number % 2 == 0) {
      lines = generateLines(random, number, file.clean);
    } else {
      lines[0] = "; corpus file " + std::to_string(number);
      mutate(random, lines);
    }
    const std::string eol = random.percent(80) ? "\r\n" : "\n";
    for (const std::string& line : lines) {
      ASSERT_TRUE(isSafe(line)) << line;
      file.content += line + eol;
    }
    // Distinct names: the private-profile functions cache recently read files.
    file.path = dir.file("corpus" + std::to_string(number) + ".loc");
    if (number % 50 != 49) {  // else a missing file
      ASSERT_TRUE(testsupport::writeFile(file.path, file.content));
    }
    IniReader reader(file.path);
    file.expected = expectedValues(reader);
    corpus.push_back(file);
  }

  testsupport::LogCapture log;
  int failures = 0;
  for (const CorpusFile& file : corpus) {
    SCOPED_TRACE(file.path + ":\n" + file.content);
    testsupport::deleteKeyTree(kRoot);
    const bool installed = SettingsInstaller(file.path).installSettings();
    const std::string written = log.next();
    bool problemLogged = false;
    for (const char* problem : kInstallerProblems)
      problemLogged = problemLogged || written.find(problem) != std::string::npos;
    EXPECT_EQ(!installed, problemLogged);
    for (const auto& entry : file.expected)
      expectInstalled(entry.second);
    for (const Installed& entry : file.clean)
      expectInstalled(entry);
    failures += installed ? 0 : 1;
    if (HasFailure())
      break;
  }
  testsupport::deleteKeyTree("Software\\CorvaneTestIni");
  EXPECT_EQ(topKeys, subkeys(""));
  EXPECT_EQ(softwareKeys, subkeys("Software"));
  // The corpus exercises both outcomes.
  EXPECT_GT(failures, kFiles / 10);
  EXPECT_LT(failures, kFiles * 9 / 10);
}
