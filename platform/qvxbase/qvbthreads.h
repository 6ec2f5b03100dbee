// What is under which lock, said at the member and checked by clang (-Wthread-safety, which is an error in its builds). To
// other compilers the words mean nothing.
//
//   QvbMutex m_mutex;
//   int m_count QVB_GUARDED_BY(m_mutex) = 0;
//   void add() QVB_REQUIRES(m_mutex);         for whoever holds it
#pragma once

#include <mutex>

#ifdef __clang__
#define QVB_THREAD_SAFETY(word) __attribute__((word))
#else
#define QVB_THREAD_SAFETY(word)
#endif
#define QVB_LOCK QVB_THREAD_SAFETY(capability("lock"))
#define QVB_LOCK_GUARD QVB_THREAD_SAFETY(scoped_lockable)
#define QVB_GUARDED_BY(lock) QVB_THREAD_SAFETY(guarded_by(lock))
#define QVB_REQUIRES(lock) QVB_THREAD_SAFETY(requires_capability(lock))
#define QVB_ACQUIRES(...) QVB_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define QVB_RELEASES(...) QVB_THREAD_SAFETY(release_capability(__VA_ARGS__))
// For what nobody else can reach yet or any more, and for callers who see to the lock themselves; the comment says which.
#define QVB_UNCHECKED_LOCKS QVB_THREAD_SAFETY(no_thread_safety_analysis)

// std::mutex by those words.
class QVB_LOCK QvbMutex {
public:
  void lock() QVB_ACQUIRES() { m_mutex.lock(); }
  void unlock() QVB_RELEASES() { m_mutex.unlock(); }

private:
  std::mutex m_mutex;
};

// Holds a mutex for its own life, but between unlock() and lock().
class QVB_LOCK_GUARD QvbMutexGuard {
public:
  explicit QvbMutexGuard(QvbMutex& mutex) QVB_ACQUIRES(mutex) : m_guard(mutex) {}
  ~QvbMutexGuard() QVB_RELEASES() = default;
  QvbMutexGuard(const QvbMutexGuard&) = delete;
  QvbMutexGuard& operator=(const QvbMutexGuard&) = delete;

  void lock() QVB_ACQUIRES() { m_guard.lock(); }
  void unlock() QVB_RELEASES() { m_guard.unlock(); }

private:
  std::unique_lock<QvbMutex> m_guard;
};
