// The file access cache: local copies of remote files.
//
// A remote file is named by a URI ("http", "https" or "file") or a path. Integer results are 0 for success and a small
// code otherwise. One cache serves the whole process; the functions below hand it out, and all of them may be called
// from any thread.
#pragma once

#include "qvreposres/export.h"
#include "qvxbase/qvbdate.h"
#include "qvxbase/qvbstring.h"
#include "qvxbase/qvbsubject.h"

// What users of the cache see. Outputs are required; the error text is written only where a source has one.
class QVREPOSRES_API FileAccessCache {
public:
  virtual ~FileAccessCache() = default;

  // The path of a local copy that is current by the configured interval and that the source has granted to the
  // subject. The cache owns the file: callers read it and leave it alone.
  virtual int getCacheFilename(ASSubject* subject, const QvbString& remoteName, QvbString* localFilename,
                               QvbString* errorText) = 0;
  // Whether the source's modification date differs from that of the cached copy. True as well when no source answers.
  virtual int isModified(ASSubject* subject, const QvbString& remoteName, bool* modified,
                         QvbString* errorText) = 0;
  // Whether the source has a modification date: 0 when it has, 4 when it has none. `date` is never written.
  virtual int getModifiedDate(ASSubject* subject, const QvbString& remoteName, QvbDate* date,
                              QvbString* errorText) = 0;
  // Deletes every local copy and has every source forget what it knows. The flag goes on to the sources.
  virtual bool flush(bool flag) = 0;
};

// Where the contents and dates of remote files come from.
class QVREPOSRES_API FileAccessCacheSourceProvider {
public:
  virtual ~FileAccessCacheSourceProvider() = default;

  virtual void release() = 0;
  virtual bool exists(ASSubject* subject, const QvbString& remoteName, QvbString* errorText) = 0;
  // Fills the date or leaves it null. `refresh` asks for the source's own answer rather than one it remembers.
  virtual int getModifiedDate(ASSubject* subject, const QvbString& remoteName, QvbDate* date,
                              QvbString* errorText, bool refresh) = 0;
  // Writes the whole remote content into the local file.
  virtual int updateLocalFileContent(ASSubject* subject, const QvbString& remoteName,
                                     const QvbString& localFilename, QvbString* errorText) = 0;
  virtual bool flush(bool flag) = 0;
};

// A cache that the process-wide holder can own.
class QVREPOSRES_API FileAccessCacheManager : public FileAccessCache {
public:
  virtual void release() = 0;
  // The cache owns the provider from then on and releases the one before it.
  virtual void setSourceProvider(FileAccessCacheSourceProvider* provider) = 0;
};

extern "C" {

// Makes the process-wide cache, or finds it. 0 on success, -1 on failure. `reserved` is ignored; `*out` becomes null.
QVREPOSRES_API int qvFileCacheStartup(void* reserved, void** out);
// Ends the process-wide cache.
QVREPOSRES_API void qvFileCacheShutdown();
// Ends the process-wide cache and installs this one in its place. 0: the library owns it and releases it at shutdown;
// -1: it could not be installed; -2: another thread installed one first. In the last two cases it stays the caller's.
QVREPOSRES_API int setFileCacheManager(FileAccessCacheManager* cache);
// The process-wide cache, made on first use; null when there is none. Callers do not release it.
QVREPOSRES_API FileAccessCache* getFileCache();
}
