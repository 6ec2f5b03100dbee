#include "qvfilecacheimpl.h"

#include "allocation.h"
#include "qvfilecacheimpl_filesystem.h"
#include "qvfilecacheimpl_http.h"
#include "qvsfio/npfio.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvbpath.h"
#include "qvxbase/qvuri.h"

#include <algorithm>
#include <array>
#include <limits>
#include <new>

namespace {

// The key that a remote name is found by: a URI's normalised text, so that one file has one key, else the name itself.
QvbString normalizedName(const QvbString& name) {
  const Released<QvURI> uri(getURIFromURIString(name));
  return uri ? uri->getNormalizedString() : QvbString();
}

QvbString lookupKey(const QvbString& name) {
  const QvbString normalized = normalizedName(name);
  return normalized.isEmpty() ? name : normalized;
}

} // namespace

void UserList::add(const QvbString& user) {
  if (contains(user))
    return;
  m_users.push_back(user);
  if (tryAllocate([&] { m_index.insert(user); }))
    return;
  m_users.pop_back();
  throw std::bad_alloc();
}

// Defined here, where no compiler can tell that it is called for an object.
void FileAccessCacheEntry::release(FileAccessCacheEntry* entry) { delete entry; }

bool FileAccessCacheEntry::isUserAuthorized(ASSubject* subject, QvbString* errorText) const {
  QvbSubjectInfoParm info;
  return qvbSubjectInfo(subject, &info, errorText) && authorizedUsers.contains(info.userId);
}

bool FileAccessCacheEntry::addAuthorizedUser(ASSubject* subject, QvbString* errorText) {
  QvbSubjectInfoParm info;
  return qvbSubjectInfo(subject, &info, errorText) && tryAllocate([&] { authorizedUsers.add(info.userId); });
}

FileAccessCacheImpl::FileAccessCacheImpl()
    : m_log("QV.FileAccessCache", "src/qvfilecacheimpl"), m_cacheName(qvbGetUUID()),
      m_lock(qvLockCreate(0, 1)) {
  if (!m_lock)
    m_log.critical("Failed to create file access cache lock");
  m_log.lifecycle("Created file CACHE: %s", m_cacheName);
  OpenFolder folder = makeCacheDirectory();
  readTimeBetweenChecks();
  m_filesystemProvider.reset(madeOrNull([] { return new (std::nothrow) RemoteFilesystemFileProvider; }));
  m_httpProvider.reset(madeOrNull([] { return new (std::nothrow) RemoteHttpFileProvider; }));
  m_directory.reset(folder.release());
}

// The folder goes with its handle when the cache cannot be made.
OpenFolder FileAccessCacheImpl::makeCacheDirectory() {
  std::array<char, 4096> path{};
  NpDir* directory = nullptr;
  const int failed = np_dir_tmpdir(m_cacheName.asCstr(), path.data(), path.size(), &directory);
  OpenFolder folder(directory);
  if (failed) {
    m_log.error("Error creating cache directory: %s", m_cacheName);
    return folder;
  }
  m_cacheDirectory.assign(path.data());
  m_log.lifecycle("Created temp directory for cache: %s", m_cacheDirectory);
  return folder;
}

void FileAccessCacheImpl::readTimeBetweenChecks() {
  const Released<QvbConfigOptions> options(qvbGetConfigOptions(""));
  if (!options)
    return;
  m_timeBetweenChecks = QvbOptions::TimeBetweenChecks.standardNumber();
  QvbString value;
  if (!options->getOption(QvbOptions::TimeBetweenChecks.key, &value, 0)) {
    m_log.trace("Using default time between cache checked of %d", m_timeBetweenChecks);
    return;
  }
  bool isNumber = false;
  const int time = value.asInt(&isNumber);
  if (!isNumber) {
    m_log.error("Unable to parse time from parameter %s=%s", QvbOptions::TimeBetweenChecks.key, value);
    return;
  }
  m_timeBetweenChecks = time;
  m_log.lifecycle("Setting time between cache changed checks to %f milliseconds", m_timeBetweenChecks);
}

FileAccessCacheImpl::~FileAccessCacheImpl() {
  m_log.trace("Destroying FileAccessCache");
  discardEntries();
  cleanCacheDirectory();
  m_defaultProvider.reset();
  m_filesystemProvider.reset();
  m_httpProvider.reset();
  if (np_dir_unlink(m_cacheDirectory) != NP_FIO_OK)
    m_log.error("Error removing cache directory: %s", m_cacheDirectory);
}

void FileAccessCacheImpl::setSourceProvider(FileAccessCacheSourceProvider* provider) {
  const LockGuard guard(m_lock.get(), LockGuard::ReaderMode);
  if (provider != m_defaultProvider.get()) {
    m_defaultProvider.reset(); // before there is a new one
    m_defaultProvider.reset(provider);
  }
  m_log.trace("Setting default cache source provider");
}

FileAccessCacheEntry* FileAccessCacheImpl::findEntry(const QvbString& name) const {
  const auto found = m_entries.find(name);
  return found == m_entries.end() ? nullptr : found->second.get();
}

bool FileAccessCacheImpl::generateLocalFilename(FileAccessCacheEntry* entry) {
  if (!entry)
    return false;
  tryAllocate([&] {
    const QvbString name = qvbGetUUID();
    const auto size = static_cast<std::size_t>(m_cacheDirectory.length() + name.length() + 2) + 1;
    const std::unique_ptr<char[]> path(new (std::nothrow) char[size]());
    if (!path)
      return;
    // Without its folder the cache copies nothing: the name alone would be a file of the working folder.
    if (m_cacheDirectory.isEmpty() ||
        np_fio_pcat(m_cacheDirectory.asCstr(), name.asCstr(), path.get(), size) != NP_FIO_OK)
      m_log.error("Error building path for target \"%s\" folder with \"%s\" name", m_cacheDirectory, name);
    entry->localFilename.assign(path.get());
  });
  return true;
}

void FileAccessCacheImpl::updateCachedEntryDate(FileAccessCacheEntry* entry) {
  if (entry)
    entry->cacheUpdatedDate = QvbDate::currentDate(false);
}

QvbDate FileAccessCacheImpl::getCacheExpireAsOfDate(const QvbDate& from) const {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
  from.getElements(&year, &month, &day, &hour, &minute, &second, &millisecond);
  if (m_timeBetweenChecks >= 0)
    millisecond += std::min(m_timeBetweenChecks, std::numeric_limits<int>::max() - millisecond);
  QvbDate expiry;
  expiry.assign(year, month, day, hour, minute, second, millisecond);
  return expiry;
}

FileAccessCacheSourceProvider* FileAccessCacheImpl::getCacheSourceProviderForFileType(const QvbString& name) {
  const Released<QvURI> uri(getURIFromURIString(name));
  const QvbString scheme = uri ? uri->getScheme() : QvbString();
  if (uri) {
    m_log.trace("getCacheSourceProviderForFileType: scheme='%s'", scheme);
    const QvbString folded = QvbString(scheme).lowercase();
    if (folded.find("http") >= 0) {
      m_log.trace("getCacheSourceProviderForFileType: Using HTTP provider for %s", name);
      return m_httpProvider.get();
    }
    if (folded.find("file") < 0)
      return nullptr;
  }
  m_log.trace("getCacheSourceProviderForFileType: Using filesystem provider for %s", name);
  return m_filesystemProvider.get();
}

FileAccessCacheSourceProvider* FileAccessCacheImpl::getCacheSourceProvider(const FileAccessCacheEntry* entry,
                                                                           const QvbString& name) {
  if (m_defaultProvider)
    return m_defaultProvider.get();
  if (entry && entry->sourceProvider)
    return entry->sourceProvider;
  return getCacheSourceProviderForFileType(name);
}

bool FileAccessCacheImpl::isFresh(const FileAccessCacheEntry& entry) const {
  if (entry.cacheUpdatedDate.isNull())
    return false;
  const QvbDate now = QvbDate::currentDate(false);
  const QvbDate expiry = getCacheExpireAsOfDate(entry.cacheUpdatedDate);
  if (m_log.isEnabled(QvLoggingLevel::Trace))
    m_log.trace("Cache updated time = \"%s\", if \"%s\" is greater than cache updated time, we update cache.",
                expiry.asString(false), now.asString(false));
  if (now.compare(expiry) > 0)
    return false;
  m_log.trace("Cache not updated yet...");
  return true;
}

int FileAccessCacheImpl::getCacheFilename(ASSubject* subject, const QvbString& remoteName,
                                          QvbString* localFilename, QvbString* errorText) {
  return resultOr(NP_FIO_ERROR, [&] { return getCopy(subject, remoteName, localFilename, errorText); });
}

int FileAccessCacheImpl::getCopy(ASSubject* subject, const QvbString& remoteName, QvbString* localFilename,
                                 QvbString* errorText) {
  m_log.trace("getCacheFilename entered for '%s'", remoteName);
  QvbString key = normalizedName(remoteName);
  if (key.isEmpty())
    key = remoteName;
  else
    m_log.trace("getCacheFilename using '%s'", key);

  const LockGuard guard(m_lock.get(), LockGuard::ReaderMode);
  FileAccessCacheEntry* entry = findEntry(key);
  if (!entry)
    return addFileToCache(subject, key, localFilename, errorText);
  int result = isFresh(*entry) ? 0 : updateCache(subject, key, entry, errorText);
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
  entry->modifiedDate = date;
  updateCachedEntryDate(entry);
  return copied;
}

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
  QvbDate date;
  provider->getModifiedDate(subject, name, &date, errorText, false);
  FileAccessCacheEntry* const existing = findEntry(name);
  return existing ? refetchExisting(subject, name, *existing, date, localFilename, provider)
                  : fetchNew(subject, name, date, localFilename, provider);
}

int FileAccessCacheImpl::fetchNew(ASSubject* subject, const QvbString& name, const QvbDate& date,
                                  QvbString* localFilename, FileAccessCacheSourceProvider* provider) {
  if (const int failed = setFileCacheModifiedDate(name, date)) {
    m_log.error("Unable to set file cache modified date on %s", name);
    return failed;
  }
  FileAccessCacheEntry* entry = findEntry(name);
  if (!entry) {
    m_log.error("Cache entry lookup failed after modified date set for '%s', provider 0x%p", name, provider);
    return 0;
  }
  const int copied = updateFileCacheContents(subject, name, entry);
  if (copied != 0)
    m_log.error("Error adding file to cache");
  *localFilename = entry->localFilename;
  // The memory for a name was short: the next request makes another one.
  if (entry->localFilename.isEmpty() && !m_cacheDirectory.isEmpty())
    m_entries.erase(name);
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
  if (FileAccessCacheEntry* existing = findEntry(name)) {
    existing->modifiedDate = date;
    updateCachedEntryDate(existing);
    return 0;
  }
  const char* const operation = "setFileCacheModifiedDate";
  Released<FileAccessCacheEntry> entry = newEntry(operation, name);
  if (!entry)
    return 1;
  entry->modifiedDate = date;
  if (!generateLocalFilename(entry.get())) {
    m_log.error("generateLocalFilename: Error creating cache entry name for %s", name);
    return 1;
  }
  updateCachedEntryDate(entry.get());
  keepEntry(operation, std::move(entry));
  return 0;
}

bool FileAccessCacheImpl::setFileCacheLocalName(const QvbString& name, const QvbString& localName) {
  if (FileAccessCacheEntry* existing = findEntry(name)) {
    existing->localFilename = localName;
    return true;
  }
  const char* const operation = "setFileCacheLocalName";
  Released<FileAccessCacheEntry> entry = newEntry(operation, name);
  if (!entry)
    return false;
  entry->localFilename = localName;
  const bool named = generateLocalFilename(entry.get());
  keepEntry(operation, std::move(entry));
  return named;
}

// An entry for a name that has none; null when memory is short.
Released<FileAccessCacheEntry> FileAccessCacheImpl::newEntry(const char* operation, const QvbString& name) {
  m_log.trace("%s: Creating new cache entry for %s", operation, name);
  Released<FileAccessCacheEntry> entry(new (std::nothrow) FileAccessCacheEntry);
  if (entry)
    entry->remoteFilename = name;
  else
    m_log.error("%s: Error creating cache entry for %s", operation, name);
  return entry;
}

void FileAccessCacheImpl::keepEntry(const char* operation, Released<FileAccessCacheEntry> entry) {
  const QvbString name = entry->remoteFilename;
  m_entries.emplace(name, std::move(entry));
  m_log.trace("%s: Added new cache entry: %s , %s", operation, name, name);
}

bool FileAccessCacheImpl::removeFileFromCache(const QvbString& name) {
  const auto found = m_entries.find(name);
  if (found == m_entries.end())
    return false;
  if (np_fio_unlink(found->second->localFilename) != NP_FIO_OK) {
    m_entries.erase(found);
    return true;
  }
  m_log.error("Error removing file contents from cache for file %s", found->second->localFilename);
  return false;
}

// The source that tells a name's date; null, which is logged, for a name without one.
FileAccessCacheSourceProvider* FileAccessCacheImpl::dateSource(const char* operation, const QvbString& name) {
  FileAccessCacheSourceProvider* const provider = getCacheSourceProviderForFileType(name);
  if (!provider)
    m_log.error("%s: Error accessing provider for '%s', provider 0x%p", operation, name, provider);
  return provider;
}

int FileAccessCacheImpl::isModified(ASSubject* subject, const QvbString& remoteName, bool* modified,
                                    QvbString* errorText) {
  *modified = true;
  return resultOr(NP_FIO_ERROR, [&] {
    FileAccessCacheSourceProvider* const provider = dateSource("isModified", remoteName);
    if (!provider)
      return NP_FIO_OK;
    const QvbString key = lookupKey(remoteName);
    const LockGuard guard(m_lock.get(), LockGuard::ReaderMode);
    QvbDate date;
    const int result = provider->getModifiedDate(subject, key, &date, errorText, true);
    m_log.trace("isModifed: modified date returned %d for %s", result, remoteName);
    const FileAccessCacheEntry* entry = findEntry(key);
    *modified = !date.isNull() && date.compare(entry ? entry->modifiedDate : QvbDate()) != 0;
    return result;
  });
}

int FileAccessCacheImpl::getModifiedDate(ASSubject* subject, const QvbString& remoteName, QvbDate* /*date*/,
                                         QvbString* errorText) {
  return resultOr(NP_FIO_ERROR, [&] {
    FileAccessCacheSourceProvider* const provider = dateSource("getModifiedDate", remoteName);
    if (!provider)
      return NP_FIO_OK;
    const QvbString key = lookupKey(remoteName);
    const LockGuard guard(m_lock.get(), LockGuard::ReaderMode);
    QvbDate date;
    const int result = provider->getModifiedDate(subject, key, &date, errorText, true);
    if (!date.isNull())
      return result;
    m_log.trace("getModifiedDate: Retrieved NULL date for '%s', provider 0x%p", remoteName, provider);
    return NP_FIO_ACCESS;
  });
}

bool FileAccessCacheImpl::flush(bool flag) {
  const LockGuard guard(m_lock.get(), LockGuard::ReaderMode);
  m_log.trace("Flushing FileAccessCache");
  bool result = discardEntries();
  result = cleanCacheDirectory() && result;
  for (FileAccessCacheSourceProvider* provider :
       {m_defaultProvider.get(), static_cast<FileAccessCacheSourceProvider*>(m_filesystemProvider.get()),
        static_cast<FileAccessCacheSourceProvider*>(m_httpProvider.get())})
    if (provider)
      result = provider->flush(flag);
  return result;
}

// Deletes every local copy and forgets all entries; false when a copy could not be deleted.
bool FileAccessCacheImpl::discardEntries() {
  bool result = true;
  for (const auto& [name, entry] : m_entries) {
    if (entry->localFilename.isNull())
      continue;
    m_log.trace("Removing cache entry %s for remote file %s", entry->localFilename, entry->remoteFilename);
    if (np_fio_unlink(entry->localFilename) != NP_FIO_OK) {
      m_log.error("Unable to remove cache entry local file: %s", entry->localFilename);
      result = false;
    }
  }
  m_entries.clear();
  return result;
}

// Deletes what is left in the cache directory; false when anything stays, or memory is too short to tell.
bool FileAccessCacheImpl::cleanCacheDirectory() {
  return resultOr(false, [&] {
    QvbString error;
    const Released<QvbDirectory> directory(qvbDirectoryOpen(m_cacheDirectory, 0, &error));
    if (!directory) {
      m_log.error("Error iterating cache directory for clean-up, error was: %s", error);
      return false;
    }
    bool result = true;
    while (directory->next())
      result = deleteOrphan(*directory) && result;
    return result;
  });
}

bool FileAccessCacheImpl::deleteOrphan(QvbDirectory& directory) {
  const QvbString path = directory.getPath();
  m_log.anomaly("Orphaned cache entry found: %s", directory.getName());
  if (np_fio_unlink(path) == NP_FIO_OK)
    return true;
  m_log.error("Unable to delete orphaned cache entry: %s", path);
  return false;
}
