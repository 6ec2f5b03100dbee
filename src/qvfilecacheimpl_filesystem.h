// The cache's source for "file" URIs and plain paths. It checks no users: the process reads what it may.
#pragma once

#include "qvreposres/qvfilecache.h"
#include "qvsfio/npfio.h"
#include "qvxlog/qvlog.h"

class QVREPOSRES_API RemoteFilesystemFileProvider : public FileAccessCacheSourceProvider {
public:
  RemoteFilesystemFileProvider();

  void release() override { delete this; }
  bool exists(ASSubject* subject, const QvbString& name, QvbString* errorText) override;
  // Local time, without milliseconds.
  int getModifiedDate(ASSubject* subject, const QvbString& name, QvbDate* date, QvbString* errorText,
                      bool refresh) override;
  // 0, or 1 for a file that could not be copied or is empty.
  int updateLocalFileContent(ASSubject* subject, const QvbString& name, const QvbString& localFilename,
                             QvbString* errorText) override;
  bool flush(bool flag) override;

private:
  // Bytes read and written; a failed write counts with its negative result.
  struct CopyTotals {
    std::int64_t read = 0;
    std::int64_t written = 0;
  };

  QVREPOSRES_HIDDEN bool copy(const QvbString& name, const QvbString& localFilename, CopyTotals* totals);
  QVREPOSRES_HIDDEN bool copyBlocks(NpFile* source, NpFile* local, const QvbString& localFilename,
                                    CopyTotals* totals);

  QvLog m_log;
};
