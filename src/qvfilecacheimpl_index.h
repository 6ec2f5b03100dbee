// The entries of the cache by the keys that remote names lead to.
#pragma once

#include "qvfilecacheimpl_entry.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvbthreads.h"
#include "qvxlog/qvlog.h"

#include <map>

class CacheIndex {
public:
  explicit CacheIndex(const QvLog& log) : m_log(log) {}

  // What a remote name is found by: the normalised text of the URI that it is, so that one file has one key, else itself.
  struct Key {
    QvbString text;
    bool isUri;
  };
  // Any thread may ask, without the lock of the entries.
  Key keyOf(const QvbString& remoteName);
  // The entry of a key, null when there is none.
  FileAccessCacheEntry* find(const QvbString& key) const;

  // An entry for a key that has none; null, which is logged for the operation, when memory is short.
  Released<FileAccessCacheEntry> make(const char* operation, const QvbString& key) const;
  void keep(const char* operation, Released<FileAccessCacheEntry> entry);
  void remove(const QvbString& key);
  void clear();

  // In the order of their keys.
  template<class Visit>
  void forEach(const Visit& visit) const {
    for (const auto& [key, entry] : m_entries)
      visit(*entry);
  }

private:
  // Whether a key, when it is asked for as a remote name, is known to lead to itself: it need not be parsed again.
  enum class OwnKey { NotAsked, Name, Uri };
  void setOwnKey(const QvbString& key, OwnKey own);

  const QvLog& m_log;
  std::map<QvbString, Released<FileAccessCacheEntry>> m_entries;
  QvbMutex m_mutex;
  std::map<QvbString, OwnKey> m_ownKeys QVB_GUARDED_BY(m_mutex); // of the entries
};
