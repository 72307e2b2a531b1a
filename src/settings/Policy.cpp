#include "settings/Policy.h"

#include <windows.h>

#include <cstring>

#include "system/Localize.h"
#include "system/UniqueHandle.h"

namespace {

const char kSoftware[] = "Software\\";
const size_t kShownCharacters = 64;  // A longer text is cut in a problem line.
const size_t kHashLength = 64;

// Sections compare as the registry compares key names, with or without a trailing backslash.
std::string sectionKey(const std::string& section) {
  std::string key = section;
  while (!key.empty() && key.back() == '\\')
    key.pop_back();
  return key;
}

bool sameName(const std::string& a, const std::string& b) {
  return _stricmp(a.c_str(), b.c_str()) == 0;
}

std::string typeName(DWORD type) {
  switch (type) {
    case REG_SZ:
      return "REG_SZ";
    case REG_EXPAND_SZ:
      return "REG_EXPAND_SZ";
    case REG_BINARY:
      return "REG_BINARY";
    case REG_DWORD:
      return "REG_DWORD";
    case REG_MULTI_SZ:
      return "REG_MULTI_SZ";
    case REG_QWORD:
      return "REG_QWORD";
    default:
      return "type " + std::to_string(type);
  }
}

bool isText(DWORD type) {
  return type == REG_SZ || type == REG_EXPAND_SZ;
}

std::string quoted(const std::string& text) {
  if (text.size() <= kShownCharacters)
    return "'" + text + "'";
  return "'" + text.substr(0, kShownCharacters) + "...' (" + std::to_string(text.size()) +
         " characters)";
}

std::string trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos)
    return "";
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool isHash(const std::string& text) {
  return text.size() == kHashLength &&
         text.find_first_not_of("0123456789ABCDEFabcdef") == std::string::npos;
}

// Keeps the thread's last-error code across a policy read: the store's callers read it after the
// store's own operation, never the policy's.
class LastErrorKept {
 public:
  LastErrorKept() : code_(GetLastError()) {}
  ~LastErrorKept() { SetLastError(code_); }
  LastErrorKept(const LastErrorKept&) = delete;
  LastErrorKept& operator=(const LastErrorKept&) = delete;

 private:
  DWORD code_;
};

}  // namespace

Policy::Policy() {
  const Localize* localize = Localize::getInstance();
  std::string family = localize->getProductFamilyRegistryPath();
  if (family.compare(0, strlen(kSoftware), kSoftware) == 0)
    family.erase(0, strlen(kSoftware));
  keyPath_ = std::string(kSoftware) + "Policies\\" + family + "\\QNV\\Local\\" +
             localize->getLocalId() + "\\";
}

const PolicyTable::Row* Policy::find(const std::string& section, const std::string& name) {
  const std::string wanted = sectionKey(section);
  for (size_t i = 0; i < PolicyTable::kRowCount; ++i) {
    const PolicyTable::Row& row = PolicyTable::kRows[i];
    if (sameName(row.name, name) && sameName(sectionKey(row.section), wanted))
      return &row;
  }
  return nullptr;
}

Policy::Reading Policy::evaluate(const PolicyTable::Row& row) const {
  const LastErrorKept lastError;
  Reading reading;
  ScopedKey key;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, (keyPath_ + sectionKey(row.section)).c_str(), 0,
                    KEY_QUERY_VALUE, key.receive()) != ERROR_SUCCESS)
    return reading;
  DWORD type = 0;
  DWORD size = 0;
  LONG status = RegQueryValueExA(key.get(), row.name, nullptr, &type, nullptr, &size);
  if (status == ERROR_FILE_NOT_FOUND)
    return reading;
  reading.present = true;
  // Two terminators more than asked for: a string stored without its own still ends.
  std::vector<char> data(size + 2, '\0');
  if (status == ERROR_SUCCESS)
    status = RegQueryValueExA(key.get(), row.name, nullptr, &type,
                              reinterpret_cast<BYTE*>(data.data()), &size);
  const std::string head = std::string("Policy ") + row.name + " = ";
  const std::string tail = "; the store's value is used";
  if (status != ERROR_SUCCESS) {
    reading.problem =
        head + "? is ignored: it cannot be read (status " + std::to_string(status) + ")" + tail;
    return reading;
  }

  if (row.kind == PolicyTable::Kind::kDword) {
    if (type != REG_DWORD || size != sizeof(DWORD)) {
      const std::string shown = isText(type) ? quoted(data.data()) + " " : "";
      reading.problem = head + shown + "(" + typeName(type) + ", " + std::to_string(size) +
                        " bytes) is ignored: it must be a REG_DWORD" + tail;
      return reading;
    }
    DWORD number = 0;
    memcpy(&number, data.data(), sizeof number);
    std::string why;
    if (number < row.minimum) {
      why = "below the minimum " + std::to_string(row.minimum);
    } else if (number > row.maximum) {
      why = "above the maximum " + std::to_string(row.maximum);
    }
    if (!why.empty())
      reading.problem = head + std::to_string(number) + " is ignored: " + why + tail;
    reading.number = number;
    return reading;
  }

  if (!isText(type)) {
    reading.problem = head + "(" + typeName(type) + ", " + std::to_string(size) +
                      " bytes) is ignored: it must be a REG_SZ" + tail;
    return reading;
  }
  const std::string text = data.data();
  std::string why;
  if (text.size() > row.maximum)
    why = "longer than " + std::to_string(row.maximum) + " characters";
  else if (text.size() < row.minimum)
    why = "it is empty";
  if (why.empty() && row.kind == PolicyTable::Kind::kHashList) {
    for (size_t start = 0; start <= text.size();) {
      size_t end = text.find(';', start);
      if (end == std::string::npos)
        end = text.size();
      const std::string hash = trimmed(text.substr(start, end - start));
      if (!hash.empty() && !isHash(hash)) {
        why = quoted(hash) + " is not a SHA-256 hash (64 hexadecimal characters)";
        break;
      }
      if (!hash.empty())
        reading.texts.push_back(hash);
      start = end + 1;
    }
    if (why.empty() && reading.texts.empty())
      why = "it names no hash";
  } else {
    reading.texts.push_back(text);
  }
  if (!why.empty())
    reading.problem = head + quoted(text) + " is ignored: " + why + tail;
  return reading;
}

bool Policy::read(const std::string& section, const std::string& name, unsigned long& value) const {
  const PolicyTable::Row* row = find(section, name);
  if (row == nullptr || row->kind != PolicyTable::Kind::kDword)
    return false;
  const Reading reading = evaluate(*row);
  if (!reading.present || !reading.problem.empty())
    return false;
  value = reading.number;
  return true;
}

bool Policy::read(const std::string& section, const std::string& name, std::string& value) const {
  const PolicyTable::Row* row = find(section, name);
  if (row == nullptr || row->kind != PolicyTable::Kind::kText)
    return false;
  const Reading reading = evaluate(*row);
  if (!reading.present || !reading.problem.empty())
    return false;
  value = reading.texts.front();
  return true;
}

bool Policy::read(const std::string& section,
                  const std::string& name,
                  std::vector<std::string>& value) const {
  const PolicyTable::Row* row = find(section, name);
  if (row == nullptr || row->kind != PolicyTable::Kind::kHashList)
    return false;
  const Reading reading = evaluate(*row);
  if (!reading.present || !reading.problem.empty())
    return false;
  value = reading.texts;
  return true;
}

std::vector<std::string> Policy::problems() const {
  std::vector<std::string> lines;
  for (size_t i = 0; i < PolicyTable::kRowCount; ++i) {
    const Reading reading = evaluate(PolicyTable::kRows[i]);
    if (!reading.problem.empty())
      lines.push_back(reading.problem);
  }
  return lines;
}
