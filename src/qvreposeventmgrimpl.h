// The event manager that getRepositoryEventManager() hands out.
#pragma once

#include "guards.h"
#include "qvreposres/qvreposeventmgr.h"
#include "qvxlog/qvlog.h"

#include <vector>

class QVREPOSRES_API QvReposEventMgrImpl final : public QvReposEventManager {
public:
  // Goes on without a lock when none can be made.
  QvReposEventMgrImpl();
  ~QvReposEventMgrImpl() override;
  QvReposEventMgrImpl(const QvReposEventMgrImpl&) = delete;
  QvReposEventMgrImpl& operator=(const QvReposEventMgrImpl&) = delete;

  void release() override;
  // Null: nothing that can fail here has a message.
  QvbString getErrorMessage() override;
  void fireObjectChanged(const QvbString& repository, RepositoryObjectChangeType type,
                         const QvbString& object, int id, const QvbString& uuid) override;
  void fireObjectRenamed(const QvbString& repository, const QvbString& object, int id, const QvbString& uuid,
                         const QvbString& oldName, const QvbString& newName) override;
  bool addRepositoryObjectChangeListener(RepositoryObjectChange* listener) override;
  bool removeRepositoryObjectChangeListener(RepositoryObjectChange* listener) override;
  void fireContentChanged(const QvbString& repository, const QvbString& object,
                          RepositoryObjectChangeType type, const QvbString& detail) override;
  bool getClientGUID(QvbString* out) override;

private:
  class QVREPOSRES_HIDDEN Walk;
  [[gnu::cold, gnu::noinline]] QVREPOSRES_HIDDEN void closeGaps() QVB_REQUIRES(m_lock);
  template<class Notification>
  QVREPOSRES_HIDDEN void notifyListeners(Notification notify) QVB_REQUIRES(m_lock);

  // In registration order. While listeners are being notified, a removed one leaves a null in its place, so
  // that the positions of the others stay what they are.
  std::vector<RepositoryObjectChange*> m_listeners QVB_GUARDED_BY(m_lock);
  QvLog m_log;
  Lock m_lock;
  const QvbString m_clientGUID;
  int m_walks QVB_GUARDED_BY(m_lock) = 0; // under way, one inside the other
  bool m_hasGaps QVB_GUARDED_BY(m_lock) = false;
};
