// The file access cache: private local copies of remote files, refreshed by age and granted user by user.
#pragma once

#include "guards.h"
#include "qvfilecacheimpl_entry.h"
#include "qvfilecacheimpl_folder.h"
#include "qvfilecacheimpl_index.h"
#include "qvfilecacheimpl_refresh.h"
#include "qvfilecacheimpl_sources.h"

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
                     QvbString* errorText) QVB_REQUIRES(m_lock);
  // Refresh: always copies the content again.
  int updateCache(ASSubject* subject, const QvbString& name, FileAccessCacheEntry* entry,
                  QvbString* errorText) QVB_REQUIRES(m_lock);
  int updateFileCacheContents(ASSubject* subject, const QvbString& name, FileAccessCacheEntry* entry)
      QVB_REQUIRES(m_lock);
  int setFileCacheModifiedDate(const QvbString& name, const QvbDate& date) QVB_REQUIRES(m_lock);
  // A new entry gets a generated local name, whatever `localName` says.
  bool setFileCacheLocalName(const QvbString& name, const QvbString& localName) QVB_REQUIRES(m_lock);
  // Deletes the local file. When that succeeds the entry stays and the result is false; when it fails the entry goes and
  // the result is true.
  bool removeFileFromCache(const QvbString& name) QVB_REQUIRES(m_lock);
  // False for a null entry alone.
  bool generateLocalFilename(FileAccessCacheEntry* entry);
  void updateCachedEntryDate(FileAccessCacheEntry* entry);
  // The moment from which a copy refreshed at `from` is refreshed again.
  QvbDate getCacheExpireAsOfDate(const QvbDate& from) const;
  // The source for an entry: the default one, its own, or the choice by name.
  FileAccessCacheSourceProvider* getCacheSourceProvider(const FileAccessCacheEntry* entry,
                                                        const QvbString& name) QVB_REQUIRES(m_lock);
  // Null for a URI whose scheme holds neither "http" nor "file".
  FileAccessCacheSourceProvider* getCacheSourceProviderForFileType(const QvbString& name)
      QVB_REQUIRES(m_lock);

private:
  QVREPOSRES_HIDDEN int getCopy(ASSubject* subject, const QvbString& remoteName, QvbString* localFilename,
                                QvbString* errorText);
  QVREPOSRES_HIDDEN int fetchNew(ASSubject* subject, const QvbString& name, const QvbDate& date,
                                 QvbString* localFilename, FileAccessCacheSourceProvider* provider)
      QVB_REQUIRES(m_lock);
  QVREPOSRES_HIDDEN int refetchExisting(ASSubject* subject, const QvbString& name,
                                        FileAccessCacheEntry& entry, const QvbDate& date,
                                        QvbString* localFilename, FileAccessCacheSourceProvider* provider)
      QVB_REQUIRES(m_lock);
  // Names and their sources are looked at before the lock is taken.
  QVREPOSRES_HIDDEN FileAccessCacheSourceProvider* dateSource(const char* operation, const QvbString& name)
      QVB_UNCHECKED_LOCKS; // a scheme's source stays what it is
  QVREPOSRES_HIDDEN CacheIndex::Key keyOf(const QvbString& remoteName) QVB_UNCHECKED_LOCKS {
    return m_index.keyOf(remoteName); // which guards itself
  }
  QVREPOSRES_HIDDEN bool discardCopies() QVB_REQUIRES(m_lock);

  const QvLog m_log{"QV.FileAccessCache", "src/qvfilecacheimpl"};
  Lock m_lock;
  CacheFolder m_folder{m_log};       // stays what it is from its making
  RefreshInterval m_interval{m_log}; // and so does this
  CacheIndex m_index QVB_GUARDED_BY(m_lock){m_log};
  CacheSources m_sources QVB_GUARDED_BY(m_lock){m_log};
};
