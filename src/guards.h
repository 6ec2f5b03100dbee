// Ownership guards: beside those of qvbreleased.h, for what ends with release(), the library's own for open files, locks
// and steps that a scope's end is to take.
#pragma once

#include "qvsfio/npfio.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvbthreads.h"
#include "qvxbb/qvlock.h"

#include <utility>

// A file that is written takes its place only when it is closed explicitly.
using OpenFile = EndedBy<NpFile, np_fio_discard>;
// A new folder that goes again unless its handle is closed explicitly.
using OpenFolder = EndedBy<NpDir, np_dir_discard>;
// A folder that stays when its handle goes.
using HeldFolder = EndedBy<NpDir, np_dir_close>;

// What the holder of a lock is going to do for its caller.
enum class LockRequest { Reader = 0, Writer = 1 };

// A platform lock. Where none could be made it is taken and released all the same, and excludes nobody.
class QVB_LOCK Lock {
public:
  Lock() : m_lock(qvLockCreate(0, 1)) {}
  ~Lock() { qvLockDestroy(m_lock); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  explicit operator bool() const { return m_lock != nullptr; }
  // Both requests are granted to one thread at a time: what only reads for its caller may write here, as the lookups of
  // the definition manager do, which begin with refresh().
  void take(LockRequest request) QVB_ACQUIRES() { qvLockGet(m_lock, static_cast<int>(request), 1); }
  void release() QVB_RELEASES() { qvLockRelease(m_lock); }

private:
  QvLock* m_lock;
};

// Holds a lock for its own life. The thread that holds it may take it again.
class QVB_LOCK_GUARD LockGuard {
public:
  LockGuard(Lock& lock, LockRequest request) QVB_ACQUIRES(lock) : m_lock(lock) { m_lock.take(request); }
  ~LockGuard() QVB_RELEASES() { m_lock.release(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

private:
  Lock& m_lock;
};

// Takes a step when its scope ends, however that comes about.
template<class Step>
class ScopeExit {
public:
  explicit ScopeExit(Step step) : m_step(std::move(step)) {}
  ~ScopeExit() { m_step(); }
  ScopeExit(const ScopeExit&) = delete;
  ScopeExit& operator=(const ScopeExit&) = delete;

private:
  Step m_step;
};
