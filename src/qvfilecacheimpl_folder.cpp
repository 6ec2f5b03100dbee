#include "qvfilecacheimpl_folder.h"

#include "allocation.h"
#include "qvxbase/qvbpath.h"

#include <array>

void CacheFolder::make() {
  const QvbString name = qvbGetUUID();
  m_log.lifecycle("Created file CACHE: %s", name);
  std::array<char, 4096> path{};
  NpDir* folder = nullptr;
  const int failed = np_dir_tmpdir(name.asCstr(), path.data(), path.size(), &folder);
  m_new.reset(folder);
  if (failed)
    return m_log.error("Error creating cache directory: %s", name);
  m_path.assign(path.data());
  m_log.lifecycle("Created temp directory for cache: %s", m_path);
}

void CacheFolder::nameFile(QvbString* path) const {
  tryAllocate([&] {
    const QvbString name = qvbGetUUID();
    const auto size = static_cast<std::size_t>(m_path.length() + name.length() + 2) + 1;
    const std::unique_ptr<char[]> joined(new (std::nothrow) char[size]());
    if (!joined)
      return;
    // Without its folder the cache copies nothing: the name alone would be a file of the working folder.
    if (!isThere() || np_fio_pcat(m_path.asCstr(), name.asCstr(), joined.get(), size) != NP_FIO_OK)
      m_log.error("Error building path for target \"%s\" folder with \"%s\" name", m_path, name);
    // A path that could not be joined counts as it is.
    // Kept: FileCache.TakesWhatAFailedJoinLeft
    path->assign(joined.get());
  });
}

bool CacheFolder::deleteCopy(const FileAccessCacheEntry& entry) const {
  if (entry.localFilename.isNull())
    return true;
  m_log.trace("Removing cache entry %s for remote file %s", entry.localFilename, entry.remoteFilename);
  if (np_fio_unlink(entry.localFilename) == NP_FIO_OK)
    return true;
  m_log.error("Unable to remove cache entry local file: %s", entry.localFilename);
  return false;
}

bool CacheFolder::empty() const {
  return resultOr(false, [&] {
    QvbString error;
    const Released<QvbDirectory> directory(qvbDirectoryOpen(m_path, 0, &error));
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

bool CacheFolder::deleteOrphan(QvbDirectory& directory) const {
  const QvbString path = directory.getPath();
  m_log.anomaly("Orphaned cache entry found: %s", directory.getName());
  if (np_fio_unlink(path) == NP_FIO_OK)
    return true;
  m_log.error("Unable to delete orphaned cache entry: %s", path);
  return false;
}

void CacheFolder::remove() const {
  if (np_dir_unlink(m_path) != NP_FIO_OK)
    m_log.error("Error removing cache directory: %s", m_path);
}
