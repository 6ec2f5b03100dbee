// Ownership guards for what ends with release(), for open files and for locks.
#pragma once

#include "qvsfio/npfio.h"
#include "qvxbase/qvbsubject.h"
#include "qvxbb/qvlock.h"

#include <memory>

struct ReleaseCaller {
  template<class T>
  void operator()(T* object) const {
    object->release();
  }
};
// Owns an object of the library or the platform that ends with release().
template<class T>
using Released = std::unique_ptr<T, ReleaseCaller>;

struct SubjectReleaser {
  void operator()(ASSubject* subject) const { qvbSubjectRelease(subject); }
};
using ReleasedSubject = std::unique_ptr<ASSubject, SubjectReleaser>;

struct FileDiscarder {
  void operator()(NpFile* file) const { np_fio_discard(file); }
};
// A file that is written takes its place only when it is closed explicitly.
using OpenFile = std::unique_ptr<NpFile, FileDiscarder>;

struct LockDestroyer {
  void operator()(QvLock* lock) const { qvLockDestroy(lock); }
};
// Owns a platform lock; null when none could be made.
using OwnedLock = std::unique_ptr<QvLock, LockDestroyer>;

// Holds a platform lock, which may be null, for its own life.
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
