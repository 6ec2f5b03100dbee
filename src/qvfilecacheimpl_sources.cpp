#include "qvfilecacheimpl_sources.h"

#include "allocation.h"
#include "qvfilecacheimpl_filesystem.h"
#include "qvfilecacheimpl_http.h"
#include "qvxbase/qvuri.h"

CacheSources::CacheSources(const QvLog& log) : m_log(log) {}

CacheSources::~CacheSources() = default;

void CacheSources::make() {
  m_filesystem.reset(madeOrNull([] { return new (std::nothrow) RemoteFilesystemFileProvider; }));
  m_http.reset(madeOrNull([] { return new (std::nothrow) RemoteHttpFileProvider; }));
}

void CacheSources::setDefault(FileAccessCacheSourceProvider* source) {
  if (source == m_default.get())
    return;
  m_default.reset(); // before there is a new one
  m_default.reset(source);
}

FileAccessCacheSourceProvider* CacheSources::forName(const QvbString& name) const {
  const Released<QvURI> uri(getURIFromURIString(name));
  if (uri) {
    const QvbString scheme = uri->getScheme();
    m_log.trace("getCacheSourceProviderForFileType: scheme='%s'", scheme);
    const QvbString folded = QvbString(scheme).lowercase();
    if (folded.find("http") >= 0) {
      m_log.trace("getCacheSourceProviderForFileType: Using HTTP provider for %s", name);
      return m_http.get();
    }
    if (folded.find("file") < 0)
      return nullptr;
  }
  m_log.trace("getCacheSourceProviderForFileType: Using filesystem provider for %s", name);
  return m_filesystem.get();
}

FileAccessCacheSourceProvider* CacheSources::forEntry(const FileAccessCacheEntry* entry,
                                                      const QvbString& name) const {
  if (m_default)
    return m_default.get();
  return entry && entry->sourceProvider ? entry->sourceProvider : forName(name);
}

bool CacheSources::flush(bool flag, bool none) const {
  bool result = none;
  for (FileAccessCacheSourceProvider* source :
       {m_default.get(), static_cast<FileAccessCacheSourceProvider*>(m_filesystem.get()),
        static_cast<FileAccessCacheSourceProvider*>(m_http.get())})
    if (source)
      result = source->flush(flag);
  return result;
}

void CacheSources::end() {
  m_default.reset();
  m_filesystem.reset();
  m_http.reset();
}
