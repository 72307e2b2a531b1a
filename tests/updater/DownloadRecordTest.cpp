#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "updater/DownloadRecord.h"

using testsupport::fileExists;

namespace {

class DownloadRecordTest : public testing::Test {
 protected:
  DownloadRecordTest() { store_.set("Settings\\Updater", "DoNotDeleteDownloadedFiles", 0); }

  // Notes `paths` as a run does that then dies.
  static void noteAndDie(const std::vector<std::string>& paths) {
    DownloadRecord record;
    for (const std::string& path : paths)
      record.add(path);
  }
  std::string note() const { return store_.get("Settings\\Updater", "PendingDownloads"); }

  testsupport::ScopedStore store_;
  testsupport::TempDir downloads_;
};

}  // namespace

// What a run that is gone left behind is deleted and the note cleared; a file held open stays
// noted until a later run can delete it; the note of a run that lives is left alone.
TEST_F(DownloadRecordTest, DeletesWhatARunThatIsGoneLeftAndKeepsWhatItCannotDelete) {
  const std::string software = downloads_.file("orrery.exe"), data = downloads_.file("data.cab");
  testsupport::writeFile(software, "software");
  testsupport::writeFile(data, "data");
  noteAndDie({software, data});
  {
    testsupport::MutexHolder owner("Global\\" + testsupport::localId() + "PendingDownloads");
    EXPECT_FALSE(DownloadRecord::recoverAbandonedDownloads());
    EXPECT_TRUE(fileExists(software) && fileExists(data));
  }
  {
    const ScopedHandle held(CreateFileA(data.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    testsupport::LogCapture log;
    EXPECT_FALSE(DownloadRecord::recoverAbandonedDownloads());
    EXPECT_TRUE(log.contains("DownloadRecord::recoverAbandonedDownloads() Deleted '" + software +
                             "', left behind by a run that ended"));
    EXPECT_TRUE(!fileExists(software) && fileExists(data));
    EXPECT_EQ(data, note().substr(note().find('|') + 1));
  }
  EXPECT_TRUE(DownloadRecord::recoverAbandonedDownloads());
  EXPECT_FALSE(fileExists(data));
  EXPECT_EQ("none", note());
}

// A forged note deletes nothing but a plain download in the folder noted with it: not a file of
// another folder, a folder, a file with another hard link, or a path that climbs. Each is logged,
// always, and dropped.
TEST_F(DownloadRecordTest, AForgedNoteDeletesNothingElse) {
  testsupport::TempDir other;
  const std::string folder = downloads_.file("folder"), linked = downloads_.file("linked.dll");
  const std::string victim = other.file("victim.dll");
  testsupport::writeFile(victim, "victim");
  CreateDirectoryA(folder.c_str(), nullptr);
  ASSERT_TRUE(CreateHardLinkA(linked.c_str(), victim.c_str(), nullptr));
  noteAndDie({folder});
  const std::string identity = note().substr(0, note().find('|') + 1);
  const std::pair<std::string, const char*> forged[] = {
      {victim, "not in the folder its run downloaded into"},
      {folder, "a folder"},
      {linked, "a file with other links"},
      {downloads_.file("..\\" + victim.substr(victim.rfind('\\', victim.rfind('\\') - 1) + 1)),
       "not a full path of a file"}};
  std::string data;
  for (const auto& [path, reason] : forged)
    data += identity + path + '\0';
  RegSetKeyValueA(HKEY_LOCAL_MACHINE, (testsupport::storeRoot() + "Settings\\Updater").c_str(),
                  "PendingDownloads", REG_MULTI_SZ, data.c_str(),
                  static_cast<DWORD>(data.size() + 1));
  testsupport::LogCapture log(0);
  EXPECT_TRUE(DownloadRecord::recoverAbandonedDownloads());
  for (const auto& [path, reason] : forged)
    EXPECT_TRUE(log.contains("DownloadRecord: not deleting '" + path + "': " + reason)) << path;
  EXPECT_TRUE(fileExists(victim) && fileExists(folder) && fileExists(linked));
  EXPECT_EQ("none", note());
}
