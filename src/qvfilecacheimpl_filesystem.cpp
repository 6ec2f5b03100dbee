#include "qvfilecacheimpl_filesystem.h"

#include "guards.h"

#include <array>

namespace {

OpenFile openFile(const QvbString& path, int mode) {
  NpFile* file = nullptr;
  np_fio_open(path, mode, &file);
  return OpenFile(file);
}

} // namespace

RemoteFilesystemFileProvider::RemoteFilesystemFileProvider()
    : m_log("QV.FileAccessCache.FilesystemProvider", "src/qvfilecacheimpl") {}

bool RemoteFilesystemFileProvider::exists(ASSubject*, const QvbString& name, QvbString*) {
  if (np_fio_stat(name, nullptr) != NP_FIO_OK)
    return false;
  m_log.trace("The file %s exists", name);
  return true;
}

int RemoteFilesystemFileProvider::getModifiedDate(ASSubject*, const QvbString& name, QvbDate* date,
                                                  QvbString*, bool) {
  NpFileStat stat{};
  if (const int failed = np_fio_stat(name, &stat))
    return failed;
  if (const QvbDate modified = QvbDate::fromEpoch(stat.modifiedSeconds); !modified.isNull())
    *date = modified;
  return 0;
}

int RemoteFilesystemFileProvider::updateLocalFileContent(ASSubject*, const QvbString& name,
                                                         const QvbString& localFilename, QvbString*) {
  CopyTotals totals;
  const int result = copy(name, localFilename, &totals) ? 0 : 1;
  m_log.trace("Update local file content %s to %s, read %d, wrote %d", name, localFilename, totals.read,
              totals.written);
  return result;
}

bool RemoteFilesystemFileProvider::copy(const QvbString& name, const QvbString& localFilename,
                                        CopyTotals* totals) {
  const OpenFile source = openFile(name, NP_FIO_READ);
  OpenFile local = source ? openFile(localFilename, NP_FIO_REPLACE) : nullptr;
  if (!local || !copyBlocks(source.get(), local.get(), localFilename, totals))
    return false;
  // A copy that did not take its place is no copy, however much of it was written.
  // Kept: FilesystemSource.TakesAnEmptySourceForAFailedCopy
  return np_fio_close(local.release()) == NP_FIO_OK && totals->written >= 1;
}

// False when the source could not be read to its end.
bool RemoteFilesystemFileProvider::copyBlocks(NpFile* source, NpFile* local, const QvbString& localFilename,
                                              CopyTotals* totals) {
  std::array<char, 4096> block;
  std::int64_t count = 0;
  while ((count = np_fio_getb(source, block.data(), block.size())) > 0) {
    totals->read += count;
    const std::int64_t written = np_fio_putb(local, block.data(), static_cast<std::size_t>(count));
    totals->written += written;
    if (written < 0)
      m_log.lifecycle("We had an issue writing bytes to: %s", localFilename);
  }
  return count == 0;
}

bool RemoteFilesystemFileProvider::flush(bool) {
  m_log.trace("Remote File system provider flushing cache.");
  return true;
}
