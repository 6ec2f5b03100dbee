#include "qvfilecacheimpl_index.h"

#include "qvxbase/qvuri.h"

#include <new>
#include <utility>

CacheIndex::Key CacheIndex::keyOf(const QvbString& remoteName) {
  const auto named = m_entries.find(remoteName);
  if (named != m_entries.end() && named->second.ownKey != OwnKey::NotAsked)
    return {remoteName, named->second.ownKey == OwnKey::Uri};
  const Released<QvURI> uri(getURIFromURIString(remoteName));
  const QvbString normalized = uri ? uri->getNormalizedString() : QvbString();
  if (normalized.isEmpty() || normalized == remoteName) {
    if (named != m_entries.end())
      named->second.ownKey = normalized.isEmpty() ? OwnKey::Name : OwnKey::Uri;
    return {remoteName, !normalized.isEmpty()};
  }
  return {normalized, true};
}

FileAccessCacheEntry* CacheIndex::find(const QvbString& key) const {
  const auto found = m_entries.find(key);
  return found == m_entries.end() ? nullptr : found->second.entry.get();
}

Released<FileAccessCacheEntry> CacheIndex::make(const char* operation, const QvbString& key) const {
  m_log.trace("%s: Creating new cache entry for %s", operation, key);
  Released<FileAccessCacheEntry> entry(new (std::nothrow) FileAccessCacheEntry);
  if (entry)
    entry->remoteFilename = key;
  else
    m_log.error("%s: Error creating cache entry for %s", operation, key);
  return entry;
}

void CacheIndex::keep(const char* operation, Released<FileAccessCacheEntry> entry) {
  const QvbString key = entry->remoteFilename;
  m_entries.emplace(key, Kept{std::move(entry)});
  m_log.trace("%s: Added new cache entry: %s , %s", operation, key, key);
}
