// The file access cache: local copies of remote files.
//
// A remote file is named by a URI ("http", "https" or "file") or by the path of a regular file. Integer results
// are 0 for success and a small code otherwise; short memory is a failure like any other, and no exception. One
// cache serves the whole process; the functions below hand it out, and all of them may be called from any
// thread. So may the operations of the cache, and of one that a host supplies; a source provider is called by
// one thread at a time, under the lock of the cache that owns it. While it is called it may ask that cache for
// other files, but neither flush it nor replace its source.
#pragma once

#include "qvreposres/export.h"
#include "qvxbase/qvbdate.h"
#include "qvxbase/qvbstring.h"
#include "qvxbase/qvbsubject.h"

// What users of the cache see. Outputs are required; the error text is written only where a source has one.
class QVREPOSRES_API FileAccessCache {
public:
  virtual ~FileAccessCache() = default;

  // The path of a local copy that is current by the configured interval and that the source has granted to
  // the subject. The cache owns the file: callers read it and leave it alone. It lasts until flush() or the
  // cache's end. On failure `localFilename` may hold the path of an older copy, or of one that could not be
  // made. The attempt counts for the interval: until it has passed, calls may answer 0 with that path.
  virtual int getCacheFilename(ASSubject* subject, const QvbString& remoteName, QvbString* localFilename,
                               QvbString* errorText) = 0;
  // Whether the source's modification date differs from that of the cached copy: false when the source has
  // none, true when there is no source for the name. The result is the source's own, 0 without one.
  virtual int isModified(ASSubject* subject, const QvbString& remoteName, bool* modified,
                         QvbString* errorText) = 0;
  // Whether the source has a modification date: 4 when it has none, else the source's own result, 0 without a
  // source for the name. `date` is never written.
  virtual int getModifiedDate(ASSubject* subject, const QvbString& remoteName, QvbDate* date,
                              QvbString* errorText) = 0;
  // Deletes every local copy and has every source forget what it knows. The flag goes on to the sources, and
  // the last one's answer is the result.
  virtual bool flush(bool flag) = 0;
};

// Where the contents and dates of remote files come from.
class QVREPOSRES_API FileAccessCacheSourceProvider {
public:
  virtual ~FileAccessCacheSourceProvider() = default;

  // For the cache that owns the provider.
  virtual void release() = 0;
  // Whether there is such a file that the subject may read.
  virtual bool exists(ASSubject* subject, const QvbString& remoteName, QvbString* errorText) = 0;
  // Fills the date or leaves it null. `refresh` asks for the source's own answer rather than one it
  // remembers.
  virtual int getModifiedDate(ASSubject* subject, const QvbString& remoteName, QvbDate* date,
                              QvbString* errorText, bool refresh) = 0;
  // Writes the whole remote content into the local file.
  virtual int updateLocalFileContent(ASSubject* subject, const QvbString& remoteName,
                                     const QvbString& localFilename, QvbString* errorText) = 0;
  // Forgets what it remembers of remote files. The flag is the caller's and has no meaning of its own.
  virtual bool flush(bool flag) = 0;
};

// A cache that the process-wide holder can own.
class QVREPOSRES_API FileAccessCacheManager : public FileAccessCache {
public:
  // For the holder, which calls it once, when the cache's time is over.
  virtual void release() = 0;
  // The cache owns the provider from then on and releases the one before it.
  virtual void setSourceProvider(FileAccessCacheSourceProvider* provider) = 0;
};

extern "C" {

// Makes the process-wide cache, or finds it. 0 on success, -1 on failure. `reserved` is ignored; `*out`
// becomes null, whatever the result.
QVREPOSRES_API int qvFileCacheStartup(void* reserved, void** out);
// Ends the process-wide cache; nothing when there is none. Pointers to it that were handed out are then void.
QVREPOSRES_API void qvFileCacheShutdown();
// Ends the process-wide cache, as qvFileCacheShutdown(), and installs this one in its place, or for null the
// default one. 0: the library owns it and releases it when it ends; -1: there is no process-wide cache now;
// -2: another thread installed one first. In the last two cases the cache stays the caller's. The one
// passed must not be the process-wide cache itself, which has ended by the time it would be installed.
QVREPOSRES_API int setFileCacheManager(FileAccessCacheManager* cache);
// The process-wide cache, made on first use; null when there is none. Callers do not release it.
QVREPOSRES_API FileAccessCache* getFileCache();

// Why there is no copy of that name, for people, where getCacheFilename() answered this result without an error text.
// False, with nothing written, when memory is short.
QVREPOSRES_API bool getMissingCopyReason(const QvbString& remoteName, int result, QvbString* reason);
}
