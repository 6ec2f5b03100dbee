#include "qvreposrefusals.h"

#include "guards.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvbpath.h"

void QvReposRefusalListImpl::addFolder(const QvbString& path, const char* option) {
  QvbString error;
  if (!Released<QvbDirectory>(qvbDirectoryOpen(path, 0, &error)))
    m_rows.push_back({path, qvbStringFormat("%s: %S", option, &error), false});
}

void QvReposRefusalListImpl::addFile(const RefusedFile& refused) {
  const auto path = refused.file->definition.getFilename();
  if (!refused.winner) {
    m_rows.push_back({path, refused.file->reason, false});
    return;
  }
  const auto name = refused.file->definition.getName();
  const auto winner = refused.winner->definition.getFilename();
  m_rows.push_back({path,
                    qvbStringFormat("%S: a definition named \"%S\" is loaded from %S", &path, &name, &winner),
                    true});
}
