#pragma once

#include <string>
#include <vector>

// The settings tool's command that shows who signed a file, so that an administrator builds the
// list of trusted publishers (TrustedPublishers) from a package or library they know is good:
//   cvupsettings /publisher FILE
// prints the signer's subject, its issuer, the SHA-256 of its public key (the value to list),
// whether its chain is trusted on this machine and whether the key is in this machine's list
// in force, as "Name: value" lines. Exits 0 when FILE carries a signature that matches its
// contents (whatever its chain), 1 when it is unsigned, changed after signing, or cannot be read
// (why on stderr), 2 on wrong arguments.
namespace PublisherCommand {

// Whether `arguments` ask for this command.
bool isAskedFor(const std::vector<std::string>& arguments);
// Runs it; the exit code.
int run(const std::vector<std::string>& arguments);

}  // namespace PublisherCommand
