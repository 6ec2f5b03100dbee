// The private folder of the cache and the local copies in it.
#pragma once

#include "guards.h"
#include "qvfilecacheimpl_entry.h"
#include "qvxlog/qvlog.h"

class QvbDirectory;

class CacheFolder {
public:
  explicit CacheFolder(const QvLog& log) : m_log(log) {}

  // Makes the folder, named by a new unique name; the cache goes on without one. Until it is kept the folder goes when
  // this object does, as it must when the cache cannot be made.
  void make();
  void keep() { m_held.reset(m_new.release()); }
  bool isThere() const { return !m_path.isEmpty(); }

  // A new path in the folder, without a trace of the remote name; `path` stays when memory is short.
  void nameFile(QvbString* path) const;
  // False when the copy could not be deleted.
  bool deleteCopy(const FileAccessCacheEntry& entry) const;
  // Deletes what is left in the folder; false when anything stays, or memory is too short to tell.
  bool empty() const;
  // Removes the empty folder.
  void remove() const;

private:
  bool deleteOrphan(QvbDirectory& directory) const;

  const QvLog& m_log;
  OpenFolder m_new;  // null once it is kept
  HeldFolder m_held; // tells other processes that the folder is in use
  QvbString m_path{""};
};
