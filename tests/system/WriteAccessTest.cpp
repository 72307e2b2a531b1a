#include <gtest/gtest.h>

#include <windows.h>

#include <sddl.h>

#include "system/UniqueHandle.h"
#include "system/WriteAccess.h"

namespace {

const char kRunning[] = "S-1-5-21-1-2-3-1001";  // The account the checking process runs as.

std::string whoElse(const char* sddl, ACCESS_MASK rights) {
  ScopedLocal descriptor, running;
  PSID sid = nullptr;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(sddl, SDDL_REVISION_1,
                                                            descriptor.receive(), nullptr) ||
      !ConvertStringSidToSidA(kRunning, &sid))
    return "bad test SDDL";
  running.reset(sid);
  return WriteAccess::whoElseCanWrite(descriptor.get(), sid, rights);
}

}  // namespace

// Files, folders and keys as Windows describes them: only SYSTEM, administrators, TrustedInstaller
// and the running account may own the object or be granted a right to change it.
TEST(WriteAccess, NamesTheFirstOtherAccountThatCanChangeTheObject) {
  const ACCESS_MASK file = WriteAccess::kFileRights, key = WriteAccess::kKeyRights;
  const struct {
    const char* sddl;
    ACCESS_MASK rights;
    const char* expected;
  } rows[] = {
      // Program Files' usual files: administrators change them, users read and run them.
      {"O:BAD:(A;;FA;;;SY)(A;;FA;;;BA)(A;;0x1200a9;;;BU)", file, ""},
      {"O:S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464D:(A;;FA;;;SY)", file, ""},
      {"O:S-1-5-21-1-2-3-1001D:(A;;FA;;;S-1-5-21-1-2-3-1001)", file, ""},
      // Users may modify it; a user owns it; Authenticated Users: Modify inherited from C:\.
      {"O:BAD:(A;;FA;;;SY)(A;;FA;;;BA)(A;;0x1301bf;;;BU)", file, "S-1-5-32-545"},
      {"O:S-1-5-21-9-9-9-1002D:(A;;FA;;;SY)(A;;FA;;;BA)", file, "S-1-5-21-9-9-9-1002"},
      {"O:BAD:AI(A;ID;FA;;;SY)(A;ID;FA;;;BA)(A;ID;0x1301bf;;;AU)", file, "S-1-5-11"},
      // A deny entry takes away what it names from later grants to the same account or to all;
      // after the grant, or for another account, it takes nothing.
      {"O:BAD:(D;;FA;;;BU)(A;;FA;;;BU)(A;;FA;;;SY)", file, ""},
      {"O:BAD:(D;;GA;;;WD)(A;;FA;;;AU)", file, ""},
      {"O:BAD:(D;;FW;;;BU)(A;;FA;;;BU)", file, "S-1-5-32-545"},  // FW leaves DELETE and WRITE_DAC.
      {"O:BAD:(A;;FA;;;BU)(D;;FA;;;BU)", file, "S-1-5-32-545"},
      {"O:BAD:(D;;FA;;;BG)(A;;FA;;;AU)", file, "S-1-5-11"},
      // Generic rights.
      {"O:BAD:(A;;GW;;;BU)", file, "S-1-5-32-545"},
      {"O:BAD:(A;;GA;;;WD)", file, "S-1-1-0"},
      {"O:BAD:(A;;GRGX;;;WD)", file, ""},
      // Entries only for what is created inside, and the owner's own entry.
      {"O:BAD:(A;OICIIO;FA;;;CO)(A;OICIIO;GA;;;BU)(A;;FA;;;SY)(A;;FA;;;OW)", file, ""},
      {"O:BAD:(A;OICI;0x46;;;BU)", file, "S-1-5-32-545"},  // Add files and folders, delete others'.
      // No DACL lets everyone in, an empty one nobody; no owner cannot be judged.
      {"O:SY", file, "S-1-1-0"},
      {"O:BAD:", file, ""},
      {"D:(A;;FA;;;SY)", file, "unknown"},
      // Keys: the records' own key; 0x20 creates a link in a key, but runs a file.
      {"O:BAD:P(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;BU)", key, ""},
      {"O:BAD:(A;CI;0x20;;;BU)", key, "S-1-5-32-545"},
      {"O:BAD:(A;CI;0x20;;;BU)", file, ""},
  };
  for (const auto& row : rows)
    EXPECT_EQ(row.expected, whoElse(row.sddl, row.rights)) << row.sddl;
}
