// Where the cache fetches from: its own sources, and the default one that a host may set.
#pragma once

#include "qvfilecacheimpl_entry.h"
#include "qvxbase/qvbreleased.h"
#include "qvxlog/qvlog.h"

class RemoteFilesystemFileProvider;
class RemoteHttpFileProvider;

class CacheSources {
public:
  explicit CacheSources(const QvLog& log);
  ~CacheSources();
  CacheSources(const CacheSources&) = delete;
  CacheSources& operator=(const CacheSources&) = delete;

  // Makes the cache's own sources; one that there is no memory for is missing.
  void make();
  // Owns the source from now on; the one before it ends first.
  void setDefault(FileAccessCacheSourceProvider* source);
  // The source that a name's scheme asks for; null for a URI whose scheme holds neither "http" nor "file".
  FileAccessCacheSourceProvider* forName(const QvbString& name) const;
  // The default source, the entry's own, or the one that the name asks for.
  FileAccessCacheSourceProvider* forEntry(const FileAccessCacheEntry* entry, const QvbString& name) const;
  // The answer of the last source that there is; `none` without any.
  bool flush(bool flag, bool none) const;
  // Ends them all.
  void end();

private:
  const QvLog& m_log;
  Released<FileAccessCacheSourceProvider> m_default;
  Released<RemoteFilesystemFileProvider> m_filesystem;
  Released<RemoteHttpFileProvider> m_http;
};
