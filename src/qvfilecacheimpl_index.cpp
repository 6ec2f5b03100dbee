#include "qvfilecacheimpl_index.h"

#include "allocation.h"
#include "qvxbase/qvuri.h"

#include <new>
#include <utility>

CacheIndex::Key CacheIndex::keyOf(const QvbString& remoteName) {
  {
    const QvbMutexGuard guard(m_mutex);
    const auto known = m_ownKeys.find(remoteName);
    if (known != m_ownKeys.end() && known->second != OwnKey::NotAsked)
      return {remoteName, known->second == OwnKey::Uri};
  }
  const Released<QvURI> uri(getURIFromURIString(remoteName));
  const QvbString normalized = uri ? uri->getNormalizedString() : QvbString();
  if (!normalized.isEmpty() && normalized != remoteName)
    return {normalized, true};
  const bool isUri = !normalized.isEmpty();
  setOwnKey(remoteName, isUri ? OwnKey::Uri : OwnKey::Name);
  return {remoteName, isUri};
}

void CacheIndex::setOwnKey(const QvbString& key, OwnKey own) {
  const QvbMutexGuard guard(m_mutex);
  if (const auto known = m_ownKeys.find(key); known != m_ownKeys.end())
    known->second = own;
}

FileAccessCacheEntry* CacheIndex::find(const QvbString& key) const {
  const auto found = m_entries.find(key);
  return found == m_entries.end() ? nullptr : found->second.get();
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
  m_entries.emplace(key, std::move(entry));
  tryAllocate([&] { // without it the key is parsed each time
    const QvbMutexGuard guard(m_mutex);
    m_ownKeys.emplace(key, OwnKey::NotAsked);
  });
  m_log.trace("%s: Added new cache entry: %s , %s", operation, key, key);
}

void CacheIndex::remove(const QvbString& key) {
  m_entries.erase(key);
  const QvbMutexGuard guard(m_mutex);
  m_ownKeys.erase(key);
}

void CacheIndex::clear() {
  m_entries.clear();
  const QvbMutexGuard guard(m_mutex);
  m_ownKeys.clear();
}
