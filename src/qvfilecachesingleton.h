// The process-wide file access cache, as the platform's registry of process-wide objects sees it.
#pragma once

#include "qvreposres/qvfilecache.h"
#include "qvxbb/qvbautosingleton.h"
#include "qvxlog/qvlog.h"

// A handle on the one registered cache, made on the stack by whoever needs it.
class QVB_FileAccessCacheSingleton final : public QvbAutoSingleton {
public:
  QVB_FileAccessCacheSingleton();

  const char* getId() override;
  // Runs under the registry's lock.
  void* createObject() override;
  void deleteObject(void* object) override;

  // Ends the registered cache and registers this one: 0, -1 or -2 as setFileCacheManager() tells.
  int squirrelCache(FileAccessCacheManager* cache);
  // The registered cache, made when there is none; null when it cannot be made.
  FileAccessCache* getCache();

private:
  FileAccessCacheManager* m_cache = nullptr; // what createObject() hands to the registry
  const QvLog& m_log;
};
