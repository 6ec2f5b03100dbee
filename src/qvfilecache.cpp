#include "qvreposres/qvfilecache.h"

#include "allocation.h"
#include "qvfilecacheimpl.h"
#include "qvfilecachesingleton.h"
#include "qvreposres/qvreposobjecttypes.h"
#include "qvxbase/qvbunload.h"

#include <new>

namespace {

constexpr const char* logSource = "src/qvfilecache";

// For a host that unloads the library without a word.
struct Shutdown {
  ~Shutdown() { qvFileCacheShutdown(); }
};

void shutDownAtUnload() {
  tryAllocate([] { [[maybe_unused]] static Shutdown& shutdown = qvbUntilUnload<Shutdown>(); });
}

} // namespace

QVB_FileAccessCacheSingleton::QVB_FileAccessCacheSingleton()
    : m_logger(qvlogGetLogger("QV.FileAccessCache.Singleton")) {}

const char* QVB_FileAccessCacheSingleton::getId() {
  m_logger->logEvent(QvLoggingLevel::Lifecycle, logSource, __LINE__, "getId: Returning id");
  return "QVB_FileAccessCache";
}

void* QVB_FileAccessCacheSingleton::createObject() {
  shutDownAtUnload();
  if (m_cache)
    return m_cache;
  m_logger->logEvent(QvLoggingLevel::Lifecycle, logSource, __LINE__,
                     "createObject: No cache, creating default");
  m_cache = new (std::nothrow) FileAccessCacheImpl;
  m_logger->logEvent(QvLoggingLevel::Lifecycle, logSource, __LINE__, "createObject: Creating 0x%p", m_cache);
  m_logger->logEvent(QvLoggingLevel::Lifecycle, logSource, __LINE__,
                     "createObject: Initializing lookup maps");
  // The first lookups fill both maps of object types, so that no later one has to wait for that.
  QvbString scratch;
  getFileExtensionForType("foo", &scratch);
  getTypeForFileExtension("foo", &scratch);
  return m_cache;
}

void QVB_FileAccessCacheSingleton::deleteObject(void* object) {
  if (!object)
    return;
  auto* cache = static_cast<FileAccessCacheManager*>(object);
  m_logger->logEvent(QvLoggingLevel::Lifecycle, logSource, __LINE__, "deleteObject: Tossing cache 0x%p",
                     cache);
  cache->release();
}

int QVB_FileAccessCacheSingleton::squirrelCache(FileAccessCacheManager* cache) {
  cleanupOnly();
  m_logger->logEvent(QvLoggingLevel::Lifecycle, logSource, __LINE__, "squirrelCache: Setting 0x%p", cache);
  m_cache = cache;
  bool created = false;
  if (!initialize(&created))
    return -1;
  return created ? 0 : -2;
}

FileAccessCache* QVB_FileAccessCacheSingleton::getCache() {
  bool created = false;
  if (!initialize(&created))
    return nullptr;
  auto* cache = static_cast<FileAccessCacheManager*>(getObject());
  m_logger->logEvent(QvLoggingLevel::Lifecycle, logSource, __LINE__, "getCache: Returning 0x%p", cache);
  return cache;
}

int qvFileCacheStartup(void* /*reserved*/, void** out) {
  *out = nullptr;
  bool created = false;
  return QVB_FileAccessCacheSingleton().initialize(&created) ? 0 : -1;
}

void qvFileCacheShutdown() { QVB_FileAccessCacheSingleton().cleanupOnly(); }

int setFileCacheManager(FileAccessCacheManager* cache) {
  return QVB_FileAccessCacheSingleton().squirrelCache(cache);
}

FileAccessCache* getFileCache() { return QVB_FileAccessCacheSingleton().getCache(); }
