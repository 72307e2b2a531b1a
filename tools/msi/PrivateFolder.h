#pragma once

#include <string>

// A folder of this process's own below the system's temporary folder (for SYSTEM, %WINDIR%\Temp),
// which only SYSTEM and administrators can change: its DACL is its own and protected, whatever the
// folder above lets users do, and its name is one that nobody had taken. The custom actions keep
// there what they hand to the settings tool. Deleted, with the files in it, when the object goes.
// Not copyable; not safe across threads.
class PrivateFolder {
 public:
  PrivateFolder();
  ~PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  // Whether the folder was made; when not, path() is "".
  bool valid() const { return !path_.empty(); }
  // The path of `name` in the folder.
  std::wstring file(const std::wstring& name) const { return path_ + name; }
  // With its trailing backslash.
  const std::wstring& path() const { return path_; }

 private:
  std::wstring path_;
};
