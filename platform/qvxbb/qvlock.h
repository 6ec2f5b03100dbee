// Locks.
//
// A lock is recursive (a listener may call back into the manager that calls it) and exclusive in both modes:
// mode 1 is the writer's request and mode 0 the reader's, and both exclude every other thread. Every
// operation accepts a null handle and does nothing.
#pragma once

#include "qvxbase/qvbexport.h"

struct QvLock;

// Null when the lock cannot be made. The arguments are reserved: pass 0 and 1.
QVPLATFORM_API QvLock* qvLockCreate(int flags, int count);
// Blocks until the lock is granted. The last argument is reserved: pass 1.
QVPLATFORM_API void qvLockGet(QvLock* lock, int mode, int wait);
QVPLATFORM_API void qvLockRelease(QvLock* lock);
QVPLATFORM_API void qvLockDestroy(QvLock* lock);
