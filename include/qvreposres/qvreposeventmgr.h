// Repository events: who changed which object.
//
// The manager calls every listener synchronously, in registration order, on the thread that fires, under its lock: a
// listener may call back into the manager, but must neither throw nor wait for another thread that uses the manager.
// The manager's operations may be called from any thread.
#pragma once

#include "qvreposres/export.h"
#include "qvxbase/qvbstring.h"

enum RepositoryObjectChangeType : int {
  RepositoryObjectCreated = 0,
  RepositoryObjectDeleted = 1,
  RepositoryObjectModified = 2,
  RepositoryObjectLocked = 3,
  RepositoryObjectUnlocked = 4,
  RepositoryObjectRenamed = 5
};

// Implemented by applications, which own their listeners.
class RepositoryObjectChange {
public:
  virtual ~RepositoryObjectChange() = default;
  virtual void objectChanged(const QvbString& repository, RepositoryObjectChangeType type,
                             const QvbString& object, int id, const QvbString& uuid) = 0;
  virtual void objectRenamed(const QvbString& repository, const QvbString& object, int id,
                             const QvbString& uuid, const QvbString& oldName, const QvbString& newName) = 0;
  // `detail` is the new name when the type is RepositoryObjectRenamed.
  virtual void contentChanged(const QvbString& repository, const QvbString& object,
                              RepositoryObjectChangeType type, const QvbString& detail) = 0;
};

class QVREPOSRES_API QvReposEventManager {
public:
  virtual ~QvReposEventManager() = default;
  virtual void release() = 0;
  // Always null.
  virtual QvbString getErrorMessage() = 0;
  virtual void fireObjectChanged(const QvbString& repository, RepositoryObjectChangeType type,
                                 const QvbString& object, int id, const QvbString& uuid) = 0;
  virtual void fireObjectRenamed(const QvbString& repository, const QvbString& object, int id,
                                 const QvbString& uuid, const QvbString& oldName,
                                 const QvbString& newName) = 0;
  // False for null alone: a listener that is added twice is called twice.
  virtual bool addRepositoryObjectChangeListener(RepositoryObjectChange* listener) = 0;
  // Removes every occurrence. The result is always false and says nothing.
  virtual bool removeRepositoryObjectChangeListener(RepositoryObjectChange* listener) = 0;
  virtual void fireContentChanged(const QvbString& repository, const QvbString& object,
                                  RepositoryObjectChangeType type, const QvbString& detail) = 0;
  // The identifier by which this process tells its own changes from those of others. False for a null `out`.
  virtual bool getClientGUID(QvbString* out) = 0;
};

extern "C" {

// The process-wide manager, made on the first call, which must not race another one; callers do not release it.
QVREPOSRES_API QvReposEventManager* getRepositoryEventManager();

// The word for a change; "modified" for every value that has none of its own. False for a null `out`.
QVREPOSRES_API bool getRepositoryEventChangeTypeString(RepositoryObjectChangeType type, QvbString* out);
// The change of a word, case included; RepositoryObjectModified for every other text.
QVREPOSRES_API RepositoryObjectChangeType getRepositoryEventChangeTypeFromString(const QvbString& text);
}
