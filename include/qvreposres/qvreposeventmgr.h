// Repository events: who changed which object.
//
// The manager calls every listener synchronously, in registration order, on the thread that fires, under its
// lock, so that events of different threads reach listeners one at a time. A listener must neither throw, nor
// wait for another thread that uses the manager, nor end the manager. It may call back into the manager: what
// it fires reaches all listeners before the event at hand goes on, whom it removes (itself too) is not called
// again and may be gone at once, and whom it adds hears of the events after this one. The manager's
// operations may be called from any thread.
//
// What is fired reaches listeners as it is: texts may be null, the id is the caller's own number for the
// object, and a change that is none of those below stays the number that it is.
#pragma once

#include "qvreposres/export.h"
#include "qvxbase/qvbstring.h"

// What happened to an object.
enum RepositoryObjectChangeType : int {
  RepositoryObjectCreated = 0,
  RepositoryObjectDeleted = 1,
  RepositoryObjectModified = 2,
  RepositoryObjectLocked = 3,
  RepositoryObjectUnlocked = 4,
  RepositoryObjectRenamed = 5
};

// Implemented by applications, which own their listeners and remove them before they end them.
class RepositoryObjectChange {
public:
  virtual ~RepositoryObjectChange() = default;
  // An object was created, deleted, modified, locked or unlocked.
  virtual void objectChanged(const QvbString& repository, RepositoryObjectChangeType type,
                             const QvbString& object, int id, const QvbString& uuid) = 0;
  // An object has another name.
  virtual void objectRenamed(const QvbString& repository, const QvbString& object, int id,
                             const QvbString& uuid, const QvbString& oldName, const QvbString& newName) = 0;
  // `detail` is the new name when the type is RepositoryObjectRenamed.
  virtual void contentChanged(const QvbString& repository, const QvbString& object,
                              RepositoryObjectChangeType type, const QvbString& detail) = 0;
};

// Tells listeners of changes.
class QVREPOSRES_API QvReposEventManager {
public:
  virtual ~QvReposEventManager() = default;
  // For the library: the process-wide manager ends in qvReposResShutdown().
  virtual void release() = 0;
  // Always null.
  virtual QvbString getErrorMessage() = 0;
  // Calls objectChanged() of every listener.
  virtual void fireObjectChanged(const QvbString& repository, RepositoryObjectChangeType type,
                                 const QvbString& object, int id, const QvbString& uuid) = 0;
  // Calls objectRenamed() of every listener.
  virtual void fireObjectRenamed(const QvbString& repository, const QvbString& object, int id,
                                 const QvbString& uuid, const QvbString& oldName,
                                 const QvbString& newName) = 0;
  // False for null, and when memory is short: a listener that is added twice is called twice.
  virtual bool addRepositoryObjectChangeListener(RepositoryObjectChange* listener) = 0;
  // Removes every occurrence. The result is always false and says nothing.
  virtual bool removeRepositoryObjectChangeListener(RepositoryObjectChange* listener) = 0;
  // Calls contentChanged() of every listener.
  virtual void fireContentChanged(const QvbString& repository, const QvbString& object,
                                  RepositoryObjectChangeType type, const QvbString& detail) = 0;
  // The identifier by which this process tells its own changes from those of others: a UUID of 36 characters,
  // the same for the manager's whole life. False for a null `out`.
  virtual bool getClientGUID(QvbString* out) = 0;
};

extern "C" {

// The process-wide manager, made on the first call, which must not race another one (qvReposResStartup()
// makes it ahead of concurrent use); callers do not release it.
QVREPOSRES_API QvReposEventManager* getRepositoryEventManager();

// The word for a change: "created", "deleted", "modified", "locked", "unlocked" or "renamed"; "modified" for
// every other value. False for a null `out`.
QVREPOSRES_API bool getRepositoryEventChangeTypeString(RepositoryObjectChangeType type, QvbString* out);
// The change of a word, case included; RepositoryObjectModified for every other text.
QVREPOSRES_API RepositoryObjectChangeType getRepositoryEventChangeTypeFromString(const QvbString& text);
}
