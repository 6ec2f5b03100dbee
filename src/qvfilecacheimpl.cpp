#include "qvfilecacheimpl.h"

#include "allocation.h"

FileAccessCacheImpl::FileAccessCacheImpl() {
  if (!m_lock)
    m_log.critical("Failed to create file access cache lock");
  m_folder.make();
  m_interval.readOption();
  m_sources.make();
  m_folder.keep();
}

FileAccessCacheImpl::~FileAccessCacheImpl() {
  m_log.trace("Destroying FileAccessCache");
  discardCopies();
  m_sources.end();
  m_folder.remove();
}

void FileAccessCacheImpl::setSourceProvider(FileAccessCacheSourceProvider* provider) {
  const LockGuard guard(m_lock, LockRequest::Reader);
  m_sources.setDefault(provider);
  m_log.trace("Setting default cache source provider");
}

bool FileAccessCacheImpl::generateLocalFilename(FileAccessCacheEntry* entry) {
  if (!entry)
    return false;
  m_folder.nameFile(&entry->localFilename);
  return true;
}

void FileAccessCacheImpl::updateCachedEntryDate(FileAccessCacheEntry* entry) {
  if (entry)
    entry->cacheUpdatedDate = QvbDate::currentDate(false);
}

QvbDate FileAccessCacheImpl::getCacheExpireAsOfDate(const QvbDate& from) const {
  return m_interval.expiryOf(from);
}

FileAccessCacheSourceProvider* FileAccessCacheImpl::getCacheSourceProviderForFileType(const QvbString& name) {
  return m_sources.forName(name);
}

FileAccessCacheSourceProvider* FileAccessCacheImpl::getCacheSourceProvider(const FileAccessCacheEntry* entry,
                                                                           const QvbString& name) {
  return m_sources.forEntry(entry, name);
}

int FileAccessCacheImpl::getCacheFilename(ASSubject* subject, const QvbString& remoteName,
                                          QvbString* localFilename, QvbString* errorText) {
  return resultOr(NP_FIO_ERROR, [&] { return getCopy(subject, remoteName, localFilename, errorText); });
}

int FileAccessCacheImpl::getCopy(ASSubject* subject, const QvbString& remoteName, QvbString* localFilename,
                                 QvbString* errorText) {
  m_log.trace("getCacheFilename entered for '%s'", remoteName);
  const CacheIndex::Key name = keyOf(remoteName);
  const QvbString& key = name.text;
  if (name.isUri)
    m_log.trace("getCacheFilename using '%s'", key);
  const LockGuard guard(m_lock, LockRequest::Reader);
  FileAccessCacheEntry* const entry = m_index.find(key);
  if (!entry)
    return addFileToCache(subject, key, localFilename, errorText);
  int result = m_interval.isFresh(entry->cacheUpdatedDate) ? 0 : updateCache(subject, key, entry, errorText);
  // A refresh that failed is tried again for a new user, whom the source has to let through even where the copy is fresh.
  // Kept: FileCache.RefreshesTwiceWhenTheCopyIsOldAndTheUserNew
  if (!entry->isUserAuthorized(subject, errorText))
    result = updateCache(subject, key, entry, errorText);
  *localFilename = entry->localFilename;
  return result;
}

int FileAccessCacheImpl::updateCache(ASSubject* subject, const QvbString& name, FileAccessCacheEntry* entry,
                                     QvbString* errorText) {
  FileAccessCacheSourceProvider* provider = getCacheSourceProvider(entry, name);
  if (!provider) {
    m_log.error("updateCache: Error accessing provider for '%s', provider 0x%p", name, provider);
    return 1;
  }
  QvbDate date;
  QvbString reason;
  const int dated = provider->getModifiedDate(subject, name, &date, errorText ? errorText : &reason, true);
  if (dated != 0) {
    m_log.error("updateCache: Error getting modified date for %s: %s", name, errorText ? *errorText : reason);
    return dated;
  }
  if (date.isNull()) {
    m_log.lifecycle("Cache Access provider returned null date for filename %s", name);
    return 1;
  }
  entry->addAuthorizedUser(subject, errorText); // the source answered for this subject
  if (m_log.isEnabled(QvLoggingLevel::Lifecycle))
    m_log.lifecycle("Cache modified date diff %s and %s", date.asString(false),
                    entry->modifiedDate.asString(false));
  const int copied = updateFileCacheContents(subject, name, entry);
  // The next attempt waits for the interval, whatever came of this one.
  // Kept: FileCache.CountsARefreshWhoseCopyFailed
  entry->modifiedDate = date;
  updateCachedEntryDate(entry);
  return copied;
}

// Whether a new file exists, and its date, is asked of the source that the name's scheme asks for; the content comes
// from the default source of a host that has set one.
// Kept: FileCache.AsksItsDefaultSourceForCopiesOnly
int FileAccessCacheImpl::addFileToCache(ASSubject* subject, const QvbString& name, QvbString* localFilename,
                                        QvbString* errorText) {
  FileAccessCacheSourceProvider* provider = getCacheSourceProviderForFileType(name);
  m_log.trace("addFileToCache entered for '%s', provider 0x%p", name, provider);
  if (!provider) {
    m_log.error("Invalid provider on %s:  0x%p", name, provider);
    return 1;
  }
  if (!provider->exists(subject, name, errorText)) {
    m_log.error("Provider exists failed for '%s', provider 0x%p", name, provider);
    return 1;
  }
  // A date that cannot be had is null, and no failure.
  // Kept: FileCache.CopiesAFileWhoseDateItDoesNotGet
  QvbDate date;
  provider->getModifiedDate(subject, name, &date, errorText, false);
  FileAccessCacheEntry* const existing = m_index.find(name);
  return existing ? refetchExisting(subject, name, *existing, date, localFilename, provider)
                  : fetchNew(subject, name, date, localFilename, provider);
}

int FileAccessCacheImpl::fetchNew(ASSubject* subject, const QvbString& name, const QvbDate& date,
                                  QvbString* localFilename, FileAccessCacheSourceProvider* provider) {
  if (const int failed = setFileCacheModifiedDate(name, date)) {
    m_log.error("Unable to set file cache modified date on %s", name);
    return failed;
  }
  FileAccessCacheEntry* entry = m_index.find(name);
  if (!entry) {
    m_log.error("Cache entry lookup failed after modified date set for '%s', provider 0x%p", name, provider);
    return 0; // Kept: FileCache.SurvivesTheLossOfTheEntryThatItJustMade
  }
  const int copied = updateFileCacheContents(subject, name, entry);
  if (copied != 0)
    m_log.error("Error adding file to cache");
  *localFilename = entry->localFilename;
  // The memory for a name was short: the next request makes another one.
  if (entry->localFilename.isEmpty() && m_folder.isThere())
    m_index.remove(name);
  return copied;
}

int FileAccessCacheImpl::refetchExisting(ASSubject* subject, const QvbString& name,
                                         FileAccessCacheEntry& entry, const QvbDate& date,
                                         QvbString* localFilename, FileAccessCacheSourceProvider* provider) {
  m_log.trace("Found cache Entry for '%s', provider 0x%p", name, provider);
  if (const int failed = updateFileCacheContents(subject, name, &entry)) {
    m_log.error("Error adding file to cachefor '%s', provider 0x%p", name, provider);
    return failed;
  }
  const int dated = setFileCacheModifiedDate(name, date);
  *localFilename = entry.localFilename;
  return dated;
}

int FileAccessCacheImpl::updateFileCacheContents(ASSubject* subject, const QvbString& name,
                                                 FileAccessCacheEntry* entry) {
  if (!entry) {
    m_log.error("Invalid cache entry for '%s'", name);
    return 1;
  }
  FileAccessCacheSourceProvider* provider = getCacheSourceProvider(entry, name);
  if (!provider) {
    m_log.error("Provider lookup failed for '%s', provider 0x%p", name, provider);
    return 1;
  }
  // It goes to the log, not to the caller.
  // Kept: FileCache.KeepsTheErrorOfACopyToItself
  QvbString reason;
  if (const int failed = provider->updateLocalFileContent(subject, name, entry->localFilename, &reason)) {
    m_log.error("There was an error setting the cache file \"%s\" contents from provider: %s", name, reason);
    return failed;
  }
  updateCachedEntryDate(entry);
  entry->addAuthorizedUser(subject, nullptr);
  return 0;
}

int FileAccessCacheImpl::setFileCacheModifiedDate(const QvbString& name, const QvbDate& date) {
  if (FileAccessCacheEntry* existing = m_index.find(name)) {
    existing->modifiedDate = date;
    updateCachedEntryDate(existing);
    return 0;
  }
  const char* const operation = "setFileCacheModifiedDate";
  Released<FileAccessCacheEntry> entry = m_index.make(operation, name);
  if (!entry)
    return 1;
  entry->modifiedDate = date;
  if (!generateLocalFilename(entry.get())) {
    m_log.error("generateLocalFilename: Error creating cache entry name for %s", name);
    return 1;
  }
  updateCachedEntryDate(entry.get());
  m_index.keep(operation, std::move(entry));
  return 0;
}

bool FileAccessCacheImpl::setFileCacheLocalName(const QvbString& name, const QvbString& localName) {
  if (FileAccessCacheEntry* existing = m_index.find(name)) {
    existing->localFilename = localName;
    return true;
  }
  const char* const operation = "setFileCacheLocalName";
  Released<FileAccessCacheEntry> entry = m_index.make(operation, name);
  if (!entry)
    return false;
  // The given name counts only where memory for a generated one is short.
  // Kept: FileCache.GivesANewEntryAGeneratedNameWhateverTheCallerSays
  entry->localFilename = localName;
  const bool named = generateLocalFilename(entry.get());
  m_index.keep(operation, std::move(entry));
  return named;
}

// What became of the entry is the other way round than what became of its file, and so is the result.
// Kept: FileCache.KeepsAnEntryWhoseFileItRemovedAndRemovesOneWhoseFileItCannot
bool FileAccessCacheImpl::removeFileFromCache(const QvbString& name) {
  const FileAccessCacheEntry* const entry = m_index.find(name);
  if (!entry)
    return false;
  if (np_fio_unlink(entry->localFilename) != NP_FIO_OK) {
    m_index.remove(name);
    return true;
  }
  m_log.error("Error removing file contents from cache for file %s", entry->localFilename);
  return false;
}

// The source that tells a name's date; null, which is logged, for a name without one.
FileAccessCacheSourceProvider* FileAccessCacheImpl::dateSource(const char* operation, const QvbString& name) {
  FileAccessCacheSourceProvider* const source = getCacheSourceProviderForFileType(name);
  if (!source)
    m_log.error("%s: Error accessing provider for '%s', provider 0x%p", operation, name, source);
  return source;
}

// A name without a source is modified, and no failure.
// Kept: FileCache.TakesWhatHasNoSourceForModified
int FileAccessCacheImpl::isModified(ASSubject* subject, const QvbString& remoteName, bool* modified,
                                    QvbString* errorText) {
  *modified = true;
  return resultOr(NP_FIO_ERROR, [&] {
    FileAccessCacheSourceProvider* const source = dateSource("isModified", remoteName);
    if (!source)
      return NP_FIO_OK;
    const QvbString key = keyOf(remoteName).text;
    const LockGuard guard(m_lock, LockRequest::Reader);
    QvbDate date;
    const int result = source->getModifiedDate(subject, key, &date, errorText, true);
    m_log.trace("isModifed: modified date returned %d for %s", result, remoteName);
    const FileAccessCacheEntry* entry = m_index.find(key);
    *modified = !date.isNull() && date.compare(entry ? entry->modifiedDate : QvbDate()) != 0;
    return result;
  });
}

// The result alone answers.
// Kept: FileCache.NeverWritesTheModificationDate
int FileAccessCacheImpl::getModifiedDate(ASSubject* subject, const QvbString& remoteName, QvbDate* /*date*/,
                                         QvbString* errorText) {
  return resultOr(NP_FIO_ERROR, [&] {
    FileAccessCacheSourceProvider* const source = dateSource("getModifiedDate", remoteName);
    if (!source)
      return NP_FIO_OK;
    const QvbString key = keyOf(remoteName).text;
    const LockGuard guard(m_lock, LockRequest::Reader);
    QvbDate date;
    const int result = source->getModifiedDate(subject, key, &date, errorText, true);
    if (!date.isNull())
      return result;
    m_log.trace("getModifiedDate: Retrieved NULL date for '%s', provider 0x%p", remoteName, source);
    return NP_FIO_ACCESS;
  });
}

bool FileAccessCacheImpl::flush(bool flag) {
  const LockGuard guard(m_lock, LockRequest::Reader);
  m_log.trace("Flushing FileAccessCache");
  // The last source's answer replaces what came of the copies.
  // Kept: FileCache.FlushesEverySourceWithTheFlag
  return m_sources.flush(flag, discardCopies());
}

// Deletes every local copy and whatever else is in the folder, and forgets all entries; false when a file is left.
bool FileAccessCacheImpl::discardCopies() {
  bool result = true;
  m_index.forEach([&](const FileAccessCacheEntry& entry) { result = m_folder.deleteCopy(entry) && result; });
  m_index.clear();
  return m_folder.empty() && result;
}
