// Ownership guards: beside those of qvbreleased.h, for what ends with release(), the library's own for open files, locks
// and steps that a scope's end is to take.
#pragma once

#include "qvsfio/npfio.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbb/qvlock.h"

#include <memory>
#include <utility>

struct FileDiscarder {
  void operator()(NpFile* file) const { np_fio_discard(file); }
};
// A file that is written takes its place only when it is closed explicitly.
using OpenFile = std::unique_ptr<NpFile, FileDiscarder>;

struct FolderDiscarder {
  void operator()(NpDir* folder) const { np_dir_discard(folder); }
};
// A new folder that goes again unless its handle is closed explicitly.
using OpenFolder = std::unique_ptr<NpDir, FolderDiscarder>;

struct FolderCloser {
  void operator()(NpDir* folder) const { np_dir_close(folder); }
};
// A folder that stays when its handle goes.
using HeldFolder = std::unique_ptr<NpDir, FolderCloser>;

struct LockDestroyer {
  void operator()(QvLock* lock) const { qvLockDestroy(lock); }
};
// Owns a platform lock; null when none could be made.
using OwnedLock = std::unique_ptr<QvLock, LockDestroyer>;

// Holds a platform lock, which may be null, for its own life. The lock excludes every other thread in both modes, and
// what runs under either may write: refresh() of the definition manager, which every lookup begins with, rebuilds what
// the manager knows under the reader's. The mode is what the operation is for its caller.
class LockGuard {
public:
  static constexpr int ReaderMode = 0;
  static constexpr int WriterMode = 1;

  LockGuard(QvLock* lock, int mode) : m_lock(lock) { qvLockGet(m_lock, mode, 1); }
  ~LockGuard() { qvLockRelease(m_lock); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

private:
  QvLock* m_lock;
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
