// The registry of process-wide objects.
//
// The derived class names the object, makes it and destroys it; an instance is a short-lived handle on the
// registry and may live on the stack. The registry serialises making and ending over all threads with one
// recursive lock, held while createObject() and deleteObject() run; finding an object that is registered takes
// no lock and no memory. Each operation asks getId() once. The registry outlives static destruction.
#pragma once

#include "qvxbase/qvbexport.h"

class QVPLATFORM_API QvbAutoSingleton {
public:
  QvbAutoSingleton() noexcept = default;
  QvbAutoSingleton(const QvbAutoSingleton&) = delete;
  QvbAutoSingleton& operator=(const QvbAutoSingleton&) = delete;

  // Finds the object registered under getId(), or makes it with createObject() and registers it. `created`,
  // where given, tells whether this call made it. False when there is no object and none could be made, for want
  // of memory too.
  virtual bool initialize(bool* created);
  // Destroys the registered object, as cleanupOnly(), and forgets it here.
  virtual void terminate();
  virtual const char* getId() = 0;
  virtual void* createObject() = 0;
  virtual void deleteObject(void* object) = 0;

  // Destroys the registered object through deleteObject() and removes the registration; nothing when there is
  // none.
  void cleanupOnly();
  // What initialize() found or made; null before.
  void* getObject() const noexcept { return m_object; }

protected:
  ~QvbAutoSingleton() = default;

private:
  QVPLATFORM_HIDDEN bool makeUnlessRegistered(const char* id);

  void* m_object = nullptr;
};
