#pragma once

#include <list>
#include <string>

#include "settings/RunRecord.h"

class FunctionTrace;

// The durable note of the packages an update run has downloaded and not yet deleted, so that a
// run that dies between its downloads and their clean-up (killed, powered off) leaves nothing
// behind for good: a later run deletes them.
//
// Each download is noted as soon as the library has written it, with the identity (volume serial
// and file index) of the folder the library put it in and the number of runs that failed to delete
// it, in the REG_MULTI_SZ value "PendingDownloads" of the store's "Records" key: a RunRecord, held
// by the machine-wide mutex "Global\<local id>PendingDownloads". Only a path that names a regular
// file in a fully qualified local folder is noted, never the program's executable, its log or its
// settings file (a detail line says why not). A path leaves the note once the run has deleted the
// file, found it gone already (a detail line), or handed it over ("DoNotDeleteDownloadedFiles");
// the note goes with its last path. A file whose deletion failed stays noted, for a later run; one
// that three runs could not delete is dropped, and the always-written log says so.
//
// The note is untrusted input wherever others than administrators and SYSTEM can write it (see
// RunRecord): its paths are logged at the always-written level ("... the record's key is writable
// by users") and left alone. Even a trusted note is checked, since the run that reads it may be
// elevated: recoverAbandonedDownloads() deletes only a regular file with no other hard link,
// directly in the noted folder while that folder is the same one (by its identity, held open so
// that it cannot be moved meanwhile), with no link (junction, symbolic link, any reparse point)
// anywhere in its path, and not the program's own. Anything else is logged at the always-written
// level and dropped from the note, never deleted. Failures never stop the update run. Not
// thread-safe; one object per run.
class DownloadRecord {
 public:
  DownloadRecord();

  // Notes `path`, a package the library has just downloaded. False when the note's mutex cannot
  // be had (held by another process past the wait, or not makeable; logged, and failure() says
  // why): the run must not go on with an unrecorded download, and deletes it. A note that cannot
  // be written is logged and the run goes on; a path that is not fit to be noted (see above) is
  // not noted, with a detail line.
  bool add(const std::string& path);
  // Notes `path`, a file this run is about to make in a folder that exists (a copy of a download),
  // before it makes it, so that a run killed meanwhile leaves nothing unnoted. False when the
  // folder cannot be read or the note's mutex cannot be had (then failure() may say why): the
  // caller must not make the file.
  bool addBeforeMaking(const std::string& path);
  const std::string& failure() const { return record_.failure(); }
  // Takes `path` out of the note: the run has deleted the file or handed it over.
  void remove(const std::string& path);
  // The clean-up after an installation, with its lines written through `trace`: the two downloads
  // are deleted, or, when the store asks for them to be kept ("DoNotDeleteDownloadedFiles",
  // created as 0 when missing), handed over (remove()) and left where they are. A file that cannot
  // be deleted stays recorded, for a later run to delete.
  void cleanUp(const std::string& softwarePath, const std::string& dataPath, FunctionTrace& trace);
  // Deletes `path`, a download this run is done with, and takes it out of the note, also when it
  // is gone already. It is deleted only as a dead run's download would be (see below), a path
  // that was not noted against its folder as it is now: a refusal is logged, always, and the file
  // stays. Never deletes the program's executable, its log or its settings file. True when the
  // file was deleted.
  bool deleteFile(const std::string& path);

  // Deletes, as above, the files that the note of a run that is gone names and that are still
  // there, each logged through this operation's trace, and clears the note; a file that cannot be
  // deleted stays noted. A note whose owner lives, or that cannot be read, is left alone. Returns
  // whether a note was recovered in full.
  static bool recoverAbandonedDownloads();

  // One noted download: the identity of its folder, the runs that failed to delete it, its path.
  struct Entry {
    std::string identity;
    unsigned long attempts;
    std::string path;
  };

 private:
  // Notes `path` in the folder whose identity is `identity`; false when the mutex cannot be had.
  bool note(const std::string& identity, const std::string& path);
  void writeEntries();

  RunRecord record_;
  std::list<Entry> entries_;
};
