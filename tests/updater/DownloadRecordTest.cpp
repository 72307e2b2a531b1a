#include <gtest/gtest.h>

#include <windows.h>

#include "support/TestSupport.h"
#include "updater/DownloadRecord.h"

using testsupport::fileExists;

namespace {

const char kRecords[] = "Records";
const char kEarlierPlace[] = "Settings\\Updater";

class DownloadRecordTest : public testing::Test {
 protected:
  DownloadRecordTest() { store_.set("Settings\\Updater", "DoNotDeleteDownloadedFiles", 0); }

  // Notes `paths` as a run does that then dies.
  static void noteAndDie(const std::vector<std::string>& paths) {
    DownloadRecord record;
    for (const std::string& path : paths)
      record.add(path);
  }
  std::string note(const char* where = kRecords) const {
    return store_.get(where, "PendingDownloads");
  }
  // Writes `entries` (joined by "\n") as the note in the key `where`.
  static void forge(const char* where, std::string entries) {
    std::replace(entries.begin(), entries.end(), '\n', '\0');
    testsupport::setValue(testsupport::storeRoot() + where, "PendingDownloads", entries + '\0',
                          REG_MULTI_SZ);
  }

  testsupport::ScopedStore store_;
  testsupport::TempDir downloads_;
};

}  // namespace

// What a run that is gone left behind is deleted and the note cleared, and what is gone already
// leaves it (a detail line); a file held open stays noted, its failed attempt counted, until a
// later run can delete it, and a third failed run drops it; the note of a run that lives is left
// alone.
TEST_F(DownloadRecordTest, DeletesWhatARunThatIsGoneLeftAndKeepsWhatItCannotDelete) {
  const std::string software = downloads_.file("orrery.exe"), data = downloads_.file("data.cab");
  testsupport::writeFile(software, "software");
  const std::string gone = downloads_.file("gone.cab");
  testsupport::writeFile(data, "data");
  testsupport::writeFile(gone, "gone");
  noteAndDie({software, data, gone});
  DeleteFileA(gone.c_str());
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
    EXPECT_TRUE(log.contains("DownloadRecord::recoverAbandonedDownloads() '" + gone +
                             "' is gone already; it leaves the record"));
    EXPECT_TRUE(!fileExists(software) && fileExists(data));
    EXPECT_EQ("|1|" + data, note().substr(note().find('|')));
  }
  EXPECT_TRUE(DownloadRecord::recoverAbandonedDownloads());
  EXPECT_FALSE(fileExists(data));
  EXPECT_EQ("none", note());

  testsupport::writeFile(data, "data");
  noteAndDie({data});
  const ScopedHandle held(CreateFileA(data.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  testsupport::LogCapture log(0);
  for (const bool last : {false, false, true}) {
    EXPECT_EQ(last, DownloadRecord::recoverAbandonedDownloads());
    EXPECT_EQ(last, log.contains("DownloadRecord: dropping '" + data +
                                 "' from the record: it could not be deleted in 3 runs"));
  }
  EXPECT_TRUE(fileExists(data));
  EXPECT_EQ("none", note());
}

// A forged note in the key the program made deletes nothing but a plain download in the folder
// noted with it: not a file of another folder, a folder, a file with another hard link, or a path
// that climbs. Each is logged, always, and dropped.
TEST_F(DownloadRecordTest, AForgedNoteDeletesNothingElse) {
  testsupport::TempDir other;
  const std::string folder = downloads_.file("folder"), linked = downloads_.file("linked.dll");
  const std::string victim = other.file("victim.dll");
  testsupport::writeFile(victim, "victim");
  CreateDirectoryA(folder.c_str(), nullptr);
  ASSERT_TRUE(CreateHardLinkA(linked.c_str(), victim.c_str(), nullptr));
  testsupport::writeFile(downloads_.file("noted"), "noted");
  noteAndDie({downloads_.file("noted")});
  const std::string identity = note().substr(0, note().rfind('|') + 1);
  const std::pair<std::string, const char*> forged[] = {
      {victim, "not in the folder its run downloaded into"},
      {folder, "a folder"},
      {linked, "a file with other links"},
      {downloads_.file("..\\" + victim.substr(victim.rfind('\\', victim.rfind('\\') - 1) + 1)),
       "not a full path of a file"}};
  std::string data;
  for (const auto& [path, reason] : forged)
    data += identity + path + '\n';
  forge(kRecords, data.substr(0, data.size() - 1));
  testsupport::LogCapture log(0);
  EXPECT_TRUE(DownloadRecord::recoverAbandonedDownloads());
  for (const auto& [path, reason] : forged)
    EXPECT_TRUE(log.contains("DownloadRecord: not deleting '" + path + "': " + reason)) << path;
  EXPECT_TRUE(fileExists(victim) && fileExists(folder) && fileExists(linked));
  EXPECT_EQ("none", note());
}

// A note with each folder's true identity, naming a file in another folder and one in the
// program's folder: where only administrators and SYSTEM can write (the key the program made),
// both are deleted; where users can write (the store's key of earlier releases, or the records key
// given an Everyone entry), nothing is, each path is logged, and the note goes.
TEST_F(DownloadRecordTest, ANoteWhereUsersCanWriteDeletesNothing) {
  const std::string own = testsupport::executableDirectory() + "cvtest_forged.dll";
  const std::string victim = downloads_.file("victim.dll");
  const char kEveryone[] = "the records key with an Everyone entry";
  // The last row: a key that users could write was deleted with its note, and is made anew.
  const std::pair<const char*, bool> rows[] = {
      {kRecords, true}, {kEarlierPlace, false}, {kEveryone, false}, {kRecords, true}};
  for (const auto& [where, trusted] : rows) {
    SCOPED_TRACE(where);
    testsupport::writeFile(victim, "victim");
    testsupport::writeFile(own, "own");
    noteAndDie({victim, own});
    const std::string entries = note();
    if (where == std::string(kEarlierPlace)) {
      store_.remove(kRecords, "PendingDownloads");
      forge(kEarlierPlace, entries);
    } else if (where == std::string(kEveryone)) {
      ASSERT_TRUE(
          testsupport::setKeySecurity(testsupport::storeRoot() + kRecords,
                                      "D:(A;;KA;;;SY)(A;;KA;;;BA)(A;;KR;;;BU)(A;;KW;;;WD)"));
    }
    testsupport::LogCapture log(0);
    EXPECT_TRUE(DownloadRecord::recoverAbandonedDownloads());
    for (const std::string& path : {victim, own}) {
      EXPECT_EQ(!trusted, fileExists(path)) << path;
      EXPECT_EQ(!trusted, log.contains("DownloadRecord: not deleting '" + path +
                                       "': the record's key is writable by users"));
    }
    EXPECT_EQ("none", note());
    EXPECT_EQ("none", note(kEarlierPlace));
  }
  DeleteFileA(own.c_str());
}

// A copy noted before it is made: a run that dies before the copy exists, or once it does, leaves
// nothing that the next run does not delete. Only a file in a folder that exists can be noted so.
TEST_F(DownloadRecordTest, AFileNotedBeforeItIsMadeIsDeletedAfterADeath) {
  const std::string copy = downloads_.file("copy.pkg");
  for (const bool made : {false, true}) {
    {
      DownloadRecord record;
      EXPECT_TRUE(record.addBeforeMaking(copy));
      EXPECT_NE(std::string::npos, note().find(copy)) << made;
      if (made)
        testsupport::writeFile(copy, "copy");
    }
    EXPECT_TRUE(DownloadRecord::recoverAbandonedDownloads());
    EXPECT_FALSE(fileExists(copy));
    EXPECT_EQ("none", note());
  }
  DownloadRecord record;
  EXPECT_FALSE(record.addBeforeMaking(downloads_.file("missing\\copy.pkg")));
  EXPECT_FALSE(record.addBeforeMaking("copy.pkg"));
}
