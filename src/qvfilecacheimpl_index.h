// The entries of the cache by the keys that remote names lead to.
#pragma once

#include "qvfilecacheimpl_entry.h"
#include "qvxbase/qvbreleased.h"
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
  Key keyOf(const QvbString& remoteName);
  // The entry of a key, null when there is none.
  FileAccessCacheEntry* find(const QvbString& key) const;

  // An entry for a key that has none; null, which is logged for the operation, when memory is short.
  Released<FileAccessCacheEntry> make(const char* operation, const QvbString& key) const;
  void keep(const char* operation, Released<FileAccessCacheEntry> entry);
  void remove(const QvbString& key) { m_entries.erase(key); }
  void clear() { m_entries.clear(); }

  // In the order of their keys.
  template<class Visit>
  void forEach(const Visit& visit) const {
    for (const auto& [key, kept] : m_entries)
      visit(*kept.entry);
  }

private:
  // Whether a key, when it is asked for as a remote name, is known to lead to itself: it need not be parsed again.
  enum class OwnKey { NotAsked, Name, Uri };
  struct Kept {
    Released<FileAccessCacheEntry> entry;
    OwnKey ownKey = OwnKey::NotAsked;
  };

  const QvLog& m_log;
  std::map<QvbString, Kept> m_entries;
};
