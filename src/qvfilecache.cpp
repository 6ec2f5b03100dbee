#include "qvreposres/qvfilecache.h"

#include "allocation.h"
#include "qvfilecacheimpl.h"
#include "qvfilecachesingleton.h"
#include "qvreposres/qvreposobjecttypes.h"
#include "qvxbase/qvbunload.h"
#include "qvxbase/qvuri.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <string_view>

namespace {

constexpr std::string_view sourceSchemes[] = {"file", "http", "https"};

// For a host that unloads the library without a word.
struct Shutdown {
  ~Shutdown() { qvFileCacheShutdown(); }
};

void shutDownAtUnload() {
  tryAllocate([] { [[maybe_unused]] static Shutdown& shutdown = qvbUntilUnload<Shutdown>(); });
}

// Looked up once: a holder is made for every call.
const QvLog& holderLog() {
  static const QvLog log("QV.FileAccessCache.Singleton", "src/qvfilecache");
  return log;
}

bool isFolder(const QvbString& path) {
  NpFileStat found{};
  return np_fio_stat(path, &found) == NP_FIO_OK && found.kind == NpFileKind::Directory;
}

const char* missingCopyReason(const QvbString& remoteName, int result) {
  const Released<QvURI> uri(getURIFromURIString(remoteName));
  if (uri && std::ranges::find(sourceSchemes, uri->getScheme().view()) == std::end(sourceSchemes))
    return "give a path, or a URI of file, http or https";
  if (!uri && isFolder(remoteName))
    return "a folder, where a file is due";
  // The cache's own failure says no more than that there is no copy.
  return result <= NP_FIO_ERROR ? "no such file, or it cannot be read" : np_fio_errdesc(result);
}

} // namespace

QVB_FileAccessCacheSingleton::QVB_FileAccessCacheSingleton() : m_log(holderLog()) {}

const char* QVB_FileAccessCacheSingleton::getId() {
  m_log.lifecycle("getId: Returning id");
  return "QVB_FileAccessCache";
}

void* QVB_FileAccessCacheSingleton::createObject() {
  shutDownAtUnload();
  if (m_cache)
    return m_cache;
  m_log.lifecycle("createObject: No cache, creating default");
  Released<FileAccessCacheManager> made(madeOrNull([] { return new (std::nothrow) FileAccessCacheImpl; }));
  m_log.lifecycle("createObject: Creating 0x%p", made.get());
  m_log.lifecycle("createObject: Initializing lookup maps");
  // The first lookups fill both maps of object types, so that no later one has to wait for that.
  QvbString scratch;
  // Kept: FileCacheHolder.MakesADefaultCacheWhenThereIsNone
  getFileExtensionForType("foo", &scratch);
  getTypeForFileExtension("foo", &scratch);
  m_cache = made.release();
  return m_cache;
}

void QVB_FileAccessCacheSingleton::deleteObject(void* object) {
  if (!object)
    return;
  auto* cache = static_cast<FileAccessCacheManager*>(object);
  m_log.lifecycle("deleteObject: Tossing cache 0x%p", cache);
  cache->release();
}

int QVB_FileAccessCacheSingleton::squirrelCache(FileAccessCacheManager* cache) {
  cleanupOnly();
  m_log.lifecycle("squirrelCache: Setting 0x%p", cache);
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
  m_log.lifecycle("getCache: Returning 0x%p", cache);
  return cache;
}

int qvFileCacheStartup(void* /*reserved*/, void** out) {
  *out = nullptr;
  return resultOr(-1, [] {
    bool created = false;
    return QVB_FileAccessCacheSingleton().initialize(&created) ? 0 : -1;
  });
}

// Without memory for its logger there never was a holder, and so no cache.
void qvFileCacheShutdown() {
  tryAllocate([] { QVB_FileAccessCacheSingleton().cleanupOnly(); });
}

int setFileCacheManager(FileAccessCacheManager* cache) {
  return resultOr(-1, [=] { return QVB_FileAccessCacheSingleton().squirrelCache(cache); });
}

FileAccessCache* getFileCache() {
  return madeOrNull([] { return QVB_FileAccessCacheSingleton().getCache(); });
}

bool getMissingCopyReason(const QvbString& remoteName, int result, QvbString* reason) {
  return tryAllocate([&] { *reason = missingCopyReason(remoteName, result); });
}
