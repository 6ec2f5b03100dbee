// The file access cache: private local copies of remote files, refreshed by age and granted user by user.
#pragma once

#include "guards.h"
#include "qvreposres/qvfilecache.h"
#include "qvxlog/qvlog.h"

#include <cstddef>
#include <map>
#include <unordered_set>
#include <vector>

class QvbDirectory;
class RemoteFilesystemFileProvider;
class RemoteHttpFileProvider;

// The names of users without regard to case: each once, in the order in which they were added, and found by one hash
// lookup.
class UserList {
public:
  using value_type = QvbString;
  using const_iterator = std::vector<QvbString>::const_iterator;

  const_iterator begin() const { return m_users.begin(); }
  const_iterator end() const { return m_users.end(); }
  std::size_t size() const { return m_users.size(); }
  bool empty() const { return m_users.empty(); }
  bool contains(const QvbString& user) const { return m_index.contains(user); }
  // Nothing for one that is listed. As it was when memory is short.
  void add(const QvbString& user);

private:
  std::vector<QvbString> m_users;
  std::unordered_set<QvbString, QvbHashIgnoreCase, QvbEqualIgnoreCase> m_index;
};

// One cached file.
struct FileAccessCacheEntry {
  QvbDate modifiedDate;         // of the remote file, as its source reported it at the last refresh
  QvbString remoteFilename{""}; // the key that it is found by
  QvbString localFilename{""};
  QvbDate cacheUpdatedDate;                                // of the last refresh; null forces the next one
  UserList authorizedUsers;                                // whom the source has let through
  FileAccessCacheSourceProvider* sourceProvider = nullptr; // comes before the choice by name; not owned

  // Ends an entry that was made with new, and none of its sources.
  void release() { release(this); }
  // Null does nothing.
  static void release(FileAccessCacheEntry* entry);
  // Whether the source has let the subject through; false for a subject without information.
  bool isUserAuthorized(ASSubject* subject, QvbString* errorText) const;
  // False for a subject without information, and when memory is short.
  bool addAuthorizedUser(ASSubject* subject, QvbString* errorText);
};

// The operations of the interface take the lock, and fail when memory is short; every other one relies on its caller for
// both.
class QVREPOSRES_API FileAccessCacheImpl : public FileAccessCacheManager {
public:
  FileAccessCacheImpl();
  ~FileAccessCacheImpl() override;
  FileAccessCacheImpl(const FileAccessCacheImpl&) = delete;
  FileAccessCacheImpl& operator=(const FileAccessCacheImpl&) = delete;

  int getCacheFilename(ASSubject* subject, const QvbString& remoteName, QvbString* localFilename,
                       QvbString* errorText) override;
  int isModified(ASSubject* subject, const QvbString& remoteName, bool* modified,
                 QvbString* errorText) override;
  int getModifiedDate(ASSubject* subject, const QvbString& remoteName, QvbDate* date,
                      QvbString* errorText) override;
  bool flush(bool flag) override;
  void release() override { delete this; }
  void setSourceProvider(FileAccessCacheSourceProvider* provider) override;

  // First fetch.
  int addFileToCache(ASSubject* subject, const QvbString& name, QvbString* localFilename,
                     QvbString* errorText);
  // Refresh: always copies the content again.
  int updateCache(ASSubject* subject, const QvbString& name, FileAccessCacheEntry* entry,
                  QvbString* errorText);
  int updateFileCacheContents(ASSubject* subject, const QvbString& name, FileAccessCacheEntry* entry);
  int setFileCacheModifiedDate(const QvbString& name, const QvbDate& date);
  // A new entry gets a generated local name, whatever `localName` says.
  bool setFileCacheLocalName(const QvbString& name, const QvbString& localName);
  // Deletes the local file. When that succeeds the entry stays and the result is false; when it fails the entry goes and
  // the result is true.
  bool removeFileFromCache(const QvbString& name);
  // False for a null entry alone.
  bool generateLocalFilename(FileAccessCacheEntry* entry);
  void updateCachedEntryDate(FileAccessCacheEntry* entry);
  // The moment from which a copy refreshed at `from` is refreshed again.
  QvbDate getCacheExpireAsOfDate(const QvbDate& from) const;
  // The source for an entry: the default one, its own, or the choice by name.
  FileAccessCacheSourceProvider* getCacheSourceProvider(const FileAccessCacheEntry* entry,
                                                        const QvbString& name);
  // Null for a URI whose scheme holds neither "http" nor "file".
  FileAccessCacheSourceProvider* getCacheSourceProviderForFileType(const QvbString& name);

private:
  QVREPOSRES_HIDDEN OpenFolder makeCacheDirectory();
  QVREPOSRES_HIDDEN void readTimeBetweenChecks();
  QVREPOSRES_HIDDEN FileAccessCacheEntry* findEntry(const QvbString& name) const;
  QVREPOSRES_HIDDEN bool isFresh(const FileAccessCacheEntry& entry) const;
  QVREPOSRES_HIDDEN Released<FileAccessCacheEntry> newEntry(const char* operation, const QvbString& name);
  QVREPOSRES_HIDDEN void keepEntry(const char* operation, Released<FileAccessCacheEntry> entry);
  QVREPOSRES_HIDDEN int getCopy(ASSubject* subject, const QvbString& remoteName, QvbString* localFilename,
                                QvbString* errorText);
  QVREPOSRES_HIDDEN int fetchNew(ASSubject* subject, const QvbString& name, const QvbDate& date,
                                 QvbString* localFilename, FileAccessCacheSourceProvider* provider);
  QVREPOSRES_HIDDEN int refetchExisting(ASSubject* subject, const QvbString& name,
                                        FileAccessCacheEntry& entry, const QvbDate& date,
                                        QvbString* localFilename, FileAccessCacheSourceProvider* provider);
  QVREPOSRES_HIDDEN FileAccessCacheSourceProvider* dateSource(const char* operation, const QvbString& name);
  QVREPOSRES_HIDDEN bool discardEntries();
  QVREPOSRES_HIDDEN bool cleanCacheDirectory();
  QVREPOSRES_HIDDEN bool deleteOrphan(QvbDirectory& directory);

  Released<FileAccessCacheSourceProvider> m_defaultProvider;
  std::map<QvbString, Released<FileAccessCacheEntry>> m_entries;
  QvbString m_cacheDirectory{""};
  HeldFolder m_directory; // tells other processes that the folder is in use
  QvLog m_log;
  QvbString m_cacheName;
  int m_timeBetweenChecks = 0; // milliseconds
  OwnedLock m_lock;
  Released<RemoteFilesystemFileProvider> m_filesystemProvider;
  Released<RemoteHttpFileProvider> m_httpProvider;
};
