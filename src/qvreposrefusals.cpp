#include "qvreposrefusals.h"

#include "guards.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvbpath.h"

void QvReposRefusalListImpl::addFolder(const QvbString& path, const char* option) {
  QvbString error;
  if (!Released<QvbDirectory>(qvbDirectoryOpen(path, 0, &error)))
    m_rows.push_back({path, qvbStringFormat("%s: %s", option, error), false});
}

void QvReposRefusalListImpl::addFile(const RefusedFile& refused) {
  const auto path = refused.file->definition.getFilename();
  const auto reason = !refused.winner ? refused.file->reason
                                      : qvbStringFormat("%s: a definition named \"%s\" is loaded from %s",
                                                        path, refused.file->definition.getName(),
                                                        refused.winner->definition.getFilename());
  m_rows.push_back({path, reason, refused.winner != nullptr});
}
