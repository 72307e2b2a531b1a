#pragma once

#include <functional>
#include <string>

// The deployer's properties, checked before the install writes anything. A property not given
// (empty) is not checked; every one given must be valid:
//   SCHEDULE      system, users or none, in any case
//   LOCKSTORE     0 or 1; SCHEDULE=users with LOCKSTORE=1 is refused (a user's run cannot open a
//                 locked store)
//   SETTINGSFILE  an absolute path (C:\... or \\server\...) of a file this process can read
//   every text property the settings tool or the task receives (INSTALLDIR, SETTINGSFILE,
//   WEBSERVERURL, DRIVERNAME, DLLPATH, DATAPATH) holds only characters of the system's ANSI code
//   page, which the tool and the program work in
class PropertyCheck {
 public:
  // `property` reads one property by name: "" when it is not given.
  using Reader = std::function<std::wstring(const wchar_t*)>;

  explicit PropertyCheck(Reader property) : property_(std::move(property)) {}

  // "" when every property given is valid; otherwise why the first invalid one is refused, naming
  // it and its value ("SCHEDULE=bogus is refused: ...").
  std::wstring refusal() const;
  // SCHEDULE's value in lower case, as the package's conditions compare it.
  std::wstring schedule() const;

 private:
  Reader property_;
};
