#include "qvreposeventmgrimpl.h"

#include "allocation.h"
#include "qvxbase/qvbpath.h"

#include <algorithm>
#include <utility>

namespace {

struct ChangeWord {
  RepositoryObjectChangeType type;
  const char* word;
};
// Every change whose word is not "modified".
constexpr ChangeWord changeWords[] = {{RepositoryObjectCreated, "created"},
                                      {RepositoryObjectDeleted, "deleted"},
                                      {RepositoryObjectLocked, "locked"},
                                      {RepositoryObjectUnlocked, "unlocked"},
                                      {RepositoryObjectRenamed, "renamed"}};

const char* changeWord(RepositoryObjectChangeType type) {
  const auto* found = std::ranges::find(changeWords, type, &ChangeWord::type);
  return found == std::end(changeWords) ? "modified" : found->word;
}

} // namespace

bool getRepositoryEventChangeTypeString(RepositoryObjectChangeType type, QvbString* out) {
  if (!out)
    return false;
  out->assign(changeWord(type));
  return true;
}

RepositoryObjectChangeType getRepositoryEventChangeTypeFromString(const QvbString& text) {
  const auto* found = std::ranges::find(changeWords, text.view(), &ChangeWord::word);
  return found == std::end(changeWords) ? RepositoryObjectModified : found->type;
}

// Holds the listeners to their positions while it lives; the outermost one closes the gaps at its end.
class QvReposEventMgrImpl::Walk {
public:
  explicit Walk(QvReposEventMgrImpl& manager) : m_manager(manager) { ++m_manager.m_walks; }
  ~Walk() {
    if (--m_manager.m_walks == 0 && m_manager.m_hasGaps) [[unlikely]]
      m_manager.closeGaps();
  }
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;

private:
  QvReposEventMgrImpl& m_manager;
};

QvReposEventMgrImpl::QvReposEventMgrImpl()
    : m_log("QV.Repos.QvReposRes.ReposEventMgr", "src/qvreposeventmgrimpl"), m_clientGUID(qvbGetUUID()) {
  if (!m_lock)
    m_log.critical("Failed to create repos event manager lock");
  m_log.unchecked(QvLoggingLevel::Lifecycle,
                  qvbStringFormat("Startup of QvRepos Event Manager, ClientId=%s", m_clientGUID));
}

QvReposEventMgrImpl::~QvReposEventMgrImpl() {
  if (!m_listeners.empty())
    m_log.anomaly("Listener list was not empty on shutdown.");
  m_log.lifecycle("Shutdown of QvRepos Event Manager, ClientId=%s", m_clientGUID);
}

void QvReposEventMgrImpl::release() { delete this; }

QvbString QvReposEventMgrImpl::getErrorMessage() { return {}; }

void QvReposEventMgrImpl::closeGaps() {
  std::erase(m_listeners, nullptr);
  m_hasGaps = false;
}

// Calls those that are registered now and are not removed meanwhile.
template<class Notification>
void QvReposEventMgrImpl::notifyListeners(Notification notify) {
  const Walk walk(*this);
  const std::size_t count = m_listeners.size();
  for (std::size_t i = 0; i < count; ++i)
    if (RepositoryObjectChange* listener = m_listeners[i])
      notify(*listener);
}

void QvReposEventMgrImpl::fireObjectChanged(const QvbString& repository, RepositoryObjectChangeType type,
                                            const QvbString& object, int id, const QvbString& uuid) {
  const LockGuard guard(m_lock, LockRequest::Writer);
  if (m_log.isEnabled(QvLoggingLevel::Trace)) [[unlikely]]
    m_log.trace("Firing %s event for %s in repos %s object id=%d and uuid=%s.", changeWord(type), object,
                repository, id, uuid);
  notifyListeners(
      [&](RepositoryObjectChange& listener) { listener.objectChanged(repository, type, object, id, uuid); });
}

void QvReposEventMgrImpl::fireObjectRenamed(const QvbString& repository, const QvbString& object, int id,
                                            const QvbString& uuid, const QvbString& oldName,
                                            const QvbString& newName) {
  const LockGuard guard(m_lock, LockRequest::Writer);
  // This record shows where the id is, not what it is; listeners get the id itself.
  // Kept: EventManager.LogsARenamedObjectWithTheLocationOfItsId
  m_log.trace("Firing renamed event for %s in repos %s object id=%d and uuid=%s was renamed from %s to %s.",
              object, repository, &id, uuid, oldName, newName);
  notifyListeners([&](RepositoryObjectChange& listener) {
    listener.objectRenamed(repository, object, id, uuid, oldName, newName);
  });
}

bool QvReposEventMgrImpl::addRepositoryObjectChangeListener(RepositoryObjectChange* listener) {
  return listener && tryAllocate([&] {
           const LockGuard guard(m_lock, LockRequest::Writer);
           m_listeners.push_back(listener);
           m_log.trace("Adding listener");
         });
}

// The result is false whatever was removed.
// Kept: EventManager.RemovesEveryOccurrenceAndNoOtherListener
bool QvReposEventMgrImpl::removeRepositoryObjectChangeListener(RepositoryObjectChange* listener) {
  if (!listener)
    return false;
  const LockGuard guard(m_lock, LockRequest::Writer);
  const Walk walk(*this); // closes the gaps at once unless a notification is under way
  std::ranges::replace(m_listeners, listener, nullptr);
  m_hasGaps = true;
  return false;
}

void QvReposEventMgrImpl::fireContentChanged(const QvbString& repository, const QvbString& object,
                                             RepositoryObjectChangeType type, const QvbString& detail) {
  const LockGuard guard(m_lock, LockRequest::Writer);
  if (type == RepositoryObjectRenamed)
    m_log.trace("Firing content changed event for %s in repos %s object was %s to %s", object, repository,
                changeWord(type), detail);
  else
    m_log.trace("Firing content changed event for %s in repos %s object was %s", object, repository,
                changeWord(type));
  notifyListeners(
      [&](RepositoryObjectChange& listener) { listener.contentChanged(repository, object, type, detail); });
}

bool QvReposEventMgrImpl::getClientGUID(QvbString* out) {
  if (!out || m_clientGUID.isEmpty())
    return false;
  out->assign(m_clientGUID);
  return true;
}
