#include "qvxbb/qvlock.h"

#include "qvxbase/qvbfault.h"

#include <mutex>
#include <new>

struct QvLock {
  std::recursive_mutex mutex;
};

QvLock* qvLockCreate(int /*flags*/, int /*count*/) {
  return qvbFault(QvbFaultPoint::LockCreate) ? nullptr : new (std::nothrow) QvLock;
}

void qvLockGet(QvLock* lock, int /*mode*/, int /*wait*/) {
  if (lock)
    lock->mutex.lock();
}

void qvLockRelease(QvLock* lock) {
  if (lock)
    lock->mutex.unlock();
}

void qvLockDestroy(QvLock* lock) { delete lock; }
